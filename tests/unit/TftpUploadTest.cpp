// Whole uploads to the virtual TFTP server, over good lines and bad ones.

#include "Libraries/HtBase/TftpClient.h"

#include "tests/support/ScriptedTftpServer.h"
#include "tests/support/TftpBytes.h"

#include <QmUtilsLib/Scripted/VirtualClock.h>
#include <QmUtilsLib/String.h>

#include <gmock/gmock.h>

#include <string>

using HtBaseLib::TftpClient;
using QmUtilsLib::Result;
using QmUtilsLib::Scripted::VirtualClock;
using Simulators::FaultPlan;
using Simulators::VirtualTftpServer;
using TestSupport::Bytes;
using TestSupport::Pattern;
using TestSupport::ScriptedTftpServer;
using WdUtilsLib::Network::IpAddress;
using WdUtilsLib::Scripted::ScriptedNetwork;

namespace
{

using Trouble = VirtualTftpServer::Trouble;

constexpr unsigned int ABORTED = 0x0001;
constexpr unsigned int FAILED = 0x0013;
constexpr unsigned int ANSWERS = 6; // of an upload of UPLOAD_SIZE: to the offer and to 5 blocks
constexpr std::size_t UPLOAD_SIZE = 4 * 512 + 100;

// One upload to a server of its own.
class Upload
{
public:
    Upload( const FaultPlan& aRequests, const FaultPlan& aAnswers )
        : mServer( mNet, aRequests, aAnswers )
    {
        EXPECT_TRUE( mClient.Init( IpAddress( 0xC0A80107 ), "a.bin" ).IsOK() );
    }
    Upload()
        : Upload( { {}, 0 }, { {}, 0 } )
    {
    }

    unsigned int Run( const Bytes& aContent )
    {
        mResult = mClient.SendData( aContent.data(), static_cast<unsigned int>( aContent.size() ) );
        return mResult.GetCode();
    }

    std::string GetText() const { return mResult.GetDescription().GetAscii(); }

    // What the server has of it.
    const Bytes* GetFile() const { return mServer.mServer.FindFile( "a.bin" ); }

    void Disturb( Trouble aTrouble, uint64_t aFirst, uint64_t aCount = 1 )
    {
        VirtualTftpServer::Disturbance lDisturbance;
        lDisturbance.mTrouble = aTrouble;
        lDisturbance.mFirst = aFirst;
        lDisturbance.mCount = aCount;
        lDisturbance.mMessage = "Flash worn out";
        mServer.mServer.Disturb( lDisturbance );
    }

    ScriptedNetwork mNet;
    ScriptedTftpServer mServer;
    TftpClient mClient;
    Result mResult;
};

FaultPlan::Rates GetBadLine( double aLoss )
{
    FaultPlan::Rates lRates;
    lRates.mLoss = aLoss;
    lRates.mDuplicate = 0.10;
    lRates.mDelay = 0.10;
    lRates.mMaxDelayMs = 2500; // also beyond the client's time-out of 1000 ms
    lRates.mReorder = 0.02;
    lRates.mHoldMs = 1100;
    return lRates;
}

// How a run of uploads ended.
struct Tally
{
    int mArrived = 0;
    int mFailed = 0;
    FaultPlan::Counters mFaults; // of both directions, added up
};

void Add( FaultPlan::Counters* aSum, const FaultPlan::Counters& aPart )
{
    aSum->mLost += aPart.mLost;
    aSum->mDuplicated += aPart.mDuplicated;
    aSum->mDelayed += aPart.mDelayed;
    aSum->mReordered += aPart.mReordered;
}

// Each upload arrives whole or ends in a clear failure; never is other content there.
Tally RunUploads( int aCount, double aLoss )
{
    Tally lTally;
    for ( int lSeed = 1; lSeed <= aCount; ++lSeed )
    {
        const auto lNumber = static_cast<unsigned int>( lSeed );
        const Bytes lContent = Pattern( lNumber * 173 % 12000, lNumber );
        Upload lUpload( FaultPlan( GetBadLine( aLoss ), lNumber ),
                        FaultPlan( GetBadLine( aLoss ), lNumber + 1000 ) );
        const unsigned int lCode = lUpload.Run( lContent );
        if ( lCode == Result::OK )
        {
            ++lTally.mArrived;
            EXPECT_NE( lUpload.GetFile(), nullptr ) << "seed " << lSeed;
        }
        else
        {
            ++lTally.mFailed;
            EXPECT_EQ( lCode, FAILED ) << "seed " << lSeed;
            EXPECT_NE( lUpload.GetText(), "" ) << "seed " << lSeed;
        }
        // After a failure it may be there too, when only the last acknowledge got lost.
        EXPECT_TRUE( lUpload.GetFile() == nullptr || *lUpload.GetFile() == lContent )
            << "seed " << lSeed;
        Add( &lTally.mFaults, lUpload.mServer.mRequests.GetCounters() );
        Add( &lTally.mFaults, lUpload.mServer.mAnswers.GetCounters() );
    }
    return lTally;
}

} // namespace

