#include <QmUtilsLib/Mutex.h>

namespace QmUtilsLib
{

// The analysis knows the annotated Mutex, not the standard one inside it.
Result Mutex::Wait() QMUTILSLIB_NO_THREAD_SAFETY_ANALYSIS
{
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
