#include <WdTransportLayerLib/U3V/DeviceControlInterface.h>

#include "ControlState.h"

#include <cerrno>

namespace WdTransportLayerLib
{
namespace U3V
{

using QmUtilsLib::Result;
using Scripted::ControlState;

class DeviceControlInterface::Implementation
{
public:
    bool mOpened = false;
    DCIConfiguration mConfiguration;
};

DeviceControlInterface::DeviceControlInterface()
    : mThis( std::make_unique<Implementation>() )
{
    ControlState::Join();
}

DeviceControlInterface::~DeviceControlInterface()
{
    const std::shared_ptr<ControlState> lState = ControlState::GetCurrent();
    if ( lState != nullptr && lState->mAtEnd )
    {
        lState->mAtEnd();
    }
    ControlState::Leave();
}

Result DeviceControlInterface::Open( QmUtilsLib::String& aDevicePath,
                                     const WdUtilsLib::U3V::U3VGUID& aGUID, bool aMaster )
{
    const std::shared_ptr<ControlState> lState = ControlState::GetCurrent();
    if ( lState == nullptr )
    {
        return Result( Result::GENERIC_ERROR, ENODEV );
    }
    lState->mOpenings.push_back( { aDevicePath.GetAscii(), aGUID, aMaster } );
    if ( !lState->mResultsOfOpen.empty() )
    {
        Result lResult = lState->mResultsOfOpen.front();
        lState->mResultsOfOpen.pop_front();
        if ( !lResult.IsOK() )
        {
            return lResult;
        }
    }
    mThis->mOpened = true;
    return Result::OK;
}

Result DeviceControlInterface::Close()
{
    const std::shared_ptr<ControlState> lState = ControlState::GetCurrent();
    if ( lState != nullptr && lState->mAtClose )
    {
        lState->mAtClose();
    }
    *mThis = Implementation();
    if ( lState == nullptr )
    {
        return Result::OK;
    }
    ++lState->mCloseCount;
    return lState->mResultOfClose;
}

bool DeviceControlInterface::IsOpened() const
{
    return mThis->mOpened;
}

Result DeviceControlInterface::SetDCIConfiguration( DCIConfiguration& aConfiguration )
{
    mThis->mConfiguration = aConfiguration;
    if ( const std::shared_ptr<ControlState> lState = ControlState::GetCurrent() )
    {
        lState->mConfigurations.push_back( aConfiguration );
    }
    return Result::OK;
}

DCIConfiguration DeviceControlInterface::GetDCIConfiguration() const
{
    return mThis->mConfiguration;
}

Result DeviceControlInterface::SendCommands( DCI_COMMAND* aCommands, unsigned int aCount )
{
    const std::shared_ptr<ControlState> lState = ControlState::GetCurrent();
    return lState == nullptr ? Result( Result::NOT_CONNECTED )
                             : lState->SendCommands( mThis->mOpened, aCommands, aCount );
}

} // namespace U3V
} // namespace WdTransportLayerLib
