// Numbers in the order of GenCP and USB: the only place of the library that knows it.
#pragma once

#include <cstdint>

namespace WdUtilsLib
{

inline void PutLittle16( unsigned char* aBytes, uint16_t aValue )
{
    aBytes[0] = static_cast<unsigned char>( aValue );
    aBytes[1] = static_cast<unsigned char>( aValue >> 8 );
}

inline void PutLittle32( unsigned char* aBytes, uint32_t aValue )
{
    PutLittle16( aBytes, static_cast<uint16_t>( aValue ) );
    PutLittle16( aBytes + 2, static_cast<uint16_t>( aValue >> 16 ) );
}

inline void PutLittle64( unsigned char* aBytes, uint64_t aValue )
{
    PutLittle32( aBytes, static_cast<uint32_t>( aValue ) );
    PutLittle32( aBytes + 4, static_cast<uint32_t>( aValue >> 32 ) );
}

inline uint16_t GetLittle16( const unsigned char* aBytes )
{
    return static_cast<uint16_t>( aBytes[0] | ( aBytes[1] << 8 ) );
}

inline uint32_t GetLittle32( const unsigned char* aBytes )
{
    return GetLittle16( aBytes ) | ( static_cast<uint32_t>( GetLittle16( aBytes + 2 ) ) << 16 );
}

inline uint64_t GetLittle64( const unsigned char* aBytes )
{
    return GetLittle32( aBytes ) | ( static_cast<uint64_t>( GetLittle32( aBytes + 4 ) ) << 32 );
}

} // namespace WdUtilsLib
