// htbase: registers, memory, files and firmware of cameras from the command line, and virtual
// cameras.

#include "Tools/htbase/Console.h"
#include "Tools/htbase/Failure.h"
#include "Tools/htbase/Program.h"
#include "Tools/htbase/Text.h"

#include <QmUtilsLib/Assert.h>
#include <QmUtilsLib/Logger.h>

#include <CLI/CLI.hpp>

#include <cstdio>
#include <string>
#include <utility>

namespace HtBaseTool
{

using QmUtilsLib::Logger;
using QmUtilsLib::LogRecord;

CLI::App* AddGroup( CLI::App& aParent, const char* aName, const char* aDescription )
{
    CLI::App* const lGroup = aParent.add_subcommand( aName, aDescription );
    lGroup->fallthrough();
    lGroup->require_subcommand( 1 );
    return lGroup;
}

CLI::App* AddCommand( CLI::App& aParent, const char* aName, const char* aDescription,
                      Program& aProgram, std::function<void( Program& )> aCommand )
{
    CLI::App* const lCommand = aParent.add_subcommand( aName, aDescription );
    lCommand->fallthrough();
    lCommand->callback( [&aProgram, lAction = std::move( aCommand )]
                        { aProgram.mCommand = lAction; } );
    return lCommand;
}

void PrintVersion()
{
    Print( "htbase " HTBASE_VERSION "\n" );
}

namespace
{

void PrintLogRecord( const LogRecord& aRecord )
{
    PrintNote( "log " + std::to_string( aRecord.mPriority ) + " " + aRecord.mLogger + " " +
               aRecord.mFunction + ": " + aRecord.mText );
}

// -v: what was recovered from, and errors. -vv: everything.
void SetVerbosity( size_t aCount )
{
    if ( aCount == 0 )
    {
        return;
    }
    Logger::SetThreshold( aCount == 1 ? Logger::ANOMALY : 0 );
    Logger::SetSink( PrintLogRecord );
}

// Invalid data from a device must not end the program; the code goes on as a release build does,
// which has no assertions.
void RecordAssertion( const char* aExpression, const char* aFile, int aLine )
{
    static const Logger LOGGER( "htbase", 0 );
    if ( LOGGER.IsPriorityEnabled( Logger::FAILURE ) )
    {
        LOGGER.Log( Logger::FAILURE, aFile, aLine, "HtBaseTool::RecordAssertion",
                    "Assertion does not hold: %s", aExpression );
    }
}

void PrintReport( const Program& aProgram )
{
    if ( aProgram.mIsReportLine )
    {
        PrintJsonLine( aProgram.mReport );
        return;
    }
    PrintJson( aProgram.mReport );
}

// Runs the command and prints its report.
void RunCommand( Program& aProgram )
{
    try
    {
        aProgram.mCommand( aProgram );
    }
    catch ( const Failure& lFailure )
    {
        if ( aProgram.mIsJson && lFailure.GetStatus() != ExitStatus::USAGE )
        {
            const bool lIsError = lFailure.GetStatus() == ExitStatus::REFUSED;
            if ( lIsError && aProgram.mReport.is_object() )
            {
                aProgram.mReport["error"] = MakeError( lFailure );
            }
            PrintReport( aProgram );
        }
        throw;
    }
    if ( aProgram.mIsJson )
    {
        PrintReport( aProgram );
    }
}

// What is wrong with the command line. A command that does not exist shows as one that is missing.
std::string Explain( const CLI::App& aApp, const CLI::ParseError& aError )
{
    const std::vector<std::string> lUnknown = aApp.remaining( true );
    const std::string lText = aError.what();
    return lText == CLI::RequiredError::Subcommand( 1 ).what() && !lUnknown.empty()
               ? "'" + lUnknown.front() + "' is neither a command nor an option"
               : lText;
}

// The command line as it was understood; returns false when there is nothing more to do, because it
// only asked for help or the version.
bool Parse( CLI::App& aApp, int aCount, char** aArguments )
{
    try
    {
        aApp.parse( aCount, aArguments );
        return true;
    }
    catch ( const CLI::CallForVersion& lVersion )
    {
        Print( std::string( lVersion.what() ) + '\n' );
    }
    catch ( const CLI::Success& lHelp )
    {
        std::ostringstream lText;
        (void)aApp.exit( lHelp, lText, lText );
        Print( lText.str() );
    }
    catch ( const CLI::ParseError& lError )
    {
        throw MakeUsageFailure( Explain( aApp, lError ) + " - see htbase --help" );
    }
    return false;
}

void SetUp( CLI::App& aApp, Program& aProgram )
{
    aApp.name( "htbase" );
    aApp.require_subcommand( 1 );
    aApp.set_version_flag( "--version", "htbase " HTBASE_VERSION, "Print the version and exit" );
    aApp.set_help_flag( "-h,--help", "Print this help and exit" );
    aApp.add_flag( "--json", aProgram.mIsJson, "Print one JSON object or array" );
    aApp.add_flag(
        "-v", []( int64_t aTimes ) { SetVerbosity( static_cast<size_t>( aTimes ) ); },
        "Log the problems that the library recovered from to standard error; -vv: log everything" );
    aApp.footer( "--json, -v, -vv and --version may stand anywhere.\n"
                 "Exit status: 0 success; 1 the device refused or did not answer, or the transfer "
                 "failed; 2 wrong usage; "
                 "3 the file may be incomplete (tftp get), or some reads failed (gev monitor)." );
    AddGevCommands( aApp, aProgram );
    AddU3vCommands( aApp, aProgram );
    AddTftpCommands( aApp, aProgram );
    AddDfwCommands( aApp, aProgram );
    AddSimCommands( aApp, aProgram );
}

ExitStatus Run( int aCount, char** aArguments )
{
    try
    {
        Program lProgram;
        CLI::App lApp(
            "Reads and writes the registers, memory and files of cameras, builds firmware "
            "payloads for them, and runs virtual cameras." );
        SetUp( lApp, lProgram );
        if ( Parse( lApp, aCount, aArguments ) )
        {
            RunCommand( lProgram );
        }
        return ExitStatus::DONE;
    }
    catch ( const Failure& lFailure )
    {
        PrintNote( lFailure.what() );
        return lFailure.GetStatus();
    }
    catch ( const std::exception& lException ) // no memory, no thread
    {
        PrintNote( std::string( "cannot continue: " ) + lException.what() );
        return ExitStatus::REFUSED;
    }
}

} // namespace

} // namespace HtBaseTool

int main( int aCount, char** aArguments )
{
    HtBaseTool::GuardStandardStreams();
    (void)QmUtilsLib::SetAssertionHandler( HtBaseTool::RecordAssertion );
    return static_cast<int>( HtBaseTool::Run( aCount, aArguments ) );
}
