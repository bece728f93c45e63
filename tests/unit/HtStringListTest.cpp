#include <HtStringList.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

namespace
{

std::string GetText( const HtString* aItem )
{
    return aItem != nullptr ? aItem->GetAscii() : "(null)";
}

std::vector<std::string> ReadAll( HtStringList& aList )
{
    std::vector<std::string> lTexts;
    for ( const HtString* lItem = aList.GetFirst(); lItem != nullptr; lItem = aList.GetNext() )
    {
        lTexts.emplace_back( lItem->GetAscii() );
    }
    return lTexts;
}

} // namespace

TEST( HtStringListLayout, IsOnePointer )
{
    static_assert( !std::is_polymorphic<HtStringList>::value, "no virtual operations" );
    static_assert( std::is_standard_layout<HtStringList>::value, "a plain field" );
    static_assert( sizeof( HtStringList ) == sizeof( void* ), "one pointer" );
    static_assert( !std::is_copy_constructible<HtStringList>::value, "owns its items" );
    static_assert( !std::is_copy_assignable<HtStringList>::value, "owns its items" );

    const HtStringList lList;
    const void* lThis = nullptr;
    std::memcpy( &lThis, &lList, sizeof( lThis ) );
    EXPECT_NE( lThis, nullptr );
}

TEST( HtStringList, ANewListIsEmpty )
{
    HtStringList lList;
    EXPECT_EQ( lList.GetSize(), 0U );
    EXPECT_EQ( lList.GetNext(), nullptr );
    EXPECT_EQ( lList.GetFirst(), nullptr );
    EXPECT_EQ( lList.GetNext(), nullptr );
    EXPECT_EQ( lList.GetItem( 0 ), nullptr );
    EXPECT_EQ( lList[0], nullptr );
}

TEST( HtStringList, KeepsCopiesInTheirOrder )
{
    HtStringList lList;
    HtString lText( "a" );
    lList.Add( lText );
    lText = HtString( "b" );
    lList.Add( lText );
    lList.Add( HtString( "c" ) );
    lText = HtString( "x" );
    EXPECT_EQ( lList.GetSize(), 3U );
    EXPECT_EQ( ReadAll( lList ), ( std::vector<std::string>{ "a", "b", "c" } ) );
    EXPECT_EQ( ReadAll( lList ), ( std::vector<std::string>{ "a", "b", "c" } ) );
}

TEST( HtStringList, EqualTextsAreDifferentItems )
{
    HtStringList lList;
    lList.Add( HtString( "same" ) );
    lList.Add( HtString( "same" ) );
    EXPECT_EQ( lList.GetSize(), 2U );
    EXPECT_NE( lList.GetItem( 0 ), lList.GetItem( 1 ) );
}

TEST( HtStringList, ItemsAreFoundByTheirPlace )
{
    HtStringList lList;
    for ( const char* const lText : { "a", "b", "c" } )
    {
        lList.Add( HtString( lText ) );
    }
    EXPECT_EQ( GetText( lList.GetItem( 0 ) ), "a" );
    EXPECT_EQ( GetText( lList.GetItem( 1 ) ), "b" );
    EXPECT_EQ( GetText( lList.GetItem( 2 ) ), "c" );
    for ( unsigned int lIndex = 0; lIndex < 3; ++lIndex )
    {
        EXPECT_EQ( lList[lIndex], lList.GetItem( lIndex ) );
    }
}

TEST( HtStringList, BeyondTheEndIsNull )
{
    HtStringList lList;
    lList.Add( HtString( "a" ) );
    lList.Add( HtString( "b" ) );
    for ( const unsigned int lIndex :
          { lList.GetSize(), 3U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU } )
    {
        EXPECT_EQ( lList.GetItem( lIndex ), nullptr ) << lIndex;
        EXPECT_EQ( lList[lIndex], nullptr ) << lIndex;
    }
}

TEST( HtStringList, ReadingEndsWithNullAndStaysThere )
{
    HtStringList lList;
    lList.Add( HtString( "a" ) );
    lList.Add( HtString( "b" ) );
    EXPECT_EQ( GetText( lList.GetFirst() ), "a" );
    EXPECT_EQ( GetText( lList.GetNext() ), "b" );
    for ( int lCount = 0; lCount < 5; ++lCount )
    {
        EXPECT_EQ( lList.GetNext(), nullptr );
    }
    EXPECT_EQ( GetText( lList.GetFirst() ), "a" );
}

