#include <WdUtilsLib/U3V/U3VGUID.h>

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace
{

using WdUtilsLib::U3V::U3VGUID;

TEST( U3VGUID, IsEmptyUntilSet )
{
    const U3VGUID lGuid;
    EXPECT_TRUE( lGuid.IsEmpty() );
    EXPECT_STREQ( "", lGuid.Get() );
    EXPECT_EQ( 0, lGuid.GetVendorID() );
}

TEST( U3VGUID, KeepsItsTextAndReturnsTheVendor )
{
    const U3VGUID lGuid( "1aB200C0ffee" );
    EXPECT_FALSE( lGuid.IsEmpty() );
    EXPECT_STREQ( "1aB200C0ffee", lGuid.Get() );
    EXPECT_EQ( 0x1AB2, lGuid.GetVendorID() );
    EXPECT_EQ( 0xFFFF, U3VGUID( "FFFFzz-_:!x~" ).GetVendorID() );
    EXPECT_EQ( 0x0009, U3VGUID( "000912345678" ).GetVendorID() );
}

TEST( U3VGUID, TakesExactlyTwelveCharactersOfAnIdentity )
{
    const char* const BAD[] = {
        nullptr,
        "",
        "1",
        "1AB20000001",   // one short
        "1AB2000000012", // one long
        "GAB200000001",  // no digit
        "1AB/00000001",  // one before '0'
        "1AB:00000001",  // one behind '9'
        "1AB@00000001",  // one before 'A'
        "1AB`00000001",  // one before 'a'
        "1AB200 00001",  // a blank
        "1AB2\t0000001",
        "1AB2\x7F"
        "0000001",
        "1AB2\xC3\xA4"
        "000001",
    };
    for ( const char* lText : BAD )
    {
        U3VGUID lGuid( "0123456789AB" );
        EXPECT_FALSE( lGuid.Set( lText ) );
        EXPECT_STREQ( "0123456789AB", lGuid.Get() );
        EXPECT_TRUE( U3VGUID( lText ).IsEmpty() );
    }
}

TEST( U3VGUID, ReadsNoFurtherThanATextThatIsTooLong )
{
    const char lText[13] = { '1', 'A', 'B', '2', '0', '0', '0', '0', '0', '0', '0', '1', '2' };
    U3VGUID lGuid;
    EXPECT_FALSE( lGuid.Set( lText ) ); // no terminator: a sanitizer reports an overrun
}

TEST( U3VGUID, TakesItsOwnText )
{
    U3VGUID lGuid( "0123456789AB" );
    EXPECT_TRUE( lGuid.Set( lGuid.Get() ) );
    EXPECT_STREQ( "0123456789AB", lGuid.Get() );
}

TEST( U3VGUID, IsEmptyAgainOnceCleared )
{
    U3VGUID lGuid( "0123456789AB" );
    lGuid.Clear();
    EXPECT_TRUE( lGuid.IsEmpty() );
    EXPECT_EQ( U3VGUID(), lGuid );
}

TEST( U3VGUID, IsOrderedByItsText )
{
    const U3VGUID lEmpty;
    const U3VGUID lLow( "1AB200000001" );
    const U3VGUID lHigh( "1AB200000002" );
    const U3VGUID lSmallLetters( "1ab200000001" );

    EXPECT_TRUE( lLow == U3VGUID( "1AB200000001" ) );
    EXPECT_FALSE( lLow != U3VGUID( "1AB200000001" ) );
    EXPECT_TRUE( lLow != lHigh );
    EXPECT_TRUE( lLow != lSmallLetters );
    EXPECT_TRUE( lEmpty < lLow );
    EXPECT_TRUE( lLow < lHigh );
    EXPECT_TRUE( lHigh < lSmallLetters );
    EXPECT_FALSE( lHigh < lLow );
    EXPECT_FALSE( lLow < lLow );
    EXPECT_FALSE( lEmpty < lEmpty );
    EXPECT_EQ( 4U, ( std::set<U3VGUID>{ lHigh, lLow, lEmpty, lSmallLetters, lLow } ).size() );
}

} // namespace
