#include "Libraries/HtBase/DfwPayload.h"
#include "Libraries/HtBase/Firmware/BinaryReader.h"
#include "Libraries/HtBase/Firmware/SRecordReader.h"
#include "Libraries/HtBase/Firmware/WordHexReader.h"

#include "tests/support/AllocationCounter.h"
#include "tests/support/ByteFile.h"
#include "tests/support/StandardOutput.h"
#include "tests/support/StringStream.h"
#include "tests/support/TemporaryDirectory.h"

#include <QmUtilsLib/Assert.h>
#include <QmUtilsLib/Scripted/RecordingLogSink.h>

#include <gmock/gmock.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <unistd.h>

using HtBaseLib::BinaryReader;
using HtBaseLib::DfwPayloadSink;
using HtBaseLib::DfwPayloadWriter;
using HtBaseLib::ReaderMessages;
using HtBaseLib::SRecordReader;
using HtBaseLib::WordHexReader;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;
using TestSupport::AllocationFailure;
using TestSupport::ByteFile;
using TestSupport::StandardOutputCapture;
using TestSupport::StringStream;
using TestSupport::TemporaryDirectory;
using TestSupport::WriteWholeFile;

namespace
{

// What became of a conversion. Records are compared as text: a letter, and what follows in hex.
struct Conversion
{
    bool mAnswer = false;
    std::string mRecords;
    std::string mOutput;

    bool operator==( const Conversion& aOther ) const
    {
        return mAnswer == aOther.mAnswer && mRecords == aOther.mRecords &&
               mOutput == aOther.mOutput;
    }
};

void PrintTo( const Conversion& aConversion, std::ostream* aStream )
{
    *aStream << ( aConversion.mAnswer ? "true" : "false" ) << ", records \"" << aConversion.mRecords
             << "\", output \"" << aConversion.mOutput << "\"";
}

std::string ToHex( const std::string& aBytes )
{
    std::string lText;
    for ( const char lByte : aBytes )
    {
        char lPair[3];
        std::snprintf( lPair, sizeof( lPair ), "%02X", static_cast<unsigned char>( lByte ) );
        lText += lPair;
    }
    return lText;
}

// "O1000 D0102 " for an address record and a data record of two bytes.
std::string Describe( const std::string& aRecords )
{
    std::string lText;
    std::size_t lAt = 0;
    while ( lAt + 2 <= aRecords.size() )
    {
        const auto lLength = static_cast<unsigned char>( aRecords[lAt + 1] );
        lText += aRecords[lAt];
        lText += ToHex( aRecords.substr( lAt + 2, lLength ) ) + " ";
        lAt += 2U + lLength;
    }
    EXPECT_EQ( lAt, aRecords.size() ) << "the records end within one";
    return lText;
}

using Reader = std::function<bool( DfwPayloadWriter& )>;

// None of the messages of a reader goes to the log.
Conversion Convert( const Reader& aReader, std::size_t aCapacity = std::string::npos )
{
    const QmUtilsLib::Scripted::RecordingLogSink lSink;
    std::string lRecords;
    Conversion lConversion;
    {
        DfwPayloadWriter lWriter( std::make_unique<StringStream>( lRecords, aCapacity ) );
        StandardOutputCapture lCapture;
        lConversion.mAnswer = aReader( lWriter );
        lConversion.mOutput = lCapture.Take();
    }
    EXPECT_THAT( lSink.GetEntries(), IsEmpty() );
    lConversion.mRecords = aCapacity == std::string::npos ? Describe( lRecords ) : lRecords;
    return lConversion;
}

bool ConvertSRecordsInto( DfwPayloadWriter& aWriter, std::FILE* aFile )
{
    DfwPayloadSink lSink( aWriter );
    return SRecordReader( lSink, ReaderMessages::GetPrinter() ).Convert( aFile, "image.srec" );
}

Conversion ConvertSRecords( const std::string& aText, std::size_t aFailsAt = ByteFile::NEVER )
{
    const ByteFile lFile( aText, aFailsAt );
    return Convert( [&]( DfwPayloadWriter& aWriter )
                    { return ConvertSRecordsInto( aWriter, lFile.Get() ); } );
}

Conversion ConvertBinary( const std::string& aBytes, std::uint32_t aAddress,
                          std::size_t aFailsAt = ByteFile::NEVER )
{
    const ByteFile lFile( aBytes, aFailsAt );
    return Convert(
        [&]( DfwPayloadWriter& aWriter )
        {
            DfwPayloadSink lSink( aWriter );
            BinaryReader lReader( lSink, ReaderMessages::GetPrinter() );
            return lReader.Convert( lFile.Get(), "image.bin", aAddress );
        } );
}

// Assertions that the conversion of a word-hex file raised.
std::vector<std::string> gAssertions;

void RecordAssertion( const char* aExpression, const char*, int )
{
    gAssertions.emplace_back( aExpression );
}

Conversion ConvertWordHex( const std::string& aText, std::size_t aFailsAt = ByteFile::NEVER )
{
    gAssertions.clear();
    const auto lPrevious = QmUtilsLib::SetAssertionHandler( RecordAssertion );
    const ByteFile lFile( aText, aFailsAt );
    const Conversion lConversion = Convert(
        [&]( DfwPayloadWriter& aWriter )
        {
            DfwPayloadSink lSink( aWriter );
            return WordHexReader( lSink, ReaderMessages::GetPrinter() ).Convert( lFile.Get() );
        } );
    QmUtilsLib::SetAssertionHandler( lPrevious );
    return lConversion;
}

// A 32-bit word in the order of this machine, in hex.
std::string InMemory( std::uint32_t aWord )
{
    const std::uint16_t lProbe = 1;
    const bool lIsLittleEndian = *reinterpret_cast<const unsigned char*>( &lProbe ) == 1;
    std::string lBytes;
    for ( int lIndex = 0; lIndex < 4; ++lIndex )
    {
        const int lShift = 8 * ( lIsLittleEndian ? lIndex : 3 - lIndex );
        lBytes += static_cast<char>( aWord >> lShift & 0xFF );
    }
    return ToHex( lBytes );
}

std::string Repeat( const std::string& aText, std::size_t aCount )
{
    std::string lAll;
    for ( std::size_t lIndex = 0; lIndex < aCount; ++lIndex )
    {
        lAll += aText;
    }
    return lAll;
}

// An S3 record of data given in hex, with a checksum that the reader ignores.
std::string S3( const std::string& aAddress, const std::string& aData )
{
    const auto lCount = static_cast<char>( aData.size() / 2 + 5 );
    return "S3" + ToHex( std::string( 1, lCount ) ) + aAddress + aData + "00";
}

std::string Warning( char aType )
{
    return std::string( "Warning: unknown record type: S" ) + aType;
}

constexpr const char* NO_LINE = "Error reading new line from input file\n";
constexpr const char* NO_RECORD = "Failed reading record\n";

std::size_t CountDescriptors()
{
    const std::filesystem::directory_iterator lDescriptors( "/proc/self/fd" );
    return static_cast<std::size_t>( std::distance( begin( lDescriptors ), end( lDescriptors ) ) );
}

// How many more descriptors are open after a reader has returned.
std::size_t CountLeftOpen( const Reader& aReader, bool aAnswer )
{
    const auto lPrevious = QmUtilsLib::SetAssertionHandler( RecordAssertion );
    const std::size_t lBefore = CountDescriptors();
    EXPECT_EQ( Convert( aReader ).mAnswer, aAnswer );
    const std::size_t lAfter = CountDescriptors();
    QmUtilsLib::SetAssertionHandler( lPrevious );
    return lAfter - lBefore;
}

} // namespace

