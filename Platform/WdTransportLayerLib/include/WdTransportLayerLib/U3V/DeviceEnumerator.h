/// @file
/// WdTransportLayerLib: which USB3 Vision devices are there.
#pragma once

#include <QmUtilsLib/Result.h>
#include <WdTransportLayerLib/Export.h>
#include <WdUtilsLib/U3V/U3VGUID.h>

#include <cstdint>
#include <string>
#include <vector>

namespace WdTransportLayerLib
{
namespace U3V
{

/// DeviceInfo is what a USB3 Vision device tells about itself without being claimed. Texts are
/// UTF-8 and empty where the device has none, or where they could not be read.
struct DeviceInfo
{
    /// How fast a connection is, by the names of USB.
    enum class Speed
    {
        UNKNOWN,
        LOW,
        FULL,
        HIGH,
        SUPER,
        SUPER_PLUS
    };

    std::string mPath;              ///< for DeviceControlInterface::Open
    WdUtilsLib::U3V::U3VGUID mGUID; ///< likewise; empty where it could not be read
    uint16_t mVendorID = 0;         ///< USB vendor
    uint16_t mProductID = 0;        ///< USB product
    Speed mSpeed = Speed::UNKNOWN;  ///< of the connection
    uint32_t mGenCPVersion = 0;     ///< major in the upper 16 bits, minor in the lower
    uint32_t mU3VVersion = 0;       ///< likewise

    /// The texts of its device information.
    ///@{
    std::string mVendorName;
    std::string mModelName;
    std::string mFamilyName;
    std::string mDeviceVersion;
    std::string mManufacturerInfo;
    std::string mSerialNumber;
    std::string mUserDefinedName;
    ///@}

    /// OK, or why the device could not be asked for its texts: an access refused by the system has
    /// OS code EACCES and says in its description what to do about it.
    QmUtilsLib::Result mAccess = QmUtilsLib::Result::OK;
};

/// DeviceEnumerator lists the USB3 Vision devices of this machine.
class WDTRANSPORTLAYERLIB_API DeviceEnumerator
{
public:
    DeviceEnumerator() = delete;

    /// GetDevices replaces aDevices by the devices present now, ordered by bus and port. A device
    /// that is there and cannot be asked is listed too. NOT_SUPPORTED where the library was built
    /// without USB; another failure has GENERIC_ERROR and an errno value as OS code; aDevices is
    /// then empty. No device is claimed or changed. Waits at most half a second for each text. Safe
    /// from any thread.
    static QmUtilsLib::Result GetDevices( std::vector<DeviceInfo>& aDevices );
};

} // namespace U3V
} // namespace WdTransportLayerLib
