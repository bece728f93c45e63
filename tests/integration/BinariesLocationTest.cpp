// The location of the library, as the real loader reports it.

#include "tests/support/ChildProcess.h"
#include "tests/support/TemporaryDirectory.h"

#include <HtBinariesLocation.h>

#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace
{

namespace fs = std::filesystem;
using TestSupport::Outcome;
using TestSupport::RunProgram;
using TestSupport::TemporaryDirectory;

using Actions = std::vector<std::string>;

// The file that holds the library's code: the shared library or, without one, the module that uses
// it.
const fs::path CODE_FILE = LOCATION_CODE_FILE;
constexpr const char* USER = LOCATION_USER;
constexpr bool IS_SHARED = LOCATION_IS_SHARED;

constexpr int NOT_ALLOWED = 77; // of the probe

void Append( Actions& aActions, const Actions& aMore )
{
    aActions.insert( aActions.end(), aMore.begin(), aMore.end() );
}

// Loads the code by that name, and what uses it.
Actions Load( const std::string& aCode )
{
    Actions lActions = { "load", aCode };
    if ( IS_SHARED )
    {
        Append( lActions, { "load", USER } );
    }
    return lActions;
}

Outcome RunProbe( const Actions& aActions, const TestSupport::ChildProcess::Options& aOptions = {} )
{
    Actions lCommand = { LOCATION_PROBE };
    Append( lCommand, aActions );
    return RunProgram( lCommand, aOptions );
}

std::string MakeAnswer( const fs::path& aDirectory )
{
    return "0000 " + aDirectory.string() + "\n";
}

// The program asks before main, and in main.
std::string MakeProgramAnswer( const fs::path& aDirectory )
{
    return MakeAnswer( aDirectory ) + MakeAnswer( aDirectory );
}

void ExpectAnswer( const Outcome& aOutcome, const std::string& aAnswer )
{
    EXPECT_EQ( aOutcome.mStatus, 0 ) << aOutcome.mError;
    EXPECT_EQ( aOutcome.mOutput, aAnswer );
}

class RealLocation : public testing::Test
{
protected:
    // A directory, and a copy of the code in it.
    fs::path Install( const std::string& aDirectory )
    {
        const fs::path lDirectory = mRoot / aDirectory;
        fs::create_directories( lDirectory );
        fs::copy_file( CODE_FILE, lDirectory / CODE_FILE.filename() );
        return lDirectory;
    }

    // The same, with the program that holds the code.
    fs::path InstallProgram( const std::string& aDirectory )
    {
        const fs::path lDirectory = mRoot / aDirectory;
        fs::create_directories( lDirectory );
        fs::copy_file( LOCATION_PROGRAM, lDirectory / "program" );
        return lDirectory;
    }

    TemporaryDirectory mTemporary;
    const fs::path mRoot = fs::canonical( mTemporary.GetPath() );
    const std::string mName = CODE_FILE.filename().string();
};

TEST_F( RealLocation, IsTheDirectoryOfTheLibraryThatTheProgramIsLinkedTo )
{
    const std::string lExpected = fs::canonical( LOCATION_OF_TEST ).string();
    HtString lLocation;
    EXPECT_TRUE( HtBinariesLocation( lLocation ).IsOK() );
    EXPECT_EQ( lLocation.GetAscii(), lExpected );
    fs::current_path( mRoot );
    lLocation = "something else";
    EXPECT_TRUE( HtBinariesLocation( lLocation ).IsOK() );
    EXPECT_EQ( lLocation.GetAscii(), lExpected );
}

TEST_F( RealLocation, MovesWithTheFile )
{
    for ( const char* const lDirectory : { "kit/lib", "with blank", "with\\backslash",
                                           "\xC3\xBC\xE2\x82\xAC", "not UTF-8 \xFF", "." } )
    {
        const fs::path lInstalled = Install( lDirectory );
        Actions lActions = Load( lInstalled / mName );
        Append( lActions, { "ask" } );
        ExpectAnswer( RunProbe( lActions ), MakeAnswer( fs::canonical( lInstalled ) ) );
    }
}

TEST_F( RealLocation, IsRightAfterALoadByARelativePathAndAChangeOfDirectory )
{
    const fs::path lInstalled = Install( "kit/lib" );
    fs::create_directories( mRoot / "elsewhere/kit/lib" );
    fs::copy_file( CODE_FILE,
                   mRoot / "elsewhere/kit/lib" / mName ); // the same name, seen from there
    for ( const std::string lName : { "kit/lib/", "./kit/../kit/lib/./", "kit//lib/" } )
    {
        Actions lActions = { "chdir", mRoot };
        Append( lActions, Load( lName + mName ) );
        Append( lActions, { "ask", "chdir", "elsewhere", "ask", "chdir", "/", "ask" } );
        const std::string lAnswer = MakeAnswer( lInstalled );
        ExpectAnswer( RunProbe( lActions ), lAnswer + lAnswer + lAnswer );
    }
}

TEST_F( RealLocation, IsRightAfterALoadThroughARelativeSearchPath )
{
    const fs::path lInstalled = Install( "lib" );
    TestSupport::ChildProcess::Options lOptions;
    lOptions.mDirectory = mRoot;
    lOptions.mEnvironment = { "LD_LIBRARY_PATH=lib" };
    Actions lActions = Load( mName );
    Append( lActions, { "chdir", "/", "ask" } );
    ExpectAnswer( RunProbe( lActions, lOptions ), MakeAnswer( lInstalled ) );
}

TEST_F( RealLocation, FollowsSymbolicLinks )
{
    const fs::path lInstalled = Install( "real/lib" );
    fs::create_directory( mRoot / "links" );
    fs::create_symlink( lInstalled / mName, mRoot / "links/file.so" );
    fs::create_symlink( "file.so", mRoot / "links/link to link.so" );
    fs::create_directory_symlink( "../real/lib", mRoot / "links/directory" );
    for ( const std::string lName : { "file.so", "link to link.so", "directory/" } )
    {
        const fs::path lPath = mRoot / "links" / lName;
        Actions lActions = Load( lPath.has_filename() ? lPath : lPath / mName );
        Append( lActions, { "ask" } );
        ExpectAnswer( RunProbe( lActions ), MakeAnswer( lInstalled ) );
    }
}

TEST_F( RealLocation, IsTheDirectoryAtTheTimeOfLoading )
{
    const fs::path lInstalled = Install( "kit-1" );
    fs::create_directory_symlink( "kit-1", mRoot / "kit" );
    Actions lActions = Load( mRoot / "kit" / mName );
    Append( lActions, { "unlink", mRoot / "kit", "ask", "unlink", lInstalled / mName, "ask" } );
    ExpectAnswer( RunProbe( lActions ), MakeAnswer( lInstalled ) + MakeAnswer( lInstalled ) );
}

TEST_F( RealLocation, IsUnknownForAFileWithoutAName )
{
    const fs::path lInstalled = Install( "lib" );
    Actions lActions = { "load-unlinked", lInstalled / mName };
    if ( IS_SHARED )
    {
        Append( lActions, { "load", USER } );
    }
    Append( lActions, { "ask" } );
    ExpectAnswer( RunProbe( lActions ), "0019 untouched\n" );
}

TEST_F( RealLocation, IsThatOfTheProgramThatContainsTheCode )
{
    const fs::path lInstalled = InstallProgram( "kit/bin" );
    fs::create_symlink( lInstalled / "program", mRoot / "link" );
    const std::string lAnswer = MakeProgramAnswer( lInstalled );
    ExpectAnswer( RunProgram( { lInstalled / "program" } ), lAnswer );
    ExpectAnswer( RunProgram( { mRoot / "link" } ), lAnswer );
    TestSupport::ChildProcess::Options lOptions;
    lOptions.mDirectory = mRoot;
    ExpectAnswer( RunProgram( { "kit/bin/program" }, lOptions ), lAnswer );
}

// The program's name is then not a path from this directory, or is wrong altogether.
TEST_F( RealLocation, IsThatOfTheProgramHoweverItIsStarted )
{
    const fs::path lInstalled = InstallProgram( "kit/bin" );
    fs::create_directory( mRoot / "elsewhere" );
    fs::copy_file( LOCATION_PROGRAM, mRoot / "elsewhere/program" );
    const std::string lAnswer = MakeProgramAnswer( lInstalled );
    TestSupport::ChildProcess::Options lOptions;
    lOptions.mDirectory = mRoot / "elsewhere";
    lOptions.mEnvironment = { "DIRECTORY=" + lInstalled.string() };
    ExpectAnswer( RunProgram( { "/bin/sh", "-c", "PATH=$DIRECTORY; exec program" }, lOptions ),
                  lAnswer );
    ExpectAnswer(
        RunProgram( { "/bin/bash", "-c", "exec -a program \"$DIRECTORY/program\"" }, lOptions ),
        lAnswer );
}

#if LOCATION_IS_SHARED

// A root directory is its own name, separator and all.
TEST_F( RealLocation, IsASeparatorInTheRootDirectory )
{
    (void)Install( "." );
    fs::copy_file( USER, mRoot / "user.so" );
    Actions lActions;
    for ( const char* const lLibrary : { LOCATION_PLATFORM } )
    {
        Append( lActions, { "load", lLibrary } ); // cannot be found later
    }
    Append( lActions, { "chroot", mRoot, "load", "/" + mName, "load", "/user.so", "ask" } );
    TestSupport::ChildProcess::Options lOptions;
    lOptions.mEnvironment = { "ASAN_OPTIONS=detect_leaks=0" }; // which needs a whole system
    const Outcome lOutcome = RunProbe( lActions, lOptions );
    if ( lOutcome.mStatus == NOT_ALLOWED )
    {
        GTEST_SKIP() << "this user may not change the root directory";
    }
    ExpectAnswer( lOutcome, "0000 /\n" );
}

#endif

// Not under the thread sanitizer, with which nothing is ever unloaded.
#if !LOCATION_IS_NEVER_UNLOADED

TEST_F( RealLocation, IsUpdatedWhenTheLibraryIsUnloadedAndLoadedAgain )
{
    const fs::path lFirst = Install( "first" );
    const fs::path lSecond = Install( "second" );
    Actions lActions = Load( lFirst / mName );
    Append( lActions, { "ask", "unload" } );
    if ( IS_SHARED )
    {
        Append( lActions, { "unload" } );
    }
    Append( lActions, Load( lSecond / mName ) );
    Append( lActions, { "ask" } );
    ExpectAnswer( RunProbe( lActions ), MakeAnswer( lFirst ) + MakeAnswer( lSecond ) );
}

#endif

} // namespace
