#include "tests/support/AllocationCounter.h"

#include <QmUtilsLib/Result.h>
#include <QmUtilsLib/String.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <set>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace
{

using QmUtilsLib::Result;
using QmUtilsLib::String;

const std::vector<unsigned int> CODES = {
    0x0000,     0x0001,     0x0010,     0x0017,     0x001C,     0x001E,    0x0400,
    0x0604,     0x0605,     0x0904,     0x4000,     0x4001,     0xFFFE,    0xFFFF,
    0x00010000, 0x00010017, 0x0001FFFF, 0x80000000, 0xFFFF0000, 0xFFFFFFFF };

std::string GetText( const Result& aResult )
{
    return aResult.GetDescription().GetAscii();
}

} // namespace

TEST( PlatformResult, DefaultIsNotInitialized )
{
    const Result lResult;
    EXPECT_EQ( lResult.GetCode(), 0x0605U );
    EXPECT_EQ( lResult.GetOSCode(), 0U );
    EXPECT_EQ( GetText( lResult ), "" );
    EXPECT_TRUE( lResult.IsFailure() );
}

TEST( PlatformResult, HoldsAnyCodeUnchanged )
{
    std::vector<unsigned int> lCodes = CODES;
    std::mt19937 lRandom( 1 );
    for ( int lCount = 0; lCount < 10000; ++lCount )
    {
        lCodes.push_back( static_cast<unsigned int>( lRandom() ) );
    }
    for ( unsigned int lCode = 0; lCode <= 0x1FFFF; ++lCode )
    {
        lCodes.push_back( lCode );
    }
    for ( const unsigned int lCode : lCodes )
    {
        ASSERT_EQ( Result( lCode ).GetCode(), lCode );
        ASSERT_EQ( Result( lCode, 7 ).GetCode(), lCode );
    }
}

TEST( PlatformResult, HoldsOSCodeAndDescription )
{
    const Result lTwo( 0x4000, 0xFFFFFFFF );
    EXPECT_EQ( lTwo.GetOSCode(), 0xFFFFFFFFU );
    EXPECT_EQ( GetText( lTwo ), "" );
    const Result lThree( 0x0010, 5, String( "100 %s %n" ) );
    EXPECT_EQ( lThree.GetCode(), 0x0010U );
    EXPECT_EQ( lThree.GetOSCode(), 5U );
    EXPECT_EQ( GetText( lThree ), "100 %s %n" );
    const Result lEmpty( 0x0010, 5, String() );
    EXPECT_EQ( GetText( lEmpty ), "" );
}

TEST( PlatformResult, IsExactlyOneOfSuccessPendingAndFailure )
{
    for ( unsigned int lCode = 0; lCode <= 0x20000; ++lCode )
    {
        const Result lResult( lCode );
        ASSERT_EQ( lResult.IsSuccess(), lCode == 0 );
        ASSERT_EQ( lResult.IsOK(), lCode == 0 );
        ASSERT_EQ( lResult.IsPending(), lCode == 0xFFFF );
        ASSERT_EQ( lResult.IsFailure(), lCode != 0 && lCode != 0xFFFF );
    }
    EXPECT_TRUE( Result( 0xFFFFFFFF ).IsFailure() );
    EXPECT_FALSE( Result( 0xFFFFFFFF ).IsPending() );
}

TEST( PlatformResult, ComparesByCode )
{
    for ( const unsigned int lLeft : CODES )
    {
        for ( const unsigned int lRight : CODES )
        {
            const Result lOne( lLeft, 1, String( "one" ) );
            const Result lTwo( lRight, 2, String( "two" ) );
            EXPECT_EQ( lOne == lTwo, lLeft == lRight );
            EXPECT_EQ( lOne != lTwo, lLeft != lRight );
        }
    }
}

