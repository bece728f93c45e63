// What a record answers: every capability bit under every version, the source ports, and what the
// texts of the maker's devices say.

#include "tests/support/ScriptedDevice.h"

#include <QmUtilsLib/Scripted/RecordingLogSink.h>
#include <QmUtilsLib/String.h>
#include <SimpleCommandLinkGEV.h>

#include <gmock/gmock.h>

namespace
{

using HtBaseLib::CapabilitiesGEV;
using HtBaseLib::SimpleCommandLinkGEV;
using QmUtilsLib::Result;
using QmUtilsLib::Scripted::RecordingLogSink;
using TestSupport::MAC;
using TestSupport::Record;
using TestSupport::ScriptedDevice;

// A version as the register Version holds it, and what it is at least.
struct Version
{
    uint32_t mRegister;
    unsigned int mMajor;
    unsigned int mMinor;
    bool mIs1_1;
    bool mIs1_2;
    bool mIs2_0;
};

const Version VERSIONS[] = {
    { 0x00000000, 0, 0, false, false, false }, { 0x00000001, 0, 1, false, false, false },
    { 0x00000002, 0, 2, false, false, false }, { 0x0000FFFF, 0, 65535, false, false, false },
    { 0x00010000, 1, 0, false, false, false }, { 0x00010001, 1, 1, true, false, false },
    { 0x00010002, 1, 2, true, true, false },   { 0x0001FFFF, 1, 65535, true, true, false },
    { 0x00020000, 2, 0, true, true, true },    { 0x00020001, 2, 1, true, true, true },
    { 0x00030000, 3, 0, true, true, true },    { 0xFFFF0000, 65535, 0, true, true, true },
};

enum class Since
{
    EVER,
    V1_1,
    V2_0
};

// The bits of GVCP Capability, in the order of the standard from its bit 31 down to bit 0.
struct GvcpBit
{
    const char* mName;
    bool ( CapabilitiesGEV::*mQuery )() const;
    unsigned int mBit; // as the standard numbers it: 0 is the most significant
    Since mSince;
};

const GvcpBit GVCP_BITS[] = {
    { "concatenation", &CapabilitiesGEV::IsConcatenationSupported, 31, Since::EVER },
    { "write memory", &CapabilitiesGEV::IsWriteMemSupported, 30, Since::EVER },
    { "packet resend", &CapabilitiesGEV::IsPacketResendSupported, 29, Since::EVER },
    { "event", &CapabilitiesGEV::IsEventSupported, 28, Since::EVER },
    { "event data", &CapabilitiesGEV::IsEventDataSupported, 27, Since::EVER },
    { "pending", &CapabilitiesGEV::IsPendingSupported, 26, Since::V1_1 },
    { "action", &CapabilitiesGEV::IsActionSupported, 25, Since::V1_1 },
    { "scheduled action", &CapabilitiesGEV::IsScheduledActionSupported, 14, Since::V2_0 },
    { "codes 2.0", &CapabilitiesGEV::IsV2ExtendedStatusCodesSupported, 13, Since::V2_0 },
    { "time protocol", &CapabilitiesGEV::IsIEEE1588Supported, 12, Since::V2_0 },
    { "unconditional", &CapabilitiesGEV::IsUnconditionalActionSupported, 11, Since::V2_0 },
    { "switch over", &CapabilitiesGEV::IsApplicationSwitchOverSupported, 10, Since::V2_0 },
    { "codes 1.1", &CapabilitiesGEV::IsV1_1ExtendedCodesSupported, 9, Since::V1_1 },
    { "custom delay", &CapabilitiesGEV::IsCustomDiscoveryDelaySupported, 8, Since::V1_1 },
    { "delay register", &CapabilitiesGEV::IsDiscoveryDelayRegSupported, 7, Since::V1_1 },
    { "test data", &CapabilitiesGEV::IsTestDataSupported, 6, Since::V1_1 },
    { "manifest", &CapabilitiesGEV::IsManifestTableSupported, 5, Since::V1_1 },
    { "owner", &CapabilitiesGEV::IsCCPOwnerDiscoverySupported, 4, Since::V1_1 },
    { "link speed", &CapabilitiesGEV::IsLinkSpeedRegisterSupported, 3, Since::V1_1 },
    { "heartbeat", &CapabilitiesGEV::IsHeartbeatDisableSupported, 2, Since::V1_1 },
    { "serial number", &CapabilitiesGEV::IsSerialNumberSupported, 1, Since::V1_1 },
    { "user name", &CapabilitiesGEV::IsUserDefinedNameSupported, 0, Since::V1_1 },
};

bool Includes( const Version& aVersion, Since aSince )
{
    return aSince == Since::EVER || ( aSince == Since::V1_1 && aVersion.mIs1_1 ) ||
           ( aSince == Since::V2_0 && aVersion.mIs2_0 );
}

uint32_t GetMask( unsigned int aBit )
{
    return 0x80000000U >> aBit;
}

class CapabilitiesGEVQueries : public testing::Test
{
protected:
    void ExpectGvcp( const Record& aRecord, const Version& aVersion, uint32_t aRegister )
    {
        for ( const GvcpBit& lBit : GVCP_BITS )
        {
            EXPECT_EQ( ( aRegister & GetMask( lBit.mBit ) ) != 0 &&
                           Includes( aVersion, lBit.mSince ),
                       ( aRecord.*lBit.mQuery )() )
                << lBit.mName << ", version " << aVersion.mMajor << "." << aVersion.mMinor
                << ", register " << std::hex << aRegister;
        }
    }

