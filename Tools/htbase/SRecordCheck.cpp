#include "Tools/htbase/SRecordCheck.h"

#include "Tools/htbase/Failure.h"
#include "Tools/htbase/Text.h"

#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <memory>

namespace HtBaseTool
{

namespace
{

constexpr size_t COUNT_AT = 2;
constexpr size_t BYTES_AT = 4;
constexpr size_t MAX_LINE = BYTES_AT + 2 * 255; // characters

// By type, how many bytes address and checksum take.
constexpr unsigned int MIN_COUNTS[] = { 3, 3, 4, 5, 3, 3, 4, 5, 4, 3 };

// The value of the two hexadecimal digits at aPlace, or -1.
int ParseByte( const std::string& aLine, size_t aPlace )
{
    if ( aLine.size() < aPlace + 2 )
    {
        return -1;
    }
    int lValue = 0;
    const char* const lBegin = aLine.data() + aPlace;
    const bool lHasSign = *lBegin == '-';
    const auto lParsed = std::from_chars( lBegin, lBegin + 2, lValue, 16 );
    return lHasSign || lParsed.ec != std::errc() || lParsed.ptr != lBegin + 2 ? -1 : lValue;
}

// What is wrong with the sum over a record of the right length; empty: nothing.
std::string FindBadByte( const std::string& aLine, unsigned int aCount )
{
    unsigned int lSum = aCount;
    unsigned int lLast = 0;
    for ( size_t lPlace = BYTES_AT; lPlace < aLine.size(); lPlace += 2 )
    {
        const int lByte = ParseByte( aLine, lPlace );
        if ( lByte < 0 )
        {
            return "has no hexadecimal byte at column " + std::to_string( lPlace + 1 );
        }
        lLast = static_cast<unsigned int>( lByte );
        lSum += lLast;
    }
    const unsigned int lWanted = ~( lSum - lLast ) & 0xFF;
    return lLast == lWanted ? std::string()
                            : "has the checksum " + FormatHex( lLast, 2 ) +
                                  ", but its bytes give " + FormatHex( lWanted, 2 );
}

// What is wrong with a line; empty: nothing. A line that is longer than any record is cut.
std::string FindFault( const std::string& aLine )
{
    const int lCount = ParseByte( aLine, COUNT_AT );
    if ( aLine.size() < BYTES_AT || aLine[0] != 'S' || aLine[1] < '0' || aLine[1] > '9' ||
         lCount < 0 )
    {
        return "is no S-record";
    }
    const auto lByteCount = static_cast<unsigned int>( lCount );
    const size_t lLength = BYTES_AT + size_t{ 2 } * lByteCount;
    if ( aLine.size() != lLength )
    {
        return ( aLine.size() > MAX_LINE ? "has more than " + std::to_string( MAX_LINE )
                                         : "has " + std::to_string( aLine.size() ) ) +
               " characters, but its byte count asks for " + std::to_string( lLength );
    }
    if ( lByteCount < MIN_COUNTS[aLine[1] - '0'] )
    {
        return "has the byte count " + std::to_string( lByteCount ) + ", too few for an S" +
               aLine[1];
    }
    return FindBadByte( aLine, lByteCount );
}

// Reads the next line without its end, and no more of it than shows that it is too long. False at
// the end of the file, behind the last line.
bool ReadLine( std::FILE* aFile, std::string& aLine )
{
    aLine.clear();
    int lCharacter = 0;
    bool lIsAny = false;
    while ( ( lCharacter = getc_unlocked( aFile ) ) != EOF && lCharacter != '\n' )
    {
        lIsAny = true;
        if ( aLine.size() <= MAX_LINE + 1 )
        {
            aLine += static_cast<char>( lCharacter );
        }
    }
    return lIsAny || lCharacter == '\n';
}

} // namespace

void CheckSRecordFile( const std::string& aPath )
{
    const std::unique_ptr<std::FILE, decltype( &std::fclose )> lFile(
        std::fopen( aPath.c_str(), "re" ), &std::fclose );
    if ( lFile == nullptr )
    {
        throw Failure( ExitStatus::REFUSED,
                       "cannot read file '" + aPath + "': " + GetSystemErrorText( errno ) );
    }
    std::string lLine;
    for ( uint64_t lNumber = 1; ReadLine( lFile.get(), lLine ); ++lNumber )
    {
        if ( lLine.empty() )
        {
            continue;
        }
        if ( lLine.back() == '\r' )
        {
            lLine.pop_back();
        }
        const std::string lFault = FindFault( lLine );
        if ( !lFault.empty() )
        {
            throw Failure( ExitStatus::REFUSED,
                           "line " + std::to_string( lNumber ) + " of '" + aPath + "' " + lFault );
        }
    }
    if ( std::ferror( lFile.get() ) != 0 )
    {
        throw Failure( ExitStatus::REFUSED,
                       "cannot read file '" + aPath + "': " + GetSystemErrorText( errno ) );
    }
}

} // namespace HtBaseTool
