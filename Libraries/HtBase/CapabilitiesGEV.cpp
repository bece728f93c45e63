#include <CapabilitiesGEV.h>

#include "Libraries/HtBase/Capabilities/CapabilityRecord.h"
#include "Libraries/HtBase/Capabilities/CapabilityRegistry.h"
#include "Libraries/HtBase/Support/Diagnostics.h"
#include "Libraries/HtBase/Support/Results.h"

#include <BaseCommandLinkGEV.h>
#include <QmUtilsLib/Mutex.h>
#include <SimpleCommandLinkGEV.h>
#include <WdUtilsLib/Network/DeviceIdentity.h>
#include <WdUtilsLib/Network/SocketUDP.h>

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <string>

namespace HtBaseLib
{

using QmUtilsLib::Logger;
using QmUtilsLib::Mutex;
using QmUtilsLib::Result;
using WdUtilsLib::Network::DeviceIdentity;
using WdUtilsLib::Network::EthernetAddress;
using WdUtilsLib::Network::SocketUDP;

namespace
{

constexpr const char* UNIT = "Libraries/HtBase/CapabilitiesGEV";
constexpr const char* INIT = "HtBaseLib::CapabilitiesGEV::Init";
constexpr const char* READ_SCSPS = "HtBaseLib::CapabilitiesGEV::ReadSCSPs";

// Bootstrap registers.
constexpr long long VERSION = 0x0000;
constexpr long long DEVICE_MODE = 0x0004;
constexpr long long DEVICE_VERSION = 0x0088;
constexpr long long MANUFACTURER_INFO = 0x00A8;
constexpr long long MESSAGE_CHANNEL_COUNT = 0x0900;
constexpr long long STREAM_CHANNEL_COUNT = 0x0904;
constexpr long long GVSP_CAPABILITY = 0x092C;
constexpr long long MESSAGE_CHANNEL_CAPABILITY = 0x0930;
constexpr long long GVCP_CAPABILITY = 0x0934;
constexpr long long TICK_FREQUENCY_HIGH = 0x093C;
constexpr long long TICK_FREQUENCY_LOW = 0x0940;
constexpr long long MCSP = 0x0B1C;
constexpr long long SCSP = 0x0D1C;
constexpr long long STREAM_CHANNEL_DISTANCE = 0x40;

constexpr unsigned int DEVICE_CLASS_MASK = 0x70000000;
constexpr unsigned int DEVICE_CLASS_SHIFT = 28;

// Versions of the standard, as the register Version has them.
constexpr unsigned int ANY_VERSION = 0x00000000;
constexpr unsigned int V1_1 = 0x00010001;
constexpr unsigned int V1_2 = 0x00010002;
constexpr unsigned int V2_0 = 0x00020000;

// A bit of GVCP Capability, the first version of the standard in which it counts, and the line that
// Init logs.
struct Capability
{
    unsigned int mMask;
    unsigned int mSince;
    const char* mFormat;
};

constexpr Capability CONCATENATION = { 0x00000001, ANY_VERSION, "Concatenation: %s" };
constexpr Capability WRITE_MEM = { 0x00000002, ANY_VERSION, "Write memory: %s" };
constexpr Capability PACKET_RESEND = { 0x00000004, ANY_VERSION, "Resends: %s" };
constexpr Capability EVENT = { 0x00000008, ANY_VERSION, "Event: %s" };
constexpr Capability EVENT_DATA = { 0x00000010, ANY_VERSION, "Event data: %s" };
constexpr Capability PENDING = { 0x00000020, V1_1, "Pending acknowledge: %s" };
constexpr Capability ACTION = { 0x00000040, V1_1, "Action commands: %s" };
constexpr Capability SCHEDULED_ACTION = { 0x00020000, V2_0, "Scheduled action commands: %s" };
constexpr Capability V2_EXTENDED_STATUS_CODES = { 0x00040000, V2_0,
                                                  "V2 extended status codes: %s" };
constexpr Capability IEEE1588 = { 0x00080000, V2_0, "IEEE 1588 PTP: %s" };
constexpr Capability UNCONDITIONAL_ACTION = { 0x00100000, V2_0,
                                              "Unconditional action command: %s" };
constexpr Capability APPLICATION_SWITCH_OVER = { 0x00200000, V2_0, "Application Switch Over: %s" };
constexpr Capability V1_1_EXTENDED_CODES = { 0x00400000, V1_1, "v1.1 extended codes: %s" };
constexpr Capability CUSTOM_DISCOVERY_DELAY = { 0x00800000, V1_1, "Custom discovery delay: %s" };
constexpr Capability DISCOVERY_DELAY_REG = { 0x01000000, V1_1, "Discovery delay register: %s" };
constexpr Capability TEST_DATA = { 0x02000000, V1_1, "Standardized test data: %s" };
constexpr Capability MANIFEST_TABLE = { 0x04000000, V1_1, "Manifest table: %s" };
constexpr Capability CCP_OWNER_DISCOVERY = { 0x08000000, V1_1, "CCP owner discovery: %s" };
constexpr Capability LINK_SPEED_REGISTER = { 0x10000000, V1_1, "Link speed register: %s" };
constexpr Capability HEARTBEAT_DISABLE = { 0x20000000, V1_1, "Heartbeat disable: %s" };
constexpr Capability SERIAL_NUMBER = { 0x40000000, V1_1, "Serial number: %s" };
constexpr Capability USER_DEFINED_NAME = { 0x80000000, V1_1, "User defined name: %s" };

// In the order in which they are logged.
constexpr const Capability* CAPABILITIES[] = { &CONCATENATION,
                                               &WRITE_MEM,
                                               &PACKET_RESEND,
                                               &EVENT,
                                               &EVENT_DATA,
                                               &PENDING,
                                               &ACTION,
                                               &SCHEDULED_ACTION,
                                               &V2_EXTENDED_STATUS_CODES,
                                               &IEEE1588,
                                               &UNCONDITIONAL_ACTION,
                                               &APPLICATION_SWITCH_OVER,
                                               &V1_1_EXTENDED_CODES,
                                               &CUSTOM_DISCOVERY_DELAY,
                                               &DISCOVERY_DELAY_REG,
                                               &TEST_DATA,
                                               &MANIFEST_TABLE,
                                               &CCP_OWNER_DISCOVERY,
                                               &LINK_SPEED_REGISTER,
                                               &HEARTBEAT_DISABLE,
                                               &SERIAL_NUMBER,
                                               &USER_DEFINED_NAME };

constexpr unsigned int GetLoggedBits()
{
    unsigned int lBits = 0;
    for ( const Capability* const lCapability : CAPABILITIES )
    {
        lBits |= lCapability->mMask;
    }
    return lBits;
}
static_assert( GetLoggedBits() == 0xFFFE007F, "each bit that the standard defines is logged" );

// Bits of Message Channel Capability and of GVSP Capability.
constexpr unsigned int SOURCE_PORT = 0x80000000;
constexpr unsigned int LEGACY_BLOCK_ID = 0x40000000;

// The ports of the maker's device engines that do not publish them.
constexpr unsigned int FIXED_MCSP = 4;
constexpr unsigned int FIXED_SCSP = 20202;

// Bytes that one READMEM or WRITEMEM may carry.
constexpr unsigned int MEMORY_SIZE = 512;
constexpr unsigned int MEMORY_SIZE_CORVANE = 536;

// KEEP: The search in the device version runs 48 characters, on into the manufacturer
// information, when a version of 32 characters has no NUL.
// SAFE: The two texts that a record searches for brackets are in one array, so the search stays
// inside it.
constexpr int BRACKET_SEARCH_LIMIT = 48;

// Early designs have a second identification byte below this one.
constexpr int LATER_DESIGN = 0x50;

const char* GetText( bool aValue )
{
    return aValue ? "true" : "false";
}

// Values are those of a record.
template <typename Values>
bool HasVersion( unsigned int aVersion, const Values& aValues )
{
    const unsigned int lMajor = aValues.mVersionMajor;
    return ( lMajor << 16 | aValues.mVersionMinor ) >= aVersion;
}

template <typename Values>
bool IsSupported( const Capability& aCapability, const Values& aValues )
{
    return HasVersion( aCapability.mSince, aValues ) &&
           HasBit( aValues.mGvcpCapability, aCapability.mMask );
}

// Finds the last pair of brackets in a text that ends within aLimit characters: the text from its
// opening bracket on, or null.
// KEEP: The last brackets of a text count: "(a)(b)" gives "(b)", and "(a) (" gives nothing.
const char* FindBrackets( const char* aText, int aLimit )
{
    int lOpening = -1;
    int lClosing = -1;
    for ( int lPosition = 0; lPosition < aLimit; ++lPosition )
    {
        switch ( aText[lPosition] )
        {
        case '(':
            lOpening = lPosition;
            break;
        case ')':
            lClosing = lPosition;
            break;
        case '\0':
            return lOpening >= 0 && lClosing > lOpening ? aText + lOpening : nullptr;
        default:
            break;
        }
    }
    return nullptr;
}

using Registry = CapabilityRegistry<std::string, CapabilitiesGEV>;

} // namespace

CapabilitiesGEV::CapabilitiesGEV( EthernetAddress aAddress )
    : mMutex( std::make_shared<Mutex>() )
    , mLogger( std::make_shared<Logger>( LOGGER_NAME, LOGGER_CONFIGURATION ) )
{
    mValues.mIsCorvaneDevice = DeviceIdentity::IsCorvaneDevice( aAddress );
    mValues.mIsCorvaneTransmitter = DeviceIdentity::IsCorvaneTransmitter( aAddress );
    mValues.mAddress = aAddress;
}

CapabilitiesGEV::CapabilitiesGEV( const CapabilitiesGEV& aOther )
{
    *this = aOther;
}

// KEEP: A copy shares the mutex and the logger with its source and has an initialised flag of
// its own.
CapabilitiesGEV& CapabilitiesGEV::operator=( const CapabilitiesGEV& aOther )
{
    const bool lIsInitialized = IsPublished( aOther.mInitialized ); // before what it publishes
    mValues = aOther.mValues;
    Publish( mInitialized, lIsInitialized );
    mMutex = aOther.mMutex;
    mLogger = aOther.mLogger;
    return *this;
}

CapabilitiesGEV::~CapabilitiesGEV()
{
    // The mutex is destroyed before the logger.
    mMutex.reset();
    mLogger.reset();
}

CapabilitiesGEV* CapabilitiesGEV::GetCapabilities( EthernetAddress aAddress )
{
    return OrNull( [&aAddress]
                   { return Registry::GetInstance().Get( aAddress.GetString(), aAddress ); } );
}

void CapabilitiesGEV::Destroy()
{
    Registry::GetInstance().Destroy();
}

Result CapabilitiesGEV::Init( SocketUDP* aSocket )
{
    return Guarded(
        [this, aSocket]
        {
            SimpleCommandLinkGEV lLink( aSocket );
            return Init( &lLink );
        } );
}

Result CapabilitiesGEV::Init( BaseCommandLinkGEV* aLink )
{
    char lAddress[128] = {};
    mValues.mAddress.GetString( lAddress, sizeof( lAddress ) );
    // KEEP: "Reading device properties" is logged before the lock is taken, also when there is
    // nothing left to read.
    HTBASE_LOG( mLogger, Logger::DETAIL, UNIT, INIT, "Reading device properties (%s)", lAddress );
    return FillOnce( mInitialized, mIsFilling, *mMutex,
                     [this, aLink] { return ReadDevice( aLink ); } );
}

Result CapabilitiesGEV::ReadDevice( BaseCommandLinkGEV* aLink )
{
    Result lResult = ReadVersion( aLink );
    if ( !lResult.IsOK() )
    {
        return lResult;
    }
    lResult = ReadDeviceClass( aLink );
    if ( !lResult.IsOK() )
    {
        return lResult;
    }
    lResult = ReadGvcpCapability( aLink );
    if ( !lResult.IsOK() )
    {
        return lResult;
    }
    lResult = ReadChannelCounts( aLink );
    if ( !lResult.IsOK() )
    {
        return lResult;
    }
    ReadChannelCapabilities( aLink );
    lResult = ReadMCSP( aLink );
    if ( !lResult.IsOK() )
    {
        return lResult;
    }
    // KEEP: A device may refuse the source ports of its streams, but not the source port of its
    // messages that it has announced. A fixed port does not replace one that was refused.
    (void)ReadSCSPs( aLink );
    ReadTickFrequency( aLink );
    lResult = ReadTexts( aLink );
    if ( lResult.IsOK() )
    {
        ParseInfos();
    }
    return lResult;
}

// KEEP: The version keeps its old value when it cannot be read. Every other field is cleared
// before it is read.
Result CapabilitiesGEV::ReadVersion( BaseCommandLinkGEV* aLink )
{
    unsigned int lVersion = 0;
    Result lResult = aLink->ReadRegister( &lVersion, VERSION );
    if ( !lResult.IsOK() )
    {
        return lResult;
    }
    mValues.mVersionMajor = static_cast<unsigned short>( lVersion >> 16 );
    mValues.mVersionMinor = static_cast<unsigned short>( lVersion & 0xFFFF );
    HTBASE_LOG( mLogger, Logger::DETAIL, UNIT, INIT, "GEV Version: %i.%i",
                int{ mValues.mVersionMajor }, int{ mValues.mVersionMinor } );
    return lResult;
}

Result CapabilitiesGEV::ReadDeviceClass( BaseCommandLinkGEV* aLink )
{
    mValues.mDeviceClass = 0;
    unsigned int lMode = 0;
    Result lResult = aLink->ReadRegister( &lMode, DEVICE_MODE );
    if ( lResult.IsOK() )
    {
        mValues.mDeviceClass =
            static_cast<unsigned short>( ( lMode & DEVICE_CLASS_MASK ) >> DEVICE_CLASS_SHIFT );
    }
    return lResult;
}

Result CapabilitiesGEV::ReadGvcpCapability( BaseCommandLinkGEV* aLink )
{
    mValues.mGvcpCapability = 0;
    Result lResult = aLink->ReadRegister( &mValues.mGvcpCapability, GVCP_CAPABILITY );
    if ( !lResult.IsOK() )
    {
        return lResult;
    }
    for ( const Capability* const lCapability : CAPABILITIES )
    {
        HTBASE_LOG( mLogger, Logger::DETAIL, UNIT, INIT, lCapability->mFormat,
                    GetText( IsSupported( *lCapability, mValues ) ) );
    }
    return lResult;
}

Result CapabilitiesGEV::ReadChannelCounts( BaseCommandLinkGEV* aLink )
{
    mValues.mStreamingChannelCount = 0;
    Result lResult = aLink->ReadRegister( &mValues.mStreamingChannelCount, STREAM_CHANNEL_COUNT );
    if ( !lResult.IsOK() )
    {
        return lResult;
    }
    HTBASE_LOG( mLogger, Logger::DETAIL, UNIT, INIT, "Streaming channels: %i",
                ToLogged( mValues.mStreamingChannelCount ) );

    mValues.mMessagingChannelCount = 0;
    lResult = aLink->ReadRegister( &mValues.mMessagingChannelCount, MESSAGE_CHANNEL_COUNT );
    if ( !lResult.IsOK() )
    {
        return lResult;
    }
    HTBASE_LOG( mLogger, Logger::DETAIL, UNIT, INIT, "Messaging channels: %i",
                ToLogged( mValues.mMessagingChannelCount ) );
    return lResult;
}

void CapabilitiesGEV::ReadChannelCapabilities( BaseCommandLinkGEV* aLink )
{
    mValues.mMessageChannelCapability = 0;
    mValues.mStreamChannelCapability = 0;
    if ( !HasV1_1() )
    {
        return;
    }
    if ( mValues.mMessagingChannelCount != 0 &&
         !aLink->ReadRegister( &mValues.mMessageChannelCapability, MESSAGE_CHANNEL_CAPABILITY )
              .IsOK() )
    {
        HTBASE_LOG( mLogger, Logger::ANOMALY, UNIT, INIT,
                    "Could not read message channel capabilities" );
    }
    if ( mValues.mStreamingChannelCount != 0 &&
         !aLink->ReadRegister( &mValues.mStreamChannelCapability, GVSP_CAPABILITY ).IsOK() )
    {
        HTBASE_LOG( mLogger, Logger::ANOMALY, UNIT, INIT,
                    "Could not read stream channel capabilities" );
    }
}

Result CapabilitiesGEV::ReadMCSP( BaseCommandLinkGEV* aLink )
{
    mValues.mMessageChannelSourcePort = 0;
    if ( IsMCSPSupported() )
    {
        Result lResult = aLink->ReadRegister( &mValues.mMessageChannelSourcePort, MCSP );
        if ( lResult.IsOK() )
        {
            HTBASE_LOG( mLogger, Logger::DETAIL, UNIT, INIT, "MCSP read from device: %i",
                        ToLogged( mValues.mMessageChannelSourcePort ) );
        }
        return lResult;
    }
    if ( mValues.mIsCorvaneDevice )
    {
        mValues.mMessageChannelSourcePort = FIXED_MCSP;
        HTBASE_LOG( mLogger, Logger::DETAIL, UNIT, INIT, "MCSP for Corvane device: %i",
                    ToLogged( mValues.mMessageChannelSourcePort ) );
    }
    return Result::OK;
}

Result CapabilitiesGEV::ReadSCSPs( BaseCommandLinkGEV* aLink )
{
    // KEEP: `ReadSCSPs` first logs the port from before the call.
    HTBASE_LOG( mLogger, Logger::DETAIL, UNIT, READ_SCSPS, "Streaming channel source port: %i",
                ToLogged( mValues.mStreamChannelSourcePorts[0] ) );
    std::fill( std::begin( mValues.mStreamChannelSourcePorts ),
               std::end( mValues.mStreamChannelSourcePorts ), 0U );

    const unsigned int lCount = GetBoundedChannelCount();
    if ( IsSCSPSupported() )
    {
        for ( unsigned int lChannel = 0; lChannel < lCount; ++lChannel )
        {
            unsigned int& lPort = mValues.mStreamChannelSourcePorts[lChannel];
            Result lResult =
                aLink->ReadRegister( &lPort, SCSP + STREAM_CHANNEL_DISTANCE * lChannel );
            if ( !lResult.IsOK() )
            {
                return lResult;
            }
            HTBASE_LOG( mLogger, Logger::DETAIL, UNIT, READ_SCSPS, "SCSP(%i) read on device: %i",
                        ToLogged( lChannel ), ToLogged( lPort ) );
        }
        return Result::OK;
    }
    if ( mValues.mIsCorvaneDevice )
    {
        for ( unsigned int lChannel = 0; lChannel < lCount; ++lChannel )
        {
            mValues.mStreamChannelSourcePorts[lChannel] = FIXED_SCSP + lChannel;
            HTBASE_LOG( mLogger, Logger::DETAIL, UNIT, READ_SCSPS,
                        "SCSP(%i) for Corvane device: %i", ToLogged( lChannel ),
                        ToLogged( mValues.mStreamChannelSourcePorts[lChannel] ) );
        }
    }
    return Result::OK;
}

// Reads the low word first. The frequency is 0 unless both words can be read.
void CapabilitiesGEV::ReadTickFrequency( BaseCommandLinkGEV* aLink )
{
    mValues.mTimestampTickFrequency = 0;
    unsigned int lLow = 0;
    unsigned int lHigh = 0;
    if ( aLink->ReadRegister( &lLow, TICK_FREQUENCY_LOW ).IsOK() &&
         aLink->ReadRegister( &lHigh, TICK_FREQUENCY_HIGH ).IsOK() )
    {
        mValues.mTimestampTickFrequency = static_cast<unsigned long long>( lHigh ) << 32 | lLow;
    }
    HTBASE_LOG( mLogger, Logger::DETAIL, UNIT, INIT, "Timestamp tick frequency: %016llX",
                mValues.mTimestampTickFrequency );
}

Result CapabilitiesGEV::ReadTexts( BaseCommandLinkGEV* aLink )
{
    char* const lDeviceVersion = mValues.mTexts;
    std::fill_n( lDeviceVersion, DEVICE_VERSION_SIZE, '\0' );
    Result lResult = aLink->ReadMemory( lDeviceVersion, DEVICE_VERSION, DEVICE_VERSION_SIZE );
    if ( !lResult.IsOK() )
    {
        return lResult;
    }
    char* const lManufacturerInfo = mValues.mTexts + DEVICE_VERSION_SIZE;
    std::fill_n( lManufacturerInfo, MANUFACTURER_INFO_SIZE, '\0' );
    return aLink->ReadMemory( lManufacturerInfo, MANUFACTURER_INFO, MANUFACTURER_INFO_SIZE );
}

// SAFE: At most 512 source ports of stream channels are read or kept, whatever count the device
// reports. The port of a channel from 512 on is 0.
unsigned int CapabilitiesGEV::GetBoundedChannelCount() const
{
    return std::min( mValues.mStreamingChannelCount, STREAM_CHANNEL_MAX );
}

void CapabilitiesGEV::ParseInfos()
{
    mValues.mIsEndOfBlockResendRequestSupported = true;
    if ( !mValues.mIsCorvaneDevice )
    {
        return;
    }
    const char* const lCode =
        FindBrackets( mValues.mTexts + DEVICE_VERSION_SIZE, MANUFACTURER_INFO_SIZE );
    unsigned int lBytes[4] = {};
    if ( lCode == nullptr || std::sscanf( lCode, "(%02x%02x%02x%02x)", &lBytes[0], &lBytes[1],
                                          &lBytes[2], &lBytes[3] ) < 4 )
    {
        return;
    }
    // KEEP: A leading zero of a version is read as octal: "(02.08" is 2.0, and "(08.00" is not a
    // version.
    const char* const lVersion = FindBrackets( mValues.mTexts, BRACKET_SEARCH_LIMIT );
    int lMajor = -1;
    int lMinor = -1;
    if ( lVersion == nullptr || std::sscanf( lVersion, "(%02i.%02i", &lMajor, &lMinor ) < 2 )
    {
        return;
    }
    const bool lIsLaterDesign = static_cast<int>( lBytes[1] ) >= LATER_DESIGN;
    const bool lIsLaterFirmware = lMajor > 2 || ( lMajor == 2 && lMinor >= 3 );
    mValues.mIsEndOfBlockResendRequestSupported = lIsLaterDesign || lIsLaterFirmware;
}

// KEEP: `IsInitialized` is the one query that is not const.
bool CapabilitiesGEV::IsInitialized()
{
    return IsPublished( mInitialized );
}

unsigned int CapabilitiesGEV::GetVersionMajor() const
{
    return mValues.mVersionMajor;
}

unsigned int CapabilitiesGEV::GetVersionMinor() const
{
    return mValues.mVersionMinor;
}

unsigned short CapabilitiesGEV::GetDeviceClass() const
{
    return mValues.mDeviceClass;
}

unsigned int CapabilitiesGEV::GetStreamingChannelCount() const
{
    return mValues.mStreamingChannelCount;
}

unsigned int CapabilitiesGEV::GetMessagingChannelCount() const
{
    return mValues.mMessagingChannelCount;
}

unsigned long long CapabilitiesGEV::GetTimestampTickFrequency() const
{
    return mValues.mTimestampTickFrequency;
}

bool CapabilitiesGEV::IsCorvaneDevice() const
{
    return mValues.mIsCorvaneDevice;
}

bool CapabilitiesGEV::IsCorvaneTransmitter() const
{
    return mValues.mIsCorvaneTransmitter;
}

unsigned int CapabilitiesGEV::GetMaxReadMemSize() const
{
    return mValues.mIsCorvaneDevice ? MEMORY_SIZE_CORVANE : MEMORY_SIZE;
}

unsigned int CapabilitiesGEV::GetMaxWriteMemSize() const
{
    return mValues.mIsCorvaneDevice ? MEMORY_SIZE_CORVANE : MEMORY_SIZE;
}

// KEEP: The fixed ports of the maker's devices apply until an `Init` has succeeded, also after a
// failed one. After a successful one a channel that the device does not count has port 0.
unsigned int CapabilitiesGEV::GetStreamChannelSourcePort( unsigned short aChannel ) const
{
    if ( !IsPublished( mInitialized ) && mValues.mIsCorvaneDevice )
    {
        return FIXED_SCSP + aChannel;
    }
    return aChannel < STREAM_CHANNEL_MAX ? mValues.mStreamChannelSourcePorts[aChannel] : 0;
}

unsigned int CapabilitiesGEV::GetMessageChannelSourcePort() const
{
    if ( !IsPublished( mInitialized ) && mValues.mIsCorvaneDevice )
    {
        return FIXED_MCSP;
    }
    return mValues.mMessageChannelSourcePort;
}

bool CapabilitiesGEV::IsConcatenationSupported() const
{
    return IsSupported( CONCATENATION, mValues );
}

bool CapabilitiesGEV::IsWriteMemSupported() const
{
    return IsSupported( WRITE_MEM, mValues );
}

bool CapabilitiesGEV::IsPacketResendSupported() const
{
    return IsSupported( PACKET_RESEND, mValues );
}

bool CapabilitiesGEV::IsEventSupported() const
{
    return IsSupported( EVENT, mValues );
}

bool CapabilitiesGEV::IsEventDataSupported() const
{
    return IsSupported( EVENT_DATA, mValues );
}

bool CapabilitiesGEV::IsPendingSupported() const
{
    return IsSupported( PENDING, mValues );
}

bool CapabilitiesGEV::IsActionSupported() const
{
    return IsSupported( ACTION, mValues );
}

bool CapabilitiesGEV::IsV1_1ExtendedCodesSupported() const
{
    return IsSupported( V1_1_EXTENDED_CODES, mValues );
}

bool CapabilitiesGEV::IsCustomDiscoveryDelaySupported() const
{
    return IsSupported( CUSTOM_DISCOVERY_DELAY, mValues );
}

bool CapabilitiesGEV::IsDiscoveryDelayRegSupported() const
{
    return IsSupported( DISCOVERY_DELAY_REG, mValues );
}

bool CapabilitiesGEV::IsTestDataSupported() const
{
    return IsSupported( TEST_DATA, mValues );
}

bool CapabilitiesGEV::IsManifestTableSupported() const
{
    return IsSupported( MANIFEST_TABLE, mValues );
}

bool CapabilitiesGEV::IsCCPOwnerDiscoverySupported() const
{
    return IsSupported( CCP_OWNER_DISCOVERY, mValues );
}

bool CapabilitiesGEV::IsLinkSpeedRegisterSupported() const
{
    return IsSupported( LINK_SPEED_REGISTER, mValues );
}

bool CapabilitiesGEV::IsHeartbeatDisableSupported() const
{
    return IsSupported( HEARTBEAT_DISABLE, mValues );
}

bool CapabilitiesGEV::IsSerialNumberSupported() const
{
    return IsSupported( SERIAL_NUMBER, mValues );
}

bool CapabilitiesGEV::IsUserDefinedNameSupported() const
{
    return IsSupported( USER_DEFINED_NAME, mValues );
}

bool CapabilitiesGEV::IsScheduledActionSupported() const
{
    return IsSupported( SCHEDULED_ACTION, mValues );
}

bool CapabilitiesGEV::IsV2ExtendedStatusCodesSupported() const
{
    return IsSupported( V2_EXTENDED_STATUS_CODES, mValues );
}

bool CapabilitiesGEV::IsIEEE1588Supported() const
{
    return IsSupported( IEEE1588, mValues );
}

bool CapabilitiesGEV::IsUnconditionalActionSupported() const
{
    return IsSupported( UNCONDITIONAL_ACTION, mValues );
}

bool CapabilitiesGEV::IsApplicationSwitchOverSupported() const
{
    return IsSupported( APPLICATION_SWITCH_OVER, mValues );
}

// KEEP: `IsLegacy16BitsBlockIdSupported` is true for every device of major version 1. Every other
// bit counts only from its version on.
bool CapabilitiesGEV::IsLegacy16BitsBlockIdSupported() const
{
    return mValues.mVersionMajor == 1 ||
           HasBit( mValues.mStreamChannelCapability, LEGACY_BLOCK_ID );
}

bool CapabilitiesGEV::IsEndOfBlockResendRequestSupported() const
{
    return mValues.mIsEndOfBlockResendRequestSupported;
}

bool CapabilitiesGEV::HasV1_1() const
{
    return HasVersion( V1_1, mValues );
}

bool CapabilitiesGEV::HasV1_2() const
{
    return HasVersion( V1_2, mValues );
}

bool CapabilitiesGEV::HasV2_0() const
{
    return HasVersion( V2_0, mValues );
}

bool CapabilitiesGEV::IsMCSPSupported() const
{
    return HasV1_1() && HasBit( mValues.mMessageChannelCapability, SOURCE_PORT );
}

bool CapabilitiesGEV::IsSCSPSupported() const
{
    return HasV1_1() && HasBit( mValues.mStreamChannelCapability, SOURCE_PORT );
}

} // namespace HtBaseLib
