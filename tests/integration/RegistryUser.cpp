// A module that uses the library, for a program that does not.

#include <CapabilitiesGEV.h>
#include <CapabilitiesU3V.h>

#include <cstdio>

using HtBaseLib::CapabilitiesGEV;
using HtBaseLib::CapabilitiesU3V;
using WdUtilsLib::Network::EthernetAddress;
using WdUtilsLib::U3V::U3VGUID;

// Makes records for that many devices of each kind. 0: they are one each, and stay so.
extern "C" [[gnu::visibility( "default" )]] int MakeRecords( unsigned int aCount )
{
    for ( unsigned int lIndex = 0; lIndex < aCount; ++lIndex )
    {
        const EthernetAddress lAddress( 0x0200, lIndex );
        CapabilitiesGEV* const lRecord = CapabilitiesGEV::GetCapabilities( lAddress );
        if ( lRecord == nullptr || lRecord != CapabilitiesGEV::GetCapabilities( lAddress ) )
        {
            return 1;
        }
        char lText[U3VGUID::LENGTH + 1];
        std::snprintf( lText, sizeof( lText ), "1AB2%08X", lIndex );
        const U3VGUID lGUID( lText );
        CapabilitiesU3V* const lOther = CapabilitiesU3V::GetCapabilities( lGUID, nullptr );
        if ( lOther == nullptr || lOther != CapabilitiesU3V::GetCapabilities( lGUID, nullptr ) )
        {
            return 1;
        }
    }
    return 0;
}
