#include "Simulators/LittleEndian.h"

namespace Simulators
{

void AppendLittle( Bytes* aBytes, uint64_t aValue, size_t aSize )
{
    for ( size_t i = 0; i < aSize; i++ )
    {
        aBytes->push_back( static_cast<uint8_t>( ( aValue >> ( 8 * i ) ) & 0xFF ) );
    }
}

uint64_t GetLittle( const Bytes& aBytes, size_t aOffset, size_t aSize )
{
    uint64_t lValue = 0;
    for ( size_t i = 0; ( i < aSize ) && ( aOffset + i < aBytes.size() ); i++ )
    {
        lValue |= static_cast<uint64_t>( aBytes[aOffset + i] ) << ( 8 * i );
    }
    return lValue;
}

} // namespace Simulators
