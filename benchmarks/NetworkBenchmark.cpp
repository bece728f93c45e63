// How fast the library talks over the network: an upload by TFTP and a register read by GVCP, each
// beside a bare loop that makes the same system calls with the same datagrams and does nothing
// else: no look at what came, no retry, no lock, no statistics.
//
// All of it runs over loopback and on one processor, so that a round trip is two switches between
// threads. Two processors that wake one another would take several times as long, the same time for
// both, and hide what the library adds.
//
// The ratios are printed at the end, of the shortest times. Run it as root, or where a network
// namespace can be made.

#include "benchmarks/Ratios.h"

#include "tests/support/NetworkNamespace.h"
#include "tests/support/Packets.h"

#include <HtTftpClient.h>
#include <SimpleCommandLinkGEV.h>
#include <WdUtilsLib/GEV/CommandHeader.h>
#include <WdUtilsLib/Network/IpAddress.h>
#include <WdUtilsLib/Network/SocketUDP.h>

#include <benchmark/benchmark.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <system_error>
#include <thread>
#include <vector>

namespace
{

constexpr unsigned short TFTP_PORT = 69;
constexpr std::size_t BLOCK_SIZE = 512;
constexpr std::size_t HEADER_SIZE = 4; // of a block
constexpr std::size_t UPLOAD_SIZE = 256 * 1024;
constexpr std::size_t BUFFER_SIZE = 1024;
constexpr int REPETITIONS = 20; // short ones, so that some are undisturbed on a busy machine
constexpr double REPETITION_S = 0.1;

using TestSupport::Bytes;

sockaddr_in MakeAddress( unsigned short aPort )
{
    sockaddr_in lAddress{};
    lAddress.sin_family = AF_INET;
    lAddress.sin_addr.s_addr = htonl( INADDR_LOOPBACK );
    lAddress.sin_port = htons( aPort );
    return lAddress;
}

// A socket with nothing around it.
class BareSocket
{
public:
    explicit BareSocket( unsigned short aPort = 0 )
        : mNumber( socket( AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0 ) )
    {
        const sockaddr_in lLocal = MakeAddress( aPort );
        Require( mNumber >= 0 && bind( mNumber, reinterpret_cast<const sockaddr*>( &lLocal ),
                                       sizeof( lLocal ) ) == 0 );
    }
    ~BareSocket() { (void)close( mNumber ); }

    BareSocket( const BareSocket& ) = delete;
    BareSocket& operator=( const BareSocket& ) = delete;

    static void Require( bool aHolds )
    {
        if ( !aHolds )
        {
            throw std::system_error( errno, std::generic_category() );
        }
    }

    int GetNumber() const { return mNumber; }

    unsigned short GetPort() const
    {
        sockaddr_in lLocal{};
        socklen_t lSize = sizeof( lLocal );
        Require( getsockname( mNumber, reinterpret_cast<sockaddr*>( &lLocal ), &lSize ) == 0 );
        return ntohs( lLocal.sin_port );
    }

    void SetTimeout( int aMilliseconds )
    {
        timeval lTime{};
        lTime.tv_sec = aMilliseconds / 1000;
        lTime.tv_usec = aMilliseconds % 1000 * 1000;
        Require( setsockopt( mNumber, SOL_SOCKET, SO_RCVTIMEO, &lTime, sizeof( lTime ) ) == 0 );
    }

    void Connect( unsigned short aPort )
    {
        const sockaddr_in lPeer = MakeAddress( aPort );
        Require( connect( mNumber, reinterpret_cast<const sockaddr*>( &lPeer ), sizeof( lPeer ) ) ==
                 0 );
    }

    bool SendTo( const void* aData, std::size_t aSize, const sockaddr_in& aTo )
    {
        return sendto( mNumber, aData, aSize, MSG_NOSIGNAL,
                       reinterpret_cast<const sockaddr*>( &aTo ), sizeof( aTo ) ) >= 0;
    }

    // -1 when nothing came in time.
    ssize_t ReceiveFrom( void* aBuffer, std::size_t aSize, sockaddr_in* aFrom )
    {
        socklen_t lSize = sizeof( *aFrom );
        return recvfrom( mNumber, aBuffer, aSize, 0, reinterpret_cast<sockaddr*>( aFrom ), &lSize );
    }

private:
    const int mNumber;
};

// Takes uploads one after the other and stores nothing: as little as a server can do. Datagrams of
// one byte end it.
class UploadServer
{
public:
    UploadServer()
        : mListener( TFTP_PORT )
        , mThread( [this] { Run(); } )
    {
    }
    ~UploadServer()
    {
        BareSocket lSocket;
        (void)lSocket.SendTo( "", 1, MakeAddress( TFTP_PORT ) );
        mThread.join();
    }

