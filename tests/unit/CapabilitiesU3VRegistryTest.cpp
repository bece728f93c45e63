// The records of USB3 Vision devices that the process shares.

#include "tests/support/AllocationCounter.h"
#include "tests/support/ScriptedControlTest.h"

#include <CapabilitiesGEV.h>
#include <CapabilitiesU3V.h>

#include <gmock/gmock.h>

#include <set>
#include <string>

namespace
{

using namespace TestSupport;
using HtBaseLib::CapabilitiesGEV;
using HtBaseLib::CapabilitiesU3V;
using WdUtilsLib::Network::EthernetAddress;
using WdUtilsLib::U3V::U3VGUID;

class CapabilitiesU3VRegistry : public ScriptedControlTest
{
protected:
    CapabilitiesU3VRegistry()
    {
        mControl.Attach( [this]( const Bytes& aCommand ) { return mDevice.Answer( aCommand ); } );
        mDevice.SetBasics( 0x1000, 512, 512 );
        Open();
    }
    ~CapabilitiesU3VRegistry() override { CapabilitiesGEV::Destroy(); }

    CapabilitiesU3V* Get() const { return CapabilitiesU3V::GetCapabilities( GUID, nullptr ); }
};

} // namespace

// Without memory for a record none is returned, and the other records stay.
TEST_F( CapabilitiesU3VRegistry, ReturnsNothingWithoutMemory )
{
    CapabilitiesU3V* const lOther = CapabilitiesU3V::GetCapabilities( U3VGUID(), nullptr );
    unsigned int lNumber = 0;
    for ( bool lHasFailed = true; lHasFailed; )
    {
        CapabilitiesU3V* lRecord = nullptr;
        {
            const TestSupport::AllocationFailure lFailure( ++lNumber );
            lRecord = Get();
            lHasFailed = lFailure.HasHappened();
        }
        EXPECT_EQ( lRecord == nullptr, lHasFailed ) << lNumber;
        EXPECT_EQ( CapabilitiesU3V::GetCapabilities( U3VGUID(), nullptr ), lOther );
    }
    EXPECT_GT( lNumber, 3U ); // the record, what it shares with its copies, its place
}

TEST_F( CapabilitiesU3VRegistry, GivesOneRecordPerIdentity )
{
    std::set<CapabilitiesU3V*> lRecords = { Get() };
    const std::string lText = GUID.Get();
    for ( std::size_t lIndex = 0; lIndex < lText.size(); ++lIndex )
    {
        std::string lOther = lText;
        lOther[lIndex] = lOther[lIndex] == '7' ? '8' : '7';
        const U3VGUID lGUID( lOther.c_str() );
        ASSERT_FALSE( lGUID.IsEmpty() );
        CapabilitiesU3V* const lRecord = CapabilitiesU3V::GetCapabilities( lGUID, nullptr );
        EXPECT_TRUE( lRecords.insert( lRecord ).second ) << lOther;
        EXPECT_EQ( CapabilitiesU3V::GetCapabilities( U3VGUID( lOther.c_str() ), nullptr ),
                   lRecord );
    }
    // Upper and lower case are two devices, and no identity is one.
    lRecords.insert( CapabilitiesU3V::GetCapabilities( U3VGUID( "1AB200c0ffee" ), nullptr ) );
    lRecords.insert( CapabilitiesU3V::GetCapabilities( U3VGUID(), nullptr ) );
    EXPECT_EQ( lRecords.size(), 15U );
    EXPECT_EQ( lRecords.count( nullptr ), 0U );
    EXPECT_EQ( lRecords.count( Get() ), 1U );
}

TEST_F( CapabilitiesU3VRegistry, ReadsNothingAndLogsNothing )
{
    EXPECT_FALSE( Get()->IsInitialized() );
    unsigned char lByte = 0xA5;
    EXPECT_EQ( CapabilitiesU3V::GetCapabilities( GUID, &lByte ), Get() );
    EXPECT_EQ( lByte, 0xA5 );
    CapabilitiesU3V::Destroy();
    EXPECT_EQ( GetCallCount(), 0U );
    ExpectLog( {} );
}

