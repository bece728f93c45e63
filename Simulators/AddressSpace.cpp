#include "Simulators/AddressSpace.h"

#include <algorithm>
#include <utility>

namespace Simulators
{

void AddressSpace::Map( uint32_t aBase, Bytes aBytes, Access aAccess )
{
    Region lRegion;
    lRegion.mBase = aBase;
    lRegion.mBytes = std::move( aBytes );
    lRegion.mBytes.resize( ( lRegion.mBytes.size() + 3 ) / 4 * 4, 0 );
    lRegion.mAccess.assign( lRegion.mBytes.size() / 4, aAccess );
    mRegions.push_back( std::move( lRegion ) );
}

size_t AddressSpace::Find( uint64_t aAddress ) const
{
    if ( aAddress > UINT32_MAX )
    {
        return NOT_FOUND;
    }
    for ( size_t i = 0; i < mRegions.size(); i++ )
    {
        const Region& lRegion = mRegions[i];
        if ( ( aAddress >= lRegion.mBase ) && ( aAddress - lRegion.mBase < lRegion.mBytes.size() ) )
        {
            return i;
        }
    }
    return NOT_FOUND;
}

void AddressSpace::SetAccess( uint32_t aAddress, uint32_t aSize, Access aAccess )
{
    const uint64_t lEnd = static_cast<uint64_t>( aAddress ) + aSize;
    for ( uint64_t lAddress = aAddress & ~3u; lAddress < lEnd; lAddress += 4 )
    {
        const size_t lIndex = Find( lAddress );
        if ( lIndex != NOT_FOUND )
        {
            Region& lRegion = mRegions[lIndex];
            lRegion.mAccess[( lAddress - lRegion.mBase ) / 4] = aAccess;
        }
    }
}

Access AddressSpace::GetAccess( uint64_t aAddress ) const
{
    const size_t lIndex = Find( aAddress );
    if ( lIndex == NOT_FOUND )
    {
        return Access::NONE;
    }
    const Region& lRegion = mRegions[lIndex];
    return lRegion.mAccess[( aAddress - lRegion.mBase ) / 4];
}

uint8_t AddressSpace::GetByte( uint64_t aAddress ) const
{
    const size_t lIndex = Find( aAddress );
    if ( lIndex == NOT_FOUND )
    {
        return 0;
    }
    const Region& lRegion = mRegions[lIndex];
    return lRegion.mBytes[aAddress - lRegion.mBase];
}

uint32_t AddressSpace::GetWord( uint64_t aAddress ) const
{
    uint32_t lValue = 0;
    for ( uint64_t i = 0; i < 4; i++ )
    {
        lValue = ( lValue << 8 ) | GetByte( aAddress + i );
    }
    return lValue;
}

bool AddressSpace::SetByte( uint64_t aAddress, uint8_t aValue )
{
    const size_t lIndex = Find( aAddress );
    if ( lIndex == NOT_FOUND )
    {
        return false;
    }
    Region& lRegion = mRegions[lIndex];
    lRegion.mBytes[aAddress - lRegion.mBase] = aValue;
    return true;
}

bool AddressSpace::SetWord( uint64_t aAddress, uint32_t aValue )
{
    bool lIsMapped = true;
    for ( uint64_t i = 0; i < 4; i++ )
    {
        const uint8_t lByte = static_cast<uint8_t>( ( aValue >> ( 24 - 8 * i ) ) & 0xFF );
        lIsMapped = SetByte( aAddress + i, lByte ) && lIsMapped;
    }
    return lIsMapped;
}

void AddressSpace::SetText( uint32_t aAddress, uint32_t aSize, const std::string& aText )
{
    for ( uint32_t i = 0; i < aSize; i++ )
    {
        const char lCharacter = ( i < aText.size() ) ? aText[i] : '\0';
        (void)SetByte( static_cast<uint64_t>( aAddress ) + i, static_cast<uint8_t>( lCharacter ) );
    }
}

const Bytes& AddressSpace::GetRegion( uint32_t aBase ) const
{
    const auto lFound =
        std::find_if( mRegions.begin(), mRegions.end(),
                      [&]( const Region& aRegion ) { return aRegion.mBase == aBase; } );
    return ( lFound == mRegions.end() ) ? mEmpty : lFound->mBytes;
}

} // namespace Simulators
