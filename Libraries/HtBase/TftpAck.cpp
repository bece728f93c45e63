#include "TftpAck.h"

#include "ByteCursor.h"

#include <QmUtilsLib/Assert.h>

#include <algorithm>
#include <cstring>

namespace HtBaseLib
{

bool TftpAck::Encode( unsigned char* aBuffer, unsigned int aCapacity, unsigned int& aLength ) const
{
    // KEEP: no length when the packet does not fit, unlike the other encoders.
    if ( aCapacity < Tftp::MIN_PACKET )
    {
        QMUTILSLIB_ASSERT( false );
        return false;
    }
    ByteWriter lWriter( aBuffer, aCapacity, ByteOrder::NETWORK );
    lWriter.Put16( mOpcode );
    lWriter.Put16( mBlockID );
    aLength = Tftp::MIN_PACKET;
    return lWriter.IsWhole();
}

bool TftpAck::Decode( const unsigned char* aBytes, unsigned int aCount )
{
    if ( aCount != Tftp::MIN_PACKET )
    {
        return false;
    }
    ByteReader lReader( aBytes, aCount, ByteOrder::NETWORK );
    if ( lReader.Get16() != Tftp::ACK )
    {
        return false;
    }
    mBlockID = lReader.Get16();
    return lReader.IsWhole();
}

// KEEP: the numbers as they lie in memory, no zero behind the message, no look at the capacity and
// no length. Nothing in this library sends an error.
bool TftpError::Encode( unsigned char* aBuffer, unsigned int /*aCapacity*/,
                        unsigned int& /*aLength*/ ) const
{
    const std::size_t lLength = std::strlen( mMessage );
    ByteWriter lWriter( aBuffer, Tftp::MIN_PACKET + lLength, ByteOrder::HOST );
    lWriter.Put16( Tftp::ERR );
    lWriter.Put16( mErrorCode );
    lWriter.PutBytes( mMessage, lLength );
    return lWriter.IsWhole();
}

bool TftpError::Decode( const unsigned char* aBytes, unsigned int aCount )
{
    if ( aCount <= Tftp::MIN_PACKET )
    {
        return false;
    }
    ByteReader lReader( aBytes, aCount, ByteOrder::NETWORK );
    if ( lReader.Get16() != Tftp::ERR )
    {
        return false;
    }
    mErrorCode = lReader.Get16();
    const std::size_t lLength = std::min( lReader.GetLeft(), sizeof( mMessage ) - 1 );
    lReader.GetBytes( mMessage, lLength );
    mMessage[lLength] = '\0';
    return lReader.IsWhole();
}

} // namespace HtBaseLib
