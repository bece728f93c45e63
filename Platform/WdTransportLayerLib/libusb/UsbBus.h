// The USB3 Vision devices that libusb sees.
#pragma once

#include <QmUtilsLib/Result.h>
#include <WdUtilsLib/U3V/DeviceInfoDescriptor.h>
#include <WdUtilsLib/U3V/U3VGUID.h>

#include <libusb.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace WdTransportLayerLib
{
namespace U3V
{

// Shared owners of what libusb gives; a handle keeps its context, through its deleter.
using ContextPointer = std::shared_ptr<libusb_context>;
using DevicePointer = std::shared_ptr<libusb_device>;
using HandlePointer = std::shared_ptr<libusb_device_handle>;

// UsbDevice is a USB3 Vision device that is plugged in, and where its control interface lies.
struct UsbDevice
{
    using Text = WdUtilsLib::U3V::DeviceInfoDescriptor::Text;
    static constexpr std::size_t TEXT_COUNT = 8;

    ContextPointer mContext;
    DevicePointer mDevice;
    std::string mPath; // bus and ports, as the system names them
    uint8_t mInterface = 0;
    uint8_t mEndpointOut = 0;
    uint8_t mEndpointIn = 0;
    uint16_t mPacketSize = 0; // of the IN endpoint, at least 1
    uint32_t mGenCPVersion = 0;
    uint32_t mU3VVersion = 0;
    uint8_t mTextIndices[TEXT_COUNT] = {};

    uint8_t GetTextIndex( Text aText ) const
    {
        return mTextIndices[static_cast<std::size_t>( aText )];
    }

    // Whether this is the same plugging-in of a device as aOther, seen through another context too.
    bool IsSame( const UsbDevice& aOther ) const;
};

// A context of its own, or null and why.
ContextPointer MakeContext( QmUtilsLib::Result& aResult );

// The USB3 Vision devices present, ordered by bus and ports.
QmUtilsLib::Result FindDevices( const ContextPointer& aContext, std::vector<UsbDevice>& aDevices );

// Opens the device, which claims nothing; null and why.
HandlePointer OpenHandle( const UsbDevice& aDevice, QmUtilsLib::Result& aResult );

// Reads texts of an opened device.
class TextReader
{
public:
    // aDevice is borrowed.
    TextReader( const UsbDevice& aDevice, HandlePointer aHandle );

    // Gives the text, UTF-8; an empty one where the device has none, and where it cannot be read.
    QmUtilsLib::Result Read( UsbDevice::Text aText, std::string& aValue );

    // Gives the identity; an empty one as above, and where the text is none.
    QmUtilsLib::Result ReadGUID( WdUtilsLib::U3V::U3VGUID& aGUID );

private:
    QmUtilsLib::Result ReadDescriptor( uint8_t aIndex, uint16_t aLanguage,
                                       std::vector<unsigned char>& aBytes );

    const UsbDevice& mDevice;
    const HandlePointer mHandle;
    std::optional<uint16_t> mLanguage; // asked for once
};

} // namespace U3V
} // namespace WdTransportLayerLib
