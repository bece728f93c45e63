// A program that ends in the way its argument names, and watches how the shared capability records
// go. It exits with 0 when everything was as it should be.

#include "support/AllocationCounter.h"

#include <CapabilitiesGEV.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace
{

using HtBaseLib::CapabilitiesGEV;
using TestSupport::GetAllocationCount;
using TestSupport::GetLiveAllocationCount;
using WdUtilsLib::Network::EthernetAddress;

const EthernetAddress ADDRESS( 0x0200, 0x5E100001 );
const EthernetAddress OTHER( 0x0200, 0x5E100002 );

long long gAtStart = 0; // live allocations before the first record

void Expect( bool aIsAsExpected, const char* aWhat )
{
    if ( !aIsAsExpected )
    {
        std::fprintf( stderr, "not so: %s\n", aWhat );
        std::_Exit( 1 );
    }
}

void ExpectNoRecords()
{
    Expect( GetLiveAllocationCount() == gAtStart, "no record is left" );
}

void ExpectRecords()
{
    Expect( GetLiveAllocationCount() > gAtStart, "the records are still there" );
}

void Register( void ( *aHandler )() )
{
    Expect( std::atexit( aHandler ) == 0, "an exit handler can be registered" );
}

// Exit handlers run last in, first out: this one after the clean-up of all records.
void Begin()
{
    gAtStart = GetLiveAllocationCount();
    Register( ExpectNoRecords );
}

void Never() {}

void DestroyOnly()
{
    CapabilitiesGEV::Destroy();
    ExpectNoRecords();
}

void Implicit()
{
    (void)CapabilitiesGEV::GetCapabilities( ADDRESS );
    (void)CapabilitiesGEV::GetCapabilities( OTHER );
    ExpectRecords();
}

// The clean-up was registered by the first request and is not again by the second: otherwise it
// would run ahead of the handler between the two.
void Once()
{
    (void)CapabilitiesGEV::GetCapabilities( ADDRESS );
    Register( ExpectRecords );
    (void)CapabilitiesGEV::GetCapabilities( OTHER );
    (void)CapabilitiesGEV::GetCapabilities( ADDRESS );
}

void Explicit()
{
    (void)CapabilitiesGEV::GetCapabilities( ADDRESS );
    CapabilitiesGEV::Destroy();
    ExpectNoRecords();
}

void Twice()
{
    (void)CapabilitiesGEV::GetCapabilities( ADDRESS );
    CapabilitiesGEV::Destroy();
    CapabilitiesGEV::Destroy();
    ExpectNoRecords();
}

// After an explicit clean-up the next request registers it once more, in front of the handlers
// that were registered before.
void Again()
{
    (void)CapabilitiesGEV::GetCapabilities( ADDRESS );
    CapabilitiesGEV::Destroy();
    Register( ExpectNoRecords );
    (void)CapabilitiesGEV::GetCapabilities( ADDRESS );
    ExpectRecords();
}

// A handler that asks for a record when all have gone already gets one, and that goes as well.
void Late()
{
    Register(
        [] { Expect( CapabilitiesGEV::GetCapabilities( ADDRESS ) != nullptr, "a late record" ); } );
    (void)CapabilitiesGEV::GetCapabilities( ADDRESS );
}

// Copies have the mutex and the logger of their source, so they cost nothing.
void Copies()
{
    CapabilitiesGEV lSource( ADDRESS );
    CapabilitiesGEV lTarget( OTHER );
    const unsigned long long lBefore = GetAllocationCount();
    CapabilitiesGEV lCopy( lSource );
    lTarget = lSource;
    lTarget = lCopy;
    Expect( GetAllocationCount() == lBefore, "a copy makes no mutex and no logger" );
}

struct Way
{
    const char* mName;
    void ( *mRun )();
};

const Way WAYS[] = {
    { "never", Never },       { "destroy-only", DestroyOnly },
    { "implicit", Implicit }, { "once", Once },
    { "explicit", Explicit }, { "twice", Twice },
    { "again", Again },       { "late", Late },
    { "copies", Copies },
};

} // namespace

int main( int aCount, char** aArguments )
{
    for ( const Way& lWay : WAYS )
    {
        if ( aCount == 2 && std::strcmp( aArguments[1], lWay.mName ) == 0 )
        {
            Begin();
            lWay.mRun();
            return 0;
        }
    }
    std::fprintf( stderr, "no such way to end\n" );
    return 2;
}
