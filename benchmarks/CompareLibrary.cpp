// The library's share of benchmarks/compare, and beside it the minimal code for what runs inside
// the process. Each job repeats its work; the program prints how long that took, in nanoseconds, or
// for `memory` how many bytes an object occupies.
#include "Libraries/HtBase/Support/Diagnostics.h"

#include <CapabilitiesGEV.h>
#include <CapabilitiesU3V.h>
#include <HtResult.h>
#include <HtTftpClient.h>
#include <InstantStats.h>
#include <SimpleCommandLinkGEV.h>
#include <SimpleCommandLinkU3V.h>
#include <WdTransportLayerLib/U3V/DeviceControlInterface.h>
#include <WdUtilsLib/GEV/CommandHeader.h>
#include <WdUtilsLib/Network/EthernetAddress.h>
#include <WdUtilsLib/Network/IpAddress.h>
#include <WdUtilsLib/Network/SocketUDP.h>

#include <malloc.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

using HtBaseLib::CapabilitiesGEV;
using HtBaseLib::CapabilitiesU3V;
using HtBaseLib::InstantStats;
using HtBaseLib::SimpleCommandLinkGEV;
using HtBaseLib::SimpleCommandLinkU3V;
using QmUtilsLib::Result;
using WdUtilsLib::Network::EthernetAddress;
using WdUtilsLib::Network::IpAddress;
using WdUtilsLib::Network::SocketUDP;
using WdUtilsLib::U3V::U3VGUID;

// A control endpoint that answers at once, in place of the one over USB.
namespace WdTransportLayerLib
{
namespace U3V
{

class DeviceControlInterface::Implementation
{
public:
    bool mIsOpen = false;
};

DeviceControlInterface::DeviceControlInterface()
    : mThis( std::make_unique<Implementation>() )
{
}
DeviceControlInterface::~DeviceControlInterface() = default;

Result DeviceControlInterface::Open( QmUtilsLib::String& /*aDevicePath*/, const U3VGUID& /*aGUID*/,
                                     bool /*aMaster*/ )
{
    mThis->mIsOpen = true;
    return Result::OK;
}

Result DeviceControlInterface::Close()
{
    mThis->mIsOpen = false;
    return Result::OK;
}

bool DeviceControlInterface::IsOpened() const
{
    return mThis->mIsOpen;
}

Result DeviceControlInterface::SetDCIConfiguration( DCIConfiguration& /*aConfiguration*/ )
{
    return Result::OK;
}

DCIConfiguration DeviceControlInterface::GetDCIConfiguration() const
{
    return {};
}

namespace
{

constexpr unsigned int HEADER_SIZE = 12;
constexpr unsigned int MEMORY_SIZE = 512;

// The acknowledge of a READMEM of 512 bytes, or of a WRITEMEM.
void AnswerAtOnce( DCI_COMMAND& aCommand )
{
    static unsigned char sContent[MEMORY_SIZE] = { 0x5A };
    const bool lIsRead = aCommand.mCommand[6] == 0x00;
    const unsigned int lLength = lIsRead ? MEMORY_SIZE : 4;
    const unsigned char lHeader[HEADER_SIZE] = {
        0x55,
        0x33,
        0x56,
        0x43, // "U3VC"
        0x00,
        0x00,                                             // status: success
        static_cast<unsigned char>( lIsRead ? 0x01 : 3 ), // acknowledge
        0x08,
        static_cast<unsigned char>( lLength ), // length of the data
        static_cast<unsigned char>( lLength >> 8 ),
        0x00,
        0x00, // request identifier
    };
    std::memcpy( aCommand.mAck, lHeader, sizeof( lHeader ) );
    std::memcpy( aCommand.mAck + HEADER_SIZE, sContent, lLength );
    aCommand.mAckLength = HEADER_SIZE + lLength;
}

} // namespace

Result DeviceControlInterface::SendCommands( DCI_COMMAND* aCommands, unsigned int aCount )
{
    for ( unsigned int i = 0; i < aCount; ++i )
    {
        AnswerAtOnce( aCommands[i] );
        aCommands[i].mResult = Result::OK;
    }
    return Result::OK;
}

} // namespace U3V
} // namespace WdTransportLayerLib

