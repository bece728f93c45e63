#include "Libraries/HtBase/IoStream.h"

#include "tests/support/TemporaryDirectory.h"
#include "tests/support/VirtualTable.h"

#include <gmock/gmock.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <limits>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include <unistd.h>

using HtBaseLib::IoStream;
using HtBaseLib::IoStreamFile;
using HtBaseLib::IoStreamRaw;
using testing::Each;
using TestSupport::ENTRIES_OF_DESTRUCTOR;
using TestSupport::GetEntry;
using TestSupport::ReadWholeFile;
using TestSupport::TemporaryDirectory;
using TestSupport::WriteWholeFile;

namespace
{

constexpr unsigned int REFUSED = 0xFFFFFFFF;
constexpr unsigned char UNTOUCHED = 0xEE;

// Ten bytes for a stream, with four on either side that nothing may touch.
class GuardedBuffer
{
public:
    static constexpr unsigned int SIZE = 10;

    GuardedBuffer() { mBytes.fill( UNTOUCHED ); }

    unsigned char* Get() { return mBytes.data() + GUARD; }
    const unsigned char* GetConstant() const { return mBytes.data() + GUARD; }
    std::string GetText( std::size_t aCount ) const
    {
        return std::string( reinterpret_cast<const char*>( GetConstant() ), aCount );
    }
    unsigned char operator[]( std::size_t aIndex ) const { return GetConstant()[aIndex]; }

    bool AreGuardsWhole() const
    {
        for ( std::size_t lIndex = 0; lIndex < GUARD; ++lIndex )
        {
            if ( mBytes[lIndex] != UNTOUCHED || mBytes[GUARD + SIZE + lIndex] != UNTOUCHED )
            {
                return false;
            }
        }
        return true;
    }

private:
    static constexpr std::size_t GUARD = 4;
    std::array<unsigned char, GUARD + SIZE + GUARD> mBytes;
};

// Tells which operations the base class calls.
class CallingStream : public IoStream
{
public:
    struct Call
    {
        unsigned int mSize;
        unsigned int mCount;
        unsigned char mByte;
    };

    int Close() override { return 0; }
    unsigned int Write( const void* aData, unsigned int aSize, unsigned int aCount ) override
    {
        mWrites.push_back( { aSize, aCount, *static_cast<const unsigned char*>( aData ) } );
        return 0x1234;
    }
    unsigned int Read( void* aData, unsigned int aSize, unsigned int aCount ) override
    {
        *static_cast<unsigned char*>( aData ) = 0x5A;
        mReads.push_back( { aSize, aCount, 0x5A } );
        return 0x4321;
    }
    int Rewind() override { return 0; }
    unsigned int Skip( unsigned int /*aOffset*/ ) override { return 0; }

    std::vector<Call> mWrites;
    std::vector<Call> mReads;
};

} // namespace

TEST( IoStream, KeepsTheOrderOfItsVirtualOperations )
{
    std::size_t lEntry = ENTRIES_OF_DESTRUCTOR;
    EXPECT_EQ( GetEntry( &IoStream::Close ), lEntry++ );
    EXPECT_EQ( GetEntry( &IoStream::PutByte ), lEntry++ );
    EXPECT_EQ( GetEntry( &IoStream::Write ), lEntry++ );
    EXPECT_EQ( GetEntry( &IoStream::GetByte ), lEntry++ );
    EXPECT_EQ( GetEntry( &IoStream::Read ), lEntry++ );
    EXPECT_EQ( GetEntry( &IoStream::Rewind ), lEntry++ );
    EXPECT_EQ( GetEntry( &IoStream::Skip ), lEntry++ );
    EXPECT_EQ( GetEntry( &IoStream::GetBytesWritten ), lEntry++ );
}

TEST( IoStream, IsAbstractAndNotCopied )
{
    static_assert( std::is_abstract_v<IoStream> && std::has_virtual_destructor_v<IoStream> );
    static_assert( !std::is_copy_constructible_v<IoStreamFile> );
    static_assert( !std::is_copy_assignable_v<IoStreamFile> );
    static_assert( !std::is_copy_constructible_v<IoStreamRaw> );
    static_assert( !std::is_copy_assignable_v<IoStreamRaw> );
    // Bytes that may not be stored into are named READ_ONLY.
    static_assert( !std::is_constructible_v<IoStreamRaw, const unsigned char*, unsigned int> );
    EXPECT_EQ( CallingStream().GetBytesWritten(), 0U );
}