// All readers

class DfwFileTest : public testing::Test
{
protected:
    // Every reader on one file.
    static std::vector<Conversion> ConvertByAll( const std::string& aPath )
    {
        return {
            Convert( [&]( DfwPayloadWriter& aWriter )
                     { return aWriter.AddSRecordFile( aPath.c_str() ); } ),
            Convert( [&]( DfwPayloadWriter& aWriter )
                     { return aWriter.AddBinaryFile( aPath.c_str(), 0x1000 ); } ),
            Convert( [&]( DfwPayloadWriter& aWriter )
                     { return aWriter.AddWordHexFile( aPath.c_str() ); } ),
        };
    }

    std::string Write( const std::string& aContent ) const
    {
        WriteWholeFile( mPath, aContent );
        return mPath;
    }

    const TemporaryDirectory mDirectory;
    const std::string mPath = mDirectory.GetPath( "image" );
};

TEST_F( DfwFileTest, AFileThatCannotBeOpenedIsPrintedWithoutLineEnd )
{
    const Conversion lExpected{ false, "",
                                "Failed to open input file " + mPath + ". error code 2" };
    EXPECT_THAT( ConvertByAll( mPath ), ElementsAre( lExpected, lExpected, lExpected ) );
}

TEST_F( DfwFileTest, AFileWithoutPermissionIsPrintedWithItsErrorNumber )
{
    Write( "S0030000FC" );
    std::filesystem::permissions( mPath, std::filesystem::perms::none );
    // Root may read everything, so it becomes another user for a while.
    const uid_t lUser = geteuid();
    if ( lUser == 0 && seteuid( 65534 ) != 0 )
    {
        GTEST_SKIP() << "root cannot become another user here";
    }
    const std::vector<Conversion> lConversions = ConvertByAll( mPath );
    ASSERT_EQ( seteuid( lUser ), 0 );
    const Conversion lExpected{ false, "",
                                "Failed to open input file " + mPath + ". error code 13" };
    EXPECT_THAT( lConversions, ElementsAre( lExpected, lExpected, lExpected ) );
}

TEST_F( DfwFileTest, AFileNameThatIsTooLongIsPrintedWithItsErrorNumber )
{
    const std::string lName( 5000, 'x' );
    const Conversion lExpected{ false, "",
                                "Failed to open input file " + lName + ". error code 36" };
    EXPECT_THAT( ConvertByAll( lName ), ElementsAre( lExpected, lExpected, lExpected ) );
}

TEST_F( DfwFileTest, AFileNameIsNotAFormat )
{
    const std::string lName = mDirectory.GetPath( "%s%n%x" );
    const Conversion lExpected{ false, "",
                                "Failed to open input file " + lName + ". error code 2" };
    EXPECT_THAT( ConvertByAll( lName ), ElementsAre( lExpected, lExpected, lExpected ) );
}

TEST_F( DfwFileTest, ADirectoryOpensAndCannotBeRead )
{
    const std::string lPath = mDirectory.GetPath();
    EXPECT_THAT( ConvertByAll( lPath ),
                 ElementsAre( Conversion{ false, "", "Error reading input file\n" },
                              Conversion{ false, "O00001000 ", "Error reading from file " + lPath },
                              Conversion{ true, "", "" } ) );
}

TEST_F( DfwFileTest, AnEmptyFile )
{
    EXPECT_THAT( ConvertByAll( Write( "" ) ),
                 ElementsAre( Conversion{ false, "", NO_LINE },
                              Conversion{ true, "O00001000 ", "" }, Conversion{ true, "", "" } ) );
}

TEST_F( DfwFileTest, AGoodFile )
{
    const Conversion lSRecords =
        Convert( [this]( DfwPayloadWriter& aWriter )
                 { return aWriter.AddSRecordFile( Write( S3( "00001000", "0102" ) ).c_str() ); } );
    EXPECT_EQ( lSRecords, ( Conversion{ true, "O00001000 D0102 ", "" } ) );

    const Conversion lBinary =
        Convert( [this]( DfwPayloadWriter& aWriter )
                 { return aWriter.AddBinaryFile( Write( "\r\n\x1A" ).c_str(), 0x20000 ); } );
    EXPECT_EQ( lBinary, ( Conversion{ true, "O00020000 D0D0A1A ", "" } ) );

    const Conversion lWordHex =
        Convert( [this]( DfwPayloadWriter& aWriter )
                 { return aWriter.AddWordHexFile( Write( "@100\n1234\n5678\n" ).c_str() ); } );
    EXPECT_EQ( lWordHex, ( Conversion{ true, "O00000200 D" + InMemory( 0x1234 ) + " ", "" } ) );
}

