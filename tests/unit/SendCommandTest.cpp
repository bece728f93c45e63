// One transaction of the GigE Vision link: what is sent and when, how long is waited, which answers
// count, what is logged and counted, and what is returned.

#include "tests/support/ScriptedLinkTest.h"

#include <WdUtilsLib/GEV/CommandHeader.h>
#include <WdUtilsLib/GEV/ReadRegister.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstddef>
#include <string>
#include <utility>

namespace
{

using namespace TestSupport;
using QmUtilsLib::Result;
using QmUtilsLib::String;
using QmUtilsLib::Scripted::VirtualClock;
using WdUtilsLib::GEV::CommandHeader;
using WdUtilsLib::GEV::ReadRegisterCommand;
using WdUtilsLib::Network::SocketUDP;
using WdUtilsLib::Scripted::ScriptedNetwork;

using Waits = std::vector<unsigned int>;
using Times = std::vector<long long>;
using Sizes = std::vector<int>;

const Bytes COMMAND = Packet( {
    { 0x42 },                   // key
    { 0x01 },                   // flags: acknowledge required
    { 0x00, 0x80 },             // command: READREG
    { 0x00, 0x04 },             // length
    { 0xB1, 0x23 },             // request identifier
    { 0x00, 0x00, 0x09, 0x34 }, // address
} );

const Bytes ANSWER = Packet( {
    { 0x00, 0x00 },             // status: success
    { 0x00, 0x81 },             // acknowledge: READREG
    { 0x00, 0x04 },             // length
    { 0xB1, 0x23 },             // acknowledge identifier
    { 0x01, 0x02, 0x03, 0x04 }, // value
} );

// A PENDINGACK with that time to completion, given as the two bytes of the packet.
Bytes Pending( uint8_t aHigh, uint8_t aLow )
{
    return Packet( {
        { 0x00, 0x00 },  // status: success
        { 0x00, 0x89 },  // acknowledge: PENDINGACK
        { 0x00, 0x04 },  // length
        { 0xB1, 0x23 },  // acknowledge identifier
        { 0x00, 0x00 },  // reserved
        { aHigh, aLow }, // time to completion
    } );
}

const Bytes PENDING_0 = Pending( 0x00, 0x00 );
const Bytes PENDING_50 = Pending( 0x00, 0x32 );
const Bytes PENDING_1000 = Pending( 0x03, 0xE8 );
const Bytes PENDING_2000 = Pending( 0x07, 0xD0 );
const Bytes PENDING_5000 = Pending( 0x13, 0x88 );
const Bytes PENDING_65535 = Pending( 0xFF, 0xFF );

const Bytes PENDING_OF_ANOTHER_COMMAND = Packet( {
    { 0x00, 0x00 }, // status: success
    { 0x00, 0x89 }, // acknowledge: PENDINGACK
    { 0x00, 0x04 }, // length
    { 0xB1, 0x22 }, // acknowledge identifier of the command before
    { 0x00, 0x00 }, // reserved
    { 0x13, 0x88 }, // time to completion: 5000 ms
} );

const Bytes STRAY = Packet( {
    { 0x00, 0x00 },             // status: success
    { 0x00, 0x81 },             // acknowledge: READREG
    { 0x00, 0x04 },             // length
    { 0xB1, 0x22 },             // acknowledge identifier of the command before
    { 0x0A, 0x0B, 0x0C, 0x0D }, // value
} );

// The answer with a status, header only as a refusal may be.
Bytes Refusal( uint8_t aHigh, uint8_t aLow )
{
    return Packet( {
        { aHigh, aLow }, // status
        { 0x00, 0x81 },  // acknowledge: READREG
        { 0x00, 0x00 },  // length
        { 0xB1, 0x23 },  // acknowledge identifier
    } );
}

class SendCommandTest : public ScriptedLinkTest
{
protected:
    static constexpr uint8_t FILL = 0xA5;

    SendCommandTest()
        : mArea( 64, FILL )
    {
        EXPECT_TRUE( mCommand.InitOperationQty( 1 ) );
        EXPECT_TRUE( mCommand.InitAddress( 0, 0x0934 ) );
    }

    Result Send( bool aNoAck = false )
    {
        return mLink.SendCommand( &mCommand, mArea.data(), static_cast<long long>( mArea.size() ),
                                  aNoAck );
    }

    bool IsAreaUntouched() const { return mArea == Bytes( mArea.size(), FILL ); }

    void ExpectNothingHappened() const
    {
        EXPECT_TRUE( mNet.GetSends().empty() );
        EXPECT_TRUE( mNet.GetSelectTimeouts().empty() );
        EXPECT_TRUE( mNet.GetReceiveSizes().empty() );
        EXPECT_EQ( GetElapsed(), 0 );
        EXPECT_TRUE( IsAreaUntouched() );
        ExpectCounters( mLink, 0, 0, 0, 0 );
    }

