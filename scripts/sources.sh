# shellcheck shell=bash
# Sourced by the other scripts, from the project's root: which sources there are, and how they are
# judged.

# Tests at a time: more than there are cores, since most of them wait.
test_jobs()
{
    echo $((2 * $(nproc)))
}

list_sources()
{
    find Examples Libraries Platform Simulators Tools benchmarks fuzz include tests \
        -name '*.h' -o -name '*.cpp' | LC_ALL=C sort
}

# list_changed COMMIT: the sources that differ from it, and those that git does not know yet.
list_changed()
{
    {
        git diff --name-only --diff-filter=d "$1" -- '*.h' '*.cpp'
        git ls-files --others --exclude-standard -- '*.h' '*.cpp'
    } | sort -u
}

# Of the sources on standard input, those that clang-tidy looks at. Headers are looked at where they
# are included.
only_tidied()
{
    grep -E '^(Examples|Libraries|Platform|Simulators|Tools|benchmarks|fuzz)/.*\.cpp$' || true
}

# check_format FILE...
check_format()
{
    [ $# -eq 0 ] || clang-format --dry-run -Werror "$@"
}

# tidy FILE...: by the commands of a build by clang that is configured for that and never built, so
# without precompiled headers.
tidy()
{
    [ $# -gt 0 ] || return 0
    [ -e build/tidy/build.ninja ] ||
        cmake --preset clang -B build/tidy -D CMAKE_DISABLE_PRECOMPILE_HEADERS=ON >/dev/null
    ninja -C build/tidy build.ninja >/dev/null
    printf '%s\0' "$@" | xargs -0 -n 1 -P "$(nproc)" clang-tidy --quiet -p build/tidy
}
