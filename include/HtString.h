/// @file
/// HtBase: the text type of the public interface.
#pragma once

#include <HtExport.h>

namespace QmUtilsLib
{
class String;
}

/// HtString is a text in an 8-bit (UTF-8) and a wide form.
///
/// It holds a QmUtilsLib::String, which states how the forms are converted and compared. The layout
/// of HtString never changes. Pointers that it returns belong to the string and are valid until it
/// is changed or destroyed.
///
/// Constructors, `=`, `+=` and comparing with a pointer throw `std::bad_alloc` where memory is
/// missing; the string is then unchanged.
class HTBASE_API HtString
{
public:
    /// The empty text.
    HtString();

    /// A copy of another text.
    HtString( const HtString& aValue );

    /// A copy of a text. Null gives the empty text.
    ///@{
    HtString( const char* aValue );
    HtString( const wchar_t* aValue );
    ///@}

    /// The class's only virtual operation.
    virtual ~HtString();

    /// Replaces the text. A text may be assigned to itself.
    const HtString& operator=( const HtString& aValue );

    /// Appends a text. A text may be appended to itself.
    const HtString& operator+=( const HtString& aValue );

    /// Compares the 8-bit forms, exactly and with upper and lower case apart. A pointer must not be
    /// null.
    ///@{
    bool operator==( const HtString& aValue ) const;
    bool operator==( const char* aValue ) const;
    bool operator==( const wchar_t* aValue ) const;
    bool operator!=( const HtString& aValue ) const;
    bool operator!=( const char* aValue ) const;
    bool operator!=( const wchar_t* aValue ) const;
    ///@}

    /// Without these, the conversions to pointers would compile such comparisons and compare
    /// addresses. Write the pointer on the right: `text == "abc"`.
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
