// How often a test program allocates, and allocations that fail.
#pragma once

namespace TestSupport
{

// GetAllocationCount gives the number of times that the calling thread has called operator new. Add
// AllocationCounter.cpp to the sources of the test program: it replaces the operator.
unsigned long long GetAllocationCount();

// GetDeletionCount gives the number of blocks that the calling thread has deleted.
unsigned long long GetDeletionCount();

// GetLiveAllocationCount gives how many blocks more the calling thread has allocated than it has
// deleted; less than 0 where it deleted those of others. Allocations that failed do not count.
long long GetLiveAllocationCount();

// AllocationFailure makes allocations of the calling thread fail with std::bad_alloc while it
// lives: the aNumber-th from now on, counted from 1, and the aCount - 1 after it. One at a time.
class AllocationFailure
{
public:
    explicit AllocationFailure( unsigned long long aNumber, unsigned long long aCount = 1 );
    ~AllocationFailure();

    AllocationFailure( const AllocationFailure& ) = delete;
    AllocationFailure& operator=( const AllocationFailure& ) = delete;

    // True when one has failed.
    bool HasHappened() const;

private:
    const unsigned long long mFailedBefore;
};

} // namespace TestSupport
