// How often a test program allocates.
#pragma once

namespace TestSupport
{

// GetAllocationCount gives the number of times that any thread has called operator new since the
// program started. Add AllocationCounter.cpp to the sources of the test program: it replaces the
// operator.
unsigned long long GetAllocationCount();

} // namespace TestSupport