TEST_F( CapabilitiesU3VRegistry, MakesTheRecordForItsIdentity )
{
    ASSERT_TRUE( Get()->Init( &mLink ).IsOK() );
    EXPECT_EQ( mLog.GetTexts().front(), "Reading device properties (1AB200C0FFEE)" );
}

TEST_F( CapabilitiesU3VRegistry, KeepsARecordAsItIs )
{
    CapabilitiesU3V* const lRecord = Get();
    mDevice.Refuse( 0x1018, 0x8003 );
    ASSERT_FALSE( lRecord->Init( &mLink ).IsOK() );
    ASSERT_EQ( Get(), lRecord );
    EXPECT_FALSE( lRecord->IsInitialized() );
    EXPECT_EQ( lRecord->GetGenCPVersion(), 0x00010002U );

    mDevice.Relent();
    ASSERT_TRUE( Get()->Init( &mLink ).IsOK() );
    mDevice.SetBasics( 0x1000, 700, 700 );
    ASSERT_TRUE( Get()->Init( &mLink ).IsOK() );
    EXPECT_EQ( Get()->GetMaxAckTransferLength(), 512U );
}

TEST_F( CapabilitiesU3VRegistry, GivesNewRecordsAfterDestroy )
{
    CapabilitiesU3V::Destroy(); // nothing is there yet
    ASSERT_TRUE( Get()->Init( &mLink ).IsOK() );
    ASSERT_TRUE( Get()->IsInitialized() );
    CapabilitiesU3V::Destroy();
    CapabilitiesU3V::Destroy(); // nothing is there any more
    EXPECT_FALSE( Get()->IsInitialized() );
    EXPECT_EQ( Get()->GetGenCPVersion(), 0U );
    CapabilitiesU3V::Destroy();
}

TEST_F( CapabilitiesU3VRegistry, DoesNotContainRecordsCreatedElsewhere )
{
    CapabilitiesU3V lOwn( GUID, nullptr );
    EXPECT_NE( &lOwn, Get() );
    ASSERT_TRUE( lOwn.Init( &mLink ).IsOK() );
    EXPECT_FALSE( Get()->IsInitialized() );

    const CapabilitiesU3V lCopy( *Get() );
    CapabilitiesU3V::Destroy();
    EXPECT_TRUE( lOwn.IsInitialized() );
    EXPECT_EQ( lCopy.GetGenCPVersion(), 0U );
}

TEST_F( CapabilitiesU3VRegistry, ACopyOutlivesTheSharedRecord )
{
    CapabilitiesU3V lCopy( *Get() );
    CapabilitiesU3V::Destroy();
    EXPECT_TRUE( lCopy.Init( &mLink ).IsOK() );
}

TEST_F( CapabilitiesU3VRegistry, IsSeparateFromThatOfGigEVision )
{
    const EthernetAddress lAddress( 0x0200, 0x5E100001 );
    CapabilitiesGEV* const lGEV = CapabilitiesGEV::GetCapabilities( lAddress );
    CapabilitiesU3V* const lU3V = Get();
    ASSERT_TRUE( lU3V->Init( &mLink ).IsOK() );
    CapabilitiesGEV::Destroy();
    EXPECT_EQ( Get(), lU3V );
    EXPECT_TRUE( lU3V->IsInitialized() );

    CapabilitiesGEV* const lNew = CapabilitiesGEV::GetCapabilities( lAddress );
    (void)lGEV; // deleted
    CapabilitiesU3V::Destroy();
    EXPECT_EQ( CapabilitiesGEV::GetCapabilities( lAddress ), lNew );
    EXPECT_FALSE( Get()->IsInitialized() );
}

// A destroyed link was only borrowed.
TEST_F( CapabilitiesU3VRegistry, DoesNotNeedTheLinkAfterwards )
{
    {
        TestLinkU3V lShort;
        Open( lShort );
        ASSERT_TRUE( Get()->Init( &lShort ).IsOK() );
    }
    EXPECT_TRUE( Get()->Init( nullptr ).IsOK() );
    EXPECT_EQ( Get()->GetMaxCommandTransferLength(), 512U );
}
