// The parts that all commands of the program share.
#pragma once

#include "Tools/htbase/Interruption.h"

#include <nlohmann/json.hpp>

#include <functional>

namespace CLI
{
class App;
}

namespace HtBaseTool
{

// Program is passed to every command group when the command line is set up, and to the chosen
// command.
//
// A command throws a Failure when it cannot go on. With --json it prints nothing but fills mReport,
// as far as it came; the program prints the report, with the failure in it, once the command has
// ended. A command that reports continuously prints lines of JSON instead, and its report is the
// last of them.
struct Program
{
    bool mIsJson = false;
    Interruption mInterruption;
    std::function<void( Program& )> mCommand; // the one chosen
    bool mIsReportLine = false;               // the report is one line
    nlohmann::ordered_json mReport = nlohmann::ordered_json::object();
};

// Adds a subcommand that knows the global options as well and runs aCommand.
CLI::App* AddCommand( CLI::App& aParent, const char* aName, const char* aDescription,
                      Program& aProgram, std::function<void( Program& )> aCommand );

// Adds a subcommand that only holds others.
CLI::App* AddGroup( CLI::App& aParent, const char* aName, const char* aDescription );

// What --version prints; for commands that have an option of that name with another meaning.
void PrintVersion();

// The command groups.
void AddDfwCommands( CLI::App& aApp, Program& aProgram );
void AddGevCommands( CLI::App& aApp, Program& aProgram );
void AddTftpCommands( CLI::App& aApp, Program& aProgram );
void AddU3vCommands( CLI::App& aApp, Program& aProgram );
void AddSimCommands( CLI::App& aApp, Program& aProgram );

} // namespace HtBaseTool
