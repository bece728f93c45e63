// gev read and gev write.

#include "tests/integration/tool/ToolTest.h"

#include <netdb.h>

#include <chrono>
#include <csignal>

using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::Field;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

namespace TestSupport
{

namespace
{

namespace Command = Simulators::Command;

constexpr uint32_t PRIVILEGE = 0x0A00;

// Commands as the device should have got them.
SeenCommand WriteOf( uint32_t aAddress, uint32_t aValue, bool aWantsAck = true )
{
    return { Command::WRITEREG, aWantsAck, aAddress, aValue, 0, {} };
}

class Registers : public ToolTest
{
};

} // namespace

TEST_F( Registers, AreReadInTheOrderAsked )
{
    WriteWord( 0xA000, 0x12345678 );
    WriteWord( 0xA004, 7 );
    const Outcome lOutcome = RunGev( "read", { "0xA004", "40960", "0xa004", "0X0938" } );
    EXPECT_EQ( lOutcome.mStatus, 0 );
    EXPECT_EQ( lOutcome.mOutput, "0x0000A004  0x00000007  7\n"
                                 "0x0000A000  0x12345678  305419896\n"
                                 "0x0000A004  0x00000007  7\n"
                                 "0x00000938  0x00000BB8  3000\n" );
    EXPECT_THAT( lOutcome.mError, IsEmpty() );
}

TEST_F( Registers, AreReadAsJson )
{
    WriteWord( 0xA000, 0xFFFFFFFF );
    const nlohmann::json lReport =
        ParseReport( RunGev( "read", { "0xA000", "0x0A00", "--json" } ) );
    EXPECT_EQ( lReport["device"], GetTarget() );
    EXPECT_EQ( lReport["registers"], nlohmann::json::parse( R"([
        { "address": 40960, "value": 4294967295 }, { "address": 2560, "value": 0 } ])" ) );
    EXPECT_EQ( lReport["statistics"]["transfers"], 2 );
    EXPECT_EQ( lReport["statistics"]["retries"], 0 );
    EXPECT_FALSE( lReport.contains( "error" ) );
}

TEST_F( Registers, AreReadWithoutControl )
{
    EXPECT_EQ( RunGev( "read", { "0" } ).mStatus, 0 );
    EXPECT_THAT( GetCommands( Command::WRITEREG ), IsEmpty() );
}

TEST_F( Registers, HostMayBeAName )
{
    if ( gethostbyname( "localhost" ) == nullptr )
    {
        GTEST_SKIP() << "this system does not know localhost";
    }
    const std::string lPort = std::to_string( GetDevice().GetPort() );
    const Outcome lOutcome = RunTool( { "gev", "read", "localhost:" + lPort, "0x0938" } );
    EXPECT_EQ( lOutcome.mStatus, 0 ) << lOutcome.mError;
    EXPECT_EQ( lOutcome.mOutput, "0x00000938  0x00000BB8  3000\n" );
}

TEST_F( Registers, ARefusedReadReportsHowManyRegistersWereRead )
{
    const Outcome lOutcome = RunGev( "read", { "0x0938", "0x0020", "0" } );
    EXPECT_EQ( lOutcome.mStatus, 1 );
    EXPECT_EQ( lOutcome.mOutput, "0x00000938  0x00000BB8  3000\n" );
    EXPECT_EQ( lOutcome.mError, "htbase: cannot read register 0x00000020 of " + GetTarget() +
                                    ": GENERIC_ERROR (Invalid address status received from the "
                                    "device), 1 of 3 registers were read\n" );
}

TEST_F( Registers, AFailureIsInTheJsonReport )
{
    const Outcome lOutcome = RunGev( "read", { "0x0938", "0x0020", "--json" } );
    EXPECT_EQ( lOutcome.mStatus, 1 );
    ExpectOneSentence( lOutcome.mError );
    const nlohmann::json lReport = ParseReport( lOutcome );
    EXPECT_THAT( lReport["registers"], SizeIs( 1 ) );
    EXPECT_EQ( lReport["error"]["code"], "GENERIC_ERROR" );
    EXPECT_THAT( lReport["error"]["message"].get<std::string>(), HasSubstr( "0x00000020" ) );
}

TEST_F( Registers, AreWrittenUnderControlOnOneSocket )
{
    const Outcome lOutcome = RunGev( "write", { "0xA000=0x12345678", "0xA004=7" } );
    EXPECT_EQ( lOutcome.mStatus, 0 );
    EXPECT_EQ( lOutcome.mOutput, "0x0000A000  0x12345678  305419896\n0x0000A004  0x00000007  7\n" );
    EXPECT_THAT( lOutcome.mError, IsEmpty() );
    EXPECT_EQ( ReadWord( 0xA000 ), 0x12345678U );
    EXPECT_EQ( ReadWord( 0xA004 ), 7U );
    const std::vector<SeenCommand> lSeen = GetCommands();
    EXPECT_THAT( lSeen, ElementsAre( WriteOf( PRIVILEGE, 2 ), WriteOf( 0xA000, 0x12345678 ),
                                     WriteOf( 0xA004, 7 ), WriteOf( PRIVILEGE, 0 ) ) );
    EXPECT_THAT( lSeen, Each( Field( &SeenCommand::mFrom, lSeen.front().mFrom ) ) );
    EXPECT_FALSE( IsControlHeld() );
}

TEST_F( Registers, AreWrittenAsJson )
{
    const nlohmann::json lReport = ParseReport( RunGev( "write", { "--json", "0xA000=5" } ) );
    EXPECT_EQ( lReport["device"], GetTarget() );
    EXPECT_EQ( lReport["registers"],
               nlohmann::json::parse( R"([ { "address": 40960, "value": 5 } ])" ) );
    EXPECT_EQ( lReport["acknowledged"], true );
    EXPECT_EQ( lReport["statistics"]["transfers"], 3 ); // control, register, control
}

TEST_F( Registers, WithoutAcknowledgeOnlyTheRegistersAskForNone )
{
    const Outcome lOutcome = RunGev( "write", { "0xA000=5", "0xA004=6", "--no-ack" } );
    EXPECT_EQ( lOutcome.mStatus, 0 );
    EXPECT_THAT( GetCommands(),
                 ElementsAre( WriteOf( PRIVILEGE, 2 ), WriteOf( 0xA000, 5, false ),
                              WriteOf( 0xA004, 6, false ), WriteOf( PRIVILEGE, 0 ) ) );
    EXPECT_EQ( ReadWord( 0xA000 ), 5U );
    EXPECT_EQ( ReadWord( 0xA004 ), 6U );
    EXPECT_FALSE( IsControlHeld() );
}

TEST_F( Registers, WithoutControlTheDeviceRefusesAndTheMessageSaysWhy )
{
    const Outcome lOutcome = RunGev( "write", { "0xA000=5", "--no-control" } );
    EXPECT_EQ( lOutcome.mStatus, 1 );
    ExpectOneSentence( lOutcome.mError );
    EXPECT_THAT( lOutcome.mError,
                 AllOf( HasSubstr( "Access denied" ), HasSubstr( "another host holds control" ) ) );
    EXPECT_THAT( GetCommands(), ElementsAre( WriteOf( 0xA000, 5 ) ) );
}

TEST_F( Registers, AWriteOfThePrivilegeItselfLeavesControlToTheUser )
{
    const Outcome lOutcome = RunGev( "write", { "0xA00=2", "0xA000=5" } );
    EXPECT_EQ( lOutcome.mStatus, 0 );
    EXPECT_THAT( GetCommands(), ElementsAre( WriteOf( PRIVILEGE, 2 ), WriteOf( 0xA000, 5 ) ) );
    EXPECT_TRUE( IsControlHeld() );
}

TEST_F( Registers, ControlIsReleasedAfterARefusedWrite )
{
    const Outcome lOutcome = RunGev( "write", { "0xA000=5", "0xA040=1", "0xA004=1" } );
    EXPECT_EQ( lOutcome.mStatus, 1 );
    EXPECT_EQ( lOutcome.mError, "htbase: cannot write 0x00000001 to register 0x0000A040 of " +
                                    GetTarget() +
                                    ": GENERIC_ERROR (Write protect status received from the "
                                    "device), 1 of 3 registers were written\n" );
    EXPECT_FALSE( IsControlHeld() );
    EXPECT_EQ( GetCommands().back(), WriteOf( PRIVILEGE, 0 ) );
}

TEST_F( Registers, ControlIsReleasedAfterATimeOut )
{
    SetSilent( 0xA000 );
    const Outcome lOutcome =
        RunGev( "write", { "0xA000=5", "--timeout", "600", "--retries", "2" } );
    EXPECT_EQ( lOutcome.mStatus, 1 );
    ExpectOneSentence( lOutcome.mError );
    EXPECT_THAT( lOutcome.mError,
                 AllOf( HasSubstr( "TIMEOUT" ), HasSubstr( "Command link operation failure" ),
                        HasSubstr( "firewall" ) ) );
    EXPECT_THAT( GetCommands(), ElementsAre( WriteOf( PRIVILEGE, 2 ), WriteOf( 0xA000, 5 ),
                                             WriteOf( 0xA000, 5 ), WriteOf( PRIVILEGE, 0 ) ) );
    EXPECT_FALSE( IsControlHeld() );
}

// Control of another host is neither overridden nor released.
TEST_F( Registers, ControlOfAnotherHostIsRespected )
{
    LoopbackSocket lOther( GetDevice().GetPort() );
    PatientLink lLink( &lOther.mSocket, 3, 1000 );
    const unsigned int lControl = 2;
    ASSERT_TRUE( lLink.WriteRegister( &lControl, PRIVILEGE, false ).IsOK() );
    const Outcome lOutcome = RunGev( "write", { "0xA000=5", "0xA004=6" } );
    EXPECT_EQ( lOutcome.mStatus, 1 );
    ExpectOneSentence( lOutcome.mError );
    EXPECT_THAT( lOutcome.mError, AllOf( HasSubstr( "cannot take control of " + GetTarget() ),
                                         HasSubstr( ", 0 of 2 registers were written - " ),
                                         HasSubstr( "another host holds control" ) ) );
    EXPECT_THAT( GetCommands(), ElementsAre( WriteOf( PRIVILEGE, 2 ), WriteOf( PRIVILEGE, 2 ) ) );
    EXPECT_TRUE( IsControlHeld() );
}

// The device may have given control although its answer was lost.
TEST_F( Registers, ControlThatMayHaveBeenGrantedIsReleased )
{
    SetSilent( PRIVILEGE );
    EXPECT_EQ( RunGev( "write", { "0xA000=5", "--timeout", "30", "--retries", "2" } ).mStatus, 1 );
    EXPECT_THAT( GetCommands(), ElementsAre( WriteOf( PRIVILEGE, 2 ), WriteOf( PRIVILEGE, 2 ),
                                             WriteOf( PRIVILEGE, 0, false ) ) );
}

// The device falls silent once the register is written.
TEST_F( Registers, ControlThatCannotBeReleasedIsAFailure )
{
    // Control can be taken, but its release is refused.
    OnCommand( Command::WRITEREG, 0xA000,
               []( LoopbackDevice& aDevice )
               { aDevice.mDevice.RefuseAddress( PRIVILEGE, 0x8006 ); } );
    const Outcome lOutcome = RunGev( "write", { "0xA000=5" } );
    EXPECT_EQ( lOutcome.mStatus, 1 );
    EXPECT_EQ( ReadWord( 0xA000 ), 5U );
    EXPECT_EQ( GetCommands().back(), WriteOf( PRIVILEGE, 0 ) );
    ExpectOneSentence( lOutcome.mError );
    EXPECT_THAT( lOutcome.mError,
                 AllOf( HasSubstr( "the registers were written, but cannot release control" ),
                        HasSubstr( "Access denied" ), HasSubstr( "heartbeat" ) ) );
}

TEST_F( Registers, RetriesAndTimeOutAreThoseOfTheCommandLine )
{
    SetSilent( 0xA000 );
    const auto lStart = std::chrono::steady_clock::now();
    EXPECT_EQ( RunGev( "read", { "0xA000", "--timeout", "20", "--retries", "5" } ).mStatus, 1 );
    EXPECT_GE( std::chrono::steady_clock::now() - lStart, std::chrono::milliseconds( 100 ) );
    EXPECT_THAT( GetCommands( Command::READREG ), SizeIs( 5 ) );
}

TEST_F( Registers, TheDefaultWaitIsThreeTimes400Milliseconds )
{
    SetSilent( 0xA000 );
    const auto lStart = std::chrono::steady_clock::now();
    EXPECT_EQ( RunTool( { "gev", "read", GetTarget(), "0xA000" } ).mStatus, 1 );
    EXPECT_GE( std::chrono::steady_clock::now() - lStart, std::chrono::milliseconds( 1200 ) );
    EXPECT_THAT( GetCommands( Command::READREG ), SizeIs( 3 ) );
}

TEST_F( Registers, APortWithoutAProgramIsReported )
{
    WdUtilsLib::Network::SocketUDP lSocket; // holds the port, so that no other program takes it
    ASSERT_TRUE( lSocket.Open( &LOOPBACK ).IsOK() );
    const std::string lPort = std::to_string( lSocket.GetLocalPort() );
    ASSERT_TRUE(
        lSocket.Connect( LOOPBACK, GetDevice().GetPort() ).IsOK() ); // connected to another peer
    const Outcome lOutcome = RunTool( { "gev", "read", "127.0.0.1:" + lPort, "0" } );
    EXPECT_EQ( lOutcome.mStatus, 1 );
    ExpectOneSentence( lOutcome.mError );
    EXPECT_THAT( lOutcome.mError,
                 AllOf( HasSubstr( "cannot read register 0x00000000 of 127.0.0.1:" + lPort ),
                        HasSubstr( "Connection refused" ),
                        HasSubstr( "no program listens there" ) ) );
}

TEST_F( Registers, TheLogShowsRecoveredProblems )
{
    SetSilent( 0xA000 );
    const Arguments lArguments = { "0xA000", "--timeout", "20", "--retries", "2" };
    ExpectOneSentence( RunGev( "read", lArguments ).mError );

    Arguments lVerbose = lArguments;
    lVerbose.emplace_back( "-v" );
    const std::string lLog = RunGev( "read", lVerbose ).mError;
    EXPECT_THAT( lLog,
                 AllOf( HasSubstr( "log 30000 htbase " ), HasSubstr( "Command link retry" ),
                        HasSubstr( "Command link timeout" ), HasSubstr( "log 40000 htbase " ) ) );
    EXPECT_THAT( lLog, Not( HasSubstr( "log 20000" ) ) );

    EXPECT_THAT( RunGev( "read", { "-vv", "0" } ).mError,
                 HasSubstr( "Read 4 bytes at 0x00000000" ) );
}

TEST_F( Registers, CtrlCEndsAWaitAtOnceAndReleasesControl )
{
    for ( const int lSignal : { SIGINT, SIGTERM } )
    {
        Serve( {} );
        SetSilent( 0xA000 );
        ChildProcess lChild( MakeGevCommand( "write", { "0xA000=5", "--timeout", "600000" } ) );
        WaitForCommand( Command::WRITEREG, 0xA000 );
        EXPECT_TRUE( IsControlHeld() );
        lChild.Signal( lSignal );
        const Ending lEnding = lChild.Wait();
        EXPECT_TRUE( lEnding.mExited );
        EXPECT_EQ( lEnding.mStatus, 1 );
        ExpectOneSentence( lChild.GetError() );
        EXPECT_THAT( lChild.GetError(), HasSubstr( "interrupted before it could write" ) );
        const std::vector<SeenCommand> lSeen = GetCommands();
        EXPECT_EQ( lSeen.back(), WriteOf( PRIVILEGE, 0 ) );
        EXPECT_EQ( lSeen.back().mFrom, lSeen.front().mFrom );
        EXPECT_FALSE( IsControlHeld() );
    }
}

TEST_F( Registers, ASecondCtrlCEndsTheProgramAtOnce )
{
    SetSilent( 0xA000 );
    ChildProcess lChild( MakeGevCommand( "write", { "0xA000=5", "--timeout", "600000" } ) );
    WaitForCommand( Command::WRITEREG, 0xA000 );
    SetSilent( PRIVILEGE ); // so that giving back takes ten minutes
    const size_t lBefore = GetCommands().size();
    lChild.Signal( SIGINT );
    while ( GetCommands().size() == lBefore && !testing::Test::HasFailure() )
    {
        ASSERT_FALSE( lChild.WaitForError( "no such text", 10 ) );
    }
    lChild.Signal( SIGINT );
    const Ending lEnding = lChild.Wait();
    EXPECT_TRUE( lEnding.mExited );
    EXPECT_EQ( lEnding.mStatus, 1 );
    EXPECT_EQ( lChild.GetError(), "htbase: interrupted\n" );
}

// Some answers are truncated, duplicated or unexpected; the values are still right.
TEST_F( Registers, RegistersCanBeUsedOverABadNetwork )
{
    Simulators::FaultPlan::Rates lRates;
    lRates.mDuplicate = 0.3;
    lRates.mStray = 0.5;
    Simulators::DeviceServer::Options lOptions;
    lOptions.mRequestFaults = Simulators::FaultPlan( lRates, 5 );
    lRates.mTruncate = 0.2;
    lOptions.mAnswerFaults = Simulators::FaultPlan( lRates, 6 );
    Serve( {}, lOptions );
    WriteWord( 0xA000, 0xCAFE0000 );
    Arguments lArguments( 20, "0xA000" );
    lArguments.insert( lArguments.end(), { "--timeout", "50", "--retries", "50", "--json" } );
    const Outcome lOutcome = RunGev( "read", lArguments );
    EXPECT_EQ( lOutcome.mStatus, 0 ) << lOutcome.mError;
    const nlohmann::json lReport = ParseReport( lOutcome );
    ASSERT_THAT( lReport["registers"], SizeIs( 20 ) );
    for ( const nlohmann::json& lRegister : lReport["registers"] )
    {
        EXPECT_EQ( lRegister["value"], 0xCAFE0000 );
    }
    EXPECT_GT( lReport["statistics"]["retries"], 0 );
}

} // namespace TestSupport
