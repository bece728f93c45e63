#include "Libraries/HtBase/TftpAck.h"

#include <PacketBytes/ByteReader.h>
#include <PacketBytes/ByteWriter.h>
#include <QmUtilsLib/Assert.h>

#include <algorithm>
#include <cstring>

namespace HtBaseLib
{

using PacketBytes::BigReader;
using PacketBytes::BigWriter;
using PacketBytes::ByteOrder;
using PacketBytes::ByteWriter;

bool TftpAck::Encode( unsigned char* aBuffer, unsigned int aCapacity, unsigned int& aLength ) const
{
    BigWriter lWriter = BigWriter( aBuffer, aCapacity ).GetPart( Tftp::MIN_PACKET );
    lWriter.Put16( mOpcode );
    lWriter.Put16( mBlockID );
    if ( !lWriter.IsWhole() )
    {
        QMUTILSLIB_ASSERT( false );
        return false;
    }
    // Only when the packet fits: see TftpRequest.
    aLength = Tftp::MIN_PACKET;
    return true;
}

bool TftpAck::Decode( const unsigned char* aBytes, unsigned int aCount )
{
    BigReader lReader( aBytes, aCount );
    const uint16_t lOpcode = lReader.Get16();
    const uint16_t lBlockID = lReader.Get16();
    if ( !lReader.IsWhole() || lReader.GetLeft() != 0 || lOpcode != Tftp::ACK )
    {
        return false;
    }
    mBlockID = lBlockID;
    return true;
}

// KEEP: `TftpError::Encode` writes its two numbers as they lie in memory, without a zero behind
// the message, without a look at the capacity. Nothing in the library sends an error.
bool TftpError::Encode( unsigned char* aBuffer, unsigned int /*aCapacity*/,
                        unsigned int& /*aLength*/ ) const
{
    const std::size_t lLength = std::strlen( mMessage );
    ByteWriter<ByteOrder::HOST> lWriter( aBuffer, Tftp::MIN_PACKET + lLength );
    lWriter.Put16( Tftp::ERR );
    lWriter.Put16( mErrorCode );
    lWriter.PutBytes( mMessage, lLength );
    return lWriter.IsWhole();
}

// SAFE: A device's error message is cut after 1023 characters and always terminated, also when
// its packet has no zero. It is never a format.
bool TftpError::Decode( const unsigned char* aBytes, unsigned int aCount )
{
    BigReader lReader( aBytes, aCount );
    const uint16_t lOpcode = lReader.Get16();
    const uint16_t lErrorCode = lReader.Get16();
    if ( lReader.GetLeft() == 0 || lOpcode != Tftp::ERR )
    {
        return false;
    }
    mErrorCode = lErrorCode;
    const std::size_t lLength = std::min( lReader.GetLeft(), sizeof( mMessage ) - 1 );
    lReader.GetBytes( mMessage, lLength );
    mMessage[lLength] = '\0';
    return true;
}

} // namespace HtBaseLib
