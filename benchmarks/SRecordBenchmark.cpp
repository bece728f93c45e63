// How fast S-records are read: the reader against decoders of the same text that do nothing else.
//
// "Table" decodes every digit of the text, which is in memory already, with a table of 256 values
// and stores the bytes. "TableFromFile" does the same with the file, read in blocks. "Reader" is
// the reader of the library from the same file into a payload in memory. The ratios of their speeds
// are printed at the end: how many times as fast as the decoder the reader is.

#include "benchmarks/Ratios.h"

#include "Libraries/HtBase/DfwPayload.h"
#include "Libraries/HtBase/Firmware/SRecordReader.h"
#include "tests/support/TemporaryDirectory.h"

#include <benchmark/benchmark.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

namespace
{

constexpr std::size_t TEXT_SIZE = 16 * 1024 * 1024;
constexpr std::size_t BLOCK_SIZE = 65536;

// An S-record file of about TEXT_SIZE characters: random bytes, so many in each record.
class Image
{
public:
    explicit Image( unsigned int aRecordSize )
    {
        std::mt19937 lRandom( aRecordSize );
        for ( unsigned int lAddress = 0; mText.size() < TEXT_SIZE; lAddress += aRecordSize )
        {
            char lHead[24];
            std::snprintf( lHead, sizeof( lHead ), "S3%02X%08X", aRecordSize + 5, lAddress );
            mText += lHead;
            for ( unsigned int lDigits = 2 * aRecordSize + 2; lDigits > 0; --lDigits )
            {
                mText += "0123456789ABCDEF"[lRandom() % 16];
            }
            mText += '\n';
        }
        TestSupport::WriteWholeFile( mPath, mText );
        mOutput.resize( mText.size() );
    }

    static Image& Get( unsigned int aRecordSize )
    {
        static std::map<unsigned int, std::unique_ptr<Image>> sImages;
        std::unique_ptr<Image>& lImage = sImages[aRecordSize];
        if ( lImage == nullptr )
        {
            lImage = std::make_unique<Image>( aRecordSize );
        }
        return *lImage;
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
        lTable[static_cast<unsigned char>( "0123456789ABCDEF"[lValue] )] = lValue;
        lTable[static_cast<unsigned char>( "0123456789abcdef"[lValue] )] = lValue;
    }
    return lTable;
}

constexpr std::array<unsigned char, 256> TABLE = MakeTable();

// Decodes what follows the type of every line and returns the end of what it has stored.
unsigned char* DecodeLines( const char* aText, const char* aEnd, unsigned char* aOutput )
{
    for ( const char* lLine = aText; lLine < aEnd; )
    {
        const auto* const lLineEnd = static_cast<const char*>(
            std::memchr( lLine, '\n', static_cast<std::size_t>( aEnd - lLine ) ) );
        for ( const char* lPair = lLine + 2; lPair + 1 < lLineEnd; lPair += 2 )
        {
            const int lHigh = TABLE[static_cast<unsigned char>( lPair[0] )];
            const int lLow = TABLE[static_cast<unsigned char>( lPair[1] )];
            *aOutput++ = static_cast<unsigned char>( lHigh << 4 | lLow );
        }
        lLine = lLineEnd + 1;
    }
    return aOutput;
}

void Table( benchmark::State& aState )
{
    Image& lImage = Image::Get( static_cast<unsigned int>( aState.range( 0 ) ) );
    const char* const lText = lImage.mText.data();
    for ( auto lUnused : aState )
    {
        (void)lUnused;
        benchmark::DoNotOptimize(
            DecodeLines( lText, lText + lImage.mText.size(), lImage.mOutput.data() ) );
        benchmark::ClobberMemory();
    }
    aState.SetBytesProcessed( aState.iterations() *
                              static_cast<std::int64_t>( lImage.mText.size() ) );
}

void TableFromFile( benchmark::State& aState )
{
    Image& lImage = Image::Get( static_cast<unsigned int>( aState.range( 0 ) ) );
    std::vector<char> lBlock( BLOCK_SIZE );
    for ( auto lUnused : aState )
    {
        (void)lUnused;
        std::FILE* const lFile = lImage.Open();
        unsigned char* lOutput = lImage.mOutput.data();
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
            lOutput = DecodeLines( lBlock.data(), lBlock.data() + lLines, lOutput );
            lKept = lSize - lLines;
            std::memmove( lBlock.data(), lBlock.data() + lLines, lKept );
        }
        std::fclose( lFile );
        benchmark::DoNotOptimize( lOutput );
        benchmark::ClobberMemory();
    }
    aState.SetBytesProcessed( aState.iterations() *
                              static_cast<std::int64_t>( lImage.mText.size() ) );
}

void Reader( benchmark::State& aState )
{
    Image& lImage = Image::Get( static_cast<unsigned int>( aState.range( 0 ) ) );
    for ( auto lUnused : aState )
    {
        (void)lUnused;
        std::FILE* const lFile = lImage.Open();
        HtBaseLib::DfwPayloadWriter lWriter( std::make_unique<HtBaseLib::IoStreamRaw>(
            lImage.mOutput.data(), static_cast<unsigned int>( lImage.mOutput.size() ) ) );
        HtBaseLib::DfwPayloadSink lSink( lWriter );
        HtBaseLib::SRecordReader lReader( lSink, HtBaseLib::ReaderMessages::GetPrinter() );
        if ( !lReader.Convert( lFile, "image" ) )
        {
            aState.SkipWithError( "the image was not converted" );
        }
        std::fclose( lFile );
        benchmark::ClobberMemory();
    }
    aState.SetBytesProcessed( aState.iterations() *
                              static_cast<std::int64_t>( lImage.mText.size() ) );
}

BENCHMARK( Table )->Arg( 16 )->Arg( 32 )->Arg( 64 )->Arg( 250 );
BENCHMARK( TableFromFile )->Arg( 16 )->Arg( 32 )->Arg( 64 )->Arg( 250 );
BENCHMARK( Reader )->Arg( 16 )->Arg( 32 )->Arg( 64 )->Arg( 250 );

std::vector<Benchmarks::Ratio> MakeRatios()
{
    std::vector<Benchmarks::Ratio> lRatios;
    for ( const std::string lSize : { "16", "32", "64", "250" } )
    {
        for ( const std::string lDecoder : { "Table/", "TableFromFile/" } )
        {
            lRatios.push_back(
                { "records of " + lSize + " bytes", "Reader/" + lSize, lDecoder + lSize } );
        }
    }
    return lRatios;
}

} // namespace

int main( int aCount, char** aArguments )
{
    return Benchmarks::RunAndCompare( aCount, aArguments, Benchmarks::Clock::CPU, MakeRatios() );
}
