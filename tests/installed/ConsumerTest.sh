#!/usr/bin/env bash
# ConsumerTest.sh CMAKE COMPILER WORK LIBDIR VERSION OTHER-VERSION TOOL: an external program
# finds the installed libraries with CMake and with pkg-config, is built and runs.
set -euo pipefail
. tests/installed/support.sh
CMAKE=$1 COMPILER=$2 WORK=$3 VERSION=$5 OTHER_VERSION=$6 TOOL=$7
need pkg-config "$COMPILER"
use_prefix "$WORK" "$4"
SOURCE=tests/installed/consumer
BUILD=$WORK/consumer
rm -rf "$BUILD"
mkdir -p "$BUILD"
list_headers | sed 's/.*/#include <&>/' >"$BUILD/AllHeaders.h"

"$CMAKE" -S "$SOURCE" -B "$BUILD" -G Ninja -DCMAKE_CXX_COMPILER="$COMPILER" \
    -DCMAKE_PREFIX_PATH="$PREFIX" -DCMAKE_NO_SYSTEM_FROM_IMPORTED=ON \
    -DCMAKE_CXX_FLAGS="${WARNINGS[*]}" \
    -DEXPECTED_VERSION="$VERSION" -DOTHER_VERSION="$OTHER_VERSION" >"$BUILD/log" 2>&1 ||
    fail "$(cat "$BUILD/log")"
"$CMAKE" --build "$BUILD" >"$BUILD/log" 2>&1 || fail "$(cat "$BUILD/log")"

expect_same "pkg-config's version" "$VERSION" "$(pkg-config --modversion htbase)"
read -ra FLAGS <<<"$(pkg-config --cflags --libs htbase)"
"$COMPILER" -std=c++17 "${WARNINGS[@]}" -I "$BUILD" "$SOURCE/Consumer.cpp" \
    -o "$BUILD/PkgConfigConsumer" "${FLAGS[@]}" -Wl,-rpath,"$LIBRARY_FOLDER"

start_device "$TOOL"
for lProgram in Consumer PkgConfigConsumer; do
    LOCATION=$BUILD # of the code: of the program where the libraries are static
    if [ -e "$LIBRARY_FOLDER/libHtBase.so" ]; then
        LOCATION=$LIBRARY_FOLDER
        expect_own_libraries "$BUILD/$lProgram" "$LIBRARY_FOLDER"
    fi
    expect_same "what $lProgram prints" "$(realpath "$LOCATION")"$'\n'"GigE Vision 2.0" \
        "$("$BUILD/$lProgram" "${DEVICE##*:}")"
done
"$BUILD/SocketUser"