    // A record of a device with these three capability registers and one channel of each kind.
    Record Read( const Version& aVersion, uint32_t aGvcp, uint32_t aMessage, uint32_t aStream )
    {
        mDevice.SetBasics( aVersion.mRegister, aGvcp, 1, 1 );
        mDevice.mTable.SetRegister( 0x0930, aMessage );
        mDevice.mTable.SetRegister( 0x092C, aStream );
        mDevice.mTable.SetRegister( 0x0B1C, 1 );
        mDevice.mTable.SetRegister( 0x0D1C, 1 );
        Record lRecord( MAC );
        EXPECT_TRUE( mDevice.Init( lRecord ).IsOK() );
        return lRecord;
    }

    ScriptedDevice mDevice;
};

} // namespace

TEST_F( CapabilitiesGEVQueries, ReturnTheVersion )
{
    for ( const Version& lVersion : VERSIONS )
    {
        const Record lRecord = Read( lVersion, 0, 0, 0 );
        EXPECT_EQ( lVersion.mMajor, lRecord.GetVersionMajor() );
        EXPECT_EQ( lVersion.mMinor, lRecord.GetVersionMinor() );
        EXPECT_EQ( lVersion.mIs1_1, lRecord.HasV1_1() ) << std::hex << lVersion.mRegister;
        EXPECT_EQ( lVersion.mIs1_2, lRecord.HasV1_2() ) << std::hex << lVersion.mRegister;
        EXPECT_EQ( lVersion.mIs2_0, lRecord.HasV2_0() ) << std::hex << lVersion.mRegister;
    }
}

TEST_F( CapabilitiesGEVQueries, ReturnEachBitOfGvcpCapabilityUnderEveryVersion )
{
    for ( const Version& lVersion : VERSIONS )
    {
        for ( unsigned int lBit = 0; lBit < 32; ++lBit )
        {
            ExpectGvcp( Read( lVersion, GetMask( lBit ), 0, 0 ), lVersion, GetMask( lBit ) );
            ExpectGvcp( Read( lVersion, ~GetMask( lBit ), 0, 0 ), lVersion, ~GetMask( lBit ) );
        }
        ExpectGvcp( Read( lVersion, 0, 0xFFFFFFFF, 0xFFFFFFFF ), lVersion, 0 );
        ExpectGvcp( Read( lVersion, 0xFFFFFFFF, 0, 0 ), lVersion, 0xFFFFFFFF );
    }
}

TEST_F( CapabilitiesGEVQueries, ReturnEachBitOfMessageChannelCapability )
{
    for ( const Version& lVersion : VERSIONS )
    {
        for ( unsigned int lBit = 0; lBit < 32; ++lBit )
        {
            const Record lRecord = Read( lVersion, 0, GetMask( lBit ), 0 );
            EXPECT_EQ( lVersion.mIs1_1 && lBit == 0, lRecord.IsMCSPSupported() ) << lBit;
            EXPECT_FALSE( lRecord.IsSCSPSupported() ) << lBit;
            EXPECT_EQ( lVersion.mMajor == 1, lRecord.IsLegacy16BitsBlockIdSupported() ) << lBit;
        }
    }
}