TEST_F( DfwFileTest, TheSRecordReaderNeverClosesItsFile )
{
    const auto lLeftOpen = [this]( const std::string& aContent, bool aAnswer )
    {
        Write( aContent );
        return CountLeftOpen( [this]( DfwPayloadWriter& aWriter )
                              { return aWriter.AddSRecordFile( mPath.c_str() ); },
                              aAnswer );
    };
    EXPECT_EQ( lLeftOpen( S3( "00001000", "01" ), true ), 1U );
    EXPECT_EQ( lLeftOpen( std::string( "S0\n\0", 4 ), true ), 1U );
    EXPECT_EQ( lLeftOpen( "", false ), 1U );
    EXPECT_EQ( lLeftOpen( "S3", false ), 1U );
    EXPECT_EQ( lLeftOpen( "S30600001000", false ), 1U );
    const std::string lDirectory = mDirectory.GetPath();
    EXPECT_EQ( CountLeftOpen( [&]( DfwPayloadWriter& aWriter )
                              { return aWriter.AddSRecordFile( lDirectory.c_str() ); },
                              false ),
               1U );
}

TEST_F( DfwFileTest, TheBinaryReaderClosesItsFileUnlessItFails )
{
    const std::string lDirectory = mDirectory.GetPath();
    Write( "abc" );
    EXPECT_EQ( CountLeftOpen( [this]( DfwPayloadWriter& aWriter )
                              { return aWriter.AddBinaryFile( mPath.c_str(), 0 ); },
                              true ),
               0U );
    EXPECT_EQ( CountLeftOpen( [&]( DfwPayloadWriter& aWriter )
                              { return aWriter.AddBinaryFile( lDirectory.c_str(), 0 ); },
                              false ),
               1U );
}

TEST_F( DfwFileTest, TheWordHexReaderClosesItsFileUnlessItFails )
{
    const auto lLeftOpen = [this]( const std::string& aContent, bool aAnswer )
    {
        Write( aContent );
        return CountLeftOpen( [this]( DfwPayloadWriter& aWriter )
                              { return aWriter.AddWordHexFile( mPath.c_str() ); },
                              aAnswer );
    };
    EXPECT_EQ( lLeftOpen( "1234\n", true ), 0U );
    EXPECT_EQ( lLeftOpen( "@\n", false ), 1U );
    EXPECT_EQ( lLeftOpen( "123\n", false ), 1U );
    EXPECT_EQ( lLeftOpen( "\n", false ), 1U );
}

TEST_F( DfwFileTest, AFullTargetFailsNoReader )
{
    const Conversion lSRecords =
        Convert( [this]( DfwPayloadWriter& aWriter )
                 { return aWriter.AddSRecordFile( Write( S3( "00001000", "0102" ) ).c_str() ); },
                 8 );
    EXPECT_EQ( lSRecords, ( Conversion{ true, std::string( "O\x04\0\0\x10\0D\x02", 8 ), "" } ) );

    const Conversion lBinary =
        Convert( [this]( DfwPayloadWriter& aWriter )
                 { return aWriter.AddBinaryFile( Write( "abc" ).c_str(), 0 ); },
                 7 );
    EXPECT_EQ( lBinary, ( Conversion{ true, std::string( "O\x04\0\0\0\0D", 7 ), "" } ) );

    const Conversion lWordHex =
        Convert( [this]( DfwPayloadWriter& aWriter )
                 { return aWriter.AddWordHexFile( Write( "@0\n12\n" ).c_str() ); },
                 6 );
    EXPECT_EQ( lWordHex, ( Conversion{ true, std::string( "O\x04\0\0\0\0", 6 ), "" } ) );
}

// S-records

TEST( SRecordReader, AHeaderAndAnEndGiveNothingButAWarning )
{
    EXPECT_EQ( ConvertSRecords( "S0030000FC\nS70500000000FA" ),
               ( Conversion{ true, "", "Warning: unknown record type: S7" } ) );
}

TEST( SRecordReader, TheLastLineIsProcessedAgainAfterAFinalLineFeed )
{
    EXPECT_EQ( ConvertSRecords( "S0030000FC\nS70500000000FA\n" ),
               ( Conversion{ true, "", Warning( '7' ) + Warning( '7' ) } ) );
    EXPECT_EQ( ConvertSRecords( S3( "00001000", "0102" ) + "\n" ),
               ( Conversion{ true, "O00001000 D0102 O00001000 D0102 ", "" } ) );
}

TEST( SRecordReader, AnEmptyLineRepeatsTheLineBeforeIt )
{
    EXPECT_EQ( ConvertSRecords( S3( "00001000", "01" ) + "\n\n\n" + S3( "00001001", "02" ) ),
               ( Conversion{ true, "O00001000 D01 O00001000 D01 O00001000 D01 D02 ", "" } ) );
}

TEST( SRecordReader, AFileOfOneLineFeedHasNoLine )
{
    EXPECT_EQ( ConvertSRecords( "\n" ), ( Conversion{ false, "", NO_LINE } ) );
}

TEST( SRecordReader, ALineThatDoesNotBeginWithSFails )
{
    EXPECT_EQ( ConvertSRecords( "s3060000100001E8" ), ( Conversion{ false, "", NO_LINE } ) );
    EXPECT_EQ( ConvertSRecords( " S3060000100001E8" ), ( Conversion{ false, "", NO_LINE } ) );
    EXPECT_EQ( ConvertSRecords( ":10010000" ), ( Conversion{ false, "", NO_LINE } ) );
    EXPECT_EQ( ConvertSRecords( "\xFF" ), ( Conversion{ false, "", NO_LINE } ) );
    EXPECT_EQ( ConvertSRecords( "S" ), ( Conversion{ false, "", NO_LINE } ) );
}

