// TFTP packets as RFC 1350 lays them out, one field after the other.
#pragma once

#include "tests/support/Packets.h"

#include <cstdint>
#include <string>
#include <vector>

namespace TestSupport
{

inline Bytes operator+( Bytes aA, const Bytes& aB )
{
    aA.insert( aA.end(), aB.begin(), aB.end() );
    return aA;
}

// The characters of a text, without a zero.
inline Bytes Text( const std::string& aText )
{
    return Bytes( aText.begin(), aText.end() );
}

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

// aCount bytes that differ from block to block and from seed to seed.
inline Bytes Pattern( std::size_t aCount, unsigned int aSeed = 1 )
{
    Bytes lBytes( aCount );
    uint32_t lState = aSeed;
    for ( uint8_t& lByte : lBytes )
    {
        lState = lState * 1664525U + 1013904223U;
        lByte = static_cast<uint8_t>( lState >> 24 );
    }
    return lBytes;
}

} // namespace TestSupport
