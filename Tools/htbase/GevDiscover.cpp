// gev discover.

#include "Tools/htbase/Console.h"
#include "Tools/htbase/Failure.h"
#include "Tools/htbase/GevCommands.h"
#include "Tools/htbase/Interruption.h"
#include "Tools/htbase/Text.h"

#include <QmUtilsLib/Logger.h>
#include <QmUtilsLib/Thread.h>
#include <WdUtilsLib/GEV/Discovery.h>
#include <WdUtilsLib/Network/SocketUDP.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <memory>
#include <optional>
#include <vector>

namespace HtBaseTool
{

using QmUtilsLib::Logger;
using QmUtilsLib::Result;
using QmUtilsLib::Thread;
using WdUtilsLib::GEV::DiscoveryAcknowledge;
using WdUtilsLib::GEV::DiscoveryCommand;
using WdUtilsLib::GEV::GVCP_PORT;
using WdUtilsLib::Network::EthernetAddress;
using WdUtilsLib::Network::IpAddress;
using WdUtilsLib::Network::SocketUDP;
using Json = nlohmann::ordered_json;

namespace
{

constexpr const char* UNIT = "Tools/htbase/GevDiscover";
constexpr size_t DATAGRAM_MAX = 2048;

struct DiscoverOptions
{
    LinkOptions mLink;
    std::optional<std::string> mInterface;
    std::optional<std::string> mTo; // an empty name must not become a broadcast
};

// A device that answered.
struct Device
{
    HostPort mFrom; // the sender of the answer, where the device can be asked
    EthernetAddress mMac;
    std::string mManufacturer;
    std::string mModel;
    std::string mVersion;
    std::string mSerialNumber;
    std::string mUserName;
    std::string mInterface; // of this machine, on which the answer arrived
};

bool IsSame( const Device& aA, const Device& aB )
{
    const bool lIsSameSender =
        aA.mFrom.mAddress == aB.mFrom.mAddress && aA.mFrom.mPort == aB.mFrom.mPort;
    const bool lHasMac = aA.mMac != EthernetAddress();
    return lIsSameSender || ( lHasMac && aA.mMac == aB.mMac );
}

// Sends discovery commands on some sockets and collects the devices that answer.
class Discovery
{
public:
    explicit Discovery( Interruption& aInterruption );
    ~Discovery();

    Discovery( const Discovery& ) = delete;
    Discovery& operator=( const Discovery& ) = delete;

    // Opens a socket on an address of this machine, for a broadcast there. Throws a failure.
    void AddInterface( const IpAddress& aAddress );

    // Opens a socket to one host, on an address of this machine where one is given. Throws a
    // failure.
    void AddHost( const HostPort& aHost, const std::optional<IpAddress>& aLocal );

    // From now on an interruption ends Run.
    void Arm();

    // Asks as often as the options say, and listens after each time. With a host it is over as soon
    // as that has answered. Throws a failure when nothing could be sent, or the host refused.
    void Run( const LinkOptions& aOptions );

    const std::vector<Device>& GetDevices() const { return mDevices; }

private:
    SocketUDP& OpenSocket( const IpAddress* aLocal, const std::string& aTried );
    void Ask();
    void Listen( int aTimeoutMs );
    void Receive( SocketUDP& aSocket );
    void Take( const DiscoveryAcknowledge& aAnswer, const HostPort& aFrom, SocketUDP& aSocket );
    bool IsOver() const { return mHost && !mDevices.empty(); }

