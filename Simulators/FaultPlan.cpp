#include "Simulators/FaultPlan.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <deque>

namespace Simulators
{

namespace
{

constexpr size_t HEADER_SIZE = 8;
constexpr size_t STRAY_SIZE_MAX = 64;
constexpr size_t EARLIER_MAX = 8;

} // namespace

// splitmix64. Unlike the distributions of the standard library, it gives the same numbers on every
// machine.
uint64_t FaultPlan::Generator::Next()
{
    mState += 0x9E3779B97F4A7C15U;
    uint64_t lValue = mState;
    lValue = ( lValue ^ ( lValue >> 30 ) ) * 0xBF58476D1CE4E5B9U;
    lValue = ( lValue ^ ( lValue >> 27 ) ) * 0x94D049BB133111EBU;
    return lValue ^ ( lValue >> 31 );
}

// The remainder favours small numbers by less than one in 2^30 for the counts that occur here.
uint64_t FaultPlan::Generator::Below( uint64_t aCount )
{
    return aCount == 0 ? 0 : Next() % aCount;
}

bool FaultPlan::Generator::Strikes( double aRate )
{
    // 53 bits, so that the quotient is exact and below 1.
    const double lDrawn = static_cast<double>( Next() >> 11 ) / 9007199254740992.0;
    return lDrawn < aRate;
}

FaultPlan::FaultPlan( const Rates& aRates, uint64_t aSeed )
    : mRates( aRates )
    , mGenerator( aSeed )
    , mEarlier( EARLIER_MAX )
{
}

// One number per fault, whatever the rates, so that the rate of one does not shift the others.
FaultPlan::Strikes FaultPlan::Draw()
{
    Strikes lStrikes;
    lStrikes.mLoss = mGenerator.Strikes( mRates.mLoss );
    lStrikes.mDelay = mGenerator.Strikes( mRates.mDelay );
    lStrikes.mDuplicate = mGenerator.Strikes( mRates.mDuplicate );
    lStrikes.mReorder = mGenerator.Strikes( mRates.mReorder );
    lStrikes.mTruncate = mGenerator.Strikes( mRates.mTruncate );
    lStrikes.mCorrupt = mGenerator.Strikes( mRates.mCorrupt );
    lStrikes.mStray = mGenerator.Strikes( mRates.mStray );
    return lStrikes;
}

std::vector<Outgoing> FaultPlan::Apply( const Outgoing& aDatagram )
{
    ++mCounters.mSeen;
    const Strikes lStrikes = Draw();
    // The details come from a generator of their own. So the faults of the next datagram do not
    // depend on how many numbers this one needs.
    Generator lDetails( mGenerator.Next() );
    std::vector<Outgoing> lOut;
    if ( lStrikes.mLoss )
    {
        ++mCounters.mLost;
    }
    else
    {
        lOut = Deliver( aDatagram, lStrikes, lDetails );
    }
    if ( lStrikes.mStray )
    {
        ++mCounters.mStrays;
        const bool lIsFirst = lDetails.Below( 2 ) == 0;
        lOut.insert( lIsFirst ? lOut.begin() : lOut.end(), MakeStray( aDatagram, lDetails ) );
    }
    mEarlier.Add( aDatagram.mBytes );
    return lOut;
}

std::vector<Outgoing> FaultPlan::Deliver( const Outgoing& aDatagram, const Strikes& aStrikes,
                                          Generator& aDetails )
{
    Outgoing lDatagram = aDatagram;
    const bool lIsTruncated = aStrikes.mTruncate && Truncate( lDatagram.mBytes, aDetails );
    const bool lIsCorrupted = aStrikes.mCorrupt && Corrupt( lDatagram.mBytes, aDetails );
    const bool lIsLate = Delay( lDatagram, aStrikes, aDetails );
    if ( aStrikes.mDuplicate )
    {
        ++mCounters.mDuplicated;
        return { lDatagram, lDatagram };
    }
    if ( !lIsTruncated && !lIsCorrupted && !lIsLate )
    {
        ++mCounters.mPassed;
    }
    return { lDatagram };
}

bool FaultPlan::Truncate( Bytes& aBytes, Generator& aDetails )
{
    if ( aBytes.empty() )
    {
        return false;
    }
    aBytes.resize( static_cast<size_t>( aDetails.Below( aBytes.size() ) ) );
    ++mCounters.mTruncated;
    return true;
}

bool FaultPlan::Corrupt( Bytes& aBytes, Generator& aDetails )
{
    if ( aBytes.empty() )
    {
        return false;
    }
    const size_t lReach =
        mRates.mCorruptData ? aBytes.size() : std::min( aBytes.size(), HEADER_SIZE );
    const auto lOffset = static_cast<size_t>( aDetails.Below( lReach ) );
    const uint64_t lChange = 1 + aDetails.Below( 255 ); // at least one bit
    aBytes[lOffset] = static_cast<uint8_t>( aBytes[lOffset] ^ lChange );
    ++mCounters.mCorrupted;
    return true;
}

// Lets the datagram leave later: by a delay, by being reordered, or by both.
bool FaultPlan::Delay( Outgoing& aDatagram, const Strikes& aStrikes, Generator& aDetails )
{
    const bool lIsDelayed = aStrikes.mDelay && mRates.mMaxDelayMs > 0;
    const bool lIsReordered = aStrikes.mReorder && mRates.mHoldMs > 0;
    if ( lIsDelayed )
    {
        ++mCounters.mDelayed;
        aDatagram.mDelayMs += static_cast<int64_t>( 1 + aDetails.Below( mRates.mMaxDelayMs ) );
    }
    if ( lIsReordered )
    {
        ++mCounters.mReordered;
        aDatagram.mDelayMs += mRates.mHoldMs;
    }
    return lIsDelayed || lIsReordered;
}

Outgoing FaultPlan::MakeStray( const Outgoing& aDatagram, Generator& aDetails )
{
    Outgoing lStray = aDatagram;
    const std::deque<Bytes>& lEarlier = mEarlier.Get();
    const bool lIsStale = aDetails.Below( 2 ) == 0;
    if ( lIsStale && !lEarlier.empty() )
    {
        lStray.mBytes = lEarlier[static_cast<size_t>( aDetails.Below( lEarlier.size() ) )];
        return lStray;
    }
    lStray.mBytes.resize( static_cast<size_t>( 1 + aDetails.Below( STRAY_SIZE_MAX ) ) );
    for ( uint8_t& lByte : lStray.mBytes )
    {
        lByte = static_cast<uint8_t>( aDetails.Below( 256 ) );
    }
    return lStray;
}

std::string FaultPlan::GetSummary() const
{
    char lText[320];
    std::snprintf( lText, sizeof( lText ),
                   "%" PRIu64 " datagrams: %" PRIu64 " passed, %" PRIu64 " lost, %" PRIu64
                   " delayed, %" PRIu64 " duplicated, %" PRIu64 " reordered, %" PRIu64
                   " truncated, %" PRIu64 " corrupted, %" PRIu64 " strays added",
                   mCounters.mSeen, mCounters.mPassed, mCounters.mLost, mCounters.mDelayed,
                   mCounters.mDuplicated, mCounters.mReordered, mCounters.mTruncated,
                   mCounters.mCorrupted, mCounters.mStrays );
    return lText;
}

} // namespace Simulators
