#!/usr/bin/env bash
# PrefixSetUp.sh CMAKE BUILD WORK LIBDIR SOVERSION: installs into a fresh prefix and moves it away to
# WORK/moved, where the other tests use it. It is whole, and nothing in it knows where it was built or
# first installed.
set -euo pipefail
. tests/installed/support.sh
need readelf
CMAKE=$1 BUILD=$2 WORK=$3 LIBDIR=$4 SOVERSION=$5
rm -rf "$WORK/first" "$WORK/moved"
"$CMAKE" --install "$BUILD" --prefix "$WORK/first" >/dev/null
mv "$WORK/first" "$WORK/moved"
cd "$WORK/moved"

! grep -rIlF -e "$BUILD" -e "$WORK" -e "$OLDPWD" . >&2 || fail "these know of folders of the build"
for lFile in bin/htbase share/man/man1/htbase.1 share/bash-completion/completions/htbase \
    lib/udev/rules.d/60-htbase.rules "$LIBDIR/pkgconfig/htbase.pc" \
    "$LIBDIR"/cmake/HtBase/HtBaseConfig{,Version}.cmake; do
    [ -s "$lFile" ] || fail "$lFile is not installed"
done
for lName in HtBase QmUtilsLib WdTransportLayerLib WdUtilsLib; do
    SONAME=$(readelf -d "$LIBDIR/lib$lName.so" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p')
    expect_same "the SONAME" "lib$lName.so.$SOVERSION" "$SONAME"
    [ -e "$LIBDIR/$SONAME" ] || fail "$SONAME is not installed"
done
for lFile in bin/htbase "$LIBDIR"/*.so; do
    RUNPATH=$(readelf -d "$lFile" | sed -n 's/.*(\(RUNPATH\|RPATH\)).*\[\(.*\)\]/\2/p')
    [[ $RUNPATH == '$ORIGIN'* && $RUNPATH != *:* ]] || fail "$lFile looks for libraries in '$RUNPATH'"
done
