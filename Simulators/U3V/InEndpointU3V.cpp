#include "Simulators/U3V/InEndpointU3V.h"

#include <algorithm>

namespace Simulators
{

InEndpointU3V::InEndpointU3V( uint16_t aPacketSize )
    : mPacketSize( std::max<size_t>( aPacketSize, 1 ) )
{
}

void InEndpointU3V::Queue( int64_t aDueMs, const Bytes& aBytes )
{
    Add( aDueMs, false, aBytes );
}

void InEndpointU3V::QueueHalt( int64_t aDueMs )
{
    Add( aDueMs, true, Bytes() );
}

void InEndpointU3V::Add( int64_t aDueMs, bool aHalts, const Bytes& aBytes )
{
    // An endpoint keeps the order of its transfers, so none is due before the one ahead of it.
    const int64_t lDueMs = mWaiting.empty() ? aDueMs : std::max( aDueMs, mWaiting.back().mDueMs );
    mWaiting.push_back( { lDueMs, aHalts, aBytes } );
}

std::optional<int64_t> InEndpointU3V::GetNextDueMs() const
{
    return mWaiting.empty() ? std::nullopt : std::make_optional( mWaiting.front().mDueMs );
}

FetchedU3V InEndpointU3V::Take( size_t aCapacity )
{
    // A request for whole packets takes a part and leaves the rest, as a host controller does.
    // Otherwise the last packet does not fit, and the bus loses the transfer.
    Bytes& lBytes = mWaiting.front().mBytes;
    if ( lBytes.size() > aCapacity && aCapacity % mPacketSize == 0 )
    {
        const auto lCut = lBytes.begin() + static_cast<std::ptrdiff_t>( aCapacity );
        FetchedU3V lPart{ EndingU3V::DONE, Bytes( lBytes.begin(), lCut ) };
        lBytes.erase( lBytes.begin(), lCut );
        return lPart;
    }
    const Waiting lWaiting = mWaiting.front();
    mWaiting.pop_front();
    if ( lWaiting.mBytes.size() > aCapacity )
    {
        return { EndingU3V::OVERRUN, {} };
    }
    mIsHalted = lWaiting.mHalts;
    return { mIsHalted ? EndingU3V::HALTED : EndingU3V::DONE, lWaiting.mBytes };
}

} // namespace Simulators
