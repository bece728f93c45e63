#include "Simulators/AddressSpace.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace Simulators
{

using PacketBytes::ByteOrder;
using PacketBytes::Load;
using PacketBytes::Store;

AddressSpace::AddressSpace( ByteOrder aOrder )
    : mOrder( aOrder )
{
}

void AddressSpace::Map( uint64_t aBase, Bytes aBytes, Access aAccess )
{
    const size_t lSize = aBytes.size();
    mRegions.push_back( { aBase, std::move( aBytes ), std::vector<Access>( lSize, aAccess ) } );
}

std::optional<AddressSpace::Place> AddressSpace::Find( uint64_t aAddress, size_t aOffset ) const
{
    const uint64_t lAddress = aAddress + aOffset;
    if ( lAddress < aAddress ) // beyond the last address
    {
        return std::nullopt;
    }
    for ( size_t i = 0; i < mRegions.size(); ++i )
    {
        const Region& lRegion = mRegions[i];
        if ( lAddress >= lRegion.mBase && lAddress - lRegion.mBase < lRegion.mBytes.size() )
        {
            return Place{ i, static_cast<size_t>( lAddress - lRegion.mBase ) };
        }
    }
    return std::nullopt;
}

void AddressSpace::SetAccess( uint64_t aAddress, size_t aSize, Access aAccess )
{
    for ( size_t i = 0; i < aSize; ++i )
    {
        if ( const std::optional<Place> lPlace = Find( aAddress, i ) )
        {
            mRegions[lPlace->mRegion].mAccess[lPlace->mIndex] = aAccess;
        }
    }
}

Access AddressSpace::GetAccess( uint64_t aAddress, size_t aSize ) const
{
    Access lLeast = Access::READ_WRITE;
    for ( size_t i = 0; i < aSize; ++i )
    {
        const std::optional<Place> lPlace = Find( aAddress, i );
        if ( !lPlace )
        {
            return Access::NONE;
        }
        lLeast = std::min( lLeast, mRegions[lPlace->mRegion].mAccess[lPlace->mIndex] );
    }
    return lLeast;
}

Bytes AddressSpace::Read( uint64_t aAddress, size_t aSize ) const
{
    Bytes lBytes( aSize, 0 );
    for ( size_t i = 0; i < aSize; ++i )
    {
        if ( const std::optional<Place> lPlace = Find( aAddress, i ) )
        {
            lBytes[i] = mRegions[lPlace->mRegion].mBytes[lPlace->mIndex];
        }
    }
    return lBytes;
}

bool AddressSpace::Write( uint64_t aAddress, const Bytes& aBytes )
{
    bool lIsWhole = true;
    for ( size_t i = 0; i < aBytes.size(); ++i )
    {
        const std::optional<Place> lPlace = Find( aAddress, i );
        if ( lPlace )
        {
            mRegions[lPlace->mRegion].mBytes[lPlace->mIndex] = aBytes[i];
        }
        lIsWhole = lIsWhole && lPlace.has_value();
    }
    return lIsWhole;
}

uint64_t AddressSpace::GetNumber( uint64_t aAddress, size_t aSize ) const
{
    Bytes lBytes = Read( aAddress, aSize );
    if ( mOrder == ByteOrder::LITTLE )
    {
        lBytes.resize( sizeof( uint64_t ) );
        return Load<ByteOrder::LITTLE, uint64_t>( lBytes.data() );
    }
    lBytes.insert( lBytes.begin(), sizeof( uint64_t ) - aSize, 0 );
    return Load<ByteOrder::BIG, uint64_t>( lBytes.data() );
}

void AddressSpace::SetNumber( uint64_t aAddress, uint64_t aValue, size_t aSize )
{
    uint8_t lBytes[sizeof( aValue )];
    const uint8_t* lFirst = lBytes;
    if ( mOrder == ByteOrder::LITTLE )
    {
        Store<ByteOrder::LITTLE>( aValue, lBytes );
    }
    else
    {
        Store<ByteOrder::BIG>( aValue, lBytes );
        lFirst = std::end( lBytes ) - aSize;
    }
    (void)Write( aAddress, Bytes( lFirst, lFirst + aSize ) ); // as far as it is there
}

uint32_t AddressSpace::GetWord( uint64_t aAddress ) const
{
    return static_cast<uint32_t>( GetNumber( aAddress, 4 ) );
}

void AddressSpace::SetWord( uint64_t aAddress, uint32_t aValue )
{
    SetNumber( aAddress, aValue, 4 );
}

void AddressSpace::SetText( uint64_t aAddress, size_t aSize, const std::string& aText )
{
    Bytes lBytes( aSize, 0 );
    std::copy_n( aText.begin(), std::min( aSize, aText.size() ), lBytes.begin() );
    (void)Write( aAddress, lBytes ); // as far as it is there
}

const Bytes& AddressSpace::GetRegion( uint64_t aBase ) const
{
    const auto lFound =
        std::find_if( mRegions.begin(), mRegions.end(),
                      [aBase]( const Region& aRegion ) { return aRegion.mBase == aBase; } );
    return lFound == mRegions.end() ? mEmpty : lFound->mBytes;
}

} // namespace Simulators
