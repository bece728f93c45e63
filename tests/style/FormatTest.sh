#!/usr/bin/env bash
# FormatTest.sh: every source is as clang-format 14 leaves it, and it would say when one is not.
set -euo pipefail
. tests/installed/support.sh
. scripts/sources.sh
need clang-format
clang-format --version | grep -q 'version 14\.' || skip "clang-format is not version 14"
mapfile -t SOURCES < <(list_sources)
[ ${#SOURCES[@]} -gt 200 ] || fail "only ${#SOURCES[@]} sources"
check_format "${SOURCES[@]}"

FOLDER=$(mktemp -d)
trap 'rm -rf "$FOLDER"' EXIT
cp .clang-format "$FOLDER"
printf 'int  main() { return 0; }\n' >"$FOLDER/bad.cpp"
! check_format "$FOLDER/bad.cpp" 2>/dev/null || fail "a file in another format is accepted"
