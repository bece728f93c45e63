// gev monitor.

#include "tests/integration/tool/ToolTest.h"

#include <QmUtilsLib/Thread.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <memory>
#include <optional>
#include <regex>
#include <thread>

using testing::AllOf;
using testing::ContainsRegex;
using testing::Each;
using testing::EndsWith;
using testing::Field;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

namespace TestSupport
{

namespace
{

namespace Command = Simulators::Command;
using Json = nlohmann::json;
using QmUtilsLib::Thread;

constexpr uint32_t REGISTER = 0xA000;
constexpr const char* ADDRESS = "0xA000";
constexpr int PATIENCE_MS = 20000;

class Monitor : public ToolTest
{
protected:
    // The arguments of one that reads every 20 ms.
    static Arguments Quickly( const Arguments& aMore = {} )
    {
        Arguments lArguments = { ADDRESS, "--interval", "20" };
        lArguments.insert( lArguments.end(), aMore.begin(), aMore.end() );
        return lArguments;
    }

    std::unique_ptr<ChildProcess> Start( const Arguments& aArguments,
                                         const ChildProcess::Options& aOptions = {} )
    {
        return std::make_unique<ChildProcess>( MakeGevCommand( "monitor", aArguments ), aOptions );
    }

    // The next line as JSON. If it is not JSON, returns null and fails the test.
    static Json ReadReport( ChildProcess& aChild )
    {
        const std::optional<std::string> lLine = aChild.ReadLine();
        const Json lReport = Json::parse( lLine.value_or( "" ), nullptr, false );
        EXPECT_TRUE( lReport.is_object() ) << lLine.value_or( "no line" );
        return lReport.is_object() ? lReport : Json();
    }

    // Reads reports until one is as it should be. Fails the test when none is in time.
    template <typename Condition>
    static Json ReadUntil( ChildProcess& aChild, const Condition& aCondition )
    {
        Json lReport;
        for ( int lLine = 0; lLine < 20 && !testing::Test::HasFailure(); ++lLine )
        {
            lReport = ReadReport( aChild );
            if ( !lReport.is_null() && aCondition( lReport ) )
            {
                return lReport;
            }
        }
        ADD_FAILURE() << "no such report, at last " << lReport;
        return lReport;
    }

    // Ends it and returns its summary.
    static Json Finish( ChildProcess& aChild, int aStatus, int aSignal = SIGINT )
    {
        aChild.Signal( aSignal );
        const Ending lEnding = aChild.Wait( PATIENCE_MS );
        EXPECT_TRUE( lEnding.mExited );
        EXPECT_EQ( lEnding.mStatus, aStatus ) << aChild.GetError();
        const std::string& lOutput = aChild.GetOutput();
        const size_t lEnd = lOutput.rfind( '\n', lOutput.size() - 2 );
        const Json lReport = Json::parse(
            lOutput.substr( lEnd == std::string::npos ? 0 : lEnd + 1 ), nullptr, false );
        EXPECT_TRUE( lReport.is_object() && lReport.contains( "summary" ) ) << lOutput;
        return lReport;
    }

    // A device on which each command takes long. It announces this aTimes times.
    void ServeSlowly( uint32_t aTakesMs, uint16_t aTimes )
    {
        Simulators::ConfigurationGEV lConfiguration;
        lConfiguration.mPending.mTimes = aTimes;
        lConfiguration.mPending.mTakesMs = aTakesMs;
        lConfiguration.mPending.mAnnouncedMs = static_cast<uint16_t>( aTakesMs + PATIENCE_MS );
        Serve( lConfiguration );
    }

    // Waits until the device has got so many commands a second time, and no more.
    bool WaitForRepeated( long long aCount )
    {
        long long lRepeated = -1;
        for ( int lTry = 0; lTry < 1000 && lRepeated != aCount; ++lTry )
        {
            std::this_thread::sleep_for( std::chrono::milliseconds( 10 ) );
            lRepeated = GetDevice().mServer.Access(
                [this]
                {
                    return static_cast<long long>(
                        GetDevice().mDevice.GetCounters( Command::READREG ).mRepeated );
                } );
        }
        return lRepeated == aCount;
    }

