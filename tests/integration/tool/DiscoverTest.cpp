// gev discover. Broadcasts stay in networks that the tests make.

#include "tests/integration/tool/ToolTest.h"

#include "tests/support/NetworkNamespace.h"

#include <algorithm>
#include <chrono>
#include <csignal>

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

namespace TestSupport
{

namespace
{

class Discover : public ToolTest
{
};

// Texts that devices of other makers may send: a terminal's escape sequence, a byte that is not
// UTF-8, an umlaut.
Simulators::ConfigurationGEV MakeStrangeDevice()
{
    Simulators::ConfigurationGEV lConfiguration;
    lConfiguration.mManufacturerName = "M\x1B[31m";
    lConfiguration.mModelName = "K\xC3\xA4mera";
    lConfiguration.mSerialNumber = "\xFF\\1";
    lConfiguration.mUserName = "two\nlines";
    return lConfiguration;
}

// A virtual device in a process of its own, which has begun to serve.
class DeviceProcess
{
public:
    explicit DeviceProcess( const Arguments& aArguments )
        : mProcess( MakeCommand( aArguments ) )
    {
        EXPECT_TRUE( mProcess.ReadLine().has_value() ) << mProcess.GetError();
    }

private:
    static Arguments MakeCommand( const Arguments& aArguments )
    {
        Arguments lArguments = { "sim", "gev" };
        lArguments.insert( lArguments.end(), aArguments.begin(), aArguments.end() );
        return MakeToolCommand( lArguments );
    }

    ChildProcess mProcess;
};

} // namespace

#define REQUIRE_NETWORK_NAMESPACE()                          \
    do                                                       \
    {                                                        \
        const std::string lReason = EnterNetworkNamespace(); \
        if ( !lReason.empty() )                              \
        {                                                    \
            GTEST_SKIP() << lReason;                         \
        }                                                    \
    } while ( false )

TEST_F( Discover, OneHostIsAskedWithoutABroadcast )
{
    Simulators::ConfigurationGEV lConfiguration;
    lConfiguration.mManufacturerName = "Maker";
    lConfiguration.mModelName = "Model";
    lConfiguration.mSerialNumber = "12";
    lConfiguration.mUserName = "left eye";
    Serve( lConfiguration );
    const auto lStart = std::chrono::steady_clock::now();
    const Outcome lOutcome =
        RunTool( { "gev", "discover", "--to", GetTarget(), "--timeout", "9000" } );
    EXPECT_LT( std::chrono::steady_clock::now() - lStart, std::chrono::seconds( 8 ) );
    EXPECT_EQ( lOutcome.mStatus, 0 );
    EXPECT_EQ( lOutcome.mOutput,
               GetTarget() + "  02:48:54:42:00:01  Maker  Model  12  left eye\n" );
    EXPECT_THAT( lOutcome.mError, IsEmpty() );
}

TEST_F( Discover, AnEmptyTextIsShownAsADash )
{
    const Outcome lOutcome = RunTool( { "gev", "discover", "--to", GetTarget() } );
    EXPECT_THAT( lOutcome.mOutput, EndsWith( "  VD-0001  -\n" ) );
}

TEST_F( Discover, TheReportHasAllTexts )
{
    const Outcome lOutcome = RunTool( { "gev", "discover", "--json", "--to", GetTarget() } );
    EXPECT_EQ( lOutcome.mStatus, 0 );
    nlohmann::json lExpected = nlohmann::json::parse( R"([ {
        "address": "127.0.0.1", "mac": "02:48:54:42:00:01",
        "manufacturer": "HtBase Virtual Devices", "model": "VirtualDeviceGEV", "version": "1.0",
        "serialNumber": "VD-0001", "userName": "", "interface": "127.0.0.1" } ])" );
    lExpected[0]["port"] = GetDevice().GetPort();
    EXPECT_EQ( ParseReport( lOutcome ), lExpected );
}

TEST_F( Discover, TextsOfDevicesAreEscapedForATerminal )
{
    Serve( MakeStrangeDevice() );
    const Outcome lOutcome = RunTool( { "gev", "discover", "--to", GetTarget() } );
    EXPECT_EQ( lOutcome.mOutput, GetTarget() + "  02:48:54:42:00:01  M\\x1B[31m  K\xC3\xA4mera  "
                                               "\\xFF\\\\1  two\\x0Alines\n" );
}

TEST_F( Discover, TextsOfDevicesAreValidInJson )
{
    Serve( MakeStrangeDevice() );
    const nlohmann::json lReport =
        ParseReport( RunTool( { "gev", "discover", "--json", "--to", GetTarget() } ) );
    ASSERT_THAT( lReport, SizeIs( 1 ) );
    EXPECT_EQ( lReport[0]["manufacturer"], "M\x1B[31m" );
    EXPECT_EQ( lReport[0]["model"], "K\xC3\xA4mera" );
    EXPECT_EQ( lReport[0]["serialNumber"], "\xEF\xBF\xBD\\1" ); // U+FFFD
    EXPECT_EQ( lReport[0]["userName"], "two\nlines" );
}

