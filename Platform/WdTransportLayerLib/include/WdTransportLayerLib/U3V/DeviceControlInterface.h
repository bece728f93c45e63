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

/// DCI_COMMAND is one GenCP command and the room for its acknowledge. Both buffers belong to the
/// caller.
struct DCI_COMMAND
{
    QmUtilsLib::Result mResult; ///< out: the outcome of this command; NOT_INITIALIZED if not sent
    unsigned char* mCommand = nullptr; ///< the finished command; not changed
    uint32_t mCommandLength = 0;       ///< bytes at mCommand, 12 to 65547
    unsigned char* mAck = nullptr;     ///< where the acknowledge is stored
    uint32_t mAckLength = 0;           ///< in: room at mAck in bytes; out: bytes stored there
};

/// DCIConfiguration is what a device reports about its control endpoint.
struct DCIConfiguration
{
    uint32_t mMaxDeviceResponseTime = 0;    ///< milliseconds from a command to its acknowledge
    uint32_t mMaxCommandTransferLength = 0; ///< bytes
    uint32_t mMaxAckTransferLength = 0;     ///< bytes
};

/// DeviceControlInterface sends GenCP commands to one USB3 Vision device and receives their
/// acknowledges.
///
/// Results:
/// - `NOT_CONNECTED`: the interface is not open.
/// - `TIMEOUT`: no answer in time.
/// - `NOT_SUPPORTED`, of Open: the library was built without USB.
/// - `GENERIC_ERROR` with an errno value as OS code: any other failure. ENODEV: the device is gone.
///   EACCES: the system does not allow this user to open it; the description says what to do.
///   ENOMEM: memory is missing; the call can be repeated.
///
/// All operations but the destructor may run at the same moment on several threads. Calls of
/// SendCommands follow one another. Close ends a running one, which returns NOT_CONNECTED.
class WDTRANSPORTLAYERLIB_API DeviceControlInterface
{
public:
    /// A closed interface. Throws `std::bad_alloc` where memory is missing.
    DeviceControlInterface();
    ~DeviceControlInterface(); ///< closes

    DeviceControlInterface( const DeviceControlInterface& ) = delete;
    DeviceControlInterface& operator=( const DeviceControlInterface& ) = delete;

    /// Open finds the device and claims its control interface. A kernel driver that holds the
    /// interface is detached until Close.
    ///
    /// aDevicePath names bus and ports as the system does ("2-1.4"), aGUID the device. Give both,
    /// as DeviceEnumerator gave them. Either may be empty:
    /// - A path alone opens whatever device is connected there now. Callers that keep records by
    ///   identity then have one record for all such devices.
    /// - With an identity alone, Open reads the identity of every device of the machine. A caller
    ///   that keeps the path has none then.
    /// - EINVAL: both are empty. ENODEV: they name different devices, or no device.
    ///
    /// Where no device has the identity and one could not be asked for its own, the result is that
    /// of asking: TIMEOUT, EPIPE when the device stalls the request, EPROTO when its text is
    /// malformed. aDevicePath is not changed. aMaster changes nothing, since a claimed interface is
    /// exclusive.
    ///
    /// Opening the device that is open is OK and changes nothing, unless its identity is needed and
    /// cannot be read. Opening another device replaces the open one, which stays open on failure.
    /// Open waits at most half a second for each text that it reads from a device, and for a Close
    /// or another Open that runs at the same moment.
    QmUtilsLib::Result Open( QmUtilsLib::String& aDevicePath, const WdUtilsLib::U3V::U3VGUID& aGUID,
                             bool aMaster );

    /// Close releases the device, attaches a kernel driver that was detached, and clears the
    /// configuration. It is OK also when the interface is not open. A running SendCommands has
    /// ended when Close returns.
    QmUtilsLib::Result Close();

    /// IsOpened tells whether a device is open. It stays true after the device was unplugged, until
    /// Close.
    bool IsOpened() const;

    /// SetDCIConfiguration stores what the device reported. SendCommands uses the response time;
    /// for 0, and until it is set, half a second. The lengths are stored only: SendCommands is
    /// bounded by its records. The result is always OK, also when the interface is not open.
    /// aConfiguration is not changed.
    QmUtilsLib::Result SetDCIConfiguration( DCIConfiguration& aConfiguration );

    /// GetDCIConfiguration returns the stored configuration. All values are 0 until it is set.
    DCIConfiguration GetDCIConfiguration() const;

    /// SendCommands sends aCount commands in order, with no other command between them, and waits
    /// for the acknowledge of each before it sends the next. It gives each command the next request
    /// identifier and accepts only the acknowledge with the same one; a late acknowledge of an
    /// earlier command is dropped. A PENDING acknowledge extends the wait by the time that the
    /// device asks for, as often as the device sends one.
    ///
    /// The result is OK only when every command was answered, with any status. The first command
    /// that is not answered ends the call, and the records behind it are not changed. In each
    /// record sent, mResult is the command's outcome and mAckLength the number of bytes stored at
    /// mAck, never more than the room there. A longer acknowledge is cut and counts as answered. A
    /// command that was not answered has the length 0. A command for which memory is missing is not
    /// sent.
    ///
    /// A command without the request-acknowledge flag is sent, has the length 0 and counts as
    /// answered. A halted endpoint is cleared and reported as GENERIC_ERROR with EPIPE; the next
    /// call works. A command of less than 12 or more than 65547 bytes, or a null buffer, is
    /// GENERIC_ERROR with EINVAL.
    ///
    /// SendCommands blocks for at most the response time for each transfer, and for as long as
    /// PENDING acknowledges ask. Close from another thread ends it.
    QmUtilsLib::Result SendCommands( DCI_COMMAND* aCommands, unsigned int aCount );

private:
    class Implementation;
    std::unique_ptr<Implementation> mThis;
};

} // namespace U3V
} // namespace WdTransportLayerLib
