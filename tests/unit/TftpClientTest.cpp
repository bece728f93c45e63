// The TFTP engine against scripts: every datagram, every wait, every warning.

#include "Libraries/HtBase/TftpClient.h"

#include "tests/support/AssertionRecorder.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/TftpBytes.h"

#include <QmUtilsLib/Scripted/RecordingLogSink.h>
#include <QmUtilsLib/Scripted/VirtualClock.h>
#include <QmUtilsLib/String.h>
#include <WdUtilsLib/Scripted/Network.h>

#include <gmock/gmock.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

using HtBaseLib::TftpClient;
using QmUtilsLib::Result;
using QmUtilsLib::Scripted::RecordingLogSink;
using QmUtilsLib::Scripted::VirtualClock;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using TestSupport::Ack;
using TestSupport::AssertionRecorder;
using TestSupport::Bytes;
using TestSupport::Data;
using TestSupport::Error;
using TestSupport::Pattern;
using TestSupport::ReadRequest;
using TestSupport::ReadWholeFile;
using TestSupport::TemporaryDirectory;
using TestSupport::WriteRequest;
using TestSupport::WriteWholeFile;
using WdUtilsLib::Network::IpAddress;
using WdUtilsLib::Scripted::AFTER_MS;
using WdUtilsLib::Scripted::Peer;
using WdUtilsLib::Scripted::ScriptedNetwork;

namespace
{

constexpr unsigned int OK = 0x0000;
constexpr unsigned int ABORTED = 0x0001;
constexpr unsigned int NOT_FOUND = 0x0010;
constexpr unsigned int FAILED = 0x0013;
constexpr unsigned int NO_WARNING = 0x0015;
constexpr unsigned int BUSY = 0x001C;
constexpr unsigned int NOT_INITIALIZED = 0x0605;
constexpr unsigned int GENERIC_ERROR = 0x4000;
constexpr unsigned int PENDING = 0xFFFF;

constexpr unsigned char UNTOUCHED = 0xEE;

const IpAddress DEVICE( 0xC0A80107 ); // 192.168.1.7
const Peer TRANSFER{ DEVICE, 50123 }; // where the device's side of a transfer lives

constexpr const char* SEND_GIVEN_UP =
    "Reached the maximum number of retries. Please ensure that the firewall is disabled. The "
    "device must be power cycled before trying again.";
constexpr const char* RECEIVE_GIVEN_UP =
    "Reached the maximum number of retries. Aborting send operation.";
constexpr const char* BLOCKS_GIVEN_UP =
    "Maximum number of retries reached attempting to receive a data block";
constexpr const char* RESEND_READ = "Failed to receive first block. Resending read command";
constexpr const char* UNEXPECTED_BLOCK = "Unexpected block ID. Resending ACK";
constexpr const char* UNEXPECTED_PACKET = "Unexpected packet";

std::string MissingAck( std::size_t aStops )
{
    return "Invalid or missing ACK, retrying" + std::string( aStops, '.' );
}

Bytes Slice( const Bytes& aBytes, std::size_t aFirst, std::size_t aCount )
{
    const auto lFirst = aBytes.begin() + static_cast<std::ptrdiff_t>( aFirst );
    return Bytes( lFirst, lFirst + static_cast<std::ptrdiff_t>( aCount ) );
}

std::string ToText( const Bytes& aBytes )
{
    return std::string( aBytes.begin(), aBytes.end() );
}

struct Progress
{
    unsigned int mCode;
    long long mDone;
    long long mTotal;
};

bool operator==( const Progress& aA, const Progress& aB )
{
    return aA.mCode == aB.mCode && aA.mDone == aB.mDone && aA.mTotal == aB.mTotal;
}

void PrintTo( const Progress& aProgress, std::ostream* aStream )
{
    *aStream << std::hex << aProgress.mCode << std::dec << ": " << aProgress.mDone << " of "
             << aProgress.mTotal;
}

class TftpTalk : public testing::Test
{
protected:
    TftpTalk() { EXPECT_EQ( mClient.Init( DEVICE, "a.bin" ).GetCode(), OK ); }

    unsigned int Send( const Bytes& aBytes )
    {
        return mClient.SendData( aBytes.data(), static_cast<unsigned int>( aBytes.size() ) )
            .GetCode();
    }

    // The device takes the offer and acknowledges each block in turn.
    void ScriptUpload( const Bytes& aBytes )
    {
        mNet.Expect( WriteRequest( "a.bin" ) ).ReplyFrom( TRANSFER, Ack( 0 ) );
        for ( std::size_t lBlock = 0; lBlock <= aBytes.size() / 512; ++lBlock )
        {
            ScriptBlock( aBytes, lBlock ).Reply( Ack( static_cast<unsigned int>( lBlock + 1 ) ) );
        }
    }

    // The block of that place, counted from 0, is expected.
    ScriptedNetwork& ScriptBlock( const Bytes& aBytes, std::size_t aPlace )
    {
        const std::size_t lFirst = aPlace * 512;
        const std::size_t lCount = std::min<std::size_t>( 512, aBytes.size() - lFirst );
        return mNet.Expect(
            Data( static_cast<unsigned int>( aPlace + 1 ), Slice( aBytes, lFirst, lCount ) ) );
    }

    std::vector<std::string> TakeWarnings()
    {
        std::vector<std::string> lWarnings;
        std::string lText;
        while ( mClient.GetWarning( lText ).IsOK() )
        {
            lWarnings.push_back( lText );
        }
        return lWarnings;
    }

    Progress GetProgress()
    {
        Progress lProgress{ 0, -1, -1 };
        lProgress.mCode = mClient.GetProgress( lProgress.mDone, lProgress.mTotal ).GetCode();
        return lProgress;
    }

    unsigned int GetResultCode() { return mClient.GetTransferResult().GetCode(); }

    std::string GetResultText() { return mClient.GetTransferResult().GetDescription().GetAscii(); }

    std::vector<unsigned short> GetPorts() const
    {
        std::vector<unsigned short> lPorts;
        for ( const ScriptedNetwork::Sent& lSent : mNet.GetSends() )
        {
            lPorts.push_back( lSent.mTo.mPort );
        }
        return lPorts;
    }

    std::vector<long long> GetTimes() const
    {
        std::vector<long long> lTimes;
        for ( const ScriptedNetwork::Sent& lSent : mNet.GetSends() )
        {
            lTimes.push_back( lSent.mTime - mStart );
        }
        return lTimes;
    }

    std::size_t CountCalls( const std::string& aBeginning ) const
    {
        std::size_t lCount = 0;
        for ( const std::string& lCall : mNet.GetCalls() )
        {
            lCount += lCall.rfind( aBeginning, 0 ) == 0 ? 1 : 0;
        }
        return lCount;
    }

    ScriptedNetwork mNet;
    TftpClient mClient;
    const long long mStart = VirtualClock::Now();
};

// Memory that cannot be written: a store ends the test.
class ReadOnlyMemory
{
public:
    explicit ReadOnlyMemory( const Bytes& aBytes )
        : mSize( aBytes.size() )
        , mMemory(
              mmap( nullptr, mSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0 ) )
    {
        if ( mMemory == MAP_FAILED )
        {
            throw std::runtime_error( "mmap" );
        }
        std::memcpy( mMemory, aBytes.data(), mSize );
        if ( mprotect( mMemory, mSize, PROT_READ ) != 0 )
        {
            throw std::runtime_error( "mprotect" );
        }
    }
    ~ReadOnlyMemory() { (void)munmap( mMemory, mSize ); }

    ReadOnlyMemory( const ReadOnlyMemory& ) = delete;
    ReadOnlyMemory& operator=( const ReadOnlyMemory& ) = delete;

    const unsigned char* Get() const { return static_cast<const unsigned char*>( mMemory ); }
    unsigned int GetSize() const { return static_cast<unsigned int>( mSize ); }

private:
    const std::size_t mSize;
    void* const mMemory;
};

// Datagrams that are neither an acknowledge nor an error.
const Bytes NO_ACKNOWLEDGES[] = {
    {},                                          // nothing
    { 0x00 },                                    // half an opcode
    { 0x00, 0x04, 0x00 },                        // a truncated acknowledge
    { 0x00, 0x04, 0x00, 0x00, 0x00 },            // an acknowledge and a byte
    { 0x00, 0x05, 0x00, 0x01 },                  // an error without a message
    { 0x00, 0x03, 0x00, 0x00, 0x11 },            // data
    { 0x00, 0x01, 0x61, 0x00, 0x6F, 0x00 },      // a request
    { 0x00, 0x06, 0x62, 0x00, 0x38, 0x00 },      // an option acknowledge
    { 0xDE, 0xAD, 0xBE, 0xEF, 0xDE, 0xAD, 0xBE } // garbage
};

} // namespace

// The object

TEST( TftpClientType, HasAVirtualDestructorAndIsNotCopied )
{
    static_assert( std::has_virtual_destructor_v<TftpClient> );
    static_assert( !std::is_copy_constructible_v<TftpClient> );
    static_assert( !std::is_copy_assignable_v<TftpClient> );
}

