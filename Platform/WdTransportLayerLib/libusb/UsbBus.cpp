#include "UsbBus.h"

#include "UsbResult.h"

#include <WdUtilsLib/U3V/StringDescriptor.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <tuple>
#include <utility>

namespace WdTransportLayerLib
{
namespace U3V
{

using QmUtilsLib::Result;
using WdUtilsLib::U3V::CONTROL_PROTOCOL;
using WdUtilsLib::U3V::DeviceInfoDescriptor;
using WdUtilsLib::U3V::INTERFACE_CLASS;
using WdUtilsLib::U3V::INTERFACE_SUBCLASS;
using WdUtilsLib::U3V::StringDescriptor;
using WdUtilsLib::U3V::U3VGUID;

namespace
{

constexpr unsigned int TEXT_TIMEOUT = 500; // ms
constexpr int MAX_PORTS = 7;               // the longest chain of ports that USB allows

std::vector<uint8_t> GetPorts( libusb_device* aDevice )
{
    std::array<uint8_t, MAX_PORTS> lPorts{};
    const int lCount = libusb_get_port_numbers( aDevice, lPorts.data(), MAX_PORTS );
    return std::vector<uint8_t>( lPorts.begin(), lPorts.begin() + std::max( lCount, 0 ) );
}

std::string MakePath( libusb_device* aDevice )
{
    std::string lPath = std::to_string( libusb_get_bus_number( aDevice ) );
    char lSeparator = '-';
    for ( const uint8_t lPort : GetPorts( aDevice ) )
    {
        lPath += lSeparator + std::to_string( lPort );
        lSeparator = '.';
    }
    return lPath;
}

bool IsControl( const libusb_interface_descriptor& aInterface )
{
    return aInterface.bInterfaceClass == INTERFACE_CLASS &&
           aInterface.bInterfaceSubClass == INTERFACE_SUBCLASS &&
           aInterface.bInterfaceProtocol == CONTROL_PROTOCOL;
}

bool IsBulk( const libusb_endpoint_descriptor& aEndpoint )
{
    return ( aEndpoint.bmAttributes & LIBUSB_TRANSFER_TYPE_MASK ) == LIBUSB_TRANSFER_TYPE_BULK;
}

// False where a bulk endpoint is missing.
bool TakeEndpoints( const libusb_interface_descriptor& aInterface, UsbDevice& aDevice )
{
    aDevice.mEndpointIn = 0;
    aDevice.mEndpointOut = 0;
    for ( uint8_t lIndex = 0; lIndex < aInterface.bNumEndpoints; ++lIndex )
    {
        const libusb_endpoint_descriptor& lEndpoint = aInterface.endpoint[lIndex];
        const bool lIsIn = ( lEndpoint.bEndpointAddress & LIBUSB_ENDPOINT_IN ) != 0;
        uint8_t& lAddress = lIsIn ? aDevice.mEndpointIn : aDevice.mEndpointOut;
        if ( !IsBulk( lEndpoint ) || lAddress != 0 )
        {
            continue;
        }
        lAddress = lEndpoint.bEndpointAddress;
        if ( lIsIn )
        {
            // Bits 0 to 10 are the size. A faulty device may report 0, which must not be a divisor.
            aDevice.mPacketSize = std::max<uint16_t>( lEndpoint.wMaxPacketSize & 0x07FF, 1 );
        }
    }
    return aDevice.mEndpointIn != 0 && aDevice.mEndpointOut != 0;
}

void TakeInfo( const libusb_interface_descriptor& aInterface, UsbDevice& aDevice )
{
    DeviceInfoDescriptor lInfo;
    // Without it the device has neither texts nor an identity and is found by its path alone.
    (void)lInfo.Attach( aInterface.extra, static_cast<std::size_t>( aInterface.extra_length ) );
    aDevice.mGenCPVersion = lInfo.GetGenCPVersion();
    aDevice.mU3VVersion = lInfo.GetU3VVersion();
    for ( std::size_t lIndex = 0; lIndex < UsbDevice::TEXT_COUNT; ++lIndex )
    {
        aDevice.mTextIndices[lIndex] = lInfo.GetTextIndex( static_cast<UsbDevice::Text>( lIndex ) );
    }
}

bool TakeControl( const libusb_config_descriptor& aConfiguration, UsbDevice& aDevice )
{
    for ( uint8_t lIndex = 0; lIndex < aConfiguration.bNumInterfaces; ++lIndex )
    {
        const libusb_interface& lInterface = aConfiguration.interface[lIndex];
        if ( lInterface.num_altsetting > 0 && IsControl( lInterface.altsetting[0] ) &&
             TakeEndpoints( lInterface.altsetting[0], aDevice ) )
        {
            aDevice.mInterface = lInterface.altsetting[0].bInterfaceNumber;
            TakeInfo( lInterface.altsetting[0], aDevice );
            return true;
        }
    }
    return false;
}

std::optional<UsbDevice> Examine( const ContextPointer& aContext, libusb_device* aDevice )
{
    libusb_config_descriptor* lConfiguration = nullptr;
    if ( libusb_get_active_config_descriptor( aDevice, &lConfiguration ) != LIBUSB_SUCCESS )
    {
        return std::nullopt; // the device is not configured and has no usable interface
    }
    const std::shared_ptr<libusb_config_descriptor> lOwner( lConfiguration,
                                                            libusb_free_config_descriptor );
    UsbDevice lDevice;
    if ( !TakeControl( *lConfiguration, lDevice ) )
    {
        return std::nullopt;
    }
    // libusb requires that every device is released before its context, so the deleter keeps the
    // context.
    lDevice.mDevice = DevicePointer( libusb_ref_device( aDevice ), [aContext]( libusb_device* aOld )
                                     { libusb_unref_device( aOld ); } );
    lDevice.mContext = aContext;
    lDevice.mPath = MakePath( aDevice );
    return lDevice;
}

} // namespace

bool UsbDevice::IsSame( const UsbDevice& aOther ) const
{
    // The system gives a device a new address each time it is plugged in. Pointers cannot be
    // compared, since the two devices may come from different contexts.
    const auto lGetKey = []( libusb_device* aDevice )
    {
        return std::make_pair( libusb_get_bus_number( aDevice ),
                               libusb_get_device_address( aDevice ) );
    };
    return mPath == aOther.mPath && lGetKey( mDevice.get() ) == lGetKey( aOther.mDevice.get() );
}

ContextPointer MakeContext( Result& aResult )
{
    libusb_context* lContext = nullptr;
    aResult = MakeUsbResult( libusb_init( &lContext ), "" );
    return aResult.IsOK() ? ContextPointer( lContext, libusb_exit ) : nullptr;
}

Result FindDevices( const ContextPointer& aContext, std::vector<UsbDevice>& aDevices )
{
    aDevices.clear();
    libusb_device** lList = nullptr;
    const ssize_t lCount = libusb_get_device_list( aContext.get(), &lList );
    if ( lCount < 0 )
    {
        return MakeUsbResult( static_cast<int>( lCount ), "" );
    }
    // 1: drops the list's references too; the devices that are kept have their own.
    const std::shared_ptr<libusb_device*> lOwner( lList, []( libusb_device** aList )
                                                  { libusb_free_device_list( aList, 1 ); } );
    for ( ssize_t lIndex = 0; lIndex < lCount; ++lIndex )
    {
        if ( std::optional<UsbDevice> lDevice = Examine( aContext, lList[lIndex] ) )
        {
            aDevices.push_back( std::move( *lDevice ) );
        }
    }
    std::sort( aDevices.begin(), aDevices.end(),
               []( const UsbDevice& aA, const UsbDevice& aB )
               {
                   const auto lGetKey = []( libusb_device* aDevice )
                   {
                       return std::make_pair( libusb_get_bus_number( aDevice ),
                                              GetPorts( aDevice ) );
                   };
                   return lGetKey( aA.mDevice.get() ) < lGetKey( aB.mDevice.get() );
               } );
    return Result::OK;
}

HandlePointer OpenHandle( const UsbDevice& aDevice, Result& aResult )
{
    libusb_device_handle* lHandle = nullptr;
    aResult = MakeUsbResult( libusb_open( aDevice.mDevice.get(), &lHandle ), aDevice.mPath );
    const DevicePointer lDevice = aDevice.mDevice; // keeps the context
    return aResult.IsOK() ? HandlePointer( lHandle, [lDevice]( libusb_device_handle* aOld )
                                           { libusb_close( aOld ); } )
                          : nullptr;
}

TextReader::TextReader( const UsbDevice& aDevice, HandlePointer aHandle )
    : mDevice( aDevice )
    , mHandle( std::move( aHandle ) )
{
}

Result TextReader::ReadDescriptor( uint8_t aIndex, uint16_t aLanguage,
                                   std::vector<unsigned char>& aBytes )
{
    aBytes.resize( StringDescriptor::MAX_SIZE );
    const int lCount = libusb_control_transfer(
        mHandle.get(), LIBUSB_ENDPOINT_IN, LIBUSB_REQUEST_GET_DESCRIPTOR,
        static_cast<uint16_t>( ( LIBUSB_DT_STRING << 8 ) | aIndex ), aLanguage, aBytes.data(),
        static_cast<uint16_t>( aBytes.size() ), TEXT_TIMEOUT );
    aBytes.resize( static_cast<std::size_t>( std::max( lCount, 0 ) ) );
    return MakeUsbResult( lCount, mDevice.mPath );
}

Result TextReader::Read( UsbDevice::Text aText, std::string& aValue )
{
    aValue.clear();
    const uint8_t lIndex = mDevice.GetTextIndex( aText );
    if ( lIndex == 0 )
    {
        return Result::OK;
    }
    std::vector<unsigned char> lBytes;
    StringDescriptor lDescriptor;
    if ( !mLanguage.has_value() )
    {
        // If the device reports no language, its texts are read in language 0.
        (void)ReadDescriptor( 0, 0, lBytes );
        (void)lDescriptor.Attach( lBytes.data(), lBytes.size() );
        mLanguage = lDescriptor.GetLanguage();
    }
    Result lResult = ReadDescriptor( lIndex, *mLanguage, lBytes );
    if ( !lResult.IsOK() )
    {
        return lResult;
    }
    if ( !lDescriptor.Attach( lBytes.data(), lBytes.size() ).IsOK() )
    {
        return MakeFailure( EPROTO, mDevice.mPath );
    }
    aValue = lDescriptor.GetText().GetAscii();
    return Result::OK;
}

Result TextReader::ReadGUID( U3VGUID& aGUID )
{
    std::string lText;
    Result lResult = Read( UsbDevice::Text::GUID, lText );
    aGUID = U3VGUID( lText.c_str() );
    return lResult;
}

} // namespace U3V
} // namespace WdTransportLayerLib
