// How fast S-records are read: the reader against decoders of the same text that do nothing else.
//
// "Table" decodes the text, which is in memory already, with a table of 256 values, and stores the
// records of the payload; it checks nothing. "TableWithSum" also adds up every record.
// "TableFromFile" does what "Table" does with the file, read in blocks. "Reader" is the reader of
// the library from the same file into a payload in memory, "CheckingReader" the same with its
// checks, and "Checks" looks at the file and converts nothing.
//
// All of them run in turn, round after round. The median of the ratios within a round, and their
// quartiles, are printed: how many times as fast as "Table" each is.

#include "Libraries/HtBase/DfwPayload.h"
#include "Libraries/HtBase/Firmware/SRecordReader.h"
#include "tests/support/TemporaryDirectory.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

namespace
{

using HtBaseLib::SRecordChecks;

constexpr std::size_t TEXT_SIZE = 16 * 1024 * 1024;
constexpr std::size_t BLOCK_SIZE = 65536;
constexpr std::size_t ROUNDS = 21;

constexpr char DIGITS[] = "0123456789ABCDEF";

// An S-record file of about TEXT_SIZE characters: random bytes, so many in each record.
class Image
{
public:
    explicit Image( unsigned int aRecordSize )
    {
        std::mt19937 lRandom( aRecordSize );
        for ( unsigned int lAddress = 0; mText.size() < TEXT_SIZE; lAddress += aRecordSize )
        {
            mText += "S3";
            unsigned int lSum = 0;
            const auto lAdd = [&]( unsigned int aByte )
            {
                lSum += aByte & 0xFF;
                mText += DIGITS[aByte >> 4 & 0xF];
                mText += DIGITS[aByte & 0xF];
            };
            lAdd( aRecordSize + 5 );
            for ( const unsigned int lShift : { 24U, 16U, 8U, 0U } )
            {
                lAdd( lAddress >> lShift );
            }
            for ( unsigned int lBytes = aRecordSize; lBytes > 0; --lBytes )
            {
                lAdd( lRandom() & 0xFF );
            }
            lAdd( ~lSum );
            mText += '\n';
        }
        TestSupport::WriteWholeFile( mPath, mText );
        mOutput.resize( mText.size() );
    }

    std::FILE* Open() const
    {
        std::FILE* const lFile = std::fopen( mPath.c_str(), "r" );
        if ( lFile == nullptr )
        {
            throw std::runtime_error( "cannot open " + mPath );
        }
        return lFile;
    }

