#include "ControlEndpoint.h"

#include "UsbResult.h"

#include <QmUtilsLib/Thread.h>
#include <WdUtilsLib/U3V/AckHeader.h>
#include <WdUtilsLib/U3V/CommandHeader.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <utility>

namespace WdTransportLayerLib
{
namespace U3V
{

using QmUtilsLib::LockScope;
using QmUtilsLib::Result;
using QmUtilsLib::Thread;
using WdUtilsLib::U3V::AckHeader;
using WdUtilsLib::U3V::CommandHeader;
using WdUtilsLib::U3V::PendingAck;
using WdUtilsLib::U3V::U3VGUID;

namespace
{

// A header and the longest data that its length field can tell, of a command as of an acknowledge.
constexpr unsigned int MAX_PACKET = CommandHeader::SIZE + UINT16_MAX;

// How long one wait for events lasts; then it is begun again.
constexpr time_t EVENT_SECONDS = 60;

void LIBUSB_CALL MarkCompleted( libusb_transfer* aTransfer )
{
    *static_cast<int*>( aTransfer->user_data ) = 1;
}

bool IsSendable( const DCI_COMMAND& aCommand )
{
    return aCommand.mCommand != nullptr && aCommand.mCommandLength >= CommandHeader::SIZE &&
           aCommand.mCommandLength <= MAX_PACKET &&
           ( aCommand.mAck != nullptr || aCommand.mAckLength == 0 );
}

// Whole packets only: what does not fit a packet's end would be an error of the bus.
std::size_t RoundUp( unsigned int aCapacity, unsigned int aPacketSize )
{
    const unsigned int lCapacity = std::min( aCapacity, MAX_PACKET );
    const unsigned int lPackets = ( lCapacity + aPacketSize - 1 ) / aPacketSize;
    return std::size_t{ std::max( lPackets, 1U ) } * aPacketSize;
}

unsigned int ClampTimeout( long long aMilliseconds )
{
    // libusb takes 0 for ever.
    return static_cast<unsigned int>( std::clamp<long long>( aMilliseconds, 1, UINT32_MAX ) );
}

} // namespace

ControlEndpoint::ControlEndpoint( const UsbDevice& aDevice, HandlePointer aHandle,
                                  const U3VGUID& aGUID )
    : mDevice( aDevice )
    , mGUID( aGUID )
    , mContext( aDevice.mContext )
    , mTransfer( libusb_alloc_transfer( 0 ), libusb_free_transfer )
    , mHandle( std::move( aHandle ) )
    // Not 1: what an earlier program left in the device must not look like an answer.
    , mRequestID( static_cast<uint16_t>( Thread::GetTickCount() ) )
{
}

std::shared_ptr<ControlEndpoint> ControlEndpoint::Claim( const UsbDevice& aDevice,
                                                         const HandlePointer& aHandle,
                                                         const U3VGUID& aGUID, Result& aResult )
{
    // Only some systems have kernel drivers to detach; elsewhere there is nothing to do.
    (void)libusb_set_auto_detach_kernel_driver( aHandle.get(), 1 );
    // All memory comes first: what is claimed is to be given back.
    const std::shared_ptr<ControlEndpoint> lEndpoint(
        new ControlEndpoint( aDevice, aHandle, aGUID ) );
    if ( lEndpoint->mTransfer == nullptr )
    {
        aResult = MakeFailure( ENOMEM, aDevice.mPath );
        return nullptr;
    }
    aResult =
        MakeUsbResult( libusb_claim_interface( aHandle.get(), aDevice.mInterface ), aDevice.mPath );
    return aResult.IsOK() ? lEndpoint : nullptr;
}

ControlEndpoint::~ControlEndpoint()
{
    Shut();
}

bool ControlEndpoint::IsAlive( const UsbDevice& aDevice ) const
{
    return !mIsGone.load() && mDevice.IsSame( aDevice );
}

void ControlEndpoint::Shut()
{
    {
        LockScope lLock( mMutex );
        mIsShut = true;
        if ( mIsRunning )
        {
            // Fails where it has ended already, which is as good.
            (void)libusb_cancel_transfer( mTransfer.get() );
        }
    }
    LockScope lLock( mTurn );
    if ( mHandle != nullptr )
    {
        // Fails where the device is gone or was not claimed; then there is nothing to give back.
        (void)libusb_release_interface( mHandle.get(), mDevice.mInterface );
        mHandle.reset();
    }
}

Result ControlEndpoint::SendCommands( DCI_COMMAND* aCommands, unsigned int aCount,
                                      unsigned int aResponseTime )
{
    for ( unsigned int lIndex = 0; lIndex < aCount; ++lIndex )
    {
        if ( !IsSendable( aCommands[lIndex] ) )
        {
            aCommands[lIndex].mAckLength = 0;
            aCommands[lIndex].mResult = MakeFailure( EINVAL, mDevice.mPath );
            return aCommands[lIndex].mResult;
        }
    }
    LockScope lLock( mTurn );
    if ( mHandle == nullptr )
    {
        return Result::NOT_CONNECTED;
    }
    for ( unsigned int lIndex = 0; lIndex < aCount; ++lIndex )
    {
        DCI_COMMAND& lCommand = aCommands[lIndex];
        lCommand.mResult = Talk( lCommand, aResponseTime );
        if ( !lCommand.mResult.IsOK() )
        {
            lCommand.mAckLength = 0;
            return lCommand.mResult;
        }
    }
    return Result::OK;
}

Result ControlEndpoint::Talk( DCI_COMMAND& aCommand, unsigned int aResponseTime )
try
{
    // All memory comes first: what is sent is to be answered.
    mIn.resize( RoundUp( aCommand.mAckLength, mDevice.mPacketSize ) );
    mOut.assign( aCommand.mCommand, aCommand.mCommand + aCommand.mCommandLength );
    const uint16_t lRequestID = ++mRequestID;
    const Result lResult = Send( lRequestID, aResponseTime );
    if ( !lResult.IsOK() )
    {
        return lResult;
    }
    const CommandHeader lHeader( mOut.data(), static_cast<unsigned int>( mOut.size() ) );
    if ( !lHeader.GetRequestAck() )
    {
        aCommand.mAckLength = 0;
        return Result::OK;
    }
    return Receive( aCommand, lRequestID, aResponseTime );
}
catch ( const std::bad_alloc& )
{
    return Result( Result::GENERIC_ERROR, ENOMEM );
}

Result ControlEndpoint::Send( uint16_t aRequestID, unsigned int aTimeout )
{
    CommandHeader( mOut.data(), static_cast<unsigned int>( mOut.size() ) )
        .SetRequestID( aRequestID );
    unsigned int lMoved = 0;
    const Result lResult = Transfer( mDevice.mEndpointOut, mOut, aTimeout, lMoved );
    if ( lResult.IsOK() && lMoved != mOut.size() )
    {
        return MakeFailure( EIO, mDevice.mPath );
    }
    return lResult;
}

Result ControlEndpoint::Receive( DCI_COMMAND& aCommand, uint16_t aRequestID,
                                 unsigned int aResponseTime )
{
    long long lWait = aResponseTime;
    long long lDeadline = Thread::GetTickCount() + lWait;
    while ( lWait > 0 )
    {
        unsigned int lMoved = 0;
        const Result lResult = Transfer( mDevice.mEndpointIn, mIn, ClampTimeout( lWait ), lMoved );
        if ( !lResult.IsOK() && lResult != Result::TIMEOUT )
        {
            return lResult;
        }
        const Ack lAck{ mIn.data(), lMoved, !lResult.IsOK() };
        const Kind lKind = Classify( lAck, aRequestID );
        const long long lNow = Thread::GetTickCount();
        if ( lKind == Kind::ANSWER )
        {
            aCommand.mAckLength = std::min( lMoved, aCommand.mAckLength );
            std::copy_n( mIn.begin(), aCommand.mAckLength, aCommand.mAck );
            return Result::OK;
        }
        if ( lKind == Kind::PENDING )
        {
            PendingAck lPending;
            (void)lPending.Attach( lAck.mBytes, lAck.mSize ); // has been attached before
            lDeadline = lNow + std::max<long long>( lPending.GetTimeout(), 1 );
        }
        lWait = lDeadline - lNow;
    }
    return Result::TIMEOUT;
}

ControlEndpoint::Kind ControlEndpoint::Classify( const Ack& aAck, uint16_t aRequestID )
{
    AckHeader lHeader;
    if ( !lHeader.Attach( aAck.mBytes, aAck.mSize ).IsOK() ||
         lHeader.GetPrefix() != AckHeader::PREFIX || lHeader.GetRequestID() != aRequestID )
    {
        return Kind::STRAY;
    }
    if ( lHeader.GetAcknowledge() == PendingAck::ACKNOWLEDGE )
    {
        PendingAck lPending;
        (void)lPending.Attach( aAck.mBytes, aAck.mSize ); // as the header above
        return lPending.IsValid() ? Kind::PENDING : Kind::STRAY;
    }
    const bool lIsWhole = AckHeader::SIZE + lHeader.GetLength() <= aAck.mSize;
    return lIsWhole || !aAck.mIsCut ? Kind::ANSWER : Kind::STRAY;
}

Result ControlEndpoint::Transfer( uint8_t aEndpoint, std::vector<unsigned char>& aBytes,
                                  unsigned int aTimeout, unsigned int& aMoved )
{
    int lIsCompleted = 0;
    libusb_fill_bulk_transfer( mTransfer.get(), mHandle.get(), aEndpoint, aBytes.data(),
                               static_cast<int>( aBytes.size() ), MarkCompleted, &lIsCompleted,
                               aTimeout );
    const Result lResult = Submit();
    if ( !lResult.IsOK() )
    {
        mIsGone = mIsGone || lResult.GetOSCode() == ENODEV;
        return lResult;
    }
    WaitUntil( lIsCompleted );
    aMoved = static_cast<unsigned int>( std::max( mTransfer->actual_length, 0 ) );
    return FinishTransfer( aEndpoint );
}

Result ControlEndpoint::Submit()
{
    LockScope lLock( mMutex );
    if ( mIsShut )
    {
        return Result::NOT_CONNECTED;
    }
    const Result lResult =
        MakeUsbResult( libusb_submit_transfer( mTransfer.get() ), mDevice.mPath );
    mIsRunning = lResult.IsOK();
    return lResult;
}

// The transfer is with the system, so there is no way out before it has come back.
void ControlEndpoint::WaitUntil( int& aIsCompleted )
{
    while ( aIsCompleted == 0 )
    {
        timeval lTime{ EVENT_SECONDS, 0 };
        const int lError =
            libusb_handle_events_timeout_completed( mContext.get(), &lTime, &aIsCompleted );
        if ( lError != LIBUSB_SUCCESS && lError != LIBUSB_ERROR_INTERRUPTED )
        {
            (void)libusb_cancel_transfer( mTransfer.get() ); // fails where it is cancelled already
        }
    }
}

Result ControlEndpoint::FinishTransfer( uint8_t aEndpoint )
{
    {
        LockScope lLock( mMutex );
        mIsRunning = false;
        if ( mIsShut )
        {
            return Result::NOT_CONNECTED;
        }
    }
    switch ( mTransfer->status )
    {
    case LIBUSB_TRANSFER_COMPLETED:
        return Result::OK;
    case LIBUSB_TRANSFER_TIMED_OUT:
        return Result::TIMEOUT;
    case LIBUSB_TRANSFER_STALL:
        if ( libusb_clear_halt( mHandle.get(), aEndpoint ) == LIBUSB_ERROR_NO_DEVICE )
        {
            break;
        }
        return MakeFailure( EPIPE, mDevice.mPath );
    case LIBUSB_TRANSFER_OVERFLOW:
        return MakeFailure( EOVERFLOW, mDevice.mPath );
    case LIBUSB_TRANSFER_NO_DEVICE:
        break;
    default:
        return MakeFailure( EIO, mDevice.mPath );
    }
    mIsGone = true;
    return MakeFailure( ENODEV, mDevice.mPath );
}

} // namespace U3V
} // namespace WdTransportLayerLib
