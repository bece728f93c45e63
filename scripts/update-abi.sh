#!/usr/bin/env bash
# Renews what the tests hold the libraries' public face against: the lists of exported symbols and the
# descriptions of the binary interface (tests/installed/symbols, tests/installed/abi).
#
#   scripts/update-abi.sh           from the debug build, which it brings up to date first
#   scripts/update-abi.sh BUILD     from a build folder as it is: g++, Debug, no sanitizer
#
# Look at the difference before you commit it: CONTRIBUTING.md tells what it asks for.
set -euo pipefail
[ $# -le 1 ] || { echo "usage: scripts/update-abi.sh [BUILD]" >&2; exit 2; }
cd "$(dirname "$0")/.."
. tests/installed/face.sh
command -v abidw >/dev/null || { echo "abidw is missing: Debian's package abigail-tools" >&2; exit 1; }

BUILD=${1-}
if [ -z "$BUILD" ]; then
    BUILD=build/dev
    cmake --preset dev >/dev/null
    cmake --build --preset dev --target HtBase
fi
for lName in $LIBRARIES; do
    lLibrary=$(find_library "$BUILD" "$lName")
    list_symbols "$lLibrary" >"tests/installed/symbols/lib$lName.txt"
    describe_abi "$lLibrary" >"tests/installed/abi/lib$lName.abi"
done
git diff --stat -- tests/installed/symbols tests/installed/abi
