// How a record is filled, and what is left when a device refuses or does not answer.

#include "tests/support/ScriptedDevice.h"

#include <QmUtilsLib/Logger.h>
#include <QmUtilsLib/Scripted/RecordingLogSink.h>
#include <QmUtilsLib/Scripted/VirtualClock.h>
#include <QmUtilsLib/String.h>
#include <SimpleCommandLinkGEV.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <optional>
#include <stdexcept>
#include <type_traits>
#include <utility>

namespace
{

using HtBaseLib::BaseCommandLinkGEV;
using HtBaseLib::CapabilitiesGEV;
using HtBaseLib::SimpleCommandLinkGEV;
using QmUtilsLib::Result;
using QmUtilsLib::Scripted::RecordingLogSink;
using QmUtilsLib::Scripted::VirtualClock;
using TestSupport::MAC;
using TestSupport::Record;
using TestSupport::RegisterTable;
using TestSupport::ScriptedDevice;
using WdUtilsLib::Network::SocketUDP;

using Texts = std::vector<std::string>;

constexpr long long ANSWER_TIMEOUT = 400; // ms, of the link that Init makes
constexpr int ATTEMPTS = 3;

// Everything that a record answers.
Texts GetAnswers( Record& aRecord )
{
    Texts lAnswers = {
        "initialised " + std::to_string( aRecord.IsInitialized() ),
        "version " + std::to_string( aRecord.GetVersionMajor() ) + "." +
            std::to_string( aRecord.GetVersionMinor() ),
        "class " + std::to_string( aRecord.GetDeviceClass() ),
        "concatenation " + std::to_string( aRecord.IsConcatenationSupported() ),
        "write memory " + std::to_string( aRecord.IsWriteMemSupported() ),
        "resend " + std::to_string( aRecord.IsPacketResendSupported() ),
        "event " + std::to_string( aRecord.IsEventSupported() ),
        "event data " + std::to_string( aRecord.IsEventDataSupported() ),
        "pending " + std::to_string( aRecord.IsPendingSupported() ),
        "action " + std::to_string( aRecord.IsActionSupported() ),
        "scheduled action " + std::to_string( aRecord.IsScheduledActionSupported() ),
        "codes 2 " + std::to_string( aRecord.IsV2ExtendedStatusCodesSupported() ),
        "time protocol " + std::to_string( aRecord.IsIEEE1588Supported() ),
        "unconditional " + std::to_string( aRecord.IsUnconditionalActionSupported() ),
        "switch over " + std::to_string( aRecord.IsApplicationSwitchOverSupported() ),
        "codes 1.1 " + std::to_string( aRecord.IsV1_1ExtendedCodesSupported() ),
        "custom delay " + std::to_string( aRecord.IsCustomDiscoveryDelaySupported() ),
        "delay register " + std::to_string( aRecord.IsDiscoveryDelayRegSupported() ),
        "test data " + std::to_string( aRecord.IsTestDataSupported() ),
        "manifest " + std::to_string( aRecord.IsManifestTableSupported() ),
        "owner " + std::to_string( aRecord.IsCCPOwnerDiscoverySupported() ),
        "link speed " + std::to_string( aRecord.IsLinkSpeedRegisterSupported() ),
        "heartbeat " + std::to_string( aRecord.IsHeartbeatDisableSupported() ),
        "serial " + std::to_string( aRecord.IsSerialNumberSupported() ),
        "user name " + std::to_string( aRecord.IsUserDefinedNameSupported() ),
        "mcsp " + std::to_string( aRecord.IsMCSPSupported() ),
        "scsp " + std::to_string( aRecord.IsSCSPSupported() ),
        "legacy block " + std::to_string( aRecord.IsLegacy16BitsBlockIdSupported() ),
        "end of block " + std::to_string( aRecord.IsEndOfBlockResendRequestSupported() ),
        "streams " + std::to_string( aRecord.GetStreamingChannelCount() ),
        "messages " + std::to_string( aRecord.GetMessagingChannelCount() ),
        "ticks " + std::to_string( aRecord.GetTimestampTickFrequency() ),
        "device " + std::to_string( aRecord.IsCorvaneDevice() ),
        "transmitter " + std::to_string( aRecord.IsCorvaneTransmitter() ),
        "read size " + std::to_string( aRecord.GetMaxReadMemSize() ),
        "write size " + std::to_string( aRecord.GetMaxWriteMemSize() ),
        "message port " + std::to_string( aRecord.GetMessageChannelSourcePort() ),
    };
    for ( unsigned int lChannel = 0; lChannel < 520; ++lChannel )
    {
        lAnswers.push_back( "stream port " + std::to_string( aRecord.GetStreamChannelSourcePort(
                                                 static_cast<unsigned short>( lChannel ) ) ) );
    }
    return lAnswers;
}

// The same, of a record that was never read.
Texts GetFreshAnswers( bool aIsCorvaneDevice, bool aIsCorvaneTransmitter )
{
    Texts lAnswers = { "initialised 0", "version 0.0", "class 0" };
    for ( const char* const lName :
          { "concatenation", "write memory",  "resend",         "event",
            "event data",    "pending",       "action",         "scheduled action",
            "codes 2",       "time protocol", "unconditional",  "switch over",
            "codes 1.1",     "custom delay",  "delay register", "test data",
            "manifest",      "owner",         "link speed",     "heartbeat",
            "serial",        "user name",     "mcsp",           "scsp",
            "legacy block",  "end of block",  "streams",        "messages",
            "ticks" } )
    {
        lAnswers.push_back( std::string( lName ) + " 0" );
    }
    lAnswers.push_back( aIsCorvaneDevice ? "device 1" : "device 0" );
    lAnswers.push_back( aIsCorvaneTransmitter ? "transmitter 1" : "transmitter 0" );
    lAnswers.push_back( aIsCorvaneDevice ? "read size 536" : "read size 512" );
    lAnswers.push_back( aIsCorvaneDevice ? "write size 536" : "write size 512" );
    lAnswers.push_back( aIsCorvaneDevice ? "message port 4" : "message port 0" );
    for ( unsigned int lChannel = 0; lChannel < 520; ++lChannel )
    {
        lAnswers.push_back( "stream port " +
                            std::to_string( aIsCorvaneDevice ? 20202 + lChannel : 0 ) );
    }
    return lAnswers;
}

// Two devices that differ in everything, so that it shows which one a record was filled from.
void BecomeFirst( ScriptedDevice& aDevice )
{
    aDevice.SetBasics( 0x00010001, 0x80000001, 2, 1 );
    aDevice.mTable.SetRegister( 0x0004, 0xB0000001 );
    aDevice.mTable.SetRegister( 0x0930, 0x80000000 );
    aDevice.mTable.SetRegister( 0x092C, 0xC0000000 );
    aDevice.mTable.SetRegister( 0x0B1C, 1111 );
    aDevice.mTable.SetRegister( 0x0D1C, 2222 );
    aDevice.mTable.SetRegister( 0x0D5C, 2223 );
    aDevice.mTable.SetRegister( 0x0940, 3333 );
    aDevice.mTable.SetRegister( 0x093C, 1 );
}

void BecomeSecond( ScriptedDevice& aDevice )
{
    aDevice.SetBasics( 0x00020001, 0x00000002, 1, 4 );
    aDevice.mTable.SetRegister( 0x0004, 0xD0000001 );
    aDevice.mTable.SetRegister( 0x0930, 0x80000000 );
    aDevice.mTable.SetRegister( 0x092C, 0x80000000 );
    aDevice.mTable.SetRegister( 0x0B1C, 4444 );
    aDevice.mTable.SetRegister( 0x0D1C, 5555 );
    aDevice.mTable.SetRegister( 0x0940, 6666 );
    aDevice.mTable.SetRegister( 0x093C, 0 );
}

const Texts FIRST_READS = { "0x0000", "0x0004", "0x0934",    "0x0904",   "0x0900",
                            "0x0930", "0x092C", "0x0B1C",    "0x0D1C",   "0x0D5C",
                            "0x0940", "0x093C", "0x0088/32", "0x00A8/48" };

// One read that a record cannot do without. What the record holds when the second device does not
// give it, after all of the first but the last text had been read.
struct MandatoryRead
{
    uint32_t mAddress;
    unsigned int mSize; // of a READMEM
    const char* mVersion;
    unsigned int mClass;
    bool mUserName;    // the first device has it, the second has not
    bool mWriteMemory; // the second has it, the first has not
    unsigned int mStreams;
    unsigned int mMessages;
    unsigned int mMessagePort;
    unsigned int mStreamPort0;
    unsigned int mStreamPort1;
    unsigned long long mTicks;
};

constexpr unsigned long long TICKS_1 = 0x100000000ULL + 3333;

const MandatoryRead MANDATORY_READS[] = {
    // address, size, version, class, user name, write memory, streams, messages, ports, ticks
    { 0x0000, 0, "1.1", 3, true, false, 2, 1, 1111, 2222, 2223, TICKS_1 },
    { 0x0004, 0, "2.1", 0, true, false, 2, 1, 1111, 2222, 2223, TICKS_1 },
    { 0x0934, 0, "2.1", 5, false, false, 2, 1, 1111, 2222, 2223, TICKS_1 },
    { 0x0904, 0, "2.1", 5, false, true, 0, 1, 1111, 2222, 2223, TICKS_1 },
    { 0x0900, 0, "2.1", 5, false, true, 1, 0, 1111, 2222, 2223, TICKS_1 },
    { 0x0B1C, 0, "2.1", 5, false, true, 1, 4, 0, 2222, 2223, TICKS_1 },
    { 0x0088, 32, "2.1", 5, false, true, 1, 4, 4444, 5555, 0, 6666 },
    { 0x00A8, 48, "2.1", 5, false, true, 1, 4, 4444, 5555, 0, 6666 },
};

class CapabilitiesGEVInit : public testing::Test
{
protected:
    // What the link itself gives for a read.
    Result ReadByLink( const MandatoryRead& aRead )
    {
        SimpleCommandLinkGEV lLink( &mDevice.mSocket );
        unsigned int lValue = 0;
        char lText[48];
        return aRead.mSize == 0 ? lLink.ReadRegister( &lValue, aRead.mAddress )
                                : lLink.ReadMemory( lText, aRead.mAddress, aRead.mSize );
    }

