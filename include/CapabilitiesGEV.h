/// @file
/// HtBase: what a GigE Vision device can do.
#pragma once

#include <HtExport.h>
#include <QmUtilsLib/Result.h>
#include <WdUtilsLib/Network/EthernetAddress.h>

#include <atomic>
#include <memory>

namespace QmUtilsLib
{
class Logger;
class Mutex;
} // namespace QmUtilsLib

namespace WdUtilsLib
{
namespace Network
{
class SocketUDP;
}
} // namespace WdUtilsLib

namespace HtBaseLib
{

class BaseCommandLinkGEV;

/// CapabilitiesGEV is the record of what one GigE Vision device can do. Init reads the device's
/// bootstrap registers once; the queries then answer without traffic. Ask it before using what the
/// standard makes optional.
///
/// GetCapabilities gives the record that the whole process shares, so that a device is read once.
///
/// In a new record every number is 0 and every answer is false, except where a query says
/// otherwise. After a failed Init the record holds what this Init and earlier ones have read; do
/// not use it. After a successful Init the device is not read again.
///
/// Threads: any thread may call Init at any time; it takes the record's mutex. The queries take no
/// lock. Beside a running Init a thread may call IsInitialized, IsCorvaneDevice,
/// IsCorvaneTransmitter, GetMaxReadMemSize and GetMaxWriteMemSize. A thread that has seen
/// IsInitialized return true, or its own Init return OK, may call every query. No other operation
/// may run while a record is assigned to or destroyed.
///
/// A copy shares the mutex and the logger of its source, so that their Inits run one after the
/// other. The values, the initialised flag included, are its own.
class HTBASE_API CapabilitiesGEV
{
public:
    /// A record for the device with that address. The constructor reads nothing and logs nothing.
    /// It asks WdUtilsLib::Network::DeviceIdentity, once, whether the device is one of the maker's.
    /// It throws `std::bad_alloc` where memory is missing.
    explicit CapabilitiesGEV( WdUtilsLib::Network::EthernetAddress aAddress );

    /// Copying and assigning need no memory. See the class.
    ///@{
    CapabilitiesGEV( const CapabilitiesGEV& aOther );
    CapabilitiesGEV& operator=( const CapabilitiesGEV& aOther );
    ///@}

    virtual ~CapabilitiesGEV();

    /// GetCapabilities returns the process's record of the device with that address, and makes a
    /// new one if there is none. It is null only where memory is missing. The record may not be
    /// initialised: call Init, which returns at once where it is. The library owns the record and
    /// keeps it until Destroy. Safe from any thread; it takes the process-wide mutex of the
    /// records, which is not held while a device is read.
    static CapabilitiesGEV* GetCapabilities( WdUtilsLib::Network::EthernetAddress aAddress );

    /// Destroy deletes every record that GetCapabilities has returned. None of them may be in use,
    /// and the pointers are invalid afterwards. It runs by itself when the process ends or unloads
    /// the library. It takes the process-wide mutex of the records.
    static void Destroy();

    /// Init reads Version, Device Mode, GVCP Capability, Number of Stream Channels and Number of
    /// Message Channels. From version 1.1 on it also reads Message Channel Capability and GVSP
    /// Capability where there are such channels, and the source ports where the device has them.
    /// Then it reads Timestamp Tick Frequency, Device Version and Manufacturer Specific
    /// Information.
    ///
    /// Message Channel Capability, GVSP Capability, the source ports of stream channels and the
    /// tick frequency may fail: they are then 0. Every other read must succeed.
    ///
    /// Results:
    /// - `OK`: the record is initialised. Where it was before, nothing is read.
    /// - 0x001C: a callback of this record's own Init has called Init. Nothing changes.
    /// - `GENERIC_ERROR` with ENOMEM as OS code: memory is missing.
    /// - Otherwise the link's result of the read that failed. The next Init reads everything again.
    ///
    /// Init blocks for the record's mutex and for one transaction of the link per read. At 20000 it
    /// logs "Reading device properties" before it waits for the mutex, then the version, the bits
    /// of GVCP Capability, the numbers of channels, the source ports and the tick frequency. At
    /// 30000 it logs when Message Channel Capability or GVSP Capability cannot be read.
    QmUtilsLib::Result Init( BaseCommandLinkGEV* aLink );

