// The server that puts a device core on a UDP address.

#include "Simulators/Servers/DeviceServer.h"

#include <QmUtilsLib/Thread.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <thread>

using QmUtilsLib::Result;
using QmUtilsLib::Thread;
using Simulators::DeviceServer;
using Simulators::Endpoint;
using Simulators::FaultPlan;
using Simulators::Outgoing;
using WdUtilsLib::Network::IpAddress;
using WdUtilsLib::Network::SocketUDP;

namespace
{

const IpAddress LOOPBACK( 0x7F000001 );

// A host's socket that is connected to a server.
class Host
{
public:
    explicit Host( const DeviceServer& aServer )
    {
        EXPECT_TRUE( mSocket.Open( &LOOPBACK ).IsOK() );
        EXPECT_TRUE( mSocket.Connect( aServer.GetAddress(), aServer.GetPort() ).IsOK() );
    }

    void Send( const std::string& aText )
    {
        EXPECT_TRUE( mSocket.Send( aText.data(), static_cast<int>( aText.size() ) ).IsOK() );
    }

    // The datagram that arrives within the time; "" if none does.
    std::string Receive( unsigned int aTimeoutMs = 5000 )
    {
        char lBuffer[65536];
        int lReceived = 0;
        EXPECT_TRUE( mSocket.SetTimeoutRx( aTimeoutMs ).IsOK() );
        const Result lResult = mSocket.Receive( lBuffer, sizeof( lBuffer ), lReceived );
        return lResult.IsOK() ? std::string( lBuffer, static_cast<size_t>( lReceived ) ) : "";
    }

    SocketUDP mSocket;
};

Outgoing MakeAnswer( const Endpoint& aTo, const std::string& aText, int64_t aDelayMs = 0 )
{
    Outgoing lAnswer;
    lAnswer.mTo = aTo;
    lAnswer.mBytes.assign( aText.begin(), aText.end() );
    lAnswer.mDelayMs = aDelayMs;
    return lAnswer;
}

// A core that answers with what it got, and counts.
class Echo
{
public:
    DeviceServer::Core GetCore()
    {
        return [this]( const Endpoint& aFrom, const uint8_t* aData, size_t aSize, int64_t )
        {
            ++mCalls;
            mFrom = aFrom;
            return std::vector<Outgoing>{
                MakeAnswer( aFrom, std::string( aData, aData + aSize ) ) };
        };
    }

    int mCalls = 0; // of the serving thread; ask under Access
    Endpoint mFrom;
};

FaultPlan MakeLoss()
{
    FaultPlan::Rates lRates;
    lRates.mLoss = 1.0;
    return FaultPlan( lRates, 1 );
}

} // namespace

TEST( DeviceServer, AnswersFromTheAddressAndPortItSays )
{
    Echo lEcho;
    DeviceServer lServer( lEcho.GetCore() );
    DeviceServer::Options lOptions;
    lOptions.mAddress = IpAddress( 0x7F000002 );
    ASSERT_TRUE( lServer.Open( lOptions ).IsOK() );
    EXPECT_EQ( lServer.GetAddress(), lOptions.mAddress );
    ASSERT_NE( lServer.GetPort(), 0 );
    lServer.Start();
    Host lHost( lServer ); // receives from this server only
    lHost.Send( "question" );
    EXPECT_EQ( lHost.Receive(), "question" );
    const Endpoint lFrom = lServer.Access( [&] { return lEcho.mFrom; } );
    EXPECT_EQ( lFrom.mAddress, 0x7F000001U );
    EXPECT_EQ( lFrom.mPort, lHost.mSocket.GetLocalPort() );
}