TEST( IoStream, SingleBytesGoThroughWriteAndRead )
{
    CallingStream lStream;
    EXPECT_EQ( lStream.PutByte( 0xA7 ), 0x1234U );
    ASSERT_EQ( lStream.mWrites.size(), 1U );
    EXPECT_EQ( lStream.mWrites[0].mSize, 1U );
    EXPECT_EQ( lStream.mWrites[0].mCount, 1U );
    EXPECT_EQ( lStream.mWrites[0].mByte, 0xA7 );

    unsigned char lByte = 0;
    EXPECT_EQ( lStream.GetByte( &lByte ), 0x4321U );
    ASSERT_EQ( lStream.mReads.size(), 1U );
    EXPECT_EQ( lStream.mReads[0].mSize, 1U );
    EXPECT_EQ( lStream.mReads[0].mCount, 1U );
    EXPECT_EQ( lByte, 0x5A );
}

TEST( IoStreamFile, OpenReturnsTheErrorNumber )
{
    const TemporaryDirectory lDirectory;
    IoStreamFile lStream;
    EXPECT_EQ( lStream.Open( lDirectory.GetPath( "missing" ).c_str(), "rb" ), ENOENT );
    EXPECT_EQ( lStream.Open( lDirectory.GetPath().c_str(), "wb" ), EISDIR );
    WriteWholeFile( lDirectory.GetPath( "there" ), "x" );
    EXPECT_EQ( lStream.Open( lDirectory.GetPath( "there" ).c_str(), "rb" ), 0 );
    EXPECT_EQ( lStream.Close(), 0 );
}

TEST( IoStreamFile, DestructorWritesOutAndCloses )
{
    const TemporaryDirectory lDirectory;
    const std::string lPath = lDirectory.GetPath( "file" );
    auto lStream = std::make_unique<IoStreamFile>();
    ASSERT_EQ( lStream->Open( lPath.c_str(), "wb" ), 0 );
    EXPECT_EQ( lStream->Write( "abc", 1, 3 ), 3U );
    EXPECT_EQ( ReadWholeFile( lPath ), "" ); // still buffered
    lStream.reset();
    EXPECT_EQ( ReadWholeFile( lPath ), "abc" );
}

TEST( IoStreamFile, IsClosedOnlyOnce )
{
    const TemporaryDirectory lDirectory;
    IoStreamFile lStream;
    ASSERT_EQ( lStream.Open( lDirectory.GetPath( "file" ).c_str(), "wb" ), 0 );
    EXPECT_EQ( lStream.Close(), 0 );
    EXPECT_EQ( lStream.Close(), EOF );
}

TEST( IoStreamFile, CloseReportsThatTheDiskIsFull )
{
    IoStreamFile lStream;
    ASSERT_EQ( lStream.Open( "/dev/full", "wb" ), 0 );
    EXPECT_EQ( lStream.Write( "abc", 1, 3 ), 3U ); // buffered
    EXPECT_EQ( lStream.Close(), EOF );
    EXPECT_EQ( lStream.Close(), EOF ); // and the file is closed anyway
}

TEST( IoStreamFile, DoesNothingWhileNotOpen )
{
    const TemporaryDirectory lDirectory;
    IoStreamFile lStream;
    for ( int lRound = 0; lRound < 2; ++lRound ) // never opened, then failed to open
    {
        unsigned char lBytes[4] = { UNTOUCHED, UNTOUCHED, UNTOUCHED, UNTOUCHED };
        EXPECT_EQ( lStream.Read( lBytes, 1, 4 ), 0U );
        EXPECT_EQ( lStream.GetByte( lBytes ), 0U );
        EXPECT_THAT( lBytes, Each( UNTOUCHED ) );
        EXPECT_EQ( lStream.Write( lBytes, 1, 4 ), 0U );
        EXPECT_EQ( lStream.PutByte( 1 ), 0U );
        EXPECT_EQ( lStream.GetBytesWritten(), 0U );
        EXPECT_EQ( lStream.Rewind(), EOF );
        EXPECT_EQ( lStream.Skip( 1 ), REFUSED );
        EXPECT_EQ( lStream.Close(), EOF );
        EXPECT_EQ( lStream.Open( lDirectory.GetPath( "missing" ).c_str(), "rb" ), ENOENT );
    }
}