    // A record that has all of the first device but the last text.
    void ReadFirst()
    {
        BecomeFirst( mDevice );
        mDevice.mTable.Refuse( 0x00A8, 0x8006 );
        ASSERT_FALSE( mDevice.Init( mRecord ).IsOK() );
        ASSERT_EQ( FIRST_READS, mDevice.mTable.GetReadTexts() );
        mDevice.mTable.Relent();
        BecomeSecond( mDevice );
    }

    void ExpectHolds( const MandatoryRead& aRead )
    {
        EXPECT_FALSE( mRecord.IsInitialized() );
        EXPECT_EQ( aRead.mVersion, std::to_string( mRecord.GetVersionMajor() ) + "." +
                                       std::to_string( mRecord.GetVersionMinor() ) );
        EXPECT_EQ( aRead.mClass, mRecord.GetDeviceClass() );
        EXPECT_EQ( aRead.mUserName, mRecord.IsUserDefinedNameSupported() );
        EXPECT_EQ( aRead.mWriteMemory, mRecord.IsWriteMemSupported() );
        EXPECT_EQ( aRead.mStreams, mRecord.GetStreamingChannelCount() );
        EXPECT_EQ( aRead.mMessages, mRecord.GetMessagingChannelCount() );
        EXPECT_EQ( aRead.mMessagePort, mRecord.GetMessageChannelSourcePort() );
        EXPECT_EQ( aRead.mStreamPort0, mRecord.GetStreamChannelSourcePort( 0 ) );
        EXPECT_EQ( aRead.mStreamPort1, mRecord.GetStreamChannelSourcePort( 1 ) );
        EXPECT_EQ( aRead.mTicks, mRecord.GetTimestampTickFrequency() );
        EXPECT_FALSE( mRecord.IsEndOfBlockResendRequestSupported() );
    }

