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

/// CapabilitiesGEV is the record of what one GigE Vision device can do: filled once from the
/// device's bootstrap registers by Init, it then answers without traffic. Ask it before using what
/// the standard makes optional.
///
/// The record of a device that several parts of an application talk to comes from GetCapabilities,
/// so that the device is read once per process.
///
/// Until Init has succeeded every number is 0 and every answer is false; exceptions are said where
/// they are. A record that is initialised stays as it is: it is never read again.
///
/// Threads: Init may be called by any thread at any time; it takes the record's mutex. The other
/// operations take none. They read what Init has stored, so beside a running Init only
/// IsInitialized may be called; once that, or an Init of one's own, has given the word, any thread
/// may ask anything. Assigning to a record, or destroying it, may run beside nothing. Copies share
/// the mutex and the logger of their source, so that their Inits run one after the other; what they
/// hold, the initialised flag included, is their own.
class HTBASE_API CapabilitiesGEV
{
public:
    /// A record for the device of that address: reads nothing, logs nothing. Whether the device is
    /// one of the maker's is asked of WdUtilsLib::Network::DeviceIdentity now and never again.
    /// Throws std::bad_alloc where memory is missing. Copying and assigning need no memory.
    ///@{
    explicit CapabilitiesGEV( WdUtilsLib::Network::EthernetAddress aAddress );
    CapabilitiesGEV( const CapabilitiesGEV& aOther );
    CapabilitiesGEV& operator=( const CapabilitiesGEV& aOther );
    virtual ~CapabilitiesGEV();
    ///@}

    /// GetCapabilities returns the record of the device with that address, and makes it when there
    /// is none; null only where there is no memory for it. Perhaps it is not initialised: call
    /// Init, which costs nothing where it is. The record belongs to the library and lives until
    /// Destroy. Takes the process-wide mutex of the records, which nobody holds while a device is
    /// read.
    static CapabilitiesGEV* GetCapabilities( WdUtilsLib::Network::EthernetAddress aAddress );

    /// Destroy deletes every record that GetCapabilities has given; the pointers dangle then, and
    /// none may be in use. It runs by itself when the process ends or unloads the library. Takes
    /// the process-wide mutex of the records.
    static void Destroy();

    /// Init reads the device: Version, Device Mode, GVCP Capability, Number of Stream Channels,
    /// Number of Message Channels; from version 1.1 on also Message Channel Capability and GVSP
    /// Capability where there are such channels, and the source ports where the device has them;
    /// then Timestamp Tick Frequency, Device Version and Manufacturer Specific Information.
    ///
    /// Result: OK, or what the link gave for the read that ended it. A device may lack Message
    /// Channel Capability, GVSP Capability, the stream channels' source ports and the tick
    /// frequency: what could not be read is 0 then. Every other read must succeed. After a failure
    /// the record is not initialised, holds what was read so far, and the next Init starts anew.
    /// Blocks as long as its reads do, one transaction of the link each; on an initialised record
    /// it is OK at once, but for the wait for the mutex. GENERIC_ERROR with ENOMEM as OS code where
    /// memory is missing. 0x001C from within an Init of this record,
    /// where a callback of its reads calls it: that one goes on, and this one changes nothing.
    ///
    /// Logs "Reading device properties" before it waits for the mutex, each thing found at 20000,
    /// and the two channel capabilities that cannot be read at 30000.
    QmUtilsLib::Result Init( BaseCommandLinkGEV* aLink );

    /// Init over a SimpleCommandLinkGEV of its own on that socket, which must be connected to the
    /// device and stays the caller's: it is neither opened nor closed. NOT_CONNECTED where it is
    /// closed or null.
    QmUtilsLib::Result Init( WdUtilsLib::Network::SocketUDP* aSocket );

    /// ReadSCSPs fills the source ports of the stream channels; a step of Init. Takes no lock, and
    /// must not run beside anything else on the record. From registers SCSP 0x0D1C + 0x40 x channel
    /// where GVSP Capability has them; otherwise the fixed ports for a device of the maker's, and 0
    /// for others. OK, or the result of the first read that failed: the ports from that channel on
    /// are 0. At most 512 channels are read, whatever the device counts. Logs the port that channel
    /// 0 had before, and each port found, at 20000.
    QmUtilsLib::Result ReadSCSPs( BaseCommandLinkGEV* aLink );