namespace
{

constexpr int WARM_UP = 200;
constexpr unsigned int MEMORY_SIZE = 512;
constexpr std::uint32_t RECORDS = 10000; // in the registry

void Require( bool aHolds, const char* aWhat )
{
    if ( !aHolds )
    {
        throw std::runtime_error( aWhat );
    }
}

// Keeps the compiler from leaving out what makes the value.
template <typename Value>
void Use( Value& aValue )
{
    asm volatile( "" : : "g"( &aValue ) : "memory" );
}

// Prints how long aCount calls of aWork take, after some before.
template <typename Work>
void Repeat( long aCount, Work aWork )
{
    for ( int i = 0; i < WARM_UP; ++i )
    {
        aWork();
    }
    const auto lStart = std::chrono::steady_clock::now();
    for ( long i = 0; i < aCount; ++i )
    {
        aWork();
    }
    const std::chrono::nanoseconds lTime = std::chrono::steady_clock::now() - lStart;
    std::printf( "%lld\n", static_cast<long long>( lTime.count() ) );
}

// A link to the responder.
class Client
{
public:
    Client()
    {
        Require( mSocket.Open().IsOK() &&
                     mSocket.Connect( IpAddress( 0x7F000001 ), WdUtilsLib::GEV::GVCP_PORT ).IsOK(),
                 "no socket" );
    }

    void ReadRegister()
    {
        unsigned int lValue = 0;
        Require( mLink.ReadRegister( &lValue, 0x0934 ).IsOK() && lValue == 1, "no answer" );
    }

    void ReadMemory()
    {
        unsigned char lMemory[MEMORY_SIZE];
        Require( mLink.ReadMemory( lMemory, 0x1000, sizeof( lMemory ) ).IsOK(), "no answer" );
    }

private:
    SocketUDP mSocket;
    SimpleCommandLinkGEV mLink{ &mSocket };
};

// A link over the endpoint above. One that was closed has no limits but its buffers.
class ClientU3V
{
public:
    ClientU3V()
    {
        Require( mLink.Open( U3VGUID(), "1-1" ).IsOK() && mLink.Close().IsOK() &&
                     mLink.Open( U3VGUID(), "1-1" ).IsOK(),
                 "not open" );
    }