TEST_F( TftpTalk, NewClientHasRunNoTransfer )
{
    EXPECT_EQ( GetResultCode(), NOT_INITIALIZED );
    EXPECT_EQ( mClient.Abort().GetCode(), BUSY );
    EXPECT_EQ( GetProgress(), ( Progress{ NOT_INITIALIZED, -1, -1 } ) );
    std::string lText = "before";
    EXPECT_EQ( mClient.GetWarning( lText ).GetCode(), NO_WARNING );
    EXPECT_EQ( lText, "before" );
    EXPECT_THAT( mNet.GetCalls(), IsEmpty() );
}

// Sending

TEST_F( TftpTalk, UploadMakesNoOtherSocketCalls )
{
    const Bytes lBytes = Pattern( 515 );
    ScriptUpload( lBytes );
    EXPECT_EQ( Send( lBytes ), OK );
    EXPECT_THAT( mNet.GetCalls(),
                 ElementsAre( "Open(any:0, own)",                     //
                              "SendTo(192.168.1.7:69, 14 bytes)",     // write request
                              "SetTimeoutRx(1000)",                   //
                              "ReceiveFrom(1024)",                    // acknowledge 0
                              "SendTo(192.168.1.7:50123, 516 bytes)", // block 1
                              "SetTimeoutRx(1000)",                   //
                              "ReceiveFrom(1024)",                    // acknowledge 1
                              "SendTo(192.168.1.7:50123, 7 bytes)",   // block 2
                              "SetTimeoutRx(1000)",                   //
                              "ReceiveFrom(1024)",                    // acknowledge 2
                              "Close()" ) );
    EXPECT_EQ( VirtualClock::Now(), mStart );
}

TEST_F( TftpTalk, SuccessfulSendIsOK )
{
    const Bytes lBytes = Pattern( 3 );
    ScriptUpload( lBytes );
    EXPECT_EQ( Send( lBytes ), OK );
    EXPECT_EQ( GetResultCode(), OK );
    EXPECT_EQ( GetResultText(), "" );
    EXPECT_EQ( mClient.Abort().GetCode(), BUSY );
    EXPECT_THAT( TakeWarnings(), IsEmpty() );
}

TEST_F( TftpTalk, ProgressNeverCountsTheLastBlock )
{
    const Bytes lBytes = Pattern( 700 );
    ScriptUpload( lBytes );
    EXPECT_EQ( Send( lBytes ), OK );
    EXPECT_EQ( GetProgress(), ( Progress{ OK, 512, 700 } ) );
    EXPECT_THAT( mNet.GetSends(), SizeIs( 3 ) );
}

TEST_F( TftpTalk, MultipleOfTheBlockSizeEndsWithAnEmptyBlock )
{
    const Bytes lBytes = Pattern( 1024 );
    ScriptUpload( lBytes );
    EXPECT_EQ( Send( lBytes ), OK );
    EXPECT_EQ( GetProgress(), ( Progress{ OK, 1024, 1024 } ) );
    ASSERT_THAT( mNet.GetSends(), SizeIs( 4 ) );
    EXPECT_EQ( mNet.GetSends()[3].mBytes, ( Bytes{ 0x00, 0x03, 0x00, 0x03 } ) );
}

TEST_F( TftpTalk, ZeroBytesAreOneEmptyBlock )
{
    mNet.Expect( WriteRequest( "a.bin" ) )
        .ReplyFrom( TRANSFER, Ack( 0 ) )
        .Expect( { 0x00, 0x03, 0x00, 0x01 } )
        .Reply( Ack( 1 ) );
    EXPECT_EQ( mClient.SendData( nullptr, 0 ).GetCode(), OK );
    EXPECT_EQ( GetProgress(), ( Progress{ OK, 0, 0 } ) );
}

TEST_F( TftpTalk, UploadsOfEverySizeAroundABlock )
{
    for ( const std::size_t lSize : { 1U, 511U, 512U, 513U, 1023U, 1025U, 5120U } )
    {
        const Bytes lBytes = Pattern( lSize );
        ScriptUpload( lBytes );
        EXPECT_EQ( Send( lBytes ), OK ) << lSize;
        EXPECT_EQ( GetProgress(), ( Progress{ OK, static_cast<long long>( lSize / 512 * 512 ),
                                              static_cast<long long>( lSize ) } ) );
    }
}

TEST_F( TftpTalk, BlockNumberWrapsToZero )
{
    const Bytes lBytes = Pattern( 65537 * 512 + 5 );
    unsigned int lExpected = 0;
    std::size_t lBad = 0;
    Bytes lArrived;
    mNet.Attach(
        [&]( const ScriptedNetwork::Sent& aSent ) -> std::vector<ScriptedNetwork::Answer>
        {
            if ( aSent.mTo.mPort == 69 )
            {
                return { { Ack( 0 ), 0, TRANSFER } };
            }
            lExpected = ( lExpected + 1 ) % 65536;
            const unsigned int lBlock = aSent.mBytes[2] * 256U + aSent.mBytes[3];
            lBad += lBlock != lExpected ? 1 : 0;
            lArrived.insert( lArrived.end(), aSent.mBytes.begin() + 4, aSent.mBytes.end() );
            return { { Ack( lBlock ), 0, TRANSFER } };
        } );
    EXPECT_EQ( Send( lBytes ), OK );
    EXPECT_EQ( lBad, 0U );
    EXPECT_EQ( lExpected, 2U ); // 65535, 0, 1, 2
    EXPECT_TRUE( lArrived == lBytes );
    EXPECT_THAT( TakeWarnings(), IsEmpty() );
}

TEST_F( TftpTalk, AnyAcknowledgeAcceptsTheRequest )
{
    const Bytes lBytes = Pattern( 3 );
    mNet.Expect( WriteRequest( "a.bin" ) ).ReplyFrom( TRANSFER, Ack( 0xABCD ) );
    ScriptBlock( lBytes, 0 ).Reply( Ack( 1 ) );
    EXPECT_EQ( Send( lBytes ), OK );
    EXPECT_THAT( TakeWarnings(), IsEmpty() );
}

TEST_F( TftpTalk, RequestIsRepeatedAfterEveryFailedWait )
{
    const Bytes lBytes = Pattern( 3 );
    mNet.Expect( WriteRequest( "a.bin" ) )
        .Silence()
        .Expect( WriteRequest( "a.bin" ) )
        .ReplyFrom( TRANSFER, { 0xDE, 0xAD }, AFTER_MS( 300 ) )
        .Expect( WriteRequest( "a.bin" ) )
        .ReplyFrom( TRANSFER, Ack( 0 ) );
    ScriptBlock( lBytes, 0 ).Reply( Ack( 1 ) );
    EXPECT_EQ( Send( lBytes ), OK );
    EXPECT_THAT( GetTimes(), ElementsAre( 0, 1000, 1300, 1300 ) );
    EXPECT_THAT( GetPorts(), ElementsAre( 69, 69, 69, 50123 ) );
}

TEST_F( TftpTalk, BlocksGoToThePortOfTheLastDatagramAndTheAddressOfTheDevice )
{
    const Bytes lBytes = Pattern( 1030 );
    const Peer STRANGER{ IpAddress( 0x0A000001 ), 40000 };
    mNet.Expect( WriteRequest( "a.bin" ) ).ReplyFrom( TRANSFER, Ack( 0 ) );
    ScriptBlock( lBytes, 0 ).ReplyFrom( STRANGER, Ack( 1 ) );
    ScriptBlock( lBytes, 1 ).ReplyFrom( { DEVICE, 40001 }, Ack( 2 ) );
    ScriptBlock( lBytes, 2 ).ReplyFrom( TRANSFER, Ack( 3 ) );
    EXPECT_EQ( Send( lBytes ), OK );
    EXPECT_THAT( GetPorts(), ElementsAre( 69, 50123, 40000, 40001 ) );
    for ( const ScriptedNetwork::Sent& lSent : mNet.GetSends() )
    {
        EXPECT_EQ( lSent.mTo.mAddress, DEVICE );
    }
}

TEST_F( TftpTalk, UnusableDatagramAlsoChangesThePort )
{
    const Bytes lBytes = Pattern( 3 );
    mNet.Expect( WriteRequest( "a.bin" ) ).ReplyFrom( TRANSFER, Ack( 0 ) );
    ScriptBlock( lBytes, 0 ).ReplyFrom( { DEVICE, 40000 }, { 0xDE, 0xAD } );
    ScriptBlock( lBytes, 0 ).ReplyFrom( { DEVICE, 40001 }, Ack( 7 ) );
    ScriptBlock( lBytes, 0 ).Reply( Ack( 1 ) );
    EXPECT_EQ( Send( lBytes ), OK );
    EXPECT_THAT( GetPorts(), ElementsAre( 69, 50123, 40000, 40001 ) );
}

