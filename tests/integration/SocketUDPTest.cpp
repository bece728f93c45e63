// The UDP socket over the loopback interface, in real time.

#include "tests/support/AllocationCounter.h"
#include "tests/support/NetworkNamespace.h"

#include <QmUtilsLib/Result.h>
#include <QmUtilsLib/Thread.h>
#include <WdUtilsLib/Network/IpAddress.h>
#include <WdUtilsLib/Network/SocketUDP.h>

#include <gtest/gtest.h>

#include <dirent.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace
{

using QmUtilsLib::Result;
using QmUtilsLib::Thread;
using TestSupport::AllocationFailure;
using WdUtilsLib::Network::IpAddress;
using WdUtilsLib::Network::SocketUDP;

const IpAddress LOOPBACK( 0x7F000001 );

// Long enough for the slowest machine; a test that waits so long has failed.
constexpr unsigned int LONG_MS = 20000;

void ExpectSystemError( const Result& aResult, int aError )
{
    EXPECT_EQ( aResult.GetCode(), Result::GENERIC_ERROR );
    EXPECT_EQ( aResult.GetOSCode(), static_cast<unsigned int>( aError ) );
}

Result SendText( SocketUDP& aSocket, const std::string& aText )
{
    return aSocket.Send( aText.data(), static_cast<int>( aText.size() ) );
}

// What arrives next within the longest time; the code's name when nothing does.
std::string ReceiveText( SocketUDP& aSocket )
{
    char lBuffer[2048];
    int lReceived = 0;
    (void)aSocket.SetTimeoutRx( LONG_MS ); // a closed socket fails in the receive
    const Result lResult = aSocket.Receive( lBuffer, sizeof( lBuffer ), lReceived );
    return lResult.IsOK() ? std::string( lBuffer, static_cast<std::size_t>( lReceived ) )
                          : lResult.GetCodeString();
}

// True when nothing is there to receive now.
bool IsSilent( SocketUDP& aSocket )
{
    SocketUDP* lSockets[] = { &aSocket };
    return SocketUDP::SelectOnRx( lSockets, 1, 0, nullptr ) == nullptr;
}

// Waits until something, an error included, is there.
bool WaitReadable( SocketUDP& aSocket )
{
    SocketUDP* lSockets[] = { &aSocket };
    return SocketUDP::SelectOnRx( lSockets, 1, LONG_MS, nullptr ) == &aSocket;
}

// A port of the loopback interface on which no program listens.
unsigned short GetDeadPort()
{
    SocketUDP lSocket;
    EXPECT_TRUE( lSocket.Open( &LOOPBACK ).IsOK() );
    return lSocket.GetLocalPort();
}

std::size_t CountDescriptors()
{
    std::size_t lCount = 0;
    DIR* const lDirectory = opendir( "/proc/self/fd" );
    while ( lDirectory != nullptr && readdir( lDirectory ) != nullptr )
    {
        ++lCount;
    }
    if ( lDirectory != nullptr )
    {
        (void)closedir( lDirectory );
    }
    return lCount;
}

// The time-out that the system has for the only socket of this process, in milliseconds.
long long GetTimeoutOfTheSystem()
{
    timeval lTime{};
    socklen_t lSize = sizeof( lTime );
    int lNumber = 0;
    while ( lNumber < 1024 && getsockopt( lNumber, SOL_SOCKET, SO_RCVTIMEO, &lTime, &lSize ) != 0 )
    {
        ++lNumber;
    }
    EXPECT_LT( lNumber, 1024 );
    return lTime.tv_sec * 1000LL + lTime.tv_usec / 1000;
}

// How long something takes, in milliseconds.
long long Measure( const std::function<void()>& aAction )
{
    const long long lStart = Thread::GetTickCount();
    aAction();
    return Thread::GetTickCount() - lStart;
}

std::atomic<int> gSignals{ 0 };

void CountSignal( int )
{
    gSignals.fetch_add( 1 );
}

// Sends the thread that makes it a signal every millisecond. System calls are not restarted.
class SignalStorm
{
public:
    SignalStorm()
    {
        struct sigaction lAction = {};
        lAction.sa_handler = CountSignal;
        EXPECT_EQ( sigaction( SIGUSR1, &lAction, &mOldAction ), 0 );
        gSignals = 0;
        const pthread_t lTarget = pthread_self();
        mThread = std::thread(
            [this, lTarget]
            {
                while ( !mStop )
                {
                    (void)pthread_kill( lTarget, SIGUSR1 ); // the target outlives this thread
                    std::this_thread::sleep_for( std::chrono::milliseconds( 1 ) );
                }
            } );
    }

    ~SignalStorm()
    {
        mStop = true;
        mThread.join();
        (void)sigaction( SIGUSR1, &mOldAction, nullptr ); // was valid before
    }

    SignalStorm( const SignalStorm& ) = delete;
    SignalStorm& operator=( const SignalStorm& ) = delete;

private:
    struct sigaction mOldAction = {};
    std::atomic<bool> mStop{ false };
    std::thread mThread;
};

// Two sockets that are each other's peer.
class SocketPair : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE( mHost.Open( &LOOPBACK ).IsOK() );
        ASSERT_TRUE( mDevice.Open( &LOOPBACK ).IsOK() );
        ASSERT_TRUE( mHost.Connect( LOOPBACK, mDevice.GetLocalPort() ).IsOK() );
        ASSERT_TRUE( mDevice.Connect( LOOPBACK, mHost.GetLocalPort() ).IsOK() );
    }

    SocketUDP mHost;
    SocketUDP mDevice;
};

// A receive that must fail and leave everything as it was.
void ExpectReceiveLeavesAll( SocketUDP& aSocket, const Result& aExpected )
{
    char lBuffer[8] = { 1, 2, 3, 4, 5, 6, 7, 8 };
    int lReceived = -77;
    IpAddress lAddress( 0x01020304 );
    unsigned short lPort = 4711;
    for ( const bool lWithSender : { false, true } )
    {
        const Result lResult =
            lWithSender
                ? aSocket.ReceiveFrom( lBuffer, sizeof( lBuffer ), lReceived, lAddress, lPort )
                : aSocket.Receive( lBuffer, sizeof( lBuffer ), lReceived );
        EXPECT_EQ( lResult.GetCode(), aExpected.GetCode() );
        EXPECT_EQ( lResult.GetOSCode(), aExpected.GetOSCode() );
        EXPECT_EQ( std::string( lBuffer, 8 ), "\1\2\3\4\5\6\7\10" );
        EXPECT_EQ( lReceived, -77 );
        EXPECT_EQ( lAddress.GetValue(), 0x01020304U );
        EXPECT_EQ( lPort, 4711 );
    }
}

// The next receive returns the error; the one after it finds nothing.
void ExpectReceiveFailsOnce( SocketUDP& aSocket, int aError )
{
    char lByte = 'x';
    int lReceived = -77;
    ExpectSystemError( aSocket.Receive( &lByte, 1, lReceived ), aError );
    EXPECT_EQ( aSocket.Receive( &lByte, 1, lReceived ).GetCode(), Result::TIMEOUT );
    EXPECT_EQ( lReceived, -77 );
}

