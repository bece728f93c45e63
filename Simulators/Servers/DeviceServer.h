// Puts a virtual device on a UDP address.
#pragma once

#include "Simulators/Datagram.h"
#include "Simulators/FaultPlan.h"

#include <QmUtilsLib/Mutex.h>
#include <QmUtilsLib/Result.h>
#include <WdUtilsLib/Network/IpAddress.h>
#include <WdUtilsLib/Network/SocketUDP.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

namespace Simulators
{

// DeviceServer gives a device core, which has neither socket nor clock, a UDP address and the time.
// It passes each datagram that arrives to the core, and sends what the core returns when it is due.
// A fault plan for each direction simulates the network between host and device.
//
// The core runs on the serving thread, under the server's mutex. While it serves, use the core only
// through Access, or while holding GetMutex().
//
// Order of use: Open, then Start or Run, then Stop; after that it may be opened again. Any thread
// but the serving one may call Stop at any time. The other operations belong to one thread.
class DeviceServer
{
public:
    // Takes one datagram and returns what is to be sent because of it. aNowMs is monotonic, in
    // milliseconds. The calls never overlap.
    using Core = std::function<std::vector<Outgoing>( const Endpoint& aFrom, const uint8_t* aData,
                                                      size_t aSize, int64_t aNowMs )>;

    // The same for a device with further ports, see Outgoing. aToPort is the device's own number
    // for the port that the datagram arrived at, 0 for the one it listens on. The system chooses
    // the real port when the device first sends from it. All ports stay open until Stop.
    using PortCore =
        std::function<std::vector<Outgoing>( const Endpoint& aFrom, uint16_t aToPort,
                                             const uint8_t* aData, size_t aSize, int64_t aNowMs )>;

    struct Options
    {
        WdUtilsLib::Network::IpAddress mAddress{ 0x7F000001 };
        unsigned short mPort = 0; // 0: the system chooses a free one

        // true: a second socket on 0.0.0.0 and the same port receives broadcasts; answers still
        // leave from mAddress. Both sockets share their port, so that several devices on one
        // machine receive the same broadcast. Open then succeeds also when the port is in use.
        bool mHearBroadcasts = false;
        // Which datagrams of the second socket are taken; empty: all. That socket also gets what is
        // sent to the machine's other addresses.
        std::function<bool( const uint8_t* aData, size_t aSize )> mBroadcastFilter;

        // The faults of the datagrams that arrive, and of those that leave.
        FaultPlan mRequestFaults = FaultPlan( FaultPlan::Rates(), 0 );
        FaultPlan mAnswerFaults = FaultPlan( FaultPlan::Rates(), 0 );
    };

    struct Counters
    {
        uint64_t mReceived = 0;     // datagrams that arrived, before any fault
        uint64_t mSent = 0;         // datagrams that left, after any fault
        uint64_t mSendFailures = 0; // datagrams that the system refused to send
    };

    // The core must outlive the server, and so must what it refers to.
    explicit DeviceServer( Core aCore );
    explicit DeviceServer( PortCore aCore );
    ~DeviceServer(); // stops

    DeviceServer( const DeviceServer& ) = delete;
    DeviceServer& operator=( const DeviceServer& ) = delete;

    // Opens the sockets. From now on the system queues what arrives. On failure nothing is open,
    // and the result's OS code says why.
    QmUtilsLib::Result Open( const Options& aOptions );

    // Serves in a thread of its own until Stop.
    void Start();

    // Serves in the calling thread until Stop is called from another one (OK), or until the sockets
    // fail. NOT_CONNECTED when they are not open.
    QmUtilsLib::Result Run();

    // Ends serving; datagrams not yet due are dropped. Returns when the thread of Start has ended;
    // the caller of Run must wait for its end itself. Does nothing when nothing is open.
    void Stop();

    // Where the device can be reached; 0.0.0.0 and 0 when it is not open.
    WdUtilsLib::Network::IpAddress GetAddress() const { return mSocket.GetLocalAddress(); }
    unsigned short GetPort() const { return mSocket.GetLocalPort(); }

    // Calls aFunction while the core does not run, and returns its result. The core must not call
    // this.
    template <typename Function>
    auto Access( Function&& aFunction )
    {
        QmUtilsLib::LockScope lLock( mMutex );
        return std::forward<Function>( aFunction )();
    }

    // The mutex that the core runs under. Re-entrant.
    QmUtilsLib::Mutex& GetMutex() { return mMutex; }

    // Replaces the fault plans; for datagrams from now on.
    void SetFaults( const FaultPlan& aRequests, const FaultPlan& aAnswers );

    Counters GetCounters() const;
    FaultPlan GetRequestFaults() const;
    FaultPlan GetAnswerFaults() const;

private:
    // A datagram that waits until it is due.
    struct Waiting
    {
        bool mIsRequest = false;
        Outgoing mDatagram; // of a request: its sender and its destination port
    };

    // A socket and the device's number for its port.
    struct Listener
    {
        WdUtilsLib::Network::SocketUDP* mSocket;
        uint16_t mPort;
    };

    QmUtilsLib::Result Serve();
    QmUtilsLib::Result ServeOpen();
    std::vector<Listener> GetListeners();
    unsigned int GetWait( int64_t aNowMs ) const;
    QmUtilsLib::Result ReceiveOne( const Listener& aListener );
    void Queue( bool aIsRequest, std::vector<Outgoing> aDatagrams, int64_t aNowMs );
    void HandleDue( int64_t aNowMs );
    void Deliver( const Outgoing& aRequest, int64_t aNowMs );
    void Send( const Outgoing& aAnswer );
    WdUtilsLib::Network::SocketUDP& GetSocket( uint16_t aPort );

    const PortCore mCore;
    WdUtilsLib::Network::SocketUDP mSocket;    // the device's own address
    WdUtilsLib::Network::SocketUDP mBroadcast; // all addresses; closed unless asked for
    std::thread mThread;

    // Used by the serving thread only.
    WdUtilsLib::Network::IpAddress mAddress;
    std::map<uint16_t, std::unique_ptr<WdUtilsLib::Network::SocketUDP>> mFurther; // by number
    std::function<bool( const uint8_t* aData, size_t aSize )> mBroadcastFilter;
    std::multimap<int64_t, Waiting> mWaiting; // by due time, equal ones in the order they came
    std::vector<uint8_t> mBuffer;

    mutable QmUtilsLib::Mutex mMutex;
    FaultPlan mRequestFaults QMUTILSLIB_GUARDED_BY( mMutex );
    FaultPlan mAnswerFaults QMUTILSLIB_GUARDED_BY( mMutex );
    Counters mCounters QMUTILSLIB_GUARDED_BY( mMutex );
};

} // namespace Simulators
