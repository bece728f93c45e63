#pragma once

#include "Simulators/Datagram.h"
#include "Simulators/GEV/BootstrapGEV.h"
#include "Simulators/GEV/ConfigurationGEV.h"
#include "Simulators/GEV/JournalGEV.h"
#include "Simulators/GEV/RegistersGEV.h"
#include "Simulators/GEV/ReplyCache.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

namespace Simulators
{

// VirtualDeviceGEV is a GigE Vision device without a socket and without a clock. It takes the
// datagrams that arrived at its GVCP port, together with the time, and returns those that it sends.
// BootstrapGEV.h has its address map. Copies are independent devices. Not thread-safe.
//
// What it refuses, in this order:
//   dropped without an answer   shorter than a header, key not 0x42, request identifier 0
//   0x800E invalid header       the length field is not the size of what follows the header
//   0x8001 not implemented      any command but DISCOVERY, READREG, WRITEREG, READMEM and WRITEMEM;
//                               WRITEMEM where GVCP Capability does not have it
//   0x8002 invalid parameter    a payload or a count that does not suit the command; several
//                               registers at once where GVCP Capability has no concatenation
// and then, for each word in turn:
//   0x8005 bad alignment        the address is not a multiple of 4
//   as set                      see Refuse
//   0x8006 access denied        see below
//   0x8003 invalid address      the address does not exist
//   0x8004 write protect        the address cannot be written
//   0x8007 busy                 see Register::BUSY_WORD
// A refused READREG carries the values before the refused one. A refused READMEM carries no
// payload. A refused WRITEREG or WRITEMEM has written everything before the index that it carries,
// which counts registers in a WRITEREG and bytes in a WRITEMEM.
//
// Control: while control is free, a write of 2 (control) or 1 (exclusive) to Control Channel
// Privilege makes its sender, by address and port, the holder. A write of 0 by the holder, or its
// silence for longer than Heartbeat Timeout, frees control and closes the message and stream
// channels. Each complete command of the holder restarts that time. No other host may write. Under
// exclusive access, other hosts may read only the privilege register.
//
// A command is a repetition when it has the same address, port and bytes as the one before it from
// that sender. It is not executed again: it gets the first acknowledge again, or, while that is
// still due, another pending acknowledge where the device sends these.
// ConfigurationGEV::mResendWindowMs says for how long. DISCOVERY is always executed.
//
// Writes and unknown commands are acknowledged where their acknowledge-required flag is set.
// READREG, READMEM and DISCOVERY are always acknowledged. A command that takes long (see
// PendingAcknowledge) has its effect when it arrives; other commands are answered meanwhile.
class VirtualDeviceGEV
{
public:
    using Configuration = ConfigurationGEV;
    using Request = RequestGEV;
    using Counters = CountersGEV;
    using Oddities = OdditiesGEV;

    explicit VirtualDeviceGEV( const Configuration& aConfiguration );

    // Takes one datagram and returns, in order, what the device sends because of it. aData may be
    // null if aSize is 0. aNowMs is the time in milliseconds of any clock that does not run
    // backwards, the same clock for all calls.
    std::vector<Outgoing> Receive( const Endpoint& aFrom, const uint8_t* aData, size_t aSize,
                                   int64_t aNowMs );

    // Whether a device takes this datagram when it was broadcast: only a DISCOVERY. It serves the
    // filter of a server, since Receive does not know how a datagram was sent. aData may be null if
    // aSize is 0.
    static bool TakesFromBroadcast( const uint8_t* aData, size_t aSize );

    // From now on each command that touches the word at aAddress is answered with aStatus; 0
    // removes that. Refuse does so for one command code and takes precedence over RefuseAddress.
    // DISCOVERY touches address 0.
    void RefuseAddress( uint32_t aAddress, uint16_t aStatus );
    void Refuse( uint16_t aCommand, uint32_t aAddress, uint16_t aStatus );

    // From now on a command that touches the word at aAddress is neither executed nor answered.
    void SetSilent( uint32_t aAddress, bool aIsSilent = true );

    // Read and change the device without access rules and effects. A word that is not there reads
    // as 0; WriteWord then returns false.
    uint32_t ReadWord( uint32_t aAddress ) const;
    bool WriteWord( uint32_t aAddress, uint32_t aValue );

    // The memory at Configuration::mMemoryBase.
    const Bytes& GetMemory() const;

    // The holder of control at that time; empty if control is free.
    std::optional<Endpoint> GetHolder( int64_t aNowMs ) const;

    // By command code. All commands that are not implemented share one set; the code of any of them
    // returns it.
    Counters GetCounters( uint16_t aCommand ) const { return mJournal.GetCounters( aCommand ); }
    Counters GetTotal() const { return mJournal.GetTotal(); }
    const Oddities& GetOddities() const { return mJournal.GetOddities(); }

    // The latest requests, oldest first, Configuration::mRequestsKept at most.
    const std::deque<Request>& GetRequests() const { return mJournal.GetRequests(); }

    const Configuration& GetConfiguration() const { return mRegisters.GetConfiguration(); }

    // One line, without a line end: "12 commands: 9 executed, 1 refused, ...".
    std::string GetSummary() const { return mJournal.GetSummary(); }

private:
    // The times of the answers to a command, in ms after it arrived.
    struct Work
    {
        std::vector<int64_t> mAnnouncementsMs; // when a pending acknowledge leaves
        int64_t mFinalMs = 0;                  // when the acknowledge leaves
        int64_t mPromisedMs = 0;               // until when the host was asked to wait
    };

    std::optional<CommandGEV> Take( const Endpoint& aFrom, const uint8_t* aData, size_t aSize,
                                    int64_t aNowMs );
    std::vector<Outgoing> Answer( const CommandGEV& aCommand );
    std::vector<Outgoing> AnswerAgain( const CommandGEV& aCommand,
                                       const ReplyCache::Entry& aEntry );
    bool MayAnnounce() const;
    Work PlanWork( const CommandGEV& aCommand, const ReplyGEV& aReply ) const;
    std::vector<Outgoing> Send( const CommandGEV& aCommand, const ReplyGEV& aReply,
                                const Work& aWork );

    RegistersGEV mRegisters;
    JournalGEV mJournal;
    ReplyCache mReplies;
};

} // namespace Simulators
