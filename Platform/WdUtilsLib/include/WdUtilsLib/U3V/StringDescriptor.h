/// @file
/// WdUtilsLib: the texts of a USB device.
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
///     2       n     UTF-16 code units, little-endian; of descriptor 0 instead the languages
///
/// The memory is borrowed and must outlive the view; not attached, it is empty.
class WDUTILSLIB_API StringDescriptor
{
public:
    static constexpr std::size_t MAX_SIZE = 255; ///< bytes of the longest descriptor

    /// Attach binds the view to what was received, bounded by the length that the descriptor tells.
    /// INVALID_PACKET, and nothing is attached, where that is no string descriptor.
    QmUtilsLib::Result Attach( const unsigned char* aBytes, std::size_t aSize );

    /// GetLanguage gives the first language of descriptor 0, or 0.
    uint16_t GetLanguage() const;

    /// GetText gives the text up to its first zero; what is malformed in it becomes U+FFFD.
    QmUtilsLib::String GetText() const;

private:
    const unsigned char* mUnits = nullptr;
    std::size_t mCount = 0; // of code units
};

} // namespace U3V
} // namespace WdUtilsLib
