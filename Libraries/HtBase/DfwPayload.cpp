#include "Libraries/HtBase/DfwPayload.h"

#include "Libraries/HtBase/Firmware/SRecordReader.h"

#include <HtDfwPayload.h>
#include <QmUtilsLib/Assert.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstddef>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

using HtBaseLib::DfwPayloadWriter;
using HtBaseLib::IoStreamFile;
using HtBaseLib::IoStreamRaw;

namespace
{

constexpr char TARGET = 'T';
constexpr char VERSION = 'V';
constexpr char ADDRESS = 'O';
constexpr char DATA = 'D';
constexpr char IDENTIFICATION = 'I';
constexpr char RESET = 'R';
constexpr char END = 'E';

constexpr unsigned int MAX_LENGTH = 0xFF;

constexpr unsigned int VERSION_SIZE = 3;
constexpr unsigned char TARGET_PREFIX = 0x02;
constexpr unsigned int TARGET_SIZE = 5; // without mode letter
constexpr unsigned int TARGET_SIZE_WITH_MODE = 6;

struct Mode
{
    bool mFirst;
    bool mSecond;
    char mLetter;
};

// KEEP: the lower-case letter is the one that loaders know. (false, true) has none: that record is
// a byte shorter.
constexpr Mode MODES[] = {
    { true, true, 'D' },
    { false, false, 'U' },
    { true, false, 'f' },
};

constexpr unsigned int WORD_HEX_LINE_SIZE = 1024; // characters that are read at a time
constexpr unsigned int WORD_HEX_SLOTS = 256;
constexpr unsigned int WORD_HEX_FLUSH = 253; // pending bytes that make a data record
constexpr std::size_t FOUR_DIGITS = 5;       // the length of a line of so many digits
constexpr std::size_t TWO_DIGITS = 3;

// KEEP: most texts that are printed here and by the readers have no line end. Programs that run the
// readers compare them.
void PrintOpenFailure( const char* aName, int aError )
{
    std::printf( "Failed to open input file %s. error code %d", aName, aError );
}

// An open file, or null after telling why not.
std::FILE* OpenInput( const char* aName, const char* aMode )
{
    std::FILE* const lFile = std::fopen( aName, aMode );
    if ( lFile == nullptr )
    {
        PrintOpenFailure( aName, errno );
    }
    return lFile;
}

// A writer that reads a payload file. When the file cannot be opened it finds no record there.
std::unique_ptr<DfwPayloadWriter> OpenPayload( const HtString& aFileName )
{
    auto lStream = std::make_unique<IoStreamFile>();
    // KEEP: also what is to be written is opened for reading only.
    const int lError = lStream->Open( aFileName.GetAscii(), "rb" );
    if ( lError != 0 )
    {
        PrintOpenFailure( aFileName.GetAscii(), lError );
    }
    return std::make_unique<DfwPayloadWriter>( std::move( lStream ) );
}

std::unique_ptr<DfwPayloadWriter> OpenMemory( unsigned char* aBuffer, unsigned int aSize )
{
    return std::make_unique<DfwPayloadWriter>( std::make_unique<IoStreamRaw>( aBuffer, aSize ) );
}

// WordHexReader converts one file of hexadecimal values.
class WordHexReader
{
public:
    explicit WordHexReader( DfwPayloadWriter& aWriter )
        : mWriter( aWriter )
    {
    }

    bool Convert( std::FILE* aFile );

private:
    bool ConvertLine( const char* aLine );
    bool ConvertAddress( const char* aLine );
    bool ConvertValue( const char* aLine );
    void Flush();

    DfwPayloadWriter& mWriter;
    unsigned int mPending = 0; // bytes that wait for their data record
    // KEEP: not cleared between records, so a slot that is passed over has its word from before. A
    // value is stored below slot WORD_HEX_FLUSH.
    std::uint32_t mWords[WORD_HEX_SLOTS] = {};
};

bool WordHexReader::Convert( std::FILE* aFile )
{
    char lLine[WORD_HEX_LINE_SIZE + 1];
    // KEEP: a file that cannot be read ends here like any other.
    while ( std::fgets( lLine, sizeof( lLine ), aFile ) != nullptr )
    {
        if ( !ConvertLine( lLine ) )
        {
            return false;
        }
    }
    Flush();
    return true;
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
        std::printf( "Failed to read address." );
        return false;
    }
    Flush();
    mWriter.WriteAddressRecord( lAddress * 2 ); // the file counts in units of two bytes
    return true;
}

