/// @file
/// QmUtilsLib: one text in two forms.
#pragma once

#include <QmUtilsLib/Export.h>

#include <string>

namespace QmUtilsLib
{

/// String holds a text in 8-bit (UTF-8) and wide form at once.
///
/// The given form is kept byte for byte, since it may be a file name. The other form is converted
/// from it at once. Conversion never fails: what is malformed in the given form becomes U+FFFD in
/// the other. A text ends at its first zero character. Comparing uses the 8-bit form, exactly and
/// with upper and lower case apart.
///
/// Constructors and changes throw `std::bad_alloc` where memory is missing; the text is then
/// unchanged.
class QMUTILSLIB_API String
{
public:
    /// The empty text.
    String() = default;

    /// A copy of a text. Null gives the empty text.
    ///@{
    String( const char* aText );
    String( const wchar_t* aText );
    ///@}

    /// A copy of a text, or a text that takes over both forms of another.
    ///@{
    String( const String& aOther ) = default;
    String( String&& aOther ) = default;
    ///@}

    /// Replaces both forms.
    String& operator=( String aOther ) noexcept
    {
        mAscii.swap( aOther.mAscii );
        mUnicode.swap( aOther.mUnicode );
        return *this;
    }

    /// Appends each form of aOther to the same form of this text. aOther may be this text. A UTF-8
    /// character that this text begins and aOther ends becomes one character of the wide form. It
    /// takes time in proportion to what is appended.
    const String& operator+=( const String& aOther );

    /// Compares the 8-bit forms.
    ///@{
    bool operator==( const String& aOther ) const { return mAscii == aOther.mAscii; }
    bool operator!=( const String& aOther ) const { return mAscii != aOther.mAscii; }
    ///@}

    /// A form of the text: null-terminated, never null, valid until the text is changed or
    /// destroyed.
    ///@{
    const char* GetAscii() const { return mAscii.c_str(); }
    const wchar_t* GetUnicode() const { return mUnicode.c_str(); }
    ///@}

    /// The number of Unicode characters.
    unsigned int GetLength() const;

    /// The address in this object of one of its forms. It does not change while the object lives.
    /// What lies there is not specified.
    ///@{
    const void* GetAsciiStorage() const { return &mAscii; }
    const void* GetUnicodeStorage() const { return &mUnicode; }
    ///@}

private:
    std::string mAscii;
    std::wstring mUnicode;
};

} // namespace QmUtilsLib
