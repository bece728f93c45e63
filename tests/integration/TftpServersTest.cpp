// Our client with independent TFTP servers, over real sockets.

#include "tests/support/AllocationCounter.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/NetworkNamespace.h"
#include "tests/support/PacketCapture.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/TftpBytes.h"

#include <HtTftpClient.h>
#include <QmUtilsLib/Thread.h>

#include <gmock/gmock.h>

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

namespace
{

using QmUtilsLib::Thread;
using TestSupport::Bytes;
using TestSupport::ChildProcess;
using TestSupport::PacketCapture;
using TestSupport::Pattern;
using TestSupport::ReadWholeFile;
using TestSupport::TemporaryDirectory;
using TestSupport::WriteWholeFile;

constexpr int PATIENCE_MS = 20000;

// A server and how it is started; DIR is replaced by the directory that it serves.
struct Server
{
    const char* mName;
    const char* mPackage;
    const char* mProgram; // in the unpacked package
    std::vector<std::string> mOptions;
    bool mNeedsRoot;
    bool mListensEverywhere; // so it needs a network of its own
};

void PrintTo( const Server& aServer, std::ostream* aStream )
{
    *aStream << aServer.mName;
}

const Server TFTPD_HPA = { "tftpd_hpa",
                           "tftpd-hpa",
                           "usr/sbin/in.tftpd",
                           { "-4", "-L", "-v", "-c", "-p", "-u", "root", "-s", "DIR" },
                           true,
                           true };
const Server ATFTPD = { "atftpd",
                        "atftpd",
                        "usr/sbin/atftpd",
                        { "--daemon", "--no-fork", "--user", "root.root", "--bind-address",
                          "127.0.0.1", "--port", "69", "--logfile", "-", "DIR" },
                        false,
                        false };
const Server DNSMASQ = { "dnsmasq",
                         "dnsmasq-base",
                         "usr/sbin/dnsmasq",
                         { "--keep-in-foreground", "--conf-file=/dev/null", "--port=0",
                           "--enable-tftp", "--tftp-root=DIR", "--listen-address=127.0.0.1",
                           "--bind-interfaces", "--user=root", "--log-facility=-", "--pid-file=" },
                         false,
                         false };

// True if a program listens on UDP port 69 of this network.
bool IsServed()
{
    std::ifstream lTable( "/proc/net/udp" );
    std::string lLine;
    while ( std::getline( lTable, lLine ) )
    {
        if ( lLine.find( ":0045 " ) != std::string::npos )
        {
            return true;
        }
    }
    return false;
}

void Replace( std::string* aText, const std::string& aOld, const std::string& aNew )
{
    const std::size_t lPlace = aText->find( aOld );
    if ( lPlace != std::string::npos )
    {
        aText->replace( lPlace, aOld.size(), aNew );
    }
}

// A server in a network of the test's own, or on this machine's port 69.
class JudgedTftp : public testing::Test
{
protected:
    // Why the server cannot be run, or an empty text when it runs.
    std::string Start( const Server& aServer )
    {
        const std::string lProgram =
            std::string( PEER_DIRECTORY ) + "/" + aServer.mPackage + "/" + aServer.mProgram;
        if ( access( lProgram.c_str(), X_OK ) != 0 )
        {
            return std::string( aServer.mPackage ) + " is not there; scripts/test fetches it";
        }
        if ( aServer.mNeedsRoot && geteuid() != 0 )
        {
            return std::string( aServer.mPackage ) + " changes its user and root directory";
        }
        const std::string lReason = aServer.mListensEverywhere
                                        ? TestSupport::EnterNetworkNamespace()
                                        : TestSupport::EnterTftpNetwork();
        if ( !lReason.empty() )
        {
            return lReason;
        }
        std::vector<std::string> lArguments = { lProgram };
        for ( std::string lOption : aServer.mOptions )
        {
            Replace( &lOption, "DIR", mDirectory.GetPath() );
            lArguments.push_back( lOption );
        }
        mServer = std::make_unique<ChildProcess>( lArguments );
        const long long lDeadline = Thread::GetTickCount() + PATIENCE_MS;
        while ( !IsServed() && Thread::GetTickCount() < lDeadline )
        {
            std::this_thread::sleep_for( std::chrono::milliseconds( 5 ) );
        }
        EXPECT_TRUE( IsServed() ) << mServer->GetError();
        return std::string();
    }

    std::string GetPath( const std::string& aName ) const { return mDirectory.GetPath( aName ); }

    HtResult Upload( const std::string& aName, const Bytes& aContent )
    {
        EXPECT_TRUE( mClient.Init( "127.0.0.1", aName.c_str() ).IsOK() );
        return mClient.SendData( aContent.data(), static_cast<unsigned int>( aContent.size() ) );
    }