void ExpectEverythingNotConnected( SocketUDP& aSocket )
{
    EXPECT_FALSE( aSocket.IsOpened() );
    EXPECT_EQ( aSocket.Connect( LOOPBACK, 9 ).GetCode(), Result::NOT_CONNECTED );
    EXPECT_EQ( aSocket.SetBroadcast( true ).GetCode(), Result::NOT_CONNECTED );
    EXPECT_EQ( aSocket.Send( "x", 1 ).GetCode(), Result::NOT_CONNECTED );
    EXPECT_EQ( aSocket.SendTo( "x", 1, LOOPBACK, 9 ).GetCode(), Result::NOT_CONNECTED );
    EXPECT_EQ( aSocket.SetTimeoutRx( 1 ).GetCode(), Result::NOT_CONNECTED );
    ExpectReceiveLeavesAll( aSocket, Result( Result::NOT_CONNECTED ) );
    EXPECT_EQ( aSocket.GetLocalAddress(), IpAddress() );
    EXPECT_EQ( aSocket.GetLocalPort(), 0 );
    EXPECT_TRUE( aSocket.Close().IsOK() );
}

} // namespace

TEST( SocketUDP, OnAClosedSocketEveryCallReturnsNotConnected )
{
    SocketUDP lSocket;
    ExpectEverythingNotConnected( lSocket );
    ASSERT_TRUE( lSocket.Open( &LOOPBACK ).IsOK() );
    EXPECT_TRUE( lSocket.IsOpened() );
    EXPECT_TRUE( lSocket.Close().IsOK() );
    ExpectEverythingNotConnected( lSocket );
}

TEST( SocketUDP, AClosedSocketCountsAsReadable )
{
    SocketUDP lOpen;
    SocketUDP lClosed;
    ASSERT_TRUE( lOpen.Open( &LOOPBACK ).IsOK() );
    SocketUDP* lSockets[] = { &lOpen, &lClosed };
    unsigned int lIndex = 77;
    EXPECT_LT(
        Measure(
            [&]
            { EXPECT_EQ( SocketUDP::SelectOnRx( lSockets, 2, LONG_MS, &lIndex ), &lClosed ); } ),
        LONG_MS );
    EXPECT_EQ( lIndex, 1U );
}

TEST( SocketUDP, OpenBindsToTheGivenAddressAndPort )
{
    SocketUDP lChosen;
    ASSERT_TRUE( lChosen.Open( &LOOPBACK ).IsOK() );
    EXPECT_EQ( lChosen.GetLocalAddress(), LOOPBACK );
    EXPECT_NE( lChosen.GetLocalPort(), 0 );

    SocketUDP lAny;
    ASSERT_TRUE( lAny.Open().IsOK() );
    EXPECT_EQ( lAny.GetLocalAddress(), IpAddress() );
    EXPECT_NE( lAny.GetLocalPort(), lChosen.GetLocalPort() );

    const unsigned short lPort = GetDeadPort();
    SocketUDP lGiven;
    ASSERT_TRUE( lGiven.Open( &LOOPBACK, lPort ).IsOK() );
    EXPECT_EQ( lGiven.GetLocalPort(), lPort );
}

TEST( SocketUDP, OpenReportsWhyItFailed )
{
    SocketUDP lFirst;
    ASSERT_TRUE( lFirst.Open( &LOOPBACK ).IsOK() );
    const std::size_t lDescriptors = CountDescriptors();

    SocketUDP lSecond;
    ExpectSystemError( lSecond.Open( &LOOPBACK, lFirst.GetLocalPort() ), EADDRINUSE );
    EXPECT_FALSE( lSecond.IsOpened() );
    const IpAddress lForeign( 0xC0000201 ); // 192.0.2.1, for documents only
    ExpectSystemError( lSecond.Open( &lForeign ), EADDRNOTAVAIL );
    EXPECT_FALSE( lSecond.IsOpened() );
    EXPECT_EQ( CountDescriptors(), lDescriptors );
}

TEST( SocketUDP, OpenOfAnOpenSocketReopensIt )
{
    SocketUDP lSocket;
    SocketUDP lSender;
    ASSERT_TRUE( lSender.Open( &LOOPBACK ).IsOK() );
    ASSERT_TRUE( lSocket.Open( &LOOPBACK ).IsOK() );
    ASSERT_TRUE( lSocket.SetTimeoutRx( LONG_MS ).IsOK() );
    const unsigned short lOldPort = lSocket.GetLocalPort();
    ASSERT_TRUE( lSender.SendTo( "old", 3, LOOPBACK, lOldPort ).IsOK() );
    ASSERT_TRUE( WaitReadable( lSocket ) );
    const std::size_t lDescriptors = CountDescriptors();

    // The port was released, so it can be opened again. The datagrams that had arrived are lost,
    // and the receive time-out is the default again.
    ASSERT_TRUE( lSocket.Open( &LOOPBACK, lOldPort ).IsOK() );
    EXPECT_EQ( CountDescriptors(), lDescriptors );
    EXPECT_TRUE( lSocket.IsOpened() );
    EXPECT_LT( Measure( [&] { ExpectReceiveLeavesAll( lSocket, Result( Result::TIMEOUT ) ); } ),
               LONG_MS );
    ASSERT_TRUE( lSender.SendTo( "new", 3, LOOPBACK, lOldPort ).IsOK() );
    EXPECT_EQ( ReceiveText( lSocket ), "new" );
}

TEST( SocketUDP, AFailedReopenLeavesTheSocketClosed )
{
    SocketUDP lOther;
    SocketUDP lSocket;
    ASSERT_TRUE( lOther.Open( &LOOPBACK ).IsOK() );
    ASSERT_TRUE( lSocket.Open( &LOOPBACK ).IsOK() );
    ExpectSystemError( lSocket.Open( &LOOPBACK, lOther.GetLocalPort() ), EADDRINUSE );
    ExpectEverythingNotConnected( lSocket );
    EXPECT_TRUE( lSocket.Open( &LOOPBACK ).IsOK() );
}

TEST( SocketUDP, OpenWithoutMemoryLeavesNoDescriptorBehind )
{
    SocketUDP lSocket;
    const std::size_t lDescriptors = CountDescriptors();
    int lFailures = 0;
    for ( unsigned long long lNumber = 1;; ++lNumber )
    {
        Result lResult;
        bool lHasFailed = false;
        {
            const AllocationFailure lFailure( lNumber );
            lResult = lSocket.Open( &LOOPBACK );
            lHasFailed = lFailure.HasHappened();
        }
        if ( !lHasFailed )
        {
            EXPECT_TRUE( lResult.IsOK() );
            break;
        }
        ++lFailures;
        ExpectSystemError( lResult, ENOMEM );
        ExpectEverythingNotConnected( lSocket );
        EXPECT_EQ( CountDescriptors(), lDescriptors );
    }
    EXPECT_GT( lFailures, 0 );
    EXPECT_EQ( CountDescriptors(), lDescriptors + 1 );
}

TEST( SocketUDP, AddressesAreSharedWhereAllAgree )
{
    SocketUDP lFirst;
    SocketUDP lSecond;
    SocketUDP lSelfish;
    ASSERT_TRUE( lFirst.Open( &LOOPBACK, 0, true ).IsOK() );
    const unsigned short lPort = lFirst.GetLocalPort();
    EXPECT_TRUE( lSecond.Open( &LOOPBACK, lPort, true ).IsOK() );
    EXPECT_EQ( lSecond.GetLocalPort(), lPort );
    ExpectSystemError( lSelfish.Open( &LOOPBACK, lPort, false ), EADDRINUSE );
    // As a device does that receives broadcasts besides those to its own address.
    SocketUDP lBroadcasts;
    EXPECT_TRUE( lBroadcasts.Open( nullptr, lPort, true ).IsOK() );
}

