#include <WdUtilsLib/Network/SocketUDP.h>

#include "SocketOpening.h"

#include <QmUtilsLib/Thread.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <forward_list>
#include <memory>
#include <new>

namespace WdUtilsLib
{
namespace Network
{

using QmUtilsLib::Result;
using QmUtilsLib::Thread;

namespace
{

Result MakeError( int aError )
{
    return Result( Result::GENERIC_ERROR, static_cast<unsigned int>( aError ) );
}

// The result of an operation of an opening, which may be a number of bytes.
Result MakeResult( int aOutcome )
{
    if ( aOutcome >= 0 )
    {
        return Result::OK;
    }
    if ( aOutcome == SocketOpening::IS_CLOSED )
    {
        return Result::NOT_CONNECTED;
    }
    return MakeError( -aOutcome );
}

sockaddr_in MakeSocketAddress( const IpAddress& aAddress, unsigned short aPort )
{
    sockaddr_in lAddress{};
    lAddress.sin_family = AF_INET;
    lAddress.sin_addr.s_addr = htonl( aAddress.GetValue() );
    lAddress.sin_port = htons( aPort );
    return lAddress;
}

// The sockets of one wait: few of them without memory from the heap.
class Wait
{
public:
    explicit Wait( unsigned int aCount )
        : mManyEntries( aCount > FEW ? new ( std::nothrow ) pollfd[aCount] : nullptr )
        , mManyUses( aCount > FEW ? new ( std::nothrow ) SocketOpening::Use[aCount] : nullptr )
        , mEntries( aCount > FEW ? mManyEntries.get() : mFewEntries )
        , mUses( aCount > FEW ? mManyUses.get() : mFewUses )
        , mCount( aCount )
    {
    }

    bool HasMemory() const { return mEntries != nullptr && mUses != nullptr; }

    // False: the opening is closed.
    bool Add( unsigned int aIndex, SocketOpening* aOpening )
    {
        mUses[aIndex].Begin( aOpening );
        if ( !mUses[aIndex] )
        {
            return false;
        }
        mEntries[aIndex] = { mUses[aIndex]->GetNumber(), POLLIN, 0 };
        return true;
    }

    // Polls until a socket has something to receive or the time is up. Above 0: IsReady tells
    // which; 0: none; below 0: the error, negative.
    int Run( long long aDeadline )
    {
        for ( ;; )
        {
            const long long lLeft = std::max( aDeadline - Thread::GetTickCount(), 0LL );
            long long lPatience = lLeft;
            for ( unsigned int lIndex = 0; lIndex < mCount; ++lIndex )
            {
                lPatience =
                    mUses[lIndex]->HasReceived() ? 0 : mUses[lIndex]->GetPatience( lPatience );
            }
            const int lReady = Network::Poll( mEntries, mCount, lPatience );
            if ( lReady != 0 || HasReceived() )
            {
                return lReady != 0 ? lReady : 1;
            }
            if ( lPatience == lLeft )
            {
                return 0;
            }
        }
    }

    bool IsReady( unsigned int aIndex ) const
    {
        return mEntries[aIndex].revents != 0 || mUses[aIndex]->HasReceived();
    }

private:
    static constexpr unsigned int FEW = 8;

    bool HasReceived() const
    {
        return std::any_of( mUses, mUses + mCount,
                            []( const SocketOpening::Use& aUse ) { return aUse->HasReceived(); } );
    }

    pollfd mFewEntries[FEW];
    SocketOpening::Use mFewUses[FEW];
    const std::unique_ptr<pollfd[]> mManyEntries;
    const std::unique_ptr<SocketOpening::Use[]> mManyUses;
    pollfd* const mEntries;
    SocketOpening::Use* const mUses;
    const unsigned int mCount;
};

// Returns a socket of a wait and tells its place.
SocketUDP* Choose( SocketUDP** aSockets, unsigned int aChosen, unsigned int* aIndex )
{
    if ( aIndex != nullptr )
    {
        *aIndex = aChosen;
    }
    return aSockets[aChosen];
}

} // namespace

class SocketUDP::Implementation
{
public:
    // Waits for one of several sockets, or for one beside other operations.
    // A closed socket counts as readable, and so does one whose wait has failed: the next receive
    // tells.
    static SocketUDP* Poll( SocketUDP** aSockets, unsigned int aCount, long long aDeadline,
                            unsigned int* aIndex )
    {
        Wait lWait( aCount );
        if ( !lWait.HasMemory() )
        {
            aSockets[0]->mThis->SetWaitError( ENOMEM );
            return Choose( aSockets, 0, aIndex );
        }
        for ( unsigned int lIndex = 0; lIndex < aCount; ++lIndex )
        {
            if ( !lWait.Add( lIndex, aSockets[lIndex]->mThis->GetOpening() ) )
            {
                return Choose( aSockets, lIndex, aIndex );
            }
        }
        const int lReady = lWait.Run( aDeadline );
        if ( lReady < 0 && aCount > 0 )
        {
            aSockets[0]->mThis->SetWaitError( -lReady );
            return Choose( aSockets, 0, aIndex );
        }
        for ( unsigned int lIndex = 0; lReady > 0 && lIndex < aCount; ++lIndex )
        {
            if ( lWait.IsReady( lIndex ) )
            {
                return Choose( aSockets, lIndex, aIndex );
            }
        }
        return nullptr;
    }

