// Firmware files of 100 MiB are converted completely, and memory does not grow with them.

#include "Libraries/HtBase/DfwPayload.h"

#include "tests/support/StandardOutput.h"
#include "tests/support/TemporaryDirectory.h"

#include <QmUtilsLib/Assert.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>

#include <sys/resource.h>

using HtBaseLib::DfwPayloadWriter;
using HtBaseLib::IoStream;
using TestSupport::StandardOutputCapture;
using TestSupport::TemporaryDirectory;

namespace
{

constexpr std::size_t MIB = 1024 * 1024;
constexpr std::size_t LARGE = 100 * MIB;

// Counts what is written and keeps nothing.
class CountingStream : public IoStream
{
public:
    explicit CountingStream( std::size_t& aCount )
        : mCount( aCount )
    {
    }

    int Close() override { return 0; }
    unsigned int Write( const void*, unsigned int aSize, unsigned int aCount ) override
    {
        mCount += static_cast<std::size_t>( aSize ) * aCount;
        return aCount;
    }
    unsigned int Read( void*, unsigned int, unsigned int ) override { return 0; }
    int Rewind() override { return -1; }
    unsigned int Skip( unsigned int ) override { return 0xFFFFFFFF; }

private:
    std::size_t& mCount;
};

// The most memory that this process has ever had, in bytes.
std::size_t GetPeakMemory()
{
    rusage lUsage{};
    EXPECT_EQ( getrusage( RUSAGE_SELF, &lUsage ), 0 );
    return static_cast<std::size_t>( lUsage.ru_maxrss ) * 1024;
}

void IgnoreAssertion( const char*, const char*, int ) {}

class DfwLargeFileTest : public testing::Test
{
protected:
    using Reader = std::function<bool( DfwPayloadWriter& )>;

    DfwLargeFileTest() { QmUtilsLib::SetAssertionHandler( IgnoreAssertion ); }
    ~DfwLargeFileTest() override { QmUtilsLib::SetAssertionHandler( nullptr ); }

    // A file that begins with aHead and goes on with aBlock until it is large enough. Returns how
    // many blocks there are.
    std::size_t Fill( const std::string& aHead, const std::string& aBlock,
                      std::size_t aSize = LARGE ) const
    {
        std::FILE* const lFile = std::fopen( mPath.c_str(), "wb" );
        EXPECT_NE( lFile, nullptr );
        std::size_t lBlocks = 0;
        EXPECT_EQ( std::fwrite( aHead.data(), 1, aHead.size(), lFile ), aHead.size() );
        while ( aHead.size() + lBlocks * aBlock.size() < aSize )
        {
            EXPECT_EQ( std::fwrite( aBlock.data(), 1, aBlock.size(), lFile ), aBlock.size() );
            ++lBlocks;
        }
        EXPECT_EQ( std::fclose( lFile ), 0 );
        return lBlocks;
    }

    void FillWithZeros() const { Fill( "", std::string( MIB, '\0' ) ); }

    void Convert( const Reader& aReader )
    {
        const std::size_t lBefore = GetPeakMemory();
        {
            DfwPayloadWriter lWriter( std::make_unique<CountingStream>( mCount ) );
            StandardOutputCapture lCapture;
            mAnswer = aReader( lWriter );
            mOutput = lCapture.Take();
        }
        EXPECT_LT( GetPeakMemory() - lBefore, 8 * MIB );
    }

    void ConvertSRecords()
    {
        Convert( [this]( DfwPayloadWriter& aWriter )
                 { return aWriter.AddSRecordFile( mPath.c_str() ); } );
    }

    void ConvertWordHex()
    {
        Convert( [this]( DfwPayloadWriter& aWriter )
                 { return aWriter.AddWordHexFile( mPath.c_str() ); } );
    }

    const TemporaryDirectory mDirectory;
    const std::string mPath = mDirectory.GetPath( "image" );
    std::size_t mCount = 0;
    bool mAnswer = false;
    std::string mOutput;
};

} // namespace

