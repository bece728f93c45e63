#include "support/AllocationCounter.h"

#include <cstddef>
#include <cstdlib>
#include <new>

namespace
{

thread_local unsigned long long tCount = 0;
thread_local unsigned long long tDeleted = 0;

} // namespace

// The array and no-throw forms of the standard library come here too.
void* operator new( std::size_t aSize )
{
    ++tCount;
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
    return static_cast<long long>( tCount ) - static_cast<long long>( tDeleted );
}

} // namespace TestSupport
