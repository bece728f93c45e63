#include "tests/support/LockCounter.h"

#include <dlfcn.h>
#include <pthread.h>

namespace
{

thread_local unsigned long long tLockCount = 0;

} // namespace

// Takes the place of the C library's function, which every lock of the library comes down to.
extern "C" int pthread_mutex_lock( pthread_mutex_t* aMutex ) noexcept
{
    using Lock = int ( * )( pthread_mutex_t* );
    static const auto sLock = reinterpret_cast<Lock>( dlsym( RTLD_NEXT, "pthread_mutex_lock" ) );
    ++tLockCount;
    return sLock( aMutex );
}

namespace TestSupport
{

unsigned long long GetLockCount()
{
    return tLockCount;
}

} // namespace TestSupport
