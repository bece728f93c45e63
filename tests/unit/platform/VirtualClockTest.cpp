#include <QmUtilsLib/Scripted/VirtualClock.h>
#include <QmUtilsLib/Thread.h>

#include <gtest/gtest.h>

namespace
{

using QmUtilsLib::Thread;
using QmUtilsLib::Scripted::VirtualClock;

} // namespace

TEST( VirtualClock, StartsAboveThe32BitRange )
{
    EXPECT_GT( Thread::GetTickCount(), 0xFFFFFFFFLL );
}

TEST( VirtualClock, ChangesOnlyWhenItIsSet )
{
    const long long lStart = Thread::GetTickCount();
    EXPECT_EQ( VirtualClock::Now(), lStart );
    for ( int lCount = 0; lCount < 100000; ++lCount )
    {
        ASSERT_EQ( Thread::GetTickCount(), lStart );
    }
    VirtualClock::Advance( 1 );
    EXPECT_EQ( Thread::GetTickCount(), lStart + 1 );
    VirtualClock::Advance( 0x100000000LL );
    EXPECT_EQ( Thread::GetTickCount(), lStart + 1 + 0x100000000LL );
    EXPECT_EQ( VirtualClock::Now(), Thread::GetTickCount() );
}

TEST( VirtualClock, CanBeSetForwardsAndBackwards )
{
    const long long lStart = VirtualClock::Now(); // other tests of the process go on from here
    VirtualClock::Set( 0 );
    EXPECT_EQ( Thread::GetTickCount(), 0 );
    VirtualClock::Set( -5 );
    EXPECT_EQ( Thread::GetTickCount(), -5 );
    VirtualClock::Set( 0x7FFFFFFFFFFFFFFELL );
    VirtualClock::Advance( 1 );
    EXPECT_EQ( Thread::GetTickCount(), 0x7FFFFFFFFFFFFFFFLL );
    VirtualClock::Set( lStart );
}
