/// @file
/// HtBase: the outcome of a public operation.
#pragma once

#include <HtExport.h>
#include <HtString.h>

/// HtResult is what the public clients return: a code out of a fixed set, the internal code that it
/// was made from, the operating system's error number and a description.
///
/// Classification, comparison, combination and names of codes are those of QmUtilsLib::Result.
///
/// Where memory for a description is missing, the result has none; its codes hold. Only the
/// operations that return a text throw `std::bad_alloc`.
class [[nodiscard]] HTBASE_API HtResult
{
public:
    /// The codes with a name. SetCode accepts others too.
    enum Code : unsigned int
    {
        OK = 0x0000,              ///< success
        NOT_CONNECTED = 0x0017,   ///< the link has no open socket or control interface
        TIMEOUT = 0x001E,         ///< no answer within the allowed time
        NOT_SUPPORTED = 0x0604,   ///< the object does not offer the operation
        NOT_INITIALIZED = 0x0605, ///< the result has not been set yet
        GENERIC_ERROR = 0x4000    ///< a failure without a more specific code
    };

    /// NOT_INITIALIZED, without description.
    HtResult();

    /// A result whose code is set as by SetCode. Without aOSCode the OS code is 0, without
    /// aDescription there is no description.
    ///@{
    HtResult( unsigned int aCode );
    HtResult( unsigned int aCode, unsigned int aOSCode );
    HtResult( unsigned int aCode, const HtString& aDescription );
    HtResult( unsigned int aCode, unsigned int aOSCode, const HtString& aDescription );
    ///@}

    /// A copy takes over the code and the OS code. Its internal code is the other's code. It takes
    /// over the description only when the other is not OK.
    HtResult( const HtResult& aOther );

    ~HtResult();

    /// Copies the codes as the copy constructor does. The description is replaced only when the
    /// other is not OK: after an OK was assigned, the description of an earlier failure can still
    /// be read.
    const HtResult& operator=( const HtResult& aB );

    /// The code. It is always one that SetCode accepts.
    unsigned int GetCode() const;

    /// The value last given to SetCode, before its conversion.
    unsigned int GetInternalCode() const;

    /// The operating system's error number, or 0.
    unsigned int GetOSCode() const;

    /// The name of the code, such as "TIMEOUT".
    HtString GetCodeString() const;

    /// A copy of the description. Empty when there is none.
    HtString GetDescription() const;

    /// The name of the code. The text is valid until the process ends.
    operator const char*() const;

    /// A result has no truth value, so `if ( result )` does not compile. Use IsOK.
    explicit operator bool() const = delete;

    /// SetCode keeps aCode as internal code and sets the code: an accepted value as it is, a
    /// retired value as its successor, any other as GENERIC_ERROR, which is logged at 20000. OS
    /// code and description stay. It never fails.
    void SetCode( unsigned int aCode );

    /// SetDescription replaces the description.
    void SetDescription( const HtString& aDescription );

    bool IsOK() const;      ///< code 0
    bool IsSuccess() const; ///< code 0, the same as IsOK
    bool IsPending() const; ///< code 0xFFFF
    bool IsFailure() const; ///< every other code

    /// Compares codes only. A number is compared without the conversion of SetCode.
    ///@{
    bool operator==( const HtResult& aB ) const;
    bool operator!=( const HtResult& aB ) const;
    bool operator==( unsigned int aB ) const;
    bool operator!=( unsigned int aB ) const;
    ///@}

    /// Without these, the conversion to text would compile such comparisons and compare addresses.
    /// Write a number on the right: `result == 0`. Compare names as texts.
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

    /// Combines outcomes: a failure keeps its code, any other result takes the other's code unless
    /// that is OK. Internal code, OS code and description stay.
    const HtResult& operator|=( const HtResult& aB );

private:
    void CopyDescription( const HtResult& aOther );

    unsigned int mCode;
    unsigned int mInternalCode;
    unsigned int mOSCode;
    HtString* mDescription; // owned; null when there is none
};
