// What a scripted network and the sockets on it share.
#pragma once

#include <WdUtilsLib/Scripted/Network.h>

#include <deque>
#include <optional>

namespace WdUtilsLib
{
namespace Scripted
{

class NetworkState
{
public:
    // What a step makes happen, at a virtual time, on the socket that sent.
    struct Event
    {
        long long mTime = 0; // after the send while it is a step, absolute once the send has come
        std::optional<Peer> mFrom;
        Bytes mBytes;
        std::optional<QmUtilsLib::Result> mFailure;
        std::function<void()> mAction;
        unsigned int mSocket = 0;
    };

    struct ExpectedSend
    {
        std::optional<Bytes> mBytes;
        std::optional<QmUtilsLib::Result> mRefusal;
        std::vector<Event> mEvents;
    };

    // The network that sockets opened now join, or null.
    static std::shared_ptr<NetworkState> GetCurrent();
    static void SetCurrent( std::shared_ptr<NetworkState> aState );

    // Notes an operation of a socket, which is about to begin.
    void Note( const std::string& aCall );

    // A number for a socket that joins.
    unsigned int Join();

    QmUtilsLib::Result Send( unsigned int aSocket, const Bytes& aBytes, const Peer& aFrom,
                             const Peer& aTo );

    // Moves the clock until one of the sockets has something to receive, at most aTimeout ms, and
    // tells which; aIsClosed is asked whether a socket was closed meanwhile, which counts.
    std::optional<unsigned int> Wait( const std::vector<unsigned int>& aSockets,
                                      unsigned int aTimeout,
                                      const std::function<bool( unsigned int )>& aIsClosed );

    // Takes what the socket has to receive now, if anything.
    std::optional<Event> Take( unsigned int aSocket );

    ExpectedSend& GetLastStep();

    std::deque<ExpectedSend> mSteps; // of the script
    ScriptedNetwork::PortDevice mDevice;
    std::vector<ScriptedNetwork::Sent> mSends;
    std::vector<unsigned int> mSelectTimeouts;
    std::vector<int> mReceiveSizes;
    std::vector<std::string> mCalls;
    std::function<void( const std::string& )> mObserver;

private:
    void Schedule( unsigned int aSocket, const Peer& aTo, std::vector<Event> aEvents );
    void Schedule( unsigned int aSocket, const Peer& aTo,
                   std::vector<ScriptedNetwork::Answer> aAnswers );
    void RunActions();
    template <typename Predicate>
    std::deque<Event>::iterator FindDue( Predicate aFits );
    std::deque<Event>::iterator FindReadable( unsigned int aSocket );

    std::deque<Event> mEvents; // in order of time, then of arrival
    unsigned int mSocketCount = 0;
};

} // namespace Scripted
} // namespace WdUtilsLib
