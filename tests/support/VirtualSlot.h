// The place of a virtual operation in its class's table.
#pragma once

#include <cstddef>
#include <cstring>

namespace TestSupport
{

// GetVirtualSlot tells the place of a virtual operation in the table of its class, from 0. In the
// C++ ABI of GCC and clang a virtual destructor takes two places.
template <typename Operation>
std::ptrdiff_t GetVirtualSlot( Operation aOperation )
{
    // A pointer to a member function is two words. That it names a virtual one is told by the low
    // bit of the first, or on some machines of the second; the rest of the first is the offset.
    std::ptrdiff_t lWords[2];
    static_assert( sizeof( aOperation ) == sizeof( lWords ), "not the expected C++ ABI" );
    std::memcpy( lWords, &aOperation, sizeof( lWords ) );
    const std::ptrdiff_t lOffset = ( lWords[1] & 1 ) != 0 ? lWords[0] : lWords[0] - 1;
    return lOffset / static_cast<std::ptrdiff_t>( sizeof( void* ) );
}

} // namespace TestSupport
