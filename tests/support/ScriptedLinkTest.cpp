#include "tests/support/ScriptedLinkTest.h"

#include <chrono>
#include <future>

namespace TestSupport
{

using QmUtilsLib::Scripted::VirtualClock;
using WdUtilsLib::Network::IpAddress;
using WdUtilsLib::Scripted::ScriptedNetwork;

namespace
{

constexpr unsigned short DEVICE_PORT = 3956;
constexpr uint32_t DEVICE_ADDRESS = 0xC000020A; // 192.0.2.10, for documentation

} // namespace

std::string LogLine( const std::string& aLogger, int aPriority, const std::string& aFormat,
                     const std::string& aText )
{
    return MakeLogLine( aLogger, aPriority, "Libraries/HtBase/BaseCommandLinkGEV",
                        "HtBaseLib::BaseCommandLinkGEV::SendCommand", aFormat, aText );
}

LinkLog::LinkLog( const std::string& aLinkLogger, const std::string& aLibLogger )
    : RETRY( LogLine( aLinkLogger, 30000, "Command link retry", "Command link retry" ) )
    , UNABLE( LogLine( aLinkLogger, 30000, "Command link unable to send command",
                       "Command link unable to send command" ) )
    , TIMEOUT( LogLine( aLinkLogger, 30000, "Command link timeout", "Command link timeout" ) )
    , UNEXPECTED( LogLine( aLinkLogger, 30000,
                           "Unexpected device answer - malformed or out of sync",
                           "Unexpected device answer - malformed or out of sync" ) )
    , FAILURE( LogLine( aLibLogger, 40000, "Command link operation failure",
                        "Command link operation failure" ) )
{
}

bool IsMutexFree( TestLinkGEV& aLink )
{
    std::future<void> lOther = std::async( std::launch::async,
                                           [&aLink]
                                           {
                                               aLink.LockMutex();
                                               aLink.ReleaseMutex();
                                           } );
    return lOther.wait_for( std::chrono::seconds( 10 ) ) == std::future_status::ready;
}

ScriptedLinkTest::ScriptedLinkTest()
{
    EXPECT_TRUE( mSocket.Open().IsOK() );
    EXPECT_TRUE( mSocket.Connect( IpAddress( DEVICE_ADDRESS ), DEVICE_PORT ).IsOK() );
}

long long ScriptedLinkTest::GetElapsed() const
{
    return VirtualClock::Now() - mStart;
}

std::vector<long long> ScriptedLinkTest::GetSendTimes() const
{
    std::vector<long long> lTimes;
    for ( const ScriptedNetwork::Sent& lSent : mNet.GetSends() )
    {
        lTimes.push_back( lSent.mTime - mStart );
    }
    return lTimes;
}

std::vector<Bytes> ScriptedLinkTest::GetSentBytes() const
{
    std::vector<Bytes> lBytes;
    for ( const ScriptedNetwork::Sent& lSent : mNet.GetSends() )
    {
        lBytes.push_back( lSent.mBytes );
    }
    return lBytes;
}

void ScriptedLinkTest::ExpectLog( const Log& aExpected ) const
{
    EXPECT_EQ( GetLines( mLog ), aExpected );
}

void ScriptedLinkTest::ExpectCounters( const HtBaseLib::BaseCommandLinkGEV& aLink,
                                       long long aRetries, long long aRetriesMax,
                                       long long aPending, long long aFailures )
{
    EXPECT_EQ( aLink.GetRetriesCount(), aRetries );
    EXPECT_EQ( aLink.GetRetriesMax(), aRetriesMax );
    EXPECT_EQ( aLink.GetPendingAcknowledgesCount(), aPending );
    EXPECT_EQ( aLink.GetTransmitFailures(), aFailures );
}

} // namespace TestSupport
