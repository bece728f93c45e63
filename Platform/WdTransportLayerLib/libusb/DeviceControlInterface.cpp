#include <WdTransportLayerLib/U3V/DeviceControlInterface.h>

#include "ControlEndpoint.h"
#include "UsbBus.h"
#include "UsbResult.h"

#include <QmUtilsLib/Mutex.h>

#include <cerrno>
#include <new>
#include <optional>

namespace WdTransportLayerLib
{
namespace U3V
{

using QmUtilsLib::LockScope;
using QmUtilsLib::Mutex;
using QmUtilsLib::Result;
using QmUtilsLib::String;
using WdUtilsLib::U3V::U3VGUID;

namespace
{

constexpr unsigned int DEFAULT_RESPONSE_TIME = 500; // ms

using EndpointPointer = std::shared_ptr<ControlEndpoint>;

// What is looked for. An empty path or identity fits every device.
struct Wanted
{
    std::string mPath;
    U3VGUID mGUID;

    bool Fits( const UsbDevice& aDevice ) const { return mPath.empty() || mPath == aDevice.mPath; }
    bool Fits( const U3VGUID& aGUID ) const { return mGUID.IsEmpty() || mGUID == aGUID; }
    Result MakeNotFound() const
    {
        return mGUID.IsEmpty() ? MakeFailure( ENODEV, mPath ) : U3V::MakeNotFound( mGUID, mPath );
    }
};

// Claims the device if it is what is wanted; gives aCurrent back where that has it. Null and why,
// and null with OK where it is another one.
EndpointPointer Try( const UsbDevice& aDevice, const Wanted& aWanted,
                     const EndpointPointer& aCurrent, Result& aResult )
{
    const bool lIsCurrent = aCurrent != nullptr && aCurrent->IsAlive( aDevice );
    if ( lIsCurrent && aWanted.Fits( aCurrent->GetGUID() ) )
    {
        return aCurrent;
    }
    const HandlePointer lHandle = OpenHandle( aDevice, aResult );
    if ( lHandle == nullptr )
    {
        return nullptr;
    }
    U3VGUID lGUID;
    aResult = TextReader( aDevice, lHandle ).ReadGUID( lGUID );
    if ( !aWanted.Fits( lGUID ) )
    {
        return nullptr;
    }
    // The current one may have been opened when its identity could not be read.
    return lIsCurrent ? aCurrent : ControlEndpoint::Claim( aDevice, lHandle, lGUID, aResult );
}

// Opens what is wanted of those; gives aCurrent back where that is it. Null and why.
EndpointPointer OpenOneOf( const std::vector<UsbDevice>& aDevices, const Wanted& aWanted,
                           const EndpointPointer& aCurrent, Result& aResult )
{
    std::optional<Result> lFailure;
    for ( const UsbDevice& lDevice : aDevices )
    {
        if ( !aWanted.Fits( lDevice ) )
        {
            continue;
        }
        if ( const EndpointPointer lEndpoint = Try( lDevice, aWanted, aCurrent, aResult ) )
        {
            return lEndpoint;
        }
        // The one that could not be asked may be the one that is wanted.
        if ( !aResult.IsOK() && !lFailure.has_value() )
        {
            lFailure = aResult;
        }
    }
    aResult = lFailure.has_value() ? *lFailure : aWanted.MakeNotFound();
    return nullptr;
}

EndpointPointer OpenEndpoint( const Wanted& aWanted, const EndpointPointer& aCurrent,
                              Result& aResult )
{
    const ContextPointer lContext = MakeContext( aResult );
    std::vector<UsbDevice> lDevices;
    if ( aResult.IsOK() )
    {
        aResult = FindDevices( lContext, lDevices );
    }
    return aResult.IsOK() ? OpenOneOf( lDevices, aWanted, aCurrent, aResult ) : nullptr;
}

} // namespace

class DeviceControlInterface::Implementation
{
public:
    EndpointPointer GetEndpoint() const
    {
        LockScope lLock( mMutex );
        return mEndpoint;
    }

