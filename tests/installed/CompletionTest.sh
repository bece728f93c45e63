#!/usr/bin/env bash
# CompletionTest.sh WORK LIBDIR: the installed completion for bash offers every command and every
# option that the program's help lists, and no others.
set -euo pipefail
. tests/installed/support.sh
use_prefix "$1" "$2"
TOOL=$PREFIX/bin/htbase
set +eu # as in a user's shell
. "$PREFIX/share/bash-completion/completions/htbase"
complete -p htbase >/dev/null || fail "no completion for htbase"

# complete_words WORD...: what is offered for the last of the words.
complete_words()
{
    COMP_WORDS=("$TOOL" "$@")
    COMP_CWORD=$#
    COMPREPLY=(left from before)
    _htbase
    printf '%s\n' "${COMPREPLY[@]}" | LC_ALL=C sort
}

# expect_group WORD...: what is offered in a group and in all that is in it.
expect_group()
{
    local lHelp lNames lName
    lHelp=$("$TOOL" "$@" --help)
    lNames=$(help_commands <<<"$lHelp")
    expect_same "commands of '$*'" "$(LC_ALL=C sort <<<"$lNames")" "$(complete_words "$@" "")"
    expect_same "options of '$*'" \
        "$({ help_options <<<"$lHelp"; "$TOOL" --help | help_options; } | LC_ALL=C sort -u)" \
        "$(complete_words "$@" -)"
    for lName in $lNames; do
        expect_group "$@" "$lName"
    done
}

expect_group
[ "$(list_commands "$TOOL" | wc -l)" -gt 10 ] || fail "the program's help lists hardly a command"
expect_same "a beginning" "--retries" "$(complete_words gev load --re)"
expect_same "a command after an option" "load" "$(complete_words --json gev lo)"
expect_same "no such thing" "" "$(complete_words gev xyz)"
# Nothing offered: bash completes a file name then.
expect_same "an argument" "" "$(complete_words gev load 127.0.0.1 0 "")"
[[ $(complete -p htbase) == *" -o default "* ]] || fail "file names are not completed"
