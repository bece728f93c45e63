// The S-record reader against the plain one: same records, same messages, same answer.

#include "tests/support/ByteFile.h"
#include "tests/support/SRecordReference.h"
#include "tests/support/StandardOutput.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <random>
#include <string>
#include <utility>
#include <vector>

using HtBaseLib::SRecordChecks;
using TestSupport::ByteFile;
using TestSupport::CheckSRecordsPlainly;
using TestSupport::ConvertSRecordsByReader;
using TestSupport::ConvertSRecordsPlainly;
using TestSupport::SRecordOutcome;
using TestSupport::StandardOutputCapture;

namespace TestSupport
{

void PrintTo( const SRecordOutcome& aOutcome, std::ostream* aStream )
{
    *aStream << ( aOutcome.mAnswer ? "true" : "false" ) << ", "
             << testing::PrintToString( aOutcome.mRecords ) << ", "
             << testing::PrintToString( aOutcome.mOutput );
}

} // namespace TestSupport

namespace
{

// Both readers on the same file.
std::pair<SRecordOutcome, SRecordOutcome> ConvertByBoth( const std::string& aText,
                                                         std::size_t aFailsAt = ByteFile::NEVER )
{
    const ByteFile lPlain( aText, aFailsAt );
    const ByteFile lFast( aText, aFailsAt );
    StandardOutputCapture lCapture;
    SRecordOutcome lByReader = ConvertSRecordsByReader( lFast.Get(), "image.srec", lCapture );
    return { ConvertSRecordsPlainly( lPlain.Get(), "image.srec" ), std::move( lByReader ) };
}

void ExpectSame( const std::string& aText, std::size_t aFailsAt = ByteFile::NEVER )
{
    const auto [lExpected, lActual] = ConvertByBoth( aText, aFailsAt );
    EXPECT_EQ( lActual, lExpected ) << testing::PrintToString( aText ) << ", fails at " << aFailsAt;
}

// The same with checks: both what is converted, and what is said when nothing is.
void ExpectSameChecks( const std::string& aText, std::size_t aFailsAt = ByteFile::NEVER )
{
    const std::string lReadable = aText.substr( 0, aFailsAt );
    for ( const SRecordChecks lChecks : { SRecordChecks::ALL, SRecordChecks::ONLY } )
    {
        const ByteFile lFile( aText, aFailsAt );
        StandardOutputCapture lCapture;
        const SRecordOutcome lActual =
            ConvertSRecordsByReader( lFile.Get(), "image.srec", lCapture, lChecks );
        EXPECT_EQ( lActual, CheckSRecordsPlainly( lReadable, aFailsAt != ByteFile::NEVER,
                                                  "image.srec", lChecks ) )
            << testing::PrintToString( aText ) << ", fails at " << aFailsAt;
    }
}

// Makes S-record files, good ones and all kinds of bad ones, always the same for the same seed.
class Maker
{
public:
    explicit Maker( unsigned int aSeed )
        : mRandom( aSeed )
    {
    }

    // A record of any type with the right length and checksum, sometimes in lower case.
    std::string MakeSoundLine( unsigned int aMaxData )
    {
        static constexpr unsigned int ADDRESS_SIZES[] = { 2, 2, 3, 4, 2, 2, 3, 4, 3, 2 };
        const unsigned int lType = Below( 4 ) == 0 ? Below( 10 ) : 3;
        const unsigned int lCount = ADDRESS_SIZES[lType] + Below( aMaxData + 1 ) + 1;
        std::string lDigits = ToDigits( lCount );
        unsigned int lSum = lCount;
        for ( unsigned int lIndex = 1; lIndex < lCount; ++lIndex )
        {
            const unsigned int lByte = Below( 256 );
            lSum += lByte;
            lDigits += ToDigits( lByte );
        }
        lDigits += ToDigits( ~lSum & 0xFF );
        if ( Below( 8 ) == 0 )
        {
            std::transform( lDigits.begin(), lDigits.end(), lDigits.begin(),
                            []( char aDigit )
                            { return static_cast<char>( std::tolower( aDigit ) ); } );
        }
        return "S" + std::to_string( lType ) + lDigits;
    }

