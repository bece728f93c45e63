#include <HtResult.h>
#include <QmUtilsLib/Logger.h>
#include <QmUtilsLib/Result.h>
#include <QmUtilsLib/Scripted/RecordingLogSink.h>
#include <QmUtilsLib/String.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <map>
#include <new>
#include <random>
#include <set>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace
{

using QmUtilsLib::Result;
using QmUtilsLib::Scripted::RecordingLogSink;

const std::vector<unsigned int> ACCEPTED = {
    0x0000, 0x0001, 0x0004, 0x0006, 0x0013, 0x0014, 0x0015, 0x0017, 0x0018, 0x0019, 0x001A, 0x001B,
    0x001C, 0x001D, 0x001E, 0x0025, 0x0027, 0x0028, 0x0201, 0x0202, 0x0501, 0x0602, 0x0603, 0x0604,
    0x0605, 0x0904, 0x0B00, 0x0B01, 0x0B02, 0x0B03, 0x4000, 0x4001, 0x4002, 0xFFFF };

const std::map<unsigned int, unsigned int> SILENTLY_CONVERTED = { { 0x0012, 0x4001 },
                                                                  { 0x0020, 0x4000 },
                                                                  { 0x0021, 0x4001 },
                                                                  { 0x0022, 0x4000 },
                                                                  { 0x0305, 0x4000 } };

// Neighbours of accepted codes, codes with more than 16 bits, and the value of a destroyed result.
const std::vector<unsigned int> NEAR_MISSES = {
    0x0002, 0x0003, 0x0005, 0x0007, 0x0010, 0x0011,     0x0016,     0x001F,
    0x0023, 0x0024, 0x0026, 0x0029, 0x0200, 0x0203,     0x0304,     0x0306,
    0x0400, 0x0500, 0x0502, 0x0600, 0x0601, 0x0606,     0x0903,     0x0905,
    0x0AFF, 0x0B04, 0x3FFF, 0x4003, 0xFFFE, 0x00010000, 0x00010017, 0xFFFFFFFF };

// The bytes of the object.
struct Layout
{
    unsigned int mCode;
    unsigned int mInternalCode;
    unsigned int mOSCode;
    const void* mDescription;
};

Layout GetLayout( const void* aResult )
{
    Layout lLayout;
    std::memcpy( &lLayout, aResult, sizeof( lLayout ) );
    return lLayout;
}

std::string GetDescription( const HtResult& aResult )
{
    return aResult.GetDescription().GetAscii();
}

template <class T>
using Negated = decltype( !std::declval<T>() );
template <class T>
using Conjunction = decltype( std::declval<T>() && true );
template <class T>
using Choice = decltype( std::declval<T>() ? 1 : 2 );

template <template <class> class Expression, class T, class = void>
struct Compiles : std::false_type
{
};
template <template <class> class Expression, class T>
struct Compiles<Expression, T, std::void_t<Expression<T>>> : std::true_type
{
};

} // namespace

TEST( HtResultLayout, FourFieldsAndNothingElse )
{
    static_assert( sizeof( HtResult ) == sizeof( Layout ), "four fields" );
    static_assert( alignof( HtResult ) == alignof( Layout ), "four fields" );
    static_assert( std::is_standard_layout<HtResult>::value, "plain fields" );
    static_assert( !std::is_polymorphic<HtResult>::value, "no virtual operations" );

    const HtResult lBare( 0x0010, 77U );
    const Layout lBareLayout = GetLayout( &lBare );
    EXPECT_EQ( lBareLayout.mCode, 0x4000U );
    EXPECT_EQ( lBareLayout.mInternalCode, 0x0010U );
    EXPECT_EQ( lBareLayout.mOSCode, 77U );
    EXPECT_EQ( lBareLayout.mDescription, nullptr );

    const HtResult lDescribed( 0x4000, 78U, HtString( "why" ) );
    const void* const lDescription = GetLayout( &lDescribed ).mDescription;
    ASSERT_NE( lDescription, nullptr );
    EXPECT_STREQ( static_cast<const HtString*>( lDescription )->GetAscii(), "why" );
}

