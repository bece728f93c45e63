// Our link and our virtual device together with independent programs.

#include "tests/support/ChildProcess.h"
#include "tests/support/LoopbackDevice.h"
#include "tests/support/NetworkNamespace.h"
#include "tests/support/PacketCapture.h"

#include <CapabilitiesGEV.h>
#include <QmUtilsLib/String.h>
#include <SimpleCommandLinkGEV.h>
#include <WdUtilsLib/GEV/CommandHeader.h>

#include <chrono>
#include <cstring>
#include <thread>

namespace
{

using HtBaseLib::CapabilitiesGEV;
using HtBaseLib::SimpleCommandLinkGEV;
using QmUtilsLib::Result;
using TestSupport::ChildProcess;
using TestSupport::LoopbackSocket;
using TestSupport::PacketCapture;
using TestSupport::WellKnownDevice;
using WdUtilsLib::GEV::GVCP_PORT;

using Rows = std::vector<std::vector<std::string>>;

// Every test here has a network of its own, so that ports are free and no broadcast gets out.
class Judges : public testing::Test
{
protected:
    void SetUp() override
    {
        const std::string lReason = TestSupport::EnterNetworkNamespace();
        if ( !lReason.empty() )
        {
            GTEST_SKIP() << lReason;
        }
    }
};

// The fake camera of another project.
class FakeCamera : public Judges
{
protected:
    void SetUp() override
    {
        Judges::SetUp();
        if ( IsSkipped() )
        {
            return;
        }
        mCamera = std::make_unique<ChildProcess>(
            std::vector<std::string>{ "arv-fake-gv-camera-0.8", "-i", "127.0.0.1" } );
        mSocket = std::make_unique<LoopbackSocket>( GVCP_PORT );
        mLink = std::make_unique<SimpleCommandLinkGEV>( &mSocket->mSocket );
        // Until it has started no program listens, and the link reports that at once.
        Result lResult;
        unsigned int lVersion = 0;
        for ( int lTry = 0; lTry < 200 && !lResult.IsOK(); ++lTry )
        {
            std::this_thread::sleep_for( std::chrono::milliseconds( 25 ) );
            lResult = mLink->ReadRegister( &lVersion, 0x0000 );
        }
        ASSERT_TRUE( lResult.IsOK() ) << mCamera->GetError();
        mLink->ResetStats();
    }

    std::string ReadText( long long aAddress, long long aSize )
    {
        std::string lText( static_cast<size_t>( aSize ), '\0' );
        const Result lResult = mLink->ReadMemory( lText.data(), aAddress, aSize );
        EXPECT_TRUE( lResult.IsOK() ) << lResult.GetDescription().GetAscii();
        return lText.substr( 0, lText.find( '\0' ) );
    }

    unsigned int ReadRegister( long long aAddress )
    {
        unsigned int lValue = 0xDEADBEEF;
        const Result lResult = mLink->ReadRegister( &lValue, aAddress );
        EXPECT_TRUE( lResult.IsOK() ) << lResult.GetDescription().GetAscii();
        return lValue;
    }

    void WriteRegister( unsigned int aValue, long long aAddress, bool aNoAck = false )
    {
        const Result lResult = mLink->WriteRegister( &aValue, aAddress, aNoAck );
        EXPECT_TRUE( lResult.IsOK() ) << lResult.GetDescription().GetAscii();
    }

    std::unique_ptr<ChildProcess> mCamera;
    std::unique_ptr<LoopbackSocket> mSocket;
    std::unique_ptr<SimpleCommandLinkGEV> mLink;
};

constexpr long long CONTROL = 0x0A00;
constexpr long long WIDTH = 0x0100; // a register of the fake camera's own

} // namespace

TEST_F( FakeCamera, ReturnsItsTextsAndRegisters )
{
    EXPECT_EQ( "Aravis", ReadText( 0x0048, 32 ) );
    EXPECT_EQ( "Fake", ReadText( 0x0068, 32 ) );
    EXPECT_EQ( "GV01", ReadText( 0x00D8, 16 ) );
    EXPECT_EQ( 1U, ReadRegister( 0x0904 ) ) << "stream channels";
    EXPECT_EQ( 0xBB8U, ReadRegister( 0x0938 ) ) << "heartbeat time-out, ms";
    EXPECT_EQ( 0x3B9ACA00U, ReadRegister( 0x0940 ) ) << "timestamp tick frequency, low";
    EXPECT_EQ( 0, mLink->GetRetriesCount() );
}