    // A server may still be writing when it has acknowledged.
    bool HasArrived( const std::string& aName, const Bytes& aContent ) const
    {
        const std::string lContent( aContent.begin(), aContent.end() );
        const long long lDeadline = Thread::GetTickCount() + PATIENCE_MS;
        while ( !std::filesystem::exists( GetPath( aName ) ) ||
                ReadWholeFile( GetPath( aName ) ) != lContent )
        {
            if ( Thread::GetTickCount() > lDeadline )
            {
                return false;
            }
            std::this_thread::sleep_for( std::chrono::milliseconds( 20 ) );
        }
        return true;
    }

    void ExpectUpload( std::size_t aSize )
    {
        const std::string lName = "up" + std::to_string( aSize ) + ".bin";
        const Bytes lContent = Pattern( aSize );
        const HtResult lResult = Upload( lName, lContent );
        EXPECT_EQ( lResult.GetCode(), 0U ) << aSize << lResult.GetDescription().GetAscii();
        EXPECT_TRUE( HasArrived( lName, lContent ) ) << aSize;
        long long lDone = -1;
        long long lTotal = -1;
        EXPECT_TRUE( mClient.GetProgress( lDone, lTotal ).IsOK() );
        EXPECT_EQ( lDone, static_cast<long long>( aSize / 512 * 512 ) );
        EXPECT_EQ( lTotal, static_cast<long long>( aSize ) );
    }

    void ExpectDownload( std::size_t aSize )
    {
        const std::string lName = "down" + std::to_string( aSize ) + ".bin";
        const Bytes lContent = Pattern( aSize );
        WriteWholeFile( GetPath( lName ), std::string( lContent.begin(), lContent.end() ) );
        std::filesystem::permissions( GetPath( lName ), std::filesystem::perms{ 0644 } );
        EXPECT_TRUE( mClient.Init( "127.0.0.1", lName.c_str() ).IsOK() );
        Bytes lBuffer( 600, 0xEE );
        unsigned int lReceived = 0;
        const HtResult lResult = mClient.GetData( lBuffer.data(), 600, &lReceived );
        EXPECT_EQ( lResult.GetCode(), 0U ) << aSize << lResult.GetDescription().GetAscii();
        ASSERT_EQ( lReceived, std::min<std::size_t>( aSize, 512 ) );
        EXPECT_TRUE(
            std::equal( lContent.begin(), lContent.begin() + lReceived, lBuffer.begin() ) );
        EXPECT_EQ( lBuffer[lReceived], 0 );
        HtString lWarning;
        EXPECT_EQ( mClient.GetWarning( lWarning ).GetCode(), 0x0015U ) << lWarning.GetAscii();
    }

    const TemporaryDirectory mDirectory;
    std::unique_ptr<ChildProcess> mServer;
    HtTftpClient mClient;
};

class UploadServer : public JudgedTftp, public testing::WithParamInterface<Server>
{
};
class DownloadServer : public JudgedTftp, public testing::WithParamInterface<Server>
{
};

std::string GetName( const testing::TestParamInfo<Server>& aInfo )
{
    return aInfo.param.mName;
}

INSTANTIATE_TEST_SUITE_P( Judges, UploadServer, testing::Values( TFTPD_HPA, ATFTPD ), GetName );
INSTANTIATE_TEST_SUITE_P( Judges, DownloadServer, testing::Values( TFTPD_HPA, ATFTPD, DNSMASQ ),
                          GetName );

#define START_OR_SKIP( aServer )                      \
    do                                                \
    {                                                 \
        const std::string lReason = Start( aServer ); \
        if ( !lReason.empty() )                       \
        {                                             \
            GTEST_SKIP() << lReason;                  \
        }                                             \
    } while ( false )

} // namespace

TEST_P( UploadServer, StoresFilesOfEverySizeAroundABlock )
{
    START_OR_SKIP( GetParam() );
    for ( const std::size_t lSize : { 0U, 1U, 511U, 512U, 513U, 1024U, 100000U } )
    {
        ExpectUpload( lSize );
    }
}

TEST_P( UploadServer, StoresTheLargestFileWhoseBlockNumbersDoNotWrap )
{
    START_OR_SKIP( GetParam() );
    ExpectUpload( 65534 * 512 + 17 );
}

TEST_P( UploadServer, StoresAFileWhoseLastEmptyBlockHasNumberZero )
{
    START_OR_SKIP( GetParam() );
    ExpectUpload( 65535 * 512 );
}

TEST_P( UploadServer, StoresAFileWhoseBlockNumbersWrap )
{
    START_OR_SKIP( GetParam() );
    ExpectUpload( 65538 * 512 + 5 );
}

