// A device whose answers a test sets, over a real socket on loopback.
#pragma once

#include "tests/support/Packets.h"

#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace TestSupport
{

// CannedResponder receives datagrams on a port of 127.0.0.1 that the system chooses, one at a time,
// and sends back what its handler returns, from a thread of its own. It knows nothing of GVCP and
// uses nothing of the libraries under test.
class CannedResponder
{
public:
    // Returns the datagrams to send back, in order. Called on the responder's thread.
    using Handler = std::function<std::vector<Bytes>( const Bytes& aRequest )>;

    // Runs from here on. Ends the process when the system has no socket for it.
    explicit CannedResponder( Handler aHandler );

    // Waits for the handler to return and ends the thread.
    ~CannedResponder();

    CannedResponder( const CannedResponder& ) = delete;
    CannedResponder& operator=( const CannedResponder& ) = delete;

    unsigned short GetPort() const { return mPort; }

    // The datagrams received so far, in order.
    std::vector<Bytes> GetRequests() const;

    // Returns whether another datagram is queued, or arrives within that many milliseconds. The
    // datagram stays queued. Safe from any thread.
    bool HasRequest( int aMilliseconds ) const;

private:
    void Run();

    const Handler mHandler;
    int mSocket = -1;
    int mStopPipe[2] = { -1, -1 };
    unsigned short mPort = 0;
    mutable std::mutex mMutex;
    std::vector<Bytes> mRequests; // under mMutex
    std::thread mThread;
};

} // namespace TestSupport
