// Runs a program with a virtual USB3 Vision device plugged in at 1-1 in place of the system's USB:
//
//     VirtualUsbShell PROGRAM ARGUMENT...
//
// Ends with the program's exit status; 127 when it could not be run.

#include "tests/support/VirtualUsb.h"

#include <sys/wait.h>

#include <spawn.h>
#include <unistd.h>

#include <cstdio>

int main( int aCount, char** aArguments )
{
    constexpr int NOT_RUN = 127;
    if ( aCount < 2 )
    {
        std::fprintf( stderr, "usage: VirtualUsbShell PROGRAM ARGUMENT...\n" );
        return 2;
    }
    TestSupport::RunInVirtualUsb( aArguments );
    TestSupport::VirtualUsbBus lBus;
    const auto lDevice = lBus.Plug( {}, 1 );
    pid_t lChild = -1;
    const int lError =
        posix_spawnp( &lChild, aArguments[1], nullptr, nullptr, aArguments + 1, environ );
    int lStatus = 0;
    if ( lError != 0 || waitpid( lChild, &lStatus, 0 ) != lChild )
    {
        std::fprintf( stderr, "cannot run %s\n", aArguments[1] );
        return NOT_RUN;
    }
    return WIFEXITED( lStatus ) ? WEXITSTATUS( lStatus ) : NOT_RUN;
}