// The text conversion would otherwise make a condition compile that always holds.
TEST( HtResultLayout, IsNotABoolean )
{
    static_assert( !std::is_constructible<bool, HtResult>::value, "if ( result )" );
    static_assert( !std::is_constructible<bool, const HtResult&>::value, "if ( result )" );
    static_assert( !Compiles<Negated, const HtResult&>::value, "!result" );
    static_assert( !Compiles<Conjunction, const HtResult&>::value, "result && x" );
    static_assert( !Compiles<Choice, const HtResult&>::value, "result ? x : y" );
    // The same checks of a type that passes them, so that the failures mean something.
    static_assert( Compiles<Negated, const char*>::value, "" );
    static_assert( Compiles<Conjunction, const char*>::value, "" );
    static_assert( Compiles<Choice, const char*>::value, "" );
    static_assert( std::is_convertible<const HtResult&, const char*>::value, "text conversion" );
}

TEST( HtResultLayout, DestructionMarksTheCodeAndClearsTheDescription )
{
    alignas( HtResult ) unsigned char lStorage[sizeof( HtResult )];
    HtResult* const lResult = new ( lStorage ) HtResult( 0x4000, 5U, HtString( "text" ) );
    ASSERT_NE( GetLayout( lStorage ).mDescription, nullptr );
    lResult->~HtResult();

    unsigned char lRest[sizeof( HtResult )];
    for ( std::size_t lIndex = 0; lIndex < sizeof( lStorage ); ++lIndex )
    {
        lRest[lIndex] = static_cast<const volatile unsigned char*>( lStorage )[lIndex];
    }
    EXPECT_EQ( GetLayout( lRest ).mCode, 0x0400U );
    EXPECT_EQ( GetLayout( lRest ).mDescription, nullptr );
}

TEST( HtResultCodes, NamedCodesHaveTheirValues )
{
    static_assert( HtResult::OK == 0x0000, "" );
    static_assert( HtResult::NOT_CONNECTED == 0x0017, "" );
    static_assert( HtResult::TIMEOUT == 0x001E, "" );
    static_assert( HtResult::NOT_SUPPORTED == 0x0604, "" );
    static_assert( HtResult::NOT_INITIALIZED == 0x0605, "" );
    static_assert( HtResult::GENERIC_ERROR == 0x4000, "" );
    static_assert( Result::OK == 0x0000, "" );
    static_assert( Result::NOT_CONNECTED == 0x0017, "" );
    static_assert( Result::TIMEOUT == 0x001E, "" );
    static_assert( Result::NOT_SUPPORTED == 0x0604, "" );
    static_assert( Result::NOT_INITIALIZED == 0x0605, "" );
    static_assert( Result::GENERIC_ERROR == 0x4000, "" );

    EXPECT_TRUE( HtResult( HtResult::OK ).IsOK() );
    for ( const unsigned int lCode :
          { HtResult::NOT_CONNECTED, HtResult::TIMEOUT, HtResult::NOT_SUPPORTED,
            HtResult::NOT_INITIALIZED, HtResult::GENERIC_ERROR } )
    {
        EXPECT_TRUE( HtResult( lCode ).IsFailure() ) << std::hex << lCode;
        EXPECT_EQ( HtResult( lCode ).GetCode(), lCode );
    }
}

TEST( HtResultCodes, AcceptedCodesAreKeptSilently )
{
    ASSERT_EQ( std::set<unsigned int>( ACCEPTED.begin(), ACCEPTED.end() ).size(), 34U );
    const RecordingLogSink lLog;
    for ( const unsigned int lCode : ACCEPTED )
    {
        HtResult lResult;
        lResult.SetCode( lCode );
        EXPECT_EQ( lResult.GetCode(), lCode );
        EXPECT_EQ( lResult.GetInternalCode(), lCode );
    }
    EXPECT_TRUE( lLog.GetEntries().empty() );
}

TEST( HtResultCodes, RetiredCodesBecomeTheirSuccessorsSilently )
{
    const RecordingLogSink lLog;
    for ( const auto& lEntry : SILENTLY_CONVERTED )
    {
        const HtResult lResult( lEntry.first );
        EXPECT_EQ( lResult.GetCode(), lEntry.second ) << std::hex << lEntry.first;
        EXPECT_EQ( lResult.GetInternalCode(), lEntry.first );
    }
    EXPECT_TRUE( lLog.GetEntries().empty() );
}

