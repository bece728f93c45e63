#include "Libraries/HtBase/Firmware/SRecordFault.h"

#include "Libraries/HtBase/Firmware/HexDigits.h"

#include <cstdarg>
#include <cstdio>

namespace HtBaseLib
{

namespace
{

constexpr std::size_t COUNT_AT = 2;
constexpr std::size_t BYTES_AT = 4;
constexpr std::size_t MAX_RECORD = BYTES_AT + std::size_t{ 2 } * 255; // characters

// By type, how many bytes address and checksum take.
constexpr unsigned int MIN_COUNTS[] = { 3, 3, 4, 5, 3, 3, 4, 5, 4, 3 };

[[gnu::format( printf, 1, 2 )]] SRecordFault MakeFault( const char* aFormat, ... )
{
    SRecordFault lFault;
    std::va_list lValues;
    va_start( lValues, aFormat );
    (void)std::vsnprintf( lFault.mText, sizeof( lFault.mText ), aFormat, lValues ); // never cut
    va_end( lValues );
    return lFault;
}

// What is wrong with the bytes of a record of the right length.
SRecordFault FindBadByte( const unsigned char* aLine, std::size_t aSize, unsigned int aCount )
{
    unsigned int lSum = aCount;
    unsigned int lLast = 0;
    for ( std::size_t lPlace = BYTES_AT; lPlace < aSize; lPlace += 2 )
    {
        const int lByte = HexDigits::GetByte( aLine + lPlace );
        if ( lByte < 0 )
        {
            return MakeFault( "has no hexadecimal byte at column %zu", lPlace + 1 );
        }
        lLast = static_cast<unsigned int>( lByte );
        lSum += lLast;
    }
    const unsigned int lWanted = ~( lSum - lLast ) & 0xFF;
    return lLast == lWanted
               ? SRecordFault()
               : MakeFault( "has the checksum 0x%02X, but its bytes give 0x%02X", lLast, lWanted );
}

} // namespace

SRecordFault FindSRecordFault( const unsigned char* aLine, std::size_t aSize )
{
    const std::size_t lSize = aSize > 0 && aLine[aSize - 1] == '\r' ? aSize - 1 : aSize;
    const int lCount = lSize < BYTES_AT ? -1 : HexDigits::GetByte( aLine + COUNT_AT );
    if ( lCount < 0 || aLine[0] != 'S' || aLine[1] < '0' || aLine[1] > '9' )
    {
        return MakeFault( "is not an S-record" );
    }
    const auto lByteCount = static_cast<unsigned int>( lCount );
    const std::size_t lLength = BYTES_AT + std::size_t{ 2 } * lByteCount;
    if ( lSize != lLength )
    {
        const bool lIsCut = lSize > MAX_RECORD;
        return MakeFault( "has %s%zu characters, but its byte count asks for %zu",
                          lIsCut ? "more than " : "", lIsCut ? MAX_RECORD : lSize, lLength );
    }
    if ( lByteCount < MIN_COUNTS[aLine[1] - '0'] )
    {
        return MakeFault( "has the byte count %u, too few for an S%c", lByteCount, aLine[1] );
    }
    return FindBadByte( aLine, lSize, lByteCount );
}

} // namespace HtBaseLib