TEST_P( UploadServer, StoresALocalFile )
{
    START_OR_SKIP( GetParam() );
    const TemporaryDirectory lLocal;
    const Bytes lContent = Pattern( 70000 );
    WriteWholeFile( lLocal.GetPath( "image" ), std::string( lContent.begin(), lContent.end() ) );
    ASSERT_TRUE( mClient.Init( "127.0.0.1", "image" ).IsOK() );
    EXPECT_EQ( mClient.SendFile( lLocal.GetPath( "image" ).c_str() ).GetCode(), 0U );
    EXPECT_TRUE( HasArrived( "image", lContent ) );
}

TEST_P( UploadServer, RefusesAFileInADirectoryThatIsNotThere )
{
    START_OR_SKIP( GetParam() );
    const HtResult lResult = Upload( "missing/directory/file", Pattern( 600 ) );
    EXPECT_EQ( lResult.GetCode(), 0x0013U );
    EXPECT_GT( lResult.GetDescription().GetLength(), 0U );
}

// In the steady state a block costs no allocation, so the count does not depend on the size.
TEST_P( UploadServer, UploadAllocatesTheSameWhateverItsSize )
{
    START_OR_SKIP( GetParam() );
    const auto lCount = [&]( std::size_t aSize )
    {
        const Bytes lContent = Pattern( aSize );
        EXPECT_TRUE( mClient.Init( "127.0.0.1", "count.bin" ).IsOK() );
        const unsigned long long lBefore = TestSupport::GetAllocationCount();
        const HtResult lResult =
            mClient.SendData( lContent.data(), static_cast<unsigned int>( aSize ) );
        const unsigned long long lAfter = TestSupport::GetAllocationCount();
        EXPECT_EQ( lResult.GetCode(), 0U );
        HtString lWarning;
        EXPECT_EQ( mClient.GetWarning( lWarning ).GetCode(), 0x0015U ) << "a datagram got lost";
        return lAfter - lBefore;
    };
    (void)lCount( 10 ); // whatever the first transfer sets up for good
    const unsigned long long lFew = lCount( 3 * 512 );
    EXPECT_EQ( lCount( 3000 * 512 ), lFew );
    EXPECT_LT( lFew, 10U );
}

TEST_P( DownloadServer, SendsTheFirstBlock )
{
    START_OR_SKIP( GetParam() );
    for ( const std::size_t lSize : { 0U, 1U, 511U, 512U, 513U, 2000U } )
    {
        ExpectDownload( lSize );
    }
}

TEST_P( DownloadServer, ReportsThatAFileIsMissing )
{
    START_OR_SKIP( GetParam() );
    ASSERT_TRUE( mClient.Init( "127.0.0.1", "missing.bin" ).IsOK() );
    Bytes lBuffer( 600, 0xEE );
    unsigned int lReceived = 77;
    const HtResult lResult = mClient.GetData( lBuffer.data(), 600, &lReceived );
    EXPECT_EQ( lResult.GetCode(), 0x0013U );
    EXPECT_GT( lResult.GetDescription().GetLength(), 0U );
    EXPECT_EQ( lReceived, 0U );
}

// An independent dissector finds every field where it should be.
TEST_F( JudgedTftp, DissectorDecodesEveryPacket )
{
    const std::string lNoNetwork =
        TestSupport::EnterNetworkNamespace(); // no packets of other programs
    if ( !lNoNetwork.empty() )
    {
        GTEST_SKIP() << lNoNetwork;
    }
    START_OR_SKIP( ATFTPD );
    PacketCapture lCapture;
    ASSERT_EQ( lCapture.GetProblem(), "" );
    ExpectUpload( 1100 );
    ExpectDownload( 100 );
    lCapture.Stop();
    EXPECT_TRUE( lCapture.GetRows( "_ws.malformed", { "frame.number" } ).empty() );
    const std::vector<std::vector<std::string>> lRequests =
        lCapture.GetRows( "udp.dstport==69", { "tftp.opcode", "tftp.destination_file",
                                               "tftp.source_file", "tftp.type" } );
    const std::vector<std::vector<std::string>> REQUESTS = {
        { "2", "up1100.bin", "", "octet" }, // write
        { "1", "", "down100.bin", "octet" } // read
    };
    EXPECT_EQ( lRequests, REQUESTS );
    const std::vector<std::vector<std::string>> lPackets = lCapture.GetRows(
        "tftp && udp.dstport!=69", { "tftp.opcode", "tftp.block", "udp.length" } );
    const std::vector<std::vector<std::string>> PACKETS = {
        { "4", "0", "12" },                        // the offer is taken
        { "3", "1", "524" }, { "4", "1", "12" },   // 8 of UDP, 4 of header, 512 of data
        { "3", "2", "524" }, { "4", "2", "12" },   //
        { "3", "3", "88" },  { "4", "3", "12" },   // 76 of data
        { "3", "1", "112" }, { "4", "1", "12" } }; // the download
    EXPECT_EQ( lPackets, PACKETS );
}