TEST_F( CapabilitiesGEVQueries, ReturnEachBitOfGvspCapability )
{
    for ( const Version& lVersion : VERSIONS )
    {
        for ( unsigned int lBit = 0; lBit < 32; ++lBit )
        {
            const Record lRecord = Read( lVersion, 0, 0, GetMask( lBit ) );
            EXPECT_FALSE( lRecord.IsMCSPSupported() ) << lBit;
            EXPECT_EQ( lVersion.mIs1_1 && lBit == 0, lRecord.IsSCSPSupported() ) << lBit;
            // A device before 1.1 is not asked for the register.
            EXPECT_EQ( lVersion.mMajor == 1 || ( lVersion.mIs2_0 && lBit == 1 ),
                       lRecord.IsLegacy16BitsBlockIdSupported() )
                << lBit << " " << std::hex << lVersion.mRegister;
        }
    }
}

TEST_F( CapabilitiesGEVQueries, WithoutAVersion1TheBitDecidesAboutLegacyBlockIdentifiers )
{
    // A first attempt reads the bit, a second one a version 0.9 and nothing more.
    mDevice.SetBasics( 0x00020000, 0, 1, 1 );
    mDevice.mTable.SetRegister( 0x092C, 0xC0000000 );
    mDevice.mTable.SetRegister( 0x0930, 0x80000000 );
    mDevice.mTable.SetRegister( 0x0B1C, 1 );
    mDevice.mTable.SetRegister( 0x0D1C, 1 );
    mDevice.mTable.Refuse( 0x0088, 0x8003 );
    Record lRecord( MAC );
    ASSERT_FALSE( mDevice.Init( lRecord ).IsOK() );
    ASSERT_TRUE( lRecord.IsMCSPSupported() );
    ASSERT_TRUE( lRecord.IsSCSPSupported() );
    mDevice.SetBasics( 0x00000009, 0, 1, 1 );
    mDevice.mTable.Refuse( 0x0004, 0x8003 );
    ASSERT_FALSE( mDevice.Init( lRecord ).IsOK() );
    EXPECT_EQ( 0U, lRecord.GetVersionMajor() );
    EXPECT_TRUE( lRecord.IsLegacy16BitsBlockIdSupported() );
    // Unlike the source ports, which ask the version beside the bit.
    EXPECT_FALSE( lRecord.IsMCSPSupported() );
    EXPECT_FALSE( lRecord.IsSCSPSupported() );
}

TEST_F( CapabilitiesGEVQueries, ReadNothingAndLogNothing )
{
    const Record lRecord = Read( VERSIONS[8], 0xFFFFFFFF, 0, 0 );
    mDevice.mTable.ClearReads();
    const size_t lSends = mDevice.mNetwork.GetSends().size();
    RecordingLogSink lLog;
    ExpectGvcp( lRecord, VERSIONS[8], 0xFFFFFFFF );
    (void)lRecord.GetStreamChannelSourcePort( 0 );
    (void)lRecord.GetMessageChannelSourcePort();
    (void)lRecord.IsLegacy16BitsBlockIdSupported();
    (void)lRecord.IsEndOfBlockResendRequestSupported();
    (void)lRecord.GetMaxReadMemSize();
    EXPECT_EQ( lSends, mDevice.mNetwork.GetSends().size() );
    EXPECT_THAT( lLog.GetEntries(), testing::IsEmpty() );
}

TEST_F( CapabilitiesGEVQueries, ReturnTheDevicesFiguresUnchanged )
{
    mDevice.SetBasics( 0x00010000, 0, 0xFFFFFFFF, 0x80000000 );
    Record lRecord( MAC );
    ASSERT_TRUE( mDevice.Init( lRecord ).IsOK() );
    EXPECT_EQ( 0xFFFFFFFFU, lRecord.GetStreamingChannelCount() );
    EXPECT_EQ( 0x80000000U, lRecord.GetMessagingChannelCount() );
}

