// S-record files that the tools of others have written from random images.

#include "Libraries/HtBase/DfwPayload.h"
#include "Libraries/HtBase/Firmware/SRecordReader.h"

#include "tests/support/ChildProcess.h"
#include "tests/support/StandardOutput.h"
#include "tests/support/StringStream.h"
#include "tests/support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

using HtBaseLib::DfwPayloadSink;
using HtBaseLib::DfwPayloadWriter;
using HtBaseLib::ReaderMessages;
using HtBaseLib::SRecordReader;
using TestSupport::ReadWholeFile;
using TestSupport::StandardOutputCapture;
using TestSupport::StringStream;
using TestSupport::TemporaryDirectory;
using TestSupport::WriteWholeFile;

namespace
{

// Bytes by their addresses.
using Memory = std::map<std::uint32_t, unsigned char>;

void Place( Memory& aMemory, std::uint32_t aAddress, const std::string& aBytes )
{
    for ( const char lByte : aBytes )
    {
        EXPECT_TRUE( aMemory.emplace( aAddress, static_cast<unsigned char>( lByte ) ).second )
            << "twice at " << aAddress;
        ++aAddress;
    }
}

// Puts the data records of a payload where its address records say.
Memory Load( const std::string& aPayload )
{
    Memory lMemory;
    std::uint32_t lAddress = 0;
    std::size_t lAt = 0;
    while ( lAt + 2 <= aPayload.size() )
    {
        const std::string lBytes =
            aPayload.substr( lAt + 2, static_cast<unsigned char>( aPayload[lAt + 1] ) );
        if ( aPayload[lAt] == 'O' )
        {
            lAddress = 0;
            for ( const char lByte : lBytes )
            {
                lAddress = lAddress << 8 | static_cast<unsigned char>( lByte );
            }
        }
        else
        {
            EXPECT_EQ( aPayload[lAt], 'D' );
            Place( lMemory, lAddress, lBytes );
            lAddress += static_cast<std::uint32_t>( lBytes.size() );
        }
        lAt += 2 + lBytes.size();
    }
    EXPECT_EQ( lAt, aPayload.size() );
    return lMemory;
}

class DfwImageTest : public testing::Test
{
protected:
    std::string MakeRandomBytes( std::size_t aSize )
    {
        std::string lBytes( aSize, '\0' );
        std::generate( lBytes.begin(), lBytes.end(),
                       [this] { return static_cast<char>( mRandom() ); } );
        return lBytes;
    }

    // A random image in a file, noted as what the payload must hold.
    std::string MakeImage( const std::string& aName, std::uint32_t aAddress, std::size_t aSize )
    {
        const std::string lPath = mDirectory.GetPath( aName );
        const std::string lBytes = MakeRandomBytes( aSize );
        WriteWholeFile( lPath, lBytes );
        Place( mExpected, aAddress, lBytes );
        return lPath;
    }

    static void Run( const std::vector<std::string>& aArguments )
    {
        const TestSupport::Outcome lOutcome = TestSupport::RunProgram( aArguments );
        ASSERT_EQ( lOutcome.mStatus, 0 ) << lOutcome.mError;
    }

    // Converts mSRecords and compares.
    void ExpectImage( const std::string& aOutput ) const
    {
        std::string lPayload;
        std::string lOutput;
        bool lAnswer = false;
        std::FILE* const lFile = std::fopen( mSRecords.c_str(), "r" );
        ASSERT_NE( lFile, nullptr );
        {
            DfwPayloadWriter lWriter( std::make_unique<StringStream>( lPayload ) );
            DfwPayloadSink lSink( lWriter );
            SRecordReader lReader( lSink, ReaderMessages::GetPrinter() );
            StandardOutputCapture lCapture;
            lAnswer = lReader.Convert( lFile, mSRecords.c_str() );
            lOutput = lCapture.Take();
        }
        std::fclose( lFile );
        EXPECT_TRUE( lAnswer );
        EXPECT_EQ( lOutput, aOutput );
        EXPECT_TRUE( Load( lPayload ) == mExpected );
    }