    std::string MakeSoundFile( unsigned int aMaxLines, unsigned int aMaxData )
    {
        static constexpr const char* ENDS[] = { "\n", "\n", "\r\n", "\n\n" };
        std::string lText;
        for ( unsigned int lLines = Below( aMaxLines + 1 ); lLines > 0; --lLines )
        {
            lText += MakeSoundLine( aMaxData );
            lText += lLines > 1 || Below( 2 ) == 0 ? ENDS[Below( 4 )] : "";
        }
        return lText;
    }

    unsigned int Below( unsigned int aLimit )
    {
        return static_cast<unsigned int>( mRandom() % aLimit );
    }

    std::string MakeLine( unsigned int aMaxData )
    {
        if ( Below( 10 ) == 0 )
        {
            return "S" + std::string( 1, static_cast<char>( '0' + Below( 10 ) ) ) +
                   MakeDigits( Below( 12 ) );
        }
        const unsigned int lCount = Below( aMaxData + 1 );
        if ( Below( 4 ) == 0 )
        {
            mAddress += Below( 0x10000 );
        }
        char lHead[24];
        std::snprintf( lHead, sizeof( lHead ), "S3%02X%08X", lCount + 5, mAddress );
        mAddress += lCount;
        return lHead + MakeDigits( 2 * lCount + 2 );
    }

    std::string MakeFile( unsigned int aMaxLines, unsigned int aMaxData )
    {
        std::string lText;
        for ( unsigned int lLines = Below( aMaxLines + 1 ); lLines > 0; --lLines )
        {
            lText += MakeLine( aMaxData );
            lText += lLines > 1 || Below( 2 ) == 0 ? MakeEnd() : "";
        }
        return lText;
    }

    // Changes, inserts, removes or moves a few characters.
    void Damage( std::string& aText )
    {
        static constexpr char ODD[] = "\n\r\0 \t+-xX0123456789abcdefABCDEFgGsS37\xFF\x80";
        for ( unsigned int lTimes = Below( 4 ) + 1; lTimes > 0 && !aText.empty(); --lTimes )
        {
            const std::size_t lAt = Below( static_cast<unsigned int>( aText.size() ) );
            const char lOdd = ODD[Below( sizeof( ODD ) - 1 )];
            switch ( Below( 6 ) )
            {
            case 0:
                aText.insert( lAt, Below( 4 ) + 1, lOdd );
                break;
            case 1:
                aText.erase( lAt, Below( 20 ) + 1 );
                break;
            case 2:
                aText.erase( lAt, aText.find( '\n', lAt ) - lAt ); // the rest of a line
                break;
            case 3:
                aText.insert( lAt, aText.substr( Below( static_cast<unsigned int>( aText.size() ) ),
                                                 Below( 40 ) ) );
                break;
            default:
                aText[lAt] = lOdd;
                break;
            }
        }
    }

private:
    static std::string ToDigits( unsigned int aByte )
    {
        char lDigits[3];
        std::snprintf( lDigits, sizeof( lDigits ), "%02X", aByte & 0xFF );
        return lDigits;
    }

    std::string MakeDigits( std::size_t aCount )
    {
        const char* const lDigits = Below( 8 ) == 0 ? "0123456789abcdef" : "0123456789ABCDEF";
        std::string lText;
        while ( lText.size() < aCount )
        {
            lText += lDigits[Below( 16 )];
        }
        return lText;
    }

    const char* MakeEnd()
    {
        static constexpr const char* ENDS[] = { "\n",   "\n",   "\n",   "\n",
                                                "\r\n", "\r\n", "\n\n", " \n" };
        return ENDS[Below( 8 )];
    }

    std::mt19937 mRandom;
    unsigned int mAddress = 0xFFFFFFF0;
};

} // namespace

TEST( SRecordDifferential, GoodFiles )
{
    Maker lMaker( 1 );
    for ( int lRound = 0; lRound < 2000; ++lRound )
    {
        ExpectSame( lMaker.MakeFile( 20, lRound % 2 == 0 ? 16 : 250 ) );
    }
}

