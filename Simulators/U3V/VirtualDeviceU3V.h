#pragma once

#include "Simulators/AddressFaults.h"
#include "Simulators/AddressSpace.h"
#include "Simulators/Latest.h"
#include "Simulators/U3V/BootstrapU3V.h"
#include "Simulators/U3V/CommandU3V.h"
#include "Simulators/U3V/ConfigurationU3V.h"
#include "Simulators/U3V/DescriptorsU3V.h"
#include "Simulators/U3V/FaultU3V.h"
#include "Simulators/U3V/InEndpointU3V.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>

namespace Simulators
{

// VirtualDeviceU3V is a USB3 Vision device without USB and without a clock. It takes the
// transfers that a host sends to the OUT endpoint of the control interface, together with the time,
// and gives those that the host fetches from the IN endpoint. BootstrapU3V.h has its address map,
// DescriptorsU3V.h its descriptors. Copies are independent devices. Not safe for several threads at
// once.
//
// What it refuses, in this order:
//   dropped without an answer   shorter than a header, or a wrong prefix
//   0x800E invalid header       the length field is not the size of what follows the header; a flag
//                               other than request acknowledge; a transfer longer than
//                               ConfigurationU3V::mCommandRoom
//   as injected                 see Inject
//   0x8001 not implemented      any command but READMEM and WRITEMEM
//   0x8002 invalid parameter    data that does not suit the command; a reserved field other than 0;
//                               a count of 0; an acknowledge longer than ConfigurationU3V::mAckRoom
//   as set                      see RefuseAddress
//   0x8005 bad alignment        see ConfigurationU3V::mAlignment
//   0x8003 invalid address      a byte of the span does not exist
//   0x8004 write protect        a byte of the span cannot be written
// A refusal is the header alone and has changed nothing.
//
// A command without the request-acknowledge flag is executed and not acknowledged. Acknowledges
// wait in order until they are fetched, also those of commands that the host no longer waits for.
class VirtualDeviceU3V
{
public:
    using Configuration = ConfigurationU3V;
    using Ending = EndingU3V;
    using Fetched = FetchedU3V;

    struct Counters
    {
        uint64_t mReceived = 0; // all of the following
        uint64_t mExecuted = 0; // executed with success
        uint64_t mRefused = 0;  // answered with another status, or would have been
        uint64_t mDropped = 0;  // not a command
        uint64_t mHalted = 0;   // not taken, since the endpoint was or became halted
        // Not part of the sum.
        uint64_t mSkippedIds = 0; // the identifier was not one more than that of the command before
        uint64_t mFetched = 0;    // transfers that were fetched, the empty ones too
    };

    explicit VirtualDeviceU3V( const Configuration& aConfiguration );

    // Takes one transfer to the OUT endpoint. aData may be null if aSize is 0. aNowMs is any clock
    // that does not run backwards, in milliseconds; the same for all calls. Returns DONE, HALTED or
    // GONE.
    Ending Receive( const uint8_t* aData, size_t aSize, int64_t aNowMs );

    // Returns what is due at the IN endpoint, at most aCapacity bytes of one transfer. If aCapacity
    // is a whole number of packets, the next calls return the rest of a longer transfer. If it is
    // not, the last packet of a longer transfer does not fit: OVERRUN, and the transfer is lost.
    Fetched Fetch( size_t aCapacity, int64_t aNowMs );

    // When the transfer that waits in front is due; empty if nothing waits.
    std::optional<int64_t> GetNextDueMs() const { return mIn.GetNextDueMs(); }

    // Clears the halt of an endpoint; see EndpointU3V. Transfers that wait there are kept.
    void ClearHalt( uint8_t aEndpoint );

    // From now on every transfer is GONE.
    void Unplug() { mIsGone = true; }
    bool IsGone() const { return mIsGone; }

    // Queues a fault. Each command takes one fault from the queue, in order. Transfers that are not
    // a command do not use up a fault.
    void Inject( const FaultU3V& aFault ) { mFaults.push_back( aFault ); }
    size_t GetFaultsLeft() const { return mFaults.size(); }

    // From now on each command that touches the byte at aAddress is answered with aStatus; 0
    // removes that.
    void RefuseAddress( uint64_t aAddress, uint16_t aStatus );

    // Read and change the device without access rules and effects.
    AddressSpace& GetMemory() { return mSpace; }

    const Counters& GetCounters() const { return mCounters; }

    // The latest commands as they came, oldest first, Configuration::mRequestsKept at most.
    const std::deque<Bytes>& GetRequests() const { return mRequests.Get(); }

    const Configuration& GetConfiguration() const { return mConfiguration; }

private:
    void Note( const CommandU3V& aCommand );
    std::optional<FaultU3V> TakeFault();

    uint16_t CheckHeader( const CommandU3V& aCommand ) const;
    uint16_t CheckSpan( uint64_t aAddress, size_t aSize, Access aNeeded ) const;
    ReplyU3V Execute( const CommandU3V& aCommand );
    ReplyU3V ReadMemory( const CommandU3V& aCommand ) const;
    ReplyU3V WriteMemory( const CommandU3V& aCommand );
    void Latch( uint64_t aAddress, size_t aSize, int64_t aNowMs );

    void Answer( const CommandU3V& aCommand, const ReplyU3V& aReply,
                 const std::optional<FaultU3V>& aFault );
    void SendAcknowledge( const CommandU3V& aCommand, const ReplyU3V& aReply,
                          const std::optional<FaultU3V>& aFault );
    int64_t SendInFront( const CommandU3V& aCommand, const FaultU3V& aFault );

    Configuration mConfiguration;
    AddressSpace mSpace;
    AddressFaults mAddressFaults;
    std::deque<FaultU3V> mFaults;
    InEndpointU3V mIn;
    bool mIsOutHalted = false;
    bool mIsGone = false;
    std::optional<uint16_t> mLastIdentifier;
    Counters mCounters;
    Latest<Bytes> mRequests;
};

} // namespace Simulators
