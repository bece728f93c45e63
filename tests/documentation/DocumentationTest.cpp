// The pages say what is so: links, figures, command lines and names are those of the project.

#include "tests/support/ChildProcess.h"
#include "tests/support/TemporaryDirectory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

using testing::Contains;
using testing::HasSubstr;

namespace TestSupport
{

namespace
{

namespace fs = std::filesystem;

const fs::path SOURCE = HTBASE_SOURCE;

std::string Read( const fs::path& aPath )
{
    const std::string lText = ReadWholeFile( ( SOURCE / aPath ).string() );
    EXPECT_FALSE( lText.empty() ) << aPath;
    return lText;
}

std::vector<std::string> GetLines( const std::string& aText )
{
    std::vector<std::string> lLines;
    std::istringstream lStream( aText );
    for ( std::string lLine; std::getline( lStream, lLine ); )
    {
        lLines.push_back( lLine );
    }
    return lLines;
}

// The project's pages, as paths from its folder.
std::vector<fs::path> GetPages()
{
    std::vector<fs::path> lPages = { "README.md", "CONTRIBUTING.md", "CHANGELOG.md" };
    for ( const auto& lEntry : fs::recursive_directory_iterator( SOURCE / "docs" ) )
    {
        if ( lEntry.path().extension() == ".md" )
        {
            lPages.push_back( fs::relative( lEntry.path(), SOURCE ) );
        }
    }
    EXPECT_GT( lPages.size(), 15U );
    return lPages;
}

// Calls aUse with each match in a page.
template <typename Use>
void ForEachMatch( const std::string& aText, const std::string& aExpression, Use aUse )
{
    const std::regex lExpression( aExpression );
    for ( std::sregex_iterator lMatch( aText.begin(), aText.end(), lExpression );
          lMatch != std::sregex_iterator(); ++lMatch )
    {
        aUse( *lMatch );
    }
}

// The name that a heading has in a link: lower case, hyphens for blanks, nothing else.
std::set<std::string> GetAnchors( const std::string& aText )
{
    std::set<std::string> lAnchors;
    for ( const std::string& lLine : GetLines( aText ) )
    {
        if ( lLine.rfind( "#", 0 ) != 0 )
        {
            continue;
        }
        std::string lAnchor;
        for ( const char lCharacter : lLine.substr( lLine.find( ' ' ) + 1 ) )
        {
            if ( std::isalnum( static_cast<unsigned char>( lCharacter ) ) != 0 )
            {
                lAnchor += static_cast<char>( std::tolower( lCharacter ) );
            }
            else if ( lCharacter == ' ' || lCharacter == '-' )
            {
                lAnchor += '-';
            }
        }
        lAnchors.insert( lAnchor );
    }
    return lAnchors;
}

// The links of a page that lead to files of the project: path from its folder, and anchor.
std::vector<std::pair<fs::path, std::string>> GetLinks( const fs::path& aPage )
{
    std::vector<std::pair<fs::path, std::string>> lLinks;
    ForEachMatch( Read( aPage ), R"(\]\(([^)#]*)(#([^)]*))?\))",
                  [&]( const std::smatch& aMatch )
                  {
                      if ( aMatch.str( 1 ).find( "://" ) == std::string::npos )
                      {
                          const fs::path lPath = aMatch.length( 1 ) == 0
                                                     ? aPage
                                                     : aPage.parent_path() / aMatch.str( 1 );
                          lLinks.emplace_back( lPath.lexically_normal(), aMatch.str( 3 ) );
                      }
                  } );
    return lLinks;
}

// A line of a page that shows how the program is called, without the remark behind it.
std::vector<std::vector<std::string>> GetCalls()
{
    std::vector<std::vector<std::string>> lCalls;
    for ( const fs::path& lPage : GetPages() )
    {
        ForEachMatch( Read( lPage ) + "\n",
                      R"(\n    (?:sudo )?(?:build/release/Tools/htbase/)?htbase ((?:[^ \n]+ ?)+))",
                      [&]( const std::smatch& aMatch )
                      {
                          std::vector<std::string> lWords;
                          std::istringstream lStream( aMatch.str( 1 ) );
                          for ( std::string lWord; lStream >> lWord; )
                          {
                              lWords.push_back( lWord );
                          }
                          lCalls.push_back( lWords );
                      } );
    }
    return lCalls;
}

} // namespace

TEST( Documentation, LinksHaveTargets )
{
    size_t lCount = 0;
    for ( const fs::path& lPage : GetPages() )
    {
        for ( const auto& [lPath, lAnchor] : GetLinks( lPage ) )
        {
            ++lCount;
            EXPECT_TRUE( fs::exists( SOURCE / lPath ) ) << lPage << " leads to " << lPath;
            if ( !lAnchor.empty() )
            {
                EXPECT_THAT( GetAnchors( Read( lPath ) ), Contains( lAnchor ) ) << lPage;
            }
        }
    }
    EXPECT_GT( lCount, 15U );
}

// Decisions speak of other places too, such as those of an installed tree.
TEST( Documentation, NamedFilesExist )
{
    size_t lCount = 0;
    for ( const fs::path& lPage : GetPages() )
    {
        if ( lPage.parent_path() == "docs/decisions" )
        {
            continue;
        }
        ForEachMatch( Read( lPage ),
                      "`((?:Examples|Libraries|Platform|Simulators|Tools|cmake|docs|fuzz|include|"
                      "scripts|tests)"
                      "/[A-Za-z0-9_./-]*)`",
                      [&]( const std::smatch& aMatch )
                      {
                          ++lCount;
                          EXPECT_TRUE( fs::exists( SOURCE / aMatch.str( 1 ) ) )
                              << lPage << " names " << aMatch.str( 1 );
                      } );
    }
    EXPECT_GT( lCount, 15U );
}

TEST( Documentation, TheReadmeNamesEveryExample )
{
    const std::string lReadme = Read( "README.md" );
    size_t lCount = 0;
    for ( const auto& lEntry : fs::directory_iterator( SOURCE / "Examples" ) )
    {
        if ( lEntry.path().extension() == ".cpp" )
        {
            ++lCount;
            EXPECT_THAT( lReadme, HasSubstr( "| `" + lEntry.path().stem().string() + "` |" ) );
        }
    }
    EXPECT_GE( lCount, 8U );
}

TEST( Documentation, EveryPageCanBeReached )
{
    std::set<fs::path> lReached = { "README.md" };
    std::vector<fs::path> lToRead( lReached.begin(), lReached.end() );
    while ( !lToRead.empty() )
    {
        const fs::path lPage = lToRead.back();
        lToRead.pop_back();
        for ( const auto& [lPath, lAnchor] : GetLinks( lPage ) )
        {
            if ( lPath.extension() == ".md" && lReached.insert( lPath ).second )
            {
                lToRead.push_back( lPath );
            }
        }
    }
    for ( const fs::path& lPage : GetPages() )
    {
        if ( lPage.parent_path() != "docs/decisions" ) // a folder that the README names
        {
            EXPECT_THAT( lReached, Contains( lPage ) );
        }
    }
}

// "0001-..." is headed "# 1. ...", and so on without a gap.
TEST( Documentation, DecisionsAreNumberedWithoutGaps )
{
    std::set<std::string> lNames;
    for ( const auto& lEntry : fs::directory_iterator( SOURCE / "docs/decisions" ) )
    {
        lNames.insert( lEntry.path().filename().string() );
    }
    EXPECT_GE( lNames.size(), 8U );
    int lNumber = 0;
    for ( const std::string& lName : lNames )
    {
        ++lNumber;
        EXPECT_EQ( std::stoi( lName.substr( 0, 4 ) ), lNumber ) << lName;
        EXPECT_EQ(
            Read( "docs/decisions/" + lName ).rfind( "# " + std::to_string( lNumber ) + ".", 0 ),
            0U )
            << lName;
    }
}

// What is not released yet comes first; each release has its version and its day, the newest first.
TEST( Documentation, TheChangelogDatesEveryRelease )
{
    const std::regex lRelease( R"(## (\d+)\.(\d+)\.(\d+) - (\d{4}-\d\d-\d\d))" );
    using Version = std::array<int, 3>;
    std::vector<Version> lVersions;
    std::vector<std::string> lDays;
    for ( const std::string& lLine : GetLines( Read( "CHANGELOG.md" ) ) )
    {
        const bool lIsHeading = lLine.rfind( "## ", 0 ) == 0;
        if ( !lIsHeading || ( lVersions.empty() && lLine == "## Unreleased" ) )
        {
            continue;
        }
        std::smatch lMatch;
        ASSERT_TRUE( std::regex_match( lLine, lMatch, lRelease ) ) << lLine;
        lVersions.push_back( { std::stoi( lMatch.str( 1 ) ), std::stoi( lMatch.str( 2 ) ),
                               std::stoi( lMatch.str( 3 ) ) } );
        lDays.push_back( lMatch.str( 4 ) );
    }
    EXPECT_THAT( lVersions, Contains( Version{ 0, 1, 0 } ) );
    EXPECT_TRUE( std::is_sorted( lVersions.rbegin(), lVersions.rend() ) );
    EXPECT_TRUE( std::is_sorted( lDays.rbegin(), lDays.rend() ) );

    // A version that is not released yet is named in front of the releases.
    ASSERT_FALSE( lVersions.empty() );
    std::smatch lMatch;
    const std::string lBuildFile = Read( "CMakeLists.txt" );
    ASSERT_TRUE( std::regex_search(
        lBuildFile, lMatch, std::regex( R"(project\(HtBase VERSION (\d+)\.(\d+)\.(\d+))" ) ) );
    const Version lVersion = { std::stoi( lMatch.str( 1 ) ), std::stoi( lMatch.str( 2 ) ),
                               std::stoi( lMatch.str( 3 ) ) };
    const std::string lChangelog = Read( "CHANGELOG.md" );
    const std::string lUnreleased = lChangelog.substr( 0, lChangelog.find( " - 20" ) );
    const std::string lName = lMatch.str( 1 ) + "." + lMatch.str( 2 ) + "." + lMatch.str( 3 );
    EXPECT_TRUE( lVersion == lVersions.front() ||
                 lUnreleased.find( "The version is " + lName + "." ) != std::string::npos )
        << lName;
}

TEST( Documentation, FiguresAreThoseOfTheCode )
{
    std::map<std::string, size_t> lRows;
    for ( const fs::path& lPage : GetPages() )
    {
        ForEachMatch(
            Read( lPage ), R"(\n\| (\w+) \| `(\w+)` \| (\w+/[^ |]+) \|)",
            [&]( const std::smatch& aMatch )
            {
                ++lRows[lPage.filename().string()];
                const std::string lFigure = "\\b" + aMatch.str( 2 ) + " = " + aMatch.str( 1 ) + ";";
                EXPECT_TRUE( std::regex_search( Read( aMatch.str( 3 ) ), std::regex( lFigure ) ) )
                    << lPage << ": " << aMatch.str( 2 ) << " of " << aMatch.str( 3 ) << " is not "
                    << aMatch.str( 1 );
            } );
    }
    for ( const char* const lPage : { "gvcp.md", "gencp.md", "tftp.md", "firmware.md" } )
    {
        EXPECT_GE( lRows[lPage], 8U ) << lPage;
    }
}

// Adjacent literals are one.
TEST( Documentation, TextsOfStatusesAreThoseOfTheCode )
{
    const std::string lCode = std::regex_replace( Read( "Libraries/HtBase/BaseCommandLinkGEV.cpp" ),
                                                  std::regex( "\"\\s+\"" ), "" );
    size_t lCount = 0;
    ForEachMatch( Read( "docs/gvcp.md" ), R"(\n\| (0x8\w+) \| ([^|]+) \|)",
                  [&]( const std::smatch& aMatch )
                  {
                      ++lCount;
                      EXPECT_THAT( lCode, HasSubstr( "{ " + aMatch.str( 1 ) + ", \"" +
                                                     aMatch.str( 2 ) + "\" }" ) );
                  } );
    EXPECT_EQ( lCount, 8U );
}

TEST( Documentation, TheMainPageNamesThePackagesThatABuildNeeds )
{
    std::smatch lMatch;
    const std::string lScript = Read( "scripts/packages.sh" );
    ASSERT_TRUE(
        std::regex_search( lScript, lMatch, std::regex( "BUILD_PACKAGES=\"([^\"]+)\"" ) ) );
    EXPECT_THAT( Read( "docs/mainpage.md" ), HasSubstr( "apt-get install " + lMatch.str( 1 ) ) );
}

TEST( Documentation, TheMainPageShowsTheCentralPartOfItsExample )
{
    const std::string lExample = Read( "Examples/ReadRegister.cpp" );
    const std::string lPage = Read( "docs/mainpage.md" );
    const std::string lLead = "The central part of that program is:\n\n";
    const size_t lStart = lPage.find( lLead );
    ASSERT_NE( lStart, std::string::npos );
    size_t lCount = 0;
    for ( const std::string& lLine : GetLines( lPage.substr( lStart + lLead.size() ) ) )
    {
        if ( lLine.rfind( "    ", 0 ) != 0 )
        {
            break;
        }
        ++lCount;
        EXPECT_THAT( lExample, HasSubstr( lLine.substr( 4 ) ) );
    }
    EXPECT_EQ( lCount, 5U );
}

#if defined( HTBASE_PROGRAM )
TEST( Documentation, CallsOfTheProgramAreValid )
{
    const auto lCalls = GetCalls();
    EXPECT_GT( lCalls.size(), 25U );
    std::map<std::string, std::string> lHelp;
    for ( const std::vector<std::string>& lCall : lCalls )
    {
        ASSERT_GE( lCall.size(), 2U );
        const std::string lCommand = lCall[0] + " " + lCall[1];
        if ( lHelp.count( lCommand ) == 0 )
        {
            const Outcome lOutcome = RunProgram( { HTBASE_PROGRAM, lCall[0], lCall[1], "--help" } );
            EXPECT_EQ( lOutcome.mStatus, 0 ) << lCommand << ": " << lOutcome.mError;
            lHelp[lCommand] = lOutcome.mOutput;
        }
        for ( const std::string& lWord : lCall )
        {
            if ( lWord[0] == '-' )
            {
                EXPECT_TRUE(
                    std::regex_search( lHelp[lCommand], std::regex( "[ ,]" + lWord + "[ ,:=]" ) ) )
                    << "htbase " << lCommand << " has no " << lWord;
            }
        }
    }
}
#endif

#if defined( HTBASE_LIBRARY )
// The calls of the library that the page lists, by class.
std::map<std::string, std::set<std::string>> ReadPlatformPage()
{
    std::map<std::string, std::set<std::string>> lOperations;
    ForEachMatch( Read( "docs/platform-libraries.md" ),
                  R"(\n\| `((?:QmUtilsLib|Wd\w+Lib)[\w:]*)` \| ((?:\\\||[^|])*) \|)",
                  [&]( const std::smatch& aMatch )
                  {
                      ForEachMatch( aMatch.str( 2 ), "`([^`]+)`",
                                    [&]( const std::smatch& aOperation )
                                    {
                                        lOperations[aMatch.str( 1 )].insert( std::regex_replace(
                                            aOperation.str( 1 ), std::regex( "\\\\" ), "" ) );
                                    } );
                  } );
    return lOperations;
}

TEST( Documentation, ThePlatformPageListsWhatTheLibraryCalls )
{
    const Outcome lOutcome =
        RunProgram( { HTBASE_NM, "--dynamic", "--demangle", "--undefined-only", HTBASE_LIBRARY } );
    ASSERT_EQ( lOutcome.mStatus, 0 ) << lOutcome.mError;
    std::map<std::string, std::set<std::string>> lCalled;
    ForEachMatch(
        lOutcome.mOutput, R"(\n *U ((?:QmUtilsLib|Wd\w+Lib)[\w:]*)::([\w~]+[^(\[]*)[(\[])",
        [&]( const std::smatch& aMatch ) { lCalled[aMatch.str( 1 )].insert( aMatch.str( 2 ) ); } );
#if defined( NDEBUG )
    lCalled["QmUtilsLib"].insert( "AssertionFailed" );
#endif
    EXPECT_EQ( ReadPlatformPage(), lCalled );
}
#endif

} // namespace TestSupport
