#include "Simulators/BootstrapGEV.h"

#include <algorithm>
#include <cstdio>
#include <utility>

namespace Simulators
{

namespace
{

constexpr uint32_t MANUFACTURER_SIZE = Register::ACQUISITION + 4 - Register::SCRATCH;
constexpr uint32_t URL_SIZE = 512;
constexpr uint32_t LINK_SPEED_MBPS = 1000;

const char DESCRIPTION_HEAD[] =
    R"(<?xml version="1.0" encoding="utf-8"?>
<RegisterDescription ModelName="VirtualDeviceGEV" VendorName="HtBase" ToolTip="Virtual device"
  StandardNameSpace="GEV" SchemaMajorVersion="1" SchemaMinorVersion="1" SchemaSubMinorVersion="0"
  MajorVersion="1" MinorVersion="0" SubMinorVersion="0"
  ProductGuid="7A0C2B5E-52C6-4C7E-9B1F-0D6A3B1E4C10" VersionGuid="7A0C2B5E-52C6-4C7E-9B1F-0D6A3B1E4C11"
  xmlns="http://www.genicam.org/GenApi/Version_1_1">
<Category Name="Root" NameSpace="Standard">
  <pFeature>DeviceControl</pFeature><pFeature>ImageFormatControl</pFeature>
  <pFeature>AcquisitionControl</pFeature><pFeature>TransportLayerControl</pFeature>
</Category>
<Category Name="DeviceControl" NameSpace="Standard">
  <pFeature>DeviceVendorName</pFeature><pFeature>DeviceModelName</pFeature>
  <pFeature>DeviceSerialNumber</pFeature>
</Category>
<Category Name="ImageFormatControl" NameSpace="Standard">
  <pFeature>Width</pFeature><pFeature>Height</pFeature><pFeature>PixelFormat</pFeature>
</Category>
<Category Name="AcquisitionControl" NameSpace="Standard">
  <pFeature>AcquisitionMode</pFeature>
  <pFeature>AcquisitionStart</pFeature><pFeature>AcquisitionStop</pFeature>
</Category>
<Category Name="TransportLayerControl" NameSpace="Standard">
  <pFeature>PayloadSize</pFeature>
</Category>
)";

const char DESCRIPTION_FEATURES[] =
    R"(<StringReg Name="DeviceVendorName" NameSpace="Standard">
  <Address>0x48</Address><Length>32</Length><AccessMode>RO</AccessMode><pPort>Device</pPort>
</StringReg>
<StringReg Name="DeviceModelName" NameSpace="Standard">
  <Address>0x68</Address><Length>32</Length><AccessMode>RO</AccessMode><pPort>Device</pPort>
</StringReg>
<StringReg Name="DeviceSerialNumber" NameSpace="Standard">
  <Address>0xD8</Address><Length>16</Length><AccessMode>RO</AccessMode><pPort>Device</pPort>
</StringReg>
<Integer Name="Width" NameSpace="Standard">
  <pValue>WidthReg</pValue><Min>4</Min><Max>4096</Max><Inc>4</Inc>
</Integer>
<Integer Name="Height" NameSpace="Standard">
  <pValue>HeightReg</pValue><Min>1</Min><Max>4096</Max><Inc>1</Inc>
</Integer>
<Enumeration Name="PixelFormat" NameSpace="Standard">
  <EnumEntry Name="Mono8" NameSpace="Standard"><Value>0x01080001</Value></EnumEntry>
  <pValue>PixelFormatReg</pValue>
</Enumeration>
<Enumeration Name="AcquisitionMode" NameSpace="Standard">
  <EnumEntry Name="Continuous" NameSpace="Standard"><Value>0</Value></EnumEntry>
  <Value>0</Value>
</Enumeration>
<Command Name="AcquisitionStart" NameSpace="Standard">
  <pValue>AcquisitionReg</pValue><CommandValue>1</CommandValue>
</Command>
<Command Name="AcquisitionStop" NameSpace="Standard">
  <pValue>AcquisitionReg</pValue><CommandValue>0</CommandValue>
</Command>
<IntSwissKnife Name="PayloadSize" NameSpace="Standard">
  <pVariable Name="W">Width</pVariable><pVariable Name="H">Height</pVariable>
  <Formula>W * H</Formula>
</IntSwissKnife>
)";

