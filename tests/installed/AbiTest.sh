#!/usr/bin/env bash
# AbiTest.sh BUILD LIBRARY WORK: layouts and orders of virtual operations are those of the checked-in
# description.
set -euo pipefail
. tests/installed/support.sh
. tests/installed/face.sh
need abidw abidiff readelf
KNOWN=tests/installed/abi/lib$2.abi
LIBRARY=$(find_library "$1" "$2")
FRESH=$3/lib$2.abi
[ "$(uname -m)" = x86_64 ] || skip "$KNOWN describes x86_64"
readelf --sections --wide "$LIBRARY" | grep -q '\.debug_info' ||
    skip "this build has no debugging information that describes layouts"

! grep -nE "='/|path='\.\." "$KNOWN" >&2 || fail "$KNOWN has a path of the machine that wrote it"
mkdir -p "$3"
describe_abi "$LIBRARY" >"$FRESH"
STATUS=0
abidiff "$KNOWN" "$FRESH" >&2 || STATUS=$?
# abidiff's status is a set of bits: 1 and 2 errors, 4 a change, 8 one that breaks programs.
((STATUS & 3)) && fail "abidiff failed with status $STATUS"
((STATUS & 8)) && fail "lib$2 breaks programs that were built with the interface of $KNOWN." \
    "See CONTRIBUTING.md, \"The interface of the libraries\"."
((STATUS == 0)) || fail "lib$2 has another binary interface than $KNOWN describes." \
    "If it still serves programs of before, scripts/update-abi.sh renews the description;" \
    "see CONTRIBUTING.md, \"The interface of the libraries\"."
