// Fitting a USB3 Vision link to its device.

#include "tests/support/ScriptedControlTest.h"
#include "tests/support/TemporaryDirectory.h"

#include <CapabilitiesU3V.h>
#include <QmUtilsLib/Assert.h>

#include <gtest/gtest.h>

#include <string>

namespace
{

using namespace TestSupport;
using HtBaseLib::CapabilitiesU3V;
using QmUtilsLib::Scripted::RecordingLogSink;
using WdUtilsLib::U3V::U3VGUID;

constexpr uint64_t SBRM = 0x1000000;

int gAssertions = 0;

class LinkSizingU3VTest : public ScriptedControlTest
{
protected:
    LinkSizingU3VTest()
    {
        mControl.Attach( [this]( const Bytes& aCommand ) { return mDevice.Answer( aCommand ); } );
        mDevice.SetBasics( SBRM, 512, 512 );
        Open();
    }

    void ExpectLimits( unsigned int aMaxCommand, unsigned int aMaxAck ) const
    {
        EXPECT_EQ( mLink.GetMaxCommandSize(), aMaxCommand );
        EXPECT_EQ( mLink.GetMaxAckSize(), aMaxAck );
    }

    void ExpectConfiguration( uint32_t aTime, uint32_t aMaxCommand, uint32_t aMaxAck ) const
    {
        ASSERT_EQ( mControl.GetConfigurations().size(), 1U );
        const auto& lConfiguration = mControl.GetConfigurations().back();
        EXPECT_EQ( lConfiguration.mMaxDeviceResponseTime, aTime );
        EXPECT_EQ( lConfiguration.mMaxCommandTransferLength, aMaxCommand );
        EXPECT_EQ( lConfiguration.mMaxAckTransferLength, aMaxAck );
    }

    // What was logged beyond the details of the record.
    Log GetWarnings() const
    {
        Log lLines;
        for ( const RecordingLogSink::Entry& lEntry : mLog.GetEntries() )
        {
            if ( lEntry.mPriority > 20000 )
            {
                lLines.push_back( MakeLogLine( lEntry.mLogger, lEntry.mPriority, lEntry.mUnit,
                                               lEntry.mFunction, lEntry.mFormat, lEntry.mText ) );
            }
        }
        return lLines;
    }

    static std::string Warning( const std::string& aText )
    {
        return MakeLogLine( TestLinkU3V::LIB_LOGGER, 30000, "Libraries/HtBase/BaseCommandLinkU3V",
                            "HtBaseLib::BaseCommandLinkU3V::UpdateMaxSizes", aText, aText );
    }

