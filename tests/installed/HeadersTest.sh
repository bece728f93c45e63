#!/usr/bin/env bash
# HeadersTest.sh COMPILER STANDARD WORK LIBDIR: every installed header compiles by itself.
set -euo pipefail
. tests/installed/support.sh
need "$1" pkg-config
use_prefix "$3" "$4"
read -ra FLAGS <<<"$(pkg-config --cflags htbase)"
COUNT=0
while read -r lHeader; do
    # Twice: a header may be met again.
    printf '#include <%s>\n#include <%s>\n' "$lHeader" "$lHeader" |
        "$1" "-std=c++$2" "${WARNINGS[@]}" "${FLAGS[@]}" -fsyntax-only -x c++ - ||
        fail "<$lHeader> does not compile by itself"
    COUNT=$((COUNT + 1))
done < <(list_headers)
for lHeader in HtResult.h PacketBytes/ByteReader.h QmUtilsLib/Result.h \
    WdUtilsLib/Network/SocketUDP.h WdTransportLayerLib/U3V/DeviceControlInterface.h; do
    list_headers | grep -qxF "$lHeader" || fail "$lHeader is not installed"
done
echo "$COUNT headers"