TEST_F( CapabilitiesGEVQueries, MemorySizesFollowTheDeviceEngineAlone )
{
    TestSupport::MakeCorvaneTransmitter();
    Record lTransmitter( MAC );
    EXPECT_EQ( 512U, lTransmitter.GetMaxReadMemSize() );
    EXPECT_EQ( 512U, lTransmitter.GetMaxWriteMemSize() );
    TestSupport::MakeCorvaneDevice();
    Record lDevice( MAC );
    EXPECT_EQ( 536U, lDevice.GetMaxReadMemSize() );
    EXPECT_EQ( 536U, lDevice.GetMaxWriteMemSize() );
    mDevice.SetBasics( 0x00010000, 0, 0, 0 );
    ASSERT_TRUE( mDevice.Init( lTransmitter ).IsOK() );
    ASSERT_TRUE( mDevice.Init( lDevice ).IsOK() );
    EXPECT_EQ( 512U, lTransmitter.GetMaxReadMemSize() );
    EXPECT_EQ( 536U, lDevice.GetMaxReadMemSize() );
}

namespace
{

struct InfosRow
{
    const char* mManufacturerInfo;
    const char* mDeviceVersion;
    bool mIsSupported;
};

const InfosRow INFOS_ROWS[] = {
    // What is looked for: an early design with an old firmware.
    { "(00400000)", "(02.02.0015)", false },
    { "(00400000)", "(02.03.0000)", true },
    { "(00400000)", "(02.04.0000)", true },
    { "(00400000)", "(03.00.0000)", true },
    { "(00400000)", "(03.02.0000)", true },
    { "(00400000)", "(01.04.0000)", false },
    { "(00400000)", "(00.00.0000)", false },
    { "(004F0000)", "(01.09.0000)", false },
    { "(00500000)", "(02.02.0015)", true },
    { "(00510000)", "(02.02.0015)", true },
    { "(00FF0000)", "(01.00.0000)", true },
    { "(FF00FFFF)", "(02.02.0015)", false },
    { "(00004f00)", "(02.02)", false },

    // Numbers with a leading zero are octal: 08 and 09 end behind the zero.
    { "(00400000)", "(02.08.0000)", false },
    { "(00400000)", "(02.09.0000)", false },
    { "(00400000)", "(02.07.0000)", true },
    { "(00400000)", "(02.010)", false },
    { "(00400000)", "(02.10)", true },
    { "(00400000)", "(08.00.0000)", true },
    { "(00400000)", "(09.00.0000)", true },
    { "(00400000)", "(1.9)", false },
    { "(00400000)", "(2.2)", false },
    { "(00400000)", "(2.3)", true },
    { "(00400000)", "(8.0)", true },
    { "(00400000)", "(-1.9)", false },

    // What does not read as a version, or as an identification.
    { "(00400000)", "", true },
    { "(00400000)", "02.02", true },
    { "(00400000)", "(02.02", true },
    { "(00400000)", "02.02)", true },
    { "(00400000)", "()", true },
    { "(00400000)", "(02)", true },
    { "(00400000)", "(02,02)", true },
    { "(00400000)", "(02.)", true },
    { "(00400000)", "(.02)", true },
    { "(00400000)", "(x02.02)", true },
    { "(00400000)", "(001.02)", true },
    { "", "(02.02.0015)", true },
    { "00400000", "(02.02.0015)", true },
    { "(00400000", "(02.02.0015)", true },
    { "00400000)", "(02.02.0015)", true },
    { ")00400000(", "(02.02.0015)", true },
    { "()", "(02.02.0015)", true },
    { "(004000)", "(02.02.0015)", true },
    { "(00400)", "(02.02.0015)", true },
    { "(x0400000)", "(02.02.0015)", true },

    // Other texts that are still accepted.
    { "(0040000)", "(02.02.0015)", false },
    { "(00400000 and more)", "(02.02.0015)", false },
    { "(00 40 00 00)", "(02.02.0015)", false },
    { "(00-10000)", "(02.02.0015)", false },
    { "(00400000)", "(02.02 beta)", false },
    { "(00400000)", "( 2. 2)", false },

    // The last brackets count.
    { "(00400000)(x)", "(02.02.0015)", true },
    { "(x)(00400000)", "(02.02.0015)", false },
    { "x) (00400000)", "(02.02.0015)", false },
    { "((00400000)", "(02.02.0015)", false },
    { "(00400000))", "(02.02.0015)", false },
    { "(00400000) (", "(02.02.0015)", true },
    { ") (00400000", "(02.02.0015)", true },
    { "(00400000)", ") (02.02", true },
    { "Video engine (00400000) by hand", "Engine (02.02.0015) of spring", false },
    { "(00400000)", "(02.02)(02.03)", true },
    { "(00400000)", "(02.03)(02.02)", false },
    { "(00400000)", "(02.02)(", true },
};

} // namespace

