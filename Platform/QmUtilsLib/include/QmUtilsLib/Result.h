/// @file
/// QmUtilsLib: the outcome of an operation.
#pragma once

#include <QmUtilsLib/Export.h>

#include <memory>

namespace QmUtilsLib
{

class String;

/// Result is the value that every operation of the kit returns: a 32-bit code, the operating
/// system's error number behind it (0 when there is none) and a text for people (may be empty).
///
/// Any code is held unchanged. Exactly one of IsSuccess, IsPending and IsFailure holds. Copies
/// share their description, which never changes; creating and copying a result without one
/// allocates nothing. Values of this type follow the rules of int for threads.
class [[nodiscard]] QMUTILSLIB_API Result
{
public:
    /// The codes whose role is one and known. Other codes pass through and are written in hex.
    enum Code : unsigned int
    {
        OK = 0x0000,              ///< success
        ABORTED = 0x0001,         ///< ended on the caller's wish
        NOT_CONNECTED = 0x0017,   ///< a link or socket that is not open
        BUSY = 0x001C,            ///< an operation of this object is already running
        TIMEOUT = 0x001E,         ///< no answer within the allowed time
        NOT_SUPPORTED = 0x0604,   ///< the operation is not offered by this object
        NOT_INITIALIZED = 0x0605, ///< a result that nothing has set yet
        GENERIC_ERROR = 0x4000,   ///< a failure without a more specific code
        PENDING = 0xFFFF          ///< the operation still runs
    };

    /// A result that nothing has set yet: NOT_INITIALIZED.
    Result();

    /// From a code, and from a code and the operating system's error number.
    /// Not explicit: `return Result::OK;` is how operations end.
    ///@{
    Result( unsigned int aCode );
    Result( unsigned int aCode, unsigned int aOSCode );
    ///@}

    /// From all three. The text is copied, never taken as a format. Where there is no memory for it
    /// the result goes without.
    Result( unsigned int aCode, unsigned int aOSCode, const String& aDescription );

    /// The code, and the operating system's error number.
    ///@{
    unsigned int GetCode() const { return mCode; }
    unsigned int GetOSCode() const { return mOSCode; }
    ///@}

    /// GetDescription gives the description, or an empty text. The reference belongs to the result
    /// and is valid until the result is changed or destroyed.
    const String& GetDescription() const;

    /// GetCodeString names the code ("TIMEOUT"); a code whose role nothing tells is named by its
    /// number ("0x0904"). Never null; the text lives as long as the process. So the process keeps
    /// the numbers of the first 4096 such codes; further ones, and those for which there is no
    /// memory, are "UNNAMED".
    const char* GetCodeString() const;

    /// Code 0. IsOK and IsSuccess are the same.
    ///@{
    bool IsOK() const { return mCode == OK; }
    bool IsSuccess() const { return mCode == OK; }
    ///@}

    /// Code 0xFFFF.
    bool IsPending() const { return mCode == PENDING; }

    /// Every other code.
    bool IsFailure() const { return !IsSuccess() && !IsPending(); }

    /// Equal codes; OS codes and descriptions play no role.
    ///@{
    bool operator==( const Result& aOther ) const { return mCode == aOther.mCode; }
    bool operator!=( const Result& aOther ) const { return mCode != aOther.mCode; }
    ///@}

    /// Accumulates: a failure is kept; anything else is replaced by aOther unless aOther is OK.
    const Result& operator|=( const Result& aOther );

private:
    unsigned int mCode;
    unsigned int mOSCode;
    std::shared_ptr<const String> mDescription;
};

} // namespace QmUtilsLib