    ScriptedDevice mDevice;
    Record mRecord{ MAC };
};

// A link that notes how memory is read through it, and what lay in the buffers before.
class NotingLink : public SimpleCommandLinkGEV
{
public:
    using SimpleCommandLinkGEV::SimpleCommandLinkGEV;

    Result ReadMemory( void* aData, long long aAddress, long long aSize ) override
    {
        const char* const lText = static_cast<const char*>( aData );
        mMemoryReads.push_back( TestSupport::ToText( static_cast<uint32_t>( aAddress ) ) + "/" +
                                std::to_string( aSize ) );
        mCleared.push_back( std::all_of( lText, lText + aSize,
                                         []( char aCharacter ) { return aCharacter == '\0'; } ) );
        const std::string& lAnswer = aAddress == 0x0088 ? mDeviceVersion : mManufacturerInfo;
        lAnswer.copy( static_cast<char*>( aData ), static_cast<size_t>( aSize ) );
        return aAddress == mRefused ? Result( 0x0042 ) : Result( Result::OK );
    }

    Texts mMemoryReads;
    std::vector<bool> mCleared;
    std::string mDeviceVersion;
    std::string mManufacturerInfo;
    long long mRefused = -1;
    std::function<void()> mOnRead;

protected:
    void ReadCallback( const void*, long long, long long ) override
    {
        if ( mOnRead )
        {
            mOnRead();
        }
    }
};

// Redeclares every operation with a result of its own, which does not compile for an operation that
// is virtual. Nothing of it is defined.
class Redeclares : public CapabilitiesGEV
{
    struct Other
    {
    };
    Other GetCapabilities( WdUtilsLib::Network::EthernetAddress );
    Other Destroy();
    Other Init( BaseCommandLinkGEV* );
    Other Init( SocketUDP* );
    Other ReadSCSPs( BaseCommandLinkGEV* );
    Other IsInitialized();
    Other GetVersionMajor() const;
    Other GetVersionMinor() const;
    Other GetDeviceClass() const;
    Other GetStreamingChannelCount() const;
    Other GetMessagingChannelCount() const;
    Other GetTimestampTickFrequency() const;
    Other IsCorvaneDevice() const;
    Other IsCorvaneTransmitter() const;
    Other GetMaxReadMemSize() const;
    Other GetMaxWriteMemSize() const;
    Other GetStreamChannelSourcePort( unsigned short ) const;
    Other GetMessageChannelSourcePort() const;
    Other IsConcatenationSupported() const;
    Other IsWriteMemSupported() const;
    Other IsPacketResendSupported() const;
    Other IsEventSupported() const;
    Other IsEventDataSupported() const;
    Other IsPendingSupported() const;
    Other IsActionSupported() const;
    Other IsV1_1ExtendedCodesSupported() const;
    Other IsCustomDiscoveryDelaySupported() const;
    Other IsDiscoveryDelayRegSupported() const;
    Other IsTestDataSupported() const;
    Other IsManifestTableSupported() const;
    Other IsCCPOwnerDiscoverySupported() const;
    Other IsLinkSpeedRegisterSupported() const;
    Other IsHeartbeatDisableSupported() const;
    Other IsSerialNumberSupported() const;
    Other IsUserDefinedNameSupported() const;
    Other IsScheduledActionSupported() const;
    Other IsV2ExtendedStatusCodesSupported() const;
    Other IsIEEE1588Supported() const;
    Other IsUnconditionalActionSupported() const;
    Other IsApplicationSwitchOverSupported() const;
    Other IsLegacy16BitsBlockIdSupported() const;
    Other IsEndOfBlockResendRequestSupported() const;
    Other HasV1_1() const;
    Other HasV1_2() const;
    Other HasV2_0() const;
    Other IsMCSPSupported() const;
    Other IsSCSPSupported() const;
    Other ParseInfos();
};
static_assert( std::has_virtual_destructor_v<CapabilitiesGEV> );
static_assert( sizeof( Redeclares ) == sizeof( CapabilitiesGEV ) );

// The queries' types.
template <typename Answer>
using Query = Answer ( CapabilitiesGEV::* )() const;
static_assert( std::is_same_v<decltype( &CapabilitiesGEV::GetVersionMajor ), Query<unsigned int>> );
static_assert( std::is_same_v<decltype( &CapabilitiesGEV::GetVersionMinor ), Query<unsigned int>> );
static_assert(
    std::is_same_v<decltype( &CapabilitiesGEV::GetDeviceClass ), Query<unsigned short>> );
static_assert(
    std::is_same_v<decltype( &CapabilitiesGEV::GetStreamingChannelCount ), Query<unsigned int>> );
static_assert(
    std::is_same_v<decltype( &CapabilitiesGEV::GetMessagingChannelCount ), Query<unsigned int>> );
static_assert( std::is_same_v<decltype( &CapabilitiesGEV::GetTimestampTickFrequency ),
                              Query<unsigned long long>> );
static_assert(
    std::is_same_v<decltype( &CapabilitiesGEV::GetMaxReadMemSize ), Query<unsigned int>> );
static_assert(
    std::is_same_v<decltype( &CapabilitiesGEV::GetMaxWriteMemSize ), Query<unsigned int>> );
static_assert( std::is_same_v<decltype( &CapabilitiesGEV::GetMessageChannelSourcePort ),
                              Query<unsigned int>> );
static_assert( std::is_same_v<decltype( &CapabilitiesGEV::GetStreamChannelSourcePort ),
                              unsigned int ( CapabilitiesGEV::* )( unsigned short ) const> );
static_assert( std::is_same_v<decltype( &CapabilitiesGEV::ReadSCSPs ),
                              Result ( CapabilitiesGEV::* )( BaseCommandLinkGEV* )> );
static_assert(
    std::is_same_v<decltype( &CapabilitiesGEV::IsInitialized ), bool ( CapabilitiesGEV::* )()> );

} // namespace

