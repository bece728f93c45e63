// The TFTP client when memory is missing, at every allocation that it makes. Over real sockets: the
// scripted one allocates.

#include "Libraries/HtBase/TftpClient.h"

#include "tests/support/AllocationCounter.h"
#include "tests/support/LoopbackTftpServer.h"
#include "tests/support/NetworkNamespace.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/TftpBytes.h"

#include <HtTftpClient.h>
#include <QmUtilsLib/String.h>
#include <WdUtilsLib/Network/IpAddress.h>

#include <gmock/gmock.h>

#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <vector>

namespace
{

using HtBaseLib::TftpClient;
using QmUtilsLib::Result;
using Simulators::VirtualTftpServer;
using testing::AnyOf;
using testing::Contains;
using TestSupport::AllocationFailure;
using TestSupport::Bytes;
using TestSupport::GetLiveAllocationCount;
using TestSupport::LoopbackTftpServer;
using TestSupport::Pattern;
using TestSupport::TemporaryDirectory;
using WdUtilsLib::Network::IpAddress;

constexpr unsigned int FAILED = 0x0013;
constexpr unsigned long long ALL = ~0ULL;
constexpr const char* MESSAGE = "Flash worn out"; // of the server, where it refuses

std::size_t CountDescriptors()
{
    const std::filesystem::directory_iterator lFirst( "/proc/self/fd" );
    return static_cast<std::size_t>( std::distance( begin( lFirst ), end( lFirst ) ) );
}

// Does something again and again, each time with the next allocation failing, and aCount - 1 after
// it, until it makes none that fails. aCheck gets each result.
template <typename Operation, typename Check>
void FailEachAllocation( unsigned long long aCount, const Operation& aOperation,
                         const Check& aCheck )
{
    for ( unsigned long long lNumber = 1;; ++lNumber )
    {
        std::optional<AllocationFailure> lFailure( std::in_place, lNumber, aCount );
        const auto lResult = aOperation();
        const bool lHasFailed = lFailure->HasHappened();
        lFailure.reset();
        if ( !lHasFailed )
        {
            EXPECT_GT( lNumber, 1U ) << "nothing was allocated";
            return;
        }
        aCheck( lResult );
    }
}

struct Transfer
{
    const char* mName;
    Result ( *mRun )( TftpClient& aClient, const std::string& aPath );
};

// Longer than the space that a text has without an allocation.
const std::string REMOTE_NAME = "the name of the file on the device";

const Bytes CONTENT = Pattern( 700 );

const Transfer TRANSFERS[] = {
    { "SendData",
      []( TftpClient& aClient, const std::string& )
      {
          return aClient.SendData( CONTENT.data(), 700 );
      } },
    { "SendFile",
      []( TftpClient& aClient, const std::string& aPath )
      {
          return aClient.SendFile( aPath.c_str() );
      } },
    { "GetData",
      []( TftpClient& aClient, const std::string& )
      {
          unsigned char lBuffer[600];
          unsigned int lSize = sizeof( lBuffer );
          return aClient.GetData( lBuffer, lSize );
      } },
    { "GetFile",
      []( TftpClient& aClient, const std::string& aPath )
      {
          return aClient.GetFile( aPath.c_str() );
      } },
};

class TftpMemory : public testing::Test
{
protected:
    void SetUp() override
    {
        const std::string lReason = TestSupport::EnterTftpNetwork();
        if ( !lReason.empty() )
        {
            GTEST_SKIP() << lReason;
        }
        mServer = std::make_unique<LoopbackTftpServer>();
        ASSERT_TRUE( mServer->GetOpened().IsOK() );
        mServer->Access( []( VirtualTftpServer& aServer )
                         { aServer.SetFile( REMOTE_NAME, CONTENT ); } );
        TestSupport::WriteWholeFile( mPath, std::string( 700, 'x' ) );
    }

    // From now on the server's answers suffer that trouble.
    void Disturb( VirtualTftpServer::Trouble aTrouble, uint64_t aCount )
    {
        mServer->Access(
            [aTrouble, aCount]( VirtualTftpServer& aServer )
            {
                VirtualTftpServer::Disturbance lDisturbance;
                lDisturbance.mTrouble = aTrouble;
                lDisturbance.mFirst = aServer.GetCounters().mAnswers;
                lDisturbance.mCount = aCount;
                lDisturbance.mMessage = MESSAGE;
                aServer.Disturb( lDisturbance );
            } );
    }

