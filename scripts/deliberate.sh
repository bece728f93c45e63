#!/usr/bin/env bash
# Prints the page docs/deliberate.md, which is made of the marks in the sources:
#
#   scripts/deliberate.sh >docs/deliberate.md
#
# A mark is a comment that begins with "KEEP:" or "SAFE:". It ends where the comment ends, where an
# empty comment line stands, or where the next mark begins. Its first sentence says what the code does.
set -euo pipefail
cd "$(dirname "$0")/.."

# The sections of the page: a heading, and the sources below Libraries/HtBase in the order in which
# the page lists them.
SECTIONS=(
    "Results: HtResult.cpp"
    "Texts: HtString.cpp HtStringList.cpp"
    "GigE Vision link: BaseCommandLinkGEV.cpp Link/LinkAssignment.h SimpleCommandLinkGEV.cpp"
    "USB3 Vision link: BaseCommandLinkU3V.cpp SimpleCommandLinkU3V.cpp"
    "GigE Vision capability record: CapabilitiesGEV.cpp"
    "USB3 Vision capability record: CapabilitiesU3V.cpp"
    "Both capability records: Capabilities/CapabilityRecord.h Capabilities/CapabilityRegistry.h
        Support/Diagnostics.h"
    "Statistics: InstantStats.cpp"
    "Location of the library: Location/ModulePath.cpp"
    "Streams: IoStream.cpp"
    "Firmware payloads: DfwPayload.cpp Firmware/PayloadFormat.h Firmware/PayloadReader.cpp"
    "Readers of firmware images: Firmware/ReaderMessages.h Firmware/InputFile.h Firmware/BlockReader.h
        Firmware/SRecordReader.h Firmware/SRecordReader.cpp Firmware/WordHexReader.h
        Firmware/WordHexReader.cpp"
    "TFTP packets: Tftp/TftpPacket.h Tftp/TftpRequest.cpp TftpRrq.cpp TftpWrq.cpp TftpData.cpp
        TftpAck.cpp"
    "TFTP transfers: TftpClient.cpp HtTftpClient.cpp"
)

# print_marks WORD FILE...: the marks of this kind, an item of a list each.
print_marks()
{
    local lWord=$1
    shift
    awk -v WORD="$lWord" '
        function Print(    lWords, lCount, lIndex, lLine )
        {
            if ( mText == "" )
            {
                return
            }
            if ( !match( mText, /(: |\. [A-Z0-9`"])/ ) )
            {
                RSTART = length( mText )
            }
            mText = "- **" substr( mText, 1, RSTART ) "**" substr( mText, RSTART + 1 )
            lCount = split( mText, lWords, " " )
            lLine = lWords[1]
            for ( lIndex = 2; lIndex <= lCount; ++lIndex )
            {
                if ( length( lLine ) + 1 + length( lWords[lIndex] ) > 100 )
                {
                    print lLine
                    lLine = "  " lWords[lIndex]
                    continue
                }
                lLine = lLine " " lWords[lIndex]
            }
            print lLine
            mText = ""
        }
        FNR == 1 { Print(); mIsMark = 0 }
        match( $0, /^ *\/\/ (KEEP|SAFE): / ) {
            lAt = RLENGTH
            Print()
            mIsMark = substr( $0, lAt - 5, 4 ) == WORD
            mText = mIsMark ? substr( $0, lAt + 1 ) : ""
            next
        }
        mIsMark && match( $0, /^ *\/\/ / ) { mText = mText " " substr( $0, RLENGTH + 1 ); next }
        { Print(); mIsMark = 0 }
        END { Print() }
    ' "$@"
}

FILES=()
PAGE=$(mktemp)
trap 'rm -f "$PAGE"' EXIT
{
cat <<'END'
<!-- Made by scripts/deliberate.sh of the marks in the sources. -->
# What looks wrong and is right

Each of these is marked `KEEP` in the code and has a test. Do not repair them: callers rely on them.
What happens when memory is missing is described in [api-conventions.md](api-conventions.md).
END
for SECTION in "${SECTIONS[@]}"; do
    read -r -d '' -a SOURCES <<<"${SECTION#*: }" || true
    SOURCES=("${SOURCES[@]/#/Libraries/HtBase/}")
    FILES+=("${SOURCES[@]}")
    printf '\n## %s\n\n' "${SECTION%%:*}"
    print_marks KEEP "${SOURCES[@]}"
done
cat <<'END'

## Where safety comes first

These are marked `SAFE` and are the only places where the library does less than its plain algorithm
says. The plain algorithm would read or write outside a buffer, write into constant memory of the
caller, use freed memory, return bytes that were not received, or never end.

END
print_marks SAFE "${FILES[@]}"
} >"$PAGE"
cat "$PAGE"

# A mark that no section lists would be lost.
STRAY=$(grep -rlE '(KEEP|SAFE):' Examples Libraries Platform Simulators Tools include |
    grep -vxF "$(printf '%s\n' "${FILES[@]}")" || true)
BENT=$(grep -nE '(KEEP|SAFE):' "${FILES[@]}" | grep -vE ':[0-9]+: *// (KEEP|SAFE): [A-Z`"]' || true)
MARKS=$(cat "${FILES[@]}" | grep -cE '(KEEP|SAFE):')
ITEMS=$(grep -c '^- ' "$PAGE")
if [ -n "$STRAY$BENT" ] || [ "$MARKS" -ne "$ITEMS" ]; then
    printf 'Marks outside the table of sections, or not at the beginning of a comment:\n%s\n%s\n' \
        "$STRAY" "$BENT" >&2
    echo "There are $MARKS marks and $ITEMS items on the page." >&2
    exit 1
fi