TEST_F( Discover, ATerminalGetsTheNamesOfTheColumns )
{
    ChildProcess::Options lTerminal;
    lTerminal.mOutputIsTerminal = true;
    const Outcome lOutcome = RunTool( { "gev", "discover", "--to", GetTarget() }, lTerminal );
    EXPECT_EQ( lOutcome.mStatus, 0 );
    EXPECT_THAT( lOutcome.mOutput, StartsWith( "ADDRESS" ) );
    EXPECT_THAT( lOutcome.mOutput, HasSubstr( "SERIAL NUMBER" ) );
    EXPECT_EQ( std::count( lOutcome.mOutput.begin(), lOutcome.mOutput.end(), '\n' ), 2 );
}

TEST_F( Discover, ASilentHostIsAskedAgainAndThenReported )
{
    SetSilent( 0 );
    const Outcome lOutcome = RunTool(
        { "gev", "discover", "--to", GetTarget(), "--timeout", "20", "--retries", "4", "--json" } );
    EXPECT_EQ( lOutcome.mStatus, 1 );
    ExpectOneSentence( lOutcome.mError );
    EXPECT_THAT( lOutcome.mError, AllOf( HasSubstr( "no device found" ), HasSubstr( GetTarget() ),
                                         HasSubstr( "firewall" ) ) );
    EXPECT_EQ( ParseReport( lOutcome ), nlohmann::json::array() );
    EXPECT_THAT( GetCommands( Simulators::Command::DISCOVERY ), SizeIs( 4 ) );
}

TEST_F( Discover, APortWithoutAProgramIsReported )
{
    WdUtilsLib::Network::SocketUDP lSocket;
    ASSERT_TRUE( lSocket.Open( &LOOPBACK ).IsOK() );
    const std::string lTarget = "127.0.0.1:" + std::to_string( lSocket.GetLocalPort() );
    ASSERT_TRUE(
        lSocket.Connect( LOOPBACK, GetDevice().GetPort() ).IsOK() ); // connected to another peer
    const Outcome lOutcome = RunTool( { "gev", "discover", "--to", lTarget } );
    EXPECT_EQ( lOutcome.mStatus, 1 );
    ExpectOneSentence( lOutcome.mError );
    EXPECT_THAT( lOutcome.mError,
                 AllOf( HasSubstr( lTarget ), HasSubstr( "Connection refused" ) ) );
}

TEST_F( Discover, InvalidAnswersAreIgnored )
{
    // Every third answer is cut; strays and wrong headers come with the others.
    Simulators::FaultPlan::Rates lRates;
    lRates.mTruncate = 0.3;
    lRates.mCorrupt = 0.3;
    lRates.mStray = 0.5;
    Simulators::DeviceServer::Options lOptions;
    lOptions.mAnswerFaults = Simulators::FaultPlan( lRates, 3 );
    Serve( {}, lOptions );
    for ( int lTime = 0; lTime < 10; ++lTime )
    {
        const Outcome lOutcome = RunTool( { "gev", "discover", "--json", "--to", GetTarget(),
                                            "--timeout", "50", "--retries", "100" } );
        EXPECT_EQ( lOutcome.mStatus, 0 );
        const nlohmann::json lReport = ParseReport( lOutcome );
        ASSERT_THAT( lReport, SizeIs( 1 ) );
        EXPECT_EQ( lReport[0]["serialNumber"], "VD-0001" );
    }
}

TEST_F( Discover, CtrlCEndsIt )
{
    SetSilent( 0 );
    ChildProcess lChild(
        MakeToolCommand( { "gev", "discover", "--to", GetTarget(), "--timeout", "600000" } ) );
    WaitForCommand( Simulators::Command::DISCOVERY, 0 );
    lChild.Signal( SIGINT );
    EXPECT_EQ( lChild.Wait().mStatus, 1 );
    ExpectOneSentence( lChild.GetError() );
    EXPECT_THAT( lChild.GetError(), HasSubstr( "interrupted" ) );
}

TEST_F( Discover, AnInvalidInterfaceIsReported )
{
    const Outcome lText = RunTool( { "gev", "discover", "--interface", "eth" } );
    EXPECT_EQ( lText.mStatus, 2 );
    ExpectOneSentence( lText.mError );
    const Outcome lForeign = RunTool( { "gev", "discover", "--interface", "192.0.2.1" } );
    EXPECT_EQ( lForeign.mStatus, 1 );
    ExpectOneSentence( lForeign.mError );
    EXPECT_THAT( lForeign.mError, AllOf( HasSubstr( "interface 192.0.2.1" ),
                                         HasSubstr( "this machine has no such address" ) ) );
}

