// A module that uses the library, for a program that does not.

#include <HtBinariesLocation.h>

#include <cstdio>

// Prints the code of the result and the location, which was "untouched" before.
extern "C" [[gnu::visibility( "default" )]] void PrintLocation()
{
    HtString lLocation( "untouched" );
    const HtResult lResult = HtBinariesLocation( lLocation );
    std::printf( "%04X %s\n", lResult.GetCode(), lLocation.GetAscii() );
    (void)std::fflush( stdout ); // the reader sees what is missing
}
