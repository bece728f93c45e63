// The records that the process shares.

#include "tests/support/AllocationCounter.h"
#include "tests/support/ScriptedDevice.h"

#include <QmUtilsLib/Scripted/RecordingLogSink.h>

#include <gmock/gmock.h>

#include <cerrno>
#include <set>

namespace
{

using HtBaseLib::CapabilitiesGEV;
using QmUtilsLib::Scripted::RecordingLogSink;
using TestSupport::MAC;
using TestSupport::ScriptedDevice;
using WdUtilsLib::Network::EthernetAddress;

class CapabilitiesGEVRegistry : public testing::Test
{
protected:
    CapabilitiesGEVRegistry() { mDevice.SetBasics( 0x00010002, 0, 0, 0 ); }
    ~CapabilitiesGEVRegistry() override { CapabilitiesGEV::Destroy(); }

    ScriptedDevice mDevice;
};

} // namespace

TEST_F( CapabilitiesGEVRegistry, GivesOneRecordPerAddress )
{
    const EthernetAddress::Bytes lBytes = MAC.GetBytes();
    std::set<CapabilitiesGEV*> lRecords = { CapabilitiesGEV::GetCapabilities( MAC ) };
    for ( size_t lIndex = 0; lIndex < lBytes.size(); ++lIndex )
    {
        for ( unsigned int lBit = 0; lBit < 8; ++lBit )
        {
            EthernetAddress::Bytes lOther = lBytes;
            lOther[lIndex] = static_cast<uint8_t>( lOther[lIndex] ^ ( 1U << lBit ) );
            CapabilitiesGEV* const lRecord =
                CapabilitiesGEV::GetCapabilities( EthernetAddress( lOther ) );
            EXPECT_TRUE( lRecords.insert( lRecord ).second ) << lIndex << " " << lBit;
            EXPECT_EQ( lRecord, CapabilitiesGEV::GetCapabilities( EthernetAddress( lOther ) ) );
        }
    }
    EXPECT_EQ( 0U, lRecords.count( nullptr ) );
    EXPECT_EQ( 1U, lRecords.count( CapabilitiesGEV::GetCapabilities( MAC ) ) );
    EXPECT_EQ( 49U, lRecords.size() );
}

// Without memory for a record none is returned, and the other records stay.
TEST_F( CapabilitiesGEVRegistry, ReturnsNothingWithoutMemory )
{
    CapabilitiesGEV* const lOther = CapabilitiesGEV::GetCapabilities( EthernetAddress( 1, 2 ) );
    unsigned int lNumber = 0;
    for ( bool lHasFailed = true; lHasFailed; )
    {
        CapabilitiesGEV* lRecord = nullptr;
        {
            const TestSupport::AllocationFailure lFailure( ++lNumber );
            lRecord = CapabilitiesGEV::GetCapabilities( MAC );
            lHasFailed = lFailure.HasHappened();
        }
        EXPECT_EQ( lRecord == nullptr, lHasFailed ) << lNumber;
        EXPECT_EQ( CapabilitiesGEV::GetCapabilities( EthernetAddress( 1, 2 ) ), lOther );
    }
    EXPECT_GT( lNumber, 3U ); // the record, what it shares with its copies, its place
}

TEST_F( CapabilitiesGEVRegistry, ARecordReportsMissingMemoryForItsLink )
{
    HtBaseLib::CapabilitiesGEV lRecord( MAC );
    unsigned int lNumber = 0;
    for ( bool lHasFailed = true; lHasFailed; )
    {
        QmUtilsLib::Result lResult;
        {
            const TestSupport::AllocationFailure lFailure( ++lNumber );
            lResult = lRecord.Init( static_cast<WdUtilsLib::Network::SocketUDP*>( nullptr ) );
            lHasFailed = lFailure.HasHappened();
        }
        EXPECT_EQ( lResult.GetCode(), lHasFailed ? 0x4000U : 0x0017U );
        EXPECT_EQ( lResult.GetOSCode(), lHasFailed ? static_cast<unsigned int>( ENOMEM ) : 0U );
    }
    EXPECT_GT( lNumber, 3U );
    EXPECT_TRUE( mDevice.Init( lRecord ).IsOK() );
}

