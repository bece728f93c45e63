#include "tests/support/AllocationCounter.h"

#include <QmUtilsLib/String.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace
{

using QmUtilsLib::String;

constexpr wchar_t BAD = 0xFFFD;

// Where wide characters have 16 bits the expected texts below would need pairs of surrogates.
static_assert( sizeof( wchar_t ) == 4,
               "the expected texts are written for 32-bit wide characters" );

// The well-formed byte sequences, as the Unicode standard lists them.
struct Range
{
    unsigned int mFirst;
    unsigned int mLast;
};
const std::vector<std::vector<Range>> WELL_FORMED = {
    { { 0x00, 0x7F } },
    { { 0xC2, 0xDF }, { 0x80, 0xBF } },
    { { 0xE0, 0xE0 }, { 0xA0, 0xBF }, { 0x80, 0xBF } },
    { { 0xE1, 0xEC }, { 0x80, 0xBF }, { 0x80, 0xBF } },
    { { 0xED, 0xED }, { 0x80, 0x9F }, { 0x80, 0xBF } },
    { { 0xEE, 0xEF }, { 0x80, 0xBF }, { 0x80, 0xBF } },
    { { 0xF0, 0xF0 }, { 0x90, 0xBF }, { 0x80, 0xBF }, { 0x80, 0xBF } },
    { { 0xF1, 0xF3 }, { 0x80, 0xBF }, { 0x80, 0xBF }, { 0x80, 0xBF } },
    { { 0xF4, 0xF4 }, { 0x80, 0x8F }, { 0x80, 0xBF }, { 0x80, 0xBF } },
};

// How many of the bytes from aStart on fit a row of the list.
std::size_t GetMatch( const std::string& aText, std::size_t aStart, const std::vector<Range>& aRow )
{
    std::size_t lMatch = 0;
    while ( lMatch < aRow.size() && aStart + lMatch < aText.size() )
    {
        const auto lByte = static_cast<unsigned char>( aText[aStart + lMatch] );
        if ( lByte < aRow[lMatch].mFirst || lByte > aRow[lMatch].mLast )
        {
            break;
        }
        ++lMatch;
    }
    return lMatch;
}

// The wide form by the list: a whole row is a character, the longest beginning of one is malformed.
std::wstring GetExpectedWide( const std::string& aText )
{
    constexpr unsigned int LEAD_BITS[] = { 0, 0x7F, 0x1F, 0x0F, 0x07 };
    std::wstring lWide;
    for ( std::size_t lStart = 0; lStart < aText.size(); )
    {
        std::size_t lLongest = 0;
        bool lWhole = false;
        for ( const std::vector<Range>& lRow : WELL_FORMED )
        {
            const std::size_t lMatch = GetMatch( aText, lStart, lRow );
            lWhole = lWhole || lMatch == lRow.size();
            lLongest = std::max( lLongest, lMatch );
        }
        const std::size_t lLength = std::max<std::size_t>( lLongest, 1 );
        unsigned int lCharacter = BAD;
        if ( lWhole )
        {
            lCharacter = static_cast<unsigned char>( aText[lStart] ) & LEAD_BITS[lLength];
            for ( std::size_t lNext = 1; lNext < lLength; ++lNext )
            {
                const auto lByte = static_cast<unsigned char>( aText[lStart + lNext] );
                lCharacter = lCharacter * 64 + ( lByte - 0x80U );
            }
        }
        lWide.push_back( static_cast<wchar_t>( lCharacter ) );
        lStart += lLength;
    }
    return lWide;
}

void CheckBytes( const std::string& aText )
{
    const String lString( aText.c_str() );
    const std::wstring lExpected = GetExpectedWide( aText );
    ASSERT_EQ( lString.GetAscii(), aText );
    ASSERT_EQ( lString.GetUnicode(), lExpected );
    ASSERT_EQ( lString.GetLength(), lExpected.size() );
}

// The 8-bit form of a character that is one.
std::string Encode( unsigned int aCharacter )
{
    const auto lByte = []( unsigned int aValue )
    {
        return std::string( 1, static_cast<char>( aValue ) );
    };
    const auto lTail = [&]( unsigned int aShift )
    {
        return lByte( 0x80U + ( aCharacter / aShift ) % 64U );
    };
    if ( aCharacter < 0x80 )
        return lByte( aCharacter );
    if ( aCharacter < 0x800 )
        return lByte( 0xC0U + aCharacter / 64U ) + lTail( 1 );
    if ( aCharacter < 0x10000 )
        return lByte( 0xE0U + aCharacter / 4096U ) + lTail( 64 ) + lTail( 1 );
    return lByte( 0xF0U + aCharacter / 262144U ) + lTail( 4096 ) + lTail( 64 ) + lTail( 1 );
}

} // namespace

