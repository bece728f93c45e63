// The public TFTP client: what passes its boundary, and how.

#include <HtTftpClient.h>

#include "tests/support/TemporaryDirectory.h"
#include "tests/support/TftpBytes.h"

#include <QmUtilsLib/Scripted/RecordingLogSink.h>
#include <QmUtilsLib/Scripted/VirtualClock.h>
#include <WdUtilsLib/Scripted/Network.h>

#include <gmock/gmock.h>

#include <string>
#include <type_traits>
#include <utility>
#include <vector>

using QmUtilsLib::Scripted::RecordingLogSink;
using QmUtilsLib::Scripted::VirtualClock;
using testing::IsEmpty;
using testing::SizeIs;
using TestSupport::Ack;
using TestSupport::Bytes;
using TestSupport::Data;
using TestSupport::Error;
using TestSupport::ReadRequest;
using TestSupport::ReadWholeFile;
using TestSupport::TemporaryDirectory;
using TestSupport::WriteRequest;
using TestSupport::WriteWholeFile;
using WdUtilsLib::Network::IpAddress;
using WdUtilsLib::Scripted::Peer;
using WdUtilsLib::Scripted::ScriptedNetwork;

namespace
{

constexpr unsigned char UNTOUCHED = 0xEE;
const IpAddress DEVICE( 0xC0A80107 ); // 192.168.1.7
const Peer TRANSFER{ DEVICE, 50123 };
const Bytes CONTENT = { 0x11, 0x22, 0x33 };

std::string GetText( const HtResult& aResult )
{
    return aResult.GetDescription().GetAscii();
}

class PublicTftp : public testing::Test
{
protected:
    void SetUp() override { ASSERT_TRUE( mClient.Init( "192.168.1.7", "a.bin" ).IsOK() ); }

    void ScriptUpload( const Bytes& aBytes )
    {
        mNet.Expect( WriteRequest( "a.bin" ) )
            .ReplyFrom( TRANSFER, Ack( 0 ) )
            .Expect( Data( 1, aBytes ) )
            .Reply( Ack( 1 ) );
    }

    HtResult Send( const Bytes& aBytes )
    {
        return mClient.SendData( aBytes.data(), static_cast<unsigned int>( aBytes.size() ) );
    }

    // The device to which the last datagram went.
    std::string GetDevice() const { return mNet.GetSends().back().mTo.mAddress.GetString(); }

    ScriptedNetwork mNet;
    HtTftpClient mClient;
};

} // namespace

TEST( PublicTftpType, IsAPointerThatIsNotCopied )
{
    static_assert( sizeof( HtTftpClient ) == sizeof( void* ) );
    static_assert( !std::is_polymorphic_v<HtTftpClient> );
    static_assert( !std::is_copy_constructible_v<HtTftpClient> );
    static_assert( !std::is_copy_assignable_v<HtTftpClient> );
    static_assert(
        std::is_same_v<decltype( std::declval<const HtTftpClient>().GetTransferResult() ),
                       HtResult> );
}

TEST( PublicTftpType, NewClientHasRunNoTransfer )
{
    HtTftpClient lClient;
    long long lDone = -7;
    long long lTotal = -8;
    EXPECT_EQ( lClient.GetTransferResult().GetCode(), HtResult::NOT_INITIALIZED );
    EXPECT_EQ( lClient.GetProgress( lDone, lTotal ).GetCode(), HtResult::NOT_INITIALIZED );
    EXPECT_EQ( lDone, -7 );
    EXPECT_EQ( lTotal, -8 );
    EXPECT_EQ( lClient.Abort().GetCode(), 0x001CU );
    HtString lText( "before" );
    EXPECT_EQ( lClient.GetWarning( lText ).GetCode(), 0x0015U );
    EXPECT_STREQ( lText.GetAscii(), "" );
}

// Init

TEST_F( PublicTftp, InitTakesAnAddress )
{
    const RecordingLogSink lLog;
    EXPECT_EQ( mClient.Init( "10.0.0.2", "a.bin" ).GetCode(), 0U );
    EXPECT_THAT( lLog.GetTexts(), IsEmpty() );
    ScriptUpload( CONTENT );
    EXPECT_TRUE( Send( CONTENT ).IsOK() );
    EXPECT_EQ( GetDevice(), "10.0.0.2" );
}