TEST_F( Discover, ABroadcastFindsAllDevicesOnce )
{
    REQUIRE_NETWORK_NAMESPACE();
    const DeviceProcess lThird( { "--address", "127.0.0.10", "--serial", "third" } );
    const DeviceProcess lSecond( { "--address", "127.0.0.2", "--serial", "second" } );
    const DeviceProcess lFirst( { "--address", "127.0.0.1", "--serial", "first" } );
    const Outcome lOutcome = RunTool( { "gev", "discover", "--timeout", "100" } );
    EXPECT_EQ( lOutcome.mStatus, 0 ) << lOutcome.mError;
    EXPECT_EQ(
        lOutcome.mOutput,
        "127.0.0.1   02:48:7F:00:00:01  HtBase Virtual Devices  VirtualDeviceGEV  first   -\n"
        "127.0.0.2   02:48:7F:00:00:02  HtBase Virtual Devices  VirtualDeviceGEV  second  -\n"
        "127.0.0.10  02:48:7F:00:00:0A  HtBase Virtual Devices  VirtualDeviceGEV  third   -\n" );
}

TEST_F( Discover, ADeviceThatAnswersFromTwoAddressesIsListedOnce )
{
    REQUIRE_NETWORK_NAMESPACE();
    const DeviceProcess lOne( { "--address", "127.0.0.1", "--mac", "02:00:00:00:00:07" } );
    const DeviceProcess lTwo( { "--address", "127.0.0.2", "--mac", "02:00:00:00:00:07" } );
    const nlohmann::json lReport =
        ParseReport( RunTool( { "gev", "discover", "--timeout", "100", "--json" } ) );
    ASSERT_THAT( lReport, SizeIs( 1 ) );
    EXPECT_EQ( lReport[0]["mac"], "02:00:00:00:00:07" );
}

TEST_F( Discover, OneInterfaceCanBeAsked )
{
    REQUIRE_NETWORK_NAMESPACE();
    const DeviceProcess lDevice( { "--address", "127.0.0.1" } );
    const nlohmann::json lReport = ParseReport( RunTool(
        { "gev", "discover", "--timeout", "100", "--json", "--interface", "127.0.0.1" } ) );
    ASSERT_THAT( lReport, SizeIs( 1 ) );
    EXPECT_EQ( lReport[0]["interface"], "127.0.0.1" );
}

TEST_F( Discover, NoAnswerIsAFailure )
{
    REQUIRE_NETWORK_NAMESPACE();
    const Outcome lOutcome = RunTool( { "gev", "discover", "--timeout", "20" } );
    EXPECT_EQ( lOutcome.mStatus, 1 );
    EXPECT_THAT( lOutcome.mOutput, IsEmpty() );
    ExpectOneSentence( lOutcome.mError );
    EXPECT_THAT( lOutcome.mError, AllOf( HasSubstr( "no device found" ),
                                         HasSubstr( "to the broadcast on 127.0.0.1 within 3 times "
                                                    "20 ms" ) ) );
}

// Two networks, a cable between them: the broadcast leaves on the interface it is meant for.
TEST_F( Discover, ABroadcastReachesAnotherMachine )
{
    REQUIRE_NETWORK_NAMESPACE();
    const std::string lWait = "for i in $(seq 200); do ip link show dev far >/dev/null 2>&1 && "
                              "break; sleep 0.05; done; ";
    ChildProcess lMachine( { "unshare", "-n", "sh", "-c",
                             "echo ready; " + lWait +
                                 "ip addr add 10.77.0.2/24 dev far && ip link set far up && exec " +
                                 HTBASE_PROGRAM +
                                 " sim gev --address 10.77.0.2 --serial remote" } );
    ASSERT_EQ( lMachine.ReadLine(), "ready" );
    const Outcome lCable = RunProgram(
        { "sh", "-c",
          "ip link add near type veth peer name far netns " + std::to_string( lMachine.GetId() ) +
              " && ip addr add 10.77.0.1/24 dev near && ip link set near up" } );
    if ( lCable.mStatus != 0 )
    {
        GTEST_SKIP() << "no veth pair can be made: " << lCable.mError;
    }
    ASSERT_EQ( lMachine.ReadLine(), "10.77.0.2:3956" ) << lMachine.GetError();
    const nlohmann::json lReport =
        ParseReport( RunTool( { "gev", "discover", "--timeout", "300", "--json" } ) );
    ASSERT_THAT( lReport, SizeIs( 1 ) );
    EXPECT_EQ( lReport[0]["address"], "10.77.0.2" );
    EXPECT_EQ( lReport[0]["serialNumber"], "remote" );
    EXPECT_EQ( lReport[0]["interface"], "10.77.0.1" );
    EXPECT_EQ( RunTool( { "gev", "write", "10.77.0.2", "0xA000=1" } ).mStatus, 0 );
}

} // namespace TestSupport
