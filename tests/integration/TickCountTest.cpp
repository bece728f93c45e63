// The real clock.

#include <QmUtilsLib/Thread.h>

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

using QmUtilsLib::Thread;

TEST( TickCount, NeverGoesBack )
{
    long long lLast = Thread::GetTickCount();
    for ( int lCount = 0; lCount < 100000; ++lCount )
    {
        const long long lNow = Thread::GetTickCount();
        ASSERT_GE( lNow, lLast );
        lLast = lNow;
    }
}

TEST( TickCount, CountsMilliseconds )
{
    const auto lStart = std::chrono::steady_clock::now();
    const long long lFirst = Thread::GetTickCount();
    std::this_thread::sleep_for( std::chrono::milliseconds( 120 ) );
    const long long lElapsed = Thread::GetTickCount() - lFirst;
    const auto lReal = std::chrono::steady_clock::now() - lStart;
    EXPECT_GE( lElapsed, 120 );
    EXPECT_LE( lElapsed,
               std::chrono::duration_cast<std::chrono::milliseconds>( lReal ).count() + 1 );
}