TEST( HtResultCodes, UnknownCodesBecomeGenericErrorAndAreLogged )
{
    for ( const unsigned int lCode : NEAR_MISSES )
    {
        RecordingLogSink lLog;
        const HtResult lResult( lCode );
        EXPECT_EQ( lResult.GetCode(), 0x4000U );
        EXPECT_EQ( lResult.GetInternalCode(), lCode );

        const std::vector<RecordingLogSink::Entry> lEntries = lLog.GetEntries();
        ASSERT_EQ( lEntries.size(), 1U ) << std::hex << lCode;
        static const char* const DIGITS = "0123456789ABCDEF";
        std::string lText = "0x";
        for ( int lShift = 28; lShift >= 0; lShift -= 4 )
        {
            lText += DIGITS[( lCode >> lShift ) & 0xFU];
        }
        EXPECT_EQ( lEntries[0].mLogger, "HtBaseLib" );
        EXPECT_EQ( lEntries[0].mPriority, 20000 );
        EXPECT_EQ( lEntries[0].mUnit, "Libraries/HtBase/HtResult" );
        EXPECT_GT( lEntries[0].mLine, 0 );
        EXPECT_EQ( lEntries[0].mFunction, "HtResult::SetCode" );
        EXPECT_EQ( lEntries[0].mFormat, "0x%08X converted to GENERIC_ERROR" );
        EXPECT_EQ( lEntries[0].mText, lText + " converted to GENERIC_ERROR" );
    }
}

TEST( HtResultCodes, TheLogNamesTheCodeInCapitalsWithEightDigits )
{
    RecordingLogSink lLog;
    const HtResult lShort( 0x0010 );
    const HtResult lLong( 0xABCDEF01 );
    EXPECT_EQ( lLog.GetTexts(),
               ( std::vector<std::string>{ "0x00000010 converted to GENERIC_ERROR",
                                           "0xABCDEF01 converted to GENERIC_ERROR" } ) );
    EXPECT_EQ( lShort.GetCode(), lLong.GetCode() );
}

TEST( HtResultCodes, UnknownCodesAreConvertedUnloggedBelowTheThreshold )
{
    {
        const RecordingLogSink lQuiet( 20001 );
        const HtResult lResult( 0x0010 );
        EXPECT_EQ( lResult.GetCode(), 0x4000U );
        EXPECT_EQ( lResult.GetInternalCode(), 0x0010U );
        EXPECT_TRUE( lQuiet.GetEntries().empty() );
    }
    const RecordingLogSink lJustEnabled( 20000 );
    const HtResult lResult( 0x0010 );
    EXPECT_EQ( lResult.GetCode(), 0x4000U );
    EXPECT_EQ( lJustEnabled.GetEntries().size(), 1U );
}

// Every code of 16 bits, and as many beyond them: kept, converted silently, or logged once.
TEST( HtResultCodes, EveryCodeIsKeptOrReplacedOrGeneric )
{
    unsigned int lRecords = 0;
    QmUtilsLib::Logger::SetSink( [&lRecords]( const QmUtilsLib::LogRecord& ) { ++lRecords; } );
    QmUtilsLib::Logger::SetThreshold( 0 );
    const std::set<unsigned int> lAccepted( ACCEPTED.begin(), ACCEPTED.end() );
    const auto lCheck = [&]( unsigned int aCode )
    {
        const unsigned int lBefore = lRecords;
        HtResult lResult;
        lResult.SetCode( aCode );
        const bool lIsAccepted = lAccepted.count( aCode ) != 0;
        const auto lSilent = SILENTLY_CONVERTED.find( aCode );
        const bool lIsSilent = lSilent != SILENTLY_CONVERTED.end();
        const unsigned int lExpected = lIsAccepted ? aCode : lIsSilent ? lSilent->second : 0x4000U;
        ASSERT_EQ( lResult.GetCode(), lExpected ) << std::hex << aCode;
        ASSERT_EQ( lResult.GetInternalCode(), aCode );
        ASSERT_EQ( lRecords - lBefore, lIsAccepted || lIsSilent ? 0U : 1U ) << std::hex << aCode;
    };
    std::mt19937 lRandom( 4711 );
    std::uniform_int_distribution<unsigned int> lBeyond( 0x10000,
                                                         std::numeric_limits<unsigned int>::max() );
    for ( unsigned int lCode = 0; lCode <= 0xFFFF; ++lCode )
    {
        lCheck( lCode );
        lCheck( lBeyond( lRandom ) );
    }
    QmUtilsLib::Logger::SetThreshold( QmUtilsLib::Logger::QUIET );
    QmUtilsLib::Logger::SetSink( nullptr );
}