TEST_F( PublicTftp, InitRefusesAndLogsAnInvalidAddress )
{
    for ( const char* const lAddress : { "192.168.1.300", "", "camera", "192.168.1", "1.2.3.4 " } )
    {
        const RecordingLogSink lLog;
        const HtResult lResult = mClient.Init( lAddress, "other" );
        EXPECT_EQ( lResult.GetCode(), 0x4001U ) << lAddress;
        EXPECT_EQ( lResult.GetOSCode(), 0U );
        EXPECT_EQ( GetText( lResult ), "Invalid IP address provided." );
        const std::vector<RecordingLogSink::Entry> lEntries = lLog.GetEntries();
        ASSERT_THAT( lEntries, SizeIs( 1 ) );
        EXPECT_EQ( lEntries[0].mLogger, "HtBaseLib" );
        EXPECT_EQ( lEntries[0].mPriority, 40000 );
        EXPECT_EQ( lEntries[0].mUnit, "Libraries/HtBase/HtTftpClient" );
        EXPECT_EQ( lEntries[0].mFunction, "HtTftpClient::Init" );
        EXPECT_EQ( lEntries[0].mText, "Invalid IP address provided." );
        EXPECT_EQ( lEntries[0].mFormat, "Invalid IP address provided." );
        EXPECT_GT( lEntries[0].mLine, 0 );
    }
}

TEST_F( PublicTftp, RefusedInitKeepsTheEarlierOne )
{
    ASSERT_FALSE( mClient.Init( "192.168.1.300", "other" ).IsOK() );
    ScriptUpload( CONTENT ); // to "a.bin"
    EXPECT_TRUE( Send( CONTENT ).IsOK() );
    EXPECT_EQ( GetDevice(), "192.168.1.7" );
}

TEST_F( PublicTftp, InitAgainChangesAddressAndName )
{
    ScriptUpload( CONTENT );
    ASSERT_TRUE( Send( CONTENT ).IsOK() );
    ASSERT_TRUE( mClient.Init( "10.0.0.2", "b.bin" ).IsOK() );
    mNet.Expect( WriteRequest( "b.bin" ) ).ReplyFrom( TRANSFER, Error( 0, "no" ) );
    EXPECT_FALSE( Send( CONTENT ).IsOK() );
    EXPECT_EQ( GetDevice(), "10.0.0.2" );
}

TEST_F( PublicTftp, NamesGoOutInTheir8BitForm )
{
    ASSERT_TRUE( mClient.Init( L"192.168.1.7", L"\u00E4.bin" ).IsOK() );
    mNet.Expect( WriteRequest( "\xC3\xA4.bin" ) ).ReplyFrom( TRANSFER, Error( 0, "no" ) );
    EXPECT_FALSE( Send( CONTENT ).IsOK() );
    ASSERT_TRUE( mClient.Init( "192.168.1.7", "\xFF.bin" ).IsOK() ); // not UTF-8
    mNet.Expect( WriteRequest( "\xFF.bin" ) ).ReplyFrom( TRANSFER, Error( 0, "no" ) );
    EXPECT_FALSE( Send( CONTENT ).IsOK() );
}

// Transfers

TEST_F( PublicTftp, SendDataReturnsWhenTheTransferHasEnded )
{
    ScriptUpload( CONTENT );
    EXPECT_EQ( Send( CONTENT ).GetCode(), 0U );
    EXPECT_TRUE( mNet.IsScriptDone() );
    EXPECT_EQ( mClient.GetTransferResult().GetCode(), 0U );
    long long lDone = -1;
    long long lTotal = -1;
    EXPECT_TRUE( mClient.GetProgress( lDone, lTotal ).IsOK() );
    EXPECT_EQ( lDone, 0 );
    EXPECT_EQ( lTotal, 3 );
}

TEST_F( PublicTftp, SendFileSendsTheFile )
{
    const TemporaryDirectory lDirectory;
    WriteWholeFile( lDirectory.GetPath( "file" ), "\x11\x22\x33" );
    ScriptUpload( CONTENT );
    EXPECT_EQ( mClient.SendFile( lDirectory.GetPath( "file" ).c_str() ).GetCode(), 0U );
}