    UploadServer( const UploadServer& ) = delete;
    UploadServer& operator=( const UploadServer& ) = delete;

private:
    void Run()
    {
        mTransfer.SetTimeout( 200 ); // a request that came again has nothing behind it
        sockaddr_in lFrom{};
        std::uint8_t lPacket[BUFFER_SIZE];
        while ( mListener.ReceiveFrom( lPacket, sizeof( lPacket ), &lFrom ) != 1 )
        {
            std::memcpy( lPacket, "\0\4\0\0", HEADER_SIZE ); // the offer is taken
            ssize_t lCount = 0;
            do
            {
                lPacket[1] = 4;
                (void)mTransfer.SendTo( lPacket, HEADER_SIZE, lFrom );
                lCount = mTransfer.ReceiveFrom( lPacket, sizeof( lPacket ), &lFrom );
            } while ( lCount == static_cast<ssize_t>( HEADER_SIZE + BLOCK_SIZE ) );
            if ( lCount >= 0 )
            {
                lPacket[1] = 4;
                (void)mTransfer.SendTo( lPacket, HEADER_SIZE, lFrom );
            }
        }
    }

    BareSocket mListener;
    BareSocket mTransfer;
    std::thread mThread;
};

// Answers each READREG with the same value. Datagrams of one byte end it.
class RegisterServer
{
public:
    RegisterServer()
        : mThread( [this] { Run(); } )
    {
    }
    ~RegisterServer()
    {
        BareSocket lSocket;
        (void)lSocket.SendTo( "", 1, MakeAddress( GetPort() ) );
        mThread.join();
    }

    RegisterServer( const RegisterServer& ) = delete;
    RegisterServer& operator=( const RegisterServer& ) = delete;

    unsigned short GetPort() const { return mSocket.GetPort(); }

private:
    void Run()
    {
        sockaddr_in lFrom{};
        std::uint8_t lCommand[BUFFER_SIZE];
        while ( mSocket.ReceiveFrom( lCommand, sizeof( lCommand ), &lFrom ) != 1 )
        {
            const std::uint8_t lAcknowledge[] = {
                0x00,        0x00,                    // status: success
                0x00,        0x81,                    // READREG acknowledge
                0x00,        0x04,                    // length
                lCommand[6], lCommand[7],             // acknowledge identifier
                0x01,        0x02,        0x03, 0x04, // value
            };
            (void)mSocket.SendTo( lAcknowledge, sizeof( lAcknowledge ), lFrom );
        }
    }

