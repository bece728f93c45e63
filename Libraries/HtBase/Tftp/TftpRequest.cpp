#include "Libraries/HtBase/Tftp/TftpRequest.h"

#include <PacketBytes/ByteReader.h>
#include <PacketBytes/ByteWriter.h>

#include <algorithm>
#include <cstring>
#include <iterator>

namespace HtBaseLib
{

using PacketBytes::BigWriter;
using PacketBytes::ByteOrder;
using PacketBytes::ByteReader;

namespace
{

constexpr const char* MODE_TEXTS[] = { "netascii", "octet", "mail" };
static_assert( std::size( MODE_TEXTS ) == TftpRequest::MAIL + 1, "one text per mode" );

constexpr std::size_t MODE_CAPACITY = 10 + 1; // longer modes are refused unseen

} // namespace

// SAFE: A request longer than 1024 bytes is not sent. It has a name of more than 1015 characters.
// The waits that follow fail as for a silent device. A name is kept up to 1023 characters.
void TftpRequest::SetFileName( const char* aName )
{
    const std::size_t lLength = std::min( std::strlen( aName ), sizeof( mFileName ) - 1 );
    std::memmove( mFileName, aName, lLength );
    mFileName[lLength] = '\0';
}

const char* TftpRequest::GetModeText( uint32_t aMode )
{
    return aMode < std::size( MODE_TEXTS ) ? MODE_TEXTS[aMode] : nullptr;
}

bool TftpRequest::EncodeAs( Tftp::Opcode aOpcode, const char* aModeText, unsigned char* aBuffer,
                            unsigned int aCapacity, unsigned int& aLength ) const
{
    // Opcode and two zeros; the texts are short.
    // KEEP: An encoder sets the length before it finds that the packet does not fit. `TftpAck` sets
    // it only when the packet fits, and `TftpError` never.
    aLength = static_cast<unsigned int>( std::strlen( mFileName ) + std::strlen( aModeText ) + 4 );
    BigWriter lWriter = BigWriter( aBuffer, aCapacity ).GetPart( aLength );
    lWriter.Put16( aOpcode );
    lWriter.PutText( mFileName );
    lWriter.PutText( aModeText );
    return lWriter.IsWhole();
}

// SAFE: A request is decoded within its bytes: a name or mode without its zero is refused.
TftpRequest::Verdict TftpRequest::DecodeAs( Tftp::Opcode aOpcode, const unsigned char* aBytes,
                                            unsigned int aCount )
{
    if ( aCount > Tftp::MAX_PACKET )
    {
        return Verdict::REFUSED;
    }
    // KEEP: The opcode of a request is compared in the order of the host. On a little-endian host a
    // request from the wire is refused, and so is one of our own encoder. Nothing in the library
    // decodes requests.
    ByteReader<ByteOrder::HOST> lReader( aBytes, aCount );
    if ( lReader.Get16() != aOpcode )
    {
        return Verdict::REFUSED;
    }
    char lMode[MODE_CAPACITY];
    lReader.GetText( mFileName, sizeof( mFileName ) );
    lReader.GetText( lMode, sizeof( lMode ) );
    if ( !lReader.IsWhole() )
    {
        return Verdict::REFUSED;
    }
    const auto* const lFound =
        std::find_if( std::begin( MODE_TEXTS ), std::end( MODE_TEXTS ),
                      [&lMode]( const char* aText ) { return std::strcmp( aText, lMode ) == 0; } );
    if ( lFound == std::end( MODE_TEXTS ) )
    {
        return Verdict::UNKNOWN_MODE;
    }
    mMode = static_cast<uint32_t>( lFound - std::begin( MODE_TEXTS ) );
    return Verdict::ACCEPTED;
}

} // namespace HtBaseLib