class CapabilitiesGEVInfos : public CapabilitiesGEVQueries
{
protected:
    bool IsSupported( const std::string& aManufacturerInfo, const std::string& aDeviceVersion )
    {
        Record lRecord( MAC );
        EXPECT_FALSE( lRecord.IsEndOfBlockResendRequestSupported() );
        mDevice.SetBasics( 0x00010000, 0, 0, 0 );
        mDevice.mTable.SetText( 0x0088, 32, aDeviceVersion );
        mDevice.mTable.SetText( 0x00A8, 48, aManufacturerInfo );
        EXPECT_TRUE( mDevice.Init( lRecord ).IsOK() );
        return lRecord.IsEndOfBlockResendRequestSupported();
    }

    // The length of a field filled up on both sides.
    static std::string Pad( const std::string& aText, size_t aBefore, size_t aSize )
    {
        std::string lText = std::string( aBefore, '.' ) + aText;
        return lText + std::string( aSize - lText.size(), '.' );
    }
};

TEST_F( CapabilitiesGEVInfos, ReportWhetherTheMakersDeviceResendsToTheEndOfABlock )
{
    TestSupport::MakeCorvaneDevice();
    for ( const InfosRow& lRow : INFOS_ROWS )
    {
        EXPECT_EQ( lRow.mIsSupported, IsSupported( lRow.mManufacturerInfo, lRow.mDeviceVersion ) )
            << lRow.mManufacturerInfo << " " << lRow.mDeviceVersion;
    }
}

TEST_F( CapabilitiesGEVInfos, AreIgnoredForOtherDevices )
{
    TestSupport::MakeCorvaneTransmitter();
    for ( const InfosRow& lRow : INFOS_ROWS )
    {
        EXPECT_TRUE( IsSupported( lRow.mManufacturerInfo, lRow.mDeviceVersion ) )
            << lRow.mManufacturerInfo << " " << lRow.mDeviceVersion;
    }
}

TEST_F( CapabilitiesGEVInfos, AManufacturerInformationMustEndWithinItsField )
{
    TestSupport::MakeCorvaneDevice();
    const std::string lVersion = "(02.02)";
    EXPECT_FALSE( IsSupported( Pad( "(00400000)", 0, 47 ), lVersion ) ); // NUL in the last place
    EXPECT_FALSE( IsSupported( Pad( "(00400000)", 37, 47 ), lVersion ) );
    EXPECT_TRUE( IsSupported( Pad( "(00400000)", 0, 48 ), lVersion ) );
    EXPECT_TRUE( IsSupported( Pad( "(00400000)", 38, 48 ), lVersion ) );
}

TEST_F( CapabilitiesGEVInfos, BracketsBeyondTheEndAreIgnored )
{
    TestSupport::MakeCorvaneDevice();
    EXPECT_TRUE( IsSupported( std::string( "engine\0(00400000)", 17 ), "(02.02)" ) );
    EXPECT_FALSE( IsSupported( std::string( "(00400000)\0(x)", 14 ), "(02.02)" ) );
    EXPECT_TRUE( IsSupported( "(00400000)", std::string( "engine\0(02.02)", 14 ) ) );
    EXPECT_FALSE( IsSupported( "(00400000)", std::string( "(02.02)\0(02.03)", 15 ) ) );
}

TEST_F( CapabilitiesGEVInfos, AVersionThatFillsItsFieldRunsOnIntoTheManufacturerInformation )
{
    TestSupport::MakeCorvaneDevice();
    EXPECT_FALSE( IsSupported( "(00400000)", Pad( "(02.02)", 24, 31 ) ) );
    // Only brackets in the manufacturer information count; that text is not a version.
    EXPECT_TRUE( IsSupported( "(00400000)", Pad( "(02.02)", 0, 32 ) ) );
    // It ends beyond the 48 characters that are read.
    EXPECT_TRUE( IsSupported( Pad( "(00400000)", 0, 16 ), Pad( "(02.02)", 0, 32 ) ) );
}

