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

// The device to open. An empty path or identity matches every device.
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

// Claims the device if it is the wanted one, or returns aCurrent if that already has it. Returns
// null otherwise: with OK if this is another device, else with the failure.
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
    // aCurrent may have been opened when its identity could not be read. It has the claim already.
    return lIsCurrent ? aCurrent : ControlEndpoint::Claim( aDevice, lHandle, lGUID, aResult );
}

// Opens the wanted one of the devices, or returns aCurrent if that is it. On failure returns null
// and sets aResult.
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
        if ( EndpointPointer lEndpoint = Try( lDevice, aWanted, aCurrent, aResult ) )
        {
            return lEndpoint;
        }
        // The device whose identity could not be read may be the wanted one, so its failure says
        // more than "not found".
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
    // A context of its own for each open device: threads that handle events of one device then
    // never run the callbacks of another.
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

    // The open endpoint. First waits until one that is being closed has released its interface,
    // because a claim would fail before that.
    EndpointPointer AwaitEndpoint() const
    {
        LockScope lLock( mClosing );
        return GetEndpoint();
    }

    // Returns the endpoint that it replaces. The configuration belonged to that one and is reset.
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

    // Separate from mMutex, which is never held during a USB call: a Close can then cancel a
    // transfer while an Open on another thread is reading descriptors.
    Mutex mOpening;         // one Open at a time
    mutable Mutex mClosing; // held by Close until the interface is released

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
    // The share keeps the endpoint alive if another thread closes it during the call; the call then
    // returns NOT_CONNECTED.
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
