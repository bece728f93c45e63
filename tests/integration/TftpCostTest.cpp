// What a block of an upload costs: one send, one receive, and nothing else.

#include "Libraries/HtBase/TftpClient.h"

#include "tests/support/AllocationCounter.h"
#include "tests/support/LoopbackTftpServer.h"
#include "tests/support/NetworkNamespace.h"
#include "tests/support/SystemCallTrace.h"
#include "tests/support/TftpBytes.h"

#include <WdUtilsLib/Network/IpAddress.h>

#include <gmock/gmock.h>

#include <sys/syscall.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace
{

using HtBaseLib::TftpClient;
using TestSupport::Bytes;
using TestSupport::GetAllocationCount;
using TestSupport::LoopbackTftpServer;
using TestSupport::Pattern;
using TestSupport::SystemCallTrace;
using WdUtilsLib::Network::IpAddress;

constexpr int TRIES = 10; // on a busy machine a wait may run out, and a block is sent again

// The system calls, in order, of an upload without losses.
std::vector<std::string> MakeWantedCalls( std::size_t aBlocks )
{
    std::vector<std::string> lCalls = { "socket", "bind" };
    lCalls.insert( lCalls.end(), { "sendto", "setsockopt", "recvfrom" } ); // the offer is taken
    for ( std::size_t lBlock = 0; lBlock < aBlocks; ++lBlock )
    {
        lCalls.insert( lCalls.end(), { "sendto", "recvfrom" } );
    }
    lCalls.insert( lCalls.end(), { "shutdown", "close" } );
    return lCalls;
}

class TftpCost : public testing::Test
{
protected:
    void SetUp() override
    {
        const std::string lReason = TestSupport::EnterTftpNetwork();
        if ( !lReason.empty() )
        {
            GTEST_SKIP() << lReason;
        }
        ASSERT_TRUE( mClient.Init( IpAddress( 0x7F000001 ), "a.bin" ).IsOK() );
    }

    bool Send( const Bytes& aContent )
    {
        return mClient.SendData( aContent.data(), static_cast<unsigned int>( aContent.size() ) )
            .IsOK();
    }

    // The calls of an upload in which nothing had to be sent again, if there is one.
    SystemCallTrace TraceUpload( const Bytes& aContent )
    {
        SystemCallTrace lTrace;
        for ( int lTry = 0; lTry < TRIES; ++lTry )
        {
            lTrace = TestSupport::TraceSystemCalls( [&] { return Send( aContent ); } );
            const std::size_t lSends = 1 + aContent.size() / 512 + 1;
            if ( !lTrace.mReason.empty() ||
                 lTrace.Count( SYS_sendto ) == static_cast<long>( lSends ) )
            {
                break;
            }
        }
        return lTrace;
    }

    // How often an upload allocates. A block that has to be sent again once or twice is warned of
    // no more than the others, so it costs nothing either.
    unsigned long long CountAllocations( const Bytes& aContent )
    {
        const unsigned long long lBefore = GetAllocationCount();
        const bool lIsSent = Send( aContent );
        const unsigned long long lAfter = GetAllocationCount();
        EXPECT_TRUE( lIsSent );
        return lAfter - lBefore;
    }

    TftpClient mClient;
};

} // namespace

TEST_F( TftpCost, ABlockIsOneSendAndOneReceive )
{
    LoopbackTftpServer lServer;
    ASSERT_TRUE( lServer.GetOpened().IsOK() );
    const Bytes lContent = Pattern( 100 * 512 );
    ASSERT_TRUE( Send( lContent ) ); // whatever the first transfer sets up for good
    const SystemCallTrace lTrace = TraceUpload( lContent );
    if ( !lTrace.mReason.empty() )
    {
        GTEST_SKIP() << lTrace.mReason;
    }
    EXPECT_TRUE( lTrace.mIsDone );
    EXPECT_EQ( lTrace.GetNames(), MakeWantedCalls( 101 ) );
    EXPECT_EQ( lServer.GetFile( "a.bin" ), lContent );
}

TEST_F( TftpCost, AnUploadAllocatesItsStreamAndNothingForABlock )
{
    LoopbackTftpServer lServer;
    ASSERT_TRUE( lServer.GetOpened().IsOK() );
    const Bytes lLong = Pattern( 3000 * 512 );
    ASSERT_TRUE( Send( lLong ) ); // whatever the first transfer sets up for good

    EXPECT_EQ( CountAllocations( Bytes() ), 1U );
    EXPECT_EQ( CountAllocations( lLong ), 1U );
}