TEST_F( CapabilitiesGEVInit, AFreshRecordIsEmpty )
{
    EXPECT_EQ( GetFreshAnswers( false, false ), GetAnswers( mRecord ) );
}

TEST_F( CapabilitiesGEVInit, AFreshRecordKnowsTheMakersDevices )
{
    TestSupport::MakeCorvaneDevice();
    Record lDevice( MAC );
    EXPECT_EQ( GetFreshAnswers( true, false ), GetAnswers( lDevice ) );

    WdUtilsLib::Network::DeviceIdentity::Clear();
    TestSupport::MakeCorvaneTransmitter();
    Record lTransmitter( MAC );
    EXPECT_EQ( GetFreshAnswers( false, true ), GetAnswers( lTransmitter ) );

    TestSupport::MakeCorvaneDevice();
    Record lBoth( MAC );
    EXPECT_EQ( GetFreshAnswers( true, true ), GetAnswers( lBoth ) );
}

TEST_F( CapabilitiesGEVInit, TheMakersTableIsReadOnlyAtConstruction )
{
    TestSupport::MakeCorvaneDevice();
    Record lDevice( MAC );
    TestSupport::MakeCorvaneTransmitter();
    EXPECT_FALSE( lDevice.IsCorvaneTransmitter() );
    WdUtilsLib::Network::DeviceIdentity::Clear();
    BecomeFirst( mDevice );
    ASSERT_TRUE( mDevice.Init( lDevice ).IsOK() );
    EXPECT_TRUE( lDevice.IsCorvaneDevice() );
    EXPECT_FALSE( lDevice.IsCorvaneTransmitter() );
}

TEST_F( CapabilitiesGEVInit, MakingARecordReadsNothingAndLogsNothing )
{
    RecordingLogSink lLog;
    const CapabilitiesGEV lRecord( MAC );
    EXPECT_THAT( lLog.GetEntries(), testing::IsEmpty() );
    EXPECT_THAT( mDevice.mNetwork.GetSends(), testing::IsEmpty() );
}

TEST_F( CapabilitiesGEVInit, NothingIsFormattedWhileThePriorityIsOff )
{
    RecordingLogSink lLog( QmUtilsLib::Logger::ANOMALY );
    BecomeFirst( mDevice );
    mDevice.mTable.Refuse( 0x0930, 0x8003 );
    mDevice.mTable.Refuse( 0x092C, 0x8003 );
    ASSERT_TRUE( mDevice.Init( mRecord ).IsOK() );
    EXPECT_THAT( lLog.GetTexts(),
                 testing::ElementsAre( "Could not read message channel capabilities",
                                       "Could not read stream channel capabilities" ) );
}

TEST_F( CapabilitiesGEVInit, FillsTheRecord )
{
    BecomeFirst( mDevice );
    ASSERT_TRUE( mDevice.Init( mRecord ).IsOK() );
    EXPECT_EQ( FIRST_READS, mDevice.mTable.GetReadTexts() );

    Texts lExpected = GetFreshAnswers( false, false );
    const auto lReplace = [&lExpected]( const char* aOld, const char* aNew )
    {
        const auto lAnswer = std::find( lExpected.begin(), lExpected.end(), aOld );
        ASSERT_NE( lExpected.end(), lAnswer ) << aOld;
        *lAnswer = aNew;
    };
    lReplace( "initialised 0", "initialised 1" );
    lReplace( "version 0.0", "version 1.1" );
    lReplace( "class 0", "class 3" );
    lReplace( "concatenation 0", "concatenation 1" );
    lReplace( "user name 0", "user name 1" );
    lReplace( "mcsp 0", "mcsp 1" );
    lReplace( "scsp 0", "scsp 1" );
    lReplace( "legacy block 0", "legacy block 1" );
    lReplace( "end of block 0", "end of block 1" );
    lReplace( "streams 0", "streams 2" );
    lReplace( "messages 0", "messages 1" );
    lReplace( "ticks 0", "ticks 4294970629" );
    lReplace( "message port 0", "message port 1111" );
    lReplace( "stream port 0", "stream port 2222" );
    lReplace( "stream port 0", "stream port 2223" );
    EXPECT_EQ( lExpected, GetAnswers( mRecord ) );
}

TEST_F( CapabilitiesGEVInit, TakesTheClassFromThreeBitsOfDeviceMode )
{
    struct Row
    {
        uint32_t mMode;
        unsigned int mClass;
    };
    for ( const Row& lRow :
          { Row{ 0x00000000, 0 }, Row{ 0x10000000, 1 }, Row{ 0x20000000, 2 }, Row{ 0x40000000, 4 },
            Row{ 0x80000000, 0 }, Row{ 0x0FFFFFFF, 0 }, Row{ 0xFFFFFFFF, 7 } } )
    {
        Record lRecord( MAC );
        BecomeFirst( mDevice );
        mDevice.mTable.SetRegister( 0x0004, lRow.mMode );
        ASSERT_TRUE( mDevice.Init( lRecord ).IsOK() );
        EXPECT_EQ( lRow.mClass, lRecord.GetDeviceClass() ) << std::hex << lRow.mMode;
    }
}

TEST_F( CapabilitiesGEVInit, PutsTheTickFrequencyTogetherFromTwoWords )
{
    BecomeFirst( mDevice );
    mDevice.mTable.SetRegister( 0x093C, 0x00000001 );
    mDevice.mTable.SetRegister( 0x0940, 0x00000002 );
    ASSERT_TRUE( mDevice.Init( mRecord ).IsOK() );
    EXPECT_EQ( 0x0000000100000002ULL, mRecord.GetTimestampTickFrequency() );
}