TEST( IoStreamFile, OpenAgainClosesTheFileBefore )
{
    const TemporaryDirectory lDirectory;
    const std::string lFirst = lDirectory.GetPath( "first" );
    IoStreamFile lStream;
    ASSERT_EQ( lStream.Open( lFirst.c_str(), "wb" ), 0 );
    EXPECT_EQ( lStream.Write( "1", 1, 1 ), 1U );
    ASSERT_EQ( lStream.Open( lDirectory.GetPath( "second" ).c_str(), "wb" ), 0 );
    EXPECT_EQ( ReadWholeFile( lFirst ), "1" );
}

TEST( IoStreamFile, WriteAddsTheProductOfTheTwoCounts )
{
    const TemporaryDirectory lDirectory;
    const std::string lPath = lDirectory.GetPath( "file" );
    const std::vector<unsigned char> lBytes( 512, 0x33 );
    IoStreamFile lStream;
    ASSERT_EQ( lStream.Open( lPath.c_str(), "wb" ), 0 );
    EXPECT_EQ( lStream.Write( lBytes.data(), 1, 512 ), 512U );
    EXPECT_EQ( lStream.GetBytesWritten(), 512U * 512U );
    EXPECT_EQ( lStream.Write( lBytes.data(), 4, 3 ), 3U );
    EXPECT_EQ( lStream.GetBytesWritten(), 512U * 512U + 9U );
    EXPECT_EQ( lStream.PutByte( 0x44 ), 1U );
    EXPECT_EQ( lStream.GetBytesWritten(), 512U * 512U + 9U + 1U );
    EXPECT_EQ( lStream.Close(), 0 );
    EXPECT_EQ( ReadWholeFile( lPath ).size(), 512U + 12U + 1U );
}

TEST( IoStreamFile, ProductOfTheCountsWraps )
{
    const TemporaryDirectory lDirectory;
    const std::vector<unsigned char> lBytes( 65537, 0x33 );
    IoStreamFile lStream;
    ASSERT_EQ( lStream.Open( lDirectory.GetPath( "file" ).c_str(), "wb" ), 0 );
    EXPECT_EQ( lStream.Write( lBytes.data(), 1, 65537 ), 65537U );
    EXPECT_EQ( lStream.GetBytesWritten(), 0x00020001U );
}

TEST( IoStreamFile, WriteThatFailsAddsNothing )
{
    const TemporaryDirectory lDirectory;
    const std::string lPath = lDirectory.GetPath( "file" );
    WriteWholeFile( lPath, "abc" );
    IoStreamFile lStream;
    ASSERT_EQ( lStream.Open( lPath.c_str(), "rb" ), 0 );
    EXPECT_EQ( lStream.Write( "xyz", 1, 3 ), 0U );
    EXPECT_EQ( lStream.GetBytesWritten(), 0U );
}

TEST( IoStreamFile, ReadsWholeElementsUpToTheEnd )
{
    const TemporaryDirectory lDirectory;
    const std::string lPath = lDirectory.GetPath( "file" );
    WriteWholeFile( lPath, "abcdefg" );
    IoStreamFile lStream;
    ASSERT_EQ( lStream.Open( lPath.c_str(), "rb" ), 0 );
    char lBytes[8] = {};
    EXPECT_EQ( lStream.Read( lBytes, 2, 4 ), 3U );
    EXPECT_EQ( std::string( lBytes, 6 ), "abcdef" );
    EXPECT_EQ( lStream.Rewind(), 0 );
    unsigned char lByte = 0;
    EXPECT_EQ( lStream.GetByte( &lByte ), 1U );
    EXPECT_EQ( lByte, 'a' );
    EXPECT_EQ( lStream.GetBytesWritten(), 0U );
}

TEST( IoStreamFile, ReadsNothingFromADirectory )
{
    const TemporaryDirectory lDirectory;
    IoStreamFile lStream;
    ASSERT_EQ( lStream.Open( lDirectory.GetPath().c_str(), "rb" ), 0 );
    unsigned char lByte = UNTOUCHED;
    EXPECT_EQ( lStream.GetByte( &lByte ), 0U );
    EXPECT_EQ( lByte, UNTOUCHED );
}