TEST_F( SocketPair, DatagramsOfEverySizeArriveWhole )
{
    std::vector<char> lBuffer( 65536 );
    ASSERT_TRUE( mDevice.SetTimeoutRx( LONG_MS ).IsOK() );
    for ( const int lSize : { 1, 8, 548, 1472, 9000, 65507 } )
    {
        const std::string lText( static_cast<std::size_t>( lSize ), 'x' );
        ASSERT_TRUE( SendText( mHost, lText ).IsOK() );
        int lReceived = 0;
        ASSERT_TRUE( mDevice.Receive( lBuffer.data(), 65536, lReceived ).IsOK() );
        EXPECT_EQ( lReceived, lSize );
        EXPECT_EQ( std::string( lBuffer.data(), static_cast<std::size_t>( lReceived ) ), lText );
    }
}

TEST_F( SocketPair, AnEmptyDatagramArrives )
{
    ASSERT_TRUE( mHost.Send( nullptr, 0 ).IsOK() );
    ASSERT_TRUE( SendText( mHost, "next" ).IsOK() );
    ASSERT_TRUE( WaitReadable( mDevice ) );
    char lBuffer[4] = { 'a', 'b', 'c', 'd' };
    int lReceived = -1;
    EXPECT_TRUE( mDevice.Receive( lBuffer, 4, lReceived ).IsOK() );
    EXPECT_EQ( lReceived, 0 );
    EXPECT_EQ( std::string( lBuffer, 4 ), "abcd" );
    EXPECT_EQ( ReceiveText( mDevice ), "next" );
}

TEST_F( SocketPair, ADatagramIsTruncatedToTheBuffer )
{
    ASSERT_TRUE( SendText( mHost, "0123456789" ).IsOK() );
    ASSERT_TRUE( SendText( mHost, "unheard" ).IsOK() );
    ASSERT_TRUE( SendText( mHost, "next" ).IsOK() );
    ASSERT_TRUE( mDevice.SetTimeoutRx( LONG_MS ).IsOK() );
    char lBuffer[8] = { '#', '#', '#', '#', '#', '#', '#', '#' };
    int lReceived = 0;
    ASSERT_TRUE( mDevice.Receive( lBuffer, 4, lReceived ).IsOK() );
    EXPECT_EQ( lReceived, 4 );
    EXPECT_EQ( std::string( lBuffer, 8 ), "0123####" );
    ASSERT_TRUE( mDevice.Receive( nullptr, 0, lReceived ).IsOK() ); // cut to nothing
    EXPECT_EQ( lReceived, 0 );
    EXPECT_EQ( ReceiveText( mDevice ), "next" );
}

TEST_F( SocketPair, InvalidLengthsAreRefused )
{
    ExpectSystemError( mHost.Send( "x", -1 ), EINVAL );
    ExpectSystemError( mHost.SendTo( "x", -1, LOOPBACK, mDevice.GetLocalPort() ), EINVAL );
    const std::string lTooLong( 65508, 'x' );
    ExpectSystemError( SendText( mHost, lTooLong ), EMSGSIZE );
    EXPECT_TRUE( IsSilent( mDevice ) );
    int lReceived = -77;
    char lByte = 'x';
    ExpectSystemError( mDevice.Receive( &lByte, -1, lReceived ), EINVAL );
    EXPECT_EQ( lReceived, -77 );
}

TEST_F( SocketPair, ReceiveFromReportsTheSender )
{
    SocketUDP lListener;
    ASSERT_TRUE( lListener.Open( &LOOPBACK ).IsOK() );
    ASSERT_TRUE( lListener.SetTimeoutRx( LONG_MS ).IsOK() );
    ASSERT_TRUE( mHost.SendTo( "a", 1, LOOPBACK, lListener.GetLocalPort() ).IsOK() );
    SocketUDP lElsewhere;
    const IpAddress lOtherAddress( 0x7F010203 );
    ASSERT_TRUE( lElsewhere.Open( &lOtherAddress ).IsOK() );
    ASSERT_TRUE( lElsewhere.SendTo( "b", 1, LOOPBACK, lListener.GetLocalPort() ).IsOK() );

    char lByte = '\0';
    int lReceived = 0;
    IpAddress lAddress;
    unsigned short lPort = 0;
    ASSERT_TRUE( lListener.ReceiveFrom( &lByte, 1, lReceived, lAddress, lPort ).IsOK() );
    EXPECT_EQ( lByte, 'a' );
    EXPECT_EQ( lAddress, LOOPBACK );
    EXPECT_EQ( lPort, mHost.GetLocalPort() );
    ASSERT_TRUE( lListener.ReceiveFrom( &lByte, 1, lReceived, lAddress, lPort ).IsOK() );
    EXPECT_EQ( lByte, 'b' );
    EXPECT_EQ( lAddress, lOtherAddress );
    EXPECT_EQ( lPort, lElsewhere.GetLocalPort() );
}

TEST_F( SocketPair, AConnectedSocketReceivesOnlyFromItsPeer )
{
    SocketUDP lStranger;
    ASSERT_TRUE( lStranger.Open( &LOOPBACK ).IsOK() );
    ASSERT_TRUE( lStranger.SendTo( "stranger", 8, LOOPBACK, mHost.GetLocalPort() ).IsOK() );
    ASSERT_TRUE( SendText( mDevice, "peer" ).IsOK() );
    EXPECT_EQ( ReceiveText( mHost ), "peer" );
    EXPECT_TRUE( IsSilent( mHost ) );
}

TEST_F( SocketPair, ConnectDropsDatagramsThatArrivedBefore )
{
    SocketUDP lSocket;
    SocketUDP lStranger;
    ASSERT_TRUE( lSocket.Open( &LOOPBACK ).IsOK() );
    ASSERT_TRUE( lStranger.Open( &LOOPBACK ).IsOK() );
    for ( const std::string lText : { "first", "", "third" } )
    {
        ASSERT_TRUE( lStranger
                         .SendTo( lText.data(), static_cast<int>( lText.size() ), LOOPBACK,
                                  lSocket.GetLocalPort() )
                         .IsOK() );
    }
    ASSERT_TRUE( WaitReadable( lSocket ) );
    ASSERT_TRUE( lSocket.Connect( LOOPBACK, mDevice.GetLocalPort() ).IsOK() );
    EXPECT_TRUE( IsSilent( lSocket ) );
    ASSERT_TRUE( mDevice.SendTo( "peer", 4, LOOPBACK, lSocket.GetLocalPort() ).IsOK() );
    EXPECT_EQ( ReceiveText( lSocket ), "peer" );
    EXPECT_TRUE( IsSilent( lSocket ) );
}

