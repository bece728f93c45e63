// A module that uses the library, for a program that does not.

#include <CapabilitiesGEV.h>

using HtBaseLib::CapabilitiesGEV;
using WdUtilsLib::Network::EthernetAddress;

// Makes records for that many devices. 0: they are one each, and stay so.
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
    }
    return 0;
}
