// Results as the units of this library make them, also where memory is missing.
#pragma once

#include <QmUtilsLib/Result.h>
#include <QmUtilsLib/String.h>

#include <cerrno>
#include <new>

namespace HtBaseLib
{

// An argument that the operation cannot take, such as a size that fits no packet or an address that
// is not valid.
constexpr unsigned int INVALID_ARGUMENT = 0x4001;

// Guarded runs an operation that returns a result, of either kind. When an allocation fails it
// returns GENERIC_ERROR with ENOMEM as OS code, since std::bad_alloc must not leave the library.
// Other exceptions, which are those of the caller's own code, pass.
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

// OrNull runs an operation that returns a pointer, and returns null when an allocation fails.
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

// MakeResult makes a result with a text. If there is no memory for the text, the result has its
// codes alone.
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
