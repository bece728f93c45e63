// How often a test program allocates.
#pragma once

namespace TestSupport
{

// GetAllocationCount gives the number of times that the calling thread has called operator new. Add
// AllocationCounter.cpp to the sources of the test program: it replaces the operator.
unsigned long long GetAllocationCount();

// GetDeletionCount gives the number of blocks that the calling thread has deleted.
unsigned long long GetDeletionCount();

// GetLiveAllocationCount gives how many blocks more the calling thread has allocated than it has
// deleted; less than 0 where it deleted those of others.
long long GetLiveAllocationCount();

} // namespace TestSupport