TEST( SRecordReader, AByteOf255IsNotTheEndOfTheFile )
{
    EXPECT_EQ( ConvertSRecords( "S0\xFF\n" + S3( "00001000", "01" ) ),
               ( Conversion{ true, "O00001000 D01 ", "" } ) );
}

TEST( SRecordReader, RecordsWrittenBeforeAFailureStay )
{
    EXPECT_EQ( ConvertSRecords( S3( "00001000", "01" ) + "\nX" ),
               ( Conversion{ false, "O00001000 D01 ", NO_LINE } ) );
}

TEST( SRecordReader, EveryOtherTypeIsWarnedOfAndSkipped )
{
    EXPECT_EQ(
        ConvertSRecords( "S1\nS2\nS4\nS5\nS6\nS7\nS8\nS9\nSS\nS \nS0\n" + S3( "00001000", "01" ) ),
        ( Conversion{ true, "O00001000 D01 ",
                      Warning( '1' ) + Warning( '2' ) + Warning( '4' ) + Warning( '5' ) +
                          Warning( '6' ) + Warning( '7' ) + Warning( '8' ) + Warning( '9' ) +
                          Warning( 'S' ) + Warning( ' ' ) } ) );
}

TEST( SRecordReader, AnAddressRecordStandsWhereAddressesDoNotFollowOn )
{
    const std::string lFirst = "000102030405060708090A0B0C0D0E0F";
    const std::string lSecond = "101112131415161718191A1B1C1D1E1F";
    EXPECT_EQ( ConvertSRecords( S3( "00001000", lFirst ) + "\n" + S3( "00001010", lSecond ) ),
               ( Conversion{ true, "O00001000 D" + lFirst + " D" + lSecond + " ", "" } ) );
    EXPECT_EQ(
        ConvertSRecords( S3( "00001000", lFirst ) + "\n" + S3( "00001010", lSecond ) + "\n" +
                         S3( "00002000", "FF" ) ),
        ( Conversion{ true, "O00001000 D" + lFirst + " D" + lSecond + " O00002000 DFF ", "" } ) );
}

TEST( SRecordReader, AGapAnOverlapAndAStepBackEachTakeAnAddressRecord )
{
    EXPECT_EQ(
        ConvertSRecords( S3( "00001000", "0102" ) + "\n" + S3( "00001003", "03" ) + "\n" +
                         S3( "00001003", "04" ) + "\n" + S3( "00000FFF", "05" ) ),
        ( Conversion{ true, "O00001000 D0102 O00001003 D03 O00001003 D04 O00000FFF D05 ", "" } ) );
}

TEST( SRecordReader, AFirstRecordAtTheLastAddressHasNoAddressRecord )
{
    EXPECT_EQ( ConvertSRecords( S3( "FFFFFFFF", "01" ) ), ( Conversion{ true, "D01 ", "" } ) );
    EXPECT_EQ( ConvertSRecords( S3( "FFFFFFFE", "01" ) ),
               ( Conversion{ true, "OFFFFFFFE D01 ", "" } ) );
}

TEST( SRecordReader, AddressesFollowOnAcrossTheLastOne )
{
    EXPECT_EQ( ConvertSRecords( S3( "FFFFFFFE", "0102" ) + "\n" + S3( "00000000", "03" ) ),
               ( Conversion{ true, "OFFFFFFFE D0102 D03 ", "" } ) );
}

TEST( SRecordReader, ARecordWithoutDataSetsTheAddressAndNothingElse )
{
    EXPECT_EQ( ConvertSRecords( "S30500001000EA\n" + S3( "00001000", "01" ) ),
               ( Conversion{ true, "O00001000 D01 ", "" } ) );
    EXPECT_EQ(
        ConvertSRecords( S3( "00001000", "01" ) + "\nS30500001001E9\n" + S3( "00001001", "02" ) ),
        ( Conversion{ true, "O00001000 D01 D02 ", "" } ) );
}

TEST( SRecordReader, AByteCountBelowFiveMovesTheExpectedAddressBack )
{
    EXPECT_EQ( ConvertSRecords( "S30300001000\n" + S3( "00000FFE", "01" ) + "\n" +
                                S3( "00001000", "02" ) ),
               ( Conversion{ true, "O00001000 D01 O00001000 D02 ", "" } ) );
    EXPECT_EQ( ConvertSRecords( "S30000000002\n" + S3( "FFFFFFFD", "01" ) ),
               ( Conversion{ true, "O00000002 D01 ", "" } ) );
}

TEST( SRecordReader, RecordsAreNeverMerged )
{
    EXPECT_EQ( ConvertSRecords( S3( "00001000", "01" ) + "\n" + S3( "00001001", "02" ) + "\n" +
                                S3( "00001002", "03" ) ),
               ( Conversion{ true, "O00001000 D01 D02 D03 ", "" } ) );
}

TEST( SRecordReader, ARecordHoldsUpTo250Bytes )
{
    const std::string lData = Repeat( "5A", 250 );
    const std::string lLine = S3( "00001000", lData );
    ASSERT_EQ( lLine.size(), 514U );
    ASSERT_THAT( lLine, StartsWith( "S3FF" ) );
    const Conversion lExpected{ true, "O00001000 D" + lData + " ", "" };
    EXPECT_EQ( ConvertSRecords( lLine ), lExpected );
    EXPECT_EQ( ConvertSRecords( lLine + "\nS0" ), lExpected );
    EXPECT_EQ( ConvertSRecords( lLine + "\r\nS0" ), lExpected );
}

TEST( SRecordReader, ChecksumsAreNotLookedAt )
{
    const Conversion lExpected{ true, "O00001000 D01 ", "" };
    EXPECT_EQ( ConvertSRecords( "S3060000100001E8" ), lExpected );
    EXPECT_EQ( ConvertSRecords( "S306000010000100" ), lExpected );
    EXPECT_EQ( ConvertSRecords( "S3060000100001zz\nS0" ), lExpected );
    EXPECT_EQ( ConvertSRecords( "S3060000100001" ), lExpected );
}

