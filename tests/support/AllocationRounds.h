// An operation run with each of its allocations failing in turn.
#pragma once

#include "tests/support/AllocationCounter.h"

#include <limits>
#include <new>
#include <utility>

namespace TestSupport
{

// AllocationRounds counts rounds of a test: in the first the operation's first allocation fails, in
// the second that one and all after it, then likewise its second, and so on until it needs no more.
//
//     AllocationRounds lRounds;
//     while ( lRounds.Next() )
//     {
//         Thing lThing;
//         const bool lHasThrown = lRounds.Run( [&] { lThing.DoIt(); } );
//         ...
//     }
class AllocationRounds
{
public:
    // Next returns whether to run once more; what a round has left on the heap counts as leaked.
    bool Next()
    {
        const long long lLive = GetLiveAllocationCount();
        mLeaked += mRound != 0 ? lLive - mLive : 0;
        mLive = lLive;
        ++mRound;
        return std::exchange( mHasFailed, false );
    }

    // Run calls the operation and returns whether it threw std::bad_alloc. Other exceptions pass.
    template <class Operation>
    bool Run( Operation aOperation )
    {
        const AllocationFailure lFailure(
            ( mRound + 1 ) / 2,
            mRound % 2 != 0 ? 1 : std::numeric_limits<unsigned long long>::max() );
        bool lHasThrown = false;
        try
        {
            aOperation();
        }
        catch ( const std::bad_alloc& )
        {
            lHasThrown = true;
        }
        mHasFailed = lFailure.HasHappened();
        return lHasThrown;
    }

    // HasFailed returns whether an allocation of the last Run failed.
    bool HasFailed() const { return mHasFailed; }

    // In how many rounds an allocation failed, and how many blocks they have left on the heap;
    // after Next has returned false.
    unsigned long long GetFailureCount() const { return mRound - 2; }
    long long GetLeakedCount() const { return mLeaked; }

private:
    unsigned long long mRound = 0;
    bool mHasFailed = true;
    long long mLive = 0;
    long long mLeaked = 0;
};

} // namespace TestSupport
