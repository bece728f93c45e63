#include "Libraries/HtBase/Firmware/WordHexReader.h"

#include "Libraries/HtBase/Firmware/InputFile.h"
#include "Libraries/HtBase/Firmware/PayloadFormat.h"
#include "Libraries/HtBase/Firmware/PayloadSink.h"
#include "Libraries/HtBase/Firmware/ReaderMessages.h"

#include <QmUtilsLib/Assert.h>

#include <cinttypes>
#include <cstddef>
#include <cstring>

namespace HtBaseLib
{

namespace
{

constexpr unsigned int LINE_SIZE = 1024; // characters that are read at a time, line feed included
constexpr unsigned int FLUSH_SIZE = 253; // pending bytes that make a data record
constexpr std::size_t FOUR_DIGITS = 5;   // the length of a line of so many digits
constexpr std::size_t TWO_DIGITS = 3;

} // namespace

WordHexReader::WordHexReader( PayloadSink& aSink, ReaderMessages& aMessages )
    : mSink( aSink )
    , mMessages( aMessages )
{
}

bool WordHexReader::ConvertFile( const char* aName )
{
    return ConvertInputFile( aName, "r", mMessages,
                             [this]( std::FILE* aFile ) { return Convert( aFile ); } );
}

bool WordHexReader::Convert( std::FILE* aFile )
{
    char lLine[LINE_SIZE + 1];
    // KEEP: A read error counts as the end of a word-hex file.
    while ( std::fgets( lLine, sizeof( lLine ), aFile ) != nullptr )
    {
        if ( !ConvertLine( lLine ) )
        {
            return false;
        }
    }
    return Flush();
}

bool WordHexReader::ConvertLine( const char* aLine )
{
    if ( aLine[0] == '@' )
    {
        return ConvertAddress( aLine );
    }
    return aLine[0] == '/' || ConvertValue( aLine );
}

bool WordHexReader::ConvertAddress( const char* aLine )
{
    std::uint32_t lAddress = 0;
    if ( std::sscanf( aLine, "@%" SCNx32, &lAddress ) != 1 )
    {
        mMessages.Fail( "Failed to read address." );
        return false;
    }
    return Flush() && mSink.TakeAddress( lAddress * 2 ); // the file counts in units of two bytes
}

// KEEP: A value is stored as a whole word in the slot whose number is the count of pending bytes. A
// record takes the first bytes of the slots as they are in memory: 1234 and 5678 become 34 12 00
// 00.
bool WordHexReader::ConvertValue( const char* aLine )
{
    if ( std::sscanf( aLine, "%" SCNx32, &mWords[mPending] ) != 1 )
    {
        mMessages.Fail( "unexpected data read\n" );
        QMUTILSLIB_ASSERT_TEXT( false, "unexpected data read" );
        return false;
    }
    // KEEP: The line feed counts: a last line without one fails, and so does one that ends in CR
    // LF.
    const std::size_t lLength = std::strlen( aLine );
    if ( lLength != FOUR_DIGITS && lLength != TWO_DIGITS )
    {
        mMessages.Fail( "unexpected data %d\n", static_cast<int>( lLength ) );
        QMUTILSLIB_ASSERT_TEXT( false, "unexpected data" );
        return false;
    }
    mPending += lLength == FOUR_DIGITS ? 2 : 1;
    return mPending < FLUSH_SIZE || Flush();
}

bool WordHexReader::Flush()
{
    const unsigned int lCount = mPending;
    mPending = 0;
    PayloadFormat::DataRecord lRecord;
    std::memcpy( lRecord.mBytes, mWords, lCount );
    return lCount == 0 || mSink.TakeData( lRecord, lCount );
}

} // namespace HtBaseLib
