// u3v list.

#include "Tools/htbase/Console.h"
#include "Tools/htbase/Failure.h"
#include "Tools/htbase/Text.h"
#include "Tools/htbase/U3vCommands.h"
#include "Tools/htbase/U3vDevice.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <vector>

namespace HtBaseTool
{

using Json = nlohmann::ordered_json;

namespace
{

const char* GetSpeedName( U3vDeviceInfo::Speed aSpeed )
{
    switch ( aSpeed )
    {
    case U3vDeviceInfo::Speed::LOW:
        return "low";
    case U3vDeviceInfo::Speed::FULL:
        return "full";
    case U3vDeviceInfo::Speed::HIGH:
        return "high";
    case U3vDeviceInfo::Speed::SUPER:
        return "super";
    case U3vDeviceInfo::Speed::SUPER_PLUS:
        return "super+";
    default:
        return "unknown";
    }
}

Json MakeReport( const std::vector<U3vDeviceInfo>& aDevices )
{
    Json lReport = Json::array();
    for ( const U3vDeviceInfo& lInfo : aDevices )
    {
        Json lEntry;
        lEntry["path"] = lInfo.mPath;
        lEntry["guid"] = lInfo.mGUID.Get();
        lEntry["speed"] = GetSpeedName( lInfo.mSpeed );
        lEntry["usbVendor"] = lInfo.mVendorID;
        lEntry["usbProduct"] = lInfo.mProductID;
        lEntry["manufacturer"] = lInfo.mVendorName;
        lEntry["model"] = lInfo.mModelName;
        lEntry["family"] = lInfo.mFamilyName;
        lEntry["version"] = lInfo.mDeviceVersion;
        lEntry["serialNumber"] = lInfo.mSerialNumber;
        lEntry["userName"] = lInfo.mUserDefinedName;
        if ( !lInfo.mAccess.IsOK() )
        {
            lEntry["error"] = MakeError( Failure( GetRefusal( lInfo ), lInfo.mAccess ) );
        }
        lReport.push_back( lEntry );
    }
    return lReport;
}

// A line per device; on a terminal there is also a line that names the columns.
void PrintDevices( const std::vector<U3vDeviceInfo>& aDevices )
{
    std::vector<std::vector<std::string>> lRows;
    if ( IsOutputTerminal() )
    {
        lRows.push_back( { "PATH", "GUID", "MAKER", "MODEL", "SERIAL NUMBER", "USER NAME" } );
    }
    for ( const U3vDeviceInfo& lInfo : aDevices )
    {
        lRows.push_back( { lInfo.mPath, lInfo.mGUID.Get(), Escape( lInfo.mVendorName ),
                           Escape( lInfo.mModelName ), Escape( lInfo.mSerialNumber ),
                           Escape( lInfo.mUserDefinedName ) } );
    }
    Print( FormatTable( lRows ) );
    for ( const U3vDeviceInfo& lInfo : aDevices )
    {
        if ( !lInfo.mAccess.IsOK() )
        {
            PrintNote( GetRefusal( lInfo ) );
        }
    }
}

void List( Program& aProgram )
{
    aProgram.mReport = Json::array();
    const std::vector<U3vDeviceInfo> lDevices = ListU3vDevices();
    if ( lDevices.empty() )
    {
        throw Failure( ExitStatus::REFUSED,
                       "no USB3 Vision device found on this machine - is it plugged in?" );
    }
    aProgram.mReport = MakeReport( lDevices );
    if ( !aProgram.mIsJson )
    {
        PrintDevices( lDevices );
    }
}

} // namespace

void AddU3vList( CLI::App& aGroup, Program& aProgram )
{
    AddCommand( aGroup, "list",
                "List the devices on this machine: path, GUID, maker, model, serial number and "
                "user name",
                aProgram, List );
}

} // namespace HtBaseTool
