#include <QmUtilsLib/Assert.h>

#include <gtest/gtest.h>

#include <csignal>
#include <cstddef>
#include <string>
#include <vector>

namespace
{

using QmUtilsLib::AssertionFailed;
using QmUtilsLib::AssertionHandler;
using QmUtilsLib::SetAssertionHandler;

struct Seen
{
    std::string mExpression;
    std::string mFile;
    int mLine;
};

std::vector<Seen> gSeen;

void Record( const char* aExpression, const char* aFile, int aLine )
{
    gSeen.push_back( { aExpression, aFile, aLine } );
}

void Ignore( const char*, const char*, int ) {}

} // namespace

TEST( Assertions, TheHandlerCanBeReplacedAndRestored )
{
    gSeen.clear();
    const AssertionHandler lDefault = SetAssertionHandler( Record );
    ASSERT_NE( lDefault, nullptr );
    AssertionFailed( "a != b", "File.cpp", 12 );
    EXPECT_EQ( SetAssertionHandler( Ignore ), Record );
    AssertionFailed( "c != d", "File.cpp", 13 );
    EXPECT_EQ( SetAssertionHandler( nullptr ), Ignore );
    EXPECT_EQ( SetAssertionHandler( nullptr ), lDefault );
    ASSERT_EQ( gSeen.size(), 1U );
    EXPECT_EQ( gSeen[0].mExpression, "a != b" );
    EXPECT_EQ( gSeen[0].mFile, "File.cpp" );
    EXPECT_EQ( gSeen[0].mLine, 12 );
}

TEST( Assertions, TheDefaultPrintsAndAborts )
{
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT( AssertionFailed( "a % b != NULL", "File.cpp", 12 ),
                 testing::KilledBySignal( SIGABRT ),
                 "File.cpp:12: assertion failed: a % b != NULL" );
}

TEST( Assertions, TheTextIsTheExactSourceText )
{
    gSeen.clear();
    (void)SetAssertionHandler( Record );
    const int lNumber = 1;
    const void* volatile lPointer = nullptr;
    QMUTILSLIB_ASSERT( lPointer != NULL );
    QMUTILSLIB_ASSERT( ( &lNumber ) == NULL );
    QMUTILSLIB_ASSERT_TEXT( lNumber == 2, "another text" );
    QMUTILSLIB_ASSERT( lNumber == 1 );
    (void)SetAssertionHandler( nullptr );
#if defined( NDEBUG )
    EXPECT_TRUE( gSeen.empty() );
    EXPECT_EQ( lPointer, nullptr );
    EXPECT_EQ( lNumber, 1 );
#else
    ASSERT_EQ( gSeen.size(), 3U );
    EXPECT_EQ( gSeen[0].mExpression, "lPointer != NULL" );
    EXPECT_EQ( gSeen[0].mFile, __FILE__ );
    EXPECT_GT( gSeen[0].mLine, 0 );
    EXPECT_EQ( gSeen[1].mExpression, "( &lNumber ) == NULL" );
    EXPECT_EQ( gSeen[2].mExpression, "another text" );
#endif
}

TEST( Assertions, TheConditionIsEvaluatedOnceOrNotAtAll )
{
    (void)SetAssertionHandler( Ignore );
    int lTimes = 0;
    const auto lCount = [&lTimes]( bool aHolds )
    {
        ++lTimes;
        return aHolds;
    };
    QMUTILSLIB_ASSERT( lCount( true ) );
    QMUTILSLIB_ASSERT( lCount( false ) );
    (void)lCount;
    (void)SetAssertionHandler( nullptr );
#if defined( NDEBUG )
    EXPECT_EQ( lTimes, 0 );
#else
    EXPECT_EQ( lTimes, 2 );
#endif
}
