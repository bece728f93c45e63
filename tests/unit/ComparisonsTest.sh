#!/usr/bin/env bash
# ComparisonsTest.sh COMPILER STANDARD: Comparisons.cpp compiles without its marked lines; with them
# each marked line has an error of its own, since that comparison is deleted or ambiguous.
set -euo pipefail
. tests/installed/support.sh
need "$1"
COMPILE=("$1" "-std=c++$2" -Iinclude -IPlatform/QmUtilsLib/include -fsyntax-only -x c++ -)
case $1 in clang*) COMPILE+=(-ferror-limit=0) ;; esac

FILE=tests/unit/Comparisons.cpp
MARK='// must not compile'
grep -vF "$MARK" "$FILE" | "${COMPILE[@]}" "${WARNINGS[@]}" || fail "what is not marked does not compile"

# Without warnings: a comparison that a compiler warns of compiles.
ERRORS=$("${COMPILE[@]}" -w <"$FILE" 2>&1) && fail "everything compiles"
expect_same "the lines that do not compile" \
    "$(grep -nF "$MARK" "$FILE" | cut -d: -f1)" \
    "$(grep -E '^<stdin>:.* error: .*(deleted|ambiguous)' <<<"$ERRORS" | cut -d: -f2 | sort -nu)"
