// Little-endian numbers at any offset of a test's packet.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace TestSupport
{

// Appends a number of aSize bytes, 1 to 8.
inline void AppendLittle( std::vector<uint8_t>& aBytes, uint64_t aValue, std::size_t aSize )
{
    for ( std::size_t i = 0; i < aSize; ++i )
    {
        aBytes.push_back( static_cast<uint8_t>( aValue >> ( 8 * i ) & 0xFF ) );
    }
}

// The number of aSize bytes, 1 to 8, at aOffset; bytes beyond aBytes count as 0.
inline uint64_t GetLittle( const std::vector<uint8_t>& aBytes, std::size_t aOffset,
                           std::size_t aSize )
{
    uint64_t lValue = 0;
    for ( std::size_t i = 0; i < aSize && aOffset + i < aBytes.size(); ++i )
    {
        lValue |= static_cast<uint64_t>( aBytes[aOffset + i] ) << ( 8 * i );
    }
    return lValue;
}

} // namespace TestSupport