TEST( SRecordReader, CarriageReturnsAtLineEndsAreIgnored )
{
    EXPECT_EQ( ConvertSRecords( "S0030000FC\r\n" + S3( "00001000", "01" ) + "\r\n" +
                                S3( "00001001", "02" ) + "\r\nS70500001000EA" ),
               ( Conversion{ true, "O00001000 D01 D02 ", Warning( '7' ) } ) );
}

TEST( SRecordReader, ABlankLineThatEndsInCrLfFails )
{
    EXPECT_EQ( ConvertSRecords( S3( "00001000", "01" ) + "\r\n\r\n" + S3( "00001001", "02" ) ),
               ( Conversion{ false, "O00001000 D01 ", NO_LINE } ) );
}

TEST( SRecordReader, AZeroByteEndsTheReadingAndDropsItsLine )
{
    EXPECT_EQ( ConvertSRecords( S3( "00001000", "01" ) + "\n" + S3( "00001001", "02" ) +
                                std::string( "\0\n", 2 ) + S3( "00001002", "03" ) ),
               ( Conversion{ true, "O00001000 D01 ", "" } ) );
    EXPECT_EQ( ConvertSRecords( std::string( 1, '\0' ) ), ( Conversion{ true, "", "" } ) );
    EXPECT_EQ( ConvertSRecords( "S306000010" + std::string( 1, '\0' ) + "0001E8\n" ),
               ( Conversion{ true, "", "" } ) );
}

TEST( SRecordReader, ARecordWithoutCountOrAddressFails )
{
    for ( const char* const lLine : { "S3", "S30", "S306", "S3zz", "S306zz", "S3-", "S306-" } )
    {
        EXPECT_EQ( ConvertSRecords( lLine ), ( Conversion{ false, "", NO_RECORD } ) ) << lLine;
    }
}

TEST( SRecordReader, AnInvalidDataByteFailsAndNothingOfItsLineIsWritten )
{
    EXPECT_EQ( ConvertSRecords( "S30600001000" ),
               ( Conversion{ false, "", "failed reading data byte 0" } ) );
    EXPECT_EQ( ConvertSRecords( "S30A00001000010203zz05EA" ),
               ( Conversion{ false, "", "failed reading data byte 3" } ) );
    EXPECT_EQ( ConvertSRecords( S3( "00001000", "01" ) + "\nS30A000020000102030zz5EA\n" ),
               ( Conversion{ false, "O00001000 D01 ", "failed reading data byte 4" } ) );
    EXPECT_EQ( ConvertSRecords( "S3FF00001000" + Repeat( "5A", 249 ) ),
               ( Conversion{ false, "", "failed reading data byte 249" } ) );
}

TEST( SRecordReader, TheRestOfAShortLineIsReadFromALongerOneBefore )
{
    // The count says four bytes, the line has one; the rest comes after it in the line buffer.
    EXPECT_EQ( ConvertSRecords( S3( "00001000", "0A0B0C0D0E" ) + "\nS309000020001F" ),
               ( Conversion{ true, "O00001000 D0A0B0C0D0E O00002000 D1F0B0C0D ", "" } ) );
}

TEST( SRecordReader, TheRestOfALongLineStaysBehindShorterLines )
{
    // Lines of all kinds in between, each shorter than the one before it.
    EXPECT_EQ( ConvertSRecords( S3( "00001000", "A1A2A3A4A5A6A7A8" ) + "\n" +
                                S3( "00001008", "B1B2B3B4" ) + "\n" + S3( "0000100C", "C1" ) +
                                "\nS0\nS30D0000100D" ),
               ( Conversion{ true,
                             "O00001000 DA1A2A3A4A5A6A7A8 DB1B2B3B4 DC1 "
                             "DC100B3B400A6A7A8 ",
                             "" } ) );
}

TEST( SRecordReader, ALineOf514CharactersLeavesItsLastOnesToo )
{
    const std::string lData = Repeat( "5A", 249 );
    EXPECT_EQ(
        ConvertSRecords( S3( "00001000", lData + "5B" ) + "\nS3FF00002000" ),
        ( Conversion{ true, "O00001000 D" + lData + "5B O00002000 D" + lData + "5B ", "" } ) );
    // Two spaces in the place of the last byte: it is read from the checksum behind them.
    EXPECT_EQ(
        ConvertSRecords( "S3FF00001000" + lData + "5B7C\nS3FF00002000" + lData + "  " ),
        ( Conversion{ true, "O00001000 D" + lData + "5B O00002000 D" + lData + "7C ", "" } ) );
}

TEST( SRecordReader, NumbersAreReadAsScanfDoes )
{
    // Spaces and single digits. Data bytes are still at 12, 14, ...: a space at 12 is skipped, so
    // the first is "0A" at 13 and the second "A0" at 14.
    EXPECT_EQ( ConvertSRecords( "S3 7 1000    0A0B00" ),
               ( Conversion{ true, "O00001000 D0AA0 ", "" } ) );
    // Signs and a prefix.
    EXPECT_EQ( ConvertSRecords( "S3+6000010000A" ), ( Conversion{ true, "O00001000 D0A ", "" } ) );
    EXPECT_EQ( ConvertSRecords( "S3060x1000000B" ), ( Conversion{ true, "O00100000 D0B ", "" } ) );
    EXPECT_EQ( ConvertSRecords( "S30700001000-1+2" ),
               ( Conversion{ true, "O00001000 DFF02 ", "" } ) );
    EXPECT_EQ( ConvertSRecords( "S3-100001000" ), ( Conversion{ true, "O00001000 ", "" } ) );
    EXPECT_EQ( ConvertSRecords( "S306000010000aE8\nS306000010010Bff" ),
               ( Conversion{ true, "O00001000 D0A D0B ", "" } ) );
}

TEST( SRecordReader, ALineMayBeLongerThanItsCountSays )
{
    EXPECT_EQ( ConvertSRecords( S3( "00001000", "01" ) + "0203 comment\n" + S3( "00001001", "02" ) +
                                " \nS0" ),
               ( Conversion{ true, "O00001000 D01 D02 ", "" } ) );
}

