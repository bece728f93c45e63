#include "tests/support/CannedResponder.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <utility>

namespace TestSupport
{

namespace
{

void Require( bool aCondition, const char* aWhat )
{
    if ( !aCondition )
    {
        std::perror( aWhat );
        std::abort();
    }
}

} // namespace

CannedResponder::CannedResponder( Handler aHandler )
    : mHandler( std::move( aHandler ) )
{
    mSocket = socket( AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0 );
    Require( mSocket >= 0, "socket" );
    sockaddr_in lLocal{};
    lLocal.sin_family = AF_INET;
    lLocal.sin_addr.s_addr = htonl( INADDR_LOOPBACK );
    auto* const lAddress = reinterpret_cast<sockaddr*>( &lLocal );
    Require( bind( mSocket, lAddress, sizeof( lLocal ) ) == 0, "bind" );
    socklen_t lSize = sizeof( lLocal );
    Require( getsockname( mSocket, lAddress, &lSize ) == 0, "getsockname" );
    mPort = ntohs( lLocal.sin_port );
    Require( pipe2( mStopPipe, O_CLOEXEC ) == 0, "pipe" );
    mThread = std::thread( [this] { Run(); } );
}

CannedResponder::~CannedResponder()
{
    (void)close( mStopPipe[1] ); // the thread sees the pipe's end
    mThread.join();
    (void)close( mStopPipe[0] );
    (void)close( mSocket );
}

std::vector<Bytes> CannedResponder::GetRequests() const
{
    const std::lock_guard<std::mutex> lLock( mMutex );
    return mRequests;
}

bool CannedResponder::HasRequest( int aMilliseconds ) const
{
    pollfd lEntry{ mSocket, POLLIN, 0 };
    return poll( &lEntry, 1, aMilliseconds ) > 0;
}

void CannedResponder::Run()
{
    for ( ;; )
    {
        pollfd lEntries[] = { { mSocket, POLLIN, 0 }, { mStopPipe[0], POLLIN, 0 } };
        Require( poll( lEntries, 2, -1 ) > 0, "poll" );
        if ( lEntries[1].revents != 0 )
        {
            return;
        }
        Bytes lRequest( 2048 );
        sockaddr_in lFrom{};
        socklen_t lSize = sizeof( lFrom );
        const ssize_t lReceived = recvfrom( mSocket, lRequest.data(), lRequest.size(), 0,
                                            reinterpret_cast<sockaddr*>( &lFrom ), &lSize );
        if ( lReceived < 0 )
        {
            continue; // a report about an earlier answer
        }
        lRequest.resize( static_cast<std::size_t>( lReceived ) );
        {
            const std::lock_guard<std::mutex> lLock( mMutex );
            mRequests.push_back( lRequest );
        }
        for ( const Bytes& lAnswer : mHandler( lRequest ) )
        {
            // The sender may have closed its socket by now.
            (void)sendto( mSocket, lAnswer.data(), lAnswer.size(), 0,
                          reinterpret_cast<const sockaddr*>( &lFrom ), lSize );
        }
    }
}

} // namespace TestSupport