TEST_F( SocketPair, ConnectDropsDatagramsOfAnEarlierPeer )
{
    SocketUDP lSocket;
    ASSERT_TRUE( lSocket.Open( &LOOPBACK ).IsOK() );
    ASSERT_TRUE( lSocket.Connect( LOOPBACK, mHost.GetLocalPort() ).IsOK() );
    ASSERT_TRUE( mHost.SendTo( "late", 4, LOOPBACK, lSocket.GetLocalPort() ).IsOK() );
    ASSERT_TRUE( lSocket.Connect( LOOPBACK, GetDeadPort() ).IsOK() );
    EXPECT_TRUE( IsSilent( lSocket ) );
    ASSERT_TRUE( lSocket.Send( "x", 1 ).IsOK() );
    ASSERT_TRUE( WaitReadable( lSocket ) ); // the report that no program listens there
    ASSERT_TRUE( lSocket.Connect( LOOPBACK, mDevice.GetLocalPort() ).IsOK() );
    EXPECT_TRUE( IsSilent( lSocket ) );
}

TEST( SocketUDP, SendNeedsAPeer )
{
    SocketUDP lSocket;
    ASSERT_TRUE( lSocket.Open( &LOOPBACK ).IsOK() );
    ExpectSystemError( lSocket.Send( "x", 1 ), EDESTADDRREQ );
}

TEST_F( SocketPair, WithoutATimeOutAReceiveDoesNotWait )
{
    EXPECT_LT( Measure( [&] { ExpectReceiveLeavesAll( mHost, Result( Result::TIMEOUT ) ); } ),
               LONG_MS );
    // Nor where it is taken away again.
    ASSERT_TRUE( mHost.SetTimeoutRx( 10 * LONG_MS ).IsOK() );
    ASSERT_TRUE( mHost.SetTimeoutRx( 0 ).IsOK() );
    EXPECT_LT( Measure( [&] { ExpectReceiveLeavesAll( mHost, Result( Result::TIMEOUT ) ); } ),
               LONG_MS );
    ASSERT_TRUE( SendText( mDevice, "there" ).IsOK() );
    ASSERT_TRUE( WaitReadable( mHost ) );
    char lBuffer[8];
    int lReceived = 0;
    EXPECT_TRUE( mHost.Receive( lBuffer, sizeof( lBuffer ), lReceived ).IsOK() );
    EXPECT_EQ( lReceived, 5 );
}

TEST_F( SocketPair, AReceiveWaitsAsLongAsItsTimeOut )
{
    char lByte = 'x';
    int lReceived = -77;
    for ( const unsigned int lTimeout : { 60U, 1U, 120U, 60U } )
    {
        ASSERT_TRUE( mHost.SetTimeoutRx( lTimeout ).IsOK() );
        for ( int lTime = 0; lTime < 2; ++lTime )
        {
            const long long lElapsed = Measure(
                [&] {
                    EXPECT_EQ( mHost.Receive( &lByte, 1, lReceived ).GetCode(), Result::TIMEOUT );
                } );
            EXPECT_GE( lElapsed, lTimeout );
            EXPECT_LT( lElapsed, LONG_MS );
        }
    }
    EXPECT_EQ( lReceived, -77 );
    EXPECT_EQ( lByte, 'x' );
}

TEST_F( SocketPair, AShorterTimeOutReplacesALongerOne )
{
    ASSERT_TRUE( SendText( mDevice, "there" ).IsOK() );
    EXPECT_EQ( ReceiveText( mHost ), "there" ); // with the long one
    ASSERT_TRUE( mHost.SetTimeoutRx( 20 ).IsOK() );
    EXPECT_LT( Measure( [&] { ExpectReceiveLeavesAll( mHost, Result( Result::TIMEOUT ) ); } ),
               LONG_MS );
}

TEST_F( SocketPair, AReceiveEndsWhenSomethingArrives )
{
    std::thread lSender(
        [this]
        {
            std::this_thread::sleep_for( std::chrono::milliseconds( 30 ) );
            EXPECT_TRUE( SendText( mDevice, "at last" ).IsOK() );
        } );
    EXPECT_LT( Measure( [&] { EXPECT_EQ( ReceiveText( mHost ), "at last" ); } ), LONG_MS );
    lSender.join();
}

// Many waits of different length, since the last signal of a wait has to fall close to its end.
TEST_F( SocketPair, SignalsDoNotShortenAReceive )
{
    char lByte = 'x';
    int lReceived = -77;
    const SignalStorm lStorm;
    for ( unsigned int lTimeout = 20; lTimeout < 40; ++lTimeout )
    {
        ASSERT_TRUE( mHost.SetTimeoutRx( lTimeout ).IsOK() );
        const long long lElapsed = Measure(
            [&]
            { EXPECT_EQ( mHost.Receive( &lByte, 1, lReceived ).GetCode(), Result::TIMEOUT ); } );
        EXPECT_GE( lElapsed, lTimeout );
        EXPECT_LT( lElapsed, LONG_MS );
    }
    EXPECT_GT( gSignals, 20 );
    EXPECT_EQ( lReceived, -77 );
    EXPECT_EQ( lByte, 'x' );
}

TEST_F( SocketPair, SignalsDoNotShortenASelect )
{
    constexpr unsigned int TIMEOUT = 250;
    SocketUDP* lSockets[] = { &mHost };
    unsigned int lIndex = 77;
    const SignalStorm lStorm;
    const long long lElapsed = Measure(
        [&] { EXPECT_EQ( SocketUDP::SelectOnRx( lSockets, 1, TIMEOUT, &lIndex ), nullptr ); } );
    EXPECT_GE( lElapsed, TIMEOUT );
    EXPECT_LT( lElapsed, LONG_MS );
    EXPECT_GT( gSignals, 10 );
    EXPECT_EQ( lIndex, 77U );
}

// Another thread that receives on the socket still waits for its whole time-out.
TEST( SocketUDP, SignalsDoNotChangeTheSocketsTimeOut )
{
    constexpr unsigned int TIMEOUT = 100;
    SocketUDP lSocket;
    ASSERT_TRUE( lSocket.Open( &LOOPBACK ).IsOK() );
    ASSERT_TRUE( lSocket.SetTimeoutRx( TIMEOUT ).IsOK() );
    const SignalStorm lStorm;
    ExpectReceiveLeavesAll( lSocket, Result( Result::TIMEOUT ) );
    EXPECT_GT( gSignals, 10 );
    EXPECT_EQ( GetTimeoutOfTheSystem(), TIMEOUT );
}

TEST_F( SocketPair, AnInterruptedReceiveTakesTheNextDatagram )
{
    gSignals = 0; // the sender counts on it, so before it starts
    std::thread lSender(
        [this]
        {
            while ( gSignals < 20 )
            {
                std::this_thread::sleep_for( std::chrono::milliseconds( 1 ) );
            }
            EXPECT_TRUE( SendText( mDevice, "at last" ).IsOK() );
        } );
    {
        const SignalStorm lStorm;
        EXPECT_LT( Measure( [&] { EXPECT_EQ( ReceiveText( mHost ), "at last" ); } ), LONG_MS );
        EXPECT_GE( gSignals, 20 );
    }
    lSender.join();
}

