// Runs the example programs.
#pragma once

#include "tests/support/ChildProcess.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

namespace TestSupport
{

using Arguments = std::vector<std::string>;

// The command line of an example: that of this build, or the one in the folder that the environment
// variable HTBASE_EXAMPLES names, so that examples built elsewhere can be put to the same tests.
inline Arguments MakeExampleCommand( const std::string& aName, const Arguments& aArguments )
{
    const char* const lFolder = std::getenv( "HTBASE_EXAMPLES" );
    Arguments lCommand = { std::string( lFolder != nullptr ? lFolder : EXAMPLES_DIRECTORY ) + "/" +
                           aName };
    lCommand.insert( lCommand.end(), aArguments.begin(), aArguments.end() );
    return lCommand;
}

// Runs an example to its end; 20 s at most.
inline Outcome RunExample( const std::string& aName, const Arguments& aArguments )
{
    return RunProgram( MakeExampleCommand( aName, aArguments ) );
}

inline void ExpectOneLine( const std::string& aText )
{
    EXPECT_EQ( std::count( aText.begin(), aText.end(), '\n' ), 1 ) << aText;
    EXPECT_TRUE( !aText.empty() && aText.back() == '\n' ) << aText;
}

} // namespace TestSupport
