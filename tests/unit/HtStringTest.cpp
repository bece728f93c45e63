#include <HtString.h>
#include <QmUtilsLib/String.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <memory>
#include <new>
#include <string>
#include <type_traits>

namespace
{

// The bytes of the object.
struct Layout
{
    const void* mTable;
    const void* mThis;
    const void* mAsciiView;
    const void* mUnicodeView;
};

Layout GetLayout( const void* aString )
{
    Layout lLayout;
    std::memcpy( &lLayout, aString, sizeof( lLayout ) );
    return lLayout;
}

// Adds one virtual operation, to see its place in the table.
class Extended : public HtString
{
public:
    virtual int GetNumber() { return 1; }
};

const char* const EACUTE = "\xC3\xA9"; // U+00E9 in UTF-8

} // namespace

TEST( HtStringLayout, IsATableAndThreePointers )
{
    static_assert( std::is_polymorphic<HtString>::value, "the destructor is virtual" );
    static_assert( std::has_virtual_destructor<HtString>::value, "the destructor is virtual" );
    static_assert( sizeof( HtString ) == sizeof( Layout ), "three pointers and the table" );
    static_assert( alignof( HtString ) == alignof( Layout ), "three pointers and the table" );

    const HtString lString( "text" );
    const Layout lLayout = GetLayout( &lString );
    ASSERT_NE( lLayout.mThis, nullptr );
    EXPECT_STREQ( static_cast<const QmUtilsLib::String*>( lLayout.mThis )->GetAscii(), "text" );
}

// A virtual destructor takes two entries of the table, so the first operation of a derived class is
// entry 2 if the destructor is the only virtual operation. The place of an operation is part of its
// pointer: the offset in the table, plus 1 on most processors.
TEST( HtStringLayout, TheDestructorIsTheOnlyVirtualOperation )
{
    int ( Extended::*lOperation )() = &Extended::GetNumber;
    std::ptrdiff_t lOffset = 0;
    static_assert( sizeof( lOperation ) == 2 * sizeof( lOffset ), "offset and adjustment" );
    std::memcpy( &lOffset, &lOperation, sizeof( lOffset ) );
    const auto lEntry = static_cast<std::size_t>( lOffset ) / sizeof( void* );
    EXPECT_EQ( lEntry, 2U );
    Extended lExtended;
    EXPECT_EQ( ( lExtended.*lOperation )(), 1 );
}

TEST( HtStringLayout, IsDestroyedThroughItsBase )
{
    class Watching : public HtString
    {
    public:
        explicit Watching( bool& aDestroyed )
            : mDestroyed( aDestroyed )
        {
        }
        ~Watching() override { mDestroyed = true; }

    private:
        bool& mDestroyed;
    };
    bool lDestroyed = false;
    std::unique_ptr<HtString> lString = std::make_unique<Watching>( lDestroyed );
    lString.reset();
    EXPECT_TRUE( lDestroyed );
}

TEST( HtStringLayout, EveryConstructorSetsTheViews )
{
    const HtString lEmpty;
    const HtString lNarrow( "text" );
    const HtString lWide( L"text" );
    const HtString lNull( static_cast<const char*>( nullptr ) );
    const HtString lWideNull( static_cast<const wchar_t*>( nullptr ) );
    const HtString lCopy( lNarrow );
    const HtString lLong( std::string( 1000, 'x' ).c_str() ); // its characters are on the heap
    for ( const HtString* const lString :
          { &lEmpty, &lNarrow, &lWide, &lNull, &lWideNull, &lCopy, &lLong } )
    {
        const Layout lLayout = GetLayout( lString );
        ASSERT_NE( lLayout.mThis, nullptr );
        const auto lBegin = reinterpret_cast<std::uintptr_t>( lLayout.mThis );
        const auto lEnd = lBegin + sizeof( QmUtilsLib::String );
        for ( const void* const lView : { lLayout.mAsciiView, lLayout.mUnicodeView } )
        {
            const auto lAddress = reinterpret_cast<std::uintptr_t>( lView );
            EXPECT_GE( lAddress, lBegin );
            EXPECT_LT( lAddress, lEnd );
        }
        EXPECT_NE( lLayout.mAsciiView, lLayout.mUnicodeView );
    }
    EXPECT_NE( GetLayout( &lCopy ).mThis, GetLayout( &lNarrow ).mThis );
}