    static long long GetCount( const Json& aReport, const char* aName )
    {
        return aReport.at( "statistics" ).at( aName ).get<long long>();
    }
};

ChildProcess::Options OnATerminal()
{
    ChildProcess::Options lTerminal;
    lTerminal.mOutputIsTerminal = true;
    return lTerminal;
}

} // namespace

TEST_F( Monitor, PrintsALineOfJsonPerSecond )
{
    WriteWord( REGISTER, 0xCAFE0001 );
    const auto lChild = Start( Quickly( { "--json" } ) );
    const long long lStart = Thread::GetTickCount();
    Json lFirst = ReadReport( *lChild );
    Json lSecond = ReadReport( *lChild );
    EXPECT_GE( Thread::GetTickCount() - lStart, 1000 );
    for ( Json lReport : { lFirst, lSecond } )
    {
        EXPECT_EQ( lReport["device"], GetTarget() );
        EXPECT_EQ( lReport["address"], REGISTER );
        EXPECT_EQ( lReport["value"], 0xCAFE0001 );
        EXPECT_GT( lReport["rate"], 0.0 );
        EXPECT_LE( lReport["rate"], 1e3 );
        // A value has 32 bits; another may have come between the two readings.
        const double lRate = lReport["rate"];
        EXPECT_NEAR( lReport["bandwidth"], 32 * lRate, 16 * lRate );
        EXPECT_EQ( lReport["failedReads"], 0 );
        EXPECT_EQ( GetCount( lReport, "retries" ), 0 );
        EXPECT_EQ( GetCount( lReport, "pendingAcknowledges" ), 0 );
        EXPECT_EQ( GetCount( lReport, "transmitFailures" ), 0 );
        EXPECT_FALSE( lReport.contains( "error" ) );
    }
    EXPECT_GE( lFirst["elapsedMs"], 1000 );
    EXPECT_GE( lSecond["elapsedMs"], 2000 );
    EXPECT_GT( lSecond["reads"], lFirst["reads"] );

    Json lLast = Finish( *lChild, 0 );
    EXPECT_EQ( lLast["device"], GetTarget() );
    EXPECT_EQ( lLast["address"], REGISTER );
    Json& lSummary = lLast["summary"];
    EXPECT_GE( lSummary["reads"], lSecond["reads"] );
    EXPECT_GE( lSummary["elapsedMs"], lSecond["elapsedMs"] );
    EXPECT_EQ( lSummary["failedReads"], 0 );
    EXPECT_EQ( lSummary["lastValue"], 0xCAFE0001 );
    EXPECT_NEAR( lSummary["averageRate"],
                 lSummary["reads"].get<double>() * 1e3 / lSummary["elapsedMs"].get<double>(),
                 1e-6 );
    EXPECT_EQ( GetCount( lSummary, "transfers" ), lSummary["reads"] );
    EXPECT_THAT( lChild->GetError(), IsEmpty() );
}

TEST_F( Monitor, PrintsPlainLinesWithoutATerminal )
{
    WriteWord( REGISTER, 77 );
    const auto lChild = Start( Quickly() );
    (void)lChild->ReadLine(); // the first may be without a value
    const std::string lLine = lChild->ReadLine().value_or( "" );
    EXPECT_TRUE( std::regex_match(
        lLine, std::regex( "[0-9]+\\.[0-9] s  0x0000A000  0x0000004D  77  [0-9]+\\.[0-9]/s  "
                           "[0-9.]+ k?bit/s, 0 repeated commands, 0 pending acknowledges, 0 failed "
                           "reads, 0 transmit failures" ) ) )
        << lLine;
    lChild->Signal( SIGINT );
    EXPECT_EQ( lChild->Wait().mStatus, 0 ) << lChild->GetError();
    EXPECT_THAT(
        lChild->GetOutput(),
        ContainsRegex( "\n[0-9]+ reads in [0-9]+\\.[0-9] s, 0 failed, [0-9]+\\.[0-9] values/s "
                       "on average, the last 0x0000004D  77\n$" ) );
    EXPECT_THAT( lChild->GetOutput(), Not( HasSubstr( "\r" ) ) );
    ExpectOneSentence( lChild->GetError() );
    EXPECT_THAT( lChild->GetError(), StartsWith( "htbase: statistics: " ) );
}

TEST_F( Monitor, UpdatesOneLineOnATerminal )
{
    WriteWord( REGISTER, 0x11111111 );
    const auto lChild = Start( Quickly(), OnATerminal() );
    EXPECT_TRUE( lChild->WaitForOutput( "\r0x11111111  " ) );
    WriteWord( REGISTER, 0x22222222 );
    EXPECT_TRUE( lChild->WaitForOutput( "\r0x22222222  " ) );
    EXPECT_TRUE( lChild->WaitForOutput( "unsent 0 " ) );
    lChild->Signal( SIGINT );
    EXPECT_EQ( lChild->Wait().mStatus, 0 ) << lChild->GetError();
    const std::string& lOutput = lChild->GetOutput();
    EXPECT_THAT( lOutput, StartsWith( "register 0x0000A000 of " + GetTarget() +
                                      "; press Ctrl-C to end\n\r" ) );
    // A command that the signal overtakes counts as unsent.
    EXPECT_THAT( lOutput,
                 ContainsRegex( "\r0x22222222  [0-9]+\\.[0-9]/s  [0-9.]+ k?bit/s  retries 0  "
                                "pending 0  failed 0  unsent [01] *\n"
                                "[0-9]+ reads in .* the last 0x22222222  572662306\n$" ) );
    EXPECT_EQ( std::count( lOutput.begin(), lOutput.end(), '\n' ), 3 );
    // Each drawing fills the 79 columns, so nothing stays of the one before.
    const size_t lBegin = lOutput.find( '\n' ) + 1;
    const size_t lEnd = lOutput.find( '\n', lBegin );
    ASSERT_NE( lEnd, std::string::npos );
    EXPECT_EQ( ( lEnd - lBegin ) % 80, 0U ) << lOutput;
    for ( size_t lDrawing = lBegin; lDrawing < lEnd; lDrawing += 80 )
    {
        EXPECT_EQ( lOutput[lDrawing], '\r' );
    }
}

TEST_F( Monitor, PrintsLinesOnATerminalThatShowsTheLogToo )
{
    const auto lChild = Start( Quickly( { "-v" } ), OnATerminal() );
    EXPECT_TRUE( lChild->WaitForOutput( "transmit failures\n" ) );
    lChild->Signal( SIGINT );
    EXPECT_EQ( lChild->Wait().mStatus, 0 ) << lChild->GetError();
    EXPECT_THAT( lChild->GetOutput(), Not( HasSubstr( "\r" ) ) );
}

TEST_F( Monitor, ReadsNoMoreOftenThanTheInterval )
{
    const long long lStart = Thread::GetTickCount();
    const auto lChild = Start( { ADDRESS, "--interval", "200", "--json" } );
    (void)ReadUntil( *lChild, // only waited for
                     []( const Json& aReport ) { return aReport["reads"] > 4; } );
    Json lLast = Finish( *lChild, 0 );
    const long long lElapsed = Thread::GetTickCount() - lStart;
    EXPECT_LE( lLast["summary"]["reads"], lElapsed / 200 + 1 );
}

TEST_F( Monitor, OnlyReads )
{
    const auto lChild = Start( Quickly( { "--json" } ) );
    (void)ReadReport( *lChild ); // only waited for
    (void)Finish( *lChild, 0 );  // looked at elsewhere
    const std::vector<SeenCommand> lSeen = GetCommands();
    EXPECT_THAT( lSeen, Each( AllOf( Field( &SeenCommand::mCommand, Command::READREG ),
                                     Field( &SeenCommand::mAddress, REGISTER ) ) ) );
    EXPECT_FALSE( lSeen.empty() );
}

TEST_F( Monitor, ShowsCommandsThatWereRepeated )
{
    Simulators::FaultPlan::Rates lRates;
    lRates.mLoss = 0.3;
    Simulators::DeviceServer::Options lOptions;
    lOptions.mAnswerFaults = Simulators::FaultPlan( lRates, 3 );
    Serve( {}, lOptions );
    WriteWord( REGISTER, 5 );
    const auto lChild = Start( Quickly( { "--json", "--timeout", "30", "--retries", "50" } ) );
    (void)ReadUntil( *lChild,
                     []( const Json& aReport ) { return GetCount( aReport, "retries" ) > 3; } );
    Json lSummary = Finish( *lChild, 0 )["summary"];
    EXPECT_EQ( lSummary["failedReads"], 0 );
    EXPECT_EQ( lSummary["lastValue"], 5 );
    EXPECT_TRUE( WaitForRepeated( GetCount( lSummary, "retries" ) ) );
}

// Lines keep coming while the device takes its time.
TEST_F( Monitor, ShowsAPendingAcknowledgeWhileTheReadStillRuns )
{
    ServeSlowly( 60000, 1 );
    const auto lChild = Start( Quickly( { "--json" } ) );
    Json lFirst = ReadUntil( *lChild, []( const Json& aReport )
                             { return GetCount( aReport, "pendingAcknowledges" ) > 0; } );
    Json lSecond = ReadReport( *lChild );
    for ( Json lReport : { lFirst, lSecond } )
    {
        EXPECT_EQ( lReport["reads"], 0 );
        EXPECT_EQ( lReport["value"], nullptr );
        EXPECT_FALSE( lReport.contains( "error" ) );
        EXPECT_EQ( lReport["rate"], 0.0 );
        EXPECT_EQ( GetCount( lReport, "pendingAcknowledges" ), 1 );
    }
    // And Ctrl-C ends the read.
    const long long lStart = Thread::GetTickCount();
    Json lLast = Finish( *lChild, 1 );
    EXPECT_LT( Thread::GetTickCount() - lStart, 10000 );
    EXPECT_EQ( lLast["summary"]["reads"], 0 );
    EXPECT_EQ( lLast["summary"]["failedReads"], 0 );
    EXPECT_EQ( lLast["summary"]["lastValue"], nullptr );
    EXPECT_EQ( lLast["error"]["code"], "ABORTED" );
    EXPECT_EQ( lChild->GetError(), "htbase: interrupted before it could read register 0x0000A000 "
                                   "of " +
                                       GetTarget() + "\n" );
}

TEST_F( Monitor, LeavesOutTheReadsThatASlowOneHasDelayed )
{
    ServeSlowly( 300, 1 );
    const auto lChild = Start( Quickly( { "--json" } ) );
    Json lReport = ReadUntil( *lChild, []( const Json& aReport ) { return aReport["reads"] > 1; } );
    EXPECT_LE( lReport["reads"], lReport["elapsedMs"].get<long long>() / 300 );
    EXPECT_GE( GetCount( lReport, "pendingAcknowledges" ), lReport["reads"] );
    (void)Finish( *lChild, 0 ); // looked at elsewhere
}

// Each read takes 200 ms of the 400 until the next. Were the interval that from the end of a read
// on, there would never be more than one in 600 ms.
TEST_F( Monitor, CountsTheIntervalFromTheBeginningOfARead )
{
    ServeSlowly( 200, 1 );
    const auto lChild = Start( { ADDRESS, "--interval", "400", "--json" } );
    (void)ReadUntil( *lChild, // only waited for
                     []( const Json& aReport ) {
                         return aReport["reads"].get<long long>() * 600 >
                                aReport["elapsedMs"].get<long long>() + 600;
                     } );
    (void)Finish( *lChild, 0 ); // looked at elsewhere
}

TEST_F( Monitor, CountsFailedReadsAndGoesOn )
{
    WriteWord( REGISTER, 9 );
    const auto lChild =
        Start( { ADDRESS, "--interval", "20", "--json", "--timeout", "100", "--retries", "1" } );
    (void)ReadUntil( *lChild, []( const Json& aReport ) { return aReport["value"] == 9; } );
    SetSilent( REGISTER );
    Json lSilent =
        ReadUntil( *lChild, []( const Json& aReport ) { return aReport["value"].is_null(); } );
    EXPECT_GT( lSilent["failedReads"], 0 );
    EXPECT_EQ( lSilent["error"]["code"], "TIMEOUT" );
    EXPECT_THAT( lSilent["error"]["message"].get<std::string>(),
                 StartsWith( "cannot read register 0x0000A000 of " + GetTarget() + ": TIMEOUT" ) );
    // The meter has the last rate only, but nothing comes any more.
    (void)ReadUntil( *lChild, []( const Json& aReport )
                     { return aReport["rate"] == 0.0 && aReport["bandwidth"] == 0.0; } );
    SetSilent( REGISTER, false );
    const Json lBack = ReadUntil( *lChild, []( const Json& aReport )
                                  { return aReport["value"] == 9 && aReport["rate"] > 0.0; } );
    EXPECT_FALSE( lBack.contains( "error" ) );

    Json lLast = Finish( *lChild, 3 );
    EXPECT_GT( lLast["summary"]["failedReads"], 0 );
    EXPECT_LT( lLast["summary"]["failedReads"], lLast["summary"]["reads"] );
    EXPECT_EQ( lLast["summary"]["lastValue"], 9 );
    EXPECT_FALSE( lLast.contains( "error" ) );
    ExpectOneSentence( lChild->GetError() );
    EXPECT_THAT( lChild->GetError(),
                 AllOf( ContainsRegex( "htbase: [0-9]+ of [0-9]+ attempts to read register "
                                       "0x0000A000 of 127.0.0.1:[0-9]+ failed, the last with "
                                       "TIMEOUT" ),
                        HasSubstr( "firewall" ) ) );
}

// The time between reads that are far apart does not count as silence.
TEST_F( Monitor, ShowsTheRateOfASlowStreamAlsoBetweenItsReads )
{
    const auto lChild = Start( { ADDRESS, "--interval", "4000", "--json" } );
    Json lReport =
        ReadUntil( *lChild, []( const Json& aReport ) { return aReport["elapsedMs"] >= 7000; } );
    EXPECT_GE( lReport["reads"], 2 ); // the latest was 3 s ago
    EXPECT_GT( lReport["rate"], 0.0 );
    (void)Finish( *lChild, 0 ); // looked at elsewhere
}

TEST_F( Monitor, ShowsWhyAReadFailed )
{
    const auto lChild = Start( { "0x0020", "--interval", "20" } );
    EXPECT_TRUE( lChild->WaitForOutput( "  GENERIC_ERROR" ) );
    EXPECT_TRUE( lChild->WaitForOutput( " transmit failures\n" ) );
    EXPECT_THAT( lChild->GetOutput(),
                 AllOf( HasSubstr( " s  0x00000020  GENERIC_ERROR (Invalid address status received "
                                   "from the device)  0.0/s  0 bit/s" ),
                        ContainsRegex( ", [0-9]+ failed reads, " ) ) );
    lChild->Signal( SIGINT );
    EXPECT_EQ( lChild->Wait().mStatus, 1 ); // none has succeeded
    EXPECT_THAT( lChild->GetOutput(), EndsWith( ", 0.0 values/s on average, the last unknown\n" ) );
    EXPECT_THAT( lChild->GetError(), HasSubstr( "failed, the last with GENERIC_ERROR" ) );
}

TEST_F( Monitor, ShowsAFailureOnATerminalByItsCode )
{
    const auto lChild = Start( { "0x0020", "--interval", "20" }, OnATerminal() );
    EXPECT_TRUE( lChild->WaitForOutput( "\rGENERIC_ERROR  0.0/s  0 bit/s  retries 0  pending 0  "
                                        "failed " ) );
    lChild->Signal( SIGINT );
    EXPECT_EQ( lChild->Wait().mStatus, 1 );
}

TEST_F( Monitor, ReportsInJsonThatNoReadSucceeded )
{
    const auto lChild = Start( { "0x0020", "--interval", "20", "--json" } );
    Json lReport =
        ReadUntil( *lChild, []( const Json& aReport ) { return aReport["failedReads"] > 0; } );
    EXPECT_EQ( lReport["value"], nullptr );
    EXPECT_EQ( lReport["failedReads"], lReport["reads"] );
    Json lLast = Finish( *lChild, 1 );
    EXPECT_EQ( lLast["error"]["code"], "GENERIC_ERROR" );
    EXPECT_EQ( lLast["summary"]["averageRate"], 0.0 );
}

TEST_F( Monitor, GoesOnWhileNoProgramListensYet )
{
    WdUtilsLib::Network::SocketUDP lSocket;
    ASSERT_TRUE( lSocket.Open( &LOOPBACK ).IsOK() );
    const std::string lTarget = "127.0.0.1:" + std::to_string( lSocket.GetLocalPort() );
    ASSERT_TRUE(
        lSocket.Connect( LOOPBACK, GetDevice().GetPort() ).IsOK() ); // connected to another peer
    ChildProcess lChild(
        MakeToolCommand( { "gev", "monitor", lTarget, ADDRESS, "--interval", "100", "--json" } ) );
    Json lReport =
        ReadUntil( lChild, []( const Json& aReport ) { return aReport["failedReads"] > 1; } );
    EXPECT_EQ( lReport["error"]["systemError"], ECONNREFUSED );
    (void)Finish( lChild, 1 ); // looked at elsewhere
    EXPECT_THAT( lChild.GetError(), HasSubstr( "no program listens there" ) );
}

TEST_F( Monitor, EitherSignalEndsItAtOnceWhileADeviceIsSilent )
{
    SetSilent( REGISTER );
    for ( const int lSignal : { SIGINT, SIGTERM } )
    {
        const size_t lBefore = GetCommands().size();
        const auto lChild = Start( Quickly( { "--json", "--timeout", "600000" } ) );
        while ( GetCommands().size() == lBefore && !testing::Test::HasFailure() )
        {
            ASSERT_FALSE( lChild->WaitForError( "no such text", 10 ) );
        }
        EXPECT_EQ( Finish( *lChild, 1, lSignal )["summary"]["reads"], 0 );
        EXPECT_THAT( lChild->GetError(), HasSubstr( "interrupted before it could read" ) );
    }
}

TEST_F( Monitor, EndsAtOnceWhileItWaitsForTheNextRead )
{
    const auto lChild = Start( { ADDRESS, "--interval", "3600000", "--json" } );
    (void)ReadUntil( *lChild, // only waited for
                     []( const Json& aReport ) { return aReport["reads"] == 1; } );
    EXPECT_EQ( Finish( *lChild, 0 )["summary"]["reads"], 1 );
}

// Also when the device keeps the read from coming to an end.
TEST_F( Monitor, EndsWhenItsOutputCannotBeWritten )
{
    SetSilent( REGISTER );
    ChildProcess::Options lFull;
    lFull.mOutputPath = "/dev/full";
    for ( const char* const lKind : { "--json", "-v" } )
    {
        const Outcome lOutcome =
            RunGev( "monitor", Quickly( { lKind, "--timeout", "600000" } ), lFull );
        EXPECT_EQ( lOutcome.mStatus, 1 );
        EXPECT_THAT( lOutcome.mError,
                     HasSubstr( "cannot write to standard output: No space left" ) );
    }
}

TEST_F( Monitor, RefusesInvalidIntervalsAndAddresses )
{
    for ( const char* const lInterval : { "0", "-1", "3600001", "abc", "", "1.5" } )
    {
        const Outcome lOutcome = RunGev( "monitor", { ADDRESS, "--interval", lInterval } );
        EXPECT_EQ( lOutcome.mStatus, 2 ) << lInterval;
        ExpectOneSentence( lOutcome.mError );
        EXPECT_THAT( lOutcome.mError, HasSubstr( "--interval" ) );
        EXPECT_THAT( lOutcome.mOutput, IsEmpty() );
    }
    EXPECT_THAT( RunGev( "monitor", { ADDRESS, "--interval", "0" } ).mError,
                 HasSubstr( "not in range 1 to 3600000" ) );
    EXPECT_THAT( RunGev( "monitor", { "0xA001" } ).mError, HasSubstr( "is not a multiple of 4" ) );
    EXPECT_THAT( RunGev( "monitor", { "0x100000000" } ).mError, HasSubstr( "32 bits" ) );
    EXPECT_THAT( RunGev( "monitor", {} ).mError, HasSubstr( "ADDRESS is required" ) );
    EXPECT_THAT( RunGev( "monitor", { "0", "4" } ).mError, HasSubstr( "4" ) );
    EXPECT_THAT( GetCommands(), SizeIs( 0 ) );
}

} // namespace TestSupport
