// Reading a device, read by read and line by line, against transcripts written by hand.

#include "tests/support/ScriptedDevice.h"
#include "tests/support/Transcripts.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <iomanip>
#include <set>
#include <sstream>

namespace
{

using TestSupport::GetTranscriptTestName;
using TestSupport::MAC;
using TestSupport::ReadTranscript;
using TestSupport::Record;
using TestSupport::RegisterTable;
using TestSupport::RunRecorder;
using TestSupport::ScriptedDevice;

const char* const PROFILES[] = {
    "maker-device-1.0",
    "maker-device-2.0-published-ports",
    "maker-device-2.1-fixed-ports",
    "maker-transmitter-1.2",
    "no-channels-2.0",
    "no-stream-channels-1.1",
    "refused-device-mode",
    "refused-device-version",
    "refused-gvcp-capability",
    "refused-manufacturer-information",
    "refused-message-channel-count",
    "refused-message-source-port",
    "refused-optional-reads",
    "refused-second-source-port",
    "refused-stream-channel-count",
    "refused-tick-frequency-high",
    "refused-version",
    "silent-optional-reads",
    "silent-version",
    "version-1.0",
    "version-1.1",
    "version-1.2",
    "version-2.0",
    "version-2.1",
};

std::string GetPath( const std::string& aProfile )
{
    return std::string( HTBASE_TRANSCRIPTS ) + "/gev-" + aProfile + ".txt";
}

// Sets the device up as a line of the transcript describes it. False: the line does not describe
// it.
bool Prepare( RegisterTable& aTable, const std::string& aLine )
{
    std::istringstream lLine( aLine );
    std::string lVerb;
    lLine >> lVerb;
    if ( lVerb == "maker" )
    {
        std::string lProduct;
        lLine >> lProduct;
        EXPECT_TRUE( lProduct == "device" || lProduct == "transmitter" );
        lProduct == "device" ? TestSupport::MakeCorvaneDevice()
                             : TestSupport::MakeCorvaneTransmitter();
        return true;
    }
    uint32_t lAddress = 0;
    uint32_t lValue = 0;
    lLine >> std::setbase( 0 ) >> lAddress;
    if ( lVerb == "silent" )
    {
        aTable.Silence( lAddress );
        return !lLine.fail();
    }
    lLine >> lValue;
    if ( lVerb == "register" )
    {
        aTable.SetRegister( lAddress, lValue );
    }
    else if ( lVerb == "refuse" )
    {
        aTable.Refuse( lAddress, static_cast<uint16_t>( lValue ) );
    }
    else if ( lVerb == "text" )
    {
        std::string lText;
        std::getline( lLine >> std::ws, lText );
        aTable.SetText( lAddress, lValue, lText );
    }
    else
    {
        return false;
    }
    return !lLine.fail();
}

class CapabilitiesGEVTranscript : public testing::TestWithParam<const char*>
{
protected:
    CapabilitiesGEVTranscript()
    {
        mDevice.mTable.SetObserver(
            [this]( const RegisterTable::Read& aRead )
            {
                const std::string lAddress = TestSupport::ToText( aRead.mAddress );
                mRun.mHappened.push_back( aRead.mSize == 0 ? "read " + lAddress
                                                           : "memory " + lAddress + " " +
                                                                 std::to_string( aRead.mSize ) );
            } );
    }

    ScriptedDevice mDevice;
    RunRecorder mRun;
};

} // namespace

TEST_P( CapabilitiesGEVTranscript, MatchesEveryReadAndLogLine )
{
    const std::vector<std::string> lLines = ReadTranscript( GetPath( GetParam() ) );
    const auto lFirstRun = std::find( lLines.begin(), lLines.end(), "run" );
    ASSERT_NE( lLines.end(), lFirstRun );
    for ( auto lLine = lLines.begin(); lLine != lFirstRun; ++lLine )
    {
        ASSERT_TRUE( Prepare( mDevice.mTable, *lLine ) ) << *lLine;
    }

    Record lRecord( MAC );
    EXPECT_THAT( mRun.mHappened, testing::IsEmpty() ) << "making a record";
    for ( auto lLine = lFirstRun; lLine != lLines.end(); ++lLine )
    {
        if ( *lLine == "run" )
        {
            mRun.mHappened.emplace_back( "run" );
            const unsigned int lCode = lRecord.Init( &mDevice.mSocket ).GetCode();
            mRun.mHappened.push_back( "result " + TestSupport::ToText( lCode ) );
        }
    }
    EXPECT_EQ( std::vector<std::string>( lFirstRun, lLines.end() ), mRun.mHappened );
}

TEST_P( CapabilitiesGEVTranscript, NamesLoggerAndUnit )
{
    for ( const std::string& lLine : ReadTranscript( GetPath( GetParam() ) ) )
    {
        (void)Prepare( mDevice.mTable, lLine );
    }
    Record lRecord( MAC );
    (void)lRecord.Init( &mDevice.mSocket ); // the transcript has its result
    EXPECT_THAT( mRun.mLoggers, testing::ElementsAre( "HtBaseLib" ) );
    const std::set<std::pair<std::string, std::string>> lUnits = {
        { "HtBaseLib::CapabilitiesGEV::Init", "Libraries/HtBase/CapabilitiesGEV" },
        { "HtBaseLib::CapabilitiesGEV::ReadSCSPs", "Libraries/HtBase/CapabilitiesGEV" },
        { "HtBaseLib::BaseCommandLinkGEV::SendCommand", "Libraries/HtBase/BaseCommandLinkGEV" },
    };
    EXPECT_THAT( mRun.mUnits, testing::IsSubsetOf( lUnits ) );
}

INSTANTIATE_TEST_SUITE_P( Profiles, CapabilitiesGEVTranscript, testing::ValuesIn( PROFILES ),
                          GetTranscriptTestName );

TEST( CapabilitiesGEVTranscripts, AreAllPlayed )
{
    std::set<std::string> lPlayed;
    for ( const char* const lProfile : PROFILES )
    {
        lPlayed.insert( GetPath( lProfile ) );
    }
    EXPECT_EQ( TestSupport::ListTranscripts( HTBASE_TRANSCRIPTS, "gev-" ), lPlayed );
}