    ReadRegisterCommand mCommand;
    Bytes mArea;
};

// Before the first attempt.

TEST_F( SendCommandTest, WithoutSocketIsNotConnectedAndDoesNothing )
{
    mLink.mSocket = nullptr;
    const Result lResult = Send();
    EXPECT_EQ( lResult.GetCode(), 0x0017U );
    EXPECT_EQ( lResult.GetOSCode(), 0U );
    EXPECT_EQ( mLink.mRequestIDsDrawn, 0 );
    EXPECT_EQ( mCommand.GetRequestId(), 0 );
    ExpectNothingHappened();
    ExpectLog( {} );
}

TEST_F( SendCommandTest, OnASocketNeverOpenedIsNotConnectedAndDoesNothing )
{
    SocketUDP lClosed;
    mLink.mSocket = &lClosed;
    EXPECT_EQ( Send().GetCode(), 0x0017U );
    EXPECT_EQ( mLink.mRequestIDsDrawn, 0 );
    EXPECT_EQ( mCommand.GetRequestId(), 0 );
    ExpectNothingHappened();
    ExpectLog( {} );
}

TEST_F( SendCommandTest, OnAClosedSocketIsNotConnectedEvenWithoutAcknowledge )
{
    EXPECT_TRUE( mSocket.Close().IsOK() );
    EXPECT_EQ( Send( true ).GetCode(), 0x0017U );
    EXPECT_EQ( Send( false ).GetCode(), 0x0017U );
    EXPECT_EQ( mLink.mRequestIDsDrawn, 0 );
    ExpectNothingHappened();
    ExpectLog( {} );
}

TEST_F( SendCommandTest, IsNotConnectedEvenIfNoAttemptIsAllowed )
{
    mLink.mRetryCount = 0;
    EXPECT_TRUE( mSocket.Close().IsOK() );
    EXPECT_EQ( Send().GetCode(), 0x0017U );
    ExpectLog( {} );
}

TEST_F( SendCommandTest, WorksAgainOnceTheSocketIsOpen )
{
    EXPECT_TRUE( mSocket.Close().IsOK() );
    EXPECT_EQ( Send().GetCode(), 0x0017U );
    EXPECT_TRUE( mSocket.Open().IsOK() );
    EXPECT_TRUE( mSocket.Connect( WdUtilsLib::Network::IpAddress( 0xC000020A ), 3956 ).IsOK() );
    mNet.Expect( COMMAND ).Reply( ANSWER );
    EXPECT_TRUE( Send().IsOK() );
}

TEST_F( SendCommandTest, StampsTheCommandOnceForAllAttempts )
{
    mNet.Expect( COMMAND ).Silence().Expect( COMMAND ).Silence().Expect( COMMAND ).Silence();
    EXPECT_EQ( Send().GetCode(), 0x001EU );
    EXPECT_EQ( mLink.mRequestIDsDrawn, 1 );
    EXPECT_EQ( mCommand.GetRequestId(), 0xB123 );
}

TEST_F( SendCommandTest, StampsEachCommandAnew )
{
    const Bytes lSecond = Packet( {
        { 0x42, 0x01 },             // key, flags
        { 0x00, 0x80 },             // command: READREG
        { 0x00, 0x04 },             // length
        { 0xB1, 0x24 },             // the next request identifier
        { 0x00, 0x00, 0x09, 0x34 }, // address
    } );
    const Bytes lSecondAnswer = Packet( {
        { 0x00, 0x00 },             // status: success
        { 0x00, 0x81 },             // acknowledge: READREG
        { 0x00, 0x04 },             // length
        { 0xB1, 0x24 },             // acknowledge identifier
        { 0x01, 0x02, 0x03, 0x04 }, // value
    } );
    mNet.Expect( COMMAND ).Reply( ANSWER ).Expect( lSecond ).Reply( lSecondAnswer );
    EXPECT_TRUE( Send().IsOK() );
    EXPECT_TRUE( Send().IsOK() );
    EXPECT_EQ( mLink.mRequestIDsDrawn, 2 );
}

// The attempts.

TEST_F( SendCommandTest, AcceptsTheAnswerOfTheFirstAttempt )
{
    mNet.Expect( COMMAND ).Reply( ANSWER, AFTER_MS( 7 ) );
    const Result lResult = Send();
    EXPECT_TRUE( lResult.IsOK() );
    EXPECT_EQ( lResult.GetOSCode(), 0U );
    EXPECT_STREQ( lResult.GetDescription().GetAscii(), "" );
    EXPECT_EQ( Prefix( mArea, ANSWER.size() ), ANSWER );
    EXPECT_EQ( mNet.GetSelectTimeouts(), Waits( { 400 } ) );
    EXPECT_EQ( mNet.GetReceiveSizes(), Sizes( { 64 } ) );
    EXPECT_EQ( GetSendTimes(), Times( { 0 } ) );
    EXPECT_EQ( GetElapsed(), 7 );
    ExpectCounters( mLink, 0, 0, 0, 0 );
    ExpectLog( {} );
}

TEST_F( SendCommandTest, SendsToASilentDeviceAsOftenAsAllowed )
{
    mNet.Expect( COMMAND ).Silence().Expect( COMMAND ).Silence().Expect( COMMAND ).Silence();
    const Result lResult = Send();
    EXPECT_EQ( lResult.GetCode(), 0x001EU );
    EXPECT_EQ( lResult.GetOSCode(), 0U );
    EXPECT_STREQ( lResult.GetDescription().GetAscii(), "Command link operation failure" );
    EXPECT_EQ( GetSentBytes(), std::vector<Bytes>( 3, COMMAND ) );
    EXPECT_EQ( GetSendTimes(), Times( { 0, 400, 800 } ) );
    EXPECT_EQ( mNet.GetSelectTimeouts(), Waits( { 400, 400, 400 } ) );
    EXPECT_TRUE( mNet.GetReceiveSizes().empty() );
    EXPECT_EQ( GetElapsed(), 1200 );
    EXPECT_TRUE( IsAreaUntouched() );
    ExpectCounters( mLink, 2, 2, 0, 0 );
    ExpectLog( { mLines.TIMEOUT, mLines.RETRY, mLines.TIMEOUT, mLines.RETRY, mLines.TIMEOUT,
                 mLines.FAILURE } );
}

TEST_F( SendCommandTest, SendsOnceWhenOneAttemptIsAllowed )
{
    mLink.mRetryCount = 1;
    mNet.Expect( COMMAND ).Silence();
    EXPECT_EQ( Send().GetCode(), 0x001EU );
    EXPECT_EQ( GetElapsed(), 400 );
    ExpectCounters( mLink, 0, 0, 0, 0 );
    ExpectLog( { mLines.TIMEOUT, mLines.FAILURE } );
}

TEST_F( SendCommandTest, StopsAtTheAttemptThatIsAnswered )
{
    mNet.Expect( COMMAND ).Silence().Expect( COMMAND ).Reply( ANSWER, AFTER_MS( 399 ) );
    EXPECT_TRUE( Send().IsOK() );
    EXPECT_EQ( GetElapsed(), 799 );
    ExpectCounters( mLink, 1, 1, 0, 0 );
    ExpectLog( { mLines.TIMEOUT, mLines.RETRY } );
}

TEST_F( SendCommandTest, AcceptsALateAnswerToAnEarlierAttempt )
{
    mNet.Expect( COMMAND ).Reply( ANSWER, AFTER_MS( 500 ) ).Expect( COMMAND ).Silence();
    EXPECT_TRUE( Send().IsOK() );
    EXPECT_EQ( GetElapsed(), 500 );
    ExpectCounters( mLink, 1, 1, 0, 0 );
    ExpectLog( { mLines.TIMEOUT, mLines.RETRY } );
}

TEST_F( SendCommandTest, AsksForTheRetryCountBeforeEveryAttemptAndAppliesALowerOne )
{
    mLink.mRetryCount = 5;
    mNet.Expect( COMMAND ).Silence().Expect( COMMAND ).Do( [this] { mLink.mRetryCount = 2; },
                                                           AFTER_MS( 200 ) );
    EXPECT_EQ( Send().GetCode(), 0x001EU );
    EXPECT_EQ( GetSendTimes(), Times( { 0, 400 } ) );
    ExpectLog( { mLines.TIMEOUT, mLines.RETRY, mLines.TIMEOUT, mLines.FAILURE } );
}

TEST_F( SendCommandTest, AsksForTheRetryCountBeforeEveryAttemptAndAppliesAHigherOne )
{
    mLink.mRetryCount = 1;
    mNet.Expect( COMMAND )
        .Do( [this] { mLink.mRetryCount = 3; }, AFTER_MS( 399 ) )
        .Expect( COMMAND )
        .Silence()
        .Expect( COMMAND )
        .Silence();
    EXPECT_EQ( Send().GetCode(), 0x001EU );
    EXPECT_EQ( GetSendTimes(), Times( { 0, 400, 800 } ) );
    ExpectCounters( mLink, 2, 2, 0, 0 );
}

TEST_F( SendCommandTest, WithoutAnyAttemptFailsWithTheCodeOfAResultThatNothingHasSet )
{
    for ( const int lCount : { 0, -1, INT_MIN } )
    {
        mLog.Clear();
        mLink.mRetryCount = lCount;
        const Result lResult = Send();
        EXPECT_EQ( lResult.GetCode(), 0x0605U ) << lCount;
        EXPECT_STREQ( lResult.GetDescription().GetAscii(), "Command link operation failure" );
        ExpectLog( { mLines.FAILURE } );
    }
    ExpectNothingHappened();
}

TEST_F( SendCommandTest, TakesAnIdentifierEvenIfNoAttemptIsAllowed )
{
    mLink.mRetryCount = 0;
    EXPECT_EQ( Send( true ).GetCode(), 0x0605U );
    EXPECT_EQ( mLink.mRequestIDsDrawn, 1 );
    EXPECT_EQ( mCommand.GetRequestId(), 0xB123 );
    EXPECT_TRUE( mNet.GetSends().empty() );
}

TEST_F( SendCommandTest, KeepsTheHighestNumberOfResendsOfOneCommand )
{
    mLink.mRetryCount = 4;
    const auto lSendWithResends = [this]( int aResends )
    {
        for ( int lResend = 0; lResend < aResends; ++lResend )
        {
            mNet.Expect( COMMAND ).Silence();
        }
        mNet.Expect( COMMAND ).Reply( ANSWER );
        mLink.mRequestID = 0xB123;
        EXPECT_TRUE( Send().IsOK() );
    };
    lSendWithResends( 2 );
    ExpectCounters( mLink, 2, 2, 0, 0 );
    lSendWithResends( 1 );
    ExpectCounters( mLink, 3, 2, 0, 0 );
    lSendWithResends( 0 );
    ExpectCounters( mLink, 3, 2, 0, 0 );
    lSendWithResends( 3 );
    ExpectCounters( mLink, 6, 3, 0, 0 );
    lSendWithResends( 3 );
    ExpectCounters( mLink, 9, 3, 0, 0 );
}

TEST_F( SendCommandTest, CountsAndLogsARetryBeforeItIsSent )
{
    std::vector<std::pair<long long, long long>> lRetries;
    std::vector<std::size_t> lRecords;
    mNet.Attach(
        [this, &lRetries, &lRecords]( const Bytes&, long long )
        {
            lRetries.emplace_back( mLink.GetRetriesCount(), mLink.GetRetriesMax() );
            lRecords.push_back( mLog.GetEntries().size() );
            return std::vector<ScriptedNetwork::Answer>();
        } );
    EXPECT_EQ( Send().GetCode(), 0x001EU );
    EXPECT_EQ( lRetries,
               ( std::vector<std::pair<long long, long long>>{ { 0, 0 }, { 1, 1 }, { 2, 2 } } ) );
    EXPECT_EQ( lRecords, ( std::vector<std::size_t>{ 0, 2, 4 } ) );
}

// Sends that the socket refuses.

TEST_F( SendCommandTest, WaitsTheWholeTimeAfterARefusedSend )
{
    const Result lRefusal( Result::GENERIC_ERROR, ENETUNREACH );
    mNet.Expect( COMMAND ).Refuse( lRefusal );
    mNet.Expect( COMMAND ).Refuse( lRefusal );
    mNet.Expect( COMMAND ).Refuse( lRefusal );
    const Result lResult = Send();
    EXPECT_EQ( lResult.GetCode(), 0x001EU );
    EXPECT_EQ( lResult.GetOSCode(), 0U );
    EXPECT_EQ( GetSendTimes(), Times( { 0, 400, 800 } ) );
    EXPECT_EQ( mNet.GetSelectTimeouts(), Waits( { 400, 400, 400 } ) );
    EXPECT_EQ( GetElapsed(), 1200 );
    ExpectCounters( mLink, 2, 2, 0, 3 );
    ExpectLog( { mLines.UNABLE, mLines.TIMEOUT, mLines.RETRY, mLines.UNABLE, mLines.TIMEOUT,
                 mLines.RETRY, mLines.UNABLE, mLines.TIMEOUT, mLines.FAILURE } );
}

TEST_F( SendCommandTest, AcceptsAnAnswerAfterARefusedSend )
{
    mNet.Expect( COMMAND )
        .Refuse( Result( Result::GENERIC_ERROR, ENOBUFS ) )
        .Reply( ANSWER, AFTER_MS( 399 ) );
    EXPECT_TRUE( Send().IsOK() );
    EXPECT_EQ( GetElapsed(), 399 );
    EXPECT_EQ( mNet.GetSelectTimeouts(), Waits( { 400 } ) );
    ExpectCounters( mLink, 0, 0, 0, 1 );
    ExpectLog( { mLines.UNABLE } );
}

TEST_F( SendCommandTest, TreatsEveryResultButOkAsARefusedSend )
{
    for ( const unsigned int lCode : { 0x0017U, 0x001EU, 0x4000U, 0x0001U } )
    {
        mLink.ResetStats();
        mLink.mRequestID = 0xB123;
        mNet.Expect( COMMAND ).Refuse( Result( lCode ) ).Reply( ANSWER );
        EXPECT_TRUE( Send().IsOK() ) << lCode;
        ExpectCounters( mLink, 0, 0, 0, 1 );
    }
}

// Commands that ask for no acknowledge.

TEST_F( SendCommandTest, WithoutAcknowledgeEndsWithTheSend )
{
    mNet.Expect( COMMAND ).Reply( Refusal( 0x80, 0x06 ) );
    EXPECT_TRUE( Send( true ).IsOK() );
    EXPECT_EQ( GetElapsed(), 0 );
    EXPECT_TRUE( mNet.GetSelectTimeouts().empty() );
    EXPECT_TRUE( mNet.GetReceiveSizes().empty() );
    EXPECT_TRUE( IsAreaUntouched() );
    ExpectCounters( mLink, 0, 0, 0, 0 );
    ExpectLog( {} );
}

TEST_F( SendCommandTest, WithoutAcknowledgeAndARefusedSendWaitsAndSendsAgain )
{
    mNet.Expect( COMMAND ).Refuse( Result( Result::GENERIC_ERROR, ENETDOWN ) ).Expect( COMMAND );
    EXPECT_TRUE( Send( true ).IsOK() );
    EXPECT_EQ( GetSendTimes(), Times( { 0, 400 } ) );
    EXPECT_EQ( GetElapsed(), 400 );
    EXPECT_EQ( mNet.GetSelectTimeouts(), Waits( { 400 } ) );
    ExpectCounters( mLink, 1, 1, 0, 1 );
    ExpectLog( { mLines.UNABLE, mLines.TIMEOUT, mLines.RETRY } );
}

TEST_F( SendCommandTest, WithoutAcknowledgeAndARefusedSendStillAcceptsAnAnswer )
{
    mNet.Expect( COMMAND )
        .Refuse( Result( Result::GENERIC_ERROR, ENETDOWN ) )
        .Reply( ANSWER, AFTER_MS( 100 ) );
    EXPECT_TRUE( Send( true ).IsOK() );
    EXPECT_EQ( GetElapsed(), 100 );
    ExpectCounters( mLink, 0, 0, 0, 1 );
    ExpectLog( { mLines.UNABLE } );
}

TEST_F( SendCommandTest, WithoutAcknowledgeAndARefusedSendReturnsTheStatusOfAnAnswer )
{
    mNet.Expect( COMMAND )
        .Refuse( Result( Result::GENERIC_ERROR, ENETDOWN ) )
        .Reply( Refusal( 0x80, 0x07 ), AFTER_MS( 100 ) );
    const Result lResult = Send( true );
    EXPECT_EQ( lResult.GetCode(), 0x4000U );
    EXPECT_STREQ( lResult.GetDescription().GetAscii(), "Busy status received from the device." );
}

TEST_F( SendCommandTest, WithoutAcknowledgeFailsWhenEverySendIsRefused )
{
    mLink.mRetryCount = 2;
    const Result lRefusal( Result::GENERIC_ERROR, ENETDOWN );
    mNet.Expect( COMMAND ).Refuse( lRefusal );
    mNet.Expect( COMMAND ).Refuse( lRefusal );
    EXPECT_EQ( Send( true ).GetCode(), 0x001EU );
    EXPECT_EQ( GetElapsed(), 800 );
    ExpectCounters( mLink, 1, 1, 0, 2 );
    ExpectLog( { mLines.UNABLE, mLines.TIMEOUT, mLines.RETRY, mLines.UNABLE, mLines.TIMEOUT,
                 mLines.FAILURE } );
}

// The wait for one answer.

TEST_F( SendCommandTest, AsksForTheAnswerTimeoutAtEveryAttempt )
{
    mNet.Expect( COMMAND )
        .Do( [this] { mLink.mAnswerTimeout = 250; }, AFTER_MS( 10 ) )
        .Expect( COMMAND )
        .Do( [this] { mLink.mAnswerTimeout = 1000; }, AFTER_MS( 10 ) )
        .Expect( COMMAND )
        .Silence();
    EXPECT_EQ( Send().GetCode(), 0x001EU );
    EXPECT_EQ( mNet.GetSelectTimeouts(), Waits( { 400, 250, 1000 } ) );
    EXPECT_EQ( GetSendTimes(), Times( { 0, 400, 650 } ) );
    EXPECT_EQ( GetElapsed(), 1650 );
}

TEST_F( SendCommandTest, NeverWaitsForLessThanAMillisecond )
{
    mLink.mRetryCount = 2;
    for ( const int lTimeout : { 1, 0, -1, INT_MIN } )
    {
        mLink.mAnswerTimeout = lTimeout;
        mLink.mRequestID = 0xB123;
        mNet.Expect( COMMAND ).Silence().Expect( COMMAND ).Silence();
        EXPECT_EQ( Send().GetCode(), 0x001EU ) << lTimeout;
    }
    EXPECT_EQ( mNet.GetSelectTimeouts(), Waits( 8, 1 ) );
    EXPECT_EQ( GetElapsed(), 8 );
}

TEST_F( SendCommandTest, WaitsAsLongAsTheLongestTimeoutSays )
{
    mLink.mRetryCount = 1;
    mLink.mAnswerTimeout = INT_MAX;
    mNet.Expect( COMMAND ).Reply( ANSWER, AFTER_MS( INT_MAX ) );
    EXPECT_TRUE( Send().IsOK() );
    EXPECT_EQ( mNet.GetSelectTimeouts(), Waits( { 2147483647U } ) );
    EXPECT_EQ( GetElapsed(), 2147483647LL );
}

TEST_F( SendCommandTest, StraysDoNotExtendTheDeadline )
{
    mLink.mRetryCount = 1;
    mNet.Expect( COMMAND )
        .Reply( STRAY, AFTER_MS( 100 ) )
        .Reply( STRAY, AFTER_MS( 150 ) )
        .Reply( STRAY, AFTER_MS( 399 ) );
    EXPECT_EQ( Send().GetCode(), 0x001EU );
    EXPECT_EQ( mNet.GetSelectTimeouts(), Waits( { 400, 300, 250, 1 } ) );
    EXPECT_EQ( GetElapsed(), 400 );
    ExpectCounters( mLink, 0, 0, 0, 0 );
    ExpectLog( { mLines.UNEXPECTED, mLines.UNEXPECTED, mLines.UNEXPECTED, mLines.TIMEOUT,
                 mLines.FAILURE } );
}

TEST_F( SendCommandTest, AcceptsTheAnswerAfterAStrayWithinTheSameDeadline )
{
    mNet.Expect( COMMAND ).Reply( STRAY, AFTER_MS( 300 ) ).Reply( ANSWER, AFTER_MS( 400 ) );
    EXPECT_TRUE( Send().IsOK() );
    EXPECT_EQ( mNet.GetSelectTimeouts(), Waits( { 400, 100 } ) );
    EXPECT_EQ( mNet.GetReceiveSizes(), Sizes( { 64, 64 } ) );
    EXPECT_EQ( GetElapsed(), 400 );
    ExpectLog( { mLines.UNEXPECTED } );
}

TEST_F( SendCommandTest, RetriesAfterStraysHaveFilledTheWait )
{
    mNet.Expect( COMMAND )
        .Reply( STRAY, AFTER_MS( 300 ) )
        .Reply( STRAY, AFTER_MS( 300 ) )
        .Expect( COMMAND )
        .Reply( ANSWER );
    EXPECT_TRUE( Send().IsOK() );
    EXPECT_EQ( mNet.GetSelectTimeouts(), Waits( { 400, 100, 100, 400 } ) );
    EXPECT_EQ( GetSendTimes(), Times( { 0, 400 } ) );
    ExpectCounters( mLink, 1, 1, 0, 0 );
    ExpectLog( { mLines.UNEXPECTED, mLines.UNEXPECTED, mLines.TIMEOUT, mLines.RETRY } );
}

TEST_F( SendCommandTest, ReceivesOnceMoreAfterAStrayAtTheDeadline )
{
    mNet.Expect( COMMAND )
        .Reply( STRAY, AFTER_MS( 400 ) )
        .Reply( STRAY, AFTER_MS( 400 ) )
        .Reply( ANSWER, AFTER_MS( 400 ) );
    EXPECT_TRUE( Send().IsOK() );
    EXPECT_EQ( mNet.GetSelectTimeouts(), Waits( { 400, 1, 1 } ) );
    EXPECT_EQ( GetElapsed(), 400 );
    ExpectLog( { mLines.UNEXPECTED, mLines.UNEXPECTED } );
}

TEST_F( SendCommandTest, WaitsOneMillisecondAfterAStrayAtTheDeadline )
{
    mLink.mRetryCount = 1;
    mNet.Expect( COMMAND ).Reply( STRAY, AFTER_MS( 400 ) ).Reply( ANSWER, AFTER_MS( 402 ) );
    EXPECT_EQ( Send().GetCode(), 0x001EU );
    EXPECT_EQ( mNet.GetSelectTimeouts(), Waits( { 400, 1 } ) );
    EXPECT_EQ( GetElapsed(), 401 );
    ExpectLog( { mLines.UNEXPECTED, mLines.TIMEOUT, mLines.FAILURE } );
}

TEST_F( SendCommandTest, TreatsAJumpOfTheClockAsTimePassed )
{
    // Also one whose low 32 bits are nothing.
    for ( const long long lLeap : { 10'000LL, 1LL << 32, ( 1LL << 32 ) + 100, 1LL << 62 } )
    {
        mLink.mRequestID = 0xB123;
        const std::size_t lBefore = mNet.GetSelectTimeouts().size();
        const long long lStart = VirtualClock::Now();
        mNet.Expect( COMMAND )
            .Reply( STRAY )
            .Do( [lStart, lLeap] { VirtualClock::Set( lStart + lLeap ); } )
            .Reply( ANSWER );
        EXPECT_TRUE( Send().IsOK() );
        ASSERT_EQ( mNet.GetSelectTimeouts().size(), lBefore + 2 );
        EXPECT_EQ( mNet.GetSelectTimeouts()[lBefore], 400U );
        EXPECT_EQ( mNet.GetSelectTimeouts()[lBefore + 1], 1U ) << lLeap;
        VirtualClock::Set( lStart );
    }
}

TEST_F( SendCommandTest, TreatsAClockThatWentBackAsOneThatStoodStill )
{
    // The stray has been waiting since long ago, so that it is still there when the clock is back.
    for ( const long long lBack : { 1LL, 500LL, 10'000LL, mStart } )
    {
        mLink.mRequestID = 0xB123;
        const std::size_t lBefore = mNet.GetSelectTimeouts().size();
        const long long lStart = VirtualClock::Now();
        mNet.Expect( COMMAND )
            .Do( [lStart, lBack] { VirtualClock::Set( lStart - lBack ); } )
            .Reply( STRAY, AFTER_MS( -lBack ) )
            .Reply( ANSWER, AFTER_MS( 1 - lBack ) );
        EXPECT_TRUE( Send().IsOK() );
        ASSERT_EQ( mNet.GetSelectTimeouts().size(), lBefore + 2 );
        EXPECT_EQ( mNet.GetSelectTimeouts()[lBefore + 1], 400U ) << lBack;
        EXPECT_EQ( VirtualClock::Now(), lStart - lBack + 1 );
        VirtualClock::Set( lStart );
    }
}

// Feeds strays a millisecond apart, of which with a time-out of 0 every one comes after the
// deadline.
void ReplyStrays( ScriptedNetwork& aNet, int aFrom, int aCount )
{
    for ( int lStray = 0; lStray < aCount; ++lStray )
    {
        aNet.Reply( STRAY, AFTER_MS( aFrom + lStray ) );
    }
}

constexpr int MAX_STRAYS = 65536;

TEST_F( SendCommandTest, FailsIfStraysDoNotEndAfterTheDeadline )
{
    mLink.mRetryCount = 1;
    mLink.mAnswerTimeout = 0;
    mNet.Expect( COMMAND );
    ReplyStrays( mNet, 0, MAX_STRAYS );
    mNet.Reply( ANSWER, AFTER_MS( MAX_STRAYS - 1 ) );
    EXPECT_EQ( Send().GetCode(), 0x001EU );
    EXPECT_EQ( mNet.GetSelectTimeouts(), Waits( MAX_STRAYS, 1 ) );
    Log lExpected( MAX_STRAYS, mLines.UNEXPECTED );
    lExpected.push_back( mLines.TIMEOUT );
    lExpected.push_back( mLines.FAILURE );
    ExpectLog( lExpected );
}

TEST_F( SendCommandTest, AcceptsTheAnswerAfterTheMaximumNumberOfStrays )
{
    mLink.mRetryCount = 1;
    mLink.mAnswerTimeout = 0;
    mNet.Expect( COMMAND );
    ReplyStrays( mNet, 0, MAX_STRAYS - 1 );
    mNet.Reply( ANSWER, AFTER_MS( MAX_STRAYS - 1 ) );
    EXPECT_TRUE( Send().IsOK() );
    EXPECT_EQ( mNet.GetSelectTimeouts(), Waits( MAX_STRAYS, 1 ) );
}

TEST_F( SendCommandTest, RestartsTheCountOfStraysAfterAPendingAcknowledge )
{
    mLink.mRetryCount = 1;
    mLink.mAnswerTimeout = 0;
    mNet.Expect( COMMAND );
    ReplyStrays( mNet, 0, MAX_STRAYS - 1 );
    mNet.Reply( PENDING_0, AFTER_MS( MAX_STRAYS - 1 ) );
    ReplyStrays( mNet, MAX_STRAYS, MAX_STRAYS - 1 );
    mNet.Reply( ANSWER, AFTER_MS( 2 * MAX_STRAYS - 1 ) );
    EXPECT_TRUE( Send().IsOK() );
    ExpectCounters( mLink, 0, 0, 1, 0 );
}

TEST_F( SendCommandTest, RestartsTheCountOfStraysAtEveryAttempt )
{
    mLink.mRetryCount = 2;
    mLink.mAnswerTimeout = 0;
    mNet.Expect( COMMAND );
    ReplyStrays( mNet, 0, MAX_STRAYS );
    mNet.Expect( COMMAND );
    ReplyStrays( mNet, 0, MAX_STRAYS - 1 );
    mNet.Reply( ANSWER, AFTER_MS( MAX_STRAYS - 1 ) );
    EXPECT_TRUE( Send().IsOK() );
    ExpectCounters( mLink, 1, 1, 0, 0 );
}

TEST_F( SendCommandTest, IgnoresAnyNumberOfStraysBeforeTheDeadline )
{
    constexpr int MANY = MAX_STRAYS + 100;
    mLink.mRetryCount = 1;
    mLink.mAnswerTimeout = 2 * MANY;
    mNet.Expect( COMMAND );
    ReplyStrays( mNet, 0, MANY );
    mNet.Reply( ANSWER, AFTER_MS( MANY ) );
    EXPECT_TRUE( Send().IsOK() );
    EXPECT_EQ( mLog.GetEntries().size(), static_cast<std::size_t>( MANY ) );
}

// Pending acknowledges.

TEST_F( SendCommandTest, WaitsAsLongAsAPendingAcknowledgeSays )
{
    mNet.Expect( COMMAND ).Reply( PENDING_5000 ).Reply( ANSWER, AFTER_MS( 4999 ) );
    EXPECT_TRUE( Send().IsOK() );
    EXPECT_EQ( mNet.GetSelectTimeouts(), Waits( { 400, 5000 } ) );
    EXPECT_EQ( GetElapsed(), 4999 );
    EXPECT_EQ( Prefix( mArea, ANSWER.size() ), ANSWER );
    ExpectCounters( mLink, 0, 0, 1, 0 );
    ExpectLog( {} );
}

TEST_F( SendCommandTest, RestartsTheClockWhenAPendingAcknowledgeArrives )
{
    mNet.Expect( COMMAND )
        .Reply( PENDING_5000, AFTER_MS( 399 ) )
        .Reply( ANSWER, AFTER_MS( 399 + 5000 ) );
    EXPECT_TRUE( Send().IsOK() );
    EXPECT_EQ( mNet.GetSelectTimeouts(), Waits( { 400, 5000 } ) );
    EXPECT_EQ( GetElapsed(), 5399 );
    ExpectCounters( mLink, 0, 0, 1, 0 );
    ExpectLog( {} );
}

TEST_F( SendCommandTest, RestartsTheClockAtEachPendingAcknowledge )
{
    mNet.Expect( COMMAND )
        .Reply( PENDING_1000, AFTER_MS( 300 ) )
        .Reply( PENDING_1000, AFTER_MS( 1200 ) )
        .Reply( PENDING_2000, AFTER_MS( 2100 ) )
        .Reply( ANSWER, AFTER_MS( 4000 ) );
    EXPECT_TRUE( Send().IsOK() );
    EXPECT_EQ( mNet.GetSelectTimeouts(), Waits( { 400, 1000, 1000, 2000 } ) );
    EXPECT_EQ( GetElapsed(), 4000 );
    ExpectCounters( mLink, 0, 0, 3, 0 );
    ExpectLog( {} );
}

TEST_F( SendCommandTest, AShorterTimeToCompletionReplacesTheRemainingWait )
{
    mLink.mRetryCount = 1;
    mNet.Expect( COMMAND ).Reply( PENDING_50, AFTER_MS( 10 ) );
    EXPECT_EQ( Send().GetCode(), 0x001EU );
    EXPECT_EQ( mNet.GetSelectTimeouts(), Waits( { 400, 50 } ) );
    EXPECT_EQ( GetElapsed(), 60 );
    ExpectCounters( mLink, 0, 0, 1, 0 );
    ExpectLog( { mLines.TIMEOUT, mLines.FAILURE } );
}

TEST_F( SendCommandTest, WaitsOneMillisecondForATimeToCompletionOfZero )
{
    mLink.mRetryCount = 1;
    mNet.Expect( COMMAND ).Reply( PENDING_0, AFTER_MS( 10 ) );
    EXPECT_EQ( Send().GetCode(), 0x001EU );
    EXPECT_EQ( mNet.GetSelectTimeouts(), Waits( { 400, 1 } ) );
    EXPECT_EQ( GetElapsed(), 11 );
}

TEST_F( SendCommandTest, WaitsForTheLongestTimeToCompletion )
{
    mNet.Expect( COMMAND ).Reply( PENDING_65535 ).Reply( ANSWER, AFTER_MS( 65535 ) );
    EXPECT_TRUE( Send().IsOK() );
    EXPECT_EQ( mNet.GetSelectTimeouts(), Waits( { 400, 65535 } ) );
    EXPECT_EQ( GetElapsed(), 65535 );
}

TEST_F( SendCommandTest, TimesOutAfterTheTimeToCompletionAndSendsAgain )
{
    mNet.Expect( COMMAND )
        .Reply( PENDING_5000, AFTER_MS( 100 ) )
        .Expect( COMMAND )
        .Silence()
        .Expect( COMMAND )
        .Reply( ANSWER, AFTER_MS( 5 ) );
    EXPECT_TRUE( Send().IsOK() );
    EXPECT_EQ( mNet.GetSelectTimeouts(), Waits( { 400, 5000, 400, 400 } ) );
    EXPECT_EQ( GetSendTimes(), Times( { 0, 5100, 5500 } ) );
    EXPECT_EQ( GetElapsed(), 5505 );
    ExpectCounters( mLink, 2, 2, 1, 0 );
    ExpectLog( { mLines.TIMEOUT, mLines.RETRY, mLines.TIMEOUT, mLines.RETRY } );
}

TEST_F( SendCommandTest, AcceptsAnyNumberOfPendingAcknowledges )
{
    constexpr int MANY = 70000;
    mLink.mRetryCount = 1;
    mNet.Expect( COMMAND );
    for ( int lPending = 0; lPending < MANY; ++lPending )
    {
        mNet.Reply( PENDING_0, AFTER_MS( lPending ) );
    }
    mNet.Reply( ANSWER, AFTER_MS( MANY ) );
    EXPECT_TRUE( Send().IsOK() );
    EXPECT_EQ( GetElapsed(), MANY );
    ExpectCounters( mLink, 0, 0, MANY, 0 );
    ExpectLog( {} );
}

TEST_F( SendCommandTest, TreatsThePendingAcknowledgeOfAnotherCommandAsAStray )
{
    mLink.mRetryCount = 1;
    mNet.Expect( COMMAND ).Reply( PENDING_OF_ANOTHER_COMMAND, AFTER_MS( 100 ) );
    EXPECT_EQ( Send().GetCode(), 0x001EU );
    EXPECT_EQ( mNet.GetSelectTimeouts(), Waits( { 400, 300 } ) );
    EXPECT_EQ( GetElapsed(), 400 );
    ExpectCounters( mLink, 0, 0, 0, 0 );
    ExpectLog( { mLines.UNEXPECTED, mLines.TIMEOUT, mLines.FAILURE } );
}

TEST_F( SendCommandTest, DoesNotRestartTheClockOfAPendingAcknowledgeAtAStray )
{
    mNet.Expect( COMMAND )
        .Reply( PENDING_1000 )
        .Reply( STRAY, AFTER_MS( 400 ) )
        .Reply( PENDING_OF_ANOTHER_COMMAND, AFTER_MS( 600 ) )
        .Reply( ANSWER, AFTER_MS( 1000 ) );
    EXPECT_TRUE( Send().IsOK() );
    EXPECT_EQ( mNet.GetSelectTimeouts(), Waits( { 400, 1000, 600, 400 } ) );
    ExpectCounters( mLink, 0, 0, 1, 0 );
    ExpectLog( { mLines.UNEXPECTED, mLines.UNEXPECTED } );
}

TEST_F( SendCommandTest, IgnoresTheStatusOfAPendingAcknowledge )
{
    const Bytes lPending = Packet( {
        { 0x80, 0x06 }, // status: access denied
        { 0x00, 0x89 }, // acknowledge: PENDINGACK
        { 0x00, 0x04 }, // length
        { 0xB1, 0x23 }, // acknowledge identifier
        { 0xFF, 0xFF }, // reserved
        { 0x03, 0xE8 }, // time to completion: 1000 ms
    } );
    mNet.Expect( COMMAND ).Reply( lPending ).Reply( ANSWER, AFTER_MS( 1000 ) );
    EXPECT_TRUE( Send().IsOK() );
    ExpectCounters( mLink, 0, 0, 1, 0 );
    ExpectLog( {} );
}

TEST_F( SendCommandTest, AcceptsAPendingAcknowledgeFollowedByMoreBytes )
{
    const Bytes lPending = Packet( {
        { 0x00, 0x00 },             // status: success
        { 0x00, 0x89 },             // acknowledge: PENDINGACK
        { 0x00, 0x08 },             // length
        { 0xB1, 0x23 },             // acknowledge identifier
        { 0x00, 0x00 },             // reserved
        { 0x03, 0xE8 },             // time to completion: 1000 ms
        { 0x00, 0x00, 0x00, 0x00 }, // more
    } );
    mNet.Expect( COMMAND ).Reply( lPending ).Reply( ANSWER, AFTER_MS( 1000 ) );
    EXPECT_TRUE( Send().IsOK() );
    EXPECT_EQ( mNet.GetSelectTimeouts(), Waits( { 400, 1000 } ) );
    ExpectCounters( mLink, 0, 0, 1, 0 );
}

TEST_F( SendCommandTest, TakesTheTimeOfAPendingAcknowledgeWhateverItsLengthFieldSays )
{
    for ( const int lLength : { 0, 1, 2, 3, 5, 255 } )
    {
        mLog.Clear();
        mLink.ResetStats();
        mLink.mRequestID = 0xB123;
        const std::size_t lBefore = mNet.GetSelectTimeouts().size();
        const Bytes lPending = Packet( {
            { 0x00, 0x00 },                            // status: success
            { 0x00, 0x89 },                            // acknowledge: PENDINGACK
            { 0x00, static_cast<uint8_t>( lLength ) }, // length: not the 4 bytes that follow
            { 0xB1, 0x23 },                            // acknowledge identifier
            { 0x00, 0x00 },                            // reserved
            { 0x13, 0x88 },                            // time to completion: 5000 ms
        } );
        mNet.Expect( COMMAND ).Reply( lPending ).Reply( ANSWER, AFTER_MS( 4999 ) );
        EXPECT_TRUE( Send().IsOK() ) << lLength;
        const Waits& lAll = mNet.GetSelectTimeouts();
        EXPECT_EQ( Waits( lAll.begin() + static_cast<std::ptrdiff_t>( lBefore ), lAll.end() ),
                   Waits( { 400, 5000 } ) )
            << lLength;
        ExpectCounters( mLink, 0, 0, 1, 0 );
        ExpectLog( {} );
    }
}

TEST_F( SendCommandTest, TreatsEveryTruncationOfAPendingAcknowledgeAsAStray )
{
    mLink.mRetryCount = 1;
    for ( std::size_t lSize = 0; lSize < PENDING_5000.size(); ++lSize )
    {
        mLog.Clear();
        mLink.mRequestID = 0xB123;
        const long long lStart = GetElapsed();
        mNet.Expect( COMMAND ).Reply( Prefix( PENDING_5000, lSize ), AFTER_MS( 100 ) );
        EXPECT_EQ( Send().GetCode(), 0x001EU ) << lSize;
        EXPECT_EQ( GetElapsed(), lStart + 400 ) << lSize;
        ExpectLog( { mLines.UNEXPECTED, mLines.TIMEOUT, mLines.FAILURE } );
    }
    ExpectCounters( mLink, 0, 0, 0, 0 );
}

TEST_F( SendCommandTest, DoesNotTreatAShortDatagramAsTheEarlierPendingAcknowledge )
{
    // What the pending acknowledge left in the buffer is still there.
    for ( std::size_t lSize = 0; lSize < PENDING_1000.size(); ++lSize )
    {
        mLog.Clear();
        mLink.ResetStats();
        mLink.mRequestID = 0xB123;
        const std::size_t lBefore = mNet.GetSelectTimeouts().size();
        mNet.Expect( COMMAND )
            .Reply( PENDING_1000, AFTER_MS( 10 ) )
            .Reply( Prefix( PENDING_1000, lSize ), AFTER_MS( 20 ) )
            .Reply( ANSWER, AFTER_MS( 1010 ) );
        EXPECT_TRUE( Send().IsOK() ) << lSize;
        const Waits& lAll = mNet.GetSelectTimeouts();
        EXPECT_EQ( Waits( lAll.begin() + static_cast<std::ptrdiff_t>( lBefore ), lAll.end() ),
                   Waits( { 400, 1000, 990 } ) )
            << lSize;
        ExpectCounters( mLink, 0, 0, 1, 0 );
        ExpectLog( { mLines.UNEXPECTED } );
    }
}

TEST_F( SendCommandTest, TreatsAPendingAcknowledgeThatDoesNotFitTheBufferAsAStray )
{
    mLink.mRetryCount = 1;
    mArea.resize( 11 );
    mNet.Expect( COMMAND ).Reply( PENDING_5000, AFTER_MS( 100 ) );
    EXPECT_EQ( Send().GetCode(), 0x001EU );
    EXPECT_EQ( GetElapsed(), 400 );
    ExpectCounters( mLink, 0, 0, 0, 0 );
}

TEST_F( SendCommandTest, ChecksForTheAcknowledgeFirst )
{
    // A command whose acknowledge has the code of a PENDINGACK.
    CommandHeader lCommand( 0x0088 );
    const Bytes lSent = Packet( {
        { 0x42, 0x01 }, // key, flags
        { 0x00, 0x88 }, // command
        { 0x00, 0x00 }, // length
        { 0xB1, 0x23 }, // request identifier
    } );
    mNet.Expect( lSent ).Reply( PENDING_5000 );
    EXPECT_TRUE( mLink.SendCommand( &lCommand, mArea.data(), 64, false ).IsOK() );
    EXPECT_EQ( GetElapsed(), 0 );
    ExpectCounters( mLink, 0, 0, 0, 0 );
}

// Datagrams that are not the answer.

TEST_F( SendCommandTest, DropsOtherDatagramsAndKeepsWaiting )
{
    const struct
    {
        const char* mWhat;
        Bytes mBytes;
    } lStrays[] = {
        { "empty", {} },
        { "one byte", { 0x00 } },
        { "header cut", { 0x00, 0x00, 0x00, 0x81, 0x00, 0x00, 0xB1 } },
        { "another identifier", { 0, 0, 0, 0x81, 0, 4, 0xB1, 0x24, 1, 2, 3, 4 } },
        { "identifier's bytes swapped", { 0, 0, 0, 0x81, 0, 4, 0x23, 0xB1, 1, 2, 3, 4 } },
        { "identifier's low byte only", { 0, 0, 0, 0x81, 0, 4, 0x00, 0x23, 1, 2, 3, 4 } },
        { "acknowledge of WRITEREG", { 0, 0, 0, 0x83, 0, 4, 0xB1, 0x23, 1, 2, 3, 4 } },
        { "acknowledge of READMEM", { 0, 0, 0, 0x85, 0, 4, 0xB1, 0x23, 1, 2, 3, 4 } },
        { "the command's own code", { 0, 0, 0, 0x80, 0, 4, 0xB1, 0x23, 1, 2, 3, 4 } },
        { "code's high byte wrong", { 0, 0, 0x01, 0x81, 0, 4, 0xB1, 0x23, 1, 2, 3, 4 } },
        { "length too small", { 0, 0, 0, 0x81, 0, 3, 0xB1, 0x23, 1, 2, 3, 4 } },
        { "length too large", { 0, 0, 0, 0x81, 0, 5, 0xB1, 0x23, 1, 2, 3, 4 } },
        { "length with high byte", { 0, 0, 0, 0x81, 1, 4, 0xB1, 0x23, 1, 2, 3, 4 } },
        { "one byte more", { 0, 0, 0, 0x81, 0, 4, 0xB1, 0x23, 1, 2, 3, 4, 5 } },
        { "length of a longest packet", { 0, 0, 0, 0x81, 0xFF, 0xFF, 0xB1, 0x23, 1, 2, 3, 4 } },
        { "the command itself", COMMAND },
        { "refusal with another identifier", { 0x80, 0x06, 0, 0x81, 0, 0, 0xB1, 0x24 } },
        { "event", { 0x42, 0x01, 0, 0xC0, 0, 0, 0xB1, 0x23 } },
        { "noise", Bytes( 64, 0xFF ) },
        { "more than the area", Bytes( 600, 0x00 ) },
    };
    for ( const auto& lStray : lStrays )
    {
        mLog.Clear();
        mLink.mRequestID = 0xB123;
        const std::size_t lBefore = mNet.GetSelectTimeouts().size();
        const long long lStart = GetElapsed();
        mNet.Expect( COMMAND )
            .Reply( lStray.mBytes, AFTER_MS( 100 ) )
            .Reply( ANSWER, AFTER_MS( 250 ) );
        EXPECT_TRUE( Send().IsOK() ) << lStray.mWhat;
        EXPECT_EQ( GetElapsed(), lStart + 250 ) << lStray.mWhat;
        const Waits& lAll = mNet.GetSelectTimeouts();
        EXPECT_EQ( Waits( lAll.begin() + static_cast<std::ptrdiff_t>( lBefore ), lAll.end() ),
                   Waits( { 400, 300 } ) )
            << lStray.mWhat;
        ExpectLog( { mLines.UNEXPECTED } );
    }
    ExpectCounters( mLink, 0, 0, 0, 0 );
}

TEST_F( SendCommandTest, DropsTheLateAnswerOfAnEarlierCommand )
{
    mLink.mRetryCount = 1;
    const Bytes lSecond = Packet( {
        { 0x42, 0x01 },             // key, flags
        { 0x00, 0x80 },             // command: READREG
        { 0x00, 0x04 },             // length
        { 0xB1, 0x24 },             // the next request identifier
        { 0x00, 0x00, 0x09, 0x34 }, // address
    } );
    const Bytes lSecondAnswer = Packet( {
        { 0x00, 0x00 },             // status: success
        { 0x00, 0x81 },             // acknowledge: READREG
        { 0x00, 0x04 },             // length
        { 0xB1, 0x24 },             // acknowledge identifier
        { 0x05, 0x06, 0x07, 0x08 }, // value
    } );
    mNet.Expect( COMMAND )
        .Reply( ANSWER, AFTER_MS( 500 ) )
        .Expect( lSecond )
        .Reply( lSecondAnswer, AFTER_MS( 200 ) );
    EXPECT_EQ( Send().GetCode(), 0x001EU );
    EXPECT_TRUE( Send().IsOK() );
    EXPECT_EQ( Prefix( mArea, lSecondAnswer.size() ), lSecondAnswer );
    EXPECT_EQ( GetElapsed(), 600 );
    ExpectLog( { mLines.TIMEOUT, mLines.FAILURE, mLines.UNEXPECTED } );
}

TEST_F( SendCommandTest, DoesNotJudgeADatagramByTheBytesOfAnEarlierOne )
{
    // A whole answer with a byte too many, then nothing at all, and then its header's last byte
    // cut: were the bytes still in the area taken for received ones, they would make an answer.
    const Bytes lTooLong{ 0, 0, 0, 0x81, 0, 4, 0xB1, 0x23, 1, 2, 3, 4, 5 };
    mLink.mRetryCount = 1;
    mNet.Expect( COMMAND )
        .Reply( lTooLong, AFTER_MS( 100 ) )
        .Reply( {}, AFTER_MS( 110 ) )
        .Reply( Prefix( ANSWER, 7 ), AFTER_MS( 120 ) )
        .Reply( Prefix( ANSWER, 8 ), AFTER_MS( 130 ) );
    EXPECT_EQ( Send().GetCode(), 0x001EU );
    ExpectLog( { mLines.UNEXPECTED, mLines.UNEXPECTED, mLines.UNEXPECTED, mLines.UNEXPECTED,
                 mLines.TIMEOUT, mLines.FAILURE } );
}

TEST_F( SendCommandTest, AcceptsAnAnswerFromAnySenderThatTheSocketAccepts )
{
    mNet.Expect( COMMAND ).ReplyFrom( { WdUtilsLib::Network::IpAddress( 0xC0000263 ), 50000 },
                                      ANSWER );
    EXPECT_TRUE( Send().IsOK() );
    ExpectLog( {} );
}

TEST_F( SendCommandTest, SendsToThePeerThatTheOwnerConnectedTheSocketTo )
{
    mNet.Expect( COMMAND ).Reply( ANSWER );
    EXPECT_TRUE( Send().IsOK() );
    ASSERT_EQ( mNet.GetSends().size(), 1U );
    EXPECT_EQ( mNet.GetSends()[0].mTo.mAddress.GetString(), "192.0.2.10" );
    EXPECT_EQ( mNet.GetSends()[0].mTo.mPort, 3956 );
}

// Receives that fail.

TEST_F( SendCommandTest, ReturnsAReceiveErrorAtOnce )
{
    const struct
    {
        unsigned int mCode;
        unsigned int mOSCode;
        const char* mText;
    } lErrors[] = {
        { 0x4000, ECONNREFUSED, "no program listens" },
        { 0x4000, 0, "" },
        { 0x0017, 0, "" },
        { 0x0001, 7, "" },
        { 0x0605, 0, "not set" },
        { 0xFFFF, 0, "" },
        { 0xABCDEF01, 1, "beyond all names" },
    };
    for ( const auto& lError : lErrors )
    {
        mLink.mRequestID = 0xB123;
        const long long lStart = GetElapsed();
        const Result lFailure( lError.mCode, lError.mOSCode, String( lError.mText ) );
        mNet.Expect( COMMAND ).FailReceive( lFailure, AFTER_MS( 30 ) );
        const Result lResult = Send();
        EXPECT_EQ( lResult.GetCode(), lError.mCode );
        EXPECT_EQ( lResult.GetOSCode(), lError.mOSCode );
        EXPECT_STREQ( lResult.GetDescription().GetAscii(), lError.mText );
        EXPECT_EQ( GetElapsed(), lStart + 30 );
    }
    EXPECT_TRUE( IsAreaUntouched() );
    ExpectCounters( mLink, 0, 0, 0, 0 );
    ExpectLog( {} );
}

TEST_F( SendCommandTest, ReturnsAReceiveErrorOfALaterAttemptAtOnce )
{
    mNet.Expect( COMMAND ).Silence().Expect( COMMAND ).Reply( STRAY ).FailReceive(
        Result( Result::GENERIC_ERROR, ECONNREFUSED ), AFTER_MS( 1 ) );
    const Result lResult = Send();
    EXPECT_EQ( lResult.GetCode(), 0x4000U );
    EXPECT_EQ( lResult.GetOSCode(), static_cast<unsigned int>( ECONNREFUSED ) );
    EXPECT_EQ( GetElapsed(), 401 );
    ExpectLog( { mLines.TIMEOUT, mLines.RETRY, mLines.UNEXPECTED } );
}

TEST_F( SendCommandTest, TreatsAReceiveTimeoutAsTheEndOfTheAttempt )
{
    mNet.Expect( COMMAND )
        .FailReceive( Result( Result::TIMEOUT ), AFTER_MS( 100 ) )
        .Expect( COMMAND )
        .Reply( ANSWER );
    EXPECT_TRUE( Send().IsOK() );
    EXPECT_EQ( GetSendTimes(), Times( { 0, 100 } ) );
    ExpectCounters( mLink, 1, 1, 0, 0 );
    ExpectLog( { mLines.TIMEOUT, mLines.RETRY } );
}

TEST_F( SendCommandTest, FailsWithTimeoutWhenEveryReceiveTimesOut )
{
    mLink.mRetryCount = 2;
    mNet.Expect( COMMAND )
        .FailReceive( Result( Result::TIMEOUT, 11, String( "system" ) ), AFTER_MS( 100 ) )
        .Expect( COMMAND )
        .FailReceive( Result( Result::TIMEOUT, 11, String( "system" ) ), AFTER_MS( 100 ) );
    const Result lResult = Send();
    EXPECT_EQ( lResult.GetCode(), 0x001EU );
    EXPECT_STREQ( lResult.GetDescription().GetAscii(), "Command link operation failure" );
    EXPECT_EQ( GetElapsed(), 200 );
    ExpectLog( { mLines.TIMEOUT, mLines.RETRY, mLines.TIMEOUT, mLines.FAILURE } );
}

TEST_F( SendCommandTest, EndsAtOnceWhenTheSocketIsClosedWhileItWaits )
{
    mNet.Expect( COMMAND ).Do(
        [this]
        {
            (void)mSocket.Close(); /* cannot fail */
        },
        AFTER_MS( 150 ) );
    EXPECT_EQ( Send().GetCode(), 0x0017U );
    EXPECT_EQ( GetElapsed(), 150 );
    ExpectCounters( mLink, 0, 0, 0, 0 );
    ExpectLog( {} );
}

TEST_F( SendCommandTest, EndsAtOnceWhenTheSocketIsClosedWhileTheDeviceAsksForTime )
{
    mNet.Expect( COMMAND )
        .Reply( PENDING_65535 )
        .Do(
            [this]
            {
                (void)mSocket.Close(); /* cannot fail */
            },
            AFTER_MS( 2000 ) );
    EXPECT_EQ( Send().GetCode(), 0x0017U );
    EXPECT_EQ( GetElapsed(), 2000 );
    ExpectLog( {} );
}

TEST_F( SendCommandTest, EndsWhenTheSocketIsClosedBetweenTwoAttempts )
{
    int lAsked = 0;
    mLink.mOnRetryCount = [this, &lAsked]
    {
        if ( ++lAsked == 2 )
        {
            (void)mSocket.Close(); // cannot fail
        }
    };
    mNet.Expect( COMMAND ).Silence();
    EXPECT_EQ( Send().GetCode(), 0x0017U );
    EXPECT_EQ( GetElapsed(), 400 );
    ExpectCounters( mLink, 1, 1, 0, 1 );
    ExpectLog( { mLines.TIMEOUT, mLines.RETRY, mLines.UNABLE } );
}

// What the device says.

struct StatusCase
{
    uint8_t mHigh;
    uint8_t mLow;
    const char* mText;
};

constexpr const char* INVALID = "Invalid answer received from device";

const StatusCase STATUSES[] = {
    { 0x80, 0x01, "Not implemented status received from the device." },
    { 0x80, 0x02, "Invalid parameter status received from the device." },
    { 0x80, 0x03, "Invalid address status received from the device." },
    { 0x80, 0x04, "Write protect status received from the device." },
    { 0x80, 0x06,
      "Access denied status received from the device. The device is probably already "
      "in use." },
    { 0x80, 0x07, "Busy status received from the device." },
    { 0x80, 0x08, "Local problem status received from the device." },
    { 0x80, 0x0A, "Invalid protocol status received from the device." },
    { 0x80, 0x05, INVALID }, // bad alignment
    { 0x80, 0x09, INVALID }, // message mismatch
    { 0x80, 0x0B, INVALID }, // no message
    { 0x80, 0x0C, INVALID }, // packet unavailable
    { 0x80, 0x0D, INVALID }, // data overrun
    { 0x80, 0x0E, INVALID }, // invalid header
    { 0x80, 0x00, INVALID },
    { 0x8F, 0xFF, INVALID },
    { 0x00, 0x01, INVALID },
    { 0x00, 0x06, INVALID },
    { 0x01, 0x00, INVALID },
    { 0x06, 0x80, INVALID },
    { 0xFF, 0xFF, INVALID },
};

TEST_F( SendCommandTest, ReportsWhyTheDeviceRefused )
{
    for ( const StatusCase& lCase : STATUSES )
    {
        mLink.mRequestID = 0xB123;
        mNet.Expect( COMMAND ).Reply( Refusal( lCase.mHigh, lCase.mLow ) );
        const Result lResult = Send();
        EXPECT_EQ( lResult.GetCode(), 0x4000U ) << lCase.mText;
        EXPECT_EQ( lResult.GetOSCode(), 0U ) << lCase.mText;
        EXPECT_STREQ( lResult.GetDescription().GetAscii(), lCase.mText );
    }
    EXPECT_EQ( mNet.GetSends().size(), std::size( STATUSES ) ); // none was sent again
    EXPECT_EQ( GetElapsed(), 0 );
    ExpectCounters( mLink, 0, 0, 0, 0 );
    ExpectLog( {} );
}

TEST_F( SendCommandTest, ReportsWhyTheDeviceRefusedEvenIfTheRefusalHasAPayload )
{
    for ( const StatusCase& lCase : STATUSES )
    {
        mLink.mRequestID = 0xB123;
        mNet.Expect( COMMAND ).Reply( Packet( {
            { lCase.mHigh, lCase.mLow }, // status
            { 0x00, 0x81 },              // acknowledge: READREG
            { 0x00, 0x04 },              // length
            { 0xB1, 0x23 },              // acknowledge identifier
            { 0x00, 0x00, 0x00, 0x00 },  // value
        } ) );
        const Result lResult = Send();
        EXPECT_EQ( lResult.GetCode(), 0x4000U ) << lCase.mText;
        EXPECT_STREQ( lResult.GetDescription().GetAscii(), lCase.mText );
    }
    ExpectLog( {} );
}

TEST_F( SendCommandTest, ReturnsAStatusAfterRetriesAndPendingAcknowledges )
{
    mNet.Expect( COMMAND )
        .Silence()
        .Expect( COMMAND )
        .Reply( PENDING_1000 )
        .Reply( Refusal( 0x80, 0x06 ), AFTER_MS( 900 ) );
    const Result lResult = Send();
    EXPECT_EQ( lResult.GetCode(), 0x4000U );
    EXPECT_STREQ( lResult.GetDescription().GetAscii(),
                  "Access denied status received from the device. The device is probably already "
                  "in use." );
    ExpectCounters( mLink, 1, 1, 1, 0 );
    ExpectLog( { mLines.TIMEOUT, mLines.RETRY } );
}

// The caller's command and area.

TEST_F( SendCommandTest, SendsHeaderAndPayloadAndNothingElse )
{
    CommandHeader lCommand( 0x0002 );
    const Bytes lSent = Packet( {
        { 0x42, 0x01 }, // key, flags
        { 0x00, 0x02 }, // command: DISCOVERY
        { 0x00, 0x00 }, // length
        { 0xB1, 0x23 }, // request identifier
    } );
    const Bytes lAnswer = Packet( {
        { 0x00, 0x00 }, // status: success
        { 0x00, 0x03 }, // acknowledge: DISCOVERY
        { 0x00, 0x00 }, // length
        { 0xB1, 0x23 }, // acknowledge identifier
    } );
    mNet.Expect( lSent ).Reply( lAnswer );
    EXPECT_TRUE( mLink.SendCommand( &lCommand, mArea.data(), 64, false ).IsOK() );
}

TEST_F( SendCommandTest, ReceivesAsMuchAsTheCallersBufferHolds )
{
    mArea.assign( 12 + 4, FILL );
    mNet.Expect( COMMAND ).Reply( ANSWER );
    EXPECT_TRUE( mLink.SendCommand( &mCommand, mArea.data(), 12, false ).IsOK() );
    EXPECT_EQ( mNet.GetReceiveSizes(), Sizes( { 12 } ) );
    EXPECT_EQ( Prefix( mArea, 12 ), ANSWER );
    EXPECT_EQ( Bytes( mArea.begin() + 12, mArea.end() ), Bytes( 4, FILL ) );
}

TEST_F( SendCommandTest, TreatsAnAnswerThatDoesNotFitTheBufferAsAStray )
{
    for ( const long long lSize : { 11LL, 8LL, 7LL, 0LL, -1LL, LLONG_MIN } )
    {
        mLog.Clear();
        mLink.mRetryCount = 1;
        mLink.mRequestID = 0xB123;
        mArea.assign( 64, FILL );
        mNet.Expect( COMMAND ).Reply( ANSWER );
        EXPECT_EQ( mLink.SendCommand( &mCommand, mArea.data(), lSize, false ).GetCode(), 0x001EU );
        const auto lCapacity = static_cast<std::size_t>( lSize > 0 ? lSize : 0 );
        EXPECT_EQ( mNet.GetReceiveSizes().back(), static_cast<int>( lCapacity ) );
        EXPECT_EQ( Bytes( mArea.begin() + static_cast<std::ptrdiff_t>( lCapacity ), mArea.end() ),
                   Bytes( mArea.size() - lCapacity, FILL ) );
        ExpectLog( { mLines.UNEXPECTED, mLines.TIMEOUT, mLines.FAILURE } );
    }
}

TEST_F( SendCommandTest, DoesNotTruncateTheSizeOfAVeryLargeBuffer )
{
    // The area is not that large; the answer fits what it really is.
    mNet.Expect( COMMAND ).Reply( ANSWER );
    EXPECT_TRUE( mLink.SendCommand( &mCommand, mArea.data(), 0x1'0000'0004LL, false ).IsOK() );
    EXPECT_EQ( mNet.GetReceiveSizes(), Sizes( { INT_MAX } ) );
}

// Counters, flag, log and mutex.

TEST_F( SendCommandTest, CountsUntilItIsReset )
{
    mNet.Expect( COMMAND )
        .Refuse( Result( Result::GENERIC_ERROR ) )
        .Reply( PENDING_50 )
        .Expect( COMMAND )
        .Reply( ANSWER );
    EXPECT_TRUE( Send().IsOK() );
    ExpectCounters( mLink, 1, 1, 1, 1 );
    mLink.mRequestID = 0xB123;
    mNet.Expect( COMMAND ).Reply( PENDING_50 ).Reply( ANSWER );
    EXPECT_TRUE( Send().IsOK() );
    ExpectCounters( mLink, 1, 1, 2, 1 );
    mLink.ResetStats();
    ExpectCounters( mLink, 0, 0, 0, 0 );
    mLink.mRequestID = 0xB123;
    mNet.Expect( COMMAND ).Silence().Expect( COMMAND ).Reply( ANSWER );
    EXPECT_TRUE( Send().IsOK() );
    ExpectCounters( mLink, 1, 1, 0, 0 );
}

TEST_F( SendCommandTest, MayBeResetInTheMiddle )
{
    mNet.Expect( COMMAND )
        .Silence()
        .Expect( COMMAND )
        .Do( [this] { mLink.ResetStats(); }, AFTER_MS( 10 ) )
        .Expect( COMMAND )
        .Reply( ANSWER );
    EXPECT_TRUE( Send().IsOK() );
    ExpectCounters( mLink, 1, 2, 0, 0 );
}

TEST_F( SendCommandTest, IgnoresTheConnectionLostFlag )
{
    for ( const bool lLost : { false, true } )
    {
        mLink.mRetryCount = 2;
        mLink.mSocket = &mSocket;
        lLost ? mLink.SetConnectionLost() : mLink.ResetConnectionLost();
        const auto lSend = [this, lLost]( unsigned int aCode )
        {
            mLink.mRequestID = 0xB123;
            EXPECT_EQ( Send().GetCode(), aCode );
            EXPECT_EQ( mLink.GetConnectionLost(), lLost );
        };
        mNet.Expect( COMMAND ).Reply( ANSWER );
        lSend( 0x0000 );
        mNet.Expect( COMMAND ).Silence().Expect( COMMAND ).Silence();
        lSend( 0x001E );
        mNet.Expect( COMMAND ).Reply( Refusal( 0x80, 0x06 ) );
        lSend( 0x4000 );
        mNet.Expect( COMMAND ).FailReceive( Result( Result::GENERIC_ERROR, ECONNREFUSED ) );
        lSend( 0x4000 );
        mNet.Expect( COMMAND ).Refuse( Result( 0x4000 ) ).Expect( COMMAND ).Refuse( 0x4000 );
        lSend( 0x001E );
        mLink.mSocket = nullptr;
        lSend( 0x0017 );
    }
}

// Everything that is logged at 30000, and then the failure at 40000.
void ScriptEveryRecord( ScriptedNetwork& aNet )
{
    aNet.Expect( COMMAND )
        .Refuse( Result( Result::GENERIC_ERROR ) )
        .Reply( STRAY )
        .Expect( COMMAND )
        .Silence();
}

TEST_F( SendCommandTest, LogsWhenThePriorityIsEnabled )
{
    mLink.mRetryCount = 2;
    ScriptEveryRecord( mNet );
    EXPECT_EQ( Send().GetCode(), 0x001EU );
    ExpectLog( { mLines.UNABLE, mLines.UNEXPECTED, mLines.TIMEOUT, mLines.RETRY, mLines.TIMEOUT,
                 mLines.FAILURE } );
}

TEST_F( SendCommandTest, DoesTheSameWithoutLoggingWhenThePriorityIsNotEnabled )
{
    // Log does not check the threshold, so the link has to check it first.
    for ( const int lThreshold : { 30001, 40000, 40001 } )
    {
        QmUtilsLib::Logger::SetThreshold( lThreshold );
        mLog.Clear();
        mLink.ResetStats();
        mLink.mRetryCount = 2;
        mLink.mRequestID = 0xB123;
        const long long lStart = GetElapsed();
        ScriptEveryRecord( mNet );
        const Result lResult = Send();
        EXPECT_EQ( lResult.GetCode(), 0x001EU );
        EXPECT_STREQ( lResult.GetDescription().GetAscii(), "Command link operation failure" );
        EXPECT_EQ( GetElapsed(), lStart + 800 );
        ExpectCounters( mLink, 1, 1, 0, 1 );
        ExpectLog( lThreshold <= 40000 ? Log{ mLines.FAILURE } : Log{} );
    }
}

TEST_F( SendCommandTest, ReleasesTheMutexWhateverTheEnd )
{
    const auto lExpectFree = [this]( const Result& aResult, unsigned int aCode )
    {
        EXPECT_EQ( aResult.GetCode(), aCode );
        EXPECT_TRUE( IsMutexFree( mLink ) );
        mLink.mRequestID = 0xB123;
    };
    mLink.mRetryCount = 1;
    mNet.Expect( COMMAND ).Reply( ANSWER );
    lExpectFree( Send(), 0x0000 );
    mNet.Expect( COMMAND );
    lExpectFree( Send( true ), 0x0000 );
    mNet.Expect( COMMAND ).Reply( Refusal( 0x80, 0x06 ) );
    lExpectFree( Send(), 0x4000 );
    mNet.Expect( COMMAND ).FailReceive( Result( Result::GENERIC_ERROR, ECONNREFUSED ) );
    lExpectFree( Send(), 0x4000 );
    mNet.Expect( COMMAND ).Silence();
    lExpectFree( Send(), 0x001E );
    mLink.mRetryCount = 0;
    lExpectFree( Send(), 0x0605 );
    mLink.mSocket = nullptr;
    lExpectFree( Send(), 0x0017 );
}

TEST_F( SendCommandTest, RunsForTheThreadThatHoldsTheMutex )
{
    mNet.Expect( COMMAND ).Reply( ANSWER );
    mLink.LockMutex();
    EXPECT_TRUE( Send().IsOK() );
    mLink.ReleaseMutex();
    EXPECT_TRUE( IsMutexFree( mLink ) );
}

} // namespace
