// Reading a USB3 Vision device, read by read and line by line, against transcripts written by hand.

#include "tests/support/RegistersU3V.h"
#include "tests/support/Transcripts.h"

#include <CapabilitiesU3V.h>
#include <SimpleCommandLinkU3V.h>
#include <WdTransportLayerLib/Scripted/Control.h>

#include <gmock/gmock.h>

#include <cstdio>
#include <iomanip>
#include <sstream>

namespace
{

using HtBaseLib::CapabilitiesU3V;
using HtBaseLib::SimpleCommandLinkU3V;
using TestSupport::Bytes;
using TestSupport::GetTranscriptTestName;
using TestSupport::ReadTranscript;
using TestSupport::RegistersU3V;
using TestSupport::RunRecorder;
using WdUtilsLib::U3V::U3VGUID;

const char* const PROFILES[] = {
    "channels-without-maps",
    "everything",
    "large-numbers",
    "maps-without-channels",
    "not-open",
    "nothing",
    "refused-eirm-length",
    "refused-timestamp-increment",
    "silent-sbrm",
};

const U3VGUID GUID( "1AB200C0FFEE" );

std::string GetPath( const std::string& aProfile )
{
    return std::string( HTBASE_TRANSCRIPTS ) + "/u3v-" + aProfile + ".txt";
}

std::string ToHex( unsigned long long aNumber )
{
    char lText[24];
    std::snprintf( lText, sizeof( lText ), "0x%04llX", aNumber );
    return lText;
}

class CapabilitiesU3VTranscript : public testing::TestWithParam<const char*>
{
protected:
    CapabilitiesU3VTranscript()
    {
        mControl.Attach( [this]( const Bytes& aCommand ) { return mDevice.Answer( aCommand ); } );
        mDevice.SetObserver(
            [this]( const RegistersU3V::Read& aRead )
            {
                mRun.mHappened.push_back( "memory " + ToHex( aRead.mAddress ) + " " +
                                          std::to_string( aRead.mSize ) );
            } );
    }

    // Sets the device up as a line of the transcript describes it. False: the line does not
    // describe it.
    bool Prepare( const std::string& aLine )
    {
        if ( aLine == "closed" )
        {
            mIsOpened = false;
            return true;
        }
        std::istringstream lLine( aLine );
        std::string lVerb;
        uint64_t lAddress = 0;
        lLine >> lVerb >> std::setbase( 0 ) >> lAddress;
        if ( lVerb == "silent" )
        {
            mDevice.Silence( lAddress );
            return !lLine.fail();
        }
        uint64_t lValue = 0;
        lLine >> lValue;
        if ( lVerb == "word" )
        {
            mDevice.Set4( lAddress, static_cast<uint32_t>( lValue ) );
        }
        else if ( lVerb == "double" )
        {
            mDevice.Set8( lAddress, lValue );
        }
        else if ( lVerb == "refuse" )
        {
            mDevice.Refuse( lAddress, static_cast<uint16_t>( lValue ) );
        }
        else
        {
            return false;
        }
        return !lLine.fail();
    }

    RunRecorder mRun;
    WdTransportLayerLib::Scripted::ScriptedControl mControl;
    RegistersU3V mDevice;
    bool mIsOpened = true;
};

} // namespace

TEST_P( CapabilitiesU3VTranscript, MatchesEveryReadAndLogLine )
{
    const std::vector<std::string> lLines = ReadTranscript( GetPath( GetParam() ) );
    const auto lFirstRun = std::find( lLines.begin(), lLines.end(), "run" );
    ASSERT_NE( lLines.end(), lFirstRun );
    for ( auto lLine = lLines.begin(); lLine != lFirstRun; ++lLine )
    {
        ASSERT_TRUE( Prepare( *lLine ) ) << *lLine;
    }

    SimpleCommandLinkU3V lLink;
    if ( mIsOpened )
    {
        ASSERT_TRUE( lLink.Open( GUID, "2-1.4" ).IsOK() );
    }
    CapabilitiesU3V lRecord( GUID, nullptr );
    EXPECT_THAT( mRun.mHappened, testing::IsEmpty() ) << "making a link and a record";
    for ( auto lLine = lFirstRun; lLine != lLines.end(); ++lLine )
    {
        if ( *lLine == "run" )
        {
            mRun.mHappened.emplace_back( "run" );
            const unsigned int lCode = lRecord.Init( &lLink ).GetCode();
            mRun.mHappened.push_back( "result " + ToHex( lCode ) );
            EXPECT_EQ( lRecord.IsInitialized(), lCode == 0 );
        }
    }
    EXPECT_EQ( std::vector<std::string>( lFirstRun, lLines.end() ), mRun.mHappened );

    EXPECT_THAT( mRun.mLoggers, testing::ElementsAre( "HtBaseLib" ) );
    const std::set<std::pair<std::string, std::string>> lUnits = {
        { "HtBaseLib::CapabilitiesU3V::Init", "Libraries/HtBase/CapabilitiesU3V" },
        { "HtBaseLib::CapabilitiesU3V::UpdateABRM", "Libraries/HtBase/CapabilitiesU3V" },
        { "HtBaseLib::CapabilitiesU3V::UpdateSBRM", "Libraries/HtBase/CapabilitiesU3V" },
        { "HtBaseLib::BaseCommandLinkU3V::ResultFromStatus",
          "Libraries/HtBase/BaseCommandLinkU3V" },
    };
    EXPECT_THAT( mRun.mUnits, testing::IsSubsetOf( lUnits ) );
}

INSTANTIATE_TEST_SUITE_P( Profiles, CapabilitiesU3VTranscript, testing::ValuesIn( PROFILES ),
                          GetTranscriptTestName );

TEST( CapabilitiesU3VTranscripts, AreAllPlayed )
{
    std::set<std::string> lPlayed;
    for ( const char* const lProfile : PROFILES )
    {
        lPlayed.insert( GetPath( lProfile ) );
    }
    EXPECT_EQ( TestSupport::ListTranscripts( HTBASE_TRANSCRIPTS, "u3v-" ), lPlayed );
}
