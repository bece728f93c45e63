/// @file
/// HtBase: the outcome of a public operation.
#pragma once

#include <HtExport.h>
#include <HtString.h>

/// HtResult is what the library's public operations return: a code out of a fixed set, the raw code
/// it was asked to hold, the operating system's error number and a text for people.
///
/// Classification, comparison, combination and code names are those of QmUtilsLib::Result. Const
/// operations may run at the same moment on several threads; anything else needs the caller's lock.
///
/// A result for whose description there is no memory goes without one; its codes hold. Only the
/// operations that return a text may throw std::bad_alloc.
class [[nodiscard]] HTBASE_API HtResult
{
public:
    /// The codes that this library names. Others are held as they are, or become GENERIC_ERROR.
    enum Code : unsigned int
    {
        OK = 0x0000,              ///< success
        NOT_CONNECTED = 0x0017,   ///< a command link has no open socket or device interface
        TIMEOUT = 0x001E,         ///< no answer within the allowed time
        NOT_SUPPORTED = 0x0604,   ///< the operation is not offered by this object
        NOT_INITIALIZED = 0x0605, ///< a result that nothing has set yet
        GENERIC_ERROR = 0x4000    ///< a failure without a more specific code
    };

    /// NOT_INITIALIZED, without description.
    HtResult();

    /// From a code (see SetCode), and the operating system's error number and a description where
    /// they are given. Without them: 0 and no description.
    ///@{
    HtResult( unsigned int aCode );
    HtResult( unsigned int aCode, unsigned int aOSCode );
    HtResult( unsigned int aCode, const HtString& aDescription );
    HtResult( unsigned int aCode, unsigned int aOSCode, const HtString& aDescription );
    ///@}

    /// A copy holds the other's code, also as its internal code, and its OS code. The description
    /// is copied only when the other is not OK.
    HtResult( const HtResult& aOther );

    ~HtResult();

    /// Takes over code and OS code as a copy does. The description is replaced only when the other
    /// is not OK: what went wrong before can still be read after a success was assigned.
    const HtResult& operator=( const HtResult& aB );

    /// The code; always one of the set that SetCode accepts.
    unsigned int GetCode() const;

    /// The value last given to SetCode, before conversion.
    unsigned int GetInternalCode() const;

    /// The operating system's error number; 0 when there is none.
    unsigned int GetOSCode() const;

    /// The name of the code, such as "TIMEOUT".
    HtString GetCodeString() const;

    /// A copy of the description; empty when there is none.
    HtString GetDescription() const;

    /// The name of the code, valid as long as the process runs. It is a text, not a truth value:
    /// use IsOK, an `if` on a result does not compile.
    ///@{
    operator const char*() const;
    explicit operator bool() const = delete;
    ///@}

    /// SetCode keeps the given value as internal code and stores the code: an accepted value
    /// unchanged, one of the retired values as its successor, any other as GENERIC_ERROR, which is
    /// logged at priority 20000. OS code and description stay. Never fails.
    void SetCode( unsigned int aCode );

    /// Replaces the description.
    void SetDescription( const HtString& aDescription );

    /// IsOK and IsSuccess: code 0. IsPending: code 0xFFFF. IsFailure: every other code.
    ///@{
    bool IsOK() const;
    bool IsSuccess() const;
    bool IsPending() const;
    bool IsFailure() const;
    ///@}

    /// Compare codes only. A number is compared as it is, without the conversion of SetCode.
    ///@{
    bool operator==( const HtResult& aB ) const;
    bool operator!=( const HtResult& aB ) const;
    bool operator==( unsigned int aB ) const;
    bool operator!=( unsigned int aB ) const;
    ///@}

    /// The conversion to text would otherwise make these compile and compare addresses. Put a
    /// number on the right, as in `result == 0`; compare names as texts.
    ///@{
    friend bool operator==( unsigned int aA, const HtResult& aB ) = delete;
    friend bool operator!=( unsigned int aA, const HtResult& aB ) = delete;
    template <class T>
    friend bool operator==( const T* aA, const HtResult& aB ) = delete;
    template <class T>
    friend bool operator!=( const T* aA, const HtResult& aB ) = delete;
    template <class T>
    friend bool operator==( const HtResult& aA, const T* aB ) = delete;
    template <class T>
    friend bool operator!=( const HtResult& aA, const T* aB ) = delete;
    ///@}

    /// Accumulates outcomes: a failure keeps its code, anything else takes the other's code unless
    /// that is OK. Only the code changes; internal code, OS code and description stay.
    const HtResult& operator|=( const HtResult& aB );

private:
    void CopyDescription( const HtResult& aOther );

    unsigned int mCode;
    unsigned int mInternalCode;
    unsigned int mOSCode;
    HtString* mDescription; // owned; null when there is none
};
