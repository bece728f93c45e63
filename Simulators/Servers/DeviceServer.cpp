#include "Simulators/Servers/DeviceServer.h"

#include <QmUtilsLib/Thread.h>

#include <algorithm>

namespace Simulators
{

using QmUtilsLib::LockScope;
using QmUtilsLib::Result;
using QmUtilsLib::Thread;
using WdUtilsLib::Network::IpAddress;
using WdUtilsLib::Network::SocketUDP;

namespace
{

// No UDP datagram is longer.
constexpr size_t DATAGRAM_MAX = 65536;

// Milliseconds to wait when nothing is due; Stop ends any wait.
constexpr int64_t LONG_WAIT = 60000;

} // namespace

DeviceServer::DeviceServer( Core aCore )
    : DeviceServer( PortCore(
          [lCore = std::move( aCore )]( const Endpoint& aFrom, uint16_t /*aToPort*/,
                                        const uint8_t* aData, size_t aSize, int64_t aNowMs )
          { return lCore( aFrom, aData, aSize, aNowMs ); } ) )
{
}

DeviceServer::DeviceServer( PortCore aCore )
    : mCore( std::move( aCore ) )
    , mBuffer( DATAGRAM_MAX )
    , mRequestFaults( {}, 0 )
    , mAnswerFaults( {}, 0 )
{
}

DeviceServer::~DeviceServer()
{
    Stop();
}

Result DeviceServer::Open( const Options& aOptions )
{
    Stop();
    const bool lIsShared = aOptions.mHearBroadcasts && aOptions.mAddress != IpAddress();
    Result lResult = mSocket.Open( &aOptions.mAddress, aOptions.mPort, lIsShared );
    if ( !lResult.IsOK() )
    {
        return lResult;
    }
    if ( lIsShared )
    {
        lResult = mBroadcast.Open( nullptr, mSocket.GetLocalPort(), true );
        if ( !lResult.IsOK() )
        {
            Stop();
            return lResult;
        }
    }
    mAddress = aOptions.mAddress;
    mBroadcastFilter = aOptions.mBroadcastFilter;
    mWaiting.clear();
    SetFaults( aOptions.mRequestFaults, aOptions.mAnswerFaults );
    LockScope lLock( mMutex );
    mCounters = Counters();
    return Result::OK;
}

void DeviceServer::Start()
{
    // This thread cannot return the result of a failed socket. The device is silent from then on.
    mThread = std::thread( [this] { (void)Serve(); } );
}

Result DeviceServer::Run()
{
    return mSocket.IsOpened() ? Serve() : Result( Result::NOT_CONNECTED );
}

void DeviceServer::Stop()
{
    (void)mSocket.Close(); // cannot fail; wakes the serving thread
    (void)mBroadcast.Close();
    if ( mThread.joinable() )
    {
        mThread.join();
    }
}

void DeviceServer::SetFaults( const FaultPlan& aRequests, const FaultPlan& aAnswers )
{
    LockScope lLock( mMutex );
    mRequestFaults = aRequests;
    mAnswerFaults = aAnswers;
}

DeviceServer::Counters DeviceServer::GetCounters() const
{
    LockScope lLock( mMutex );
    return mCounters;
}

FaultPlan DeviceServer::GetRequestFaults() const
{
    LockScope lLock( mMutex );
    return mRequestFaults;
}

FaultPlan DeviceServer::GetAnswerFaults() const
{
    LockScope lLock( mMutex );
    return mAnswerFaults;
}

Result DeviceServer::Serve()
{
    Result lResult = ServeOpen();
    mFurther.clear();
    return lResult;
}

// Ends when Stop has closed the device's own socket. That socket alone is asked, since Stop closes
// it first and may do so at any moment.
Result DeviceServer::ServeOpen()
{
    size_t lTurn = 0;
    while ( mSocket.IsOpened() )
    {
        std::vector<Listener> lListeners = GetListeners();
        // Where several sockets are ready, the first of the list is served. The list is rotated
        // after each datagram, so that a flood on one socket does not keep the others from being
        // served.
        std::rotate( lListeners.begin(),
                     lListeners.begin() + static_cast<std::ptrdiff_t>( lTurn % lListeners.size() ),
                     lListeners.end() );
        std::vector<SocketUDP*> lSockets;
        lSockets.reserve( lListeners.size() );
        for ( const Listener& lListener : lListeners )
        {
            lSockets.push_back( lListener.mSocket );
        }
        unsigned int lReady = 0;
        if ( SocketUDP::SelectOnRx( lSockets.data(), static_cast<unsigned int>( lSockets.size() ),
                                    GetWait( Thread::GetTickCount() ), &lReady ) != nullptr )
        {
            Result lResult = ReceiveOne( lListeners[lReady] );
            if ( lResult.IsFailure() && mSocket.IsOpened() )
            {
                return lResult;
            }
            ++lTurn;
        }
        HandleDue( Thread::GetTickCount() );
    }
    return Result::OK;
}

std::vector<DeviceServer::Listener> DeviceServer::GetListeners()
{
    std::vector<Listener> lListeners = { { &mSocket, 0 } };
    if ( mBroadcast.IsOpened() )
    {
        lListeners.push_back( { &mBroadcast, 0 } );
    }
    for ( const auto& lFurther : mFurther )
    {
        if ( lFurther.second->IsOpened() )
        {
            lListeners.push_back( { lFurther.second.get(), lFurther.first } );
        }
    }
    return lListeners;
}

unsigned int DeviceServer::GetWait( int64_t aNowMs ) const
{
    const int64_t lWait = mWaiting.empty() ? LONG_WAIT : mWaiting.begin()->first - aNowMs;
    return static_cast<unsigned int>( std::clamp<int64_t>( lWait, 0, LONG_WAIT ) );
}

// OK also when nothing was there: a datagram with a wrong checksum wakes the wait and is then
// dropped by the system.
Result DeviceServer::ReceiveOne( const Listener& aListener )
{
    IpAddress lAddress;
    unsigned short lPort = 0;
    int lReceived = 0;
    const Result lResult = aListener.mSocket->ReceiveFrom(
        mBuffer.data(), static_cast<int>( mBuffer.size() ), lReceived, lAddress, lPort );
    if ( !lResult.IsOK() )
    {
        return lResult == Result::TIMEOUT ? Result( Result::OK ) : lResult;
    }
    const auto lSize = static_cast<size_t>( lReceived ); // never negative when OK
    if ( aListener.mSocket == &mBroadcast && mBroadcastFilter &&
         !mBroadcastFilter( mBuffer.data(), lSize ) )
    {
        return Result::OK;
    }
    Outgoing lRequest;
    lRequest.mBytes.assign( mBuffer.begin(), mBuffer.begin() + lReceived );
    lRequest.mTo = { lAddress.GetValue(), lPort };
    lRequest.mFromPort = aListener.mPort;
    LockScope lLock( mMutex );
    ++mCounters.mReceived;
    Queue( true, mRequestFaults.Apply( lRequest ), Thread::GetTickCount() );
    return Result::OK;
}

void DeviceServer::Queue( bool aIsRequest, std::vector<Outgoing> aDatagrams, int64_t aNowMs )
{
    for ( Outgoing& lDatagram : aDatagrams )
    {
        const int64_t lDue = aNowMs + lDatagram.mDelayMs;
        mWaiting.emplace( lDue, Waiting{ aIsRequest, std::move( lDatagram ) } );
    }
}

void DeviceServer::HandleDue( int64_t aNowMs )
{
    while ( !mWaiting.empty() && mWaiting.begin()->first <= aNowMs )
    {
        const Waiting lWaiting = std::move( mWaiting.begin()->second );
        mWaiting.erase( mWaiting.begin() );
        if ( lWaiting.mIsRequest )
        {
            Deliver( lWaiting.mDatagram, aNowMs );
            continue;
        }
        Send( lWaiting.mDatagram );
    }
}

void DeviceServer::Deliver( const Outgoing& aRequest, int64_t aNowMs )
{
    LockScope lLock( mMutex );
    for ( const Outgoing& lAnswer : mCore( aRequest.mTo, aRequest.mFromPort, aRequest.mBytes.data(),
                                           aRequest.mBytes.size(), aNowMs ) )
    {
        Queue( false, mAnswerFaults.Apply( lAnswer ), aNowMs );
    }
}

// Sent and counted under one lock. A host that has the answer and then asks for the counters finds
// the answer counted.
void DeviceServer::Send( const Outgoing& aAnswer )
{
    LockScope lLock( mMutex );
    const Result lResult =
        GetSocket( aAnswer.mFromPort )
            .SendTo( aAnswer.mBytes.data(), static_cast<int>( aAnswer.mBytes.size() ),
                     IpAddress( aAnswer.mTo.mAddress ), aAnswer.mTo.mPort );
    ++( lResult.IsOK() ? mCounters.mSent : mCounters.mSendFailures );
}

// The socket of a port. If it cannot be opened, the send fails and is counted as failed.
SocketUDP& DeviceServer::GetSocket( uint16_t aPort )
{
    if ( aPort == 0 )
    {
        return mSocket;
    }
    std::unique_ptr<SocketUDP>& lSocket = mFurther[aPort];
    if ( lSocket == nullptr )
    {
        lSocket = std::make_unique<SocketUDP>();
    }
    if ( !lSocket->IsOpened() )
    {
        (void)lSocket->Open( &mAddress );
    }
    return *lSocket;
}

} // namespace Simulators