TEST_F( PublicTftp, MissingFileIsAGenericErrorThatKeepsItsInternalCode )
{
    const RecordingLogSink lLog;
    {
        const HtResult lResult = mClient.SendFile( "/missing/file" );
        EXPECT_EQ( lResult.GetCode(), 0x4000U );
        EXPECT_EQ( lResult.GetInternalCode(), 0x0010U );
        const std::vector<RecordingLogSink::Entry> lEntries = lLog.GetEntries();
        ASSERT_THAT( lEntries, SizeIs( 1 ) );
        EXPECT_EQ( lEntries[0].mText, "0x00000010 converted to GENERIC_ERROR" );
        EXPECT_EQ( lEntries[0].mFunction, "HtResult::SetCode" );
        EXPECT_EQ( lEntries[0].mPriority, 20000 );

        const HtResult lCopy( lResult );
        EXPECT_EQ( lCopy.GetInternalCode(), 0x4000U );
        HtResult lAssigned;
        lAssigned = lResult;
        EXPECT_EQ( lAssigned.GetInternalCode(), 0x4000U );
    }
    EXPECT_THAT( mNet.GetSends(), IsEmpty() );
    EXPECT_EQ( mClient.GetTransferResult().GetCode(), 0xFFFFU );
    EXPECT_EQ( mClient.Abort().GetCode(), 0U );
}

TEST_F( PublicTftp, FailureCarriesTheDevicesMessage )
{
    mNet.Expect( WriteRequest( "a.bin" ) ).ReplyFrom( TRANSFER, Error( 3, "Disk %s full" ) );
    const HtResult lResult = Send( CONTENT );
    EXPECT_EQ( lResult.GetCode(), 0x0013U );
    EXPECT_EQ( lResult.GetOSCode(), 0U );
    EXPECT_EQ( GetText( lResult ), "Disk %s full" );
    const HtResult lTransfer = mClient.GetTransferResult();
    EXPECT_EQ( lTransfer.GetCode(), 0x0013U );
    EXPECT_EQ( GetText( lTransfer ), "Disk %s full" );
}

TEST_F( PublicTftp, SilentDeviceCosts21Seconds )
{
    const RecordingLogSink lLog;
    const long long lStart = VirtualClock::Now();
    for ( int lTry = 0; lTry < 21; ++lTry )
    {
        mNet.Expect( WriteRequest( "a.bin" ) ).Silence();
    }
    const HtResult lResult = Send( CONTENT );
    EXPECT_EQ( lResult.GetCode(), 0x0013U );
    EXPECT_EQ( GetText( lResult ),
               "Reached the maximum number of retries. Please ensure that the firewall is "
               "disabled. The device must be power cycled before trying again." );
    EXPECT_EQ( VirtualClock::Now() - lStart, 21000 );
    EXPECT_THAT( lLog.GetTexts(), IsEmpty() ); // 0x0013 passes as it is
}

TEST_F( PublicTftp, GetFileWritesTheFile )
{
    const TemporaryDirectory lDirectory;
    mNet.Expect( ReadRequest( "a.bin" ) )
        .ReplyFrom( TRANSFER, Data( 1, CONTENT ) )
        .Expect( Ack( 1 ) );
    EXPECT_EQ( mClient.GetFile( lDirectory.GetPath( "file" ).c_str() ).GetCode(), 0U );
    EXPECT_EQ( ReadWholeFile( lDirectory.GetPath( "file" ) ), "\x11\x22\x33" );
}

TEST_F( PublicTftp, GetFileWithoutAPathUsesTheDevicesName )
{
    const TemporaryDirectory lDirectory;
    const std::string lName = lDirectory.GetPath( "name" );
    ASSERT_TRUE( mClient.Init( "192.168.1.7", lName.c_str() ).IsOK() );
    mNet.Expect( ReadRequest( lName ) )
        .ReplyFrom( TRANSFER, Data( 1, CONTENT ) )
        .Expect( Ack( 1 ) );
    EXPECT_EQ( mClient.GetFile( HtString() ).GetCode(), 0U );
    EXPECT_EQ( ReadWholeFile( lName ), "\x11\x22\x33" );
}

