// Links under several threads, over real sockets on loopback.

#include "tests/support/CannedResponder.h"
#include "tests/support/TestLinkGEV.h"

#include <QmUtilsLib/Thread.h>
#include <SimpleCommandLinkGEV.h>
#include <WdUtilsLib/Network/IpAddress.h>
#include <WdUtilsLib/Network/SocketUDP.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <future>
#include <thread>

namespace
{

using namespace TestSupport;
using HtBaseLib::SimpleCommandLinkGEV;
using WdUtilsLib::Network::IpAddress;
using WdUtilsLib::Network::SocketUDP;

// How long something is watched that must not happen, and how long something may take at most that
// must.
constexpr int WATCH_MS = 50;
constexpr int PATIENCE_MS = 20000;
constexpr std::chrono::milliseconds PATIENCE( PATIENCE_MS );

// The acknowledge of a READREG whose value is the address that was asked for.
Bytes MakeAcknowledge( const Bytes& aRequest )
{
    return Packet( {
        { 0x00, 0x00 },                         // status: success
        { 0x00, 0x81 },                         // acknowledge: READREG
        { 0x00, 0x04 },                         // length
        { aRequest.at( 6 ), aRequest.at( 7 ) }, // acknowledge identifier
        Bytes( aRequest.begin() + 8, aRequest.begin() + 12 ),
    } );
}

// A connected socket and a link with long time-outs, so that a slow machine causes no retry.
template <typename LINK>
struct Connected
{
    explicit Connected( const CannedResponder& aResponder )
        : mLink( &mSocket )
    {
        EXPECT_TRUE( mSocket.Open().IsOK() );
        EXPECT_TRUE( mSocket.Connect( IpAddress( 0x7F000001 ), aResponder.GetPort() ).IsOK() );
    }