TEST( DeviceServer, TheLongestDatagramIsReceivedWhole )
{
    Echo lEcho;
    DeviceServer lServer( lEcho.GetCore() );
    ASSERT_TRUE( lServer.Open( {} ).IsOK() );
    lServer.Start();
    Host lHost( lServer );
    const std::string lLong( 65507, 'x' );
    lHost.Send( lLong );
    EXPECT_TRUE( lHost.Receive() == lLong );
    lHost.Send( "" );
    EXPECT_EQ( lServer.Access( [&] { return lServer.GetCounters().mSendFailures; } ), 0U );
}

TEST( DeviceServer, AnswersLeaveWhenTheyAreDueEarliestFirst )
{
    DeviceServer lServer(
        []( const Endpoint& aFrom, const uint8_t*, size_t, int64_t )
        {
            return std::vector<Outgoing>{
                MakeAnswer( aFrom, "late", 150 ), MakeAnswer( aFrom, "soon", 50 ),
                MakeAnswer( aFrom, "now", 0 ), MakeAnswer( aFrom, "late too", 150 ) };
        } );
    ASSERT_TRUE( lServer.Open( {} ).IsOK() );
    lServer.Start();
    Host lHost( lServer );
    const long long lStart = Thread::GetTickCount();
    lHost.Send( "x" );
    EXPECT_EQ( lHost.Receive(), "now" );
    EXPECT_EQ( lHost.Receive(), "soon" );
    EXPECT_GE( Thread::GetTickCount() - lStart, 50 );
    EXPECT_EQ( lHost.Receive(), "late" );
    EXPECT_EQ( lHost.Receive(), "late too" );
    EXPECT_GE( Thread::GetTickCount() - lStart, 150 );
}

TEST( DeviceServer, RequestsAndAnswersHaveFaultPlansOfTheirOwn )
{
    Echo lEcho;
    DeviceServer lServer( lEcho.GetCore() );
    DeviceServer::Options lOptions;
    lOptions.mRequestFaults = MakeLoss();
    ASSERT_TRUE( lServer.Open( lOptions ).IsOK() );
    lServer.Start();
    Host lHost( lServer );
    lHost.Send( "lost on its way in" );
    EXPECT_EQ( lHost.Receive( 50 ), "" );
    EXPECT_EQ( lServer.GetRequestFaults().GetCounters().mLost, 1U );
    EXPECT_EQ( lServer.Access( [&] { return lEcho.mCalls; } ), 0 );

    lServer.SetFaults( FaultPlan( {}, 0 ), MakeLoss() );
    lHost.Send( "lost on its way out" );
    EXPECT_EQ( lHost.Receive( 50 ), "" );
    EXPECT_EQ( lServer.GetAnswerFaults().GetCounters().mLost, 1U );
    EXPECT_EQ( lServer.Access( [&] { return lEcho.mCalls; } ), 1 );

    lServer.SetFaults( FaultPlan( {}, 0 ), FaultPlan( {}, 0 ) );
    lHost.Send( "answered" );
    EXPECT_EQ( lHost.Receive(), "answered" );
    EXPECT_EQ( lServer.GetCounters().mReceived, 3U );
    EXPECT_EQ( lServer.GetCounters().mSent, 1U );
}

TEST( DeviceServer, ADelayedRequestReachesTheDeviceLater )
{
    Echo lEcho;
    DeviceServer lServer( lEcho.GetCore() );
    FaultPlan::Rates lRates;
    lRates.mReorder = 1.0;
    lRates.mHoldMs = 100;
    DeviceServer::Options lOptions;
    lOptions.mRequestFaults = FaultPlan( lRates, 1 );
    ASSERT_TRUE( lServer.Open( lOptions ).IsOK() );
    lServer.Start();
    Host lHost( lServer );
    const long long lStart = Thread::GetTickCount();
    lHost.Send( "held" );
    EXPECT_EQ( lHost.Receive(), "held" );
    EXPECT_GE( Thread::GetTickCount() - lStart, 100 );
}