TEST_F( SocketPair, DatagramsPassThroughSignals )
{
    std::atomic<bool> lStop{ false };
    std::thread lEcho(
        [&]
        {
            while ( !lStop )
            {
                const std::string lText = ReceiveText( mDevice );
                (void)SendText( mDevice, lText ); // the last one finds no receiver
            }
        } );
    {
        const SignalStorm lStorm;
        for ( int lNumber = 0; gSignals < 100; ++lNumber )
        {
            const std::string lText = std::to_string( lNumber );
            ASSERT_TRUE( SendText( mHost, lText ).IsOK() );
            ASSERT_EQ( ReceiveText( mHost ), lText );
        }
    }
    lStop = true;
    EXPECT_TRUE( SendText( mHost, "end" ).IsOK() );
    lEcho.join();
}

TEST( SocketUDP, AReceiveReportsThatNoProgramListens )
{
    SocketUDP lSocket;
    ASSERT_TRUE( lSocket.Open( &LOOPBACK ).IsOK() );
    ASSERT_TRUE( lSocket.Connect( LOOPBACK, GetDeadPort() ).IsOK() );
    ASSERT_TRUE( lSocket.Send( "x", 1 ).IsOK() );
    ASSERT_TRUE( WaitReadable( lSocket ) ); // an error counts
    char lByte = 'y';
    int lReceived = -77;
    ExpectSystemError( lSocket.Receive( &lByte, 1, lReceived ), ECONNREFUSED );
    EXPECT_EQ( lReceived, -77 );
    EXPECT_EQ( lByte, 'y' );
    EXPECT_EQ( lSocket.Receive( &lByte, 1, lReceived ).GetCode(),
               Result::TIMEOUT ); // reported once
}

TEST( SocketUDP, ASendIsRepeatedAfterThePendingErrorOfAnEarlierOne )
{
    const unsigned short lPort = GetDeadPort();
    SocketUDP lSocket;
    ASSERT_TRUE( lSocket.Open( &LOOPBACK ).IsOK() );
    ASSERT_TRUE( lSocket.Connect( LOOPBACK, lPort ).IsOK() );
    for ( int lTime = 0; lTime < 3; ++lTime )
    {
        EXPECT_TRUE( SendText( lSocket, "unheard" ).IsOK() );
        ASSERT_TRUE( WaitReadable( lSocket ) ); // the report is there and will refuse the next
    }
    SocketUDP lListener;
    ASSERT_TRUE( lListener.Open( &LOOPBACK, lPort ).IsOK() );
    EXPECT_TRUE( SendText( lSocket, "heard" ).IsOK() );
    EXPECT_EQ( ReceiveText( lListener ), "heard" );
    EXPECT_TRUE( IsSilent( lListener ) );
    EXPECT_TRUE( IsSilent( lSocket ) );
}

TEST_F( SocketPair, SelectWaitsAndLeavesTheIndexWhenNothingComes )
{
    SocketUDP* lSockets[] = { &mHost, &mDevice };
    unsigned int lIndex = 77;
    const long long lElapsed =
        Measure( [&] { EXPECT_EQ( SocketUDP::SelectOnRx( lSockets, 2, 80, &lIndex ), nullptr ); } );
    EXPECT_GE( lElapsed, 80 );
    EXPECT_LT( lElapsed, LONG_MS );
    EXPECT_LT(
        Measure( [&] { EXPECT_EQ( SocketUDP::SelectOnRx( lSockets, 2, 0, &lIndex ), nullptr ); } ),
        LONG_MS );
    EXPECT_EQ( lIndex, 77U );
}

TEST_F( SocketPair, SelectEndsWhenSomethingArrives )
{
    std::thread lSender(
        [this]
        {
            std::this_thread::sleep_for( std::chrono::milliseconds( 30 ) );
            EXPECT_TRUE( SendText( mHost, "x" ).IsOK() );
        } );
    EXPECT_LT( Measure( [&] { EXPECT_TRUE( WaitReadable( mDevice ) ); } ), LONG_MS );
    lSender.join();
}

// A long wait for one socket receives: what it has received counts for everything that follows.

TEST_F( SocketPair, WhatAWaitHasReceivedIsReadableForEveryWait )
{
    SocketUDP* lSockets[] = { &mDevice, &mHost };
    unsigned int lIndex = 77;
    ASSERT_TRUE( SendText( mDevice, "x" ).IsOK() );
    ASSERT_TRUE( WaitReadable( mHost ) );
    EXPECT_TRUE( WaitReadable( mHost ) );
    EXPECT_FALSE( IsSilent( mHost ) );
    EXPECT_EQ( SocketUDP::SelectOnRx( lSockets, 2, LONG_MS, &lIndex ), &mHost );
    EXPECT_EQ( lIndex, 1U );
    EXPECT_EQ( ReceiveText( mHost ), "x" );
    EXPECT_TRUE( IsSilent( mHost ) );
}

TEST_F( SocketPair, WhatAWaitHasReceivedIsCutToTheBuffer )
{
    for ( const bool lIsEmpty : { false, true } )
    {
        ASSERT_TRUE( SendText( mDevice, lIsEmpty ? "" : "abcdef" ).IsOK() );
        ASSERT_TRUE( WaitReadable( mHost ) );
        char lBuffer[4] = { 'w', 'x', 'y', 'z' };
        int lReceived = -77;
        IpAddress lAddress;
        unsigned short lPort = 0;
        EXPECT_TRUE( mHost.ReceiveFrom( lBuffer, 3, lReceived, lAddress, lPort ).IsOK() );
        EXPECT_EQ( lReceived, lIsEmpty ? 0 : 3 );
        EXPECT_EQ( std::string( lBuffer, 4 ), lIsEmpty ? "wxyz" : "abcz" );
        EXPECT_EQ( lAddress, LOOPBACK );
        EXPECT_EQ( lPort, mDevice.GetLocalPort() );
        EXPECT_TRUE( IsSilent( mHost ) );
    }
}

TEST_F( SocketPair, AWaitReceivesTheLargestDatagram )
{
    const std::string lText( 65507, 'x' );
    ASSERT_TRUE( SendText( mDevice, lText ).IsOK() );
    ASSERT_TRUE( WaitReadable( mHost ) );
    std::string lBuffer( 70000, '-' );
    int lReceived = -77;
    ASSERT_TRUE( mHost.Receive( lBuffer.data(), 70000, lReceived ).IsOK() );
    EXPECT_EQ( lReceived, 65507 );
    EXPECT_EQ( lBuffer, lText + std::string( 70000 - 65507, '-' ) );
}

TEST_F( SocketPair, WhatAWaitHasReceivedComesBeforeLaterDatagrams )
{
    ASSERT_TRUE( SendText( mDevice, "first" ).IsOK() );
    ASSERT_TRUE( WaitReadable( mHost ) );
    ASSERT_TRUE( SendText( mDevice, "second" ).IsOK() );
    ASSERT_TRUE( mHost.SetTimeoutRx( 1 ).IsOK() );
    EXPECT_EQ( ReceiveText( mHost ), "first" );
    EXPECT_EQ( ReceiveText( mHost ), "second" );
}

TEST_F( SocketPair, CloseAndConnectDropWhatAWaitHasReceived )
{
    const unsigned short lPort = mHost.GetLocalPort();
    ASSERT_TRUE( SendText( mDevice, "for the earlier peer" ).IsOK() );
    ASSERT_TRUE( WaitReadable( mHost ) );
    ASSERT_TRUE( mHost.Connect( LOOPBACK, mDevice.GetLocalPort() ).IsOK() );
    EXPECT_TRUE( IsSilent( mHost ) );

    ASSERT_TRUE( SendText( mDevice, "for the earlier opening" ).IsOK() );
    ASSERT_TRUE( WaitReadable( mHost ) );
    ASSERT_TRUE( mHost.Close().IsOK() );
    ExpectEverythingNotConnected( mHost );
    ASSERT_TRUE( mHost.Open( &LOOPBACK, lPort ).IsOK() );
    EXPECT_TRUE( IsSilent( mHost ) );
}

