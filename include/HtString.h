/// @file
/// HtBase: the text type of the public interface.
#pragma once

#include <HtExport.h>

namespace QmUtilsLib
{
class String;
}

/// HtString is a text that is available in an 8-bit (UTF-8) and a wide form.
///
/// It is a shell over QmUtilsLib::String, so its layout never changes: how the forms are converted
/// into one another and compared (exact, case-sensitive) is told there. Texts that are returned
/// belong to the string and stay valid until it is changed or destroyed. Const operations may run
/// at the same moment on several threads; anything else needs the caller's lock.
///
/// Making, changing and comparing with a text given as pointer may throw std::bad_alloc; the string
/// is then as it was before.
class HTBASE_API HtString
{
public:
    /// The empty text.
    HtString();

    /// A copy of another text.
    HtString( const HtString& aValue );

    /// Copies of a text; null gives the empty text.
    ///@{
    HtString( const char* aValue );
    HtString( const wchar_t* aValue );
    ///@}

    /// The class's only virtual operation.
    virtual ~HtString();

    /// Replaces the text. A text may be assigned to itself.
    const HtString& operator=( const HtString& aValue );

    /// Appends a text. A text appended to itself is doubled.
    const HtString& operator+=( const HtString& aValue );

    /// Compare; a text given as pointer must not be null.
    ///@{
    bool operator==( const HtString& aValue ) const;
    bool operator==( const char* aValue ) const;
    bool operator==( const wchar_t* aValue ) const;
    bool operator!=( const HtString& aValue ) const;
    bool operator!=( const char* aValue ) const;
    bool operator!=( const wchar_t* aValue ) const;
    ///@}

    /// The conversions to pointers would otherwise make these compile and compare addresses. Put a
    /// text given as pointer on the right, as in `text == "abc"`.
    ///@{
    friend bool operator==( const char* aLeft, const HtString& aRight ) = delete;
    friend bool operator==( const wchar_t* aLeft, const HtString& aRight ) = delete;
    friend bool operator!=( const char* aLeft, const HtString& aRight ) = delete;
    friend bool operator!=( const wchar_t* aLeft, const HtString& aRight ) = delete;
    ///@}

    /// The 8-bit form, null-terminated, never null.
    ///@{
    operator const char*() const;
    const char* GetAscii() const;
    ///@}

    /// The wide form, null-terminated, never null.
    ///@{
    operator const wchar_t*() const;
    const wchar_t* GetUnicode() const;
    ///@}

    /// The length in Unicode characters.
    unsigned int GetLength() const;

private:
    void SetViews();

    QmUtilsLib::String* mThis; // owned, never null after construction
    const void* mAsciiView;    // where mThis keeps its 8-bit form; nothing reads it
    const void* mUnicodeView;  // where mThis keeps its wide form; nothing reads it
};
