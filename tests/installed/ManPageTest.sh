#!/usr/bin/env bash
# ManPageTest.sh WORK LIBDIR: the installed man page describes every command and every option that
# the program's help lists, and no others.
set -euo pipefail
. tests/installed/support.sh
need groff
use_prefix "$1" "$2"
TOOL=$PREFIX/bin/htbase
PAGE=$PREFIX/share/man/man1/htbase.1

WARNINGS_OF_GROFF=$(groff -man -ww -b -Tutf8 -z "$PAGE" 2>&1) || fail "$WARNINGS_OF_GROFF"
[ -z "$WARNINGS_OF_GROFF" ] || fail "$WARNINGS_OF_GROFF"

# The source without comments and without marks of fonts, so that options stand there as one types
# them.
TEXT=$(sed -E '/^\.\\"/d; s/\\-/-/g; s/\\f[BIRP]//g' "$PAGE")

# options_of_section KIND TITLE: the options named in a section (SH) or subsection (SS).
options_of_section()
{
    awk -v aStart=".$1 $2" '$0 == aStart { lIn = 1; next } /^\.S[HS] / { lIn = 0 } lIn' <<<"$TEXT" |
        grep -oE "(^|[ \",|])--?[A-Za-z][A-Za-z-]*" | tr -d ' ",|' | LC_ALL=C sort -u
}

GLOBAL=$("$TOOL" --help | help_options)
expect_same "the global options" "$GLOBAL" "$(options_of_section SH "GLOBAL OPTIONS")"

TITLES=""
while read -r lCommand; do
    read -ra WORDS <<<"$lCommand"
    HELP=$("$TOOL" "${WORDS[@]}" --help)
    TITLE=$(sed -n 's/^Usage: //p' <<<"$HELP" | sed 's/ \[OPTIONS\]//')
    TITLES+=$TITLE$'\n'
    expect_same "the options of $lCommand" \
        "$(help_options <<<"$HELP" | grep -vxE -e '-h|--help')" \
        "$(options_of_section SS "$TITLE")"
done < <(list_commands "$TOOL")
[ "$(wc -l <<<"$TITLES")" -gt 10 ] || fail "the program's help lists hardly a command"
expect_same "the commands" "$(printf %s "$TITLES" | LC_ALL=C sort)" \
    "$(sed -n 's/^\.SS //p' <<<"$TEXT" | LC_ALL=C sort)"

# Options that one place describes for several commands.
for lTitle in "WAITING FOR ANSWERS" "THE MAKER'S OWN DEVICES" "A BAD NETWORK"; do
    for lOption in $(options_of_section SH "$lTitle"); do
        grep -qxF -e "$lOption" <<<"$("$TOOL" gev info --help | help_options
            "$TOOL" sim gev --help | help_options)" || fail "$lTitle: there is no $lOption"
    done
done