TEST( DeviceServer, StopEndsTheWaitAtOnceAndTheServerCanBeOpenedAgain )
{
    Echo lEcho;
    DeviceServer lServer( lEcho.GetCore() );
    for ( int lTime = 0; lTime < 3; ++lTime )
    {
        ASSERT_TRUE( lServer.Open( {} ).IsOK() );
        lServer.Start();
        Host lHost( lServer );
        lHost.Send( "x" );
        EXPECT_EQ( lHost.Receive(), "x" );
        EXPECT_EQ( lServer.GetCounters().mReceived, 1U );
        const long long lStart = Thread::GetTickCount();
        lServer.Stop();
        lServer.Stop();
        EXPECT_LT( Thread::GetTickCount() - lStart, 5000 );
        EXPECT_EQ( lServer.GetPort(), 0 );
    }
}

TEST( DeviceServer, RunsInTheThreadOfItsCallerUntilAnotherStopsIt )
{
    Echo lEcho;
    DeviceServer lServer( lEcho.GetCore() );
    EXPECT_EQ( lServer.Run(), Result::NOT_CONNECTED );
    ASSERT_TRUE( lServer.Open( {} ).IsOK() );
    std::thread lUser(
        [&]
        {
            Host lHost( lServer );
            lHost.Send( "x" );
            EXPECT_EQ( lHost.Receive(), "x" );
            lServer.Stop();
        } );
    EXPECT_TRUE( lServer.Run().IsOK() );
    lUser.join();
}

TEST( DeviceServer, APortThatIsInUseIsReported )
{
    Echo lEcho;
    DeviceServer lServer( lEcho.GetCore() );
    DeviceServer lOther( lEcho.GetCore() );
    ASSERT_TRUE( lServer.Open( {} ).IsOK() );
    DeviceServer::Options lOptions;
    lOptions.mPort = lServer.GetPort();
    const Result lResult = lOther.Open( lOptions );
    EXPECT_EQ( lResult, Result::GENERIC_ERROR );
    EXPECT_EQ( lResult.GetOSCode(), static_cast<unsigned int>( EADDRINUSE ) );
    EXPECT_EQ( lOther.GetPort(), 0 );
}

// A datagram to another address of the machine arrives at the socket for broadcasts, as a broadcast
// does; the answer leaves from the device's own address.
TEST( DeviceServer, RequestsToTheSecondSocketAreFilteredAndAnsweredFromTheFirst )
{
    Echo lEcho;
    DeviceServer lServer( lEcho.GetCore() );
    DeviceServer::Options lOptions;
    lOptions.mHearBroadcasts = true;
    lOptions.mBroadcastFilter = []( const uint8_t* aData, size_t aSize )
    {
        return aSize > 0 && aData[0] == 'y';
    };
    ASSERT_TRUE( lServer.Open( lOptions ).IsOK() );
    lServer.Start();
    Host lHost( lServer );
    const IpAddress lElsewhere( 0x7F000009 );
    for ( const std::string lText : { "no", "yes" } )
    {
        EXPECT_TRUE( lHost.mSocket
                         .SendTo( lText.data(), static_cast<int>( lText.size() ), lElsewhere,
                                  lServer.GetPort() )
                         .IsOK() );
    }
    EXPECT_EQ( lHost.Receive(), "yes" );
    EXPECT_EQ( lServer.Access( [&] { return lEcho.mCalls; } ), 1 );
    lHost.Send( "own address" );
    EXPECT_EQ( lHost.Receive(), "own address" ); // not filtered
}

TEST( DeviceServer, TheCoreIsNotRunDuringAccess )
{
    Echo lEcho;
    DeviceServer lServer( lEcho.GetCore() );
    ASSERT_TRUE( lServer.Open( {} ).IsOK() );
    lServer.Start();
    Host lHost( lServer );
    lServer.Access(
        [&]
        {
            lHost.Send( "x" );
            EXPECT_EQ( lHost.Receive( 50 ), "" );
            EXPECT_EQ( lEcho.mCalls, 0 );
        } );
    EXPECT_EQ( lHost.Receive(), "x" );
}
