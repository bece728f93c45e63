// The commands for GigE Vision devices. Each adds itself to the group `gev`.
#pragma once

#include "Tools/htbase/Host.h"
#include "Tools/htbase/Program.h"
#include "Tools/htbase/ToolLinkGEV.h"

#include <cstdint>
#include <string>

namespace HtBaseTool
{

// The user's options for the device and the link.
struct GevTarget
{
    std::string mHost;
    LinkOptions mLink;

    // Throws a usage failure.
    HostPort GetHost() const;
};

// Adds --timeout and --retries, or HOST and both.
void AddLinkOptions( CLI::App& aCommand, LinkOptions& aOptions );
void AddTarget( CLI::App& aCommand, GevTarget& aTarget );

void AddGevDiscover( CLI::App& aGroup, Program& aProgram );
void AddGevInfo( CLI::App& aGroup, Program& aProgram );
void AddGevRead( CLI::App& aGroup, Program& aProgram );
void AddGevMonitor( CLI::App& aGroup, Program& aProgram );
void AddGevWrite( CLI::App& aGroup, Program& aProgram );
void AddGevDump( CLI::App& aGroup, Program& aProgram );
void AddGevLoad( CLI::App& aGroup, Program& aProgram );

} // namespace HtBaseTool
