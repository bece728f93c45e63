// A command that succeeds does not allocate, and neither does a message that is not enabled. The
// command is one send and one receive.
// Over a real socket on loopback: the scripted one allocates.

#include "tests/support/AllocationCounter.h"
#include "tests/support/CannedResponder.h"
#include "tests/support/SystemCallTrace.h"

#include <QmUtilsLib/Logger.h>
#include <QmUtilsLib/String.h>
#include <SimpleCommandLinkGEV.h>
#include <WdUtilsLib/Network/IpAddress.h>
#include <WdUtilsLib/Network/SocketUDP.h>

#include <gtest/gtest.h>

#include <sys/syscall.h>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace
{

using namespace TestSupport;
using HtBaseLib::SimpleCommandLinkGEV;
using QmUtilsLib::Logger;
using QmUtilsLib::Result;
using WdUtilsLib::Network::IpAddress;
using WdUtilsLib::Network::SocketUDP;

// The acknowledge of each command, with the identifier of the request.
Bytes MakeAcknowledge( const Bytes& aRequest )
{
    const Bytes lIdentifier{ aRequest.at( 6 ), aRequest.at( 7 ) };
    const uint8_t lCode = aRequest.at( 3 );
    switch ( lCode )
    {
    case 0x80:
        return Packet( {
            { 0x00, 0x00 },             // status: success
            { 0x00, 0x81 },             // acknowledge: READREG
            { 0x00, 0x04 },             // length
            lIdentifier,                // acknowledge identifier
            { 0x01, 0x02, 0x03, 0x04 }, // value
        } );
    case 0x84:
        return Packet( {
            { 0x00, 0x00 },             // status: success
            { 0x00, 0x85 },             // acknowledge: READMEM
            { 0x02, 0x1C },             // length: address and 536 bytes
            lIdentifier,                // acknowledge identifier
            { 0x00, 0x00, 0xD8, 0x00 }, // address
            Bytes( 536, 0x77 ),         // data
        } );
    default:
        return Packet( {
            { 0x00, 0x00 },                                 // status: success
            { 0x00, static_cast<uint8_t>( lCode | 0x01 ) }, // acknowledge: WRITEREG, WRITEMEM
            { 0x00, 0x04 },                                 // length
            lIdentifier,                                    // acknowledge identifier
            { 0x00, 0x00 },                                 // reserved
            { 0x00, 0x01 },                                 // index
        } );
    }
}

const Bytes STRAY = Packet( {
    { 0x00, 0x00 },             // status: success
    { 0x00, 0x81 },             // acknowledge: READREG
    { 0x00, 0x04 },             // length
    { 0x00, 0x01 },             // acknowledge identifier of no command
    { 0x0A, 0x0B, 0x0C, 0x0D }, // value
} );

Bytes MakePending( const Bytes& aRequest )
{
    return Packet( {
        { 0x00, 0x00 },                         // status: success
        { 0x00, 0x89 },                         // acknowledge: PENDINGACK
        { 0x00, 0x04 },                         // length
        { aRequest.at( 6 ), aRequest.at( 7 ) }, // acknowledge identifier
        { 0x00, 0x00 },                         // reserved
        { 0x13, 0x88 },                         // time to completion: 5000 ms
    } );
}

class LinkAllocationTest : public testing::Test
{
protected:
    void Serve( CannedResponder::Handler aHandler )
    {
        mResponder = std::make_unique<CannedResponder>( std::move( aHandler ) );
        ASSERT_TRUE( mSocket.Open().IsOK() );
        ASSERT_TRUE( mSocket.Connect( IpAddress( 0x7F000001 ), mResponder->GetPort() ).IsOK() );
        // The first long wait makes room for what a wait receives.
        SocketUDP* lSocket = &mSocket;
        ASSERT_EQ( SocketUDP::SelectOnRx( &lSocket, 1, 20, nullptr ), nullptr );
    }

    std::unique_ptr<CannedResponder> mResponder;
    SocketUDP mSocket;
};

TEST_F( LinkAllocationTest, CountsWhatTheLibraryAllocates )
{
    // A refusal has a text, which has to be stored somewhere.
    Serve(
        []( const Bytes& aRequest )
        {
            Bytes lRefusal = MakeAcknowledge( aRequest );
            lRefusal[0] = 0x80;
            lRefusal[1] = 0x06;
            return std::vector<Bytes>{ lRefusal };
        } );
    SimpleCommandLinkGEV lLink( &mSocket );
    unsigned int lValue = 0;
    const unsigned long long lBefore = GetAllocationCount();
    const Result lResult = lLink.ReadRegister( &lValue, 0x0934 );
    EXPECT_GT( GetAllocationCount(), lBefore );
    EXPECT_EQ( lResult.GetCode(), 0x4000U );
}

TEST_F( LinkAllocationTest, ARefusalWithoutMemoryForItsTextKeepsItsCode )
{
    Serve(
        []( const Bytes& aRequest )
        {
            Bytes lRefusal = MakeAcknowledge( aRequest );
            lRefusal[0] = 0x80;
            lRefusal[1] = 0x07;
            return std::vector<Bytes>{ lRefusal };
        } );
    SimpleCommandLinkGEV lLink( &mSocket );
    unsigned int lNumber = 0;
    for ( bool lHasFailed = true; lHasFailed; )
    {
        unsigned int lValue = 0;
        Result lResult;
        const long long lBefore = GetLiveAllocationCount();
        {
            const AllocationFailure lFailure( ++lNumber );
            lResult = lLink.ReadRegister( &lValue, 0x0934 );
            lHasFailed = lFailure.HasHappened();
        }
        const long long lLeft = GetLiveAllocationCount() - lBefore;
        EXPECT_EQ( lLeft == 0, lHasFailed ) << lLeft; // but for a text
        EXPECT_EQ( lResult.GetCode(), 0x4000U );
        EXPECT_EQ( lResult.GetOSCode(), 0U );
        EXPECT_STREQ( lResult.GetDescription().GetAscii(),
                      lHasFailed ? "" : "Busy status received from the device." );
    }
    EXPECT_GT( lNumber, 2U );
}

TEST_F( LinkAllocationTest, NeedsNoHeapForACommandThatSucceeds )
{
    Serve( []( const Bytes& aRequest )
           { return std::vector<Bytes>{ MakeAcknowledge( aRequest ) }; } );
    SimpleCommandLinkGEV lLink( &mSocket );
    unsigned int lValue = 0;
    unsigned char lData[536] = {};
    int lSucceeded = 0;
    const unsigned long long lBefore = GetAllocationCount();
    for ( int lRound = 0; lRound < 10; ++lRound )
    {
        lSucceeded += lLink.ReadRegister( &lValue, 0x0934 ).IsOK() ? 1 : 0;
        lSucceeded += lLink.WriteRegister( &lValue, 0x0934, false ).IsOK() ? 1 : 0;
        lSucceeded += lLink.WriteRegister( &lValue, 0x0934, true ).IsOK() ? 1 : 0;
        lSucceeded += lLink.ReadMemory( lData, 0xD800, sizeof( lData ) ).IsOK() ? 1 : 0;
        lSucceeded += lLink.WriteMemory( lData, 0xD800, sizeof( lData ), false ).IsOK() ? 1 : 0;
    }
    const unsigned long long lAfter = GetAllocationCount();
    EXPECT_EQ( lAfter - lBefore, 0 );
    // An answer to the command that wanted none is a stray to the next, so all succeed.
    EXPECT_EQ( lSucceeded, 50 );
    EXPECT_EQ( lValue, 0x01020304U );
    EXPECT_EQ( lData[535], 0x77 );
}

TEST_F( LinkAllocationTest, ATransactionIsOneSendAndOneReceive )
{
    constexpr int ROUNDS = 20;
    Serve( []( const Bytes& aRequest )
           { return std::vector<Bytes>{ MakeAcknowledge( aRequest ) }; } );
    SimpleCommandLinkGEV lLink( &mSocket );
    const auto lRead = [&lLink]
    {
        int lSucceeded = 0;
        for ( int lRound = 0; lRound < ROUNDS; ++lRound )
        {
            unsigned int lValue = 0;
            lSucceeded += lLink.ReadRegister( &lValue, 0x0934 ).IsOK() ? 1 : 0;
        }
        return lSucceeded == ROUNDS;
    };
    ASSERT_TRUE( lRead() ); // whatever the first time sets up for good; a sanitizer's checks do
    // On a busy machine the wait for an answer may run out.
    SystemCallTrace lTrace;
    for ( int lTry = 0; lTry < 10 && lTrace.Count( SYS_sendto ) != ROUNDS; ++lTry )
    {
        lTrace = TraceSystemCalls( lRead );
        if ( !lTrace.mReason.empty() )
        {
            GTEST_SKIP() << lTrace.mReason;
        }
    }
    EXPECT_TRUE( lTrace.mIsDone );
    std::vector<std::string> lWanted;
    for ( int lRound = 0; lRound < ROUNDS; ++lRound )
    {
        lWanted.insert( lWanted.end(), { "sendto", "recvfrom" } );
    }
    EXPECT_EQ( lTrace.GetNames(), lWanted );
}

// The first of two requests is lost; the second is answered with a stray and a pending
// acknowledge before the answer.
class Troublemaker
{
public:
    std::vector<Bytes> operator()( const Bytes& aRequest )
    {
        mIsLost = !mIsLost;
        if ( mIsLost )
        {
            return {};
        }
        return { STRAY, MakePending( aRequest ), MakeAcknowledge( aRequest ) };
    }

private:
    bool mIsLost = false;
};

TEST_F( LinkAllocationTest, NeedsNoHeapForMessagesThatAreNotEnabled )
{
    int lRecords = 0;
    Logger::SetSink( [&lRecords]( const QmUtilsLib::LogRecord& ) { ++lRecords; } );
    Logger::SetThreshold( Logger::ANOMALY + 1 );
    Serve( Troublemaker() );
    SimpleCommandLinkGEV lLink( &mSocket );
    unsigned int lValue = 0;
    const unsigned long long lBefore = GetAllocationCount();
    const Result lResult = lLink.ReadRegister( &lValue, 0x0934 );
    const unsigned long long lAfter = GetAllocationCount();
    EXPECT_TRUE( lResult.IsOK() );
    EXPECT_EQ( lAfter - lBefore, 0 );
    EXPECT_GE( lLink.GetRetriesCount(), 1 );
    EXPECT_GE( lLink.GetPendingAcknowledgesCount(), 1 );
    EXPECT_EQ( lRecords, 0 );
    Logger::SetThreshold( Logger::QUIET );
    Logger::SetSink( nullptr );
}

} // namespace