TEST_F( DfwLargeFileTest, SRecords )
{
    // 1000 lines of 32 bytes each; a block goes to the same addresses again.
    std::string lBlock;
    for ( unsigned int lLine = 0; lLine < 1000; ++lLine )
    {
        char lHead[16];
        std::snprintf( lHead, sizeof( lHead ), "S325%08X", lLine * 32 );
        lBlock += lHead + std::string( 64, 'A' ) + "00\n";
    }
    const std::size_t lBlocks = Fill( "S0030000FC\n", lBlock );
    ConvertSRecords();
    EXPECT_TRUE( mAnswer );
    EXPECT_EQ( mOutput, "" );
    // Every block and its last line once more, which goes back by one address.
    EXPECT_EQ( mCount, lBlocks * ( 6 + 1000 * 34 ) + 6 + 34 );
}

TEST_F( DfwLargeFileTest, SRecordsWithoutALineEnd )
{
    Fill( "S9", std::string( MIB, '7' ) );
    ConvertSRecords();
    EXPECT_TRUE( mAnswer );
    EXPECT_EQ( mOutput, "Warning: unknown record type: S9" );
    EXPECT_EQ( mCount, 0U );
}

TEST_F( DfwLargeFileTest, SRecordsOfEmptyLines )
{
    // Each of them repeats the record before it, so a tenth of the size has to do.
    Fill( "S0\n", std::string( MIB, '\n' ), LARGE / 10 );
    ConvertSRecords();
    EXPECT_TRUE( mAnswer );
    EXPECT_EQ( mOutput, "" );
    EXPECT_EQ( mCount, 0U );
}

TEST_F( DfwLargeFileTest, SRecordsOfZeros )
{
    FillWithZeros();
    ConvertSRecords();
    EXPECT_TRUE( mAnswer );
    EXPECT_EQ( mOutput, "" );
    EXPECT_EQ( mCount, 0U );
}

TEST_F( DfwLargeFileTest, Binary )
{
    FillWithZeros();
    Convert( [this]( DfwPayloadWriter& aWriter )
             { return aWriter.AddBinaryFile( mPath.c_str(), 0 ); } );
    EXPECT_TRUE( mAnswer );
    EXPECT_EQ( mOutput, "" );
    EXPECT_EQ( mCount, 6 + LARGE + 2 * ( ( LARGE + 253 ) / 254 ) );
}

TEST_F( DfwLargeFileTest, WordHex )
{
    const std::size_t lBlocks = Fill( "", "/" + std::string( 1000, 'c' ) + "\n1234\n" );
    ConvertWordHex();
    EXPECT_TRUE( mAnswer );
    EXPECT_EQ( mOutput, "" );
    const std::size_t lBytes = 2 * lBlocks;
    EXPECT_EQ( mCount, lBytes + 2 * ( ( lBytes + 253 ) / 254 ) );
}

TEST_F( DfwLargeFileTest, WordHexOfZeros )
{
    FillWithZeros();
    ConvertWordHex();
    EXPECT_FALSE( mAnswer );
    EXPECT_EQ( mOutput, "unexpected data read\n" );
    EXPECT_EQ( mCount, 0U );
}

TEST_F( DfwLargeFileTest, WordHexWithoutALineEnd )
{
    Fill( "", std::string( MIB, '7' ) );
    ConvertWordHex();
    EXPECT_FALSE( mAnswer );
    EXPECT_EQ( mOutput, "unexpected data 1024\n" );
    EXPECT_EQ( mCount, 0U );
}

TEST_F( DfwLargeFileTest, ACommentWithoutALineEnd )
{
    // Only the first 1024 characters are the comment.
    Fill( "/", std::string( MIB, '/' ) );
    ConvertWordHex();
    EXPECT_TRUE( mAnswer );
    EXPECT_EQ( mOutput, "" );
    EXPECT_EQ( mCount, 0U );
}