TEST_F( CapabilitiesGEVInfos, ParsingLogsNothing )
{
    TestSupport::MakeCorvaneDevice();
    Record lRecord( MAC );
    RecordingLogSink lLog;
    lRecord.ParseInfos();
    EXPECT_TRUE( lRecord.IsEndOfBlockResendRequestSupported() );
    EXPECT_THAT( lLog.GetEntries(), testing::IsEmpty() );
}

class CapabilitiesGEVPorts : public CapabilitiesGEVQueries
{
protected:
    CapabilitiesGEVPorts()
        : mLink( &mDevice.mSocket )
    {
    }

    // A device of version 1.1 with that many stream channels; SCSP of channel i is 40000 + 7 i.
    void Publish( uint32_t aStreams )
    {
        mDevice.SetBasics( 0x00010001, 0, aStreams, 0 );
        mDevice.mTable.SetRegister( 0x092C, 0x80000000 );
        for ( uint32_t lChannel = 0; lChannel < 600; ++lChannel )
        {
            mDevice.mTable.SetRegister( 0x0D1C + 0x40 * lChannel, 40000 + 7 * lChannel );
        }
    }

    SimpleCommandLinkGEV mLink;
};

TEST_F( CapabilitiesGEVPorts, OfTheMakersDevicesAreFixedBeforeInit )
{
    TestSupport::MakeCorvaneDevice();
    const Record lRecord( MAC );
    EXPECT_EQ( 4U, lRecord.GetMessageChannelSourcePort() );
    EXPECT_EQ( 20202U, lRecord.GetStreamChannelSourcePort( 0 ) );
    EXPECT_EQ( 20713U, lRecord.GetStreamChannelSourcePort( 511 ) );
    EXPECT_EQ( 20714U, lRecord.GetStreamChannelSourcePort( 512 ) );
    EXPECT_EQ( 85737U, lRecord.GetStreamChannelSourcePort( 65535 ) );
}

TEST_F( CapabilitiesGEVPorts, OfTheMakersDevicesWithoutRegistersStayFixed )
{
    TestSupport::MakeCorvaneDevice();
    Record lRecord( MAC );
    mDevice.SetBasics( 0x00010000, 0, 2, 0 );
    ASSERT_TRUE( mDevice.Init( lRecord ).IsOK() );
    EXPECT_EQ( 4U, lRecord.GetMessageChannelSourcePort() );
    EXPECT_EQ( 20202U, lRecord.GetStreamChannelSourcePort( 0 ) );
    EXPECT_EQ( 20203U, lRecord.GetStreamChannelSourcePort( 1 ) );
    // Channels that the device does not count have none.
    EXPECT_EQ( 0U, lRecord.GetStreamChannelSourcePort( 2 ) );
    EXPECT_EQ( 0U, lRecord.GetStreamChannelSourcePort( 65535 ) );
}

TEST_F( CapabilitiesGEVPorts, OfTheMakersDevicesAreFixedAgainAfterAFailedInit )
{
    TestSupport::MakeCorvaneDevice();
    Record lRecord( MAC );
    Publish( 2 );
    mDevice.mTable.SetRegister( 0x0900, 1 );
    mDevice.mTable.SetRegister( 0x0930, 0x80000000 );
    mDevice.mTable.SetRegister( 0x0B1C, 9999 );
    mDevice.mTable.Refuse( 0x00A8, 0x8003 );
    ASSERT_FALSE( mDevice.Init( lRecord ).IsOK() );
    EXPECT_EQ( 4U, lRecord.GetMessageChannelSourcePort() );
    EXPECT_EQ( 20202U, lRecord.GetStreamChannelSourcePort( 0 ) );
    EXPECT_EQ( 20204U, lRecord.GetStreamChannelSourcePort( 2 ) );
    mDevice.mTable.Relent();
    ASSERT_TRUE( mDevice.Init( lRecord ).IsOK() );
    EXPECT_EQ( 9999U, lRecord.GetMessageChannelSourcePort() );
    EXPECT_EQ( 40000U, lRecord.GetStreamChannelSourcePort( 0 ) );
    EXPECT_EQ( 0U, lRecord.GetStreamChannelSourcePort( 2 ) );
}

