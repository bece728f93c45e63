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

/// StringEncoding is the encoding of the texts in a device's bootstrap registers.
enum class StringEncoding : uint32_t
{
    ASCII = 0,
    UTF8 = 1,
    UTF16 = 2,
    UNKNOWN = 0xFFFFFFFF
};

/// CapabilitiesU3V is the record of what one USB3 Vision device can do. Init reads the device's two
/// bootstrap register maps once, that of GenCP (ABRM) and that of USB3 Vision (SBRM); the queries
/// then answer without traffic.
///
/// GetCapabilities gives the record that the whole process shares, so that a device is read once.
///
/// In a new record every number is 0 and every answer is false, except where a query says
/// otherwise. After a failed Init the record holds what this Init and earlier ones have read; do
/// not use it. After a successful Init the device is not read again. The values have the byte order
/// in which the device sends them: that is host order on a little-endian machine.
///
/// Threads: any thread may call Init at any time, on a link that no other thread uses; it takes the
/// record's mutex. The queries take no lock. Beside a running Init a thread may call IsInitialized
/// and GetTimestampTickFrequency. A thread that has seen IsInitialized return true, or its own Init
/// return OK, may call every query. No other operation may run while a record is assigned to or
/// destroyed.
///
/// A copy shares the mutex and the logger of its source, so that their Inits run one after the
/// other. The values, the initialised flag included, are its own.
class HTBASE_API CapabilitiesU3V
{
public:
    /// A record for the device with that identity. The constructor reads nothing and logs nothing.
    /// aUnused is ignored and may be null. The constructor throws `std::bad_alloc` where memory is
    /// missing.
    CapabilitiesU3V( const WdUtilsLib::U3V::U3VGUID& aGUID, unsigned char* aUnused );

    /// Copying and assigning need no memory. See the class.
    ///@{
    CapabilitiesU3V( const CapabilitiesU3V& aOther );
    CapabilitiesU3V& operator=( const CapabilitiesU3V& aOther );
    ///@}

    virtual ~CapabilitiesU3V();

    /// GetCapabilities returns the process's record of the device with that identity, and makes a
    /// new one if there is none. It is null only where memory is missing. All devices with an empty
    /// identity share one record. The record may not be initialised: call Init, which returns at
    /// once where it is. The library owns the record and keeps it until Destroy. aUnused is that of
    /// the constructor. Safe from any thread; it takes the process-wide mutex of these records,
    /// which is not held while a device is read.
    static CapabilitiesU3V* GetCapabilities( const WdUtilsLib::U3V::U3VGUID& aGUID,
                                             unsigned char* aUnused );

    /// Destroy deletes every record that GetCapabilities has returned. None of them may be in use,
    /// and the pointers are invalid afterwards. It runs by itself when the process ends or unloads
    /// the library. It takes the process-wide mutex of these records.
    static void Destroy();

    /// Init reads the device by 10 to 16 calls of aLink's ReadMemory, of 4 or 8 bytes each. Every
    /// read must succeed.
    ///
    /// Results:
    /// - `OK`: the record is initialised. Where it was before, nothing is read.
    /// - 0x001C: a callback of this record's own Init has called Init. Nothing changes.
    /// - `GENERIC_ERROR` with ENOMEM as OS code: memory is missing.
    /// - Otherwise the link's result of the read that failed. The next Init reads everything again.
    ///
    /// At 20000 it logs "Reading device properties" before it waits for the mutex, then every value
    /// that it reads.
    QmUtilsLib::Result Init( BaseCommandLinkU3V* aLink );

    /// IsInitialized tells whether an Init has succeeded. Safe beside a running Init.
    bool IsInitialized();

    unsigned int GetGenCPVersion() const; ///< GenCP Version: major in the upper 16 bits, then minor
    unsigned int GetU3VVersion() const;   ///< U3V Version: major in the upper 16 bits, then minor

    unsigned int GetMaxDeviceResponseTime() const;      ///< Maximum Device Response Time, ms
    unsigned long long GetManifestTableAddress() const; ///< Manifest Table Address
    unsigned long long GetSBRMAddress() const;          ///< SBRM Address

    /// Timestamp Increment, in nanoseconds. 0 where the device has no timestamps.
    unsigned long long GetTimestampIncrement() const;

    /// Ticks per second of timestamps: always 1000000000, since they count nanoseconds.
    unsigned long long GetTimestampTickFrequency() const;

    /// Maximum Command Transfer Length and Maximum Acknowledge Transfer Length, in bytes with
    /// headers.
    ///@{
    unsigned int GetMaxCommandTransferLength() const;
    unsigned int GetMaxAckTransferLength() const;
    ///@}

    unsigned int GetStreamChannelCount() const; ///< Number of Stream Channels

    /// The addresses of the register maps of streaming (SIRM), of events (EIRM) and of IIDC2, and
    /// the lengths in bytes. 0 where they were not read. Init reads those of the SIRM when there is
    /// a stream channel, and those of the EIRM when IsMessageChannelSupported is true, whatever
    /// IsSIRMAvailable and IsEIRMAvailable say. It reads that of IIDC2 when IsIIDC2Available is
    /// true.
    ///@{
    unsigned long long GetSIRMAddress() const;
    unsigned int GetSIRMLength() const;
    unsigned long long GetEIRMAddress() const;
    unsigned int GetEIRMLength() const;
    unsigned long long GetIIDC2Address() const;
    ///@}

    /// Device Capability. Bit 0 is the least significant.
    ///@{
    bool IsUserNameAvailable() const;           ///< bit 0: User Defined Name
    bool IsAccessPrivilegeAvailable() const;    ///< bit 1: Access Privilege
    bool IsMessageChannelSupported() const;     ///< bit 2: message channel
    bool IsTimestampSupported() const;          ///< bit 3: timestamps
    StringEncoding GetStringEncoding() const;   ///< bits 4 to 7
    bool IsFamilyNameAvailable() const;         ///< bit 8: Family Name
    bool IsSBRMSupported() const;               ///< bit 9: SBRM
    bool IsEndianessRegistersSupported() const; ///< bit 10: endianness registers
    bool IsWrittenLengthFieldSupported() const; ///< bit 11: written length in acknowledges
    ///@}

    /// U3VCP Capability Register. Bit 0 is the least significant.
    ///@{
    bool IsSIRMAvailable() const;  ///< bit 0: streaming
    bool IsEIRMAvailable() const;  ///< bit 1: events
    bool IsIIDC2Available() const; ///< bit 2: IIDC2
    ///@}

protected:
    /// The two halves of Init, without its lock. UpdateSBRM uses what UpdateABRM has read.
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
