// A program that loads a module which uses the library, lets it make capability records and unloads
// it: the library must go with it, and the records with the library. Exits with 0 when they do.

#include "tests/support/AllocationCounter.h"

#include <cstdio>
#include <dlfcn.h>

namespace
{

using TestSupport::GetLiveAllocationCount;

const char* const LIBRARIES[] = {
    "libHtBase.so." HTBASE_SOVERSION, "libWdTransportLayerLib.so." HTBASE_SOVERSION,
    "libWdUtilsLib.so." HTBASE_SOVERSION, "libQmUtilsLib.so." HTBASE_SOVERSION };

bool IsLoaded( const char* aLibrary )
{
    void* const lHandle = dlopen( aLibrary, RTLD_NOW | RTLD_NOLOAD );
    if ( lHandle == nullptr )
    {
        return false;
    }
    dlclose( lHandle );
    return true;
}

int Fail( const char* aWhat )
{
    const char* const lError = dlerror();
    std::fprintf( stderr, "%s %s\n", aWhat, lError != nullptr ? lError : "" );
    return 1;
}

int RunOnce( const char* aModule )
{
    constexpr unsigned int RECORDS = 3;
    void* const lModule = dlopen( aModule, RTLD_NOW | RTLD_LOCAL );
    if ( lModule == nullptr )
    {
        return Fail( "the module does not load:" );
    }
    const long long lBefore = GetLiveAllocationCount();
    const auto lMakeRecords =
        reinterpret_cast<int ( * )( unsigned int )>( dlsym( lModule, "MakeRecords" ) );
    if ( lMakeRecords == nullptr || lMakeRecords( RECORDS ) != 0 )
    {
        return Fail( "no records:" );
    }
    if ( GetLiveAllocationCount() < lBefore + 2 * RECORDS )
    {
        return Fail( "the records are not counted" );
    }
    for ( const char* const lLibrary : LIBRARIES )
    {
        if ( !IsLoaded( lLibrary ) )
        {
            return Fail( "not loaded:" );
        }
    }
    dlclose( lModule );
    for ( const char* const lLibrary : LIBRARIES )
    {
        if ( IsLoaded( lLibrary ) )
        {
            return Fail( "still loaded:" );
        }
    }
    if ( GetLiveAllocationCount() > lBefore )
    {
        return Fail( "records are left" );
    }
    return 0;
}

} // namespace

int main( int aCount, char** aArguments )
{
    if ( aCount != 2 )
    {
        return Fail( "one argument: the module" );
    }
    const int lFirst = RunOnce( aArguments[1] );
    return lFirst != 0 ? lFirst : RunOnce( aArguments[1] );
}