TEST( IoStreamFile, SkipsFromTheCurrentPosition )
{
    const TemporaryDirectory lDirectory;
    const std::string lPath = lDirectory.GetPath( "file" );
    WriteWholeFile( lPath, "abcdefg" );
    IoStreamFile lStream;
    ASSERT_EQ( lStream.Open( lPath.c_str(), "rb" ), 0 );
    unsigned char lByte = 0;
    EXPECT_EQ( lStream.Skip( 2 ), 0U );
    EXPECT_EQ( lStream.GetByte( &lByte ), 1U );
    EXPECT_EQ( lByte, 'c' );
    EXPECT_EQ( lStream.Skip( 1 ), 0U );
    EXPECT_EQ( lStream.GetByte( &lByte ), 1U );
    EXPECT_EQ( lByte, 'e' );
    EXPECT_EQ( lStream.Skip( 100 ), 0U ); // past the end, as fseek has it
    EXPECT_EQ( lStream.GetByte( &lByte ), 0U );
}

TEST( IoStreamFile, SkipsTwoGibibytesAndMore )
{
    const TemporaryDirectory lDirectory;
    const std::string lPath = lDirectory.GetPath( "file" );
    constexpr long long SIZE = 0x80000000LL + 0xFFFFFFFFLL + 1; // takes no room on the disk
    WriteWholeFile( lPath, "a" );
    ASSERT_EQ( truncate( lPath.c_str(), SIZE ), 0 );
    std::ofstream( lPath, std::ios::binary | std::ios::app ) << "z";
    IoStreamFile lStream;
    ASSERT_EQ( lStream.Open( lPath.c_str(), "rb" ), 0 );
    unsigned char lByte = 0;
    EXPECT_EQ( lStream.Skip( 0x80000000 ), 0U );
    EXPECT_EQ( lStream.Skip( 0xFFFFFFFF ), 0U );
    EXPECT_EQ( lStream.GetByte( &lByte ), 1U );
    EXPECT_EQ( lByte, 0 );
    EXPECT_EQ( lStream.GetByte( &lByte ), 1U );
    EXPECT_EQ( lByte, 'z' );
}

TEST( IoStreamFile, SkipReportsThatThereIsNoPosition )
{
    int lEnds[2] = { -1, -1 };
    ASSERT_EQ( pipe( lEnds ), 0 );
    IoStreamFile lStream;
    ASSERT_EQ( lStream.Open( ( "/proc/self/fd/" + std::to_string( lEnds[0] ) ).c_str(), "rb" ), 0 );
    EXPECT_EQ( lStream.Skip( 1 ), REFUSED );
    EXPECT_EQ( lStream.Rewind(), -1 );
    EXPECT_EQ( close( lEnds[0] ), 0 );
    EXPECT_EQ( close( lEnds[1] ), 0 );
}

TEST( IoStreamRaw, WritingStopsAtTheEndAndLeavesNoSpaceForTheZero )
{
    GuardedBuffer lBuffer;
    {
        IoStreamRaw lStream( lBuffer.Get(), GuardedBuffer::SIZE );
        EXPECT_EQ( lStream.GetBytesWritten(), 0U );
        EXPECT_EQ( lStream.Write( "abcdefghijkl", 1, 12 ), 10U );
        EXPECT_EQ( lStream.GetBytesWritten(), 10U );
        EXPECT_EQ( lStream.Write( "m", 1, 1 ), 0U );
        EXPECT_EQ( lStream.PutByte( 'n' ), 0U );
        EXPECT_EQ( lStream.GetBytesWritten(), 10U );
    }
    EXPECT_EQ( lBuffer.GetText( 10 ), "abcdefghij" );
    EXPECT_TRUE( lBuffer.AreGuardsWhole() );
}

TEST( IoStreamRaw, DestructorEndsTheTextWithAZero )
{
    GuardedBuffer lBuffer;
    {
        IoStreamRaw lStream( lBuffer.Get(), GuardedBuffer::SIZE );
        EXPECT_EQ( lStream.Write( "abcd", 1, 4 ), 4U );
        EXPECT_EQ( lBuffer[4], UNTOUCHED );
    }
    EXPECT_EQ( lBuffer.GetText( 5 ), std::string( "abcd\0", 5 ) );
    EXPECT_EQ( lBuffer[5], UNTOUCHED );
    EXPECT_TRUE( lBuffer.AreGuardsWhole() );
}

