#include "tests/support/AllocationCounter.h"

#include <cstddef>
#include <cstdlib>
#include <new>

namespace
{

thread_local unsigned long long tCount = 0;
thread_local unsigned long long tDeleted = 0;
thread_local unsigned long long tFailed = 0;

// What is to fail: the allocation of that number, and how many of them from there on.
thread_local unsigned long long tFirstToFail = 0;
thread_local unsigned long long tLeftToFail = 0;

} // namespace

void* operator new( std::size_t aSize )
{
    ++tCount;
    if ( tLeftToFail != 0 && tCount >= tFirstToFail )
    {
        --tLeftToFail;
        ++tFailed;
        throw std::bad_alloc();
    }
    void* const lMemory = std::malloc( aSize != 0 ? aSize : 1 );
    if ( lMemory == nullptr )
    {
        throw std::bad_alloc();
    }
    return lMemory;
}

void operator delete( void* aMemory ) noexcept
{
    tDeleted += aMemory != nullptr ? 1 : 0;
    std::free( aMemory );
}

void operator delete( void* aMemory, std::size_t ) noexcept
{
    operator delete( aMemory );
}

// The array and no-throw forms of the standard library call the operators above; those of a
// sanitizer do not.
void* operator new[]( std::size_t aSize )
{
    return operator new( aSize );
}

void* operator new( std::size_t aSize, const std::nothrow_t& ) noexcept
{
    try
    {
        return operator new( aSize );
    }
    catch ( const std::bad_alloc& )
    {
        return nullptr;
    }
}

void* operator new[]( std::size_t aSize, const std::nothrow_t& aNoThrow ) noexcept
{
    return operator new( aSize, aNoThrow );
}

void operator delete[]( void* aMemory ) noexcept
{
    operator delete( aMemory );
}

void operator delete[]( void* aMemory, std::size_t ) noexcept
{
    operator delete( aMemory );
}

namespace TestSupport
{

unsigned long long GetAllocationCount()
{
    return tCount;
}

unsigned long long GetDeletionCount()
{
    return tDeleted;
}

long long GetLiveAllocationCount()
{
    return static_cast<long long>( tCount - tFailed ) - static_cast<long long>( tDeleted );
}

AllocationFailure::AllocationFailure( unsigned long long aNumber, unsigned long long aCount )
    : mFailedBefore( tFailed )
{
    tFirstToFail = tCount + aNumber;
    tLeftToFail = aCount;
}

AllocationFailure::~AllocationFailure()
{
    tLeftToFail = 0;
}

bool AllocationFailure::HasHappened() const
{
    return tFailed != mFailedBefore;
}

} // namespace TestSupport