// KEEP: the value goes as a whole word into the slot that the number of pending BYTES names, and a
// data record takes the first bytes of the slots as they lie in memory. Loaders expect that.
bool WordHexReader::ConvertValue( const char* aLine )
{
    if ( std::sscanf( aLine, "%" SCNx32, &mWords[mPending] ) != 1 )
    {
        std::printf( "unexpected data read\n" );
        QMUTILSLIB_ASSERT_TEXT( false, "unexpected data read" );
        return false;
    }
    // KEEP: the line feed counts, so a last line without one and lines that end in CR LF fail.
    const std::size_t lLength = std::strlen( aLine );
    if ( lLength != FOUR_DIGITS && lLength != TWO_DIGITS )
    {
        std::printf( "unexpected data %d\n", static_cast<int>( lLength ) );
        QMUTILSLIB_ASSERT_TEXT( false, "unexpected data" );
        return false;
    }
    mPending += lLength == FOUR_DIGITS ? 2 : 1;
    if ( mPending >= WORD_HEX_FLUSH )
    {
        Flush();
    }
    return true;
}

void WordHexReader::Flush()
{
    mWriter.WriteDataRecord( reinterpret_cast<const unsigned char*>( mWords ), mPending );
    mPending = 0;
}

// Builds a small payload: the target and the version of a payload file, and what aAddRecord writes.
// KEEP: what is missing is left out, and the payload counts as built.
template <typename AddRecord>
HtResult Build( const HtString& aPayloadFile, unsigned char* aBuffer, unsigned int aSize,
                unsigned int& aOutSize, const AddRecord& aAddRecord )
{
    try
    {
        const std::unique_ptr<DfwPayloadWriter> lTarget = OpenMemory( aBuffer, aSize );
        const std::unique_ptr<DfwPayloadWriter> lSource = OpenPayload( aPayloadFile );
        (void)lTarget->CopyTargetRecord( *lSource );
        (void)lTarget->CopyVersionRecord( *lSource );
        aAddRecord( *lTarget );
        aOutSize = lTarget->GetSize();
        return HtResult( HtResult::OK );
    }
    catch ( const std::bad_alloc& )
    {
        return HtResult( HtResult::GENERIC_ERROR, ENOMEM );
    }
}

} // namespace

HtDfwPayload::HtDfwPayload( const HtString& aFileName )
    : mWriter( OpenPayload( aFileName ) )
{
}

HtDfwPayload::HtDfwPayload( unsigned char* aBuffer, unsigned int aSize )
    : mWriter( OpenMemory( aBuffer, aSize ) )
{
}

HtDfwPayload::~HtDfwPayload() = default;

HtResult HtDfwPayload::GetDeviceIdRecord( const HtString& aPayloadFile, const HtString& aDeviceId,
                                          unsigned char* aBuffer, unsigned int aSize,
                                          unsigned int& aOutSize )
{
    const auto lAddRecord = [&aDeviceId]( DfwPayloadWriter& aTarget )
    {
        const char* const lText = aDeviceId.GetAscii();
        // Refused where it is too long, and then missing like the other records.
        (void)aTarget.WriteIdRecord( lText, static_cast<unsigned int>( std::strlen( lText ) ) );
    };
    return Build( aPayloadFile, aBuffer, aSize, aOutSize, lAddRecord );
}

HtResult HtDfwPayload::GetResetRecord( const HtString& aPayloadFile, unsigned char* aBuffer,
                                       unsigned int aSize, unsigned int& aOutSize )
{
    const auto lAddRecord = []( DfwPayloadWriter& aTarget )
    {
        (void)aTarget.WriteResetRecord(); // never fails
    };
    return Build( aPayloadFile, aBuffer, aSize, aOutSize, lAddRecord );
}