    /// The same over a SimpleCommandLinkGEV on aSocket. The caller connects the socket to the
    /// device and keeps it; Init neither opens nor closes it. NOT_CONNECTED where it is closed or
    /// null.
    QmUtilsLib::Result Init( WdUtilsLib::Network::SocketUDP* aSocket );

    /// ReadSCSPs reads the source ports of the stream channels, at most 512. It is a step of Init,
    /// takes no lock, and nothing else may use the record meanwhile.
    ///
    /// Where GVSP Capability announces them, it reads the registers SCSP, 0x0D1C + 0x40 x channel.
    /// Otherwise it sets the fixed ports for the maker's device engines, and 0 for other devices.
    /// The result is OK or that of the first read that failed; the ports from that channel on are
    /// 0. At 20000 it logs the port that channel 0 had before, and each port found.
    QmUtilsLib::Result ReadSCSPs( BaseCommandLinkGEV* aLink );

    /// IsInitialized tells whether an Init has succeeded. Safe beside a running Init.
    bool IsInitialized();

    /// Version: the version of the standard that the device implements.
    ///@{
    unsigned int GetVersionMajor() const;
    unsigned int GetVersionMinor() const;
    ///@}

    /// Device Mode: 0 transmitter, 1 receiver, 2 transceiver, 3 peripheral; 4 to 7 are reserved.
    unsigned short GetDeviceClass() const;

    unsigned int GetStreamingChannelCount() const; ///< Number of Stream Channels, not bounded
    unsigned int GetMessagingChannelCount() const; ///< Number of Message Channels, not bounded

    /// Timestamp Tick Frequency, in ticks per second. 0 when it cannot be read.
    unsigned long long GetTimestampTickFrequency() const;

    /// Whether the device is one of the maker's device engines, or one of its transmitters. Valid
    /// from construction on.
    ///@{
    bool IsCorvaneDevice() const;
    bool IsCorvaneTransmitter() const;
    ///@}

    /// The most bytes for one READMEM or WRITEMEM: 536 for the maker's device engines, 512 for
    /// other devices. Valid from construction on.
    ///@{
    unsigned int GetMaxReadMemSize() const;
    unsigned int GetMaxWriteMemSize() const;
    ///@}

    /// The UDP port that a stream channel, or the message channel, sends from. 0 when the device
    /// does not tell it, and for channels from 512 on. Until Init has succeeded, a device engine of
    /// the maker's has the fixed ports: 20202 + aChannel for any channel, and 4.
    ///@{
    unsigned int GetStreamChannelSourcePort( unsigned short aChannel ) const;
    unsigned int GetMessageChannelSourcePort() const;
    ///@}

    /// Bits of GVCP Capability. They are valid for every version.
    ///@{
    bool IsConcatenationSupported() const; ///< several registers in one command
    bool IsWriteMemSupported() const;      ///< WRITEMEM
    bool IsPacketResendSupported() const;  ///< PACKETRESEND
    bool IsEventSupported() const;         ///< EVENT
    bool IsEventDataSupported() const;     ///< EVENTDATA
    ///@}

    /// Bits of GVCP Capability. They are false below version 1.1.
    ///@{
    bool IsPendingSupported() const;              ///< PENDING_ACK
    bool IsActionSupported() const;               ///< ACTION
    bool IsV1_1ExtendedCodesSupported() const;    ///< status codes of version 1.1
    bool IsCustomDiscoveryDelaySupported() const; ///< Discovery ACK Delay can be written
    bool IsDiscoveryDelayRegSupported() const;    ///< Discovery ACK Delay
    bool IsTestDataSupported() const;             ///< test packets carry the standard's data
    bool IsManifestTableSupported() const;        ///< Manifest Table
    bool IsCCPOwnerDiscoverySupported() const;    ///< Primary Application Port and IP Address
    bool IsLinkSpeedRegisterSupported() const;    ///< Link Speed
    bool IsHeartbeatDisableSupported() const;     ///< the heartbeat can be disabled
    bool IsSerialNumberSupported() const;         ///< Serial Number
    bool IsUserDefinedNameSupported() const;      ///< User-defined Name
    ///@}