    /// IsInitialized tells whether an Init has succeeded. Safe beside a running Init, and whoever
    /// has seen true may ask everything else.
    // KEEP: the one query that is not const.
    bool IsInitialized();

    /// Version: the version of the standard that the device implements.
    ///@{
    unsigned int GetVersionMajor() const;
    unsigned int GetVersionMinor() const;
    ///@}

    /// Device Mode: 0 transmitter, 1 receiver, 2 transceiver, 3 peripheral; 4 to 7 are reserved.
    unsigned short GetDeviceClass() const;

    /// Number of Stream Channels, Number of Message Channels: the device's own figures.
    ///@{
    unsigned int GetStreamingChannelCount() const;
    unsigned int GetMessagingChannelCount() const;
    ///@}

    /// Timestamp Tick Frequency: ticks per second, 0 when the device does not give it.
    unsigned long long GetTimestampTickFrequency() const;

    /// Whether the device is one of the maker's device engines, one of its transmitters. Right from
    /// construction on.
    ///@{
    bool IsCorvaneDevice() const;
    bool IsCorvaneTransmitter() const;
    ///@}

    /// The most bytes that one READMEM, one WRITEMEM may carry: 512, and 536 with the maker's
    /// device engines. Right from construction on.
    ///@{
    unsigned int GetMaxReadMemSize() const;
    unsigned int GetMaxWriteMemSize() const;
    ///@}

    /// The UDP port that a stream channel sends from, that the message channel sends from; 0 when
    /// the device does not tell, and for channels from 512 on. For a device engine of the maker's
    /// the fixed ports, 20202 + channel and 4, before Init as well.
    ///@{
    unsigned int GetStreamChannelSourcePort( unsigned short aChannel ) const;
    unsigned int GetMessageChannelSourcePort() const;
    ///@}

    /// GVCP Capability, bits that count on any device.
    ///@{
    bool IsConcatenationSupported() const; ///< several registers in one command
    bool IsWriteMemSupported() const;      ///< WRITEMEM
    bool IsPacketResendSupported() const;  ///< PACKETRESEND
    bool IsEventSupported() const;         ///< EVENT
    bool IsEventDataSupported() const;     ///< EVENTDATA
    ///@}

    /// GVCP Capability, bits that count from version 1.1 on.
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
    bool IsHeartbeatDisableSupported() const;     ///< the heartbeat can be switched off
    bool IsSerialNumberSupported() const;         ///< Serial Number
    bool IsUserDefinedNameSupported() const;      ///< User-defined Name
    ///@}

    /// GVCP Capability, bits that count from version 2.0 on.
    ///@{
    bool IsScheduledActionSupported() const;       ///< ACTION at a given time
    bool IsV2ExtendedStatusCodesSupported() const; ///< status codes of version 2.0
    bool IsIEEE1588Supported() const;              ///< Precision Time Protocol
    bool IsUnconditionalActionSupported() const;   ///< ACTION without a control channel
    bool IsApplicationSwitchOverSupported() const; ///< Control Switchover Key
    ///@}

    /// GVSP Capability: block identifiers of 16 bits. Always on a device of version 1, which has no
    /// others; on any other the bit decides.
    bool IsLegacy16BitsBlockIdSupported() const;

    /// Whether the device accepts resend requests that name the end of a block. True after Init but
    /// for device engines of the maker's whose manufacturer information and device version tell an
    /// early design with a firmware older than 2.3.
    bool IsEndOfBlockResendRequestSupported() const;

protected:
    /// Version is at least 1.1, 1.2, 2.0.
    ///@{
    bool HasV1_1() const;
    bool HasV1_2() const;
    bool HasV2_0() const;
    ///@}

    /// Message Channel Capability, GVSP Capability, from version 1.1 on: the device publishes the
    /// source ports of its message channel (register MCSP), of its stream channels (registers
    /// SCSP).
    ///@{
    bool IsMCSPSupported() const;
    bool IsSCSPSupported() const;
    ///@}

    /// ParseInfos decides IsEndOfBlockResendRequestSupported from the two texts; a step of Init.
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
