// The script that replaces a control interface must itself be strict.

#include <WdTransportLayerLib/Scripted/Control.h>
#include <WdTransportLayerLib/U3V/DeviceControlInterface.h>

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace
{

using QmUtilsLib::Result;
using QmUtilsLib::String;
using testing::HasSubstr;
using WdTransportLayerLib::Scripted::Bytes;
using WdTransportLayerLib::Scripted::ScriptedControl;
using WdTransportLayerLib::U3V::DCI_COMMAND;
using WdTransportLayerLib::U3V::DCIConfiguration;
using WdTransportLayerLib::U3V::DeviceControlInterface;
using WdUtilsLib::U3V::U3VGUID;

const Bytes COMMAND = { 1, 2, 3 };
const Bytes OTHER = { 4, 5 };

// Collects what the script complains about.
class ScriptedControlTest : public testing::Test
{
protected:
    ScriptedControlTest()
    {
        WdUtilsLib::Scripted::SetFailureReporter( [this]( const std::string& aSentence )
                                                  { mComplaints.push_back( aSentence ); } );
    }
    ~ScriptedControlTest() override { WdUtilsLib::Scripted::SetFailureReporter( nullptr ); }

    Result Open( const char* aPath = "1-1", const char* aGUID = "1AB200000001" )
    {
        String lPath( aPath );
        return mInterface.Open( lPath, U3VGUID( aGUID ), true );
    }

    Result Send( const std::vector<Bytes>& aCommands )
    {
        mCommands = aCommands;
        mAcks.assign( aCommands.size(), Bytes( 4, 0xEE ) );
        mRecords.assign( aCommands.size(), DCI_COMMAND() );
        for ( size_t i = 0; i < aCommands.size(); ++i )
        {
            mRecords[i].mCommand = mCommands[i].data();
            mRecords[i].mCommandLength = static_cast<uint32_t>( mCommands[i].size() );
            mRecords[i].mAck = mAcks[i].data();
            mRecords[i].mAckLength = static_cast<uint32_t>( mAcks[i].size() );
        }
        return mInterface.SendCommands( mRecords.data(),
                                        static_cast<unsigned int>( mRecords.size() ) );
    }

    DeviceControlInterface mInterface;
    std::vector<Bytes> mCommands;
    std::vector<Bytes> mAcks;
    std::vector<DCI_COMMAND> mRecords;
    std::vector<std::string> mComplaints;
};

TEST_F( ScriptedControlTest, CanIgnoreTheBoundsOfTheBuffer )
{
    ScriptedControl lControl;
    lControl.Expect( COMMAND ).Do( [this] { mRecords[0].mAckLength = 1; } );
    lControl.ReplyWithoutBounds( { 9, 8, 7 }, 99 );
    EXPECT_TRUE( Open().IsOK() );
    EXPECT_TRUE( Send( { COMMAND } ).IsOK() );
    EXPECT_TRUE( mRecords[0].mResult.IsOK() );
    EXPECT_EQ( 99U, mRecords[0].mAckLength );
    EXPECT_EQ( ( Bytes{ 9, 8, 7, 0xEE } ), mAcks[0] );
}

TEST_F( ScriptedControlTest, AnswersTheCallsThatItExpects )
{
    {
        ScriptedControl lControl;
        lControl.Expect( COMMAND )
            .Reply( { 9, 8 } )
            .ExpectTogether( { COMMAND, OTHER } )
            .Reply( { 7 } )
            .Reply( { 1, 2, 3, 4, 5, 6 } );
        EXPECT_TRUE( Open().IsOK() );
        EXPECT_TRUE( Send( { COMMAND } ).IsOK() );
        EXPECT_TRUE( mRecords[0].mResult.IsOK() );
        EXPECT_EQ( 2U, mRecords[0].mAckLength );
        EXPECT_EQ( ( Bytes{ 9, 8, 0xEE, 0xEE } ), mAcks[0] );
        EXPECT_FALSE( lControl.IsScriptDone() );
        EXPECT_TRUE( Send( { COMMAND, OTHER } ).IsOK() );
        EXPECT_EQ( 4U, mRecords[1].mAckLength ); // cut to the room
        EXPECT_EQ( ( Bytes{ 1, 2, 3, 4 } ), mAcks[1] );
        EXPECT_TRUE( lControl.IsScriptDone() );
        ASSERT_EQ( 2U, lControl.GetCalls().size() );
        ASSERT_EQ( 2U, lControl.GetCalls()[1].size() );
        EXPECT_EQ( OTHER, lControl.GetCalls()[1][1].mBytes );
        EXPECT_EQ( 4U, lControl.GetCalls()[1][1].mCapacity );
        EXPECT_EQ( Bytes( 4, 0xEE ), lControl.GetCalls()[1][1].mRoom );
    }
    EXPECT_TRUE( mComplaints.empty() );
}

TEST_F( ScriptedControlTest, FailsOnOtherBytesAnotherNumberAndUnexpectedCalls )
{
    ScriptedControl lControl;
    EXPECT_TRUE( Open().IsOK() );
    lControl.Expect( COMMAND ).Reply( {} );
    (void)Send( { OTHER } );
    ASSERT_EQ( 1U, mComplaints.size() );
    EXPECT_THAT( mComplaints[0], HasSubstr( "expected call: 01 02 03" ) );
    EXPECT_THAT( mComplaints[0], HasSubstr( "actual call: 04 05" ) );
    lControl.Expect( COMMAND );
    (void)Send( { COMMAND, COMMAND } );
    EXPECT_EQ( 2U, mComplaints.size() );
    (void)Send( { COMMAND } );
    ASSERT_EQ( 3U, mComplaints.size() );
    EXPECT_THAT( mComplaints[2], HasSubstr( "unexpected call: 01 02 03" ) );
}

TEST_F( ScriptedControlTest, FailsOnMissingCalls )
{
    {
        ScriptedControl lControl;
        lControl.Expect( COMMAND );
    }
    ASSERT_EQ( 1U, mComplaints.size() );
    EXPECT_THAT( mComplaints[0], HasSubstr( "never came: 01 02 03" ) );
}

TEST_F( ScriptedControlTest, ReturnsTheScriptedFailureAtTheFirstCommandWithoutAReply )
{
    ScriptedControl lControl;
    EXPECT_TRUE( Open().IsOK() );
    lControl.ExpectTogether( { COMMAND, OTHER, OTHER } )
        .Reply( { 7 } )
        .Fail( Result( Result::GENERIC_ERROR, 19 ) );
    EXPECT_EQ( 19U, Send( { COMMAND, OTHER, OTHER } ).GetOSCode() );
    EXPECT_TRUE( mRecords[0].mResult.IsOK() );
    EXPECT_EQ( 1U, mRecords[0].mAckLength );
    EXPECT_EQ( 19U, mRecords[1].mResult.GetOSCode() );
    EXPECT_EQ( 0U, mRecords[1].mAckLength );
    EXPECT_EQ( 0x0605U, mRecords[2].mResult.GetCode() );
    EXPECT_EQ( 4U, mRecords[2].mAckLength );

    lControl.Expect( COMMAND ).Reply( { 7 }, Result( Result::GENERIC_ERROR, 5 ) );
    EXPECT_TRUE( Send( { COMMAND } ).IsOK() );
    EXPECT_EQ( 5U, mRecords[0].mResult.GetOSCode() );
    EXPECT_EQ( 1U, mRecords[0].mAckLength );

    lControl.Expect( COMMAND ); // neither a reply nor a failure: no answer
    EXPECT_EQ( 0x001EU, Send( { COMMAND } ).GetCode() );
    EXPECT_TRUE( mComplaints.empty() );
}

TEST_F( ScriptedControlTest, RecordsOpeningsClosingsAndConfigurations )
{
    ScriptedControl lControl;
    lControl.ResultOfOpen( Result( Result::GENERIC_ERROR, 13 ) ).ResultOfClose( 0x4002 );
    EXPECT_EQ( 13U, Open().GetOSCode() );
    EXPECT_FALSE( mInterface.IsOpened() );
    EXPECT_TRUE( Open( "1-2", "" ).IsOK() );
    EXPECT_TRUE( mInterface.IsOpened() );
    DCIConfiguration lConfiguration{ 1, 2, 3 };
    EXPECT_TRUE( mInterface.SetDCIConfiguration( lConfiguration ).IsOK() );
    EXPECT_EQ( 0x4002U, mInterface.Close().GetCode() );
    EXPECT_FALSE( mInterface.IsOpened() );

    ASSERT_EQ( 2U, lControl.GetOpenings().size() );
    EXPECT_EQ( "1-1", lControl.GetOpenings()[0].mPath );
    EXPECT_STREQ( "1AB200000001", lControl.GetOpenings()[0].mGUID.Get() );
    EXPECT_TRUE( lControl.GetOpenings()[0].mMaster );
    EXPECT_EQ( "1-2", lControl.GetOpenings()[1].mPath );
    ASSERT_EQ( 1U, lControl.GetConfigurations().size() );
    EXPECT_EQ( 1U, lControl.GetConfigurations()[0].mMaxDeviceResponseTime );
    EXPECT_EQ( 2U, lControl.GetConfigurations()[0].mMaxCommandTransferLength );
    EXPECT_EQ( 3U, lControl.GetConfigurations()[0].mMaxAckTransferLength );
    EXPECT_EQ( 1U, lControl.GetCloseCount() );
    EXPECT_EQ( 1U, ScriptedControl::GetInterfaceCount() );
}

TEST_F( ScriptedControlTest, RunsItsCallbackAtEveryCloseAndDestruction )
{
    std::string lDone;
    DeviceControlInterface lOther;
    {
        ScriptedControl lControl;
        lControl.DoAtClose( [&] { lDone += mInterface.IsOpened() ? "open;" : "closed;"; } )
            .DoAtEnd(
                [&]
                { lDone += std::to_string( ScriptedControl::GetInterfaceCount() ) + " left;"; } );
        EXPECT_TRUE( Open().IsOK() );
        EXPECT_TRUE( mInterface.Close().IsOK() );
        EXPECT_TRUE( lOther.Close().IsOK() );
        EXPECT_EQ( "open;closed;", lDone );
        EXPECT_EQ( 2U, lControl.GetCloseCount() );
        lDone.clear();
        {
            const DeviceControlInterface lThird;
        }
        EXPECT_EQ( "3 left;", lDone );
    }
    EXPECT_TRUE( mInterface.Close().IsOK() ); // the script no longer exists
    EXPECT_EQ( "3 left;", lDone );
}

TEST_F( ScriptedControlTest, IsNotConnectedWithoutAScriptOrDevice )
{
    EXPECT_EQ( 0x0017U, Send( { COMMAND } ).GetCode() );
    EXPECT_FALSE( Open().IsOK() );
    EXPECT_TRUE( mInterface.Close().IsOK() );
    ScriptedControl lControl;
    EXPECT_EQ( 0x0017U, Send( { COMMAND } ).GetCode() );
    EXPECT_EQ( 1U, lControl.GetCalls().size() );
    lControl.Expect( COMMAND ).Reply( { 1 } );
    EXPECT_TRUE( Send( { COMMAND } ).IsOK() ); // the expected reply comes, open or not
    EXPECT_TRUE( mComplaints.empty() );
}

TEST_F( ScriptedControlTest, PassesUnscriptedCommandsToADevice )
{
    ScriptedControl lControl;
    EXPECT_TRUE( Open().IsOK() );
    lControl.Attach(
        []( const Bytes& aCommand ) {
            return aCommand == OTHER ? Bytes() : Bytes{ 5, 5 };
        } );
    int lDone = 0;
    lControl.Expect( OTHER ).Reply( { 1 } ).Do( [&lDone] { ++lDone; } );
    EXPECT_TRUE( Send( { OTHER } ).IsOK() );
    EXPECT_EQ( 1, lDone );
    EXPECT_TRUE( Send( { COMMAND } ).IsOK() );
    EXPECT_EQ( 2U, mRecords[0].mAckLength );
    EXPECT_EQ( 0x001EU, Send( { OTHER } ).GetCode() );
    EXPECT_EQ( 0U, mRecords[0].mAckLength );
    EXPECT_TRUE( mComplaints.empty() );
}

} // namespace