TEST( IoStreamRaw, CloseStoresAZeroThatIsNotCounted )
{
    GuardedBuffer lBuffer;
    IoStreamRaw lStream( lBuffer.Get(), GuardedBuffer::SIZE );
    EXPECT_EQ( lStream.Write( "abcd", 1, 4 ), 4U );
    EXPECT_EQ( lStream.Close(), 0 );
    EXPECT_EQ( lBuffer[4], 0 );
    EXPECT_EQ( lBuffer[5], UNTOUCHED );
    EXPECT_EQ( lStream.GetBytesWritten(), 4U );
    EXPECT_EQ( lStream.PutByte( 'e' ), 1U ); // where the zero was
    EXPECT_EQ( lBuffer.GetText( 5 ), "abcde" );
}

TEST( IoStreamRaw, ZeroIsStoredAtThePositionHoweverItWasReached )
{
    GuardedBuffer lUnused;
    IoStreamRaw( lUnused.Get(), GuardedBuffer::SIZE ).GetBytesWritten();
    EXPECT_EQ( lUnused[0], 0 );
    EXPECT_EQ( lUnused[1], UNTOUCHED );

    GuardedBuffer lRewound;
    {
        IoStreamRaw lStream( lRewound.Get(), GuardedBuffer::SIZE );
        EXPECT_EQ( lStream.Write( "abcd", 1, 4 ), 4U );
        EXPECT_EQ( lStream.Rewind(), 0 );
    }
    EXPECT_EQ( lRewound.GetText( 5 ), std::string( "\0bcd\xEE", 5 ) );

    GuardedBuffer lSkipped;
    {
        IoStreamRaw lStream( lSkipped.Get(), GuardedBuffer::SIZE );
        EXPECT_EQ( lStream.Skip( 9 ), 0U );
    }
    EXPECT_EQ( lSkipped[9], 0 );
    EXPECT_EQ( lSkipped[8], UNTOUCHED );

    GuardedBuffer lRead;
    {
        IoStreamRaw lStream( lRead.Get(), GuardedBuffer::SIZE );
        unsigned char lByte = 0;
        EXPECT_EQ( lStream.GetByte( &lByte ), 1U );
    }
    EXPECT_EQ( lRead[0], UNTOUCHED );
    EXPECT_EQ( lRead[1], 0 );
    EXPECT_TRUE( lRead.AreGuardsWhole() );
}

TEST( IoStreamRaw, CopiesPartOfAnElement )
{
    GuardedBuffer lBuffer;
    IoStreamRaw lStream( lBuffer.Get(), GuardedBuffer::SIZE );
    EXPECT_EQ( lStream.Write( "abcdefghijkl", 4, 3 ), 10U );
    EXPECT_EQ( lBuffer.GetText( 10 ), "abcdefghij" );
    EXPECT_EQ( lStream.Rewind(), 0 );
    char lBytes[12] = {};
    EXPECT_EQ( lStream.Read( lBytes, 4, 3 ), 10U );
    EXPECT_STREQ( lBytes, "abcdefghij" );
    EXPECT_TRUE( lBuffer.AreGuardsWhole() );
}

TEST( IoStreamRaw, ProductOfSizeAndCountDoesNotWrap )
{
    GuardedBuffer lBuffer;
    IoStreamRaw lStream( lBuffer.Get(), GuardedBuffer::SIZE );
    EXPECT_EQ( lStream.Write( "abcdefghij", 0x10000, 0x10000 ), 10U );
    EXPECT_EQ( lBuffer.GetText( 10 ), "abcdefghij" );
    EXPECT_EQ( lStream.Rewind(), 0 );
    EXPECT_EQ( lStream.Write( "abcdefghij", 0, 5 ), 0U );
    EXPECT_EQ( lStream.Write( "abcdefghij", 5, 0 ), 0U );
}

