#pragma once

#include "Simulators/Datagram.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace Simulators
{

namespace OpcodeTFTP
{
constexpr uint16_t RRQ = 1;
constexpr uint16_t WRQ = 2;
constexpr uint16_t DATA = 3;
constexpr uint16_t ACK = 4;
constexpr uint16_t ERROR = 5;
} // namespace OpcodeTFTP

// Codes of ERROR packets.
namespace ErrorTFTP
{
constexpr uint16_t NOT_DEFINED = 0;
constexpr uint16_t FILE_NOT_FOUND = 1;
constexpr uint16_t ACCESS_VIOLATION = 2;
constexpr uint16_t DISK_FULL = 3;
constexpr uint16_t ILLEGAL_OPERATION = 4;
constexpr uint16_t UNKNOWN_TRANSFER = 5;
constexpr uint16_t FILE_EXISTS = 6;
} // namespace ErrorTFTP

// PacketTFTP is a packet that the server received: its sender, port and time, the datagram, and its
// first two fields.
//
//   0  opcode   2
//   2  number   2   the block of DATA and ACK, the code of ERROR; requests have their texts here
//   4  data         of DATA
struct PacketTFTP
{
    static constexpr size_t HEADER_SIZE = 4;
    static constexpr size_t NUMBER_OFFSET = 2;

    Endpoint mFrom;
    uint16_t mToPort = 0; // 0 is the port that the server listens on
    int64_t mNowMs = 0;
    Bytes mDatagram; // at least a header
    uint16_t mOpcode = 0;
    uint16_t mNumber = 0;

    Bytes GetData() const { return Bytes( mDatagram.begin() + HEADER_SIZE, mDatagram.end() ); }
};

// Reads both fields. Empty if the datagram is too short for them.
std::optional<PacketTFTP> ParsePacketTFTP( const Endpoint& aFrom, uint16_t aToPort, Bytes aDatagram,
                                           int64_t aNowMs );

// The fields of RRQ and WRQ. Options after the mode are ignored.
struct RequestTFTP
{
    std::string mName;
    std::string mMode; // in lower case
};

// Empty if the packet is not a request, or if one of the texts has no terminating zero.
std::optional<RequestTFTP> ParseRequestTFTP( const PacketTFTP& aPacket );

Bytes MakeData( uint16_t aBlock, const Bytes& aData );
Bytes MakeAck( uint16_t aBlock );
Bytes MakeError( uint16_t aCode, const std::string& aMessage );

// The opcode and the number of a packet that the functions above have built.
uint16_t GetOpcode( const Bytes& aPacket );
uint16_t GetNumber( const Bytes& aPacket );

} // namespace Simulators