const char DESCRIPTION_TAIL[] = R"(<Port Name="Device" NameSpace="Standard"></Port>
</RegisterDescription>
)";

std::string MakeIntReg( const char* aName, uint32_t aAddress )
{
    char lText[320];
    std::snprintf( lText, sizeof( lText ),
                   "<IntReg Name=\"%s\"><Address>0x%X</Address><Length>4</Length>"
                   "<AccessMode>RW</AccessMode><pPort>Device</pPort><Sign>Unsigned</Sign>"
                   "<Endianess>BigEndian</Endianess></IntReg>\n",
                   aName, static_cast<unsigned int>( aAddress ) );
    return lText;
}

// A register with its value.
void Set( AddressSpace* aSpace, uint32_t aAddress, uint32_t aValue, Access aAccess )
{
    (void)aSpace->SetWord( aAddress, aValue );
    aSpace->SetAccess( aAddress, 4, aAccess );
}

void SetText( AddressSpace* aSpace, uint32_t aAddress, uint32_t aSize, const std::string& aText )
{
    aSpace->SetText( aAddress, aSize, aText );
    aSpace->SetAccess( aAddress, aSize, Access::READ_ONLY );
}

void AddIdentity( AddressSpace* aSpace, const ConfigurationGEV& aConfiguration )
{
    const auto& lMac = aConfiguration.mMacAddress;
    const uint32_t lMacHigh = ( static_cast<uint32_t>( lMac[0] ) << 8 ) | lMac[1];
    const uint32_t lMacLow = ( static_cast<uint32_t>( lMac[2] ) << 24 ) |
                             ( static_cast<uint32_t>( lMac[3] ) << 16 ) |
                             ( static_cast<uint32_t>( lMac[4] ) << 8 ) | lMac[5];
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
        aSpace->SetAccess( Register::USER_NAME, 16, Access::READ_WRITE );
    }
}

void AddNetwork( AddressSpace* aSpace, const ConfigurationGEV& aConfiguration )
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

void AddUrls( AddressSpace* aSpace, size_t aDescriptionSize )
{
    char lUrl[64];
    std::snprintf( lUrl, sizeof( lUrl ), "Local:virtual_device_gev.xml;%X;%zX",
                   static_cast<unsigned int>( Register::DESCRIPTION ), aDescriptionSize );
    SetText( aSpace, Register::FIRST_URL, URL_SIZE, lUrl );
    SetText( aSpace, Register::SECOND_URL, URL_SIZE, "" );
}

void AddControl( AddressSpace* aSpace, const ConfigurationGEV& aConfiguration )
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
void AddLaterRegisters( AddressSpace* aSpace, const ConfigurationGEV& aConfiguration )
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
           ( ( aCapability & Capability::CHANNEL_SOURCE_PORT ) != 0 );
}

void AddMessageChannel( AddressSpace* aSpace, const ConfigurationGEV& aConfiguration )
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

void AddStreamChannel( AddressSpace* aSpace, const ConfigurationGEV& aConfiguration,
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

void AddManufacturersRegisters( AddressSpace* aSpace )
{
    aSpace->SetAccess( Register::SCRATCH, Register::SCRATCH_COUNT * 4, Access::READ_WRITE );
    Set( aSpace, Register::READ_ONLY_WORD, Register::READ_ONLY_VALUE, Access::READ_ONLY );
    Set( aSpace, Register::BUSY_WORD, 0, Access::READ_WRITE );
    Set( aSpace, Register::BUSY_COUNT, 0, Access::READ_WRITE );
    Set( aSpace, Register::WIDTH, 640, Access::READ_WRITE );
    Set( aSpace, Register::HEIGHT, 480, Access::READ_WRITE );
    Set( aSpace, Register::PIXEL_FORMAT, 0x01080001, Access::READ_WRITE ); // 8 bits, grey
    Set( aSpace, Register::ACQUISITION, 0, Access::READ_WRITE );
}

} // namespace