TEST( HtResultCodes, SettingTheCodeLeavesOSCodeAndDescription )
{
    HtResult lResult( 0x4001, 13U, HtString( "kept" ) );
    for ( const unsigned int lCode : { 0x0000U, 0x0012U, 0x0010U, 0x001EU } )
    {
        lResult.SetCode( lCode );
        EXPECT_EQ( lResult.GetInternalCode(), lCode );
        EXPECT_EQ( lResult.GetOSCode(), 13U );
        EXPECT_EQ( GetDescription( lResult ), "kept" );
    }
}

TEST( HtResultConstruction, DefaultIsNotInitialized )
{
    const RecordingLogSink lLog;
    const HtResult lResult;
    EXPECT_EQ( lResult.GetCode(), 0x0605U );
    EXPECT_EQ( lResult.GetInternalCode(), 0U );
    EXPECT_EQ( lResult.GetOSCode(), 0U );
    EXPECT_EQ( lResult.GetDescription().GetLength(), 0U );
    EXPECT_TRUE( lLog.GetEntries().empty() );
}

TEST( HtResultConstruction, FromACode )
{
    const HtResult lResult( 0x0020 );
    EXPECT_EQ( lResult.GetCode(), 0x4000U );
    EXPECT_EQ( lResult.GetInternalCode(), 0x0020U );
    EXPECT_EQ( lResult.GetOSCode(), 0U );
    EXPECT_EQ( GetDescription( lResult ), "" );
}

TEST( HtResultConstruction, FromACodeAndAnOSCode )
{
    const HtResult lResult( 0x0012, 0xFFFFFFFFU );
    EXPECT_EQ( lResult.GetCode(), 0x4001U );
    EXPECT_EQ( lResult.GetInternalCode(), 0x0012U );
    EXPECT_EQ( lResult.GetOSCode(), 0xFFFFFFFFU );
    EXPECT_EQ( GetDescription( lResult ), "" );
}

TEST( HtResultConstruction, FromACodeAndADescription )
{
    const HtResult lResult( 0x0305, HtString( "because" ) );
    EXPECT_EQ( lResult.GetCode(), 0x4000U );
    EXPECT_EQ( lResult.GetInternalCode(), 0x0305U );
    EXPECT_EQ( lResult.GetOSCode(), 0U );
    EXPECT_EQ( GetDescription( lResult ), "because" );
}

TEST( HtResultConstruction, FromACodeAnOSCodeAndADescription )
{
    const HtResult lResult( 0x0021, 111U, HtString( "because" ) );
    EXPECT_EQ( lResult.GetCode(), 0x4001U );
    EXPECT_EQ( lResult.GetInternalCode(), 0x0021U );
    EXPECT_EQ( lResult.GetOSCode(), 111U );
    EXPECT_EQ( GetDescription( lResult ), "because" );
}

// Also an OK result holds the description that it was given itself.
TEST( HtResultConstruction, AnOKResultKeepsItsOwnDescription )
{
    const HtResult lResult( 0x0000, HtString( "fine" ) );
    EXPECT_TRUE( lResult.IsOK() );
    EXPECT_EQ( GetDescription( lResult ), "fine" );
}

TEST( HtResultCopy, ACopyLosesTheInternalCode )
{
    const HtResult lSource( 0x0010, 9U );
    const HtResult lCopy( lSource );
    EXPECT_EQ( lCopy.GetCode(), 0x4000U );
    EXPECT_EQ( lCopy.GetInternalCode(), 0x4000U );
    EXPECT_EQ( lCopy.GetOSCode(), 9U );
    EXPECT_EQ( lSource.GetInternalCode(), 0x0010U );

    HtResult lAssigned;
    lAssigned = lSource;
    EXPECT_EQ( lAssigned.GetCode(), 0x4000U );
    EXPECT_EQ( lAssigned.GetInternalCode(), 0x4000U );
    EXPECT_EQ( lAssigned.GetOSCode(), 9U );
}

