// A USB3 Vision device as the commands use it.
#pragma once

#include "Tools/htbase/Device.h"
#include "Tools/htbase/ToolLinkU3V.h"
#include "Tools/htbase/U3vCommands.h"

#include <WdTransportLayerLib/U3V/DeviceEnumerator.h>

#include <string>
#include <vector>

namespace HtBaseLib
{
class CapabilitiesU3V;
}

namespace HtBaseTool
{

using U3vDeviceInfo = WdTransportLayerLib::U3V::DeviceInfo;

// The devices of this machine. Throws a Failure.
std::vector<U3vDeviceInfo> ListU3vDevices();

// "1-2 (1AB200000001)".
std::string GetU3vName( const U3vDeviceInfo& aInfo );

// Why a listed device cannot be opened.
std::string GetRefusal( const U3vDeviceInfo& aInfo );

// U3vDevice is a link to one device. No other program can open the device meanwhile. Its name is
// that of GetU3vName.
class U3vDevice : public Device
{
public:
    // Finds the device among those of this machine and opens it. Throws a Failure. The interruption
    // must outlive the object.
    U3vDevice( Interruption& aInterruption, const U3vTarget& aTarget, bool aIsMaster );
    ~U3vDevice() override;

    const U3vDeviceInfo& GetInfo() const { return mInfo; }

    // Reads the device's capability record and fits the transfers to it. Throws a Failure.
    const HtBaseLib::CapabilitiesU3V& ReadCapabilities();

    // Adapts the transfers to the device's limits. If the device does not report them, the
    // transfers are kept small, and a note says so. Throws a Failure if the limits are too small
    // for a word.
    PieceSizes FitPieces();

    // Registers are little-endian.
    QmUtilsLib::Result ReadRegister( uint64_t aAddress, uint32_t& aValue ) override;
    QmUtilsLib::Result WriteRegister( uint64_t aAddress, uint32_t aValue );

    // At most what FitPieces returned.
    QmUtilsLib::Result ReadPiece( void* aData, uint64_t aAddress, uint32_t aSize ) override;
    QmUtilsLib::Result WritePiece( const void* aData, uint64_t aAddress, uint32_t aSize ) override;

    nlohmann::ordered_json GetStatistics() const override;
    std::string GetStatisticsText() const override;

protected:
    std::string GetAdvice( const QmUtilsLib::Result& aResult ) const override;

private:
    U3vDevice( Interruption& aInterruption, const U3vDeviceInfo& aInfo, bool aIsMaster );

    const U3vDeviceInfo mInfo;
    ToolLinkU3V mLink;
};

} // namespace HtBaseTool