TEST( SRecordDifferential, DamagedFiles )
{
    Maker lMaker( 2 );
    for ( int lRound = 0; lRound < 8000; ++lRound )
    {
        std::string lText = lMaker.MakeFile( 8, lRound % 4 == 0 ? 250 : 8 );
        lMaker.Damage( lText );
        ExpectSame( lText );
    }
}

TEST( SRecordDifferential, FilesThatFailInTheMiddle )
{
    Maker lMaker( 3 );
    for ( int lRound = 0; lRound < 2000; ++lRound )
    {
        const std::string lText = lMaker.MakeFile( 6, 8 );
        ExpectSame( lText, lMaker.Below( static_cast<unsigned int>( lText.size() + 1 ) ) );
    }
}

TEST( SRecordDifferential, EveryTruncationOfAGoodFile )
{
    Maker lMaker( 4 );
    std::string lText = "S0060000484452\n";
    for ( int lLine = 0; lLine < 12; ++lLine )
    {
        lText += lMaker.MakeLine( 24 ) + ( lLine % 3 == 0 ? "\r\n" : "\n" );
    }
    for ( std::size_t lSize = 0; lSize <= lText.size(); ++lSize )
    {
        ExpectSame( lText.substr( 0, lSize ) );
    }
}

TEST( SRecordDifferential, EveryCharacterAtEveryPlaceOfALine )
{
    // Behind a longer line, so that a line that ends early finds its rest there.
    const std::string lBefore = "S30A00001000A1A2A3A4A500\n";
    const std::string lLine = "S30700002000B1B211\n";
    for ( std::size_t lAt = 0; lAt < lLine.size(); ++lAt )
    {
        for ( int lCharacter = 0; lCharacter < 256; ++lCharacter )
        {
            std::string lText = lLine;
            lText[lAt] = static_cast<char>( lCharacter );
            ExpectSame( lBefore + lText + "S309" );
        }
    }
}

TEST( SRecordDifferential, LinesAcrossTheBlocksThatAreReadAtATime )
{
    // A file of several blocks, shifted so that its lines meet the borders of blocks everywhere.
    // Some lines need what the line before them has left.
    Maker lMaker( 5 );
    std::string lText;
    while ( lText.size() < 200000 )
    {
        const std::string lLine = lMaker.MakeLine( 8 );
        if ( lLine.rfind( "S3", 0 ) != 0 || lLine.size() >= 14 )
        {
            lText += lLine + ( lText.size() % 7 == 0 ? "\r\n" : "\n" );
            lText += lMaker.Below( 2 ) == 0 ? "\n" : "";
        }
    }
    ASSERT_TRUE( ConvertByBoth( lText ).first.mAnswer ) << "the file is not read to its end";
    for ( std::size_t lShift = 0; lShift < 60; ++lShift )
    {
        ExpectSame( "S0" + std::string( lShift, '0' ) + "\n" + lText );
    }
}

TEST( SRecordDifferential, LongestLinesAcrossTheBlocksThatAreReadAtATime )
{
    // 516 characters each. The shifts leave from a few characters to a whole line at the end of a
    // block.
    std::string lText;
    for ( unsigned int lAddress = 0; lText.size() < 140000; lAddress += 250 )
    {
        char lHead[24];
        std::snprintf( lHead, sizeof( lHead ), "S3FF%08X", lAddress );
        lText += lHead + std::string( 500, lAddress % 4 == 0 ? '5' : 'A' ) + "12\r\n";
    }
    ASSERT_TRUE( ConvertByBoth( lText ).first.mAnswer ) << "the file is not read to its end";
    for ( std::size_t lShift = 0; lShift < 12; ++lShift )
    {
        ExpectSame( "S0" + std::string( lShift, '0' ) + "\n" + lText );
    }
}

TEST( SRecordDifferential, LongLinesWithOddTails )
{
    for ( const std::size_t lLength : { 500U, 513U, 514U, 515U, 516U, 600U, 70000U, 100000U } )
    {
        for ( const char lFill : { 'A', ' ', 'g', '-' } )
        {
            std::string lLine = "S3FF00001000" + std::string( lLength - 12, lFill );
            ExpectSame( lLine );
            ExpectSame( lLine + "\nS3FF00002000\n" );
            ExpectSame( lLine + "12\nS3FF00002000ABCD\n\n" );
        }
    }
}

