// A program that ends in the way its second argument names, and watches how the shared capability
// records of the kind that the first one names go. It exits with 0 when everything was as it should
// be.

#include "tests/support/AllocationCounter.h"

#include <CapabilitiesGEV.h>
#include <CapabilitiesU3V.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace
{

using HtBaseLib::CapabilitiesGEV;
using HtBaseLib::CapabilitiesU3V;
using TestSupport::GetAllocationCount;
using TestSupport::GetLiveAllocationCount;
using WdUtilsLib::Network::EthernetAddress;
using WdUtilsLib::U3V::U3VGUID;

// The two kinds of record: how the shared one of a device is asked for, and what one of one's own
// is made from.
struct KindGEV
{
    using Record = CapabilitiesGEV;
    static Record* Get( unsigned int aDevice )
    {
        return Record::GetCapabilities( EthernetAddress( 0x0200, aDevice ) );
    }
    static Record Make( unsigned int aDevice )
    {
        return Record( EthernetAddress( 0x0200, aDevice ) );
    }
};

struct KindU3V
{
    using Record = CapabilitiesU3V;
    static U3VGUID GetGUID( unsigned int aDevice )
    {
        return U3VGUID( aDevice == 1 ? "1AB200000001" : "1AB200000002" );
    }
    static Record* Get( unsigned int aDevice )
    {
        return Record::GetCapabilities( GetGUID( aDevice ), nullptr );
    }
    static Record Make( unsigned int aDevice ) { return Record( GetGUID( aDevice ), nullptr ); }
};

constexpr unsigned int DEVICE = 1;
constexpr unsigned int OTHER = 2;

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

template <typename Kind>
void DestroyOnly()
{
    Kind::Record::Destroy();
    ExpectNoRecords();
}

template <typename Kind>
void Implicit()
{
    (void)Kind::Get( DEVICE );
    (void)Kind::Get( OTHER );
    ExpectRecords();
}

// The clean-up was registered by the first request and is not again by the second: otherwise it
// would run ahead of the handler between the two.
template <typename Kind>
void Once()
{
    (void)Kind::Get( DEVICE );
    Register( ExpectRecords );
    (void)Kind::Get( OTHER );
    (void)Kind::Get( DEVICE );
}

template <typename Kind>
void Explicit()
{
    (void)Kind::Get( DEVICE );
    Kind::Record::Destroy();
    ExpectNoRecords();
}

template <typename Kind>
void Twice()
{
    (void)Kind::Get( DEVICE );
    Kind::Record::Destroy();
    Kind::Record::Destroy();
    ExpectNoRecords();
}

// After an explicit clean-up the next request registers it once more, before the handlers
// that were registered before.
template <typename Kind>
void Again()
{
    (void)Kind::Get( DEVICE );
    Kind::Record::Destroy();
    Register( ExpectNoRecords );
    (void)Kind::Get( DEVICE );
    ExpectRecords();
}

// A handler that asks for a record after all were deleted gets one, and that is deleted as well.
template <typename Kind>
void Late()
{
    Register( [] { Expect( Kind::Get( DEVICE ) != nullptr, "a late record" ); } );
    (void)Kind::Get( DEVICE );
}

// Copies have the mutex and the logger of their source, so they cost nothing, and what is assigned
// to gives up its own.
template <typename Kind>
void Copies()
{
    typename Kind::Record lSource = Kind::Make( DEVICE );
    const long long lWithSource = GetLiveAllocationCount();
    typename Kind::Record lTarget = Kind::Make( OTHER );
    Expect( GetLiveAllocationCount() > lWithSource, "a record has a mutex and a logger" );
    const unsigned long long lBefore = GetAllocationCount();
    typename Kind::Record lCopy( lSource );
    lTarget = lSource;
    lTarget = lCopy;
    Expect( GetAllocationCount() == lBefore, "a copy makes no mutex and no logger" );
    Expect( GetLiveAllocationCount() == lWithSource, "an assigned record has none of its own" );
}

// The records of one kind stay when those of the other are destroyed.
void Apart()
{
    (void)KindGEV::Get( DEVICE );
    const long long lWithOne = GetLiveAllocationCount();
    (void)KindU3V::Get( DEVICE );
    CapabilitiesU3V::Destroy();
    Expect( GetLiveAllocationCount() == lWithOne, "the other kind's records are still there" );
    (void)KindU3V::Get( DEVICE );
    const long long lWithBoth = GetLiveAllocationCount();
    CapabilitiesGEV::Destroy();
    Expect( GetLiveAllocationCount() < lWithBoth, "one kind's records are gone" );
    ExpectRecords();
}

struct Way
{
    const char* mKind;
    const char* mName;
    void ( *mRun )();
};

const Way WAYS[] = {
    { "gev", "never", Never },
    { "gev", "destroy-only", DestroyOnly<KindGEV> },
    { "gev", "implicit", Implicit<KindGEV> },
    { "gev", "once", Once<KindGEV> },
    { "gev", "explicit", Explicit<KindGEV> },
    { "gev", "twice", Twice<KindGEV> },
    { "gev", "again", Again<KindGEV> },
    { "gev", "late", Late<KindGEV> },
    { "gev", "copies", Copies<KindGEV> },
    { "u3v", "destroy-only", DestroyOnly<KindU3V> },
    { "u3v", "implicit", Implicit<KindU3V> },
    { "u3v", "once", Once<KindU3V> },
    { "u3v", "explicit", Explicit<KindU3V> },
    { "u3v", "twice", Twice<KindU3V> },
    { "u3v", "again", Again<KindU3V> },
    { "u3v", "late", Late<KindU3V> },
    { "u3v", "copies", Copies<KindU3V> },
    { "both", "apart", Apart },
};

} // namespace

int main( int aCount, char** aArguments )
{
    for ( const Way& lWay : WAYS )
    {
        if ( aCount == 3 && std::strcmp( aArguments[1], lWay.mKind ) == 0 &&
             std::strcmp( aArguments[2], lWay.mName ) == 0 )
        {
            Begin();
            lWay.mRun();
            return 0;
        }
    }
    std::fprintf( stderr, "no such way to end\n" );
    return 2;
}
