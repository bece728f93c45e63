#include "Libraries/HtBase/Firmware/PayloadReader.h"

#include "Libraries/HtBase/Firmware/PayloadFormat.h"
#include "Libraries/HtBase/IoStream.h"

#include <PacketBytes/ByteOrder.h>

namespace HtBaseLib
{

using PayloadFormat::HEADER_SIZE;
using PayloadFormat::MAX_LENGTH;
using PayloadFormat::TARGET_PREFIX;
using PayloadFormat::TARGET_SIZE;
using PayloadFormat::TARGET_SIZE_WITH_MODE;
using PayloadFormat::VERSION_SIZE;

PayloadReader::PayloadReader( IoStream& aStream )
    : mStream( aStream )
{
}

bool PayloadReader::ReadVersionRecord( unsigned char& aFirst, unsigned char& aSecond,
                                       unsigned char& aThird )
{
    unsigned int lLength = 0;
    unsigned char lBytes[VERSION_SIZE] = {};
    // KEEP: A version record of another length than 3 is skipped.
    if ( !FindRecord( PayloadFormat::VERSION, VERSION_SIZE, VERSION_SIZE, lLength ) ||
         !ReadBytes( lBytes, VERSION_SIZE ) )
    {
        return false;
    }
    aFirst = lBytes[0];
    aSecond = lBytes[1];
    aThird = lBytes[2];
    return true;
}

bool PayloadReader::ReadTargetRecord( unsigned char& aFirst, unsigned char& aSecond,
                                      std::uint16_t& aValue, bool& aFirstFlag, bool& aSecondFlag )
{
    unsigned int lLength = 0;
    unsigned char lBytes[TARGET_SIZE] = {};
    // KEEP: A target record that does not begin with 0x02 ends the search, though a good one may
    // follow.
    if ( !FindRecord( PayloadFormat::TARGET, TARGET_SIZE, MAX_LENGTH, lLength ) ||
         !ReadBytes( lBytes, 1 ) || lBytes[0] != TARGET_PREFIX ||
         !ReadBytes( lBytes + 1, TARGET_SIZE - 1 ) )
    {
        return false;
    }
    // KEEP: A target record of 7 bytes or more has no mode and is copied as one of 5.
    bool lFirstFlag = false;
    bool lSecondFlag = true;
    if ( lLength == TARGET_SIZE_WITH_MODE && !ReadMode( lFirstFlag, lSecondFlag ) )
    {
        return false;
    }
    aFirst = lBytes[1];
    aSecond = lBytes[2];
    aValue = PacketBytes::Load<PacketBytes::ByteOrder::BIG, std::uint16_t>( lBytes + 3 );
    aFirstFlag = lFirstFlag;
    aSecondFlag = lSecondFlag;
    return true;
}

// Past the end of a file a skip succeeds, so the end is where nothing can be read any more.
// KEEP: The search takes the zeros behind a short identification for records, two bytes at a
// time. It does not find the records behind an identification of an odd length below 16: put target
// and version before it.
// SAFE: A search for a record ends where nothing can be read any more, also in a file. A record
// that is cut off is not read.
bool PayloadReader::FindRecord( char aType, unsigned int aMinLength, unsigned int aMaxLength,
                                unsigned int& aLength )
{
    if ( mStream.Rewind() != 0 )
    {
        return false;
    }
    unsigned char lHeader[HEADER_SIZE] = {};
    do
    {
        if ( mStream.Skip( lHeader[1] ) != 0 || !ReadBytes( lHeader, HEADER_SIZE ) )
        {
            return false;
        }
    } while ( lHeader[0] != static_cast<unsigned char>( aType ) || lHeader[1] < aMinLength ||
              lHeader[1] > aMaxLength );
    aLength = lHeader[1];
    return true;
}

bool PayloadReader::ReadMode( bool& aFirstFlag, bool& aSecondFlag )
{
    unsigned char lLetter = 0;
    if ( !ReadBytes( &lLetter, 1 ) )
    {
        return false;
    }
    for ( const PayloadFormat::Mode& lMode : PayloadFormat::MODES )
    {
        if ( lMode.mLetter == static_cast<char>( lLetter ) )
        {
            aFirstFlag = lMode.mFirst;
            aSecondFlag = lMode.mSecond;
            return true;
        }
    }
    return false;
}

bool PayloadReader::ReadBytes( unsigned char* aBytes, unsigned int aCount )
{
    return mStream.Read( aBytes, 1, aCount ) == aCount;
}

} // namespace HtBaseLib