TEST_F( FakeCamera, KeepsWhatIsWrittenToARegisterAndToMemory )
{
    WriteRegister( 2, CONTROL );
    WriteRegister( 0x00000123, WIDTH );
    EXPECT_EQ( 0x00000123U, ReadRegister( WIDTH ) );

    const unsigned char lWritten[8] = { 0x00, 0x00, 0x02, 0x00, 0x00, 0x00, 0x01, 0x80 };
    ASSERT_TRUE( mLink->WriteMemory( lWritten, WIDTH, sizeof( lWritten ), false ).IsOK() );
    unsigned char lBack[8] = {};
    ASSERT_TRUE( mLink->ReadMemory( lBack, WIDTH, sizeof( lBack ) ).IsOK() );
    EXPECT_EQ( 0, std::memcmp( lWritten, lBack, sizeof( lBack ) ) );
    EXPECT_EQ( 0x0200U, ReadRegister( WIDTH ) )
        << "memory and registers share their order of bytes";
    WriteRegister( 0, CONTROL );
}

TEST_F( FakeCamera, ItsCapabilityRecordMatchesItsRegisters )
{
    const unsigned int lHigh = ReadRegister( 0x0008 );
    const unsigned int lLow = ReadRegister( 0x000C );
    CapabilitiesGEV lRecord( WdUtilsLib::Network::EthernetAddress( lHigh, lLow ) );
    const Result lResult = lRecord.Init( &mSocket->mSocket );
    ASSERT_TRUE( lResult.IsOK() ) << lResult.GetDescription().GetAscii();

    EXPECT_EQ( ReadRegister( 0x0000 ) >> 16, lRecord.GetVersionMajor() );
    EXPECT_EQ( ReadRegister( 0x0000 ) & 0xFFFFU, lRecord.GetVersionMinor() );
    EXPECT_EQ( ( ReadRegister( 0x0004 ) >> 28 ) & 7U, lRecord.GetDeviceClass() );
    EXPECT_EQ( ReadRegister( 0x0904 ), lRecord.GetStreamingChannelCount() );
    EXPECT_EQ( ReadRegister( 0x0900 ), lRecord.GetMessagingChannelCount() );
    const unsigned long long lTicks =
        ( static_cast<unsigned long long>( ReadRegister( 0x093C ) ) << 32 ) |
        ReadRegister( 0x0940 );
    EXPECT_EQ( 1000000000U, lTicks );
    EXPECT_EQ( lTicks, lRecord.GetTimestampTickFrequency() );
    const unsigned int lGvcp = ReadRegister( 0x0934 );
    EXPECT_EQ( ( lGvcp & 0x00000001U ) != 0, lRecord.IsConcatenationSupported() );
    EXPECT_EQ( ( lGvcp & 0x00000002U ) != 0, lRecord.IsWriteMemSupported() );
    EXPECT_EQ( ( lGvcp & 0x00000004U ) != 0, lRecord.IsPacketResendSupported() );
    EXPECT_EQ( ( lGvcp & 0x00000008U ) != 0, lRecord.IsEventSupported() );
    EXPECT_EQ( ( lGvcp & 0x00000010U ) != 0, lRecord.IsEventDataSupported() );
    // It implements version 0.0, in which no later feature counts.
    ASSERT_EQ( 0U, lRecord.GetVersionMajor() );
    bool ( CapabilitiesGEV::*const LATER[] )() const = {
        &CapabilitiesGEV::IsPendingSupported,
        &CapabilitiesGEV::IsActionSupported,
        &CapabilitiesGEV::IsScheduledActionSupported,
        &CapabilitiesGEV::IsV2ExtendedStatusCodesSupported,
        &CapabilitiesGEV::IsIEEE1588Supported,
        &CapabilitiesGEV::IsUnconditionalActionSupported,
        &CapabilitiesGEV::IsApplicationSwitchOverSupported,
        &CapabilitiesGEV::IsV1_1ExtendedCodesSupported,
        &CapabilitiesGEV::IsCustomDiscoveryDelaySupported,
        &CapabilitiesGEV::IsDiscoveryDelayRegSupported,
        &CapabilitiesGEV::IsTestDataSupported,
        &CapabilitiesGEV::IsManifestTableSupported,
        &CapabilitiesGEV::IsCCPOwnerDiscoverySupported,
        &CapabilitiesGEV::IsLinkSpeedRegisterSupported,
        &CapabilitiesGEV::IsHeartbeatDisableSupported,
        &CapabilitiesGEV::IsSerialNumberSupported,
        &CapabilitiesGEV::IsUserDefinedNameSupported,
        &CapabilitiesGEV::IsLegacy16BitsBlockIdSupported,
    };
    for ( const auto& lQuery : LATER )
    {
        EXPECT_FALSE( ( lRecord.*lQuery )() ) << &lQuery - LATER;
    }
    EXPECT_TRUE( lRecord.IsEndOfBlockResendRequestSupported() ) << "not one of the maker's";
    EXPECT_EQ( 0U, lRecord.GetMessageChannelSourcePort() );
    EXPECT_EQ( 0U, lRecord.GetStreamChannelSourcePort( 0 ) );
}

