#include "Tools/htbase/GevCommands.h"

#include <WdUtilsLib/GEV/CommandHeader.h>

#include <CLI/CLI.hpp>

namespace HtBaseTool
{

namespace
{

constexpr int TIMEOUT_MAX = 3600000; // one hour
constexpr int RETRIES_MAX = 1000;

} // namespace

HostPort GevTarget::GetHost() const
{
    return ParseHost( mHost, WdUtilsLib::GEV::GVCP_PORT );
}

void AddLinkOptions( CLI::App& aCommand, LinkOptions& aOptions )
{
    aCommand.add_option( "--timeout", aOptions.mTimeoutMs, "Milliseconds to wait for each answer" )
        ->type_name( "MS" )
        ->check( CLI::Range( 1, TIMEOUT_MAX ) )
        ->capture_default_str();
    aCommand
        .add_option( "--retries", aOptions.mAttempts,
                     "How many times a command is sent at most, including the first" )
        ->type_name( "N" )
        ->check( CLI::Range( 1, RETRIES_MAX ) )
        ->capture_default_str();
}

void AddTarget( CLI::App& aCommand, GevTarget& aTarget )
{
    aCommand
        .add_option( "HOST", aTarget.mHost,
                     "The device: dotted IPv4 address or name, and :PORT if it is not 3956" )
        ->type_name( "" )
        ->required();
    AddLinkOptions( aCommand, aTarget.mLink );
}

void AddGevCommands( CLI::App& aApp, Program& aProgram )
{
    CLI::App* const lGroup = AddGroup( aApp, "gev", "GigE Vision devices" );
    AddGevDiscover( *lGroup, aProgram );
    AddGevInfo( *lGroup, aProgram );
    AddGevRead( *lGroup, aProgram );
    AddGevMonitor( *lGroup, aProgram );
    AddGevWrite( *lGroup, aProgram );
    AddGevDump( *lGroup, aProgram );
    AddGevLoad( *lGroup, aProgram );
}

} // namespace HtBaseTool
