# bash completion for htbase. It asks the program itself, so it knows every command and option that
# the program has.

# _htbase_help PROGRAM WORD...: what the program says about a group or a command.
_htbase_help()
{
    "$@" --help 2>/dev/null
}

# _htbase_commands: the commands that a help text lists.
_htbase_commands()
{
    sed -n '/^Subcommands:/,/^$/ s/^  \([a-z0-9][a-z0-9-]*\).*/\1/p'
}

# _htbase_options: the options that a help text lists.
_htbase_options()
{
    sed -n '/^Options:/,/^$/ s/^  \(-[^ =]*\).*/\1/p' | tr ',' '\n'
}

_htbase()
{
    local lProgram=${COMP_WORDS[0]/#\~/$HOME} lWord=${COMP_WORDS[COMP_CWORD]} lHelp lNext lPlace
    local -a lCommand=()
    lHelp=$(_htbase_help "$lProgram")
    for ((lPlace = 1; lPlace < COMP_CWORD; lPlace++)); do
        for lNext in $(_htbase_commands <<<"$lHelp"); do
            if [ "$lNext" = "${COMP_WORDS[lPlace]}" ]; then
                lCommand+=("$lNext")
                lHelp=$(_htbase_help "$lProgram" "${lCommand[@]}")
                break
            fi
        done
    done
    COMPREPLY=()
    if [[ $lWord == -* ]]; then
        lNext=$({ _htbase_options <<<"$lHelp"; _htbase_help "$lProgram" | _htbase_options; } | sort -u)
    else
        lNext=$(_htbase_commands <<<"$lHelp")
    fi
    mapfile -t COMPREPLY < <(compgen -W "$lNext" -- "$lWord")
}

# Where there is neither a command nor an option to complete: a file.
complete -o default -F _htbase htbase