    TestSupport::TemporaryDirectory mDirectory;
    const std::string mPath = mDirectory.GetPath( "image.srec" );
    std::string mText;
    std::vector<unsigned char> mOutput;
};

constexpr std::array<unsigned char, 256> MakeTable()
{
    std::array<unsigned char, 256> lTable{};
    for ( unsigned char lValue = 0; lValue < 16; ++lValue )
    {
        lTable[static_cast<unsigned char>( DIGITS[lValue] )] = lValue;
        lTable[static_cast<unsigned char>( "0123456789abcdef"[lValue] )] = lValue;
    }
    return lTable;
}

constexpr std::array<unsigned char, 256> TABLE = MakeTable();

unsigned char DecodePair( const char* aPair )
{
    const int lHigh = TABLE[static_cast<unsigned char>( aPair[0] )];
    const int lLow = TABLE[static_cast<unsigned char>( aPair[1] )];
    return static_cast<unsigned char>( lHigh << 4 | lLow );
}

// Decodes lines of S3 records whose addresses follow on, and returns the end of what it has stored.
template <bool ADDS_UP>
unsigned char* DecodeLines( const char* aText, const char* aEnd, unsigned char* aOutput )
{
    for ( const char* lLine = aText; lLine < aEnd; )
    {
        const unsigned int lCount = DecodePair( lLine + 2 );
        unsigned int lSum = lCount;
        std::uint32_t lAddress = 0;
        for ( const char* lPair = lLine + 4; lPair < lLine + 12; lPair += 2 )
        {
            lAddress = lAddress << 8 | DecodePair( lPair );
            lSum += lAddress & 0xFF;
        }
        aOutput[0] = 'D';
        aOutput[1] = static_cast<unsigned char>( lCount - 5 );
        aOutput += 2;
        const char* lPair = lLine + 12;
        for ( unsigned int lIndex = 5; lIndex < lCount; ++lIndex, lPair += 2 )
        {
            *aOutput = DecodePair( lPair );
            lSum += ADDS_UP ? *aOutput : 0;
            ++aOutput;
        }
        if ( ADDS_UP && ( ( lSum + DecodePair( lPair ) ) & 0xFF ) != 0xFF )
        {
            throw std::runtime_error( "a checksum is wrong" );
        }
        lLine = lPair + 3;
    }
    return aOutput;
}

using Run = void ( * )( Image& );

template <bool ADDS_UP>
void Table( Image& aImage )
{
    const char* const lText = aImage.mText.data();
    if ( DecodeLines<ADDS_UP>( lText, lText + aImage.mText.size(), aImage.mOutput.data() ) ==
         nullptr )
    {
        throw std::runtime_error( "nothing was decoded" );
    }
}

void TableFromFile( Image& aImage )
{
    std::vector<char> lBlock( BLOCK_SIZE );
    std::FILE* const lFile = aImage.Open();
    unsigned char* lOutput = aImage.mOutput.data();
    std::size_t lKept = 0;
    while ( const std::size_t lRead =
                std::fread( lBlock.data() + lKept, 1, BLOCK_SIZE - lKept, lFile ) )
    {
        const std::size_t lSize = lKept + lRead;
        std::size_t lLines = lSize; // up to the last line feed
        while ( lBlock[lLines - 1] != '\n' )
        {
            --lLines;
        }
        lOutput = DecodeLines<false>( lBlock.data(), lBlock.data() + lLines, lOutput );
        lKept = lSize - lLines;
        std::memmove( lBlock.data(), lBlock.data() + lLines, lKept );
    }
    std::fclose( lFile );
}

template <SRecordChecks CHECKS>
void Reader( Image& aImage )
{
    std::FILE* const lFile = aImage.Open();
    HtBaseLib::DfwPayloadWriter lWriter( std::make_unique<HtBaseLib::IoStreamRaw>(
        aImage.mOutput.data(), static_cast<unsigned int>( aImage.mOutput.size() ) ) );
    HtBaseLib::DfwPayloadSink lSink( lWriter );
    HtBaseLib::SRecordReader lReader( lSink, HtBaseLib::ReaderMessages::GetPrinter(), CHECKS );
    const bool lIsConverted = lReader.Convert( lFile, "image" );
    std::fclose( lFile );
    if ( !lIsConverted )
    {
        throw std::runtime_error( "the image was not converted" );
    }
}

struct Subject
{
    const char* mName;
    Run mRun;
};

// The first is what the others are held against.
constexpr Subject SUBJECTS[] = {
    { "Table", Table<false> },
    { "TableWithSum", Table<true> },
    { "TableFromFile", TableFromFile },
    { "Reader", Reader<SRecordChecks::NONE> },
    { "CheckingReader", Reader<SRecordChecks::ALL> },
    { "Checks", Reader<SRecordChecks::ONLY> },
};
constexpr std::size_t SUBJECT_COUNT = std::size( SUBJECTS );

// Processor time, in clock ticks of the standard library.
double Measure( Run aRun, Image& aImage )
{
    const std::clock_t lStart = std::clock();
    aRun( aImage );
    return static_cast<double>( std::clock() - lStart );
}

void Compare( unsigned int aRecordSize )
{
    Image lImage( aRecordSize );
    std::array<std::vector<double>, SUBJECT_COUNT> lRatios;
    for ( std::size_t lRound = 0; lRound <= ROUNDS; ++lRound )
    {
        const double lBase = Measure( SUBJECTS[0].mRun, lImage );
        for ( std::size_t lIndex = 1; lIndex < SUBJECT_COUNT; ++lIndex )
        {
            const double lTime = Measure( SUBJECTS[lIndex].mRun, lImage );
            if ( lRound > 0 ) // the first finds caches and memory cold
            {
                lRatios[lIndex].push_back( lBase / lTime );
            }
        }
    }
    for ( std::size_t lIndex = 1; lIndex < SUBJECT_COUNT; ++lIndex )
    {
        std::vector<double>& lSorted = lRatios[lIndex];
        std::sort( lSorted.begin(), lSorted.end() );
        std::printf( "records of %3u bytes: %-14s runs at %.2f of %s (%.2f to %.2f)\n", aRecordSize,
                     SUBJECTS[lIndex].mName, lSorted[ROUNDS / 2], SUBJECTS[0].mName,
                     lSorted[ROUNDS / 4], lSorted[ROUNDS - 1 - ROUNDS / 4] );
    }
}

} // namespace

int main()
{
    for ( const unsigned int lRecordSize : { 16U, 32U, 64U, 250U } )
    {
        Compare( lRecordSize );
    }
}