TEST( PlatformString, NullAndNothingAreEmpty )
{
    const String lDefault;
    const String lNull( static_cast<const char*>( nullptr ) );
    const String lWideNull( static_cast<const wchar_t*>( nullptr ) );
    const String lEmpty( "" );
    const String lWideEmpty( L"" );
    for ( const String* const lString : { &lDefault, &lNull, &lWideNull, &lEmpty, &lWideEmpty } )
    {
        EXPECT_STREQ( lString->GetAscii(), "" );
        EXPECT_STREQ( lString->GetUnicode(), L"" );
        EXPECT_EQ( lString->GetLength(), 0U );
        EXPECT_TRUE( *lString == lDefault );
    }
}

TEST( PlatformString, ConvertsCharactersOfEveryLength )
{
    struct Row
    {
        const char* mNarrow;
        wchar_t mWide;
    };
    const Row lRows[] = {
        { "\x01", 0x01 },
        { "\x7F", 0x7F },
        { "\xC2\x80", 0x80 },
        { "\xC3\xA9", 0xE9 },
        { "\xDF\xBF", 0x7FF },
        { "\xE0\xA0\x80", 0x800 },
        { "\xE2\x82\xAC", 0x20AC },
        { "\xED\x9F\xBF", 0xD7FF },
        { "\xEE\x80\x80", 0xE000 },
        { "\xEF\xBF\xBD", 0xFFFD },
        { "\xEF\xBF\xBF", 0xFFFF },
        { "\xF0\x90\x80\x80", 0x10000 },
        { "\xF0\x9F\x93\xB7", 0x1F4F7 },
        { "\xF4\x8F\xBF\xBF", 0x10FFFF },
    };
    for ( const Row& lRow : lRows )
    {
        const std::wstring lWideText( 1, lRow.mWide );
        const String lFromNarrow( lRow.mNarrow );
        const String lFromWide( lWideText.c_str() );
        EXPECT_EQ( lFromNarrow.GetUnicode(), lWideText );
        EXPECT_STREQ( lFromWide.GetAscii(), lRow.mNarrow );
        EXPECT_EQ( lFromNarrow.GetLength(), 1U );
        EXPECT_EQ( lFromWide.GetLength(), 1U );
        EXPECT_TRUE( lFromNarrow == lFromWide );
    }
}

TEST( PlatformString, ReplacesWhatIsMalformed )
{
    struct Row
    {
        const char* mNarrow;
        std::wstring mWide;
    };
    const Row lRows[] = {
        // lone following bytes, bytes that never occur
        { "\x80", { BAD } },
        { "\xBF\x80", { BAD, BAD } },
        { "\xFE\xFF", { BAD, BAD } },
        // overlong forms, also of zero
        { "\xC0\xAF", { BAD, BAD } },
        { "\xC0\x80", { BAD, BAD } },
        { "\xC1\xBF", { BAD, BAD } },
        { "\xE0\x80\xBF\xF0\x81\x82\x41", { BAD, BAD, BAD, BAD, BAD, BAD, L'A' } },
        { "\xE0\x9F\xBF", { BAD, BAD, BAD } },
        { "\xF0\x8F\xBF\xBF", { BAD, BAD, BAD, BAD } },
        // surrogates, single and in pairs
        { "\xED\xA0\x80", { BAD, BAD, BAD } },
        { "\xED\xBF\xBF\xED\xAF\x41", { BAD, BAD, BAD, BAD, BAD, L'A' } },
        { "\xED\xA0\xBD\xED\xB8\x80", { BAD, BAD, BAD, BAD, BAD, BAD } },
        // beyond the last character
        { "\xF4\x90\x80\x80", { BAD, BAD, BAD, BAD } },
        { "\xF5\x80\x80\x80", { BAD, BAD, BAD, BAD } },
        { "\xF4\x91\x92\x93\xFF\x41\x80\xBF\x42",
          { BAD, BAD, BAD, BAD, BAD, L'A', BAD, BAD, L'B' } },
        // cut short, at the end and before something else: one replacement for what was there
        { "\xC3", { BAD } },
        { "\xE2\x82", { BAD } },
        { "\xF0\x9F\x93", { BAD } },
        { "\xE1\x80\xE2\xF0\x91\x92\xF1\xBF\x41", { BAD, BAD, BAD, BAD, L'A' } },
        { "\x61\xF1\x80\x80\xE1\x80\xC2\x62\x80\x63\x80\xBF\x64",
          { L'a', BAD, BAD, BAD, L'b', BAD, L'c', BAD, BAD, L'd' } },
        { "\xC3\xC3\xA9", { BAD, 0xE9 } },
    };
    for ( const Row& lRow : lRows )
    {
        const String lString( lRow.mNarrow );
        EXPECT_EQ( lString.GetUnicode(), lRow.mWide );
        EXPECT_STREQ( lString.GetAscii(), lRow.mNarrow );
        EXPECT_EQ( lString.GetLength(), lRow.mWide.size() );
        // The list that the longer texts are compared with agrees.
        EXPECT_EQ( GetExpectedWide( lRow.mNarrow ), lRow.mWide );
    }
}

