#!/usr/bin/env bash
# ExamplesTest.sh WAY COMPILER STANDARD CMAKE WORK LIBDIR TEST...: builds every installed example
# against the moved prefix, found by WAY (CMake or PkgConfig), and puts what was built to the tests of
# the examples.
set -euo pipefail
. tests/installed/support.sh
WAY=$1 COMPILER=$2 STANDARD=$3 CMAKE=$4
need "$COMPILER" pkg-config
use_prefix "$5" "$6"
PROGRAMS=$5/examples/$WAY.$COMPILER.$STANDARD
shift 6
SOURCE=$PREFIX/share/doc/HtBase/examples
rm -rf "$PROGRAMS"
mkdir -p "$PROGRAMS"

build_with_CMake()
{
    "$CMAKE" -S "$SOURCE" -B "$PROGRAMS" -G Ninja -DCMAKE_CXX_COMPILER="$COMPILER" \
        -DCMAKE_CXX_STANDARD="$STANDARD" -DCMAKE_CXX_STANDARD_REQUIRED=ON \
        -DCMAKE_CXX_EXTENSIONS=OFF -DCMAKE_CXX_FLAGS="${WARNINGS[*]}" \
        -DCMAKE_PREFIX_PATH="$PREFIX" -DCMAKE_NO_SYSTEM_FROM_IMPORTED=ON >"$PROGRAMS/log" 2>&1 &&
        "$CMAKE" --build "$PROGRAMS" >"$PROGRAMS/log" 2>&1
}

build_with_PkgConfig()
{
    local lSource
    local -a lFlags
    read -ra lFlags <<<"$(pkg-config --cflags --libs htbase)"
    for lSource in "$SOURCE"/*.cpp; do
        echo "$COMPILER" "-std=c++$STANDARD" "${WARNINGS[@]}" "$lSource" -pthread \
            -o "$PROGRAMS/$(basename "$lSource" .cpp)" "${lFlags[@]}" -Wl,-rpath,"$LIBRARY_FOLDER"
    done | xargs -P 2 -L 1 nice >"$PROGRAMS/log" 2>&1
}

"build_with_$WAY" || fail "$(cat "$PROGRAMS/log")"
expect_same "the installed examples" "$(cd Examples && ls)" "$(ls "$SOURCE")"
for lSource in Examples/*.cpp; do
    expect_own_libraries "$PROGRAMS/$(basename "$lSource" .cpp)" "$LIBRARY_FOLDER"
done

SKIPPED=""
for lTest in "$@"; do
    HTBASE_EXAMPLES=$PROGRAMS "$lTest" >"$PROGRAMS/log" 2>&1 || fail "$(cat "$PROGRAMS/log")"
    grep -q '^\[  PASSED  \]' "$PROGRAMS/log" || fail "$lTest has tested nothing"
    SKIPPED+=$(grep -A 1 'Skipped$' "$PROGRAMS/log" | head -n 2) || true
done
[ -z "$SKIPPED" ] || skip "built, but not all could be run: $SKIPPED"
