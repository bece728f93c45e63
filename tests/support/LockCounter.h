// How often a test program locks.
#pragma once

namespace TestSupport
{

// GetLockCount gives the number of times that the calling thread has waited for a
// QmUtilsLib::Mutex. Add LockCounter.cpp to the sources of the test program: it replaces the mutex
// of the static library.
unsigned long long GetLockCount();

} // namespace TestSupport