// It answers writes that asked for no acknowledge; the answer is a stray before the next one.
TEST_F( FakeCamera, StrayAcknowledgesAreDroppedAndLogged )
{
    WriteRegister( 2, CONTROL );
    std::vector<std::string> lTexts;
    QmUtilsLib::Logger::SetSink( [&lTexts]( const QmUtilsLib::LogRecord& aRecord )
                                 { lTexts.emplace_back( aRecord.mText ); } );
    QmUtilsLib::Logger::SetThreshold( QmUtilsLib::Logger::ANOMALY );
    WriteRegister( 0x00000200, WIDTH, true );
    EXPECT_EQ( 0x00000200U, ReadRegister( WIDTH ) );
    QmUtilsLib::Logger::SetThreshold( QmUtilsLib::Logger::QUIET );
    QmUtilsLib::Logger::SetSink( nullptr );
    EXPECT_EQ( std::vector<std::string>{ "Unexpected device answer - malformed or out of sync" },
               lTexts );
    EXPECT_EQ( 0, mLink->GetRetriesCount() );
}

// Writes of another host are dropped without an answer while one holds control.
TEST_F( FakeCamera, AWriteThatIsIgnoredEndsAsATimeOut )
{
    WriteRegister( 2, CONTROL );
    LoopbackSocket lSocket( GVCP_PORT );
    TestSupport::PatientLink lOther( &lSocket.mSocket, 2, 50 );
    const unsigned int lValue = 1;
    const Result lResult = lOther.WriteRegister( &lValue, WIDTH, false );
    EXPECT_EQ( Result::TIMEOUT, lResult.GetCode() );
    EXPECT_EQ( 1, lOther.GetRetriesCount() );
}

TEST_F( Judges, ADissectorFindsTheExpectedFieldsInOurCommands )
{
    PacketCapture lCapture;
    ASSERT_EQ( "", lCapture.GetProblem() );
    {
        const WellKnownDevice lDevice;
        LoopbackSocket lSocket( GVCP_PORT );
        SimpleCommandLinkGEV lLink( &lSocket.mSocket );

        unsigned int lValue = 0;
        EXPECT_TRUE( lLink.ReadRegister( &lValue, 0x0934 ).IsOK() );
        lValue = 2;
        EXPECT_TRUE( lLink.WriteRegister( &lValue, 0x0A00, false ).IsOK() );
        lValue = 0x12345678;
        EXPECT_TRUE( lLink.WriteRegister( &lValue, 0xA000, true ).IsOK() );
        unsigned char lData[536] = {};
        EXPECT_TRUE( lLink.ReadMemory( lData, 0x0048, 32 ).IsOK() );
        EXPECT_TRUE( lLink.ReadMemory( lData, 0x00100010, 536 ).IsOK() );
        EXPECT_TRUE( lLink.WriteMemory( "ABCDEFGH", 0x00100000, 8, false ).IsOK() );
        EXPECT_FALSE( lLink.ReadRegister( &lValue, 0x7FFFFFF0 ).IsOK() );
    }
    lCapture.Stop();
    ASSERT_EQ( "", lCapture.GetProblem() );

    EXPECT_EQ( Rows{}, lCapture.GetRows( "_ws.malformed", { "frame.number" } ) );
    const std::string lCommands = "gvcp && udp.dstport == 3956";
    EXPECT_EQ( ( Rows{ { "0x0080", "1", "0x0004", "0xb001" },
                       { "0x0082", "1", "0x0008", "0xb002" },
                       { "0x0082", "0", "0x0008", "0xb003" },
                       { "0x0084", "1", "0x0008", "0xb004" },
                       { "0x0084", "1", "0x0008", "0xb005" },
                       { "0x0086", "1", "0x000c", "0xb006" },
                       { "0x0080", "1", "0x0004", "0xb007" } } ),
               lCapture.GetRows( lCommands, { "gvcp.cmd.command", "gvcp.cmd.flag.acq_required",
                                              "gvcp.cmd.payloadlength", "gvcp.cmd.req_id" } ) );
    EXPECT_EQ( ( Rows{ { "0x00000934", "" }, { "", "0x7ffffff0" } } ),
               lCapture.GetRows( lCommands + " && gvcp.cmd.command == 0x80",
                                 { "gvcp.cmd.readreg.bootstrapregister",
                                   "gvcp.bootstrap.custom.register.write" } ) );
    EXPECT_EQ(
        ( Rows{ { "0x00000048", "", "0x0020" }, { "", "0x00100010", "0x0218" } } ),
        lCapture.GetRows( lCommands + " && gvcp.cmd.command == 0x84",
                          { "gvcp.cmd.readmem.bootstrapregister",
                            "gvcp.bootstrap.custom.register.write", "gvcp.cmd.readmem.count" } ) );
    // It does not show the addresses of writes, so the payload is compared, byte for byte.
    EXPECT_EQ( ( Rows{ { "420100820008b00200000a0000000002" },
                       { "420000820008b0030000a00012345678" },
                       { "42010086000cb006001000004142434445464748" } } ),
               lCapture.GetRows( lCommands + " && (gvcp.cmd.command == 0x82 || "
                                             "gvcp.cmd.command == 0x86)",
                                 { "udp.payload" } ) );
}

