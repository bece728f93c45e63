// What the packets of TFTP (RFC 1350) have in common.
//
// Packets are values that know nothing of sockets. An encoder takes the destination, its capacity
// and where to report the length, and is true when it has written the packet; a destination that is
// too small is a programming error, asserted, and nothing is written. A decoder takes the bytes
// that were received and their count, and is true for a well-formed packet of its kind; after a
// refusal the object may be partly filled. Nothing is logged.
#pragma once

#include <cstdint>

namespace HtBaseLib
{
namespace Tftp
{

enum Opcode : uint16_t
{
    RRQ = 1,
    WRQ = 2,
    DATA = 3,
    ACK = 4,
    ERR = 5
};

constexpr unsigned int BLOCK_SIZE = 512; // a shorter block is the last

// What decoders accept.
// KEEP: Blocks of up to 514 bytes are decoded, and written, although 512 is the most that is
// sent.
constexpr unsigned int MAX_DATA = 514;
constexpr unsigned int MIN_PACKET = 4;
constexpr unsigned int MAX_PACKET = MIN_PACKET + MAX_DATA;

} // namespace Tftp
} // namespace HtBaseLib
