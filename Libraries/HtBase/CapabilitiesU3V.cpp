#include <CapabilitiesU3V.h>

#include "Libraries/HtBase/Capabilities/CapabilityRecord.h"
#include "Libraries/HtBase/Capabilities/CapabilityRegistry.h"
#include "Libraries/HtBase/Support/Diagnostics.h"
#include "Libraries/HtBase/Support/Results.h"

#include <BaseCommandLinkU3V.h>
#include <QmUtilsLib/Mutex.h>

#include <initializer_list>

namespace HtBaseLib
{

using QmUtilsLib::Logger;
using QmUtilsLib::Mutex;
using QmUtilsLib::Result;
using WdUtilsLib::U3V::U3VGUID;

namespace
{

constexpr const char* UNIT = "Libraries/HtBase/CapabilitiesU3V";
constexpr const char* INIT = "HtBaseLib::CapabilitiesU3V::Init";
constexpr const char* UPDATE_ABRM = "HtBaseLib::CapabilitiesU3V::UpdateABRM";
constexpr const char* UPDATE_SBRM = "HtBaseLib::CapabilitiesU3V::UpdateSBRM";

// Registers of the ABRM, which is at address 0.
constexpr uint64_t GENCP_VERSION = 0x0000;
constexpr uint64_t DEVICE_CAPABILITY = 0x01C4;
constexpr uint64_t MAX_DEVICE_RESPONSE_TIME = 0x01CC;
constexpr uint64_t MANIFEST_TABLE_ADDRESS = 0x01D0;
constexpr uint64_t SBRM_ADDRESS = 0x01D8;
constexpr uint64_t TIMESTAMP_INCREMENT = 0x01FC;

// Registers of the SBRM, as offsets from its address.
constexpr uint64_t U3V_VERSION = 0x00;
constexpr uint64_t U3VCP_CAPABILITY = 0x04;
constexpr uint64_t MAX_COMMAND_TRANSFER_LENGTH = 0x14;
constexpr uint64_t MAX_ACK_TRANSFER_LENGTH = 0x18;
constexpr uint64_t STREAM_CHANNEL_COUNT = 0x1C;
constexpr uint64_t SIRM_ADDRESS = 0x20;
constexpr uint64_t SIRM_LENGTH = 0x28;
constexpr uint64_t EIRM_ADDRESS = 0x2C;
constexpr uint64_t EIRM_LENGTH = 0x34;
constexpr uint64_t IIDC2_ADDRESS = 0x38;

// A bit of a capability register, and the line that Init logs.
struct Capability
{
    uint64_t mMask;
    const char* mFormat;
};

// Bits of Device Capability.
constexpr Capability USER_NAME = { 0x001, "User Name Available: %s" };
constexpr Capability ACCESS_PRIVILEGE = { 0x002, "Access Privilege Available: %s" };
constexpr Capability MESSAGE_CHANNEL = { 0x004, "Message Channel Supported: %s" };
constexpr Capability TIMESTAMP = { 0x008, "Timestamp Supported: %s" };
constexpr uint64_t STRING_ENCODING_MASK = 0x0F0;
constexpr unsigned int STRING_ENCODING_SHIFT = 4;
constexpr Capability FAMILY_NAME = { 0x100, "Family Name Available: %s" };
constexpr Capability SBRM = { 0x200, "SBRM Supported: %s" };
// KEEP: "Endianess" is spelt like that.
constexpr Capability ENDIANESS_REGISTERS = { 0x400, "Endianess Registers Supported: %s" };
constexpr Capability WRITTEN_LENGTH_FIELD = { 0x800, "Written Length Field Supported: %s" };

// Bits of U3VCP Capability Register.
constexpr Capability SIRM = { 0x1, "SIRM Available: %s" };
constexpr Capability EIRM = { 0x2, "EIRM Available: %s" };
constexpr Capability IIDC2 = { 0x4, "IIDC2 Available: %s" };

// KEEP: The tick frequency is 1000000000, whatever the device says, also before `Init`.
// Timestamps count nanoseconds.
constexpr unsigned long long TIMESTAMP_TICK_FREQUENCY = 1000000000;

// KEEP: Flags are logged as "True" and "False", with capitals, unlike those of the GigE Vision
// record.
const char* GetText( bool aValue )
{
    return aValue ? "True" : "False";
}

void LogBits( const Logger& aLogger, const char* aFunction, uint64_t aRegister,
              std::initializer_list<Capability> aCapabilities )
{
    for ( const Capability& lCapability : aCapabilities )
    {
        HTBASE_LOG( &aLogger, Logger::DETAIL, UNIT, aFunction, lCapability.mFormat,
                    GetText( HasBit( aRegister, lCapability.mMask ) ) );
    }
}

const char* GetText( StringEncoding aEncoding )
{
    switch ( aEncoding )
    {
    case StringEncoding::ASCII:
        return "ASCII";
    case StringEncoding::UTF8:
        return "UTF8";
    case StringEncoding::UTF16:
        return "UTF16";
    case StringEncoding::UNKNOWN:
        break;
    }
    return "Unknown";
}

int GetMajor( uint32_t aVersion )
{
    return static_cast<int>( aVersion >> 16 );
}

int GetMinor( uint32_t aVersion )
{
    return static_cast<int>( aVersion & 0xFFFF );
}

// Reads one register.
// KEEP: Fields are the bytes that the link stores, without a change of their order.
template <typename Register>
Result ReadInto( Register& aField, BaseCommandLinkU3V* aLink, uint64_t aAddress )
{
    return aLink->ReadMemory( &aField, static_cast<long long>( aAddress ), sizeof( aField ) );
}

using Registry = CapabilityRegistry<U3VGUID, CapabilitiesU3V>;

} // namespace

// KEEP: `GetCapabilities` and the constructor take a pointer that nothing reads.
CapabilitiesU3V::CapabilitiesU3V( const U3VGUID& aGUID, unsigned char* /*aUnused*/ )
    : mMutex( std::make_shared<Mutex>() )
    , mLogger( std::make_shared<Logger>( LOGGER_NAME, LOGGER_CONFIGURATION ) )
{
    mValues.mGUID = aGUID;
}

CapabilitiesU3V::CapabilitiesU3V( const CapabilitiesU3V& aOther )
{
    *this = aOther;
}

// KEEP: A copy shares the mutex and the logger with its source and has an initialised flag of
// its own.
CapabilitiesU3V& CapabilitiesU3V::operator=( const CapabilitiesU3V& aOther )
{
    const bool lIsInitialized = IsPublished( aOther.mInitialized ); // before what it publishes
    mValues = aOther.mValues;
    Publish( mInitialized, lIsInitialized );
    mMutex = aOther.mMutex;
    mLogger = aOther.mLogger;
    return *this;
}

CapabilitiesU3V::~CapabilitiesU3V()
{
    // The mutex is destroyed before the logger.
    mMutex.reset();
    mLogger.reset();
}

CapabilitiesU3V* CapabilitiesU3V::GetCapabilities( const U3VGUID& aGUID, unsigned char* aUnused )
{
    return OrNull( [&aGUID, aUnused]
                   { return Registry::GetInstance().Get( aGUID, aGUID, aUnused ); } );
}

void CapabilitiesU3V::Destroy()
{
    Registry::GetInstance().Destroy();
}

Result CapabilitiesU3V::Init( BaseCommandLinkU3V* aLink )
{
    // KEEP: "Reading device properties" is logged before the lock is taken, also when there is
    // nothing left to read.
    HTBASE_LOG( mLogger, Logger::DETAIL, UNIT, INIT, "Reading device properties (%s)",
                mValues.mGUID.Get() );
    return FillOnce( mInitialized, mIsFilling, *mMutex,
                     [this, aLink]
                     {
                         Result lResult = UpdateABRM( aLink );
                         return lResult.IsOK() ? UpdateSBRM( aLink ) : lResult;
                     } );
}

Result CapabilitiesU3V::UpdateABRM( BaseCommandLinkU3V* aLink )
{
    HTBASE_LOG( mLogger, Logger::DETAIL, UNIT, UPDATE_ABRM, "Reading device ABRM properties (%s)",
                mValues.mGUID.Get() );

    Result lResult = ReadInto( mValues.mGenCPVersion, aLink, GENCP_VERSION );
    if ( !lResult.IsOK() )
    {
        return lResult;
    }
    HTBASE_LOG( mLogger, Logger::DETAIL, UNIT, UPDATE_ABRM, "GenCP Version: %i.%i",
                GetMajor( mValues.mGenCPVersion ), GetMinor( mValues.mGenCPVersion ) );

    lResult = ReadDeviceCapability( aLink );
    if ( !lResult.IsOK() )
    {
        return lResult;
    }
    lResult = ReadInto( mValues.mMaxDeviceResponseTime, aLink, MAX_DEVICE_RESPONSE_TIME );
    if ( !lResult.IsOK() )
    {
        return lResult;
    }
    // KEEP: "reponse" is spelt like that.
    HTBASE_LOG( mLogger, Logger::DETAIL, UNIT, UPDATE_ABRM, "Max device reponse time: %d",
                ToLogged( mValues.mMaxDeviceResponseTime ) );

    lResult = ReadInto( mValues.mManifestTableAddress, aLink, MANIFEST_TABLE_ADDRESS );
    if ( !lResult.IsOK() )
    {
        return lResult;
    }
    HTBASE_LOG( mLogger, Logger::DETAIL, UNIT, UPDATE_ABRM, "Manifest table address: 0x%016llX",
                GetManifestTableAddress() );

    lResult = ReadInto( mValues.mSBRMAddress, aLink, SBRM_ADDRESS );
    if ( !lResult.IsOK() )
    {
        return lResult;
    }
    HTBASE_LOG( mLogger, Logger::DETAIL, UNIT, UPDATE_ABRM, "SBRM address: 0x%016llX",
                GetSBRMAddress() );
    return ReadTimestampIncrement( aLink );
}

Result CapabilitiesU3V::ReadDeviceCapability( BaseCommandLinkU3V* aLink )
{
    Result lResult = ReadInto( mValues.mDeviceCapability, aLink, DEVICE_CAPABILITY );
    if ( !lResult.IsOK() )
    {
        return lResult;
    }
    LogBits( *mLogger, UPDATE_ABRM, mValues.mDeviceCapability,
             { USER_NAME, ACCESS_PRIVILEGE, MESSAGE_CHANNEL, TIMESTAMP } );
    HTBASE_LOG( mLogger, Logger::DETAIL, UNIT, UPDATE_ABRM, "String Encoding: %s",
                GetText( GetStringEncoding() ) );
    LogBits( *mLogger, UPDATE_ABRM, mValues.mDeviceCapability,
             { FAMILY_NAME, SBRM, ENDIANESS_REGISTERS, WRITTEN_LENGTH_FIELD } );
    return lResult;
}

// KEEP: Only the timestamp increment is cleared before it is read. Every other field keeps its
// old value when it is not, or cannot be, read again.
Result CapabilitiesU3V::ReadTimestampIncrement( BaseCommandLinkU3V* aLink )
{
    mValues.mTimestampIncrement = 0;
    if ( IsTimestampSupported() )
    {
        Result lResult = ReadInto( mValues.mTimestampIncrement, aLink, TIMESTAMP_INCREMENT );
        if ( !lResult.IsOK() )
        {
            return lResult;
        }
    }
    HTBASE_LOG( mLogger, Logger::DETAIL, UNIT, UPDATE_ABRM, "Timestamp increment: %lld",
                static_cast<long long>( mValues.mTimestampIncrement ) );
    return Result::OK;
}

// KEEP: The SBRM is always read, whatever `IsSBRMSupported` says. Every USB3 Vision device has one.
Result CapabilitiesU3V::UpdateSBRM( BaseCommandLinkU3V* aLink )
{
    HTBASE_LOG( mLogger, Logger::DETAIL, UNIT, UPDATE_SBRM, "Reading device SBRM properties (%s)",
                mValues.mGUID.Get() );

    Result lResult = ReadInto( mValues.mU3VVersion, aLink, mValues.mSBRMAddress + U3V_VERSION );
    if ( !lResult.IsOK() )
    {
        return lResult;
    }
    HTBASE_LOG( mLogger, Logger::DETAIL, UNIT, UPDATE_SBRM, "U3V Version: %i.%i",
                GetMajor( mValues.mU3VVersion ), GetMinor( mValues.mU3VVersion ) );

    lResult = ReadInto( mValues.mU3VCPCapability, aLink, mValues.mSBRMAddress + U3VCP_CAPABILITY );
    if ( !lResult.IsOK() )
    {
        return lResult;
    }
    LogBits( *mLogger, UPDATE_SBRM, mValues.mU3VCPCapability, { SIRM, EIRM, IIDC2 } );

    lResult = ReadTransferLengths( aLink );
    if ( !lResult.IsOK() )
    {
        return lResult;
    }
    lResult = ReadSIRM( aLink );
    if ( !lResult.IsOK() )
    {
        return lResult;
    }
    lResult = ReadEIRM( aLink );
    return lResult.IsOK() ? ReadIIDC2( aLink ) : lResult;
}

Result CapabilitiesU3V::ReadTransferLengths( BaseCommandLinkU3V* aLink )
{
    Result lResult = ReadInto( mValues.mMaxCommandTransferLength, aLink,
                               mValues.mSBRMAddress + MAX_COMMAND_TRANSFER_LENGTH );
    if ( !lResult.IsOK() )
    {
        return lResult;
    }
    HTBASE_LOG( mLogger, Logger::DETAIL, UNIT, UPDATE_SBRM, "Max command transfer length: %d",
                ToLogged( mValues.mMaxCommandTransferLength ) );

    lResult = ReadInto( mValues.mMaxAckTransferLength, aLink,
                        mValues.mSBRMAddress + MAX_ACK_TRANSFER_LENGTH );
    if ( !lResult.IsOK() )
    {
        return lResult;
    }
    HTBASE_LOG( mLogger, Logger::DETAIL, UNIT, UPDATE_SBRM, "Max command acknowledge length: %d",
                ToLogged( mValues.mMaxAckTransferLength ) );
    return lResult;
}

// KEEP: The SIRM is read when there is a stream channel. Its own bit has no effect on that.
Result CapabilitiesU3V::ReadSIRM( BaseCommandLinkU3V* aLink )
{
    Result lResult =
        ReadInto( mValues.mStreamChannelCount, aLink, mValues.mSBRMAddress + STREAM_CHANNEL_COUNT );
    if ( !lResult.IsOK() )
    {
        return lResult;
    }
    HTBASE_LOG( mLogger, Logger::DETAIL, UNIT, UPDATE_SBRM, "Stream channel count: %d",
                ToLogged( mValues.mStreamChannelCount ) );
    if ( mValues.mStreamChannelCount == 0 )
    {
        return lResult;
    }
    lResult = ReadInto( mValues.mSIRMAddress, aLink, mValues.mSBRMAddress + SIRM_ADDRESS );
    if ( !lResult.IsOK() )
    {
        return lResult;
    }
    HTBASE_LOG( mLogger, Logger::DETAIL, UNIT, UPDATE_SBRM, "SIRM address: 0x%016llX",
                GetSIRMAddress() );

    lResult = ReadInto( mValues.mSIRMLength, aLink, mValues.mSBRMAddress + SIRM_LENGTH );
    if ( !lResult.IsOK() )
    {
        return lResult;
    }
    HTBASE_LOG( mLogger, Logger::DETAIL, UNIT, UPDATE_SBRM, "SIRM length: %d",
                ToLogged( mValues.mSIRMLength ) );
    return lResult;
}

// KEEP: The EIRM is read when there is a message channel. Its own bit has no effect on that, unlike
// the bit of IIDC2.
Result CapabilitiesU3V::ReadEIRM( BaseCommandLinkU3V* aLink )
{
    if ( !IsMessageChannelSupported() )
    {
        return Result::OK;
    }
    Result lResult = ReadInto( mValues.mEIRMAddress, aLink, mValues.mSBRMAddress + EIRM_ADDRESS );
    if ( !lResult.IsOK() )
    {
        return lResult;
    }
    HTBASE_LOG( mLogger, Logger::DETAIL, UNIT, UPDATE_SBRM, "EIRM address: 0x%016llX",
                GetEIRMAddress() );

    lResult = ReadInto( mValues.mEIRMLength, aLink, mValues.mSBRMAddress + EIRM_LENGTH );
    if ( !lResult.IsOK() )
    {
        return lResult;
    }
    HTBASE_LOG( mLogger, Logger::DETAIL, UNIT, UPDATE_SBRM, "EIRM length: %d",
                ToLogged( mValues.mEIRMLength ) );
    return lResult;
}

Result CapabilitiesU3V::ReadIIDC2( BaseCommandLinkU3V* aLink )
{
    if ( !IsIIDC2Available() )
    {
        return Result::OK;
    }
    Result lResult = ReadInto( mValues.mIIDC2Address, aLink, mValues.mSBRMAddress + IIDC2_ADDRESS );
    if ( !lResult.IsOK() )
    {
        return lResult;
    }
    HTBASE_LOG( mLogger, Logger::DETAIL, UNIT, UPDATE_SBRM, "IIDC2 address: 0x%016llX",
                GetIIDC2Address() );
    return lResult;
}

// KEEP: `IsInitialized` is the one query that is not const.
bool CapabilitiesU3V::IsInitialized()
{
    return IsPublished( mInitialized );
}

unsigned int CapabilitiesU3V::GetGenCPVersion() const
{
    return mValues.mGenCPVersion;
}

unsigned int CapabilitiesU3V::GetU3VVersion() const
{
    return mValues.mU3VVersion;
}

unsigned int CapabilitiesU3V::GetMaxDeviceResponseTime() const
{
    return mValues.mMaxDeviceResponseTime;
}

unsigned long long CapabilitiesU3V::GetManifestTableAddress() const
{
    return mValues.mManifestTableAddress;
}

unsigned long long CapabilitiesU3V::GetSBRMAddress() const
{
    return mValues.mSBRMAddress;
}

unsigned long long CapabilitiesU3V::GetTimestampIncrement() const
{
    return mValues.mTimestampIncrement;
}

unsigned long long CapabilitiesU3V::GetTimestampTickFrequency() const
{
    return TIMESTAMP_TICK_FREQUENCY;
}

unsigned int CapabilitiesU3V::GetMaxCommandTransferLength() const
{
    return mValues.mMaxCommandTransferLength;
}

unsigned int CapabilitiesU3V::GetMaxAckTransferLength() const
{
    return mValues.mMaxAckTransferLength;
}

unsigned int CapabilitiesU3V::GetStreamChannelCount() const
{
    return mValues.mStreamChannelCount;
}

unsigned long long CapabilitiesU3V::GetSIRMAddress() const
{
    return mValues.mSIRMAddress;
}

unsigned int CapabilitiesU3V::GetSIRMLength() const
{
    return mValues.mSIRMLength;
}

unsigned long long CapabilitiesU3V::GetEIRMAddress() const
{
    return mValues.mEIRMAddress;
}

unsigned int CapabilitiesU3V::GetEIRMLength() const
{
    return mValues.mEIRMLength;
}

unsigned long long CapabilitiesU3V::GetIIDC2Address() const
{
    return mValues.mIIDC2Address;
}

bool CapabilitiesU3V::IsUserNameAvailable() const
{
    return HasBit( mValues.mDeviceCapability, USER_NAME.mMask );
}

bool CapabilitiesU3V::IsAccessPrivilegeAvailable() const
{
    return HasBit( mValues.mDeviceCapability, ACCESS_PRIVILEGE.mMask );
}

bool CapabilitiesU3V::IsMessageChannelSupported() const
{
    return HasBit( mValues.mDeviceCapability, MESSAGE_CHANNEL.mMask );
}

bool CapabilitiesU3V::IsTimestampSupported() const
{
    return HasBit( mValues.mDeviceCapability, TIMESTAMP.mMask );
}

StringEncoding CapabilitiesU3V::GetStringEncoding() const
{
    const auto lEncoding = static_cast<StringEncoding>(
        ( mValues.mDeviceCapability & STRING_ENCODING_MASK ) >> STRING_ENCODING_SHIFT );
    return lEncoding <= StringEncoding::UTF16 ? lEncoding : StringEncoding::UNKNOWN;
}

bool CapabilitiesU3V::IsFamilyNameAvailable() const
{
    return HasBit( mValues.mDeviceCapability, FAMILY_NAME.mMask );
}

bool CapabilitiesU3V::IsSBRMSupported() const
{
    return HasBit( mValues.mDeviceCapability, SBRM.mMask );
}

bool CapabilitiesU3V::IsEndianessRegistersSupported() const
{
    return HasBit( mValues.mDeviceCapability, ENDIANESS_REGISTERS.mMask );
}

bool CapabilitiesU3V::IsWrittenLengthFieldSupported() const
{
    return HasBit( mValues.mDeviceCapability, WRITTEN_LENGTH_FIELD.mMask );
}

bool CapabilitiesU3V::IsSIRMAvailable() const
{
    return HasBit( mValues.mU3VCPCapability, SIRM.mMask );
}

bool CapabilitiesU3V::IsEIRMAvailable() const
{
    return HasBit( mValues.mU3VCPCapability, EIRM.mMask );
}

bool CapabilitiesU3V::IsIIDC2Available() const
{
    return HasBit( mValues.mU3VCPCapability, IIDC2.mMask );
}

} // namespace HtBaseLib