    // The opening that operations enter; null when the socket is closed.
    SocketOpening* GetOpening() const { return mOpening.load( std::memory_order_acquire ); }

    SocketOpening* TakeOpening() { return mOpening.exchange( nullptr ); }

    void SetOpening( SocketOpening& aOpening )
    {
        mOpening.store( &aOpening, std::memory_order_release );
    }

    Result Receive( void* aBuffer, int aSize, int& aReceived, sockaddr_in& aFrom )
    {
        const SocketOpening::Use lOpening( GetOpening() );
        if ( !lOpening )
        {
            return Result::NOT_CONNECTED;
        }
        if ( aSize < 0 )
        {
            return MakeError( EINVAL );
        }
        const int lReceived =
            lOpening->Receive( aBuffer, static_cast<std::size_t>( aSize ), aFrom );
        if ( lReceived == -EAGAIN )
        {
            return Result::TIMEOUT;
        }
        if ( lReceived >= 0 )
        {
            aReceived = lReceived;
        }
        return MakeResult( lReceived );
    }

    // The next Receive fails with that error.
    void SetWaitError( int aError )
    {
        const SocketOpening::Use lOpening( GetOpening() );
        if ( lOpening )
        {
            lOpening->SetWaitError( aError );
        }
    }

    // An opening that can begin: none of the earlier ones while an operation is still inside.
    SocketOpening& GetFreeOpening()
    {
        for ( SocketOpening& lOpening : mOpenings )
        {
            if ( lOpening.IsFree() )
            {
                return lOpening;
            }
        }
        return mOpenings.emplace_front();
    }

private:
    std::atomic<SocketOpening*> mOpening{ nullptr };

