// The commands for USB3 Vision devices. Each adds itself to the group `u3v`.
#pragma once

#include "Tools/htbase/Program.h"

#include <string>

namespace HtBaseTool
{

// The user's options for the device.
struct U3vTarget
{
    std::string mName;
};

// Adds DEVICE.
void AddTarget( CLI::App& aCommand, U3vTarget& aTarget );

void AddU3vList( CLI::App& aGroup, Program& aProgram );
void AddU3vInfo( CLI::App& aGroup, Program& aProgram );
void AddU3vRead( CLI::App& aGroup, Program& aProgram );
void AddU3vWrite( CLI::App& aGroup, Program& aProgram );
void AddU3vDump( CLI::App& aGroup, Program& aProgram );
void AddU3vLoad( CLI::App& aGroup, Program& aProgram );

} // namespace HtBaseTool
