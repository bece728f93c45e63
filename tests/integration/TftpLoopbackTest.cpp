// The TFTP client against the virtual server over real sockets, in real time, and from several
// threads at once.

#include "tests/support/LoopbackTftpServer.h"
#include "tests/support/NetworkNamespace.h"
#include "tests/support/TftpBytes.h"

#include <HtTftpClient.h>
#include <QmUtilsLib/Thread.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

namespace
{

using QmUtilsLib::Thread;
using Simulators::DeviceServer;
using Simulators::FaultPlan;
using Simulators::VirtualTftpServer;
using testing::AnyOf;
using TestSupport::Bytes;
using TestSupport::LoopbackTftpServer;
using TestSupport::Pattern;

constexpr unsigned int OK = 0x0000;
constexpr unsigned int ABORTED = 0x0001;
constexpr unsigned int FAILED = 0x0013;
constexpr unsigned int NO_WARNING = 0x0015;
constexpr unsigned int BUSY = 0x001C;
constexpr unsigned int NOT_INITIALIZED = 0x0605;
constexpr unsigned int PENDING = 0xFFFF;

// Every test has a network of its own, or this machine's port 69 to itself.
class TftpLoopback : public testing::Test
{
protected:
    void SetUp() override
    {
        const std::string lReason = TestSupport::EnterTftpNetwork();
        if ( !lReason.empty() )
        {
            GTEST_SKIP() << lReason;
        }
        ASSERT_TRUE( mClient.Init( LoopbackTftpServer::ADDRESS, "a.bin" ).IsOK() );
    }

    HtResult Send( const Bytes& aContent )
    {
        return mClient.SendData( aContent.data(), static_cast<unsigned int>( aContent.size() ) );
    }

    // Waits until a transfer runs; false when none does in time.
    bool WaitForPending()
    {
        const long long lDeadline = Thread::GetTickCount() + 20000;
        while ( mClient.GetTransferResult().GetCode() != PENDING )
        {
            if ( Thread::GetTickCount() > lDeadline )
            {
                return false;
            }
            std::this_thread::yield();
        }
        return true;
    }

    HtTftpClient mClient;
};

// A line where every answer is late, so that a transfer takes its time.
DeviceServer::Options GetSlowLine()
{
    FaultPlan::Rates lRates;
    lRates.mDelay = 1.0;
    lRates.mMaxDelayMs = 4;
    DeviceServer::Options lOptions;
    lOptions.mAnswerFaults = FaultPlan( lRates, 1 );
    return lOptions;
}

// Watches a client from another thread until it is stopped.
class Watcher
{
public:
    explicit Watcher( HtTftpClient* aClient )
        : mClient( aClient )
        , mThread( [this] { Run(); } )
    {
    }
    ~Watcher() { Stop(); }

    Watcher( const Watcher& ) = delete;
    Watcher& operator=( const Watcher& ) = delete;

    void Stop()
    {
        mStop.store( true );
        if ( mThread.joinable() )
        {
            mThread.join();
        }
    }

    // After Stop.
    unsigned long long mWarnings = 0;
    std::vector<std::string> mComplaints;

private:
    void Run()
    {
        do
        {
            LookAtProgress();
            LookAtResult();
            LookAtWarnings();
        } while ( !mStop.load() );
    }

    void LookAtProgress()
    {
        long long lDone = -1;
        long long lTotal = -1;
        const HtResult lResult = mClient->GetProgress( lDone, lTotal );
        if ( lResult.IsOK() ? ( lDone < 0 || lDone > lTotal ) : ( lDone != -1 || lTotal != -1 ) )
        {
            mComplaints.push_back( "progress: " + std::to_string( lDone ) + " of " +
                                   std::to_string( lTotal ) );
        }
    }

    void LookAtResult()
    {
        const HtResult lResult = mClient->GetTransferResult();
        const unsigned int lCode = lResult.GetCode();
        const std::string lText = lResult.GetDescription().GetAscii();
        const bool lIsFailure = lCode == FAILED && lText == "Flash worn out";
        const bool lIsOther =
            ( lCode == OK || lCode == PENDING || lCode == NOT_INITIALIZED ) && lText.empty();
        if ( !lIsFailure && !lIsOther )
        {
            mComplaints.push_back( "result: " + std::to_string( lCode ) + " " + lText );
        }
    }