TEST_F( CapabilitiesGEVInit, ReadsAnInitialisedRecordNeverAgain )
{
    BecomeFirst( mDevice );
    ASSERT_TRUE( mDevice.Init( mRecord ).IsOK() );
    const Texts lBefore = GetAnswers( mRecord );
    BecomeSecond( mDevice );

    RecordingLogSink lLog;
    EXPECT_TRUE( mDevice.Init( mRecord ).IsOK() );
    EXPECT_THAT( mDevice.mTable.GetReads(), testing::IsEmpty() );
    EXPECT_THAT( lLog.GetTexts(),
                 testing::ElementsAre( "Reading device properties (02:00:5E:10:00:01)" ) );
    EXPECT_EQ( lBefore, GetAnswers( mRecord ) );

    // Nor does it ask whether there is a link at all.
    ASSERT_TRUE( mDevice.mSocket.Close().IsOK() );
    EXPECT_TRUE( mDevice.Init( mRecord ).IsOK() );
    EXPECT_TRUE( mRecord.IsInitialized() );
}

TEST_F( CapabilitiesGEVInit, ReturnsTheRefusalOfEveryMandatoryReadUnchanged )
{
    for ( const MandatoryRead& lRead : MANDATORY_READS )
    {
        for ( unsigned int lStatus = 0x8001; lStatus <= 0x800E; ++lStatus )
        {
            SCOPED_TRACE( TestSupport::ToText( lRead.mAddress ) + " " +
                          TestSupport::ToText( lStatus ) );
            Record lRecord( MAC );
            BecomeFirst( mDevice );
            mDevice.mTable.Relent();
            mDevice.mTable.Refuse( lRead.mAddress, static_cast<uint16_t>( lStatus ) );
            const Result lExpected = ReadByLink( lRead );
            ASSERT_EQ( 0x4000U, lExpected.GetCode() );

            RecordingLogSink lLog( QmUtilsLib::Logger::ANOMALY );
            const Result lResult = mDevice.Init( lRecord );
            EXPECT_EQ( lExpected.GetCode(), lResult.GetCode() );
            EXPECT_EQ( lExpected.GetOSCode(), lResult.GetOSCode() );
            EXPECT_STREQ( lExpected.GetDescription().GetAscii(),
                          lResult.GetDescription().GetAscii() );
            EXPECT_FALSE( lRecord.IsInitialized() );
            EXPECT_EQ( lRead.mAddress, mDevice.mTable.GetReads().back().mAddress );
            EXPECT_THAT( lLog.GetTexts(), testing::IsEmpty() );
        }
    }
}

TEST_F( CapabilitiesGEVInit, KeepsValuesReadBeforeARefusalAndStartsAgain )
{
    for ( const MandatoryRead& lRead : MANDATORY_READS )
    {
        SCOPED_TRACE( TestSupport::ToText( lRead.mAddress ) );
        mRecord = Record( MAC );
        ReadFirst();
        mDevice.mTable.Refuse( lRead.mAddress, 0x8006 );
        EXPECT_EQ( Result::GENERIC_ERROR, mDevice.Init( mRecord ).GetCode() );
        ExpectHolds( lRead );

        mDevice.mTable.Relent();
        EXPECT_TRUE( mDevice.Init( mRecord ).IsOK() );
        EXPECT_EQ( "0x0000", mDevice.mTable.GetReadTexts().front() );
        EXPECT_EQ( 13U, mDevice.mTable.GetReads().size() );
        EXPECT_TRUE( mRecord.IsInitialized() );
    }
}

TEST_F( CapabilitiesGEVInit, KeepsValuesReadBeforeASilence )
{
    for ( const MandatoryRead& lRead : MANDATORY_READS )
    {
        SCOPED_TRACE( TestSupport::ToText( lRead.mAddress ) );
        mRecord = Record( MAC );
        ReadFirst();
        mDevice.mTable.Silence( lRead.mAddress );
        const long long lStart = VirtualClock::Now();
        EXPECT_EQ( Result::TIMEOUT, mDevice.Init( mRecord ).GetCode() );
        EXPECT_EQ( ATTEMPTS * ANSWER_TIMEOUT, VirtualClock::Now() - lStart );
        ExpectHolds( lRead );
        const std::vector<RegisterTable::Read>& lReads = mDevice.mTable.GetReads();
        EXPECT_EQ( ATTEMPTS, std::count_if( lReads.begin(), lReads.end(),
                                            [&lRead]( const RegisterTable::Read& aRead )
                                            { return aRead.mAddress == lRead.mAddress; } ) );
        EXPECT_EQ( lRead.mAddress, lReads.back().mAddress );
        mDevice.mTable.Relent();
    }
}

namespace
{

// One read that a device need not answer, and what is different without it.
struct OptionalRead
{
    uint32_t mAddress;
    Texts mNotRead; // because of it
    const char* mLogged;
    unsigned int mMessagePort;
    unsigned int mStreamPort0;
    unsigned int mStreamPort1;
    unsigned long long mTicks;
};

const OptionalRead OPTIONAL_READS[] = {
    { 0x0930, { "0x0B1C" }, "Could not read message channel capabilities", 0, 2222, 2223, TICKS_1 },
    { 0x092C,
      { "0x0D1C", "0x0D5C" },
      "Could not read stream channel capabilities",
      1111,
      0,
      0,
      TICKS_1 },
    { 0x0D1C, { "0x0D5C" }, nullptr, 1111, 0, 0, TICKS_1 },
    { 0x0D5C, {}, nullptr, 1111, 2222, 0, TICKS_1 },
    { 0x0940, { "0x093C" }, nullptr, 1111, 2222, 2223, 0 },
    { 0x093C, {}, nullptr, 1111, 2222, 2223, 0 },
};

} // namespace

