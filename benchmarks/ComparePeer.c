// Register and memory reads by a library of others, libaravis, for benchmarks/compare: prints how long
// they took, in nanoseconds.
#include <arv.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum
{
    WARM_UP = 200
};

static int ReadOnce( ArvDevice* aDevice, int aIsMemory )
{
    GError* lError = NULL;
    guint32 lValue = 0;
    char lMemory[512];
    return aIsMemory ? arv_device_read_memory( aDevice, 0x1000, sizeof( lMemory ), lMemory, &lError )
                     : arv_device_read_register( aDevice, 0x0934, &lValue, &lError ) && lValue == 1;
}

int main( int aCount, char** aArguments )
{
    if ( aCount != 3 )
    {
        fprintf( stderr, "usage: ComparePeer register|memory COUNT\n" );
        return 2;
    }
    const int lIsMemory = strcmp( aArguments[1], "memory" ) == 0;
    GInetAddress* const lAddress = g_inet_address_new_from_string( "127.0.0.1" );
    GError* lError = NULL;
    ArvDevice* const lDevice = arv_gv_device_new( lAddress, lAddress, &lError );
    if ( lDevice == NULL || lError != NULL )
    {
        fprintf( stderr, "%s\n", lError != NULL ? lError->message : "no device" );
        return 1;
    }
    int lIsGood = 1;
    for ( int i = 0; i < WARM_UP; ++i )
    {
        lIsGood &= ReadOnce( lDevice, lIsMemory );
    }
    const gint64 lStart = g_get_monotonic_time();
    for ( long i = atol( aArguments[2] ); i > 0; --i )
    {
        lIsGood &= ReadOnce( lDevice, lIsMemory );
    }
    printf( "%lld\n", (long long)( g_get_monotonic_time() - lStart ) * 1000 );
    return lIsGood ? 0 : 1;
}