TEST( PlatformResult, AccumulatesAsTheTableSays )
{
    struct Row
    {
        unsigned int mLeft;
        unsigned int mRight;
        unsigned int mExpected;
    };
    const Row lRows[] = {
        { 0x0000, 0x0000, 0x0000 }, // nothing went wrong
        { 0x0000, 0x001E, 0x001E }, // the first failure
        { 0x0000, 0xFFFF, 0xFFFF }, // one still runs
        { 0xFFFF, 0x0000, 0xFFFF }, // a success does not end it
        { 0xFFFF, 0x001E, 0x001E }, // a failure does
        { 0xFFFF, 0xFFFF, 0xFFFF },
        { 0x001E, 0x0000, 0x001E }, // a failure stays
        { 0x001E, 0x0017, 0x001E }, // the first one
        { 0x001E, 0xFFFF, 0x001E },
        { 0x0605, 0x0000, 0x0605 }, // not initialized is a failure
        { 0x00010017, 0x001E, 0x00010017 },
        { 0x0000, 0x00010017, 0x00010017 },
    };
    for ( const Row& lRow : lRows )
    {
        Result lLeft( lRow.mLeft, 1, String( "left" ) );
        const Result lRight( lRow.mRight, 2, String( "right" ) );
        const Result& lReturned = ( lLeft |= lRight );
        EXPECT_EQ( &lReturned, &lLeft );
        EXPECT_EQ( lLeft.GetCode(), lRow.mExpected ) << std::hex << lRow.mLeft << lRow.mRight;
        // OS code and description are those of the code that is left.
        const bool lTaken = lRow.mExpected == lRow.mRight && lRow.mRight != lRow.mLeft;
        if ( lRow.mLeft != lRow.mRight )
        {
            EXPECT_EQ( lLeft.GetOSCode(), lTaken ? 2U : 1U );
            EXPECT_EQ( GetText( lLeft ), lTaken ? "right" : "left" );
        }
    }
}

TEST( PlatformResult, AccumulatesItself )
{
    Result lResult( 0xFFFF, 3, String( "text" ) );
    const Result& lSame = lResult;
    lResult |= lSame;
    EXPECT_TRUE( lResult.IsPending() );
    EXPECT_EQ( GetText( lResult ), "text" );
}

TEST( PlatformResult, NamesTheCodesWhoseRoleIsKnown )
{
    const std::map<unsigned int, std::string> lNames = { { 0x0000, "OK" },
                                                         { 0x0001, "ABORTED" },
                                                         { 0x0017, "NOT_CONNECTED" },
                                                         { 0x001C, "BUSY" },
                                                         { 0x001E, "TIMEOUT" },
                                                         { 0x0604, "NOT_SUPPORTED" },
                                                         { 0x0605, "NOT_INITIALIZED" },
                                                         { 0x4000, "GENERIC_ERROR" },
                                                         { 0xFFFF, "PENDING" } };
    for ( const auto& lEntry : lNames )
    {
        EXPECT_EQ( Result( lEntry.first ).GetCodeString(), lEntry.second );
    }
}

TEST( PlatformResult, NamesOtherCodesByTheirNumber )
{
    EXPECT_STREQ( Result( 0x0904 ).GetCodeString(), "0x0904" );
    EXPECT_STREQ( Result( 0x0B03 ).GetCodeString(), "0x0B03" );
    EXPECT_STREQ( Result( 0xFFFE ).GetCodeString(), "0xFFFE" );
    EXPECT_STREQ( Result( 0x00010017 ).GetCodeString(), "0x10017" );
    EXPECT_STREQ( Result( 0xFFFFFFFF ).GetCodeString(), "0xFFFFFFFF" );
}

TEST( PlatformResult, NamesStayValidAfterTheirResults )
{
    std::map<unsigned int, const char*> lNames;
    for ( const unsigned int lCode : CODES )
    {
        lNames[lCode] = Result( lCode ).GetCodeString();
    }
    for ( unsigned int lCode = 0; lCode < 2000; ++lCode )
    {
        ASSERT_STRNE( Result( lCode ).GetCodeString(), "" );
    }
    for ( const auto& lEntry : lNames )
    {
        EXPECT_EQ( Result( lEntry.first ).GetCodeString(), lEntry.second );
        EXPECT_STRNE( lEntry.second, "" );
    }
}

