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

// A pointer to a virtual operation holds, under the C++ ABI of Linux on x86-64, one more than the
// offset of its entry in the table; a pointer to any other operation holds an address, which is
// even.
template <typename OPERATION>
std::uintptr_t GetFirstWord( OPERATION aOperation )
{
    static_assert( sizeof( aOperation ) == 2 * sizeof( std::uintptr_t ), "another ABI" );
    std::uintptr_t lWord = 0;
    std::memcpy( &lWord, &aOperation, sizeof( lWord ) );
    return lWord;
}

constexpr std::size_t NOT_VIRTUAL = SIZE_MAX;

// The entry of the table through which the operation is called, or NOT_VIRTUAL.
template <typename OPERATION>
std::size_t GetEntry( OPERATION aOperation )
{
    const std::uintptr_t lWord = GetFirstWord( aOperation );
    return ( lWord & 1 ) != 0 ? ( lWord - 1 ) / sizeof( void* ) : NOT_VIRTUAL;
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

// Defines IsPublic<operation>, which tells whether the operation's name can be taken from outside.
#define DEFINE_IS_PUBLIC( aOperation )                                                             \
    template <typename LINK, typename = void>                                                      \
    struct IsPublic##aOperation : std::false_type                                                  \
    {                                                                                              \
    };                                                                                             \
    template <typename LINK>                                                                       \
    struct IsPublic##aOperation<LINK, std::void_t<decltype( &LINK::aOperation )>> : std::true_type \
    {                                                                                              \
    };
