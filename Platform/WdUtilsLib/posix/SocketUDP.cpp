#include <WdUtilsLib/Network/SocketUDP.h>

#include <QmUtilsLib/Mutex.h>
#include <QmUtilsLib/Thread.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <memory>
#include <new>

namespace WdUtilsLib
{
namespace Network
{

using QmUtilsLib::LockScope;
using QmUtilsLib::Mutex;
using QmUtilsLib::Result;
using QmUtilsLib::Thread;

namespace
{

Result MakeError( int aError )
{
    return Result( Result::GENERIC_ERROR, static_cast<unsigned int>( aError ) );
}

sockaddr_in MakeSocketAddress( const IpAddress& aAddress, unsigned short aPort )
{
    sockaddr_in lAddress{};
    lAddress.sin_family = AF_INET;
    lAddress.sin_addr.s_addr = htonl( aAddress.GetValue() );
    lAddress.sin_port = htons( aPort );
    return lAddress;
}

// Polls until an entry is ready or the time is up; a signal does not end the wait. Returns the
// number of ready entries, 0 if there are none, or the negative error number.
int Poll( pollfd* aEntries, unsigned int aCount, long long aTimeout )
{
    const long long lDeadline = Thread::GetTickCount() + aTimeout;
    long long lLeft = aTimeout;
    for ( ;; )
    {
        // poll takes an int and waits for ever for a negative one, so a long wait is made in parts.
        const int lWait = static_cast<int>( std::min<long long>( lLeft, INT_MAX ) );
        const int lReady = poll( aEntries, aCount, lWait );
        if ( lReady > 0 )
        {
            return lReady;
        }
        if ( lReady < 0 && errno != EINTR )
        {
            return -errno;
        }
        if ( lReady == 0 && lLeft <= INT_MAX )
        {
            return 0;
        }
        lLeft = std::max<long long>( lDeadline - Thread::GetTickCount(), 0 );
    }
}

// One open descriptor. Every operation holds a share of it while it runs, so the descriptor is
// closed only when the last operation has ended.
class Descriptor
{
public:
    explicit Descriptor( int aNumber )
        : mNumber( aNumber )
    {
    }

    ~Descriptor() { (void)close( mNumber ); } // a datagram socket has nothing left to fail

    Descriptor( const Descriptor& ) = delete;
    Descriptor& operator=( const Descriptor& ) = delete;

    int GetNumber() const { return mNumber; }

    // Wakes every thread that waits on the socket; from now on the threads find it closed. The flag
    // is set first, so that a thread which shutdown wakes sees it. close would not wake the
    // threads, and would free the number while they use it. On a socket without a peer, shutdown
    // fails with ENOTCONN but wakes the threads all the same.
    void MarkClosed()
    {
        mClosed.store( true );
        (void)shutdown( mNumber, SHUT_RDWR );
    }

    bool IsClosed() const { return mClosed.load(); }

    void SetTimeout( unsigned int aTimeout ) { mTimeout.store( aTimeout ); }

    // The next receive fails with that error.
    void SetError( int aError ) { mError.store( aError ); }

    // Waits in recvfrom itself, by SO_RCVTIMEO: this saves a poll for each datagram. The time-out
    // is set only when it differs from the one that the system has. It applies to all threads that
    // receive on this socket, so the rest of a wait that a signal interrupted is polled instead.
    Result Receive( void* aBuffer, std::size_t aSize, sockaddr_in* aFrom, int& aReceived )
    {
        // exchange: of several receiving threads, only one reports the error.
        const int lEarlier = mError.exchange( 0 );
        if ( lEarlier != 0 )
        {
            return MakeError( lEarlier );
        }
        const unsigned int lTimeout = mTimeout.load();
        const long long lDeadline = Thread::GetTickCount() + lTimeout;
        if ( lTimeout != 0 && !TellTimeout( lTimeout ) )
        {
            return MakeError( errno );
        }
        // For SO_RCVTIMEO 0 means to wait for ever, so a time-out of 0 takes MSG_DONTWAIT. Later
        // rounds take it too, because Poll waits for them and another thread may take the datagram
        // first.
        for ( int lFlags = lTimeout == 0 ? MSG_DONTWAIT : 0;; lFlags = MSG_DONTWAIT )
        {
            socklen_t lFromSize = sizeof( *aFrom );
            const ssize_t lReceived = recvfrom( mNumber, aBuffer, aSize, lFlags,
                                                reinterpret_cast<sockaddr*>( aFrom ), &lFromSize );
            const int lError = errno;
            // After shutdown recvfrom returns 0, as it does for an empty datagram; the flag tells
            // them apart. Data that arrived before is still delivered.
            if ( lReceived <= 0 && IsClosed() )
            {
                return Result::NOT_CONNECTED;
            }
            if ( lReceived >= 0 )
            {
                aReceived = static_cast<int>( lReceived ); // at most aSize, which came from an int
                return Result::OK;
            }
            const bool lTimeUp = lError == EAGAIN || lError == EWOULDBLOCK;
            if ( !lTimeUp && lError != EINTR )
            {
                return MakeError( lError );
            }
            // The system counts the time-out in its own ticks. After a signal within the last tick
            // it reports that the time is up slightly too early.
            const long long lLeft = lDeadline - Thread::GetTickCount();
            if ( lTimeUp && lLeft <= 0 )
            {
                return Result::TIMEOUT;
            }
            pollfd lEntry = { mNumber, POLLIN, 0 };
            const int lReady = Poll( &lEntry, 1, std::max( lLeft, 0LL ) );
            if ( lReady < 0 )
            {
                return MakeError( -lReady );
            }
        }
    }

