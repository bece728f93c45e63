// What a signal does in the program.

#include "Tools/htbase/Interruption.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <thread>

namespace
{

using HtBaseTool::Interruption;

// After the wait the program removes the action. Without an action a signal ends the program at
// once, so the action must have finished by then.
TEST( Interruption, HasRunItsActionAfterAWait )
{
    Interruption lInterruption;
    std::atomic<bool> lHasRun{ false };
    lInterruption.SetAction(
        [&lHasRun]
        {
            std::this_thread::sleep_for( std::chrono::milliseconds( 50 ) ); // some take their time
            lHasRun = true;
        } );
    EXPECT_FALSE( lInterruption.WaitFor( 0 ) );
    EXPECT_FALSE( lInterruption.IsRequested() );
    ASSERT_EQ( kill( getpid(), SIGINT ), 0 );
    ASSERT_TRUE( lInterruption.WaitFor( 20000 ) );
    EXPECT_TRUE( lHasRun );
    EXPECT_TRUE( lInterruption.IsRequested() );
    lInterruption.SetAction( nullptr );
}

} // namespace
