/// @file
/// WdUtilsLib: the identity of a USB3 Vision device.
#pragma once

#include <WdUtilsLib/Export.h>

#include <cstddef>

namespace WdUtilsLib
{
namespace U3V
{

/// U3VGUID is the identity that a USB3 Vision device carries in its device information: 12
/// characters, four hexadecimal digits of the maker's USB-IF vendor id, then eight of the maker's
/// choosing. It is empty until set.
///
/// The text is kept, compared and ordered exactly as given, upper and lower case apart; the empty
/// identity comes before all others. Copying allocates nothing. Values of this type follow the
/// rules of int for threads.
class WDUTILSLIB_API U3VGUID
{
public:
    static constexpr std::size_t LENGTH = 12; ///< characters of an identity

    /// The empty identity.
    U3VGUID() = default;

    /// From a text; what is no identity, null too, makes the empty one.
    explicit U3VGUID( const char* aText );

    /// Set takes a text of exactly 12 printable ASCII characters without blanks, the first four of
    /// them hexadecimal digits. False, and nothing changed, for any other and for null.
    bool Set( const char* aText );

    /// Clear makes the identity empty.
    void Clear();

    /// IsEmpty tells whether this is no device's identity.
    bool IsEmpty() const { return mText[0] == '\0'; }

    /// Get gives the text, "" when empty; never null, and valid until this object is changed or
    /// destroyed.
    const char* Get() const { return mText; }

    /// GetVendorID gives the USB-IF vendor id in the first four digits; 0 when empty.
    unsigned short GetVendorID() const;

    /// Compare, and order, the texts.
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