TEST( HtStringLayout, TheViewsStayThroughEveryChange )
{
    HtString lString( "a" );
    const Layout lBefore = GetLayout( &lString );
    for ( int lCount = 0; lCount < 20; ++lCount )
    {
        lString += lString;
    }
    lString = HtString( "another" );
    EXPECT_EQ( GetLayout( &lString ).mThis, lBefore.mThis );
    EXPECT_EQ( GetLayout( &lString ).mAsciiView, lBefore.mAsciiView );
    EXPECT_EQ( GetLayout( &lString ).mUnicodeView, lBefore.mUnicodeView );
}

TEST( HtStringLayout, DestructionClearsAllPointers )
{
    alignas( HtString ) unsigned char lStorage[sizeof( HtString )];
    HtString* const lString = new ( lStorage ) HtString( "text" );
    ASSERT_NE( GetLayout( lStorage ).mThis, nullptr );
    lString->~HtString();

    unsigned char lRest[sizeof( HtString )];
    for ( std::size_t lIndex = 0; lIndex < sizeof( lStorage ); ++lIndex )
    {
        lRest[lIndex] = static_cast<const volatile unsigned char*>( lStorage )[lIndex];
    }
    EXPECT_EQ( GetLayout( lRest ).mThis, nullptr );
    EXPECT_EQ( GetLayout( lRest ).mAsciiView, nullptr );
    EXPECT_EQ( GetLayout( lRest ).mUnicodeView, nullptr );
}

TEST( HtStringConstruction, DefaultIsEmpty )
{
    const HtString lString;
    EXPECT_EQ( lString.GetLength(), 0U );
    EXPECT_STREQ( lString.GetAscii(), "" );
    EXPECT_STREQ( lString.GetUnicode(), L"" );
}

TEST( HtStringConstruction, ANullTextIsEmpty )
{
    const HtString lNarrow( static_cast<const char*>( nullptr ) );
    const HtString lWide( static_cast<const wchar_t*>( nullptr ) );
    for ( const HtString* const lString : { &lNarrow, &lWide } )
    {
        EXPECT_EQ( lString->GetLength(), 0U );
        EXPECT_STREQ( lString->GetAscii(), "" );
        EXPECT_STREQ( lString->GetUnicode(), L"" );
    }
}

TEST( HtStringConstruction, TextsAreCopied )
{
    char lNarrowText[] = "narrow";
    wchar_t lWideText[] = L"wide";
    const HtString lNarrow( lNarrowText );
    const HtString lWide( lWideText );
    std::strcpy( lNarrowText, "xxxxxx" );
    std::wcscpy( lWideText, L"xxxx" );
    EXPECT_STREQ( lNarrow.GetAscii(), "narrow" );
    EXPECT_STREQ( lWide.GetUnicode(), L"wide" );
}

TEST( HtStringConstruction, CopiesAreIndependent )
{
    HtString lSource( "one" );
    HtString lCopy( lSource );
    lSource += HtString( " more" );
    EXPECT_STREQ( lCopy.GetAscii(), "one" );
    lCopy = HtString( "other" );
    EXPECT_STREQ( lSource.GetAscii(), "one more" );
    EXPECT_STREQ( lCopy.GetAscii(), "other" );
}

TEST( HtStringForms, SevenBitTextReadsTheSameInBoth )
{
    std::string lNarrowText;
    std::wstring lWideText;
    for ( int lCharacter = 1; lCharacter < 128; ++lCharacter )
    {
        lNarrowText.push_back( static_cast<char>( lCharacter ) );
        lWideText.push_back( static_cast<wchar_t>( lCharacter ) );
    }
    const HtString lNarrow( lNarrowText.c_str() );
    const HtString lWide( lWideText.c_str() );
    for ( const HtString* const lString : { &lNarrow, &lWide } )
    {
        EXPECT_EQ( lString->GetAscii(), lNarrowText );
        EXPECT_EQ( lString->GetUnicode(), lWideText );
        EXPECT_EQ( lString->GetLength(), 127U );
    }
    EXPECT_TRUE( lNarrow == lWide );
}

TEST( HtStringForms, ConversionsGiveTheSameTextsAsTheQueries )
{
    const HtString lString( EACUTE );
    const char* const lNarrow = lString;
    const wchar_t* const lWide = lString;
    EXPECT_EQ( lNarrow, lString.GetAscii() );
    EXPECT_EQ( lWide, lString.GetUnicode() );
    EXPECT_STREQ( lNarrow, EACUTE );
    EXPECT_STREQ( lWide, L"\u00E9" );
    EXPECT_EQ( lString.GetLength(), 1U );
}