TEST( SRecordReader, AReadErrorEndsTheReading )
{
    const std::string lText = S3( "00001000", "01" ) + "\n" + S3( "00001001", "02" ) + "\n";
    // Within the second line, and behind it: what was complete has been converted.
    EXPECT_EQ( ConvertSRecords( lText, 20 ),
               ( Conversion{ false, "O00001000 D01 ", "Error reading input file\n" } ) );
    EXPECT_EQ( ConvertSRecords( lText, lText.size() ),
               ( Conversion{ false, "O00001000 D01 D02 ", "Error reading input file\n" } ) );
    EXPECT_EQ( ConvertSRecords( lText, 0 ),
               ( Conversion{ false, "", "Error reading input file\n" } ) );
}

TEST( SRecordReader, AnErrorBehindAZeroByteIsNotSeen )
{
    EXPECT_EQ( ConvertSRecords( std::string( "S0\n\0S0", 6 ), 4 ), ( Conversion{ true, "", "" } ) );
}

TEST( SRecordReader, AnErrorIndicatorThatWasSetBeforeFailsTheFirstLine )
{
    const std::string lText = S3( "00001000", "01" ) + "\n";
    ByteFile lFile( lText );
    lFile.SetError();
    EXPECT_EQ( Convert( [&]( DfwPayloadWriter& aWriter )
                        { return ConvertSRecordsInto( aWriter, lFile.Get() ); } ),
               ( Conversion{ false, "", "Error reading input file\n" } ) );
}

TEST( SRecordReader, AnErrorIndicatorThatWasSetBeforeFailsAtAZeroByte )
{
    const std::string lText( "S0\0", 3 );
    ByteFile lFile( lText );
    lFile.SetError();
    EXPECT_EQ( Convert( [&]( DfwPayloadWriter& aWriter )
                        { return ConvertSRecordsInto( aWriter, lFile.Get() ); } ),
               ( Conversion{ false, "", "Error reading from file image.srec" } ) );
}

TEST( SRecordReader, OverlongLinesAreCutOff )
{
    // Only the characters that the record needs are read; the rest of a line of any length is
    // ignored.
    const std::string lTail( 100000, '7' );
    EXPECT_EQ( ConvertSRecords( S3( "00001000", "01" ) + lTail + "\n" + S3( "00001001", "02" ) ),
               ( Conversion{ true, "O00001000 D01 D02 ", "" } ) );
    EXPECT_EQ( ConvertSRecords( lTail ), ( Conversion{ false, "", NO_LINE } ) );
    EXPECT_EQ( ConvertSRecords( "S9" + lTail + "\nS0" ),
               ( Conversion{ true, "", Warning( '9' ) } ) );
}

TEST( SRecordReader, ABlockIsReadAheadBeforeItsFirstLineIsConverted )
{
    // Gives a line per read, like a pipe that is written slowly.
    struct Pipe
    {
        static ssize_t Read( void* aCookie, char* aBuffer, std::size_t )
        {
            auto* const lThis = static_cast<Pipe*>( aCookie );
            lThis->mRecordsAtEnd = lThis->mRecords.size();
            const std::string lLine = S3( "00001000", "01" ) + "\n";
            return lThis->mLines-- > 0 ? static_cast<ssize_t>( lLine.copy( aBuffer, lLine.size() ) )
                                       : 0;
        }

        std::string mRecords;
        std::size_t mRecordsAtEnd = 0;
        int mLines = 3;
    };
    Pipe lPipe;
    std::FILE* const lFile = fopencookie( &lPipe, "r", { &Pipe::Read, nullptr, nullptr, nullptr } );
    ASSERT_NE( lFile, nullptr );
    DfwPayloadWriter lWriter( std::make_unique<StringStream>( lPipe.mRecords ) );
    EXPECT_TRUE( ConvertSRecordsInto( lWriter, lFile ) );
    std::fclose( lFile );
    EXPECT_EQ( lPipe.mRecordsAtEnd, 0U );
    EXPECT_EQ( lPipe.mRecords.size(), 4U * ( 6 + 3 ) ); // the last line twice
}

TEST( SRecordReader, WithoutMemoryNothingIsReadAndTheAnswerIsFalse )
{
    const std::string lText = "S30700001000010203";
    const ByteFile lFile( lText );
    unsigned char lRecords[64] = {};
    DfwPayloadWriter lWriter(
        std::make_unique<HtBaseLib::IoStreamRaw>( lRecords, sizeof( lRecords ) ) );
    unsigned long long lNumber = 0;
    for ( bool lHasFailed = true; lHasFailed; )
    {
        StandardOutputCapture lCapture;
        bool lAnswer = false;
        {
            const AllocationFailure lFailure( ++lNumber );
            lAnswer = ConvertSRecordsInto( lWriter, lFile.Get() );
            lHasFailed = lFailure.HasHappened();
        }
        EXPECT_EQ( lCapture.Take(), "" );
        EXPECT_NE( lAnswer, lHasFailed );
        EXPECT_EQ( lWriter.GetSize(), lAnswer ? 10U : 0U ); // address and data
    }
    EXPECT_GT( lNumber, 1U );
}

// Binary files

TEST( BinaryReader, AFileOfBytesIsAnAddressAndFullRecords )
{
    std::string lBytes( 600, '\0' );
    for ( std::size_t lIndex = 0; lIndex < lBytes.size(); ++lIndex )
    {
        lBytes[lIndex] = static_cast<char>( lIndex * 3 + lIndex / 256 );
    }
    EXPECT_EQ( ConvertBinary( lBytes, 0x20000 ),
               ( Conversion{ true,
                             "O00020000 D" + ToHex( lBytes.substr( 0, 254 ) ) + " D" +
                                 ToHex( lBytes.substr( 254, 254 ) ) + " D" +
                                 ToHex( lBytes.substr( 508 ) ) + " ",
                             "" } ) );
    EXPECT_EQ( lBytes.substr( 508 ).size(), 92U );
}