TEST_F( TftpTalk, FailedReceiveKeepsThePort )
{
    const Bytes lBytes = Pattern( 3 );
    mNet.Expect( WriteRequest( "a.bin" ) ).ReplyFrom( TRANSFER, Ack( 0 ) );
    ScriptBlock( lBytes, 0 ).Silence();
    ScriptBlock( lBytes, 0 ).FailReceive( Result( Result::GENERIC_ERROR, EIO ), AFTER_MS( 10 ) );
    ScriptBlock( lBytes, 0 ).Reply( Ack( 1 ) );
    EXPECT_EQ( Send( lBytes ), OK );
    EXPECT_THAT( GetPorts(), ElementsAre( 69, 50123, 50123, 50123 ) );
    EXPECT_THAT( GetTimes(), ElementsAre( 0, 0, 1000, 1010 ) );
}

TEST_F( TftpTalk, WrongAcknowledgeSendsTheBlockAgainAtOnce )
{
    const Bytes lBytes = Pattern( 515 );
    mNet.Expect( WriteRequest( "a.bin" ) ).ReplyFrom( TRANSFER, Ack( 0 ) );
    ScriptBlock( lBytes, 0 ).Reply( Ack( 0 ), AFTER_MS( 20 ) );
    ScriptBlock( lBytes, 0 ).Reply( Ack( 1 ), AFTER_MS( 20 ) );
    ScriptBlock( lBytes, 1 ).Reply( Ack( 1 ), AFTER_MS( 20 ) );
    ScriptBlock( lBytes, 1 ).Reply( Ack( 2 ), AFTER_MS( 20 ) );
    EXPECT_EQ( Send( lBytes ), OK );
    EXPECT_THAT( GetTimes(), ElementsAre( 0, 0, 20, 40, 60 ) );
    EXPECT_THAT( TakeWarnings(), IsEmpty() );
}

TEST_F( TftpTalk, BlockIsReadOnceHoweverOftenItIsSent )
{
    Bytes lBytes = Pattern( 600 );
    const Bytes lBefore = lBytes;
    mNet.Expect( WriteRequest( "a.bin" ) ).ReplyFrom( TRANSFER, Ack( 0 ) );
    ScriptBlock( lBefore, 0 ).Do( [&] { lBytes.assign( lBytes.size(), 0x99 ); } );
    ScriptBlock( lBefore, 0 ).Reply( { 0xDE, 0xAD } );
    ScriptBlock( lBefore, 0 ).Reply( Ack( 1 ) );
    mNet.Expect( Data( 2, Bytes( 88, 0x99 ) ) ).Reply( Ack( 2 ) ); // not skipped by the resends
    EXPECT_EQ( mClient.SendData( lBytes.data(), 600 ).GetCode(), OK );
}

TEST_F( TftpTalk, ProgressGrowsWithTheAcknowledges )
{
    const Bytes lBytes = Pattern( 1100 );
    std::vector<Progress> lSeen;
    std::vector<unsigned int> lCodes;
    const auto lLook = [&]
    {
        lSeen.push_back( GetProgress() );
        lCodes.push_back( GetResultCode() );
    };
    mNet.Expect( WriteRequest( "a.bin" ) ).Do( lLook ).ReplyFrom( TRANSFER, Ack( 0 ) );
    for ( unsigned int lBlock = 0; lBlock < 3; ++lBlock )
    {
        ScriptBlock( lBytes, lBlock ).Do( lLook ).Reply( Ack( lBlock + 1 ) );
    }
    EXPECT_EQ( Send( lBytes ), OK );
    EXPECT_THAT( lSeen, ElementsAre( Progress{ OK, 0, 1100 }, Progress{ OK, 0, 1100 },
                                     Progress{ OK, 512, 1100 }, Progress{ OK, 1024, 1100 } ) );
    EXPECT_THAT( lCodes, Each( PENDING ) );
    EXPECT_EQ( GetProgress(), ( Progress{ OK, 1024, 1100 } ) );
}

// Waiting for an acknowledge

TEST_F( TftpTalk, SilentDeviceCosts21WaitsAnd18Warnings )
{
    for ( int lTry = 0; lTry < 21; ++lTry )
    {
        mNet.Expect( WriteRequest( "a.bin" ) ).Silence();
    }
    const Result lResult = mClient.SendData( Pattern( 3 ).data(), 3 );
    EXPECT_EQ( lResult.GetCode(), FAILED );
    EXPECT_STREQ( lResult.GetDescription().GetAscii(), SEND_GIVEN_UP );
    EXPECT_EQ( lResult.GetOSCode(), 0U );
    EXPECT_EQ( GetResultCode(), FAILED );
    EXPECT_EQ( GetResultText(), SEND_GIVEN_UP );
    EXPECT_EQ( VirtualClock::Now() - mStart, 21000 );
    EXPECT_THAT( GetPorts(), Each( 69 ) );
    EXPECT_EQ( CountCalls( "SetTimeoutRx(1000)" ), 21U );
    EXPECT_EQ( CountCalls( "ReceiveFrom(1024)" ), 21U );
    EXPECT_EQ( mNet.GetCalls().back(), "Close()" );

    const std::vector<std::string> lWarnings = TakeWarnings();
    ASSERT_THAT( lWarnings, SizeIs( 18 ) );
    for ( std::size_t lIndex = 0; lIndex < 18; ++lIndex )
    {
        EXPECT_EQ( lWarnings[lIndex], MissingAck( lIndex + 4 ) );
    }
    EXPECT_EQ( lWarnings.front(), "Invalid or missing ACK, retrying...." );
}

TEST_F( TftpTalk, OtherDatagramsCountAsAFailedWait )
{
    const Bytes lBytes = Pattern( 3 );
    mNet.Expect( WriteRequest( "a.bin" ) ).ReplyFrom( TRANSFER, Ack( 0 ) );
    for ( const Bytes& lDatagram : NO_ACKNOWLEDGES )
    {
        ScriptBlock( lBytes, 0 ).Reply( lDatagram );
    }
    ScriptBlock( lBytes, 0 ).Reply( Ack( 2 ) );
    ScriptBlock( lBytes, 0 ).Silence();
    ScriptBlock( lBytes, 0 ).Reply( Ack( 1 ) );
    EXPECT_EQ( Send( lBytes ), OK );
    EXPECT_THAT( TakeWarnings(), ElementsAre( MissingAck( 4 ), MissingAck( 5 ), MissingAck( 6 ),
                                              MissingAck( 7 ), MissingAck( 8 ), MissingAck( 9 ),
                                              MissingAck( 10 ), MissingAck( 11 ) ) );
    EXPECT_EQ( VirtualClock::Now() - mStart, 1000 );
}

TEST_F( TftpTalk, OnlyFailuresInARowCount )
{
    const Bytes lBytes = Pattern( 515 );
    const auto lFailTwentyTimes = [&]( const Bytes& aExpected )
    {
        for ( int lTry = 0; lTry < 20; ++lTry )
        {
            mNet.Expect( aExpected ).ReplyFrom( TRANSFER, { 0xDE, 0xAD } );
        }
    };
    const Bytes lBlock1 = Data( 1, Slice( lBytes, 0, 512 ) );
    const Bytes lBlock2 = Data( 2, Slice( lBytes, 512, 3 ) );
    lFailTwentyTimes( WriteRequest( "a.bin" ) );
    mNet.Expect( WriteRequest( "a.bin" ) ).ReplyFrom( TRANSFER, Ack( 0 ) );
    lFailTwentyTimes( lBlock1 );
    mNet.Expect( lBlock1 ).Reply( Ack( 1 ) );
    lFailTwentyTimes( lBlock2 );
    mNet.Expect( lBlock2 ).Reply( Ack( 2 ) );
    EXPECT_EQ( Send( lBytes ), OK );
    EXPECT_THAT( TakeWarnings(), SizeIs( 3 * 17 ) );
}

TEST_F( TftpTalk, TwentyFirstFailureOfABlockEndsTheSend )
{
    const Bytes lBytes = Pattern( 1000 );
    mNet.Expect( WriteRequest( "a.bin" ) ).ReplyFrom( TRANSFER, Ack( 0 ) );
    ScriptBlock( lBytes, 0 ).Reply( Ack( 1 ) );
    for ( int lTry = 0; lTry < 21; ++lTry )
    {
        ScriptBlock( lBytes, 1 ).Reply( Ack( 1 ) );
    }
    EXPECT_EQ( Send( lBytes ), FAILED );
    EXPECT_EQ( GetResultText(), SEND_GIVEN_UP );
    EXPECT_EQ( GetProgress(), ( Progress{ OK, 512, 1000 } ) );
    EXPECT_EQ( VirtualClock::Now(), mStart );
    EXPECT_EQ( mNet.GetCalls().back(), "Close()" );
}

TEST_F( TftpTalk, ErrorEndsTheSendWithTheDevicesMessage )
{
    mNet.Expect( WriteRequest( "a.bin" ) ).ReplyFrom( TRANSFER, Error( 3, "Disk full" ) );
    const Result lResult = mClient.SendData( Pattern( 3 ).data(), 3 );
    EXPECT_EQ( lResult.GetCode(), FAILED );
    EXPECT_STREQ( lResult.GetDescription().GetAscii(), "Disk full" );
    EXPECT_EQ( GetResultText(), "Disk full" );
    EXPECT_THAT( TakeWarnings(), IsEmpty() );
    EXPECT_EQ( mNet.GetCalls().back(), "Close()" );
}

