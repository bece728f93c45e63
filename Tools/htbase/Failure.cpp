#include "Tools/htbase/Failure.h"

#include "Tools/htbase/Text.h"

#include <QmUtilsLib/String.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <system_error>

namespace HtBaseTool
{

using QmUtilsLib::Result;

namespace
{

// The start of the link's text for this refusal; nothing else in a result distinguishes it.
constexpr const char* ACCESS_DENIED = "Access denied";

// The start of the link's texts for a GenCP status; they distinguish its OS code from the system's.
constexpr const char* STATUS_TEXTS[] = { "Status GENCP_", "Unknown status received" };

std::string GetDescription( const Result& aResult )
{
    std::string lText = aResult.GetDescription().GetAscii();
    while ( !lText.empty() && lText.back() == '.' )
    {
        lText.pop_back();
    }
    return lText;
}

} // namespace

std::string GetSystemErrorText( int aError )
{
    return std::system_category().message( aError );
}

std::string Describe( const Result& aResult )
{
    std::string lDetails = GetDescription( aResult );
    const unsigned int lStatus = GetDeviceStatus( aResult );
    if ( lStatus != 0 )
    {
        lDetails += ", status " + FormatHex( lStatus );
    }
    else if ( aResult.GetOSCode() != 0 )
    {
        const int lError = static_cast<int>( aResult.GetOSCode() );
        lDetails += lDetails.empty() ? "" : ", ";
        lDetails += GetSystemErrorText( lError ) + ", system error " + std::to_string( lError );
    }
    const std::string lName = aResult.GetCodeString();
    return lDetails.empty() ? lName : lName + " (" + lDetails + ")";
}

std::string GetHint( const Result& aResult )
{
    if ( aResult == Result::TIMEOUT )
    {
        return " - no answer: is the address right, does a firewall block UDP, or is the device on "
               "another interface?";
    }
    if ( IsAccessDenied( aResult ) )
    {
        return " - another host holds control of the device, or the device requires control to be "
               "taken first";
    }
    switch ( aResult.GetOSCode() )
    {
    case ECONNREFUSED:
        return " - no program listens there: are the address and the port right?";
    case ENETUNREACH:
    case EHOSTUNREACH:
        return " - there is no route to it: is the device on another network?";
    case EADDRINUSE:
        return " - another program uses this address and port";
    case EADDRNOTAVAIL:
        return " - this machine has no such address";
    case EACCES:
        return " - is it a broadcast address, or a port that only root may use?";
    default:
        return "";
    }
}

unsigned int GetDeviceStatus( const Result& aResult )
{
    const std::string lText = GetDescription( aResult );
    const bool lIsStatus =
        std::any_of( std::begin( STATUS_TEXTS ), std::end( STATUS_TEXTS ),
                     [&lText]( const char* aBegin ) { return lText.rfind( aBegin, 0 ) == 0; } );
    return lIsStatus ? aResult.GetOSCode() : 0;
}

nlohmann::ordered_json MakeError( const Failure& aFailure )
{
    const Result& lResult = aFailure.GetResult();
    nlohmann::ordered_json lError;
    lError["message"] = aFailure.what();
    if ( lResult.IsOK() )
    {
        return lError;
    }
    const unsigned int lStatus = GetDeviceStatus( lResult );
    lError["code"] = lResult.GetCodeString();
    lError["systemError"] = lStatus == 0 ? lResult.GetOSCode() : 0;
    if ( lStatus != 0 )
    {
        lError["deviceStatus"] = lStatus;
    }
    return lError;
}

bool IsRefusal( const Result& aResult )
{
    return aResult == Result::GENERIC_ERROR && aResult.GetOSCode() == 0;
}

bool IsAccessDenied( const Result& aResult )
{
    return GetDescription( aResult ).rfind( ACCESS_DENIED, 0 ) == 0;
}

} // namespace HtBaseTool
