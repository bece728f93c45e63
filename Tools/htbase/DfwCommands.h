// The commands on firmware payloads.
#pragma once

#include "Tools/htbase/Program.h"

namespace HtBaseTool
{

void AddDfwBuild( CLI::App& aGroup, Program& aProgram );
void AddDfwShow( CLI::App& aGroup, Program& aProgram );

// Says how large a payload has become and under which name.
void ReportPayload( Program& aProgram, const std::string& aPath, uint64_t aSize );

} // namespace HtBaseTool