    const TemporaryDirectory mDirectory;
    const std::string mPath = mDirectory.GetPath( "file" );
    std::unique_ptr<LoopbackTftpServer> mServer;
};

std::string GetText( const Result& aResult )
{
    return aResult.GetDescription().GetAscii();
}

std::string GetText( const HtResult& aResult )
{
    return aResult.GetDescription().GetAscii();
}

// A result is 0x4000 with ENOMEM, or the transfer's own failure. The latter is that of a socket
// that cannot be had, since every wait then fails.
template <typename AnyResult>
void ExpectMissingMemoryOrFailure( const AnyResult& aResult )
{
    ASSERT_THAT( aResult.GetCode(), AnyOf( 0x4000U, FAILED ) );
    EXPECT_EQ( aResult.GetOSCode(), aResult.GetCode() == FAILED ? 0U : unsigned{ ENOMEM } );
}

} // namespace

TEST_F( TftpMemory, EveryTransferEndsForItsCallerAndForOtherThreads )
{
    for ( const Transfer& lTransfer : TRANSFERS )
    {
        for ( const unsigned long long lCount : { 1ULL, ALL } )
        {
            SCOPED_TRACE( lTransfer.mName );
            const long long lLive = GetLiveAllocationCount();
            const std::size_t lDescriptors = CountDescriptors();
            auto lClient = std::make_unique<TftpClient>();
            ASSERT_TRUE( lClient->Init( IpAddress( 0x7F000001 ), REMOTE_NAME.c_str() ).IsOK() );
            int lMissing = 0;
            FailEachAllocation(
                lCount, [&] { return lTransfer.mRun( *lClient, mPath ); },
                [&]( const Result& aResult )
                {
                    ExpectMissingMemoryOrFailure( aResult );
                    lMissing += aResult.GetOSCode() == ENOMEM ? 1 : 0;
                    EXPECT_EQ( lClient->GetTransferResult().GetCode(), aResult.GetCode() );
                    EXPECT_EQ( lClient->GetTransferResult().GetOSCode(), aResult.GetOSCode() );
                    EXPECT_EQ( lClient->Abort().GetCode(), Result::BUSY );
                    EXPECT_EQ( CountDescriptors(), lDescriptors ); // no socket, no file
                } );
            EXPECT_GT( lMissing, 0 );
            EXPECT_TRUE( lTransfer.mRun( *lClient, mPath ).IsOK() ); // the client is free
            lClient.reset();
            EXPECT_EQ( GetLiveAllocationCount(), lLive );
        }
    }
}

TEST_F( TftpMemory, FailureKeepsItsCodeWithoutItsText )
{
    Disturb( VirtualTftpServer::Trouble::ERROR_PACKET, VirtualTftpServer::FOR_EVER );
    for ( const Transfer& lTransfer : TRANSFERS )
    {
        SCOPED_TRACE( lTransfer.mName );
        TftpClient lClient;
        ASSERT_TRUE( lClient.Init( IpAddress( 0x7F000001 ), REMOTE_NAME.c_str() ).IsOK() );
        std::vector<std::string> lTexts;
        FailEachAllocation(
            1, [&] { return lTransfer.mRun( lClient, mPath ); },
            [&]( const Result& aResult )
            {
                ExpectMissingMemoryOrFailure( aResult );
                EXPECT_EQ( lClient.GetTransferResult().GetCode(), aResult.GetCode() );
                EXPECT_EQ( GetText( lClient.GetTransferResult() ), GetText( aResult ) );
                if ( aResult.GetCode() == FAILED )
                {
                    lTexts.push_back( GetText( aResult ) );
                }
            } );
        EXPECT_THAT( lTexts, Contains( "" ) );
        EXPECT_EQ( GetText( lTransfer.mRun( lClient, mPath ) ), MESSAGE );
    }
}

TEST_F( TftpMemory, WarningThatCannotBeKeptEndsTheTransfer )
{
    Disturb( VirtualTftpServer::Trouble::WRONG_BLOCK, VirtualTftpServer::FOR_EVER );
    TftpClient lClient;
    ASSERT_TRUE( lClient.Init( IpAddress( 0x7F000001 ), REMOTE_NAME.c_str() ).IsOK() );
    int lMissing = 0;
    FailEachAllocation(
        1, [&] { return lClient.SendData( CONTENT.data(), 700 ); },
        [&]( const Result& aResult )
        {
            ExpectMissingMemoryOrFailure( aResult );
            lMissing += aResult.GetOSCode() == ENOMEM ? 1 : 0;
            EXPECT_EQ( lClient.GetTransferResult().GetCode(), aResult.GetCode() );
        } );
    EXPECT_GT( lMissing, 18 ); // the stream, and each of the warnings
    std::string lText;
    EXPECT_TRUE( lClient.GetWarning( lText ).IsOK() );
}

TEST_F( TftpMemory, InitWithoutMemoryChangesNothing )
{
    TftpClient lClient;
    ASSERT_TRUE( lClient.Init( IpAddress( 0x7F000001 ), REMOTE_NAME.c_str() ).IsOK() );
    const std::string lOther( 100, 'o' );
    FailEachAllocation(
        1, [&] { return lClient.Init( IpAddress( 0x7F000002 ), lOther.c_str() ); },
        [&]( const Result& aResult )
        {
            EXPECT_EQ( aResult.GetCode(), 0x4000U );
            EXPECT_EQ( aResult.GetOSCode(), unsigned{ ENOMEM } );
            EXPECT_TRUE( lClient.SendData( CONTENT.data(), 700 ).IsOK() );
        } );
    EXPECT_TRUE( mServer->GetFile( lOther ).empty() );
}

