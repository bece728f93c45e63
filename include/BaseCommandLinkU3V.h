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

/// BaseCommandLinkU3V reads and writes a USB3 Vision device by GenCP, over the control interface of
/// WdTransportLayerLib. A derived class provides the loggers and tells whether the link is the
/// device's master.
///
/// ReadMemory and WriteMemory send one command each. Read and Write split larger transfers. Each
/// command is sent once; the control interface waits for its acknowledge, also through PENDING
/// acknowledges. The link adds no lock, no wait and no retry.
///
/// A link has two limits: the largest command and the largest acknowledge, in bytes with headers. A
/// new link has 64 for both, and UpdateMaxSizes takes them from the device.
///
/// Warning: Close sets both limits to 0, and the next Open leaves them at 0. With limits of 0 no
/// size is checked or split, and a command carries the low 16 bits of a read's size. A read of
/// 65538 bytes then stores 2 bytes and is OK. After a Close, make a new link, or call
/// UpdateMaxSizes after Open.
///
/// Results of a transaction:
/// - `OK`: the device has acknowledged.
/// - `NOT_CONNECTED`: the link was never opened with a device path, or the control interface is not
///   open.
/// - 0x4001, logged at 40000 on the library logger: the command, or the acknowledge that it asks
///   for, is larger than the limit.
/// - 0x4001 with a description, not logged: the data does not fit a packet, the command does not
///   fit the link's buffer, or a limit leaves no room for data.
/// - 0x4001 without description: the answer is not a whole acknowledge of the command.
/// - `GENERIC_ERROR`, logged at 40000 on the library logger: the device refused. The OS code is its
///   GenCP status and the description names it.
/// - `GENERIC_ERROR`, not logged: the control interface failed. The OS code is an errno value.
/// - Any other code is that of the control interface, and is not logged.
///
/// Threads: one thread at a time may use a link, Close included. To end a transaction from another
/// thread, close a copy of the link that was made before.
///
/// Copies share the control interface and the device path. Each link has its own identity and
/// limits. So Open on one connects both, and closing or destroying one closes the device for both.
/// An assignment closes nothing: what the link had before is kept until the link is destroyed. No
/// other thread may use a link that is assigned to, or copy it.
///
/// The virtual operations of BaseCommandLink are followed by Open, Read, Write and IsMaster, in
/// this order.
class HTBASE_API BaseCommandLinkU3V : public BaseCommandLink
{
public:
    /// Bytes of the buffer that a command is built in, and of the buffer that an acknowledge is
    /// received in. UpdateMaxSizes sets no larger limit.
    ///@{
    static constexpr unsigned int CMD_BUFFER_SIZE = 1024;
    static constexpr unsigned int ACK_BUFFER_SIZE = 1024;
    ///@}

    /// A new link has no device and limits of 64 bytes. Constructing a link and assigning to one
    /// throw `std::bad_alloc` where memory is missing; a failed assignment changes nothing. Copying
    /// needs no memory.
    ///@{
    BaseCommandLinkU3V();
    BaseCommandLinkU3V( const BaseCommandLinkU3V& aOther );
    BaseCommandLinkU3V& operator=( const BaseCommandLinkU3V& aOther );
    ///@}

    ~BaseCommandLinkU3V() override; ///< closes

    /// Close closes the device, empties the identity and sets both limits to 0, where they stay
    /// after the next Open: see the class. The device path stays, so IsConnected stays true. The
    /// result is that of the control interface. It may be called when the link is not open.
    QmUtilsLib::Result Close() override;

    /// IsConnected tells whether the link was ever opened with a device path.
    bool IsConnected() const override;

    /// ReadMemory reads aSize bytes, 0 to 65535, with one READMEM. The acknowledge, 12 bytes and
    /// the data, must not exceed GetMaxAckSize(), or 1024 where that is 0.
    ///
    /// It stores as many bytes as the acknowledge carries. An acknowledge with fewer than aSize is
    /// OK too, and ReadCallback gets aSize. A size of 65536 or more is 0x4001 where there is a
    /// limit; with a limit of 0 the device is asked for the low 16 bits of it.
    QmUtilsLib::Result ReadMemory( void* aData, long long aAddress, long long aSize ) override;

    /// WriteMemory writes aSize bytes, 0 to 65535, with one WRITEMEM. The command, 20 bytes and the
    /// data, must not exceed GetMaxCommandSize(), or 1024 where that is 0. The number of written
    /// bytes in the acknowledge is ignored. So is aNoAck: the device is always asked for an
    /// acknowledge.
    QmUtilsLib::Result WriteMemory( const void* aData, long long aAddress, long long aSize,
                                    bool aNoAck ) override;

