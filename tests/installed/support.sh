# shellcheck shell=bash
# Sourced by the tests of this folder, which ctest runs from the project's root.

fail()
{
    printf '%s\n' "$@" >&2
    exit 1
}

# skip REASON: ctest shows it.
skip()
{
    echo "Skipped: $*"
    exit 77
}

# need PROGRAM...: what cannot be judged here is skipped; scripts/test installs these.
need()
{
    local lProgram
    for lProgram in "$@"; do
        command -v "$lProgram" >/dev/null || skip "$lProgram is not installed"
    done
}

# expect_same WHAT EXPECTED ACTUAL: two texts, line by line.
expect_same()
{
    diff <(printf '%s\n' "$2") <(printf '%s\n' "$3") >&2 ||
        fail "$1: expected <, found >"
}

# What programs that use the installed libraries are compiled with.
WARNINGS=(-Wall -Wextra -Wpedantic -Werror)

# use_prefix WORK LIBDIR: the moved prefix is PREFIX, its libraries are in LIBRARY_FOLDER, and
# pkg-config knows it.
use_prefix()
{
    PREFIX=$1/moved
    LIBRARY_FOLDER=$PREFIX/$2
    export PKG_CONFIG_PATH=$LIBRARY_FOLDER/pkgconfig
    [ -d "$PREFIX" ] || fail "$PREFIX is missing"
}

# list_headers: the installed headers as a program includes them.
list_headers()
{
    (cd "$PREFIX/include/HtBase" && find . -name '*.h' -printf '%P\n' | LC_ALL=C sort)
}

# expect_own_libraries PROGRAM FOLDER: whichever of our libraries it loads are those of the folder.
expect_own_libraries()
{
    local lFound
    lFound=$(ldd "$1" | grep -E 'lib(HtBase|QmUtilsLib|Wd[A-Za-z]+)\.so') ||
        fail "$1 loads none of the libraries"
    lFound=$(sed -E 's/.*=> (.*) \(.*/\1/' <<<"$lFound" | xargs -n 1 dirname | xargs realpath | sort -u)
    expect_same "the libraries of $1" "$(realpath "$2")" "$lFound"
}

# start_device PROGRAM: a virtual device on a free port of 127.0.0.1 until the test ends; DEVICE is
# where it listens.
start_device()
{
    local lLines
    lLines=$(mktemp)
    "$1" sim gev --port 0 >"$lLines" &
    # shellcheck disable=SC2064
    trap "kill $! 2>/dev/null; wait; rm -f '$lLines'" EXIT
    for _ in $(seq 200); do
        DEVICE=$(head -n 1 "$lLines")
        [ -z "$DEVICE" ] || return 0
        kill -0 $! 2>/dev/null || fail "the virtual device did not start"
        sleep 0.05
    done
    fail "the virtual device does not say where it listens"
}

# What the program says of itself. help_commands and help_options take a help text from standard
# input; list_commands PROGRAM [GROUP...] prints every command that does something, a line each.
help_commands()
{
    awk '/^[A-Z]/ { lIn = /^Subcommands:/ } lIn && /^  [a-z0-9]/ { print $1 }'
}

help_options()
{
    awk '/^[A-Z]/ { lIn = /^Options:/ } lIn && /^  -/ { gsub( ",", "\n", $1 ); print $1 }' |
        LC_ALL=C sort -u
}

list_commands()
{
    local lNames lName
    lNames=$("$@" --help | help_commands)
    if [ -z "$lNames" ]; then
        shift
        echo "$*"
        return
    fi
    for lName in $lNames; do
        list_commands "$@" "$lName"
    done
}
