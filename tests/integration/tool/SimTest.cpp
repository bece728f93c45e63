// sim gev.

#include "tests/integration/tool/ToolTest.h"

#include <csignal>

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::StartsWith;

namespace TestSupport
{

namespace
{

// `htbase sim gev` on a free port of 127.0.0.1, and `htbase gev` commands to it.
class Sim : public testing::Test
{
protected:
    void Start( const Arguments& aArguments )
    {
        Arguments lArguments = { "sim", "gev", "--port", "0" };
        lArguments.insert( lArguments.end(), aArguments.begin(), aArguments.end() );
        mProcess = std::make_unique<ChildProcess>( MakeToolCommand( lArguments ) );
        mTarget = mProcess->ReadLine().value_or( "" );
        ASSERT_THAT( mTarget, MatchesRegex( "127\\.0\\.0\\.1:[0-9]+" ) ) << mProcess->GetError();
    }

    Outcome RunGev( const std::string& aCommand, const Arguments& aArguments )
    {
        Arguments lArguments = { "gev", aCommand, mTarget };
        lArguments.insert( lArguments.end(), aArguments.begin(), aArguments.end() );
        return RunTool( MakePatient( lArguments ) );
    }

    std::unique_ptr<ChildProcess> mProcess;
    std::string mTarget;
};

} // namespace

TEST_F( Sim, ASignalEndsItWithASummary )
{
    for ( const int lSignal : { SIGINT, SIGTERM } )
    {
        Start( {} );
        EXPECT_EQ( RunGev( "read", { "0", "4" } ).mStatus, 0 );
        EXPECT_EQ( RunGev( "read", { "0x20" } ).mStatus, 1 );
        mProcess->Signal( lSignal );
        const Ending lEnding = mProcess->Wait();
        EXPECT_TRUE( lEnding.mExited );
        EXPECT_EQ( lEnding.mStatus, 0 );
        EXPECT_THAT( mProcess->GetError(), IsEmpty() );
        EXPECT_THAT( mProcess->GetOutput(),
                     AllOf( StartsWith( mTarget + "\ndevice: 3 commands: 2 executed, 1 refused" ),
                            HasSubstr( "\nrequests: 3 datagrams: 3 passed, 0 lost" ),
                            HasSubstr( "\nanswers: 3 datagrams: 3 passed, 0 lost" ) ) );
    }
}

TEST_F( Sim, TheSummaryIsOneJsonObject )
{
    ChildProcess lProcess( MakeToolCommand( { "sim", "gev", "--port", "0", "--json" } ) );
    ASSERT_TRUE( lProcess.WaitForError( "\n" ) );
    ASSERT_THAT( lProcess.GetError(), StartsWith( "htbase: serving at 127.0.0.1:" ) );
    mTarget = lProcess.GetError().substr( lProcess.GetError().rfind( ' ' ) + 1 );
    mTarget.pop_back(); // the line end
    EXPECT_EQ( RunGev( "read", { "0", "0x20" } ).mStatus, 1 );
    lProcess.Signal( SIGTERM );
    EXPECT_EQ( lProcess.Wait().mStatus, 0 );
    Outcome lOutcome;
    lOutcome.mOutput = lProcess.GetOutput();
    const nlohmann::json lReport = ParseReport( lOutcome );
    EXPECT_EQ( lReport["address"].get<std::string>() + ":" +
                   std::to_string( lReport["port"].get<int>() ),
               mTarget );
    EXPECT_EQ( lReport["requests"], 2 );
    EXPECT_EQ( lReport["executed"], 1 );
    EXPECT_EQ( lReport["refused"], 1 );
    EXPECT_EQ( lReport["answers"], 2 );
    EXPECT_EQ( lReport["requestFaults"]["passed"], 2 );
    EXPECT_EQ( lReport["answerFaults"]["lost"], 0 );
}

TEST_F( Sim, PlaysEveryVersion )
{
    const std::vector<std::pair<const char*, const char*>> lVersions = {
        { "1.0", "0x00010000" }, { "1.1", "0x00010001" }, { "1.2", "0x00010002" },
        { "2.0", "0x00020000" }, { "2.1", "0x00020001" },
    };
    for ( const auto& [lVersion, lValue] : lVersions )
    {
        Start( { "--version", lVersion } );
        EXPECT_THAT( RunGev( "read", { "0" } ).mOutput,
                     StartsWith( std::string( "0x00000000  " ) + lValue ) );
    }
}

TEST_F( Sim, HasTheConfiguredIdentity )
{
    Start( { "--manufacturer", "Maker", "--model", "Model", "--serial", "S1", "--user-name", "Me",
             "--mac", "00:11:22:33:44:55", "--heartbeat", "700" } );
    EXPECT_EQ( RunTool( { "gev", "discover", "--to", mTarget } ).mOutput,
               mTarget + "  00:11:22:33:44:55  Maker  Model  S1  Me\n" );
    EXPECT_THAT( RunGev( "read", { "0x0938" } ).mOutput, HasSubstr( "  700\n" ) );
}

TEST_F( Sim, HasTheConfiguredCapabilities )
{
    Start( { "--version",
             "1.1",
             "--mac",
             "00:11:22:33:44:55",
             "--class",
             "3",
             "--device-version",
             "Engine (02.02)",
             "--manufacturer-info",
             "(00400000)",
             "--stream-channels",
             "3",
             "--tick-frequency",
             "5000000000",
             "--capability",
             "0x00000044",
             "--refuse",
             "0x0D5C=0x8003",
             "--refuse",
             "0x0068=0x8006" } );
    const Outcome lOutcome = RunGev( "info", { "--json", "--maker", "00:11:22" } );
    EXPECT_EQ( lOutcome.mStatus, 0 ) << lOutcome.mError;
    const nlohmann::json lReport = ParseReport( lOutcome );
    EXPECT_EQ( lReport["deviceClass"], 3 );
    EXPECT_EQ( lReport["deviceVersion"], "Engine (02.02)" );
    EXPECT_EQ( lReport["manufacturerInformation"], "(00400000)" );
    EXPECT_EQ( lReport["model"], "" ) << "refused";
    EXPECT_EQ( lReport["streamSourcePorts"], nlohmann::json( { 50001, 0, 0 } ) );
    EXPECT_EQ( lReport["messageSourcePort"], 50000 );
    EXPECT_EQ( lReport["timestampTickFrequency"], 5000000000 );
    const nlohmann::json& lCapabilities = lReport["capabilities"];
    EXPECT_EQ( lCapabilities["packetResend"], true );
    EXPECT_EQ( lCapabilities["action"], true );
    EXPECT_EQ( lCapabilities["concatenation"], false );
    EXPECT_EQ( lCapabilities["endOfBlockResend"], false ) << "an early design with old firmware";

    Start( { "--message-channels", "0", "--stream-channels", "2", "--no-source-ports" } );
    const nlohmann::json lPlain = ParseReport( RunGev( "info", { "--json" } ) );
    EXPECT_EQ( lPlain["streamSourcePorts"], nlohmann::json( { 0, 0 } ) );
    EXPECT_EQ( lPlain["messageChannels"], 0 );
    EXPECT_EQ( lPlain["messageSourcePort"], 0 );
    EXPECT_EQ( lPlain["timestampTickFrequency"], 0 );
    EXPECT_EQ( lPlain["capabilities"]["legacy16BitsBlockId"], true ) << "the other bit stays";

    Start( { "--refuse", "0x0934=0x8006" } );
    const Outcome lRefused = RunGev( "info", {} );
    EXPECT_EQ( lRefused.mStatus, 1 );
    EXPECT_THAT( lRefused.mError, HasSubstr( "Access denied" ) );
}

TEST_F( Sim, TakesTheConfiguredTimeAndSendsPendingAcknowledges )
{
    Start( { "--pending", "1500" } );
    const Outcome lOutcome =
        RunGev( "read", { "0xA000", "--timeout", "1000", "--retries", "1", "--json" } );
    EXPECT_EQ( lOutcome.mStatus, 0 ) << lOutcome.mError;
    EXPECT_EQ( ParseReport( lOutcome )["statistics"]["pendingAcknowledges"], 1 );
}

TEST_F( Sim, TheSameSeedLosesTheSameDatagrams )
{
    std::string lFirst;
    for ( int lTime = 0; lTime < 2; ++lTime )
    {
        Start( { "--loss", "0.3", "--seed", "11" } );
        const Outcome lOutcome = RunGev(
            "read", { "0", "4", "8", "12", "0", "4", "--timeout", "500", "--retries", "20" } );
        EXPECT_EQ( lOutcome.mStatus, 0 ) << lOutcome.mError;
        mProcess->Signal( SIGINT );
        EXPECT_EQ( mProcess->Wait().mStatus, 0 );
        const std::string& lOutput = mProcess->GetOutput();
        const std::string lSummary = lOutput.substr( lOutput.find( '\n' ) );
        EXPECT_THAT( lSummary, testing::Not( HasSubstr( " 0 lost" ) ) );
        lFirst = lTime == 0 ? lSummary : lFirst;
        EXPECT_EQ( lSummary, lFirst );
    }
}

TEST_F( Sim, EachFaultIsCounted )
{
    Start( { "--delay", "1", "--max-delay", "5", "--duplicate", "1", "--stray", "1" } );
    EXPECT_EQ( RunGev( "read", { "0" } ).mStatus, 0 );
    mProcess->Signal( SIGINT );
    EXPECT_EQ( mProcess->Wait().mStatus, 0 );
    EXPECT_THAT( mProcess->GetOutput(),
                 HasSubstr( "requests: 1 datagrams: 0 passed, 0 lost, 1 delayed, 1 duplicated, 0 "
                            "reordered, 0 truncated, 0 corrupted, 1 strays added" ) );
    Start( { "--truncate", "1", "--corrupt", "1", "--reorder", "1" } );
    EXPECT_EQ( RunGev( "read", { "0", "--timeout", "20", "--retries", "1" } ).mStatus, 1 );
    mProcess->Signal( SIGINT );
    EXPECT_EQ( mProcess->Wait().mStatus, 0 );
    EXPECT_THAT( mProcess->GetOutput(),
                 HasSubstr( "requests: 1 datagrams: 0 passed, 0 lost, 0 delayed, 0 duplicated, 1 "
                            "reordered, 1 truncated" ) );
}

TEST_F( Sim, AnAddressThatCannotBeUsedIsReported )
{
    Start( {} );
    const std::string lPort = mTarget.substr( mTarget.find( ':' ) + 1 );
    const Outcome lTaken = RunTool( { "sim", "gev", "--port", lPort } );
    EXPECT_EQ( lTaken.mStatus, 1 );
    ExpectOneSentence( lTaken.mError );
    EXPECT_THAT( lTaken.mError, AllOf( HasSubstr( "cannot serve at " + mTarget ),
                                       HasSubstr( "Address already in use" ) ) );
    const Outcome lForeign = RunTool( { "sim", "gev", "--address", "192.0.2.1", "--port", "0" } );
    EXPECT_EQ( lForeign.mStatus, 1 );
    EXPECT_THAT( lForeign.mError, HasSubstr( "this machine has no such address" ) );
}

TEST_F( Sim, InvalidOptionsAreWrongUsage )
{
    const std::vector<Arguments> lCases = {
        { "--version", "3.0" },
        { "--version", "2" },
        { "--address", "host" },
        { "--port", "65536" },
        { "--port", "-1" },
        { "--port", "abc" },
        { "--loss", "1.5" },
        { "--loss", "-0.1" },
        { "--loss", "many" },
        { "--loss", "nan" },
        { "--delay", "2" },
        { "--corrupt", "2" },
        { "--stray", "" },
        { "--seed", "" },
        { "--seed", "4294967296" },
        { "--seed", "-1" },
        { "--seed", "x" },
        { "--pending", "-1" },
        { "--pending", "60001" },
        { "--mac", "00:11:22" },
        { "--heartbeat", "0" },
        { "--class", "8" },
        { "--stream-channels", "513" },
        { "--stream-channels", "-1" },
        { "--message-channels", "2" },
        { "--tick-frequency", "-1" },
        { "--tick-frequency", "1000000000001" },
        { "--tick-frequency", "18446744073709551616" },
        { "--tick-frequency", "fast" },
        { "--capability", "x" },
        { "--refuse", "0x0934" },
        { "--refuse", "0x0935=0x8006" },
        { "--refuse", "0x0934=0" },
        { "--refuse", "0x0934=0x8000" },
        { "--refuse", "0x0934=0x18006" },
        { "--max-delay", "100000" },
        { "extra" },
    };
    for ( const Arguments& lCase : lCases )
    {
        Arguments lArguments = { "sim", "gev", "--port", "0" };
        lArguments.insert( lArguments.end(), lCase.begin(), lCase.end() );
        SCOPED_TRACE( testing::PrintToString( lCase ) );
        const Outcome lOutcome = RunProgram( MakeToolCommand( lArguments ), {}, 5000 );
        EXPECT_EQ( lOutcome.mStatus, 2 );
        ExpectOneSentence( lOutcome.mError );
        EXPECT_THAT( lOutcome.mOutput, IsEmpty() );
    }
}

} // namespace TestSupport