TEST_F( CapabilitiesGEVPorts, OfTransmittersAreNotFixed )
{
    TestSupport::MakeCorvaneTransmitter();
    Record lRecord( MAC );
    EXPECT_EQ( 0U, lRecord.GetStreamChannelSourcePort( 0 ) );
    mDevice.SetBasics( 0x00010000, 0, 2, 0 );
    ASSERT_TRUE( mDevice.Init( lRecord ).IsOK() );
    EXPECT_EQ( 0U, lRecord.GetStreamChannelSourcePort( 0 ) );
    EXPECT_EQ( 0U, lRecord.GetMessageChannelSourcePort() );
}

TEST_F( CapabilitiesGEVPorts, OfOtherDevicesAreZeroUnlessPublished )
{
    const unsigned short CHANNELS[] = { 0, 1, 511, 512, 513, 65535 };
    Record lRecord( MAC );
    for ( const bool lIsInitialized : { false, true } )
    {
        EXPECT_EQ( lIsInitialized, lRecord.IsInitialized() );
        for ( const unsigned short lChannel : CHANNELS )
        {
            EXPECT_EQ( 0U, lRecord.GetStreamChannelSourcePort( lChannel ) );
        }
        mDevice.SetBasics( 0x00020000, 0, 512, 0 );
        mDevice.mTable.SetRegister( 0x092C, 0x7FFFFFFF );
        ASSERT_TRUE( mDevice.Init( lRecord ).IsOK() );
    }
}

TEST_F( CapabilitiesGEVPorts, AreReadFromTheRegistersOfEachChannel )
{
    Publish( 4 );
    Record lRecord( MAC );
    ASSERT_TRUE( mDevice.Init( lRecord ).IsOK() );
    mDevice.mTable.ClearReads();
    EXPECT_TRUE( lRecord.ReadSCSPs( &mLink ).IsOK() );
    EXPECT_THAT( mDevice.mTable.GetReadTexts(),
                 testing::ElementsAre( "0x0D1C", "0x0D5C", "0x0D9C", "0x0DDC" ) );
    for ( unsigned short lChannel = 0; lChannel < 4; ++lChannel )
    {
        EXPECT_EQ( 40000U + 7U * lChannel, lRecord.GetStreamChannelSourcePort( lChannel ) );
    }
    EXPECT_EQ( 0U, lRecord.GetStreamChannelSourcePort( 4 ) );
}

TEST_F( CapabilitiesGEVPorts, CanBeReadAgain )
{
    Publish( 2 );
    Record lRecord( MAC );
    ASSERT_TRUE( mDevice.Init( lRecord ).IsOK() );
    mDevice.mTable.SetRegister( 0x0D1C, 0xFFFFFFFF );
    RecordingLogSink lLog;
    EXPECT_TRUE( lRecord.ReadSCSPs( &mLink ).IsOK() );
    EXPECT_TRUE( lRecord.ReadSCSPs( &mLink ).IsOK() );
    EXPECT_THAT(
        lLog.GetTexts(),
        testing::ElementsAre( "Streaming channel source port: 40000", "SCSP(0) read on device: -1",
                              "SCSP(1) read on device: 40007", "Streaming channel source port: -1",
                              "SCSP(0) read on device: -1", "SCSP(1) read on device: 40007" ) );
    for ( const RecordingLogSink::Entry& lEntry : lLog.GetEntries() )
    {
        EXPECT_EQ( 20000, lEntry.mPriority );
        EXPECT_EQ( "HtBaseLib::CapabilitiesGEV::ReadSCSPs", lEntry.mFunction );
    }
    EXPECT_EQ( 0xFFFFFFFFU, lRecord.GetStreamChannelSourcePort( 0 ) );
}

