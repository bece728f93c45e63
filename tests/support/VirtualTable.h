// The places of virtual operations in their table, the types of operations, and which are public.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace TestSupport
{

template <typename ACTUAL, typename EXPECTED>
constexpr bool IS = std::is_same<ACTUAL, EXPECTED>::value;

constexpr std::size_t NOT_VIRTUAL = SIZE_MAX;

// The entry of the table through which the operation is called, or NOT_VIRTUAL. In the C++ ABI of
// GCC and clang a pointer to an operation is two words. The low bit of the first, or on some
// machines of the second, shows that the operation is virtual; the rest of the first is the offset
// of its entry.
template <typename OPERATION>
std::size_t GetEntry( OPERATION aOperation )
{
    std::uintptr_t lWords[2];
    static_assert( sizeof( aOperation ) == sizeof( lWords ), "another ABI" );
    std::memcpy( lWords, &aOperation, sizeof( lWords ) );
    if ( ( ( lWords[0] | lWords[1] ) & 1 ) == 0 )
    {
        return NOT_VIRTUAL;
    }
    return lWords[0] / sizeof( void* );
}

// Under the same ABI a virtual destructor has two entries: the one that destroys, and the one that
// deletes as well.
constexpr std::size_t ENTRIES_OF_DESTRUCTOR = 2;

// Calls the table's entry aEntry of the object, which must be one of the destructor's.
#if defined( __clang__ )
__attribute__( ( no_sanitize( "function" ) ) )
#endif
inline void
CallDestructorEntry( void* aObject, std::size_t aEntry )
{
    using Destructor = void ( * )( void* );
    const Destructor* lTable = nullptr;
    std::memcpy( &lTable, aObject, sizeof( lTable ) );
    lTable[aEntry]( aObject );
}

} // namespace TestSupport

// Defines IsPublic<operation>, which says whether the operation's name can be used from outside.
#define DEFINE_IS_PUBLIC( aOperation )                                                             \
    template <typename LINK, typename = void>                                                      \
    struct IsPublic##aOperation : std::false_type                                                  \
    {                                                                                              \
    };                                                                                             \
    template <typename LINK>                                                                       \
    struct IsPublic##aOperation<LINK, std::void_t<decltype( &LINK::aOperation )>> : std::true_type \
    {                                                                                              \
    };