// The error that a wait has taken from the system refuses the next send, as the system would have.
TEST( SocketUDP, AnErrorThatAWaitHasReceivedIsReportedOnce )
{
    SocketUDP lSocket;
    ASSERT_TRUE( lSocket.Open( &LOOPBACK ).IsOK() );
    ASSERT_TRUE( lSocket.Connect( LOOPBACK, GetDeadPort() ).IsOK() );
    ASSERT_TRUE( lSocket.Send( "x", 1 ).IsOK() );
    ASSERT_TRUE( WaitReadable( lSocket ) );
    EXPECT_FALSE( IsSilent( lSocket ) );
    ExpectSystemError( lSocket.SendTo( "x", 1, LOOPBACK, GetDeadPort() ), ECONNREFUSED );
    EXPECT_TRUE( IsSilent( lSocket ) );
}

TEST_F( SocketPair, TheWaitsOfDifferentLengthLastAsLongAsTheyShould )
{
    SocketUDP* lSocket = &mHost;
    for ( const unsigned int lTimeout : { 60U, 30U, 30U, 90U, 90U, 5U, 60U } )
    {
        const long long lElapsed = Measure(
            [&]
            { EXPECT_EQ( SocketUDP::SelectOnRx( &lSocket, 1, lTimeout, nullptr ), nullptr ); } );
        EXPECT_GE( lElapsed, lTimeout );
        EXPECT_LT( lElapsed, LONG_MS );
    }
}

TEST_F( SocketPair, EachOfSeveralThreadsThatWaitSeesWhatArrives )
{
    std::atomic<int> lSeen{ 0 };
    std::vector<std::thread> lThreads;
    for ( int lNumber = 0; lNumber < 4; ++lNumber )
    {
        lThreads.emplace_back( [&] { lSeen += WaitReadable( mHost ) ? 1 : 0; } );
    }
    std::this_thread::sleep_for( std::chrono::milliseconds( 30 ) );
    ASSERT_TRUE( SendText( mDevice, "x" ).IsOK() );
    for ( std::thread& lThread : lThreads )
    {
        lThread.join();
    }
    EXPECT_EQ( lSeen, 4 );
    EXPECT_EQ( ReceiveText( mHost ), "x" );
    EXPECT_TRUE( IsSilent( mHost ) );
}

TEST_F( SocketPair, EachDatagramReachesOneOfSeveralThreads )
{
    constexpr int COUNT = 2000;
    std::atomic<int> lReceived{ 0 };
    std::vector<std::thread> lThreads;
    for ( int lNumber = 0; lNumber < 3; ++lNumber )
    {
        lThreads.emplace_back(
            [&]
            {
                while ( lReceived < COUNT && WaitReadable( mHost ) )
                {
                    int lSize = 0;
                    char lByte = 0;
                    lReceived += mHost.Receive( &lByte, 1, lSize ).IsOK() ? 1 : 0;
                }
            } );
    }
    for ( int lSent = 0; lSent < COUNT; ++lSent )
    {
        ASSERT_TRUE( SendText( mDevice, "x" ).IsOK() );
        while ( lReceived < lSent - 50 ) // so that none is lost
        {
            std::this_thread::yield();
        }
    }
    while ( lReceived < COUNT )
    {
        std::this_thread::yield();
    }
    ASSERT_TRUE( mHost.Close().IsOK() ); // ends the waits of the others
    for ( std::thread& lThread : lThreads )
    {
        lThread.join();
    }
    EXPECT_EQ( lReceived, COUNT );
}

TEST( SocketUDP, SelectFindsTheFirstOfMany )
{
    SocketUDP lSender;
    ASSERT_TRUE( lSender.Open( &LOOPBACK ).IsOK() );
    for ( const unsigned int lCount : { 1U, 2U, 7U, 8U, 9U, 40U } )
    {
        std::vector<std::unique_ptr<SocketUDP>> lOwned;
        std::vector<SocketUDP*> lSockets;
        for ( unsigned int lNumber = 0; lNumber < lCount; ++lNumber )
        {
            lOwned.push_back( std::make_unique<SocketUDP>() );
            ASSERT_TRUE( lOwned.back()->Open( &LOOPBACK ).IsOK() );
            lSockets.push_back( lOwned.back().get() );
        }
        // From the last to the first: each new arrival comes before the earlier ones in the list.
        for ( unsigned int lNumber = lCount; lNumber-- > 0; )
        {
            ASSERT_TRUE(
                lSender.SendTo( "x", 1, LOOPBACK, lSockets[lNumber]->GetLocalPort() ).IsOK() );
            ASSERT_TRUE( WaitReadable( *lSockets[lNumber] ) );
            unsigned int lIndex = 77;
            EXPECT_EQ( SocketUDP::SelectOnRx( lSockets.data(), lCount, LONG_MS, &lIndex ),
                       lSockets[lNumber] );
            EXPECT_EQ( lIndex, lNumber );
            EXPECT_EQ( SocketUDP::SelectOnRx( lSockets.data(), lCount, LONG_MS, nullptr ),
                       lSockets[lNumber] );
        }
    }
}

// What a process that may open nothing more can still do with its sockets: poll refuses.
TEST_F( SocketPair, AFailedPollIsReportedByTheFirstSocketsNextReceive )
{
    const auto lSelectInVain = [this]
    {
        const rlimit lNothing{};
        int lReceived = -77;
        char lByte = 'x';
        unsigned int lIndex = 77;
        SocketUDP* lSockets[] = { &mHost, &mDevice };
        if ( setrlimit( RLIMIT_NOFILE, &lNothing ) != 0 )
        {
            return "the limit";
        }
        if ( SocketUDP::SelectOnRx( lSockets, 2, LONG_MS, &lIndex ) != &mHost || lIndex != 0 )
        {
            return "the socket";
        }
        if ( mDevice.Receive( &lByte, 1, lReceived ).GetCode() != Result::TIMEOUT )
        {
            return "the other socket";
        }
        const Result lResult = mHost.Receive( &lByte, 1, lReceived );
        if ( lResult.GetCode() != Result::GENERIC_ERROR || lResult.GetOSCode() != EINVAL ||
             lReceived != -77 || lByte != 'x' )
        {
            return "the error";
        }
        if ( mHost.Receive( &lByte, 1, lReceived ).GetCode() != Result::TIMEOUT )
        {
            return "the receive after it";
        }
        return "nothing";
    };
    EXPECT_EXIT(
        {
            const std::string lWrong = lSelectInVain();
            (void)std::fprintf( stderr, "wrong: %s\n", lWrong.c_str() ); // the test sees it
            _exit( lWrong == "nothing" ? 0 : 1 );
        },
        testing::ExitedWithCode( 0 ), "wrong: nothing" );
}

