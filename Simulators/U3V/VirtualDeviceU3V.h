#pragma once

#include "Simulators/AddressSpace.h"
#include "Simulators/U3V/BootstrapU3V.h"
#include "Simulators/U3V/ConfigurationU3V.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>

namespace Simulators
{

// Something that goes wrong with one command; see VirtualDeviceU3V::Inject.
struct FaultU3V
{
    enum class Kind
    {
        STATUS,       // mValue is the status of the acknowledge, and nothing is executed
        SILENT,       // executed, never acknowledged
        DELAY,        // acknowledged mValue ms later
        PENDING,      // mCount pending acknowledges of mValue ms each, mApartMs apart, come before
        EMPTY,        // mCount transfers of no bytes come before
        STALE,        // an acknowledge of the command before comes before
        SHORT,        // mValue bytes of data fewer, at least none are left; the length field agrees
        LONG,         // mValue bytes of data more; the length field agrees
        TRUNCATED,    // only the first mValue bytes of the transfer
        CORRUPTED,    // the byte at offset mValue is inverted; nothing where there is none
        WRONG_LENGTH, // the length field is mValue
        WRONG_CODE,   // the acknowledge code is mValue
        WRONG_ID,     // the identifier is mValue more than it should be
        WRONG_PREFIX,
        STALL_OUT, // the OUT endpoint halts; nothing is executed
        STALL_IN,  // executed; the IN endpoint halts in place of the acknowledge
        UNPLUG     // executed; the device is gone before it acknowledges
    };

    Kind mKind = Kind::SILENT;
    uint32_t mValue = 0;
    uint32_t mCount = 1;
    uint32_t mApartMs = 0;
};

// A USB3 Vision device without USB and without a clock: it gets the transfers that a host sends to
// the OUT endpoint of the control interface, together with the time, and gives those that the host
// fetches from the IN endpoint. BootstrapU3V.h has its address map and descriptors. Copies are
// independent devices. Not safe for several threads at once.
//
// What it refuses, in this order:
//   dropped without an answer   shorter than a header, or a wrong prefix
//   0x800E invalid header       the length field is not what came after the header, a flag other
//                               than request acknowledge, more than ConfigurationU3V::mCommandRoom
//   as told                     see Inject, and RefuseAddress
//   0x8001 not implemented      any command but READMEM and WRITEMEM
//   0x8002 invalid parameter    data that does not suit the command, a reserved field that is not
//   0,
//                               a count of 0, an acknowledge beyond ConfigurationU3V::mAckRoom
//   0x8005 bad alignment        see ConfigurationU3V::mAlignment
//   0x8003 invalid address      not all of it is there
//   0x8004 write protect        not all of it can be written
// A refusal is the header alone and has changed nothing.
//
// A command without the request-acknowledge flag is executed and not acknowledged. Acknowledges
// wait in order until they are fetched, also those of commands that the host has given up.
class VirtualDeviceU3V
{
public:
    using Configuration = ConfigurationU3V;

    // How a transfer ends.
    enum class Ending
    {
        DONE,
        WAITING, // there is nothing to fetch yet
        HALTED,
        GONE,
        OVERRUN // a packet did not fit; the transfer is lost
    };

    struct Fetched
    {
        Ending mEnding = Ending::WAITING;
        Bytes mBytes;
    };

    struct Counters
    {
        uint64_t mReceived = 0; // all of the following
        uint64_t mExecuted = 0; // done with success
        uint64_t mRefused = 0;  // acknowledged, or not, with another status
        uint64_t mDropped = 0;  // no command
        uint64_t mHalted = 0;   // not taken, since the endpoint was or became halted
        // Not part of the sum.
        uint64_t mSkippedIds = 0; // the identifier was not one more than that of the command before
        uint64_t mFetched = 0;    // transfers that were fetched, the empty ones too
    };

    explicit VirtualDeviceU3V( const Configuration& aConfiguration );

