/// @file
/// WdTransportLayerLib: the control endpoint of a USB3 Vision device.
#pragma once

#include <QmUtilsLib/Result.h>
#include <QmUtilsLib/String.h>
#include <WdTransportLayerLib/Export.h>
#include <WdUtilsLib/U3V/U3VGUID.h>

#include <cstdint>
#include <memory>

namespace WdTransportLayerLib
{
namespace U3V
{

/// DCI_COMMAND is one GenCP command and the place for its acknowledge. Both buffers belong to the
/// caller.
struct DCI_COMMAND
{
    QmUtilsLib::Result
        mResult; ///< out: the outcome of this one command; NOT_INITIALIZED if not sent
    unsigned char* mCommand = nullptr; ///< the finished command; not changed
    uint32_t mCommandLength = 0;       ///< its bytes, 12 or more
    unsigned char* mAck = nullptr;     ///< where the acknowledge is stored
    uint32_t mAckLength = 0;           ///< in: room at mAck; out: bytes stored there
};

/// DCIConfiguration is what a device reports about its control endpoint.
struct DCIConfiguration
{
    uint32_t mMaxDeviceResponseTime = 0;    ///< milliseconds from a command to its acknowledge
    uint32_t mMaxCommandTransferLength = 0; ///< bytes
    uint32_t mMaxAckTransferLength = 0;     ///< bytes
};

/// DeviceControlInterface sends GenCP commands to one USB3 Vision device and brings back their
/// acknowledges.
///
/// Results: not open is NOT_CONNECTED, no answer in time is TIMEOUT, everything else that fails is
/// GENERIC_ERROR with an errno value as OS code (ENODEV: the device is gone; EACCES: the system
/// does not allow this user to open it, and the description says what to do about it; ENOMEM: there
/// was no memory, and the call can be repeated). Where the library was built without USB, Open is
/// NOT_SUPPORTED.
///
/// All operations may run at the same moment from several threads. Calls of SendCommands take their
/// turn; Close ends a running one, which then returns NOT_CONNECTED. The destructor must not run
/// beside anything.
class WDTRANSPORTLAYERLIB_API DeviceControlInterface
{
public:
    /// A closed interface. Throws std::bad_alloc where there is no memory for it.
    ///@{
    DeviceControlInterface();
    ~DeviceControlInterface(); ///< closes
    ///@}

    DeviceControlInterface( const DeviceControlInterface& ) = delete;
    DeviceControlInterface& operator=( const DeviceControlInterface& ) = delete;

    /// Open finds the device and claims its control interface; a kernel driver that holds it is
    /// detached until Close.
    ///
    /// aDevicePath names bus and ports as the system does ("2-1.4"), aGUID the device. Either may
    /// be empty, then the other decides; where both are given and do not belong together, Open
    /// fails with ENODEV, and with EINVAL where neither is. Give both, as the enumerator gave them:
    /// a path alone opens whatever is plugged in there by now and leaves callers that keep records
    /// by GUID with one record for all devices; a GUID alone makes Open ask every device of the
    /// machine for its own, and leaves callers that ask for the path with none. aDevicePath is not
    /// changed.
    ///
    /// Where no device has that GUID and one would not tell its own, the result is why it would
    /// not: TIMEOUT, EPIPE for a request that it stalls, EPROTO for a text that is malformed. With
    /// a path alone it is not needed.
    ///
    /// aMaster tells whether the caller means to be the device's master; it changes nothing on the
    /// wire, since the claimed interface is exclusive anyway.
    ///
    /// Opening the device that is open already succeeds and changes nothing, unless its identity is
    /// asked for and cannot be read. Another device replaces it only once that is open; on failure
    /// the old one stays open. Beside the time that the system takes it waits at most half a second
    /// for each text that it must ask a device for, and for a Close and another Open that run at
    /// the same moment.
    QmUtilsLib::Result Open( QmUtilsLib::String& aDevicePath, const WdUtilsLib::U3V::U3VGUID& aGUID,
                             bool aMaster );

    /// Close gives everything back, the kernel driver too; the configuration is forgotten. OK also
    /// when not open. A running SendCommands is woken and has left when Close returns.
    QmUtilsLib::Result Close();

    /// IsOpened tells whether a device is open; also after it was unplugged, until Close.
    bool IsOpened() const;

    /// SetDCIConfiguration takes over what the device reported; until then, and for a response time
    /// of 0, half a second is waited for an acknowledge. The lengths are kept for the record only:
    /// what is sent and stored is bounded by the records of SendCommands alone. OK always; may be
    /// called when not open. aConfiguration is not changed.
    QmUtilsLib::Result SetDCIConfiguration( DCIConfiguration& aConfiguration );

    /// GetDCIConfiguration gives the configuration back, all 0 until set.
    DCIConfiguration GetDCIConfiguration() const;

    /// SendCommands sends aCount commands in order, no other between them, and waits for the
    /// acknowledge of each before it sends the next. A command goes out under the next request
    /// identifier, and only the acknowledge that echoes it counts: one of an earlier command that
    /// came late is dropped. A pending acknowledge makes it wait for as long as the device asks, as
    /// often as the device asks.
    ///
    /// OK only if every command was answered, whatever the status in the answer; the first command
    /// that is not answered ends the call, and the records behind it are not touched. Of each
    /// record sent mResult tells its outcome, and mAckLength the bytes stored at mAck, never more
    /// than the room given there; a longer acknowledge is cut and counts as answered. A record that
    /// was not answered has a length of 0 and nothing stored. Where there is no memory for a
    /// command and its acknowledge, that command is not sent.
    ///
    /// A halted endpoint is cleared, so that the next call works, and reported as GENERIC_ERROR
    /// with EPIPE. A command without the request-acknowledge flag is answered by nobody: it is
    /// sent, its length is 0 and it counts as answered. A command of less than 12 bytes or more
    /// than 65547, or a null buffer, is GENERIC_ERROR with EINVAL.
    ///
    /// Blocks for at most the response time for each transfer, and as long as pending acknowledges
    /// say; a caller ends that with Close from another thread.
    QmUtilsLib::Result SendCommands( DCI_COMMAND* aCommands, unsigned int aCount );

private:
    class Implementation;
    std::unique_ptr<Implementation> mThis;
};

} // namespace U3V
} // namespace WdTransportLayerLib
