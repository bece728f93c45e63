#include "Simulators/U3V/BootstrapU3V.h"

#include "Simulators/Description.h"

#include <PacketBytes/ByteWriter.h>

#include <algorithm>
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
    aSpace.SetAccess( DEVICE_CONFIGURATION, 16, Access::READ_WRITE ); // and the two words after it
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
    constexpr uint32_t CHANNELS_MAX = 64; // they fit in front of the EIRM
    const uint32_t lChannels = std::min( aConfiguration.mStreamChannels, CHANNELS_MAX );
    aSpace.Map( SIRM, Bytes( lChannels * SIRM_SIZE, 0 ), Access::READ_ONLY );
    for ( uint32_t i = 0; i < lChannels; ++i )
    {
        const uint64_t lBase = SIRM + uint64_t{ i } * SIRM_SIZE;
        aSpace.SetNumber( lBase + PAYLOAD_SIZE_OFFSET, uint64_t{ 640 } * 480, 8 );
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
    constexpr size_t ENTRY_SIZE = 64;
    Bytes lTable( 8 + ENTRY_SIZE );
    PacketBytes::LittleWriter lWriter( lTable.data(), lTable.size() );
    lWriter.Put64( 1 );          // entries
    lWriter.Put32( 0x01000000 ); // version of the file 1.0.0
    lWriter.Put32( 0x01010000 ); // schema 1.1, not compressed
    lWriter.Put64( RegisterU3V::DESCRIPTION );
    lWriter.Put64( aDescription.size() ); // without a hash behind it
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

} // namespace Simulators
