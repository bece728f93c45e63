#include <WdTransportLayerLib/U3V/DeviceControlInterface.h>

#include <QmUtilsLib/Mutex.h>

namespace WdTransportLayerLib
{
namespace U3V
{

using QmUtilsLib::LockScope;
using QmUtilsLib::Result;

class DeviceControlInterface::Implementation
{
public:
    QmUtilsLib::Mutex mMutex;
    DCIConfiguration mConfiguration QMUTILSLIB_GUARDED_BY( mMutex );
};

DeviceControlInterface::DeviceControlInterface()
    : mThis( std::make_unique<Implementation>() )
{
}

DeviceControlInterface::~DeviceControlInterface() = default;

Result DeviceControlInterface::Open( QmUtilsLib::String& /*aDevicePath*/,
                                     const WdUtilsLib::U3V::U3VGUID& /*aGUID*/, bool /*aMaster*/ )
{
    return Result::NOT_SUPPORTED;
}

Result DeviceControlInterface::Close()
{
    LockScope lLock( mThis->mMutex );
    mThis->mConfiguration = DCIConfiguration();
    return Result::OK;
}

bool DeviceControlInterface::IsOpened() const
{
    return false;
}

Result DeviceControlInterface::SetDCIConfiguration( DCIConfiguration& aConfiguration )
{
    LockScope lLock( mThis->mMutex );
    mThis->mConfiguration = aConfiguration;
    return Result::OK;
}

DCIConfiguration DeviceControlInterface::GetDCIConfiguration() const
{
    LockScope lLock( mThis->mMutex );
    return mThis->mConfiguration;
}

Result DeviceControlInterface::SendCommands( DCI_COMMAND* /*aCommands*/, unsigned int /*aCount*/ )
{
    return Result::NOT_CONNECTED;
}

} // namespace U3V
} // namespace WdTransportLayerLib
