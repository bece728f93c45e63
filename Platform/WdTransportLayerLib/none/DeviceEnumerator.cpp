#include <WdTransportLayerLib/U3V/DeviceEnumerator.h>

namespace WdTransportLayerLib
{
namespace U3V
{

QmUtilsLib::Result DeviceEnumerator::GetDevices( std::vector<DeviceInfo>& aDevices )
{
    aDevices.clear();
    return QmUtilsLib::Result::NOT_SUPPORTED;
}

} // namespace U3V
} // namespace WdTransportLayerLib