    /// Open opens the device's control interface, as master where IsMaster() is true, and takes
    /// over identity and path. Pass both values as DeviceEnumerator returned them. The limits stay
    /// as they are: 64 on a new link, 0 after a Close, until UpdateMaxSizes sets them.
    ///
    /// On failure the result is the control interface's, and the link keeps the device that it had.
    /// On an open link the new device replaces the old one.
    virtual QmUtilsLib::Result Open( const WdUtilsLib::U3V::U3VGUID& aGUID,
                                     const std::string& aDevicePath );

    /// Read calls ReadMemory for pieces of GetMaxAckSize() - 24 bytes, Write calls WriteMemory for
    /// pieces of GetMaxCommandSize() - 20 bytes with aNoAck, until aSize bytes are transferred. The
    /// callbacks are called for each piece.
    ///
    /// The first failure ends the transfer; the pieces before it stay done. A limit that leaves no
    /// byte for data is 0x4001. A size of 0 or less is OK and nothing is sent, also on a link that
    /// was never opened.
    ///
    /// Warning: with a limit of 0, as after Close and Open, the whole transfer is one piece. A read
    /// of 65536 bytes or more then stores too little and is OK: see the class.
    ///@{
    virtual QmUtilsLib::Result Read( void* aData, long long aAddress, long long aSize );
    virtual QmUtilsLib::Result Write( const void* aData, long long aAddress, long long aSize,
                                      bool aNoAck );
    ///@}

    /// AtomicWriteAndRead sends one WRITEMEM and one READMEM with no other command between them.
    /// The sizes are those of WriteMemory and ReadMemory. On failure aReadData is unchanged, but
    /// the device may have executed the write. It calls no callback.
    QmUtilsLib::Result AtomicWriteAndRead( const void* aWriteData, long long aWriteAddress,
                                           long long aWriteSize, void* aReadData,
                                           long long aReadAddress, long long aReadSize );

    /// GetGUID returns the identity that the device was opened with. It is empty before Open and
    /// after Close. The reference belongs to the link.
    const WdUtilsLib::U3V::U3VGUID& GetGUID() const { return mGUID; }

    /// GetDevicePath returns the path that the link, or a copy of it, was last opened with. The
    /// reference is valid until the link is destroyed or assigned to.
    const std::string& GetDevicePath() const { return *mDevicePath; }

    /// The largest command and the largest acknowledge that the link allows, in bytes with headers.
    /// 0: no limit but the size of the buffers.
    ///@{
    unsigned int GetMaxCommandSize() const { return mMaxCommandSize; }
    unsigned int GetMaxAckSize() const { return mMaxAckSize; }
    ///@}

protected:
    /// IsMaster tells whether the link is to be the device's master. Each Open calls it once.
    virtual bool IsMaster() const = 0;

    /// GetDCI returns the control interface. It is not null, and the link and its copies own it.
    WdTransportLayerLib::U3V::DeviceControlInterface* GetDCI() { return mDCI.get(); }

    /// SendCommand sends one finished command and receives its acknowledge into aAckCapacity bytes
    /// at aAck. It sets aAckLength to the number of bytes received, also on failure, and to
    /// aAckCapacity when nothing was sent.
    QmUtilsLib::Result SendCommand( unsigned char* aCommand, unsigned int aCommandLength,
                                    unsigned char* aAck, unsigned int aAckCapacity,
                                    unsigned int& aAckLength );

    /// SendAtomicCommands passes aCount commands to the control interface in one call and returns
    /// its result. It does not check whether the link is open. When a command, or the room for an
    /// acknowledge, exceeds the link's limit, it sends nothing, logs that at 40000 on the library
    /// logger and returns 0x4001.
    QmUtilsLib::Result SendAtomicCommands( WdTransportLayerLib::U3V::DCI_COMMAND* aCommands,
                                           unsigned int aCount );

    /// ResultFromStatus makes a GENERIC_ERROR of a GenCP status other than 0. The OS code is the
    /// status and the description is its text, which is logged at 40000 on the library logger.
    QmUtilsLib::Result ResultFromStatus( unsigned short aStatus );

    /// UpdateMaxSizes sets the limits to the lengths in the device's CapabilitiesU3V, at most 1024
    /// each, and passes the device's own values to the control interface. Call it after every Open.
    /// It initialises the record through this link where that is not done yet. When the record
    /// cannot be initialised, nothing changes. It logs at 30000 on the library logger when the
    /// device allows more than 1024 bytes.
    void UpdateMaxSizes();

    /// KeepReplaced keeps an object that an assignment has replaced until the link is destroyed. It
    /// throws `std::bad_alloc` where memory is missing.
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
