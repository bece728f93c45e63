#!/usr/bin/env bash
# SymbolsTest.sh BUILD LIBRARY: the library exports what is in its checked-in list, no more, no less.
set -euo pipefail
. tests/installed/support.sh
. tests/installed/face.sh
need nm
LIST=tests/installed/symbols/lib$2.txt
FOUND=$(list_symbols "$(find_library "$1" "$2")")
[ -n "$FOUND" ] || fail "lib$2 exports nothing"

FOREIGN=$(grep -vE '^((vtable|typeinfo|typeinfo name) for )?(Ht|QmUtilsLib::|Wd[A-Za-z]+::)' <<<"$FOUND") || true
[ -z "$FOREIGN" ] || fail "lib$2 exports what is not the project's:" "$FOREIGN"
diff "$LIST" - <<<"$FOUND" >&2 || fail \
    "lib$2 exports other symbols (>) than $LIST lists (<)." \
    "What was added on purpose: scripts/update-abi.sh renews the list." \
    "A removed symbol breaks programs: see CONTRIBUTING.md, \"The interface of the libraries\"."
