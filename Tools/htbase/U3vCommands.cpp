#include "Tools/htbase/U3vCommands.h"

#include <CLI/CLI.hpp>

namespace HtBaseTool
{

void AddTarget( CLI::App& aCommand, U3vTarget& aTarget )
{
    aCommand
        .add_option( "DEVICE", aTarget.mName,
                     "The device: its path (2-1.4) or its GUID, as `u3v list` prints them" )
        ->type_name( "" )
        ->required();
}

void AddU3vCommands( CLI::App& aApp, Program& aProgram )
{
    CLI::App* const lGroup = AddGroup( aApp, "u3v", "USB3 Vision devices" );
    AddU3vList( *lGroup, aProgram );
    AddU3vInfo( *lGroup, aProgram );
    AddU3vRead( *lGroup, aProgram );
    AddU3vWrite( *lGroup, aProgram );
    AddU3vDump( *lGroup, aProgram );
    AddU3vLoad( *lGroup, aProgram );
}

} // namespace HtBaseTool
