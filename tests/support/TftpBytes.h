// TFTP packets as RFC 1350 lays them out, one field after the other.
#pragma once

#include "tests/support/Packets.h"

#include <cstdint>
#include <string>

namespace TestSupport
{

// A 16-bit number, the more significant byte first.
inline Bytes Big16( unsigned int aValue )
{
    return { static_cast<uint8_t>( aValue >> 8 ), static_cast<uint8_t>( aValue ) };
}

// A request: opcode 1 (read) or 2 (write), file name, zero, mode, zero.
inline Bytes ReadRequest( const std::string& aName )
{
    return Bytes{ 0x00, 0x01 } + Text( aName ) + Bytes{ 0x00 } + Text( "octet" ) + Bytes{ 0x00 };
}
inline Bytes WriteRequest( const std::string& aName )
{
    return Bytes{ 0x00, 0x02 } + Text( aName ) + Bytes{ 0x00 } + Text( "octet" ) + Bytes{ 0x00 };
}

// A block: opcode 3, block number, data.
inline Bytes Data( unsigned int aBlock, const Bytes& aData )
{
    return Bytes{ 0x00, 0x03 } + Big16( aBlock ) + aData;
}

// An acknowledge: opcode 4, block number.
inline Bytes Ack( unsigned int aBlock )
{
    return Bytes{ 0x00, 0x04 } + Big16( aBlock );
}

// An error: opcode 5, error code, message, zero.
inline Bytes Error( unsigned int aCode, const std::string& aMessage )
{
    return Bytes{ 0x00, 0x05 } + Big16( aCode ) + Text( aMessage ) + Bytes{ 0x00 };
}

} // namespace TestSupport