TEST_F( TftpTalk, ErrorInPlaceOfABlocksAcknowledgeEndsTheSend )
{
    const Bytes lBytes = Pattern( 1000 );
    mNet.Expect( WriteRequest( "a.bin" ) ).ReplyFrom( TRANSFER, Ack( 0 ) );
    ScriptBlock( lBytes, 0 ).Reply( Ack( 1 ) );
    ScriptBlock( lBytes, 1 ).Reply( { 0x00, 0x05, 0x00, 0x00, 'X' } ); // without its zero
    EXPECT_EQ( Send( lBytes ), FAILED );
    EXPECT_EQ( GetResultText(), "X" );
    EXPECT_EQ( GetProgress(), ( Progress{ OK, 512, 1000 } ) );
}

TEST_F( TftpTalk, MessageOfTheDeviceIsNotAFormat )
{
    mNet.Expect( WriteRequest( "a.bin" ) ).ReplyFrom( TRANSFER, Error( 0, "100%s %n %x" ) );
    EXPECT_EQ( Send( Pattern( 3 ) ), FAILED );
    EXPECT_EQ( GetResultText(), "100%s %n %x" );
}

TEST_F( TftpTalk, LongestMessageOfTheDevice )
{
    mNet.Expect( WriteRequest( "a.bin" ) )
        .ReplyFrom( TRANSFER, Error( 0, std::string( 5000, 'm' ) ) );
    EXPECT_EQ( Send( Pattern( 3 ) ), FAILED );
    EXPECT_EQ( GetResultText(), std::string( 1020, 'm' ) ); // what the packet buffer holds
}

TEST_F( TftpTalk, RefusedSendsAreLikeLostDatagrams )
{
    const Bytes lBytes = Pattern( 3 );
    mNet.Expect( WriteRequest( "a.bin" ) ).Refuse( Result( Result::GENERIC_ERROR, ENETUNREACH ) );
    mNet.Expect( WriteRequest( "a.bin" ) ).ReplyFrom( TRANSFER, Ack( 0 ) );
    ScriptBlock( lBytes, 0 ).Refuse( Result( Result::GENERIC_ERROR, ENETUNREACH ) );
    ScriptBlock( lBytes, 0 ).Reply( Ack( 1 ) );
    EXPECT_EQ( Send( lBytes ), OK );
    EXPECT_THAT( GetTimes(), ElementsAre( 0, 1000, 1000, 2000 ) );
}

TEST( TftpClientWithoutNetwork, EverySocketErrorIsAFailedWait )
{
    TftpClient lClient;
    ASSERT_TRUE( lClient.Init( DEVICE, "a.bin" ).IsOK() );
    const Bytes lBytes = Pattern( 3 );
    const Result lResult = lClient.SendData( lBytes.data(), 3 ); // Open fails
    EXPECT_EQ( lResult.GetCode(), FAILED );
    EXPECT_STREQ( lResult.GetDescription().GetAscii(), SEND_GIVEN_UP );
}

TEST_F( TftpTalk, LongestNameOfARemoteFile )
{
    const std::string lName( 1015, 'n' );
    const Bytes lBytes = Pattern( 3 );
    ASSERT_TRUE( mClient.Init( DEVICE, lName.c_str() ).IsOK() );
    mNet.Expect( WriteRequest( lName ) ).ReplyFrom( TRANSFER, Ack( 0 ) );
    ScriptBlock( lBytes, 0 ).Reply( Ack( 1 ) );
    EXPECT_EQ( Send( lBytes ), OK );
    EXPECT_THAT( mNet.GetSends()[0].mBytes, SizeIs( 1024 ) );
}

TEST_F( TftpTalk, NameThatDoesNotFitAPacketIsNeverSent )
{
    const AssertionRecorder lAssertions;
    for ( const std::size_t lLength : { 1016U, 1023U, 5000U } )
    {
        ASSERT_TRUE( mClient.Init( DEVICE, std::string( lLength, 'n' ).c_str() ).IsOK() );
        const long long lStart = VirtualClock::Now();
        EXPECT_EQ( Send( Pattern( 3 ) ), FAILED );
        EXPECT_EQ( GetResultText(), SEND_GIVEN_UP );
        EXPECT_EQ( VirtualClock::Now() - lStart, 21000 );
        unsigned int lSize = 0;
        EXPECT_EQ( mClient.GetData( nullptr, lSize ).GetCode(), FAILED );
        EXPECT_EQ( GetResultText(), RECEIVE_GIVEN_UP );
    }
    EXPECT_THAT( mNet.GetSends(), IsEmpty() );
}

// Local files to send

TEST_F( TftpTalk, SendsAFile )
{
    const TemporaryDirectory lDirectory;
    const Bytes lBytes = Pattern( 700 );
    WriteWholeFile( lDirectory.GetPath( "file" ), ToText( lBytes ) );
    ScriptUpload( lBytes );
    EXPECT_EQ( mClient.SendFile( lDirectory.GetPath( "file" ).c_str() ).GetCode(), OK );
    EXPECT_EQ( GetProgress(), ( Progress{ OK, 512, 700 } ) );
    EXPECT_EQ( GetResultCode(), OK );
    EXPECT_EQ( ReadWholeFile( lDirectory.GetPath( "file" ) ), ToText( lBytes ) );
}

TEST_F( TftpTalk, MissingFileSendsNothingAndLeavesTheTransferPending )
{
    const Bytes lBytes = Pattern( 700 );
    mNet.Expect( WriteRequest( "a.bin" ) ).Silence();
    mNet.Expect( WriteRequest( "a.bin" ) ).Silence();
    mNet.Expect( WriteRequest( "a.bin" ) ).Silence();
    mNet.Expect( WriteRequest( "a.bin" ) ).Silence();
    ScriptUpload( lBytes );
    ASSERT_EQ( Send( lBytes ), OK );
    const std::size_t lSends = mNet.GetSends().size();

    EXPECT_EQ( mClient.SendFile( "/missing/file" ).GetCode(), NOT_FOUND );
    EXPECT_THAT( mNet.GetSends(), SizeIs( lSends ) );
    EXPECT_EQ( mNet.GetCalls().back(), "Open(any:0, own)" ); // and it stays open
    EXPECT_EQ( GetResultCode(), PENDING );
    EXPECT_EQ( GetProgress(), ( Progress{ OK, 0, 700 } ) );
    EXPECT_THAT( TakeWarnings(), IsEmpty() );
    EXPECT_EQ( mClient.Abort().GetCode(), OK );

    ScriptUpload( lBytes );
    EXPECT_EQ( Send( lBytes ), OK ); // neither refused nor aborted
    EXPECT_EQ( GetResultCode(), OK );
}

TEST_F( TftpTalk, EmptyPathIsAMissingFileWhateverTheRemoteName )
{
    const TemporaryDirectory lDirectory;
    WriteWholeFile( lDirectory.GetPath( "file" ), "content" );
    ASSERT_TRUE( mClient.Init( DEVICE, lDirectory.GetPath( "file" ).c_str() ).IsOK() );
    EXPECT_EQ( mClient.SendFile( "" ).GetCode(), NOT_FOUND );
    EXPECT_THAT( mNet.GetSends(), IsEmpty() );
}

TEST_F( TftpTalk, FileThatShrankIsPaddedWithZeros )
{
    const TemporaryDirectory lDirectory;
    const std::string lPath = lDirectory.GetPath( "file" );
    const Bytes lBytes = Pattern( 600 );
    WriteWholeFile( lPath, ToText( lBytes ) );
    const Bytes lFirst = Slice( lBytes, 0, 100 );
    Bytes lBlock = lFirst;
    lBlock.resize( 512, 0 );
    mNet.Expect( WriteRequest( "a.bin" ) )
        .Do( [&] { ASSERT_EQ( truncate( lPath.c_str(), 100 ), 0 ); } )
        .ReplyFrom( TRANSFER, Ack( 0 ) )
        .Expect( Data( 1, lBlock ) )
        .Reply( Ack( 1 ) )
        .Expect( Data( 2, Bytes( 88, 0 ) ) )
        .Reply( Ack( 2 ) );
    EXPECT_EQ( mClient.SendFile( lPath.c_str() ).GetCode(), OK );
}

TEST_F( TftpTalk, UnreadablePartsAreSentAsZerosNeverAsEarlierData )
{
    const TemporaryDirectory lDirectory;
    const std::string lPath = lDirectory.GetPath( "file" );
    const Bytes lSent( 600, 0x5A );
    ScriptUpload( lSent );
    ASSERT_EQ( Send( lSent ), OK );
    mNet.Expect( ReadRequest( "a.bin" ) )
        .ReplyFrom( TRANSFER, Data( 1, Bytes( 512, 0x77 ) ) )
        .Expect( Ack( 1 ) );
    unsigned char lFetched[600] = {};
    unsigned int lSize = 600;
    ASSERT_EQ( mClient.GetData( lFetched, lSize ).GetCode(), OK );

    WriteWholeFile( lPath, std::string( 700, 'x' ) );
    mNet.Expect( WriteRequest( "a.bin" ) )
        .Do( [&] { ASSERT_EQ( truncate( lPath.c_str(), 0 ), 0 ); } )
        .ReplyFrom( TRANSFER, Ack( 0 ) )
        .Expect( Data( 1, Bytes( 512, 0 ) ) )
        .Reply( Ack( 1 ) )
        .Expect( Data( 2, Bytes( 188, 0 ) ) )
        .Reply( Ack( 2 ) );
    EXPECT_EQ( mClient.SendFile( lPath.c_str() ).GetCode(), OK );
}