    const TemporaryDirectory mDirectory;
    const std::string mSRecords = mDirectory.GetPath( "image.srec" );
    Memory mExpected;
    std::mt19937 mRandom{ 20 };
};

// Both programs end their files with a line end, so their last record is warned of twice.
constexpr const char* SREC_CAT_OUTPUT =
    "Warning: unknown record type: S5Warning: unknown record type: S5";
constexpr const char* OBJCOPY_OUTPUT =
    "Warning: unknown record type: S7Warning: unknown record type: S7";

} // namespace

TEST_F( DfwImageTest, SrecCatWithRecordsOfEveryLength )
{
    const std::string lImage = MakeImage( "image", 0x8000, 700 );
    for ( int lLength = 1; lLength <= 250; ++lLength )
    {
        Run( { "srec_cat", lImage, "-Binary", "-Offset", "0x8000", "-o", mSRecords, "-Motorola",
               "-Address_Length=4", "-Output_Block_Size=" + std::to_string( lLength ) } );
        ExpectImage( SREC_CAT_OUTPUT );
    }
}

TEST_F( DfwImageTest, SrecCatWithGaps )
{
    const std::vector<std::string> lImages = {
        MakeImage( "a", 0x00000000, 5000 ),  MakeImage( "b", 0x00001400, 1 ),
        MakeImage( "c", 0x00020001, 33333 ), MakeImage( "d", 0x7FFFFFF0, 32 ),
        MakeImage( "e", 0xFFFFF000, 0xF80 ),
    };
    const std::vector<std::string> lOffsets = { "0", "0x1400", "0x20001", "0x7FFFFFF0",
                                                "0xFFFFF000" };
    for ( const std::string lLength : { "30", "44", "78", "120", "514" } )
    {
        std::vector<std::string> lArguments = { "srec_cat" };
        for ( std::size_t lIndex = 0; lIndex < lImages.size(); ++lIndex )
        {
            lArguments.insert( lArguments.end(),
                               { lImages[lIndex], "-Binary", "-Offset", lOffsets[lIndex] } );
        }
        lArguments.insert( lArguments.end(), { "-o", mSRecords, "-Motorola", "-Address_Length=4",
                                               "-Line_Length=" + lLength } );
        Run( lArguments );
        ExpectImage( SREC_CAT_OUTPUT );
    }
}

TEST_F( DfwImageTest, ObjcopyWithRecordsOfEveryLength )
{
    const std::string lImage = MakeImage( "image", 0x10000, 700 );
    for ( int lLength = 1; lLength <= 250; ++lLength )
    {
        Run( { "objcopy", "-I", "binary", "-O", "srec", "--srec-forceS3",
               "--srec-len=" + std::to_string( lLength ), "--change-section-address",
               ".data=0x10000", lImage, mSRecords } );
        if ( lLength == 1 )
        {
            EXPECT_NE( ReadWholeFile( mSRecords ).find( "\r\n" ), std::string::npos );
        }
        ExpectImage( OBJCOPY_OUTPUT );
    }
}

TEST_F( DfwImageTest, ObjcopyWithSeveralSections )
{
    const std::string lFirst = MakeImage( "first", 0x10000, 40000 );
    const std::string lSecond = MakeImage( "second", 0x20010, 777 );
    const std::string lThird = MakeImage( "third", 0xFFF00001, 1000 );
    for ( const std::string lLength : { "1", "16", "100", "250" } )
    {
        Run( { "objcopy",
               "-I",
               "binary",
               "-O",
               "srec",
               "--srec-forceS3",
               "--srec-len=" + lLength,
               "--change-section-address",
               ".data=0x10000",
               "--add-section",
               ".second=" + lSecond,
               "--set-section-flags",
               ".second=alloc,load,contents",
               "--change-section-address",
               ".second=0x20010",
               "--add-section",
               ".third=" + lThird,
               "--set-section-flags",
               ".third=alloc,load,contents",
               "--change-section-address",
               ".third=0xFFF00001",
               lFirst,
               mSRecords } );
        ExpectImage( OBJCOPY_OUTPUT );
    }
}
