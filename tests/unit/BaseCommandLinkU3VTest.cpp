// The USB3 Vision link as an object: what a new one is, opening and closing, what copies share, the
// transaction with its size check, and what becomes of a status.

#include "tests/support/AllocationCounter.h"
#include "tests/support/ScriptedControlTest.h"

#include <QmUtilsLib/String.h>
#include <WdTransportLayerLib/U3V/DeviceControlInterface.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <map>
#include <memory>
#include <string>

namespace
{

using namespace TestSupport;
using QmUtilsLib::Result;
using WdTransportLayerLib::Scripted::ScriptedControl;
using WdTransportLayerLib::U3V::DCI_COMMAND;
using WdTransportLayerLib::U3V::DeviceControlInterface;
using WdUtilsLib::U3V::U3VGUID;

constexpr const char* OTHER_PATH = "4-2";

class BaseCommandLinkU3VTest : public ScriptedControlTest
{
protected:
    const U3VGUID OTHER_GUID{ "1AB2DEADBEEF" };

    // Sends aLength bytes with that room for the acknowledge, at most 2048 each.
    Result Send( unsigned int aLength, unsigned int aCapacity )
    {
        return mLink.SendCommand( mCommand.data(), aLength, mAck.data(), aCapacity, mAckLength );
    }

