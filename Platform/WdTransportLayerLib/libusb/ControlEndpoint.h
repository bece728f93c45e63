// The claimed control interface of one device, and the transfers over it.
#pragma once

#include "UsbBus.h"

#include <QmUtilsLib/Mutex.h>
#include <QmUtilsLib/Result.h>
#include <WdTransportLayerLib/U3V/DeviceControlInterface.h>
#include <WdUtilsLib/U3V/AckHeader.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

namespace WdTransportLayerLib
{
namespace U3V
{

// ControlEndpoint owns a claimed control interface until Shut. Several threads may call its
// operations at the same time; each holds a share of the object during the call.
class ControlEndpoint
{
public:
    // Claims the control interface of the opened device, even from a kernel driver. On failure
    // returns null and sets aResult.
    static std::shared_ptr<ControlEndpoint> Claim( const UsbDevice& aDevice,
                                                   const HandlePointer& aHandle,
                                                   const WdUtilsLib::U3V::U3VGUID& aGUID,
                                                   QmUtilsLib::Result& aResult );
    ~ControlEndpoint(); // shuts

    ControlEndpoint( const ControlEndpoint& ) = delete;
    ControlEndpoint& operator=( const ControlEndpoint& ) = delete;

    // Whether this is the same device, and no transfer has found it unplugged.
    bool IsAlive( const UsbDevice& aDevice ) const;
    const WdUtilsLib::U3V::U3VGUID& GetGUID() const { return mGUID; }

    // See DeviceControlInterface::SendCommands. aResponseTime in milliseconds, not 0.
    QmUtilsLib::Result SendCommands( DCI_COMMAND* aCommands, unsigned int aCount,
                                     unsigned int aResponseTime );

    // Cancels a running call, waits until it has ended and releases the interface.
    void Shut();

private:
    enum class Kind
    {
        STRAY,
        PENDING,
        ANSWER
    };

    ControlEndpoint( const UsbDevice& aDevice, HandlePointer aHandle,
                     const WdUtilsLib::U3V::U3VGUID& aGUID );

    QmUtilsLib::Result Talk( DCI_COMMAND& aCommand, unsigned int aResponseTime )
        QMUTILSLIB_REQUIRES( mTurn );
    QmUtilsLib::Result Send( uint16_t aRequestID, unsigned int aTimeout )
        QMUTILSLIB_REQUIRES( mTurn );
    QmUtilsLib::Result Receive( DCI_COMMAND& aCommand, uint16_t aRequestID,
                                unsigned int aResponseTime ) QMUTILSLIB_REQUIRES( mTurn );
    // aAck shows what came, and aTransfer is the result of the transfer that brought it.
    static Kind Classify( const WdUtilsLib::U3V::PendingAck& aAck,
                          const QmUtilsLib::Result& aTransfer, uint16_t aRequestID );

    // One bulk transfer of at most aTimeout ms; aMoved is the number of bytes transferred, also on
    // failure.
    QmUtilsLib::Result Transfer( uint8_t aEndpoint, std::vector<unsigned char>& aBytes,
                                 unsigned int aTimeout, unsigned int& aMoved )
        QMUTILSLIB_REQUIRES( mTurn );
    QmUtilsLib::Result Submit();
    void WaitUntil( int& aIsCompleted );
    QmUtilsLib::Result FinishTransfer( uint8_t aEndpoint ) QMUTILSLIB_REQUIRES( mTurn );

    const UsbDevice mDevice;
    const WdUtilsLib::U3V::U3VGUID mGUID;
    const ContextPointer mContext;
    const std::shared_ptr<libusb_transfer> mTransfer;
    // Only ever changes from false to true, and nothing else is read because of it, so it needs no
    // lock.
    std::atomic<bool> mIsGone{ false };

    QmUtilsLib::Mutex mTurn; // held for a whole SendCommands, waits included
    HandlePointer mHandle QMUTILSLIB_GUARDED_BY( mTurn );
    uint16_t mRequestID QMUTILSLIB_GUARDED_BY( mTurn );
    std::vector<unsigned char> mOut QMUTILSLIB_GUARDED_BY( mTurn );
    std::vector<unsigned char> mIn QMUTILSLIB_GUARDED_BY( mTurn );

    QmUtilsLib::Mutex mMutex; // held briefly; Shut cancels under it while a call has its turn
    bool mIsShut QMUTILSLIB_GUARDED_BY( mMutex ) = false;
    bool mIsRunning QMUTILSLIB_GUARDED_BY( mMutex ) = false; // mTransfer is submitted
};

} // namespace U3V
} // namespace WdTransportLayerLib