    // Takes one transfer to the OUT endpoint. aData may be null if aSize is 0. aNowMs is any clock
    // that does not run backwards, in milliseconds; the same for all calls. DONE, HALTED or GONE.
    Ending Receive( const uint8_t* aData, size_t aSize, int64_t aNowMs );

    // Gives what is due at the IN endpoint, at most aCapacity bytes of one transfer. What is left
    // of it comes with the next calls, where aCapacity is a whole number of packets; where it is
    // not, the last packet did not fit.
    Fetched Fetch( size_t aCapacity, int64_t aNowMs );

    // When the next Fetch will have something that it has not now; empty if nothing is waiting.
    std::optional<int64_t> GetNextDueMs() const;

    // Lets a halted endpoint work again; see EndpointU3V. What was waiting there still is.
    void ClearHalt( uint8_t aEndpoint );

    // From now on everything is GONE.
    void Unplug() { mIsGone = true; }
    bool IsGone() const { return mIsGone; }

    // Lets the next command for which no fault waits go wrong; one fault to a command, in order.
    // Transfers that are no command use up none.
    void Inject( const FaultU3V& aFault ) { mFaults.push_back( aFault ); }
    size_t GetFaultsLeft() const { return mFaults.size(); }

    // From now on each command that touches the byte at aAddress is answered with aStatus; 0 takes
    // it back.
    void RefuseAddress( uint64_t aAddress, uint16_t aStatus );

    // Looks at and changes the device from behind, past all access rules.
    AddressSpace& GetMemory() { return mSpace; }

    const Counters& GetCounters() const { return mCounters; }

    // The latest commands as they came, oldest first, Configuration::mRequestsKept at most.
    const std::deque<Bytes>& GetRequests() const { return mRequests; }

    const Configuration& GetConfiguration() const { return mConfiguration; }

private:
    struct Parsed
    {
        bool mWantsAck = false;
        uint16_t mCommand = 0;
        uint16_t mIdentifier = 0;
        Bytes mData; // behind the header
        int64_t mNowMs = 0;
    };

    struct Reply
    {
        uint16_t mStatus = StatusU3V::SUCCESS;
        Bytes mData;
    };

    // What waits at the IN endpoint.
    struct Waiting
    {
        int64_t mDueMs = 0;
        Ending mEnding = Ending::DONE; // HALTED: the endpoint halts when this is fetched
        Bytes mBytes;
    };

    std::optional<FaultU3V> TakeFault();
    static Parsed Parse( const Bytes& aTransfer, int64_t aNowMs );
    uint16_t CheckHeader( const Bytes& aTransfer ) const;
    void Note( const Bytes& aTransfer, uint16_t aIdentifier );

    Reply Execute( const Parsed& aParsed );
    Reply ReadMemory( const Parsed& aParsed );
    Reply WriteMemory( const Parsed& aParsed );
    bool IsAligned( uint64_t aAddress, size_t aSize ) const;
    uint16_t FindRefusal( uint64_t aAddress, size_t aSize ) const;
    void Latch( uint64_t aAddress, size_t aSize, int64_t aNowMs );

    void Acknowledge( const Parsed& aParsed, const Reply& aReply, const FaultU3V* aFault );
    int64_t AnswerBefore( const Parsed& aParsed, const FaultU3V& aFault );
    void Queue( int64_t aDueMs, Ending aEnding, const Bytes& aBytes );

    Configuration mConfiguration;
    AddressSpace mSpace;
    std::map<uint64_t, uint16_t> mRefusals;
    std::deque<FaultU3V> mFaults;
    std::deque<Waiting> mWaiting;
    bool mIsOutHalted = false;
    bool mIsInHalted = false;
    bool mIsGone = false;
    std::optional<uint16_t> mLastIdentifier;
    Counters mCounters;
    std::deque<Bytes> mRequests;
};

} // namespace Simulators
