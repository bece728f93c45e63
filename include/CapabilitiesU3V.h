/// @file
/// HtBase: what a USB3 Vision device can do.
#pragma once

#include <HtExport.h>
#include <QmUtilsLib/Result.h>
#include <WdUtilsLib/U3V/U3VGUID.h>

#include <atomic>
#include <cstdint>
#include <memory>

namespace QmUtilsLib
{
class Logger;
class Mutex;
} // namespace QmUtilsLib

namespace HtBaseLib
{

class BaseCommandLinkU3V;

/// StringEncoding tells how the texts in a device's bootstrap registers are written.
enum class StringEncoding : uint32_t
{
    ASCII = 0,
    UTF8 = 1,
    UTF16 = 2,
    UNKNOWN = 0xFFFFFFFF
};

/// CapabilitiesU3V is the record of what one USB3 Vision device can do: filled once by Init from
/// the device's two bootstrap register maps, the one of GenCP (ABRM) and the one of USB3 Vision
/// (SBRM), it then answers without traffic.
///
/// The record of a device that several parts of an application talk to comes from GetCapabilities,
/// so that the device is read once per process.
///
/// Until Init has succeeded every number is 0 and every answer is false. A record that is
/// initialised stays as it is: it is never read again.
///
/// Threads: Init may be called by any thread at any time, on a link that no other thread uses; it
/// takes the record's mutex. The other operations take none. They read what Init has stored, so
/// beside a running Init only IsInitialized may be called; once that, or an Init of one's own, has
/// given the word, any thread may ask anything. Assigning to a record, or destroying it, may run
/// beside nothing. Copies share the mutex and the logger of their source, so that their Inits run
/// one after the other; what they hold, the initialised flag included, is their own.
class HTBASE_API CapabilitiesU3V
{
public:
    /// A record for that device: reads nothing, logs nothing. The second argument is kept for
    /// callers of old; nothing looks at it, and it may be null. Throws std::bad_alloc where memory
    /// is missing. Copying and assigning need no memory.
    ///@{
    CapabilitiesU3V( const WdUtilsLib::U3V::U3VGUID& aGUID, unsigned char* aUnused );
    CapabilitiesU3V( const CapabilitiesU3V& aOther );
    CapabilitiesU3V& operator=( const CapabilitiesU3V& aOther );
    virtual ~CapabilitiesU3V();
    ///@}

    /// GetCapabilities returns the record of the device with that identity, and makes it when there
    /// is none; null only where there is no memory for it. Perhaps it is not initialised: call
    /// Init, which costs nothing where it is. The record belongs to the library and lives until
    /// Destroy. All devices without identity share one record. Takes the process-wide mutex of the
    /// records, which nobody holds while a device is read; it is another one than that of the GigE
    /// Vision records. The second argument is handed to the constructor.
    static CapabilitiesU3V* GetCapabilities( const WdUtilsLib::U3V::U3VGUID& aGUID,
                                             unsigned char* aUnused );

    /// Destroy deletes every record that GetCapabilities has given; the pointers dangle then, and
    /// none may be in use. It runs by itself when the process ends or unloads the library. Takes
    /// the process-wide mutex of the records.
    static void Destroy();

    /// Init reads the device through aLink's ReadMemory, 4 or 8 bytes at a time, 10 to 16 reads.
    ///
    /// Result: OK, or what the link gave for the read that ended it: every read must succeed. After
    /// a failure the record is not initialised, holds what was read so far, and the next Init reads
    /// everything again. On an initialised record it is OK at once. GENERIC_ERROR with ENOMEM as OS
    /// code where memory is missing. 0x001C from within an Init of
    /// this record, where a callback of its reads calls it: that one goes on, and this one changes
    /// nothing.
    ///
    /// Logs "Reading device properties" before it waits for the mutex, and each thing found, all at
    /// 20000.
    QmUtilsLib::Result Init( BaseCommandLinkU3V* aLink );

    /// IsInitialized tells whether an Init has succeeded. Safe beside a running Init, and whoever
    /// has seen true may ask everything else.
    // KEEP: not const, as its twin of the GigE Vision record.
    bool IsInitialized();

    /// GenCP Version, U3V Version: major in the upper 16 bits, minor in the lower.
    ///@{
    unsigned int GetGenCPVersion() const;
    unsigned int GetU3VVersion() const;
    ///@}

    /// Maximum Device Response Time, milliseconds.
    unsigned int GetMaxDeviceResponseTime() const;

