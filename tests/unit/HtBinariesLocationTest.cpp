// The location of the library, on a system whose paths a test sets.

#include <HtBinariesLocation.h>

#include "Libraries/HtBase/Location/ModulePath.h"

#include "tests/support/AllocationCounter.h"

#include <HtBase/Scripted/ModulePath.h>
#include <QmUtilsLib/Scripted/RecordingLogSink.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <string>
#include <type_traits>
#include <vector>

using HtBaseLib::CutFileName;
using HtBaseLib::EnterModule;
using HtBaseLib::GetModule;
using HtBaseLib::MODULE_ATTACHED;
using HtBaseLib::Scripted::SetModulePathBody;

namespace
{

constexpr unsigned int PATH_SIZE = 4096;
constexpr const char* UNTOUCHED = "as it was";

// The questions to the system.
struct Question
{
    const void* mModule;
    unsigned int mSize;
};

class Location : public testing::Test
{
protected:
    ~Location() override
    {
        (void)EnterModule( nullptr, MODULE_ATTACHED ); // always true
        SetModulePathBody( nullptr );
    }

    // The system returns this path, cut to the buffer and without a zero after it.
    void SetPath( const std::string& aPath )
    {
        SetModulePathBody(
            [this, aPath]( const void* aModule, char* aBuffer, unsigned int aSize )
            {
                mQuestions.push_back( { aModule, aSize } );
                const size_t lLength = std::min<size_t>( aPath.size(), aSize );
                std::memset( aBuffer, '\\', aSize ); // bytes after the path are not part of it
                std::memcpy( aBuffer, aPath.data(), lLength );
                return static_cast<unsigned int>( lLength );
            } );
    }

    void Ask( unsigned int aCode, const char* aLocation )
    {
        HtString lLocation( UNTOUCHED );
        EXPECT_EQ( HtBinariesLocation( lLocation ).GetCode(), aCode );
        EXPECT_STREQ( lLocation.GetAscii(), aLocation );
    }

    void ExpectFound( const std::string& aPath, const char* aLocation )
    {
        SetPath( aPath );
        Ask( HtResult::OK, aLocation );
    }

    void ExpectNotFound( const std::string& aPath )
    {
        SetPath( aPath );
        Ask( 0x0019, UNTOUCHED );
    }

    std::vector<Question> mQuestions;
};

} // namespace

TEST_F( Location, IsUnknownWithoutMemory )
{
    // Too long to be stored in a text itself.
    SetPath( "C:\\A directory of many characters\\and another\\module.dll" );
    unsigned int lNumber = 0;
    for ( bool lHasFailed = true; lHasFailed; )
    {
        HtString lLocation( UNTOUCHED );
        mQuestions.reserve( 64 ); // which is not the library's business
        HtResult lResult;
        {
            const TestSupport::AllocationFailure lFailure( ++lNumber );
            lResult = HtBinariesLocation( lLocation );
            lHasFailed = lFailure.HasHappened();
        }
        EXPECT_EQ( lResult.GetCode(), lHasFailed ? 0x4000U : 0U );
        EXPECT_EQ( lResult.GetOSCode(), lHasFailed ? static_cast<unsigned int>( ENOMEM ) : 0U );
    }
    EXPECT_GT( lNumber, 2U );
}

TEST_F( Location, IsAFreeFunctionOutsideNamespaces )
{
    static_assert( std::is_same_v<decltype( ::HtBinariesLocation ), HtResult( HtString& )> );
}

TEST_F( Location, IsTheDirectoryOfTheModule )
{
    ExpectFound( "C:\\Kit\\bin\\module.dll", "C:\\Kit\\bin" );
}

TEST_F( Location, HasNoTrailingSeparatorEvenInARootDirectory )
{
    ExpectFound( "C:\\module.dll", "C:" );
}

TEST_F( Location, KeepsForwardSlashesAndOtherCharactersOfAName )
{
    ExpectFound( "C:/a\\b.dll", "C:/a" );
    ExpectFound( "C:\\a/b.dll", "C:" );
    ExpectFound( "\\\\server\\share\\my kit\\\xC3\xA4.dll", "\\\\server\\share\\my kit" );
    ExpectFound( "C:\\Kit\\bin\\\\module.dll", "C:\\Kit\\bin\\" ); // one separator, the last
}

TEST_F( Location, IsNotFoundWithoutASeparator )
{
    ExpectNotFound( "module.dll" );
    ExpectNotFound( "/usr/lib/libmodule.so" );
}

TEST_F( Location, IsNotFoundIfTheSystemKnowsNoPath )
{
    ExpectNotFound( "" );
    SetModulePathBody( nullptr );
    Ask( 0x0019, UNTOUCHED );
}

