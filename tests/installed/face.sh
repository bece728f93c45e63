# shellcheck shell=bash
# Sourced: what the shared libraries show to others, as text. From the project's root.

LIBRARIES="HtBase QmUtilsLib WdTransportLayerLib WdUtilsLib"
HEADER_FOLDERS="include Platform/PacketBytes/include Platform/QmUtilsLib/include
    Platform/WdTransportLayerLib/include Platform/WdUtilsLib/include"

# find_library BUILD NAME: its file in a build folder.
find_library()
{
    case $2 in
    HtBase) printf %s "$1/Libraries/$2/lib$2.so" ;;
    *) printf %s "$1/Platform/$2/lib$2.so" ;;
    esac
}

# list_symbols FILE: one exported symbol per line, as C++ writes it.
list_symbols()
{
    nm --dynamic --defined-only --demangle "$1" | cut -c 20- | LC_ALL=C sort -u
}

# describe_abi FILE: sizes, layouts, orders of virtual operations and signatures, as libabigail
# reports them from the debugging information; with no path of the machine that built the file.
describe_abi()
{
    local lFolder
    local -a lHeaders=()
    for lFolder in $HEADER_FOLDERS; do
        lHeaders+=(--headers-dir "$lFolder")
    done
    abidw --no-corpus-path --no-comp-dir-path --no-show-locs --no-elf-needed \
        --exported-interfaces-only --drop-private-types --type-id-style hash \
        --suppressions tests/installed/abi/private.suppr "${lHeaders[@]}" "$1" |
        sed -E "s#( path=')[^']*/((Libraries|Platform)/[^']*')#\1\2#"
}
