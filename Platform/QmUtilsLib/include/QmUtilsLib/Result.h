/// @file
/// QmUtilsLib: the outcome of an operation.
#pragma once

#include <QmUtilsLib/Export.h>

#include <memory>

namespace QmUtilsLib
{

class String;

/// Result is what the operations of the kit return: a 32-bit code, the operating system's error
/// number (0 when there is none) and a description (may be empty).
///
/// Any code is held unchanged. Exactly one of IsSuccess, IsPending and IsFailure is true. Copies
/// share the description, which never changes. Making and copying a result without description
/// allocates nothing.
class [[nodiscard]] QMUTILSLIB_API Result
{
public:
    /// The codes with a name.
    enum Code : unsigned int
    {
        OK = 0x0000,              ///< success
        ABORTED = 0x0001,         ///< ended by the caller
        NOT_CONNECTED = 0x0017,   ///< the link or socket is not open
        BUSY = 0x001C,            ///< an operation of this object is already running
        TIMEOUT = 0x001E,         ///< no answer within the allowed time
        NOT_SUPPORTED = 0x0604,   ///< the object does not offer the operation
        NOT_INITIALIZED = 0x0605, ///< the result has not been set yet
        GENERIC_ERROR = 0x4000,   ///< a failure without a more specific code
        PENDING = 0xFFFF          ///< the operation still runs
    };

    /// NOT_INITIALIZED.
    Result()
        : Result( NOT_INITIALIZED )
    {
    }

    /// A result with aCode and aOSCode, or 0 without the latter. Not explicit, so that an operation
    /// can end with `return Result::OK;`.
    ///@{
    Result( unsigned int aCode )
        : Result( aCode, 0 )
    {
    }
    Result( unsigned int aCode, unsigned int aOSCode )
        : mCode( aCode )
        , mOSCode( aOSCode )
    {
    }
    ///@}

    /// A result with a description too. The text is copied and is not a format. Where memory for it
    /// is missing the result has no description.
    Result( unsigned int aCode, unsigned int aOSCode, const String& aDescription );

    /// The code.
    unsigned int GetCode() const { return mCode; }

    /// The operating system's error number, or 0.
    unsigned int GetOSCode() const { return mOSCode; }

    /// GetDescription returns the description, or an empty text. The reference belongs to the
    /// result and is valid until the result is changed or destroyed.
    const String& GetDescription() const;

    /// GetCodeString returns the name of the code, such as "TIMEOUT", or the number of a code
    /// without a name, such as "0x0904". It is not null, and the text is valid until the process
    /// ends. The process keeps the texts of the first 4096 codes without a name; further ones, and
    /// those for which memory is missing, are "UNNAMED".
    const char* GetCodeString() const;

    bool IsOK() const { return mCode == OK; }                       ///< code 0
    bool IsSuccess() const { return mCode == OK; }                  ///< code 0, the same as IsOK
    bool IsPending() const { return mCode == PENDING; }             ///< code 0xFFFF
    bool IsFailure() const { return !IsSuccess() && !IsPending(); } ///< every other code

    /// Compares codes only.
    ///@{
    bool operator==( const Result& aOther ) const { return mCode == aOther.mCode; }
    bool operator!=( const Result& aOther ) const { return mCode != aOther.mCode; }
    ///@}

    /// Combines outcomes: a failure stays, any other result is replaced by aOther unless that is
    /// OK.
    const Result& operator|=( const Result& aOther );

private:
    unsigned int mCode;
    unsigned int mOSCode;
    std::shared_ptr<const String> mDescription;
};

} // namespace QmUtilsLib