    // Kept until the socket goes, so that an operation may look at one that was closed. Changed by
    // Open only.
    std::forward_list<SocketOpening> mOpenings;
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
    SocketOpening* lOpening = nullptr;
    try
    {
        lOpening = &mThis->GetFreeOpening();
    }
    catch ( const std::bad_alloc& )
    {
        return MakeError( ENOMEM );
    }
    // SOCK_CLOEXEC at creation: a flag set later would miss a fork of another thread in between.
    const int lNumber = socket( AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0 );
    if ( lNumber < 0 )
    {
        return MakeError( errno );
    }
    const int lOn = 1;
    const sockaddr_in lLocal =
        MakeSocketAddress( aLocalAddress != nullptr ? *aLocalAddress : IpAddress(), aLocalPort );
    if ( ( aShareAddress &&
           setsockopt( lNumber, SOL_SOCKET, SO_REUSEADDR, &lOn, sizeof( lOn ) ) != 0 ) ||
         bind( lNumber, reinterpret_cast<const sockaddr*>( &lLocal ), sizeof( lLocal ) ) != 0 )
    {
        const int lError = errno;
        (void)close( lNumber ); // a datagram socket has nothing left to fail
        return MakeError( lError );
    }
    lOpening->Begin( lNumber );
    mThis->SetOpening( *lOpening );
    return Result::OK;
}

Result SocketUDP::Connect( const IpAddress& aPeer, unsigned short aPort )
{
    const SocketOpening::Use lOpening( mThis->GetOpening() );
    if ( !lOpening )
    {
        return Result::NOT_CONNECTED;
    }
    const sockaddr_in lPeer = MakeSocketAddress( aPeer, aPort );
    if ( connect( lOpening->GetNumber(), reinterpret_cast<const sockaddr*>( &lPeer ),
                  sizeof( lPeer ) ) != 0 )
    {
        return MakeError( errno );
    }
    lOpening->Drain(); // datagrams of others, from before the system knew the peer
    return Result::OK;
}

Result SocketUDP::SetBroadcast( bool aEnable )
{
    const SocketOpening::Use lOpening( mThis->GetOpening() );
    if ( !lOpening )
    {
        return Result::NOT_CONNECTED;
    }
    const int lOn = aEnable ? 1 : 0;
    if ( setsockopt( lOpening->GetNumber(), SOL_SOCKET, SO_BROADCAST, &lOn, sizeof( lOn ) ) != 0 )
    {
        return MakeError( errno );
    }
    return Result::OK;
}

bool SocketUDP::IsOpened() const
{
    return mThis->GetOpening() != nullptr;
}

Result SocketUDP::Send( const void* aData, int aLength )
{
    const SocketOpening::Use lOpening( mThis->GetOpening() );
    if ( !lOpening )
    {
        return Result::NOT_CONNECTED;
    }
    if ( aLength < 0 )
    {
        return MakeError( EINVAL );
    }
    const auto lLength = static_cast<std::size_t>( aLength );
    const int lOutcome = lOpening->Send( aData, lLength, nullptr );
    if ( lOutcome != -ECONNREFUSED )
    {
        return MakeResult( lOutcome );
    }
    // The system reports here that an earlier datagram was refused. The error is now cleared, but
    // this datagram was not sent.
    return MakeResult( lOpening->Send( aData, lLength, nullptr ) );
}

Result SocketUDP::SendTo( const void* aData, int aLength, const IpAddress& aAddress,
                          unsigned short aPort )
{
    const SocketOpening::Use lOpening( mThis->GetOpening() );
    if ( !lOpening )
    {
        return Result::NOT_CONNECTED;
    }
    if ( aLength < 0 )
    {
        return MakeError( EINVAL );
    }
    const sockaddr_in lTo = MakeSocketAddress( aAddress, aPort );
    return MakeResult( lOpening->Send( aData, static_cast<std::size_t>( aLength ), &lTo ) );
}

Result SocketUDP::Receive( void* aBuffer, int aSize, int& aReceived )
{
    sockaddr_in lFrom; // of the sender, which is not told
    return mThis->Receive( aBuffer, aSize, aReceived, lFrom );
}

Result SocketUDP::ReceiveFrom( void* aBuffer, int aSize, int& aReceived, IpAddress& aAddress,
                               unsigned short& aPort )
{
    sockaddr_in lFrom{};
    Result lResult = mThis->Receive( aBuffer, aSize, aReceived, lFrom );
    if ( lResult.IsOK() )
    {
        aAddress = IpAddress( ntohl( lFrom.sin_addr.s_addr ) );
        aPort = ntohs( lFrom.sin_port );
    }
    return lResult;
}

Result SocketUDP::SetTimeoutRx( unsigned int aTimeout )
{
    const SocketOpening::Use lOpening( mThis->GetOpening() );
    if ( !lOpening )
    {
        return Result::NOT_CONNECTED;
    }
    lOpening->SetTimeout( aTimeout );
    return Result::OK;
}

SocketUDP* SocketUDP::SelectOnRx( SocketUDP** aSockets, unsigned int aCount, unsigned int aTimeout,
                                  unsigned int* aIndex )
{
    const long long lDeadline = Thread::GetTickCount() + aTimeout;
    if ( aCount == 1 )
    {
        const SocketOpening::Use lOpening( aSockets[0]->mThis->GetOpening() );
        if ( !lOpening || lOpening->HasReceived() || lOpening->WaitByReceiving( aTimeout ) )
        {
            return Choose( aSockets, 0, aIndex );
        }
    }
    return Implementation::Poll( aSockets, aCount, lDeadline, aIndex );
}

Result SocketUDP::Close()
{
    const SocketOpening::Use lOpening( mThis->TakeOpening() );
    if ( lOpening )
    {
        lOpening->Close();
    }
    return Result::OK;
}

namespace
{

sockaddr_in GetLocalEnd( SocketOpening* aOpening )
{
    sockaddr_in lLocal{};
    socklen_t lSize = sizeof( lLocal );
    const SocketOpening::Use lUse( aOpening );
    if ( lUse )
    {
        // Cannot fail for an open socket; an address of zeros would be the answer.
        (void)getsockname( lUse->GetNumber(), reinterpret_cast<sockaddr*>( &lLocal ), &lSize );
    }
    return lLocal;
}

} // namespace

IpAddress SocketUDP::GetLocalAddress() const
{
    return IpAddress( ntohl( GetLocalEnd( mThis->GetOpening() ).sin_addr.s_addr ) );
}

unsigned short SocketUDP::GetLocalPort() const
{
    return ntohs( GetLocalEnd( mThis->GetOpening() ).sin_port );
}

} // namespace Network
} // namespace WdUtilsLib
