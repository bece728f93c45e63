#include "Libraries/HtBase/Firmware/SRecordReader.h"

#include "Libraries/HtBase/Firmware/HexDigits.h"
#include "Libraries/HtBase/Firmware/InputFile.h"
#include "Libraries/HtBase/Firmware/PayloadSink.h"
#include "Libraries/HtBase/Firmware/ReaderMessages.h"
#include "Libraries/HtBase/Firmware/SRecordFault.h"

#include <algorithm>
#include <cinttypes>
#include <cstring>
#include <new>

namespace HtBaseLib
{

namespace
{

// What a byte count counts besides the data: the address and the checksum.
constexpr int NOT_DATA = 5;

constexpr std::size_t COUNT_AT = 2;
constexpr std::size_t ADDRESS_AT = 4;
constexpr std::size_t DATA_AT = 12;
constexpr std::size_t SHORTEST_USUAL = 14; // a record without data

constexpr unsigned int SOUND_SUM = 0xFF; // of all bytes from the byte count to the checksum

static_assert( HexDigits::STEP <= BlockReader::SLACK, "digits are read past the end of a line" );
static_assert( MAX_JUDGED <= BlockReader::MAX_LEFT + 1, "reading ahead makes a line visible" );

// Takes nothing, where a file is only checked.
class NoSink final : public PayloadSink
{
    bool TakeAddress( std::uint32_t /*aAddress*/ ) override { return true; }
    bool TakeData( PayloadFormat::DataRecord& /*aRecord*/, unsigned int /*aCount*/ ) override
    {
        return true;
    }
};

// The length that a record beginning with these characters has, if it is an S3 record; otherwise 0.
std::size_t GetRecordLength( const unsigned char* aHead )
{
    const int lByteCount = HexDigits::GetByte( aHead + COUNT_AT );
    return aHead[0] == 'S' && aHead[1] == '3' && lByteCount >= NOT_DATA
               ? ADDRESS_AT + std::size_t{ 2 } * static_cast<unsigned int>( lByteCount )
               : 0;
}

} // namespace

SRecordReader::SRecordReader( PayloadSink& aSink, ReaderMessages& aMessages, SRecordChecks aChecks )
    : mSink( aSink )
    , mMessages( aMessages )
    , mChecks( aChecks )
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
        if ( mChecks != SRecordChecks::NONE && !CheckLine( aName ) )
        {
            return false;
        }
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

// False, and nothing is consumed, when the next line is another: with checks, also one whose
// checksum is wrong.
inline bool SRecordReader::DecodeUsualLine( UsualLine& aLine )
{
    LookAhead();
    const unsigned char* const lText = mInput->GetText();
    const std::size_t lAvailable = mInput->GetSize();
    if ( lAvailable <= SHORTEST_USUAL )
    {
        return false;
    }
    if ( std::memcmp( lText, mHead, sizeof( mHead ) ) != 0 )
    {
        std::memcpy( mHead, lText, sizeof( mHead ) );
        mRecordLength = GetRecordLength( mHead );
    }
    const std::size_t lLength = mRecordLength;
    const bool lHasCr = lLength + 1 < lAvailable && lText[lLength] == '\r';
    aLine.mLength = lHasCr ? lLength + 1 : lLength;
    if ( lLength == 0 || aLine.mLength >= lAvailable || lText[aLine.mLength] != '\n' )
    {
        return false;
    }
    // The checksum is decoded as well: a line feed in its place would end the line there.
    const std::size_t lByteCount = ( lLength - ADDRESS_AT ) / 2;
    auto* const lBytes = reinterpret_cast<unsigned char*>( &mDecoded );
    HexDigits::Vector lSum;
    if ( !HexDigits::Decode( lText + ADDRESS_AT, 2 * lByteCount, lBytes, lSum ) ||
         ( mChecks != SRecordChecks::NONE &&
           ( ( lByteCount + HexDigits::Sum( lSum ) ) & 0xFF ) != SOUND_SUM ) )
    {
        return false;
    }
    aLine.mAddress = std::uint32_t{ lBytes[0] } << 24 | std::uint32_t{ lBytes[1] } << 16 |
                     std::uint32_t{ lBytes[2] } << 8 | std::uint32_t{ lBytes[3] };
    aLine.mCount = static_cast<int>( lByteCount ) - NOT_DATA;
    return true;
}

// Makes the next line visible, if it is not longer than a record.
inline void SRecordReader::LookAhead()
{
    if ( mInput->GetSize() <= BlockReader::MAX_LEFT )
    {
        KeepUsualLine(); // reading ahead moves it
        mInput->ReadAhead();
    }
}

// Consumes a line whose data lies in mDecoded.
inline bool SRecordReader::ConvertUsualLine( const UsualLine& aLine )
{
    if ( aLine.mLength < mUsualLength )
    {
        KeepUsualLine(); // its tail stays in the line buffer
    }
    mUsualLine = mInput->GetText();
    mUsualLength = aLine.mLength;
    mInput->Consume( aLine.mLength + 1 );
    ++mLineNumber;
    return HandOver( aLine.mAddress, aLine.mCount );
}

// Judges the next line, which is not consumed. False when it is refused.
bool SRecordReader::CheckLine( const char* aName )
{
    LookAhead();
    const unsigned char* const lText = mInput->GetText();
    const std::size_t lVisible = std::min( mInput->GetSize(), MAX_JUDGED );
    const unsigned char* const lEnd = std::find( lText, lText + lVisible, '\n' );
    ++mLineNumber;
    if ( lEnd == lText )
    {
        return true; // a line without any character, or the end of the file
    }
    const SRecordFault lFault = FindSRecordFault( lText, static_cast<std::size_t>( lEnd - lText ) );
    if ( lFault )
    {
        mMessages.Refuse( "line %" PRIu64 " of '%s' %s", mLineNumber, aName, lFault.mText );
    }
    return !lFault;
}

bool SRecordReader::ConvertLine()
{
    if ( mInput->HasFailed() )
    {
        mMessages.Fail( "Error reading input file\n" );
        return false;
    }
    if ( mChecks == SRecordChecks::ONLY )
    {
        return true;
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
// spaces, signs and `0x` included. Only a reader that is asked to check refuses what is not sound.
bool SRecordReader::ConvertDataLine()
{
    unsigned int lByteCount = 0;
    unsigned int lAddress = 0;
    if ( std::sscanf( mLine, "S3%2x%8x", &lByteCount, &lAddress ) != 2 )
    {
        mMessages.Fail( "Failed reading record\n" );
        return false;
    }
    const int lCount = static_cast<int>( lByteCount ) - NOT_DATA; // "-1" is a byte count too
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
        mDecoded.mRecord.mBytes[lPlace] = static_cast<unsigned char>( lByte & 0xFF );
    }
    return true;
}

// Gives the sink the first aCount bytes of data in mDecoded. False when the sink stops.
// KEEP: A first record at 0xFFFFFFFF has no address record. A byte count below 5 moves the
// address that is expected next back.
bool SRecordReader::HandOver( std::uint32_t aAddress, int aCount )
{
    const bool lFollowsOn = aAddress == mExpected;
    mExpected = aAddress + static_cast<std::uint32_t>( aCount );
    return ( lFollowsOn || mSink.TakeAddress( aAddress ) ) &&
           ( aCount <= 0 ||
             mSink.TakeData( mDecoded.mRecord, static_cast<unsigned int>( aCount ) ) );
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

bool CheckSRecords( std::FILE* aFile, const char* aName, ReaderMessages& aMessages )
{
    NoSink lSink;
    return SRecordReader( lSink, aMessages, SRecordChecks::ONLY ).Convert( aFile, aName );
}

} // namespace HtBaseLib