    BareSocket mSocket;
    std::thread mThread;
};

Bytes MakeContent()
{
    Bytes lContent( UPLOAD_SIZE );
    std::uint32_t lState = 1;
    for ( std::uint8_t& lByte : lContent )
    {
        lState = lState * 1664525U + 1013904223U;
        lByte = static_cast<std::uint8_t>( lState >> 24 );
    }
    return lContent;
}

// Sends the offer, then block after block, each when the one before is acknowledged.
bool UploadBarely( const Bytes& aContent )
{
    BareSocket lSocket;
    lSocket.SetTimeout( 1000 );
    sockaddr_in lPeer = MakeAddress( TFTP_PORT );
    std::uint8_t lPacket[BUFFER_SIZE];
    constexpr char OFFER[] = "\0\2a.bin\0octet"; // with its last zero
    (void)lSocket.SendTo( OFFER, sizeof( OFFER ), lPeer );
    bool lIsTaken = lSocket.ReceiveFrom( lPacket, sizeof( lPacket ), &lPeer ) == HEADER_SIZE;
    std::size_t lLength = BLOCK_SIZE;
    std::uint16_t lBlock = 1;
    for ( std::size_t lDone = 0; lIsTaken && lLength == BLOCK_SIZE; lDone += lLength, ++lBlock )
    {
        lLength = std::min( BLOCK_SIZE, aContent.size() - lDone );
        lPacket[0] = 0;
        lPacket[1] = 3;
        lPacket[2] = static_cast<std::uint8_t>( lBlock >> 8 );
        lPacket[3] = static_cast<std::uint8_t>( lBlock );
        std::memcpy( lPacket + HEADER_SIZE, aContent.data() + lDone, lLength );
        (void)lSocket.SendTo( lPacket, HEADER_SIZE + lLength, lPeer );
        lIsTaken = lSocket.ReceiveFrom( lPacket, sizeof( lPacket ), &lPeer ) == HEADER_SIZE;
    }
    return lIsTaken;
}

template <typename Upload>
void RunUploads( benchmark::State& aState, Upload aUpload )
{
    const Bytes lContent = MakeContent();
    const UploadServer lServer;
    for ( auto lUnused : aState )
    {
        (void)lUnused;
        if ( !aUpload( lContent ) )
        {
            aState.SkipWithError( "the upload failed" );
        }
    }
    aState.SetBytesProcessed( aState.iterations() * static_cast<std::int64_t>( UPLOAD_SIZE ) );
    aState.SetItemsProcessed( aState.iterations() *
                              static_cast<std::int64_t>( UPLOAD_SIZE / BLOCK_SIZE + 1 ) );
}

void BareUpload( benchmark::State& aState )
{
    RunUploads( aState, UploadBarely );
}

void TftpUpload( benchmark::State& aState )
{
    HtTftpClient lClient;
    if ( !lClient.Init( "127.0.0.1", "a.bin" ).IsOK() )
    {
        aState.SkipWithError( "no client" );
    }
    RunUploads( aState,
                [&lClient]( const Bytes& aContent )
                {
                    return lClient
                        .SendData( aContent.data(), static_cast<unsigned int>( aContent.size() ) )
                        .IsOK();
                } );
}

// Sends the command and waits for as long as a link does.
bool ReadBarely( BareSocket& aSocket )
{
    constexpr std::uint8_t COMMAND[] = {
        0x42, 0x01,             // key, acknowledge required
        0x00, 0x80,             // READREG
        0x00, 0x04,             // length
        0x00, 0x01,             // request identifier
        0x00, 0x00, 0x09, 0x34, // address
    };
    std::uint8_t lAnswer[BUFFER_SIZE];
    pollfd lEntry{ aSocket.GetNumber(), POLLIN, 0 };
    return send( aSocket.GetNumber(), COMMAND, sizeof( COMMAND ), MSG_NOSIGNAL ) >= 0 &&
           poll( &lEntry, 1, 400 ) == 1 &&
           recv( aSocket.GetNumber(), lAnswer, sizeof( lAnswer ), MSG_DONTWAIT ) == 12;
}

void BareRead( benchmark::State& aState )
{
    const RegisterServer lServer;
    BareSocket lSocket;
    lSocket.Connect( lServer.GetPort() );
    for ( auto lUnused : aState )
    {
        (void)lUnused;
        if ( !ReadBarely( lSocket ) )
        {
            aState.SkipWithError( "no answer" );
        }
    }
    aState.SetItemsProcessed( aState.iterations() );
}

void RegisterRead( benchmark::State& aState )
{
    const RegisterServer lServer;
    WdUtilsLib::Network::SocketUDP lSocket;
    if ( !lSocket.Open().IsOK() ||
         !lSocket.Connect( WdUtilsLib::Network::IpAddress( INADDR_LOOPBACK ), lServer.GetPort() )
              .IsOK() )
    {
        aState.SkipWithError( "no socket" );
    }
    HtBaseLib::SimpleCommandLinkGEV lLink( &lSocket );
    for ( auto lUnused : aState )
    {
        (void)lUnused;
        unsigned int lValue = 0;
        if ( !lLink.ReadRegister( &lValue, 0x0934 ).IsOK() || lValue != 0x01020304 )
        {
            aState.SkipWithError( "no answer" );
        }
    }
    aState.SetItemsProcessed( aState.iterations() );
}

BENCHMARK( BareUpload )->UseRealTime()->MinTime( REPETITION_S )->Repetitions( REPETITIONS );
BENCHMARK( TftpUpload )->UseRealTime()->MinTime( REPETITION_S )->Repetitions( REPETITIONS );
BENCHMARK( BareRead )->UseRealTime()->MinTime( REPETITION_S )->Repetitions( REPETITIONS );
BENCHMARK( RegisterRead )->UseRealTime()->MinTime( REPETITION_S )->Repetitions( REPETITIONS );

// This thread, and those that it starts, keep to the processor that it is on.
bool StayOnOneProcessor()
{
    cpu_set_t lProcessors;
    CPU_ZERO( &lProcessors );
    CPU_SET( static_cast<std::size_t>( sched_getcpu() ), &lProcessors );
    return sched_setaffinity( 0, sizeof( lProcessors ), &lProcessors ) == 0;
}

} // namespace

int main( int aCount, char** aArguments )
{
    const std::string lReason = TestSupport::EnterTftpNetwork();
    if ( !lReason.empty() )
    {
        std::fprintf( stderr, "%s\n", lReason.c_str() );
        return 1;
    }
    if ( !StayOnOneProcessor() )
    {
        std::fprintf( stderr, "no processor can be chosen: the times will differ more\n" );
    }
    return Benchmarks::RunAndCompare( aCount, aArguments, Benchmarks::Clock::REAL,
                                      { { "upload", "TftpUpload", "BareUpload" },
                                        { "register read", "RegisterRead", "BareRead" } } );
}
