// USB3 Vision links when allocations fail.

#include "tests/support/AllocationCounter.h"
#include "tests/support/ScriptedControlTest.h"

#include <CapabilitiesU3V.h>
#include <SimpleCommandLinkU3V.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <new>
#include <stdexcept>
#include <string>

namespace
{

using namespace TestSupport;
using HtBaseLib::CapabilitiesU3V;
using HtBaseLib::SimpleCommandLinkU3V;
using QmUtilsLib::Result;
using WdUtilsLib::U3V::U3VGUID;

// Too long to be stored in a text itself.
const std::string LONG_PATH = "usb-controller-of-this-machine/2-1.4.3.2.1";

class LinkMemoryU3VTest : public ScriptedControlTest
{
};

TEST_F( LinkMemoryU3VTest, AFailedOpenKeepsTheEarlierDevice )
{
    const U3VGUID lOther( "1AB2DEADBEEF" );
    unsigned int lNumber = 0;
    for ( bool lHasFailed = true; lHasFailed; )
    {
        Open();
        Result lResult;
        {
            const AllocationFailure lFailure( ++lNumber );
            lResult = mLink.Open( lOther, LONG_PATH );
            lHasFailed = lFailure.HasHappened();
        }
        ExpectResult( lResult, lHasFailed ? 0x4000 : 0, lHasFailed ? ENOMEM : 0 );
        EXPECT_EQ( mLink.GetGUID(), lHasFailed ? GUID : lOther );
        EXPECT_EQ( mLink.GetDevicePath(), lHasFailed ? PATH : LONG_PATH );
    }
    EXPECT_GE( lNumber, 4U ); // the path in three forms, and none when it is taken over
}

TEST_F( LinkMemoryU3VTest, AFailedAssignmentLeavesTheLinkUnchanged )
{
    SimpleCommandLinkU3V lSource;
    ASSERT_TRUE( lSource.Open( GUID, LONG_PATH ).IsOK() );
    lSource.SetConnectionLost();
    unsigned int lNumber = 0;
    for ( bool lHasFailed = true; lHasFailed; )
    {
        SimpleCommandLinkU3V lLink;
        lHasFailed = false;
        {
            const AllocationFailure lFailure( ++lNumber );
            try
            {
                lLink = lSource;
            }
            catch ( const std::bad_alloc& )
            {
                lHasFailed = true;
            }
            EXPECT_EQ( lFailure.HasHappened(), lHasFailed );
        }
        EXPECT_EQ( lLink.IsConnected(), !lHasFailed );
        EXPECT_EQ( lLink.GetGUID().IsEmpty(), lHasFailed );
        EXPECT_EQ( lLink.GetConnectionLost(), !lHasFailed );
    }
    EXPECT_GT( lNumber, 2U );
}

TEST_F( LinkMemoryU3VTest, ARefusalWithoutMemoryForItsTextKeepsItsCode )
{
    Open();
    EXPECT_TRUE( mLink.Close().IsOK() );
    const Bytes lData = Pattern( 65540 );
    unsigned int lNumber = 0;
    for ( bool lHasFailed = true; lHasFailed; )
    {
        Result lResult;
        {
            const AllocationFailure lFailure( ++lNumber );
            lResult = mLink.WriteMemory( lData.data(), 0x100, 65540, false );
            lHasFailed = lFailure.HasHappened();
        }
        ExpectResult( lResult, 0x4001, 0,
                      lHasFailed ? "" : "The command does not fit the buffer of the link." );
    }
    EXPECT_GT( lNumber, 1U );
}

TEST_F( LinkMemoryU3VTest, ACallbackWithoutMemoryFailsTheCall )
{
    Open();
    mLink.mOnRead = []
    {
        throw std::bad_alloc();
    };
    mControl.ExpectAny().Reply( ReadMemAck( Pattern( 4 ) ) );
    GuardedBuffer lBuffer( 4 );
    ExpectResult( mLink.ReadMemory( lBuffer.GetData(), 0, 4 ), 0x4000, ENOMEM );
    lBuffer.ExpectContents( Pattern( 4 ) ); // the transfer was done

    mLink.mOnRead = []
    {
        throw std::runtime_error( "of a callback" );
    };
    mControl.ExpectAny().Reply( ReadMemAck( Pattern( 4 ) ) );
    EXPECT_THROW( (void)mLink.ReadMemory( lBuffer.GetData(), 0, 4 ), std::runtime_error );
}

TEST_F( LinkMemoryU3VTest, AControlInterfaceWithoutMemoryFailsTheCall )
{
    Open();
    const auto lThrow = []
    {
        throw std::bad_alloc();
    };
    GuardedBuffer lBuffer( 4 );
    mControl.ExpectAny().Do( lThrow );
    ExpectResult( mLink.ReadMemory( lBuffer.GetData(), 0, 4 ), 0x4000, ENOMEM );
    mControl.ExpectAny().Do( lThrow );
    ExpectResult( mLink.WriteMemory( lBuffer.GetData(), 0, 4, false ), 0x4000, ENOMEM );
    mControl.ExpectAny().Do( lThrow );
    ExpectResult( mLink.AtomicWriteAndRead( lBuffer.GetData(), 0, 4, lBuffer.GetData(), 0, 4 ),
                  0x4000, ENOMEM );
    mControl.ExpectAny().Do( lThrow );
    mLink.UpdateMaxSizes();
    EXPECT_EQ( mLink.GetMaxCommandSize(), 64U );
    EXPECT_FALSE( CapabilitiesU3V::GetCapabilities( GUID, nullptr )->IsInitialized() );
    lBuffer.ExpectUntouched();
    mControl.DoAtClose( lThrow );
    ExpectResult( mLink.Close(), 0x4000, ENOMEM );
    EXPECT_TRUE( mLink.GetGUID().IsEmpty() );
}

} // namespace
