// u3v info.

#include "Tools/htbase/Capability.h"
#include "Tools/htbase/Console.h"
#include "Tools/htbase/Text.h"
#include "Tools/htbase/U3vCommands.h"
#include "Tools/htbase/U3vDevice.h"

#include <CapabilitiesU3V.h>

#include <CLI/CLI.hpp>

#include <memory>
#include <vector>

namespace HtBaseTool
{

using HtBaseLib::CapabilitiesU3V;
using HtBaseLib::StringEncoding;
using Json = nlohmann::ordered_json;

namespace
{

// A text that the device reports about itself.
struct IdentityText
{
    const char* mLabel;
    const char* mKey;
    std::string U3vDeviceInfo::*mText;
};

constexpr IdentityText IDENTITY_TEXTS[] = {
    { "Manufacturer", "manufacturer", &U3vDeviceInfo::mVendorName },
    { "Model", "model", &U3vDeviceInfo::mModelName },
    { "Family", "family", &U3vDeviceInfo::mFamilyName },
    { "Device version", "deviceVersion", &U3vDeviceInfo::mDeviceVersion },
    { "Manufacturer information", "manufacturerInformation", &U3vDeviceInfo::mManufacturerInfo },
    { "Serial number", "serialNumber", &U3vDeviceInfo::mSerialNumber },
    { "User-defined name", "userName", &U3vDeviceInfo::mUserDefinedName },
};

constexpr Capability<CapabilitiesU3V> CAPABILITIES[] = {
    { "User-defined name register", "userDefinedNameRegister",
      &CapabilitiesU3V::IsUserNameAvailable },
    { "Access privilege", "accessPrivilege", &CapabilitiesU3V::IsAccessPrivilegeAvailable },
    { "Message channel", "messageChannel", &CapabilitiesU3V::IsMessageChannelSupported },
    { "Timestamp", "timestamp", &CapabilitiesU3V::IsTimestampSupported },
    { "Family name register", "familyNameRegister", &CapabilitiesU3V::IsFamilyNameAvailable },
    { "USB3 Vision registers", "sbrm", &CapabilitiesU3V::IsSBRMSupported },
    { "Endianness registers", "endiannessRegisters",
      &CapabilitiesU3V::IsEndianessRegistersSupported },
    { "Written length", "writtenLength", &CapabilitiesU3V::IsWrittenLengthFieldSupported },
    { "Stream registers", "sirm", &CapabilitiesU3V::IsSIRMAvailable },
    { "Event registers", "eirm", &CapabilitiesU3V::IsEIRMAvailable },
    { "IIDC2 registers", "iidc2", &CapabilitiesU3V::IsIIDC2Available },
};

std::string GetEncodingName( StringEncoding aEncoding )
{
    switch ( aEncoding )
    {
    case StringEncoding::ASCII:
        return "ASCII";
    case StringEncoding::UTF8:
        return "UTF-8";
    case StringEncoding::UTF16:
        return "UTF-16";
    default:
        return "unknown";
    }
}

constexpr unsigned int GetMajor( unsigned int aVersion )
{
    return aVersion >> 16;
}

constexpr unsigned int GetMinor( unsigned int aVersion )
{
    return aVersion & 0xFFFF;
}

std::string FormatVersion( unsigned int aVersion )
{
    return std::to_string( GetMajor( aVersion ) ) + "." + std::to_string( GetMinor( aVersion ) );
}

Json MakeVersion( unsigned int aVersion )
{
    return { { "major", GetMajor( aVersion ) }, { "minor", GetMinor( aVersion ) } };
}

// "0x... (48 bytes)", or nothing for what the device has not.
std::string FormatMap( unsigned long long aAddress, unsigned int aLength )
{
    return aAddress == 0 ? std::string()
                         : FormatAddress( aAddress, AddressBits::U3V ) + " (" +
                               FormatCount( aLength, "byte" ) + ")";
}

std::string FormatPlace( unsigned long long aAddress )
{
    return aAddress == 0 ? std::string() : FormatAddress( aAddress, AddressBits::U3V );
}

void PrintInfo( const U3vDevice& aDevice, const CapabilitiesU3V& aRecord )
{
    std::vector<std::vector<std::string>> lRows;
    lRows.push_back( { "Path", aDevice.GetInfo().mPath } );
    lRows.push_back( { "GUID", aDevice.GetInfo().mGUID.Get() } );
    for ( const IdentityText& lEntry : IDENTITY_TEXTS )
    {
        lRows.push_back( { lEntry.mLabel, Escape( aDevice.GetInfo().*lEntry.mText ) } );
    }
    lRows.push_back( { "GenCP", FormatVersion( aRecord.GetGenCPVersion() ) } );
    lRows.push_back( { "USB3 Vision", FormatVersion( aRecord.GetU3VVersion() ) } );
    lRows.push_back( { "Text encoding", GetEncodingName( aRecord.GetStringEncoding() ) } );
    lRows.push_back(
        { "Response time", std::to_string( aRecord.GetMaxDeviceResponseTime() ) + " ms" } );
    lRows.push_back(
        { "Largest command", FormatCount( aRecord.GetMaxCommandTransferLength(), "byte" ) } );
    lRows.push_back(
        { "Largest acknowledge", FormatCount( aRecord.GetMaxAckTransferLength(), "byte" ) } );
    lRows.push_back( { "Stream channels", std::to_string( aRecord.GetStreamChannelCount() ) } );
    lRows.push_back(
        { "Timestamp increment", aRecord.GetTimestampIncrement() != 0
                                     ? std::to_string( aRecord.GetTimestampIncrement() ) + " ns"
                                     : std::string() } );
    lRows.push_back( { "Manifest table at", FormatPlace( aRecord.GetManifestTableAddress() ) } );
    lRows.push_back( { "USB3 Vision registers at", FormatPlace( aRecord.GetSBRMAddress() ) } );
    lRows.push_back(
        { "Stream registers at", FormatMap( aRecord.GetSIRMAddress(), aRecord.GetSIRMLength() ) } );
    lRows.push_back(
        { "Event registers at", FormatMap( aRecord.GetEIRMAddress(), aRecord.GetEIRMLength() ) } );
    lRows.push_back( { "IIDC2 registers at", FormatPlace( aRecord.GetIIDC2Address() ) } );
    AppendCapabilities( lRows, aRecord, CAPABILITIES );
    Print( FormatTable( lRows ) );
}

void ReportInfo( Json& aReport, const U3vDevice& aDevice, const CapabilitiesU3V& aRecord )
{
    aReport["path"] = aDevice.GetInfo().mPath;
    aReport["guid"] = aDevice.GetInfo().mGUID.Get();
    for ( const IdentityText& lEntry : IDENTITY_TEXTS )
    {
        aReport[lEntry.mKey] = aDevice.GetInfo().*lEntry.mText;
    }
    aReport["genCPVersion"] = MakeVersion( aRecord.GetGenCPVersion() );
    aReport["u3vVersion"] = MakeVersion( aRecord.GetU3VVersion() );
    aReport["textEncoding"] = GetEncodingName( aRecord.GetStringEncoding() );
    aReport["maxResponseTimeMs"] = aRecord.GetMaxDeviceResponseTime();
    aReport["maxCommandTransferLength"] = aRecord.GetMaxCommandTransferLength();
    aReport["maxAckTransferLength"] = aRecord.GetMaxAckTransferLength();
    aReport["streamChannels"] = aRecord.GetStreamChannelCount();
    aReport["timestampIncrement"] = aRecord.GetTimestampIncrement();
    aReport["manifestTableAddress"] = aRecord.GetManifestTableAddress();
    aReport["sbrmAddress"] = aRecord.GetSBRMAddress();
    aReport["sirmAddress"] = aRecord.GetSIRMAddress();
    aReport["sirmLength"] = aRecord.GetSIRMLength();
    aReport["eirmAddress"] = aRecord.GetEIRMAddress();
    aReport["eirmLength"] = aRecord.GetEIRMLength();
    aReport["iidc2Address"] = aRecord.GetIIDC2Address();
    ReportCapabilities( aReport, aRecord, CAPABILITIES );
}

void ShowInfo( Program& aProgram, const U3vTarget& aTarget )
{
    U3vDevice lDevice( aProgram.mInterruption, aTarget, false );
    aProgram.mReport["device"] = lDevice.GetName();
    const CapabilitiesU3V& lRecord = lDevice.ReadCapabilities();
    if ( aProgram.mIsJson )
    {
        ReportInfo( aProgram.mReport, lDevice, lRecord );
        return;
    }
    PrintInfo( lDevice, lRecord );
}

} // namespace

void AddU3vInfo( CLI::App& aGroup, Program& aProgram )
{
    const auto lTarget = std::make_shared<U3vTarget>();
    CLI::App* const lCommand =
        AddCommand( aGroup, "info", "Print a device's identity and capabilities", aProgram,
                    [lTarget]( Program& aRun ) { ShowInfo( aRun, *lTarget ); } );
    AddTarget( *lCommand, *lTarget );
}

} // namespace HtBaseTool
