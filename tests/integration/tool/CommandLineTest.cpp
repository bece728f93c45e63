// The program's manners: help, version, wrong usage, unwritable output.

#include "tests/integration/tool/ToolTest.h"

#include <algorithm>

using testing::HasSubstr;
using testing::IsEmpty;

namespace TestSupport
{

namespace
{

class CommandLine : public ToolTest
{
protected:
    // Runs with TARGET replaced, and expects wrong usage, one sentence with aSentence in it,
    // nothing on standard output and nothing sent to the device.
    void ExpectUsage( Arguments aArguments, const std::string& aSentence )
    {
        std::replace( aArguments.begin(), aArguments.end(), std::string( "TARGET" ), GetTarget() );
        const Outcome lOutcome = RunTool( aArguments );
        SCOPED_TRACE( testing::PrintToString( aArguments ) );
        EXPECT_EQ( lOutcome.mStatus, 2 );
        EXPECT_THAT( lOutcome.mError, HasSubstr( aSentence ) );
        ExpectOneSentence( lOutcome.mError );
        EXPECT_THAT( lOutcome.mOutput, IsEmpty() );
        EXPECT_THAT( GetCommands(), IsEmpty() );
    }
};

} // namespace

TEST_F( CommandLine, EveryCommandHasHelp )
{
    const std::vector<Arguments> lCommands = {
        {},
        { "gev" },
        { "gev", "discover" },
        { "gev", "read" },
        { "gev", "write" },
        { "gev", "dump" },
        { "gev", "load" },
        { "dfw" },
        { "dfw", "build" },
        { "dfw", "show" },
        { "dfw", "id" },
        { "dfw", "reset" },
        { "sim" },
        { "sim", "gev" },
        { "sim", "tftp" },
        { "tftp" },
        { "tftp", "put" },
        { "tftp", "get" },
    };
    for ( Arguments lCommand : lCommands )
    {
        SCOPED_TRACE( testing::PrintToString( lCommand ) );
        std::string lUsage = "Usage: htbase";
        for ( const std::string& lWord : lCommand )
        {
            lUsage += " " + lWord;
        }
        lCommand.emplace_back( "--help" );
        const Outcome lOutcome = RunTool( lCommand );
        EXPECT_EQ( lOutcome.mStatus, 0 );
        EXPECT_THAT( lOutcome.mOutput, HasSubstr( lUsage ) );
        EXPECT_THAT( lOutcome.mOutput, HasSubstr( "Exit status" ) );
        EXPECT_THAT( lOutcome.mError, IsEmpty() );
    }
}

TEST_F( CommandLine, TheVersionCanBePrintedByEveryCommand )
{
    for ( const Arguments& lCommand :
          { Arguments{ "--version" }, Arguments{ "gev", "--version" },
            Arguments{ "gev", "read", "--version" }, Arguments{ "gev", "load", "--version" },
            Arguments{ "dfw", "build", "--version" }, Arguments{ "dfw", "show", "--version" },
            Arguments{ "sim", "gev", "--version" } } )
    {
        SCOPED_TRACE( testing::PrintToString( lCommand ) );
        const Outcome lOutcome = RunTool( lCommand );
        EXPECT_EQ( lOutcome.mStatus, 0 );
        EXPECT_EQ( lOutcome.mOutput, "htbase " HTBASE_VERSION "\n" );
        EXPECT_THAT( lOutcome.mError, IsEmpty() );
    }
}

TEST_F( CommandLine, UnknownCommandsAndOptionsAreWrongUsage )
{
    ExpectUsage( {}, "A subcommand is required" );
    ExpectUsage( { "gev" }, "A subcommand is required" );
    ExpectUsage( { "frob" }, "'frob' is neither a command nor an option" );
    ExpectUsage( { "gev", "frob" }, "'frob' is neither a command nor an option" );
    ExpectUsage( { "gev", "read", "TARGET", "0", "--frob" }, "--frob" );
    ExpectUsage( { "gev", "discover", "extra" }, "extra" );
    ExpectUsage( { "gev", "dump", "TARGET", "0", "4", "extra" }, "extra" );
}

TEST_F( CommandLine, MissingArgumentsAreWrongUsage )
{
    ExpectUsage( { "gev", "read" }, "HOST is required" );
    ExpectUsage( { "gev", "read", "TARGET" }, "ADDRESS is required" );
    ExpectUsage( { "gev", "write", "TARGET" }, "ADDRESS=VALUE is required" );
    ExpectUsage( { "gev", "dump", "TARGET", "0" }, "LENGTH is required" );
    ExpectUsage( { "gev", "load", "TARGET", "0" }, "FILE is required" );
    ExpectUsage( { "gev", "dump", "TARGET", "0", "4", "-o" }, "-o" );
    ExpectUsage( { "tftp", "put", "127.0.0.1" }, "FILE is required" );
    ExpectUsage( { "tftp", "get", "127.0.0.1" }, "NAME is required" );
    ExpectUsage( { "sim", "gev", "--tftp-port", "0" }, "--tftp" );
}

TEST_F( CommandLine, InvalidHostsAreWrongUsage )
{
    for ( const char* lHost :
          { "", "1.2.3", "1.2.3.4.5", "256.1.1.1", "127.1", "127.000.000.001", "0x7f000001",
            "2130706433", "[::1]", "::1", "-host", "a b", "host/name", ".", "127.0.0.1 " } )
    {
        ExpectUsage( { "gev", "discover", "--to", lHost, "--timeout", "1" },
                     *lHost == '\0' || std::string( lHost ) == "::1" ||
                             std::string( lHost ) == "[::1]"
                         ? "htbase: "
                         : "is neither a dotted IPv4 address nor a name" );
    }
    ExpectUsage( { "gev", "read", "host.invalid", "0" },
                 "cannot find the IPv4 address of host 'host.invalid'" );
}

TEST_F( CommandLine, InvalidPortsAreWrongUsage )
{
    for ( const char* lPort :
          { "", "0", "65536", "99999999999999999999", "-1", "+1", "1x", "0x1" } )
    {
        ExpectUsage( { "gev", "read", std::string( "127.0.0.1:" ) + lPort, "0" },
                     std::string( "port '" ) + lPort + "'" );
    }
}

TEST_F( CommandLine, InvalidNumbersAreWrongUsage )
{
    for ( const char* lNumber :
          { "", "x", "0x", "0xG", "1 ", " 1", "+1", "-4", "1.5", "4k", "0b1" } )
    {
        ExpectUsage( { "gev", "read", "TARGET", lNumber },
                     std::string( "address '" ) + lNumber + "' is not a number" );
        ExpectUsage( { "gev", "dump", "TARGET", "0", lNumber },
                     std::string( "length '" ) + lNumber + "' is not a number" );
        ExpectUsage( { "gev", "write", "TARGET", std::string( "0xA000=" ) + lNumber },
                     std::string( "value '" ) + lNumber + "' is not a number" );
    }
}

TEST_F( CommandLine, NumbersBeyond32BitsAreWrongUsage )
{
    for ( const char* lNumber :
          { "0x100000000", "4294967296", "18446744073709551616", "0xFFFFFFFFFFFFFFFFFFFFFFFFF" } )
    {
        ExpectUsage( { "gev", "read", "TARGET", lNumber }, "does not fit in 32 bits" );
        ExpectUsage( { "gev", "dump", "TARGET", lNumber, "4" }, "does not fit in 32 bits" );
        ExpectUsage( { "gev", "write", "TARGET", std::string( "0xA000=" ) + lNumber },
                     "does not fit in 32 bits" );
    }
}

TEST_F( CommandLine, RegisterAddressesAreMultiplesOfFour )
{
    ExpectUsage( { "gev", "read", "TARGET", "0", "0xA001" }, "'0xA001' is not a multiple of 4" );
    ExpectUsage( { "gev", "write", "TARGET", "2=1" }, "'2' is not a multiple of 4" );
}

TEST_F( CommandLine, PairsHaveAddressAndValue )
{
    ExpectUsage( { "gev", "write", "TARGET", "0xA000" }, "is not of the form ADDRESS=VALUE" );
    ExpectUsage( { "gev", "write", "TARGET", "=5" }, "address '' is not a number" );
    ExpectUsage( { "gev", "write", "TARGET", "0xA000=5=6" }, "value '5=6' is not a number" );
    ExpectUsage( { "gev", "write", "TARGET", "0xA000=5", "0xA004" },
                 "'0xA004' is not of the form" );
}

TEST_F( CommandLine, TimeOutAndRetriesHaveLimits )
{
    for ( const char* lBad : { "0", "-1", "abc", "", "3600001", "99999999999999999999" } )
    {
        ExpectUsage( { "gev", "read", "TARGET", "0", "--timeout", lBad }, "--timeout" );
        ExpectUsage( { "gev", "read", "TARGET", "0", "--retries", lBad }, "--retries" );
    }
    ExpectUsage( { "gev", "read", "TARGET", "0", "--retries", "1001" }, "--retries" );
}

TEST_F( CommandLine, ControlCharactersOfArgumentsDoNotReachTheTerminal )
{
    const Outcome lOutcome = RunTool( { "gev", "read", "TARGET\x1B[2J\n", "0" } );
    EXPECT_EQ( lOutcome.mStatus, 2 );
    ExpectOneSentence( lOutcome.mError );
    EXPECT_THAT( lOutcome.mError, HasSubstr( "TARGET\\x1B[2J\\x0A" ) );
}

TEST_F( CommandLine, OutputThatCannotBeWrittenIsAFailure )
{
    ChildProcess::Options lFull;
    lFull.mOutputPath = "/dev/full";
    ChildProcess::Options lClosed;
    lClosed.mCloseOutput = true;
    const std::vector<Arguments> lCommands = {
        { "--help" },
        { "--version" },
        { "gev", "read", GetTarget(), "0" },
        { "gev", "read", GetTarget(), "0", "--json" },
        { "gev", "write", GetTarget(), "0xA000=1" },
        { "gev", "dump", GetTarget(), "0", "4" },
        { "gev", "discover", "--to", GetTarget() },
        { "sim", "gev", "--port", "0" },
    };
    for ( const Arguments& lCommand : lCommands )
    {
        SCOPED_TRACE( testing::PrintToString( lCommand ) );
        const Outcome lOnFull = RunTool( lCommand, lFull );
        EXPECT_EQ( lOnFull.mStatus, 1 );
        EXPECT_THAT( lOnFull.mError,
                     HasSubstr( "cannot write to standard output: No space left" ) );
        const Outcome lOnClosed = RunTool( lCommand, lClosed );
        EXPECT_EQ( lOnClosed.mStatus, 1 );
        EXPECT_THAT( lOnClosed.mError,
                     HasSubstr( "cannot write to standard output: Bad file descriptor" ) );
    }
}

// A socket that took the number of the closed output would get the text.
TEST_F( CommandLine, NothingIsWrittenToTheDeviceInPlaceOfAClosedOutput )
{
    ChildProcess::Options lClosed;
    lClosed.mCloseOutput = true;
    EXPECT_EQ( RunGev( "read", { "0" }, lClosed ).mStatus, 1 );
    EXPECT_EQ( GetDevice().mServer.GetCounters().mReceived, 1U ); // the READREG alone
}

// Control is released even if the reader of the output has closed the pipe.
TEST_F( CommandLine, AClosedPipeDoesNotEndTheProgramHalfWay )
{
    ChildProcess::Options lFull;
    lFull.mOutputPath = "/dev/full";
    EXPECT_EQ( RunGev( "write", { "0xA000=1", "0xA004=2" }, lFull ).mStatus, 1 );
    EXPECT_FALSE( IsControlHeld() );
    EXPECT_EQ( ReadWord( 0x0A00 ), 0U );
}

} // namespace TestSupport
