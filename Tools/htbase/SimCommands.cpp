// The commands that play a device: sim gev, sim tftp.

#include "Tools/htbase/Console.h"
#include "Tools/htbase/Failure.h"
#include "Tools/htbase/Host.h"
#include "Tools/htbase/Program.h"
#include "Tools/htbase/Registers.h"
#include "Tools/htbase/SimFaults.h"
#include "Tools/htbase/Text.h"
#include "Tools/htbase/TftpStation.h"

#include "Simulators/GEV/BootstrapGEV.h"
#include "Simulators/GEV/VirtualDeviceGEV.h"
#include "Simulators/Servers/DeviceServer.h"

#include <WdUtilsLib/GEV/CommandHeader.h>
#include <WdUtilsLib/Network/EthernetAddress.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace HtBaseTool
{

using QmUtilsLib::Result;
using Simulators::ConfigurationGEV;
using Simulators::DeviceServer;
using Simulators::Endpoint;
using Simulators::VirtualDeviceGEV;
using Simulators::Capability::CHANNEL_SOURCE_PORT;
using WdUtilsLib::GEV::GVCP_PORT;
using WdUtilsLib::Network::EthernetAddress;
using WdUtilsLib::Network::IpAddress;

namespace
{

constexpr uint32_t PENDING_MAX = 60000; // ms

constexpr uint64_t TICK_FREQUENCY_MAX = 1'000'000'000'000; // Hz

constexpr uint32_t DEVICE_CLASS_MASK = 0x70000000; // of Device Mode

// The statuses that a device refuses with.
constexpr uint32_t STATUS_MIN = 0x8001;
constexpr uint32_t STATUS_MAX = 0xFFFF;

constexpr const char* VERSIONS[] = { "1.0", "1.1", "1.2", "2.0", "2.1" };

// What a pending acknowledge announces beyond the time that the device takes, so that a punctual
// answer is not a close race.
constexpr uint32_t PENDING_MARGIN = 100; // ms

struct SimOptions
{
    std::string mAddress = "127.0.0.1";
    unsigned short mPort = GVCP_PORT;
    std::string mVersion = "2.0";
    std::string mMac;
    std::string mGvcpCapability;
    uint32_t mDeviceClass = 0;
    bool mNoSourcePorts = false;
    std::vector<std::string> mRefusals;
    uint32_t mPendingMs = 0;
    bool mNoBroadcast = false;
    SimFaults mFaults;
    ConfigurationGEV mConfiguration;
    std::optional<std::string> mTftpDirectory;
    unsigned short mTftpPort = TftpStation::PORT;
};

struct SimTftpOptions
{
    std::string mAddress = "127.0.0.1";
    unsigned short mPort = TftpStation::PORT;
    std::optional<std::string> mDirectory;
    SimFaults mFaults;
};

// Each address has its own MAC, so that a discovery can distinguish several devices.
std::array<uint8_t, 6> MakeMac( uint32_t aAddress )
{
    return { 0x02,
             0x48,
             static_cast<uint8_t>( aAddress >> 24 ),
             static_cast<uint8_t>( aAddress >> 16 ),
             static_cast<uint8_t>( aAddress >> 8 ),
             static_cast<uint8_t>( aAddress ) };
}

void SetCapabilities( ConfigurationGEV& aConfiguration, const SimOptions& aOptions )
{
    aConfiguration.mDeviceMode =
        ( aConfiguration.mDeviceMode & ~DEVICE_CLASS_MASK ) | aOptions.mDeviceClass << 28;
    if ( !aOptions.mGvcpCapability.empty() )
    {
        aConfiguration.mGvcpCapability = ParseNumber( aOptions.mGvcpCapability, "capability" );
    }
    if ( aOptions.mNoSourcePorts )
    {
        aConfiguration.mStreamCapability =
            GetStreamCapability( aConfiguration ) & ~CHANNEL_SOURCE_PORT;
        aConfiguration.mMessageCapability =
            GetMessageCapability( aConfiguration ) & ~CHANNEL_SOURCE_PORT;
    }
}

ConfigurationGEV MakeConfiguration( const SimOptions& aOptions, const IpAddress& aAddress )
{
    ConfigurationGEV lConfiguration = aOptions.mConfiguration;
    if ( std::find( std::begin( VERSIONS ), std::end( VERSIONS ), aOptions.mVersion ) ==
         std::end( VERSIONS ) )
    {
        throw MakeUsageFailure( "version '" + aOptions.mVersion +
                                "' of GigE Vision is not one of 1.0, 1.1, 1.2, 2.0 and 2.1" );
    }
    lConfiguration.mVersionMajor = static_cast<uint16_t>( aOptions.mVersion[0] - '0' );
    lConfiguration.mVersionMinor = static_cast<uint16_t>( aOptions.mVersion[2] - '0' );
    SetCapabilities( lConfiguration, aOptions );
    lConfiguration.mIpAddress = aAddress.GetValue();
    lConfiguration.mMacAddress = MakeMac( aAddress.GetValue() );
    if ( !aOptions.mMac.empty() )
    {
        EthernetAddress lMac;
        if ( !lMac.Set( aOptions.mMac.c_str() ) )
        {
            throw MakeUsageFailure( "MAC '" + aOptions.mMac +
                                    "' is not of the form 00:11:22:33:44:55" );
        }
        lConfiguration.mMacAddress = lMac.GetBytes();
    }
    if ( aOptions.mPendingMs != 0 )
    {
        lConfiguration.mPending.mTimes = 1;
        lConfiguration.mPending.mTakesMs = aOptions.mPendingMs;
        lConfiguration.mPending.mAnnouncedMs =
            static_cast<uint16_t>( aOptions.mPendingMs + PENDING_MARGIN ); // at most 60100
    }
    return lConfiguration;
}

void SetRefusals( VirtualDeviceGEV& aDevice, const SimOptions& aOptions )
{
    for ( const RegisterValue& lRefusal :
          ParseRegisterPairs( aOptions.mRefusals, AddressBits::GEV ) )
    {
        if ( lRefusal.mValue < STATUS_MIN || lRefusal.mValue > STATUS_MAX )
        {
            throw MakeUsageFailure( "'" + FormatHex( lRefusal.mAddress ) + "=" +
                                    FormatHex( lRefusal.mValue ) +
                                    "' has no status from 0x8001 to 0xFFFF" );
        }
        // The address has 32 bits, as parsed.
        aDevice.RefuseAddress( static_cast<uint32_t>( lRefusal.mAddress ),
                               static_cast<uint16_t>( lRefusal.mValue ) );
    }
}

DeviceServer::Options MakeServerOptions( const SimOptions& aOptions, const IpAddress& aAddress )
{
    DeviceServer::Options lServer;
    lServer.mAddress = aAddress;
    lServer.mPort = aOptions.mPort;
    lServer.mHearBroadcasts = aOptions.mPort == GVCP_PORT && !aOptions.mNoBroadcast;
    lServer.mBroadcastFilter = VirtualDeviceGEV::TakesFromBroadcast;
    aOptions.mFaults.Apply( lServer, 0 );
    return lServer;
}

void Summarise( Program& aProgram, const VirtualDeviceGEV& aDevice, const DeviceServer& aServer )
{
    const VirtualDeviceGEV::Counters lTotal = aDevice.GetTotal();
    aProgram.mReport["requests"] = lTotal.mReceived;
    aProgram.mReport["executed"] = lTotal.mExecuted;
    aProgram.mReport["refused"] = lTotal.mRefused;
    aProgram.mReport["repeated"] = lTotal.mRepeated;
    aProgram.mReport["answers"] = lTotal.mAnswers;
    aProgram.mReport["pendingAcknowledges"] = lTotal.mPendings;
    ReportFaults( aProgram.mReport, aServer );
    if ( !aProgram.mIsJson )
    {
        Print( "device: " + aDevice.GetSummary() + "\n" + GetFaultsText( aServer ) );
    }
}

// The first lines: where it is, and where its TFTP server is.
void Announce( Program& aProgram, const HostPort& aWhere, const TftpStation* aTftp )
{
    aProgram.mReport["address"] = aWhere.mAddress.GetString();
    aProgram.mReport["port"] = aWhere.mPort;
    const std::string lTftp = aTftp != nullptr ? "TFTP at " + aTftp->GetWhere().GetName() : "";
    if ( aProgram.mIsJson )
    {
        PrintNote( "serving at " + aWhere.GetName() + ( lTftp.empty() ? "" : ", " + lTftp ) );
        return;
    }
    Print( aWhere.GetName() + "\n" + ( lTftp.empty() ? "" : lTftp + "\n" ) );
}

// The TFTP server beside the device; none unless the options ask for it.
std::unique_ptr<TftpStation> MakeTftpStation( const SimOptions& aOptions,
                                              const IpAddress& aAddress )
{
    if ( !aOptions.mTftpDirectory )
    {
        return nullptr;
    }
    auto lStation = std::make_unique<TftpStation>( *aOptions.mTftpDirectory );
    DeviceServer::Options lOptions;
    lOptions.mAddress = aAddress;
    lOptions.mPort = aOptions.mTftpPort;
    aOptions.mFaults.Apply( lOptions, 1 );
    lStation->Open( lOptions );
    return lStation;
}

void Serve( Program& aProgram, const SimOptions& aOptions )
{
    if ( aOptions.mVersion.empty() ) // --version without a value
    {
        PrintVersion();
        return;
    }
    const IpAddress lAddress = ParseAddress( aOptions.mAddress, "address" );
    VirtualDeviceGEV lDevice( MakeConfiguration( aOptions, lAddress ) );
    SetRefusals( lDevice, aOptions );
    DeviceServer lServer(
        [&lDevice]( const Endpoint& aFrom, const uint8_t* aData, size_t aSize, int64_t aNowMs )
        { return lDevice.Receive( aFrom, aData, aSize, aNowMs ); } );
    OpenServer( lServer, MakeServerOptions( aOptions, lAddress ) );
    const std::unique_ptr<TftpStation> lTftp = MakeTftpStation( aOptions, lAddress );
    aProgram.mInterruption.SetAction( [&lServer] { lServer.Stop(); } );
    if ( lTftp != nullptr )
    {
        lTftp->Start();
    }
    Announce( aProgram, { lServer.GetAddress(), lServer.GetPort() }, lTftp.get() );
    const Result lResult = lServer.Run();
    aProgram.mInterruption.SetAction( nullptr );
    Summarise( aProgram, lDevice, lServer );
    if ( lTftp != nullptr )
    {
        lTftp->Stop();
        lTftp->Summarise( aProgram, "tftp" );
    }
    CheckServed( lResult, aProgram.mInterruption.IsRequested() );
}

void ServeTftp( Program& aProgram, const SimTftpOptions& aOptions )
{
    TftpStation lStation( aOptions.mDirectory );
    DeviceServer::Options lOptions;
    lOptions.mAddress = ParseAddress( aOptions.mAddress, "address" );
    lOptions.mPort = aOptions.mPort;
    aOptions.mFaults.Apply( lOptions, 0 );
    lStation.Open( lOptions );
    aProgram.mInterruption.SetAction( [&lStation] { lStation.Stop(); } );
    Announce( aProgram, lStation.GetWhere(), nullptr );
    const Result lResult = lStation.Run();
    aProgram.mInterruption.SetAction( nullptr );
    lStation.Summarise( aProgram, nullptr );
    CheckServed( lResult, aProgram.mInterruption.IsRequested() );
}

void AddDeviceOptions( CLI::App& aCommand, SimOptions& aOptions )
{
    ConfigurationGEV& lConfiguration = aOptions.mConfiguration;
    aCommand
        .add_option( "--version", aOptions.mVersion,
                     "Version of GigE Vision: 1.0, 1.1, 1.2, 2.0 (the default) or 2.1" )
        ->expected( 0, 1 )
        ->type_name( "VERSION" );
    aCommand
        .add_option( "--pending", aOptions.mPendingMs,
                     "Take this long for each register and memory command, and send a pending "
                     "acknowledge first (version 1.0 has none and sends nothing until the answer)" )
        ->type_name( "MS" )
        ->check( CLI::Range( uint32_t{ 0 }, PENDING_MAX ) );
    aCommand
        .add_option( "--mac", aOptions.mMac, "MAC address; by default derived from the address" )
        ->type_name( "MAC" );
    aCommand.add_option( "--manufacturer", lConfiguration.mManufacturerName, "Maker" )
        ->type_name( "TEXT" );
    aCommand.add_option( "--model", lConfiguration.mModelName, "Model" )->type_name( "TEXT" );
    aCommand.add_option( "--serial", lConfiguration.mSerialNumber, "Serial number" )
        ->type_name( "TEXT" );
    aCommand.add_option( "--user-name", lConfiguration.mUserName, "User-defined name" )
        ->type_name( "TEXT" );
    aCommand
        .add_option( "--heartbeat", lConfiguration.mHeartbeatTimeoutMs,
                     "Free control after this time without a command from its holder" )
        ->type_name( "MS" )
        ->check( CLI::Range( Simulators::HEARTBEAT_MIN_MS, uint32_t{ 3600000 } ) )
        ->capture_default_str();
}

// What a capability record is filled from.
void AddCapabilityOptions( CLI::App& aCommand, SimOptions& aOptions )
{
    ConfigurationGEV& lConfiguration = aOptions.mConfiguration;
    aCommand.add_option( "--device-version", lConfiguration.mDeviceVersion, "Device version" )
        ->type_name( "TEXT" );
    aCommand
        .add_option( "--manufacturer-info", lConfiguration.mManufacturerInfo,
                     "Manufacturer information" )
        ->type_name( "TEXT" );
    aCommand
        .add_option( "--class", aOptions.mDeviceClass,
                     "Device class: 0 transmitter, 1 receiver, 2 transceiver, 3 peripheral" )
        ->type_name( "N" )
        ->check( CLI::Range( 0, 7 ) )
        ->capture_default_str();
    aCommand
        .add_option( "--stream-channels", lConfiguration.mStreamChannels,
                     "Number of stream channels" )
        ->type_name( "N" )
        ->check( CLI::Range( uint32_t{ 0 }, Simulators::STREAM_CHANNELS_MAX ) )
        ->capture_default_str();
    aCommand
        .add_option( "--message-channels", lConfiguration.mMessageChannels,
                     "Number of message channels" )
        ->type_name( "N" )
        ->check( CLI::Range( 0, 1 ) )
        ->capture_default_str();
    aCommand.add_flag( "--no-source-ports", aOptions.mNoSourcePorts,
                       "Do not publish the channels' source ports" );
    aCommand
        .add_option( "--tick-frequency", lConfiguration.mTickFrequency,
                     "Timestamp ticks per second, 0 for no timestamp" )
        ->type_name( "HZ" )
        ->check( CLI::Range( uint64_t{ 0 }, TICK_FREQUENCY_MAX ) )
        ->capture_default_str();
    aCommand
        .add_option( "--capability", aOptions.mGvcpCapability,
                     "The word at 0x0934; by default as the version requires" )
        ->type_name( "WORD" );
    aCommand
        .add_option( "--refuse", aOptions.mRefusals,
                     "Answer commands that touch the register at ADDRESS with STATUS; may be given "
                     "several times" )
        ->type_name( "ADDRESS=STATUS" )
        ->allow_extra_args( false );
}

void AddTftpOptions( CLI::App& aCommand, SimOptions& aOptions )
{
    CLI::Option* const lTftp = aCommand
                                   .add_option( "--tftp", aOptions.mTftpDirectory,
                                                "Also serve TFTP: the files in this folder, and "
                                                "uploads into it, each of at most 64 MiB" )
                                   ->type_name( "DIR" );
    aCommand.add_option( "--tftp-port", aOptions.mTftpPort, "UDP port for TFTP, 0 for a free one" )
        ->type_name( "PORT" )
        ->check( CLI::Range( 0, 65535 ) )
        ->needs( lTftp )
        ->capture_default_str();
}

void AddAddress( CLI::App& aCommand, std::string& aAddress )
{
    aCommand.add_option( "--address", aAddress, "Address of this machine to serve" )
        ->type_name( "ADDR" )
        ->capture_default_str();
}

void AddSimTftp( CLI::App& aGroup, Program& aProgram )
{
    const auto lOptions = std::make_shared<SimTftpOptions>();
    CLI::App* const lCommand =
        AddCommand( aGroup, "tftp",
                    "Run a virtual TFTP server until SIGINT or SIGTERM. The first line printed "
                    "gives its address:port; the last lines summarise what happened",
                    aProgram, [lOptions]( Program& aRun ) { ServeTftp( aRun, *lOptions ); } );
    AddAddress( *lCommand, lOptions->mAddress );
    lCommand
        ->add_option( "--port", lOptions->mPort,
                      "UDP port, 0 for a free one; tftp put and get use port 69 only" )
        ->type_name( "PORT" )
        ->check( CLI::Range( 0, 65535 ) )
        ->capture_default_str();
    lCommand
        ->add_option(
            "--dir", lOptions->mDirectory,
            "Serve the files that are in this folder at the start, and store uploads in it, each "
            "of at most 64 MiB; without this option, uploads are kept in memory" )
        ->type_name( "DIR" );
    AddFaultOptions( *lCommand, lOptions->mFaults );
}

} // namespace

void AddSimCommands( CLI::App& aApp, Program& aProgram )
{
    CLI::App* const lGroup = AddGroup( aApp, "sim", "Virtual devices" );
    const auto lOptions = std::make_shared<SimOptions>();
    lOptions->mConfiguration.mRequestsKept = 0; // the program does not use them
    CLI::App* const lCommand =
        AddCommand( *lGroup, "gev",
                    "Run a virtual GigE Vision device until SIGINT or SIGTERM. The first line "
                    "printed gives its address:port; the last lines summarise what happened",
                    aProgram, [lOptions]( Program& aRun ) { Serve( aRun, *lOptions ); } );
    AddAddress( *lCommand, lOptions->mAddress );
    lCommand
        ->add_option( "--port", lOptions->mPort,
                      "UDP port, 0 for a free one; broadcasts are received on 3956 only" )
        ->type_name( "PORT" )
        ->check( CLI::Range( 0, 65535 ) )
        ->capture_default_str();
    lCommand->add_flag( "--no-broadcast", lOptions->mNoBroadcast, "Receive no broadcasts" );
    AddDeviceOptions( *lCommand, *lOptions );
    AddCapabilityOptions( *lCommand, *lOptions );
    AddTftpOptions( *lCommand, *lOptions );
    AddFaultOptions( *lCommand, lOptions->mFaults );
    AddSimTftp( *lGroup, aProgram );
}

} // namespace HtBaseTool