    /// Bits of GVCP Capability. They are false below version 2.0.
    ///@{
    bool IsScheduledActionSupported() const;       ///< ACTION at a given time
    bool IsV2ExtendedStatusCodesSupported() const; ///< status codes of version 2.0
    bool IsIEEE1588Supported() const;              ///< Precision Time Protocol
    bool IsUnconditionalActionSupported() const;   ///< ACTION without a control channel
    bool IsApplicationSwitchOverSupported() const; ///< Control Switchover Key
    ///@}

    /// GVSP Capability: block identifiers of 16 bits. Always true for major version 1, which has no
    /// other identifiers.
    bool IsLegacy16BitsBlockIdSupported() const;

    /// Whether the device accepts a resend request that names the end of a block. After Init it is
    /// true, except for device engines of the maker's whose Manufacturer Specific Information and
    /// Device Version tell an early design with a firmware older than 2.3.
    bool IsEndOfBlockResendRequestSupported() const;

protected:
    bool HasV1_1() const; ///< the version is at least 1.1
    bool HasV1_2() const; ///< the version is at least 1.2
    bool HasV2_0() const; ///< the version is at least 2.0

    /// Whether the device has the source port registers: MCSP by Message Channel Capability, SCSP
    /// by GVSP Capability. False below version 1.1.
    ///@{
    bool IsMCSPSupported() const;
    bool IsSCSPSupported() const;
    ///@}

    /// ParseInfos sets IsEndOfBlockResendRequestSupported from the two texts. It is a step of Init.
    void ParseInfos();

private:
    static constexpr unsigned int STREAM_CHANNEL_MAX = 512; // of the standard
    static constexpr int DEVICE_VERSION_SIZE = 32;
    static constexpr int MANUFACTURER_INFO_SIZE = 48;

    HTBASE_INTERNAL QmUtilsLib::Result ReadDevice( BaseCommandLinkGEV* aLink );
    HTBASE_INTERNAL QmUtilsLib::Result ReadVersion( BaseCommandLinkGEV* aLink );
    HTBASE_INTERNAL QmUtilsLib::Result ReadDeviceClass( BaseCommandLinkGEV* aLink );
    HTBASE_INTERNAL QmUtilsLib::Result ReadGvcpCapability( BaseCommandLinkGEV* aLink );
    HTBASE_INTERNAL QmUtilsLib::Result ReadChannelCounts( BaseCommandLinkGEV* aLink );
    HTBASE_INTERNAL void ReadChannelCapabilities( BaseCommandLinkGEV* aLink );
    HTBASE_INTERNAL QmUtilsLib::Result ReadMCSP( BaseCommandLinkGEV* aLink );
    HTBASE_INTERNAL void ReadTickFrequency( BaseCommandLinkGEV* aLink );
    HTBASE_INTERNAL QmUtilsLib::Result ReadTexts( BaseCommandLinkGEV* aLink );
    HTBASE_INTERNAL unsigned int GetBoundedChannelCount() const;

    // What a copy takes over as a whole.
    struct Values
    {
        unsigned short mVersionMajor = 0;
        unsigned short mVersionMinor = 0;
        unsigned int mGvcpCapability = 0;
        unsigned int mMessageChannelCapability = 0;
        unsigned int mStreamChannelCapability = 0;
        unsigned long long mTimestampTickFrequency = 0;
        unsigned int mStreamingChannelCount = 0;
        unsigned int mMessagingChannelCount = 0;
        bool mIsCorvaneDevice = false;
        bool mIsCorvaneTransmitter = false;
        WdUtilsLib::Network::EthernetAddress mAddress;
        unsigned int mMessageChannelSourcePort = 0;
        unsigned int mStreamChannelSourcePorts[STREAM_CHANNEL_MAX] = {};
        unsigned short mDeviceClass = 0;
        bool mIsEndOfBlockResendRequestSupported = false;
        // Device Version and behind it Manufacturer Specific Information, as the device stores
        // them: a text that fills its field has no NUL, and ParseInfos reads on from one into the
        // other.
        char mTexts[DEVICE_VERSION_SIZE + MANUFACTURER_INFO_SIZE] = {};
    };

    Values mValues;
    std::atomic<bool> mInitialized{ false };
    bool mIsFilling = false; // under the mutex; not copied
    std::shared_ptr<QmUtilsLib::Mutex> mMutex;
    std::shared_ptr<QmUtilsLib::Logger> mLogger;
};

} // namespace HtBaseLib