TEST( TftpUpload, ArrivesOverAGoodNetworkWithoutRepetition )
{
    for ( const std::size_t lSize : { 0U, 1U, 511U, 512U, 513U, 1024U, 5000U } )
    {
        const Bytes lContent = Pattern( lSize );
        Upload lUpload;
        const long long lStart = VirtualClock::Now();
        EXPECT_EQ( lUpload.Run( lContent ), Result::OK );
        ASSERT_NE( lUpload.GetFile(), nullptr );
        EXPECT_EQ( *lUpload.GetFile(), lContent );
        EXPECT_EQ( lUpload.mNet.GetSends().size(), 1 + lSize / 512 + 1 );
        EXPECT_EQ( lUpload.mServer.mServer.GetCounters().mRepeated, 0U );
        EXPECT_EQ( lUpload.mServer.mServer.GetCounters().mDropped, 0U );
        EXPECT_EQ( VirtualClock::Now(), lStart );
    }
}

// Two of these seeds fail: the offer was repeated, and a late answer to one of the offers drew the
// client to a session that has none of the blocks before.
TEST( TftpUpload, HundredUploadsOverABadNetworkArriveWholeOrFailClearly )
{
    const Tally lTally = RunUploads( 100, 0.10 );
    EXPECT_EQ( lTally.mArrived, 98 );
    EXPECT_EQ( lTally.mFailed, 2 );
    EXPECT_GT( lTally.mFaults.mLost, 200U );
    EXPECT_GT( lTally.mFaults.mDuplicated, 200U );
    EXPECT_GT( lTally.mFaults.mDelayed, 200U );
    EXPECT_GT( lTally.mFaults.mReordered, 30U );
}

TEST( TftpUpload, UploadsOverAWorseNetworkArriveWholeOrFailClearly )
{
    const Tally lTally = RunUploads( 100, 0.60 );
    EXPECT_GT( lTally.mArrived, 10 );
    EXPECT_GT( lTally.mFailed, 10 );
}

TEST( TftpUpload, SurvivesSilenceAtEveryAnswer )
{
    const Bytes lContent = Pattern( UPLOAD_SIZE );
    for ( unsigned int lAnswer = 0; lAnswer < ANSWERS; ++lAnswer )
    {
        Upload lUpload;
        lUpload.Disturb( Trouble::SILENCE, lAnswer, 20 );
        const long long lStart = VirtualClock::Now();
        EXPECT_EQ( lUpload.Run( lContent ), Result::OK ) << lAnswer;
        EXPECT_EQ( VirtualClock::Now() - lStart, 20000 );
        ASSERT_NE( lUpload.GetFile(), nullptr );
        EXPECT_EQ( *lUpload.GetFile(), lContent );
    }
}

TEST( TftpUpload, FailsIfTheServerStopsAnswering )
{
    const Bytes lContent = Pattern( UPLOAD_SIZE );
    for ( unsigned int lAnswer = 0; lAnswer < ANSWERS; ++lAnswer )
    {
        Upload lUpload;
        lUpload.Disturb( Trouble::SILENCE, lAnswer, VirtualTftpServer::FOR_EVER );
        const long long lStart = VirtualClock::Now();
        EXPECT_EQ( lUpload.Run( lContent ), FAILED ) << lAnswer;
        EXPECT_EQ( VirtualClock::Now() - lStart, 21000 );
        // Only the last acknowledge is missing when all blocks have arrived.
        EXPECT_EQ( lUpload.GetFile() != nullptr, lAnswer == ANSWERS - 1 );
    }
}

TEST( TftpUpload, ErrorAtEveryAnswerEndsItWithTheServersMessage )
{
    const Bytes lContent = Pattern( UPLOAD_SIZE );
    for ( unsigned int lAnswer = 0; lAnswer < ANSWERS; ++lAnswer )
    {
        Upload lUpload;
        lUpload.Disturb( Trouble::ERROR_PACKET, lAnswer );
        EXPECT_EQ( lUpload.Run( lContent ), FAILED ) << lAnswer;
        EXPECT_EQ( lUpload.GetText(), "Flash worn out" );
        EXPECT_EQ( lUpload.mNet.GetSends().size(), lAnswer + 1 );
    }
}

TEST( TftpUpload, SurvivesADuplicateAcknowledgeAtEveryAnswer )
{
    const Bytes lContent = Pattern( UPLOAD_SIZE );
    for ( unsigned int lAnswer = 0; lAnswer < ANSWERS; ++lAnswer )
    {
        Upload lUpload;
        lUpload.Disturb( Trouble::DUPLICATE, lAnswer );
        EXPECT_EQ( lUpload.Run( lContent ), Result::OK ) << lAnswer;
        ASSERT_NE( lUpload.GetFile(), nullptr );
        EXPECT_EQ( *lUpload.GetFile(), lContent );
    }
}