TEST( HtStringList, ReadingCanStartAgainAtAnyTime )
{
    HtStringList lList;
    for ( const char* const lText : { "a", "b", "c" } )
    {
        lList.Add( HtString( lText ) );
    }
    EXPECT_EQ( GetText( lList.GetFirst() ), "a" );
    EXPECT_EQ( GetText( lList.GetNext() ), "b" );
    EXPECT_EQ( GetText( lList.GetFirst() ), "a" );
    EXPECT_EQ( GetText( lList.GetFirst() ), "a" );
    EXPECT_EQ( GetText( lList.GetNext() ), "b" );
    EXPECT_EQ( GetText( lList.GetNext() ), "c" );
    EXPECT_EQ( lList.GetNext(), nullptr );
}

TEST( HtStringList, NextWithoutFirstIsNull )
{
    HtStringList lList;
    lList.Add( HtString( "a" ) );
    EXPECT_EQ( lList.GetNext(), nullptr );
    lList.Add( HtString( "b" ) );
    EXPECT_EQ( lList.GetNext(), nullptr );
}

TEST( HtStringList, AddingMovesTheCursorToTheEnd )
{
    HtStringList lList;
    lList.Add( HtString( "a" ) );
    lList.Add( HtString( "b" ) );
    EXPECT_EQ( GetText( lList.GetFirst() ), "a" );
    lList.Add( HtString( "c" ) );
    EXPECT_EQ( lList.GetNext(), nullptr );
    EXPECT_EQ( ReadAll( lList ), ( std::vector<std::string>{ "a", "b", "c" } ) );
}

TEST( HtStringList, ClearingRemovesAllAndMovesTheCursorToTheEnd )
{
    HtStringList lList;
    lList.Add( HtString( "a" ) );
    lList.Add( HtString( "b" ) );
    EXPECT_EQ( GetText( lList.GetFirst() ), "a" );
    lList.Clear();
    EXPECT_EQ( lList.GetSize(), 0U );
    EXPECT_EQ( lList.GetNext(), nullptr );
    EXPECT_EQ( lList.GetFirst(), nullptr );
    EXPECT_EQ( lList.GetItem( 0 ), nullptr );
    lList.Clear();
    lList.Add( HtString( "c" ) );
    EXPECT_EQ( lList.GetNext(), nullptr );
    EXPECT_EQ( ReadAll( lList ), ( std::vector<std::string>{ "c" } ) );
}

TEST( HtStringList, FindingByPlaceKeepsTheCursor )
{
    HtStringList lList;
    for ( const char* const lText : { "a", "b", "c", "d" } )
    {
        lList.Add( HtString( lText ) );
    }
    EXPECT_EQ( GetText( lList.GetFirst() ), "a" );
    EXPECT_EQ( GetText( lList.GetItem( 2 ) ), "c" );
    EXPECT_EQ( GetText( lList.GetNext() ), "b" );
    EXPECT_EQ( GetText( lList[3] ), "d" );
    EXPECT_EQ( lList.GetItem( 99 ), nullptr );
    EXPECT_EQ( lList[99], nullptr );
    EXPECT_EQ( GetText( lList.GetNext() ), "c" );
}

TEST( HtStringList, ItemsStayWhereTheyAre )
{
    HtStringList lList;
    lList.Add( HtString( "first" ) );
    lList.Add( HtString( "second" ) );
    HtString* const lFirst = lList.GetFirst();
    HtString* const lSecond = lList.GetNext();
    const char* const lText = lFirst->GetAscii();
    for ( int lCount = 0; lCount < 1000; ++lCount )
    {
        lList.Add( HtString( "more" ) );
    }
    EXPECT_EQ( lList.GetItem( 0 ), lFirst );
    EXPECT_EQ( lList[1], lSecond );
    EXPECT_EQ( lFirst->GetAscii(), lText );
    EXPECT_EQ( GetText( lFirst ), "first" );
    EXPECT_EQ( GetText( lSecond ), "second" );
    EXPECT_EQ( lList.GetSize(), 1002U );
}

TEST( HtStringList, ChangingAnItemChangesTheList )
{
    HtStringList lList;
    lList.Add( HtString( "a" ) );
    *lList.GetItem( 0 ) += HtString( "!" );
    EXPECT_EQ( GetText( lList.GetFirst() ), "a!" );
    *lList.GetFirst() = HtString( "new" );
    EXPECT_EQ( GetText( lList[0] ), "new" );
}

TEST( HtStringList, AnItemCanBeAddedToItsOwnList )
{
    HtStringList lList;
    lList.Add( HtString( "a" ) );
    for ( int lCount = 0; lCount < 3; ++lCount )
    {
        lList.Add( *lList.GetItem( 0 ) );
    }
    *lList.GetItem( 0 ) = HtString( "changed" );
    EXPECT_EQ( ReadAll( lList ), ( std::vector<std::string>{ "changed", "a", "a", "a" } ) );
}
