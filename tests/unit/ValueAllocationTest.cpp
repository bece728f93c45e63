// The public value types when allocations fail.
#include "tests/support/AllocationRounds.h"

#include <HtResult.h>
#include <HtString.h>
#include <HtStringList.h>
#include <QmUtilsLib/Logger.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace
{

using TestSupport::AllocationRounds;

const char* const TEXT = "a text that is longer than what is kept without an allocation";
const char* const OTHER = "another one of more than the bytes that a small text may have";

std::string GetDescription( const HtResult& aResult )
{
    return aResult.GetDescription().GetAscii();
}

} // namespace

TEST( HtResultAllocation, AResultKeepsItsCodesWithoutItsText )
{
    const HtString lText( TEXT );
    AllocationRounds lRounds;
    while ( lRounds.Next() )
    {
        EXPECT_FALSE( lRounds.Run(
            [&]
            {
                const HtResult lFirst( 0x0010, 5U, lText );
                const HtResult lCopy( lFirst );
                EXPECT_EQ( lFirst.GetCode(), 0x4000U );
                EXPECT_EQ( lFirst.GetInternalCode(), 0x0010U );
                EXPECT_EQ( lFirst.GetOSCode(), 5U );
                EXPECT_EQ( lCopy.GetCode(), 0x4000U );
                EXPECT_EQ( lCopy.GetOSCode(), 5U );
            } ) );
    }
    EXPECT_GE( lRounds.GetFailureCount(), 16U );
    EXPECT_EQ( lRounds.GetLeakedCount(), 0 );
}

TEST( HtResultAllocation, ADescriptionThatIsNotSetIsEmpty )
{
    const HtString lText( TEXT );
    for ( const bool lHasOne : { false, true } )
    {
        AllocationRounds lRounds;
        while ( lRounds.Next() )
        {
            HtResult lResult( 0x001E, 5U );
            if ( lHasOne )
            {
                lResult.SetDescription( HtString( "older" ) );
            }
            EXPECT_FALSE( lRounds.Run( [&] { lResult.SetDescription( lText ); } ) );
            EXPECT_EQ( lResult.GetCode(), 0x001EU );
            EXPECT_EQ( lResult.GetOSCode(), 5U );
            EXPECT_EQ( GetDescription( lResult ), lRounds.HasFailed() ? "" : TEXT );
            lResult.SetDescription( lText ); // now there is memory
            EXPECT_EQ( GetDescription( lResult ), TEXT );
        }
        EXPECT_GE( lRounds.GetFailureCount(), 4U );
        EXPECT_EQ( lRounds.GetLeakedCount(), 0 );
    }
}

// The text of an earlier failure would be a wrong one.
TEST( HtResultAllocation, AnAssignedResultHasTheCodesAndNoOlderText )
{
    const HtResult lFailure( 0x4000, 6U, HtString( TEXT ) );
    AllocationRounds lRounds;
    while ( lRounds.Next() )
    {
        HtResult lResult( 0x001E, 5U, HtString( OTHER ) );
        EXPECT_FALSE( lRounds.Run( [&] { lResult = lFailure; } ) );
        EXPECT_EQ( lResult.GetCode(), 0x4000U );
        EXPECT_EQ( lResult.GetOSCode(), 6U );
        EXPECT_EQ( GetDescription( lResult ), lRounds.HasFailed() ? "" : TEXT );
    }
    EXPECT_GE( lRounds.GetFailureCount(), 4U );
    EXPECT_EQ( lRounds.GetLeakedCount(), 0 );
}

TEST( HtResultAllocation, SettingAndNamingACodeNeedNoMemory )
{
    unsigned int lRecords = 0;
    QmUtilsLib::Logger::SetThreshold( 0 );
    QmUtilsLib::Logger::SetSink( [&lRecords]( const QmUtilsLib::LogRecord& ) { ++lRecords; } );
    AllocationRounds lRounds;
    while ( lRounds.Next() )
    {
        HtResult lResult;
        const char* lName = nullptr;
        EXPECT_FALSE( lRounds.Run(
            [&]
            {
                lResult.SetCode( 0x0010 ); // which is logged
                lName = lResult;
            } ) );
        EXPECT_EQ( lResult.GetCode(), 0x4000U );
        EXPECT_STREQ( lName, "GENERIC_ERROR" );
        EXPECT_EQ( lRecords, 1U );
    }
    EXPECT_EQ( lRounds.GetFailureCount(), 0U );
    QmUtilsLib::Logger::SetSink( nullptr );
    QmUtilsLib::Logger::SetThreshold( QmUtilsLib::Logger::QUIET );
}