TEST( HtResultCopy, AMovedResultIsACopy )
{
    HtResult lSource( 0x0010, 9U, HtString( "text" ) );
    // NOLINTBEGIN(performance-move-const-arg,bugprone-use-after-move): this is what is shown
    const HtResult lMoved( std::move( lSource ) );
    EXPECT_EQ( lMoved.GetInternalCode(), 0x4000U );
    EXPECT_EQ( GetDescription( lMoved ), "text" );
    EXPECT_EQ( lSource.GetInternalCode(), 0x0010U );
    EXPECT_EQ( GetDescription( lSource ), "text" );
    // NOLINTEND(performance-move-const-arg,bugprone-use-after-move)
}

TEST( HtResultCopy, CopyingAndAssigningLogNothing )
{
    std::vector<unsigned int> lCodes = ACCEPTED;
    lCodes.insert( lCodes.end(), NEAR_MISSES.begin(), NEAR_MISSES.end() );
    for ( const unsigned int lCode : lCodes )
    {
        const HtResult lSource( lCode );
        const RecordingLogSink lLog;
        const HtResult lCopy( lSource );
        HtResult lAssigned;
        lAssigned = lSource;
        EXPECT_EQ( lCopy.GetCode(), lSource.GetCode() );
        EXPECT_EQ( lAssigned.GetCode(), lSource.GetCode() );
        EXPECT_TRUE( lLog.GetEntries().empty() ) << std::hex << lCode;
    }
}

TEST( HtResultCopy, TheDescriptionOfAFailureIsCopied )
{
    const HtResult lFailed( 0x4000, 3U, HtString( "broken" ) );
    const HtResult lCopy( lFailed );
    EXPECT_EQ( GetDescription( lCopy ), "broken" );
    HtResult lAssigned( 0x001E, HtString( "older" ) );
    lAssigned = lFailed;
    EXPECT_EQ( GetDescription( lAssigned ), "broken" );

    const HtResult lPending( 0xFFFF, HtString( "running" ) );
    EXPECT_EQ( GetDescription( HtResult( lPending ) ), "running" );
}

TEST( HtResultCopy, TheDescriptionOfAnOKResultIsNotCopied )
{
    const HtResult lOK( 0x0000, 4U, HtString( "fine" ) );
    const HtResult lCopy( lOK );
    EXPECT_TRUE( lCopy.IsOK() );
    EXPECT_EQ( lCopy.GetOSCode(), 4U );
    EXPECT_EQ( GetDescription( lCopy ), "" );
}

TEST( HtResultCopy, AssigningOKKeepsTheOldDescription )
{
    HtResult lResult( 0x4000, 3U, HtString( "what went wrong" ) );
    const HtResult lOK( 0x0000, 4U, HtString( "fine" ) );
    lResult = lOK;
    EXPECT_EQ( lResult.GetCode(), 0U );
    EXPECT_EQ( lResult.GetInternalCode(), 0U );
    EXPECT_EQ( lResult.GetOSCode(), 4U );
    EXPECT_EQ( GetDescription( lResult ), "what went wrong" );
}

TEST( HtResultCopy, AssigningAFailureWithoutDescriptionClearsTheOldOne )
{
    HtResult lResult( 0x4000, HtString( "older" ) );
    lResult = HtResult( 0x001E );
    EXPECT_EQ( lResult.GetCode(), 0x001EU );
    EXPECT_EQ( lResult.GetDescription().GetLength(), 0U );
}

TEST( HtResultCopy, AssignmentToItselfKeepsEverythingButTheInternalCode )
{
    HtResult lResult( 0x0010, 3U, HtString( "kept" ) );
    const HtResult& lSame = lResult;
    const HtResult& lReturned = ( lResult = lSame );
    EXPECT_EQ( &lReturned, &lResult );
    EXPECT_EQ( lResult.GetCode(), 0x4000U );
    EXPECT_EQ( lResult.GetInternalCode(), 0x4000U );
    EXPECT_EQ( lResult.GetOSCode(), 3U );
    EXPECT_EQ( GetDescription( lResult ), "kept" );
}

TEST( HtResultCopy, CopiesHoldDescriptionsOfTheirOwn )
{
    HtResult lSource( 0x4000, HtString( "first" ) );
    HtResult lCopy( lSource );
    HtResult lAssigned;
    lAssigned = lSource;
    EXPECT_NE( GetLayout( &lCopy ).mDescription, GetLayout( &lSource ).mDescription );
    EXPECT_NE( GetLayout( &lAssigned ).mDescription, GetLayout( &lSource ).mDescription );

    lSource.SetDescription( HtString( "second" ) );
    lCopy.SetDescription( HtString( "third" ) );
    EXPECT_EQ( GetDescription( lSource ), "second" );
    EXPECT_EQ( GetDescription( lCopy ), "third" );
    EXPECT_EQ( GetDescription( lAssigned ), "first" );
}

