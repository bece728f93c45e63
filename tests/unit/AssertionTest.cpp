// The texts of the assertions of the public value types, and that a release build has none of them.
//
// Each case runs in a child process whose handler prints the text and exits with a status of its
// own, since what comes after a broken precondition is not worth running.

#include <HtResult.h>
#include <HtString.h>
#include <HtStringList.h>
#include <QmUtilsLib/Assert.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <ostream>
#include <string>
#include <vector>

namespace
{

constexpr int ASSERTED = 42; // exit status of a child whose handler was called
constexpr int FINISHED = 43; // exit status of a child that finished

void PrintAndExit( const char* aExpression, const char*, int )
{
    std::fprintf( stderr, "asserted <%s>\n", aExpression );
    _exit( ASSERTED );
}

struct Case
{
    const char* mName;
    const char* mText;
    void ( *mCall )();
};

void PrintTo( const Case& aCase, std::ostream* aStream )
{
    *aStream << aCase.mName;
}

const char* GetNullText()
{
    const char* volatile lNull = nullptr;
    return lNull;
}

const wchar_t* GetNullWideText()
{
    const wchar_t* volatile lNull = nullptr;
    return lNull;
}

class AssertionText : public testing::TestWithParam<Case>
{
protected:
    static void SetUpTestSuite() { testing::FLAGS_gtest_death_test_style = "threadsafe"; }

