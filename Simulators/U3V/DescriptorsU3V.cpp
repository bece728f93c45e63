#include "Simulators/U3V/DescriptorsU3V.h"

#include <PacketBytes/ByteWriter.h>

#include <array>
#include <cstddef>
#include <string>

namespace Simulators
{

using PacketBytes::LittleWriter;

namespace
{

constexpr uint8_t DEVICE_TYPE = 1;
constexpr uint8_t CONFIGURATION_TYPE = 2;
constexpr uint8_t STRING_TYPE = 3;

constexpr size_t STRING_MAX = 126; // characters, so that the size fits in its byte

constexpr uint8_t CONTROL_PROTOCOL = 0x00;
constexpr uint8_t STREAM_PROTOCOL = 0x02;

// Indices of the string descriptors.
enum Text : uint8_t
{
    MANUFACTURER = 1,
    MODEL,
    SERIAL_NUMBER,
    GUID,
    FAMILY,
    VERSION,
    INFORMATION,
    USER_NAME
};

// The texts in the order of their indices.
std::array<std::string, USER_NAME> GetTexts( const ConfigurationU3V& aConfiguration )
{
    return { aConfiguration.mManufacturerName, aConfiguration.mModelName,
             aConfiguration.mSerialNumber,     aConfiguration.mGUID,
             aConfiguration.mFamilyName,       aConfiguration.mDeviceVersion,
             aConfiguration.mManufacturerInfo, aConfiguration.mUserName };
}

// The index of the text, or 0 where it is empty.
uint8_t GetIndex( const ConfigurationU3V& aConfiguration, uint8_t aText )
{
    return GetTexts( aConfiguration ).at( aText - 1U ).empty() ? uint8_t{ 0 } : aText;
}

Bytes MakeDeviceDescriptor( const ConfigurationU3V& aConfiguration )
{
    Bytes lBytes( 18 );
    LittleWriter lWriter( lBytes.data(), lBytes.size() );
    lWriter.Put8( 18 ); // size
    lWriter.Put8( DEVICE_TYPE );
    lWriter.Put16( 0x0300 ); // USB 3.0
    lWriter.Put8( 0xEF );    // class: miscellaneous, with interface associations
    lWriter.Put8( 0x02 );
    lWriter.Put8( 0x01 );
    lWriter.Put8( 9 ); // packets of 2^9 bytes on endpoint 0
    lWriter.Put16( aConfiguration.mVendorID );
    lWriter.Put16( aConfiguration.mProductID );
    lWriter.Put16( 0x0100 ); // release 1.0
    lWriter.Put8( GetIndex( aConfiguration, MANUFACTURER ) );
    lWriter.Put8( GetIndex( aConfiguration, MODEL ) );
    lWriter.Put8( GetIndex( aConfiguration, SERIAL_NUMBER ) );
    lWriter.Put8( 1 ); // configurations
    return lBytes;
}

Bytes MakeInterface( uint8_t aNumber, uint8_t aEndpoints, uint8_t aProtocol )
{
    return { 9, 4, aNumber, 0, aEndpoints, 0xEF, 0x05, aProtocol, 0 };
}

// A bulk endpoint and its companion descriptor.
Bytes MakeEndpoint( uint8_t aAddress, uint16_t aPacketSize )
{
    Bytes lBytes( 13 );
    LittleWriter lWriter( lBytes.data(), lBytes.size() );
    lWriter.Put8( 7 ); // size
    lWriter.Put8( 5 ); // endpoint
    lWriter.Put8( aAddress );
    lWriter.Put8( 2 ); // bulk
    lWriter.Put16( aPacketSize );
    lWriter.Put8( 0 );
    lWriter.Put8( 6 );  // size
    lWriter.Put8( 48 ); // companion; the rest is 0
    return lBytes;
}

Bytes MakeDeviceInfo( const ConfigurationU3V& aConfiguration )
{
    Bytes lBytes( 20 );
    LittleWriter lWriter( lBytes.data(), lBytes.size() );
    lWriter.Put8( 20 ); // size
    lWriter.Put8( 0x24 );
    lWriter.Put8( 0x01 );
    lWriter.Put32( aConfiguration.mGenCPVersion );
    lWriter.Put32( aConfiguration.mU3VVersion );
    for ( const Text lText :
          { GUID, MANUFACTURER, MODEL, FAMILY, VERSION, INFORMATION, SERIAL_NUMBER, USER_NAME } )
    {
        lWriter.Put8( GetIndex( aConfiguration, lText ) );
    }
    lWriter.Put8( 0x0C ); // high speed and super speed
    return lBytes;
}

Bytes MakeConfigurationDescriptor( const ConfigurationU3V& aConfiguration )
{
    Bytes lBytes = { 9, CONFIGURATION_TYPE, 0, 0, 2, 1, 0, 0x80, 112 }; // 0, 0: size, see below
    Append( lBytes, { 8, 11, 0, 2, 0xEF, 0x05, 0x00, 0 } );             // association
    Append( lBytes, MakeInterface( 0, 2, CONTROL_PROTOCOL ) );
    Append( lBytes, MakeDeviceInfo( aConfiguration ) );
    Append( lBytes, MakeEndpoint( EndpointU3V::CONTROL_OUT, aConfiguration.mPacketSize ) );
    Append( lBytes, MakeEndpoint( EndpointU3V::CONTROL_IN, aConfiguration.mPacketSize ) );
    Append( lBytes, MakeInterface( 1, 1, STREAM_PROTOCOL ) );
    Append( lBytes, MakeEndpoint( EndpointU3V::STREAM_IN, aConfiguration.mPacketSize ) );
    LittleWriter lWriter( lBytes.data(), lBytes.size() );
    lWriter.Skip( 2 ).Put16( static_cast<uint16_t>( lBytes.size() ) ); // of all of them: 94
    return lBytes;
}

std::optional<Bytes> MakeStringDescriptor( const ConfigurationU3V& aConfiguration, uint8_t aIndex )
{
    if ( aIndex == 0 )
    {
        return Bytes{ 4, STRING_TYPE, 0x09, 0x04 }; // the languages: English
    }
    const auto lTexts = GetTexts( aConfiguration );
    if ( aIndex > lTexts.size() || lTexts[aIndex - 1U].empty() )
    {
        return std::nullopt;
    }
    const std::string lText = lTexts[aIndex - 1U].substr( 0, STRING_MAX );
    Bytes lBytes = { static_cast<uint8_t>( 2 + 2 * lText.size() ), STRING_TYPE };
    for ( const char lCharacter : lText )
    {
        Append( lBytes, { static_cast<uint8_t>( lCharacter ), 0 } );
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