    void LookAtWarnings()
    {
        HtString lText;
        const HtResult lResult = mClient->GetWarning( lText );
        mWarnings += lResult.IsOK() ? 1 : 0;
        if ( lResult.IsOK() != ( lText.GetLength() != 0 ) ||
             ( !lResult.IsOK() && lResult.GetCode() != NO_WARNING ) )
        {
            mComplaints.push_back( std::string( "warning: " ) + lText.GetAscii() );
        }
    }

    HtTftpClient* const mClient;
    std::atomic<bool> mStop{ false };
    std::thread mThread;
};

} // namespace

TEST_F( TftpLoopback, UploadsArrive )
{
    LoopbackTftpServer lServer;
    ASSERT_TRUE( lServer.GetOpened().IsOK() );
    for ( const std::size_t lSize : { 0U, 1U, 511U, 512U, 513U, 1024U, 200000U } )
    {
        const Bytes lContent = Pattern( lSize );
        EXPECT_EQ( Send( lContent ).GetCode(), OK );
        EXPECT_EQ( lServer.GetFile( "a.bin" ), lContent );
    }
}

TEST_F( TftpLoopback, FirstBlockIsFetched )
{
    LoopbackTftpServer lServer;
    ASSERT_TRUE( lServer.GetOpened().IsOK() );
    const Bytes lContent = Pattern( 700 );
    lServer.Access( [&]( VirtualTftpServer& aServer ) { aServer.SetFile( "a.bin", lContent ); } );
    Bytes lBuffer( 600, 0xEE );
    unsigned int lReceived = 0;
    EXPECT_EQ( mClient.GetData( lBuffer.data(), 600, &lReceived ).GetCode(), OK );
    EXPECT_EQ( lReceived, 512U );
    EXPECT_TRUE( std::equal( lBuffer.begin(), lBuffer.begin() + 512, lContent.begin() ) );
}

TEST_F( TftpLoopback, UploadsOverABadNetworkArriveWholeOrFailClearly )
{
    for ( unsigned int lSeed = 1; lSeed <= 5; ++lSeed )
    {
        FaultPlan::Rates lRates;
        lRates.mLoss = 0.10;
        lRates.mDuplicate = 0.10;
        lRates.mDelay = 0.10;
        lRates.mMaxDelayMs = 1200;
        DeviceServer::Options lOptions;
        lOptions.mRequestFaults = FaultPlan( lRates, lSeed );
        lOptions.mAnswerFaults = FaultPlan( lRates, lSeed + 100 );
        LoopbackTftpServer lServer( lOptions );
        ASSERT_TRUE( lServer.GetOpened().IsOK() );
        const Bytes lContent = Pattern( 2000, lSeed );
        const HtResult lResult = Send( lContent );
        if ( lResult.GetCode() == OK )
        {
            EXPECT_EQ( lServer.GetFile( "a.bin" ), lContent ) << lSeed;
            continue;
        }
        EXPECT_EQ( lResult.GetCode(), FAILED ) << lSeed;
        EXPECT_GT( lResult.GetDescription().GetLength(), 0U ) << lSeed;
    }
}

TEST_F( TftpLoopback, OtherThreadsSeeValidValuesDuringTransfers )
{
    LoopbackTftpServer lServer;
    ASSERT_TRUE( lServer.GetOpened().IsOK() );
    // Now and then the server fails, or makes the client warn.
    for ( uint64_t lFirst = 50; lFirst < 5000; lFirst += 100 )
    {
        VirtualTftpServer::Disturbance lWrong;
        lWrong.mTrouble = VirtualTftpServer::Trouble::WRONG_BLOCK;
        lWrong.mFirst = lFirst;
        lWrong.mCount = 6;
        VirtualTftpServer::Disturbance lError;
        lError.mTrouble = VirtualTftpServer::Trouble::ERROR_PACKET;
        lError.mFirst = lFirst + 30;
        lError.mMessage = "Flash worn out";
        lServer.Access(
            [&]( VirtualTftpServer& aServer )
            {
                aServer.Disturb( lWrong );
                aServer.Disturb( lError );
            } );
    }
    Watcher lFirst( &mClient );
    Watcher lSecond( &mClient );
    int lFailed = 0;
    int lSucceeded = 0;
    unsigned long long lLeft = 0; // warnings that the watchers have not taken
    for ( int lRound = 0; lRound < 60; ++lRound )
    {
        const Bytes lContent = Pattern( 30000, static_cast<unsigned int>( lRound ) );
        const unsigned int lCode = Send( lContent ).GetCode();
        lFailed += lCode == FAILED ? 1 : 0;
        lSucceeded += lCode == OK ? 1 : 0;
        EXPECT_THAT( lCode, AnyOf( OK, FAILED ) );
        EXPECT_EQ( mClient.GetTransferResult().GetCode(), lCode );
        HtString lWarning;
        while ( mClient.GetWarning( lWarning ).IsOK() )
        {
            ++lLeft;
        }
    }
    lFirst.Stop();
    lSecond.Stop();
    EXPECT_GT( lFailed, 0 );
    EXPECT_GT( lSucceeded, 0 );
    EXPECT_GT( lFirst.mWarnings + lSecond.mWarnings + lLeft, 0U );
    EXPECT_THAT( lFirst.mComplaints, testing::IsEmpty() );
    EXPECT_THAT( lSecond.mComplaints, testing::IsEmpty() );
}

