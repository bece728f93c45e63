#include "tests/support/LockCounter.h"

#include <QmUtilsLib/Mutex.h>

namespace
{

thread_local unsigned long long tLockCount = 0;

} // namespace

namespace QmUtilsLib
{

Result Mutex::Wait() QMUTILSLIB_NO_THREAD_SAFETY_ANALYSIS
{
    ++tLockCount;
    mMutex.lock();
    return Result::OK;
}

void Mutex::Release() QMUTILSLIB_NO_THREAD_SAFETY_ANALYSIS
{
    mMutex.unlock();
}

LockScope::LockScope( Mutex& aMutex )
    : mMutex( aMutex )
{
    (void)mMutex.Wait(); // cannot fail
}

LockScope::~LockScope()
{
    mMutex.Release();
}

} // namespace QmUtilsLib

namespace TestSupport
{

unsigned long long GetLockCount()
{
    return tLockCount;
}

} // namespace TestSupport
