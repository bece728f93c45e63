#include "Simulators/AddressFaults.h"

#include <algorithm>

namespace Simulators
{

void AddressFaults::Refuse( uint16_t aCommand, uint64_t aAddress, uint16_t aStatus )
{
    if ( aStatus == 0 )
    {
        mStatuses.erase( { aAddress, aCommand } );
        return;
    }
    mStatuses[{ aAddress, aCommand }] = aStatus;
}

uint16_t AddressFaults::FindStatus( uint16_t aCommand, uint64_t aAddress, size_t aSize ) const
{
    const auto lFound = std::find_if( mStatuses.lower_bound( { aAddress, 0 } ), mStatuses.end(),
                                      [aCommand]( const auto& aEntry )
                                      {
                                          const uint16_t lCommand = aEntry.first.second;
                                          return lCommand == aCommand || lCommand == ANY_COMMAND;
                                      } );
    const bool lIsTouched = lFound != mStatuses.end() && lFound->first.first - aAddress < aSize;
    return lIsTouched ? lFound->second : uint16_t{ 0 };
}

void AddressFaults::SetSilent( uint64_t aAddress, bool aIsSilent )
{
    if ( aIsSilent )
    {
        mSilent.insert( aAddress );
        return;
    }
    mSilent.erase( aAddress );
}

bool AddressFaults::IsSilent( uint64_t aAddress, size_t aSize ) const
{
    const auto lFound = mSilent.lower_bound( aAddress );
    return lFound != mSilent.end() && *lFound - aAddress < aSize;
}

} // namespace Simulators
