#!/usr/bin/env bash
# OptionsTest.sh CMAKE WORK CASE: what the options that concern tests and warnings make of a build, which
# is configured and not built.
set -euo pipefail
. tests/installed/support.sh
CMAKE=$1 BUILD=$2/$3
rm -rf "$BUILD"
mkdir -p "$BUILD"

# configure ARGUMENT...
configure()
{
    "$CMAKE" "$@" >"$BUILD.log" 2>&1 || fail "$(cat "$BUILD.log")"
}

# has_tests: whether a source of the tests would be compiled.
has_tests()
{
    grep -q "\"file\": \"$PWD/tests/" "$BUILD/compile_commands.json"
}

expect_no_tests()
{
    [ ! -e "$BUILD/CTestTestfile.cmake" ] || fail "there is a list of tests"
    ! has_tests || fail "tests would be compiled"
}

# expect_werror COUNT: so many sources would be compiled with it.
expect_werror()
{
    expect_same "sources compiled with -Werror" "$1" \
        "$(grep '"command"' "$BUILD/compile_commands.json" | grep -c -e ' -Werror ' || true)"
}

case $3 in
BuildTestingOff) # also where our own option is on
    configure -S . -B "$BUILD" -G Ninja -DBUILD_TESTING=OFF -DHTBASE_BUILD_TESTS=ON
    expect_no_tests
    expect_werror 0
    ;;
OwnOptionOff)
    configure --preset dev -B "$BUILD" -DHTBASE_BUILD_TESTS=OFF
    expect_no_tests
    expect_werror "$(grep -c '"command"' "$BUILD/compile_commands.json")"
    ;;
BothOn)
    configure -S . -B "$BUILD" -G Ninja -DBUILD_TESTING=ON
    [ -e "$BUILD/CTestTestfile.cmake" ] || fail "there is no list of tests"
    has_tests || fail "no test would be compiled"
    ;;
esac
