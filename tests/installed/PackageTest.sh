#!/usr/bin/env bash
# PackageTest.sh CPACK BUILD WORK LIBDIR VERSION SOVERSION: the Debian packages hold what an
# installation holds, can be installed and removed, and leave nothing behind. All of it in a folder of
# the test's own: this machine's packages are not touched.
set -euo pipefail
. tests/installed/support.sh
need dpkg dpkg-deb dpkg-shlibdeps file ldd
CPACK=$1 BUILD=$2 WORK=$3 LIBDIR=$4 VERSION=$5
LIBRARIES=libhtbase$6
use_prefix "$WORK" "$LIBDIR"
rm -rf "$WORK/packages" "$WORK/root"
mkdir -p "$WORK/packages"
"$CPACK" --config "$BUILD/CPackConfig.cmake" -B "$WORK/packages" >"$WORK/packages/log" 2>&1 ||
    fail "$(cat "$WORK/packages/log")"
ARCHITECTURE=$(dpkg --print-architecture)

# package_file NAME
package_file()
{
    local lArchitecture=$ARCHITECTURE
    [ "$1" != libhtbase-common ] || lArchitecture=all
    printf %s "$WORK/packages/$1_${VERSION}_$lArchitecture.deb"
}

# field NAME FIELD
field() { dpkg-deb --field "$(package_file "$1")" "$2"; }

# expect_field NAME FIELD PATTERN: of the shell.
expect_field()
{
    local lValue
    lValue=$(field "$1" "$2")
    # shellcheck disable=SC2053
    [[ $lValue == $3 ]] || fail "$1: $2 is '$lValue', not '$3'"
}

PACKAGES=(libhtbase-common "$LIBRARIES" htbase libhtbase-dev)
for lName in "${PACKAGES[@]}"; do
    [ -e "$(package_file "$lName")" ] || fail "$lName was not made"
    expect_field "$lName" Package "$lName"
    expect_field "$lName" Maintainer "HtBase developers <htbase@example.invalid>"
    expect_field "$lName" Description "?*"
    # A script would run as root on the user's machine; there is nothing for one to do.
    SCRIPTS=$(dpkg-deb --ctrl-tarfile "$(package_file "$lName")" | tar -t |
        grep -E 'p(re|ost)(inst|rm)|config') || true
    [ -z "$SCRIPTS" ] || fail "$lName has scripts:" "$SCRIPTS"
done
expect_field "$LIBRARIES" Section libs
expect_field "$LIBRARIES" Depends "*libc6 (>= *libstdc++6 (>= *"
expect_field "$LIBRARIES" Recommends libhtbase-common
expect_field htbase Section utils
expect_field htbase Depends "*$LIBRARIES (= $VERSION)*libc6 (>= *"
expect_field libhtbase-dev Section libdevel
expect_field libhtbase-dev Depends "$LIBRARIES (= $VERSION)"
! readelf -d "$LIBRARY_FOLDER/libWdTransportLayerLib.so" | grep -q libusb-1.0 ||
    expect_field "$LIBRARIES" Depends "*libusb-1.0-0 (>= 2:1.0.22)*"
expect_same "the triggers" "activate-noawait ldconfig" \
    "$(dpkg-deb --info "$(package_file "$LIBRARIES")" triggers)"
expect_same "the shlibs" "libHtBase $6 $LIBRARIES (>= $VERSION)" \
    "$(dpkg-deb --info "$(package_file "$LIBRARIES")" shlibs | grep HtBase)"

# in_root ARGUMENT...: dpkg on a system of its own that has no packages. It installs every file, also
# where this machine is set up to go without man pages and the like.
ROOT=$WORK/root
mkdir -p "$ROOT"/var/lib/dpkg/{info,triggers,updates}
touch "$ROOT/var/lib/dpkg/status"
in_root()
{
    PATH=$PATH:/usr/sbin:/sbin dpkg --root="$ROOT" --log="$WORK/packages/dpkg.log" \
        --path-include='/*' --force-not-root --force-depends "$@" >"$WORK/packages/log" 2>&1 ||
        fail "$(cat "$WORK/packages/log")"
}

# list_root: all there is but dpkg's own records.
list_root()
{
    (cd "$ROOT" && find . -path ./var/lib/dpkg -prune -o ! -type d -printf '%P %l\n' | LC_ALL=C sort)
}

for lName in "${PACKAGES[@]}"; do
    in_root --install "$(package_file "$lName")"
done
expect_same "what the packages install" \
    "$(cd "$PREFIX" && find . ! -type d -printf 'usr/%P %l\n' | LC_ALL=C sort)" "$(list_root)"
# A program that uses the libraries installs only these packages: nothing that is needed to build one.
DEVELOPMENT=$(dpkg-deb --contents "$(package_file "$LIBRARIES")" | grep -E '\.(h|so|cmake|pc)( |$)') ||
    true
[ -z "$DEVELOPMENT" ] || fail "$LIBRARIES has what belongs to libhtbase-dev:" "$DEVELOPMENT"
expect_own_libraries "$ROOT/usr/bin/htbase" "$ROOT/usr/$LIBDIR"
expect_same "the version" "htbase $VERSION" "$("$ROOT/usr/bin/htbase" --version)"

in_root --remove htbase libhtbase-dev
[ -e "$ROOT/usr/$LIBDIR/libHtBase.so.$VERSION" ] || fail "removing the program removes the library"
in_root --remove "$LIBRARIES" libhtbase-common
expect_same "what is left" "" "$(list_root)"
[ ! -e "$ROOT/usr" ] || fail "folders are left:" "$(find "$ROOT/usr")"
in_root --purge "${PACKAGES[@]}"
! grep -q '^Package:' "$ROOT/var/lib/dpkg/status" || fail "dpkg still knows of packages"
