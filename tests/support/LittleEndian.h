// Little-endian numbers at any offset of a test's packet.
#pragma once

#include "tests/support/Packets.h"

#include <cstddef>
#include <cstdint>
#include <utility>

namespace TestSupport
{

// A number in aSize bytes, 1 to 8.
inline Bytes Little( uint64_t aValue, std::size_t aSize )
{
    Bytes lBytes;
    for ( std::size_t i = 0; i < aSize; ++i )
    {
        lBytes.push_back( static_cast<uint8_t>( aValue >> ( 8 * i ) & 0xFF ) );
    }
    return lBytes;
}

// Appends such a number.
inline void AppendLittle( Bytes& aBytes, uint64_t aValue, std::size_t aSize )
{
    aBytes = std::move( aBytes ) + Little( aValue, aSize );
}

// The number of aSize bytes, 1 to 8, at aOffset. It throws where they do not all lie in aBytes.
inline uint64_t FromLittle( const Bytes& aBytes, std::size_t aOffset, std::size_t aSize )
{
    uint64_t lValue = 0;
    for ( std::size_t i = 0; i < aSize; ++i )
    {
        lValue |= static_cast<uint64_t>( aBytes.at( aOffset + i ) ) << ( 8 * i );
    }
    return lValue;
}

} // namespace TestSupport