class CapabilitiesGEVOptionalReads : public CapabilitiesGEVInit
{
protected:
    void ExpectFilledWithout( const OptionalRead& aRead, const Texts& aLog )
    {
        EXPECT_TRUE( mRecord.IsInitialized() );
        EXPECT_EQ( aRead.mMessagePort, mRecord.GetMessageChannelSourcePort() );
        EXPECT_EQ( aRead.mStreamPort0, mRecord.GetStreamChannelSourcePort( 0 ) );
        EXPECT_EQ( aRead.mStreamPort1, mRecord.GetStreamChannelSourcePort( 1 ) );
        EXPECT_EQ( aRead.mTicks, mRecord.GetTimestampTickFrequency() );
        EXPECT_TRUE( mRecord.IsEndOfBlockResendRequestSupported() );
        EXPECT_EQ( aRead.mLogged != nullptr ? Texts{ aRead.mLogged } : Texts(), aLog );

        Texts lExpected = FIRST_READS;
        for ( const std::string& lNotRead : aRead.mNotRead )
        {
            lExpected.erase( std::find( lExpected.begin(), lExpected.end(), lNotRead ) );
        }
        // A read that is not answered is asked for several times.
        Texts lReads = mDevice.mTable.GetReadTexts();
        lReads.erase( std::unique( lReads.begin(), lReads.end() ), lReads.end() );
        EXPECT_EQ( lExpected, lReads );
    }
};

TEST_F( CapabilitiesGEVOptionalReads, MayBeRefused )
{
    for ( const OptionalRead& lRead : OPTIONAL_READS )
    {
        for ( unsigned int lStatus = 0x8001; lStatus <= 0x800E; ++lStatus )
        {
            SCOPED_TRACE( TestSupport::ToText( lRead.mAddress ) + " " +
                          TestSupport::ToText( lStatus ) );
            mRecord = Record( MAC );
            BecomeFirst( mDevice );
            mDevice.mTable.Relent();
            mDevice.mTable.Refuse( lRead.mAddress, static_cast<uint16_t>( lStatus ) );
            RecordingLogSink lLog( QmUtilsLib::Logger::ANOMALY );
            EXPECT_TRUE( mDevice.Init( mRecord ).IsOK() );
            ExpectFilledWithout( lRead, lLog.GetTexts() );
        }
    }
}

TEST_F( CapabilitiesGEVOptionalReads, MayGoUnanswered )
{
    for ( const OptionalRead& lRead : OPTIONAL_READS )
    {
        SCOPED_TRACE( TestSupport::ToText( lRead.mAddress ) );
        mRecord = Record( MAC );
        BecomeFirst( mDevice );
        mDevice.mTable.Relent();
        mDevice.mTable.Silence( lRead.mAddress );
        RecordingLogSink lLog( QmUtilsLib::Logger::ANOMALY );
        const long long lStart = VirtualClock::Now();
        EXPECT_TRUE( mDevice.Init( mRecord ).IsOK() );
        EXPECT_EQ( ATTEMPTS * ANSWER_TIMEOUT, VirtualClock::Now() - lStart );

        Texts lLines; // those of the record, not of the link
        for ( const RecordingLogSink::Entry& lEntry : lLog.GetEntries() )
        {
            if ( lEntry.mUnit == "Libraries/HtBase/CapabilitiesGEV" )
            {
                lLines.push_back( lEntry.mText );
            }
        }
        ExpectFilledWithout( lRead, lLines );
    }
}

TEST_F( CapabilitiesGEVInit, MissingMessageCapabilityDoesNotSkipTheStreams )
{
    BecomeFirst( mDevice );
    mDevice.mTable.Refuse( 0x0930, 0x8003 );
    ASSERT_TRUE( mDevice.Init( mRecord ).IsOK() );
    EXPECT_FALSE( mRecord.IsMCSPSupported() );
    EXPECT_TRUE( mRecord.IsSCSPSupported() );
}

TEST_F( CapabilitiesGEVInit, ForgetsTheChannelsOfAnEarlierAttempt )
{
    ReadFirst();
    ASSERT_TRUE( mRecord.IsMCSPSupported() );
    ASSERT_TRUE( mRecord.IsSCSPSupported() );
    mDevice.SetBasics( 0x00020000, 0, 0, 0 ); // no channels: no capability is read
    ASSERT_TRUE( mDevice.Init( mRecord ).IsOK() );
    EXPECT_THAT( mDevice.mTable.GetReadTexts(),
                 testing::ElementsAre( "0x0000", "0x0004", "0x0934", "0x0904", "0x0900", "0x0940",
                                       "0x093C", "0x0088/32", "0x00A8/48" ) );
    EXPECT_FALSE( mRecord.IsMCSPSupported() );
    EXPECT_FALSE( mRecord.IsSCSPSupported() );
    EXPECT_FALSE( mRecord.IsLegacy16BitsBlockIdSupported() );
    EXPECT_EQ( 0U, mRecord.GetMessageChannelSourcePort() );
    EXPECT_EQ( 0U, mRecord.GetStreamChannelSourcePort( 0 ) );
}

TEST_F( CapabilitiesGEVInit, ForgetsTheChannelsEvenIfTheVersionHasNoCapabilities )
{
    ReadFirst();
    mDevice.SetBasics( 0x00000009, 0, 2, 1 ); // the bit would count, if it were still there
    ASSERT_TRUE( mDevice.Init( mRecord ).IsOK() );
    EXPECT_FALSE( mRecord.IsLegacy16BitsBlockIdSupported() );
}

TEST_F( CapabilitiesGEVInit, ForgetsTheTickFrequencyOfAnEarlierAttempt )
{
    for ( const uint32_t lAddress : { 0x0940U, 0x093CU } )
    {
        mRecord = Record( MAC );
        mDevice.mTable.Relent();
        ReadFirst();
        ASSERT_EQ( TICKS_1, mRecord.GetTimestampTickFrequency() );
        mDevice.mTable.Refuse( lAddress, 0x8003 );
        ASSERT_TRUE( mDevice.Init( mRecord ).IsOK() );
        EXPECT_EQ( 0U, mRecord.GetTimestampTickFrequency() );
    }
}

