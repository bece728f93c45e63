#!/usr/bin/env bash
# Updates the files that the tests compare the libraries' interface with: the lists of exported symbols
# and the descriptions of the binary interface (tests/installed/symbols, tests/installed/abi).
#
#   scripts/update-abi.sh
#
# Builds the libraries separately, in build/abi. The path of the project's folder is mapped to a fixed
# name, because the order of the descriptions follows paths.
# Look at the difference before you commit it; CONTRIBUTING.md says what to do about it.
set -euo pipefail
[ $# -eq 0 ] || { echo "usage: scripts/update-abi.sh" >&2; exit 2; }
cd "$(dirname "$0")/.."
. tests/installed/face.sh
command -v abidw >/dev/null || { echo "abidw is missing: Debian's package abigail-tools" >&2; exit 1; }

BUILD=build/abi
CCACHE_DISABLE=1 cmake -S . -B "$BUILD" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_COMPILER=g++ \
    -DCMAKE_CXX_COMPILER_LAUNCHER= -DCMAKE_CXX_FLAGS="-ffile-prefix-map=$PWD=/HtBase" \
    -DHTBASE_BUILD_EXAMPLES=OFF -DHTBASE_BUILD_TESTS=OFF -DHTBASE_BUILD_TOOLS=OFF >/dev/null
CCACHE_DISABLE=1 cmake --build "$BUILD" --target HtBase
for lName in $LIBRARIES; do
    lLibrary=$(find_library "$BUILD" "$lName")
    list_symbols "$lLibrary" >"tests/installed/symbols/lib$lName.txt"
    describe_abi "$lLibrary" >"tests/installed/abi/lib$lName.abi"
done
git diff --stat -- tests/installed/symbols tests/installed/abi