    /// Manifest Table Address, SBRM Address.
    ///@{
    unsigned long long GetManifestTableAddress() const;
    unsigned long long GetSBRMAddress() const;
    ///@}

    /// Timestamp Increment, nanoseconds; 0 where the device has no timestamps.
    unsigned long long GetTimestampIncrement() const;

    /// Ticks per second of timestamps: always 1000000000, they count nanoseconds.
    unsigned long long GetTimestampTickFrequency() const;

    /// Maximum Command Transfer Length, Maximum Acknowledge Transfer Length: bytes, headers
    /// included.
    ///@{
    unsigned int GetMaxCommandTransferLength() const;
    unsigned int GetMaxAckTransferLength() const;
    ///@}

    /// Number of Stream Channels.
    unsigned int GetStreamChannelCount() const;

    /// Where the register maps of streaming (SIRM), of events (EIRM) and of IIDC2 lie, and their
    /// bytes. 0 where they were not read.
    // KEEP: the SIRM is read when there is a stream channel and the EIRM when there is a message
    // channel; what IsSIRMAvailable and IsEIRMAvailable say plays no part.
    ///@{
    unsigned long long GetSIRMAddress() const;
    unsigned int GetSIRMLength() const;
    unsigned long long GetEIRMAddress() const;
    unsigned int GetEIRMLength() const;
    unsigned long long GetIIDC2Address() const;
    ///@}

    /// Bits of Device Capability.
    ///@{
    bool IsUserNameAvailable() const;
    bool IsAccessPrivilegeAvailable() const;
    bool IsMessageChannelSupported() const;
    bool IsTimestampSupported() const;
    StringEncoding GetStringEncoding() const;
    bool IsFamilyNameAvailable() const;
    bool IsSBRMSupported() const;
    bool IsEndianessRegistersSupported() const;
    bool IsWrittenLengthFieldSupported() const;
    ///@}

    /// Bits of U3VCP Capability Register.
    ///@{
    bool IsSIRMAvailable() const;
    bool IsEIRMAvailable() const;
    bool IsIIDC2Available() const;
    ///@}

protected:
    /// The two halves of Init, without its lock. UpdateSBRM relies on what UpdateABRM has read.
    ///@{
    QmUtilsLib::Result UpdateABRM( BaseCommandLinkU3V* aLink );
    QmUtilsLib::Result UpdateSBRM( BaseCommandLinkU3V* aLink );
    ///@}

private:
    HTBASE_INTERNAL QmUtilsLib::Result ReadDeviceCapability( BaseCommandLinkU3V* aLink );
    HTBASE_INTERNAL QmUtilsLib::Result ReadTimestampIncrement( BaseCommandLinkU3V* aLink );
    HTBASE_INTERNAL QmUtilsLib::Result ReadTransferLengths( BaseCommandLinkU3V* aLink );
    HTBASE_INTERNAL QmUtilsLib::Result ReadSIRM( BaseCommandLinkU3V* aLink );
    HTBASE_INTERNAL QmUtilsLib::Result ReadEIRM( BaseCommandLinkU3V* aLink );
    HTBASE_INTERNAL QmUtilsLib::Result ReadIIDC2( BaseCommandLinkU3V* aLink );

    // What a copy takes over as a whole.
    struct Values
    {
        WdUtilsLib::U3V::U3VGUID mGUID;
        uint32_t mGenCPVersion = 0;
        uint64_t mDeviceCapability = 0;
        uint32_t mMaxDeviceResponseTime = 0;
        uint64_t mManifestTableAddress = 0;
        uint64_t mSBRMAddress = 0;
        uint64_t mTimestampIncrement = 0;
        uint32_t mU3VVersion = 0;
        uint64_t mU3VCPCapability = 0;
        uint32_t mMaxCommandTransferLength = 0;
        uint32_t mMaxAckTransferLength = 0;
        uint32_t mStreamChannelCount = 0;
        uint64_t mSIRMAddress = 0;
        uint32_t mSIRMLength = 0;
        uint64_t mEIRMAddress = 0;
        uint32_t mEIRMLength = 0;
        uint64_t mIIDC2Address = 0;
    };

    Values mValues;
    std::atomic<bool> mInitialized{ false };
    bool mIsFilling = false; // under the mutex; not copied
    std::shared_ptr<QmUtilsLib::Mutex> mMutex;
    std::shared_ptr<QmUtilsLib::Logger> mLogger;
};

} // namespace HtBaseLib
