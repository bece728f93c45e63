#include "Simulators/U3V/BootstrapU3V.h"

#include "Simulators/Description.h"
#include "Simulators/LittleEndian.h"

#include <algorithm>
#include <array>
#include <utility>

namespace Simulators
{

namespace
{

void MapAbrm( AddressSpace& aSpace, const ConfigurationU3V& aConfiguration )
{
    using namespace RegisterU3V;
    aSpace.Map( 0, Bytes( ABRM_SIZE, 0 ), Access::READ_ONLY );
    aSpace.SetNumber( GENCP_VERSION, aConfiguration.mGenCPVersion, 4 );
    aSpace.SetText( MANUFACTURER_NAME, TEXT_SIZE, aConfiguration.mManufacturerName );
    aSpace.SetText( MODEL_NAME, TEXT_SIZE, aConfiguration.mModelName );
    aSpace.SetText( FAMILY_NAME, TEXT_SIZE, aConfiguration.mFamilyName );
    aSpace.SetText( DEVICE_VERSION, TEXT_SIZE, aConfiguration.mDeviceVersion );
    aSpace.SetText( MANUFACTURER_INFO, TEXT_SIZE, aConfiguration.mManufacturerInfo );
    aSpace.SetText( SERIAL_NUMBER, TEXT_SIZE, aConfiguration.mSerialNumber );
    aSpace.SetText( USER_NAME, TEXT_SIZE, aConfiguration.mUserName );
    aSpace.SetNumber( DEVICE_CAPABILITY, aConfiguration.mDeviceCapability, 8 );
    aSpace.SetNumber( MAX_RESPONSE_TIME, aConfiguration.mMaxResponseTimeMs, 4 );
    aSpace.SetNumber( MANIFEST_TABLE_ADDRESS, MANIFEST, 8 );
    aSpace.SetNumber( SBRM_ADDRESS, SBRM, 8 );
    aSpace.SetNumber( TIMESTAMP_INCREMENT, aConfiguration.mTimestampIncrement, 8 );
    aSpace.SetNumber( PROTOCOL_ENDIANESS, 0xFFFFFFFF, 4 ); // little
    aSpace.SetNumber( IMPLEMENTATION_ENDIANESS, 0xFFFFFFFF, 4 );
    aSpace.SetAccess( USER_NAME, TEXT_SIZE, Access::READ_WRITE );
    aSpace.SetAccess( DEVICE_CONFIGURATION, 16, Access::READ_WRITE ); // and the two words behind it
    aSpace.SetAccess( TIMESTAMP_LATCH, 4, Access::READ_WRITE );
    aSpace.SetAccess( RegisterU3V::ACCESS_PRIVILEGE, 4, Access::READ_WRITE );
}

bool HasEvents( const ConfigurationU3V& aConfiguration )
{
    return ( aConfiguration.mDeviceCapability & CapabilityU3V::MESSAGE_CHANNEL ) != 0;
}

void MapSbrm( AddressSpace& aSpace, const ConfigurationU3V& aConfiguration )
{
    using namespace RegisterU3V;
    constexpr uint32_t SUPER_SPEED = 0x08;
    aSpace.Map( SBRM, Bytes( SBRM_SIZE, 0 ), Access::READ_ONLY );
    aSpace.SetNumber( U3V_VERSION, aConfiguration.mU3VVersion, 4 );
    aSpace.SetNumber( U3VCP_CAPABILITY, aConfiguration.mU3VCapability, 8 );
    aSpace.SetNumber( MAX_COMMAND_TRANSFER, aConfiguration.mMaxCommandTransferLength, 4 );
    aSpace.SetNumber( MAX_ACK_TRANSFER, aConfiguration.mMaxAckTransferLength, 4 );
    aSpace.SetNumber( STREAM_CHANNELS, aConfiguration.mStreamChannels, 4 );
    aSpace.SetNumber( CURRENT_SPEED, SUPER_SPEED, 4 );
    aSpace.SetAccess( U3VCP_CONFIGURATION, 8, Access::READ_WRITE );
    if ( aConfiguration.mStreamChannels != 0 )
    {
        aSpace.SetNumber( SIRM_ADDRESS, SIRM, 8 );
        aSpace.SetNumber( SIRM_LENGTH, SIRM_SIZE, 4 );
    }
    if ( HasEvents( aConfiguration ) )
    {
        aSpace.SetNumber( EIRM_ADDRESS, EIRM, 8 );
        aSpace.SetNumber( EIRM_LENGTH, EIRM_SIZE, 4 );
    }
}

void MapChannels( AddressSpace& aSpace, const ConfigurationU3V& aConfiguration )
{
    using namespace RegisterU3V;
    constexpr size_t CONTROL_OFFSET = 0x04;
    constexpr size_t PAYLOAD_SIZE_OFFSET = 0x08;
    constexpr size_t MAX_LEADER_OFFSET = 0x18;
    constexpr uint32_t CHANNELS_MAX = 64; // that fit in front of the EIRM with much room to spare
    const uint32_t lChannels = std::min( aConfiguration.mStreamChannels, CHANNELS_MAX );
    aSpace.Map( SIRM, Bytes( lChannels * SIRM_SIZE, 0 ), Access::READ_ONLY );
    for ( uint32_t i = 0; i < lChannels; i++ )
    {
        const uint64_t lBase = SIRM + i * SIRM_SIZE;
        aSpace.SetNumber( lBase + PAYLOAD_SIZE_OFFSET, 640 * 480, 8 );
        aSpace.SetAccess( lBase + CONTROL_OFFSET, 4, Access::READ_WRITE );
        aSpace.SetAccess( lBase + MAX_LEADER_OFFSET, SIRM_SIZE - MAX_LEADER_OFFSET,
                          Access::READ_WRITE );
    }
    if ( HasEvents( aConfiguration ) )
    {
        aSpace.Map( EIRM, Bytes( EIRM_SIZE, 0 ), Access::READ_WRITE );
    }
}

void MapManifest( AddressSpace& aSpace, const std::string& aDescription )
{
    Bytes lTable;
    AppendLittle( &lTable, 1, 8 );                        // entries
    AppendLittle( &lTable, 0x01000000, 4 );               // version of the file 1.0.0
    AppendLittle( &lTable, 0x01010000, 4 );               // schema 1.1, not compressed
    AppendLittle( &lTable, RegisterU3V::DESCRIPTION, 8 ); // where it lies
    AppendLittle( &lTable, aDescription.size(), 8 );
    lTable.resize( 8 + 64, 0 ); // no hash
    aSpace.Map( RegisterU3V::MANIFEST, std::move( lTable ), Access::READ_ONLY );
    aSpace.Map( RegisterU3V::DESCRIPTION, Bytes( aDescription.begin(), aDescription.end() ),
                Access::READ_ONLY );
}

} // namespace

std::string GetDescriptionU3V( const ConfigurationU3V& aConfiguration )
{
    using namespace RegisterU3V;
    const uint64_t lBase = aConfiguration.mMemoryBase;
    Description lDescription;
    lDescription.mModelName = "VirtualDeviceU3V";
    lDescription.mNameSpace = "None";
    lDescription.mProductGuid = "7A0C2B5E-52C6-4C7E-9B1F-0D6A3B1E4C20";
    lDescription.mVersionGuid = "7A0C2B5E-52C6-4C7E-9B1F-0D6A3B1E4C21";
    lDescription.mVendorText = { MANUFACTURER_NAME, TEXT_SIZE };
    lDescription.mModelText = { MODEL_NAME, TEXT_SIZE };
    lDescription.mSerialText = { SERIAL_NUMBER, TEXT_SIZE };
    lDescription.mEndianess = "LittleEndian";
    lDescription.mWidth = lBase + WIDTH_OFFSET;
    lDescription.mHeight = lBase + HEIGHT_OFFSET;
    lDescription.mPixelFormat = lBase + PIXEL_FORMAT_OFFSET;
    lDescription.mAcquisition = lBase + ACQUISITION_OFFSET;
    lDescription.mScratch = lBase + SCRATCH_OFFSET;
    return MakeDescription( lDescription );
}

AddressSpace MakeAddressSpaceU3V( const ConfigurationU3V& aConfiguration )
{
    using namespace RegisterU3V;
    AddressSpace lSpace( PacketBytes::ByteOrder::LITTLE );
    MapAbrm( lSpace, aConfiguration );
    MapSbrm( lSpace, aConfiguration );
    MapChannels( lSpace, aConfiguration );
    MapManifest( lSpace, GetDescriptionU3V( aConfiguration ) );
    lSpace.Map( aConfiguration.mMemoryBase, Bytes( aConfiguration.mMemorySize, 0 ),
                Access::READ_WRITE );
    lSpace.Map( aConfiguration.mHighMemoryBase, Bytes( aConfiguration.mHighMemorySize, 0 ),
                Access::READ_WRITE );
    lSpace.SetNumber( aConfiguration.mMemoryBase + WIDTH_OFFSET, 640, 4 );
    lSpace.SetNumber( aConfiguration.mMemoryBase + HEIGHT_OFFSET, 480, 4 );
    lSpace.SetNumber( aConfiguration.mMemoryBase + PIXEL_FORMAT_OFFSET, 0x01080001, 4 );
    return lSpace;
}

namespace
{

constexpr uint8_t DEVICE_TYPE = 1;
constexpr uint8_t CONFIGURATION_TYPE = 2;
constexpr uint8_t STRING_TYPE = 3;
constexpr size_t STRING_MAX = 126;

// String descriptors 1 to 8.
std::array<std::string, 8> GetTexts( const ConfigurationU3V& aConfiguration )
{
    return { aConfiguration.mManufacturerName, aConfiguration.mModelName,
             aConfiguration.mSerialNumber,     aConfiguration.mGUID,
             aConfiguration.mFamilyName,       aConfiguration.mDeviceVersion,
             aConfiguration.mManufacturerInfo, aConfiguration.mUserName };
}

// aIndex, or 0 where that text is empty.
uint8_t GetIndex( const ConfigurationU3V& aConfiguration, uint8_t aIndex )
{
    return GetTexts( aConfiguration ).at( aIndex - 1U ).empty() ? uint8_t{ 0 } : aIndex;
}

uint8_t Low( uint32_t aValue )
{
    return static_cast<uint8_t>( aValue & 0xFF );
}

uint8_t High( uint32_t aValue )
{
    return static_cast<uint8_t>( ( aValue >> 8 ) & 0xFF );
}

Bytes MakeDeviceDescriptor( const ConfigurationU3V& aConfiguration )
{
    return { 18,
             DEVICE_TYPE,
             0x00, // USB 3.0
             0x03,
             0xEF, // miscellaneous, with interface associations
             0x02,
             0x01,
             9, // packets of 2^9 on endpoint 0
             Low( aConfiguration.mVendorID ),
             High( aConfiguration.mVendorID ),
             Low( aConfiguration.mProductID ),
             High( aConfiguration.mProductID ),
             0x00, // release 1.0
             0x01,
             GetIndex( aConfiguration, 1 ),
             GetIndex( aConfiguration, 2 ),
             GetIndex( aConfiguration, 3 ),
             1 };
}

void AppendInterface( Bytes* aBytes, uint8_t aNumber, uint8_t aEndpoints, uint8_t aProtocol )
{
    const Bytes lInterface = { 9, 4, aNumber, 0, aEndpoints, 0xEF, 0x05, aProtocol, 0 };
    aBytes->insert( aBytes->end(), lInterface.begin(), lInterface.end() );
}

void AppendEndpoint( Bytes* aBytes, uint8_t aAddress, uint16_t aPacketSize )
{
    const Bytes lEndpoint = {
        7,
        5,
        aAddress,
        2,
        Low( aPacketSize ),
        High( aPacketSize ),
        0, // bulk
        6,
        48,
        0,
        0,
        0,
        0 // companion
    };
    aBytes->insert( aBytes->end(), lEndpoint.begin(), lEndpoint.end() );
}

void AppendDeviceInfo( Bytes* aBytes, const ConfigurationU3V& aConfiguration )
{
    const Bytes lHead = { 20, 0x24, 0x01 };
    aBytes->insert( aBytes->end(), lHead.begin(), lHead.end() );
    AppendLittle( aBytes, aConfiguration.mGenCPVersion, 4 );
    AppendLittle( aBytes, aConfiguration.mU3VVersion, 4 );
    // Identity, vendor, model, family, version, information, serial number, user's name.
    constexpr uint8_t ORDER[] = { 4, 1, 2, 5, 6, 7, 3, 8 };
    for ( const uint8_t lIndex : ORDER )
    {
        aBytes->push_back( GetIndex( aConfiguration, lIndex ) );
    }
    aBytes->push_back( 0x0C ); // high speed and super speed
}

Bytes MakeConfigurationDescriptor( const ConfigurationU3V& aConfiguration )
{
    Bytes lBytes = { 9, CONFIGURATION_TYPE, 0, 0, 2, 1, 0, 0x80, 112 };
    const Bytes lAssociation = { 8, 11, 0, 2, 0xEF, 0x05, 0x00, 0 };
    lBytes.insert( lBytes.end(), lAssociation.begin(), lAssociation.end() );
    AppendInterface( &lBytes, 0, 2, 0x00 ); // control
    AppendDeviceInfo( &lBytes, aConfiguration );
    AppendEndpoint( &lBytes, EndpointU3V::CONTROL_OUT, aConfiguration.mPacketSize );
    AppendEndpoint( &lBytes, EndpointU3V::CONTROL_IN, aConfiguration.mPacketSize );
    AppendInterface( &lBytes, 1, 1, 0x02 ); // stream
    AppendEndpoint( &lBytes, EndpointU3V::STREAM_IN, aConfiguration.mPacketSize );
    const auto lSize = static_cast<uint32_t>( lBytes.size() );
    lBytes[2] = Low( lSize );
    lBytes[3] = High( lSize );
    return lBytes;
}

std::optional<Bytes> MakeStringDescriptor( const ConfigurationU3V& aConfiguration, uint8_t aIndex )
{
    if ( aIndex == 0 )
    {
        return Bytes{ 4, STRING_TYPE, 0x09, 0x04 };
    }
    const auto lTexts = GetTexts( aConfiguration );
    if ( ( aIndex > lTexts.size() ) || lTexts[aIndex - 1U].empty() )
    {
        return std::nullopt;
    }
    const std::string lText = lTexts[aIndex - 1U].substr( 0, STRING_MAX );
    Bytes lBytes = { static_cast<uint8_t>( 2 + 2 * lText.size() ), STRING_TYPE };
    for ( const char lCharacter : lText )
    {
        lBytes.push_back( static_cast<uint8_t>( lCharacter ) );
        lBytes.push_back( 0 );
    }
    return lBytes;
}

} // namespace

std::optional<Bytes> GetDescriptor( const ConfigurationU3V& aConfiguration, uint8_t aType,
                                    uint8_t aIndex )
{
    switch ( aType )
    {
    case DEVICE_TYPE:
        return MakeDeviceDescriptor( aConfiguration );
    case CONFIGURATION_TYPE:
        return MakeConfigurationDescriptor( aConfiguration );
    case STRING_TYPE:
        return MakeStringDescriptor( aConfiguration, aIndex );
    default:
        return std::nullopt;
    }
}

} // namespace Simulators