    Bytes mCommand = Pattern( 2048 );
    Bytes mAck = Bytes( 2048 );
    unsigned int mAckLength = 0xFFFF;
};

// Expects what does not change with opening.
void ExpectLimits( const TestLinkU3V& aLink, unsigned int aMaxCommand, unsigned int aMaxAck )
{
    EXPECT_EQ( aLink.GetMaxCommandSize(), aMaxCommand );
    EXPECT_EQ( aLink.GetMaxAckSize(), aMaxAck );
}

// A new link.

TEST_F( BaseCommandLinkU3VTest, StartsWithoutDeviceAndWithLimitsOf64 )
{
    EXPECT_FALSE( mLink.IsConnected() );
    EXPECT_TRUE( mLink.GetGUID().IsEmpty() );
    EXPECT_EQ( mLink.GetDevicePath(), "" );
    ExpectLimits( mLink, 64, 64 );
    EXPECT_FALSE( mLink.GetConnectionLost() );
    EXPECT_EQ( TestLinkU3V::CMD_BUFFER_SIZE, 1024U );
    EXPECT_EQ( TestLinkU3V::ACK_BUFFER_SIZE, 1024U );
}

TEST_F( BaseCommandLinkU3VTest, HasAClosedControlInterfaceOfItsOwn )
{
    const unsigned int lBefore = ScriptedControl::GetInterfaceCount();
    TestLinkU3V lOther;
    EXPECT_EQ( ScriptedControl::GetInterfaceCount(), lBefore + 1 );
    ASSERT_NE( lOther.GetDCI(), nullptr );
    EXPECT_NE( lOther.GetDCI(), mLink.GetDCI() );
    EXPECT_FALSE( lOther.GetDCI()->IsOpened() );
    EXPECT_TRUE( mControl.GetOpenings().empty() );
    EXPECT_EQ( mControl.GetCloseCount(), 0U );
}

// Opening.

TEST_F( BaseCommandLinkU3VTest, OpensTheControlInterfaceOnceWithPathIdentityAndMaster )
{
    for ( const bool lIsMaster : { false, true } )
    {
        mLink.mIsMaster = lIsMaster;
        const int lQuestions = mLink.mMasterQuestions;
        ASSERT_TRUE( mLink.Open( GUID, PATH ).IsOK() );
        EXPECT_EQ( mLink.mMasterQuestions, lQuestions + 1 );
        const ScriptedControl::Opening& lOpening = mControl.GetOpenings().back();
        EXPECT_EQ( lOpening.mPath, PATH );
        EXPECT_EQ( lOpening.mGUID, GUID );
        EXPECT_EQ( lOpening.mMaster, lIsMaster );
    }
    EXPECT_EQ( mControl.GetOpenings().size(), 2U );
    EXPECT_EQ( GetCallCount(), 0U );
    ExpectLog( {} );
}

TEST_F( BaseCommandLinkU3VTest, AsksForTheMasterBeforeItOpens )
{
    std::size_t lOpenings = 99;
    mLink.mOnMaster = [&]
    {
        lOpenings = mControl.GetOpenings().size();
    };
    Open();
    EXPECT_EQ( lOpenings, 0U );
    EXPECT_EQ( mControl.GetOpenings().size(), 1U );
}

TEST_F( BaseCommandLinkU3VTest, PassesThePathByteForByte )
{
    const std::string lPath = "usb \xC3\xBC \xFF";
    ASSERT_TRUE( mLink.Open( GUID, lPath ).IsOK() );
    EXPECT_EQ( mControl.GetOpenings().back().mPath, lPath );
    EXPECT_EQ( mLink.GetDevicePath(), lPath );
}

TEST_F( BaseCommandLinkU3VTest, SetsTheIdentityAndKeepsTheLimitsWhenOpened )
{
    const Result lResult = mLink.Open( GUID, PATH );
    ExpectResult( lResult, 0x0000 );
    EXPECT_TRUE( mLink.IsConnected() );
    EXPECT_EQ( mLink.GetGUID(), GUID );
    EXPECT_EQ( mLink.GetDevicePath(), PATH );
    ExpectLimits( mLink, 64, 64 );
    EXPECT_TRUE( mControl.GetConfigurations().empty() );
    EXPECT_TRUE( mLink.GetDCI()->IsOpened() );
}

TEST_F( BaseCommandLinkU3VTest, ReturnsAFailureToOpenUnchanged )
{
    mControl.ResultOfOpen( Result( 0x4000, EACCES, QmUtilsLib::String( "not allowed %s" ) ) );
    ExpectResult( mLink.Open( GUID, PATH ), 0x4000, EACCES, "not allowed %s" );
    EXPECT_FALSE( mLink.IsConnected() );
    EXPECT_TRUE( mLink.GetGUID().IsEmpty() );
    EXPECT_EQ( mLink.GetDevicePath(), "" );
    ExpectLimits( mLink, 64, 64 );
    ExpectLog( {} );
}

TEST_F( BaseCommandLinkU3VTest, KeepsTheEarlierDeviceIfItCannotOpenAnother )
{
    Open();
    mControl.ResultOfOpen( Result( 0x4000, ENODEV ) );
    EXPECT_FALSE( mLink.Open( OTHER_GUID, OTHER_PATH ).IsOK() );
    EXPECT_EQ( mLink.GetGUID(), GUID );
    EXPECT_EQ( mLink.GetDevicePath(), PATH );
    EXPECT_TRUE( mLink.IsConnected() );
    EXPECT_EQ( mControl.GetCloseCount(), 0U );
}

TEST_F( BaseCommandLinkU3VTest, OpensAnotherDeviceWithoutClosingFirst )
{
    Open();
    ASSERT_TRUE( mLink.Open( OTHER_GUID, OTHER_PATH ).IsOK() );
    EXPECT_EQ( mLink.GetGUID(), OTHER_GUID );
    EXPECT_EQ( mLink.GetDevicePath(), OTHER_PATH );
    EXPECT_EQ( mControl.GetOpenings().size(), 2U );
    EXPECT_EQ( mControl.GetCloseCount(), 0U );
}

TEST_F( BaseCommandLinkU3VTest, OpensItsOwnDeviceAgain )
{
    Open();
    ASSERT_TRUE( mLink.Open( mLink.GetGUID(), mLink.GetDevicePath() ).IsOK() );
    EXPECT_EQ( mLink.GetGUID(), GUID );
    EXPECT_EQ( mLink.GetDevicePath(), PATH );
    EXPECT_EQ( mControl.GetOpenings().back().mPath, PATH );
}

TEST_F( BaseCommandLinkU3VTest, IsNotConnectedWithoutAPath )
{
    ASSERT_TRUE( mLink.Open( GUID, "" ).IsOK() );
    EXPECT_FALSE( mLink.IsConnected() );
    EXPECT_EQ( mLink.GetGUID(), GUID );

    Open();
    EXPECT_TRUE( mLink.IsConnected() );
    ASSERT_TRUE( mLink.Open( GUID, "" ).IsOK() );
    EXPECT_FALSE( mLink.IsConnected() );
}

// Closing.

TEST_F( BaseCommandLinkU3VTest, KeepsThePathWhenItCloses )
{
    Open();
    ExpectResult( mLink.Close(), 0x0000 );
    EXPECT_EQ( mControl.GetCloseCount(), 1U );
    EXPECT_FALSE( mLink.GetDCI()->IsOpened() );
    EXPECT_TRUE( mLink.GetGUID().IsEmpty() );
    ExpectLimits( mLink, 0, 0 );
    EXPECT_EQ( mLink.GetDevicePath(), PATH );
    EXPECT_TRUE( mLink.IsConnected() );
    ExpectLog( {} );
}

TEST_F( BaseCommandLinkU3VTest, CanBeClosedWithoutHavingBeenOpened )
{
    ExpectResult( mLink.Close(), 0x0000 );
    EXPECT_EQ( mControl.GetCloseCount(), 1U );
    ExpectLimits( mLink, 0, 0 );
    EXPECT_FALSE( mLink.IsConnected() );
}

TEST_F( BaseCommandLinkU3VTest, ForgetsTheDeviceEvenIfItCannotBeClosed )
{
    Open();
    mControl.ResultOfClose( Result( 0x4000, EIO, QmUtilsLib::String( "stuck" ) ) );
    ExpectResult( mLink.Close(), 0x4000, EIO, "stuck" );
    EXPECT_TRUE( mLink.GetGUID().IsEmpty() );
    ExpectLimits( mLink, 0, 0 );
    EXPECT_TRUE( mLink.IsConnected() );
}

TEST_F( BaseCommandLinkU3VTest, ForgetsTheDeviceBeforeItClosesTheControlInterface )
{
    Open();
    int lCloses = 0;
    mControl.DoAtClose(
        [&]
        {
            ++lCloses;
            EXPECT_TRUE( mLink.GetGUID().IsEmpty() );
            ExpectLimits( mLink, 0, 0 );
            EXPECT_EQ( mLink.GetDevicePath(), PATH );
        } );
    EXPECT_TRUE( mLink.Close().IsOK() );
    EXPECT_EQ( lCloses, 1 );
}

TEST_F( BaseCommandLinkU3VTest, StaysWithoutLimitsWhenOpenedAfterAClose )
{
    Open();
    EXPECT_TRUE( mLink.Close().IsOK() );
    Open();
    ExpectLimits( mLink, 0, 0 );
    EXPECT_EQ( mLink.GetGUID(), GUID );
    mDevice.SetBasics( 0x2000, 512, 256 );
    mControl.Attach( [this]( const Bytes& aCommand ) { return mDevice.Answer( aCommand ); } );
    mLink.UpdateMaxSizes();
    ExpectLimits( mLink, 512, 256 );
}

TEST_F( BaseCommandLinkU3VTest, DoesNotChangeTheConnectionLostFlag )
{
    for ( const bool lIsLost : { false, true } )
    {
        lIsLost ? mLink.SetConnectionLost() : mLink.ResetConnectionLost();
        Open();
        mControl.ExpectAny().Fail( Result( 0x4000, ENODEV ) );
        EXPECT_FALSE( Send( 12, 16 ).IsOK() );
        EXPECT_EQ( mLink.GetConnectionLost(), lIsLost );
        mControl.ExpectAny().Reply( WriteMemAck( 0 ) );
        EXPECT_TRUE( Send( 12, 16 ).IsOK() );
        EXPECT_EQ( mLink.GetConnectionLost(), lIsLost );
        EXPECT_TRUE( mLink.Close().IsOK() );
        EXPECT_EQ( mLink.GetConnectionLost(), lIsLost );
    }
}

// Copies.

TEST_F( BaseCommandLinkU3VTest, CopiesShareTheControlInterfaceAndThePath )
{
    mLink.SetConnectionLost();
    Open();
    const unsigned int lInterfaces = ScriptedControl::GetInterfaceCount();
    TestLinkU3V lCopy( mLink );
    EXPECT_EQ( ScriptedControl::GetInterfaceCount(), lInterfaces );
    EXPECT_EQ( lCopy.GetDCI(), mLink.GetDCI() );
    EXPECT_EQ( &lCopy.GetDevicePath(), &mLink.GetDevicePath() );
    EXPECT_EQ( lCopy.GetGUID(), GUID );
    EXPECT_NE( &lCopy.GetGUID(), &mLink.GetGUID() );
    ExpectLimits( lCopy, 64, 64 );
    EXPECT_TRUE( lCopy.GetConnectionLost() );
    EXPECT_TRUE( lCopy.IsConnected() );
}

TEST_F( BaseCommandLinkU3VTest, OpeningACopyConnectsItsSourceAndLeavesItsIdentity )
{
    TestLinkU3V lCopy( mLink );
    ASSERT_TRUE( lCopy.Open( OTHER_GUID, OTHER_PATH ).IsOK() );
    EXPECT_TRUE( mLink.IsConnected() );
    EXPECT_EQ( mLink.GetDevicePath(), OTHER_PATH );
    EXPECT_TRUE( mLink.GetGUID().IsEmpty() );
    EXPECT_EQ( lCopy.GetGUID(), OTHER_GUID );
    EXPECT_TRUE( mLink.GetDCI()->IsOpened() );
}

TEST_F( BaseCommandLinkU3VTest, ClosingACopyClosesTheDeviceAndLeavesTheLimitsOfItsSource )
{
    Open();
    TestLinkU3V lCopy( mLink );
    EXPECT_TRUE( lCopy.Close().IsOK() );
    EXPECT_FALSE( mLink.GetDCI()->IsOpened() );
    EXPECT_EQ( mLink.GetGUID(), GUID );
    ExpectLimits( mLink, 64, 64 );
    ExpectLimits( lCopy, 0, 0 );

    TestLinkU3V lClosed( lCopy );
    ExpectLimits( lClosed, 0, 0 );
    EXPECT_TRUE( lClosed.GetGUID().IsEmpty() );
}

TEST_F( BaseCommandLinkU3VTest, AssigningSharesAndClosesNothing )
{
    Open();
    TestLinkU3V lTarget;
    ASSERT_TRUE( lTarget.Open( OTHER_GUID, OTHER_PATH ).IsOK() );
    const DeviceControlInterface* const lReplaced = lTarget.GetDCI();
    const std::string& lReplacedPath = lTarget.GetDevicePath();
    const unsigned int lInterfaces = ScriptedControl::GetInterfaceCount();

    EXPECT_EQ( &( lTarget = mLink ), &lTarget );
    EXPECT_EQ( lTarget.GetDCI(), mLink.GetDCI() );
    EXPECT_EQ( &lTarget.GetDevicePath(), &mLink.GetDevicePath() );
    EXPECT_EQ( lTarget.GetGUID(), GUID );
    EXPECT_EQ( mControl.GetCloseCount(), 0U );
    EXPECT_EQ( ScriptedControl::GetInterfaceCount(), lInterfaces );
    EXPECT_TRUE( lReplaced->IsOpened() );
    EXPECT_EQ( lReplacedPath, OTHER_PATH );
}

TEST_F( BaseCommandLinkU3VTest, AssigningTakesTheLimitsAndTheFlag )
{
    TestLinkU3V lClosed;
    EXPECT_TRUE( lClosed.Close().IsOK() );
    lClosed.SetConnectionLost();
    TestLinkU3V lTarget;
    lTarget = lClosed;
    ExpectLimits( lTarget, 0, 0 );
    EXPECT_TRUE( lTarget.GetConnectionLost() );

    OpenSized( 512, 256 );
    lTarget = mLink;
    ExpectLimits( lTarget, 512, 256 );
    const TestLinkU3V lCopy( mLink );
    ExpectLimits( lCopy, 512, 256 );
}

TEST_F( BaseCommandLinkU3VTest, ObjectsReplacedByAssignmentAreFreedWithTheLink )
{
    const unsigned int lInterfaces = ScriptedControl::GetInterfaceCount();
    {
        TestLinkU3V lFirst;
        TestLinkU3V lSecond;
        TestLinkU3V lTarget;
        for ( int lTurn = 0; lTurn < 3; ++lTurn )
        {
            lTarget = lFirst;
            lTarget = lSecond;
        }
        lFirst = lTarget;
        EXPECT_EQ( ScriptedControl::GetInterfaceCount(), lInterfaces + 3 );
    }
    EXPECT_EQ( ScriptedControl::GetInterfaceCount(), lInterfaces );
}

TEST_F( BaseCommandLinkU3VTest, CanBeAssignedToItself )
{
    Open();
    TestLinkU3V& lSame = mLink;
    mLink = lSame;
    EXPECT_EQ( mLink.GetGUID(), GUID );
    EXPECT_EQ( mLink.GetDevicePath(), PATH );
    EXPECT_TRUE( mLink.GetDCI()->IsOpened() );
}

// The end.

TEST_F( BaseCommandLinkU3VTest, AlwaysClosesOnDestruction )
{
    const unsigned int lInterfaces = ScriptedControl::GetInterfaceCount();
    {
        TestLinkU3V lNeverOpened;
    }
    EXPECT_EQ( mControl.GetCloseCount(), 1U );
    mControl.ResultOfClose( Result( 0x4000, EIO ) );
    {
        TestLinkU3V lOpened;
        Open( lOpened );
    }
    EXPECT_EQ( mControl.GetCloseCount(), 2U );
    EXPECT_EQ( ScriptedControl::GetInterfaceCount(), lInterfaces );
    ExpectLog( {} );
}

TEST_F( BaseCommandLinkU3VTest, ClosesThenFreesTheInterfaceThenThePath )
{
    // Long enough to need a block of its own.
    const std::string lPath( 100, '1' );
    unsigned int lInterfacesAtClose = 0;
    unsigned long long lDeletionsAtClose = 0;
    unsigned long long lDeletionsAtEnd = 0;
    unsigned long long lDeletions = 0;
    mControl
        .DoAtClose(
            [&]
            {
                lInterfacesAtClose = ScriptedControl::GetInterfaceCount();
                lDeletionsAtClose = GetDeletionCount();
            } )
        .DoAtEnd( [&] { lDeletionsAtEnd = GetDeletionCount(); } );
    const unsigned int lInterfaces = ScriptedControl::GetInterfaceCount();
    {
        TestLinkU3V lLink;
        ASSERT_TRUE( lLink.Open( GUID, lPath ).IsOK() );
    }
    lDeletions = GetDeletionCount();
    EXPECT_EQ( lInterfacesAtClose, lInterfaces + 1 );
    EXPECT_EQ( ScriptedControl::GetInterfaceCount(), lInterfaces );
    // Nothing goes between closing and the end of the interface; then its own two blocks go, and
    // the two of the path.
    EXPECT_EQ( lDeletionsAtEnd, lDeletionsAtClose );
    EXPECT_EQ( lDeletions, lDeletionsAtEnd + 4 );
}

// A link with a Close of its own.
class ClosingLink : public TestLinkU3V
{
public:
    explicit ClosingLink( int& aCloses )
        : mCloses( aCloses )
    {
    }
    Result Close() override
    {
        ++mCloses;
        return Result::OK;
    }

private:
    int& mCloses;
};

TEST_F( BaseCommandLinkU3VTest, ClosesOnDestructionWithItsOwnClose )
{
    int lCloses = 0;
    {
        ClosingLink lLink( lCloses );
        Open( lLink );
    }
    EXPECT_EQ( lCloses, 0 );
    EXPECT_EQ( mControl.GetCloseCount(), 1U );
}

TEST_F( BaseCommandLinkU3VTest, DestroyingOneCopyClosesTheDeviceForTheOther )
{
    const unsigned int lInterfaces = ScriptedControl::GetInterfaceCount();
    for ( const bool lSourceFirst : { false, true } )
    {
        auto lSource = std::make_unique<TestLinkU3V>();
        Open( *lSource );
        auto lCopy = std::make_unique<TestLinkU3V>( *lSource );
        auto& lFirst = lSourceFirst ? lSource : lCopy;
        auto& lLast = lSourceFirst ? lCopy : lSource;

        lFirst.reset();
        EXPECT_FALSE( lLast->GetDCI()->IsOpened() );
        EXPECT_EQ( lLast->GetGUID(), GUID );
        EXPECT_EQ( lLast->GetDevicePath(), PATH );
        ExpectLimits( *lLast, 64, 64 );
        EXPECT_EQ( ScriptedControl::GetInterfaceCount(), lInterfaces + 1 );
        ASSERT_TRUE( lLast->Open( OTHER_GUID, OTHER_PATH ).IsOK() );
        EXPECT_EQ( lLast->GetDevicePath(), OTHER_PATH );

        lLast.reset();
        EXPECT_EQ( ScriptedControl::GetInterfaceCount(), lInterfaces );
    }
    EXPECT_EQ( mControl.GetCloseCount(), 4U );
}

TEST_F( BaseCommandLinkU3VTest, AnAssignedLinkAndItsSourceMayBeDestroyedInAnyOrder )
{
    const unsigned int lInterfaces = ScriptedControl::GetInterfaceCount();
    for ( const bool lSourceFirst : { false, true } )
    {
        auto lSource = std::make_unique<TestLinkU3V>();
        auto lTarget = std::make_unique<TestLinkU3V>();
        Open( *lSource );
        *lTarget = *lSource;
        ( lSourceFirst ? lSource : lTarget ).reset();
        const TestLinkU3V& lLast = lSourceFirst ? *lTarget : *lSource;
        EXPECT_EQ( lLast.GetDevicePath(), PATH );
        ( lSourceFirst ? lTarget : lSource ).reset();
        EXPECT_EQ( ScriptedControl::GetInterfaceCount(), lInterfaces );
    }
}

// One command.

TEST_F( BaseCommandLinkU3VTest, PassesOneCommandToTheControlInterface )
{
    Open();
    const Bytes lReply = ReadMemAck( Pattern( 4 ) );
    mControl.Expect( Prefix( mCommand, 24 ) ).Reply( lReply );
    ExpectResult( Send( 24, 20 ), 0x0000 );
    EXPECT_EQ( mAckLength, 16U );
    EXPECT_EQ( Prefix( mAck, 16 ), lReply );
    EXPECT_EQ( mAck, Packet( { lReply, Bytes( 2032 ) } ) );
    ASSERT_EQ( mControl.GetCalls().size(), 1U );
    ASSERT_EQ( mControl.GetCalls()[0].size(), 1U );
    EXPECT_EQ( GetLastCommand().mCapacity, 20U );
    EXPECT_TRUE( mLink.mReads.empty() );
    ExpectLog( {} );
}

TEST_F( BaseCommandLinkU3VTest, ReturnsAFailureOfTheControlInterfaceUnchanged )
{
    Open();
    mControl.Expect( Prefix( mCommand, 24 ) )
        .Fail( Result( 0x001E, ETIMEDOUT, QmUtilsLib::String( "no answer %d" ) ) );
    ExpectResult( Send( 24, 20 ), 0x001E, ETIMEDOUT, "no answer %d" );
    EXPECT_EQ( mAckLength, 0U );
    EXPECT_EQ( GetCallCount(), 1U );
    ExpectLog( {} );
}

TEST_F( BaseCommandLinkU3VTest, ReturnsTheAcknowledgeLengthEvenIfTheCallFails )
{
    Open();
    mControl.Expect( Prefix( mCommand, 24 ) )
        .Reply( WriteMemAck( 0 ) )
        .Fail( Result( 0x4000, EPIPE ) );
    ExpectResult( Send( 24, 20 ), 0x4000, EPIPE );
    EXPECT_EQ( mAckLength, 16U );
}

TEST_F( BaseCommandLinkU3VTest, CallsTheControlInterfaceEvenIfNeverOpened )
{
    ExpectResult( Send( 24, 20 ), 0x0017 );
    EXPECT_EQ( GetCallCount(), 1U );
    mControl.Expect( Prefix( mCommand, 24 ) ).Reply( WriteMemAck( 0 ) );
    EXPECT_TRUE( Send( 24, 20 ).IsOK() );
}

TEST_F( BaseCommandLinkU3VTest, AllowsCommandsAsLargeAsTheLimits )
{
    Open();
    mControl.Expect( Prefix( mCommand, 64 ) ).Reply( WriteMemAck( 0 ) );
    EXPECT_TRUE( Send( 64, 64 ).IsOK() );
    EXPECT_EQ( GetLastCommand().mCapacity, 64U );
    ExpectLog( {} );
}

TEST_F( BaseCommandLinkU3VTest, RefusesACommandAboveTheLimit )
{
    Open();
    ExpectResult( Send( 65, 16 ), 0x4001, 0,
                  "Command of 65 bytes is larger than maximum command size, 64" );
    EXPECT_EQ( mAckLength, 16U );
    EXPECT_EQ( GetCallCount(), 0U );
    ExpectLog( { SizeLine( 65, 64 ) } );
}

TEST_F( BaseCommandLinkU3VTest, RefusesAnAcknowledgeAboveTheLimitWithTheSameMessage )
{
    Open();
    ExpectResult( Send( 24, 65 ), 0x4001, 0,
                  "Command of 65 bytes is larger than maximum command size, 64" );
    EXPECT_EQ( mAckLength, 65U );
    EXPECT_EQ( GetCallCount(), 0U );
    ExpectLog( { SizeLine( 65, 64 ) } );
}

TEST_F( BaseCommandLinkU3VTest, NamesTheCommandWhenBothAreTooLarge )
{
    OpenSized( 100, 200 );
    EXPECT_FALSE( Send( 101, 201 ).IsOK() );
    EXPECT_FALSE( Send( 100, 201 ).IsOK() );
    ExpectLog( { SizeLine( 101, 100 ), SizeLine( 201, 200 ) } );
    mControl.ExpectAny().Reply( WriteMemAck( 0 ) );
    EXPECT_TRUE( Send( 100, 200 ).IsOK() );
}

TEST_F( BaseCommandLinkU3VTest, AllowsEverySizeAfterAClose )
{
    Open();
    EXPECT_TRUE( mLink.Close().IsOK() );
    ExpectResult( Send( 2048, 2048 ), 0x0017 );
    EXPECT_EQ( GetLastCommand().mBytes, mCommand );
    EXPECT_EQ( GetLastCommand().mCapacity, 2048U );
    ExpectLog( {} );
}

// A device without one of the limits is held to the other.
TEST_F( BaseCommandLinkU3VTest, ChecksEachLimitOnItsOwn )
{
    OpenSized( 0, 100 );
    mControl.ExpectAny().Reply( WriteMemAck( 0 ) );
    EXPECT_TRUE( Send( 2048, 100 ).IsOK() );
    EXPECT_FALSE( Send( 24, 101 ).IsOK() );
    ExpectLog( { SizeLine( 101, 100 ) } );
}

TEST_F( BaseCommandLinkU3VTest, ChecksTheCommandWithoutALimitOfAcknowledges )
{
    OpenSized( 100, 0 );
    mControl.ExpectAny().Reply( WriteMemAck( 0 ) );
    EXPECT_TRUE( Send( 100, 2048 ).IsOK() );
    EXPECT_FALSE( Send( 101, 24 ).IsOK() );
    ExpectLog( { SizeLine( 101, 100 ) } );
}

// Several commands.

class AtomicCommandsTest : public BaseCommandLinkU3VTest
{
protected:
    AtomicCommandsTest()
    {
        Open();
        for ( std::size_t lIndex = 0; lIndex < COUNT; ++lIndex )
        {
            mRecords[lIndex].mCommand = mCommand.data() + lIndex * 100;
            mRecords[lIndex].mCommandLength = 20 + static_cast<uint32_t>( lIndex );
            mRecords[lIndex].mAck = mAck.data() + lIndex * 100;
            mRecords[lIndex].mAckLength = 30 + static_cast<uint32_t>( lIndex );
        }
    }