TEST_F( TftpTalk, FileThatCannotBeOpenedIsSentAsZeros )
{
    const TemporaryDirectory lDirectory;
    const std::string lPath = lDirectory.GetPath( "file" );
    WriteWholeFile( lPath, std::string( 700, 'x' ) );
    ScriptUpload( Bytes( 700, 'x' ) );
    ASSERT_EQ( mClient.SendFile( lPath.c_str() ).GetCode(), OK ); // a sanitizer opens a file too
    ScriptUpload( Bytes( 700, 0 ) );
    rlimit lLimit{};
    ASSERT_EQ( getrlimit( RLIMIT_NOFILE, &lLimit ), 0 );
    const rlimit lNothing{ 0, lLimit.rlim_max };
    ASSERT_EQ( setrlimit( RLIMIT_NOFILE, &lNothing ), 0 );
    const unsigned int lCode = mClient.SendFile( lPath.c_str() ).GetCode();
    ASSERT_EQ( setrlimit( RLIMIT_NOFILE, &lLimit ), 0 );
    EXPECT_EQ( lCode, OK );
}

// Only a regular file has a size.
TEST_F( TftpTalk, DirectoryIsSentAsAnEmptyFile )
{
    const TemporaryDirectory lDirectory;
    ScriptUpload( {} );
    EXPECT_EQ( mClient.SendFile( lDirectory.GetPath().c_str() ).GetCode(), OK );
    EXPECT_EQ( GetProgress(), ( Progress{ OK, 0, 0 } ) );
}

TEST_F( TftpTalk, DeviceFilesAreSentAsEmptyFilesAndCanBeWritten )
{
    for ( const char* const lPath : { "/dev/null", "/dev/full", "/dev/zero" } )
    {
        ScriptUpload( {} );
        EXPECT_EQ( mClient.SendFile( lPath ).GetCode(), OK );
        mNet.Expect( ReadRequest( "a.bin" ) )
            .ReplyFrom( TRANSFER, Data( 1, { 1, 2, 3 } ) )
            .Expect( Ack( 1 ) );
        EXPECT_EQ( mClient.GetFile( lPath ).GetCode(), OK );
    }
}

// Its other end is not open, so opening it would wait for ever.
TEST_F( TftpTalk, FifoIsTreatedAsAFileThatCannotBeOpened )
{
    const TemporaryDirectory lDirectory;
    const std::string lFifo = lDirectory.GetPath( "fifo" );
    const std::string lLink = lDirectory.GetPath( "link" );
    ASSERT_EQ( mkfifo( lFifo.c_str(), 0600 ), 0 );
    ASSERT_EQ( symlink( "fifo", lLink.c_str() ), 0 );
    for ( const std::string& lPath : { lFifo, lLink } )
    {
        ScriptUpload( {} );
        EXPECT_EQ( mClient.SendFile( lPath.c_str() ).GetCode(), OK );
        mNet.Expect( ReadRequest( "a.bin" ) )
            .ReplyFrom( TRANSFER, Data( 1, { 1, 2, 3 } ) )
            .Expect( Ack( 1 ) );
        EXPECT_EQ( mClient.GetFile( lPath.c_str() ).GetCode(), OK );
    }
    ASSERT_TRUE( mClient.Init( DEVICE, lFifo.c_str() ).IsOK() );
    mNet.Expect( ReadRequest( lFifo ) )
        .ReplyFrom( TRANSFER, Data( 1, { 1, 2, 3 } ) )
        .Expect( Ack( 1 ) );
    EXPECT_EQ( mClient.GetFile( "" ).GetCode(), OK ); // the device's name for it
    EXPECT_EQ( std::filesystem::status( lFifo ).type(), std::filesystem::file_type::fifo );
}

// /dev/stdout is such a pipe when the output is piped to another program.
TEST_F( TftpTalk, UnnamedPipeCanBeWritten )
{
    int lEnds[2] = { -1, -1 };
    ASSERT_EQ( pipe2( lEnds, O_CLOEXEC ), 0 );
    mNet.Expect( ReadRequest( "a.bin" ) )
        .ReplyFrom( TRANSFER, Data( 1, { 'n', 'e', 'w' } ) )
        .Expect( Ack( 1 ) );
    const std::string lPath = "/proc/self/fd/" + std::to_string( lEnds[1] );
    EXPECT_EQ( mClient.GetFile( lPath.c_str() ).GetCode(), OK );
    char lBytes[8] = {};
    EXPECT_EQ( close( lEnds[1] ), 0 );
    EXPECT_EQ( read( lEnds[0], lBytes, sizeof( lBytes ) ), 3 );
    EXPECT_STREQ( lBytes, "new" );
    EXPECT_EQ( close( lEnds[0] ), 0 );
}

TEST_F( TftpTalk, SizeOfAFileIsTruncatedTo32Bits )
{
    const TemporaryDirectory lDirectory;
    const std::string lPath = lDirectory.GetPath( "file" );
    WriteWholeFile( lPath, "abc" );
    ASSERT_EQ( truncate( lPath.c_str(), ( 1LL << 32 ) + 3 ), 0 ); // takes no room on the disk
    ScriptUpload( { 'a', 'b', 'c' } );
    EXPECT_EQ( mClient.SendFile( lPath.c_str() ).GetCode(), OK );
    EXPECT_EQ( GetProgress(), ( Progress{ OK, 0, 3 } ) );
}

// Aborting a send

TEST_F( TftpTalk, AbortBetweenBlocksEndsTheSendAndLeavesItPending )
{
    const Bytes lBytes = Pattern( 2000 );
    unsigned int lAborted = 0xDEAD;
    mNet.Expect( WriteRequest( "a.bin" ) ).ReplyFrom( TRANSFER, Ack( 0 ) );
    ScriptBlock( lBytes, 0 ).Do( [&] { lAborted = mClient.Abort().GetCode(); } ).Reply( Ack( 1 ) );
    EXPECT_EQ( Send( lBytes ), ABORTED );
    EXPECT_EQ( lAborted, OK );
    EXPECT_EQ( GetResultCode(), PENDING );
    EXPECT_EQ( GetProgress(), ( Progress{ OK, 512, 2000 } ) );
    EXPECT_EQ( mNet.GetCalls().back(), "Close()" );
}

TEST_F( TftpTalk, AbortTakesEffectAfterTheWait )
{
    mNet.Expect( WriteRequest( "a.bin" ) )
        .Do( [&] { EXPECT_EQ( mClient.Abort().GetCode(), OK ); }, AFTER_MS( 1 ) );
    EXPECT_EQ( Send( Pattern( 3 ) ), ABORTED );
    EXPECT_EQ( VirtualClock::Now() - mStart, 1000 );
    EXPECT_THAT( mNet.GetSends(), SizeIs( 1 ) );
    EXPECT_EQ( mNet.GetCalls().back(), "Close()" );
}

TEST_F( TftpTalk, AbortWhileTheRequestIsAcceptedSendsNoBlock )
{
    mNet.Expect( WriteRequest( "a.bin" ) )
        .Do( [&] { EXPECT_EQ( mClient.Abort().GetCode(), OK ); } )
        .ReplyFrom( TRANSFER, Ack( 0 ) );
    EXPECT_EQ( Send( Pattern( 3 ) ), ABORTED );
    EXPECT_THAT( mNet.GetSends(), SizeIs( 1 ) );
}

// The last block's acknowledge completes the transfer before the flag is read again.
TEST_F( TftpTalk, AbortDuringTheLastBlockHasNoEffect )
{
    const Bytes lBytes = Pattern( 3 );
    mNet.Expect( WriteRequest( "a.bin" ) ).ReplyFrom( TRANSFER, Ack( 0 ) );
    ScriptBlock( lBytes, 0 ).Do( [&] { (void)mClient.Abort(); } ).Reply( Ack( 1 ) );
    EXPECT_EQ( Send( lBytes ), OK );
    EXPECT_EQ( GetResultCode(), OK );
}

TEST_F( TftpTalk, AbortStaysOkAfterAnAbortUntilTheNextTransfer )
{
    const Bytes lBytes = Pattern( 3 );
    mNet.Expect( WriteRequest( "a.bin" ) ).Do( [&] { (void)mClient.Abort(); } );
    ASSERT_EQ( Send( lBytes ), ABORTED );
    EXPECT_EQ( mClient.Abort().GetCode(), OK );
    ScriptUpload( lBytes );
    EXPECT_EQ( Send( lBytes ), OK );
    EXPECT_EQ( mClient.Abort().GetCode(), BUSY );
}