TEST( PlatformString, EveryOneAndTwoByteText )
{
    for ( unsigned int lFirst = 1; lFirst <= 0xFF; ++lFirst )
    {
        const std::string lOne( 1, static_cast<char>( lFirst ) );
        ASSERT_NO_FATAL_FAILURE( CheckBytes( lOne ) ) << lFirst;
        for ( unsigned int lSecond = 1; lSecond <= 0xFF; ++lSecond )
        {
            ASSERT_NO_FATAL_FAILURE( CheckBytes( lOne + static_cast<char>( lSecond ) ) )
                << lFirst << ' ' << lSecond;
        }
    }
}

// Texts of bytes on the edges of the list above, where decoders go wrong.
TEST( PlatformString, RandomBytes )
{
    const unsigned char lEdges[] = { 0x01, 0x41, 0x7F, 0x80, 0x8F, 0x90, 0x9F, 0xA0, 0xBF, 0xC0,
                                     0xC1, 0xC2, 0xDF, 0xE0, 0xE1, 0xEC, 0xED, 0xEE, 0xEF, 0xF0,
                                     0xF1, 0xF3, 0xF4, 0xF5, 0xF8, 0xFC, 0xFE, 0xFF };
    std::mt19937 lRandom( 20261121 );
    for ( int lCount = 0; lCount < 30000; ++lCount )
    {
        std::string lText;
        const std::size_t lLength = lRandom() % 24;
        while ( lText.size() < lLength )
        {
            const bool lEdge = lRandom() % 4 != 0;
            lText.push_back( static_cast<char>( lEdge ? lEdges[lRandom() % sizeof( lEdges )]
                                                      : 1 + lRandom() % 255 ) );
        }
        ASSERT_NO_FATAL_FAILURE( CheckBytes( lText ) ) << lCount;
    }
}

TEST( PlatformString, EveryCharacterThereAndBack )
{
    constexpr unsigned int BLOCK = 0x400;
    for ( unsigned int lFirst = 0; lFirst < 0x110000; lFirst += BLOCK )
    {
        std::wstring lWide;
        std::wstring lWideAgain;
        std::string lNarrow;
        for ( unsigned int lCharacter = lFirst; lCharacter < lFirst + BLOCK; ++lCharacter )
        {
            if ( lCharacter == 0 )
            {
                continue;
            }
            const bool lSurrogate = lCharacter >= 0xD800 && lCharacter < 0xE000;
            lWide.push_back( static_cast<wchar_t>( lCharacter ) );
            lWideAgain.push_back( lSurrogate ? BAD : static_cast<wchar_t>( lCharacter ) );
            lNarrow += Encode( lSurrogate ? BAD : lCharacter );
        }
        const String lFromWide( lWide.c_str() );
        ASSERT_EQ( lFromWide.GetAscii(), lNarrow );
        ASSERT_EQ( lFromWide.GetUnicode(), lWide );
        ASSERT_EQ( lFromWide.GetLength(), lWide.size() );
        const String lFromNarrow( lNarrow.c_str() );
        ASSERT_EQ( lFromNarrow.GetUnicode(), lWideAgain );
        ASSERT_EQ( lFromNarrow.GetLength(), lWideAgain.size() );
    }
}