TEST_F( SocketPair, ReopeningASocketClearsAFailedPoll )
{
    const auto lReopen = [this]
    {
        rlimit lLimit{};
        (void)getrlimit( RLIMIT_NOFILE, &lLimit ); // cannot fail
        const rlimit lNothing{ 0, lLimit.rlim_max };
        SocketUDP* lSockets[] = { &mHost };
        if ( setrlimit( RLIMIT_NOFILE, &lNothing ) != 0 ||
             SocketUDP::SelectOnRx( lSockets, 1, LONG_MS, nullptr ) != &mHost ||
             setrlimit( RLIMIT_NOFILE, &lLimit ) != 0 || !mHost.Open( &LOOPBACK ).IsOK() )
        {
            return false;
        }
        int lReceived = -77;
        char lByte = 'x';
        return mHost.Receive( &lByte, 1, lReceived ).GetCode() == Result::TIMEOUT;
    };
    EXPECT_EXIT( _exit( lReopen() ? 0 : 1 ), testing::ExitedWithCode( 0 ), "" );
}

TEST( SocketUDP, ASelectWithoutMemoryIsReportedByTheFirstSocketsNextReceive )
{
    constexpr unsigned int MANY = 40;
    std::vector<SocketUDP> lOwned( MANY );
    std::vector<SocketUDP*> lSockets;
    for ( SocketUDP& lSocket : lOwned )
    {
        ASSERT_TRUE( lSocket.Open( &LOOPBACK ).IsOK() );
        lSockets.push_back( &lSocket );
    }
    int lFailures = 0;
    for ( unsigned long long lNumber = 1;; ++lNumber )
    {
        SocketUDP* lChosen = nullptr;
        bool lHasFailed = false;
        unsigned int lIndex = 77;
        {
            const AllocationFailure lFailure( lNumber );
            lChosen = SocketUDP::SelectOnRx( lSockets.data(), MANY, 0, &lIndex );
            lHasFailed = lFailure.HasHappened();
        }
        if ( !lHasFailed )
        {
            EXPECT_EQ( lChosen, nullptr );
            break;
        }
        ++lFailures;
        EXPECT_EQ( lChosen, lOwned.data() );
        EXPECT_EQ( lIndex, 0U );
        ExpectReceiveFailsOnce( lOwned[0], ENOMEM );
    }
    EXPECT_GT( lFailures, 0 );
}

TEST( SocketUDP, DescriptorNumbersAbove1023Work )
{
    rlimit lLimit{};
    ASSERT_EQ( getrlimit( RLIMIT_NOFILE, &lLimit ), 0 );
    lLimit.rlim_cur = lLimit.rlim_max;
    if ( lLimit.rlim_max < 1100 || setrlimit( RLIMIT_NOFILE, &lLimit ) != 0 )
    {
        GTEST_SKIP() << "this system allows no more than " << lLimit.rlim_max << " descriptors";
    }
    // Every number up to 1023 is taken, so that the sockets get higher ones.
    std::vector<int> lTaken;
    while ( lTaken.empty() || lTaken.back() < 1023 )
    {
        lTaken.push_back( open( "/dev/null", O_RDONLY | O_CLOEXEC ) );
        ASSERT_GE( lTaken.back(), 0 );
    }
    {
        SocketUDP lReceiver;
        SocketUDP lSender;
        ASSERT_TRUE( lReceiver.Open( &LOOPBACK ).IsOK() );
        ASSERT_TRUE( lSender.Open( &LOOPBACK ).IsOK() );
        const int lNext = open( "/dev/null", O_RDONLY | O_CLOEXEC );
        EXPECT_GT( lNext, 1025 );
        (void)close( lNext ); // was opened for reading only
        EXPECT_TRUE( IsSilent( lReceiver ) );
        ASSERT_TRUE( lSender.SendTo( "high", 4, LOOPBACK, lReceiver.GetLocalPort() ).IsOK() );
        EXPECT_TRUE( WaitReadable( lReceiver ) );
        EXPECT_EQ( ReceiveText( lReceiver ), "high" );
        SocketUDP* lSockets[] = { &lReceiver, &lSender };
        EXPECT_EQ( SocketUDP::SelectOnRx( lSockets, 2, 20, nullptr ), nullptr );
    }
    for ( const int lNumber : lTaken )
    {
        (void)close( lNumber ); // was opened for reading only
    }
}

// Runs an operation that waits on another thread, closes the socket meanwhile, and returns how long
// that took. The pause lets the waiter get into its wait; the result is the same if it did not.
long long CloseBeside( SocketUDP& aSocket, const std::vector<std::function<void()>>& aWaits )
{
    std::vector<std::thread> lThreads;
    for ( const std::function<void()>& lWait : aWaits )
    {
        lThreads.emplace_back( lWait );
    }
    std::this_thread::sleep_for( std::chrono::milliseconds( 60 ) );
    return Measure(
        [&]
        {
            EXPECT_TRUE( aSocket.Close().IsOK() );
            for ( std::thread& lThread : lThreads )
            {
                lThread.join();
            }
        } );
}

TEST( SocketUDP, CloseWakesEveryWaitingThread )
{
    for ( const bool lConnected : { false, true } )
    {
        SocketUDP lSocket;
        ASSERT_TRUE( lSocket.Open( &LOOPBACK ).IsOK() );
        ASSERT_TRUE( lSocket.SetTimeoutRx( 2 * LONG_MS ).IsOK() );
        if ( lConnected )
        {
            ASSERT_TRUE( lSocket.Connect( LOOPBACK, 9 ).IsOK() );
        }
        const auto lReceive = [&]
        {
            char lByte = 'x';
            int lReceived = -77;
            EXPECT_EQ( lSocket.Receive( &lByte, 1, lReceived ).GetCode(), Result::NOT_CONNECTED );
            EXPECT_EQ( lReceived, -77 );
        };
        const auto lReceiveFrom = [&]
        {
            char lByte = 'x';
            int lReceived = -77;
            IpAddress lAddress( 5 );
            unsigned short lPort = 6;
            EXPECT_EQ( lSocket.ReceiveFrom( &lByte, 1, lReceived, lAddress, lPort ).GetCode(),
                       Result::NOT_CONNECTED );
            EXPECT_EQ( lReceived, -77 );
            EXPECT_EQ( lAddress, IpAddress( 5 ) );
            EXPECT_EQ( lPort, 6 );
        };
        const auto lSelect = [&]
        {
            SocketUDP* lSockets[] = { &lSocket };
            EXPECT_EQ( SocketUDP::SelectOnRx( lSockets, 1, 2 * LONG_MS, nullptr ), &lSocket );
            lReceive(); // returns the result
        };
        EXPECT_LT( CloseBeside( lSocket, { lReceive, lReceive, lReceiveFrom, lSelect } ), LONG_MS );
        ExpectEverythingNotConnected( lSocket );
        EXPECT_TRUE( lSocket.Open( &LOOPBACK ).IsOK() );
    }
}

