#include "Libraries/HtBase/Firmware/SRecordReader.h"

#include "Libraries/HtBase/Firmware/InputFile.h"
#include "Libraries/HtBase/Firmware/PayloadSink.h"
#include "Libraries/HtBase/Firmware/ReaderMessages.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <new>

namespace HtBaseLib
{

namespace
{

// What a byte count counts besides the data: the address and the checksum.
constexpr unsigned int NOT_DATA = 5;

constexpr int UNROLLED = 8; // bytes that are decoded between two looks at the count

constexpr std::size_t ADDRESS_SIZE = 4;
constexpr std::size_t COUNT_AT = 2;
constexpr std::size_t ADDRESS_AT = 4;
constexpr std::size_t DATA_AT = 12;
constexpr std::size_t SHORTEST_USUAL = 14; // a record without data

// Marks the value of two digits, so that zero is none and values combined with "and" show whether
// all were.
constexpr unsigned int IS_PAIR = 0x100;

using PairTable = std::array<std::uint16_t, 0x10000>;

constexpr std::size_t GetPairIndex( unsigned char aHigh, unsigned char aLow )
{
    return static_cast<std::size_t>( aHigh | aLow << 8 );
}

// The value of every two characters that are hexadecimal digits. One look-up per byte is what makes
// the reader as fast as it is; the digits are so close together that little of the table is used.
constexpr PairTable MakePairs()
{
    constexpr char DIGITS[] = "0123456789ABCDEFabcdef";
    PairTable lPairs{};
    for ( unsigned int lHigh = 0; lHigh < 22; ++lHigh )
    {
        for ( unsigned int lLow = 0; lLow < 22; ++lLow )
        {
            const unsigned int lHighValue = lHigh < 16 ? lHigh : lHigh - 6;
            const unsigned int lLowValue = lLow < 16 ? lLow : lLow - 6;
            lPairs[GetPairIndex( static_cast<unsigned char>( DIGITS[lHigh] ),
                                 static_cast<unsigned char>( DIGITS[lLow] ) )] =
                static_cast<std::uint16_t>( IS_PAIR | lHighValue << 4 | lLowValue );
        }
    }
    return lPairs;
}

constexpr PairTable PAIRS = MakePairs();

// The value of two digits with IS_PAIR, or 0.
unsigned int Decode( const unsigned char* aText )
{
    return PAIRS[GetPairIndex( aText[0], aText[1] )];
}

// The same into a byte.
unsigned int DecodeInto( const unsigned char* aText, unsigned char* aByte )
{
    const unsigned int lValue = Decode( aText );
    *aByte = static_cast<unsigned char>( lValue & 0xFF );
    return lValue;
}

// Decodes the digits up to aEnd; false when not all of the text is digits.
bool DecodeAll( const unsigned char* aText, const unsigned char* aEnd, unsigned char* aBytes )
{
    unsigned int lAll = IS_PAIR;
    for ( ; aEnd - aText >= 2 * UNROLLED; aText += 2 * UNROLLED, aBytes += UNROLLED )
    {
        for ( int lStep = 0; lStep < UNROLLED; ++lStep )
        {
            lAll &= DecodeInto( aText + 2 * lStep, aBytes + lStep );
        }
    }
    for ( ; aText < aEnd; aText += 2, ++aBytes )
    {
        lAll &= DecodeInto( aText, aBytes );
    }
    return lAll != 0;
}

// Decodes an address; false when not all of the text is digits.
bool DecodeAddress( const unsigned char* aText, std::uint32_t& aAddress )
{
    unsigned int lAll = IS_PAIR;
    std::uint32_t lAddress = 0;
    for ( std::size_t lIndex = 0; lIndex < ADDRESS_SIZE; ++lIndex )
    {
        const unsigned int lValue = Decode( aText + 2 * lIndex );
        lAll &= lValue;
        lAddress = lAddress << 8 | ( lValue & 0xFF );
    }
    aAddress = lAddress;
    return lAll != 0;
}

// The length of the line at aText, without the line feed, when it begins with "S3" and ends where
// its byte count says, give or take a CR; otherwise 0.
std::size_t GetUsualLength( const unsigned char* aText, std::size_t aAvailable )
{
    if ( aAvailable <= SHORTEST_USUAL || aText[0] != 'S' || aText[1] != '3' )
    {
        return 0;
    }
    const unsigned int lByteCount = Decode( aText + COUNT_AT );
    if ( lByteCount < ( IS_PAIR | NOT_DATA ) )
    {
        return 0;
    }
    std::size_t lLength = ADDRESS_AT + std::size_t{ 2 } * ( lByteCount & 0xFF );
    if ( lLength + 1 < aAvailable && aText[lLength] == '\r' )
    {
        ++lLength;
    }
    return lLength < aAvailable && aText[lLength] == '\n' ? lLength : 0;
}

} // namespace

SRecordReader::SRecordReader( PayloadSink& aSink, ReaderMessages& aMessages )
    : mSink( aSink )
    , mMessages( aMessages )
{
}

bool SRecordReader::ConvertFile( const char* aName )
{
    // KEEP: The S-record file is never closed.
    std::FILE* const lFile = OpenInputFile( aName, "r", mMessages );
    return lFile != nullptr && Convert( lFile, aName );
}

bool SRecordReader::Convert( std::FILE* aFile, const char* aName )
{
    try
    {
        mInput.emplace( aFile );
        return ConvertLines( aName );
    }
    catch ( const std::bad_alloc& )
    {
        return false; // there is no block to read into
    }
}

// KEEP: A line is processed at every line feed and at the end of the file. So the last record of
// a file that ends in a line feed comes twice.
bool SRecordReader::ConvertLines( const char* aName )
{
    while ( mInput->HasFailed() || ConvertUsualLines() )
    {
        const int lEnd = ReadLine();
        if ( lEnd == '\0' )
        {
            return EndAtZero( aName );
        }
        if ( !ConvertLine() )
        {
            return false;
        }
        if ( lEnd == EOF )
        {
            return true;
        }
    }
    return false;
}

// KEEP: A zero byte ends the reading with success, and its line is dropped.
bool SRecordReader::EndAtZero( const char* aName )
{
    if ( mInput->HasFailed() )
    {
        mMessages.Fail( "Error reading from file %s", aName );
    }
    return !mInput->HasFailed();
}

// Converts lines as long as they are S3 records with all their digits and nothing behind them.
// False when the sink stops.
bool SRecordReader::ConvertUsualLines()
{
    UsualLine lLine;
    while ( DecodeUsualLine( lLine ) )
    {
        if ( !ConvertUsualLine( lLine ) )
        {
            return false;
        }
    }
    return true;
}

// False, and nothing is consumed, when the next line is another.
inline bool SRecordReader::DecodeUsualLine( UsualLine& aLine )
{
    if ( mInput->GetSize() <= BlockReader::MAX_LEFT )
    {
        KeepUsualLine(); // reading ahead moves it
        mInput->ReadAhead();
    }
    const unsigned char* const lText = mInput->GetText();
    aLine.mLength = GetUsualLength( lText, mInput->GetSize() );
    if ( aLine.mLength == 0 )
    {
        return false;
    }
    // The checksum is decoded as well: a line feed in its place would end the line there.
    const unsigned char* const lData = lText + DATA_AT;
    const std::size_t lCount = ( aLine.mLength - DATA_AT ) / 2;
    aLine.mCount = static_cast<int>( lCount - 1 );
    return DecodeAll( lData, lData + 2 * lCount, mRecord.mBytes ) &&
           DecodeAddress( lText + ADDRESS_AT, aLine.mAddress );
}

// Consumes a line whose data lies in mRecord.
inline bool SRecordReader::ConvertUsualLine( const UsualLine& aLine )
{
    if ( aLine.mLength < mUsualLength )
    {
        KeepUsualLine(); // its tail stays in the line buffer
    }
    mUsualLine = mInput->GetText();
    mUsualLength = aLine.mLength;
    mInput->Consume( aLine.mLength + 1 );
    return HandOver( aLine.mAddress, aLine.mCount );
}

bool SRecordReader::ConvertLine()
{
    if ( mInput->HasFailed() )
    {
        mMessages.Fail( "Error reading input file\n" );
        return false;
    }
    char lType = 0;
    if ( std::sscanf( mLine, "S%c", &lType ) != 1 )
    {
        mMessages.Fail( "Error reading new line from input file\n" );
        return false;
    }
    if ( lType == '3' )
    {
        return ConvertDataLine();
    }
    // KEEP: Every type but 0 and 3 is warned of, the usual S5, S7, S8 and S9 too.
    if ( lType != '0' )
    {
        mMessages.Warn( "Warning: unknown record type: S%c", lType );
    }
    return true;
}

// KEEP: Neither checksum nor length is verified, and a number is what `sscanf` takes for one:
// spaces, signs and `0x` included. `htbase dfw build` verifies both before.
bool SRecordReader::ConvertDataLine()
{
    unsigned int lByteCount = 0;
    unsigned int lAddress = 0;
    if ( std::sscanf( mLine, "S3%2x%8x", &lByteCount, &lAddress ) != 2 )
    {
        mMessages.Fail( "Failed reading record\n" );
        return false;
    }
    const int lCount = static_cast<int>( lByteCount - NOT_DATA ); // "-1" is a byte count too
    return ParseData( lCount ) && HandOver( lAddress, lCount );
}

bool SRecordReader::ParseData( int aCount )
{
    for ( int lIndex = 0; lIndex < aCount; ++lIndex )
    {
        const auto lPlace = static_cast<std::size_t>( lIndex );
        unsigned int lByte = 0;
        if ( std::sscanf( mLine + DATA_AT + 2 * lPlace, "%2x", &lByte ) != 1 )
        {
            mMessages.Fail( "failed reading data byte %d", lIndex );
            return false;
        }
        mRecord.mBytes[lPlace] = static_cast<unsigned char>( lByte & 0xFF );
    }
    return true;
}

// Gives the sink the first aCount bytes of mRecord. False when the sink stops.
// KEEP: A first record at 0xFFFFFFFF has no address record. A byte count below 5 moves the
// address that is expected next back.
bool SRecordReader::HandOver( std::uint32_t aAddress, int aCount )
{
    const bool lFollowsOn = aAddress == mExpected;
    mExpected = aAddress + static_cast<std::uint32_t>( aCount );
    return ( lFollowsOn || mSink.TakeAddress( aAddress ) ) &&
           ( aCount <= 0 || mSink.TakeData( mRecord, static_cast<unsigned int>( aCount ) ) );
}

// Stores the characters of a line over those of the lines before it, as many as there is room for,
// and returns what ended it: a line feed, a zero byte or EOF.
// KEEP: The line buffer is never cleared. An empty line repeats the one before it, and a line
// that is too short for its byte count goes on with the rest of an earlier one. A blank line that
// ends in CR LF fails.
int SRecordReader::ReadLine()
{
    KeepUsualLine();
    std::size_t lLength = 0;
    for ( ;; )
    {
        const int lCharacter = mInput->ReadCharacter();
        if ( lCharacter == '\n' || lCharacter == '\0' || lCharacter == EOF )
        {
            return lCharacter;
        }
        if ( lLength < MAX_LINE )
        {
            mLine[lLength++] = static_cast<char>( lCharacter );
        }
    }
}

// Puts the latest usual line where a shorter line after it will look for its tail.
void SRecordReader::KeepUsualLine()
{
    if ( mUsualLength > 0 )
    {
        std::memcpy( mLine, mUsualLine, std::min( mUsualLength, MAX_LINE ) );
        mUsualLength = 0;
    }
}

} // namespace HtBaseLib
