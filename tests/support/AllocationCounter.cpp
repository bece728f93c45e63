#include "support/AllocationCounter.h"

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace
{

std::atomic<unsigned long long> gCount{ 0 };

} // namespace

// The array and no-throw forms of the standard library come here too.
void* operator new( std::size_t aSize )
{
    gCount.fetch_add( 1, std::memory_order_relaxed );
    void* const lMemory = std::malloc( aSize != 0 ? aSize : 1 );
    if ( lMemory == nullptr )
    {
        throw std::bad_alloc();
    }
    return lMemory;
}

void operator delete( void* aMemory ) noexcept
{
    std::free( aMemory );
}

void operator delete( void* aMemory, std::size_t ) noexcept
{
    std::free( aMemory );
}

namespace TestSupport
{

unsigned long long GetAllocationCount()
{
    return gCount.load( std::memory_order_relaxed );
}

} // namespace TestSupport