TEST( BinaryReader, AnEmptyFileIsJustAnAddress )
{
    EXPECT_EQ( ConvertBinary( "", 0xFFFFFFFF ), ( Conversion{ true, "OFFFFFFFF ", "" } ) );
}

TEST( BinaryReader, FullRecordsHaveNoEmptyOneBehind )
{
    const std::string lRecord = "D" + Repeat( "61", 254 ) + " ";
    EXPECT_EQ( ConvertBinary( std::string( 253, 'a' ), 0 ),
               ( Conversion{ true, "O00000000 D" + Repeat( "61", 253 ) + " ", "" } ) );
    EXPECT_EQ( ConvertBinary( std::string( 254, 'a' ), 0 ),
               ( Conversion{ true, "O00000000 " + lRecord, "" } ) );
    EXPECT_EQ( ConvertBinary( std::string( 255, 'a' ), 0 ),
               ( Conversion{ true, "O00000000 " + lRecord + "D61 ", "" } ) );
    EXPECT_EQ( ConvertBinary( std::string( 508, 'a' ), 0 ),
               ( Conversion{ true, "O00000000 " + lRecord + lRecord, "" } ) );
}

TEST( BinaryReader, AReadErrorFailsAndDropsTheRecordItIsIn )
{
    EXPECT_EQ( ConvertBinary( std::string( 400, 'a' ), 0, 300 ),
               ( Conversion{ false, "O00000000 D" + Repeat( "61", 254 ) + " ",
                             "Error reading from file image.bin" } ) );
    EXPECT_EQ( ConvertBinary( std::string( 400, 'a' ), 0, 0 ),
               ( Conversion{ false, "O00000000 ", "Error reading from file image.bin" } ) );
}

// Word-hex files

TEST( WordHexReader, ValuesLieAsWholeWordsInTheirSlots )
{
    // Two pending bytes after the first line, so the second goes to slot 2: it is not among the
    // four bytes of the record.
    EXPECT_EQ( ConvertWordHex( "1234\n5678\n" ),
               ( Conversion{ true, "D" + InMemory( 0x1234 ) + " ", "" } ) );
    if ( InMemory( 0x1234 ) == "34120000" )
    {
        EXPECT_EQ( ConvertWordHex( "1234\n5678\n" ).mRecords, "D34120000 " );
    }
}

TEST( WordHexReader, TwoDigitsCountOneByte )
{
    EXPECT_EQ( ConvertWordHex( "12\n34\n" ),
               ( Conversion{ true, "D" + InMemory( 0x12 ).substr( 0, 4 ) + " ", "" } ) );
    EXPECT_EQ( ConvertWordHex( "12\n34\n56\n78\n9A\n" ),
               ( Conversion{ true, "D" + InMemory( 0x12 ) + InMemory( 0x34 ).substr( 0, 2 ) + " ",
                             "" } ) );
}

TEST( WordHexReader, AddressesCountWordsOfTwoBytes )
{
    EXPECT_EQ( ConvertWordHex( "@1000\n@ 20\n@0x30\n@80000001\n@FFFFFFFF\n" ),
               ( Conversion{ true, "O00002000 O00000040 O00000060 O00000002 OFFFFFFFE ", "" } ) );
}

TEST( WordHexReader, AnAddressFlushesWhatIsPending )
{
    EXPECT_EQ( ConvertWordHex( "@0\n1234\n@8\n5678\n" ),
               ( Conversion{ true,
                             "O00000000 D" + InMemory( 0x1234 ).substr( 0, 4 ) + " O00000010 D" +
                                 InMemory( 0x5678 ).substr( 0, 4 ) + " ",
                             "" } ) );
}

TEST( WordHexReader, AnAddressWithoutNumberFailsAndLeavesThePendingBytes )
{
    EXPECT_EQ( ConvertWordHex( "@1\n12\n@\n" ),
               ( Conversion{ false, "O00000002 ", "Failed to read address." } ) );
    EXPECT_EQ( ConvertWordHex( "@zz\n" ), ( Conversion{ false, "", "Failed to read address." } ) );
    EXPECT_THAT( gAssertions, IsEmpty() );
}

TEST( WordHexReader, OneSlashMakesAComment )
{
    EXPECT_EQ( ConvertWordHex( "// @12\n/\n/1234\n12\n/" ),
               ( Conversion{ true, "D" + InMemory( 0x12 ).substr( 0, 2 ) + " ", "" } ) );
}

TEST( WordHexReader, OtherLengthsFailAndArePrinted )
{
    const std::pair<std::string, int> lLines[] = {
        { "1\n", 2 },
        { "123\n", 4 },
        { "12345\n", 6 },
        { " 1234\n", 6 },
        { "1234\r\n", 6 },
        { "12\r\n", 4 }, // CR LF
        { "12", 2 },
        { "1234", 4 },                     // no line feed at the end
        { std::string( "12\0\n", 4 ), 2 }, // the text ends at the zero byte
    };
    for ( const auto& [lLine, lLength] : lLines )
    {
        EXPECT_EQ(
            ConvertWordHex( lLine ),
            ( Conversion{ false, "", "unexpected data " + std::to_string( lLength ) + "\n" } ) )
            << lLine;
#ifndef NDEBUG
        EXPECT_EQ( gAssertions.size(), 1U );
#endif
    }
}

TEST( WordHexReader, WhatIsNotANumberFailsWhateverItsLength )
{
    for ( const std::string& lLine :
          { std::string( "\n" ), std::string( "zzzz\n" ), std::string( "zz\n" ),
            std::string( "zzz\n" ), std::string( " /12\n" ), std::string( "\0\n", 2 ),
            std::string( "\r\n" ) } )
    {
        EXPECT_EQ( ConvertWordHex( lLine ), ( Conversion{ false, "", "unexpected data read\n" } ) )
            << lLine;
#ifndef NDEBUG
        EXPECT_EQ( gAssertions.size(), 1U );
#endif
    }
}

