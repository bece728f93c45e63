#pragma once

#include "Simulators/Datagram.h"
#include "Simulators/Latest.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace Simulators
{

// FaultPlan simulates the faults of a network in one direction. Each datagram goes through Apply,
// which returns what arrives instead. The faults depend on the seed, the rates and the datagrams
// only, on every machine. Changing the rate of one fault does not change which datagrams have the
// others. With all rates 0 nothing is changed. Copies are independent. Not thread-safe.
class FaultPlan
{
public:
    // The probability of each fault for a datagram: 0 never, 1 always. A rate below 0 counts as 0,
    // one above 1 as 1, NaN as 0. Faults are independent: one datagram can be truncated, corrupted
    // and duplicated. A lost datagram has no other fault, but a stray can arrive in its place.
    struct Rates
    {
        double mLoss = 0.0;
        double mDelay = 0.0;
        double mDuplicate = 0.0;
        double mReorder = 0.0;
        double mTruncate = 0.0;
        double mCorrupt = 0.0;
        double mStray = 0.0;

        // A delayed datagram waits 1 to mMaxDelayMs longer.
        uint32_t mMaxDelayMs = 100;
        // A reordered datagram waits exactly this much longer, so that all that pass meanwhile
        // overtake it. The default is above the 400 ms after which a host sends a command again: a
        // host that waits for each answer sends nothing else that could overtake.
        uint32_t mHoldMs = 500;
        // Corruption changes one of the first 8 bytes, the header; true: any byte.
        bool mCorruptData = false;
    };

    // What happened so far.
    struct Counters
    {
        uint64_t mSeen = 0; // calls of Apply
        uint64_t mLost = 0;
        uint64_t mDelayed = 0;
        uint64_t mDuplicated = 0;
        uint64_t mReordered = 0;
        uint64_t mTruncated = 0;
        uint64_t mCorrupted = 0;
        uint64_t mStrays = 0;
        uint64_t mPassed = 0; // came through once, whole, unchanged and in time
    };

    FaultPlan( const Rates& aRates, uint64_t aSeed );

    // Returns, in order, what is sent in place of aDatagram; possibly nothing. A truncated datagram
    // keeps 0 to size - 1 bytes. An empty one is neither truncated nor corrupted. A corrupted byte
    // always changes. Both copies of a duplicated datagram are equal and are sent together. A stray
    // has the datagram's address and port, and is sent before or after it. It is 1 to 64 random
    // bytes, or one of the last 8 datagrams.
    std::vector<Outgoing> Apply( const Outgoing& aDatagram );

    const Counters& GetCounters() const { return mCounters; }

    // One line, without a line end: "100 datagrams: 78 passed, 20 lost, ...".
    std::string GetSummary() const;

private:
    // Random numbers that are the same everywhere.
    class Generator
    {
    public:
        explicit Generator( uint64_t aSeed )
            : mState( aSeed )
        {
        }
        uint64_t Next();
        // 0 to aCount - 1; 0 if aCount is 0.
        uint64_t Below( uint64_t aCount );
        bool Strikes( double aRate );

    private:
        uint64_t mState;
    };

    // The faults of one datagram.
    struct Strikes
    {
        bool mLoss = false;
        bool mDelay = false;
        bool mDuplicate = false;
        bool mReorder = false;
        bool mTruncate = false;
        bool mCorrupt = false;
        bool mStray = false;
    };

    Strikes Draw();
    std::vector<Outgoing> Deliver( const Outgoing& aDatagram, const Strikes& aStrikes,
                                   Generator& aDetails );
    bool Truncate( Bytes& aBytes, Generator& aDetails );
    bool Corrupt( Bytes& aBytes, Generator& aDetails );
    bool Delay( Outgoing& aDatagram, const Strikes& aStrikes, Generator& aDetails );
    Outgoing MakeStray( const Outgoing& aDatagram, Generator& aDetails );

    Rates mRates;
    Generator mGenerator;
    Counters mCounters;
    Latest<Bytes> mEarlier;
};

} // namespace Simulators