TEST_F( CapabilitiesGEVRegistry, ReadsNothingAndLogsNothing )
{
    RecordingLogSink lLog;
    EXPECT_FALSE( CapabilitiesGEV::GetCapabilities( MAC )->IsInitialized() );
    CapabilitiesGEV::Destroy();
    EXPECT_THAT( mDevice.mNetwork.GetSends(), testing::IsEmpty() );
    EXPECT_THAT( lLog.GetEntries(), testing::IsEmpty() );
}

TEST_F( CapabilitiesGEVRegistry, MakesTheRecordForItsAddress )
{
    TestSupport::MakeCorvaneDevice();
    CapabilitiesGEV* const lRecord = CapabilitiesGEV::GetCapabilities( MAC );
    EXPECT_TRUE( lRecord->IsCorvaneDevice() );
    EXPECT_FALSE( CapabilitiesGEV::GetCapabilities( EthernetAddress( 1, 2 ) )->IsCorvaneDevice() );
    RecordingLogSink lLog;
    ASSERT_TRUE( mDevice.Init( *lRecord ).IsOK() );
    EXPECT_EQ( "Reading device properties (02:00:5E:10:00:01)", lLog.GetTexts().front() );
}

TEST_F( CapabilitiesGEVRegistry, KeepsARecordAsItIs )
{
    CapabilitiesGEV* const lRecord = CapabilitiesGEV::GetCapabilities( MAC );
    mDevice.mTable.Refuse( 0x0088, 0x8003 );
    ASSERT_FALSE( mDevice.Init( *lRecord ).IsOK() );
    ASSERT_EQ( lRecord, CapabilitiesGEV::GetCapabilities( MAC ) );
    EXPECT_FALSE( lRecord->IsInitialized() );
    EXPECT_EQ( 2U, lRecord->GetVersionMinor() );

    mDevice.mTable.Relent();
    ASSERT_TRUE( mDevice.Init( *CapabilitiesGEV::GetCapabilities( MAC ) ).IsOK() );
    mDevice.SetBasics( 0x00020000, 0, 0, 0 );
    ASSERT_TRUE( mDevice.Init( *CapabilitiesGEV::GetCapabilities( MAC ) ).IsOK() );
    EXPECT_EQ( 1U, CapabilitiesGEV::GetCapabilities( MAC )->GetVersionMajor() );
}

TEST_F( CapabilitiesGEVRegistry, GivesNewRecordsAfterDestroy )
{
    CapabilitiesGEV::Destroy(); // nothing is there yet
    ASSERT_TRUE( mDevice.Init( *CapabilitiesGEV::GetCapabilities( MAC ) ).IsOK() );
    ASSERT_TRUE( CapabilitiesGEV::GetCapabilities( MAC )->IsInitialized() );
    CapabilitiesGEV::Destroy();
    CapabilitiesGEV::Destroy(); // nothing is there any more
    EXPECT_FALSE( CapabilitiesGEV::GetCapabilities( MAC )->IsInitialized() );
    EXPECT_EQ( 0U, CapabilitiesGEV::GetCapabilities( MAC )->GetVersionMajor() );
    CapabilitiesGEV::Destroy();
}

TEST_F( CapabilitiesGEVRegistry, DoesNotContainRecordsCreatedElsewhere )
{
    CapabilitiesGEV lOwn( MAC );
    CapabilitiesGEV* const lShared = CapabilitiesGEV::GetCapabilities( MAC );
    EXPECT_NE( &lOwn, lShared );
    ASSERT_TRUE( mDevice.Init( lOwn ).IsOK() );
    EXPECT_FALSE( lShared->IsInitialized() );

    const CapabilitiesGEV lCopy( *lShared );
    EXPECT_EQ( lShared, CapabilitiesGEV::GetCapabilities( MAC ) );
    CapabilitiesGEV::Destroy();
    EXPECT_TRUE( lOwn.IsInitialized() );
    EXPECT_EQ( 0U, lCopy.GetVersionMajor() );
}

TEST_F( CapabilitiesGEVRegistry, ACopyOutlivesTheSharedRecord )
{
    CapabilitiesGEV lCopy( *CapabilitiesGEV::GetCapabilities( MAC ) );
    CapabilitiesGEV::Destroy();
    EXPECT_TRUE( mDevice.Init( lCopy ).IsOK() );
}
