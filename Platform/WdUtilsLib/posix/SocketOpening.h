// One opening of a UDP socket: its descriptor, who is inside, and what was received ahead.
#pragma once

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

namespace WdUtilsLib
{
namespace Network
{

// A SocketOpening holds a descriptor from Begin until it is closed and the last operation has left.
// Then it closes the descriptor and can begin again. Every operation enters the opening first. So
// no operation uses a descriptor whose number the system has given out again, and an operation that
// entered an earlier opening never uses a later one.
//
// There is no lock. One atomic word counts the operations inside and says whether the opening is
// closed. Another says whether an operation receives ahead.
class SocketOpening
{
public:
    class Use;

    SocketOpening() = default;
    SocketOpening( const SocketOpening& ) = delete;
    SocketOpening& operator=( const SocketOpening& ) = delete;

    // Tells whether Begin may be called: the descriptor has been given back.
    bool IsFree() const { return mIsFree.load( std::memory_order_acquire ); }

    // Begin takes over a descriptor. From now on operations can enter.
    void Begin( int aNumber );

    // Close keeps further operations out and wakes those that wait. The caller is inside.
    void Close();

    // The following operations are called by those that are inside.

    int GetNumber() const { return mNumber; }
    bool IsClosed() const { return ( mState.load() & CLOSED ) != 0; }

    // SetTimeout sets how long Receive waits, in milliseconds; 0: not at all.
    void SetTimeout( unsigned int aTimeout ) { mTimeout.store( aTimeout ); }

    // SetWaitError lets the next Receive fail with an error of a wait.
    void SetWaitError( int aError ) { mWaitError.store( aError ); }

    // What Send and Receive return in place of a number of bytes when the socket is closed. Other
    // failures are the negative error number of the system.
    static constexpr int IS_CLOSED = INT_MIN;

    // Send sends one datagram; aTo is null for the connected peer. 0, or a failure.
    int Send( const void* aData, std::size_t aLength, const sockaddr_in* aTo );

    // Receive takes one datagram, cut to aSize bytes. Returns the number of bytes stored, or a
    // failure: -EAGAIN when nothing arrived in time.
    int Receive( void* aBuffer, std::size_t aSize, sockaddr_in& aFrom )
    {
        const int lReceived = TakeInbox( aBuffer, aSize, aFrom );
        return lReceived != -EAGAIN ? lReceived : ReceiveSlowly( aBuffer, aSize, aFrom );
    }

    // WaitByReceiving waits up to aTimeout milliseconds for something to receive, and receives it
    // ahead. True: the wait is over, and the next Receive tells why. False: the wait, or the rest
    // of it, is the caller's to poll for.
    bool WaitByReceiving( unsigned int aTimeout );

    // HasReceived tells whether something was received ahead.
    bool HasReceived() const
    {
        return mAhead.load() == Ahead::DATAGRAM || mSocketError.load() != 0;
    }

    // GetPatience returns how long a poll may last, of the milliseconds that are left: beside an
    // operation that receives ahead a short while only.
    long long GetPatience( long long aLeft ) const
    {
        return mAhead.load() == Ahead::TAKEN ? std::min( aLeft, SHORT_WAIT ) : aLeft;
    }

    // Drain drops what has arrived, and the report of what found no receiver. A sender that does
    // not stop ends it too.
    void Drain();

private:
    static constexpr std::uint32_t CLOSED = 0x80000000;

    // Milliseconds. A wait below the first is polled: the system counts receives in ticks. The
    // other is how often a poll looks for what was received ahead.
    static constexpr unsigned int LONG_WAIT = 20;
    static constexpr long long SHORT_WAIT = 10;

    // NOTHING: nothing was received ahead. TAKEN: one operation waits by receiving; it alone tells
    // the system a time-out and touches the inbox. DATAGRAM: the inbox is full.
    enum class Ahead
    {
        NOTHING,
        TAKEN,
        DATAGRAM
    };

    // Room for any datagram of UDP over IPv4.
    struct Inbox
    {
        sockaddr_in mFrom;
        std::size_t mLength;
        unsigned char mBytes[65507];
    };

    bool Enter();
    void Leave();
    void Free();
    bool IsAlone() const { return mState.load() == 1; }

    bool Take( Ahead aFrom );
    void Release( Ahead aTo ) { mAhead.store( aTo, std::memory_order_release ); }
    bool IsWorthTelling( unsigned int aTimeout );
    int TellTimeout( unsigned int aTimeout );
    static int TakeError( std::atomic<int>& aError );
    int TakeInbox( void* aBuffer, std::size_t aSize, sockaddr_in& aFrom );
    int ReceiveSlowly( void* aBuffer, std::size_t aSize, sockaddr_in& aFrom );
    int TakeReceived( void* aBuffer, std::size_t aSize, sockaddr_in& aFrom );
    int ReceiveOnce( void* aBuffer, std::size_t aSize, int aFlags, sockaddr_in& aFrom );
    int ReceiveWithin( unsigned int aTimeout, void* aBuffer, std::size_t aSize,
                       sockaddr_in& aFrom );