namespace HtBaseLib
{

DfwPayloadWriter::DfwPayloadWriter( std::unique_ptr<IoStream> aTarget )
    : mTarget( std::move( aTarget ) )
{
}

DfwPayloadWriter::~DfwPayloadWriter()
{
    if ( mTarget != nullptr )
    {
        (void)mTarget->Close(); // a destructor has nobody to tell
    }
}

bool DfwPayloadWriter::WriteAddressRecord( std::uint32_t aAddress )
{
    return WriteNumberRecord( ADDRESS, aAddress );
}

bool DfwPayloadWriter::WriteDataRecord( const unsigned char* aBytes, unsigned int aCount )
{
    QMUTILSLIB_ASSERT( mTarget != NULL );
    if ( aCount > MAX_DATA_SIZE )
    {
        return false;
    }
    return aCount == 0 || WriteRecord( DATA, aBytes, aCount );
}

bool DfwPayloadWriter::WriteDataInPlace( unsigned char* aRecord, unsigned int aCount )
{
    QMUTILSLIB_ASSERT( mTarget != NULL );
    if ( aCount > MAX_DATA_SIZE )
    {
        return false;
    }
    return aCount == 0 || WriteInPlace( DATA, aRecord, aCount );
}

bool DfwPayloadWriter::WriteData( const unsigned char* aBytes, unsigned int aCount )
{
    QMUTILSLIB_ASSERT( mTarget != NULL );
    for ( unsigned int lDone = 0; lDone < aCount; )
    {
        const unsigned int lPart = std::min( aCount - lDone, MAX_DATA_SIZE );
        if ( !WriteDataRecord( aBytes + lDone, lPart ) )
        {
            return false;
        }
        lDone += lPart;
    }
    return true;
}

bool DfwPayloadWriter::WriteVersionRecord( unsigned char aFirst, unsigned char aSecond,
                                           unsigned char aThird )
{
    const unsigned char lBytes[VERSION_SIZE] = { aFirst, aSecond, aThird };
    return WriteRecord( VERSION, lBytes, VERSION_SIZE );
}

bool DfwPayloadWriter::WriteTargetRecord( unsigned char aFirst, unsigned char aSecond,
                                          std::uint16_t aValue, bool aFirstFlag, bool aSecondFlag )
{
    unsigned char lBytes[TARGET_SIZE_WITH_MODE] = {
        TARGET_PREFIX,
        aFirst,
        aSecond,
        static_cast<unsigned char>( aValue >> 8 ),
        static_cast<unsigned char>( aValue & 0xFF ),
    };
    unsigned int lSize = TARGET_SIZE;
    for ( const Mode& lMode : MODES )
    {
        if ( lMode.mFirst == aFirstFlag && lMode.mSecond == aSecondFlag )
        {
            lBytes[lSize++] = static_cast<unsigned char>( lMode.mLetter );
        }
    }
    return WriteRecord( TARGET, lBytes, lSize );
}

bool DfwPayloadWriter::WriteIdRecord( const char* aText, unsigned int aLength )
{
    QMUTILSLIB_ASSERT( mTarget != NULL );
    if ( aLength > MAX_LENGTH )
    {
        return false;
    }
    // KEEP: no text gives no type and no length, but the zeros all the same.
    if ( aLength > 0 )
    {
        WriteRecord( IDENTIFICATION, reinterpret_cast<const unsigned char*>( aText ), aLength );
    }
    // KEEP: the zeros lie beyond what the length byte says.
    if ( aLength < MIN_ID_SIZE )
    {
        const unsigned char lZeros[MIN_ID_SIZE] = {};
        (void)mTarget->Write( lZeros, 1, MIN_ID_SIZE - aLength );
    }
    return true;
}

bool DfwPayloadWriter::WriteResetRecord()
{
    return WriteRecord( RESET, nullptr, 0 );
}

bool DfwPayloadWriter::WriteEndRecord( std::uint32_t aValue )
{
    return WriteNumberRecord( END, aValue );
}

bool DfwPayloadWriter::ReadVersionRecord( unsigned char& aFirst, unsigned char& aSecond,
                                          unsigned char& aThird )
{
    unsigned int lLength = 0;
    unsigned char lBytes[VERSION_SIZE] = {};
    // KEEP: a version record of another length is skipped.
    if ( !FindRecord( VERSION, VERSION_SIZE, VERSION_SIZE, lLength ) ||
         !ReadBytes( lBytes, VERSION_SIZE ) )
    {
        return false;
    }
    aFirst = lBytes[0];
    aSecond = lBytes[1];
    aThird = lBytes[2];
    return true;
}

bool DfwPayloadWriter::ReadTargetRecord( unsigned char& aFirst, unsigned char& aSecond,
                                         std::uint16_t& aValue, bool& aFirstFlag,
                                         bool& aSecondFlag )
{
    unsigned int lLength = 0;
    unsigned char lBytes[TARGET_SIZE] = {};
    // KEEP: a first byte that is unknown ends the search; no later target record is tried.
    if ( !FindRecord( TARGET, TARGET_SIZE, MAX_LENGTH, lLength ) || !ReadBytes( lBytes, 1 ) ||
         lBytes[0] != TARGET_PREFIX || !ReadBytes( lBytes + 1, TARGET_SIZE - 1 ) )
    {
        return false;
    }
    // KEEP: a record that is longer still has no mode either.
    bool lFirstFlag = false;
    bool lSecondFlag = true;
    if ( lLength == TARGET_SIZE_WITH_MODE && !ReadMode( lFirstFlag, lSecondFlag ) )
    {
        return false;
    }
    aFirst = lBytes[1];
    aSecond = lBytes[2];
    aValue = static_cast<std::uint16_t>( lBytes[3] << 8 | lBytes[4] );
    aFirstFlag = lFirstFlag;
    aSecondFlag = lSecondFlag;
    return true;
}

bool DfwPayloadWriter::CopyVersionRecord( DfwPayloadWriter& aSource )
{
    unsigned char lFirst = 0;
    unsigned char lSecond = 0;
    unsigned char lThird = 0;
    return aSource.ReadVersionRecord( lFirst, lSecond, lThird ) &&
           WriteVersionRecord( lFirst, lSecond, lThird );
}

bool DfwPayloadWriter::CopyTargetRecord( DfwPayloadWriter& aSource )
{
    unsigned char lFirst = 0;
    unsigned char lSecond = 0;
    std::uint16_t lValue = 0;
    bool lFirstFlag = false;
    bool lSecondFlag = false;
    return aSource.ReadTargetRecord( lFirst, lSecond, lValue, lFirstFlag, lSecondFlag ) &&
           WriteTargetRecord( lFirst, lSecond, lValue, lFirstFlag, lSecondFlag );
}

unsigned int DfwPayloadWriter::GetSize() const
{
    return mTarget->GetBytesWritten();
}

bool DfwPayloadWriter::AddSRecordFile( const char* aName )
{
    QMUTILSLIB_ASSERT( mTarget != NULL );
    // KEEP: never closed, whatever becomes of it.
    std::FILE* const lFile = OpenInput( aName, "r" );
    return lFile != nullptr && AddSRecords( lFile, aName );
}

bool DfwPayloadWriter::AddSRecords( std::FILE* aFile, const char* aName )
{
    try
    {
        return SRecordReader( aFile, aName, *this ).Convert();
    }
    catch ( const std::bad_alloc& )
    {
        return false; // there is no block to read into
    }
}

bool DfwPayloadWriter::AddBinaryFile( const char* aName, std::uint32_t aAddress )
{
    QMUTILSLIB_ASSERT( mTarget != NULL );
    std::FILE* const lFile = OpenInput( aName, "rb" );
    // KEEP: after a failure the file stays open.
    if ( lFile == nullptr || !AddBinary( lFile, aName, aAddress ) )
    {
        return false;
    }
    (void)std::fclose( lFile ); // it was only read
    return true;
}

bool DfwPayloadWriter::AddBinary( std::FILE* aFile, const char* aName, std::uint32_t aAddress )
{
    WriteAddressRecord( aAddress );
    for ( ;; )
    {
        unsigned char lBytes[MAX_DATA_SIZE];
        const std::size_t lCount = std::fread( lBytes, 1, MAX_DATA_SIZE, aFile );
        if ( std::ferror( aFile ) != 0 )
        {
            std::printf( "Error reading from file %s", aName );
            return false;
        }
        WriteDataRecord( lBytes, static_cast<unsigned int>( lCount ) );
        if ( lCount == 0 )
        {
            return true;
        }
    }
}

bool DfwPayloadWriter::AddWordHexFile( const char* aName )
{
    QMUTILSLIB_ASSERT( mTarget != NULL );
    std::FILE* const lFile = OpenInput( aName, "r" );
    // KEEP: after a failure the file stays open.
    if ( lFile == nullptr || !AddWordHex( lFile ) )
    {
        return false;
    }
    (void)std::fclose( lFile ); // it was only read
    return true;
}

bool DfwPayloadWriter::AddWordHex( std::FILE* aFile )
{
    return WordHexReader( *this ).Convert( aFile );
}

bool DfwPayloadWriter::WriteRecord( char aType, const unsigned char* aBytes, unsigned int aLength )
{
    unsigned char lRecord[HEADER_SIZE + MAX_LENGTH];
    std::copy_n( aBytes, aLength, lRecord + HEADER_SIZE );
    return WriteInPlace( aType, lRecord, aLength );
}

// One write for the whole record: a stream that is full cuts it off where it would anyway.
bool DfwPayloadWriter::WriteInPlace( char aType, unsigned char* aRecord, unsigned int aLength )
{
    QMUTILSLIB_ASSERT( mTarget != NULL );
    aRecord[0] = static_cast<unsigned char>( aType );
    aRecord[1] = static_cast<unsigned char>( aLength );
    // KEEP: what was taken is not looked at, so a full stream fails no writer and no reader.
    (void)mTarget->Write( aRecord, 1, HEADER_SIZE + aLength );
    return true;
}

bool DfwPayloadWriter::WriteNumberRecord( char aType, std::uint32_t aNumber )
{
    const unsigned char lBytes[] = {
        static_cast<unsigned char>( aNumber >> 24 ),
        static_cast<unsigned char>( aNumber >> 16 & 0xFF ),
        static_cast<unsigned char>( aNumber >> 8 & 0xFF ),
        static_cast<unsigned char>( aNumber & 0xFF ),
    };
    return WriteRecord( aType, lBytes, sizeof( lBytes ) );
}

// Past the end of a file a skip succeeds, so the end is where nothing can be read any more.
// KEEP: the zeros behind a short identification are taken for records of no length, two at a time.
bool DfwPayloadWriter::FindRecord( char aType, unsigned int aMinLength, unsigned int aMaxLength,
                                   unsigned int& aLength )
{
    if ( mTarget->Rewind() != 0 )
    {
        return false;
    }
    unsigned char lHeader[HEADER_SIZE] = {};
    do
    {
        if ( mTarget->Skip( lHeader[1] ) != 0 || !ReadBytes( lHeader, HEADER_SIZE ) )
        {
            return false;
        }
    } while ( lHeader[0] != static_cast<unsigned char>( aType ) || lHeader[1] < aMinLength ||
              lHeader[1] > aMaxLength );
    aLength = lHeader[1];
    return true;
}

bool DfwPayloadWriter::ReadMode( bool& aFirstFlag, bool& aSecondFlag )
{
    unsigned char lLetter = 0;
    if ( !ReadBytes( &lLetter, 1 ) )
    {
        return false;
    }
    for ( const Mode& lMode : MODES )
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

bool DfwPayloadWriter::ReadBytes( unsigned char* aBytes, unsigned int aCount )
{
    return mTarget->Read( aBytes, 1, aCount ) == aCount;
}

} // namespace HtBaseLib