TEST_F( TftpTalk, NothingIsEverStoredInTheBytesToSend )
{
    const ReadOnlyMemory lMemory( Pattern( 4096 ) );
    const Bytes lBytes = Pattern( 4096 );
    // Fails at once, then in the middle; is aborted; succeeds.
    mNet.Expect( WriteRequest( "a.bin" ) ).ReplyFrom( TRANSFER, Error( 0, "no" ) );
    EXPECT_EQ( mClient.SendData( lMemory.Get(), lMemory.GetSize() ).GetCode(), FAILED );

    mNet.Expect( WriteRequest( "a.bin" ) ).ReplyFrom( TRANSFER, Ack( 0 ) );
    ScriptBlock( lBytes, 0 ).Reply( Ack( 1 ) );
    ScriptBlock( lBytes, 1 ).Reply( Error( 0, "no" ) );
    EXPECT_EQ( mClient.SendData( lMemory.Get(), lMemory.GetSize() ).GetCode(), FAILED );

    mNet.Expect( WriteRequest( "a.bin" ) ).ReplyFrom( TRANSFER, Ack( 0 ) );
    ScriptBlock( lBytes, 0 ).Do( [&] { (void)mClient.Abort(); } ).Reply( Ack( 1 ) );
    EXPECT_EQ( mClient.SendData( lMemory.Get(), lMemory.GetSize() ).GetCode(), ABORTED );

    ScriptUpload( lBytes );
    EXPECT_EQ( mClient.SendData( lMemory.Get(), lMemory.GetSize() ).GetCode(), OK );
    EXPECT_EQ( std::memcmp( lMemory.Get(), lBytes.data(), lBytes.size() ), 0 );
}

// One transfer at a time

TEST_F( TftpTalk, SecondTransferIsRefusedAndChangesNothing )
{
    const TemporaryDirectory lDirectory;
    WriteWholeFile( lDirectory.GetPath( "kept" ), "kept" );
    const Bytes lBytes = Pattern( 1500 );
    mNet.Expect( WriteRequest( "a.bin" ) ).ReplyFrom( TRANSFER, Ack( 0 ) );
    ScriptBlock( lBytes, 0 ).Reply( Ack( 1 ) );
    for ( int lTry = 0; lTry < 4; ++lTry )
    {
        ScriptBlock( lBytes, 1 ).Reply( { 0xDE, 0xAD } ); // makes a warning
    }
    ScriptBlock( lBytes, 1 )
        .Do(
            [&]
            {
                const Bytes lOther = Pattern( 5 );
                unsigned char lBuffer[4] = { UNTOUCHED, UNTOUCHED, UNTOUCHED, UNTOUCHED };
                unsigned int lSize = 4;
                EXPECT_EQ( Send( lOther ), BUSY );
                EXPECT_EQ( mClient.GetData( lBuffer, lSize ).GetCode(), BUSY );
                EXPECT_EQ( lSize, 4U );
                EXPECT_THAT( lBuffer, Each( UNTOUCHED ) );
                EXPECT_EQ( mClient.GetFile( lDirectory.GetPath( "new" ).c_str() ).GetCode(), BUSY );
                EXPECT_EQ( mClient.GetFile( lDirectory.GetPath( "kept" ).c_str() ).GetCode(),
                           BUSY );
                EXPECT_EQ( mClient.SendFile( "/missing/file" ).GetCode(), BUSY );
                EXPECT_EQ( GetProgress(), ( Progress{ OK, 512, 1500 } ) );
                EXPECT_EQ( GetResultCode(), PENDING );
            } )
        .Reply( Ack( 2 ) );
    ScriptBlock( lBytes, 2 ).Reply( Ack( 3 ) );
    EXPECT_EQ( Send( lBytes ), OK );
    EXPECT_THAT( TakeWarnings(), ElementsAre( MissingAck( 4 ) ) );
    EXPECT_FALSE( std::filesystem::exists( lDirectory.GetPath( "new" ) ) );
    EXPECT_EQ( ReadWholeFile( lDirectory.GetPath( "kept" ) ), "kept" );
    EXPECT_EQ( CountCalls( "Open" ), 1U );
    EXPECT_EQ( CountCalls( "Close" ), 1U );
}

TEST_F( TftpTalk, RefusedTransferKeepsAnAbort )
{
    const Bytes lBytes = Pattern( 1500 );
    mNet.Expect( WriteRequest( "a.bin" ) ).ReplyFrom( TRANSFER, Ack( 0 ) );
    ScriptBlock( lBytes, 0 )
        .Do(
            [&]
            {
                EXPECT_EQ( mClient.Abort().GetCode(), OK );
                EXPECT_EQ( Send( Pattern( 5 ) ), BUSY );
            } )
        .Reply( Ack( 1 ) );
    EXPECT_EQ( Send( lBytes ), ABORTED );
}

TEST_F( TftpTalk, TransfersFollowOneAnotherOnOneClient )
{
    for ( int lRound = 0; lRound < 3; ++lRound )
    {
        const Bytes lBytes = Pattern( 600 );
        ScriptUpload( lBytes );
        EXPECT_EQ( Send( lBytes ), OK );
        Bytes lBuffer( 20, UNTOUCHED );
        unsigned int lSize = 20;
        mNet.Expect( ReadRequest( "a.bin" ) )
            .ReplyFrom( TRANSFER, Data( 1, { 1, 2, 3 } ) )
            .Expect( Ack( 1 ) );
        EXPECT_EQ( mClient.GetData( lBuffer.data(), lSize ).GetCode(), OK );
        EXPECT_EQ( lSize, 3U );
    }
    EXPECT_EQ( CountCalls( "Open(any:0, own)" ), 6U );
    EXPECT_EQ( CountCalls( "Close()" ), 6U );
}

TEST_F( TftpTalk, EachTransferUsesItsOwnPort )
{
    const Bytes lBytes = Pattern( 3 );
    ScriptUpload( lBytes );
    ASSERT_EQ( Send( lBytes ), OK );
    mNet.Expect( WriteRequest( "a.bin" ) ).ReplyFrom( { DEVICE, 40000 }, Ack( 0 ) );
    ScriptBlock( lBytes, 0 ).Reply( Ack( 1 ) );
    ASSERT_EQ( Send( lBytes ), OK );
    EXPECT_THAT( GetPorts(), ElementsAre( 69, 50123, 69, 40000 ) );
}

TEST_F( TftpTalk, TransferAfterAFailureStartsFromTheBeginning )
{
    const Bytes lBytes = Pattern( 1000 );
    mNet.Expect( WriteRequest( "a.bin" ) ).ReplyFrom( TRANSFER, Ack( 0 ) );
    ScriptBlock( lBytes, 0 ).Reply( Ack( 1 ) );
    for ( int lTry = 0; lTry < 20; ++lTry )
    {
        ScriptBlock( lBytes, 1 ).Reply( Ack( 1 ) );
    }
    ScriptBlock( lBytes, 1 ).Reply( Error( 0, "no" ) );
    ASSERT_EQ( Send( lBytes ), FAILED );

    const Bytes lOther = Pattern( 700, 2 );
    std::vector<Progress> lSeen;
    mNet.Expect( WriteRequest( "a.bin" ) )
        .Do(
            [&]
            {
                lSeen.push_back( GetProgress() );
                EXPECT_EQ( GetResultCode(), PENDING );
                EXPECT_THAT( TakeWarnings(), IsEmpty() );
            } )
        .ReplyFrom( TRANSFER, { 0xDE, 0xAD } ); // the first failure, no 21st
    ScriptUpload( lOther );
    EXPECT_EQ( Send( lOther ), OK );
    EXPECT_THAT( lSeen, ElementsAre( Progress{ OK, 0, 700 } ) );
    EXPECT_EQ( GetResultText(), "" );
}

TEST_F( TftpTalk, InitAgainChangesAddressAndName )
{
    const Bytes lBytes = Pattern( 3 );
    ScriptUpload( lBytes );
    ASSERT_EQ( Send( lBytes ), OK );
    ASSERT_TRUE( mClient.Init( IpAddress( 0x0A000002 ), "b.bin" ).IsOK() );
    mNet.Expect( WriteRequest( "b.bin" ) ).Reply( Ack( 0 ) );
    ScriptBlock( lBytes, 0 ).Reply( Ack( 1 ) );
    EXPECT_EQ( Send( lBytes ), OK );
    EXPECT_EQ( mNet.GetSends().back().mTo.mAddress, IpAddress( 0x0A000002 ) );
}

TEST_F( TftpTalk, ForeignExceptionFreesTheClient )
{
    const Bytes lBytes = Pattern( 600 );
    mNet.Expect( WriteRequest( "a.bin" ) )
        .Do( [] { throw std::runtime_error( "out of something" ); } );
    EXPECT_THROW( (void)Send( lBytes ), std::runtime_error );
    EXPECT_EQ( mNet.GetCalls().back(), "Close()" );
    ScriptUpload( lBytes );
    EXPECT_EQ( Send( lBytes ), OK );
}

