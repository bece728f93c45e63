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

    // Queues a transfer that can be fetched from aDueMs on, or a halt of the endpoint in place of
    // one. Neither overtakes what was queued before.
    void Queue( int64_t aDueMs, const Bytes& aBytes );
    void QueueHalt( int64_t aDueMs );

    // When the next one is due; empty if nothing waits.
    std::optional<int64_t> GetNextDueMs() const;

    bool IsHalted() const { return mIsHalted; }
    void ClearHalt() { mIsHalted = false; }

    // Returns at most aCapacity bytes of the first transfer in the queue, which must not be empty.
    // If aCapacity is a whole number of packets, the next calls return the rest of a longer
    // transfer. If it is not, the last packet of a longer transfer does not fit: OVERRUN, and the
    // transfer is lost.
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