    // Drops all datagrams that have arrived, and a pending error from an earlier send. The limit
    // ends the loop if a sender does not stop. MSG_DONTWAIT leaves the socket itself blocking for
    // others.
    void Drain()
    {
        constexpr int DRAIN_MAX = 65536;
        char lByte = 0;
        bool lIsEmpty = false;
        for ( int lCount = 0; lCount < DRAIN_MAX && !lIsEmpty && !IsClosed(); ++lCount )
        {
            lIsEmpty = recv( mNumber, &lByte, sizeof( lByte ), MSG_DONTWAIT ) < 0 &&
                       ( errno == EAGAIN || errno == EWOULDBLOCK );
        }
    }

private:
    bool TellTimeout( unsigned int aTimeout )
    {
        LockScope lLock( mMutex );
        if ( mToldTimeout == aTimeout )
        {
            return true;
        }
        timeval lTime{};
        lTime.tv_sec = aTimeout / 1000;
        lTime.tv_usec = static_cast<suseconds_t>( aTimeout % 1000 ) * 1000;
        // Under the lock, so that mToldTimeout is what the system really has.
        if ( setsockopt( mNumber, SOL_SOCKET, SO_RCVTIMEO, &lTime, sizeof( lTime ) ) != 0 )
        {
            return false;
        }
        mToldTimeout = aTimeout;
        return true;
    }

    const int mNumber;
    // Each atomic stands for itself and none publishes other memory, so their order does not
    // matter, except in MarkClosed.
    std::atomic<bool> mClosed{ false };
    std::atomic<unsigned int> mTimeout{ 0 };
    std::atomic<int> mError{ 0 }; // 0: none
    Mutex mMutex;
    unsigned int mToldTimeout QMUTILSLIB_GUARDED_BY( mMutex ) = 0;
};

using DescriptorPointer = std::shared_ptr<Descriptor>;

// Sends one datagram; aTo is null for the connected peer.
Result SendDatagram( const Descriptor& aDescriptor, const void* aData, std::size_t aLength,
                     const sockaddr_in* aTo )
{
    ssize_t lSent = -1;
    // A send after shutdown fails with EPIPE; MSG_NOSIGNAL makes sure that it does not also raise
    // SIGPIPE, which would end the program.
    do
    {
        lSent =
            sendto( aDescriptor.GetNumber(), aData, aLength, MSG_NOSIGNAL,
                    reinterpret_cast<const sockaddr*>( aTo ), aTo != nullptr ? sizeof( *aTo ) : 0 );
    } while ( lSent < 0 && errno == EINTR );
    if ( lSent >= 0 )
    {
        return Result::OK; // it was sent, even if another thread has closed the socket since
    }
    const int lError = errno;
    return aDescriptor.IsClosed() ? Result( Result::NOT_CONNECTED ) : MakeError( lError );
}

} // namespace

class SocketUDP::Implementation
{
public:
    // A share of the open descriptor, or null when the socket is closed.
    DescriptorPointer GetDescriptor() const
    {
        LockScope lLock( mMutex );
        return mDescriptor;
    }

    // The argument leaves with the old descriptor and is destroyed after the lock is released.
    void SetDescriptor( DescriptorPointer aDescriptor )
    {
        LockScope lLock( mMutex );
        mOpened.store( aDescriptor != nullptr );
        mDescriptor.swap( aDescriptor );
    }

    DescriptorPointer TakeDescriptor()
    {
        LockScope lLock( mMutex );
        mOpened.store( false );
        return std::move( mDescriptor );
    }

