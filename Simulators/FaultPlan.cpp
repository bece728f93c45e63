#include "Simulators/FaultPlan.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>

namespace Simulators
{

namespace
{

constexpr size_t HEADER_SIZE = 8;
constexpr size_t STRAY_SIZE_MAX = 64;
constexpr size_t EARLIER_MAX = 8;

} // namespace

// splitmix64.
uint64_t FaultPlan::Generator::Next()
{
    mState += 0x9E3779B97F4A7C15u;
    uint64_t lValue = mState;
    lValue = ( lValue ^ ( lValue >> 30 ) ) * 0xBF58476D1CE4E5B9u;
    lValue = ( lValue ^ ( lValue >> 27 ) ) * 0x94D049BB133111EBu;
    return lValue ^ ( lValue >> 31 );
}

// The remainder favours small numbers by less than one in 2^30 for the counts that occur here.
uint64_t FaultPlan::Generator::Below( uint64_t aCount )
{
    return ( aCount == 0 ) ? 0 : Next() % aCount;
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
    mCounters.mSeen++;
    const Strikes lStrikes = Draw();
    // The details come from numbers of their own, as many as it takes.
    Generator lDetails( mGenerator.Next() );
    std::vector<Outgoing> lOut;
    if ( lStrikes.mLoss )
    {
        mCounters.mLost++;
    }
    else
    {
        Deliver( &lOut, aDatagram, lStrikes, &lDetails );
    }
    if ( lStrikes.mStray )
    {
        mCounters.mStrays++;
        const bool lIsFirst = lDetails.Below( 2 ) == 0;
        lOut.insert( lIsFirst ? lOut.begin() : lOut.end(), MakeStray( aDatagram, &lDetails ) );
    }
    mEarlier.push_back( aDatagram.mBytes );
    if ( mEarlier.size() > EARLIER_MAX )
    {
        mEarlier.pop_front();
    }
    return lOut;
}

void FaultPlan::Deliver( std::vector<Outgoing>* aOut, const Outgoing& aDatagram,
                         const Strikes& aStrikes, Generator* aDetails )
{
    Outgoing lDatagram = aDatagram;
    bool lIsStruck = false;
    if ( aStrikes.mTruncate && Truncate( &lDatagram, aDetails ) )
    {
        mCounters.mTruncated++;
        lIsStruck = true;
    }
    if ( aStrikes.mCorrupt && Corrupt( &lDatagram, aDetails ) )
    {
        mCounters.mCorrupted++;
        lIsStruck = true;
    }
    if ( aStrikes.mDelay && ( mRates.mMaxDelayMs > 0 ) )
    {
        mCounters.mDelayed++;
        lDatagram.mDelayMs += static_cast<int64_t>( 1 + aDetails->Below( mRates.mMaxDelayMs ) );
        lIsStruck = true;
    }
    if ( aStrikes.mReorder && ( mRates.mHoldMs > 0 ) )
    {
        mCounters.mReordered++;
        lDatagram.mDelayMs += mRates.mHoldMs;
        lIsStruck = true;
    }
    aOut->push_back( lDatagram );
    if ( aStrikes.mDuplicate )
    {
        mCounters.mDuplicated++;
        aOut->push_back( lDatagram );
        lIsStruck = true;
    }
    if ( !lIsStruck )
    {
        mCounters.mPassed++;
    }
}

bool FaultPlan::Truncate( Outgoing* aDatagram, Generator* aDetails )
{
    Bytes& lBytes = aDatagram->mBytes;
    if ( lBytes.empty() )
    {
        return false;
    }
    lBytes.resize( static_cast<size_t>( aDetails->Below( lBytes.size() ) ) );
    return true;
}

bool FaultPlan::Corrupt( Outgoing* aDatagram, Generator* aDetails )
{
    Bytes& lBytes = aDatagram->mBytes;
    if ( lBytes.empty() )
    {
        return false;
    }
    const size_t lReach =
        mRates.mCorruptData ? lBytes.size() : std::min( lBytes.size(), HEADER_SIZE );
    const size_t lOffset = static_cast<size_t>( aDetails->Below( lReach ) );
    const uint64_t lChange = 1 + aDetails->Below( 255 );
    lBytes[lOffset] = static_cast<uint8_t>( lBytes[lOffset] ^ lChange );
    return true;
}

Outgoing FaultPlan::MakeStray( const Outgoing& aDatagram, Generator* aDetails )
{
    Outgoing lStray;
    lStray.mDelayMs = aDatagram.mDelayMs;
    lStray.mTo = aDatagram.mTo;
    lStray.mFromPort = aDatagram.mFromPort;
    const bool lIsStale = aDetails->Below( 2 ) == 0;
    if ( lIsStale && !mEarlier.empty() )
    {
        lStray.mBytes = mEarlier[static_cast<size_t>( aDetails->Below( mEarlier.size() ) )];
        return lStray;
    }
    const uint64_t lSize = 1 + aDetails->Below( STRAY_SIZE_MAX );
    for ( uint64_t i = 0; i < lSize; i++ )
    {
        lStray.mBytes.push_back( static_cast<uint8_t>( aDetails->Below( 256 ) ) );
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