TEST_F( CapabilitiesGEVPorts, EndAtTheFirstThatCannotBeRead )
{
    for ( const bool lIsTheMakers : { false, true } )
    {
        WdUtilsLib::Network::DeviceIdentity::Clear();
        if ( lIsTheMakers )
        {
            TestSupport::MakeCorvaneDevice();
        }
        Record lRecord( MAC );
        mDevice.mTable.Relent();
        Publish( 4 );
        ASSERT_TRUE( mDevice.Init( lRecord ).IsOK() );
        mDevice.mTable.Refuse( 0x0D9C, 0x8007 );
        mDevice.mTable.ClearReads();

        RecordingLogSink lLog;
        const Result lResult = lRecord.ReadSCSPs( &mLink );
        EXPECT_EQ( Result::GENERIC_ERROR, lResult.GetCode() );
        unsigned int lValue = 0;
        EXPECT_EQ( lResult.GetDescription(),
                   mLink.ReadRegister( &lValue, 0x0D9C ).GetDescription() );
        EXPECT_THAT( lLog.GetTexts(), testing::ElementsAre( "Streaming channel source port: 40000",
                                                            "SCSP(0) read on device: 40000",
                                                            "SCSP(1) read on device: 40007" ) );
        EXPECT_EQ( 40000U, lRecord.GetStreamChannelSourcePort( 0 ) );
        EXPECT_EQ( 40007U, lRecord.GetStreamChannelSourcePort( 1 ) );
        EXPECT_EQ( 0U, lRecord.GetStreamChannelSourcePort( 2 ) );
        EXPECT_EQ( 0U, lRecord.GetStreamChannelSourcePort( 3 ) );
    }
}

TEST_F( CapabilitiesGEVPorts, OfAFreshRecordAreZeroAndCauseNoTraffic )
{
    RecordingLogSink lLog;
    Record lRecord( MAC );
    EXPECT_TRUE( lRecord.ReadSCSPs( &mLink ).IsOK() );
    TestSupport::MakeCorvaneDevice();
    Record lDevice( MAC ); // counts no channel yet
    EXPECT_TRUE( lDevice.ReadSCSPs( &mLink ).IsOK() );
    EXPECT_THAT( lLog.GetTexts(), testing::ElementsAre( "Streaming channel source port: 0",
                                                        "Streaming channel source port: 0" ) );
    EXPECT_THAT( mDevice.mNetwork.GetSends(), testing::IsEmpty() );
}

TEST_F( CapabilitiesGEVPorts, AreReadOf512ChannelsAtMost )
{
    for ( const uint32_t lCount : { 511U, 512U, 513U, 600U } )
    {
        Publish( lCount );
        Record lRecord( MAC );
        ASSERT_TRUE( mDevice.Init( lRecord ).IsOK() );
        EXPECT_EQ( lCount, lRecord.GetStreamingChannelCount() );
        mDevice.mTable.ClearReads();
        EXPECT_TRUE( lRecord.ReadSCSPs( &mLink ).IsOK() );
        EXPECT_EQ( std::min( lCount, 512U ), mDevice.mTable.GetReads().size() );
        EXPECT_EQ( 40000U + 7 * 510, lRecord.GetStreamChannelSourcePort( 510 ) );
        EXPECT_EQ( lCount > 511 ? 40000U + 7 * 511 : 0, lRecord.GetStreamChannelSourcePort( 511 ) );
        EXPECT_EQ( 0U, lRecord.GetStreamChannelSourcePort( 512 ) );
    }
}

TEST_F( CapabilitiesGEVPorts, AreFixedFor512ChannelsAtMost )
{
    TestSupport::MakeCorvaneDevice();
    mDevice.SetBasics( 0x00010000, 0, 0xFFFFFFFF, 0 );
    Record lRecord( MAC );
    RecordingLogSink lLog;
    ASSERT_TRUE( mDevice.Init( lRecord ).IsOK() );
    EXPECT_EQ( 0xFFFFFFFFU, lRecord.GetStreamingChannelCount() );
    EXPECT_EQ( 20713U, lRecord.GetStreamChannelSourcePort( 511 ) );
    EXPECT_EQ( 0U, lRecord.GetStreamChannelSourcePort( 512 ) );
    EXPECT_THAT( lLog.GetTexts(), testing::Contains( "SCSP(511) for Corvane device: 20713" ) );
    EXPECT_THAT( lLog.GetTexts(), testing::Contains( "Streaming channels: -1" ) );
    EXPECT_TRUE( lRecord.IsEndOfBlockResendRequestSupported() ); // stored after the ports
    EXPECT_EQ( 0U, lRecord.GetDeviceClass() );
}
