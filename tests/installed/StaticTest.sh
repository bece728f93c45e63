#!/usr/bin/env bash
# StaticTest.sh CMAKE COMPILER WORK LIBDIR VERSION OTHER-VERSION TOOL LAUNCHER: as ConsumerTest.sh,
# with static libraries, which must state the libraries that they need themselves. They are built here,
# without optimisation, because no other build makes them.
set -euo pipefail
. tests/installed/support.sh
CMAKE=$1 COMPILER=$2 WORK=$3
need pkg-config "$COMPILER"
rm -rf "$WORK/first" "$WORK/moved"
mkdir -p "$WORK"
"$CMAKE" -S . -B "$WORK/build" -G Ninja -DCMAKE_CXX_COMPILER="$COMPILER" -DBUILD_SHARED_LIBS=OFF \
    -DCMAKE_CXX_COMPILER_LAUNCHER="${8-}" -DCMAKE_INSTALL_LIBDIR="$4" -DCMAKE_BUILD_TYPE=None -DHTBASE_BUILD_EXAMPLES=OFF \
    -DHTBASE_BUILD_TESTS=OFF -DHTBASE_BUILD_TOOLS=OFF >"$WORK/log" 2>&1 ||
    fail "$(cat "$WORK/log")"
"$CMAKE" --build "$WORK/build" >"$WORK/log" 2>&1 || fail "$(cat "$WORK/log")"
"$CMAKE" --install "$WORK/build" --prefix "$WORK/first" >"$WORK/log"
mv "$WORK/first" "$WORK/moved"
[ ! -e "$WORK/moved/$4/libHtBase.so" ] || fail "a shared library among the static ones"

# takers VERSION OPTION...: which parts accept a libusb of that version, an empty stand-in. The options
# are passed to the consumer.
takers()
{
    local lFolder=$WORK/libusb
    rm -rf "$lFolder"
    mkdir -p "$lFolder"
    printf '%s\n' "Name: libusb-1.0" "Description: none" "Version: $1" >"$lFolder/libusb-1.0.pc"
    local -x PKG_CONFIG_PATH=$lFolder:$PKG_CONFIG_PATH
    shift
    ! pkg-config --exists htbase || echo pkg-config
    ! "$CMAKE" -S tests/installed/consumer -B "$lFolder/consumer" -G Ninja \
        -DCMAKE_CXX_COMPILER="$COMPILER" -DCMAKE_PREFIX_PATH="$PREFIX" "$@" >"$lFolder/log" 2>&1 ||
        echo find_package
    "$CMAKE" -S . -B "$lFolder/build" -G Ninja -DCMAKE_CXX_COMPILER="$COMPILER" \
        -DHTBASE_BUILD_TESTS=OFF -DHTBASE_BUILD_TOOLS=OFF >"$lFolder/log" 2>&1 ||
        fail "$(cat "$lFolder/log")"
    grep -q "built without access to USB3 Vision devices" "$lFolder/log" || echo build
}

use_prefix "$WORK" "$4"
if pkg-config --exists libusb-1.0; then
    VERSIONS=(-DEXPECTED_VERSION="$5" -DOTHER_VERSION="$6")
    expect_same "what pkg-config requires" "libusb-1.0 >= 1.0.22" \
        "$(pkg-config --print-requires htbase)"
    expect_same "what takes libusb 1.0.21" "" "$(takers 1.0.21 "${VERSIONS[@]}")"
    expect_same "what takes libusb 1.0.22" $'pkg-config\nfind_package\nbuild' \
        "$(takers 1.0.22 "${VERSIONS[@]}")"
fi
exec tests/installed/ConsumerTest.sh "$@"
