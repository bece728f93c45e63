#include "Tools/htbase/Text.h"

#include "Tools/htbase/Failure.h"

#include <algorithm>
#include <cctype>
#include <cinttypes>
#include <cstdio>

namespace HtBaseTool
{

namespace
{

constexpr const char* DIGITS = "0123456789abcdef";

// The value of a digit in that base, or -1.
int GetDigit( char aDigit, int aBase )
{
    const std::string lDigits( DIGITS, static_cast<size_t>( aBase ) );
    const auto lPlace =
        lDigits.find( static_cast<char>( std::tolower( static_cast<unsigned char>( aDigit ) ) ) );
    return lPlace == std::string::npos ? -1 : static_cast<int>( lPlace );
}

uint8_t GetByte( const std::string& aText, size_t aIndex )
{
    return static_cast<uint8_t>( aText[aIndex] );
}

// How a well-formed UTF-8 character begins: the lead bytes, their number of bytes, and the range of
// the second byte.
struct Lead
{
    uint8_t mFirst;
    uint8_t mLast;
    size_t mSize;
    uint8_t mSecondMin;
    uint8_t mSecondMax;
};

constexpr Lead LEADS[] = {
    { 0x20, 0x7E, 1, 0x00, 0x00 }, // printable ASCII
    { 0xC2, 0xC2, 2, 0xA0, 0xBF }, // without the control characters U+0080 to U+009F
    { 0xC3, 0xDF, 2, 0x80, 0xBF }, //
    { 0xE0, 0xE0, 3, 0xA0, 0xBF }, // no overlong form
    { 0xE1, 0xEC, 3, 0x80, 0xBF }, //
    { 0xED, 0xED, 3, 0x80, 0x9F }, // no surrogates
    { 0xEE, 0xEF, 3, 0x80, 0xBF }, //
    { 0xF0, 0xF0, 4, 0x90, 0xBF }, // no overlong form
    { 0xF1, 0xF3, 4, 0x80, 0xBF }, //
    { 0xF4, 0xF4, 4, 0x80, 0x8F }, // up to U+10FFFF
};

// The number of bytes of the printable character at aIndex; 0 if there is none.
size_t GetCharacterSize( const std::string& aText, size_t aIndex )
{
    const uint8_t lByte = GetByte( aText, aIndex );
    const auto* const lLead = std::find_if(
        std::begin( LEADS ), std::end( LEADS ),
        [lByte]( const Lead& aLead ) { return aLead.mFirst <= lByte && lByte <= aLead.mLast; } );
    if ( lLead == std::end( LEADS ) || lLead->mSize > aText.size() - aIndex )
    {
        return 0;
    }
    for ( size_t lNext = 1; lNext < lLead->mSize; ++lNext )
    {
        const uint8_t lMin = lNext == 1 ? lLead->mSecondMin : 0x80;
        const uint8_t lMax = lNext == 1 ? lLead->mSecondMax : 0xBF;
        const uint8_t lFollowing = GetByte( aText, aIndex + lNext );
        if ( lFollowing < lMin || lFollowing > lMax )
        {
            return 0;
        }
    }
    return lLead->mSize;
}

// Characters of an escaped text, each taken for one column.
size_t GetWidth( const std::string& aText )
{
    return static_cast<size_t>( std::count_if(
        aText.begin(), aText.end(),
        []( char aByte ) { return ( static_cast<uint8_t>( aByte ) & 0xC0 ) != 0x80; } ) );
}

const std::string& GetCell( const std::string& aCell )
{
    static const std::string EMPTY = "-";
    return aCell.empty() ? EMPTY : aCell;
}

uint64_t Parse( const std::string& aText, const std::string& aWhat, uint64_t aMax )
{
    const bool lIsHex =
        aText.size() > 2 && aText[0] == '0' && ( aText[1] == 'x' || aText[1] == 'X' );
    const int lBase = lIsHex ? 16 : 10;
    const std::string lDigits = lIsHex ? aText.substr( 2 ) : aText;
    if ( lDigits.empty() ||
         std::any_of( lDigits.begin(), lDigits.end(),
                      [lBase]( char aDigit ) { return GetDigit( aDigit, lBase ) < 0; } ) )
    {
        throw MakeUsageFailure( aWhat + " '" + aText +
                                "' is not a number: use decimal, or hexadecimal with 0x in front" );
    }
    uint64_t lValue = 0;
    for ( const char lDigit : lDigits )
    {
        const auto lNext = static_cast<uint64_t>( GetDigit( lDigit, lBase ) );
        if ( lValue > ( aMax - lNext ) / static_cast<uint64_t>( lBase ) )
        {
            throw MakeUsageFailure( aWhat + " '" + aText + "' does not fit in " +
                                    ( aMax == UINT32_MAX ? "32" : "64" ) + " bits" );
        }
        lValue = lValue * static_cast<uint64_t>( lBase ) + lNext;
    }
    return lValue;
}

} // namespace

uint32_t ParseNumber( const std::string& aText, const std::string& aWhat )
{
    return static_cast<uint32_t>( Parse( aText, aWhat, UINT32_MAX ) );
}

uint64_t ParseAddress( const std::string& aText, AddressBits aBits )
{
    return Parse( aText, "address", GetLastAddress( aBits ) );
}

uint64_t GetLastAddress( AddressBits aBits )
{
    return aBits == AddressBits::GEV ? UINT32_MAX : UINT64_MAX;
}

std::string FormatHex( uint64_t aValue, int aDigits )
{
    char lText[24];
    std::snprintf( lText, sizeof( lText ), "0x%0*" PRIX64, aDigits, aValue );
    return lText;
}

std::string FormatAddress( uint64_t aAddress, AddressBits aBits )
{
    char lText[24];
    std::snprintf( lText, sizeof( lText ), "0x%0*" PRIX64, static_cast<int>( aBits ) / 4,
                   aAddress );
    return lText;
}

std::string FormatCount( uint64_t aCount, const std::string& aWord )
{
    return std::to_string( aCount ) + " " + aWord + ( aCount == 1 ? "" : "s" );
}

std::string FormatScaled( double aValue, const std::string& aUnit )
{
    char lNumber[340]; // the largest number has 309 digits
    if ( aValue < 999.5 )
    {
        std::snprintf( lNumber, sizeof( lNumber ), "%.0f ", aValue );
    }
    else if ( aValue < 999950 )
    {
        std::snprintf( lNumber, sizeof( lNumber ), "%.1f k", aValue / 1e3 );
    }
    else
    {
        std::snprintf( lNumber, sizeof( lNumber ), "%.1f M", aValue / 1e6 );
    }
    return lNumber + aUnit;
}

std::string Escape( const std::string& aText )
{
    std::string lEscaped;
    for ( size_t lIndex = 0; lIndex < aText.size(); )
    {
        const size_t lSize = GetCharacterSize( aText, lIndex );
        if ( lSize == 0 )
        {
            char lCode[8];
            std::snprintf( lCode, sizeof( lCode ), "\\x%02X",
                           static_cast<unsigned int>( GetByte( aText, lIndex ) ) );
            lEscaped += lCode;
            ++lIndex;
            continue;
        }
        lEscaped += aText[lIndex] == '\\' ? "\\\\" : aText.substr( lIndex, lSize );
        lIndex += lSize;
    }
    return lEscaped;
}

std::string FormatTable( const std::vector<std::vector<std::string>>& aRows )
{
    std::vector<size_t> lWidths;
    for ( const auto& lRow : aRows )
    {
        lWidths.resize( std::max( lWidths.size(), lRow.size() ) );
        for ( size_t lColumn = 0; lColumn < lRow.size(); ++lColumn )
        {
            lWidths[lColumn] = std::max( lWidths[lColumn], GetWidth( GetCell( lRow[lColumn] ) ) );
        }
    }
    std::string lTable;
    for ( const auto& lRow : aRows )
    {
        for ( size_t lColumn = 0; lColumn < lRow.size(); ++lColumn )
        {
            const std::string& lCell = GetCell( lRow[lColumn] );
            lTable += lCell;
            if ( lColumn + 1 < lRow.size() )
            {
                lTable.append( lWidths[lColumn] - GetWidth( lCell ) + 2, ' ' );
            }
        }
        lTable += '\n';
    }
    return lTable;
}

} // namespace HtBaseTool