TEST_F( CapabilitiesGEVInit, ReadsNoLaterRegistersFromAVersion1_0Device )
{
    mDevice.SetBasics( 0x00010000, 0xFFFFFFFF, 512, 1 );
    for ( const uint32_t lAddress : { 0x0930U, 0x092CU, 0x0B1CU, 0x0D1CU } )
    {
        mDevice.mTable.SetRegister( lAddress, 0xFFFFFFFF );
    }
    ASSERT_TRUE( mDevice.Init( mRecord ).IsOK() );
    EXPECT_THAT( mDevice.mTable.GetReadTexts(),
                 testing::ElementsAre( "0x0000", "0x0004", "0x0934", "0x0904", "0x0900", "0x0940",
                                       "0x0088/32", "0x00A8/48" ) );
}

TEST_F( CapabilitiesGEVInit, NeitherOpensNorClosesTheSocket )
{
    BecomeFirst( mDevice );
    const unsigned short lPort = mDevice.mSocket.GetLocalPort();
    ASSERT_TRUE( mDevice.Init( mRecord ).IsOK() );
    EXPECT_TRUE( mDevice.mSocket.IsOpened() );
    EXPECT_EQ( lPort, mDevice.mSocket.GetLocalPort() );

    Record lRecord( MAC );
    ASSERT_TRUE( mDevice.mSocket.Close().IsOK() );
    RecordingLogSink lLog;
    EXPECT_EQ( Result::NOT_CONNECTED, mDevice.Init( lRecord ).GetCode() );
    EXPECT_FALSE( mDevice.mSocket.IsOpened() );
    EXPECT_THAT( mDevice.mTable.GetReads(), testing::IsEmpty() );
    EXPECT_THAT( lLog.GetTexts(),
                 testing::ElementsAre( "Reading device properties (02:00:5E:10:00:01)" ) );
}

TEST_F( CapabilitiesGEVInit, WithoutASocketIsNotConnected )
{
    EXPECT_EQ( Result::NOT_CONNECTED,
               mRecord.Init( static_cast<SocketUDP*>( nullptr ) ).GetCode() );
    EXPECT_FALSE( mRecord.IsInitialized() );
}

TEST_F( CapabilitiesGEVInit, ReturnsTheReceiveErrorOfTheSocket )
{
    mDevice.mNetwork.ExpectAnySend().FailReceive( Result( Result::GENERIC_ERROR, ECONNREFUSED ) );
    const Result lResult = mDevice.Init( mRecord );
    EXPECT_EQ( Result::GENERIC_ERROR, lResult.GetCode() );
    EXPECT_EQ( static_cast<unsigned int>( ECONNREFUSED ), lResult.GetOSCode() );
}

TEST_F( CapabilitiesGEVInit, TakesIdentifiersFromTheCounterOfTheProcess )
{
    BecomeFirst( mDevice );
    SimpleCommandLinkGEV lLink( &mDevice.mSocket );
    unsigned int lValue = 0;
    ASSERT_TRUE( lLink.ReadRegister( &lValue, 0x0000 ).IsOK() );
    ASSERT_TRUE( mRecord.Init( &mDevice.mSocket ).IsOK() );
    ASSERT_TRUE( lLink.ReadRegister( &lValue, 0x0000 ).IsOK() );

    const std::vector<RegisterTable::Read>& lReads = mDevice.mTable.GetReads();
    ASSERT_EQ( FIRST_READS.size() + 2, lReads.size() );
    for ( size_t lIndex = 1; lIndex < lReads.size(); ++lIndex )
    {
        EXPECT_EQ( ( ( lReads[lIndex - 1].mIdentifier + 1 ) & 0x0FFF ) | 0xB000,
                   lReads[lIndex].mIdentifier );
    }
}

TEST_F( CapabilitiesGEVInit, ReadsTheTextsThroughTheLinksOwnReadMemory )
{
    BecomeFirst( mDevice );
    mDevice.mTable.Refuse( 0x0088, 0x8003 ); // is not read
    mDevice.mTable.Refuse( 0x00A8, 0x8003 );
    NotingLink lLink( &mDevice.mSocket );
    EXPECT_TRUE( mRecord.Init( &lLink ).IsOK() );
    EXPECT_THAT( lLink.mMemoryReads, testing::ElementsAre( "0x0088/32", "0x00A8/48" ) );
}

TEST_F( CapabilitiesGEVInit, ClearsTheTextsBeforeItReadsThem )
{
    BecomeFirst( mDevice );
    NotingLink lLink( &mDevice.mSocket );
    lLink.mDeviceVersion = std::string( 32, 'v' );
    lLink.mManufacturerInfo = std::string( 48, 'm' );
    lLink.mRefused = 0x00A8;
    EXPECT_EQ( 0x0042U, mRecord.Init( &lLink ).GetCode() );
    EXPECT_EQ( 0x0042U, mRecord.Init( &lLink ).GetCode() );
    EXPECT_THAT( lLink.mCleared, testing::ElementsAre( true, true, true, true ) );
    lLink.mRefused = 0x0088;
    EXPECT_EQ( 0x0042U, mRecord.Init( &lLink ).GetCode() );
    EXPECT_THAT( lLink.mMemoryReads, testing::ElementsAre( "0x0088/32", "0x00A8/48", "0x0088/32",
                                                           "0x00A8/48", "0x0088/32" ) );
}

// A thread that has seen the record initialised may read it, so the record must not change any
// more.
TEST_F( CapabilitiesGEVInit, AnInitFromACallbackOfItsOwnReadsIsRefused )
{
    BecomeFirst( mDevice );
    NotingLink lLink( &mDevice.mSocket );
    int lCalls = 0;
    lLink.mOnRead = [&]
    {
        ++lCalls;
        for ( const Result& lInner : { mRecord.Init( &mDevice.mSocket ), mRecord.Init( &lLink ) } )
        {
            EXPECT_EQ( 0x001CU, lInner.GetCode() );
            EXPECT_EQ( 0U, lInner.GetOSCode() );
        }
        EXPECT_FALSE( mRecord.IsInitialized() );
    };
    const std::string lLine = "Reading device properties (02:00:5E:10:00:01)";
    const RecordingLogSink lLog;
    EXPECT_TRUE( mRecord.Init( &lLink ).IsOK() );
    EXPECT_EQ( FIRST_READS.size() - 2, mDevice.mTable.GetReads().size() ); // and two of texts
    EXPECT_EQ( FIRST_READS.size() - 2, static_cast<std::size_t>( lCalls ) );
    EXPECT_TRUE( mRecord.IsInitialized() );
    const Texts lTexts = lLog.GetTexts();
    EXPECT_EQ( 1 + 2 * lCalls, std::count( lTexts.begin(), lTexts.end(), lLine ) );

    // Afterwards it is an Init of an initialised record.
    lLink.mOnRead = nullptr;
    EXPECT_TRUE( mRecord.Init( &lLink ).IsOK() );
}

