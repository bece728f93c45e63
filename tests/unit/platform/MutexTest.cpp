#include <QmUtilsLib/Mutex.h>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <type_traits>
#include <vector>

namespace
{

using QmUtilsLib::LockScope;
using QmUtilsLib::Mutex;

static_assert( !std::is_copy_constructible<Mutex>::value, "a mutex has one identity" );
static_assert( !std::is_copy_constructible<LockScope>::value, "a scope releases once" );

// What two threads share. The analysis of locks does not know re-entrancy.
struct Shared
{
    Mutex mMutex;
    int mCount = 0;
    bool mOwned = false;
};

void CountDeep( Shared& aShared, int aTimes ) QMUTILSLIB_NO_THREAD_SAFETY_ANALYSIS
{
    for ( int lTime = 0; lTime < aTimes; ++lTime )
    {
        LockScope lOuter( aShared.mMutex );
        EXPECT_TRUE( aShared.mMutex.Wait().IsOK() );
        {
            LockScope lInner( aShared.mMutex );
            ++aShared.mCount;
        }
        aShared.mMutex.Release();
        ++aShared.mCount; // still owned
    }
}

void OwnTwiceReleaseTwice( Shared& aShared, std::atomic<bool>& aOwned,
                           std::atomic<bool>& aWaited ) QMUTILSLIB_NO_THREAD_SAFETY_ANALYSIS
{
    EXPECT_TRUE( aShared.mMutex.Wait().IsOK() );
    EXPECT_TRUE( aShared.mMutex.Wait().IsOK() );
    aShared.mOwned = true;
    aOwned = true;
    while ( !aWaited )
    {
        std::this_thread::yield();
    }
    aShared.mMutex.Release();
    for ( int lTime = 0; lTime < 1000; ++lTime )
    {
        std::this_thread::yield(); // the other thread would get in now, were the mutex free
    }
    aShared.mOwned = false;
    aShared.mMutex.Release();
}

} // namespace

TEST( Mutex, ExcludesOtherThreadsEvenWhenTakenSeveralTimes )
{
    constexpr int THREADS = 4;
    constexpr int TIMES = 1000;
    Shared lShared;
    std::vector<std::thread> lThreads;
    for ( int lThread = 0; lThread < THREADS; ++lThread )
    {
        lThreads.emplace_back( [&lShared] { CountDeep( lShared, TIMES ); } );
    }
    for ( std::thread& lThread : lThreads )
    {
        lThread.join();
    }
    EXPECT_EQ( lShared.mCount, THREADS * TIMES * 2 );
}

TEST( Mutex, IsFreeOnlyAfterAsManyReleasesAsWaits )
{
    Shared lShared;
    std::atomic<bool> lOwned{ false };
    std::atomic<bool> lWaited{ false };
    std::thread lOwner( [&] { OwnTwiceReleaseTwice( lShared, lOwned, lWaited ); } );
    while ( !lOwned )
    {
        std::this_thread::yield();
    }
    lWaited = true;
    {
        LockScope lLock( lShared.mMutex );
        EXPECT_FALSE( lShared.mOwned );
    }
    lOwner.join();
}
