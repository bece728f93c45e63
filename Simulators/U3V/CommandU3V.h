#pragma once

#include "Simulators/Datagram.h"

#include <PacketBytes/ByteReader.h>

#include <cstddef>
#include <cstdint>
#include <optional>

namespace Simulators
{

// GenCP command codes. The code of an acknowledge is that of its command plus 1; PENDING_ACK does
// not belong to a particular command.
namespace CommandCodeU3V
{
constexpr uint16_t READMEM = 0x0800;
constexpr uint16_t WRITEMEM = 0x0802;
constexpr uint16_t PENDING_ACK = 0x0805;
} // namespace CommandCodeU3V

// GenCP status codes.
namespace StatusU3V
{
constexpr uint16_t SUCCESS = 0x0000;
constexpr uint16_t NOT_IMPLEMENTED = 0x8001;
constexpr uint16_t INVALID_PARAMETER = 0x8002;
constexpr uint16_t INVALID_ADDRESS = 0x8003;
constexpr uint16_t WRITE_PROTECT = 0x8004;
constexpr uint16_t BAD_ALIGNMENT = 0x8005;
constexpr uint16_t ACCESS_DENIED = 0x8006;
constexpr uint16_t BUSY = 0x8007;
constexpr uint16_t MSG_TIMEOUT = 0x800B;
constexpr uint16_t INVALID_HEADER = 0x800E;
constexpr uint16_t WRONG_CONFIG = 0x800F;
constexpr uint16_t GENERIC_ERROR = 0x8FFF;
} // namespace StatusU3V

// CommandU3V is a GenCP command: the transfer, its time of arrival, and its header.
//
//   0   prefix              4   "U3VC"
//   4   flags               2   0x4000: acknowledge requested
//   6   command             2
//   8   length              2   of the data
//   10  request identifier  2
//   12  data
struct CommandU3V
{
    static constexpr uint32_t PREFIX = 0x43563355;
    static constexpr uint16_t FLAG_REQUEST_ACK = 0x4000;
    static constexpr size_t HEADER_SIZE = 12;

    int64_t mNowMs = 0;
    Bytes mTransfer; // at least a header
    uint16_t mFlags = 0;
    uint16_t mCode = 0;
    uint16_t mLength = 0; // as the header says
    uint16_t mIdentifier = 0;

    // The data as it came, whatever the length field says.
    size_t GetDataSize() const { return mTransfer.size() - HEADER_SIZE; }
    PacketBytes::LittleReader ReadData() const
    {
        return { mTransfer.data() + HEADER_SIZE, GetDataSize() };
    }

    bool WantsAcknowledge() const { return ( mFlags & FLAG_REQUEST_ACK ) != 0; }
};

// Reads the header. Empty if the transfer is shorter than one or has another prefix.
std::optional<CommandU3V> ParseCommandU3V( Bytes aTransfer, int64_t aNowMs );

// What an acknowledge carries after its header.
struct ReplyU3V
{
    uint16_t mStatus = StatusU3V::SUCCESS;
    Bytes mData;
};

// An acknowledge: the header of a command with the status in place of the flags, and the data.
struct AcknowledgeU3V
{
    static constexpr size_t STATUS_OFFSET = 4;
    static constexpr size_t CODE_OFFSET = 6;
    static constexpr size_t LENGTH_OFFSET = 8;
    static constexpr size_t IDENTIFIER_OFFSET = 10;
};

Bytes MakeAcknowledge( uint16_t aCode, uint16_t aIdentifier, const ReplyU3V& aReply );
Bytes MakePendingAcknowledge( uint16_t aIdentifier, uint16_t aTimeoutMs );

// The code of the command's acknowledge. An odd code, which no command has, is answered with
// itself.
uint16_t GetAcknowledgeCode( const CommandU3V& aCommand );

} // namespace Simulators