TEST( HtResultDescription, IsCreatedOnceThenReplaced )
{
    HtResult lResult( 0x4000 );
    ASSERT_EQ( GetLayout( &lResult ).mDescription, nullptr );
    lResult.SetDescription( HtString( "one" ) );
    const void* const lDescription = GetLayout( &lResult ).mDescription;
    EXPECT_EQ( GetDescription( lResult ), "one" );
    lResult.SetDescription( HtString( "two" ) );
    EXPECT_EQ( GetDescription( lResult ), "two" );
    EXPECT_EQ( GetLayout( &lResult ).mDescription, lDescription );
}

TEST( HtResultDescription, IsGivenAsACopyAndNeverAsANullText )
{
    HtResult lResult( 0x4000 );
    HtString lNone = lResult.GetDescription();
    ASSERT_NE( lNone.GetAscii(), nullptr );
    ASSERT_NE( lNone.GetUnicode(), nullptr );
    EXPECT_STREQ( lNone.GetAscii(), "" );
    lNone += HtString( "more" );
    EXPECT_EQ( GetDescription( lResult ), "" );

    lResult.SetDescription( HtString( "text" ) );
    HtString lText = lResult.GetDescription();
    lText += HtString( " and more" );
    EXPECT_EQ( GetDescription( lResult ), "text" );
}

TEST( HtResultDescription, IsKeptUnchangedWhateverItContains )
{
    const char* const lText = "100 %s %n %08X \xC3\xA9 \xFF";
    const HtResult lResult( 0x4000, HtString( lText ) );
    EXPECT_EQ( GetDescription( lResult ), lText );
}

TEST( HtResultQueries, TheCodeStringIsThePlatformsName )
{
    for ( const unsigned int lCode : ACCEPTED )
    {
        const HtResult lResult( lCode );
        EXPECT_STREQ( lResult.GetCodeString().GetAscii(), Result( lCode ).GetCodeString() );
        EXPECT_STREQ( static_cast<const char*>( lResult ), Result( lCode ).GetCodeString() );
    }
    EXPECT_STREQ( HtResult( 0x0010 ).GetCodeString().GetAscii(), "GENERIC_ERROR" );
}

TEST( HtResultQueries, TheTextOutlivesTheResult )
{
    const char* lTexts[2];
    {
        const HtResult lNamed( 0x001E );
        const HtResult lUnnamed( 0x0904 );
        lTexts[0] = lNamed;
        lTexts[1] = lUnnamed;
    }
    for ( unsigned int lCode : ACCEPTED ) // whatever is allocated now does not disturb them
    {
        EXPECT_NE( HtResult( lCode ).GetCodeString().GetLength(), 0U );
    }
    EXPECT_STREQ( lTexts[0], "TIMEOUT" );
    EXPECT_STREQ( lTexts[1], "0x0904" );
}

TEST( HtResultQueries, ClassificationFollowsThePlatform )
{
    for ( const unsigned int lCode : ACCEPTED )
    {
        const HtResult lResult( lCode );
        const Result lPlatform( lCode );
        EXPECT_EQ( lResult.IsOK(), lPlatform.IsOK() ) << std::hex << lCode;
        EXPECT_EQ( lResult.IsSuccess(), lPlatform.IsSuccess() ) << std::hex << lCode;
        EXPECT_EQ( lResult.IsPending(), lPlatform.IsPending() ) << std::hex << lCode;
        EXPECT_EQ( lResult.IsFailure(), lPlatform.IsFailure() ) << std::hex << lCode;
        EXPECT_EQ( lResult.IsOK(), lCode == 0 );
        EXPECT_EQ( lResult.IsPending(), lCode == 0xFFFF );
        EXPECT_EQ( lResult.IsFailure(), lCode != 0 && lCode != 0xFFFF );
        EXPECT_EQ( lResult.GetCode(), lPlatform.GetCode() );
    }
}

