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

constexpr unsigned long long BYTES_MIN = 2; // fewer give no bandwidth

static_assert( std::atomic<double>::is_always_lock_free );

unsigned int GetNext( unsigned int aSlot )
{
    return ( aSlot + 1 ) % CAPACITY;
}

// KEEP: A span of 2^63 us or more is negative, since it is converted to floating point as a signed
// number.
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
    // KEEP: `aExcludeLast` of the latest report holds for the whole history, whatever came with
    // the earlier reports.
    mExcludeLast = aExcludeLast;
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

// KEEP: Times are measured from the start of the newest slot, not from the report before. A
// stream of one report in 0.19 s still opens a slot for every second one, and a silence of 1.81 s
// can begin a new history.
// KEEP: A time before the start of the newest slot wraps around and counts as a long silence.
void InstantStats::Place( unsigned long long aTimestamp, unsigned int aBytes )
{
    const unsigned long long lElapsed = aTimestamp - mSlots[mNewest].mTimestamp;
    // KEEP: The first two reports open a slot each, however near or far they are. After `Reset`
    // the same.
    const bool lHasInterval = mUsed > 1;
    if ( lHasInterval && lElapsed < JOIN_BELOW )
    {
        mSlots[mNewest].mBytes += aBytes;
        ++mSlots[mNewest].mCount;
        return;
    }
    if ( lHasInterval && lElapsed > SILENCE_ABOVE )
    {
        // KEEP: After a silence everything that had joined the newest slot before it still
        // counts, as if it had arrived at once.
        mOldest = mNewest;
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

// KEEP: Rate and bandwidth each keep their last value when they cannot be computed, because there
// is no time span or there are fewer than two bytes. A stream that has stopped does not show 0.
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
