#include "tests/support/ScriptedControlTest.h"

#include <CapabilitiesU3V.h>
#include <QmUtilsLib/String.h>

#include <algorithm>

namespace TestSupport
{

namespace
{

constexpr const char* UNIT = "Libraries/HtBase/BaseCommandLinkU3V";
constexpr uint64_t SBRM = 0x1000000;

} // namespace

GuardedBuffer::GuardedBuffer( std::size_t aSize )
    : mBytes( GUARD + aSize + GUARD, FILL )
{
}

void GuardedBuffer::ExpectContents( const Bytes& aContents ) const
{
    Bytes lExpected( mBytes.size(), FILL );
    ASSERT_LE( aContents.size(), mBytes.size() - 2 * GUARD );
    std::copy( aContents.begin(), aContents.end(), lExpected.begin() + GUARD );
    EXPECT_EQ( mBytes, lExpected );
}

ScriptedControlTest::~ScriptedControlTest()
{
    // The link is destroyed after this, when the objects that a test's actions refer to no longer
    // exist.
    mControl.DoAtClose( nullptr ).DoAtEnd( nullptr );
    HtBaseLib::CapabilitiesU3V::Destroy();
}

void ScriptedControlTest::Open( HtBaseLib::BaseCommandLinkU3V& aLink )
{
    ASSERT_TRUE( aLink.Open( GUID, PATH ).IsOK() );
}

void ScriptedControlTest::OpenSized( uint32_t aMaxCommand, uint32_t aMaxAck )
{
    Open();
    mDevice.SetBasics( SBRM, aMaxCommand, aMaxAck );
    mControl.Attach( [this]( const Bytes& aCommand ) { return mDevice.Answer( aCommand ); } );
    mLink.UpdateMaxSizes();
    ASSERT_FALSE( mControl.GetConfigurations().empty() );
    ASSERT_EQ( mControl.GetConfigurations().back().mMaxAckTransferLength, aMaxAck );
    ASSERT_EQ( mControl.GetConfigurations().back().mMaxCommandTransferLength, aMaxCommand );
    mCallsOfSizing = mControl.GetCalls().size();
    mLog.Clear();
    mLink.mReads.clear();
}

WdTransportLayerLib::Scripted::ScriptedControl::Command ScriptedControlTest::GetLastCommand() const
{
    if ( mControl.GetCalls().empty() )
    {
        ADD_FAILURE() << "nothing was sent";
        return {};
    }
    return mControl.GetCalls().back().back();
}

std::string ScriptedControlTest::SizeLine( unsigned int aSize, unsigned int aLimit )
{
    return MakeLogLine(
        TestLinkU3V::LIB_LOGGER, 40000, UNIT, "HtBaseLib::BaseCommandLinkU3V::SendAtomicCommands",
        "Command of %d bytes is larger than maximum command size, %d",
        "Command of " + std::to_string( aSize ) + " bytes is larger than maximum command size, " +
            std::to_string( aLimit ) );
}

std::string ScriptedControlTest::StatusLine( const std::string& aText )
{
    return MakeLogLine( TestLinkU3V::LIB_LOGGER, 40000, UNIT,
                        "HtBaseLib::BaseCommandLinkU3V::ResultFromStatus", "%s", aText );
}

void ExpectResult( const QmUtilsLib::Result& aResult, unsigned int aCode, unsigned int aOSCode,
                   const std::string& aDescription )
{
    EXPECT_EQ( aResult.GetCode(), aCode );
    EXPECT_EQ( aResult.GetOSCode(), aOSCode );
    EXPECT_EQ( aResult.GetDescription().GetAscii(), aDescription );
}

} // namespace TestSupport