TEST( HtResultQueries, ComparisonUsesOnlyCodes )
{
    const HtResult lOne( 0x0010, 1U, HtString( "one" ) ); // 0x4000, internally 0x0010
    const HtResult lTwo( 0x4000, 2U, HtString( "two" ) );
    const HtResult lOther( 0x001E, 1U, HtString( "one" ) );
    EXPECT_TRUE( lOne == lTwo );
    EXPECT_FALSE( lOne != lTwo );
    EXPECT_FALSE( lOne == lOther );
    EXPECT_TRUE( lOne != lOther );
}

TEST( HtResultQueries, EveryPairOfCodesComparesByValue )
{
    for ( const unsigned int lLeft : ACCEPTED )
    {
        for ( const unsigned int lRight : ACCEPTED )
        {
            EXPECT_EQ( HtResult( lLeft ) == HtResult( lRight ), lLeft == lRight );
            EXPECT_EQ( HtResult( lLeft ) != HtResult( lRight ), lLeft != lRight );
            EXPECT_EQ( HtResult( lLeft ) == lRight, lLeft == lRight );
            EXPECT_EQ( HtResult( lLeft ) != lRight, lLeft != lRight );
        }
    }
}

TEST( HtResultQueries, ANumberIsComparedWithoutConversion )
{
    const RecordingLogSink lLog( 20001 );
    const HtResult lResult( 0x0010 );
    EXPECT_FALSE( lResult == 0x0010U );
    EXPECT_TRUE( lResult != 0x0010U );
    EXPECT_TRUE( lResult == 0x4000U );
    EXPECT_FALSE( lResult == 0x00014000U );
    EXPECT_TRUE( HtResult( HtResult::OK ) == 0 );
    EXPECT_TRUE( lResult == HtResult::GENERIC_ERROR );
}

TEST( HtResultQueries, ComparingWithANumberLogsNothing )
{
    const HtResult lResult( 0x4000 );
    const RecordingLogSink lLog;
    EXPECT_FALSE( lResult == 0x0010U );
    EXPECT_TRUE( lResult != 0x0010U );
    EXPECT_TRUE( lLog.GetEntries().empty() );
}

TEST( HtResultAccumulation, FollowsThePlatformsRule )
{
    const RecordingLogSink lLog;
    for ( const unsigned int lLeft : ACCEPTED )
    {
        for ( const unsigned int lRight : ACCEPTED )
        {
            Result lPlatform( lLeft );
            lPlatform |= Result( lRight );
            HtResult lResult( lLeft );
            lResult |= HtResult( lRight );
            EXPECT_EQ( lResult.GetCode(), lPlatform.GetCode() ) << std::hex << lLeft << lRight;
        }
    }
    EXPECT_TRUE( lLog.GetEntries().empty() );
}

TEST( HtResultAccumulation, ChangesOnlyTheCode )
{
    HtResult lResult( 0x0000, 5U, HtString( "mine" ) );
    const HtResult lFailed( 0x0010, 6U, HtString( "theirs" ) );
    const HtResult& lReturned = ( lResult |= lFailed );
    static_assert( std::is_same<decltype( lResult |= lFailed ), const HtResult&>::value, "" );
    EXPECT_EQ( &lReturned, &lResult );
    EXPECT_EQ( lResult.GetCode(), 0x4000U );
    EXPECT_EQ( lResult.GetInternalCode(), 0x0000U );
    EXPECT_EQ( lResult.GetOSCode(), 5U );
    EXPECT_EQ( GetDescription( lResult ), "mine" );
}

TEST( HtResultAccumulation, AFailureStaysWithItsInternalCode )
{
    HtResult lResult( 0x0010, 5U );
    lResult |= HtResult( 0x001E, 6U, HtString( "theirs" ) );
    EXPECT_EQ( lResult.GetCode(), 0x4000U );
    EXPECT_EQ( lResult.GetInternalCode(), 0x0010U );
    EXPECT_EQ( lResult.GetOSCode(), 5U );
    EXPECT_EQ( GetDescription( lResult ), "" );
}

// Only the code crosses between the two types, and it comes back unchanged.
TEST( HtResultConversion, TheCodePassesThroughThePlatformsType )
{
    for ( const unsigned int lCode : ACCEPTED )
    {
        const HtResult lPublic( Result( lCode, 12 ).GetCode() );
        EXPECT_EQ( lPublic.GetCode(), lCode );
        EXPECT_EQ( lPublic.GetOSCode(), 0U );
        EXPECT_TRUE( Result( lPublic.GetCode() ) == Result( lCode ) );
    }
}
