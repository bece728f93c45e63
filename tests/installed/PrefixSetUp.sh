#!/usr/bin/env bash
# PrefixSetUp.sh CMAKE BUILD WORK LIBDIR: installs into a fresh prefix and moves it away to WORK/moved,
# where the other tests use it. Nothing in it may know where it was built or first installed.
set -euo pipefail
. tests/installed/support.sh
need readelf
CMAKE=$1 BUILD=$2 WORK=$3 LIBDIR=$4
rm -rf "$WORK/first" "$WORK/moved"
"$CMAKE" --install "$BUILD" --prefix "$WORK/first" >/dev/null
mv "$WORK/first" "$WORK/moved"
cd "$WORK/moved"

! grep -rIlF -e "$BUILD" -e "$WORK" -e "$OLDPWD" . >&2 || fail "these know of folders of the build"
for lFile in bin/htbase "$LIBDIR"/*.so; do
    RUNPATH=$(readelf -d "$lFile" | sed -n 's/.*(\(RUNPATH\|RPATH\)).*\[\(.*\)\]/\2/p')
    [[ $RUNPATH == '$ORIGIN'* && $RUNPATH != *:* ]] || fail "$lFile looks for libraries in '$RUNPATH'"
done