TEST_F( Judges, ADissectorFindsNothingMalformedInTheVirtualDevicesAnswers )
{
    PacketCapture lCapture;
    ASSERT_EQ( "", lCapture.GetProblem() );
    {
        Simulators::ConfigurationGEV lConfiguration;
        lConfiguration.mPending.mAnnouncedMs = 1000;
        lConfiguration.mPending.mTakesMs = 10;
        lConfiguration.mPending.mTimes = 1;
        const WellKnownDevice lDevice( lConfiguration );
        LoopbackSocket lSocket( GVCP_PORT );
        SimpleCommandLinkGEV lLink( &lSocket.mSocket );
        unsigned int lValue = 2;
        EXPECT_TRUE( lLink.WriteRegister( &lValue, 0x0A00, false ).IsOK() );
        EXPECT_TRUE( lLink.ReadRegister( &lValue, 0x0938 ).IsOK() );
        unsigned char lData[512] = {};
        EXPECT_TRUE( lLink.ReadMemory( lData, 0x0200, sizeof( lData ) ).IsOK() );
        EXPECT_TRUE( lLink.WriteMemory( lData, 0x00100000, sizeof( lData ), false ).IsOK() );
        EXPECT_FALSE( lLink.WriteRegister( &lValue, 0xA040, false ).IsOK() ) << "write protect";
    }
    lCapture.Stop();
    ASSERT_EQ( "", lCapture.GetProblem() );

    EXPECT_EQ( Rows{}, lCapture.GetRows( "_ws.malformed", { "frame.number" } ) );
    EXPECT_EQ( ( Rows{ { "0x0000", "0x0089", "0x03e8" },
                       { "0x0000", "0x0083", "" },
                       { "0x0000", "0x0089", "0x03e8" },
                       { "0x0000", "0x0081", "" },
                       { "0x0000", "0x0089", "0x03e8" },
                       { "0x0000", "0x0085", "" },
                       { "0x0000", "0x0089", "0x03e8" },
                       { "0x0000", "0x0087", "" },
                       { "0x8004", "0x0083", "" } } ),
               lCapture.GetRows(
                   "gvcp && udp.srcport == 3956",
                   { "gvcp.cmd.status", "gvcp.ack", "gvcp.ack.pendingack.timetocompletion" } ) );
}

TEST_F( Judges, AnotherHostListsTheVirtualDevice )
{
    const WellKnownDevice lDevice;
    const TestSupport::Outcome lOutcome = TestSupport::RunProgram( { "arv-tool-0.8" } );
    EXPECT_EQ( 0, lOutcome.mStatus ) << lOutcome.mError;
    EXPECT_EQ( "HtBase Virtual Devices-VirtualDeviceGEV-VD-0001 (127.0.0.1)\n", lOutcome.mOutput );
}
