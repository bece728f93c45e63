#pragma once

#include "Simulators/AddressSpace.h"
#include "Simulators/Datagram.h"
#include "Simulators/GEV/BootstrapGEV.h"
#include "Simulators/GEV/ConfigurationGEV.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace Simulators
{

// A GigE Vision device without a socket and without a clock: it gets the datagrams that came to its
// GVCP port, together with the time, and returns those that it sends. BootstrapGEV.h has its
// address map. Copies are independent devices. Not safe for several threads at once.
//
// What it refuses, in this order:
//   dropped without an answer   shorter than a header, key not 0x42, request identifier 0
//   0x800E invalid header       the length field is not what came after the header
//   0x8001 not implemented      any command but DISCOVERY, READREG, WRITEREG, READMEM, WRITEMEM;
//   also
//                               WRITEMEM where the capability word has it not
//   0x8002 invalid parameter    a payload or a count that does not suit the command; several
//                               registers at once where the capability word has no concatenation
// and then, for each word in turn:
//   0x8005 bad alignment        the address is no multiple of 4
//   as told                     see Refuse
//   0x8006 access denied        see below
//   0x8003 invalid address      nothing is there
//   0x8004 write protect        it cannot be written
//   0x8007 busy                 see Register::BUSY_WORD
// A refused READREG carries the values in front of the refused one, a refused READMEM carries no
// payload, a refused WRITEREG or WRITEMEM has written what stands in front of the index that it
// carries (of the register, of the byte).
//
// Control: a write of 2 (control) or 1 (exclusive) to Control Channel Privilege, from anybody while
// nobody holds it, makes its sender, address and port, the holder. A write of 0 by the holder, or
// its silence for longer than Heartbeat Timeout, frees it and closes the message and stream
// channels. Each complete command of the holder counts as a sign of life. Nobody else may write;
// under exclusive access nobody else may read either, but for the privilege register alone.
//
// A command that comes again from the same address and port, the same in every byte and with no
// other between, is not executed again: it gets the acknowledge of the first time, or while that is
// still due, another pending acknowledge where the device announces. See
// ConfigurationGEV::mResendWindowMs for how long. DISCOVERY is always executed.
//
// The acknowledge-required flag is heeded for writes and unknown commands; reads and DISCOVERY,
// which are nothing without it, are always acknowledged. A command that takes long (see
// PendingAcknowledge) has its effect when it comes in; other commands are answered meanwhile.
class VirtualDeviceGEV
{
public:
    using Configuration = ConfigurationGEV;

    // A datagram that carried a command header, as it came.
    struct Request
    {
        Endpoint mFrom;
        int64_t mTimeMs = 0;
        Bytes mBytes;
    };

    // How often each thing happened to one command.
    struct Counters
    {
        uint64_t mReceived = 0; // all of the following, and more
        uint64_t mExecuted = 0; // done with success
        uint64_t mRefused = 0;  // done with another status, acknowledged or not
        uint64_t mRepeated = 0; // came again and was not executed again
        uint64_t mSilenced = 0; // touched an address that SetSilent names
        uint64_t mAnswers = 0;  // acknowledges returned, pending ones not counted
        uint64_t mPendings = 0; // pending acknowledges returned
    };

    // Datagrams that were dropped, and oddities that were let pass.
    struct Oddities
    {
        uint64_t mTooShort = 0;
        uint64_t mWrongKey = 0;
        uint64_t mZeroIdentifier = 0;
        uint64_t mReservedNotZero = 0;    // READMEM with something in its reserved field
        uint64_t mReadWithoutAckFlag = 0; // reads and DISCOVERY
    };

    explicit VirtualDeviceGEV( const Configuration& aConfiguration );

    // Takes one datagram and returns what the device sends because of it, in order. aData may be
    // null if aSize is 0. aNowMs is any clock that does not run backwards, in milliseconds; the
    // same for all calls.
    std::vector<Outgoing> Receive( const Endpoint& aFrom, const uint8_t* aData, size_t aSize,
                                   int64_t aNowMs );

    // From now on each command that touches the word at aAddress is answered with aStatus; 0 takes
    // it back. Refuse does so for one command code only and goes before RefuseAddress; DISCOVERY
    // counts as touching address 0.
    void RefuseAddress( uint32_t aAddress, uint16_t aStatus );
    void Refuse( uint16_t aCommand, uint32_t aAddress, uint16_t aStatus );

    // From now on a command that touches the word at aAddress is neither executed nor answered.
    void SetSilent( uint32_t aAddress, bool aIsSilent = true );

    // Looks at and changes the device from behind, past all access rules and effects. A word that
    // is not there reads as 0; WriteWord then returns false.
    uint32_t ReadWord( uint32_t aAddress ) const { return mSpace.GetWord( aAddress ); }
    bool WriteWord( uint32_t aAddress, uint32_t aValue );

    // The memory at Configuration::mMemoryBase.
    const Bytes& GetMemory() const { return mSpace.GetRegion( mConfiguration.mMemoryBase ); }

    // Who holds control at that time; empty if nobody does.
    std::optional<Endpoint> GetHolder( int64_t aNowMs ) const;

    // By command code; all commands that are not implemented share one set, that of any of them.
    Counters GetCounters( uint16_t aCommand ) const;
    Counters GetTotal() const;
    const Oddities& GetOddities() const { return mOddities; }

    // The latest requests, oldest first, Configuration::mRequestsKept at most.
    const std::deque<Request>& GetRequests() const { return mRequests; }

    const Configuration& GetConfiguration() const { return mConfiguration; }

    // One line, without a line end: "12 commands: 9 executed, 1 refused, ...".
    std::string GetSummary() const;

private:
    // A command, taken apart.
    struct Parsed
    {
        Endpoint mFrom;
        int64_t mNowMs = 0;
        bool mWantsAck = false;
        uint16_t mCommand = 0;
        uint16_t mLength = 0; // as the header says
        uint16_t mIdentifier = 0;
        Bytes mPayload; // as it came
    };

    struct Reply
    {
        uint16_t mStatus = Status::SUCCESS;
        Bytes mPayload;
    };

    // When work that takes long is over, in ms from now, and when the host has waited in vain.
    struct Work
    {
        int64_t mFinalMs = 0;
        int64_t mPromisedMs = 0;
    };

    // The latest request of one sender and what became of it.
    struct Last
    {
        Bytes mRequest;
        Bytes mAnswer;         // empty: none was due
        int64_t mAnswerMs = 0; // when the answer leaves
        int64_t mForgottenMs = 0;
    };

    // Part of the address space that a command touches.
    struct Span
    {
        uint64_t mAddress = 0;
        uint64_t mSize = 0;
    };

    // The command code under which refusals of any command, and commands that are not implemented,
    // are kept.
    static constexpr uint16_t ANY_COMMAND = 0;

    bool Parse( Parsed* aParsed, const Bytes& aDatagram );
    void Record( const Parsed& aParsed, const Bytes& aDatagram );

    Reply Execute( const Parsed& aParsed );
    Reply Discover( const Parsed& aParsed );
    Reply ReadRegisters( const Parsed& aParsed );
    Reply WriteRegisters( const Parsed& aParsed );
    Reply ReadMemory( const Parsed& aParsed );
    Reply WriteMemory( const Parsed& aParsed );

    bool IsCountRight( const Parsed& aParsed, size_t aUnit, size_t aMax ) const;
    bool MayConcatenate( size_t aCount ) const;
    uint16_t CheckRead( const Parsed& aParsed, uint32_t aAddress, uint32_t aSize );
    uint16_t CheckReadWord( const Parsed& aParsed, uint64_t aAddress, uint32_t aSize );
    uint16_t WriteOne( const Parsed& aParsed, uint64_t aAddress, const Bytes& aData );
    uint16_t FindRefusal( uint16_t aCommand, uint64_t aFirst, uint64_t aLast ) const;
    uint16_t FindRefusal( uint16_t aCommand, uint64_t aAddress ) const;
    bool IsBusy( uint64_t aFirst, uint64_t aLast );
    bool MayRead( const Parsed& aParsed, uint64_t aAddress ) const;
    bool MayWrite( const Parsed& aParsed, uint64_t aAddress ) const;

    void StoreBytes( const Parsed& aParsed, uint64_t aAddress, const Bytes& aData );
    void Store( const Parsed& aParsed, uint64_t aAddress, uint32_t aValue );
    void SetPrivilege( const Parsed& aParsed, uint32_t aValue );
    void FreeControl();
    void ControlTimestamp( uint32_t aValue, int64_t aNowMs );

    std::vector<Span> GetSpans( const Parsed& aParsed ) const;
    bool IsSilent( const Parsed& aParsed ) const;
    bool IsPendingOffered() const;
    bool TakesLong( const Parsed& aParsed, const Reply& aReply ) const;
    Work Announce( const Parsed& aParsed, std::vector<Outgoing>* aOut );
    std::vector<Outgoing> Send( const Parsed& aParsed, const Bytes& aDatagram,
                                const Reply& aReply );
    std::vector<Outgoing> SendAgain( const Parsed& aParsed, const Last& aLast );
    void Remember( const Parsed& aParsed, const Last& aLast );
    Counters& Count( uint16_t aCommand );

    Configuration mConfiguration;
    AddressSpace mSpace;
    std::map<std::pair<uint16_t, uint32_t>, uint16_t> mRefusals; // (command or 0, address): status
    std::set<uint32_t> mSilent;
    std::optional<Endpoint> mHolder;
    int64_t mHolderSeenMs = 0;
    int64_t mTimestampZeroMs = 0;
    std::map<Endpoint, Last> mLast;
    std::map<uint16_t, Counters> mCounters;
    Oddities mOddities;
    std::deque<Request> mRequests;
};

} // namespace Simulators
