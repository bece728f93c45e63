// The values of QmUtilsLib when allocations fail.
#include "tests/support/AllocationRounds.h"

#include <QmUtilsLib/Logger.h>
#include <QmUtilsLib/Result.h>
#include <QmUtilsLib/String.h>

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>

namespace
{

using QmUtilsLib::Logger;
using QmUtilsLib::LogRecord;
using QmUtilsLib::Result;
using QmUtilsLib::String;
using TestSupport::AllocationRounds;

// Texts of which both forms are on the heap.
const char* const TEXT = "a text that is longer than what is kept without an allocation";
const char* const OTHER =
    "another one \xE2\x82\xAC of more than the bytes that a small text may have";

// One with 2000 characters, which fits no buffer of a logger.
const std::string LONG( 2000, 'x' );

// The last message, kept without the heap.
struct LastMessage
{
    std::array<char, 4096> mText = {};
    unsigned int mCount = 0;
};

class PlatformAllocationFailure : public testing::Test
{
protected:
    PlatformAllocationFailure()
    {
        Logger::SetThreshold( 0 );
        Logger::SetSink(
            [this]( const LogRecord& aRecord )
            {
                ++mLast.mCount;
                std::strncpy( mLast.mText.data(), aRecord.mText, mLast.mText.size() - 1 );
            } );
    }

    ~PlatformAllocationFailure() override
    {
        Logger::SetSink( nullptr );
        Logger::SetThreshold( Logger::QUIET );
    }

