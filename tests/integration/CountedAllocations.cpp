#include "CountedAllocations.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace
{

std::atomic<long> gMade{ 0 };
std::atomic<long> gDeleted{ 0 };

} // namespace

namespace TestSupport
{

long GetAllocationCount()
{
    return gMade;
}

long GetLiveAllocationCount()
{
    return gMade - gDeleted;
}

} // namespace TestSupport

void* operator new( std::size_t aSize )
{
    void* const lBlock = std::malloc( aSize != 0 ? aSize : 1 );
    if ( lBlock == nullptr )
    {
        throw std::bad_alloc();
    }
    ++gMade;
    return lBlock;
}

void operator delete( void* aBlock ) noexcept
{
    if ( aBlock != nullptr )
    {
        ++gDeleted;
    }
    std::free( aBlock );
}

void operator delete( void* aBlock, std::size_t ) noexcept
{
    operator delete( aBlock );
}
