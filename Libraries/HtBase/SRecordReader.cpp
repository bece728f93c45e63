#include "SRecordReader.h"

#include "DfwPayload.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace HtBaseLib
{

namespace
{

// What a byte count counts besides the data: the address and the checksum.
constexpr unsigned int NOT_DATA = 5;

constexpr unsigned int UNROLLED = 4; // bytes that are decoded between two looks at the count

constexpr std::size_t ADDRESS_SIZE = 4;
constexpr std::size_t COUNT_AT = 2;
constexpr std::size_t ADDRESS_AT = 4;
constexpr std::size_t DATA_AT = 12;
constexpr std::size_t SHORTEST_USUAL = 14; // a record without data
constexpr std::size_t LONGEST_END = 2;     // CR LF

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

// Decodes aCount bytes; false when not all of the text is digits.
bool DecodeAll( const unsigned char* aText, unsigned int aCount, unsigned char* aBytes )
{
    unsigned int lAll = IS_PAIR;
    for ( ; aCount >= UNROLLED; aCount -= UNROLLED, aText += 2 * UNROLLED, aBytes += UNROLLED )
    {
        for ( unsigned int lStep = 0; lStep < UNROLLED; ++lStep )
        {
            lAll &= DecodeInto( aText + std::size_t{ 2 } * lStep, aBytes + lStep );
        }
    }
    for ( ; aCount > 0; --aCount, aText += 2, ++aBytes )
    {
        lAll &= DecodeInto( aText, aBytes );
    }
    return lAll != 0;
}

std::uint32_t GetAddress( const unsigned char* aBytes )
{
    std::uint32_t lAddress = 0;
    for ( std::size_t lIndex = 0; lIndex < ADDRESS_SIZE; ++lIndex )
    {
        lAddress = lAddress << 8 | aBytes[lIndex];
    }
    return lAddress;
}

} // namespace

SRecordReader::SRecordReader( std::FILE* aFile, const char* aName, DfwPayloadWriter& aWriter )
    : mFile( aFile )
    , mName( aName )
    , mWriter( aWriter )
    , mBlock( new unsigned char[BLOCK_SIZE] )
    , mHasFailed( std::ferror( aFile ) != 0 )
{
}

// KEEP: the line is processed at the end of the file too, so a file that ends in a line feed has
// its last line processed twice.
bool SRecordReader::Convert()
{
    for ( ;; )
    {
        while ( ConvertUsualLine() )
        {
        }
        const int lEnd = ReadLine();
        // KEEP: a zero byte ends the reading, and the line before it is dropped.
        if ( lEnd == '\0' )
        {
            if ( mHasFailed )
            {
                std::printf( "Error reading from file %s", mName );
            }
            return !mHasFailed;
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
}

// Takes the next line if it is an S3 record with all its digits and nothing behind them. Otherwise
// takes nothing and returns false.
bool SRecordReader::ConvertUsualLine()
{
    if ( mEnd - mNext <= MAX_LINE + LONGEST_END )
    {
        ReadAhead();
    }
    const unsigned char* const lText = mBlock.get() + mNext;
    const std::size_t lLength = GetUsualLength();
    const auto lByteCount = static_cast<unsigned int>( ( lLength - ADDRESS_AT ) / 2 );
    // The checksum is decoded as well: a line feed in its place would end the line there.
    if ( lLength == 0 || !DecodeAll( lText + ADDRESS_AT, lByteCount, mBytes ) )
    {
        return false;
    }
    if ( lLength < mUsualLength )
    {
        KeepUsualLine(); // its tail stays in the line buffer
    }
    mUsualLine = lText;
    mUsualLength = lLength;
    mNext += lLength + 1;
    WriteData( GetAddress( mBytes ), static_cast<int>( lByteCount - NOT_DATA ) );
    return true;
}

// The length of the next line, without the line feed, when it begins with "S3" and ends where its
// byte count says, give or take a CR; otherwise 0.
std::size_t SRecordReader::GetUsualLength() const
{
    const unsigned char* const lText = mBlock.get() + mNext;
    const std::size_t lAvailable = mEnd - mNext;
    if ( mHasFailed || lAvailable <= SHORTEST_USUAL || lText[0] != 'S' || lText[1] != '3' )
    {
        return 0;
    }
    const unsigned int lByteCount = Decode( lText + COUNT_AT );
    if ( lByteCount < ( IS_PAIR | NOT_DATA ) )
    {
        return 0;
    }
    std::size_t lLength = ADDRESS_AT + std::size_t{ 2 } * ( lByteCount & 0xFF );
    if ( lLength + 1 < lAvailable && lText[lLength] == '\r' )
    {
        ++lLength;
    }
    return lLength < lAvailable && lText[lLength] == '\n' ? lLength : 0;
}

bool SRecordReader::ConvertLine()
{
    if ( mHasFailed )
    {
        std::printf( "Error reading input file\n" );
        return false;
    }
    char lType = 0;
    if ( std::sscanf( mLine, "S%c", &lType ) != 1 )
    {
        std::printf( "Error reading new line from input file\n" );
        return false;
    }
    if ( lType == '3' )
    {
        return ConvertDataLine();
    }
    // KEEP: ends and counts of records are warned of like data that is skipped.
    if ( lType != '0' )
    {
        std::printf( "Warning: unknown record type: S%c", lType );
    }
    return true;
}

// KEEP: the checksum is not looked at, and a number is what sscanf takes for one: spaces, signs and
// "0x" included.
bool SRecordReader::ConvertDataLine()
{
    unsigned int lByteCount = 0;
    unsigned int lAddress = 0;
    if ( std::sscanf( mLine, "S3%2x%8x", &lByteCount, &lAddress ) != 2 )
    {
        std::printf( "Failed reading record\n" );
        return false;
    }
    const int lCount = static_cast<int>( lByteCount - NOT_DATA ); // "-1" is a byte count too
    for ( int lIndex = 0; lIndex < lCount; ++lIndex )
    {
        const auto lPlace = static_cast<std::size_t>( lIndex );
        unsigned int lByte = 0;
        if ( std::sscanf( mLine + DATA_AT + 2 * lPlace, "%2x", &lByte ) != 1 )
        {
            std::printf( "failed reading data byte %d", lIndex );
            return false;
        }
        mBytes[ADDRESS_SIZE + lPlace] = static_cast<unsigned char>( lByte & 0xFF );
    }
    WriteData( lAddress, lCount );
    return true;
}

// KEEP: no address follows on from 0xFFFFFFFF at first, so a first record there has no address
// record. A byte count below 5 moves the expected address back.
void SRecordReader::WriteData( std::uint32_t aAddress, int aCount )
{
    if ( aAddress != mExpected )
    {
        mWriter.WriteAddressRecord( aAddress );
    }
    // The address has been read out of its bytes; the header goes there.
    mWriter.WriteDataInPlace( mBytes + ADDRESS_SIZE - DfwPayloadWriter::HEADER_SIZE,
                              static_cast<unsigned int>( std::max( aCount, 0 ) ) );
    mExpected = aAddress + static_cast<std::uint32_t>( aCount );
}

// Stores the characters of a line over those of the lines before it, as many as there is room for,
// and returns what ended it: a line feed, a zero byte or EOF.
// KEEP: the rest of an earlier line stays behind a shorter one, and the whole of it behind an empty
// one.
int SRecordReader::ReadLine()
{
    KeepUsualLine();
    std::size_t lLength = 0;
    for ( ;; )
    {
        const int lCharacter = ReadCharacter();
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

int SRecordReader::ReadCharacter()
{
    if ( mNext == mEnd )
    {
        ReadAhead();
    }
    if ( mNext == mEnd )
    {
        mHasFailed = mHasFailed || std::ferror( mFile ) != 0;
        return EOF;
    }
    return mBlock[mNext++];
}

// Fills the block up behind what is left in it.
void SRecordReader::ReadAhead()
{
    if ( mHasEnded )
    {
        return;
    }
    KeepUsualLine();
    unsigned char* const lBlock = mBlock.get();
    std::memmove( lBlock, lBlock + mNext, mEnd - mNext );
    mEnd -= mNext;
    mNext = 0;
    const std::size_t lWanted = BLOCK_SIZE - mEnd;
    const std::size_t lRead = std::fread( lBlock + mEnd, 1, lWanted, mFile );
    mEnd += lRead;
    mHasEnded = lRead < lWanted;
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