    // The open one. Waits until one that is being closed has been given back.
    EndpointPointer AwaitEndpoint() const
    {
        LockScope lLock( mClosing );
        return GetEndpoint();
    }

    // Gives back the one that it replaces; what was configured belonged to that.
    EndpointPointer Exchange( EndpointPointer aEndpoint )
    {
        LockScope lLock( mMutex );
        if ( mEndpoint != nullptr || aEndpoint == nullptr )
        {
            mConfiguration = DCIConfiguration();
        }
        mEndpoint.swap( aEndpoint );
        return aEndpoint;
    }

    void SetConfiguration( const DCIConfiguration& aConfiguration )
    {
        LockScope lLock( mMutex );
        mConfiguration = aConfiguration;
    }

    DCIConfiguration GetConfiguration() const
    {
        LockScope lLock( mMutex );
        return mConfiguration;
    }

    Mutex mOpening;         // one Open at a time
    mutable Mutex mClosing; // until what Close takes away has been given back

private:
    mutable Mutex mMutex;
    EndpointPointer mEndpoint QMUTILSLIB_GUARDED_BY( mMutex );
    DCIConfiguration mConfiguration QMUTILSLIB_GUARDED_BY( mMutex );
};

DeviceControlInterface::DeviceControlInterface()
    : mThis( std::make_unique<Implementation>() )
{
}

DeviceControlInterface::~DeviceControlInterface()
{
    (void)Close(); // cannot fail
}

Result DeviceControlInterface::Open( String& aDevicePath, const U3VGUID& aGUID, bool /*aMaster*/ )
try
{
    const Wanted lWanted{ aDevicePath.GetAscii(), aGUID };
    if ( lWanted.mPath.empty() && lWanted.mGUID.IsEmpty() )
    {
        return Result( Result::GENERIC_ERROR, EINVAL );
    }
    LockScope lLock( mThis->mOpening );
    const EndpointPointer lCurrent = mThis->AwaitEndpoint();
    Result lResult;
    const EndpointPointer lEndpoint = OpenEndpoint( lWanted, lCurrent, lResult );
    if ( lEndpoint == nullptr )
    {
        return lResult;
    }
    if ( lEndpoint == lCurrent )
    {
        return Result::OK;
    }
    if ( const EndpointPointer lOld = mThis->Exchange( lEndpoint ) )
    {
        lOld->Shut();
    }
    return Result::OK;
}
catch ( const std::bad_alloc& )
{
    return Result( Result::GENERIC_ERROR, ENOMEM );
}

Result DeviceControlInterface::Close()
{
    LockScope lLock( mThis->mClosing );
    if ( const EndpointPointer lEndpoint = mThis->Exchange( nullptr ) )
    {
        lEndpoint->Shut();
    }
    return Result::OK;
}

bool DeviceControlInterface::IsOpened() const
{
    return mThis->GetEndpoint() != nullptr;
}

Result DeviceControlInterface::SetDCIConfiguration( DCIConfiguration& aConfiguration )
{
    mThis->SetConfiguration( aConfiguration );
    return Result::OK;
}

DCIConfiguration DeviceControlInterface::GetDCIConfiguration() const
{
    return mThis->GetConfiguration();
}

Result DeviceControlInterface::SendCommands( DCI_COMMAND* aCommands, unsigned int aCount )
{
    const EndpointPointer lEndpoint = mThis->GetEndpoint();
    if ( lEndpoint == nullptr )
    {
        return Result::NOT_CONNECTED;
    }
    const unsigned int lReported = mThis->GetConfiguration().mMaxDeviceResponseTime;
    return lEndpoint->SendCommands( aCommands, aCount,
                                    lReported != 0 ? lReported : DEFAULT_RESPONSE_TIME );
}

} // namespace U3V
} // namespace WdTransportLayerLib