TEST( PlatformString, InvalidWideCharactersAreKeptAndReplaced )
{
    const wchar_t lTexts[][2] = { { 0xD800, 0 },
                                  { 0xDFFF, 0 },
                                  { 0x110000, 0 },
                                  { std::numeric_limits<wchar_t>::max(), 0 },
                                  { std::numeric_limits<wchar_t>::min(), 0 },
                                  { static_cast<wchar_t>( -1 ), 0 } };
    for ( const auto& lText : lTexts )
    {
        if ( lText[0] == 0 )
        {
            continue; // where wide characters are unsigned the least of them is the end of a text
        }
        const String lString( lText );
        EXPECT_STREQ( lString.GetAscii(), "\xEF\xBF\xBD" );
        EXPECT_STREQ( lString.GetUnicode(), lText );
        EXPECT_EQ( lString.GetLength(), 1U );
    }
}

TEST( PlatformString, TheGivenFormIsKeptByteForByte )
{
    const char* const lNarrow = "/tmp/\xE9t\xE9-\xC0\x80-\xED\xA0\x80.bin";
    const String lString( lNarrow );
    const String lCopy( lString );
    String lAssigned( "other" );
    lAssigned = lCopy;
    EXPECT_STREQ( lString.GetAscii(), lNarrow );
    EXPECT_STREQ( lCopy.GetAscii(), lNarrow );
    EXPECT_STREQ( lAssigned.GetAscii(), lNarrow );
}

TEST( PlatformString, AppendsTheBytes )
{
    String lString( "\xC3" );
    const String& lReturned = ( lString += String( "\xA9t" ) );
    EXPECT_EQ( &lReturned, &lString );
    EXPECT_STREQ( lString.GetAscii(), "\xC3\xA9t" );
    EXPECT_STREQ( lString.GetUnicode(), L"\u00E9t" ); // the two halves are one character now
    EXPECT_EQ( lString.GetLength(), 2U );
}

TEST( PlatformString, AppendingNothingChangesNothing )
{
    const wchar_t lWide[] = { L'a', 0xD800, 0x110000, 0 };
    const String lNothing[] = { String(), String( "" ), String( L"" ), String( lWide + 3 ) };
    for ( const String& lEmpty : lNothing )
    {
        String lFromWide( lWide );
        String lFromNarrow( "a\xE2\x82" );
        lFromWide += lEmpty;
        lFromNarrow += lEmpty;
        EXPECT_STREQ( lFromWide.GetAscii(), "a\xEF\xBF\xBD\xEF\xBF\xBD" );
        EXPECT_STREQ( lFromWide.GetUnicode(), lWide );
        EXPECT_STREQ( lFromNarrow.GetAscii(), "a\xE2\x82" );
        EXPECT_STREQ( lFromNarrow.GetUnicode(), L"a\xFFFD" );
    }
}

// Two wide file names, one narrow and one wide: whatever was given is there byte for byte.
TEST( PlatformString, AppendingKeepsTheGivenForms )
{
    const wchar_t lFirst[] = { L'a', 0xD800, 0 };
    const wchar_t lSecond[] = { 0xDC00, L'b', 0 };
    String lWide( lFirst );
    lWide += String( lSecond );
    EXPECT_EQ( lWide.GetUnicode(), std::wstring( lFirst ) + lSecond );
    EXPECT_STREQ( lWide.GetAscii(), "a\xEF\xBF\xBD\xEF\xBF\xBD\x62" );

    String lMixed( "\xE9\xE2" );
    lMixed += String( lSecond );
    lMixed += String( "\xFF" );
    EXPECT_EQ( lMixed.GetUnicode(), std::wstring( { BAD, BAD } ) + lSecond + BAD );
    EXPECT_STREQ( lMixed.GetAscii(), "\xE9\xE2\xEF\xBF\xBD\x62\xFF" );

    String lEmpty;
    lEmpty += String( lSecond );
    EXPECT_STREQ( lEmpty.GetUnicode(), lSecond );
}

// Both forms of a text that was put together are those of the same text in one piece.
void CheckPieces( const std::vector<std::string>& aPieces )
{
    std::string lWhole;
    String lString;
    for ( const std::string& lPiece : aPieces )
    {
        lString += String( lPiece.c_str() );
        lWhole += lPiece;
        ASSERT_EQ( lString.GetAscii(), lWhole );
        ASSERT_EQ( lString.GetUnicode(), GetExpectedWide( lWhole ) );
    }
}

