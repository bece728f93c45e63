#include "Simulators/GEV/BootstrapGEV.h"

#include "Simulators/Description.h"

#include <PacketBytes/ByteReader.h>

#include <algorithm>
#include <cstdio>
#include <utility>

namespace Simulators
{

using PacketBytes::BigReader;

namespace
{

constexpr uint32_t MANUFACTURER_SIZE = Register::ACQUISITION + 4 - Register::SCRATCH;
constexpr uint32_t URL_SIZE = 512;
constexpr uint32_t LINK_SPEED_MBPS = 1000;

// A register with its value.
void Set( AddressSpace& aSpace, uint32_t aAddress, uint32_t aValue, Access aAccess )
{
    aSpace.SetWord( aAddress, aValue );
    aSpace.SetAccess( aAddress, 4, aAccess );
}

void SetText( AddressSpace& aSpace, uint32_t aAddress, uint32_t aSize, const std::string& aText )
{
    aSpace.SetText( aAddress, aSize, aText );
    aSpace.SetAccess( aAddress, aSize, Access::READ_ONLY );
}

void AddIdentity( AddressSpace& aSpace, const ConfigurationGEV& aConfiguration )
{
    BigReader lMac( aConfiguration.mMacAddress.data(), aConfiguration.mMacAddress.size() );
    const uint32_t lMacHigh = lMac.Get16();
    const uint32_t lMacLow = lMac.Get32();
    const uint32_t lVersion = ( static_cast<uint32_t>( aConfiguration.mVersionMajor ) << 16 ) |
                              aConfiguration.mVersionMinor;
    Set( aSpace, Register::VERSION, lVersion, Access::READ_ONLY );
    Set( aSpace, Register::DEVICE_MODE, aConfiguration.mDeviceMode, Access::READ_ONLY );
    Set( aSpace, Register::MAC_HIGH, lMacHigh, Access::READ_ONLY );
    Set( aSpace, Register::MAC_LOW, lMacLow, Access::READ_ONLY );
    SetText( aSpace, Register::MANUFACTURER_NAME, 32, aConfiguration.mManufacturerName );
    SetText( aSpace, Register::MODEL_NAME, 32, aConfiguration.mModelName );
    SetText( aSpace, Register::DEVICE_VERSION, 32, aConfiguration.mDeviceVersion );
    SetText( aSpace, Register::MANUFACTURER_INFO, 48, aConfiguration.mManufacturerInfo );
    SetText( aSpace, Register::SERIAL_NUMBER, 16, aConfiguration.mSerialNumber );
    SetText( aSpace, Register::USER_NAME, 16, aConfiguration.mUserName );
    if ( ( GetGvcpCapability( aConfiguration ) & Capability::GVCP_USER_DEFINED_NAME ) != 0 )
    {
        aSpace.SetAccess( Register::USER_NAME, 16, Access::READ_WRITE );
    }
}

void AddNetwork( AddressSpace& aSpace, const ConfigurationGEV& aConfiguration )
{
    // Bits of both words: 4 link-local address, 2 DHCP, 1 persistent address.
    Set( aSpace, Register::IP_CONFIGURATION_SUPPORTED, 0x00000007, Access::READ_ONLY );
    Set( aSpace, Register::IP_CONFIGURATION, 0x00000006, Access::READ_WRITE );
    Set( aSpace, Register::IP_ADDRESS, aConfiguration.mIpAddress, Access::READ_ONLY );
    Set( aSpace, Register::SUBNET_MASK, aConfiguration.mSubnetMask, Access::READ_ONLY );
    Set( aSpace, Register::GATEWAY, aConfiguration.mGateway, Access::READ_ONLY );
    Set( aSpace, Register::NETWORK_INTERFACES, 1, Access::READ_ONLY );
    Set( aSpace, Register::PERSISTENT_IP, 0, Access::READ_WRITE );
    Set( aSpace, Register::PERSISTENT_MASK, 0, Access::READ_WRITE );
    Set( aSpace, Register::PERSISTENT_GATEWAY, 0, Access::READ_WRITE );
}

void AddUrls( AddressSpace& aSpace, size_t aDescriptionSize )
{
    char lUrl[64];
    std::snprintf( lUrl, sizeof( lUrl ), "Local:virtual_device_gev.xml;%X;%zX",
                   static_cast<unsigned int>( Register::DESCRIPTION ), aDescriptionSize );
    SetText( aSpace, Register::FIRST_URL, URL_SIZE, lUrl );
    SetText( aSpace, Register::SECOND_URL, URL_SIZE, "" );
}

void AddControl( AddressSpace& aSpace, const ConfigurationGEV& aConfiguration )
{
    Set( aSpace, Register::MESSAGE_CHANNELS, aConfiguration.mMessageChannels, Access::READ_ONLY );
    Set( aSpace, Register::STREAM_CHANNELS, aConfiguration.mStreamChannels, Access::READ_ONLY );
    Set( aSpace, Register::GVCP_CAPABILITY, GetGvcpCapability( aConfiguration ),
         Access::READ_ONLY );
    Set( aSpace, Register::HEARTBEAT_TIMEOUT,
         std::max( aConfiguration.mHeartbeatTimeoutMs, HEARTBEAT_MIN_MS ), Access::READ_WRITE );
    Set( aSpace, Register::TICK_FREQUENCY_HIGH,
         static_cast<uint32_t>( aConfiguration.mTickFrequency >> 32 ), Access::READ_ONLY );
    Set( aSpace, Register::TICK_FREQUENCY_LOW,
         static_cast<uint32_t>( aConfiguration.mTickFrequency & UINT32_MAX ), Access::READ_ONLY );
    Set( aSpace, Register::CONTROL_PRIVILEGE, 0, Access::READ_WRITE );
    if ( aConfiguration.mTickFrequency != 0 )
    {
        Set( aSpace, Register::TIMESTAMP_CONTROL, 0, Access::READ_WRITE );
        Set( aSpace, Register::TIMESTAMP_HIGH, 0, Access::READ_ONLY );
        Set( aSpace, Register::TIMESTAMP_LOW, 0, Access::READ_ONLY );
    }
}

// What 1.0 did not have.
void AddLaterRegisters( AddressSpace& aSpace, const ConfigurationGEV& aConfiguration )
{
    if ( !HasVersion( aConfiguration, 1, 1 ) )
    {
        return;
    }
    const uint32_t lCapability = GetGvcpCapability( aConfiguration );
    Set( aSpace, Register::STREAM_CAPABILITY, GetStreamCapability( aConfiguration ),
         Access::READ_ONLY );
    Set( aSpace, Register::MESSAGE_CAPABILITY, GetMessageCapability( aConfiguration ),
         Access::READ_ONLY );
    if ( ( lCapability & Capability::GVCP_LINK_SPEED ) != 0 )
    {
        Set( aSpace, Register::LINK_SPEED, LINK_SPEED_MBPS, Access::READ_ONLY );
    }
    if ( ( lCapability & Capability::GVCP_HEARTBEAT_DISABLE ) != 0 )
    {
        Set( aSpace, Register::GVCP_CONFIGURATION, 0, Access::READ_WRITE );
    }
    if ( ( lCapability & Capability::GVCP_PENDING_ACK ) != 0 )
    {
        Set( aSpace, Register::PENDING_TIMEOUT, aConfiguration.mPending.mAnnouncedMs,
             Access::READ_ONLY );
    }
    if ( ( lCapability & Capability::GVCP_CONTROL_OWNER ) != 0 )
    {
        Set( aSpace, Register::CONTROL_OWNER_PORT, 0, Access::READ_ONLY );
        Set( aSpace, Register::CONTROL_OWNER_ADDRESS, 0, Access::READ_ONLY );
    }
}

bool HasSourcePort( const ConfigurationGEV& aConfiguration, uint32_t aCapability )
{
    return HasVersion( aConfiguration, 1, 1 ) &&
           ( aCapability & Capability::CHANNEL_SOURCE_PORT ) != 0;
}

void AddMessageChannel( AddressSpace& aSpace, const ConfigurationGEV& aConfiguration )
{
    if ( aConfiguration.mMessageChannels == 0 )
    {
        return;
    }
    Set( aSpace, Register::MESSAGE_PORT, 0, Access::READ_WRITE );
    Set( aSpace, Register::MESSAGE_DESTINATION, 0, Access::READ_WRITE );
    Set( aSpace, Register::MESSAGE_TIMEOUT, 0, Access::READ_WRITE );
    Set( aSpace, Register::MESSAGE_RETRIES, 0, Access::READ_WRITE );
    if ( HasSourcePort( aConfiguration, GetMessageCapability( aConfiguration ) ) )
    {
        Set( aSpace, Register::MESSAGE_SOURCE_PORT, aConfiguration.mMessageSourcePort,
             Access::READ_ONLY );
    }
}

void AddStreamChannel( AddressSpace& aSpace, const ConfigurationGEV& aConfiguration,
                       uint32_t aChannel )
{
    const uint32_t lOffset = Register::STREAM_STRIDE * aChannel;
    Set( aSpace, Register::STREAM_PORT + lOffset, 0, Access::READ_WRITE );
    Set( aSpace, Register::STREAM_PACKET_SIZE + lOffset, 1500, Access::READ_WRITE );
    Set( aSpace, Register::STREAM_PACKET_DELAY + lOffset, 0, Access::READ_WRITE );
    Set( aSpace, Register::STREAM_DESTINATION + lOffset, 0, Access::READ_WRITE );
    if ( HasSourcePort( aConfiguration, GetStreamCapability( aConfiguration ) ) )
    {
        Set( aSpace, Register::STREAM_SOURCE_PORT + lOffset,
             aConfiguration.mFirstStreamSourcePort + aChannel, Access::READ_ONLY );
    }
}

// Whole words, and no further than GVCP's addresses of 32 bits reach.
size_t GetMemorySize( const ConfigurationGEV& aConfiguration )
{
    const uint64_t lReach = ( uint64_t{ 1 } << 32 ) - aConfiguration.mMemoryBase;
    const uint64_t lSize = ( uint64_t{ aConfiguration.mMemorySize } + 3 ) / 4 * 4;
    return static_cast<size_t>( std::min( lSize, lReach ) );
}

void AddManufacturersRegisters( AddressSpace& aSpace )
{
    aSpace.SetAccess( Register::SCRATCH, size_t{ Register::SCRATCH_COUNT } * 4,
                      Access::READ_WRITE );
    Set( aSpace, Register::READ_ONLY_WORD, Register::READ_ONLY_VALUE, Access::READ_ONLY );
    Set( aSpace, Register::BUSY_WORD, 0, Access::READ_WRITE );
    Set( aSpace, Register::BUSY_COUNT, 0, Access::READ_WRITE );
    Set( aSpace, Register::WIDTH, 640, Access::READ_WRITE );
    Set( aSpace, Register::HEIGHT, 480, Access::READ_WRITE );
    Set( aSpace, Register::PIXEL_FORMAT, 0x01080001, Access::READ_WRITE ); // 8 bits, grey
    Set( aSpace, Register::ACQUISITION, 0, Access::READ_WRITE );
}

} // namespace

uint32_t GetStreamRegisterCount( const ConfigurationGEV& aConfiguration )
{
    return std::min( aConfiguration.mStreamChannels, STREAM_CHANNELS_MAX );
}

bool HasVersion( const ConfigurationGEV& aConfiguration, uint16_t aMajor, uint16_t aMinor )
{
    return aConfiguration.mVersionMajor > aMajor ||
           ( aConfiguration.mVersionMajor == aMajor && aConfiguration.mVersionMinor >= aMinor );
}

uint32_t GetGvcpCapability( const ConfigurationGEV& aConfiguration )
{
    const uint32_t lFirst = Capability::GVCP_CONCATENATION | Capability::GVCP_WRITEMEM;
    const uint32_t lLater = Capability::GVCP_PENDING_ACK | Capability::GVCP_CONTROL_OWNER |
                            Capability::GVCP_LINK_SPEED | Capability::GVCP_HEARTBEAT_DISABLE |
                            Capability::GVCP_SERIAL_NUMBER | Capability::GVCP_USER_DEFINED_NAME;
    return aConfiguration.mGvcpCapability.value_or(
        HasVersion( aConfiguration, 1, 1 ) ? lFirst | lLater : lFirst );
}

uint32_t GetStreamCapability( const ConfigurationGEV& aConfiguration )
{
    uint32_t lUsual = 0;
    if ( aConfiguration.mStreamChannels != 0 && HasVersion( aConfiguration, 1, 1 ) )
    {
        lUsual = Capability::CHANNEL_SOURCE_PORT;
    }
    if ( aConfiguration.mStreamChannels != 0 && HasVersion( aConfiguration, 2, 0 ) )
    {
        lUsual |= Capability::STREAM_LEGACY_BLOCK_ID;
    }
    return aConfiguration.mStreamCapability.value_or( lUsual );
}

uint32_t GetMessageCapability( const ConfigurationGEV& aConfiguration )
{
    const bool lHas = aConfiguration.mMessageChannels != 0 && HasVersion( aConfiguration, 1, 1 );
    return aConfiguration.mMessageCapability.value_or( lHas ? Capability::CHANNEL_SOURCE_PORT : 0 );
}

std::string GetDescriptionGEV()
{
    Description lDescription;
    lDescription.mModelName = "VirtualDeviceGEV";
    lDescription.mNameSpace = "GEV";
    lDescription.mProductGuid = "7A0C2B5E-52C6-4C7E-9B1F-0D6A3B1E4C10";
    lDescription.mVersionGuid = "7A0C2B5E-52C6-4C7E-9B1F-0D6A3B1E4C11";
    lDescription.mVendorText = { Register::MANUFACTURER_NAME, 32 };
    lDescription.mModelText = { Register::MODEL_NAME, 32 };
    lDescription.mSerialText = { Register::SERIAL_NUMBER, 16 };
    lDescription.mEndianess = "BigEndian";
    lDescription.mWidth = Register::WIDTH;
    lDescription.mHeight = Register::HEIGHT;
    lDescription.mPixelFormat = Register::PIXEL_FORMAT;
    lDescription.mAcquisition = Register::ACQUISITION;
    lDescription.mScratch = Register::SCRATCH;
    std::string lText = MakeDescription( lDescription );
    lText.resize( ( lText.size() + 3 ) / 4 * 4, '\n' );
    return lText;
}

AddressSpace MakeAddressSpaceGEV( const ConfigurationGEV& aConfiguration )
{
    const uint32_t lStreamChannels = GetStreamRegisterCount( aConfiguration );
    const std::string lDescription = GetDescriptionGEV();
    AddressSpace lSpace( PacketBytes::ByteOrder::BIG );
    lSpace.Map( 0, Bytes( Register::STREAM_PORT + Register::STREAM_STRIDE * lStreamChannels ),
                Access::RESERVED );
    lSpace.Map( Register::SCRATCH, Bytes( MANUFACTURER_SIZE ), Access::RESERVED );
    lSpace.Map( Register::DESCRIPTION, Bytes( lDescription.begin(), lDescription.end() ),
                Access::READ_ONLY );
    AddIdentity( lSpace, aConfiguration );
    AddNetwork( lSpace, aConfiguration );
    AddUrls( lSpace, lDescription.size() );
    AddControl( lSpace, aConfiguration );
    AddLaterRegisters( lSpace, aConfiguration );
    AddMessageChannel( lSpace, aConfiguration );
    for ( uint32_t i = 0; i < lStreamChannels; ++i )
    {
        AddStreamChannel( lSpace, aConfiguration, i );
    }
    AddManufacturersRegisters( lSpace );
    lSpace.Map( aConfiguration.mMemoryBase, Bytes( GetMemorySize( aConfiguration ) ),
                Access::READ_WRITE );
    return lSpace;
}

} // namespace Simulators
