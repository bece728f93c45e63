#include "Simulators/LittleMemory.h"

#include <algorithm>
#include <utility>

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

void LittleMemory::Map( uint64_t aBase, Bytes aBytes, bool aIsWritable )
{
    Region lRegion;
    lRegion.mBase = aBase;
    lRegion.mBytes = std::move( aBytes );
    lRegion.mIsWritable.assign( lRegion.mBytes.size(), aIsWritable );
    mRegions.push_back( std::move( lRegion ) );
}

const LittleMemory::Region* LittleMemory::Find( uint64_t aAddress, size_t aSize ) const
{
    const auto lFound = std::find_if( mRegions.begin(), mRegions.end(),
                                      [&]( const Region& aRegion )
                                      {
                                          const uint64_t lOffset = aAddress - aRegion.mBase;
                                          return ( aAddress >= aRegion.mBase ) &&
                                                 ( lOffset < aRegion.mBytes.size() ) &&
                                                 ( aSize <= aRegion.mBytes.size() - lOffset );
                                      } );
    return ( lFound == mRegions.end() ) ? nullptr : &*lFound;
}

LittleMemory::Region* LittleMemory::Find( uint64_t aAddress, size_t aSize )
{
    const Region* const lRegion = static_cast<const LittleMemory*>( this )->Find( aAddress, aSize );
    return ( lRegion == nullptr ) ? nullptr
                                  : &mRegions[static_cast<size_t>( lRegion - mRegions.data() )];
}

void LittleMemory::Allow( uint64_t aAddress, size_t aSize )
{
    Region* const lRegion = Find( aAddress, 0 );
    if ( lRegion != nullptr )
    {
        const size_t lStart = aAddress - lRegion->mBase;
        const size_t lEnd = std::min( lStart + aSize, lRegion->mBytes.size() );
        for ( size_t i = lStart; i < lEnd; i++ )
        {
            lRegion->mIsWritable[i] = true;
        }
    }
}

bool LittleMemory::Contains( uint64_t aAddress, size_t aSize ) const
{
    return Find( aAddress, aSize ) != nullptr;
}

bool LittleMemory::IsWritable( uint64_t aAddress, size_t aSize ) const
{
    const Region* const lRegion = Find( aAddress, aSize );
    if ( lRegion == nullptr )
    {
        return false;
    }
    for ( size_t i = 0; i < aSize; i++ )
    {
        if ( !lRegion->mIsWritable[aAddress - lRegion->mBase + i] )
        {
            return false;
        }
    }
    return true;
}

Bytes LittleMemory::Read( uint64_t aAddress, size_t aSize ) const
{
    const Region* const lRegion = Find( aAddress, aSize );
    if ( lRegion == nullptr )
    {
        return Bytes();
    }
    const auto lStart =
        lRegion->mBytes.begin() + static_cast<std::ptrdiff_t>( aAddress - lRegion->mBase );
    return Bytes( lStart, lStart + static_cast<std::ptrdiff_t>( aSize ) );
}

bool LittleMemory::Write( uint64_t aAddress, const Bytes& aBytes )
{
    Region* const lRegion = Find( aAddress, aBytes.size() );
    if ( lRegion == nullptr )
    {
        return false;
    }
    std::copy( aBytes.begin(), aBytes.end(),
               lRegion->mBytes.begin() + static_cast<std::ptrdiff_t>( aAddress - lRegion->mBase ) );
    return true;
}

uint64_t LittleMemory::GetNumber( uint64_t aAddress, size_t aSize ) const
{
    return GetLittle( Read( aAddress, aSize ), 0, aSize );
}

bool LittleMemory::SetNumber( uint64_t aAddress, uint64_t aValue, size_t aSize )
{
    Bytes lBytes;
    AppendLittle( &lBytes, aValue, aSize );
    return Write( aAddress, lBytes );
}

bool LittleMemory::SetText( uint64_t aAddress, size_t aSize, const std::string& aText )
{
    Bytes lBytes( aSize, 0 );
    std::copy_n( aText.begin(), std::min( aSize, aText.size() ), lBytes.begin() );
    return Write( aAddress, lBytes );
}

} // namespace Simulators
