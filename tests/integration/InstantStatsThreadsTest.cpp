// The meter of event rate and bandwidth under several threads.

#include <InstantStats.h>

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <thread>
#include <vector>

namespace
{

using HtBaseLib::InstantStats;

constexpr unsigned int REPORTERS = 4;
constexpr unsigned int REPORTS = 50000;
constexpr unsigned long long SECOND = 1000000; // us

// Runs aReporter on REPORTERS threads that start together, and aReader on two more until they are
// done.
void RunTogether( const std::function<void( unsigned int )>& aReporter,
                  const std::function<void()>& aReader )
{
    std::atomic<unsigned int> lWaiting{ REPORTERS };
    std::atomic<unsigned int> lRunning{ REPORTERS };
    std::vector<std::thread> lThreads;
    for ( unsigned int lIndex = 0; lIndex < REPORTERS; ++lIndex )
    {
        lThreads.emplace_back(
            [&, lIndex]
            {
                --lWaiting;
                while ( lWaiting != 0 )
                {
                    std::this_thread::yield();
                }
                aReporter( lIndex );
                --lRunning;
            } );
    }
    for ( int lReader = 0; lReader < 2; ++lReader )
    {
        lThreads.emplace_back(
            [&]
            {
                do
                {
                    aReader();
                } while ( lRunning != 0 );
            } );
    }
    for ( std::thread& lThread : lThreads )
    {
        lThread.join();
    }
}

// All reports fall into the slot of the second one, so that none may be lost.
TEST( StatsThreads, CountEveryReport )
{
    InstantStats lStats;
    lStats.Report( 0, 0, false );
    lStats.Report( SECOND, 0, false );
    std::atomic<bool> lIsPlausible{ true };
    RunTogether(
        [&lStats]( unsigned int )
        {
            for ( unsigned int lReport = 0; lReport < REPORTS; ++lReport )
            {
                lStats.Report( SECOND, 3, false );
            }
        },
        [&lStats, &lIsPlausible]
        {
            const double lRate = lStats.GetRate();
            const double lBandwidth = lStats.GetBandwidth();
            lIsPlausible = lIsPlausible && lRate >= 1.0 && lRate <= 1.0 + REPORTERS * REPORTS &&
                           lBandwidth >= 0.0 && lBandwidth <= 24.0 * REPORTERS * REPORTS;
        } );
    EXPECT_TRUE( lIsPlausible );
    EXPECT_EQ( lStats.GetRate(), 1.0 + REPORTERS * REPORTS );
    EXPECT_EQ( lStats.GetBandwidth(), 24.0 * REPORTERS * REPORTS );
}

// Each thread has a clock of its own, so the times go back and forth; resets come in between.
TEST( StatsThreads, StayUsableUnderReportsReadingsAndResets )
{
    InstantStats lStats;
    std::atomic<bool> lIsPlausible{ true };
    RunTogether(
        [&lStats]( unsigned int aIndex )
        {
            for ( unsigned int lReport = 0; lReport < REPORTS; ++lReport )
            {
                lStats.Report( lReport * 30000ULL + aIndex * SECOND, 1000, aIndex % 2 == 0 );
                if ( lReport % 100 == aIndex )
                {
                    lStats.Reset();
                }
            }
        },
        [&lStats, &lIsPlausible] {
            lIsPlausible = lIsPlausible && lStats.GetRate() >= 0.0 && lStats.GetBandwidth() >= 0.0;
        } );
    EXPECT_TRUE( lIsPlausible );

    lStats.Reset();
    EXPECT_EQ( lStats.GetRate(), 0.0 );
    lStats.Report( 0, 1000, false );
    lStats.Report( 2 * SECOND, 1000, false );
    EXPECT_EQ( lStats.GetRate(), 0.5 );
    EXPECT_EQ( lStats.GetBandwidth(), 4000.0 );
}

} // namespace