    SocketUDP mSocket;
    LINK mLink;
};

class PatientLink : public SimpleCommandLinkGEV
{
public:
    using SimpleCommandLinkGEV::GetRequestID;
    using SimpleCommandLinkGEV::LockMutex;
    using SimpleCommandLinkGEV::ReleaseMutex;
    using SimpleCommandLinkGEV::SimpleCommandLinkGEV;

protected:
    int GetAnswerTimeout() const override { return PATIENCE_MS; }
};

// Reads aCount registers and returns how many gave what they should.
int ReadMany( PatientLink& aLink, unsigned int aFirst, unsigned int aCount )
{
    int lGood = 0;
    for ( unsigned int lRead = 0; lRead < aCount; ++lRead )
    {
        const unsigned int lAddress = aFirst + 4 * lRead;
        unsigned int lValue = 0;
        lGood += aLink.ReadRegister( &lValue, lAddress ).IsOK() && lValue == lAddress ? 1 : 0;
    }
    return lGood;
}

TEST( LinkThreads, NeverHaveTwoOutstandingRequestsOnOneLink )
{
    constexpr unsigned int READS = 40;
    std::atomic<int> lInterleaved{ 0 };
    const CannedResponder* lSelf = nullptr;
    std::promise<void> lReady;
    std::shared_future<void> lIsReady = lReady.get_future().share();
    const CannedResponder lResponder(
        [&lInterleaved, &lSelf, lIsReady]( const Bytes& aRequest )
        {
            lIsReady.wait();
            lInterleaved += lSelf->HasRequest( 2 ) ? 1 : 0; // before this one is answered
            return std::vector<Bytes>{ MakeAcknowledge( aRequest ) };
        } );
    lSelf = &lResponder;
    lReady.set_value();
    Connected<PatientLink> lOne( lResponder );

    std::future<int> lOther =
        std::async( std::launch::async, [&lOne] { return ReadMany( lOne.mLink, 0x1000, READS ); } );
    EXPECT_EQ( ReadMany( lOne.mLink, 0x8000, READS ), static_cast<int>( READS ) );
    EXPECT_EQ( lOther.get(), static_cast<int>( READS ) );
    EXPECT_EQ( lInterleaved, 0 );
    EXPECT_EQ( lResponder.GetRequests().size(), 2U * READS );
    EXPECT_EQ( lOne.mLink.GetRetriesCount(), 0 );
}

TEST( LinkThreads, HoldTheMutexUntilTheAnswerIsThere )
{
    std::atomic<bool> lAnswered{ false };
    std::promise<void> lAsked;
    const CannedResponder lResponder(
        [&lAnswered, &lAsked]( const Bytes& aRequest )
        {
            lAsked.set_value();
            std::this_thread::sleep_for( std::chrono::milliseconds( WATCH_MS ) );
            lAnswered = true;
            return std::vector<Bytes>{ MakeAcknowledge( aRequest ) };
        } );
    Connected<PatientLink> lOne( lResponder );
    std::future<int> lReader =
        std::async( std::launch::async, [&lOne] { return ReadMany( lOne.mLink, 0x0A00, 1 ); } );
    ASSERT_EQ( lAsked.get_future().wait_for( PATIENCE ), std::future_status::ready );
    lOne.mLink.LockMutex();
    EXPECT_TRUE( lAnswered );
    lOne.mLink.ReleaseMutex();
    EXPECT_EQ( lReader.get(), 1 );
}

// Nothing leaves aLink while aHolder's mutex is held by another thread.
void ExpectHeldBack( const CannedResponder& aResponder, PatientLink& aLink, PatientLink& aHolder )
{
    aHolder.LockMutex();
    std::future<int> lReader =
        std::async( std::launch::async, [&aLink] { return ReadMany( aLink, 0x0A00, 1 ); } );
    EXPECT_EQ( lReader.wait_for( std::chrono::milliseconds( WATCH_MS ) ),
               std::future_status::timeout );
    EXPECT_TRUE( aResponder.GetRequests().empty() );
    aHolder.ReleaseMutex();
    EXPECT_EQ( lReader.get(), 1 );
    EXPECT_EQ( aResponder.GetRequests().size(), 1U );
}

std::vector<Bytes> AnswerOnce( const Bytes& aRequest )
{
    return { MakeAcknowledge( aRequest ) };
}

TEST( LinkThreads, SendNothingWhileAnotherThreadHoldsTheMutex )
{
    const CannedResponder lResponder( AnswerOnce );
    Connected<PatientLink> lOne( lResponder );
    ExpectHeldBack( lResponder, lOne.mLink, lOne.mLink );
}

TEST( LinkThreads, SendNothingWhileAnotherThreadHoldsTheMutexOfACopy )
{
    const CannedResponder lResponder( AnswerOnce );
    Connected<PatientLink> lOne( lResponder );
    PatientLink lCopy( lOne.mLink );
    ExpectHeldBack( lResponder, lOne.mLink, lCopy );
}

TEST( LinkThreads, SendNothingWhileAnotherThreadHoldsTheMutexOfAnAssignedLink )
{
    const CannedResponder lResponder( AnswerOnce );
    Connected<PatientLink> lOne( lResponder );
    PatientLink lAssigned( nullptr );
    lAssigned = lOne.mLink;
    ExpectHeldBack( lResponder, lAssigned, lOne.mLink );
}

// Assigning.

TEST( LinkThreads, AssigningWaitsForTheTransactionOfTheTarget )
{
    std::promise<void> lAsked;
    std::promise<void> lMayAnswer;
    const CannedResponder lOld(
        [&lAsked, &lMayAnswer]( const Bytes& aRequest )
        {
            lAsked.set_value();
            lMayAnswer.get_future().wait();
            return std::vector<Bytes>{ MakeAcknowledge( aRequest ) };
        } );
    const CannedResponder lNew( AnswerOnce );
    Connected<PatientLink> lTarget( lOld );
    const Connected<PatientLink> lSource( lNew );
    std::future<int> lReader = std::async( std::launch::async, [&lTarget]
                                           { return ReadMany( lTarget.mLink, 0x0A00, 1 ); } );
    EXPECT_EQ( lAsked.get_future().wait_for( PATIENCE ), std::future_status::ready );

    std::future<void> lAssigner =
        std::async( std::launch::async, [&lTarget, &lSource] { lTarget.mLink = lSource.mLink; } );
    EXPECT_EQ( lAssigner.wait_for( std::chrono::milliseconds( WATCH_MS ) ),
               std::future_status::timeout );
    lMayAnswer.set_value();
    EXPECT_EQ( lReader.get(), 1 );
    lAssigner.get();
    EXPECT_TRUE( lNew.GetRequests().empty() );
    EXPECT_EQ( ReadMany( lTarget.mLink, 0x0B00, 1 ), 1 );
    EXPECT_EQ( lOld.GetRequests().size(), 1U );
    EXPECT_EQ( lNew.GetRequests().size(), 1U );
}

TEST( LinkThreads, CopyingAndAssigningDoNotWaitForTheTransactionOfTheSource )
{
    std::promise<void> lAsked;
    std::promise<void> lMayAnswer;
    const CannedResponder lResponder(
        [&lAsked, &lMayAnswer]( const Bytes& aRequest )
        {
            lAsked.set_value();
            lMayAnswer.get_future().wait();
            return std::vector<Bytes>{ MakeAcknowledge( aRequest ) };
        } );
    Connected<PatientLink> lSource( lResponder );
    std::future<int> lReader = std::async( std::launch::async, [&lSource]
                                           { return ReadMany( lSource.mLink, 0x0A00, 1 ); } );
    EXPECT_EQ( lAsked.get_future().wait_for( PATIENCE ), std::future_status::ready );
    std::future<void> lCopier = std::async( std::launch::async,
                                            [&lSource]
                                            {
                                                const PatientLink lCopy( lSource.mLink );
                                                PatientLink lAssigned( nullptr );
                                                lAssigned = lSource.mLink;
                                            } );
    EXPECT_EQ( lCopier.wait_for( PATIENCE / 2 ), std::future_status::ready );
    lMayAnswer.set_value();
    EXPECT_EQ( lReader.get(), 1 );
}

// Returns whether the assignment came before the read. The two wait for the same mutex, and which
// of them gets it first is not in the test's hands.
bool AssignsAheadOfARead()
{
    const CannedResponder lOld( AnswerOnce );
    const CannedResponder lNew( AnswerOnce );
    Connected<PatientLink> lTarget( lOld );
    Connected<PatientLink> lSource( lNew );
    lTarget.mLink.LockMutex();
    lSource.mLink.LockMutex();
    std::future<void> lAssigner =
        std::async( std::launch::async, [&lTarget, &lSource] { lTarget.mLink = lSource.mLink; } );
    EXPECT_EQ( lAssigner.wait_for( std::chrono::milliseconds( WATCH_MS ) ),
               std::future_status::timeout );
    std::future<int> lReader = std::async( std::launch::async, [&lTarget]
                                           { return ReadMany( lTarget.mLink, 0x0A00, 1 ); } );
    EXPECT_EQ( lReader.wait_for( std::chrono::milliseconds( WATCH_MS ) ),
               std::future_status::timeout );
    lTarget.mLink.ReleaseMutex();
    lAssigner.get();
    const bool lIsAhead =
        lReader.wait_for( std::chrono::milliseconds( WATCH_MS ) ) == std::future_status::timeout;
    // It waits for the mutex of the new socket, which is held here.
    EXPECT_TRUE( lNew.GetRequests().empty() );
    lSource.mLink.ReleaseMutex();
    EXPECT_EQ( lReader.get(), 1 );
    EXPECT_EQ( lOld.GetRequests().size(), lIsAhead ? 0U : 1U );
    EXPECT_EQ( lNew.GetRequests().size(), lIsAhead ? 1U : 0U );
    return lIsAhead;
}

TEST( LinkThreads, AThreadThatWaitsDuringAnAssignmentTakesTheNewMutex )
{
    bool lIsAhead = false;
    for ( int lRound = 0; lRound < 50 && !lIsAhead; ++lRound )
    {
        lIsAhead = AssignsAheadOfARead();
    }
    EXPECT_TRUE( lIsAhead );
}

// Another thread's attempt to have the link's mutex.
class Attempt
{
public:
    explicit Attempt( PatientLink& aLink )
        : mDone( std::async( std::launch::async,
                             [&aLink]
                             {
                                 aLink.LockMutex();
                                 aLink.ReleaseMutex();
                             } ) )
    {
    }