TEST_F( TftpMemory, PublicClientReportsMissingMemoryTheSameWay )
{
    Disturb( VirtualTftpServer::Trouble::ERROR_PACKET, VirtualTftpServer::FOR_EVER );
    EXPECT_EQ( GetText( Result() ), "" ); // the first description may keep memory
    const long long lLive = GetLiveAllocationCount();
    {
        HtTftpClient lClient;
        ASSERT_TRUE( lClient.Init( "127.0.0.1", REMOTE_NAME.c_str() ).IsOK() );
        std::vector<std::string> lTexts;
        FailEachAllocation(
            1, [&] { return lClient.SendData( CONTENT.data(), 700 ); },
            [&]( const HtResult& aResult )
            {
                ExpectMissingMemoryOrFailure( aResult );
                lTexts.push_back( GetText( aResult ) );
            } );
        EXPECT_THAT( lTexts, Contains( "" ) );
        EXPECT_EQ( GetText( lClient.SendData( CONTENT.data(), 700 ) ), MESSAGE );
        FailEachAllocation(
            1, [&] { return lClient.GetTransferResult(); },
            []( const HtResult& aResult )
            {
                EXPECT_EQ( aResult.GetCode(), FAILED );
                EXPECT_EQ( GetText( aResult ), "" );
            } );
        EXPECT_EQ( GetText( lClient.GetTransferResult() ), MESSAGE );
    }
    EXPECT_EQ( GetLiveAllocationCount(), lLive );
}

TEST_F( TftpMemory, PublicClientRefusesAnAddressWithoutMemoryForTheText )
{
    HtTftpClient lClient;
    const HtString lAddress( "192.168.1.300" );
    const HtString lName( REMOTE_NAME.c_str() );
    FailEachAllocation(
        1, [&] { return lClient.Init( lAddress, lName ); },
        []( const HtResult& aResult )
        {
            EXPECT_EQ( aResult.GetCode(), 0x4001U );
            EXPECT_EQ( GetText( aResult ), "" );
        } );
    const HtString lGood( "127.0.0.1" );
    FailEachAllocation(
        1, [&] { return lClient.Init( lGood, lName ); },
        []( const HtResult& aResult )
        {
            EXPECT_EQ( aResult.GetCode(), 0x4000U );
            EXPECT_EQ( aResult.GetOSCode(), unsigned{ ENOMEM } );
        } );
}

TEST_F( TftpMemory, PublicClientReportsThatAWarningCannotBeReturned )
{
    HtTftpClient lClient;
    HtString lText;
    ASSERT_TRUE( lClient.Init( "127.0.0.1", REMOTE_NAME.c_str() ).IsOK() );
    FailEachAllocation(
        1,
        [&]
        {
            const HtResult lNone = lClient.GetWarning( lText );
            return lNone.GetCode() == 0x0015U;
        },
        []( bool aWasNone ) { EXPECT_FALSE( aWasNone ); } );
    int lMissing = 0;
    for ( unsigned long long lNumber = 1;; ++lNumber )
    {
        Disturb( VirtualTftpServer::Trouble::WRONG_BLOCK, 7 );
        ASSERT_TRUE( lClient.SendData( CONTENT.data(), 700 ).IsOK() );
        std::optional<AllocationFailure> lFailure( std::in_place, lNumber );
        const HtResult lResult = lClient.GetWarning( lText );
        const bool lHasFailed = lFailure->HasHappened();
        lFailure.reset();
        if ( !lHasFailed )
        {
            EXPECT_TRUE( lResult.IsOK() );
            break;
        }
        ++lMissing;
        EXPECT_EQ( lResult.GetCode(), 0x4000U );
        EXPECT_EQ( lResult.GetOSCode(), unsigned{ ENOMEM } );
        EXPECT_TRUE( lClient.GetWarning( lText ).IsOK() ); // the next one
    }
    EXPECT_GT( lMissing, 0 );
}

TEST_F( TftpMemory, ConstructorThrowsAndLeaksNothing )
{
    const long long lLive = GetLiveAllocationCount();
    const auto lThrows = []
    {
        try
        {
            const HtTftpClient lClient;
        }
        catch ( const std::bad_alloc& )
        {
            return true;
        }
        return false;
    };
    FailEachAllocation( 1, lThrows,
                        [lLive]( bool aHasThrown )
                        {
                            EXPECT_TRUE( aHasThrown );
                            EXPECT_EQ( GetLiveAllocationCount(), lLive );
                        } );
}
