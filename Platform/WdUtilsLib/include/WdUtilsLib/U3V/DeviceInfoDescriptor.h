/// @file
/// WdUtilsLib: the device information of a USB3 Vision device.
#pragma once

#include <QmUtilsLib/Result.h>
#include <WdUtilsLib/Export.h>
#include <WdUtilsLib/U3V/FieldsView.h>

#include <cstddef>
#include <cstdint>

namespace WdUtilsLib
{
namespace U3V
{

/// The class, subclass and protocol of the USB interface that carries GenCP.
///@{
constexpr uint8_t INTERFACE_CLASS = 0xEF;
constexpr uint8_t INTERFACE_SUBCLASS = 0x05;
constexpr uint8_t CONTROL_PROTOCOL = 0x00;
///@}

/// DeviceInfoDescriptor is a view of the class-specific descriptor that follows the descriptor of
/// the control interface.
///
///     offset  size
///     0       1     length, 20
///     1       1     descriptor type, 0x24
///     2       1     descriptor subtype, 0x01
///     3       4     GenCP version, little-endian, major in the upper 16 bits
///     7       4     USB3 Vision version, likewise
///     11      8     indices of string descriptors, see Text; 0: there is none
///     19      1     supported speeds, one bit each
///
/// The memory is borrowed and must outlive the view. A new view is not attached: its fields are 0.
class WDUTILSLIB_API DeviceInfoDescriptor
    : public FieldsView<DeviceInfoDescriptor, const unsigned char>
{
public:
    static constexpr std::size_t SIZE = 20; ///< bytes of the descriptor

    /// The texts, in the order of the descriptor.
    enum class Text : uint8_t
    {
        GUID,
        VENDOR_NAME,
        MODEL_NAME,
        FAMILY_NAME,
        DEVICE_VERSION,
        MANUFACTURER_INFO,
        SERIAL_NUMBER,
        USER_DEFINED_NAME
    };

    /// Attach searches the aSize bytes of descriptors behind an interface descriptor, and shows the
    /// first device information descriptor. Where there is none, or it is not whole, it returns
    /// INVALID_PACKET and nothing is attached.
    QmUtilsLib::Result Attach( const unsigned char* aDescriptors, std::size_t aSize );

    /// The fields of the descriptor.
    ///@{
    uint32_t GetGenCPVersion() const;
    uint32_t GetU3VVersion() const;
    uint8_t GetTextIndex( Text aText ) const;
    ///@}
};

} // namespace U3V
} // namespace WdUtilsLib