    bool Succeeds() const { return mDone.wait_for( PATIENCE ) == std::future_status::ready; }
    bool MustWait() const
    {
        return mDone.wait_for( std::chrono::milliseconds( WATCH_MS ) ) ==
               std::future_status::timeout;
    }

private:
    const std::future<void> mDone;
};

TEST( LinkThreads, AThreadThatHoldsTheMutexOfALinkStillHoldsItAfterAssigning )
{
    PatientLink lSource( nullptr );
    PatientLink lLink( nullptr );
    PatientLink lCopy( lLink );
    lLink.LockMutex();
    lLink.LockMutex();
    lLink = lSource;
    EXPECT_TRUE( Attempt( lCopy ).Succeeds() ); // which has the mutex from before
    const Attempt lOfLink( lLink );
    const Attempt lOfSource( lSource );
    EXPECT_TRUE( lOfLink.MustWait() );
    lLink.ReleaseMutex();
    EXPECT_TRUE( lOfLink.MustWait() );
    EXPECT_TRUE( lOfSource.MustWait() );
    lLink.ReleaseMutex();
    EXPECT_TRUE( lOfLink.Succeeds() );
    EXPECT_TRUE( lOfSource.Succeeds() );
}

TEST( LinkThreads, AssigningALinkToItselfDoesNotWait )
{
    PatientLink lLink( nullptr );
    lLink.LockMutex();
    std::future<void> lAssigner = std::async( std::launch::async,
                                              [&lLink]
                                              {
                                                  const PatientLink& lItself = lLink;
                                                  lLink = lItself;
                                              } );
    EXPECT_EQ( lAssigner.wait_for( PATIENCE ), std::future_status::ready );
    lLink.ReleaseMutex();
}

// A device that counts the requests that arrived before the previous one was answered.
class WatchfulDevice
{
public:
    WatchfulDevice()
        : mResponder( [this]( const Bytes& aRequest ) { return Answer( aRequest ); } )
    {
        mReady.set_value( &mResponder );
    }