    LastMessage mLast;
};

TEST_F( PlatformAllocationFailure, AResultKeepsItsCodesWithoutItsText )
{
    const String lText( TEXT );
    AllocationRounds lRounds;
    while ( lRounds.Next() )
    {
        Result lResult;
        EXPECT_FALSE( lRounds.Run( [&] { lResult = Result( 0x4000, 5, lText ); } ) );
        EXPECT_EQ( lResult.GetCode(), 0x4000U );
        EXPECT_EQ( lResult.GetOSCode(), 5U );
        EXPECT_STREQ( lResult.GetDescription().GetAscii(), lRounds.HasFailed() ? "" : TEXT );
    }
    EXPECT_GE( lRounds.GetFailureCount(), 4U );
    EXPECT_EQ( lRounds.GetLeakedCount(), 0 );
}

// Also where nothing has asked for it before.
TEST_F( PlatformAllocationFailure, ADescriptionNeedsNoMemory )
{
    AllocationRounds lRounds;
    while ( lRounds.Next() )
    {
        const Result lResult( 0x4000 );
        const String* lText = nullptr;
        ASSERT_FALSE( lRounds.Run( [&] { lText = &lResult.GetDescription(); } ) );
        EXPECT_STREQ( lText->GetAscii(), "" );
    }
    EXPECT_EQ( lRounds.GetFailureCount(), 0U );
}

TEST_F( PlatformAllocationFailure, ACodeWithoutARoleIsUnnamedWhileMemoryIsMissing )
{
    const Result lResult( 0x00051234 );
    AllocationRounds lRounds;
    while ( lRounds.Next() )
    {
        const char* lName = nullptr;
        ASSERT_FALSE( lRounds.Run( [&] { lName = lResult.GetCodeString(); } ) );
        EXPECT_STREQ( lName, lRounds.HasFailed() ? "UNNAMED" : "0x51234" );
    }
    EXPECT_GE( lRounds.GetFailureCount(), 2U );
}

TEST_F( PlatformAllocationFailure, ALoggedResultKeepsItsCodeAndItsMessage )
{
    const Logger lLogger( "Test", 0 );
    AllocationRounds lRounds;
    while ( lRounds.Next() )
    {
        mLast = LastMessage();
        Result lResult;
        EXPECT_FALSE( lRounds.Run(
            [&] { lResult = lLogger.LogResult( 0x001E, "Unit", 1, "Function", "%s", TEXT ); } ) );
        EXPECT_EQ( lResult.GetCode(), 0x001EU );
        EXPECT_EQ( lResult.GetOSCode(), 0U );
        EXPECT_STREQ( lResult.GetDescription().GetAscii(), lRounds.HasFailed() ? "" : TEXT );
        EXPECT_EQ( mLast.mCount, 1U );
        EXPECT_STREQ( mLast.mText.data(), TEXT );
    }
    EXPECT_GE( lRounds.GetFailureCount(), 6U );
    EXPECT_EQ( lRounds.GetLeakedCount(), 0 );
}

TEST_F( PlatformAllocationFailure, ALongMessageIsCut )
{
    const Logger lLogger( "Test", 0 );
    AllocationRounds lRounds;
    while ( lRounds.Next() )
    {
        mLast = LastMessage();
        EXPECT_FALSE( lRounds.Run(
            [&] { lLogger.Log( 30000, "Unit", 1, "Function", "%s", LONG.c_str() ); } ) );
        EXPECT_EQ( mLast.mCount, 1U );
        EXPECT_STREQ( mLast.mText.data(),
                      LONG.substr( 0, lRounds.HasFailed() ? 255 : 2000 ).c_str() );
    }
    EXPECT_EQ( lRounds.GetFailureCount(), 2U );
    EXPECT_EQ( lRounds.GetLeakedCount(), 0 );
}

TEST_F( PlatformAllocationFailure, TheFirstMessageNeedsNoMemory )
{
    const Logger lLogger( "Test", 0 );
    AllocationRounds lRounds;
    while ( lRounds.Next() )
    {
        EXPECT_FALSE( lRounds.Run( [&] { lLogger.Log( 30000, "Unit", 1, "F", "%s", TEXT ); } ) );
    }
    EXPECT_EQ( lRounds.GetFailureCount(), 0U );
    EXPECT_STREQ( mLast.mText.data(), TEXT );
}

TEST_F( PlatformAllocationFailure, AFailedConstructionLeaksNothing )
{
    AllocationRounds lRounds;
    while ( lRounds.Next() )
    {
        const bool lHasThrown = lRounds.Run(
            []
            {
                const String lNarrow( TEXT );
                const String lWide( lNarrow.GetUnicode() );
                const String lCopy( lWide );
                EXPECT_EQ( lCopy.GetLength(), std::strlen( TEXT ) );
            } );
        EXPECT_EQ( lHasThrown, lRounds.HasFailed() );
    }
    EXPECT_GE( lRounds.GetFailureCount(), 12U );
    EXPECT_EQ( lRounds.GetLeakedCount(), 0 );
}

TEST_F( PlatformAllocationFailure, AFailedReplacementKeepsTheText )
{
    const String lOther( OTHER );
    AllocationRounds lRounds;
    while ( lRounds.Next() )
    {
        String lText( "text" );
        const bool lHasThrown = lRounds.Run( [&] { lText = lOther; } );
        EXPECT_EQ( lHasThrown, lRounds.HasFailed() );
        const String lExpected( lRounds.HasFailed() ? "text" : OTHER );
        EXPECT_STREQ( lText.GetAscii(), lExpected.GetAscii() );
        EXPECT_STREQ( lText.GetUnicode(), lExpected.GetUnicode() );
    }
    EXPECT_GE( lRounds.GetFailureCount(), 4U );
    EXPECT_EQ( lRounds.GetLeakedCount(), 0 );
}

TEST_F( PlatformAllocationFailure, AFailedAppendChangesNothing )
{
    const String lOther( "\x82\xAC, and what is longer than what is kept without an allocation" );
    AllocationRounds lRounds;
    while ( lRounds.Next() )
    {
        String lText( "a euro: \xE2" );
        const bool lHasThrown = lRounds.Run( [&] { lText += lOther; } );
        EXPECT_EQ( lHasThrown, lRounds.HasFailed() );
        if ( lRounds.HasFailed() )
        {
            EXPECT_STREQ( lText.GetAscii(), "a euro: \xE2" );
            EXPECT_STREQ( lText.GetUnicode(), L"a euro: \xFFFD" );
            lText += lOther; // it is still whole
        }
        EXPECT_EQ( std::string( "a euro: \xE2" ) + lOther.GetAscii(), lText.GetAscii() );
        EXPECT_STREQ(
            lText.GetUnicode(),
            L"a euro: \x20AC, and what is longer than what is kept without an allocation" );
    }
    EXPECT_GE( lRounds.GetFailureCount(), 4U );
    EXPECT_EQ( lRounds.GetLeakedCount(), 0 );
}

} // namespace