    bool IsOpened() const { return mOpened.load(); }

private:
    mutable Mutex mMutex;
    DescriptorPointer mDescriptor QMUTILSLIB_GUARDED_BY( mMutex );
    std::atomic<bool> mOpened{ false }; // whether mDescriptor is set, for IsOpened without the lock
};

SocketUDP::SocketUDP()
    : mThis( std::make_unique<Implementation>() )
{
}

SocketUDP::~SocketUDP()
{
    (void)Close(); // cannot fail
}

Result SocketUDP::Open( const IpAddress* aLocalAddress, unsigned short aLocalPort,
                        bool aShareAddress )
{
    (void)Close(); // cannot fail
    // SOCK_CLOEXEC at creation: a flag set later would miss a fork of another thread in between.
    const int lNumber = socket( AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0 );
    if ( lNumber < 0 )
    {
        return MakeError( errno );
    }
    DescriptorPointer lDescriptor;
    try
    {
        lDescriptor = std::make_shared<Descriptor>( lNumber );
    }
    catch ( const std::bad_alloc& )
    {
        (void)close( lNumber ); // a datagram socket has nothing left to fail
        return MakeError( ENOMEM );
    }
    const int lOn = 1;
    // SO_REUSEADDR lets several sockets bind to one UDP port, if all of them ask for it.
    if ( aShareAddress &&
         setsockopt( lNumber, SOL_SOCKET, SO_REUSEADDR, &lOn, sizeof( lOn ) ) != 0 )
    {
        return MakeError( errno );
    }
    const sockaddr_in lLocal =
        MakeSocketAddress( aLocalAddress != nullptr ? *aLocalAddress : IpAddress(), aLocalPort );
    if ( bind( lNumber, reinterpret_cast<const sockaddr*>( &lLocal ), sizeof( lLocal ) ) != 0 )
    {
        return MakeError( errno );
    }
    mThis->SetDescriptor( lDescriptor );
    return Result::OK;
}

Result SocketUDP::Connect( const IpAddress& aPeer, unsigned short aPort )
{
    const DescriptorPointer lDescriptor = mThis->GetDescriptor();
    if ( lDescriptor == nullptr )
    {
        return Result::NOT_CONNECTED;
    }
    const sockaddr_in lPeer = MakeSocketAddress( aPeer, aPort );
    if ( connect( lDescriptor->GetNumber(), reinterpret_cast<const sockaddr*>( &lPeer ),
                  sizeof( lPeer ) ) != 0 )
    {
        return MakeError( errno );
    }
    lDescriptor->Drain(); // datagrams of others, from before the system knew the peer
    return Result::OK;
}

Result SocketUDP::SetBroadcast( bool aEnable )
{
    const DescriptorPointer lDescriptor = mThis->GetDescriptor();
    if ( lDescriptor == nullptr )
    {
        return Result::NOT_CONNECTED;
    }
    const int lOn = aEnable ? 1 : 0;
    if ( setsockopt( lDescriptor->GetNumber(), SOL_SOCKET, SO_BROADCAST, &lOn, sizeof( lOn ) ) !=
         0 )
    {
        return MakeError( errno );
    }
    return Result::OK;
}

bool SocketUDP::IsOpened() const
{
    return mThis->IsOpened();
}

Result SocketUDP::Send( const void* aData, int aLength )
{
    const DescriptorPointer lDescriptor = mThis->GetDescriptor();
    if ( lDescriptor == nullptr )
    {
        return Result::NOT_CONNECTED;
    }
    if ( aLength < 0 )
    {
        return MakeError( EINVAL );
    }
    const auto lLength = static_cast<std::size_t>( aLength );
    Result lResult = SendDatagram( *lDescriptor, aData, lLength, nullptr );
    if ( lResult.GetOSCode() != ECONNREFUSED )
    {
        return lResult;
    }
    // The system reports here that an earlier datagram was refused. The error is now cleared, but
    // this datagram was not sent.
    return SendDatagram( *lDescriptor, aData, lLength, nullptr );
}

Result SocketUDP::SendTo( const void* aData, int aLength, const IpAddress& aAddress,
                          unsigned short aPort )
{
    const DescriptorPointer lDescriptor = mThis->GetDescriptor();
    if ( lDescriptor == nullptr )
    {
        return Result::NOT_CONNECTED;
    }
    if ( aLength < 0 )
    {
        return MakeError( EINVAL );
    }
    const sockaddr_in lTo = MakeSocketAddress( aAddress, aPort );
    return SendDatagram( *lDescriptor, aData, static_cast<std::size_t>( aLength ), &lTo );
}

Result SocketUDP::Receive( void* aBuffer, int aSize, int& aReceived )
{
    IpAddress lAddress;
    unsigned short lPort = 0;
    return ReceiveFrom( aBuffer, aSize, aReceived, lAddress, lPort );
}

Result SocketUDP::ReceiveFrom( void* aBuffer, int aSize, int& aReceived, IpAddress& aAddress,
                               unsigned short& aPort )
{
    const DescriptorPointer lDescriptor = mThis->GetDescriptor();
    if ( lDescriptor == nullptr )
    {
        return Result::NOT_CONNECTED;
    }
    if ( aSize < 0 )
    {
        return MakeError( EINVAL );
    }
    sockaddr_in lFrom{};
    Result lResult =
        lDescriptor->Receive( aBuffer, static_cast<std::size_t>( aSize ), &lFrom, aReceived );
    if ( lResult.IsOK() )
    {
        aAddress = IpAddress( ntohl( lFrom.sin_addr.s_addr ) );
        aPort = ntohs( lFrom.sin_port );
    }
    return lResult;
}

Result SocketUDP::SetTimeoutRx( unsigned int aTimeout )
{
    const DescriptorPointer lDescriptor = mThis->GetDescriptor();
    if ( lDescriptor == nullptr )
    {
        return Result::NOT_CONNECTED;
    }
    lDescriptor->SetTimeout( aTimeout );
    return Result::OK;
}

SocketUDP* SocketUDP::SelectOnRx( SocketUDP** aSockets, unsigned int aCount, unsigned int aTimeout,
                                  unsigned int* aIndex )
{
    constexpr unsigned int FEW = 8; // up to here nothing is allocated
    pollfd lFewEntries[FEW] = {};
    DescriptorPointer lFewDescriptors[FEW];
    const bool lAreMany = aCount > FEW;
    const std::unique_ptr<pollfd[]> lManyEntries( lAreMany ? new ( std::nothrow ) pollfd[aCount]
                                                           : nullptr );
    const std::unique_ptr<DescriptorPointer[]> lManyDescriptors(
        lAreMany ? new ( std::nothrow ) DescriptorPointer[aCount] : nullptr );
    pollfd* const lEntries = lAreMany ? lManyEntries.get() : lFewEntries;
    DescriptorPointer* const lDescriptors = lAreMany ? lManyDescriptors.get() : lFewDescriptors;

    const auto lChoose = [aSockets, aIndex]( unsigned int aChosen )
    {
        if ( aIndex != nullptr )
        {
            *aIndex = aChosen;
        }
        return aSockets[aChosen];
    };
    // This operation returns no result: the first socket counts as readable, and its next receive
    // returns the error.
    const auto lFail = [aSockets, &lChoose]( int aError )
    {
        if ( const DescriptorPointer lFirst = aSockets[0]->mThis->GetDescriptor() )
        {
            lFirst->SetError( aError );
        }
        return lChoose( 0 );
    };
    if ( lEntries == nullptr || lDescriptors == nullptr )
    {
        return lFail( ENOMEM );
    }
    for ( unsigned int lIndex = 0; lIndex < aCount; ++lIndex )
    {
        // The share keeps the descriptor's number from being reused while it is polled.
        lDescriptors[lIndex] = aSockets[lIndex]->mThis->GetDescriptor();
        // A closed socket counts as readable: its receive returns NOT_CONNECTED at once.
        if ( lDescriptors[lIndex] == nullptr )
        {
            return lChoose( lIndex );
        }
        lEntries[lIndex] = { lDescriptors[lIndex]->GetNumber(), POLLIN, 0 };
    }
    const int lReady = Poll( lEntries, aCount, aTimeout );
    if ( lReady <= 0 )
    {
        return lReady < 0 && aCount > 0 ? lFail( -lReady ) : nullptr;
    }
    for ( unsigned int lIndex = 0; lIndex < aCount; ++lIndex )
    {
        // POLLERR and POLLHUP too: a receive returns the error, or that the socket is closed.
        if ( lEntries[lIndex].revents != 0 )
        {
            return lChoose( lIndex );
        }
    }
    return nullptr;
}

Result SocketUDP::Close()
{
    if ( const DescriptorPointer lDescriptor = mThis->TakeDescriptor() )
    {
        lDescriptor->MarkClosed();
    }
    return Result::OK;
}

namespace
{

sockaddr_in GetLocalEnd( const DescriptorPointer& aDescriptor )
{
    sockaddr_in lLocal{};
    socklen_t lSize = sizeof( lLocal );
    if ( aDescriptor != nullptr )
    {
        // Cannot fail for an open socket; an address of zeros would be the answer.
        (void)getsockname( aDescriptor->GetNumber(), reinterpret_cast<sockaddr*>( &lLocal ),
                           &lSize );
    }
    return lLocal;
}

} // namespace

IpAddress SocketUDP::GetLocalAddress() const
{
    return IpAddress( ntohl( GetLocalEnd( mThis->GetDescriptor() ).sin_addr.s_addr ) );
}

unsigned short SocketUDP::GetLocalPort() const
{
    return ntohs( GetLocalEnd( mThis->GetDescriptor() ).sin_port );
}

} // namespace Network
} // namespace WdUtilsLib