    int GetInterleaved() const { return mInterleaved; }
    const CannedResponder& GetResponder() const { return mResponder; }

private:
    std::vector<Bytes> Answer( const Bytes& aRequest )
    {
        mInterleaved += mIsReady.get()->HasRequest( 1 ) ? 1 : 0;
        return { MakeAcknowledge( aRequest ) };
    }

    std::atomic<int> mInterleaved{ 0 };
    std::promise<const CannedResponder*> mReady;
    std::shared_future<const CannedResponder*> mIsReady = mReady.get_future().share();
    const CannedResponder mResponder;
};

TEST( LinkThreads, MayBeAssignedToEachOtherAndCopiedWhileTheyAreUsed )
{
    constexpr unsigned int READS = 200;
    const WatchfulDevice lDeviceOne;
    const WatchfulDevice lDeviceTwo;
    const Connected<PatientLink> lOne( lDeviceOne.GetResponder() );
    const Connected<PatientLink> lTwo( lDeviceTwo.GetResponder() );
    PatientLink lLeft( lOne.mLink );
    PatientLink lRight( lTwo.mLink );
    std::atomic<bool> lRunning{ true };
    const auto lAssign =
        [&lRunning]( PatientLink& aLink, const PatientLink& aOther, const PatientLink& aHome )
    {
        int lCount = 0;
        for ( ; lRunning; ++lCount )
        {
            aLink = aOther;
            std::this_thread::yield();
            aLink = aHome;
            std::this_thread::yield();
        }
        return lCount;
    };
    std::future<int> lAssigners[] = {
        std::async( std::launch::async, [&] { return lAssign( lLeft, lRight, lOne.mLink ); } ),
        std::async( std::launch::async, [&] { return lAssign( lRight, lLeft, lTwo.mLink ); } ),
    };
    std::future<int> lCopier = std::async( std::launch::async,
                                           [&lRunning, &lLeft]
                                           {
                                               int lBad = 0;
                                               while ( lRunning )
                                               {
                                                   PatientLink lCopy( lLeft );
                                                   lBad += 1 - ReadMany( lCopy, 0x4000, 1 );
                                               }
                                               return lBad;
                                           } );
    std::future<int> lReader =
        std::async( std::launch::async, [&lLeft] { return ReadMany( lLeft, 0x1000, READS ); } );
    EXPECT_EQ( ReadMany( lRight, 0x8000, READS ), static_cast<int>( READS ) );
    EXPECT_EQ( lReader.get(), static_cast<int>( READS ) );
    lRunning = false;
    EXPECT_GT( lAssigners[0].get(), 0 );
    EXPECT_GT( lAssigners[1].get(), 0 );
    EXPECT_EQ( lCopier.get(), 0 );
    EXPECT_EQ( lDeviceOne.GetInterleaved(), 0 );
    EXPECT_EQ( lDeviceTwo.GetInterleaved(), 0 );
}

TEST( LinkThreads, RunDifferentLinksAtTheSameTime )
{
    // Each device answers only when the other one has been asked as well.
    std::promise<void> lAskedOne;
    std::promise<void> lAskedTwo;
    std::future<void> lIsAskedOne = lAskedOne.get_future();
    std::future<void> lIsAskedTwo = lAskedTwo.get_future();
    std::atomic<int> lMet{ 0 };
    const auto lMeet = [&lMet]( std::promise<void>& aMine, std::future<void>& aOther )
    {
        aMine.set_value();
        lMet += aOther.wait_for( PATIENCE / 2 ) == std::future_status::ready ? 1 : 0;
    };
    const CannedResponder lResponderOne(
        [&]( const Bytes& aRequest )
        {
            lMeet( lAskedOne, lIsAskedTwo );
            return std::vector<Bytes>{ MakeAcknowledge( aRequest ) };
        } );
    const CannedResponder lResponderTwo(
        [&]( const Bytes& aRequest )
        {
            lMeet( lAskedTwo, lIsAskedOne );
            return std::vector<Bytes>{ MakeAcknowledge( aRequest ) };
        } );
    Connected<PatientLink> lOne( lResponderOne );
    Connected<PatientLink> lTwo( lResponderTwo );
    std::future<int> lReader =
        std::async( std::launch::async, [&lTwo] { return ReadMany( lTwo.mLink, 0x1000, 1 ); } );
    EXPECT_EQ( ReadMany( lOne.mLink, 0x8000, 1 ), 1 );
    EXPECT_EQ( lReader.get(), 1 );
    EXPECT_EQ( lMet, 2 );
}

TEST( LinkThreads, ReadTheirOwnValuesAtTheSameTime )
{
    constexpr unsigned int READS = 300;
    const CannedResponder lResponderOne( AnswerOnce );
    const CannedResponder lResponderTwo( AnswerOnce );
    Connected<PatientLink> lOne( lResponderOne );
    Connected<PatientLink> lTwo( lResponderTwo );
    std::future<int> lReader =
        std::async( std::launch::async, [&lTwo] { return ReadMany( lTwo.mLink, 0x1000, READS ); } );
    EXPECT_EQ( ReadMany( lOne.mLink, 0x8000, READS ), static_cast<int>( READS ) );
    EXPECT_EQ( lReader.get(), static_cast<int>( READS ) );
    EXPECT_EQ( lResponderOne.GetRequests().size(), READS );
    EXPECT_EQ( lResponderTwo.GetRequests().size(), READS );
}

TEST( LinkThreads, DrawIdentifiersFromOneCounterWithoutLosingAny )
{
    // Together they draw 16 periods of the counter, which runs from 1 to 0xFFFF: its low 12 bits
    // come by 16 times in each, but 0 only 15 times.
    constexpr int DRAWS = 8 * 0xFFFF;
    std::atomic<int> lThere{ 0 };
    const auto lDraw = [&lThere]
    {
        PatientLink lLink( nullptr );
        std::vector<int> lDrawn( 0x1000, 0 );
        ++lThere;
        while ( lThere < 2 )
        {
            std::this_thread::yield();
        }
        for ( int lCount = 0; lCount < DRAWS; ++lCount )
        {
            ++lDrawn.at( static_cast<std::size_t>( lLink.GetRequestID() - 0xB000 ) );
        }
        return lDrawn;
    };
    std::future<std::vector<int>> lOther = std::async( std::launch::async, lDraw );
    const std::vector<int> lMine = lDraw();
    const std::vector<int> lTheirs = lOther.get();
    EXPECT_EQ( lMine[0] + lTheirs[0], 16 * 15 );
    for ( std::size_t lLowBits = 1; lLowBits < 0x1000; ++lLowBits )
    {
        ASSERT_EQ( lMine[lLowBits] + lTheirs[lLowBits], 16 * 16 ) << lLowBits;
    }
}

TEST( LinkThreads, LetCountersBeReadAndResetInTheMiddleOfATransaction )
{
    std::promise<void> lAsked;
    std::promise<void> lDone;
    std::atomic<bool> lWaited{ false };
    const CannedResponder lResponder(
        [&]( const Bytes& aRequest )
        {
            lAsked.set_value();
            lWaited = lDone.get_future().wait_for( PATIENCE / 2 ) == std::future_status::ready;
            return std::vector<Bytes>{ MakeAcknowledge( aRequest ) };
        } );
    Connected<PatientLink> lOne( lResponder );
    std::future<int> lReader =
        std::async( std::launch::async, [&lOne] { return ReadMany( lOne.mLink, 0x0A00, 1 ); } );
    ASSERT_EQ( lAsked.get_future().wait_for( PATIENCE ), std::future_status::ready );
    EXPECT_EQ( lOne.mLink.GetRetriesCount(), 0 );
    EXPECT_EQ( lOne.mLink.GetRetriesMax(), 0 );
    EXPECT_EQ( lOne.mLink.GetPendingAcknowledgesCount(), 0 );
    EXPECT_EQ( lOne.mLink.GetTransmitFailures(), 0 );
    lOne.mLink.ResetStats();
    lDone.set_value();
    EXPECT_EQ( lReader.get(), 1 );
    EXPECT_TRUE( lWaited ); // none of the calls waited for the transaction
}

TEST( LinkThreads, LetCountersBeReadAndResetWhileTheyChange )
{
    constexpr unsigned int READS = 300;
    const CannedResponder lResponder(
        []( const Bytes& aRequest )
        {
            const Bytes lPending = Packet( {
                { 0x00, 0x00 },                         // status: success
                { 0x00, 0x89 },                         // acknowledge: PENDINGACK
                { 0x00, 0x04 },                         // length
                { aRequest.at( 6 ), aRequest.at( 7 ) }, // acknowledge identifier
                { 0x00, 0x00 },                         // reserved
                { 0xEA, 0x60 },                         // time to completion: 60 s
            } );
            return std::vector<Bytes>{ lPending, MakeAcknowledge( aRequest ) };
        } );
    Connected<PatientLink> lOne( lResponder );
    std::atomic<bool> lRunning{ true };
    std::future<long long> lWatcher =
        std::async( std::launch::async,
                    [&lOne, &lRunning]
                    {
                        long long lMost = 0;
                        while ( lRunning )
                        {
                            lMost = std::max( lMost, lOne.mLink.GetPendingAcknowledgesCount() );
                            lOne.mLink.ResetStats();
                        }
                        return lMost;
                    } );
    EXPECT_EQ( ReadMany( lOne.mLink, 0x1000, READS ), static_cast<int>( READS ) );
    lRunning = false;
    const long long lMost = lWatcher.get();
    EXPECT_GE( lMost, 0 );
    EXPECT_LE( lMost, READS );
    lOne.mLink.ResetStats();
    EXPECT_EQ( ReadMany( lOne.mLink, 0x1000, 3 ), 3 );
    EXPECT_EQ( lOne.mLink.GetPendingAcknowledgesCount(), 3 );
}

TEST( LinkThreads, EndATransactionWhenTheOwnerClosesTheSocket )
{
    std::promise<void> lAsked;
    const CannedResponder lResponder(
        [&lAsked]( const Bytes& )
        {
            lAsked.set_value();
            return std::vector<Bytes>();
        } );
    Connected<PatientLink> lOne( lResponder );
    std::future<unsigned int> lReader =
        std::async( std::launch::async,
                    [&lOne]
                    {
                        unsigned int lValue = 0;
                        return lOne.mLink.ReadRegister( &lValue, 0x0A00 ).GetCode();
                    } );
    ASSERT_EQ( lAsked.get_future().wait_for( PATIENCE ), std::future_status::ready );
    const long long lStart = QmUtilsLib::Thread::GetTickCount();
    EXPECT_TRUE( lOne.mSocket.Close().IsOK() );
    EXPECT_EQ( lReader.get(), 0x0017U );
    EXPECT_LT( QmUtilsLib::Thread::GetTickCount() - lStart, PATIENCE_MS / 2 );
}

} // namespace
