/// @file
/// QmUtilsLib: mutual exclusion of threads.
#pragma once

#include <QmUtilsLib/Export.h>
#include <QmUtilsLib/Result.h>
#include <QmUtilsLib/ThreadAnnotations.h>

#include <mutex>

namespace QmUtilsLib
{

/// Mutex is an unnamed mutex of this process. It is re-entrant: a thread that has called Wait n
/// times must call Release n times. It must not be owned when it is destroyed.
class QMUTILSLIB_API QMUTILSLIB_CAPABILITY( "mutex" ) Mutex
{
public:
    Mutex() = default;
    Mutex( const Mutex& ) = delete;
    Mutex& operator=( const Mutex& ) = delete;

    /// Wait blocks until the calling thread owns the mutex. The result is always OK.
    Result Wait() QMUTILSLIB_ACQUIRE() QMUTILSLIB_NO_THREAD_SAFETY_ANALYSIS
    {
        mMutex.lock();
        return Result::OK;
    }

    /// Release gives up one ownership of the calling thread, which must own the mutex.
    void Release() QMUTILSLIB_RELEASE() QMUTILSLIB_NO_THREAD_SAFETY_ANALYSIS { mMutex.unlock(); }

private:
    // The analysis knows the annotated Mutex, not the standard one inside it.
    std::recursive_mutex mMutex;
};

/// LockScope owns a mutex from its construction to its destruction. The mutex is borrowed.
class QMUTILSLIB_API QMUTILSLIB_SCOPED_CAPABILITY LockScope
{
public:
    /// Waits for the mutex.
    explicit LockScope( Mutex& aMutex ) QMUTILSLIB_ACQUIRE( aMutex )
        : mMutex( aMutex )
    {
        (void)mMutex.Wait(); // cannot fail
    }

    /// Releases it.
    ~LockScope() QMUTILSLIB_RELEASE() { mMutex.Release(); }

    LockScope( const LockScope& ) = delete;
    LockScope& operator=( const LockScope& ) = delete;

private:
    Mutex& mMutex;
};

} // namespace QmUtilsLib
