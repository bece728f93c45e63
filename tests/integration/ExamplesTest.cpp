// The example programs do what they say, over the network, against virtual devices.

#include "tests/integration/ExampleRunner.h"
#include "tests/support/LoopbackDevice.h"
#include "tests/support/LoopbackTftpServer.h"
#include "tests/support/NetworkNamespace.h"
#include "tests/support/TemporaryDirectory.h"

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <memory>

using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

namespace TestSupport
{

namespace
{

using Simulators::VirtualTftpServer;
using Trouble = Simulators::VirtualTftpServer::Trouble;

constexpr char HOST[] = "127.0.0.1";

// A network of the test's own, with nothing on it until the test serves a device.
class GevExamples : public testing::Test
{
protected:
    void SetUp() override
    {
        const std::string lReason = EnterNetworkNamespace();
        if ( !lReason.empty() )
        {
            GTEST_SKIP() << lReason;
        }
    }

    void Serve( const Simulators::ConfigurationGEV& aConfiguration = {} )
    {
        mDevice = std::make_unique<WellKnownDevice>( aConfiguration );
    }

    std::unique_ptr<WellKnownDevice> mDevice;
};

class TftpExample : public testing::Test
{
protected:
    void SetUp() override
    {
        const std::string lReason = EnterTftpNetwork();
        if ( !lReason.empty() )
        {
            GTEST_SKIP() << lReason;
        }
        mServer = std::make_unique<LoopbackTftpServer>();
        ASSERT_TRUE( mServer->GetOpened().IsOK() );
    }

    std::string MakeFile( const std::string& aContent )
    {
        const std::string lPath = mFolder.GetPath( "image" );
        WriteWholeFile( lPath, aContent );
        return lPath;
    }

    void Disturb( Trouble aTrouble, uint64_t aFirst, uint64_t aCount )
    {
        VirtualTftpServer::Disturbance lDisturbance;
        lDisturbance.mTrouble = aTrouble;
        lDisturbance.mFirst = aFirst;
        lDisturbance.mCount = aCount;
        mServer->Access( [&]( VirtualTftpServer& aServer ) { aServer.Disturb( lDisturbance ); } );
    }

    Arguments MakeUpload( const std::string& aPath )
    {
        return MakeExampleCommand( "UploadFirmware", { HOST, aPath, "camera.fw" } );
    }

    const TemporaryDirectory mFolder;
    std::unique_ptr<LoopbackTftpServer> mServer;
};

class PayloadExample : public testing::Test
{
protected:
    Outcome Build( const std::string& aFirmware, const std::string& aName )
    {
        WriteWholeFile( mFolder.GetPath( "firmware.dfw" ), aFirmware );
        return RunExample( "BuildIdentification", { mFolder.GetPath( "firmware.dfw" ), aName,
                                                    mFolder.GetPath( "id.dfw" ) } );
    }

