#pragma once

#include "Simulators/Datagram.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>

namespace Simulators
{

// How a USB transfer ends.
enum class EndingU3V
{
    DONE,
    WAITING, // there is nothing to fetch yet
    HALTED,
    GONE,
    OVERRUN // a packet did not fit; the transfer is lost
};

// What a host fetched.
struct FetchedU3V
{
    EndingU3V mEnding = EndingU3V::WAITING;
    Bytes mBytes;
};

// InEndpointU3V is a bulk IN endpoint: transfers wait there, in order, until the host fetches them.
class InEndpointU3V
{
public:
    explicit InEndpointU3V( uint16_t aPacketSize );

    // Lets a transfer be fetched from aDueMs on, or the endpoint halt when it would be. Neither
    // overtakes what was queued before.
    void Queue( int64_t aDueMs, const Bytes& aBytes );
    void QueueHalt( int64_t aDueMs );

    // When the next one is due; empty if nothing waits.
    std::optional<int64_t> GetNextDueMs() const;

    bool IsHalted() const { return mIsHalted; }
    void ClearHalt() { mIsHalted = false; }

    // Gives at most aCapacity bytes of the transfer that waits in front; there is one. What is left
    // of it comes with the next calls, where aCapacity is a whole number of packets; where it is
    // not, the last packet did not fit.
    FetchedU3V Take( size_t aCapacity );

private:
    struct Waiting
    {
        int64_t mDueMs = 0;
        bool mHalts = false;
        Bytes mBytes;
    };

    void Add( int64_t aDueMs, bool aHalts, const Bytes& aBytes );

    size_t mPacketSize;
    std::deque<Waiting> mWaiting;
    bool mIsHalted = false;
};

} // namespace Simulators