    Bytes GetCommand( std::size_t aIndex ) const
    {
        const DCI_COMMAND& lRecord = mRecords[aIndex];
        return Bytes( lRecord.mCommand, lRecord.mCommand + lRecord.mCommandLength );
    }

    static constexpr unsigned int COUNT = 3;
    DCI_COMMAND mRecords[COUNT];
};

TEST_F( AtomicCommandsTest, ArePassedInOneCall )
{
    mControl.ExpectTogether( { GetCommand( 0 ), GetCommand( 1 ), GetCommand( 2 ) } )
        .Reply( WriteMemAck( 1 ) )
        .Reply( HeaderOnlyAck( 0x0803, 0x8003 ) )
        .Reply( ReadMemAck( Pattern( 6 ) ) );
    ExpectResult( mLink.SendAtomicCommands( mRecords, COUNT ), 0x0000 );
    EXPECT_EQ( mControl.GetCalls().size(), 1U );
    EXPECT_EQ( mRecords[0].mAckLength, 16U );
    EXPECT_EQ( mRecords[1].mAckLength, 12U );
    EXPECT_EQ( mRecords[2].mAckLength, 18U );
    ExpectLog( {} );
}

TEST_F( AtomicCommandsTest, ReturnsTheFailureOfTheCall )
{
    mControl.ExpectAny()
        .Reply( WriteMemAck( 1 ) )
        .Fail( Result( 0x4000, ENODEV, QmUtilsLib::String( "gone" ) ) );
    ExpectResult( mLink.SendAtomicCommands( mRecords, COUNT ), 0x4000, ENODEV, "gone" );
    ExpectLog( {} );
}

TEST_F( AtomicCommandsTest, SendsNothingWhenOnlyTheLastDoesNotFit )
{
    mRecords[2].mCommandLength = 65;
    ExpectResult( mLink.SendAtomicCommands( mRecords, COUNT ), 0x4001, 0,
                  "Command of 65 bytes is larger than maximum command size, 64" );
    mRecords[2].mCommandLength = 64;
    mRecords[2].mAckLength = 66;
    ExpectResult( mLink.SendAtomicCommands( mRecords, COUNT ), 0x4001, 0,
                  "Command of 66 bytes is larger than maximum command size, 64" );
    EXPECT_EQ( GetCallCount(), 0U );
    EXPECT_EQ( mRecords[2].mAckLength, 66U );
    EXPECT_EQ( mRecords[0].mResult.GetCode(), 0x0605U );
    ExpectLog( { SizeLine( 65, 64 ), SizeLine( 66, 64 ) } );
}

TEST_F( AtomicCommandsTest, NamesTheFirstThatDoesNotFit )
{
    mRecords[0].mAckLength = 70;
    mRecords[1].mCommandLength = 71;
    mRecords[2].mCommandLength = 72;
    EXPECT_FALSE( mLink.SendAtomicCommands( mRecords, COUNT ).IsOK() );
    mRecords[0].mAckLength = 64;
    EXPECT_FALSE( mLink.SendAtomicCommands( mRecords, COUNT ).IsOK() );
    mRecords[1].mCommandLength = 64;
    EXPECT_FALSE( mLink.SendAtomicCommands( mRecords, COUNT ).IsOK() );
    ExpectLog( { SizeLine( 70, 64 ), SizeLine( 71, 64 ), SizeLine( 72, 64 ) } );
}

TEST_F( AtomicCommandsTest, AcceptsAnEmptyList )
{
    mControl.ExpectTogether( {} );
    EXPECT_TRUE( mLink.SendAtomicCommands( nullptr, 0 ).IsOK() );
    EXPECT_EQ( mControl.GetCalls().size(), 1U );
}

TEST_F( AtomicCommandsTest, IgnoresTheResultsOfSingleCommands )
{
    const Result lFailure( 0x4000, EIO );
    mControl.ExpectAny()
        .Reply( WriteMemAck( 1 ), lFailure )
        .Reply( WriteMemAck( 1 ) )
        .Reply( WriteMemAck( 1 ), lFailure );
    EXPECT_TRUE( mLink.SendAtomicCommands( mRecords, COUNT ).IsOK() );
    EXPECT_EQ( mRecords[2].mResult.GetOSCode(), unsigned{ EIO } );

    uint8_t lData[4] = {};
    mControl.ExpectAny().Reply( ReadMemAck( Pattern( 4 ) ), lFailure );
    EXPECT_TRUE( mLink.ReadMemory( lData, 0, 4 ).IsOK() );
    mControl.ExpectAny().Reply( WriteMemAck( 4 ), lFailure );
    EXPECT_TRUE( mLink.WriteMemory( lData, 0, 4, false ).IsOK() );
    mControl.ExpectAny()
        .Reply( WriteMemAck( 4 ), lFailure )
        .Reply( ReadMemAck( Pattern( 4 ) ), lFailure );
    EXPECT_TRUE( mLink.AtomicWriteAndRead( lData, 0, 4, lData, 0, 4 ).IsOK() );
}

// Statuses.

const std::map<unsigned int, std::string> STATUS_TEXTS = {
    { 0x8001, "Status GENCP_NOT_IMPLEMENTED received from the device." },
    { 0x8002, "Status GENCP_INVALID_PARAMETER received from the device." },
    { 0x8003, "Status GENCP_INVALID_ADDRESS received from the device." },
    { 0x8004, "Status GENCP_WRITE_PROTECT received from the device." },
    { 0x8005, "Status GENCP_BAD_ALIGNMENT received from the device." },
    { 0x8006, "Status GENCP_ACCESS_DENIED received from the device." },
    { 0x8007, "Status GENCP_BUSY received from the device." },
    { 0x800B, "Status GENCP_MSG_TIMEOUT received from the device." },
    { 0x800E, "Status GENCP_INVALID_HEADER received from the device." },
    { 0x800F, "Status GENCP_WRONG_CONFIG received from the device." },
    { 0x8FFF, "Status GENCP_ERROR received from the device." },
};

TEST_F( BaseCommandLinkU3VTest, NamesEachStatusAndKeepsItAsOSCode )
{
    for ( unsigned int lStatus = 0; lStatus <= 0xFFFF; ++lStatus )
    {
        const auto lText = STATUS_TEXTS.find( lStatus );
        const std::string lExpected = lText != STATUS_TEXTS.end()
                                          ? lText->second
                                          : "Unknown status received from the device.";
        const Result lResult = mLink.ResultFromStatus( static_cast<unsigned short>( lStatus ) );
        ASSERT_EQ( lResult.GetCode(), 0x4000U );
        ASSERT_EQ( lResult.GetOSCode(), lStatus );
        ASSERT_EQ( lResult.GetDescription().GetAscii(), lExpected ) << lStatus;
    }
}

TEST_F( BaseCommandLinkU3VTest, LogsAStatusAsAFailureOfTheLibrary )
{
    (void)mLink.ResultFromStatus( 0x8007 ); // tested above
    (void)mLink.ResultFromStatus( 0x9000 );
    ExpectLog( { StatusLine( "Status GENCP_BUSY received from the device." ),
                 StatusLine( "Unknown status received from the device." ) } );
}

} // namespace

// With the priority disabled nothing is logged, and the result is the same.
TEST( BaseCommandLinkU3VQuiet, LogsNoStatusBelowTheThreshold )
{
    TestSupport::TestLinkU3V lLink;
    const QmUtilsLib::Scripted::RecordingLogSink lLog( 40001 );
    TestSupport::ExpectResult( lLink.ResultFromStatus( 0x8007 ), 0x4000, 0x8007,
                               "Status GENCP_BUSY received from the device." );
    EXPECT_TRUE( lLog.GetEntries().empty() );
}
