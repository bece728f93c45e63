#!/usr/bin/env bash
# ToolTest.sh WORK LIBDIR: the program runs from the moved prefix, with the libraries beside it.
set -euo pipefail
. tests/installed/support.sh
use_prefix "$1" "$2"
TOOL=$PREFIX/bin/htbase
expect_own_libraries "$TOOL" "$LIBRARY_FOLDER"
[[ $("$TOOL" --version) =~ ^htbase\ [0-9]+\.[0-9]+\.[0-9]+$ ]] || fail "no version"
start_device "$TOOL"
expect_same "a register" "0x00000000  0x00020000  131072" "$("$TOOL" gev read "$DEVICE" 0)"