TEST( IoStreamRaw, ReadingStopsAtTheEndAndCountsNothing )
{
    GuardedBuffer lBuffer;
    std::memcpy( lBuffer.Get(), "abcdefghij", 10 );
    IoStreamRaw lStream( lBuffer.Get(), GuardedBuffer::SIZE );
    char lBytes[12] = {};
    EXPECT_EQ( lStream.Read( lBytes, 1, 4 ), 4U );
    EXPECT_STREQ( lBytes, "abcd" );
    EXPECT_EQ( lStream.Read( lBytes, 1, 12 ), 6U );
    EXPECT_STREQ( lBytes, "efghij" );
    unsigned char lByte = UNTOUCHED;
    EXPECT_EQ( lStream.GetByte( &lByte ), 0U );
    EXPECT_EQ( lByte, UNTOUCHED );
    EXPECT_EQ( lStream.GetBytesWritten(), 0U );
}

TEST( IoStreamRaw, RewindKeepsTheBytesWritten )
{
    GuardedBuffer lBuffer;
    IoStreamRaw lStream( lBuffer.Get(), GuardedBuffer::SIZE );
    EXPECT_EQ( lStream.Write( "abcd", 1, 4 ), 4U );
    EXPECT_EQ( lStream.Rewind(), 0 );
    EXPECT_EQ( lStream.GetBytesWritten(), 4U );
    EXPECT_EQ( lStream.Write( "AB", 1, 2 ), 2U );
    EXPECT_EQ( lStream.GetBytesWritten(), 6U );
    EXPECT_EQ( lBuffer.GetText( 4 ), "ABcd" );
}

TEST( IoStreamRaw, SkipToTheEndOrBeyondIsRefused )
{
    GuardedBuffer lBuffer;
    std::memcpy( lBuffer.Get(), "abcdefghij", 10 );
    IoStreamRaw lStream( lBuffer.Get(), GuardedBuffer::SIZE );
    EXPECT_EQ( lStream.Skip( 3 ), 0U );
    EXPECT_EQ( lStream.Skip( 0 ), 0U );
    EXPECT_EQ( lStream.Skip( 7 ), REFUSED ); // exactly the end
    EXPECT_EQ( lStream.Skip( 8 ), REFUSED );
    EXPECT_EQ( lStream.Skip( std::numeric_limits<unsigned int>::max() ), REFUSED ); // 3 + max is 2
    unsigned char lByte = 0;
    EXPECT_EQ( lStream.GetByte( &lByte ), 1U );
    EXPECT_EQ( lByte, 'd' ); // where the first skip led
    EXPECT_EQ( lStream.Skip( 5 ), 0U );
    EXPECT_EQ( lStream.GetByte( &lByte ), 1U );
    EXPECT_EQ( lByte, 'j' );
    EXPECT_EQ( lStream.Skip( 0 ), REFUSED ); // at the end
}

TEST( IoStreamRaw, WorksWithoutAnyBytes )
{
    GuardedBuffer lBuffer;
    {
        IoStreamRaw lStream( lBuffer.Get(), 0 );
        EXPECT_EQ( lStream.Skip( 0 ), REFUSED );
        EXPECT_EQ( lStream.PutByte( 1 ), 0U );
        EXPECT_EQ( lStream.Close(), 0 );
    }
    EXPECT_EQ( lBuffer[0], UNTOUCHED );
    IoStreamRaw lNothing( nullptr, 0 );
    EXPECT_EQ( lNothing.PutByte( 1 ), 0U );
}

TEST( IoStreamRaw, NeverStoresIntoBytesLentForReading )
{
    GuardedBuffer lBuffer;
    std::memcpy( lBuffer.Get(), "abcdefghij", 10 );
    {
        // Not even where it could.
        IoStreamRaw lStream( IoStreamRaw::READ_ONLY, lBuffer.Get(), GuardedBuffer::SIZE );
        char lBytes[5] = {};
        EXPECT_EQ( lStream.Read( lBytes, 1, 4 ), 4U );
        EXPECT_STREQ( lBytes, "abcd" );
        EXPECT_EQ( lStream.Write( "xyz", 1, 3 ), 0U );
        EXPECT_EQ( lStream.PutByte( 'x' ), 0U );
        EXPECT_EQ( lStream.GetBytesWritten(), 0U );
        EXPECT_EQ( lStream.Close(), 0 );
        EXPECT_EQ( lStream.GetByte( reinterpret_cast<unsigned char*>( lBytes ) ), 1U );
        EXPECT_EQ( lBytes[0], 'e' ); // the refused writes moved nothing
        EXPECT_EQ( lStream.Rewind(), 0 );
    }
    EXPECT_EQ( lBuffer.GetText( 10 ), "abcdefghij" );
}
