#include "SocketOpening.h"

#include <QmUtilsLib/Thread.h>

#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <new>

namespace WdUtilsLib
{
namespace Network
{

using QmUtilsLib::Thread;

namespace
{

// The bytes of a datagram are stored by the caller's size, never beyond.
ssize_t ReceiveFrom( int aNumber, void* aBuffer, std::size_t aSize, int aFlags, sockaddr_in& aFrom )
{
    socklen_t lFromSize = sizeof( aFrom );
    return recvfrom( aNumber, aBuffer, aSize, aFlags, reinterpret_cast<sockaddr*>( &aFrom ),
                     &lFromSize );
}

bool IsTimeUp( int aError )
{
    return aError == EAGAIN || aError == EWOULDBLOCK;
}

} // namespace

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

// No operation is inside a free opening, so plain stores do; the release of mState publishes them
// to the operations that enter.
void SocketOpening::Begin( int aNumber )
{
    mNumber = aNumber;
    mIsFree.store( false );
    mAhead.store( Ahead::NOTHING );
    mTimeout.store( 0 );
    mWaitError.store( 0 );
    mSocketError.store( 0 );
    mToldTimeout = 0;
    mAskedTimeout = 0;
    mState.store( 0, std::memory_order_release );
}

// The flag is set first, so that a thread which shutdown wakes sees it. close would not wake the
// threads. On a socket without a peer, shutdown fails with ENOTCONN but wakes them all the same.
void SocketOpening::Close()
{
    mState.fetch_or( CLOSED );
    (void)shutdown( mNumber, SHUT_RDWR );
}

void SocketOpening::Free()
{
    (void)close( mNumber ); // a datagram socket has nothing left to fail
    mIsFree.store( true, std::memory_order_release );
}

// The datagram or the error that was received ahead, which one receiver gets; -EAGAIN without one.
int SocketOpening::TakeReceived( void* aBuffer, std::size_t aSize, sockaddr_in& aFrom )
{
    const int lReceived = TakeInbox( aBuffer, aSize, aFrom );
    if ( lReceived != -EAGAIN )
    {
        return lReceived;
    }
    const int lError = TakeError( mSocketError );
    return lError != 0 ? -lError : -EAGAIN;
}

int SocketOpening::ReceiveOnce( void* aBuffer, std::size_t aSize, int aFlags, sockaddr_in& aFrom )
{
    const ssize_t lReceived = ReceiveFrom( mNumber, aBuffer, aSize, aFlags, aFrom );
    if ( lReceived > 0 )
    {
        return static_cast<int>( lReceived ); // at most aSize, which came from an int
    }
    const int lError = errno;
    // After shutdown recvfrom returns 0, as it does for an empty datagram; the flag tells them
    // apart. Data that arrived before is still delivered.
    if ( IsClosed() )
    {
        return IS_CLOSED;
    }
    if ( lReceived == 0 )
    {
        return 0;
    }
    return IsTimeUp( lError ) || lError == EINTR ? -EAGAIN : -lError;
}

int SocketOpening::ReceiveSlowly( void* aBuffer, std::size_t aSize, sockaddr_in& aFrom )
{
    if ( const int lError = TakeError( mWaitError ) )
    {
        return -lError;
    }
    const int lReceived = TakeReceived( aBuffer, aSize, aFrom );
    if ( lReceived != -EAGAIN )
    {
        return lReceived;
    }
    const unsigned int lTimeout = mTimeout.load( std::memory_order_relaxed );
    return lTimeout != 0 ? ReceiveWithin( lTimeout, aBuffer, aSize, aFrom )
                         : ReceiveOnce( aBuffer, aSize, MSG_DONTWAIT, aFrom );
}

// Waits in recvfrom itself, by SO_RCVTIMEO, which saves a poll for each datagram. SO_RCVTIMEO
// applies to all threads that receive, so only the operation that has TAKEN sets it and waits so.
// The rest of a wait that a signal interrupted is polled, and so is a wait beside another one.
int SocketOpening::ReceiveWithin( unsigned int aTimeout, void* aBuffer, std::size_t aSize,
                                  sockaddr_in& aFrom )
{
    const long long lDeadline = Thread::GetTickCount() + aTimeout;
    if ( Take( Ahead::NOTHING ) )
    {
        const int lError = TellTimeout( aTimeout );
        const int lReceived = lError != 0 ? -lError : ReceiveOnce( aBuffer, aSize, 0, aFrom );
        Release( Ahead::NOTHING );
        if ( lReceived != -EAGAIN )
        {
            return lReceived;
        }
    }
    for ( ;; )
    {
        // The system counts in ticks and may report that the time is up slightly too early.
        const long long lLeft = lDeadline - Thread::GetTickCount();
        if ( lLeft <= 0 )
        {
            return -EAGAIN;
        }
        pollfd lEntry = { mNumber, POLLIN, 0 };
        const int lReady = Poll( &lEntry, 1, GetPatience( lLeft ) );
        int lReceived = lReady < 0 ? lReady : TakeReceived( aBuffer, aSize, aFrom );
        if ( lReceived == -EAGAIN && lReady > 0 )
        {
            lReceived = ReceiveOnce( aBuffer, aSize, MSG_DONTWAIT, aFrom );
        }
        if ( lReceived != -EAGAIN )
        {
            return lReceived;
        }
    }
}

// Setting SO_RCVTIMEO costs a call, as much as the poll that it saves. So it is set for the first
// wait, and for one that is as long as the wait before: a caller with one time-out sets it once.
bool SocketOpening::IsWorthTelling( unsigned int aTimeout )
{
    const bool lIsUsual =
        mToldTimeout == 0 || mToldTimeout == aTimeout || mAskedTimeout == aTimeout;
    mAskedTimeout = aTimeout;
    return lIsUsual;
}

// 0, or the error of the system.
int SocketOpening::TellTimeout( unsigned int aTimeout )
{
    if ( mToldTimeout == aTimeout )
    {
        return 0;
    }
    timeval lTime{};
    lTime.tv_sec = aTimeout / 1000;
    lTime.tv_usec = static_cast<suseconds_t>( aTimeout % 1000 ) * 1000;
    if ( setsockopt( mNumber, SOL_SOCKET, SO_RCVTIMEO, &lTime, sizeof( lTime ) ) != 0 )
    {
        return errno;
    }
    mToldTimeout = aTimeout;
    return 0;
}

// Only an operation that is alone inside waits so: a poll that began before would not see a
// datagram that is received ahead. An operation that enters later finds mAhead TAKEN and polls in
// short parts. Both words are sequentially consistent, so one of the two sees the other.
bool SocketOpening::WaitByReceiving( unsigned int aTimeout )
{
    if ( aTimeout < LONG_WAIT || !Take( Ahead::NOTHING ) )
    {
        return false;
    }
    if ( mInbox == nullptr )
    {
        mInbox.reset( new ( std::nothrow ) Inbox ); // without memory every wait is a poll
    }
    if ( mInbox == nullptr || !IsAlone() || !IsWorthTelling( aTimeout ) ||
         TellTimeout( aTimeout ) != 0 )
    {
        Release( Ahead::NOTHING );
        return false;
    }
    const int lReceived = ReceiveOnce( mInbox->mBytes, sizeof( mInbox->mBytes ), 0, mInbox->mFrom );
    if ( lReceived >= 0 )
    {
        mInbox->mLength = static_cast<std::size_t>( lReceived );
        Release( Ahead::DATAGRAM );
        return true;
    }
    // A closed socket fails every receive; another error fails one.
    if ( lReceived != -EAGAIN && lReceived != IS_CLOSED )
    {
        mSocketError.store( -lReceived );
    }
    Release( Ahead::NOTHING );
    return lReceived != -EAGAIN;
}

// The limit ends the loop if a sender does not stop.
void SocketOpening::Drain()
{
    constexpr int DRAIN_MAX = 65536;
    if ( Take( Ahead::DATAGRAM ) )
    {
        Release( Ahead::NOTHING );
    }
    mSocketError.store( 0 );
    char lByte = 0;
    bool lIsEmpty = false;
    for ( int lCount = 0; lCount < DRAIN_MAX && !lIsEmpty && !IsClosed(); ++lCount )
    {
        lIsEmpty = recv( mNumber, &lByte, sizeof( lByte ), MSG_DONTWAIT ) < 0 && IsTimeUp( errno );
    }
}

} // namespace Network
} // namespace WdUtilsLib
