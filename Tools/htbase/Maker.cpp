#include "Tools/htbase/Maker.h"

#include "Tools/htbase/Failure.h"
#include "Tools/htbase/GevDevice.h"

#include <CapabilitiesGEV.h>
#include <WdUtilsLib/Network/DeviceIdentity.h>

#include <CLI/CLI.hpp>

namespace HtBaseTool
{

using HtBaseLib::CapabilitiesGEV;
using WdUtilsLib::Network::DeviceIdentity;
using WdUtilsLib::Network::EthernetAddress;

namespace
{

void AddAll( DeviceIdentity::Product aProduct, const std::vector<std::string>& aTexts )
{
    for ( const std::string& lText : aTexts )
    {
        if ( !DeviceIdentity::Add( aProduct, lText.c_str() ) )
        {
            throw MakeUsageFailure( "'" + lText +
                                    "' is neither a MAC address nor the first three bytes of one" );
        }
    }
}

} // namespace

void MakerOptions::Apply() const
{
    AddAll( DeviceIdentity::Product::DEVICE, mDevices );
    AddAll( DeviceIdentity::Product::TRANSMITTER, mTransmitters );
}

void AddMakerOptions( CLI::App& aCommand, MakerOptions& aOptions )
{
    aCommand
        .add_option( "--maker", aOptions.mDevices,
                     "The maker's device engine: MAC address, or its first three bytes" )
        ->type_name( "MAC-OR-PREFIX" )
        ->allow_extra_args( false );
    aCommand
        .add_option( "--maker-transmitter", aOptions.mTransmitters,
                     "The maker's video transmitter: MAC address, or its first three bytes" )
        ->type_name( "MAC-OR-PREFIX" )
        ->allow_extra_args( false );
}

PieceSizes GetPieceSizes( GevDevice& aDevice, const MakerOptions& aOptions )
{
    const EthernetAddress lAddress =
        aOptions.IsEmpty() ? EthernetAddress() : aDevice.ReadMacAddress();
    const CapabilitiesGEV lRecord( lAddress );
    return { lRecord.GetMaxReadMemSize(), lRecord.GetMaxWriteMemSize() };
}

} // namespace HtBaseTool