TEST( WordHexReader, ValuesAreReadAsScanfDoes )
{
    const auto lRecord = []( std::uint32_t aWord, std::size_t aDigits )
    {
        return Conversion{ true, "D" + InMemory( aWord ).substr( 0, aDigits ) + " ", "" };
    };
    EXPECT_EQ( ConvertWordHex( "  1f\n" ), lRecord( 0x1F, 4 ) );
    EXPECT_EQ( ConvertWordHex( "0x1F\n" ), lRecord( 0x1F, 4 ) );
    EXPECT_EQ( ConvertWordHex( "1Fzz\n" ), lRecord( 0x1F, 4 ) );
    EXPECT_EQ( ConvertWordHex( "-1\n" ), lRecord( 0xFFFFFFFF, 2 ) );
    EXPECT_EQ( ConvertWordHex( "1\r\n" ), lRecord( 0x1, 2 ) );
}

TEST( WordHexReader, ARecordIsWrittenFrom253PendingBytesOn )
{
    // 127 lines of two bytes are 254.
    std::string lSlots; // the bytes of the even slots; the odd ones are zero
    for ( int lSlot = 0; lSlot < 64; ++lSlot )
    {
        lSlots += lSlot % 2 == 0 ? InMemory( 0x1234 ) : "00000000";
    }
    EXPECT_EQ( ConvertWordHex( Repeat( "1234\n", 127 ) + "@0\n" ),
               ( Conversion{ true, "D" + lSlots.substr( 0, 508 ) + " O00000000 ", "" } ) );
    // A byte and 126 times two are 253.
    EXPECT_EQ( ConvertWordHex( "12\n" + Repeat( "3456\n", 126 ) + "@0\n" ).mRecords.size(),
               1 + 506 + 1 + std::string( "O00000000 " ).size() );
    // One byte less is not enough: it waits for the end.
    const Conversion lWaiting = ConvertWordHex( Repeat( "1234\n", 126 ) + "56\n56\n" );
    EXPECT_EQ( lWaiting.mRecords.size(), 1U + 506 + 1 + 1 + 2 + 1 );
    EXPECT_EQ( ConvertWordHex( Repeat( "12\n", 252 ) + "z\n" ),
               ( Conversion{ false, "", "unexpected data read\n" } ) );
}

TEST( WordHexReader, SlotsKeepTheWordsOfEarlierRecords )
{
    // Slot 1 has its word from before the address.
    EXPECT_EQ( ConvertWordHex( "12\n34\n@0\n5678\n9ABC\n" + Repeat( "/\n", 3 ) + "DEF0\n" ),
               ( Conversion{ true,
                             "D" + InMemory( 0x12 ).substr( 0, 4 ) + " O00000000 D" +
                                 InMemory( 0x5678 ) + InMemory( 0x34 ).substr( 0, 4 ) + " ",
                             "" } ) );
}

TEST( WordHexReader, LinesAreReadUpTo1024CharactersAtATime )
{
    // A comment of 1024 characters is one line; of a longer one the rest is read as a line.
    const std::string lComment = "/" + std::string( 1022, 'c' ) + "\n";
    ASSERT_EQ( lComment.size(), 1024U );
    EXPECT_EQ( ConvertWordHex( lComment + "12\n" ),
               ( Conversion{ true, "D" + InMemory( 0x12 ).substr( 0, 2 ) + " ", "" } ) );
    EXPECT_EQ( ConvertWordHex( "/" + std::string( 1023, 'c' ) + "1234\n" ),
               ( Conversion{ true, "D" + InMemory( 0x1234 ).substr( 0, 4 ) + " ", "" } ) );
    EXPECT_EQ( ConvertWordHex( std::string( 100000, '1' ) ),
               ( Conversion{ false, "", "unexpected data 1024\n" } ) );
}

TEST( WordHexReader, AReadErrorIsTheEndOfTheFile )
{
    const std::string lText = "@1\n1234\n5678\n";
    EXPECT_EQ(
        ConvertWordHex( lText, 8 ),
        ( Conversion{ true, "O00000002 D" + InMemory( 0x1234 ).substr( 0, 4 ) + " ", "" } ) );
}

TEST( WordHexReader, EveryTruncationOfAGoodFile )
{
    const std::string lText = "@10\n/x\n1234\n56\n";
    const std::string lAddress = "O00000020 ";
    const std::string lOne = lAddress + "D" + InMemory( 0x1234 ).substr( 0, 4 ) + " ";
    const Conversion lExpected[] = {
        { true, "", "" },                                                      // nothing
        { false, "", "Failed to read address." },                              // @
        { true, "O00000002 ", "" },                                            // @1
        { true, lAddress, "" },                                                // @10
        { true, lAddress, "" },                                                // and its line feed
        { true, lAddress, "" },                                                // /
        { true, lAddress, "" },                                                // /x
        { true, lAddress, "" },                                                // and its line feed
        { false, lAddress, "unexpected data 1\n" },                            // 1
        { false, lAddress, "unexpected data 2\n" },                            // 12
        { true, lAddress + "D" + InMemory( 0x123 ).substr( 0, 2 ) + " ", "" }, // 123
        { false, lAddress, "unexpected data 4\n" },                            // 1234
        { true, lOne, "" },                                                    // and its line feed
        { false, lAddress, "unexpected data 1\n" },                            // 5
        { false, lAddress, "unexpected data 2\n" },                            // 56
        { true, lAddress + "D" + InMemory( 0x1234 ).substr( 0, 6 ) + " ", "" },
    };
    ASSERT_EQ( std::size( lExpected ), lText.size() + 1 );
    for ( std::size_t lSize = 0; lSize <= lText.size(); ++lSize )
    {
        EXPECT_EQ( ConvertWordHex( lText.substr( 0, lSize ) ), lExpected[lSize] ) << lSize;
    }
}

TEST( WordHexReader, AFailureRaisesAnAssertion )
{
    EXPECT_FALSE( ConvertWordHex( "z\n" ).mAnswer );
#ifndef NDEBUG
    EXPECT_THAT( gAssertions, ElementsAre( "unexpected data read" ) );
#else
    EXPECT_THAT( gAssertions, IsEmpty() );
#endif
}
