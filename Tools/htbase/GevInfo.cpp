// gev info.

#include "Tools/htbase/Capability.h"
#include "Tools/htbase/Console.h"
#include "Tools/htbase/Failure.h"
#include "Tools/htbase/GevCommands.h"
#include "Tools/htbase/GevDevice.h"
#include "Tools/htbase/Maker.h"
#include "Tools/htbase/Text.h"

#include <CapabilitiesGEV.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <vector>

namespace HtBaseTool
{

using HtBaseLib::CapabilitiesGEV;
using QmUtilsLib::Result;
using WdUtilsLib::Network::EthernetAddress;
using Json = nlohmann::ordered_json;

namespace
{

struct InfoOptions
{
    GevTarget mTarget;
    MakerOptions mMaker;
};

// A text among the bootstrap registers.
struct IdentityText
{
    const char* mLabel;
    const char* mKey;
    uint32_t mAddress;
    uint32_t mSize;
};

constexpr IdentityText IDENTITY_TEXTS[] = {
    { "Manufacturer", "manufacturer", 0x0048, 32 },
    { "Model", "model", 0x0068, 32 },
    { "Device version", "deviceVersion", 0x0088, 32 },
    { "Manufacturer information", "manufacturerInformation", 0x00A8, 48 },
    { "Serial number", "serialNumber", 0x00D8, 16 },
    { "User-defined name", "userName", 0x00E8, 16 },
};

constexpr Capability<CapabilitiesGEV> CAPABILITIES[] = {
    { "Concatenation", "concatenation", &CapabilitiesGEV::IsConcatenationSupported },
    { "Memory write", "writeMem", &CapabilitiesGEV::IsWriteMemSupported },
    { "Packet resend", "packetResend", &CapabilitiesGEV::IsPacketResendSupported },
    { "End-of-block resend", "endOfBlockResend",
      &CapabilitiesGEV::IsEndOfBlockResendRequestSupported },
    { "Event", "event", &CapabilitiesGEV::IsEventSupported },
    { "Event data", "eventData", &CapabilitiesGEV::IsEventDataSupported },
    { "Pending acknowledge", "pending", &CapabilitiesGEV::IsPendingSupported },
    { "Action", "action", &CapabilitiesGEV::IsActionSupported },
    { "Scheduled action", "scheduledAction", &CapabilitiesGEV::IsScheduledActionSupported },
    { "Unconditional action", "unconditionalAction",
      &CapabilitiesGEV::IsUnconditionalActionSupported },
    { "Extended status codes 1.1", "extendedStatusCodes1_1",
      &CapabilitiesGEV::IsV1_1ExtendedCodesSupported },
    { "Extended status codes 2.0", "extendedStatusCodes2_0",
      &CapabilitiesGEV::IsV2ExtendedStatusCodesSupported },
    { "IEEE 1588 time", "ieee1588", &CapabilitiesGEV::IsIEEE1588Supported },
    { "Application switchover", "applicationSwitchOver",
      &CapabilitiesGEV::IsApplicationSwitchOverSupported },
    { "Discovery delay", "discoveryDelay", &CapabilitiesGEV::IsDiscoveryDelayRegSupported },
    { "Custom discovery delay", "customDiscoveryDelay",
      &CapabilitiesGEV::IsCustomDiscoveryDelaySupported },
    { "Standard test data", "testData", &CapabilitiesGEV::IsTestDataSupported },
    { "Manifest table", "manifestTable", &CapabilitiesGEV::IsManifestTableSupported },
    { "Control owner discovery", "controlOwnerDiscovery",
      &CapabilitiesGEV::IsCCPOwnerDiscoverySupported },
    { "Link speed register", "linkSpeedRegister", &CapabilitiesGEV::IsLinkSpeedRegisterSupported },
    { "Heartbeat disable", "heartbeatDisable", &CapabilitiesGEV::IsHeartbeatDisableSupported },
    { "Serial number register", "serialNumberRegister", &CapabilitiesGEV::IsSerialNumberSupported },
    { "User-defined name register", "userDefinedNameRegister",
      &CapabilitiesGEV::IsUserDefinedNameSupported },
    { "16-bit block identifiers", "legacy16BitsBlockId",
      &CapabilitiesGEV::IsLegacy16BitsBlockIdSupported },
};

// What the device is, by its class.
std::string GetClassName( unsigned short aClass )
{
    constexpr const char* NAMES[] = { "transmitter", "receiver", "transceiver", "peripheral" };
    return aClass < std::size( NAMES ) ? NAMES[aClass] : "reserved " + std::to_string( aClass );
}

// The texts that the device has; one that it refuses is empty.
std::vector<std::string> ReadIdentity( GevDevice& aDevice )
{
    std::vector<std::string> lTexts;
    for ( const IdentityText& lEntry : IDENTITY_TEXTS )
    {
        std::string lText( lEntry.mSize, '\0' );
        const Result lResult = aDevice.ReadPiece( &lText[0], lEntry.mAddress, lEntry.mSize );
        if ( !lResult.IsOK() && !IsRefusal( lResult ) )
        {
            throw aDevice.MakeFailure( "read the text at " + FormatHex( lEntry.mAddress ),
                                       lResult );
        }
        lTexts.push_back( lText.substr( 0, lText.find( '\0' ) ) );
    }
    return lTexts;
}

std::vector<unsigned int> GetStreamPorts( const CapabilitiesGEV& aRecord )
{
    constexpr unsigned int CHANNELS_MAX = 512; // of the standard
    std::vector<unsigned int> lPorts;
    const unsigned int lCount = std::min( aRecord.GetStreamingChannelCount(), CHANNELS_MAX );
    for ( unsigned int lChannel = 0; lChannel < lCount; ++lChannel )
    {
        lPorts.push_back(
            aRecord.GetStreamChannelSourcePort( static_cast<unsigned short>( lChannel ) ) );
    }
    return lPorts;
}

std::string FormatPort( unsigned int aPort )
{
    return aPort != 0 ? std::to_string( aPort ) : std::string();
}

// A port of 0 is one that the device does not publish. If it publishes none, nothing is shown.
std::string FormatPorts( const std::vector<unsigned int>& aPorts )
{
    std::string lText;
    bool lIsAnyTold = false;
    for ( const unsigned int lPort : aPorts )
    {
        const std::string lOne = FormatPort( lPort );
        lIsAnyTold = lIsAnyTold || !lOne.empty();
        lText += ( lText.empty() ? "" : " " ) + ( lOne.empty() ? "-" : lOne );
    }
    return lIsAnyTold ? lText : std::string();
}

void PrintInfo( const GevDevice& aDevice, const EthernetAddress& aAddress,
                const CapabilitiesGEV& aRecord, const std::vector<std::string>& aIdentity )
{
    std::vector<std::vector<std::string>> lRows;
    lRows.push_back( { "Device", aDevice.GetName() } );
    lRows.push_back( { "MAC address", aAddress.GetString() } );
    for ( size_t lIndex = 0; lIndex < aIdentity.size(); ++lIndex )
    {
        lRows.push_back( { IDENTITY_TEXTS[lIndex].mLabel, Escape( aIdentity[lIndex] ) } );
    }
    lRows.push_back( { "GigE Vision", std::to_string( aRecord.GetVersionMajor() ) + "." +
                                          std::to_string( aRecord.GetVersionMinor() ) } );
    lRows.push_back( { "Class", GetClassName( aRecord.GetDeviceClass() ) } );
    lRows.push_back( { "Maker's device", FormatAnswer( aRecord.IsCorvaneDevice() ) } );
    lRows.push_back( { "Maker's transmitter", FormatAnswer( aRecord.IsCorvaneTransmitter() ) } );
    lRows.push_back( { "Stream channels", std::to_string( aRecord.GetStreamingChannelCount() ) } );
    lRows.push_back( { "Stream source ports", FormatPorts( GetStreamPorts( aRecord ) ) } );
    lRows.push_back( { "Message channels", std::to_string( aRecord.GetMessagingChannelCount() ) } );
    lRows.push_back(
        { "Message source port", FormatPort( aRecord.GetMessageChannelSourcePort() ) } );
    lRows.push_back(
        { "Largest memory read", FormatCount( aRecord.GetMaxReadMemSize(), "byte" ) } );
    lRows.push_back(
        { "Largest memory write", FormatCount( aRecord.GetMaxWriteMemSize(), "byte" ) } );
    lRows.push_back(
        { "Timestamp ticks per second", aRecord.GetTimestampTickFrequency() != 0
                                            ? std::to_string( aRecord.GetTimestampTickFrequency() )
                                            : std::string() } );
    AppendCapabilities( lRows, aRecord, CAPABILITIES );
    Print( FormatTable( lRows ) );
}

void ReportInfo( Json& aReport, const EthernetAddress& aAddress, const CapabilitiesGEV& aRecord,
                 const std::vector<std::string>& aIdentity )
{
    aReport["mac"] = aAddress.GetString();
    for ( size_t lIndex = 0; lIndex < aIdentity.size(); ++lIndex )
    {
        aReport[IDENTITY_TEXTS[lIndex].mKey] = aIdentity[lIndex];
    }
    aReport["version"] = { { "major", aRecord.GetVersionMajor() },
                           { "minor", aRecord.GetVersionMinor() } };
    aReport["deviceClass"] = aRecord.GetDeviceClass();
    aReport["makerDevice"] = aRecord.IsCorvaneDevice();
    aReport["makerTransmitter"] = aRecord.IsCorvaneTransmitter();
    aReport["streamChannels"] = aRecord.GetStreamingChannelCount();
    aReport["streamSourcePorts"] = GetStreamPorts( aRecord );
    aReport["messageChannels"] = aRecord.GetMessagingChannelCount();
    aReport["messageSourcePort"] = aRecord.GetMessageChannelSourcePort();
    aReport["maxReadMem"] = aRecord.GetMaxReadMemSize();
    aReport["maxWriteMem"] = aRecord.GetMaxWriteMemSize();
    aReport["timestampTickFrequency"] = aRecord.GetTimestampTickFrequency();
    ReportCapabilities( aReport, aRecord, CAPABILITIES );
}

// The record is made for an address, so that is read first; one Init; then the texts.
void ShowInfo( Program& aProgram, const InfoOptions& aOptions )
{
    aOptions.mMaker.Apply();
    GevDevice lDevice( aProgram.mInterruption, aOptions.mTarget.GetHost(), aOptions.mTarget.mLink );
    aProgram.mReport["device"] = lDevice.GetName();
    const EthernetAddress lAddress = lDevice.ReadMacAddress();
    CapabilitiesGEV* const lShared = CapabilitiesGEV::GetCapabilities( lAddress );
    if ( lShared == nullptr )
    {
        throw lDevice.MakeFailure( "read the capabilities",
                                   Result( Result::GENERIC_ERROR, ENOMEM ) );
    }
    CapabilitiesGEV& lRecord = *lShared;
    const Result lResult = lDevice.Read( lRecord );
    if ( !lResult.IsOK() )
    {
        throw lDevice.MakeFailure( "read the capabilities", lResult );
    }
    const std::vector<std::string> lIdentity = ReadIdentity( lDevice );
    if ( aProgram.mIsJson )
    {
        ReportInfo( aProgram.mReport, lAddress, lRecord, lIdentity );
        return;
    }
    PrintInfo( lDevice, lAddress, lRecord, lIdentity );
}

} // namespace

void AddGevInfo( CLI::App& aGroup, Program& aProgram )
{
    const auto lOptions = std::make_shared<InfoOptions>();
    CLI::App* const lCommand =
        AddCommand( aGroup, "info", "Print a device's identity and capabilities", aProgram,
                    [lOptions]( Program& aRun ) { ShowInfo( aRun, *lOptions ); } );
    AddTarget( *lCommand, lOptions->mTarget );
    AddMakerOptions( *lCommand, lOptions->mMaker );
}

} // namespace HtBaseTool