TEST( HtResultAllocation, TextsOfAResultMayThrow )
{
    const HtResult lResult( 0x4000, HtString( TEXT ) );
    AllocationRounds lRounds;
    while ( lRounds.Next() )
    {
        const bool lHasThrown = lRounds.Run(
            [&]
            {
                EXPECT_EQ( lResult.GetDescription().GetLength(), std::strlen( TEXT ) );
                EXPECT_STREQ( lResult.GetCodeString().GetAscii(), "GENERIC_ERROR" );
            } );
        EXPECT_EQ( lHasThrown, lRounds.HasFailed() );
        EXPECT_EQ( GetDescription( lResult ), TEXT );
    }
    EXPECT_GE( lRounds.GetFailureCount(), 8U );
    EXPECT_EQ( lRounds.GetLeakedCount(), 0 );
}

TEST( HtStringAllocation, AFailedConstructionLeaksNothing )
{
    AllocationRounds lRounds;
    while ( lRounds.Next() )
    {
        const bool lHasThrown = lRounds.Run(
            []
            {
                const HtString lEmpty;
                const HtString lNarrow( TEXT );
                const HtString lWide( lNarrow.GetUnicode() );
                const HtString lCopy( lWide );
                EXPECT_TRUE( lCopy == TEXT );
            } );
        EXPECT_EQ( lHasThrown, lRounds.HasFailed() );
    }
    EXPECT_GE( lRounds.GetFailureCount(), 24U );
    EXPECT_EQ( lRounds.GetLeakedCount(), 0 );
}

TEST( HtStringAllocation, AFailedChangeKeepsTheText )
{
    const HtString lOther( OTHER );
    for ( const bool lIsAppended : { false, true } )
    {
        AllocationRounds lRounds;
        while ( lRounds.Next() )
        {
            HtString lText( "text " );
            const bool lHasThrown = lRounds.Run(
                [&]
                {
                    if ( lIsAppended )
                        lText += lOther;
                    else
                        lText = lOther;
                } );
            EXPECT_EQ( lHasThrown, lRounds.HasFailed() );
            const HtString lExpected(
                ( std::string( lRounds.HasFailed() || lIsAppended ? "text " : "" ) +
                  ( lRounds.HasFailed() ? "" : OTHER ) )
                    .c_str() );
            EXPECT_STREQ( lText.GetAscii(), lExpected.GetAscii() );
            EXPECT_STREQ( lText.GetUnicode(), lExpected.GetUnicode() );
        }
        EXPECT_GE( lRounds.GetFailureCount(), 4U );
        EXPECT_EQ( lRounds.GetLeakedCount(), 0 );
    }
}

// The list is as it was, its cursor too.
TEST( HtStringListAllocation, AFailedAdditionChangesNothing )
{
    const HtString lText( TEXT );
    AllocationRounds lRounds;
    while ( lRounds.Next() )
    {
        HtStringList lList;
        lList.Add( HtString( "first" ) );
        lList.Add( HtString( "second" ) );
        const HtString* const lFirst = lList.GetFirst();
        const bool lHasThrown = lRounds.Run( [&] { lList.Add( lText ); } );
        EXPECT_EQ( lHasThrown, lRounds.HasFailed() );
        ASSERT_EQ( lList.GetSize(), lRounds.HasFailed() ? 2U : 3U );
        EXPECT_EQ( lList.GetItem( 0 ), lFirst );
        if ( lRounds.HasFailed() )
        {
            EXPECT_EQ( lList.GetNext(), lList.GetItem( 1 ) );
            lList.Add( lText );
        }
        EXPECT_STREQ( lList.GetItem( 2 )->GetAscii(), TEXT );
    }
    EXPECT_GE( lRounds.GetFailureCount(), 8U );
    EXPECT_EQ( lRounds.GetLeakedCount(), 0 );
}

TEST( HtStringListAllocation, AFailedConstructionLeaksNothing )
{
    AllocationRounds lRounds;
    while ( lRounds.Next() )
    {
        const bool lHasThrown = lRounds.Run(
            []
            {
                HtStringList lList;
                EXPECT_EQ( lList.GetFirst(), nullptr );
            } );
        EXPECT_EQ( lHasThrown, lRounds.HasFailed() );
    }
    EXPECT_GE( lRounds.GetFailureCount(), 2U );
    EXPECT_EQ( lRounds.GetLeakedCount(), 0 );
}