TEST_F( Location, AsksForTheLoadedModuleWithSpaceFor4096Characters )
{
    int lModule = 0;
    (void)EnterModule( &lModule, MODULE_ATTACHED ); // always true
    SetPath( "C:\\module.dll" );
    Ask( HtResult::OK, "C:" );
    Ask( HtResult::OK, "C:" );
    ASSERT_EQ( mQuestions.size(), 2U ); // nothing is kept: the system is asked each time
    for ( const Question& lQuestion : mQuestions )
    {
        EXPECT_EQ( lQuestion.mModule, &lModule );
        EXPECT_EQ( lQuestion.mSize, PATH_SIZE );
    }
}

TEST_F( Location, AcceptsAPathThatFillsTheBuffer )
{
    const std::string lDirectory = "C:\\" + std::string( PATH_SIZE - 3 - 8, 'd' );
    ASSERT_EQ( ( lDirectory + "\\mod.dll" ).size(), PATH_SIZE );
    ExpectFound( lDirectory + "\\mod.dll", lDirectory.c_str() );
    // One that is longer is cut, where its end is not known.
    ExpectFound( lDirectory + "\\module.dll", lDirectory.c_str() );
    ExpectNotFound( std::string( PATH_SIZE, 'd' ) + "\\module.dll" );
}

TEST_F( Location, NeverReadsBeyondTheBuffer )
{
    for ( const unsigned int lLength : { PATH_SIZE + 1, std::numeric_limits<unsigned int>::max() } )
    {
        SetModulePathBody(
            [lLength]( const void*, char* aBuffer, unsigned int aSize )
            {
                std::memset( aBuffer, 'd', aSize );
                aBuffer[1] = '\\';
                return lLength;
            } );
        Ask( HtResult::OK, "d" );
    }
}

TEST_F( Location, IsNotLogged )
{
    const QmUtilsLib::Scripted::RecordingLogSink lLog;
    ExpectFound( "C:\\Kit\\bin\\module.dll", "C:\\Kit\\bin" );
    ExpectNotFound( "" );
    ExpectNotFound( "module.dll" );
    EXPECT_THAT( lLog.GetEntries(), testing::IsEmpty() );
}

TEST( LoadEntry, KeepsTheModuleAndNothingElse )
{
    int lModule = 0;
    int lOther = 0;
    EXPECT_EQ( GetModule(), nullptr );
    EXPECT_TRUE( EnterModule( &lModule, MODULE_ATTACHED ) );
    EXPECT_EQ( GetModule(), &lModule );
    for ( const unsigned int lReason :
          { 0U, 2U, 3U, 4U, 0x101U, std::numeric_limits<unsigned int>::max() } )
    {
        EXPECT_TRUE( EnterModule( &lOther, lReason ) );
        EXPECT_EQ( GetModule(), &lModule );
    }
    EXPECT_TRUE( EnterModule( &lOther, 1 ) );
    EXPECT_EQ( GetModule(), &lOther );
    EXPECT_TRUE( EnterModule( nullptr, MODULE_ATTACHED ) );
    EXPECT_EQ( GetModule(), nullptr );
}

TEST( FileName, IsCutBeforeTheLastSeparator )
{
    std::string lPath = "a\\b\\c";
    EXPECT_TRUE( CutFileName( lPath, '\\' ) );
    EXPECT_EQ( lPath, "a\\b" );
    EXPECT_TRUE( CutFileName( lPath, '\\' ) );
    EXPECT_EQ( lPath, "a" );
    EXPECT_FALSE( CutFileName( lPath, '\\' ) );
    EXPECT_EQ( lPath, "a" );
}

TEST( FileName, MayBeEmpty )
{
    std::string lPath = "a\\";
    EXPECT_TRUE( CutFileName( lPath, '\\' ) );
    EXPECT_EQ( lPath, "a" );
    lPath = "\\";
    EXPECT_TRUE( CutFileName( lPath, '\\' ) );
    EXPECT_EQ( lPath, "" );
    EXPECT_FALSE( CutFileName( lPath, '\\' ) );
}

TEST( FileName, HasOneKindOfSeparator )
{
    std::string lPath = "a/b\\c/d";
    EXPECT_TRUE( CutFileName( lPath, '\\' ) );
    EXPECT_EQ( lPath, "a/b" );
    EXPECT_FALSE( CutFileName( lPath, '\\' ) );
    EXPECT_EQ( lPath, "a/b" );
    EXPECT_TRUE( CutFileName( lPath, '/' ) );
    EXPECT_EQ( lPath, "a" );
}