TEST_F( TftpLoopback, AbortFromAnotherThreadEndsAnUpload )
{
    LoopbackTftpServer lServer( GetSlowLine() );
    ASSERT_TRUE( lServer.GetOpened().IsOK() );
    const Bytes lContent = Pattern( 20000000 ); // minutes, at this pace
    unsigned int lAborted = 0xDEAD;
    std::thread lOther(
        [&]
        {
            EXPECT_TRUE( WaitForPending() );
            long long lDone = 0;
            long long lTotal = 0;
            while ( lDone < 5 * 512 && mClient.GetProgress( lDone, lTotal ).IsOK() )
            {
                std::this_thread::yield();
            }
            lAborted = mClient.Abort().GetCode();
        } );
    const unsigned int lCode = Send( lContent ).GetCode();
    lOther.join();
    EXPECT_EQ( lAborted, OK );
    EXPECT_EQ( lCode, ABORTED );
    EXPECT_EQ( mClient.GetTransferResult().GetCode(), PENDING );
    EXPECT_TRUE( lServer.GetFile( "a.bin" ).empty() );
    EXPECT_EQ( Send( Pattern( 700 ) ).GetCode(), OK ); // the client is free again
}

TEST_F( TftpLoopback, AbortEndsTheWaitForASilentServerWithinOneWait )
{
    // No program listens.
    long long lAbortedAt = 0;
    std::thread lOther(
        [&]
        {
            EXPECT_TRUE( WaitForPending() );
            EXPECT_EQ( mClient.Abort().GetCode(), OK );
            lAbortedAt = Thread::GetTickCount();
        } );
    const unsigned int lCode = Send( Pattern( 10 ) ).GetCode();
    lOther.join();
    EXPECT_EQ( lCode, ABORTED );
    // One wait of 1000 ms, and what a busy machine adds; far from the 21 of an answerless server.
    EXPECT_LT( Thread::GetTickCount() - lAbortedAt, 10000 );
}

TEST_F( TftpLoopback, OfTwoTransfersAtOnceOneIsRefused )
{
    LoopbackTftpServer lServer( GetSlowLine() );
    ASSERT_TRUE( lServer.GetOpened().IsOK() );
    const Bytes lContent = Pattern( 3000 );
    int lRefused = 0;
    for ( int lRound = 0; lRound < 20; ++lRound )
    {
        std::atomic<int> lReady{ 0 };
        unsigned int lCodes[2] = { 0xDEAD, 0xDEAD };
        const auto lRun = [&]( unsigned int* aCode )
        {
            ++lReady;
            while ( lReady.load() < 2 )
            {
            }
            *aCode = Send( lContent ).GetCode();
        };
        std::thread lOther( lRun, &lCodes[1] );
        lRun( &lCodes[0] );
        lOther.join();
        // One may also have ended before the other began.
        EXPECT_THAT( lCodes[0], AnyOf( OK, BUSY ) );
        EXPECT_THAT( lCodes[1], AnyOf( OK, BUSY ) );
        EXPECT_FALSE( lCodes[0] == BUSY && lCodes[1] == BUSY );
        lRefused += lCodes[0] == BUSY || lCodes[1] == BUSY ? 1 : 0;
        EXPECT_EQ( lServer.GetFile( "a.bin" ), lContent );
    }
    EXPECT_GT( lRefused, 0 );
}
