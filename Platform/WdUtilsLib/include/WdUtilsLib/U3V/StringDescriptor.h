/// @file
/// WdUtilsLib: the string descriptors of a USB device.
#pragma once

#include <QmUtilsLib/Result.h>
#include <QmUtilsLib/String.h>
#include <WdUtilsLib/Export.h>

#include <cstddef>
#include <cstdint>

namespace WdUtilsLib
{
namespace U3V
{

/// StringDescriptor is a view of a USB string descriptor.
///
///     offset  size
///     0       1     length of the whole
///     1       1     descriptor type, 3
///     2       n     UTF-16 code units, little-endian; in descriptor 0 the languages
///
/// The memory is borrowed and must outlive the view. A new view is not attached and is empty.
class WDUTILSLIB_API StringDescriptor
{
public:
    static constexpr std::size_t MAX_SIZE = 255; ///< bytes of the longest descriptor

    /// Attach makes this a view of the aSize received bytes at aBytes, or fewer where the
    /// descriptor's length is smaller. Where they are not a string descriptor it returns
    /// INVALID_PACKET and nothing is attached.
    QmUtilsLib::Result Attach( const unsigned char* aBytes, std::size_t aSize );

    /// GetLanguage returns the first language of descriptor 0, or 0.
    uint16_t GetLanguage() const;

    /// GetText returns the text up to its first zero. What is malformed in it becomes U+FFFD. It
    /// throws `std::bad_alloc` where memory is missing.
    QmUtilsLib::String GetText() const;

private:
    const unsigned char* mUnits = nullptr;
    std::size_t mCount = 0; // of code units
};

} // namespace U3V
} // namespace WdUtilsLib
