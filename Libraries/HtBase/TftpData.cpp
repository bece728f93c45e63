#include "TftpData.h"

#include "ByteCursor.h"

#include <QmUtilsLib/Assert.h>

#include <algorithm>

namespace HtBaseLib
{

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
    aLength = Tftp::MIN_PACKET + mLength; // KEEP: also when the packet does not fit
    if ( aCapacity < aLength )
    {
        QMUTILSLIB_ASSERT( false );
        return false;
    }
    ByteWriter lWriter( aBuffer, aCapacity, ByteOrder::NETWORK );
    lWriter.Put16( Tftp::DATA );
    lWriter.Put16( lBlockID );
    lWriter.PutBytes( mData, mLength );
    return lWriter.IsWhole();
}

bool TftpData::Decode( const unsigned char* aBytes, unsigned int aCount )
{
    if ( aCount < Tftp::MIN_PACKET || aCount > Tftp::MAX_PACKET )
    {
        return false;
    }
    ByteReader lReader( aBytes, aCount, ByteOrder::NETWORK );
    if ( lReader.Get16() != Tftp::DATA )
    {
        return false;
    }
    lBlockID = lReader.Get16();
    mLength = static_cast<uint32_t>( lReader.GetLeft() ); // at most MAX_DATA
    lReader.GetBytes( mData, mLength );
    return lReader.IsWhole();
}

} // namespace HtBaseLib