TEST_F( TftpTalk, ForeignExceptionEndsTheTransferForOtherThreads )
{
    mNet.Expect( ReadRequest( "a.bin" ) )
        .Do( [] { throw std::runtime_error( "out of something" ); } );
    unsigned int lSize = 0;
    EXPECT_THROW( (void)mClient.GetData( nullptr, lSize ), std::runtime_error );
    EXPECT_EQ( GetResultCode(), GENERIC_ERROR );
    EXPECT_EQ( GetResultText(), "" );
    EXPECT_EQ( mClient.GetTransferResult().GetOSCode(), 0U );
    EXPECT_EQ( mClient.Abort().GetCode(), BUSY );
}

// Fetching

TEST_F( TftpTalk, OnlyTheFirstBlockOfAFileIsFetched )
{
    const Bytes lBlock = Pattern( 512 );
    mNet.Expect( ReadRequest( "a.bin" ) )
        .ReplyFrom( TRANSFER, Data( 1, lBlock ), AFTER_MS( 30 ) )
        .Expect( Ack( 1 ) )
        .Reply( Data( 2, Pattern( 100 ) ) ); // the client does not read it
    Bytes lBuffer( 1000, UNTOUCHED );
    unsigned int lSize = 1000;
    EXPECT_EQ( mClient.GetData( lBuffer.data(), lSize ).GetCode(), OK );
    EXPECT_EQ( lSize, 512U );
    EXPECT_EQ( Slice( lBuffer, 0, 512 ), lBlock );
    EXPECT_EQ( lBuffer[512], 0 );
    EXPECT_EQ( lBuffer[513], UNTOUCHED );
    EXPECT_EQ( GetResultCode(), OK );
    EXPECT_THAT( mNet.GetCalls(),
                 ElementsAre( "Open(any:0, own)",                   //
                              "SendTo(192.168.1.7:69, 14 bytes)",   // read request
                              "SetTimeoutRx(1000)",                 //
                              "ReceiveFrom(1024)",                  // block 1
                              "SendTo(192.168.1.7:50123, 4 bytes)", // acknowledge 1
                              "Close()" ) );
    EXPECT_THAT( TakeWarnings(), IsEmpty() );
}

TEST_F( TftpTalk, BlocksOfEveryLengthAreStored )
{
    for ( const std::size_t lCount : { 0U, 1U, 511U, 512U, 513U, 514U } )
    {
        const Bytes lBlock = Pattern( lCount );
        mNet.Expect( ReadRequest( "a.bin" ) )
            .ReplyFrom( TRANSFER, Data( 1, lBlock ) )
            .Expect( Ack( 1 ) );
        Bytes lBuffer( 600, UNTOUCHED );
        unsigned int lSize = 600;
        EXPECT_EQ( mClient.GetData( lBuffer.data(), lSize ).GetCode(), OK );
        EXPECT_EQ( lSize, lCount );
        EXPECT_EQ( Slice( lBuffer, 0, lCount ), lBlock );
        EXPECT_EQ( lBuffer[lCount], 0 );
        EXPECT_EQ( lBuffer[lCount + 1], UNTOUCHED );
        EXPECT_EQ( GetResultCode(), OK );
    }
}

TEST_F( TftpTalk, OnlyWhatFitsTheBufferIsStored )
{
    const Bytes lBlock = Pattern( 512 );
    mNet.Expect( ReadRequest( "a.bin" ) )
        .ReplyFrom( TRANSFER, Data( 1, lBlock ) )
        .Expect( Ack( 1 ) );
    Bytes lBuffer( 110, UNTOUCHED );
    unsigned int lSize = 100;
    EXPECT_EQ( mClient.GetData( lBuffer.data(), lSize ).GetCode(), OK );
    EXPECT_EQ( lSize, 100U );
    EXPECT_EQ( Slice( lBuffer, 0, 100 ), Slice( lBlock, 0, 100 ) );
    EXPECT_EQ( Slice( lBuffer, 100, 10 ), Bytes( 10, UNTOUCHED ) );
}

TEST_F( TftpTalk, FetchesIntoAFile )
{
    const TemporaryDirectory lDirectory;
    const std::string lPath = lDirectory.GetPath( "file" );
    WriteWholeFile( lPath, "what was there before and is longer" );
    mNet.Expect( ReadRequest( "a.bin" ) )
        .ReplyFrom( TRANSFER, Data( 1, { 'n', 'e', 'w', 0, 'x' } ) )
        .Expect( Ack( 1 ) );
    EXPECT_EQ( mClient.GetFile( lPath.c_str() ).GetCode(), OK );
    EXPECT_EQ( ReadWholeFile( lPath ), std::string( "new\0x", 5 ) ); // and no zero behind it
}

TEST_F( TftpTalk, FileIsWrittenOutBeforeTheSocketIsClosed )
{
    const TemporaryDirectory lDirectory;
    const std::string lPath = lDirectory.GetPath( "file" );
    std::optional<std::string> lAtClose;
    mNet.Observe(
        [&]( const std::string& aCall )
        {
            if ( aCall == "Close()" )
            {
                lAtClose = ReadWholeFile( lPath );
            }
        } );
    mNet.Expect( ReadRequest( "a.bin" ) )
        .ReplyFrom( TRANSFER, Data( 1, { 'n', 'e', 'w' } ) )
        .Expect( Ack( 1 ) );
    ASSERT_EQ( mClient.GetFile( lPath.c_str() ).GetCode(), OK );
    EXPECT_EQ( lAtClose, "new" );
}

TEST_F( TftpTalk, EmptyPathMeansTheDevicesName )
{
    const TemporaryDirectory lDirectory;
    const std::string lName = lDirectory.GetPath( "name" );
    ASSERT_TRUE( mClient.Init( DEVICE, lName.c_str() ).IsOK() );
    mNet.Expect( ReadRequest( lName ) )
        .ReplyFrom( TRANSFER, Data( 1, { 'n', 'e', 'w' } ) )
        .Expect( Ack( 1 ) );
    EXPECT_EQ( mClient.GetFile( "" ).GetCode(), OK );
    EXPECT_EQ( ReadWholeFile( lName ), "new" );
}

TEST_F( TftpTalk, FileThatCannotBeCreatedDoesNotStopTheTransfer )
{
    mNet.Expect( ReadRequest( "a.bin" ) )
        .ReplyFrom( TRANSFER, Data( 1, { 1, 2, 3 } ) )
        .Expect( Ack( 1 ) );
    EXPECT_EQ( mClient.GetFile( "/missing/directory/file" ).GetCode(), OK );
}

TEST_F( TftpTalk, UnexpectedBlockIsAcknowledgedWithTheExpectedNumberAndEndsTheRead )
{
    mNet.Expect( ReadRequest( "a.bin" ) )
        .ReplyFrom( TRANSFER, Data( 2, { 1, 2, 3 } ) )
        .Expect( Ack( 1 ) );
    Bytes lBuffer( 10, UNTOUCHED );
    unsigned int lSize = 10;
    EXPECT_EQ( mClient.GetData( lBuffer.data(), lSize ).GetCode(), OK );
    EXPECT_EQ( lSize, 0U );
    EXPECT_EQ( lBuffer[0], 0 );
    EXPECT_EQ( lBuffer[1], UNTOUCHED );
    EXPECT_THAT( TakeWarnings(), ElementsAre( UNEXPECTED_BLOCK ) );
    EXPECT_THAT( GetPorts(), ElementsAre( 69, 50123 ) );
    EXPECT_EQ( GetResultCode(), OK );
}

TEST_F( TftpTalk, AnyOtherDatagramEndsTheReadWithNothingStored )
{
    std::vector<Bytes> lDatagrams = {
        Ack( 0 ),
        Ack( 1 ),
        {},
        { 0x00 },
        { 0x00, 0x03, 0x00 },       // a truncated block
        { 0x00, 0x05, 0x00, 0x01 }, // an error without a message
        ReadRequest( "a.bin" ),
        { 0xDE, 0xAD, 0xBE, 0xEF },
        Data( 1, Bytes( 515, 0x11 ) ), // more than any block
        Data( 1, Bytes( 5000, 0x11 ) ) // cut to the packet buffer, still too long
    };
    for ( const Bytes& lDatagram : lDatagrams )
    {
        mNet.Expect( ReadRequest( "a.bin" ) ).ReplyFrom( TRANSFER, lDatagram );
        Bytes lBuffer( 600, UNTOUCHED );
        unsigned int lSize = 600;
        EXPECT_EQ( mClient.GetData( lBuffer.data(), lSize ).GetCode(), OK );
        EXPECT_EQ( lSize, 0U );
        EXPECT_EQ( GetResultCode(), OK );
        EXPECT_THAT( TakeWarnings(), ElementsAre( UNEXPECTED_PACKET ) );
    }
    EXPECT_THAT( GetPorts(), Each( 69 ) ); // no answer was sent
    EXPECT_EQ( VirtualClock::Now(), mStart );
}

TEST_F( TftpTalk, ErrorEndsTheReadWithTheDevicesMessage )
{
    mNet.Expect( ReadRequest( "a.bin" ) ).ReplyFrom( TRANSFER, Error( 1, "File not found" ) );
    Bytes lBuffer( 10, UNTOUCHED );
    unsigned int lSize = 10;
    const Result lResult = mClient.GetData( lBuffer.data(), lSize );
    EXPECT_EQ( lResult.GetCode(), FAILED );
    EXPECT_STREQ( lResult.GetDescription().GetAscii(), "File not found" );
    EXPECT_EQ( lSize, 0U ); // also on failure
    EXPECT_EQ( GetResultCode(), FAILED );
    EXPECT_EQ( GetResultText(), "File not found" );
    EXPECT_THAT( TakeWarnings(), IsEmpty() );
    EXPECT_EQ( mNet.GetCalls().back(), "Close()" );
}