bool HasVersion( const ConfigurationGEV& aConfiguration, uint16_t aMajor, uint16_t aMinor )
{
    return ( aConfiguration.mVersionMajor > aMajor ) ||
           ( ( aConfiguration.mVersionMajor == aMajor ) &&
             ( aConfiguration.mVersionMinor >= aMinor ) );
}

uint32_t GetGvcpCapability( const ConfigurationGEV& aConfiguration )
{
    const uint32_t lFirst = Capability::GVCP_CONCATENATION | Capability::GVCP_WRITEMEM;
    const uint32_t lLater = Capability::GVCP_PENDING_ACK | Capability::GVCP_CONTROL_OWNER |
                            Capability::GVCP_LINK_SPEED | Capability::GVCP_HEARTBEAT_DISABLE |
                            Capability::GVCP_SERIAL_NUMBER | Capability::GVCP_USER_DEFINED_NAME;
    return aConfiguration.mGvcpCapability.value_or(
        lFirst | ( HasVersion( aConfiguration, 1, 1 ) ? lLater : 0 ) );
}

uint32_t GetStreamCapability( const ConfigurationGEV& aConfiguration )
{
    uint32_t lUsual = 0;
    if ( ( aConfiguration.mStreamChannels != 0 ) && HasVersion( aConfiguration, 1, 1 ) )
    {
        lUsual = Capability::CHANNEL_SOURCE_PORT;
    }
    if ( ( aConfiguration.mStreamChannels != 0 ) && HasVersion( aConfiguration, 2, 0 ) )
    {
        lUsual |= Capability::STREAM_LEGACY_BLOCK_ID;
    }
    return aConfiguration.mStreamCapability.value_or( lUsual );
}

uint32_t GetMessageCapability( const ConfigurationGEV& aConfiguration )
{
    const bool lHas =
        ( aConfiguration.mMessageChannels != 0 ) && HasVersion( aConfiguration, 1, 1 );
    return aConfiguration.mMessageCapability.value_or( lHas ? Capability::CHANNEL_SOURCE_PORT : 0 );
}

std::string GetDescriptionGEV()
{
    std::string lText = DESCRIPTION_HEAD;
    lText += DESCRIPTION_FEATURES;
    lText += MakeIntReg( "WidthReg", Register::WIDTH );
    lText += MakeIntReg( "HeightReg", Register::HEIGHT );
    lText += MakeIntReg( "PixelFormatReg", Register::PIXEL_FORMAT );
    lText += MakeIntReg( "AcquisitionReg", Register::ACQUISITION );
    lText += DESCRIPTION_TAIL;
    lText.resize( ( lText.size() + 3 ) / 4 * 4, '\n' );
    return lText;
}

AddressSpace MakeAddressSpaceGEV( const ConfigurationGEV& aConfiguration )
{
    const uint32_t lStreamChannels =
        std::min( aConfiguration.mStreamChannels, STREAM_CHANNELS_MAX );
    const std::string lDescription = GetDescriptionGEV();
    AddressSpace lSpace;
    lSpace.Map( 0, Bytes( Register::STREAM_PORT + Register::STREAM_STRIDE * lStreamChannels ),
                Access::RESERVED );
    lSpace.Map( Register::SCRATCH, Bytes( MANUFACTURER_SIZE ), Access::RESERVED );
    lSpace.Map( Register::DESCRIPTION, Bytes( lDescription.begin(), lDescription.end() ),
                Access::READ_ONLY );
    AddIdentity( &lSpace, aConfiguration );
    AddNetwork( &lSpace, aConfiguration );
    AddUrls( &lSpace, lDescription.size() );
    AddControl( &lSpace, aConfiguration );
    AddLaterRegisters( &lSpace, aConfiguration );
    AddMessageChannel( &lSpace, aConfiguration );
    for ( uint32_t i = 0; i < lStreamChannels; i++ )
    {
        AddStreamChannel( &lSpace, aConfiguration, i );
    }
    AddManufacturersRegisters( &lSpace );
    lSpace.Map( aConfiguration.mMemoryBase, Bytes( aConfiguration.mMemorySize ),
                Access::READ_WRITE );
    return lSpace;
}

} // namespace Simulators