    void ReadMemory()
    {
        Require( mLink.ReadMemory( mMemory, 0x1000, MEMORY_SIZE ).IsOK() && mMemory[0] == 0x5A,
                 "no answer" );
    }
    void WriteMemory()
    {
        Require( mLink.WriteMemory( mMemory, 0x1000, MEMORY_SIZE, false ).IsOK(), "no answer" );
    }

private:
    SimpleCommandLinkU3V mLink;
    unsigned char mMemory[MEMORY_SIZE] = {};
};

// What the transaction over USB3 Vision cannot do without: two clear buffers, the answer of the
// endpoint, and the bytes copied from or to the caller's memory.
void CopyBarely( bool aIsRead, unsigned char* aMemory )
{
    unsigned char lCommand[1024] = {};
    unsigned char lAck[1024] = {};
    WdTransportLayerLib::U3V::DCI_COMMAND lRecord;
    lCommand[6] = aIsRead ? 0x00 : 0x02;
    lRecord.mCommand = lCommand;
    lRecord.mAck = lAck;
    if ( !aIsRead )
    {
        std::memcpy( lCommand + 20, aMemory, MEMORY_SIZE );
    }
    Use( lCommand );
    WdTransportLayerLib::U3V::AnswerAtOnce( lRecord );
    Use( lAck );
    if ( aIsRead )
    {
        std::memcpy( aMemory, lAck + 12, MEMORY_SIZE );
    }
    Use( *aMemory );
}

// A message of a priority that is off, and its like by hand.
class Talker : public SimpleCommandLinkGEV
{
public:
    Talker()
        : SimpleCommandLinkGEV( nullptr )
    {
    }
    void Speak()
    {
        HTBASE_LOG( GetLibLogger(), QmUtilsLib::Logger::DETAIL, "unit", "Speak", "%d",
                    ++mLookedAt );
    }
    int mLookedAt = 0;
};

class BareTalker
{
public:
    virtual ~BareTalker() = default;
    virtual std::atomic<int>* GetThreshold() { return &mThreshold; }
    __attribute__( ( noinline ) ) static bool IsEnabled( std::atomic<int>* aThreshold )
    {
        return aThreshold->load( std::memory_order_relaxed ) <= 20000;
    }

private:
    std::atomic<int> mThreshold{ 0x7FFFFFFF };
};

EthernetAddress MakeAddress( std::uint32_t aNumber )
{
    return EthernetAddress( 0x0200, aNumber * 2654435761U ); // scattered
}

void LookUpRecords( long aCount )
{
    for ( std::uint32_t i = 0; i < RECORDS; ++i )
    {
        Require( CapabilitiesGEV::GetCapabilities( MakeAddress( i ) ) != nullptr, "no record" );
    }
    std::uint32_t lNumber = 0;
    Repeat( aCount,
            [&lNumber]
            {
                lNumber = ( lNumber + 7919 ) % RECORDS;
                CapabilitiesGEV* lRecord =
                    CapabilitiesGEV::GetCapabilities( MakeAddress( lNumber ) );
                Use( lRecord );
            } );
}

void LookUpMap( long aCount )
{
    std::map<EthernetAddress, std::unique_ptr<CapabilitiesGEV>> lMap;
    for ( std::uint32_t i = 0; i < RECORDS; ++i )
    {
        lMap.emplace( MakeAddress( i ), std::make_unique<CapabilitiesGEV>( MakeAddress( i ) ) );
    }
    std::uint32_t lNumber = 0;
    Repeat( aCount,
            [&lNumber, &lMap]
            {
                lNumber = ( lNumber + 7919 ) % RECORDS;
                CapabilitiesGEV* lRecord = lMap.find( MakeAddress( lNumber ) )->second.get();
                Use( lRecord );
            } );
}

void ReportStats( long aCount )
{
    InstantStats lStats;
    unsigned long long lTime = 0;
    Repeat( aCount,
            [&lStats, &lTime] { lStats.Report( lTime += 1000, 1400, false ); } ); // a report a ms
}

void LockAndUnlock( long aCount )
{
    std::recursive_mutex lMutex;
    Repeat( aCount,
            [&lMutex]
            {
                lMutex.lock();
                Use( lMutex );
                lMutex.unlock();
            } );
}

// Made, copied, assigned and asked.
template <typename Kind>
void PassResults( long aCount )
{
    Repeat( aCount,
            []
            {
                Kind lFirst( Kind::OK );
                Use( lFirst );
                Kind lCopy( lFirst );
                lCopy = lFirst;
                Use( lCopy );
                Require( lCopy.IsOK(), "not OK" );
            } );
}

// What a result without description is.
class BareResult
{
public:
    enum Code : unsigned int
    {
        OK
    };
    explicit BareResult( unsigned int aCode )
        : mCode( aCode )
    {
    }
    bool IsOK() const { return mCode == OK; }

private:
    unsigned int mCode;
    unsigned int mOSCode = 0;
};

void ServeLinksInTurn( long aLinks, long aCount )
{
    const rlim_t lFiles = static_cast<rlim_t>( aLinks ) + 64;
    const rlimit lLimit = { lFiles, lFiles };
    (void)setrlimit( RLIMIT_NOFILE, &lLimit );
    std::vector<Client> lClients( static_cast<std::size_t>( aLinks ) );
    for ( Client& lClient : lClients )
    {
        lClient.ReadRegister();
    }
    std::size_t lNext = 0;
    Repeat( aCount,
            [&]
            {
                lClients[lNext].ReadRegister();
                lNext = ( lNext + 1 ) % lClients.size();
            } );
}

// aCount reads by each of aThreads links, of GigE Vision or of USB3 Vision. The threads begin
// together, and each keeps what it writes to itself.
template <typename Kind>
void WorkInThreads( long aThreads, long aCount, void ( *aWork )( Kind& ) )
{
    std::atomic<bool> lBegin{ false };
    std::atomic<long> lReady{ 0 };
    std::vector<std::thread> lThreads;
    for ( long i = 0; i < aThreads; ++i )
    {
        lThreads.emplace_back(
            [&]
            {
                Kind lClient;
                aWork( lClient );
                ++lReady;
                while ( !lBegin )
                {
                    usleep( 100 );
                }
                for ( long j = 0; j < aCount; ++j )
                {
                    aWork( lClient );
                }
            } );
    }
    while ( lReady != aThreads )
    {
        usleep( 100 );
    }
    const auto lStart = std::chrono::steady_clock::now();
    lBegin = true;
    for ( std::thread& lThread : lThreads )
    {
        lThread.join();
    }
    const std::chrono::nanoseconds lTime = std::chrono::steady_clock::now() - lStart;
    std::printf( "%lld\n", static_cast<long long>( lTime.count() ) );
}

// The same by processes, which share nothing. Each has had a second thread, so that it counts its
// references as a process of several threads does.
template <typename Kind>
void WorkInProcesses( long aProcesses, long aCount, void ( *aWork )( Kind& ) )
{
    int lGate[2];
    Require( pipe( lGate ) == 0, "no pipe" );
    for ( long i = 0; i < aProcesses; ++i )
    {
        if ( fork() == 0 )
        {
            std::thread( [] {} ).join();
            Kind lClient;
            aWork( lClient );
            char lByte;
            close( lGate[1] );
            (void)!read( lGate[0], &lByte, 1 ); // until the gate is closed
            for ( long j = 0; j < aCount; ++j )
            {
                aWork( lClient );
            }
            _exit( 0 );
        }
    }
    usleep( 20000 ); // until they wait
    const auto lStart = std::chrono::steady_clock::now();
    close( lGate[1] );
    for ( long i = 0; i < aProcesses; ++i )
    {
        int lStatus = 1;
        Require( wait( &lStatus ) > 0 && lStatus == 0, "a process failed" );
    }
    const std::chrono::nanoseconds lTime = std::chrono::steady_clock::now() - lStart;
    std::printf( "%lld\n", static_cast<long long>( lTime.count() ) );
}

// Prints the bytes of memory of an object: those of its own and of the heap.
template <typename Make>
void PrintMemory( Make aMake )
{
    constexpr std::size_t COUNT = 1000;
    std::vector<decltype( aMake( 0U ) )> lObjects( COUNT );
    const std::size_t lBefore = mallinfo2().uordblks;
    for ( std::size_t i = 0; i < COUNT; ++i )
    {
        lObjects[i] = aMake( static_cast<std::uint32_t>( i ) );
    }
    std::printf( "%zu\n", ( mallinfo2().uordblks - lBefore ) / COUNT );
}

void PrintMemoryOf( const std::string& aKind )
{
    const std::map<std::string, std::function<void()>> lKinds = {
        { "SimpleCommandLinkGEV",
          []
          {
              PrintMemory( []( std::uint32_t )
                           { return std::make_unique<SimpleCommandLinkGEV>( nullptr ); } );
          } },
        { "SimpleCommandLinkU3V",
          []
          {
              PrintMemory( []( std::uint32_t )
                           { return std::make_unique<SimpleCommandLinkU3V>(); } );
          } },
        { "SocketUDP",
          []
          {
              PrintMemory(
                  []( std::uint32_t )
                  {
                      auto lSocket = std::make_unique<SocketUDP>();
                      Require( lSocket->Open().IsOK(), "no socket" );
                      return lSocket;
                  } );
          } },
        { "CapabilitiesGEV",
          []
          {
              PrintMemory(
                  []( std::uint32_t aNumber )
                  { return std::make_unique<CapabilitiesGEV>( MakeAddress( aNumber ) ); } );
          } },
        { "CapabilitiesU3V",
          []
          {
              PrintMemory( []( std::uint32_t )
                           { return std::make_unique<CapabilitiesU3V>( U3VGUID(), nullptr ); } );
          } },
        { "CapabilitiesGEV, shared",
          []
          {
              PrintMemory( []( std::uint32_t aNumber )
                           { return CapabilitiesGEV::GetCapabilities( MakeAddress( aNumber ) ); } );
          } },
        { "InstantStats",
          []
          {
              PrintMemory( []( std::uint32_t ) { return std::make_unique<InstantStats>(); } );
          } },
        { "HtTftpClient",
          []
          {
              PrintMemory( []( std::uint32_t ) { return std::make_unique<HtTftpClient>(); } );
          } },
    };
    lKinds.at( aKind )();
}

void Upload( const char* aPath, const char* aName )
{
    HtTftpClient lClient;
    Require( lClient.Init( "127.0.0.1", aName ).IsOK() && lClient.SendFile( aPath ).IsOK(),
             "the upload failed" );
}

using Job = std::function<void( long )>;

const std::map<std::string, Job>& GetJobs()
{
    static const std::map<std::string, Job> JOBS = {
        { "register",
          []( long aCount )
          {
              Client lClient;
              Repeat( aCount, [&lClient] { lClient.ReadRegister(); } );
          } },
        { "memory",
          []( long aCount )
          {
              Client lClient;
              Repeat( aCount, [&lClient] { lClient.ReadMemory(); } );
          } },
        { "u3v-read",
          []( long aCount )
          {
              ClientU3V lClient;
              Repeat( aCount, [&lClient] { lClient.ReadMemory(); } );
          } },
        { "u3v-write",
          []( long aCount )
          {
              ClientU3V lClient;
              Repeat( aCount, [&lClient] { lClient.WriteMemory(); } );
          } },
        { "copy-read",
          []( long aCount )
          {
              unsigned char lMemory[MEMORY_SIZE];
              Repeat( aCount, [&lMemory] { CopyBarely( true, lMemory ); } );
          } },
        { "copy-write",
          []( long aCount )
          {
              unsigned char lMemory[MEMORY_SIZE] = {};
              Repeat( aCount, [&lMemory] { CopyBarely( false, lMemory ); } );
          } },
        { "stats", ReportStats },
        { "lock", LockAndUnlock },
        { "result", PassResults<Result> },
        { "public-result", PassResults<HtResult> },
        { "bare-result", PassResults<BareResult> },
        { "registry", LookUpRecords },
        { "map", LookUpMap },
        { "log",
          []( long aCount )
          {
              Talker lTalker;
              Repeat( aCount, [&lTalker] { lTalker.Speak(); } );
              Require( lTalker.mLookedAt == 0, "an argument was looked at" );
          } },
        { "bare-log",
          []( long aCount )
          {
              BareTalker lTalker;
              BareTalker* lAny = &lTalker;
              Use( lAny );
              Repeat( aCount,
                      [&lAny]
                      {
                          bool lIsEnabled = BareTalker::IsEnabled( lAny->GetThreshold() );
                          Use( lIsEnabled );
                      } );
          } },
    };
    return JOBS;
}

bool RunJob( const std::vector<std::string>& aWords )
{
    const auto lJob = GetJobs().find( aWords[0] );
    if ( lJob != GetJobs().end() && aWords.size() == 2 )
    {
        lJob->second( std::stol( aWords[1] ) );
        return true;
    }
    if ( aWords[0] == "bytes" && aWords.size() == 2 )
    {
        PrintMemoryOf( aWords[1] );
        return true;
    }
    if ( aWords.size() != 3 )
    {
        return false;
    }
    if ( aWords[0] == "upload" )
    {
        Upload( aWords[1].c_str(), aWords[2].c_str() );
        return true;
    }
    const long lNumber = std::stol( aWords[1] );
    const long lCount = std::stol( aWords[2] );
    const auto lReadU3V = []( ClientU3V& aClient )
    {
        aClient.ReadMemory();
    };
    if ( aWords[0] == "links" )
    {
        ServeLinksInTurn( lNumber, lCount );
    }
    else if ( aWords[0] == "threads" )
    {
        WorkInThreads<Client>( lNumber, lCount, []( Client& aClient ) { aClient.ReadRegister(); } );
    }
    else if ( aWords[0] == "threads-u3v" )
    {
        WorkInThreads<ClientU3V>( lNumber, lCount, lReadU3V );
    }
    else if ( aWords[0] == "processes-u3v" )
    {
        WorkInProcesses<ClientU3V>( lNumber, lCount, lReadU3V );
    }
    else
    {
        return false;
    }
    return true;
}

} // namespace

int main( int aCount, char** aArguments )
{
    try
    {
        if ( aCount > 1 && RunJob( { aArguments + 1, aArguments + aCount } ) )
        {
            return 0;
        }
    }
    catch ( const std::exception& lError )
    {
        std::fprintf( stderr, "%s\n", lError.what() );
        return 1;
    }
    std::fprintf( stderr, "usage: CompareLibrary JOB COUNT | bytes CLASS | upload FILE NAME |\n"
                          "       links|threads|threads-u3v|processes-u3v NUMBER COUNT\n" );
    return 2;
}