    int mNumber = -1;
    std::atomic<std::uint32_t> mState{ CLOSED }; // the count of operations inside, and CLOSED
    std::atomic<bool> mIsFree{ true };
    std::atomic<Ahead> mAhead{ Ahead::NOTHING };
    std::atomic<unsigned int> mTimeout{ 0 };
    std::atomic<int> mWaitError{ 0 };   // 0: none
    std::atomic<int> mSocketError{ 0 }; // received ahead; 0: none

    // These are used only by the operation that has TAKEN; mAhead publishes them to the next.
    unsigned int mToldTimeout = 0;
    unsigned int mAskedTimeout = 0;
    std::unique_ptr<Inbox> mInbox;
};

// A Use is an operation's stay in an opening. It is empty where there is none, or a closed one.
class SocketOpening::Use
{
public:
    Use() = default;
    explicit Use( SocketOpening* aOpening )
        : mOpening( aOpening != nullptr && aOpening->Enter() ? aOpening : nullptr )
    {
    }
    ~Use()
    {
        if ( mOpening != nullptr )
        {
            mOpening->Leave();
        }
    }

    Use( const Use& ) = delete;
    Use& operator=( const Use& ) = delete;

    // Enters an opening; the Use was empty.
    void Begin( SocketOpening* aOpening )
    {
        mOpening = aOpening != nullptr && aOpening->Enter() ? aOpening : nullptr;
    }

    explicit operator bool() const { return mOpening != nullptr; }
    SocketOpening* operator->() const { return mOpening; }

private:
    SocketOpening* mOpening = nullptr;
};

inline bool SocketOpening::Enter()
{
    std::uint32_t lState = mState.load( std::memory_order_relaxed );
    do
    {
        if ( ( lState & CLOSED ) != 0 )
        {
            return false;
        }
    } while ( !mState.compare_exchange_weak( lState, lState + 1 ) );
    return true;
}

inline void SocketOpening::Leave()
{
    // No operation enters a closed opening, so the last one to leave is the last that uses the
    // descriptor.
    if ( mState.fetch_sub( 1 ) == ( CLOSED | 1 ) )
    {
        Free();
    }
}

// Takes an error, 0 where there is none: each is returned once.
inline int SocketOpening::TakeError( std::atomic<int>& aError )
{
    return aError.load( std::memory_order_relaxed ) != 0 ? aError.exchange( 0 ) : 0;
}

inline bool SocketOpening::Take( Ahead aFrom )
{
    return mAhead.load( std::memory_order_relaxed ) == aFrom &&
           mAhead.compare_exchange_strong( aFrom, Ahead::TAKEN );
}

// The datagram that was received ahead, which one receiver gets; -EAGAIN without one. An error of a
// wait comes first.
inline int SocketOpening::TakeInbox( void* aBuffer, std::size_t aSize, sockaddr_in& aFrom )
{
    if ( mWaitError.load( std::memory_order_relaxed ) != 0 || !Take( Ahead::DATAGRAM ) )
    {
        return -EAGAIN;
    }
    const std::size_t lLength = std::min( mInbox->mLength, aSize );
    std::memcpy( aBuffer, mInbox->mBytes, lLength );
    aFrom = mInbox->mFrom;
    Release( Ahead::NOTHING );
    return static_cast<int>( lLength ); // at most 65,507
}

inline int SocketOpening::Send( const void* aData, std::size_t aLength, const sockaddr_in* aTo )
{
    // The system would have failed this send with the error that a wait has received ahead.
    if ( const int lEarlier = TakeError( mSocketError ) )
    {
        return -lEarlier;
    }
    // After shutdown a send fails with EPIPE; MSG_NOSIGNAL keeps it from raising SIGPIPE as well.
    ssize_t lSent = -1;
    do
    {
        lSent =
            sendto( mNumber, aData, aLength, MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>( aTo ),
                    aTo != nullptr ? sizeof( *aTo ) : 0 );
    } while ( lSent < 0 && errno == EINTR );
    if ( lSent >= 0 )
    {
        return 0; // it was sent, even if another thread has closed the socket since
    }
    const int lError = errno;
    return IsClosed() ? IS_CLOSED : -lError;
}

// Polls until an entry is ready or aTimeout milliseconds are over; a signal does not end the wait.
// Returns the number of ready entries, 0 if there are none, or the negative error number.
int Poll( pollfd* aEntries, unsigned int aCount, long long aTimeout );

} // namespace Network
} // namespace WdUtilsLib
