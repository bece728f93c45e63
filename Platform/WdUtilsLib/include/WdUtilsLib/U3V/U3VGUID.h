/// @file
/// WdUtilsLib: the identity of a USB3 Vision device.
#pragma once

#include <WdUtilsLib/Export.h>

#include <cstddef>

namespace WdUtilsLib
{
namespace U3V
{

/// U3VGUID is the identity that a USB3 Vision device has in its device information. It has 12
/// characters: four hexadecimal digits of the maker's USB-IF vendor id, then eight of the maker's
/// choice. It is empty until it is set.
///
/// The text is kept, compared and ordered exactly as given, with upper and lower case apart. The
/// empty identity is the first in order. Copying allocates nothing.
class WDUTILSLIB_API U3VGUID
{
public:
    static constexpr std::size_t LENGTH = 12; ///< characters of an identity

    /// The empty identity.
    U3VGUID() = default;

    /// The identity with that text, or the empty one where Set would return false.
    explicit U3VGUID( const char* aText );

    /// Set takes a text of exactly 12 printable ASCII characters without blanks, of which the first
    /// four are hexadecimal digits. It returns false for any other text and for null, and nothing
    /// changes then.
    bool Set( const char* aText );

    /// Clear makes the identity empty.
    void Clear();

    /// IsEmpty tells whether the identity is empty.
    bool IsEmpty() const { return mText[0] == '\0'; }

    /// Get returns the text, "" when empty. It is not null, and valid until this object is changed
    /// or destroyed.
    const char* Get() const { return mText; }

    /// GetVendorID returns the USB-IF vendor id, the number in the first four digits. 0 when empty.
    unsigned short GetVendorID() const;

    /// Compares, or orders, by the texts.
    ///@{
    bool operator==( const U3VGUID& aOther ) const;
    bool operator!=( const U3VGUID& aOther ) const { return !( *this == aOther ); }
    bool operator<( const U3VGUID& aOther ) const;
    ///@}

private:
    char mText[LENGTH + 1] = {};
};

} // namespace U3V
} // namespace WdUtilsLib
