#include "Libraries/HtBase/TftpData.h"

#include <PacketBytes/ByteReader.h>
#include <PacketBytes/ByteWriter.h>
#include <QmUtilsLib/Assert.h>

#include <algorithm>

namespace HtBaseLib
{

using PacketBytes::BigReader;
using PacketBytes::BigWriter;

void TftpData::SetData( const unsigned char* aBytes, unsigned int aLength )
{
    if ( aLength > Tftp::BLOCK_SIZE )
    {
        QMUTILSLIB_ASSERT( false );
        return;
    }
    std::copy_n( aBytes, aLength, mData );
    mLength = aLength;
}

void TftpData::GetData( unsigned char* aBytes, unsigned int aCapacity, unsigned int& aLength ) const
{
    if ( mLength > aCapacity )
    {
        QMUTILSLIB_ASSERT( false );
        return;
    }
    aLength = mLength;
    std::copy_n( mData, mLength, aBytes );
}

bool TftpData::Encode( unsigned char* aBuffer, unsigned int aCapacity, unsigned int& aLength ) const
{
    // Also when the packet does not fit, as the other encoders do: see TftpRequest.
    aLength = Tftp::MIN_PACKET + mLength;
    BigWriter lWriter = BigWriter( aBuffer, aCapacity ).GetPart( aLength );
    lWriter.Put16( Tftp::DATA );
    lWriter.Put16( lBlockID );
    lWriter.PutBytes( mData, mLength );
    if ( !lWriter.IsWhole() )
    {
        QMUTILSLIB_ASSERT( false );
        return false;
    }
    return true;
}

bool TftpData::Decode( const unsigned char* aBytes, unsigned int aCount )
{
    BigReader lReader( aBytes, aCount );
    const uint16_t lOpcode = lReader.Get16();
    const uint16_t lNumber = lReader.Get16();
    const std::size_t lLength = lReader.GetLeft();
    if ( !lReader.IsWhole() || lLength > Tftp::MAX_DATA || lOpcode != Tftp::DATA )
    {
        return false;
    }
    lBlockID = lNumber;
    mLength = static_cast<uint32_t>( lLength ); // at most MAX_DATA
    lReader.GetBytes( mData, lLength );
    return true;
}

} // namespace HtBaseLib