TEST_F( PublicTftp, GetDataCountsStoredBytesAndAddsAZero )
{
    mNet.Expect( ReadRequest( "a.bin" ) )
        .ReplyFrom( TRANSFER, Data( 1, Bytes( 100, 0x5A ) ) )
        .Expect( Ack( 1 ) );
    Bytes lBuffer( 600, UNTOUCHED );
    unsigned int lReceived = 77;
    EXPECT_EQ( mClient.GetData( lBuffer.data(), 600, &lReceived ).GetCode(), 0U );
    EXPECT_EQ( lReceived, 100U );
    EXPECT_EQ( lBuffer[0], 0x5A );
    EXPECT_EQ( lBuffer[99], 0x5A );
    EXPECT_EQ( lBuffer[100], 0 );
    EXPECT_EQ( lBuffer[101], UNTOUCHED );
}

TEST_F( PublicTftp, GetDataCountsNothingWhenItFails )
{
    Bytes lBuffer( 600, UNTOUCHED );
    unsigned int lReceived = 77;
    mNet.Expect( ReadRequest( "a.bin" ) )
        .Do( [&] { EXPECT_EQ( lReceived, 0U ); } ) // from the start
        .ReplyFrom( TRANSFER, Error( 1, "File not found" ) );
    EXPECT_EQ( mClient.GetData( lBuffer.data(), 600, &lReceived ).GetCode(), 0x0013U );
    EXPECT_EQ( lReceived, 0U );

    lReceived = 77;
    mNet.Expect( ReadRequest( "a.bin" ) ).Do( [&] { (void)mClient.Abort(); } );
    EXPECT_EQ( mClient.GetData( lBuffer.data(), 600, &lReceived ).GetCode(), 0x0001U );
    EXPECT_EQ( lReceived, 0U );
}

TEST_F( PublicTftp, SecondTransferIsRefusedAtOnce )
{
    mNet.Expect( WriteRequest( "a.bin" ) )
        .Do(
            [&]
            {
                unsigned char lBuffer[1] = { UNTOUCHED };
                unsigned int lReceived = 77;
                EXPECT_EQ( Send( CONTENT ).GetCode(), 0x001CU );
                EXPECT_EQ( mClient.SendFile( "/missing/file" ).GetCode(), 0x001CU );
                EXPECT_EQ( mClient.GetFile( "/missing/file" ).GetCode(), 0x001CU );
                EXPECT_EQ( mClient.GetData( lBuffer, 1, &lReceived ).GetCode(), 0x001CU );
                EXPECT_EQ( lReceived, 0U );
                EXPECT_EQ( lBuffer[0], UNTOUCHED );
                EXPECT_EQ( mClient.GetTransferResult().GetCode(), 0xFFFFU );
            } )
        .ReplyFrom( TRANSFER, Ack( 0 ) )
        .Expect( Data( 1, CONTENT ) )
        .Reply( Ack( 1 ) );
    EXPECT_TRUE( Send( CONTENT ).IsOK() );
}

TEST_F( PublicTftp, AbortEndsTheTransferWithItsOwnCode )
{
    mNet.Expect( WriteRequest( "a.bin" ) )
        .Do( [&] { EXPECT_EQ( mClient.Abort().GetCode(), 0U ); } );
    const HtResult lResult = Send( CONTENT );
    EXPECT_EQ( lResult.GetCode(), 0x0001U );
    EXPECT_EQ( GetText( lResult ), "" );
    EXPECT_EQ( mClient.GetTransferResult().GetCode(), 0xFFFFU );
}

TEST_F( PublicTftp, WarningsAreReturnedOneByOneAndClearedWhenATransferStarts )
{
    for ( int lTry = 0; lTry < 6; ++lTry )
    {
        mNet.Expect( WriteRequest( "a.bin" ) ).Silence();
    }
    ScriptUpload( CONTENT );
    ASSERT_TRUE( Send( CONTENT ).IsOK() );
    HtString lText( "before" );
    EXPECT_EQ( mClient.GetWarning( lText ).GetCode(), 0U );
    EXPECT_STREQ( lText.GetAscii(), "Invalid or missing ACK, retrying...." );
    EXPECT_EQ( mClient.GetWarning( lText ).GetCode(), 0U );
    EXPECT_STREQ( lText.GetAscii(), "Invalid or missing ACK, retrying....." );
    ScriptUpload( CONTENT );
    ASSERT_TRUE( Send( CONTENT ).IsOK() );
    EXPECT_EQ( mClient.GetWarning( lText ).GetCode(), 0x0015U );
    EXPECT_STREQ( lText.GetAscii(), "" );
}