    Interruption& mInterruption;
    const Logger mLogger{ "htbase", 0 };
    DiscoveryCommand mCommand;
    std::vector<std::unique_ptr<SocketUDP>> mSockets;
    std::optional<HostPort> mHost;
    std::vector<Device> mDevices;
};

Discovery::Discovery( Interruption& aInterruption )
    : mInterruption( aInterruption )
{
    // Never 0, and not likely to be that of another program that asks at the same time.
    mCommand.InitRequestId( static_cast<unsigned short>( Thread::GetTickCount() | 1 ) );
}

Discovery::~Discovery()
{
    mInterruption.SetAction( nullptr );
}

SocketUDP& Discovery::OpenSocket( const IpAddress* aLocal, const std::string& aTried )
{
    mSockets.push_back( std::make_unique<SocketUDP>() );
    const Result lResult = mSockets.back()->Open( aLocal );
    if ( !lResult.IsOK() )
    {
        throw Failure( "cannot " + aTried + ": " + Describe( lResult ) + GetHint( lResult ),
                       lResult );
    }
    return *mSockets.back();
}

void Discovery::AddInterface( const IpAddress& aAddress )
{
    SocketUDP& lSocket =
        OpenSocket( &aAddress, "discover devices on interface " + aAddress.GetString() );
    (void)lSocket.SetBroadcast( true ); // if it fails, the first send reports the error
}

void Discovery::AddHost( const HostPort& aHost, const std::optional<IpAddress>& aLocal )
{
    const std::string lTried = "identify " + aHost.GetName();
    SocketUDP& lSocket = OpenSocket( aLocal ? &*aLocal : nullptr, lTried );
    const Result lResult = lSocket.Connect( aHost.mAddress, aHost.mPort );
    if ( !lResult.IsOK() )
    {
        throw Failure( "cannot " + lTried + ": " + Describe( lResult ) + GetHint( lResult ),
                       lResult );
    }
    mHost = aHost;
}

void Discovery::Arm()
{
    mInterruption.SetAction(
        [this]
        {
            for ( const auto& lSocket : mSockets )
            {
                (void)lSocket->Close(); // cannot fail
            }
        } );
}

void Discovery::Run( const LinkOptions& aOptions )
{
    for ( int lAttempt = 0; lAttempt < aOptions.mAttempts && !IsOver(); ++lAttempt )
    {
        Ask();
        Listen( aOptions.mTimeoutMs );
    }
}

void Discovery::Ask()
{
    Result lFailure;
    bool lIsSent = false;
    for ( const auto& lSocket : mSockets )
    {
        const int lLength = mCommand.GetTotalLength();
        const Result lResult =
            mHost ? lSocket->Send( &mCommand, lLength )
                  : lSocket->SendTo( &mCommand, lLength, IpAddress( 0xFFFFFFFF ), GVCP_PORT );
        lIsSent = lIsSent || lResult.IsOK();
        if ( lResult.IsOK() )
        {
            continue;
        }
        lFailure = lResult;
        if ( mLogger.IsPriorityEnabled( Logger::ANOMALY ) )
        {
            mLogger.Log( Logger::ANOMALY, UNIT, __LINE__, "HtBaseTool::Discovery::Ask",
                         "Cannot send from %s: %s", lSocket->GetLocalAddress().GetString().c_str(),
                         Describe( lResult ).c_str() );
        }
    }
    if ( !lIsSent && !mInterruption.IsRequested() )
    {
        throw Failure( "cannot discover devices: " + Describe( lFailure ) + GetHint( lFailure ),
                       lFailure );
    }
}

void Discovery::Listen( int aTimeoutMs )
{
    std::vector<SocketUDP*> lSockets;
    std::transform( mSockets.begin(), mSockets.end(), std::back_inserter( lSockets ),
                    []( const std::unique_ptr<SocketUDP>& aSocket ) { return aSocket.get(); } );
    const long long lDeadline = Thread::GetTickCount() + aTimeoutMs;
    for ( long long lLeft = aTimeoutMs; lLeft > 0 && !IsOver();
          lLeft = lDeadline - Thread::GetTickCount() )
    {
        SocketUDP* const lReady =
            SocketUDP::SelectOnRx( lSockets.data(), static_cast<unsigned int>( lSockets.size() ),
                                   static_cast<unsigned int>( lLeft ), nullptr );
        if ( mInterruption.IsRequested() )
        {
            throw Failure( "interrupted before the discovery was complete", Result::ABORTED );
        }
        if ( lReady != nullptr )
        {
            Receive( *lReady );
        }
    }
}

// Ignores a datagram that is not an answer to our command.
void Discovery::Receive( SocketUDP& aSocket )
{
    uint8_t lBuffer[DATAGRAM_MAX] = {};
    int lReceived = 0;
    IpAddress lAddress;
    unsigned short lPort = 0;
    const Result lResult = aSocket.ReceiveFrom( lBuffer, static_cast<int>( sizeof( lBuffer ) ),
                                                lReceived, lAddress, lPort );
    if ( !lResult.IsOK() )
    {
        if ( mHost && lResult != Result::TIMEOUT && !mInterruption.IsRequested() )
        {
            throw Failure( "cannot identify " + mHost->GetName() + ": " + Describe( lResult ) +
                               GetHint( lResult ),
                           lResult );
        }
        return;
    }
    const DiscoveryAcknowledge lAnswer( lBuffer, sizeof( lBuffer ) );
    if ( lAnswer.IsValid( static_cast<unsigned int>( lReceived ), mCommand ) &&
         lAnswer.GetStatus() == 0 && lAnswer.IsComplete() )
    {
        Take( lAnswer, { lAddress, lPort }, aSocket );
    }
}

void Discovery::Take( const DiscoveryAcknowledge& aAnswer, const HostPort& aFrom,
                      SocketUDP& aSocket )
{
    Device lDevice;
    lDevice.mFrom = aFrom;
    lDevice.mMac = aAnswer.GetMacAddress();
    lDevice.mManufacturer = aAnswer.GetManufacturerName();
    lDevice.mModel = aAnswer.GetModelName();
    lDevice.mVersion = aAnswer.GetDeviceVersion();
    lDevice.mSerialNumber = aAnswer.GetSerialNumber();
    lDevice.mUserName = aAnswer.GetUserDefinedName();
    lDevice.mInterface = aSocket.GetLocalAddress().GetString();
    if ( std::none_of( mDevices.begin(), mDevices.end(),
                       [&lDevice]( const Device& aOther ) { return IsSame( lDevice, aOther ); } ) )
    {
        mDevices.push_back( lDevice );
    }
}

Json MakeReport( const std::vector<Device>& aDevices )
{
    Json lReport = Json::array();
    for ( const Device& lDevice : aDevices )
    {
        Json lEntry;
        lEntry["address"] = lDevice.mFrom.mAddress.GetString();
        lEntry["port"] = lDevice.mFrom.mPort;
        lEntry["mac"] = lDevice.mMac.GetString();
        lEntry["manufacturer"] = lDevice.mManufacturer;
        lEntry["model"] = lDevice.mModel;
        lEntry["version"] = lDevice.mVersion;
        lEntry["serialNumber"] = lDevice.mSerialNumber;
        lEntry["userName"] = lDevice.mUserName;
        lEntry["interface"] = lDevice.mInterface;
        lReport.push_back( lEntry );
    }
    return lReport;
}

// A line per device; on a terminal there is also a line that names the columns.
void PrintDevices( const std::vector<Device>& aDevices )
{
    std::vector<std::vector<std::string>> lRows;
    if ( IsOutputTerminal() )
    {
        lRows.push_back( { "ADDRESS", "MAC", "MAKER", "MODEL", "SERIAL NUMBER", "USER NAME" } );
    }
    for ( const Device& lDevice : aDevices )
    {
        const std::string lAddress = lDevice.mFrom.mPort == GVCP_PORT
                                         ? lDevice.mFrom.mAddress.GetString()
                                         : lDevice.mFrom.GetName();
        lRows.push_back( { lAddress, lDevice.mMac.GetString(), Escape( lDevice.mManufacturer ),
                           Escape( lDevice.mModel ), Escape( lDevice.mSerialNumber ),
                           Escape( lDevice.mUserName ) } );
    }
    Print( FormatTable( lRows ) );
}

// Opens the sockets and returns in words where the search goes.
std::string AddSockets( Discovery& aDiscovery, const DiscoverOptions& aOptions )
{
    std::optional<IpAddress> lLocal;
    if ( aOptions.mInterface )
    {
        lLocal = ParseAddress( *aOptions.mInterface, "interface" );
    }
    if ( aOptions.mTo )
    {
        const HostPort lHost = ParseHost( *aOptions.mTo, GVCP_PORT );
        aDiscovery.AddHost( lHost, lLocal );
        return "from " + lHost.GetName();
    }
    std::string lWhere;
    const std::vector<LocalInterface> lInterfaces =
        lLocal ? std::vector<LocalInterface>{ { "", *lLocal } } : GetLocalInterfaces();
    for ( const LocalInterface& lInterface : lInterfaces )
    {
        aDiscovery.AddInterface( lInterface.mAddress );
        lWhere +=
            ( lWhere.empty() ? "to the broadcast on " : ", " ) + lInterface.mAddress.GetString();
    }
    if ( lWhere.empty() )
    {
        throw Failure( ExitStatus::REFUSED,
                       "cannot discover devices: no network interface with an IPv4 address is up" );
    }
    return lWhere;
}

void Discover( Program& aProgram, const DiscoverOptions& aOptions )
{
    aProgram.mReport = Json::array();
    Discovery lDiscovery( aProgram.mInterruption );
    const std::string lWhere = AddSockets( lDiscovery, aOptions );
    lDiscovery.Arm();
    lDiscovery.Run( aOptions.mLink );
    std::vector<Device> lDevices = lDiscovery.GetDevices();
    if ( lDevices.empty() )
    {
        throw Failure( "no device found: no answer came " + lWhere + " within " +
                           std::to_string( aOptions.mLink.mAttempts ) + " times " +
                           std::to_string( aOptions.mLink.mTimeoutMs ) +
                           " ms - is the device on another network, or does a firewall block UDP?",
                       Result::TIMEOUT );
    }
    std::sort( lDevices.begin(), lDevices.end(),
               []( const Device& aA, const Device& aB )
               { return aA.mFrom.mAddress.GetValue() < aB.mFrom.mAddress.GetValue(); } );
    aProgram.mReport = MakeReport( lDevices );
    if ( !aProgram.mIsJson )
    {
        PrintDevices( lDevices );
    }
}

} // namespace

void AddGevDiscover( CLI::App& aGroup, Program& aProgram )
{
    const auto lOptions = std::make_shared<DiscoverOptions>();
    CLI::App* const lCommand = AddCommand(
        aGroup, "discover",
        "List devices, by broadcast on every interface: address, MAC, maker, model, serial number "
        "and user name",
        aProgram, [lOptions]( Program& aRun ) { Discover( aRun, *lOptions ); } );
    lCommand
        ->add_option( "--interface", lOptions->mInterface,
                      "Ask only through the interface with this address of this machine" )
        ->type_name( "ADDR" );
    lCommand->add_option( "--to", lOptions->mTo, "Ask only this host, without a broadcast" )
        ->type_name( "HOST[:PORT]" );
    AddLinkOptions( *lCommand, lOptions->mLink );
}

} // namespace HtBaseTool
