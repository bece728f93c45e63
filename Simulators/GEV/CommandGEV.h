#pragma once

#include "Simulators/Datagram.h"

#include <PacketBytes/ByteReader.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace Simulators
{

// GVCP command codes. The code of an acknowledge is that of its command plus 1; PENDING_ACK does
// not belong to a particular command.
namespace Command
{
constexpr uint16_t DISCOVERY = 0x0002;
constexpr uint16_t READREG = 0x0080;
constexpr uint16_t WRITEREG = 0x0082;
constexpr uint16_t READMEM = 0x0084;
constexpr uint16_t WRITEMEM = 0x0086;
constexpr uint16_t PENDING_ACK = 0x0089;
} // namespace Command

// GVCP status codes that the device returns by itself. VirtualDeviceGEV::Refuse can set others.
namespace Status
{
constexpr uint16_t SUCCESS = 0x0000;
constexpr uint16_t NOT_IMPLEMENTED = 0x8001;
constexpr uint16_t INVALID_PARAMETER = 0x8002;
constexpr uint16_t INVALID_ADDRESS = 0x8003;
constexpr uint16_t WRITE_PROTECT = 0x8004;
constexpr uint16_t BAD_ALIGNMENT = 0x8005;
constexpr uint16_t ACCESS_DENIED = 0x8006;
constexpr uint16_t BUSY = 0x8007;
constexpr uint16_t INVALID_HEADER = 0x800E;
} // namespace Status

// A part of the address space that a command touches.
struct SpanGEV
{
    uint64_t mAddress = 0;
    size_t mSize = 0;
};

// CommandGEV is a GVCP command: the datagram, where and when it came from, and its header.
//
//   0  key                 1
//   1  flags               1   bit 0: acknowledge required
//   2  command             2
//   4  length              2   of the payload
//   6  request identifier  2
//   8  payload
struct CommandGEV
{
    static constexpr uint8_t KEY = 0x42;
    static constexpr size_t HEADER_SIZE = 8;

    Endpoint mFrom;
    int64_t mNowMs = 0;
    Bytes mDatagram; // at least a header
    uint8_t mKey = 0;
    uint8_t mFlags = 0;
    uint16_t mCode = 0;
    uint16_t mLength = 0; // as the header says
    uint16_t mIdentifier = 0;

    // The payload as it came, whatever the length field says.
    size_t GetPayloadSize() const { return mDatagram.size() - HEADER_SIZE; }
    PacketBytes::BigReader ReadPayload() const
    {
        return { mDatagram.data() + HEADER_SIZE, GetPayloadSize() };
    }

    bool HasAcknowledgeFlag() const { return ( mFlags & 0x01 ) != 0; }

    // True for DISCOVERY, READREG and READMEM, which are useless without an answer.
    bool IsQuestion() const;
    bool IsWrite() const;
    bool WantsAcknowledge() const { return HasAcknowledgeFlag() || IsQuestion(); }

    // DISCOVERY touches the word at address 0. A payload that is too short reads as 0.
    std::vector<SpanGEV> GetSpans() const;
};

// Reads the header. Empty if the datagram is shorter than one. Key, length and identifier are not
// checked.
std::optional<CommandGEV> ParseCommandGEV( const Endpoint& aFrom, int64_t aNowMs, Bytes aDatagram );

// What an acknowledge carries after its header.
struct ReplyGEV
{
    uint16_t mStatus = Status::SUCCESS;
    Bytes mPayload;
};

// The payload of both write acknowledges: a reserved field and the index.
Bytes MakeIndex( size_t aIndex );

// Refuses a command of which nothing was executed. A write acknowledge carries an index even then.
ReplyGEV MakeRefusal( const CommandGEV& aCommand, uint16_t aStatus );

// The datagrams that answer a command.
Bytes MakeAcknowledge( const CommandGEV& aCommand, const ReplyGEV& aReply );
Bytes MakePendingAcknowledge( const CommandGEV& aCommand, uint16_t aAnnouncedMs );

} // namespace Simulators