// A program may ask for the names of all codes that there are.
// Takes the names that the process has left, so it runs in a process of its own.
void TakeAllNames()
{
    constexpr unsigned int FIRST = 0x20000;
    std::vector<std::string> lNames;
    while ( lNames.size() < 6000 )
    {
        const auto lCode = FIRST + static_cast<unsigned int>( lNames.size() );
        lNames.emplace_back( Result( lCode ).GetCodeString() );
    }
    const auto lUnnamed = std::find( lNames.begin(), lNames.end(), "UNNAMED" );
    const auto lCount = static_cast<unsigned int>( lUnnamed - lNames.begin() );
    EXPECT_LE( lCount, 4096U );
    EXPECT_GE( lCount, 4096U - 2100U ); // other tests of the process may have asked for some
    EXPECT_EQ( lNames[1], "0x20001" );
    EXPECT_EQ( std::set<std::string>( lNames.begin(), lUnnamed ).size(), lCount );
    EXPECT_EQ( std::set<std::string>( lUnnamed, lNames.end() ).size(), 1U );
    for ( unsigned int lIndex = 0; lIndex < lNames.size(); ++lIndex )
    {
        ASSERT_EQ( Result( FIRST + lIndex ).GetCodeString(), lNames[lIndex] );
    }
    EXPECT_STREQ( Result( 0x001E ).GetCodeString(), "TIMEOUT" );
}

TEST( PlatformResult, NamesNoMoreThan4096CodesByTheirNumber )
{
    EXPECT_EXIT(
        {
            TakeAllNames();
            std::exit( testing::Test::HasFailure() ? 1 : 0 );
        },
        testing::ExitedWithCode( 0 ), "" );
}

TEST( PlatformResult, CopiesShareTheDescriptionAndOutliveEachOther )
{
    auto lFirst = std::make_unique<Result>( 0x4000, 1, String( "a description of some length" ) );
    const Result lCopy( *lFirst );
    Result lAssigned;
    lAssigned = *lFirst;
    EXPECT_EQ( &lCopy.GetDescription(), &lFirst->GetDescription() );
    lFirst.reset();
    EXPECT_EQ( GetText( lCopy ), "a description of some length" );
    EXPECT_EQ( GetText( lAssigned ), "a description of some length" );
    lAssigned = Result( 0x001E );
    EXPECT_EQ( GetText( lAssigned ), "" );
    EXPECT_EQ( GetText( lCopy ), "a description of some length" );
}

TEST( PlatformResult, AllocatesNothingWithoutADescription )
{
    (void)Result().GetDescription(); // whatever is made once is made now
    unsigned int lSum = 0;
    const unsigned long long lBefore = TestSupport::GetAllocationCount();
    for ( unsigned int lCode = 0; lCode < 1000; ++lCode )
    {
        Result lResult( lCode, lCode );
        const Result lCopy( lResult );
        Result lAssigned;
        lAssigned = lCopy;
        lAssigned |= lCopy;
        const Result lMoved( std::move( lResult ) );
        const Result lEmpty( lCode, 1, String() );
        lSum += lAssigned.GetCode() + lMoved.GetOSCode() + lCopy.GetDescription().GetLength() +
                lEmpty.GetDescription().GetLength();
    }
    const unsigned long long lAfter = TestSupport::GetAllocationCount();
    EXPECT_EQ( lAfter, lBefore );
    EXPECT_NE( lSum, 0U );

    const Result lDescribed( 0x4000, 0, String( "text" ) ); // so the counter counts
    EXPECT_GT( TestSupport::GetAllocationCount(), lAfter );
    const unsigned long long lShared = TestSupport::GetAllocationCount();
    const Result lCopy( lDescribed );
    EXPECT_EQ( TestSupport::GetAllocationCount(), lShared );
    EXPECT_EQ( GetText( lCopy ), "text" );
}
