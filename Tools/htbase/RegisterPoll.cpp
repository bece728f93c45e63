#include "Tools/htbase/RegisterPoll.h"

#include <QmUtilsLib/Thread.h>

#include <chrono>

namespace HtBaseTool
{

using QmUtilsLib::LockScope;
using QmUtilsLib::Result;
using QmUtilsLib::Thread;

RegisterPoll::RegisterPoll( GevDevice& aDevice, uint64_t aAddress, int aIntervalMs )
    : mDevice( aDevice )
    , mAddress( aAddress )
    , mIntervalMs( aIntervalMs )
{
    mThread = std::thread( [this] { Run(); } );
}

RegisterPoll::~RegisterPoll()
{
    Stop();
}

PollState RegisterPoll::GetState() const
{
    LockScope lLock( mMutex );
    return mState;
}

void RegisterPoll::Stop()
{
    if ( !mThread.joinable() )
    {
        return;
    }
    mDevice.Abort();
    mStop.set_value();
    mThread.join();
}

void RegisterPoll::Run()
{
    const std::future<void> lIsStopped = mStop.get_future();
    const long long lStart = Thread::GetTickCount();
    long long lWait = 0;
    while ( lIsStopped.wait_for( std::chrono::milliseconds( lWait ) ) != std::future_status::ready )
    {
        uint32_t lValue = 0;
        const Result lResult = mDevice.ReadRegister( mAddress, lValue );
        if ( lResult == Result::NOT_CONNECTED ) // aborted
        {
            return;
        }
        Record( lResult, lValue );
        lWait = mIntervalMs - ( Thread::GetTickCount() - lStart ) % mIntervalMs;
    }
}

void RegisterPoll::Record( const Result& aResult, uint32_t aValue )
{
    LockScope lLock( mMutex );
    ++mState.mReads;
    mState.mResult = aResult;
    if ( !aResult.IsOK() )
    {
        ++mState.mFailedReads;
        mState.mFailure = aResult;
        return;
    }
    mState.mValue = aValue;
    mState.mGoodMs = Thread::GetTickCount();
}

} // namespace HtBaseTool
