/// @file
/// HtBase: the control channel to a USB3 Vision device.
#pragma once

#include <BaseCommandLink.h>
#include <HtExport.h>
#include <WdTransportLayerLib/U3V/DeviceControlInterface.h>
#include <WdUtilsLib/U3V/U3VGUID.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace HtBaseLib
{

/// BaseCommandLinkU3V reads and writes a USB3 Vision device by GenCP over the control interface of
/// WdTransportLayerLib. A derived link brings the loggers and tells whether it is the device's
/// master.
///
/// ReadMemory and WriteMemory are one command each; Read and Write split what is larger. A command
/// is sent once: the control interface waits for its acknowledge, through pending ones, and the
/// link adds no lock, no wait and no retry of its own. So a link serves one thread at a time, Close
/// included; a transaction is ended from another thread by closing a copy of the link, which shares
/// nothing that is not safe for that.
///
/// Results of a transaction:
///     OK             the device has acknowledged
///     NOT_CONNECTED  the link was never opened; or the control interface is not open
///     0x4001         the command, or the acknowledge it asks for, is larger than the link lets
///                    through, which is logged; the data does not fit a packet, the command does
///                    not fit the buffer of the link, or a limit leaves no room for data, which the
///                    description says; or what came is not an acknowledge
///     GENERIC_ERROR  the device refused: the OS code is its status and the description names it,
///                    logged at 40000 on the library logger; or the control interface failed, then
///                    the OS code is the system's
///     any other      what the control interface returned, not logged
///
/// Copies share the control interface and the device path with their source; the identity and the
/// two limits are each link's own. So Open on one of them connects both, and the destructor of
/// either closes the device for both. Assigning to a link closes nothing and frees nothing: what
/// the link had before is kept until it is destroyed. Assigning to a link while another thread uses
/// it is not allowed, nor is copying one that another thread assigns to.
///
/// Behind the virtual operations of the abstract link come Open, Read, Write and IsMaster, in this
/// order.
class HTBASE_API BaseCommandLinkU3V : public BaseCommandLink
{
public:
    /// Bytes of each buffer that a command is built in, that an acknowledge is received in; no
    /// limit of a link that was sized is larger.
    ///@{
    static constexpr unsigned int CMD_BUFFER_SIZE = 1024;
    static constexpr unsigned int ACK_BUFFER_SIZE = 1024;
    ///@}

    /// A link to no device, with limits of 64 bytes. This and assigning throw std::bad_alloc where
    /// there is no memory; an assignment has changed nothing then. Copying needs none.
    ///@{
    BaseCommandLinkU3V();
    BaseCommandLinkU3V( const BaseCommandLinkU3V& aOther );
    BaseCommandLinkU3V& operator=( const BaseCommandLinkU3V& aOther );
    ~BaseCommandLinkU3V() override; ///< closes
    ///@}

    /// Close closes the device, makes the identity empty and both limits 0, whatever its result is:
    /// that of the control interface. May be called at any time.
    // KEEP: the device path stays, so IsConnected stays true after a Close.
    QmUtilsLib::Result Close() override;

    /// IsConnected tells whether the link has a device path: whether it was ever opened with one.
    bool IsConnected() const override;

    /// ReadMemory reads aSize bytes with one READMEM. The acknowledge, 12 bytes and the data, must
    /// keep to GetMaxAckSize(); where that is 0, to 1024. The field that carries the size has 16
    /// bits.
    // KEEP: as many bytes arrive at aData as the acknowledge carries. An acknowledge with fewer is
    // OK all the same, and ReadCallback gets aSize.
    QmUtilsLib::Result ReadMemory( void* aData, long long aAddress, long long aSize ) override;

    /// WriteMemory writes aSize bytes with one WRITEMEM of 20 bytes and the data, which must keep
    /// to GetMaxCommandSize(); where that is 0, to 1024. How many bytes the acknowledge says were
    /// written is not looked at.
    // KEEP: aNoAck changes nothing. The device is always asked for an acknowledge.
    QmUtilsLib::Result WriteMemory( const void* aData, long long aAddress, long long aSize,
                                    bool aNoAck ) override;

    /// Open opens the device's control interface, as master when IsMaster() says so, and takes over
    /// path and identity; give both, as the enumerator of devices gave them. The limits stay as
    /// they are: UpdateMaxSizes sets them. On failure, which is the control interface's, the link
    /// keeps what it had. May be called on an open link, whose device is then replaced.
    virtual QmUtilsLib::Result Open( const WdUtilsLib::U3V::U3VGUID& aGUID,
                                     const std::string& aDevicePath );

    /// Read reads aSize bytes by as many ReadMemory as it takes, one behind the other, each of
    /// GetMaxAckSize() - 24 bytes at most, and Write writes them by WriteMemory, each of
    /// GetMaxCommandSize() - 20 at most; aNoAck is passed on. The first that fails ends it with its
    /// result; what was done until then stays done. The callbacks come once for each piece. 0x4001
    /// where a limit leaves no byte for data.
    // KEEP: OK, and nothing sent, for a size of 0 or less, also on a link that was never opened.
    // KEEP: a read leaves room for a READMEM command, not for the smaller header of its
    // acknowledge. With a limit of 0 everything is one piece.
    ///@{
    virtual QmUtilsLib::Result Read( void* aData, long long aAddress, long long aSize );
    virtual QmUtilsLib::Result Write( const void* aData, long long aAddress, long long aSize,
                                      bool aNoAck );
    ///@}

    /// AtomicWriteAndRead writes with one WRITEMEM and reads with one READMEM, with no other
    /// command in between; the same sizes hold as for WriteMemory and ReadMemory. On failure
    /// aReadData is unchanged, but the write may have been done. Calls neither callback.
    QmUtilsLib::Result AtomicWriteAndRead( const void* aWriteData, long long aWriteAddress,
                                           long long aWriteSize, void* aReadData,
                                           long long aReadAddress, long long aReadSize );

    /// The identity of the open device; empty before Open and after Close. The reference is the
    /// link's.
    const WdUtilsLib::U3V::U3VGUID& GetGUID() const { return mGUID; }

    /// The path of the device that was opened last, of this link and its copies. The reference is
    /// valid until the link is destroyed or assigned to.
    const std::string& GetDevicePath() const { return *mDevicePath; }

    /// The largest command, the largest acknowledge that the link lets through, headers included;
    /// 0: no limit but the size of the buffers.
    ///@{
    unsigned int GetMaxCommandSize() const { return mMaxCommandSize; }
    unsigned int GetMaxAckSize() const { return mMaxAckSize; }
    ///@}

protected:
    /// IsMaster tells whether the link means to be the device's master; asked once by each Open.
    virtual bool IsMaster() const = 0;

    /// The control interface; never null, owned by the link and its copies.
    WdTransportLayerLib::U3V::DeviceControlInterface* GetDCI() { return mDCI.get(); }

    /// SendCommand sends one finished command and receives its acknowledge into aAckCapacity bytes
    /// at aAck. aAckLength becomes the bytes received as the control interface tells them, also on
    /// failure; aAckCapacity when nothing was sent.
    QmUtilsLib::Result SendCommand( unsigned char* aCommand, unsigned int aCommandLength,
                                    unsigned char* aAck, unsigned int aAckCapacity,
                                    unsigned int& aAckLength );

    /// SendAtomicCommands hands aCount commands to the control interface in one call and returns
    /// its result; whether the link is open is not asked. When a command or the room for an
    /// acknowledge is larger than the link's limit, nothing is sent and the result is 0x4001,
    /// logged on the library logger.
    QmUtilsLib::Result SendAtomicCommands( WdTransportLayerLib::U3V::DCI_COMMAND* aCommands,
                                           unsigned int aCount );

    /// ResultFromStatus makes a GENERIC_ERROR of a status that is not 0: the OS code is the status,
    /// the description its text, which is logged at 40000 on the library logger.
    QmUtilsLib::Result ResultFromStatus( unsigned short aStatus );

    /// UpdateMaxSizes fits the limits to what the device's record says, at most 1024 each, and
    /// tells the control interface what the device reported. A derived link calls it after Open;
    /// without it the limits of a new link stay, which serve for registers. Initialises the record
    /// through this link if nobody has. Changes nothing where that fails. Logs at 30000 on the
    /// library logger when the device could do more than 1024.
    void UpdateMaxSizes();

    /// KeepReplaced keeps an object that an assignment has replaced until the link is destroyed.
    /// Throws std::bad_alloc where there is no memory.
    void KeepReplaced( std::shared_ptr<const void> aObject );

private:
    using Record = WdTransportLayerLib::U3V::DCI_COMMAND;

    HTBASE_INTERNAL QmUtilsLib::Result RefuseSize( unsigned int aSize, unsigned int aLimit );
    HTBASE_INTERNAL QmUtilsLib::Result FitBuffers( Record* aRecords, unsigned int aCount ) const;
    template <typename Ack>
    HTBASE_INTERNAL QmUtilsLib::Result Transact( Record& aRecord, Ack& aAck );
    HTBASE_INTERNAL QmUtilsLib::Result ExamineBoth( const Record* aRecords, void* aReadData,
                                                    long long aReadSize );
    template <typename Ack>
    HTBASE_INTERNAL QmUtilsLib::Result Examine( const Record& aRecord, Ack& aAck );

    std::shared_ptr<WdTransportLayerLib::U3V::DeviceControlInterface> mDCI;
    WdUtilsLib::U3V::U3VGUID mGUID;
    std::shared_ptr<std::string> mDevicePath;
    uint32_t mMaxCommandSize;
    uint32_t mMaxAckSize;
    std::vector<std::shared_ptr<const void>> mReplaced;
};

} // namespace HtBaseLib
