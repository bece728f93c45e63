// Packets of the tests: bytes that are written field by field and only concatenated.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

namespace TestSupport
{

using Bytes = std::vector<uint8_t>;

// The fields, concatenated.
inline Bytes Packet( std::initializer_list<Bytes> aFields )
{
    Bytes lPacket;
    for ( const Bytes& lField : aFields )
    {
        lPacket.insert( lPacket.end(), lField.begin(), lField.end() );
    }
    return lPacket;
}

// One behind the other.
inline Bytes operator+( Bytes aA, const Bytes& aB )
{
    aA.insert( aA.end(), aB.begin(), aB.end() );
    return aA;
}

// The first aSize bytes.
inline Bytes Prefix( const Bytes& aPacket, std::size_t aSize )
{
    return Bytes( aPacket.begin(), aPacket.begin() + static_cast<std::ptrdiff_t>( aSize ) );
}

// The characters of a text, without a zero.
inline Bytes Text( const std::string& aText )
{
    return Bytes( aText.begin(), aText.end() );
}

// aCount bytes that differ from place to place and from seed to seed.
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
