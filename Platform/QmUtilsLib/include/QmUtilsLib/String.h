/// @file
/// QmUtilsLib: one text in two forms.
#pragma once

#include <QmUtilsLib/Export.h>

#include <string>

namespace QmUtilsLib
{

/// String holds a text in 8-bit (UTF-8) and wide form at once.
///
/// The form that a text was given in is kept byte for byte, since it may be a file name; the other
/// form is converted from it at once, so that const calls are safe from several threads. What is
/// malformed in the given form becomes U+FFFD in the other; a conversion never fails. A text ends
/// at its first zero character. Comparing uses the 8-bit form, exact and case-sensitive.
///
/// Making and changing a text may throw std::bad_alloc; the text is then as it was before.
class QMUTILSLIB_API String
{
public:
    /// The empty text.
    String() = default;

    /// A copy of a text; null means empty.
    ///@{
    String( const char* aText );
    String( const wchar_t* aText );
    ///@}

    /// A copy of a text, and a text that takes over both forms of another.
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

    /// Appends each form of aOther, which may be this text itself, to its like. A UTF-8 character
    /// that this text begins and aOther ends is one character of the wide form afterwards. Takes
    /// time for what is appended, not for what is there.
    const String& operator+=( const String& aOther );

    /// Compare the 8-bit forms.
    ///@{
    bool operator==( const String& aOther ) const { return mAscii == aOther.mAscii; }
    bool operator!=( const String& aOther ) const { return mAscii != aOther.mAscii; }
    ///@}

    /// The two forms, null-terminated, never null; valid until the text is changed or destroyed.
    ///@{
    const char* GetAscii() const { return mAscii.c_str(); }
    const wchar_t* GetUnicode() const { return mUnicode.c_str(); }
    ///@}

    /// The number of Unicode characters.
    unsigned int GetLength() const;

    /// Where this object keeps its two forms. The addresses are fixed for the life of the object;
    /// what lies there is its own business.
    ///@{
    const void* GetAsciiStorage() const { return &mAscii; }
    const void* GetUnicodeStorage() const { return &mUnicode; }
    ///@}

private:
    std::string mAscii;
    std::wstring mUnicode;
};

} // namespace QmUtilsLib
