#include <InstantStats.h>

namespace HtBaseLib
{

using QmUtilsLib::LockScope;

namespace
{

constexpr unsigned int CAPACITY = 16; // slots

// Microseconds since the start of the newest slot.
constexpr unsigned long long JOIN_BELOW = 200000;
constexpr unsigned long long SILENCE_ABOVE = 2000000;

constexpr double MICROSECONDS = 1000000.0; // in a second
constexpr double BITS_BY_TIME = 8000000.0; // of a byte, in bits per second where it took 1 us

constexpr unsigned long long BYTES_MIN = 2; // less is no bandwidth

static_assert( std::atomic<double>::is_always_lock_free );

unsigned int GetNext( unsigned int aSlot )
{
    return ( aSlot + 1 ) % CAPACITY;
}

// KEEP: the numbers are signed on their way to floating point, so a span of 2^63 us or more is
// negative.
double ToDouble( unsigned long long aValue )
{
    return static_cast<double>( static_cast<long long>( aValue ) );
}

} // namespace

InstantStats::InstantStats()
    : mMutex( std::make_unique<QmUtilsLib::Mutex>() )
    , mSlots( std::make_unique<Slot[]>( CAPACITY ) )
{
    Reset();
}

InstantStats::~InstantStats() = default;

void InstantStats::Report( unsigned long long aTimestamp, unsigned int aBytes, bool aExcludeLast )
{
    LockScope lLock( *mMutex );
    mExcludeLast = aExcludeLast; // KEEP: for the whole history
    Place( aTimestamp, aBytes );
    mLastTimestamp = aTimestamp;
    mLastBytes = aBytes;
    Recompute();
}

double InstantStats::GetRate() const
{
    return mRate.load( std::memory_order_relaxed );
}

double InstantStats::GetBandwidth() const
{
    return mBandwidth.load( std::memory_order_relaxed );
}

void InstantStats::Reset()
{
    LockScope lLock( *mMutex );
    mNewest = CAPACITY - 1; // the next one is the first slot
    mOldest = 0;
    mUsed = 0;
    mLastTimestamp = 0;
    mLastBytes = 0;
    mBandwidth.store( 0.0, std::memory_order_relaxed );
    mRate.store( 0.0, std::memory_order_relaxed );
}

// KEEP: times are measured from the start of the newest slot, not from the report before, so a
// stream may be silent for less than 2 s and begin anew all the same. KEEP: a time before that
// start wraps around to a long silence.
void InstantStats::Place( unsigned long long aTimestamp, unsigned int aBytes )
{
    const unsigned long long lElapsed = aTimestamp - mSlots[mNewest].mTimestamp;
    const bool lHasInterval = mUsed > 1; // KEEP: the first two reports open a slot each
    if ( lHasInterval && lElapsed < JOIN_BELOW )
    {
        mSlots[mNewest].mBytes += aBytes;
        ++mSlots[mNewest].mCount;
        return;
    }
    if ( lHasInterval && lElapsed > SILENCE_ABOVE )
    {
        mOldest = mNewest; // KEEP: with all that has joined it
        OpenSlot( aTimestamp, aBytes );
        mUsed = 2;
        return;
    }
    OpenSlot( aTimestamp, aBytes );
    if ( mUsed == CAPACITY )
    {
        mOldest = GetNext( mOldest );
        return;
    }
    ++mUsed;
}

void InstantStats::OpenSlot( unsigned long long aTimestamp, unsigned int aBytes )
{
    mNewest = GetNext( mNewest );
    mSlots[mNewest] = { aTimestamp, aBytes, 1, aBytes };
}

// KEEP: where there is nothing to reckon with, rate and bandwidth stay as they are, each by itself.
void InstantStats::Recompute()
{
    const Slot& lOldest = mSlots[mOldest];
    const unsigned long long lSpan =
        mLastTimestamp > lOldest.mTimestamp ? mLastTimestamp - lOldest.mTimestamp : 0;
    unsigned long long lBytes = 0;
    unsigned long long lCount = 0;
    unsigned int lSlot = mOldest;
    for ( unsigned int lLeft = mUsed; lLeft > 0; --lLeft )
    {
        lBytes += mSlots[lSlot].mBytes;
        lCount += mSlots[lSlot].mCount;
        lSlot = GetNext( lSlot );
    }
    const unsigned long long lIntervals = lCount - 1; // the latest report is always among them
    const unsigned long long lMeasured =
        lBytes - ( mExcludeLast ? mLastBytes : lOldest.mFirstBytes );
    if ( lIntervals > 0 && lSpan > 0 )
    {
        mRate.store( MICROSECONDS / ToDouble( lSpan ) * ToDouble( lIntervals ),
                     std::memory_order_relaxed );
    }
    if ( lMeasured >= BYTES_MIN && lSpan > 0 )
    {
        mBandwidth.store( ToDouble( lMeasured ) * BITS_BY_TIME / ToDouble( lSpan ),
                          std::memory_order_relaxed );
    }
}

} // namespace HtBaseLib
