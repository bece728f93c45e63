// Results as the units of this library make them, also where memory is missing.
#pragma once

#include <QmUtilsLib/Result.h>
#include <QmUtilsLib/String.h>

#include <cerrno>
#include <new>

namespace HtBaseLib
{

// An argument that the operation cannot take: a size that fits no packet, an address that is none.
constexpr unsigned int INVALID_ARGUMENT = 0x4001;

// Guarded runs an operation that returns a result, of either kind. Where memory is short it is
// GENERIC_ERROR with ENOMEM as OS code, since std::bad_alloc must not leave the library. Other
// exceptions, which are those of a caller's own code, pass.
template <typename Operation>
auto Guarded( Operation aOperation ) -> decltype( aOperation() )
{
    using Outcome = decltype( aOperation() );
    try
    {
        return aOperation();
    }
    catch ( const std::bad_alloc& )
    {
        return Outcome( Outcome::GENERIC_ERROR, static_cast<unsigned int>( ENOMEM ) );
    }
}

// OrNull runs an operation that returns a pointer: null where memory is short.
template <typename Operation>
auto OrNull( Operation aOperation ) -> decltype( aOperation() )
{
    try
    {
        return aOperation();
    }
    catch ( const std::bad_alloc& )
    {
        return nullptr;
    }
}

// MakeResult makes a result with a text. Its codes stand: where there is no memory for the text it
// goes without.
inline QmUtilsLib::Result MakeResult( unsigned int aCode, unsigned int aOSCode, const char* aText )
{
    try
    {
        return QmUtilsLib::Result( aCode, aOSCode, QmUtilsLib::String( aText ) );
    }
    catch ( const std::bad_alloc& )
    {
        return QmUtilsLib::Result( aCode, aOSCode );
    }
}

} // namespace HtBaseLib