TEST( PlatformString, ACharacterAppendedInPiecesIsComplete )
{
    for ( const unsigned int lCharacter : { 0xE9U, 0x20ACU, 0xFFFDU, 0x1F4F7U, 0x10FFFFU } )
    {
        const std::string lBytes = Encode( lCharacter );
        for ( std::size_t lCut = 1; lCut < lBytes.size(); ++lCut )
        {
            const std::string lRest = lBytes.substr( lCut );
            ASSERT_NO_FATAL_FAILURE( CheckPieces( { "a" + lBytes.substr( 0, lCut ), lRest } ) );
            ASSERT_NO_FATAL_FAILURE( CheckPieces( { lBytes.substr( 0, lCut ), lRest + lBytes } ) );
        }
        std::vector<std::string> lSingle = { "a" };
        for ( const char lByte : lBytes + lBytes )
        {
            lSingle.emplace_back( 1, lByte );
        }
        ASSERT_NO_FATAL_FAILURE( CheckPieces( lSingle ) ) << lCharacter;
    }
}

// Every text of up to four bytes from the edges of the list above, cut at every place.
TEST( PlatformString, MalformedTextInPieces )
{
    const std::string lEdges = "\x41\x80\x90\xA0\xC2\xE0\xED\xF0\xF4\xFF";
    std::vector<std::string> lTexts = { "" };
    for ( std::size_t lNext = 0; lNext < lTexts.size() && lTexts[lNext].size() < 4; ++lNext )
    {
        for ( const char lByte : lEdges )
        {
            lTexts.push_back( lTexts[lNext] + lByte );
        }
    }
    for ( const std::string& lText : lTexts )
    {
        for ( std::size_t lCut = 1; lCut < lText.size(); ++lCut )
        {
            ASSERT_NO_FATAL_FAILURE(
                CheckPieces( { lText.substr( 0, lCut ), lText.substr( lCut ) } ) );
        }
        String lTwice( lText.c_str() );
        lTwice += lTwice;
        ASSERT_EQ( lTwice.GetAscii(), lText + lText );
        ASSERT_EQ( lTwice.GetUnicode(), GetExpectedWide( lText + lText ) );
    }
}

// The text that exists already is not converted again: memory is allocated only as the text
// doubles.
TEST( PlatformString, AppendingCopiesOnlyTheAppendedText )
{
    const String lPiece( "\xE2\x82\xAC" );
    String lString;
    const unsigned long long lBefore = TestSupport::GetAllocationCount();
    for ( int lCount = 0; lCount < 10000; ++lCount )
    {
        lString += lPiece;
    }
    EXPECT_LE( TestSupport::GetAllocationCount() - lBefore, 60U );
    EXPECT_EQ( lString.GetLength(), 10000U );
    EXPECT_EQ( lString.GetUnicode(), std::wstring( 10000, 0x20AC ) );
}

TEST( PlatformString, AppendsItself )
{
    String lString( "\xE2\x82\xAC longer than what is kept without an allocation " );
    std::string lExpected = lString.GetAscii();
    for ( int lCount = 0; lCount < 6; ++lCount )
    {
        const String& lSame = lString;
        lString += lSame;
        lExpected += lExpected;
        ASSERT_EQ( lString.GetAscii(), lExpected );
        ASSERT_EQ( lString.GetUnicode(), GetExpectedWide( lExpected ) );
    }
}

TEST( PlatformString, ComparesBytesNotCharacters )
{
    EXPECT_TRUE( String( "abc" ) == String( L"abc" ) );
    EXPECT_FALSE( String( "abc" ) != String( L"abc" ) );
    EXPECT_TRUE( String( "abc" ) != String( "Abc" ) );
    EXPECT_TRUE( String( "abc" ) != String( "abc " ) );
    // Both read as U+FFFD in wide form.
    EXPECT_FALSE( String( "\xFF" ) == String( "\xFE" ) );
    // The same letter, composed and decomposed.
    EXPECT_FALSE( String( "\xC3\xA9" ) == String( "e\xCC\x81" ) );
}

TEST( PlatformString, StorageDoesNotMove )
{
    String lString( "a" );
    const void* const lAscii = lString.GetAsciiStorage();
    const void* const lUnicode = lString.GetUnicodeStorage();
    for ( int lCount = 0; lCount < 12; ++lCount )
    {
        lString += lString;
    }
    EXPECT_EQ( lString.GetAsciiStorage(), lAscii );
    EXPECT_EQ( lString.GetUnicodeStorage(), lUnicode );
    EXPECT_NE( lAscii, lUnicode );
    EXPECT_EQ( lString.GetLength(), 4096U );
}