    const TemporaryDirectory mFolder;
};

const std::string TARGET( "T\x06\x02\x01\x03\x12\x34"
                          "D",
                          8 );
const std::string VERSION( "V\x03\x01\x02\x03", 5 );
const std::string ADDRESS( "O\x04\x00\x00\x80\x00", 6 );

} // namespace

TEST( Examples, WrongArgumentsPrintTheUsage )
{
    const std::string lLongName( 1016, 'n' );
    const std::vector<std::pair<std::string, Arguments>> lCalls = {
        { "ReadRegister", {} },
        { "ReadRegister", { HOST } },
        { "ReadRegister", { "camera", "0" } },
        { "ReadRegister", { HOST, "" } },
        { "ReadRegister", { HOST, "-4" } },
        { "ReadRegister", { HOST, "0x2" } },
        { "ReadRegister", { HOST, "4x" } },
        { "ReadRegister", { HOST, "0x100000000" } },
        { "ReadRegister", { HOST, "0x10000000000000000" } },
        { "ReadRegister", { HOST, "0", "4" } },
        { "PrintCapabilities", {} },
        { "PrintCapabilities", { "127.0.0.1.1" } },
        { "ObserveTransfers", { HOST, HOST } },
        { "ObserveTransfers", { "localhost" } },
        { "UploadFirmware", { HOST, "file" } },
        { "UploadFirmware", { "256.0.0.1", "file", "name" } },
        { "UploadFirmware", { HOST, "file", "" } },
        { "UploadFirmware", { HOST, "file", lLongName } },
        { "BuildIdentification", { "firmware", "name" } },
        { "BuildIdentification", { "firmware", "", "output" } },
        { "BuildIdentification", { "firmware", std::string( 256, 'n' ), "output" } },
        { "LogSink", {} },
        { "LogSink", { "" } },
        { "OwnLink", {} },
        { "OwnLink", { "1.2.3" } },
    };
    for ( const auto& [lName, lArguments] : lCalls )
    {
        const Outcome lOutcome = RunExample( lName, lArguments );
        EXPECT_EQ( lOutcome.mStatus, 2 ) << lName;
        EXPECT_THAT( lOutcome.mOutput, IsEmpty() );
        EXPECT_THAT( lOutcome.mError, StartsWith( "usage: " + lName + " " ) );
        ExpectOneLine( lOutcome.mError );
    }
}

TEST_F( GevExamples, ReadRegisterPrintsTheValue )
{
    Serve();
    const Outcome lOutcome = RunExample( "ReadRegister", { HOST, "0x0934" } );
    EXPECT_EQ( lOutcome.mStatus, 0 );
    EXPECT_THAT( lOutcome.mError, IsEmpty() );
    EXPECT_EQ( lOutcome.mOutput, "0x00000934 = 0xF8000023\n" );
}

TEST_F( GevExamples, ReadRegisterReportsWhyTheDeviceRefuses )
{
    Serve();
    const Outcome lOutcome = RunExample( "ReadRegister", { HOST, "0xFFFFFFFC" } );
    EXPECT_EQ( lOutcome.mStatus, 1 );
    EXPECT_THAT( lOutcome.mOutput, IsEmpty() );
    EXPECT_EQ( lOutcome.mError, "ReadRegister: cannot read 0xFFFFFFFC of 127.0.0.1: GENERIC_ERROR: "
                                "Invalid address status received from the device.\n" );
}

// No program listens there, and the system reports that at once.
TEST_F( GevExamples, WithoutADeviceTheyReportTheSystemError )
{
    const std::vector<std::pair<std::string, Arguments>> lCalls = {
        { "ReadRegister", { HOST, "0" } }, { "PrintCapabilities", { HOST } },
        { "ObserveTransfers", { HOST } },  { "LogSink", { HOST } },
        { "OwnLink", { HOST } },
    };
    for ( const auto& [lName, lArguments] : lCalls )
    {
        const Outcome lOutcome = RunExample( lName, lArguments );
        EXPECT_EQ( lOutcome.mStatus, 1 ) << lName;
        EXPECT_THAT( lOutcome.mError, StartsWith( lName + ": " ) );
        EXPECT_THAT( lOutcome.mError, EndsWith( "GENERIC_ERROR: Connection refused\n" ) );
        ExpectOneLine( lOutcome.mError );
    }
}

TEST_F( GevExamples, PrintCapabilitiesShowsTheRecord )
{
    Simulators::ConfigurationGEV lConfiguration;
    lConfiguration.mTickFrequency = 1000000000;
    Serve( lConfiguration );
    const Outcome lOutcome = RunExample( "PrintCapabilities", { HOST } );
    EXPECT_EQ( lOutcome.mStatus, 0 );
    EXPECT_THAT( lOutcome.mError, IsEmpty() );
    EXPECT_EQ( lOutcome.mOutput, "02:48:54:42:00:01\n"
                                 "  GigE Vision            2.0\n"
                                 "  stream channels        1\n"
                                 "  message channels       1\n"
                                 "  largest memory read    512 bytes\n"
                                 "  timestamps             1000000000 Hz\n"
                                 "  memory writes          yes\n"
                                 "  packet resend          no\n"
                                 "  pending acknowledges   yes\n"
                                 "  actions                no\n"
                                 "  events                 no\n"
                                 "  IEEE 1588              no\n" );
}

TEST_F( GevExamples, ObserveTransfersSeesSuccessfulTransfers )
{
    Serve();
    const Outcome lOutcome = RunExample( "ObserveTransfers", { HOST } );
    EXPECT_EQ( lOutcome.mStatus, 0 ) << lOutcome.mError;
    EXPECT_EQ( lOutcome.mOutput, "read   4 bytes at 0x00000000\n"
                                 "read  32 bytes at 0x00000068\n"
                                 "wrote  4 bytes at 0x00000A00\n"
                                 "wrote  4 bytes at 0x00000A00\n" );
    EXPECT_EQ( mDevice->mServer.Access( [&] { return mDevice->mDevice.ReadWord( 0x0A00 ); } ), 0U );
}

TEST_F( GevExamples, LogSinkPrintsWhatTheLibraryLogs )
{
    Simulators::ConfigurationGEV lConfiguration;
    lConfiguration.mVersionMajor = 1;
    lConfiguration.mVersionMinor = 0;
    lConfiguration.mGvcpCapability = 0x00000003;
    lConfiguration.mMessageChannels = 0;
    Serve( lConfiguration );
    const Outcome lOutcome = RunExample( "LogSink", { HOST } );
    EXPECT_EQ( lOutcome.mStatus, 0 ) << lOutcome.mError;
    // A slow machine may have a repeated command in between.
    for ( const char* const lText :
          { "Reading device properties (00:00:00:00:00:00)", "GEV Version: 1.0",
            "Concatenation: true", "Write memory: true", "Streaming channels: 1",
            "Timestamp tick frequency: 0000000000000000" } )
    {
        EXPECT_THAT( lOutcome.mOutput, HasSubstr( std::string( "20000 HtBaseLib::CapabilitiesGEV::"
                                                               "Init: " ) +
                                                  lText + "\n" ) );
    }
    EXPECT_THAT( lOutcome.mOutput, EndsWith( " messages report a problem\n" ) );
}

TEST_F( GevExamples, LogSinkCountsSeriousMessages )
{
    Serve();
    mDevice->mServer.Access( [&] { mDevice->mDevice.SetSilent( 0x0000 ); } );
    const Outcome lOutcome = RunExample( "LogSink", { HOST } );
    EXPECT_EQ( lOutcome.mStatus, 1 );
    const std::string lSend = "HtBaseLib::BaseCommandLinkGEV::SendCommand: Command link ";
    EXPECT_EQ( lOutcome.mOutput, "20000 HtBaseLib::CapabilitiesGEV::Init: Reading device "
                                 "properties (00:00:00:00:00:00)\n"
                                 "30000 " +
                                     lSend + "timeout\n30000 " + lSend + "retry\n30000 " + lSend +
                                     "timeout\n30000 " + lSend + "retry\n30000 " + lSend +
                                     "timeout\n40000 " + lSend +
                                     "operation failure\n6 messages report a problem\n" );
    EXPECT_EQ( lOutcome.mError,
               "LogSink: cannot read 127.0.0.1: TIMEOUT: Command link operation failure\n" );
}

TEST_F( GevExamples, OwnLinkHasItsOwnTimeOutAndRetries )
{
    Simulators::ConfigurationGEV lConfiguration;
    lConfiguration.mPending.mTimes = 2;
    lConfiguration.mPending.mTakesMs = 1;
    lConfiguration.mPending.mAnnouncedMs = 10000;
    Serve( lConfiguration );
    const Outcome lOutcome = RunExample( "OwnLink", { HOST } );
    EXPECT_EQ( lOutcome.mStatus, 0 ) << lOutcome.mError;
    int lRetries = -1;
    int lPending = -1;
    EXPECT_EQ(
        std::sscanf( lOutcome.mOutput.c_str(), "%d retries, %d pending", &lRetries, &lPending ),
        2 );
    EXPECT_GE( lPending, 2 ); // more where a slow machine repeats the command
    EXPECT_THAT( lOutcome.mOutput,
                 EndsWith( " pending acknowledges, 0 transmit failures\nVirtualDeviceGEV\n" ) );
    mDevice->mServer.Access( [&] { mDevice->mDevice.SetSilent( 0x0068 ); } );
    const Outcome lSilence = RunExample( "OwnLink", { HOST } );
    EXPECT_EQ( lSilence.mStatus, 1 );
    EXPECT_THAT( lSilence.mOutput, StartsWith( "4 retries, " ) );
    EXPECT_EQ( lSilence.mError,
               "OwnLink: cannot read 127.0.0.1: TIMEOUT: Command link operation failure\n" );
}

TEST_F( TftpExample, UploadFirmwareSendsTheWholeFile )
{
    const std::string lContent = std::string( 100000, 'a' ) + std::string( 50001, '\0' );
    const Outcome lOutcome = RunProgram( MakeUpload( MakeFile( lContent ) ) );
    EXPECT_EQ( lOutcome.mStatus, 0 ) << lOutcome.mError;
    EXPECT_EQ( lOutcome.mOutput, "sent 150001 bytes as camera.fw\n" );
    EXPECT_THAT( lOutcome.mError, EndsWith( "149504 of 150001 bytes\n" ) ); // whole blocks
    const Simulators::Bytes lFile = mServer->GetFile( "camera.fw" );
    EXPECT_TRUE( std::string( lFile.begin(), lFile.end() ) == lContent );
}

// Five wrong acknowledges in a row: the first three failures are quiet.
TEST_F( TftpExample, UploadFirmwareShowsWarnings )
{
    Disturb( Trouble::WRONG_BLOCK, 2, 5 );
    const Outcome lOutcome = RunProgram( MakeUpload( MakeFile( std::string( 2000, 'a' ) ) ) );
    EXPECT_EQ( lOutcome.mStatus, 0 );
    EXPECT_EQ( lOutcome.mError, "warning: Invalid or missing ACK, retrying....\n"
                                "warning: Invalid or missing ACK, retrying.....\n"
                                "1536 of 2000 bytes\n" );
}

TEST_F( TftpExample, UploadFirmwareFailsWithTheDevicesMessage )
{
    Disturb( Trouble::ERROR_PACKET, 1, 1 );
    const Outcome lOutcome = RunProgram( MakeUpload( MakeFile( std::string( 2000, 'a' ) ) ) );
    EXPECT_EQ( lOutcome.mStatus, 1 );
    EXPECT_THAT( lOutcome.mOutput, IsEmpty() );
    EXPECT_EQ( lOutcome.mError, "0 of 2000 bytes\nUploadFirmware: not sent: 0x0013: Disturbed\n" );
}

TEST_F( TftpExample, CtrlCAbortsUploadFirmware )
{
    // The request and block 1 are acknowledged, block 2 is not.
    Disturb( Trouble::SILENCE, 2, VirtualTftpServer::FOR_EVER );
    ChildProcess lChild( MakeUpload( MakeFile( std::string( 2000, 'a' ) ) ) );
    ASSERT_TRUE( lChild.WaitForError( "512 of 2000 bytes\n" ) );
    lChild.Signal( SIGINT );
    const Ending lEnding = lChild.Wait();
    EXPECT_TRUE( lEnding.mExited );
    EXPECT_EQ( lEnding.mStatus, 1 );
    EXPECT_THAT( lChild.GetOutput(), IsEmpty() );
    EXPECT_THAT( lChild.GetError(), EndsWith( "512 of 2000 bytes\n"
                                              "UploadFirmware: not sent: ABORTED: \n" ) );
}

TEST_F( TftpExample, UploadFirmwareDoesNotSendAnUnreadableFile )
{
    for ( const std::string& lPath : { mFolder.GetPath( "none" ), mFolder.GetPath() } )
    {
        const Outcome lOutcome = RunProgram( MakeUpload( lPath ) );
        EXPECT_EQ( lOutcome.mStatus, 2 );
        EXPECT_EQ( lOutcome.mError, "UploadFirmware: cannot read " + lPath + "\n" );
    }
    EXPECT_EQ( mServer->Access( []( VirtualTftpServer& aServer )
                                { return aServer.GetCounters().mReceived; } ),
               0U );
}

TEST_F( PayloadExample, BuildIdentificationNamesTheDevice )
{
    const Outcome lOutcome = Build( ADDRESS + TARGET + VERSION + ADDRESS, "camera1" );
    EXPECT_EQ( lOutcome.mStatus, 0 ) << lOutcome.mError;
    EXPECT_EQ( lOutcome.mOutput, "31 bytes for camera1\n" );
    EXPECT_EQ( ReadWholeFile( mFolder.GetPath( "id.dfw" ) ),
               TARGET + VERSION + "I\x07" + "camera1" + std::string( 9, '\0' ) );
}

TEST_F( PayloadExample, BuildIdentificationTakesTheLongestName )
{
    const std::string lName( 255, 'n' );
    const Outcome lOutcome = Build( TARGET + VERSION, lName );
    EXPECT_EQ( lOutcome.mStatus, 0 ) << lOutcome.mError;
    EXPECT_EQ( ReadWholeFile( mFolder.GetPath( "id.dfw" ) ), TARGET + VERSION + "I\xFF" + lName );
}

TEST_F( PayloadExample, BuildIdentificationLeavesNoPartialPayload )
{
    for ( const std::string& lFirmware : { TARGET, VERSION, ADDRESS } )
    {
        const Outcome lOutcome = Build( lFirmware, "camera1" );
        EXPECT_EQ( lOutcome.mStatus, 1 );
        EXPECT_THAT( lOutcome.mOutput, IsEmpty() );
        EXPECT_EQ( lOutcome.mError, "BuildIdentification: " + mFolder.GetPath( "firmware.dfw" ) +
                                        " has no target or no version record\n" );
        EXPECT_FALSE( std::filesystem::exists( mFolder.GetPath( "id.dfw" ) ) );
    }
}

TEST_F( PayloadExample, BuildIdentificationReportsWhichFileFails )
{
    const std::string lNone = mFolder.GetPath( "none" );
    const Outcome lUnread = RunExample( "BuildIdentification", { lNone, "camera1", lNone } );
    EXPECT_EQ( lUnread.mStatus, 2 );
    EXPECT_THAT( lUnread.mOutput, IsEmpty() );
    EXPECT_EQ( lUnread.mError, "BuildIdentification: cannot read " + lNone + "\n" );
    WriteWholeFile( mFolder.GetPath( "firmware.dfw" ), TARGET + VERSION );
    const Outcome lUnwritten = RunExample(
        "BuildIdentification", { mFolder.GetPath( "firmware.dfw" ), "camera1", "/dev/full" } );
    EXPECT_EQ( lUnwritten.mStatus, 1 );
    EXPECT_THAT( lUnwritten.mOutput, IsEmpty() );
    EXPECT_THAT( lUnwritten.mError, HasSubstr( "cannot write /dev/full: No space left" ) );
}

} // namespace TestSupport