TEST_F( TftpTalk, FailedReadLeavesAnEmptyFile )
{
    const TemporaryDirectory lDirectory;
    const std::string lPath = lDirectory.GetPath( "file" );
    mNet.Expect( ReadRequest( "a.bin" ) ).ReplyFrom( TRANSFER, Error( 1, "File not found" ) );
    EXPECT_EQ( mClient.GetFile( lPath.c_str() ).GetCode(), FAILED );
    EXPECT_TRUE( std::filesystem::exists( lPath ) );
    EXPECT_EQ( ReadWholeFile( lPath ), "" );
}

TEST_F( TftpTalk, SilentDeviceCosts21RequestsAnd20WarningsOfARead )
{
    for ( int lTry = 0; lTry < 21; ++lTry )
    {
        mNet.Expect( ReadRequest( "a.bin" ) ).Silence();
    }
    Bytes lBuffer( 10, UNTOUCHED );
    unsigned int lSize = 10;
    const Result lResult = mClient.GetData( lBuffer.data(), lSize );
    EXPECT_EQ( lResult.GetCode(), FAILED );
    EXPECT_STREQ( lResult.GetDescription().GetAscii(), RECEIVE_GIVEN_UP );
    EXPECT_EQ( GetResultText(), RECEIVE_GIVEN_UP );
    EXPECT_EQ( VirtualClock::Now() - mStart, 21000 );
    EXPECT_THAT( GetPorts(), Each( 69 ) );
    EXPECT_EQ( CountCalls( "SetTimeoutRx(1000)" ), 21U );
    const std::vector<std::string> lWarnings = TakeWarnings();
    EXPECT_THAT( lWarnings, SizeIs( 20 ) );
    EXPECT_THAT( lWarnings, Each( RESEND_READ ) );
}

TEST_F( TftpTalk, LateFirstBlockIsAccepted )
{
    for ( int lTry = 0; lTry < 20; ++lTry )
    {
        mNet.Expect( ReadRequest( "a.bin" ) ).Silence();
    }
    mNet.Expect( ReadRequest( "a.bin" ) )
        .ReplyFrom( TRANSFER, Data( 1, { 1, 2, 3 } ), AFTER_MS( 999 ) )
        .Expect( Ack( 1 ) );
    Bytes lBuffer( 10, UNTOUCHED );
    unsigned int lSize = 10;
    EXPECT_EQ( mClient.GetData( lBuffer.data(), lSize ).GetCode(), OK );
    EXPECT_EQ( lSize, 3U );
    EXPECT_THAT( TakeWarnings(), SizeIs( 20 ) );
}

TEST_F( TftpTalk, WrongBlockAfterTwentyTimeoutsFails )
{
    for ( int lTry = 0; lTry < 20; ++lTry )
    {
        mNet.Expect( ReadRequest( "a.bin" ) ).Silence();
    }
    mNet.Expect( ReadRequest( "a.bin" ) )
        .ReplyFrom( TRANSFER, Data( 2, { 1, 2, 3 } ) )
        .Expect( Ack( 1 ) );
    Bytes lBuffer( 10, UNTOUCHED );
    unsigned int lSize = 10;
    const Result lResult = mClient.GetData( lBuffer.data(), lSize );
    EXPECT_EQ( lResult.GetCode(), FAILED );
    EXPECT_STREQ( lResult.GetDescription().GetAscii(), BLOCKS_GIVEN_UP );
    const std::vector<std::string> lWarnings = TakeWarnings();
    ASSERT_THAT( lWarnings, SizeIs( 21 ) );
    EXPECT_EQ( lWarnings.back(), UNEXPECTED_BLOCK );
}

TEST_F( TftpTalk, WrongBlockAfterNineteenTimeoutsIsOk )
{
    for ( int lTry = 0; lTry < 19; ++lTry )
    {
        mNet.Expect( ReadRequest( "a.bin" ) ).Silence();
    }
    mNet.Expect( ReadRequest( "a.bin" ) )
        .ReplyFrom( TRANSFER, Data( 0, { 1, 2, 3 } ) )
        .Expect( Ack( 1 ) );
    unsigned int lSize = 0;
    EXPECT_EQ( mClient.GetData( nullptr, lSize ).GetCode(), OK );
}

TEST_F( TftpTalk, AbortEndsARead )
{
    mNet.Expect( ReadRequest( "a.bin" ) )
        .Do( [&] { EXPECT_EQ( mClient.Abort().GetCode(), OK ); }, AFTER_MS( 400 ) );
    Bytes lBuffer( 10, UNTOUCHED );
    unsigned int lSize = 10;
    EXPECT_EQ( mClient.GetData( lBuffer.data(), lSize ).GetCode(), ABORTED );
    EXPECT_EQ( lSize, 0U );
    EXPECT_EQ( GetResultCode(), PENDING );
    EXPECT_EQ( VirtualClock::Now() - mStart, 1000 );
    EXPECT_EQ( mNet.GetCalls().back(), "Close()" );
    EXPECT_EQ( mClient.Abort().GetCode(), OK );
}

// While the request leaves: the flag is read before the first wait.
TEST_F( TftpTalk, AbortBeforeTheWaitOfAReadTakesNoTime )
{
    mNet.Observe(
        [&]( const std::string& aCall )
        {
            if ( aCall.rfind( "SendTo(", 0 ) == 0 )
            {
                EXPECT_EQ( mClient.Abort().GetCode(), OK );
            }
        } );
    mNet.Expect( ReadRequest( "a.bin" ) );
    unsigned int lSize = 0;
    EXPECT_EQ( mClient.GetData( nullptr, lSize ).GetCode(), ABORTED );
    EXPECT_EQ( VirtualClock::Now(), mStart );
    EXPECT_EQ( CountCalls( "ReceiveFrom(" ), 0U );
    EXPECT_EQ( mNet.GetCalls().back(), "Close()" );
}

TEST_F( TftpTalk, ReadKeepsTheCountersOfTheLastSend )
{
    const Bytes lBytes = Pattern( 700 );
    ScriptUpload( lBytes );
    ASSERT_EQ( Send( lBytes ), OK );
    std::vector<Progress> lSeen;
    mNet.Expect( ReadRequest( "a.bin" ) )
        .Do( [&] { lSeen.push_back( GetProgress() ); } )
        .ReplyFrom( TRANSFER, Data( 1, Pattern( 512 ) ) )
        .Expect( Ack( 1 ) );
    Bytes lBuffer( 600, UNTOUCHED );
    unsigned int lSize = 600;
    ASSERT_EQ( mClient.GetData( lBuffer.data(), lSize ).GetCode(), OK );
    EXPECT_THAT( lSeen, ElementsAre( Progress{ OK, 0, 700 } ) );
    EXPECT_EQ( GetProgress(), ( Progress{ OK, 0, 700 } ) );
}

// Looking at it from outside

TEST_F( TftpTalk, WarningsAreKeptInOrderUntilTheNextTransfer )
{
    const Bytes lBytes = Pattern( 3 );
    for ( int lTry = 0; lTry < 6; ++lTry )
    {
        mNet.Expect( WriteRequest( "a.bin" ) ).Silence();
    }
    ScriptUpload( lBytes );
    ASSERT_EQ( Send( lBytes ), OK );
    std::string lText;
    EXPECT_EQ( mClient.GetWarning( lText ).GetCode(), OK );
    EXPECT_EQ( lText, MissingAck( 4 ) );
    EXPECT_EQ( mClient.GetWarning( lText ).GetCode(), OK );
    EXPECT_EQ( lText, MissingAck( 5 ) );
    ScriptUpload( lBytes );
    ASSERT_EQ( Send( lBytes ), OK );
    EXPECT_EQ( mClient.GetWarning( lText ).GetCode(), NO_WARNING ); // the third was discarded
    EXPECT_EQ( lText, MissingAck( 5 ) );
}

TEST_F( TftpTalk, LogsNothing )
{
    const RecordingLogSink lLog;
    mNet.Expect( WriteRequest( "a.bin" ) ).Silence();
    mNet.Expect( WriteRequest( "a.bin" ) ).ReplyFrom( TRANSFER, Error( 0, "no" ) );
    EXPECT_EQ( Send( Pattern( 3 ) ), FAILED );
    mNet.Expect( ReadRequest( "a.bin" ) ).ReplyFrom( TRANSFER, { 0xDE, 0xAD } );
    unsigned int lSize = 0;
    EXPECT_EQ( mClient.GetData( nullptr, lSize ).GetCode(), OK );
    EXPECT_EQ( mClient.SendFile( "/missing/file" ).GetCode(), NOT_FOUND );
    EXPECT_THAT( lLog.GetTexts(), IsEmpty() );
}