// A duplicate costs one repetition of each block from there on: each repeated block brings another
// duplicate.
TEST( TftpUpload, DuplicateAcknowledgeRepeatsEachFurtherBlockOnce )
{
    Upload lUpload;
    lUpload.Disturb( Trouble::DUPLICATE, 0 );
    EXPECT_EQ( lUpload.Run( Pattern( UPLOAD_SIZE ) ), Result::OK );
    EXPECT_EQ( lUpload.mNet.GetSends().size(), 1U + 2U * 5U );
}

TEST( TftpUpload, SurvivesAWrongBlockNumberAtEveryAnswer )
{
    const Bytes lContent = Pattern( UPLOAD_SIZE );
    for ( unsigned int lAnswer = 0; lAnswer < ANSWERS; ++lAnswer )
    {
        Upload lUpload;
        lUpload.Disturb( Trouble::WRONG_BLOCK, lAnswer );
        EXPECT_EQ( lUpload.Run( lContent ), Result::OK ) << lAnswer;
        ASSERT_NE( lUpload.GetFile(), nullptr );
        EXPECT_EQ( *lUpload.GetFile(), lContent );
        // The offer is taken by an acknowledge of any number.
        EXPECT_EQ( lUpload.mNet.GetSends().size(), ANSWERS + ( lAnswer == 0 ? 0U : 1U ) );
    }
}

TEST( TftpUpload, SendsToThePortOfAnAnswerFromAForeignPort )
{
    const Bytes lContent = Pattern( UPLOAD_SIZE );
    for ( unsigned int lAnswer = 0; lAnswer + 1 < ANSWERS; ++lAnswer )
    {
        Upload lUpload;
        lUpload.Disturb( Trouble::FOREIGN_PORT, lAnswer );
        EXPECT_EQ( lUpload.Run( lContent ), FAILED ) << lAnswer;
        EXPECT_EQ( lUpload.GetText(), "Unknown transfer ID" );
        EXPECT_EQ( lUpload.mNet.GetSends().back().mTo.mPort, 40069 );
        EXPECT_EQ( lUpload.GetFile(), nullptr );
    }
}

TEST( TftpUpload, AbortedUploadPublishesNothing )
{
    const Bytes lContent = Pattern( UPLOAD_SIZE );
    Upload lUpload;
    lUpload.mNet.Observe(
        [&]( const std::string& /*aCall*/ )
        {
            if ( lUpload.mNet.GetSends().size() == 4 )
            {
                EXPECT_TRUE( lUpload.mClient.Abort().IsOK() );
            }
        } );
    EXPECT_EQ( lUpload.Run( lContent ), ABORTED );
    EXPECT_EQ( lUpload.GetFile(), nullptr );
    EXPECT_EQ( lUpload.mServer.mServer.GetCounters().mWriteRequests, 1U );
}

TEST( TftpUpload, SecondUploadReplacesTheFirst )
{
    Upload lUpload;
    EXPECT_EQ( lUpload.Run( Pattern( 2000, 1 ) ), Result::OK );
    EXPECT_EQ( lUpload.Run( Pattern( 700, 2 ) ), Result::OK );
    EXPECT_EQ( *lUpload.GetFile(), Pattern( 700, 2 ) );
    EXPECT_EQ( lUpload.mServer.mServer.GetCounters().mPublished, 2U );
}

TEST( TftpDownload, FetchesTheFirstBlockFromTheVirtualServer )
{
    for ( const std::size_t lSize : { 0U, 1U, 511U, 512U, 513U, 2000U } )
    {
        const Bytes lContent = Pattern( lSize );
        Upload lTalk;
        lTalk.mServer.mServer.SetFile( "a.bin", lContent );
        Bytes lBuffer( 600, 0xEE );
        unsigned int lCount = 600;
        EXPECT_EQ( lTalk.mClient.GetData( lBuffer.data(), lCount ).GetCode(), Result::OK );
        EXPECT_EQ( lCount, std::min<std::size_t>( lSize, 512 ) );
        EXPECT_TRUE( std::equal( lBuffer.begin(), lBuffer.begin() + lCount, lContent.begin() ) );
    }
}

TEST( TftpDownload, ReportsThatTheServerHasNoSuchFile )
{
    Upload lTalk;
    unsigned int lCount = 0;
    const Result lResult = lTalk.mClient.GetData( nullptr, lCount );
    EXPECT_EQ( lResult.GetCode(), FAILED );
    EXPECT_STREQ( lResult.GetDescription().GetAscii(), "File not found" );
}

TEST( TftpDownload, AsksAgainUntilTheServerAnswers )
{
    const Bytes lContent = Pattern( 300 );
    Upload lTalk;
    lTalk.mServer.mServer.SetFile( "a.bin", lContent );
    lTalk.Disturb( Trouble::SILENCE, 0, 20 );
    Bytes lBuffer( 600, 0xEE );
    unsigned int lCount = 600;
    EXPECT_EQ( lTalk.mClient.GetData( lBuffer.data(), lCount ).GetCode(), Result::OK );
    EXPECT_EQ( lCount, 300U );
    EXPECT_EQ( lTalk.mServer.mServer.GetCounters().mReadRequests, 21U );
}
