#!/usr/bin/env bash
# Who includes whom in Libraries/HtBase: docs/architecture.md, "The rooms of HtBase".
set -euo pipefail
cd "$(dirname "$0")/../../Libraries/HtBase"

# The room of each unit, and the units that a unit is made of.
declare -A ROOM=(
    [BaseCommandLinkGEV]=Link [SimpleCommandLinkGEV]=Link
    [BaseCommandLinkU3V]=Link [SimpleCommandLinkU3V]=Link
    [CapabilitiesGEV]=Capabilities [CapabilitiesU3V]=Capabilities
    [TftpClient]=Tftp [TftpAck]=Tftp [TftpData]=Tftp [TftpRrq]=Tftp [TftpWrq]=Tftp
    [DfwPayload]=Firmware [HtBinariesLocation]=Location)
declare -A PARTS=(
    [HtTftpClient]="TftpClient" [TftpClient]="TftpAck TftpData TftpRrq TftpWrq IoStream"
    [DfwPayload]="IoStream")

FAILED=0
while IFS=: read -r FILE INCLUDED; do
    FILE=${FILE#./}
    UNIT=$(basename "${FILE%.*}")
    TARGET=$(basename "${INCLUDED%.h}")
    case $FILE in */*) IN=${FILE%%/*} ;; *) IN="" ;; esac
    case $INCLUDED in */*) OF=${INCLUDED%%/*} ;; *) OF="" ;; esac
    case "$OF" in
    Support | "$IN") [ -n "$OF" ] && continue ;;
    esac
    if [ -z "$IN" ]; then
        [ "$TARGET" = "$UNIT" ] && continue
        [ -n "$OF" ] && [ "$OF" = "${ROOM[$UNIT]-}" ] && continue
        [[ -z "$OF" && " ${PARTS[$UNIT]-} " == *" $TARGET "* ]] && continue
    elif [ -z "$OF" ] && [ "$IN" = Firmware ] && [ "$TARGET" = IoStream ]; then
        continue
    fi
    echo "$FILE may not include $INCLUDED" >&2
    FAILED=1
done < <(find . -name '*.h' -o -name '*.cpp' | LC_ALL=C sort |
    xargs grep -o '#include "Libraries/HtBase/[^"]*"' |
    sed 's,#include "Libraries/HtBase/,,; s,"$,,')
exit "$FAILED"
