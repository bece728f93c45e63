# shellcheck shell=bash
# Sourced by the other scripts, in the project's root: lists the sources and checks them.

# How many tests to run at a time: more than there are cores, because most tests wait.
test_jobs()
{
    echo $((2 * $(nproc)))
}

list_sources()
{
    find Examples Libraries Platform Simulators Tools benchmarks fuzz include tests \
        -name '*.h' -o -name '*.cpp' | LC_ALL=C sort
}

# list_changed COMMIT: the sources that differ from it, and those that git does not track yet.
list_changed()
{
    {
        git diff --name-only --diff-filter=d "$1" -- '*.h' '*.cpp'
        git ls-files --others --exclude-standard -- '*.h' '*.cpp'
    } | sort -u
}

# Selects the sources on standard input that clang-tidy checks: not those that the build does not
# compile, or only in order to fail. A header is checked by the source of the same name.
only_tidied()
{
    local lFile
    while read -r lFile; do
        [ -e "${lFile%.h}.cpp" ] && lFile=${lFile%.h}.cpp
        echo "$lFile"
    done | sort -u |
        grep -E '^(Examples|Libraries|Platform|Simulators|Tools|benchmarks|fuzz|tests)/.*\.cpp$' |
        grep -vE '^tests/(external-platform|installed)/|/(Comparisons|SRecordBenchmark)\.cpp$' || true
}

# check_format FILE...
check_format()
{
    [ $# -eq 0 ] || clang-format --dry-run -Werror "$@"
}

# tidy FILE...: uses the compile commands of a clang build that is configured for this but not built, and
# so needs no precompiled headers.
tidy()
{
    [ $# -gt 0 ] || return 0
    [ -e build/tidy/build.ninja ] ||
        cmake --preset clang -B build/tidy -D CMAKE_DISABLE_PRECOMPILE_HEADERS=ON >/dev/null
    ninja -C build/tidy build.ninja >/dev/null
    printf '%s\0' "$@" | xargs -0 -n 1 -P "$(nproc)" clang-tidy --quiet -p build/tidy
}
