// dfw build, dfw show, dfw id and dfw reset.

#include "tests/integration/tool/ToolTest.h"

#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <thread>

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace TestSupport
{

namespace
{

// The records of a payload, written down by hand.
const std::string TARGET_D( "T\x06\x02\x01\x80\x12\x34"
                            "D",
                            8 );
const std::string VERSION_1_2_255( "V\x03\x01\x02\xFF", 5 );
const std::string HEAD = TARGET_D + VERSION_1_2_255;
const std::string RESET( "R\x00", 2 );

const std::string ADDRESS_1000( "O\x04\x00\x00\x10\x00", 6 );
const std::string ADDRESS_2000( "O\x04\x00\x00\x20\x00", 6 );

// S-records with sums worked out by hand: 255 less the low byte of the sum of the bytes.
const std::string S0 = "S0030000FC\n";
const std::string S3_AT_1000 = "S30700001000ABCD70\n";    // 07 + 10 + AB + CD = 18F
const std::string S3_AT_1002 = "S306000010024AA3\n";      // wrong on purpose, see BAD_SUM
const std::string S3_AT_1002_GOOD = "S306000010024A9D\n"; // 06 + 10 + 02 + 4A = 62
const std::string S5 = "S5030001FB\n";
const std::string S7 = "S70500001000EA\n";

const std::string DATA_ABCD( "D\x02\xAB\xCD", 4 );
const std::string DATA_4A( "D\x01\x4A", 3 );

std::string LinesOf( const std::string& aText, const std::string& aPart )
{
    std::string lLines;
    for ( size_t lBegin = 0; lBegin < aText.size(); )
    {
        const size_t lEnd = aText.find( '\n', lBegin );
        const std::string lLine = aText.substr( lBegin, lEnd - lBegin );
        lLines += lLine.find( aPart ) == std::string::npos ? "" : lLine + "\n";
        lBegin = lEnd == std::string::npos ? aText.size() : lEnd + 1;
    }
    return lLines;
}

// Waits until a program that blocks a signal has fetched it, and a moment longer, in which it notes
// that it has. Fails the test after ten seconds.
void WaitUntilTaken( pid_t aProgram, int aSignal )
{
    const uint64_t lBit = uint64_t{ 1 } << ( aSignal - 1 );
    const std::string lMark = "ShdPnd:";
    for ( int lTry = 0; lTry < 1000; ++lTry )
    {
        const std::string lStatus =
            ReadWholeFile( "/proc/" + std::to_string( aProgram ) + "/status" );
        const size_t lPlace = lStatus.find( lMark );
        ASSERT_NE( lPlace, std::string::npos );
        const std::string lPending = lStatus.substr( lPlace + lMark.size() );
        std::this_thread::sleep_for( std::chrono::milliseconds( 10 ) );
        if ( ( std::stoull( lPending, nullptr, 16 ) & lBit ) == 0 )
        {
            std::this_thread::sleep_for( std::chrono::milliseconds( 100 ) );
            return;
        }
    }
    FAIL() << "the program did not take the signal";
}

class Dfw : public testing::Test
{
protected:
    // Writes a file of the test's folder and returns its path.
    std::string Make( const std::string& aName, const std::string& aBytes )
    {
        WriteWholeFile( mFolder.GetPath( aName ), aBytes );
        return mFolder.GetPath( aName );
    }

    // Runs `dfw build -o OUT` with target and version of HEAD, and the arguments.
    Outcome Build( const Arguments& aArguments, const ChildProcess::Options& aOptions = {} )
    {
        Arguments lArguments = { "dfw",      "build",           "-o",        mOut,
                                 "--target", "1,0x80,0x1234,D", "--version", "1.2.255" };
        lArguments.insert( lArguments.end(), aArguments.begin(), aArguments.end() );
        return RunTool( lArguments, aOptions );
    }

    // Expects that the build succeeds and the payload is HEAD and these records.
    void ExpectBuilt( const Arguments& aArguments, const std::string& aRecords )
    {
        SCOPED_TRACE( testing::PrintToString( aArguments ) );
        const Outcome lOutcome = Build( aArguments );
        EXPECT_EQ( lOutcome.mStatus, 0 ) << lOutcome.mError;
        EXPECT_THAT( lOutcome.mOutput, IsEmpty() );
        EXPECT_EQ( ReadWholeFile( mOut ), HEAD + aRecords );
    }

    // Expects that it fails so, with aSentence, prints nothing on standard output and leaves what
    // was there before and nothing else.
    void ExpectFailure( const Outcome& aOutcome, int aStatus, const std::string& aSentence )
    {
        EXPECT_EQ( aOutcome.mStatus, aStatus );
        EXPECT_THAT( aOutcome.mError, HasSubstr( aSentence ) );
        EXPECT_THAT( aOutcome.mOutput, IsEmpty() );
        for ( const std::string& lName : mFolder.List() )
        {
            EXPECT_THAT( lName, Not( HasSubstr( "out" ) ) );
        }
    }

    Outcome Show( const std::string& aBytes, const Arguments& aMore = {} )
    {
        Arguments lArguments = { "dfw", "show", Make( "shown", aBytes ) };
        lArguments.insert( lArguments.end(), aMore.begin(), aMore.end() );
        return RunTool( lArguments );
    }

    TemporaryDirectory mFolder;
    const std::string mOut = mFolder.GetPath( "out" );
};

} // namespace

TEST_F( Dfw, ABuildWithoutInputIsTargetAndVersion )
{
    const Outcome lOutcome = Build( {} );
    EXPECT_EQ( lOutcome.mStatus, 0 );
    EXPECT_EQ( ReadWholeFile( mOut ), HEAD );
    EXPECT_EQ( lOutcome.mError, "htbase: wrote 13 bytes to '" + mOut + "'\n" );
    EXPECT_THAT( lOutcome.mOutput, IsEmpty() );
}

TEST_F( Dfw, EachModeHasItsLetterOrNone )
{
    const std::pair<std::string, std::string> MODES[] = {
        { "D", std::string( "T\x06\x02\xFF\x00\xFF\xFF"
                            "D",
                            8 ) },
        { "U", std::string( "T\x06\x02\xFF\x00\xFF\xFFU", 8 ) },
        { "f", std::string( "T\x06\x02\xFF\x00\xFF\xFF"
                            "f",
                            8 ) },
        { "-", std::string( "T\x05\x02\xFF\x00\xFF\xFF", 7 ) },
    };
    for ( const auto& [lLetter, lRecord] : MODES )
    {
        const Outcome lOutcome = RunTool( { "dfw", "build", "-o", mOut, "--target",
                                            "255,0,65535," + lLetter, "--version", "0.0.0" } );
        EXPECT_EQ( lOutcome.mStatus, 0 ) << lOutcome.mError;
        EXPECT_EQ( ReadWholeFile( mOut ), lRecord + std::string( "V\x03\0\0\0", 5 ) ) << lLetter;
    }
}

TEST_F( Dfw, ABuildMayCloseWithAnEndOrAResetRecord )
{
    ExpectBuilt( { "--end", "0x12345678" }, std::string( "E\x04\x12\x34\x56\x78", 6 ) );
    ExpectBuilt( { "--reset" }, RESET );
    std::filesystem::remove( mOut );
    const Outcome lBoth = Build( { "--end", "1", "--reset" } );
    ExpectFailure( lBoth, 2, "--reset" );
    ExpectOneSentence( lBoth.mError );
}

TEST_F( Dfw, SRecordsBecomeAddressAndDataRecords )
{
    const std::string lFile = Make( "a.srec", S0 + S3_AT_1000 + S3_AT_1002_GOOD + S5 + S7 );
    ExpectBuilt( { "--srec", lFile }, ADDRESS_1000 + DATA_ABCD + DATA_4A );
    const std::string lDos = Make( "b.srec", "S30700001000ABCD70\r\nS70500001000EA\r\n" );
    ExpectBuilt( { "--srec", lDos }, ADDRESS_1000 + DATA_ABCD );
}

TEST_F( Dfw, InputsKeepTheOrderOfTheCommandLine )
{
    const std::string lFirst = Make( "first.srec", S3_AT_1000 + S7 );
    const std::string lSecond = Make( "second.srec", S3_AT_1002_GOOD + S7 );
    const std::string lBinary = Make( "image@2000", "xyz" );
    const std::string lHex = Make( "words", "@0800\n1234\n" );
    const std::string lFromFirst = ADDRESS_1000 + DATA_ABCD;
    const std::string lFromSecond = std::string( "O\x04\x00\x00\x10\x02", 6 ) + DATA_4A;
    const std::string lFromBinary = ADDRESS_2000 + "D\x03xyz";
    const std::string lFromHex = ADDRESS_1000 + "D\x02\x34\x12";
    ExpectBuilt( { "--srec", lFirst, "--bin", lBinary + "@0x2000", "--hex", lHex, "--srec", lSecond,
                   "--reset" },
                 lFromFirst + lFromBinary + lFromHex + lFromSecond + RESET );
    ExpectBuilt( { "--reset", "--hex", lHex, "--srec", lSecond, "--bin", lBinary + "@8192",
                   "--srec", lFirst, "--bin", lBinary + "@0x2000" },
                 lFromHex + lFromSecond + lFromBinary + lFromFirst + lFromBinary + RESET );
}

TEST_F( Dfw, ABinaryFileIsCutIntoRecords )
{
    const std::string lBytes = MakeBytes( 600 );
    ExpectBuilt( { "--bin", Make( "image", lBytes ) + "@0x1000" },
                 ADDRESS_1000 + "D\xFE" + lBytes.substr( 0, 254 ) + "D\xFE" +
                     lBytes.substr( 254, 254 ) + "D\x5C" + lBytes.substr( 508 ) );
    ExpectBuilt( { "--bin", Make( "empty", "" ) + "@0x1000" }, ADDRESS_1000 );
}

TEST_F( Dfw, WordsInHexAreWarnedOfAndStoredAsTheyLieInMemory )
{
    const std::string lFile = Make( "words", "1234\n5678\n" );
    const Outcome lOutcome = Build( { "--hex", lFile } );
    EXPECT_EQ( lOutcome.mStatus, 0 );
    EXPECT_EQ( ReadWholeFile( mOut ), HEAD + std::string( "D\x04\x34\x12\x00\x00", 6 ) );
    EXPECT_EQ( LinesOf( lOutcome.mError, "warning" ),
               "htbase: warning: the data records made of '" + lFile +
                   "' hold words as they lie in memory, not the packed values\n" );
    const Outcome lJson = Build( { "--hex", lFile, "--json" } );
    const nlohmann::json lReport = ParseReport( lJson );
    ASSERT_EQ( lReport["warnings"].size(), 1U );
    EXPECT_THAT( lReport["warnings"][0].get<std::string>(), HasSubstr( lFile ) );
    EXPECT_EQ( lReport["file"], mOut );
    EXPECT_EQ( lReport["bytes"], 19 );
}

TEST_F( Dfw, UsualRecordsWithoutDataCauseNoWarning )
{
    const std::string lFile =
        Make( "a.srec", S0 + S3_AT_1000 + S5 + "S804001000EB\n" + "S9030000FC\n" + S7 );
    const Outcome lOutcome = Build( { "--srec", lFile } );
    EXPECT_EQ( lOutcome.mStatus, 0 );
    EXPECT_EQ( lOutcome.mError, "htbase: wrote 23 bytes to '" + mOut + "'\n" );
}

TEST_F( Dfw, RecordsThatAreSkippedAreTold )
{
    const std::string lFile =
        Make( "a.srec", "S1041000AA41\nS205001000AA40\nS1041001AA40\n" + S3_AT_1000 + S7 );
    for ( const Arguments& lMore : { Arguments{}, Arguments{ "--json" } } )
    {
        Arguments lArguments = { "--srec", lFile };
        lArguments.insert( lArguments.end(), lMore.begin(), lMore.end() );
        const Outcome lOutcome = Build( lArguments );
        EXPECT_EQ( lOutcome.mStatus, 0 );
        EXPECT_EQ( LinesOf( lOutcome.mError, "Warning" ),
                   "htbase: '" + lFile + "': Warning: unknown record type: S1, 2 times\n" +
                       "htbase: '" + lFile + "': Warning: unknown record type: S2, 1 time\n" );
        EXPECT_THAT( lOutcome.mOutput, Not( HasSubstr( "Warning" ) ) );
    }
    EXPECT_EQ( ReadWholeFile( mOut ), HEAD + ADDRESS_1000 + DATA_ABCD );
}

TEST_F( Dfw, ABadLineIsNamedAndNothingIsBuilt )
{
    const std::pair<std::string, std::string> LINES[] = {
        { S3_AT_1002, "has the checksum 0xA3, but its bytes give 0x9D" },
        { "S306000010024A9\n", "has 15 characters, but its byte count asks for 16" },
        { "S306000010024A9D \n", "has 17 characters, but its byte count asks for 16" },
        { "S304000010EB\n", "has the byte count 4, too few for an S3" },
        { "S7040010001\n", "has 11 characters, but its byte count asks for 12" },
        { "S306000010024G9D\n", "has no hexadecimal byte at column 13" },
        { "S30600001002-A9D\n", "has no hexadecimal byte at column 13" },
        { "s306000010024A9D\n", "is not an S-record" },
        { "SA06000010024A9D\n", "is not an S-record" },
        { "S3-600001002\n", "is not an S-record" },
        { "; a comment\n", "is not an S-record" },
        { "\r\n", "is not an S-record" },
        { "S3\n", "is not an S-record" },
        { std::string( "S3\0006000010024A9D\n", 17 ), "is not an S-record" },
        { "S3" + std::string( 1000000, '0' ), "has more than 514 characters" },
    };
    for ( const auto& [lLine, lFault] : LINES )
    {
        SCOPED_TRACE( lLine.substr( 0, 40 ) );
        const std::string lFile = Make( "bad.srec", S0 + S3_AT_1000 + lLine );
        const Outcome lOutcome = Build( { "--srec", lFile } );
        ExpectFailure( lOutcome, 1, "line 3 of '" + lFile + "' " + lFault );
        ExpectOneSentence( lOutcome.mError );
    }
}

TEST_F( Dfw, TheBadLineOfASecondFileIsFoundToo )
{
    const std::string lGood = Make( "good.srec", S3_AT_1000 + S7 );
    const std::string lBad = Make( "bad.srec", S3_AT_1002 );
    ExpectFailure( Build( { "--srec", lGood, "--srec", lBad } ), 1, "line 1 of '" + lBad + "'" );
}

TEST_F( Dfw, ABadRecordIsFoundWhereverItStands )
{
    // Far enough apart that much of the payload is made when the last is read.
    std::string lMiddle;
    for ( int lTimes = 0; lTimes < 20000; ++lTimes )
    {
        lMiddle += S3_AT_1000;
    }
    const std::string lLast = S3_AT_1002.substr( 0, S3_AT_1002.size() - 1 ); // without line feed
    const std::pair<std::string, std::string> FILES[] = {
        { S3_AT_1002 + lMiddle + S7, "line 1 of" },
        { S3_AT_1000 + "\n" + S3_AT_1002 + S7, "line 3 of" },
        { "\n\n" + S3_AT_1002, "line 3 of" }, // the reader fails for the empty line
        { lMiddle + S3_AT_1002 + lMiddle, "line 20001 of" },
        { lMiddle + lLast, "line 20001 of" },
        { lMiddle + lLast + "\r\n", "line 20001 of" },
        { lMiddle + "S7050000100\n", "line 20001 of" },
    };
    for ( const auto& [lText, lLine] : FILES )
    {
        const Outcome lOutcome = Build( { "--srec", Make( "bad.srec", lText ) } );
        ExpectFailure( lOutcome, 1, lLine );
        ExpectOneSentence( lOutcome.mError );
        EXPECT_THAT( mFolder.List(), ElementsAre( "bad.srec" ) );
    }
}

TEST_F( Dfw, ABadRecordIsToldInPlaceOfWhateverElseIsWrong )
{
    const std::string lBad = Make( "bad.srec", S3_AT_1000 + S3_AT_1002 );
    const std::string lHex = Make( "good.hex", "1234\n" ); // causes a warning
    const std::string lBadHex = Make( "bad.hex", "12345\n" );
    const std::string lOdd = Make( "odd.srec", "S1041000AA41\n" + S3_AT_1000 ); // and this one too
    const std::string lEmpty = Make( "empty.srec", "" );
    const Arguments lMain = { "dfw", "build", "--target", "1,2,3,D", "--version", "1.2.3" };
    for ( const Arguments& lMore :
          { Arguments{ "-o", mOut, "--hex", lHex }, Arguments{ "-o", mOut, "--hex", lBadHex },
            Arguments{ "-o", mOut, "--srec", lOdd }, Arguments{ "-o", mOut, "--srec", lEmpty },
            Arguments{ "-o", mOut, "--json", "--hex", lHex },
            Arguments{ "-o", mFolder.GetPath( "none/out" ), "--reset" },
            Arguments{ "-o", "/proc/version", "--reset" },
            Arguments{ "-o", "/dev/full", "--reset" } } )
    {
        SCOPED_TRACE( testing::PrintToString( lMore ) );
        Arguments lArguments = lMain;
        lArguments.insert( lArguments.end(), lMore.begin(), lMore.end() );
        lArguments.insert( lArguments.end(), { "--srec", lBad } );
        const Outcome lOutcome = RunTool( lArguments );
        EXPECT_EQ( lOutcome.mStatus, 1 );
        EXPECT_THAT( lOutcome.mError, HasSubstr( "line 2 of '" + lBad + "'" ) );
        ExpectOneSentence( lOutcome.mError );
        if ( lMore[2] == "--json" )
        {
            EXPECT_THAT( ParseReport( lOutcome )["warnings"], IsEmpty() );
        }
        EXPECT_FALSE( std::filesystem::exists( mOut ) );
    }
}

TEST_F( Dfw, NothingOfARefusedFileIsWrittenToAPipe )
{
    const std::string lBad = Make( "bad.srec", S3_AT_1000 + S3_AT_1002 );
    const std::string lGood = Make( "good.srec", S3_AT_1000 + S7 );
    const Arguments lMain = { "dfw",     "build", "--target",    "1,0x80,0x1234,D", "--version",
                              "1.2.255", "-o",    "/dev/stdout", "--srec" };
    Arguments lArguments = lMain;
    lArguments.push_back( lBad );
    ExpectFailure( RunTool( lArguments ), 1, "line 2 of '" + lBad + "'" );
    lArguments = lMain;
    lArguments.push_back( lGood );
    EXPECT_EQ( RunTool( lArguments ).mOutput, HEAD + ADDRESS_1000 + DATA_ABCD );
}

TEST_F( Dfw, AFileThatFailsToBeReadIsRefusedWithTheReasonOfTheSystem )
{
    const Outcome lOutcome = Build( { "--srec", "/proc/self/mem" } ); // nothing lies at address 0
    ExpectFailure( lOutcome, 1, "cannot read file '/proc/self/mem': Input/output error" );
    ExpectOneSentence( lOutcome.mError );
}

TEST_F( Dfw, AnEmptyFileIsSoundButCannotBeConverted )
{
    const std::string lEmpty = Make( "empty.srec", "" );
    ExpectFailure( Build( { "--srec", lEmpty } ), 1,
                   "cannot convert file '" + lEmpty + "': Error reading new line from input file" );
}

TEST_F( Dfw, WithoutVerificationABadChecksumIsTaken )
{
    const std::string lFile = Make( "bad.srec", S3_AT_1000 + S3_AT_1002 + S7 );
    ExpectBuilt( { "--no-verify", "--srec", lFile }, ADDRESS_1000 + DATA_ABCD + DATA_4A );
}

TEST_F( Dfw, AFailingReaderFailsTheBuildWithItsMessage )
{
    const std::string lGood = Make( "good.srec", S3_AT_1000 + S7 );
    const std::tuple<std::string, std::string, std::string> INPUTS[] = {
        { "--srec", "", "Error reading new line from input file" },
        { "--srec", "S1041000AA41\nno record\n", "Error reading new line from input file" },
        { "--srec", "S3ZZ\n", "Failed reading record" },
        { "--srec", "S30700001000ABXX70\n", "failed reading data byte 1" },
        { "--hex", "12345\n", "unexpected data 6" },
        { "--hex", "1234\nxyzw\n", "unexpected data read" },
        { "--hex", "@nowhere\n", "Failed to read address." },
    };
    for ( const auto& [lOption, lBytes, lMessage] : INPUTS )
    {
        const std::string lFile = Make( "bad", lBytes );
        const Outcome lOutcome = Build( { "--no-verify", "--srec", lGood, lOption, lFile } );
        ExpectFailure( lOutcome, 1,
                       "htbase: cannot convert file '" + lFile + "': " + lMessage + "\n" );
    }
}

TEST_F( Dfw, AFailedBuildKeepsTheFileOfBefore )
{
    WriteWholeFile( mOut, "as it was" );
    const std::string lBad = Make( "bad", "12345\n" );
    EXPECT_EQ( Build( { "--hex", lBad } ).mStatus, 1 );
    EXPECT_EQ( ReadWholeFile( mOut ), "as it was" );
    EXPECT_THAT( mFolder.List(), ElementsAre( "bad", "out" ) );
}

TEST_F( Dfw, AFailureIsInTheReportToo )
{
    const std::string lBad = Make( "bad.srec", S3_AT_1002 );
    const Outcome lOutcome = Build( { "--srec", lBad, "--json" } );
    EXPECT_EQ( lOutcome.mStatus, 1 );
    EXPECT_THAT( ParseReport( lOutcome )["error"]["message"].get<std::string>(),
                 HasSubstr( "line 1 of '" + lBad + "'" ) );
}

TEST_F( Dfw, FilesThatCannotBeReadAreRefusedFirst )
{
    const std::string lBad = Make( "bad.srec", S3_AT_1002 );
    const std::string lFolder = mFolder.GetPath( "folder" );
    std::filesystem::create_directory( lFolder );
    const std::string lPipe = mFolder.GetPath( "pipe" );
    ASSERT_EQ( mkfifo( lPipe.c_str(), 0600 ), 0 );
    const std::pair<std::string, std::string> PATHS[] = {
        { lFolder, "Is a directory" },
        { mFolder.GetPath( "none" ), "No such file or directory" },
        { lPipe, "it is not a regular file" },
        { "", "No such file or directory" },
    };
    for ( const auto& [lPath, lReason] : PATHS )
    {
        const std::string lSentence = "cannot read file '" + lPath + "': " + lReason;
        for ( const Arguments& lInput : { Arguments{ "--srec", lPath }, Arguments{ "--hex", lPath },
                                          Arguments{ "--bin", lPath + "@0" } } )
        {
            SCOPED_TRACE( testing::PrintToString( lInput ) );
            const Outcome lOutcome =
                Build( { "--srec", lBad, lInput[0], lInput[1], "--json" } ); // not the bad line
            ExpectFailure( lOutcome, 2, lSentence );
            ExpectOneSentence( lOutcome.mError );
        }
        ExpectFailure( RunTool( { "dfw", "show", lPath } ), 2, lSentence );
        ExpectFailure( RunTool( { "dfw", "id", lPath, "x", "-o", mOut } ), 2, lSentence );
        ExpectFailure( RunTool( { "dfw", "reset", lPath, "-o", mOut } ), 2, lSentence );
    }
}

TEST_F( Dfw, AFileWithoutPermissionIsRefused )
{
    // Root may read every file, unless the programs it starts may not have that capability.
    if ( geteuid() == 0 )
    {
        ASSERT_EQ( 0, prctl( PR_CAPBSET_DROP, CAP_DAC_OVERRIDE, 0, 0, 0 ) );
        ASSERT_EQ( 0, prctl( PR_CAPBSET_DROP, CAP_DAC_READ_SEARCH, 0, 0, 0 ) );
    }
    const std::string lPath = Make( "secret", HEAD );
    std::filesystem::permissions( lPath, std::filesystem::perms::none );
    ExpectFailure( Build( { "--bin", lPath + "@0" } ), 2, "Permission denied" );
    ExpectFailure( RunTool( { "dfw", "show", lPath } ), 2, "Permission denied" );
}

TEST_F( Dfw, WrongArgumentsAreWrongUsage )
{
    const std::string lImage = Make( "image", "x" );
    const std::pair<Arguments, std::string> LINES[] = {
        { { "--target", "1,2,3,D" }, "--version is required" },
        { { "--version", "1.2.3" }, "--target" },
        { { "--version", "1.2.3", "--target", "1,2,3" }, "is not of the form A,B,VALUE,MODE" },
        { { "--version", "1.2.3", "--target", "1,2,3,D,4" }, "is not of the form A,B,VALUE,MODE" },
        { { "--version", "1.2.3", "--target", "1,2,3,F" }, "mode 'F' is none of D, U, f and -" },
        { { "--version", "1.2.3", "--target", "1,2,3," }, "mode '' is none of" },
        { { "--version", "1.2.3", "--target", "256,2,3,D" }, "'256' is greater than 255" },
        { { "--version", "1.2.3", "--target", "1,0x100,3,D" }, "'0x100' is greater than 255" },
        { { "--version", "1.2.3", "--target", "1,2,65536,D" }, "'65536' is greater than 65535" },
        { { "--version", "1.2.3", "--target", "1,,3,D" }, "target byte '' is not a number" },
        { { "--version", "1.2", "--target", "1,2,3,D" }, "is not of the form X.Y.Z" },
        { { "--version", "1.2.3.4", "--target", "1,2,3,D" }, "is not of the form X.Y.Z" },
        { { "--version", "1.2.256", "--target", "1,2,3,D" }, "'256' is greater than 255" },
        { { "--version", "1.2.x", "--target", "1,2,3,D" }, "version part 'x' is not a number" },
        { { "--version", "1.2.3", "--target", "1,2,3,D", "--end", "4294967296" },
          "does not fit in 32 bits" },
        { { "--version", "1.2.3", "--target", "1,2,3,D", "--bin", lImage },
          "is not of the form FILE@ADDRESS" },
        { { "--version", "1.2.3", "--target", "1,2,3,D", "--bin", lImage + "@" },
          "address '' is not a number" },
        { { "--version", "1.2.3", "--target", "1,2,3,D", "--bin", lImage + "@0x100000000" },
          "does not fit in 32 bits" },
        { { "--version", "1.2.3", "--target", "1,2,3,D", "--srec" }, "--srec" },
        { { "--version", "1.2.3", "--target", "1,2,3,D", "more" }, "more" },
    };
    for ( const auto& [lArguments, lSentence] : LINES )
    {
        SCOPED_TRACE( testing::PrintToString( lArguments ) );
        Arguments lLine = { "dfw", "build", "-o", mOut };
        lLine.insert( lLine.end(), lArguments.begin(), lArguments.end() );
        const Outcome lOutcome = RunTool( lLine );
        ExpectFailure( lOutcome, 2, lSentence );
        ExpectOneSentence( lOutcome.mError );
    }
    const Outcome lNowhere =
        RunTool( { "dfw", "build", "--target", "1,2,3,D", "--version", "1.2.3" } );
    ExpectFailure( lNowhere, 2, "-o" );
    ExpectFailure( RunTool( { "dfw", "show" } ), 2, "FILE" );
    ExpectFailure( RunTool( { "dfw", "id", lImage, "-o", mOut } ), 2, "TEXT" );
    ExpectFailure( RunTool( { "dfw", "reset", lImage } ), 2, "output" );
    ExpectFailure( RunTool( { "dfw" } ), 2, "subcommand" );
}

TEST_F( Dfw, AFullDiskIsNoSuccess )
{
    const std::string lHead = Make( "head", HEAD );
    const std::string lLarge = Make( "large", MakeBytes( 300000 ) );
    const Arguments lBuild = { "dfw",     "build",     "-o",    "/dev/full", "--target",
                               "1,2,3,D", "--version", "1.2.3", "--json" };
    Arguments lLongBuild = lBuild;
    lLongBuild.insert( lLongBuild.end(), { "--bin", lLarge + "@0" } );
    for ( const Arguments& lArguments :
          { lBuild, lLongBuild, Arguments{ "dfw", "id", lHead, "x", "-o", "/dev/full", "--json" },
            Arguments{ "dfw", "reset", lHead, "-o", "/dev/full", "--json" } } )
    {
        SCOPED_TRACE( testing::PrintToString( lArguments ) );
        const Outcome lOutcome = RunTool( lArguments );
        EXPECT_EQ( lOutcome.mStatus, 1 );
        EXPECT_THAT( lOutcome.mError,
                     HasSubstr( "cannot write file '/dev/full': No space left on device" ) );
        EXPECT_EQ( ParseReport( lOutcome )["error"]["systemError"], ENOSPC );
    }
}

// The limit cuts a write short within the file, as a disk does that fills up.
TEST_F( Dfw, AShortWriteLeavesNothing )
{
    const std::string lLarge = Make( "large", MakeBytes( 300000 ) );
    struct rlimit lLimit
    {
    };
    ASSERT_EQ( getrlimit( RLIMIT_FSIZE, &lLimit ), 0 );
    struct rlimit lLow = lLimit;
    lLow.rlim_cur = 100000;
    ASSERT_EQ( setrlimit( RLIMIT_FSIZE, &lLow ), 0 );
    ASSERT_NE( std::signal( SIGXFSZ, SIG_IGN ), SIG_ERR ); // the program inherits that
    const Outcome lOutcome = Build( { "--bin", lLarge + "@0" } );
    ASSERT_EQ( setrlimit( RLIMIT_FSIZE, &lLimit ), 0 );
    ExpectFailure( lOutcome, 1, "cannot write file '" + mOut + "': File too large" );
    EXPECT_THAT( mFolder.List(), ElementsAre( "large" ) );
}

TEST_F( Dfw, AnOutputThatCannotBeMadeIsWrongUsage )
{
    const std::string lHead = Make( "head", HEAD );
    for ( const std::string& lPath : { mFolder.GetPath( "none/x" ), mFolder.GetPath() } )
    {
        for ( const Arguments& lArguments : { Arguments{ "dfw", "build", "--target", "1,2,3,D",
                                                         "--version", "1.2.3", "-o", lPath },
                                              Arguments{ "dfw", "id", lHead, "x", "-o", lPath },
                                              Arguments{ "dfw", "reset", lHead, "-o", lPath } } )
        {
            SCOPED_TRACE( testing::PrintToString( lArguments ) );
            ExpectFailure( RunTool( lArguments ), 2, "cannot write file '" + lPath + "'" );
        }
    }
}

// The output is a pipe that is not read, so the build cannot have ended when the signal arrives.
TEST_F( Dfw, AnInterruptedBuildFails )
{
    const std::string lLarge = Make( "large", MakeBytes( 300000 ) );
    ChildProcess lProgram(
        MakeToolCommand( { "dfw", "build", "-o", "/dev/stdout", "--target", "1,2,3,D", "--version",
                           "1.2.3", "--bin", lLarge + "@0" } ) );
    ASSERT_TRUE( lProgram.WaitForOutput( "T\x06" ) );
    lProgram.Signal( SIGINT );
    WaitUntilTaken( lProgram.GetId(), SIGINT );
    const Ending lEnding = lProgram.Wait();
    ASSERT_TRUE( lEnding.mExited );
    EXPECT_EQ( lEnding.mStatus, 1 );
    EXPECT_THAT( lProgram.GetError(),
                 HasSubstr( "interrupted before '/dev/stdout' was complete" ) );
}

TEST_F( Dfw, EveryRecordIsShown )
{
    const std::string lId = std::string( "I\x04"
                                         "cam\x07",
                                         6 ) +
                            std::string( 12, '\0' );
    const Outcome lOutcome =
        Show( HEAD + ADDRESS_1000 + DATA_ABCD + DATA_4A + ADDRESS_2000 + "D\x03xyz" + lId + RESET +
              std::string( "E\x04\x12\x34\x56\x78", 6 ) );
    EXPECT_EQ( lOutcome.mStatus, 0 ) << lOutcome.mError;
    EXPECT_EQ( lOutcome.mOutput,
               "0x00000000  target          0x01 0x80, value 0x1234, mode D\n"
               "0x00000008  version         1.2.255\n"
               "0x0000000D  address         0x00001000\n"
               "0x00000013  data            2 bytes, 0x00001000 to 0x00001001\n"
               "0x00000017  data            1 byte, 0x00001002 to 0x00001002\n"
               "0x0000001A  address         0x00002000\n"
               "0x00000020  data            3 bytes, 0x00002000 to 0x00002002\n"
               "0x00000025  identification  \"cam\\x07\"\n"
               "0x00000037  reset\n"
               "0x00000039  end             0x12345678\n"
               "range: 0x00001000 to 0x00001002, 3 bytes\n"
               "range: 0x00002000 to 0x00002002, 3 bytes\n"
               "total: 10 records of 63 bytes, 6 data bytes in 3 data records\n" );
    EXPECT_THAT( lOutcome.mError, IsEmpty() );
}

TEST_F( Dfw, EveryRecordIsInTheReport )
{
    const std::string lId = "I\x10"
                            "0123456789abcdef";
    const Outcome lOutcome = Show( HEAD + "D\x01x" + ADDRESS_1000 + DATA_ABCD + lId + RESET +
                                       std::string( "E\x04\x00\x00\x00\x01", 6 ),
                                   { "--json" } );
    EXPECT_EQ( lOutcome.mStatus, 0 );
    EXPECT_EQ( ParseReport( lOutcome ), nlohmann::json::parse( R"({
        "file": ")" + mFolder.GetPath( "shown" ) + R"(",
        "records": [
            { "offset": 0, "type": "target", "length": 6, "target": [ 1, 128 ], "value": 4660,
              "mode": "D" },
            { "offset": 8, "type": "version", "length": 3, "version": "1.2.255" },
            { "offset": 13, "type": "data", "length": 1, "address": null },
            { "offset": 16, "type": "address", "length": 4, "address": 4096 },
            { "offset": 22, "type": "data", "length": 2, "address": 4096 },
            { "offset": 26, "type": "identification", "length": 16, "text": "0123456789abcdef" },
            { "offset": 44, "type": "reset", "length": 0 },
            { "offset": 46, "type": "end", "length": 4, "value": 1 } ],
        "ranges": [ { "first": 4096, "last": 4097, "bytes": 2 } ],
        "totals": { "records": 8, "dataRecords": 2, "dataBytes": 3, "bytes": 52 } })" ) );
}

TEST_F( Dfw, ModesAndDataWithoutAddressAreShown )
{
    const std::pair<std::string, std::string> RECORDS[] = {
        { std::string( "T\x05\x02\x01\x02\x00\x03", 7 ), "mode -" },
        { std::string( "T\x06\x02\x01\x02\x00\x03U", 8 ), "mode U" },
        { std::string( "T\x06\x02\x01\x02\x00\x03"
                       "f",
                       8 ),
          "mode f" },
        { std::string( "T\x07\x02\x01\x02\x00\x03XX", 9 ), "mode -" }, // too long for a mode
        { "D\x01x", "1 byte, no address" },
    };
    for ( const auto& [lRecord, lText] : RECORDS )
    {
        const Outcome lOutcome = Show( lRecord );
        EXPECT_EQ( lOutcome.mStatus, 0 ) << lOutcome.mError;
        EXPECT_THAT( lOutcome.mOutput, HasSubstr( lText + "\n" ) );
        EXPECT_THAT( lOutcome.mOutput, Not( HasSubstr( "range" ) ) );
    }
}

TEST_F( Dfw, RangesThatTouchOrOverlapAreOne )
{
    const auto lAt = []( char aLow )
    {
        return std::string( "O\x04\x00\x00\x10", 5 ) + aLow;
    };
    const Outcome lOutcome =
        Show( lAt( 4 ) + "D\x02xx" + lAt( 0 ) + "D\x02xx" + lAt( 2 ) + "D\x02xx" + lAt( 1 ) +
              "D\x01x" + lAt( 5 ) + "D\x03xxx" + lAt( 16 ) + "D\x01x" );
    EXPECT_EQ( LinesOf( lOutcome.mOutput, "range" ), "range: 0x00001000 to 0x00001007, 8 bytes\n"
                                                     "range: 0x00001010 to 0x00001010, 1 byte\n" );
}

TEST_F( Dfw, DataGoesOnAtTheFirstAddressAfterTheLast )
{
    const Outcome lOutcome = Show( "O\x04\xFF\xFF\xFF\xFE"
                                   "D\x03xyzD\x01x" );
    EXPECT_THAT( lOutcome.mOutput, AllOf( HasSubstr( "3 bytes, 0xFFFFFFFE to 0x00000000\n" ),
                                          HasSubstr( "1 byte, 0x00000001 to 0x00000001\n" ) ) );
    EXPECT_EQ( LinesOf( lOutcome.mOutput, "range" ), "range: 0x00000000 to 0x00000001, 2 bytes\n"
                                                     "range: 0xFFFFFFFE to 0xFFFFFFFF, 2 bytes\n" );
}

TEST_F( Dfw, ADamagedPayloadIsShownUpToTheDamage )
{
    const std::pair<std::string, std::string> DAMAGES[] = {
        { "V", "is cut off in the version record at 0x0000000D" },
        { "V\x03\x01\x02", "is cut off in the version record at 0x0000000D" },
        { "D\x05"
          "abcd",
          "is cut off in the data record at 0x0000000D" },
        { "I\x03"
          "cam",
          "is cut off in the identification record at 0x0000000D" },
        { "I\x03"
          "cam0123456789012",
          "holds an identification record at 0x0000000D that is not filled up with zeros" },
        { "Q\x01x", "holds a record of unknown type 0x51 at 0x0000000D" },
        { std::string( 16, '\0' ), "holds a record of unknown type 0x00 at 0x0000000D" },
        { "V\x02xx", "holds a version record at 0x0000000D with the wrong length 2" },
        { std::string( "D\x00", 2 ), "holds a data record at 0x0000000D with the wrong length 0" },
        { "D\xFF" + std::string( 255, 'x' ),
          "holds a data record at 0x0000000D with the wrong length 255" },
        { "T\x05\x03xxxx", "holds a target record at 0x0000000D that does not begin with 0x02" },
        { "T\x06\x02xxxxF", "holds a target record at 0x0000000D that has an unknown mode" },
    };
    for ( const auto& [lBytes, lDamage] : DAMAGES )
    {
        SCOPED_TRACE( lDamage );
        const std::string lSentence = "payload '" + mFolder.GetPath( "shown" ) + "' " + lDamage;
        const Outcome lOutcome = Show( HEAD + lBytes );
        EXPECT_EQ( lOutcome.mStatus, 1 );
        EXPECT_EQ( lOutcome.mError, "htbase: " + lSentence + "\n" );
        EXPECT_EQ( lOutcome.mOutput,
                   "0x00000000  target          0x01 0x80, value 0x1234, mode D\n"
                   "0x00000008  version         1.2.255\n"
                   "total: 2 records of 13 bytes, 0 data bytes in 0 data records\n" );
        const Outcome lJson = Show( HEAD + lBytes, { "--json" } );
        EXPECT_EQ( lJson.mStatus, 1 );
        const nlohmann::json lReport = ParseReport( lJson );
        EXPECT_EQ( lReport["records"].size(), 2U );
        EXPECT_EQ( lReport["totals"]["bytes"], 13 );
        EXPECT_EQ( lReport["error"]["message"], lSentence );
    }
}

TEST_F( Dfw, AnEmptyPayloadIsDamaged )
{
    const Outcome lOutcome = Show( "" );
    EXPECT_EQ( lOutcome.mStatus, 1 );
    EXPECT_THAT( lOutcome.mError, HasSubstr( "is empty" ) );
}

TEST_F( Dfw, EveryCutOfAPayloadIsSurvived )
{
    const std::string lWhole = HEAD + ADDRESS_1000 + DATA_ABCD + RESET;
    const std::vector<size_t> lEnds = { 8, 13, 19, 23, 25 };
    for ( size_t lSize = 0; lSize <= lWhole.size(); ++lSize )
    {
        const Outcome lOutcome = Show( lWhole.substr( 0, lSize ) );
        const bool lIsWhole = std::find( lEnds.begin(), lEnds.end(), lSize ) != lEnds.end();
        EXPECT_EQ( lOutcome.mStatus, lIsWhole ? 0 : 1 ) << lSize;
    }
}

TEST_F( Dfw, ShowingToAFullDiskIsNoSuccess )
{
    ChildProcess::Options lOptions;
    lOptions.mOutputPath = "/dev/full";
    const Outcome lOutcome = RunTool( { "dfw", "show", Make( "head", HEAD ) }, lOptions );
    EXPECT_EQ( lOutcome.mStatus, 1 );
    EXPECT_THAT( lOutcome.mError, HasSubstr( "cannot write to standard output" ) );
}

TEST_F( Dfw, AnIdentificationPayloadIsBuiltFromAnother )
{
    const std::string lPayload = Make( "payload", HEAD + ADDRESS_1000 + DATA_ABCD + RESET );
    const std::string lLong( 255, 'n' );
    const std::pair<std::string, std::string> TEXTS[] = {
        { "cam1", "I\x04"
                  "cam1" +
                      std::string( 12, '\0' ) },
        { "0123456789abcdef", "I\x10"
                              "0123456789abcdef" },
        { "\xC3\xA9\xFF", "I\x03\xC3\xA9\xFF" + std::string( 13, '\0' ) },
        { lLong, "I\xFF" + lLong },
    };
    for ( const auto& [lText, lRecord] : TEXTS )
    {
        const Outcome lOutcome = RunTool( { "dfw", "id", lPayload, lText, "-o", mOut } );
        EXPECT_EQ( lOutcome.mStatus, 0 ) << lOutcome.mError;
        EXPECT_EQ( ReadWholeFile( mOut ), HEAD + lRecord );
        EXPECT_THAT( lOutcome.mOutput, IsEmpty() );
    }
    const nlohmann::json lReport =
        ParseReport( RunTool( { "dfw", "id", lPayload, "cam1", "-o", mOut, "--json" } ) );
    EXPECT_EQ( lReport["payload"], lPayload );
    EXPECT_EQ( lReport["text"], "cam1" );
    EXPECT_EQ( lReport["file"], mOut );
    EXPECT_EQ( lReport["bytes"], 31 );
}

TEST_F( Dfw, AnIdentificationHas1To255Bytes )
{
    const std::string lPayload = Make( "payload", HEAD );
    for ( const std::string& lText : { std::string(), std::string( 256, 'n' ) } )
    {
        const Outcome lOutcome = RunTool( { "dfw", "id", lPayload, lText, "-o", mOut } );
        ExpectFailure( lOutcome, 2, "1 to 255 bytes, not " + std::to_string( lText.size() ) );
        ExpectOneSentence( lOutcome.mError );
    }
}

TEST_F( Dfw, AResetPayloadIsBuiltFromAnother )
{
    const std::string lPayload = Make( "payload", HEAD + ADDRESS_1000 + DATA_ABCD );
    const Outcome lOutcome = RunTool( { "dfw", "reset", lPayload, "-o", mOut } );
    EXPECT_EQ( lOutcome.mStatus, 0 ) << lOutcome.mError;
    EXPECT_EQ( lOutcome.mError, "htbase: wrote 15 bytes to '" + mOut + "'\n" );
    EXPECT_EQ( ReadWholeFile( mOut ), HEAD + RESET );
    // Also in place.
    EXPECT_EQ( RunTool( { "dfw", "reset", lPayload, "-o", lPayload } ).mStatus, 0 );
    EXPECT_EQ( ReadWholeFile( lPayload ), HEAD + RESET );
}

TEST_F( Dfw, APayloadWithoutTargetOrVersionIsRefused )
{
    const std::pair<std::string, std::string> PAYLOADS[] = {
        { "", "no target record" },
        { VERSION_1_2_255, "no target record" },
        { "T\x05\x03xxxx" + HEAD, "no target record" },
        { "T\x06\x02xxxxF" + VERSION_1_2_255, "no target record" },
        { TARGET_D.substr( 0, 6 ), "no target record" },
        { TARGET_D, "no version record" },
        { TARGET_D + "V\x04xxxx", "no version record" },
        { TARGET_D + "V\x03xx", "no version record" },
    };
    for ( const auto& [lBytes, lSentence] : PAYLOADS )
    {
        SCOPED_TRACE( testing::PrintToString( lBytes ) );
        const std::string lPayload = Make( "payload", lBytes );
        const std::string lWhole = "payload '" + lPayload + "' has " + lSentence;
        ExpectFailure( RunTool( { "dfw", "id", lPayload, "cam", "-o", mOut } ), 1, lWhole );
        ExpectFailure( RunTool( { "dfw", "reset", lPayload, "-o", mOut } ), 1, lWhole );
    }
}

// The image of another tool, through the program and back.
TEST_F( Dfw, AnImageOfAnotherToolArrivesWhole )
{
    const std::string lBytes = MakeBytes( 5000 );
    const std::string lImage = Make( "image", lBytes );
    const std::string lFile = mFolder.GetPath( "image.srec" );
    const Outcome lMade =
        RunProgram( { "srec_cat", lImage, "-binary", "-offset", "0x8000", "-o", lFile, "-motorola",
                      "-address-length=4", "-line-length=80" } );
    ASSERT_EQ( lMade.mStatus, 0 ) << lMade.mError;
    ASSERT_EQ( Build( { "--srec", lFile } ).mStatus, 0 );
    const Outcome lShown = RunTool( { "dfw", "show", mOut } );
    EXPECT_EQ( lShown.mStatus, 0 );
    EXPECT_EQ( LinesOf( lShown.mOutput, "range" ),
               "range: 0x00008000 to 0x00009387, 5000 bytes\n" );
    const std::string lPayload = ReadWholeFile( mOut );
    std::string lBack;
    for ( size_t lPlace = 0; lPlace + 1 < lPayload.size(); )
    {
        const size_t lLength = static_cast<uint8_t>( lPayload[lPlace + 1] );
        lBack += lPayload[lPlace] == 'D' ? lPayload.substr( lPlace + 2, lLength ) : "";
        lPlace += 2 + lLength;
    }
    EXPECT_TRUE( lBack == lBytes );
}

} // namespace TestSupport
