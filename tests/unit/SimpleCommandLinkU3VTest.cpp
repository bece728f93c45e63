// The plain USB3 Vision link: its logger, its role, and what it shares with its copies.

#include "tests/support/AllocationCounter.h"
#include "tests/support/ScriptedControlTest.h"

#include <SimpleCommandLinkU3V.h>
#include <WdTransportLayerLib/U3V/DeviceControlInterface.h>

#include <gtest/gtest.h>

#include <cstring>
#include <memory>

namespace
{

using namespace TestSupport;
using HtBaseLib::SimpleCommandLinkU3V;
using QmUtilsLib::Logger;
using WdTransportLayerLib::Scripted::ScriptedControl;

// The link with what only derived links see.
class OpenLink : public SimpleCommandLinkU3V
{
public:
    using SimpleCommandLinkU3V::GetDCI;
    using SimpleCommandLinkU3V::GetLibLogger;
    using SimpleCommandLinkU3V::GetLinkLogger;
    using SimpleCommandLinkU3V::IsMaster;
    using SimpleCommandLinkU3V::ResultFromStatus;
};

class SimpleCommandLinkU3VTest : public ScriptedControlTest
{
};

TEST_F( SimpleCommandLinkU3VTest, StartsUnopened )
{
    const SimpleCommandLinkU3V lLink;
    EXPECT_FALSE( lLink.IsConnected() );
    EXPECT_EQ( lLink.GetMaxCommandSize(), 64U );
    EXPECT_EQ( lLink.GetMaxAckSize(), 64U );
}

TEST_F( SimpleCommandLinkU3VTest, HasOneLoggerForBoth )
{
    OpenLink lLink;
    OpenLink lOther;
    ASSERT_NE( lLink.GetLibLogger(), nullptr );
    EXPECT_EQ( lLink.GetLibLogger(), lLink.GetLinkLogger() );
    EXPECT_NE( lLink.GetLibLogger(), lOther.GetLibLogger() );

    (void)lLink.ResultFromStatus( 0x8005 ); // for its log
    ASSERT_EQ( mLog.GetEntries().size(), 1U );
    EXPECT_EQ( mLog.GetEntries()[0].mLogger, "HtBaseLib" );
}

TEST_F( SimpleCommandLinkU3VTest, IsNotMaster )
{
    OpenLink lLink;
    EXPECT_FALSE( lLink.IsMaster() );
    Open( lLink );
    ASSERT_EQ( mControl.GetOpenings().size(), 1U );
    EXPECT_FALSE( mControl.GetOpenings()[0].mMaster );
    EXPECT_FALSE( lLink.IsMaster() );
}

TEST_F( SimpleCommandLinkU3VTest, ReadsAndWrites )
{
    SimpleCommandLinkU3V lLink;
    Open( lLink );
    mControl.Expect( ReadMem( 0x01CC, 4 ) )
        .Reply( ReadMemAck( { 0xFA, 0x00, 0x00, 0x00 } ) )
        .Expect( WriteMem( 0x2000, { 1, 2, 3, 4 } ) )
        .Reply( WriteMemAck( 4 ) );
    uint32_t lValue = 0;
    EXPECT_TRUE( lLink.ReadMemory( &lValue, 0x01CC, 4 ).IsOK() );
    EXPECT_EQ( lValue, 250U );
    const uint8_t lData[] = { 1, 2, 3, 4 };
    EXPECT_TRUE( lLink.WriteMemory( lData, 0x2000, 4, false ).IsOK() );
    ExpectLog( {} );
}

TEST_F( SimpleCommandLinkU3VTest, CopiesShareTheLoggerAndTheBase )
{
    for ( const bool lSourceFirst : { false, true } )
    {
        auto lSource = std::make_unique<OpenLink>();
        Logger* const lLogger = lSource->GetLibLogger();
        auto lCopy = std::make_unique<OpenLink>( *lSource );
        EXPECT_EQ( lCopy->GetLibLogger(), lLogger );
        EXPECT_EQ( lCopy->GetDCI(), lSource->GetDCI() );

        mLog.Clear();
        ( lSourceFirst ? lSource : lCopy ).reset();
        OpenLink& lLast = lSourceFirst ? *lCopy : *lSource;
        (void)lLast.ResultFromStatus( 0x8005 ); // for its log
        EXPECT_EQ( mLog.GetEntries().size(), 1U );
    }
}

TEST_F( SimpleCommandLinkU3VTest, AssigningSharesTheLoggerAndFreesNone )
{
    const unsigned int lInterfaces = ScriptedControl::GetInterfaceCount();
    {
        OpenLink lSource;
        OpenLink lTarget;
        Logger* const lReplaced = lTarget.GetLibLogger();
        EXPECT_EQ( &( lTarget = lSource ), &lTarget );
        EXPECT_EQ( lTarget.GetLibLogger(), lSource.GetLibLogger() );
        EXPECT_EQ( lTarget.GetDCI(), lSource.GetDCI() );
        EXPECT_EQ( mControl.GetCloseCount(), 0U );
        lReplaced->Log( 40000, "unit", 1, "function", "still there" );
        EXPECT_EQ( mLog.GetTexts(), Log{ "still there" } );
    }
    EXPECT_EQ( ScriptedControl::GetInterfaceCount(), lInterfaces );
}

TEST_F( SimpleCommandLinkU3VTest, CanBeAssignedToItself )
{
    OpenLink lLink;
    Open( lLink );
    Logger* const lLogger = lLink.GetLibLogger();
    OpenLink& lSame = lLink;
    lLink = lSame;
    EXPECT_EQ( lLink.GetLibLogger(), lLogger );
    EXPECT_EQ( lLink.GetDevicePath(), PATH );
    EXPECT_EQ( mControl.GetCloseCount(), 0U );
}

TEST_F( SimpleCommandLinkU3VTest, ClosesOnDestruction )
{
    {
        SimpleCommandLinkU3V lLink;
        Open( lLink );
    }
    EXPECT_EQ( mControl.GetCloseCount(), 1U );
    ExpectLog( {} );
}

TEST_F( SimpleCommandLinkU3VTest, FreesItsLoggerBeforeItCloses )
{
    for ( const bool lIsShared : { false, true } )
    {
        unsigned long long lDeletionsAtClose = 0; // at the first
        mControl.DoAtClose(
            [&] {
                lDeletionsAtClose = lDeletionsAtClose == 0 ? GetDeletionCount() : lDeletionsAtClose;
            } );
        auto lLink = std::make_unique<SimpleCommandLinkU3V>();
        const auto lCopy = lIsShared ? std::make_unique<SimpleCommandLinkU3V>( *lLink ) : nullptr;
        const unsigned long long lDeletions = GetDeletionCount();
        lLink.reset();
        EXPECT_EQ( lDeletionsAtClose - lDeletions, lIsShared ? 0U : 1U );
    }
}

} // namespace