    // Runs in the child.
    static void Run( const Case& aCase )
    {
        const rlimit lNoCore{ 0, 0 };
        (void)setrlimit( RLIMIT_CORE, &lNoCore ); // a crash here is expected and needs no core file
        (void)QmUtilsLib::SetAssertionHandler( PrintAndExit );
        aCase.mCall();
        _exit( FINISHED );
    }
};

std::string GetName( const testing::TestParamInfo<Case>& aInfo )
{
    return aInfo.param.mName;
}

#if defined( NDEBUG )

bool HandlerWasNotCalled( int aStatus )
{
    return !WIFEXITED( aStatus ) || WEXITSTATUS( aStatus ) != ASSERTED;
}

TEST_P( AssertionText, IsAbsentFromAReleaseBuild )
{
    EXPECT_EXIT( Run( GetParam() ), HandlerWasNotCalled,
                 testing::Not( testing::HasSubstr( "asserted <" ) ) );
}

#else

TEST_P( AssertionText, IsReported )
{
    EXPECT_EXIT( Run( GetParam() ), testing::ExitedWithCode( ASSERTED ),
                 testing::HasSubstr( std::string( "asserted <" ) + GetParam().mText + ">\n" ) );
}

#endif

const Case NULL_TEXT_CASES[] = {
    { "EqualNullText", "aValue != NULL",
      []
      {
          (void)( HtString( "a" ) == GetNullText() );
      } },
    { "EqualNullWideText", "aValue != NULL",
      []
      {
          (void)( HtString( "a" ) == GetNullWideText() );
      } },
    { "UnequalNullText", "aValue != NULL",
      []
      {
          (void)( HtString( "a" ) != GetNullText() );
      } },
    { "UnequalNullWideText", "aValue != NULL",
      []
      {
          (void)( HtString( "a" ) != GetNullWideText() );
      } },
};

INSTANTIATE_TEST_SUITE_P( NullText, AssertionText, testing::ValuesIn( NULL_TEXT_CASES ), GetName );

std::vector<std::string> gTexts;

void Record( const char* aExpression, const char*, int )
{
    gTexts.emplace_back( aExpression );
}

// Where the handler returns, and in release builds, a null text is the empty one.
TEST( NullTexts, ComparesAsTheEmptyText )
{
    gTexts.clear();
    (void)QmUtilsLib::SetAssertionHandler( Record );
    EXPECT_TRUE( HtString() == GetNullText() );
    EXPECT_TRUE( HtString() == GetNullWideText() );
    EXPECT_FALSE( HtString() != GetNullText() );
    EXPECT_FALSE( HtString() != GetNullWideText() );
    EXPECT_FALSE( HtString( "a" ) == GetNullText() );
    EXPECT_FALSE( HtString( "a" ) == GetNullWideText() );
    EXPECT_TRUE( HtString( "a" ) != GetNullText() );
    EXPECT_TRUE( HtString( "a" ) != GetNullWideText() );
    (void)QmUtilsLib::SetAssertionHandler( nullptr );
#if defined( NDEBUG )
    EXPECT_TRUE( gTexts.empty() );
#else
    EXPECT_EQ( gTexts, std::vector<std::string>( 8, "aValue != NULL" ) );
#endif
}

// A string is made from a null text without complaint, and a place beyond the end of a list is
// none.
TEST( NullTexts, NoAssertionWhereNullIsAllowed )
{
    gTexts.clear();
    (void)QmUtilsLib::SetAssertionHandler( Record );
    const HtString lNarrow( GetNullText() );
    const HtString lWide( GetNullWideText() );
    EXPECT_TRUE( lNarrow == lWide );
    HtStringList lList;
    EXPECT_EQ( lList[0], nullptr );
    EXPECT_EQ( lList.GetItem( 0xFFFFFFFF ), nullptr );
    (void)QmUtilsLib::SetAssertionHandler( nullptr );
    EXPECT_TRUE( gTexts.empty() );
}

// Null references and objects that were never constructed: no program for a sanitizer of undefined
// behaviour.
#if !defined( HTBASE_UNDEFINED_BEHAVIOUR_SANITIZER )

template <class T>
T& GetNullReference()
{
    T* volatile lNull = nullptr;
    return *lNull;
}

// An object whose every pointer is null. Its operations are called without its table.
template <class T>
T& GetZeroed()
{
    alignas( T ) static unsigned char sStorage[sizeof( T )] = {};
    unsigned char* volatile lStorage = sStorage;
    return *reinterpret_cast<T*>( lStorage );
}

const char* const NULL_REFERENCE = "( & aValue ) != NULL";
const char* const NULL_OTHER = "aValue.mThis != NULL";
const char* const NULL_THIS = "mThis != NULL";
const char* const NULL_RESULT = "( & aB ) != NULL";

HtString& Text()
{
    static HtString& sText = *new HtString( "a" );
    return sText;
}

const Case RESULT_CASES[] = {
    { "Assign", NULL_RESULT,
      []
      {
          HtResult lResult;
          lResult = GetNullReference<const HtResult>();
      } },
    { "Equal", NULL_RESULT,
      []
      {
          (void)( HtResult() == GetNullReference<const HtResult>() );
      } },
    { "Unequal", NULL_RESULT,
      []
      {
          (void)( HtResult() != GetNullReference<const HtResult>() );
      } },
    { "Accumulate", NULL_RESULT,
      []
      {
          HtResult lResult;
          lResult |= GetNullReference<const HtResult>();
      } },
};

const Case STRING_CASES[] = {
    { "CopyOfNull", NULL_REFERENCE,
      []
      {
          const HtString lCopy( GetNullReference<const HtString>() );
      } },
    { "AssignNull", NULL_REFERENCE,
      []
      {
          Text() = GetNullReference<const HtString>();
      } },
    { "AppendNull", NULL_REFERENCE,
      []
      {
          Text() += GetNullReference<const HtString>();
      } },
    { "EqualNull", NULL_REFERENCE,
      []
      {
          (void)( Text() == GetNullReference<const HtString>() );
      } },
    { "UnequalNull", NULL_REFERENCE,
      []
      {
          (void)( Text() != GetNullReference<const HtString>() );
      } },

    { "CopyOfEmptyShell", NULL_OTHER,
      []
      {
          const HtString lCopy( GetZeroed<HtString>() );
      } },
    { "AssignEmptyShell", NULL_OTHER,
      []
      {
          Text() = GetZeroed<HtString>();
      } },
    { "AppendEmptyShell", NULL_OTHER,
      []
      {
          Text() += GetZeroed<HtString>();
      } },
    { "EqualEmptyShell", NULL_OTHER,
      []
      {
          (void)( Text() == GetZeroed<HtString>() );
      } },
    { "UnequalEmptyShell", NULL_OTHER,
      []
      {
          (void)( Text() != GetZeroed<HtString>() );
      } },

    { "AssignTo", NULL_THIS,
      []
      {
          GetZeroed<HtString>() = Text();
      } },
    { "AppendTo", NULL_THIS,
      []
      {
          GetZeroed<HtString>() += Text();
      } },
    { "Equal", NULL_THIS,
      []
      {
          (void)( GetZeroed<HtString>() == Text() );
      } },
    { "Unequal", NULL_THIS,
      []
      {
          (void)( GetZeroed<HtString>() != Text() );
      } },
    { "EqualText", NULL_THIS,
      []
      {
          (void)( GetZeroed<HtString>() == "a" );
      } },
    { "UnequalText", NULL_THIS,
      []
      {
          (void)( GetZeroed<HtString>() != "a" );
      } },
    { "EqualWideText", NULL_THIS,
      []
      {
          (void)( GetZeroed<HtString>() == L"a" );
      } },
    { "UnequalWideText", NULL_THIS,
      []
      {
          (void)( GetZeroed<HtString>() != L"a" );
      } },
    { "GetAscii", NULL_THIS,
      []
      {
          (void)GetZeroed<HtString>().GetAscii();
      } },
    { "GetUnicode", NULL_THIS,
      []
      {
          (void)GetZeroed<HtString>().GetUnicode();
      } },
    { "ConvertToText", NULL_THIS,
      []
      {
          (void)static_cast<const char*>( GetZeroed<HtString>() );
      } },
    { "ConvertToWideText", NULL_THIS,
      []
      {
          (void)static_cast<const wchar_t*>( GetZeroed<HtString>() );
      } },
    { "GetLength", NULL_THIS,
      []
      {
          (void)GetZeroed<HtString>().GetLength();
      } },
};

const Case LIST_CASES[] = {
    { "Add", NULL_THIS,
      []
      {
          GetZeroed<HtStringList>().Add( Text() );
      } },
    { "Clear", NULL_THIS,
      []
      {
          GetZeroed<HtStringList>().Clear();
      } },
    { "GetSize", NULL_THIS,
      []
      {
          (void)GetZeroed<HtStringList>().GetSize();
      } },
    { "GetItem", NULL_THIS,
      []
      {
          (void)GetZeroed<HtStringList>().GetItem( 0 );
      } },
    { "Subscript", NULL_THIS,
      []
      {
          (void)GetZeroed<HtStringList>()[0];
      } },
    { "GetFirst", NULL_THIS,
      []
      {
          (void)GetZeroed<HtStringList>().GetFirst();
      } },
    { "GetNext", NULL_THIS,
      []
      {
          (void)GetZeroed<HtStringList>().GetNext();
      } },
};

INSTANTIATE_TEST_SUITE_P( Result, AssertionText, testing::ValuesIn( RESULT_CASES ), GetName );
INSTANTIATE_TEST_SUITE_P( String, AssertionText, testing::ValuesIn( STRING_CASES ), GetName );
INSTANTIATE_TEST_SUITE_P( List, AssertionText, testing::ValuesIn( LIST_CASES ), GetName );

#endif

} // namespace
