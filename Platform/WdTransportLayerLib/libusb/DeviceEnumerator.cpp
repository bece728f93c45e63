#include <WdTransportLayerLib/U3V/DeviceEnumerator.h>

#include "UsbBus.h"

#include <cerrno>
#include <new>

namespace WdTransportLayerLib
{
namespace U3V
{

using QmUtilsLib::Result;

namespace
{

DeviceInfo::Speed GetSpeed( const UsbDevice& aDevice )
{
    switch ( libusb_get_device_speed( aDevice.mDevice.get() ) )
    {
    case LIBUSB_SPEED_LOW:
        return DeviceInfo::Speed::LOW;
    case LIBUSB_SPEED_FULL:
        return DeviceInfo::Speed::FULL;
    case LIBUSB_SPEED_HIGH:
        return DeviceInfo::Speed::HIGH;
    case LIBUSB_SPEED_SUPER:
        return DeviceInfo::Speed::SUPER;
    case LIBUSB_SPEED_SUPER_PLUS:
        return DeviceInfo::Speed::SUPER_PLUS;
    default:
        return DeviceInfo::Speed::UNKNOWN;
    }
}

void ReadTexts( const UsbDevice& aDevice, const HandlePointer& aHandle, DeviceInfo& aInfo )
{
    using Text = UsbDevice::Text;
    struct Place
    {
        Text mText;
        std::string DeviceInfo::*mMember;
    };
    constexpr Place PLACES[] = {
        { Text::VENDOR_NAME, &DeviceInfo::mVendorName },
        { Text::MODEL_NAME, &DeviceInfo::mModelName },
        { Text::FAMILY_NAME, &DeviceInfo::mFamilyName },
        { Text::DEVICE_VERSION, &DeviceInfo::mDeviceVersion },
        { Text::MANUFACTURER_INFO, &DeviceInfo::mManufacturerInfo },
        { Text::SERIAL_NUMBER, &DeviceInfo::mSerialNumber },
        { Text::USER_DEFINED_NAME, &DeviceInfo::mUserDefinedName },
    };
    TextReader lReader( aDevice, aHandle );
    // What cannot be read is left empty.
    (void)lReader.ReadGUID( aInfo.mGUID );
    for ( const Place& lPlace : PLACES )
    {
        (void)lReader.Read( lPlace.mText, aInfo.*lPlace.mMember );
    }
}

DeviceInfo Describe( const UsbDevice& aDevice )
{
    DeviceInfo lInfo;
    lInfo.mPath = aDevice.mPath;
    lInfo.mSpeed = GetSpeed( aDevice );
    lInfo.mGenCPVersion = aDevice.mGenCPVersion;
    lInfo.mU3VVersion = aDevice.mU3VVersion;
    libusb_device_descriptor lDescriptor{};
    (void)libusb_get_device_descriptor( aDevice.mDevice.get(), &lDescriptor ); // cannot fail
    lInfo.mVendorID = lDescriptor.idVendor;
    lInfo.mProductID = lDescriptor.idProduct;
    if ( const HandlePointer lHandle = OpenHandle( aDevice, lInfo.mAccess ) )
    {
        ReadTexts( aDevice, lHandle, lInfo );
    }
    return lInfo;
}

} // namespace

Result DeviceEnumerator::GetDevices( std::vector<DeviceInfo>& aDevices )
try
{
    aDevices.clear();
    Result lResult;
    const ContextPointer lContext = MakeContext( lResult );
    if ( lContext == nullptr )
    {
        return lResult;
    }
    std::vector<UsbDevice> lDevices;
    lResult = FindDevices( lContext, lDevices );
    for ( const UsbDevice& lDevice : lDevices )
    {
        aDevices.push_back( Describe( lDevice ) );
    }
    return lResult;
}
catch ( const std::bad_alloc& )
{
    aDevices.clear();
    return Result( Result::GENERIC_ERROR, ENOMEM );
}

} // namespace U3V
} // namespace WdTransportLayerLib
