// The u3v commands of the program over the real libusb, on a USB bus of the test's own.

#include "tests/integration/tool/ToolTest.h"
#include "tests/support/VirtualUsb.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <memory>

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace TestSupport
{

namespace
{

using Simulators::ConfigurationU3V;
using Simulators::FaultU3V;
using Simulators::VirtualDeviceU3V;

constexpr char GUID[] = "1AB200000001";
constexpr char NAME[] = "1-1 (1AB200000001)";
constexpr uint64_t MEMORY = 0x00100000;
constexpr uint64_t HIGH_MEMORY = 0x0123456700000000;

// A bus with one device at port 1, unless the test plugs in its own.
class U3v : public testing::Test
{
protected:
    void Plug( const ConfigurationU3V& aConfiguration )
    {
        mDevice = mBus.Plug( aConfiguration, 1 );
    }

    VirtualUsbDevice& GetDevice()
    {
        if ( mDevice == nullptr )
        {
            Plug( {} );
        }
        return *mDevice;
    }

    Outcome Run( const Arguments& aArguments, const ChildProcess::Options& aOptions = {} )
    {
        (void)GetDevice();
        Arguments lArguments = { "u3v" };
        lArguments.insert( lArguments.end(), aArguments.begin(), aArguments.end() );
        return RunTool( lArguments, aOptions );
    }

    void SetMemory( uint64_t aAddress, const std::string& aBytes )
    {
        GetDevice().Use(
            [&]( VirtualDeviceU3V& aSimulated )
            {
                EXPECT_TRUE( aSimulated.GetMemory().Write(
                    aAddress, Simulators::Bytes( aBytes.begin(), aBytes.end() ) ) );
            } );
    }

    std::string GetMemory( uint64_t aAddress, size_t aSize )
    {
        Simulators::Bytes lBytes;
        GetDevice().Use( [&]( VirtualDeviceU3V& aSimulated )
                         { lBytes = aSimulated.GetMemory().Read( aAddress, aSize ); } );
        return std::string( lBytes.begin(), lBytes.end() );
    }

    // The largest command that was received, and the largest acknowledge that was sent.
    size_t GetLargest( uint8_t aEndpoint )
    {
        size_t lLargest = 0;
        for ( const VirtualUsbDevice::Transfer& lTransfer : GetDevice().GetTransfers() )
        {
            lLargest = lTransfer.mEndpoint == aEndpoint
                           ? std::max( lLargest, lTransfer.mBytes.size() )
                           : lLargest;
        }
        return lLargest;
    }

    VirtualUsbBus mBus;
    std::shared_ptr<VirtualUsbDevice> mDevice;
    const TemporaryDirectory mFolder;
};

} // namespace

TEST_F( U3v, ListHasALinePerDevice )
{
    ConfigurationU3V lSecond;
    lSecond.mGUID = "1AB200000022";
    lSecond.mUserName = "left eye";
    (void)mBus.PlugBehindHub( lSecond, 3, 2 );
    const Outcome lOutcome = Run( { "list" } );
    EXPECT_EQ( lOutcome.mStatus, 0 );
    EXPECT_THAT( lOutcome.mError, IsEmpty() );
    EXPECT_EQ( lOutcome.mOutput, "1-1    1AB200000001  HtBase  VirtualDeviceU3V  U3V-0001  -\n"
                                 "1-3.2  1AB200000022  HtBase  VirtualDeviceU3V  U3V-0001  left "
                                 "eye\n" );
    const nlohmann::json lReport = ParseReport( Run( { "list", "--json" } ) );
    ASSERT_EQ( lReport.size(), 2U );
    EXPECT_EQ( lReport[1]["path"], "1-3.2" );
    EXPECT_EQ( lReport[1]["guid"], "1AB200000022" );
    EXPECT_EQ( lReport[1]["speed"], "super" );
    EXPECT_EQ( lReport[1]["usbVendor"], 0x1AB2 );
    EXPECT_EQ( lReport[1]["userName"], "left eye" );
    EXPECT_FALSE( lReport[1].contains( "error" ) );
    EXPECT_EQ( mDevice->GetClaims(), 0U );
}

TEST_F( U3v, AnEmptyListFails )
{
    for ( const Arguments& lArguments :
          { Arguments{ "u3v", "list" }, Arguments{ "u3v", "list", "--json" } } )
    {
        const Outcome lOutcome = RunTool( lArguments );
        EXPECT_EQ( lOutcome.mStatus, 1 );
        ExpectOneSentence( lOutcome.mError );
        EXPECT_THAT( lOutcome.mError, HasSubstr( "no USB3 Vision device found" ) );
        EXPECT_EQ( lOutcome.mOutput, lArguments.size() == 2 ? "" : "[]\n" );
    }
}

TEST_F( U3v, RefusedAccessNamesTheUdevRule )
{
    const std::string& lNode = GetDevice().GetNode();
    const std::string lRoot = lNode.substr( 0, lNode.find( "/dev/" ) );
    ASSERT_EQ( chmod( lNode.c_str(), 0 ), 0 );
    ASSERT_EQ( chmod( ( lRoot + "/ioctl" + lNode.substr( lRoot.size() ) ).c_str(), 0777 ), 0 );
    ASSERT_EQ( chmod( lRoot.c_str(), 0777 ), 0 );
    // The administrator may open everything, unless what lets him is taken from the program.
    Arguments lAs;
    if ( geteuid() == 0 )
    {
        lAs = { "setpriv", "--bounding-set=-dac_override,-dac_read_search" };
    }
    const auto lRun = [&lAs]( const Arguments& aArguments )
    {
        Arguments lCommand = lAs;
        for ( const std::string& lArgument : MakeToolCommand( aArguments ) )
        {
            lCommand.push_back( lArgument );
        }
        return RunProgram( lCommand );
    };
    const Outcome lList = lRun( { "u3v", "list" } );
    EXPECT_EQ( lList.mStatus, 0 );
    EXPECT_THAT( lList.mOutput, HasSubstr( "1-1" ) );
    EXPECT_THAT( lList.mError, HasSubstr( "60-htbase.rules" ) );
    for ( const char* const lName : { "1-1", GUID } )
    {
        const Outcome lOutcome = lRun( { "u3v", "read", lName, "0" } );
        EXPECT_EQ( lOutcome.mStatus, 1 );
        ExpectOneSentence( lOutcome.mError );
        EXPECT_THAT( lOutcome.mError, HasSubstr( "60-htbase.rules" ) );
    }
}

TEST_F( U3v, InfoPrintsIdentityAndCapabilities )
{
    const Outcome lOutcome = Run( { "info", GUID } );
    EXPECT_EQ( lOutcome.mStatus, 0 ) << lOutcome.mError;
    EXPECT_THAT( lOutcome.mError, IsEmpty() );
    for ( const char* const lLine :
          { "Path                        1-1\n", "GUID                        1AB200000001\n",
            "Family                      Virtual\n", "GenCP                       1.2\n",
            "USB3 Vision                 1.0\n", "Response time               200 ms\n",
            "Largest command             1024 bytes\n", "Timestamp increment         1000 ns\n",
            "Stream registers at         0x0000000000020000 (48 bytes)\n",
            "Event registers at          -\n", "Message channel             no\n",
            "Written length              yes\n" } )
    {
        EXPECT_THAT( lOutcome.mOutput, HasSubstr( lLine ) );
    }
    const nlohmann::json lReport = ParseReport( Run( { "info", "1-1", "--json" } ) );
    EXPECT_EQ( lReport["device"], NAME );
    EXPECT_EQ( lReport["model"], "VirtualDeviceU3V" );
    EXPECT_EQ( lReport["u3vVersion"]["major"], 1 );
    EXPECT_EQ( lReport["sbrmAddress"], 0x00010000 );
    EXPECT_EQ( lReport["maxAckTransferLength"], 1024 );
    EXPECT_EQ( lReport["capabilities"]["timestamp"], true );
    EXPECT_EQ( lReport["capabilities"]["eirm"], false );
}

TEST_F( U3v, RegistersAreLittleEndianWordsAtAddressesOf64Bits )
{
    SetMemory( MEMORY, std::string( "\x78\x56\x34\x12", 4 ) );
    const Outcome lRead = Run( { "read", "1-1", "0x100000", "0x0123456700000000" } );
    EXPECT_EQ( lRead.mStatus, 0 );
    EXPECT_EQ( lRead.mOutput, "0x0000000000100000  0x12345678  305419896\n"
                              "0x0123456700000000  0x00000000  0\n" );
    const Outcome lWrite = Run( { "write", GUID, "0x0123456700000004=0x0A0B0C0D" } );
    EXPECT_EQ( lWrite.mStatus, 0 );
    EXPECT_EQ( lWrite.mOutput, "0x0123456700000004  0x0A0B0C0D  168496141\n" );
    EXPECT_EQ( GetMemory( HIGH_MEMORY + 4, 4 ), "\x0D\x0C\x0B\x0A" );
    const nlohmann::json lReport =
        ParseReport( Run( { "write", "1-1", "0x100004=1", "0x100008=2", "--json" } ) );
    EXPECT_EQ( lReport["registers"][1]["address"], MEMORY + 8 );
    EXPECT_EQ( lReport["registers"][1]["value"], 2 );
    EXPECT_EQ( lReport["statistics"]["transfers"], 2 );
    EXPECT_EQ( mDevice->GetClaims(), 0U );
}

TEST_F( U3v, ADeviceStatusIsNotASystemError )
{
    const Outcome lOutcome = Run( { "read", "1-1", "0", "0x70000000" } );
    EXPECT_EQ( lOutcome.mStatus, 1 );
    ExpectOneSentence( lOutcome.mError );
    EXPECT_THAT( lOutcome.mError,
                 AllOf( HasSubstr( "cannot read register 0x0000000070000000 of " ),
                        HasSubstr( "GENCP_INVALID_ADDRESS" ), HasSubstr( "status 0x00008003" ),
                        HasSubstr( "1 of 2 registers were read" ),
                        Not( HasSubstr( "system error" ) ) ) );
    const Outcome lJson = Run( { "write", "1-1", "0=1", "--json" } );
    EXPECT_EQ( lJson.mStatus, 1 );
    EXPECT_EQ( ParseReport( lJson )["error"]["deviceStatus"], 0x8004 );
    EXPECT_EQ( ParseReport( lJson )["error"]["systemError"], 0 );
}

TEST_F( U3v, DumpPrintsLinesAndWritesFilesAndReports )
{
    const std::string lBytes = MakeBytes( 5000 );
    SetMemory( MEMORY, lBytes );
    SetMemory( HIGH_MEMORY, "xHello" );
    const Outcome lLines = Run( { "dump", "1-1", "0x0123456700000001", "5" } );
    EXPECT_EQ( lLines.mStatus, 0 );
    EXPECT_EQ( lLines.mOutput,
               "0x0123456700000001  48 65 6c 6c 6f                                    |Hello|\n" );
    EXPECT_THAT( lLines.mError, HasSubstr( "statistics: " ) );
    const std::string lFile = mFolder.GetPath( "dump" );
    const Outcome lDump = Run( { "dump", GUID, "0x100003", "4990", "-o", lFile } );
    EXPECT_EQ( lDump.mStatus, 0 ) << lDump.mError;
    EXPECT_EQ( ReadWholeFile( lFile ), lBytes.substr( 3, 4990 ) );
    EXPECT_EQ( GetLargest( 0x81 ), 1024U );
    const nlohmann::json lReport =
        ParseReport( Run( { "dump", "1-1", "0x0123456700000001", "5", "--json" } ) );
    EXPECT_EQ( lReport["data"], "48656c6c6f" );
    EXPECT_EQ( lReport["address"], HIGH_MEMORY + 1 );
    EXPECT_EQ( lReport["statistics"]["maxAckSize"], 1024 );
}

TEST_F( U3v, LoadKeepsNeighbouringBytesAndRespectsTheCommandLimit )
{
    SetMemory( MEMORY, std::string( 4000, '.' ) );
    const std::string lBytes = MakeBytes( 3001 );
    WriteWholeFile( mFolder.GetPath( "image" ), lBytes );
    const Outcome lOutcome = Run( { "load", "1-1", "0x100002", mFolder.GetPath( "image" ) } );
    EXPECT_EQ( lOutcome.mStatus, 0 ) << lOutcome.mError;
    EXPECT_EQ( GetMemory( MEMORY, 3005 ), ".." + lBytes + ".." );
    EXPECT_EQ( GetLargest( 0x01 ), 1024U );
    EXPECT_THAT( lOutcome.mError,
                 HasSubstr( "the word at 0x0000000000100000 keeps 2 bytes from the device" ) );
}

TEST_F( U3v, TransfersRespectSmallLimitsOfADevice )
{
    ConfigurationU3V lSmall;
    lSmall.mMaxCommandTransferLength = lSmall.mCommandRoom = 32;
    lSmall.mMaxAckTransferLength = lSmall.mAckRoom = 20;
    Plug( lSmall );
    WriteWholeFile( mFolder.GetPath( "image" ), MakeBytes( 50 ) );
    ASSERT_EQ( Run( { "load", "1-1", "0x100000", mFolder.GetPath( "image" ) } ).mStatus, 0 );
    EXPECT_EQ( GetLargest( 0x01 ), 32U );
    const nlohmann::json lReport =
        ParseReport( Run( { "dump", "1-1", "0x100000", "50", "--json" } ) );
    EXPECT_EQ( lReport["length"], 50 );
    EXPECT_EQ( lReport["statistics"]["maxAckSize"], 20 );
    EXPECT_EQ( GetLargest( 0x81 ), 20U );
}

TEST_F( U3v, ADeviceWithoutLimitsIsLimitedByTheLinksBuffers )
{
    ConfigurationU3V lSilent;
    lSilent.mMaxCommandTransferLength = 0;
    lSilent.mMaxAckTransferLength = 0;
    Plug( lSilent );
    const std::string lBytes = MakeBytes( 3001 );
    WriteWholeFile( mFolder.GetPath( "image" ), lBytes );
    const Outcome lLoad = Run( { "load", "1-1", "0x100002", mFolder.GetPath( "image" ) } );
    EXPECT_EQ( lLoad.mStatus, 0 ) << lLoad.mError;
    EXPECT_EQ( GetMemory( MEMORY + 2, 3001 ), lBytes );
    EXPECT_EQ( GetLargest( 0x01 ), 1024U );
    EXPECT_THAT( lLoad.mError, HasSubstr( "commands of at most any size, acknowledges of at most "
                                          "any size" ) );
    EXPECT_THAT( lLoad.mError, Not( HasSubstr( "are kept small" ) ) );

    const std::string lFile = mFolder.GetPath( "dump" );
    const Outcome lDump = Run( { "dump", "1-1", "0x100002", "3001", "-o", lFile, "--json" } );
    EXPECT_EQ( ReadWholeFile( lFile ), lBytes );
    EXPECT_EQ( GetLargest( 0x81 ), 1024U );
    EXPECT_EQ( ParseReport( lDump )["statistics"]["maxCommandSize"], 0 );
    EXPECT_EQ( ParseReport( lDump )["statistics"]["maxAckSize"], 0 );
    EXPECT_EQ( ParseReport( Run( { "info", "1-1", "--json" } ) )["maxAckTransferLength"], 0 );
}

TEST_F( U3v, ADeviceThatRefusesItsRecordIsAccessedInSmallPieces )
{
    constexpr uint64_t MAX_ACK_TRANSFER_LENGTH = 0x00010018;
    GetDevice().Use( []( VirtualDeviceU3V& aSimulated )
                     { aSimulated.RefuseAddress( MAX_ACK_TRANSFER_LENGTH, 0x8006 ); } );
    const Outcome lInfo = Run( { "info", "1-1" } );
    EXPECT_EQ( lInfo.mStatus, 1 );
    EXPECT_THAT( lInfo.mOutput, IsEmpty() );
    ExpectOneSentence( lInfo.mError );
    EXPECT_THAT( lInfo.mError,
                 AllOf( HasSubstr( "cannot read the capabilities of " ),
                        HasSubstr( "GENCP_ACCESS_DENIED" ), HasSubstr( "status 0x00008006" ) ) );

    const std::string lBytes = MakeBytes( 301 );
    WriteWholeFile( mFolder.GetPath( "image" ), lBytes );
    const Outcome lLoad = Run( { "load", "1-1", "0x100000", mFolder.GetPath( "image" ) } );
    EXPECT_EQ( lLoad.mStatus, 0 ) << lLoad.mError;
    EXPECT_EQ( GetMemory( MEMORY, 301 ), lBytes );
    EXPECT_EQ( GetLargest( 0x01 ), 64U );
    const std::string lFile = mFolder.GetPath( "dump" );
    const Outcome lDump = Run( { "dump", GUID, "0x100000", "301", "-o", lFile } );
    EXPECT_EQ( lDump.mStatus, 0 ) << lDump.mError;
    EXPECT_EQ( ReadWholeFile( lFile ), lBytes );
    EXPECT_EQ( GetLargest( 0x81 ), 64U );
    for ( const Outcome* const lOutcome : { &lLoad, &lDump } )
    {
        EXPECT_THAT( lOutcome->mError,
                     AllOf( HasSubstr( std::string( "transfers to " ) + NAME + " are kept small" ),
                            HasSubstr( "GENCP_ACCESS_DENIED" ) ) );
    }
    EXPECT_EQ( Run( { "read", "1-1", "0x100000" } ).mStatus, 0 );
}

TEST_F( U3v, ADeviceWhoseLimitsAreBelowAWordCannotBeDumped )
{
    ConfigurationU3V lTiny;
    lTiny.mMaxCommandTransferLength = 20;
    Plug( lTiny );
    const Outcome lOutcome = Run( { "dump", "1-1", "0x100000", "4", "--json" } );
    EXPECT_EQ( lOutcome.mStatus, 1 );
    EXPECT_THAT( lOutcome.mError, HasSubstr( "too small for a word" ) );
}

TEST_F( U3v, ALongTransferDrawsABar )
{
    ChildProcess::Options lTerminal;
    lTerminal.mErrorIsTerminal = true;
    const Outcome lOutcome =
        Run( { "dump", "1-1", "0x100000", "4096", "-o", mFolder.GetPath( "dump" ) }, lTerminal );
    EXPECT_EQ( lOutcome.mStatus, 0 );
    EXPECT_THAT( lOutcome.mError, HasSubstr( "100 %  4096 of 4096 bytes" ) );
}

TEST_F( U3v, AFailedDumpLeavesNoFile )
{
    const Outcome lOutcome =
        Run( { "dump", "1-1", "0x1FFC00", "2048", "-o", mFolder.GetPath( "dump" ) } );
    EXPECT_EQ( lOutcome.mStatus, 1 );
    EXPECT_THAT( lOutcome.mError, HasSubstr( " of 2048 bytes were read" ) );
    EXPECT_THAT( mFolder.List(), IsEmpty() );
}

TEST_F( U3v, AnUnpluggedDeviceIsReported )
{
    GetDevice().Inject( { FaultU3V::Kind::UNPLUG, 0, 1, 0 } );
    const Outcome lOutcome = Run( { "read", "1-1", "0" } );
    EXPECT_EQ( lOutcome.mStatus, 1 );
    ExpectOneSentence( lOutcome.mError );
    EXPECT_THAT( lOutcome.mError, HasSubstr( "unplugged" ) );
}

TEST_F( U3v, AnInterruptionEndsTheWaitForAnAnswer )
{
    GetDevice().Inject( { FaultU3V::Kind::PENDING, 60000, 1, 30000 } );
    ChildProcess lProgram( MakeToolCommand( { "u3v", "read", "1-1", "0" } ) );
    ASSERT_TRUE( mDevice->WaitForReader() );
    lProgram.Signal( SIGINT );
    EXPECT_EQ( lProgram.Wait().mStatus, 1 );
    EXPECT_THAT( lProgram.GetError(), HasSubstr( "interrupted before it could read register" ) );
    EXPECT_EQ( mDevice->GetClaims(), 0U );
}

TEST_F( U3v, AMissingDeviceIsReported )
{
    for ( const char* const lName : { "1-2", "1AB200000009" } )
    {
        const Outcome lOutcome = Run( { "info", lName } );
        EXPECT_EQ( lOutcome.mStatus, 1 );
        ExpectOneSentence( lOutcome.mError );
        EXPECT_THAT( lOutcome.mError, HasSubstr( std::string( "found " ) + NAME ) );
    }
}

TEST_F( U3v, WrongCommandLinesSendNothing )
{
    const std::string lNoFile = mFolder.GetPath( "none" );
    const Arguments lLines[] = { { "info" },
                                 { "info", "camera" },
                                 { "read", "1-1" },
                                 { "read", "1-1", "2" },
                                 { "read", "1-1", "0x10000000000000000" },
                                 { "write", "1-1", "0" },
                                 { "write", "1-1", "0=0x100000000" },
                                 { "dump", "1-1", "0", "0" },
                                 { "dump", "1-1", "0xFFFFFFFFFFFFFFFF", "2" },
                                 { "load", "1-1", "0", lNoFile },
                                 { "info", "1-1", "--timeout", "5" } };
    for ( const Arguments& lLine : lLines )
    {
        const Outcome lOutcome = Run( lLine );
        EXPECT_EQ( lOutcome.mStatus, 2 ) << lLine.back();
        ExpectOneSentence( lOutcome.mError );
        EXPECT_THAT( lOutcome.mOutput, IsEmpty() );
    }
    EXPECT_THAT( mDevice->GetTransfers(), IsEmpty() );
}

TEST_F( U3v, TwoDevicesWithTheSameIdentityAreNamedByPath )
{
    (void)mBus.Plug( {}, 2 );
    EXPECT_EQ( Run( { "read", GUID, "0" } ).mStatus, 2 );
    EXPECT_EQ( Run( { "read", "1-2", "0" } ).mStatus, 0 );
}

} // namespace TestSupport
