// Numbers in network order: the only place of the library that knows the order of bytes.
#pragma once

#include <cstdint>

namespace WdUtilsLib
{

inline void PutBig16( uint8_t* aBytes, uint16_t aValue )
{
    aBytes[0] = static_cast<uint8_t>( aValue >> 8 );
    aBytes[1] = static_cast<uint8_t>( aValue );
}

inline void PutBig32( uint8_t* aBytes, uint32_t aValue )
{
    PutBig16( aBytes, static_cast<uint16_t>( aValue >> 16 ) );
    PutBig16( aBytes + 2, static_cast<uint16_t>( aValue ) );
}

inline uint16_t GetBig16( const uint8_t* aBytes )
{
    return static_cast<uint16_t>( ( aBytes[0] << 8 ) | aBytes[1] );
}

inline uint32_t GetBig32( const uint8_t* aBytes )
{
    return ( static_cast<uint32_t>( GetBig16( aBytes ) ) << 16 ) | GetBig16( aBytes + 2 );
}

} // namespace WdUtilsLib
