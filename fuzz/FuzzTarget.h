// What every fuzz target has in common.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

// The target: looks at one input and returns 0, or ends the process where something is wrong.
extern "C" int LLVMFuzzerTestOneInput( const std::uint8_t* aData, std::size_t aSize );

namespace Fuzz
{

// Ends the process unless aHolds.
inline void Require( bool aHolds, const char* aWhat )
{
    if ( !aHolds )
    {
        std::fprintf( stderr, "does not hold: %s\n", aWhat );
        std::abort();
    }
}

} // namespace Fuzz
