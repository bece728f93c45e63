// The GigE Vision link on a socket of the caller's: its fixed policy, its identifiers, and what it
// shares with its copies.
//
// Identifiers come from one counter of the process. Each test winds it on to its start; what a
// process starts with is shown by FirstIdentifiersTest.cpp.

#include "tests/support/AllocationCounter.h"
#include "tests/support/ScriptedLinkTest.h"

#include <SimpleCommandLinkGEV.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace
{

using namespace TestSupport;
using HtBaseLib::SimpleCommandLinkGEV;
using QmUtilsLib::Logger;
using QmUtilsLib::Result;
using WdUtilsLib::Network::IpAddress;
using WdUtilsLib::Network::SocketUDP;

using Waits = std::vector<unsigned int>;
using Times = std::vector<long long>;

// The link with what only derived links see.
class OpenLink : public SimpleCommandLinkGEV
{
public:
    using SimpleCommandLinkGEV::GetAnswerTimeout;
    using SimpleCommandLinkGEV::GetLibLogger;
    using SimpleCommandLinkGEV::GetLinkLogger;
    using SimpleCommandLinkGEV::GetRequestID;
    using SimpleCommandLinkGEV::GetRetryCount;
    using SimpleCommandLinkGEV::GetSocket;
    using SimpleCommandLinkGEV::SimpleCommandLinkGEV;
};

// A READREG of 0x0934 and its acknowledge, with the identifier's two bytes.
Bytes ReadReg( uint8_t aHigh, uint8_t aLow )
{
    return Packet( {
        { 0x42 },                   // key
        { 0x01 },                   // flags: acknowledge required
        { 0x00, 0x80 },             // command: READREG
        { 0x00, 0x04 },             // length
        { aHigh, aLow },            // request identifier
        { 0x00, 0x00, 0x09, 0x34 }, // address
    } );
}

Bytes ReadRegAck( uint8_t aHigh, uint8_t aLow )
{
    return Packet( {
        { 0x00, 0x00 },             // status: success
        { 0x00, 0x81 },             // acknowledge: READREG
        { 0x00, 0x04 },             // length
        { aHigh, aLow },            // acknowledge identifier
        { 0x01, 0x02, 0x03, 0x04 }, // value
    } );
}

class SimpleCommandLinkGEVTest : public ScriptedLinkTest
{
protected:
    // From here on identifiers come as in a new process: the next one is 0xB001.
    SimpleCommandLinkGEVTest()
    {
        // Only the end of the period has 0xB001 behind 0xBFFF, see
        // IssuesIdentifiersWithAPeriodOf65535.
        constexpr int PERIOD = 65535;
        OpenLink lLink( nullptr );
        unsigned short lBefore = 0;
        unsigned short lLast = lLink.GetRequestID();
        for ( int lDraw = 0; lDraw < PERIOD && !( lBefore == 0xBFFF && lLast == 0xB001 ); ++lDraw )
        {
            lBefore = lLast;
            lLast = lLink.GetRequestID();
        }
        EXPECT_EQ( lBefore, 0xBFFF );
        EXPECT_EQ( lLast, 0xB001 );
        for ( int lDraw = 1; lDraw < PERIOD; ++lDraw )
        {
            (void)lLink.GetRequestID(); // only drawn
        }
    }

    static Result Read( SimpleCommandLinkGEV& aLink )
    {
        unsigned int lValue = 0;
        Result lResult = aLink.ReadRegister( &lValue, 0x0934 );
        EXPECT_EQ( lValue, lResult.IsOK() ? 0x01020304U : 0U );
        return lResult;
    }

    const LinkLog mLines{ "HtBaseLib", "HtBaseLib" };
};

// Identifiers.

TEST_F( SimpleCommandLinkGEVTest, CountsAcrossLinks )
{
    SocketUDP lOtherSocket;
    EXPECT_TRUE( lOtherSocket.Open().IsOK() );
    EXPECT_TRUE( lOtherSocket.Connect( IpAddress( 0xC000020B ), 3956 ).IsOK() );
    SimpleCommandLinkGEV lLink( &mSocket );
    SimpleCommandLinkGEV lOther( &lOtherSocket );
    mNet.Expect( ReadReg( 0xB0, 0x01 ) ).Reply( ReadRegAck( 0xB0, 0x01 ) );
    mNet.Expect( ReadReg( 0xB0, 0x02 ) ).Reply( ReadRegAck( 0xB0, 0x02 ) );
    mNet.Expect( ReadReg( 0xB0, 0x03 ) ).Reply( ReadRegAck( 0xB0, 0x03 ) );
    EXPECT_TRUE( Read( lLink ).IsOK() );
    EXPECT_TRUE( Read( lOther ).IsOK() );
    EXPECT_TRUE( Read( lLink ).IsOK() );
}

TEST_F( SimpleCommandLinkGEVTest, UsesTheSameCounterAfterALinkIsDestroyed )
{
    EXPECT_EQ( OpenLink( &mSocket ).GetRequestID(), 0xB001 );
    EXPECT_EQ( OpenLink( nullptr ).GetRequestID(), 0xB002 );
}

TEST_F( SimpleCommandLinkGEVTest, KeepsOneIdentifierForAllAttempts )
{
    SimpleCommandLinkGEV lLink( &mSocket );
    mNet.Expect( ReadReg( 0xB0, 0x01 ) )
        .Silence()
        .Expect( ReadReg( 0xB0, 0x01 ) )
        .Silence()
        .Expect( ReadReg( 0xB0, 0x01 ) )
        .Reply( ReadRegAck( 0xB0, 0x01 ) );
    EXPECT_TRUE( Read( lLink ).IsOK() );
    mNet.Expect( ReadReg( 0xB0, 0x02 ) ).Reply( ReadRegAck( 0xB0, 0x02 ) );
    EXPECT_TRUE( Read( lLink ).IsOK() );
}

TEST_F( SimpleCommandLinkGEVTest, TakesNoIdentifierIfNothingCanBeSent )
{
    OpenLink lWithoutSocket( nullptr );
    SocketUDP lClosed;
    OpenLink lOnClosed( &lClosed );
    OpenLink lLink( &mSocket );
    const unsigned char lData[540] = {};
    EXPECT_EQ( Read( lWithoutSocket ).GetCode(), 0x0017U );
    EXPECT_EQ( Read( lOnClosed ).GetCode(), 0x0017U );
    EXPECT_EQ( lLink.WriteMemory( lData, 0, 540, false ).GetCode(), 0x4001U );
    EXPECT_EQ( lLink.GetRequestID(), 0xB001 );
}

TEST_F( SimpleCommandLinkGEVTest, IssuesIdentifiersWithAPeriodOf65535 )
{
    // The counter runs from 1 to 0xFFFF and then from 1 again; an identifier is its low 12 bits
    // below 0xB.
    OpenLink lLink( &mSocket );
    OpenLink lOther( nullptr );
    for ( int lRound = 0; lRound < 2; ++lRound )
    {
        for ( unsigned int lCounter = 1; lCounter <= 0xFFFF; ++lCounter )
        {
            const unsigned short lIdentifier =
                lCounter % 3 == 0 ? lOther.GetRequestID() : lLink.GetRequestID();
            ASSERT_EQ( lIdentifier, 0xB000 + lCounter % 0x1000 ) << lRound << " " << lCounter;
        }
    }
}

TEST_F( SimpleCommandLinkGEVTest, IssuesB000WhereTheLowBitsAreZeroButNotWhereTheCounterWraps )
{
    OpenLink lLink( &mSocket );
    const auto lSkip = [&lLink]( int aCount )
    {
        for ( int lDraw = 0; lDraw < aCount; ++lDraw )
        {
            (void)lLink.GetRequestID(); // only drawn
        }
    };
    lSkip( 4094 );
    EXPECT_EQ( lLink.GetRequestID(), 0xBFFF ); // counter 0x0FFF
    EXPECT_EQ( lLink.GetRequestID(), 0xB000 ); // counter 0x1000
    EXPECT_EQ( lLink.GetRequestID(), 0xB001 ); // counter 0x1001
    lSkip( 65535 - 4097 - 1 );
    EXPECT_EQ( lLink.GetRequestID(), 0xBFFF ); // counter 0xFFFF
    EXPECT_EQ( lLink.GetRequestID(), 0xB001 ); // counter 0x0001
    EXPECT_EQ( lLink.GetRequestID(), 0xB002 ); // counter 0x0002
}

TEST_F( SimpleCommandLinkGEVTest, SendsTheIdentifierB000AndAcceptsItsAnswer )
{
    OpenLink lLink( &mSocket );
    for ( int lDraw = 0; lDraw < 4095; ++lDraw )
    {
        (void)lLink.GetRequestID(); // only drawn
    }
    mNet.Expect( ReadReg( 0xB0, 0x00 ) ).Reply( ReadRegAck( 0xB0, 0x00 ) );
    EXPECT_TRUE( Read( lLink ).IsOK() );
}

// Policy.

TEST_F( SimpleCommandLinkGEVTest, AllowsThreeAttemptsOf400Milliseconds )
{
    OpenLink lLink( &mSocket );
    EXPECT_EQ( lLink.GetRetryCount(), 3 );
    EXPECT_EQ( lLink.GetAnswerTimeout(), 400 );
}

TEST_F( SimpleCommandLinkGEVTest, SpendsThreeWaitsOnASilentDevice )
{
    SimpleCommandLinkGEV lLink( &mSocket );
    const Bytes lCommand = ReadReg( 0xB0, 0x01 );
    mNet.Expect( lCommand ).Silence().Expect( lCommand ).Silence().Expect( lCommand ).Silence();
    const Result lResult = Read( lLink );
    EXPECT_EQ( lResult.GetCode(), 0x001EU );
    EXPECT_STREQ( lResult.GetDescription().GetAscii(), "Command link operation failure" );
    EXPECT_EQ( GetSendTimes(), Times( { 0, 400, 800 } ) );
    EXPECT_EQ( mNet.GetSelectTimeouts(), Waits( { 400, 400, 400 } ) );
    EXPECT_EQ( GetElapsed(), 1200 );
    ExpectCounters( lLink, 2, 2, 0, 0 );
    ExpectLog( { mLines.TIMEOUT, mLines.RETRY, mLines.TIMEOUT, mLines.RETRY, mLines.TIMEOUT,
                 mLines.FAILURE } );
}

TEST_F( SimpleCommandLinkGEVTest, HasOneLoggerForBothPurposes )
{
    OpenLink lLink( &mSocket );
    OpenLink lOther( &mSocket );
    ASSERT_NE( lLink.GetLibLogger(), nullptr );
    EXPECT_EQ( lLink.GetLibLogger(), lLink.GetLinkLogger() );
    EXPECT_NE( lLink.GetLibLogger(), lOther.GetLibLogger() );
    lLink.GetLibLogger()->Log( Logger::DETAIL, "unit", 1, "function", "text" );
    ASSERT_EQ( mLog.GetEntries().size(), 1U );
    EXPECT_EQ( mLog.GetEntries()[0].mLogger, "HtBaseLib" );
}

TEST_F( SimpleCommandLinkGEVTest, StartsWithoutStatisticsAndWithTheConnectionNotLost )
{
    const SimpleCommandLinkGEV lLink( &mSocket );
    ExpectCounters( lLink, 0, 0, 0, 0 );
    EXPECT_FALSE( lLink.GetConnectionLost() );
    ExpectLog( {} );
}

// The socket.

TEST_F( SimpleCommandLinkGEVTest, UsesTheSocketItWasGiven )
{
    EXPECT_EQ( OpenLink( &mSocket ).GetSocket(), &mSocket );
    EXPECT_EQ( OpenLink( nullptr ).GetSocket(), nullptr );
}

TEST_F( SimpleCommandLinkGEVTest, DoesNotCloseTheSocket )
{
    SimpleCommandLinkGEV lLink( &mSocket );
    const Result lResult = lLink.Close();
    EXPECT_EQ( lResult.GetCode(), 0x0604U );
    EXPECT_EQ( lResult.GetOSCode(), 0U );
    EXPECT_TRUE( mSocket.IsOpened() );
    mNet.Expect( ReadReg( 0xB0, 0x01 ) ).Reply( ReadRegAck( 0xB0, 0x01 ) );
    EXPECT_TRUE( Read( lLink ).IsOK() );
    ExpectLog( {} );
}

TEST_F( SimpleCommandLinkGEVTest, LeavesTheSocketOpenWhenItIsDestroyed )
{
    {
        const SimpleCommandLinkGEV lLink( &mSocket );
    }
    EXPECT_TRUE( mSocket.IsOpened() );
}

TEST_F( SimpleCommandLinkGEVTest, NeitherOpensNorWaitsForAClosedSocket )
{
    SocketUDP lClosed;
    SimpleCommandLinkGEV lLink( &lClosed );
    EXPECT_EQ( Read( lLink ).GetCode(), 0x0017U );
    EXPECT_FALSE( lClosed.IsOpened() );
    EXPECT_EQ( lLink.Close().GetCode(), 0x0604U );
    EXPECT_EQ( GetElapsed(), 0 );
    ExpectCounters( lLink, 0, 0, 0, 0 );
    ExpectLog( {} );
}

TEST_F( SimpleCommandLinkGEVTest, IsAlwaysConnected )
{
    const SimpleCommandLinkGEV lWithoutSocket( nullptr );
    EXPECT_TRUE( lWithoutSocket.IsConnected() );
    SimpleCommandLinkGEV lLink( &mSocket );
    EXPECT_TRUE( lLink.IsConnected() );
    EXPECT_EQ( lLink.Close().GetCode(), 0x0604U );
    EXPECT_TRUE( lLink.IsConnected() );
    EXPECT_TRUE( mSocket.Close().IsOK() );
    EXPECT_TRUE( lLink.IsConnected() );
    lLink.SetConnectionLost();
    EXPECT_TRUE( lLink.IsConnected() );
}

TEST_F( SimpleCommandLinkGEVTest, NeverTouchesTheConnectionLostFlag )
{
    SimpleCommandLinkGEV lLink( &mSocket );
    lLink.SetConnectionLost();
    mNet.Expect( ReadReg( 0xB0, 0x01 ) ).Reply( ReadRegAck( 0xB0, 0x01 ) );
    EXPECT_TRUE( Read( lLink ).IsOK() );
    EXPECT_EQ( lLink.Close().GetCode(), 0x0604U );
    EXPECT_TRUE( lLink.GetConnectionLost() );
    lLink.ResetConnectionLost();
    EXPECT_TRUE( mSocket.Close().IsOK() );
    EXPECT_EQ( Read( lLink ).GetCode(), 0x0017U );
    EXPECT_EQ( lLink.Close().GetCode(), 0x0604U );
    EXPECT_FALSE( lLink.GetConnectionLost() );
}

// Copies.

TEST_F( SimpleCommandLinkGEVTest, SharesSocketAndLoggerWithItsCopiesAndCopiesFlagAndCounters )
{
    OpenLink lLink( &mSocket );
    lLink.SetConnectionLost();
    mNet.Expect( ReadReg( 0xB0, 0x01 ) ).Refuse( Result( Result::GENERIC_ERROR ) );
    mNet.Expect( ReadReg( 0xB0, 0x01 ) ).Silence();
    mNet.Expect( ReadReg( 0xB0, 0x01 ) )
        .Reply( { 0, 0, 0, 0x89, 0, 4, 0xB0, 0x01, 0, 0, 0, 50 } )
        .Reply( ReadRegAck( 0xB0, 0x01 ) );
    EXPECT_TRUE( Read( lLink ).IsOK() );
    ExpectCounters( lLink, 2, 2, 1, 1 );

    OpenLink lCopy( lLink );
    EXPECT_EQ( lCopy.GetSocket(), &mSocket );
    EXPECT_EQ( lCopy.GetLibLogger(), lLink.GetLibLogger() );
    EXPECT_EQ( lCopy.GetLinkLogger(), lLink.GetLinkLogger() );
    EXPECT_TRUE( lCopy.GetConnectionLost() );
    ExpectCounters( lCopy, 2, 2, 1, 1 );

    OpenLink lAssigned( nullptr );
    lAssigned = lLink;
    EXPECT_EQ( lAssigned.GetSocket(), &mSocket );
    EXPECT_EQ( lAssigned.GetLibLogger(), lLink.GetLibLogger() );
    EXPECT_TRUE( lAssigned.GetConnectionLost() );
    ExpectCounters( lAssigned, 2, 2, 1, 1 );

    // From now on each counts for itself.
    lCopy.ResetStats();
    lCopy.ResetConnectionLost();
    ExpectCounters( lCopy, 0, 0, 0, 0 );
    ExpectCounters( lLink, 2, 2, 1, 1 );
    EXPECT_TRUE( lLink.GetConnectionLost() );
    ExpectCounters( lAssigned, 2, 2, 1, 1 );
}

// Somebody may still use what the link had before.
TEST_F( SimpleCommandLinkGEVTest, ObjectsReplacedByAssignmentAreFreedWithTheLink )
{
    const OpenLink lSource( &mSocket );
    const OpenLink lOther( &mSocket );
    const long long lBefore = GetLiveAllocationCount();
    {
        OpenLink lLink( nullptr );
        Logger* const lLogger = lLink.GetLibLogger();
        const long long lAlone = GetLiveAllocationCount();
        lLink = lSource;
        EXPECT_GT( GetLiveAllocationCount(), lAlone ); // both, and the list of them
        EXPECT_NE( lLink.GetLibLogger(), lLogger );
        EXPECT_FALSE( lLogger->IsPriorityEnabled( -1 ) );

        // What is kept already is kept once.
        lLink = lOther;
        lLink = lSource;
        const long long lAll = GetLiveAllocationCount();
        for ( int lRound = 0; lRound < 10; ++lRound )
        {
            lLink = lOther;
            lLink = lSource;
        }
        EXPECT_EQ( GetLiveAllocationCount(), lAll );
    }
    EXPECT_EQ( GetLiveAllocationCount(), lBefore );
}

TEST_F( SimpleCommandLinkGEVTest, UsesTheSameCounterAsItsCopies )
{
    OpenLink lLink( &mSocket );
    EXPECT_EQ( lLink.GetRequestID(), 0xB001 );
    OpenLink lCopy( lLink );
    EXPECT_EQ( lCopy.GetRequestID(), 0xB002 );
    EXPECT_EQ( lLink.GetRequestID(), 0xB003 );
}

TEST_F( SimpleCommandLinkGEVTest, OutlivesItsCopies )
{
    OpenLink lLink( &mSocket );
    {
        OpenLink lCopy( lLink );
        OpenLink lAssigned( nullptr );
        lAssigned = lCopy;
    }
    mNet.Expect( ReadReg( 0xB0, 0x01 ) ).Silence();
    mNet.Expect( ReadReg( 0xB0, 0x01 ) ).Reply( ReadRegAck( 0xB0, 0x01 ) );
    EXPECT_TRUE( Read( lLink ).IsOK() );
    ExpectLog( { mLines.TIMEOUT, mLines.RETRY } );
}

TEST_F( SimpleCommandLinkGEVTest, OutlivesItsSource )
{
    auto lSource = std::make_unique<OpenLink>( &mSocket );
    OpenLink lCopy( *lSource );
    OpenLink lAssigned( nullptr );
    lAssigned = *lSource;
    OpenLink& lSelf = lAssigned;
    lAssigned = lSelf;
    lSource.reset();
    mNet.Expect( ReadReg( 0xB0, 0x01 ) ).Silence();
    mNet.Expect( ReadReg( 0xB0, 0x01 ) ).Reply( ReadRegAck( 0xB0, 0x01 ) );
    mNet.Expect( ReadReg( 0xB0, 0x02 ) ).Reply( ReadRegAck( 0xB0, 0x02 ) );
    EXPECT_TRUE( Read( lCopy ).IsOK() );
    EXPECT_TRUE( Read( lAssigned ).IsOK() );
    ExpectLog( { mLines.TIMEOUT, mLines.RETRY } );
}

} // namespace