// Every operation that runs while the socket is closed ends with NOT_CONNECTED and releases its
// descriptor.
TEST( SocketUDP, CloseMayRunDuringEveryOperation )
{
    SocketUDP lPeer;
    ASSERT_TRUE( lPeer.Open( &LOOPBACK ).IsOK() );
    const std::size_t lDescriptors = CountDescriptors();
    SocketUDP lSocket;
    for ( int lRound = 0; lRound < 60; ++lRound )
    {
        ASSERT_TRUE( lSocket.Open( &LOOPBACK ).IsOK() );
        ASSERT_TRUE( lSocket.Connect( LOOPBACK, lPeer.GetLocalPort() ).IsOK() );
        ASSERT_TRUE( lSocket.SetTimeoutRx( 1 ).IsOK() );
        const auto lUntilClosed = []( const std::function<Result()>& aOperation )
        {
            return std::thread(
                [aOperation]
                {
                    for ( ;; )
                    {
                        const Result lResult = aOperation();
                        if ( lResult.GetCode() == Result::NOT_CONNECTED )
                        {
                            return;
                        }
                        ASSERT_TRUE( lResult.IsOK() || lResult.GetCode() == Result::TIMEOUT )
                            << lResult.GetCodeString() << lResult.GetOSCode();
                    }
                } );
        };
        const auto lReceive = [&lSocket]
        {
            char lByte;
            int lReceived;
            return lSocket.Receive( &lByte, 1, lReceived );
        };
        const auto lSelect = [&lSocket, lReceive]
        {
            SocketUDP* lSockets[] = { &lSocket };
            return SocketUDP::SelectOnRx( lSockets, 1, LONG_MS, nullptr ) != nullptr
                       ? lReceive()
                       : Result( Result::GENERIC_ERROR );
        };
        std::thread lThreads[] = {
            lUntilClosed( [&lSocket] { return lSocket.Send( "x", 1 ); } ),
            lUntilClosed( [&lSocket] { return lSocket.SetTimeoutRx( 2 ); } ),
            lUntilClosed( lReceive ),
            lUntilClosed( lSelect ),
        };
        if ( lRound % 2 == 0 )
        {
            std::this_thread::sleep_for( std::chrono::milliseconds( lRound % 5 ) );
        }
        EXPECT_TRUE( lSocket.Close().IsOK() );
        for ( std::thread& lThread : lThreads )
        {
            lThread.join();
        }
        ASSERT_EQ( CountDescriptors(), lDescriptors );
    }
}

// A count of failed sends must not include a send that was only followed by a close.
TEST( SocketUDP, ACompletedSendIsOkEvenIfACloseFollowsAtOnce )
{
    constexpr int ROUNDS = 1000;
    constexpr int SENDS_MAX = 50; // so that the peer has room for all of a round
    SocketUDP lPeer;
    ASSERT_TRUE( lPeer.Open( &LOOPBACK ).IsOK() );
    for ( int lRound = 0; lRound < ROUNDS; ++lRound )
    {
        SocketUDP lSocket;
        ASSERT_TRUE( lSocket.Open( &LOOPBACK ).IsOK() );
        ASSERT_TRUE( lSocket.Connect( LOOPBACK, lPeer.GetLocalPort() ).IsOK() );
        std::atomic<bool> lIsSending{ false };
        int lSent = 0;
        std::thread lSender(
            [&]
            {
                for ( bool lHasLeft = true; lHasLeft && lSent < SENDS_MAX; lIsSending = true )
                {
                    lHasLeft = SendText( lSocket, "x" ).IsOK();
                    lSent += lHasLeft ? 1 : 0;
                }
            } );
        while ( !lIsSending )
        {
            std::this_thread::yield();
        }
        EXPECT_TRUE( lSocket.Close().IsOK() );
        lSender.join();
        for ( int lArrived = 0; lArrived < lSent; ++lArrived )
        {
            ASSERT_EQ( ReceiveText( lPeer ), "x" );
        }
        ASSERT_TRUE( IsSilent( lPeer ) ) << "round " << lRound << ": more has left than was told";
    }
}

// The next socket may get a released number. A thread that still waits must not receive on that
// socket.
TEST( SocketUDP, NoOperationUsesAReusedDescriptor )
{
    SocketUDP lSender;
    ASSERT_TRUE( lSender.Open( &LOOPBACK ).IsOK() );
    std::atomic<int> lStolen{ 0 };
    for ( int lRound = 0; lRound < 200; ++lRound )
    {
        SocketUDP lOld;
        ASSERT_TRUE( lOld.Open( &LOOPBACK ).IsOK() );
        ASSERT_TRUE( lOld.SetTimeoutRx( 1 ).IsOK() );
        std::thread lWaiter(
            [&]
            {
                Result lResult;
                do
                {
                    char lByte;
                    int lReceived = 0;
                    lResult = lOld.Receive( &lByte, 1, lReceived );
                    lStolen += lResult.IsOK() ? 1 : 0;
                } while ( lResult.GetCode() != Result::NOT_CONNECTED );
            } );
        if ( lRound % 2 == 0 )
        {
            std::this_thread::yield();
        }
        EXPECT_TRUE( lOld.Close().IsOK() );
        SocketUDP lNew;
        ASSERT_TRUE( lNew.Open( &LOOPBACK ).IsOK() );
        ASSERT_TRUE( lSender.SendTo( "mine", 4, LOOPBACK, lNew.GetLocalPort() ).IsOK() );
        EXPECT_EQ( ReceiveText( lNew ), "mine" );
        lWaiter.join();
    }
    EXPECT_EQ( lStolen, 0 );
}

TEST( SocketUDP, DestructionReleasesTheDescriptor )
{
    const std::size_t lDescriptors = CountDescriptors();
    unsigned short lPort = 0;
    {
        SocketUDP lSocket;
        ASSERT_TRUE( lSocket.Open( &LOOPBACK ).IsOK() );
        lPort = lSocket.GetLocalPort();
        EXPECT_EQ( CountDescriptors(), lDescriptors + 1 );
    }
    EXPECT_EQ( CountDescriptors(), lDescriptors );
    SocketUDP lNext;
    EXPECT_TRUE( lNext.Open( &LOOPBACK, lPort ).IsOK() );
}

TEST( SocketUDP, BroadcastNeedsPermission )
{
    const std::string lReason = TestSupport::EnterNetworkNamespace();
    if ( !lReason.empty() )
    {
        GTEST_SKIP() << lReason;
    }
    const IpAddress lEverybody( 0xFFFFFFFF );
    SocketUDP lListener;
    SocketUDP lSender;
    ASSERT_TRUE( lListener.Open().IsOK() );
    ASSERT_TRUE( lSender.Open( &LOOPBACK ).IsOK() );
    const unsigned short lPort = lListener.GetLocalPort();

    ExpectSystemError( lSender.SendTo( "a", 1, lEverybody, lPort ), EACCES );
    ASSERT_TRUE( lSender.SetBroadcast( true ).IsOK() );
    EXPECT_TRUE( lSender.SendTo( "b", 1, lEverybody, lPort ).IsOK() );
    EXPECT_EQ( ReceiveText( lListener ), "b" );
    ASSERT_TRUE( lSender.SetBroadcast( false ).IsOK() );
    ExpectSystemError( lSender.SendTo( "c", 1, lEverybody, lPort ), EACCES );
    EXPECT_TRUE( IsSilent( lListener ) );

    // A socket opened anew has no permission.
    ASSERT_TRUE( lSender.SetBroadcast( true ).IsOK() );
    ASSERT_TRUE( lSender.Open( &LOOPBACK ).IsOK() );
    ExpectSystemError( lSender.SendTo( "d", 1, lEverybody, lPort ), EACCES );
}
