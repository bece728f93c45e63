// WdUtilsLib for tests: a network that plays a script on the virtual clock.
#pragma once

#include <QmUtilsLib/Result.h>
#include <WdUtilsLib/Network/IpAddress.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace WdUtilsLib
{
namespace Scripted
{

using Bytes = std::vector<uint8_t>;

// Milliseconds of virtual time after the send that a step belongs to.
struct AFTER_MS
{
    explicit AFTER_MS( long long aMilliseconds )
        : mMilliseconds( aMilliseconds )
    {
    }
    long long mMilliseconds;
};

// One end of a datagram.
struct Peer
{
    Network::IpAddress mAddress;
    unsigned short mPort = 0;
};

// NetworkState is what a network and the sockets on it share; see Network.cpp.
class NetworkState;

// ScriptedNetwork is what scripted sockets are opened on: those opened while it lives join it, one
// network at a time. It expects sends in the order of its script and answers them in virtual time;
// a wait moves the virtual clock to the next event or to its deadline, whichever is first.
//
// The script is strict: an unexpected send, different bytes, and an expected send that never came
// are reported when they are found, the latter by the destructor. One thread at a time.
//
// The steps return the network, so that a talk reads straight down. Every step but Expect,
// ExpectAnySend and Attach belongs to the last expected send.
class ScriptedNetwork
{
public:
    ScriptedNetwork();
    ~ScriptedNetwork();

    ScriptedNetwork( const ScriptedNetwork& ) = delete;
    ScriptedNetwork& operator=( const ScriptedNetwork& ) = delete;

    // The next send carries these bytes; or any bytes.
    ScriptedNetwork& Expect( const Bytes& aBytes );
    ScriptedNetwork& ExpectAnySend();

    // The send is refused with that result and nothing leaves.
    ScriptedNetwork& Refuse( const QmUtilsLib::Result& aResult );

    // Nothing answers; says so, and does nothing.
    ScriptedNetwork& Silence();

    // A datagram arrives, from the peer that was sent to or from another one.
    ScriptedNetwork& Reply( const Bytes& aBytes, AFTER_MS aAfter = AFTER_MS( 0 ) );
    ScriptedNetwork& ReplyFrom( const Peer& aFrom, const Bytes& aBytes,
                                AFTER_MS aAfter = AFTER_MS( 0 ) );

    // The socket becomes readable and the receive then fails with that result.
    ScriptedNetwork& FailReceive( const QmUtilsLib::Result& aResult,
                                  AFTER_MS aAfter = AFTER_MS( 0 ) );

    // Something happens at that point of the talk, on the thread that waits.
    ScriptedNetwork& Do( std::function<void()> aAction, AFTER_MS aAfter = AFTER_MS( 0 ) );

    // Attach puts a device in place of a script: it gets every datagram that no script expects, and
    // returns the datagrams to answer with and how long after the send they arrive.
    struct Answer
    {
        Bytes mBytes;
        long long mAfterMs = 0;
    };
    using Device = std::function<std::vector<Answer>( const Bytes& aBytes, long long aNow )>;
    ScriptedNetwork& Attach( Device aDevice );

    // What the sockets were asked for, in order.
    struct Sent
    {
        Bytes mBytes;
        Peer mTo;
        long long mTime; // of the virtual clock
        bool mRefused;
    };
    const std::vector<Sent>& GetSends() const;
    const std::vector<unsigned int>& GetSelectTimeouts() const; // milliseconds
    const std::vector<int>& GetReceiveSizes() const;            // capacities, bytes

    // True when every expected send has come.
    bool IsScriptDone() const;

private:
    std::shared_ptr<NetworkState> mState;
};

// SetFailureReporter sets what is called with a sentence when a script is not kept to. The default
// prints the sentence and aborts.
using FailureReporter = std::function<void( const std::string& )>;
void SetFailureReporter( FailureReporter aReporter );

// ReportFailure calls it; for scripts of other libraries.
void ReportFailure( const std::string& aSentence );

} // namespace Scripted
} // namespace WdUtilsLib
