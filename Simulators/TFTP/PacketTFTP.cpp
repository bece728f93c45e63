#include "Simulators/TFTP/PacketTFTP.h"

#include <PacketBytes/ByteReader.h>
#include <PacketBytes/ByteWriter.h>

#include <cctype>
#include <utility>

namespace Simulators
{

using PacketBytes::BigReader;
using PacketBytes::BigWriter;

namespace
{

Bytes MakePacket( uint16_t aOpcode, uint16_t aNumber, const Bytes& aRest )
{
    Bytes lPacket( PacketTFTP::HEADER_SIZE + aRest.size() );
    BigWriter lWriter( lPacket.data(), lPacket.size() );
    lWriter.Put16( aOpcode );
    lWriter.Put16( aNumber );
    lWriter.PutBytes( aRest.data(), aRest.size() );
    return lPacket;
}

// The next text, without its zero. A text without one is an overrun of the reader.
std::string GetText( BigReader& aReader )
{
    std::string lText( aReader.GetLeft() + 1, '\0' );
    aReader.GetText( lText.data(), lText.size() );
    lText.resize( lText.find( '\0' ) );
    return lText;
}

std::string ToLower( std::string aText )
{
    for ( char& lCharacter : aText )
    {
        lCharacter = static_cast<char>( std::tolower( static_cast<unsigned char>( lCharacter ) ) );
    }
    return aText;
}

} // namespace

std::optional<PacketTFTP> ParsePacketTFTP( const Endpoint& aFrom, uint16_t aToPort, Bytes aDatagram,
                                           int64_t aNowMs )
{
    PacketTFTP lPacket;
    BigReader lReader( aDatagram.data(), aDatagram.size() );
    lPacket.mFrom = aFrom;
    lPacket.mToPort = aToPort;
    lPacket.mNowMs = aNowMs;
    lPacket.mOpcode = lReader.Get16();
    lPacket.mNumber = lReader.Get16();
    lPacket.mDatagram = std::move( aDatagram );
    return lReader.IsWhole() ? std::make_optional( std::move( lPacket ) ) : std::nullopt;
}

std::optional<RequestTFTP> ParseRequestTFTP( const PacketTFTP& aPacket )
{
    BigReader lReader( aPacket.mDatagram.data(), aPacket.mDatagram.size() );
    const uint16_t lOpcode = lReader.Get16();
    RequestTFTP lRequest;
    lRequest.mName = GetText( lReader );
    lRequest.mMode = ToLower( GetText( lReader ) );
    const bool lIsRequest = lOpcode == OpcodeTFTP::RRQ || lOpcode == OpcodeTFTP::WRQ;
    return lIsRequest && lReader.IsWhole() ? std::make_optional( std::move( lRequest ) )
                                           : std::nullopt;
}

Bytes MakeData( uint16_t aBlock, const Bytes& aData )
{
    return MakePacket( OpcodeTFTP::DATA, aBlock, aData );
}

Bytes MakeAck( uint16_t aBlock )
{
    return MakePacket( OpcodeTFTP::ACK, aBlock, Bytes() );
}

Bytes MakeError( uint16_t aCode, const std::string& aMessage )
{
    Bytes lText( aMessage.begin(), aMessage.end() );
    lText.push_back( 0 );
    return MakePacket( OpcodeTFTP::ERROR, aCode, lText );
}

uint16_t GetOpcode( const Bytes& aPacket )
{
    return BigReader( aPacket.data(), aPacket.size() ).Get16();
}

uint16_t GetNumber( const Bytes& aPacket )
{
    return BigReader( aPacket.data(), aPacket.size() ).Skip( PacketTFTP::NUMBER_OFFSET ).Get16();
}

} // namespace Simulators