    const std::string COMMAND_WARNING =
        Warning( "Internal command link buffers smaller than allowed command size." );
    const std::string ACK_WARNING =
        Warning( "Internal command link buffers smaller than allowed acknowledge size." );
};

TEST_F( LinkSizingU3VTest, AdoptsLimitsThatFitTheBuffers )
{
    mDevice.SetBasics( SBRM, 512, 300 );
    mLink.UpdateMaxSizes();
    ExpectLimits( 512, 300 );
    ExpectConfiguration( 250, 512, 300 );
    EXPECT_EQ( GetWarnings(), Log{} );
    EXPECT_EQ( mLink.GetDCI()->GetDCIConfiguration().mMaxAckTransferLength, 300U );
}

TEST_F( LinkSizingU3VTest, DoesNotWarnAboutLimitsEqualToTheBuffers )
{
    mDevice.SetBasics( SBRM, 1024, 1024 );
    mLink.UpdateMaxSizes();
    ExpectLimits( 1024, 1024 );
    ExpectConfiguration( 250, 1024, 1024 );
    EXPECT_EQ( GetWarnings(), Log{} );
}

TEST_F( LinkSizingU3VTest, IsLimitedByItsBuffersAndPassesOnTheDevicesFigures )
{
    mDevice.SetBasics( SBRM, 2048, 1025 );
    mDevice.Set4( 0x01CC, 0xFFFFFFFE );
    mLink.UpdateMaxSizes();
    ExpectLimits( 1024, 1024 );
    ExpectConfiguration( 0xFFFFFFFE, 2048, 1025 );
    EXPECT_EQ( GetWarnings(), ( Log{ COMMAND_WARNING, ACK_WARNING } ) );
}

TEST_F( LinkSizingU3VTest, WarnsOfCommandsOnly )
{
    mDevice.SetBasics( SBRM, 1025, 1024 );
    mLink.UpdateMaxSizes();
    ExpectLimits( 1024, 1024 );
    EXPECT_EQ( GetWarnings(), Log{ COMMAND_WARNING } );
}

TEST_F( LinkSizingU3VTest, WarnsOfAcknowledgesOnly )
{
    mDevice.SetBasics( SBRM, 64, 0xFFFFFFFF );
    mLink.UpdateMaxSizes();
    ExpectLimits( 64, 1024 );
    ExpectConfiguration( 250, 64, 0xFFFFFFFF );
    EXPECT_EQ( GetWarnings(), Log{ ACK_WARNING } );
}

TEST_F( LinkSizingU3VTest, TreatsZeroAsNoLimit )
{
    mDevice.SetBasics( SBRM, 0, 0 );
    mLink.UpdateMaxSizes();
    ExpectLimits( 0, 0 );
    ExpectConfiguration( 250, 0, 0 );
    EXPECT_EQ( GetWarnings(), Log{} );
}

TEST_F( LinkSizingU3VTest, ChangesNothingWithoutTheRecord )
{
    mDevice.SetBasics( SBRM, 2048, 2048 );
    mDevice.Refuse( SBRM + 0x1C, 0x8003 ); // behind the two lengths
    mLink.UpdateMaxSizes();
    ExpectLimits( 64, 64 );
    EXPECT_TRUE( mControl.GetConfigurations().empty() );
    EXPECT_EQ( GetWarnings(),
               Log{ StatusLine( "Status GENCP_INVALID_ADDRESS received from the device." ) } );
    EXPECT_FALSE( CapabilitiesU3V::GetCapabilities( GUID, nullptr )->IsInitialized() );

    mDevice.Relent();
    mLink.UpdateMaxSizes();
    ExpectLimits( 1024, 1024 );
}

TEST_F( LinkSizingU3VTest, KeepsEarlierLimitsWithoutTheRecord )
{
    mLink.UpdateMaxSizes();
    ExpectLimits( 512, 512 );
    const U3VGUID lOther( "1AB2DEADBEEF" );
    ASSERT_TRUE( mLink.Open( lOther, "4-2" ).IsOK() );
    mDevice.Silence( 0x0000 );
    mLink.UpdateMaxSizes();
    ExpectLimits( 512, 512 );
    EXPECT_EQ( mControl.GetConfigurations().size(), 1U );
}

TEST_F( LinkSizingU3VTest, ReadsThroughTheLinkItSizes )
{
    mLink.UpdateMaxSizes();
    EXPECT_EQ( mLink.mReads.size(), mDevice.GetReads().size() );
    EXPECT_EQ( mDevice.GetReads().size(), 10U );
    for ( const auto& lCall : mControl.GetCalls() )
    {
        ASSERT_EQ( lCall.size(), 1U );
        EXPECT_EQ( lCall[0].mBytes.size(), 24U );
        EXPECT_LE( lCall[0].mCapacity, 20U );
    }
}

TEST_F( LinkSizingU3VTest, ReadsNothingIfTheDeviceWasReadBefore )
{
    CapabilitiesU3V* const lRecord = CapabilitiesU3V::GetCapabilities( GUID, nullptr );
    ASSERT_TRUE( lRecord->Init( &mLink ).IsOK() );
    TestLinkU3V lOther;
    ASSERT_TRUE( lOther.Open( GUID, "another path" ).IsOK() );
    mDevice.ClearReads();
    mLog.Clear();
    mDevice.SetBasics( SBRM, 700, 700 ); // too late
    lOther.UpdateMaxSizes();
    EXPECT_TRUE( mDevice.GetReads().empty() );
    EXPECT_EQ( mLog.GetTexts(), Log{} );
    EXPECT_EQ( lOther.GetMaxCommandSize(), 512U );
    EXPECT_EQ( lOther.GetMaxAckSize(), 512U );
    ExpectLimits( 64, 64 );
    ExpectConfiguration( 250, 512, 512 );
    EXPECT_EQ( CapabilitiesU3V::GetCapabilities( GUID, nullptr ), lRecord );
}

TEST_F( LinkSizingU3VTest, UsesTheRecordWithoutIdentityAfterAClose )
{
    EXPECT_TRUE( mLink.Close().IsOK() );
    mLink.UpdateMaxSizes(); // the control interface is closed
    ExpectLimits( 0, 0 );
    EXPECT_TRUE( mControl.GetConfigurations().empty() );

    // Somebody without identity reads the record that the closed link is sized by from now on.
    TestLinkU3V lNameless;
    ASSERT_TRUE( lNameless.Open( U3VGUID(), PATH ).IsOK() );
    lNameless.UpdateMaxSizes();
    mLink.UpdateMaxSizes();
    ExpectLimits( 512, 512 );
    EXPECT_FALSE( CapabilitiesU3V::GetCapabilities( GUID, nullptr )->IsInitialized() );
    EXPECT_TRUE( CapabilitiesU3V::GetCapabilities( U3VGUID(), nullptr )->IsInitialized() );
}

// Only a derived link calls it.
TEST_F( LinkSizingU3VTest, IsNeverAutomatic )
{
    GuardedBuffer lBuffer( 200 );
    mDevice.Set4( 0x4000, 1 );
    EXPECT_TRUE( mLink.ReadMemory( lBuffer.GetData(), 0x4000, 4 ).IsOK() );
    EXPECT_FALSE( mLink.Read( lBuffer.GetData(), 0x4000, 200 ).IsOK() );
    EXPECT_FALSE( mLink.Write( lBuffer.GetData(), 0x4000, 200, false ).IsOK() );
    EXPECT_TRUE( mLink.Close().IsOK() );
    Open();
    EXPECT_TRUE( mControl.GetConfigurations().empty() );
    ExpectLimits( 0, 0 );
}

TEST_F( LinkSizingU3VTest, KeepsItsInvariants )
{
    const QmUtilsLib::AssertionHandler lBefore =
        QmUtilsLib::SetAssertionHandler( []( const char*, const char*, int ) { ++gAssertions; } );
    mDevice.SetBasics( SBRM, 0xFFFFFFFF, 0xFFFFFFFF );
    mLink.UpdateMaxSizes();
    QmUtilsLib::SetAssertionHandler( lBefore );
    EXPECT_EQ( gAssertions, 0 );
    ExpectLimits( 1024, 1024 );
}

#if !defined( NDEBUG ) && !defined( HTBASE_LIBRARY_IS_OPTIMISED )
// No device can make the assertions fire, so the program itself shows that they are there, unless
// the compiler has seen that as well.
TEST( LinkSizingU3VAssertions, AreCompiledIn )
{
    const std::string lProgram = TestSupport::ReadWholeFile( "/proc/self/exe" );
    ASSERT_FALSE( lProgram.empty() );
    // Put together here, so that the texts are not this test's own.
    for ( const std::string lWhat : { "CMD CommandSize", "ACK AckSize" } )
    {
        const std::string lText =
            lWhat.substr( 0, 3 ) + "_BUFFER_SIZE" + " >= " + "mMax" + lWhat.substr( 4 );
        EXPECT_NE( lProgram.find( lText ), std::string::npos ) << lText;
    }
}
#endif

} // namespace

// Below the threshold nothing is logged, and the link is sized anyway.
TEST( LinkSizingU3VQuiet, SizesWithoutWarningBelowTheThreshold )
{
    const RecordingLogSink lLog( 30001 );
    WdTransportLayerLib::Scripted::ScriptedControl lControl;
    RegistersU3V lDevice;
    lDevice.SetBasics( SBRM, 2048, 2048 );
    lControl.Attach( [&lDevice]( const Bytes& aCommand ) { return lDevice.Answer( aCommand ); } );
    TestLinkU3V lLink;
    ASSERT_TRUE( lLink.Open( U3VGUID( "1AB200C0FFEE" ), "2-1" ).IsOK() );
    lLink.UpdateMaxSizes();
    EXPECT_EQ( lLink.GetMaxCommandSize(), 1024U );
    EXPECT_TRUE( lLog.GetEntries().empty() );
    CapabilitiesU3V::Destroy();
}