TEST( HtStringForms, ReturnedTextsStayUntilTheStringChanges )
{
    HtString lString( "a text that is longer than what a string keeps inside itself" );
    const char* const lNarrow = lString.GetAscii();
    const wchar_t* const lWide = lString.GetUnicode();
    const HtString lCopy( lString );
    EXPECT_TRUE( lCopy == lString );
    EXPECT_NE( lCopy.GetAscii(), lNarrow );
    EXPECT_EQ( lString.GetAscii(), lNarrow );
    EXPECT_EQ( lString.GetUnicode(), lWide );
    EXPECT_STREQ( lNarrow, lCopy.GetAscii() );
    EXPECT_STREQ( lWide, lCopy.GetUnicode() );
}

TEST( HtStringForms, BothAreUpToDateAfterAssignment )
{
    HtString lString( "before" );
    static_assert( std::is_same<decltype( lString = lString ), const HtString&>::value, "" );
    const HtString& lReturned = ( lString = HtString( L"\u00E9" ) );
    EXPECT_EQ( &lReturned, &lString );
    EXPECT_STREQ( lString.GetAscii(), EACUTE );
    EXPECT_STREQ( lString.GetUnicode(), L"\u00E9" );
    EXPECT_EQ( lString.GetLength(), 1U );
}

TEST( HtStringForms, BothAreUpToDateAfterAppending )
{
    HtString lString( L"caf" );
    static_assert( std::is_same<decltype( lString += lString ), const HtString&>::value, "" );
    const HtString& lReturned = ( lString += HtString( EACUTE ) );
    EXPECT_EQ( &lReturned, &lString );
    EXPECT_STREQ( lString.GetAscii(), "caf\xC3\xA9" );
    EXPECT_STREQ( lString.GetUnicode(), L"caf\u00E9" );
    EXPECT_EQ( lString.GetLength(), 4U );
}

TEST( HtStringChange, AssignmentToItselfKeepsTheText )
{
    HtString lString( "kept" );
    const HtString& lSame = lString;
    lString = lSame;
    EXPECT_STREQ( lString.GetAscii(), "kept" );
    EXPECT_STREQ( lString.GetUnicode(), L"kept" );
}

TEST( HtStringChange, AppendingToItselfDoublesTheText )
{
    HtString lString( "a text that is long enough to be moved " );
    const std::string lOnce = lString.GetAscii();
    lString += lString;
    EXPECT_EQ( lString.GetAscii(), lOnce + lOnce );
    EXPECT_EQ( lString.GetLength(), 2 * lOnce.size() );
}

TEST( HtStringChange, AppendingNothingChangesNothing )
{
    HtString lString( "text" );
    lString += HtString();
    EXPECT_STREQ( lString.GetAscii(), "text" );
    HtString lEmpty;
    lEmpty += lString;
    EXPECT_STREQ( lEmpty.GetAscii(), "text" );
}

TEST( HtStringComparison, IsExactAndCaseSensitive )
{
    const HtString lString( "Text" );
    struct Row
    {
        const char* mNarrow;
        const wchar_t* mWide;
        bool mEqual;
    };
    for ( const Row& lRow :
          { Row{ "Text", L"Text", true }, Row{ "text", L"text", false },
            Row{ "Text ", L"Text ", false }, Row{ "Tex", L"Tex", false }, Row{ "", L"", false } } )
    {
        EXPECT_EQ( lString == HtString( lRow.mNarrow ), lRow.mEqual ) << lRow.mNarrow;
        EXPECT_EQ( lString != HtString( lRow.mNarrow ), !lRow.mEqual ) << lRow.mNarrow;
        EXPECT_EQ( lString == lRow.mNarrow, lRow.mEqual ) << lRow.mNarrow;
        EXPECT_EQ( lString != lRow.mNarrow, !lRow.mEqual ) << lRow.mNarrow;
        EXPECT_EQ( lString == lRow.mWide, lRow.mEqual ) << lRow.mNarrow;
        EXPECT_EQ( lString != lRow.mWide, !lRow.mEqual ) << lRow.mNarrow;
    }
}

TEST( HtStringComparison, FollowsThePlatform )
{
    const char* const lTexts[] = { "",     "a",         "A",    "ab",
                                   EACUTE, "e\xCC\x81", "\xFF", "\xEF\xBF\xBD" };
    for ( const char* const lLeft : lTexts )
    {
        for ( const char* const lRight : lTexts )
        {
            const bool lEqual = QmUtilsLib::String( lLeft ) == QmUtilsLib::String( lRight );
            EXPECT_EQ( HtString( lLeft ) == HtString( lRight ), lEqual );
            EXPECT_EQ( HtString( lLeft ) != HtString( lRight ), !lEqual );
        }
    }
}
