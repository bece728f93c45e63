#!/usr/bin/env bash
# StaticTest.sh CMAKE COMPILER WORK LIBDIR VERSION OTHER-VERSION TOOL LAUNCHER: as ConsumerTest.sh,
# with static libraries, which have to tell their user what they need themselves. They are built here,
# without optimisation, as nobody else builds them.
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
exec tests/installed/ConsumerTest.sh "$@"