TEST_F( CapabilitiesGEVInit, CanBeTriedAgainAfterAnInitWithinAnInitThatFailed )
{
    BecomeFirst( mDevice );
    mDevice.mTable.Refuse( 0x0934, 0x8003 );
    NotingLink lLink( &mDevice.mSocket );
    lLink.mOnRead = [&]
    {
        EXPECT_EQ( 0x001CU, mRecord.Init( &lLink ).GetCode() );
    };
    EXPECT_EQ( 0x4000U, mRecord.Init( &lLink ).GetCode() );
    EXPECT_FALSE( mRecord.IsInitialized() );
    lLink.mOnRead = []
    {
        throw std::runtime_error( "of a callback" );
    };
    EXPECT_THROW( (void)mRecord.Init( &lLink ), std::runtime_error );
    EXPECT_FALSE( mRecord.IsInitialized() );
    lLink.mOnRead = nullptr;
    mDevice.mTable.Relent();
    EXPECT_TRUE( mRecord.Init( &lLink ).IsOK() );
}

TEST_F( CapabilitiesGEVInit, ACallbackOfItsReadsMayInitialiseACopyOfTheRecord )
{
    BecomeFirst( mDevice );
    Record lCopy( mRecord );
    NotingLink lLink( &mDevice.mSocket );
    lLink.mOnRead = [&]
    {
        EXPECT_TRUE( lCopy.Init( &mDevice.mSocket ).IsOK() );
        EXPECT_EQ( 1U, lCopy.GetVersionMajor() );
    };
    EXPECT_TRUE( mRecord.Init( &lLink ).IsOK() );
    EXPECT_TRUE( lCopy.IsInitialized() );
}

TEST_F( CapabilitiesGEVInit, CopiesHoldEverything )
{
    TestSupport::MakeCorvaneDevice();
    TestSupport::MakeCorvaneTransmitter();
    Record lSource( MAC );
    BecomeFirst( mDevice );
    mDevice.mTable.SetRegister( 0x0904, 512 );
    for ( uint32_t lChannel = 0; lChannel < 512; ++lChannel )
    {
        mDevice.mTable.SetRegister( 0x0D1C + 0x40 * lChannel, 30000 + lChannel * 3 );
    }
    mDevice.mTable.SetText( 0x0088, 32, "(02.02.0001)" );
    mDevice.mTable.SetText( 0x00A8, 48, "(00400000)" );
    ASSERT_TRUE( mDevice.Init( lSource ).IsOK() );
    ASSERT_FALSE( lSource.IsEndOfBlockResendRequestSupported() );
    ASSERT_EQ( 30000U + 511 * 3, lSource.GetStreamChannelSourcePort( 511 ) );

    Record lCopy( lSource );
    EXPECT_EQ( GetAnswers( lSource ), GetAnswers( lCopy ) );
    lCopy.ParseInfos(); // from the texts, which were copied too
    EXPECT_FALSE( lCopy.IsEndOfBlockResendRequestSupported() );

    mRecord = lSource;
    EXPECT_EQ( GetAnswers( lSource ), GetAnswers( mRecord ) );
    mRecord.ParseInfos();
    EXPECT_FALSE( mRecord.IsEndOfBlockResendRequestSupported() );

    // The address, which the log shows.
    RecordingLogSink lLog;
    Record lOther( WdUtilsLib::Network::EthernetAddress( 1, 2 ) );
    lOther = lSource;
    ASSERT_TRUE( mDevice.Init( lOther ).IsOK() );
    EXPECT_THAT( lLog.GetTexts(),
                 testing::ElementsAre( "Reading device properties (02:00:5E:10:00:01)" ) );
}

TEST_F( CapabilitiesGEVInit, ACopyIsReadOnItsOwn )
{
    Record lCopy( mRecord );
    BecomeFirst( mDevice );
    ASSERT_TRUE( mDevice.Init( lCopy ).IsOK() );
    EXPECT_FALSE( mRecord.IsInitialized() );
    EXPECT_EQ( GetFreshAnswers( false, false ), GetAnswers( mRecord ) );

    // Only assigning takes the word back.
    lCopy = mRecord;
    EXPECT_FALSE( lCopy.IsInitialized() );
    BecomeSecond( mDevice );
    ASSERT_TRUE( mDevice.Init( lCopy ).IsOK() );
    EXPECT_EQ( 2U, lCopy.GetVersionMajor() );
}

TEST_F( CapabilitiesGEVInit, SourcesAndCopiesMayBeDestroyedInAnyOrder )
{
    RecordingLogSink lLog;
    BecomeFirst( mDevice );
    for ( const bool lSourceGoesFirst : { true, false } )
    {
        auto lSource = std::make_unique<Record>( MAC );
        auto lCopy = std::make_unique<Record>( *lSource );
        auto lAssigned = std::make_unique<Record>( MAC );
        *lAssigned = *lCopy;
        const Record& lItself = *lAssigned;
        *lAssigned = lItself;
        ( lSourceGoesFirst ? lSource : lCopy ).reset();
        Record& lLeft = lSourceGoesFirst ? *lCopy : *lSource;
        EXPECT_TRUE( mDevice.Init( lLeft ).IsOK() );
        lSource.reset();
        lCopy.reset();
        EXPECT_TRUE( mDevice.Init( *lAssigned ).IsOK() );
        EXPECT_EQ( "HtBaseLib", lLog.GetEntries().back().mLogger );
    }
}
