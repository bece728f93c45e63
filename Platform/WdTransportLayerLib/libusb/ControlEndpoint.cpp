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

// How long one wait for events lasts; then it is repeated. libusb wakes the wait when the transfer
// ends, so this is not the transfer's time-out.
constexpr time_t EVENT_SECONDS = 60;

// Only the thread that has the turn handles events of this context. So this runs on the thread that
// waits, and a plain int is enough.
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

// A bulk IN buffer takes whole packets: a packet larger than the rest of the buffer would end the
// transfer with an overflow.
std::size_t RoundUp( unsigned int aCapacity, unsigned int aPacketSize )
{
    const unsigned int lCapacity = std::min( aCapacity, MAX_PACKET );
    const unsigned int lPackets = ( lCapacity + aPacketSize - 1 ) / aPacketSize;
    return std::size_t{ std::max( lPackets, 1U ) } * aPacketSize;
}

unsigned int ClampTimeout( long long aMilliseconds )
{
    // For libusb, 0 means to wait for ever.
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
    // Not a fixed number: an acknowledge that an earlier program left in the device must not match.
    , mRequestID( static_cast<uint16_t>( Thread::GetTickCount() ) )
{
}

std::shared_ptr<ControlEndpoint> ControlEndpoint::Claim( const UsbDevice& aDevice,
                                                         const HandlePointer& aHandle,
                                                         const U3VGUID& aGUID, Result& aResult )
{
    // Claiming then detaches a kernel driver, and releasing attaches it again. Fails on systems
    // without kernel drivers, where it is not needed.
    (void)libusb_set_auto_detach_kernel_driver( aHandle.get(), 1 );
    // All memory is allocated before the claim, so that no failed allocation leaves a claimed
    // interface.
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
        // Submit and this block exclude each other: either Submit sees mIsShut and does not start a
        // transfer, or this block sees the running transfer and cancels it.
        LockScope lLock( mMutex );
        mIsShut = true;
        if ( mIsRunning )
        {
            // Fails if the transfer has already ended, which does no harm.
            (void)libusb_cancel_transfer( mTransfer.get() );
        }
    }
    // Only now, and not under mMutex: the running call needs mMutex to end and gives up its turn
    // then.
    LockScope lLock( mTurn );
    if ( mHandle != nullptr )
    {
        // Fails if the device is gone or was not claimed; there is nothing to release then.
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
    // All memory is allocated before the command is sent, so that its answer can always be
    // received.
    mIn.resize( RoundUp( aCommand.mAckLength, mDevice.mPacketSize ) );
    mOut.assign( aCommand.mCommand, aCommand.mCommand + aCommand.mCommandLength );
    const uint16_t lRequestID = ++mRequestID;
    Result lResult = Send( lRequestID, aResponseTime );
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
    Result lResult = Transfer( mDevice.mEndpointOut, mOut, aTimeout, lMoved );
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
        Result lResult = Transfer( mDevice.mEndpointIn, mIn, ClampTimeout( lWait ), lMoved );
        if ( !lResult.IsOK() && lResult != Result::TIMEOUT )
        {
            return lResult;
        }
        PendingAck lAck;
        (void)lAck.Attach( mIn.data(), lMoved ); // where it fails, the prefix is 0
        const Kind lKind = Classify( lAck, lResult, aRequestID );
        const long long lNow = Thread::GetTickCount();
        if ( lKind == Kind::ANSWER )
        {
            aCommand.mAckLength = std::min( lMoved, aCommand.mAckLength );
            std::copy_n( mIn.begin(), aCommand.mAckLength, aCommand.mAck );
            return Result::OK;
        }
        if ( lKind == Kind::PENDING )
        {
            lDeadline = lNow + std::max<long long>( lAck.GetTimeout(), 1 );
        }
        lWait = lDeadline - lNow;
    }
    return Result::TIMEOUT;
}

ControlEndpoint::Kind ControlEndpoint::Classify( const PendingAck& aAck, const Result& aTransfer,
                                                 uint16_t aRequestID )
{
    const AckHeader& lHeader = *aAck.GetAckHeader();
    if ( lHeader.GetPrefix() != AckHeader::PREFIX || lHeader.GetRequestID() != aRequestID )
    {
        return Kind::STRAY;
    }
    if ( lHeader.GetAcknowledge() == PendingAck::ACKNOWLEDGE )
    {
        return aAck.IsValid() ? Kind::PENDING : Kind::STRAY;
    }
    // A transfer that timed out may have been cut.
    return lHeader.IsWhole() || aTransfer.IsOK() ? Kind::ANSWER : Kind::STRAY;
}

Result ControlEndpoint::Transfer( uint8_t aEndpoint, std::vector<unsigned char>& aBytes,
                                  unsigned int aTimeout, unsigned int& aMoved )
{
    int lIsCompleted = 0; // on the stack: WaitUntil does not return before libusb has written it
    libusb_fill_bulk_transfer( mTransfer.get(), mHandle.get(), aEndpoint, aBytes.data(),
                               static_cast<int>( aBytes.size() ), MarkCompleted, &lIsCompleted,
                               aTimeout );
    Result lResult = Submit();
    if ( !lResult.IsOK() )
    {
        mIsGone = mIsGone || lResult.GetOSCode() == ENODEV;
        return lResult;
    }
    WaitUntil( lIsCompleted );
    // Set on failure too: a transfer that timed out may have received a complete acknowledge.
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
    Result lResult = MakeUsbResult( libusb_submit_transfer( mTransfer.get() ), mDevice.mPath );
    mIsRunning = lResult.IsOK();
    return lResult;
}

// The system uses the transfer and its buffer until the transfer has ended, so this never returns
// early.
void ControlEndpoint::WaitUntil( int& aIsCompleted )
{
    while ( aIsCompleted == 0 )
    {
        timeval lTime{ EVENT_SECONDS, 0 };
        // With the flag, libusb returns as soon as the transfer has ended. libusb checks it under
        // its own lock before it waits, so an end between the check above and the wait is not
        // missed.
        const int lError =
            libusb_handle_events_timeout_completed( mContext.get(), &lTime, &aIsCompleted );
        if ( lError != LIBUSB_SUCCESS && lError != LIBUSB_ERROR_INTERRUPTED )
        {
            (void)libusb_cancel_transfer( mTransfer.get() ); // fails if it is already cancelled
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
        // A halted endpoint refuses every transfer until it is cleared. The command itself has
        // failed.
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
