/// @file
/// WdTransportLayerLib: the USB3 Vision devices of this machine.
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
/// UTF-8, and empty where the device has none or they could not be read.
struct DeviceInfo
{
    /// The speed of a connection, by the names of USB.
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

    /// The texts of the device information descriptor.
    ///@{
    std::string mVendorName;
    std::string mModelName;
    std::string mFamilyName;
    std::string mDeviceVersion;
    std::string mManufacturerInfo;
    std::string mSerialNumber;
    std::string mUserDefinedName;
    ///@}

    /// OK, or why the texts could not be read. Where the system refuses access, the OS code is
    /// EACCES and the description says what to do about it.
    QmUtilsLib::Result mAccess = QmUtilsLib::Result::OK;
};

/// DeviceEnumerator lists the USB3 Vision devices of this machine.
class WDTRANSPORTLAYERLIB_API DeviceEnumerator
{
public:
    DeviceEnumerator() = delete;

    /// GetDevices sets aDevices to the devices present now, ordered by bus and port. It lists a
    /// device whose texts cannot be read too. It claims and changes no device.
    ///
    /// NOT_SUPPORTED: the library was built without USB. Any other failure is GENERIC_ERROR with an
    /// errno value as OS code. On failure aDevices is empty. It waits at most half a second for
    /// each text. Safe from any thread.
    static QmUtilsLib::Result GetDevices( std::vector<DeviceInfo>& aDevices );
};

} // namespace U3V
} // namespace WdTransportLayerLib
