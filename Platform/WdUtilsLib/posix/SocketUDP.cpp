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
#include <vector>

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

Result MakeSystemError()
{
    return Result( Result::GENERIC_ERROR, static_cast<unsigned int>( errno ) );
}

sockaddr_in MakeSocketAddress( const IpAddress& aAddress, unsigned short aPort )
{
    sockaddr_in lAddress{};
    lAddress.sin_family = AF_INET;
    lAddress.sin_addr.s_addr = htonl( aAddress.GetValue() );
    lAddress.sin_port = htons( aPort );
    return lAddress;
}

// One open descriptor. Every operation holds a share of it while it runs, so the number is given
// back to the system only when the last operation has left.
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

    // Wakes whoever waits on the socket; from now on they find it closed. shutdown reports that
    // there is no connection and wakes all the same.
    void MarkClosed()
    {
        mClosed.store( true );
        (void)shutdown( mNumber, SHUT_RDWR );
    }

    bool IsClosed() const { return mClosed.load(); }

    void SetTimeout( unsigned int aTimeout ) { mTimeout.store( aTimeout ); }

    // Waits in the receive itself. The socket's own time-out is told to the system only when it
    // differs from the one it knows.
    Result Receive( void* aBuffer, std::size_t aSize, sockaddr_in* aFrom, int& aReceived )
    {
        unsigned int lWait = mTimeout.load();
        const long long lDeadline = Thread::GetTickCount() + lWait;
        for ( ;; )
        {
            if ( lWait != 0 && !TellTimeout( lWait ) )
            {
                return MakeSystemError();
            }
            socklen_t lFromSize = sizeof( *aFrom );
            const ssize_t lReceived =
                recvfrom( mNumber, aBuffer, aSize, lWait == 0 ? MSG_DONTWAIT : 0,
                          reinterpret_cast<sockaddr*>( aFrom ), &lFromSize );
            const int lError = errno;
            // What arrived is delivered; nothing may be a datagram or the end.
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
                return Result( Result::GENERIC_ERROR, static_cast<unsigned int>( lError ) );
            }
            // The system counts in ticks: a signal within the last one makes it say that the time
            // is up before it is.
            const long long lLeft = lDeadline - Thread::GetTickCount();
            if ( lTimeUp && lLeft <= 0 )
            {
                return Result::TIMEOUT;
            }
            lWait = lLeft > 0 ? static_cast<unsigned int>( lLeft ) : 0; // no more than it was
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
        if ( setsockopt( mNumber, SOL_SOCKET, SO_RCVTIMEO, &lTime, sizeof( lTime ) ) != 0 )
        {
            return false;
        }
        mToldTimeout = aTimeout;
        return true;
    }

    const int mNumber;
    std::atomic<bool> mClosed{ false };
    std::atomic<unsigned int> mTimeout{ 0 };
    Mutex mMutex;
    unsigned int mToldTimeout QMUTILSLIB_GUARDED_BY( mMutex ) = 0;
};

using DescriptorPointer = std::shared_ptr<Descriptor>;

// Sends one datagram; aTo is null for the connected peer.
Result SendDatagram( const Descriptor& aDescriptor, const void* aData, std::size_t aLength,
                     const sockaddr_in* aTo )
{
    ssize_t lSent = -1;
    do
    {
        lSent =
            sendto( aDescriptor.GetNumber(), aData, aLength, MSG_NOSIGNAL,
                    reinterpret_cast<const sockaddr*>( aTo ), aTo != nullptr ? sizeof( *aTo ) : 0 );
    } while ( lSent < 0 && errno == EINTR );
    if ( lSent >= 0 )
    {
        return Result::OK; // it has left, whoever closes the socket meanwhile
    }
    const int lError = errno;
    return aDescriptor.IsClosed()
               ? Result( Result::NOT_CONNECTED )
               : Result( Result::GENERIC_ERROR, static_cast<unsigned int>( lError ) );
}

// Polls until something is there or the time is up, through signals. True: something is there.
bool Poll( pollfd* aEntries, unsigned int aCount, unsigned int aTimeout )
{
    const long long lDeadline = Thread::GetTickCount() + aTimeout;
    long long lLeft = aTimeout;
    for ( ;; )
    {
        const int lWait = static_cast<int>( std::min<long long>( lLeft, INT_MAX ) );
        const int lReady = poll( aEntries, aCount, lWait );
        if ( lReady > 0 )
        {
            return true;
        }
        if ( lReady < 0 && errno != EINTR )
        {
            return false;
        }
        if ( lReady == 0 && lLeft <= INT_MAX )
        {
            return false;
        }
        lLeft = std::max<long long>( lDeadline - Thread::GetTickCount(), 0 );
    }
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
    std::atomic<bool> mOpened{ false };
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
    const int lNumber = socket( AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0 );
    if ( lNumber < 0 )
    {
        return MakeSystemError();
    }
    const DescriptorPointer lDescriptor = std::make_shared<Descriptor>( lNumber );
    const int lOn = 1;
    if ( aShareAddress &&
         setsockopt( lNumber, SOL_SOCKET, SO_REUSEADDR, &lOn, sizeof( lOn ) ) != 0 )
    {
        return MakeSystemError();
    }
    const sockaddr_in lLocal =
        MakeSocketAddress( aLocalAddress != nullptr ? *aLocalAddress : IpAddress(), aLocalPort );
    if ( bind( lNumber, reinterpret_cast<const sockaddr*>( &lLocal ), sizeof( lLocal ) ) != 0 )
    {
        return MakeSystemError();
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
        return MakeSystemError();
    }
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
        return MakeSystemError();
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
        return Result( Result::GENERIC_ERROR, EINVAL );
    }
    const auto lLength = static_cast<std::size_t>( aLength );
    const Result lResult = SendDatagram( *lDescriptor, aData, lLength, nullptr );
    if ( lResult.GetOSCode() != ECONNREFUSED )
    {
        return lResult;
    }
    // The refusal tells of an earlier datagram; it has been reported now and this one was not sent.
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
        return Result( Result::GENERIC_ERROR, EINVAL );
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
        return Result( Result::GENERIC_ERROR, EINVAL );
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
    constexpr unsigned int FEW = 8;
    pollfd lFewEntries[FEW] = {};
    DescriptorPointer lFewDescriptors[FEW];
    std::vector<pollfd> lManyEntries( aCount > FEW ? aCount : 0 );
    std::vector<DescriptorPointer> lManyDescriptors( aCount > FEW ? aCount : 0 );
    pollfd* const lEntries = aCount > FEW ? lManyEntries.data() : lFewEntries;
    DescriptorPointer* const lDescriptors =
        aCount > FEW ? lManyDescriptors.data() : lFewDescriptors;

    const auto lChoose = [aSockets, aIndex]( unsigned int aChosen )
    {
        if ( aIndex != nullptr )
        {
            *aIndex = aChosen;
        }
        return aSockets[aChosen];
    };
    for ( unsigned int lIndex = 0; lIndex < aCount; ++lIndex )
    {
        lDescriptors[lIndex] = aSockets[lIndex]->mThis->GetDescriptor();
        if ( lDescriptors[lIndex] == nullptr )
        {
            return lChoose( lIndex );
        }
        lEntries[lIndex] = { lDescriptors[lIndex]->GetNumber(), POLLIN, 0 };
    }
    if ( !Poll( lEntries, aCount, aTimeout ) )
    {
        return nullptr;
    }
    for ( unsigned int lIndex = 0; lIndex < aCount; ++lIndex )
    {
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
