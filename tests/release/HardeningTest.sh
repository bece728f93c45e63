#!/usr/bin/env bash
# HardeningTest.sh COMPILER BINARY...: reads off the binaries what hardening flags make of them.
set -euo pipefail
. tests/installed/support.sh
need readelf objdump nm awk

# The first lines of standard input. Fails when there is none.
some() { awk 'NR <= 3 { print } END { exit NR == 0 }'; }

# complaints FILE: a line for each mark that is missing.
complaints()
{
    local lProgram
    lProgram=$(readelf -lW "$1" | grep -c INTERP || true)
    readelf -hW "$1" | grep 'Type: *DYN' >/dev/null || echo "position-independent"
    [ "$lProgram" -eq 0 ] || readelf -dW "$1" | grep 'Flags:.* PIE' >/dev/null || echo "PIE"
    readelf -lW "$1" | grep GNU_RELRO >/dev/null || echo "relro"
    readelf -dW "$1" | grep 'Flags: *NOW\|BIND_NOW' >/dev/null || echo "now"
    readelf -lW "$1" | grep 'GNU_STACK.* RW ' >/dev/null || echo "stack that is not executed"
    nm -D --undefined-only "$1" | grep __stack_chk_fail >/dev/null || echo "-fstack-protector-strong"
    # The checked functions have names of their own. vsnprintf is also named by std::to_string.
    ! nm -D --undefined-only "$1" | grep -E ' (v?f|v?s|sn|v)?printf(@|$)' || echo "_FORTIFY_SOURCE=2"
    # Frames of more than a page are made page by page, and each page is touched.
    ! objdump -d --no-show-raw-insn "$1" | awk '/sub +\$0x[0-9a-f]+,%rsp/ {
        gsub(/.*\$0x|,%rsp.*/, "")
        if (length($0) == 4 && $0 > "1000" || length($0) > 4 && length($0) < 9) print }' |
        some || echo "-fstack-clash-protection"
    # What is called through a pointer begins with a mark.
    ! without_endbr "$1" | some || echo "-fcf-protection"
}

# without_endbr FILE: functions that others can call, but for those of the C library, that do not begin
# with endbr64.
without_endbr()
{
    {
        { nm -D --defined-only "$1"; nm --defined-only "$1" 2>/dev/null; } |
            awk '$2 == "T" && $3 !~ /^(_start|_init|_fini|atexit)$/ { print "exported", $1 }'
        objdump -d --no-show-raw-insn -j .text "$1"
    } | awk '$1 == "exported" { exported[$2] = 1; next }
        /^[0-9a-f]+ <.*>:$/ { name = $1 in exported ? $2 : ""; next }
        name != "" { if ($2 != "endbr64") print name; name = "" }'
}

COMPILER=$1
shift
for lBinary in "$@"; do
    lFound=$(complaints "$lBinary")
    [ -z "$lFound" ] || fail "$lBinary lacks:" "$lFound"
done

# Each mark is missed in a program that was made without it.
WORK=$(mktemp -d)
trap 'rm -rf "$WORK"' EXIT
cat >"$WORK/bare.cpp" <<'CODE'
#include <cstdio>
void Fill( char* aText );
void Fill( char* aText ) { aText[0] = 0; }
int main()
{
    char lText[20000];
    void ( *volatile lFill )( char* ) = &Fill;
    lFill( lText );
    std::printf( "%s %p\n", lText, lText );
}
CODE
"$COMPILER" -O2 -U_FORTIFY_SOURCE -fno-stack-protector -fno-stack-clash-protection -fcf-protection=none \
    -fno-pie -no-pie -z norelro -z lazy -z execstack "$WORK/bare.cpp" -o "$WORK/bare" 2>/dev/null
expect_same "marks that a program without them lacks" 9 \
    "$(complaints "$WORK/bare" | grep -cE '^(position|PIE|relro|now|stack|-f|_FORT)')"
