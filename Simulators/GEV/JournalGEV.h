#pragma once

#include "Simulators/Datagram.h"
#include "Simulators/GEV/CommandGEV.h"
#include "Simulators/Latest.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <string>

namespace Simulators
{

// A datagram that carried a command header, as it came.
struct RequestGEV
{
    Endpoint mFrom;
    int64_t mTimeMs = 0;
    Bytes mBytes;
};

// Counts of what happened to the commands of one code.
struct CountersGEV
{
    uint64_t mReceived = 0; // all of the following, and more
    uint64_t mExecuted = 0; // executed with success
    uint64_t mRefused = 0;  // answered with another status, or would have been
    uint64_t mRepeated = 0; // came again and was not executed again
    uint64_t mSilenced = 0; // touched an address that the device is silent about
    uint64_t mAnswers = 0;  // acknowledges returned, without the pending ones
    uint64_t mPendings = 0; // pending acknowledges returned
};

// Datagrams that were dropped, and irregularities of commands that were still accepted.
struct OdditiesGEV
{
    uint64_t mTooShort = 0;
    uint64_t mWrongKey = 0;
    uint64_t mZeroIdentifier = 0;
    uint64_t mReservedNotZero = 0;    // READMEM with something in its reserved field
    uint64_t mReadWithoutAckFlag = 0; // READREG, READMEM and DISCOVERY
};

// JournalGEV keeps what happened to a GigE Vision device.
class JournalGEV
{
public:
    explicit JournalGEV( size_t aRequestsKept );

    // Records a command that has arrived and was not executed or refused yet.
    void Record( const CommandGEV& aCommand );

    // The counters, for the caller to increment. All commands that are not implemented share one
    // set.
    CountersGEV& Count( uint16_t aCommand ) { return mCounters[GetKey( aCommand )]; }
    OdditiesGEV& CountOddity() { return mOddities; }

    CountersGEV GetCounters( uint16_t aCommand ) const;
    CountersGEV GetTotal() const;
    const OdditiesGEV& GetOddities() const { return mOddities; }

    // Oldest first.
    const std::deque<RequestGEV>& GetRequests() const { return mRequests.Get(); }

    std::string GetSummary() const;

private:
    static uint16_t GetKey( uint16_t aCommand );

    std::map<uint16_t, CountersGEV> mCounters;
    OdditiesGEV mOddities;
    Latest<RequestGEV> mRequests;
};

} // namespace Simulators
