// Numbers and texts as the program reads and prints them.

#include "Tools/htbase/Failure.h"
#include "Tools/htbase/HexDump.h"
#include "Tools/htbase/Text.h"

#include <QmUtilsLib/String.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>

using QmUtilsLib::Result;
using testing::HasSubstr;

namespace HtBaseTool
{

TEST( Numbers, AreDecimalOrHexadecimal )
{
    EXPECT_EQ( ParseNumber( "0", "n" ), 0U );
    EXPECT_EQ( ParseNumber( "010", "n" ), 10U ); // not octal
    EXPECT_EQ( ParseNumber( "4294967295", "n" ), 0xFFFFFFFFU );
    EXPECT_EQ( ParseNumber( "0xFFFFFFFF", "n" ), 0xFFFFFFFFU );
    EXPECT_EQ( ParseNumber( "0Xdead", "n" ), 0xDEADU );
    EXPECT_EQ( ParseNumber( "0x0000000000000001", "n" ), 1U );
}

TEST( Numbers, ThatAreInvalidFailAsWrongUsage )
{
    for ( const char* lText :
          { "", " 1", "1 ", "-1", "+1", "0x", "x1", "1.0", "a", "0x1g", "1e3" } )
    {
        try
        {
            (void)ParseNumber( lText, "length" );
            FAIL() << lText;
        }
        catch ( const Failure& lFailure )
        {
            EXPECT_EQ( lFailure.GetStatus(), ExitStatus::USAGE );
            EXPECT_THAT( lFailure.what(), HasSubstr( "length '" + std::string( lText ) + "'" ) );
        }
    }
    EXPECT_THROW( (void)ParseNumber( "4294967296", "n" ), Failure );
    EXPECT_THROW( (void)ParseNumber( "0x100000000", "n" ), Failure );
    EXPECT_THROW( (void)ParseNumber( std::string( 1000, '9' ), "n" ), Failure );
}

TEST( Numbers, AreScaledToThreeDigitsBeforeThePoint )
{
    EXPECT_EQ( FormatScaled( 0, "B/s" ), "0 B/s" );
    EXPECT_EQ( FormatScaled( 999.4, "B/s" ), "999 B/s" );
    EXPECT_EQ( FormatScaled( 999.6, "bit/s" ), "1.0 kbit/s" );
    EXPECT_EQ( FormatScaled( 12345, "bit/s" ), "12.3 kbit/s" );
    EXPECT_EQ( FormatScaled( 999949, "B/s" ), "999.9 kB/s" );
    EXPECT_EQ( FormatScaled( 999950, "B/s" ), "1.0 MB/s" );
    EXPECT_EQ( FormatScaled( 1e308, "B/s" ).size(), 303U + 7 ); // no such stream, but no harm
}

TEST( Texts, OfPrintableCharactersAreUnchanged )
{
    for ( const char* lText : { "", "plain text", "~", "\xC3\xA4", "\xE2\x82\xAC", "\xEF\xBF\xBD",
                                "\xF0\x9F\x93\xB7", "\xC2\xA0", "\xF4\x8F\xBF\xBF" } )
    {
        EXPECT_EQ( Escape( lText ), lText );
    }
}

TEST( Texts, ControlCharactersAreEscaped )
{
    EXPECT_EQ( Escape( std::string( "a\0b", 3 ) ), "a\\x00b" );
    EXPECT_EQ( Escape( "\x1B[2J\r\n\t\x7F" ), "\\x1B[2J\\x0D\\x0A\\x09\\x7F" );
    EXPECT_EQ( Escape( "\xC2\x9B" ), "\\xC2\\x9B" ); // the one-character form of ESC [
    EXPECT_EQ( Escape( "C:\\x" ), "C:\\\\x" );
}

TEST( Texts, InvalidUtf8IsEscapedByteByByte )
{
    EXPECT_EQ( Escape( "\xFF" ), "\\xFF" );
    EXPECT_EQ( Escape( "\x80" ), "\\x80" );
    EXPECT_EQ( Escape( "\xC3" ), "\\xC3" );                            // cut
    EXPECT_EQ( Escape( "\xE2\x82" ), "\\xE2\\x82" );                   // cut
    EXPECT_EQ( Escape( "\xC3(" ), "\\xC3(" );                          // no second byte
    EXPECT_EQ( Escape( "\xC0\xAF" ), "\\xC0\\xAF" );                   // overlong
    EXPECT_EQ( Escape( "\xE0\x80\xAF" ), "\\xE0\\x80\\xAF" );          // overlong
    EXPECT_EQ( Escape( "\xED\xA0\x80" ), "\\xED\\xA0\\x80" );          // a surrogate
    EXPECT_EQ( Escape( "\xF4\x90\x80\x80" ), "\\xF4\\x90\\x80\\x80" ); // beyond U+10FFFF
    EXPECT_EQ( Escape( "\xF0\x9F\x93" ), "\\xF0\\x9F\\x93" );
}

TEST( Tables, ColumnsAreAlignedByCharacters )
{
    EXPECT_EQ( FormatTable( { { "a", "\xC3\xA4", "x" }, { "long", "bb", "" } } ),
               "a     \xC3\xA4   x\n"
               "long  bb  -\n" );
    EXPECT_EQ( FormatTable( {} ), "" );
}

TEST( Counts, HaveAPluralSExceptForOne )
{
    EXPECT_EQ( FormatCount( 0, "byte" ), "0 bytes" );
    EXPECT_EQ( FormatCount( 1, "byte" ), "1 byte" );
    EXPECT_EQ( FormatCount( 2, "byte" ), "2 bytes" );
}

TEST( HexDumps, DoNotDependOnHowTheBytesAreSplit )
{
    const uint8_t lBytes[] = { 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 'A', 'B', 'C', 'D', 0x7F, 0xFF, 'z' };
    const std::string lExpected =
        "0xFFFFFFEF  00 01 02 03 04 05 06 07  08 09 41 42 43 44 7f ff  |..........ABCD..|\n"
        "0xFFFFFFFF  7a                                                |z|\n";
    for ( size_t lCut = 0; lCut <= sizeof( lBytes ); ++lCut )
    {
        HexDump lDump( 0xFFFFFFEF, AddressBits::GEV );
        std::string lText = lDump.Add( lBytes, lCut );
        lText += lDump.Add( lBytes + lCut, sizeof( lBytes ) - lCut );
        lText += lDump.Finish();
        EXPECT_EQ( lText, lExpected );
        EXPECT_EQ( lDump.Finish(), "" );
    }
}

TEST( Results, AreDescribedWithNameTextAndSystemError )
{
    EXPECT_EQ( Describe( Result( Result::NOT_CONNECTED ) ), "NOT_CONNECTED" );
    EXPECT_EQ( Describe( Result( Result::TIMEOUT, 0, QmUtilsLib::String( "Too late." ) ) ),
               "TIMEOUT (Too late)" );
    EXPECT_EQ( Describe( Result( Result::GENERIC_ERROR, ECONNREFUSED ) ),
               "GENERIC_ERROR (Connection refused, system error 111)" );
    EXPECT_EQ(
        Describe( Result( Result::GENERIC_ERROR, ECONNREFUSED, QmUtilsLib::String( "100 %s" ) ) ),
        "GENERIC_ERROR (100 %s, Connection refused, system error 111)" );
}

} // namespace HtBaseTool