TEST( SRecordDifferential, SoundFilesWithChecks )
{
    Maker lMaker( 6 );
    for ( int lRound = 0; lRound < 500; ++lRound )
    {
        const std::string lText = lMaker.MakeSoundFile( 20, lRound % 2 == 0 ? 16 : 250 );
        ExpectSameChecks( lText );
        EXPECT_TRUE( CheckSRecordsPlainly( lText, false, "", SRecordChecks::ONLY ).mAnswer );
    }
}

TEST( SRecordDifferential, DamagedFilesWithChecks )
{
    Maker lMaker( 7 );
    for ( int lRound = 0; lRound < 2000; ++lRound )
    {
        std::string lText = lMaker.MakeSoundFile( 8, lRound % 4 == 0 ? 250 : 8 );
        lMaker.Damage( lText );
        ExpectSameChecks( lText );
    }
}

TEST( SRecordDifferential, FilesThatFailInTheMiddleWithChecks )
{
    Maker lMaker( 8 );
    for ( int lRound = 0; lRound < 1000; ++lRound )
    {
        const std::string lText = lMaker.MakeSoundFile( 6, 8 );
        ExpectSameChecks( lText, lMaker.Below( static_cast<unsigned int>( lText.size() + 1 ) ) );
    }
}

TEST( SRecordDifferential, EveryDigitOfARecordCountsForItsChecksum )
{
    // Records of several lengths, since what is left of a vector is decoded in another way.
    for ( const unsigned int lSize : { 0U, 1U, 10U, 11U, 12U, 13U, 26U, 27U, 28U, 250U } )
    {
        char lDigits[24];
        std::snprintf( lDigits, sizeof( lDigits ), "S3%02X00000000", lSize + 5 );
        std::string lLine = lDigits + std::string( std::size_t{ 2 } * lSize, '0' );
        std::snprintf( lDigits, sizeof( lDigits ), "%02X", ~( lSize + 5 ) & 0xFF );
        lLine += lDigits;
        for ( std::size_t lAt = 4; lAt < lLine.size(); ++lAt )
        {
            std::string lBad = lLine;
            lBad[lAt] = lBad[lAt] == '7' ? '8' : '7';
            ASSERT_FALSE( CheckSRecordsPlainly( lBad, false, "", SRecordChecks::ONLY ).mAnswer );
            ExpectSameChecks( lLine + "\n" + lBad + "\n" + lLine + "\n" );
        }
    }
}

TEST( SRecordDifferential, ChecksAcrossTheBlocksThatAreReadAtATime )
{
    // A bad line, which the shifts move over the border of the first block, behind a long one.
    constexpr std::size_t BLOCK_SIZE = 65536;
    Maker lMaker( 9 );
    std::string lText;
    while ( lText.size() < BLOCK_SIZE - 1100 )
    {
        lText += lMaker.MakeSoundLine( 250 ) + ( lMaker.Below( 2 ) == 0 ? "\r\n" : "\n" );
    }
    const std::string lEnd = lMaker.MakeSoundFile( 20, 250 );
    for ( const char* const lBad : { "S30700002000B1B211\r\n", "no record\n", "" } )
    {
        for ( std::size_t lShift = 0; lShift < 22; ++lShift )
        {
            const std::size_t lBegin = BLOCK_SIZE - lShift;
            ExpectSameChecks( lText + "\nS0030000FC" +
                              std::string( lBegin - lText.size() - 11, '\n' ) + lBad + lEnd );
        }
    }
}

TEST( SRecordDifferential, LongLinesWithChecks )
{
    for ( std::size_t lLength = 500; lLength < 530; ++lLength )
    {
        for ( const char* const lEnd : { "", "\n", "\r\n", "\r\r\n", "\n\n" } )
        {
            ExpectSameChecks( "S3FF" + std::string( lLength - 4, '0' ) + lEnd );
            ExpectSameChecks( "S0030000FC\nS5FF" + std::string( lLength - 4, '0' ) + lEnd );
        }
    }
    ExpectSameChecks( "S3FF" + std::string( 100000, '0' ) + "\nS0030000FC\n" );
    ExpectSameChecks( "x" + std::string( 100000, '0' ) );
}
