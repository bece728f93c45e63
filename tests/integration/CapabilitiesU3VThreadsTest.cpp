// USB3 Vision capability records and many threads. Each thread has a link of its own, which answers
// from a table instead of a device.

#include "tests/support/Threads.h"

#include <CapabilitiesU3V.h>
#include <SimpleCommandLinkU3V.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <functional>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

namespace
{

using HtBaseLib::CapabilitiesU3V;
using HtBaseLib::SimpleCommandLinkU3V;
using QmUtilsLib::Result;
using TestSupport::BeginningThreads;
using TestSupport::Gate;
using TestSupport::RunThreads;
using WdUtilsLib::U3V::U3VGUID;

constexpr unsigned int THREADS = 16;

U3VGUID MakeGUID( unsigned int aNumber )
{
    char lText[U3VGUID::LENGTH + 1];
    std::snprintf( lText, sizeof( lText ), "1AB2%08X", aNumber );
    return U3VGUID( lText );
}

const U3VGUID GUID = MakeGUID( 1 );
const U3VGUID OTHER = MakeGUID( 2 );

// The device of all links; it records which link has read, one entry per read.
class Device
{
public:
    explicit Device( std::function<void()> aBeforeFirstAnswer = [] {} )
        : mBeforeFirstAnswer( std::move( aBeforeFirstAnswer ) )
    {
    }

    void Read( void* aData, long long aSize )
    {
        bool lIsFirst = false;
        {
            const std::lock_guard<std::mutex> lLock( mMutex );
            lIsFirst = mAskers.empty();
            mAskers.push_back( std::this_thread::get_id() );
        }
        if ( lIsFirst )
        {
            mBeforeFirstAnswer();
        }
        std::memset( aData, 0xFF, static_cast<std::size_t>( aSize ) );
    }

    std::vector<std::thread::id> GetAskers()
    {
        const std::lock_guard<std::mutex> lLock( mMutex );
        return mAskers;
    }

private:
    const std::function<void()> mBeforeFirstAnswer;
    std::mutex mMutex;
    std::vector<std::thread::id> mAskers;
};

constexpr std::size_t READS = 16; // all bits are set

class Link : public SimpleCommandLinkU3V
{
public:
    explicit Link( Device& aDevice )
        : mDevice( aDevice )
    {
    }
    Result ReadMemory( void* aData, long long /*aAddress*/, long long aSize ) override
    {
        mDevice.Read( aData, aSize );
        return Result::OK;
    }
    using SimpleCommandLinkU3V::UpdateMaxSizes;

private:
    Device& mDevice;
};

void ExpectFilled( const CapabilitiesU3V& aRecord )
{
    EXPECT_EQ( aRecord.GetGenCPVersion(), 0xFFFFFFFFU );
    EXPECT_EQ( aRecord.GetTimestampIncrement(), 0xFFFFFFFFFFFFFFFFU );
    EXPECT_EQ( aRecord.GetMaxAckTransferLength(), 0xFFFFFFFFU );
    EXPECT_EQ( aRecord.GetEIRMLength(), 0xFFFFFFFFU );
    EXPECT_EQ( aRecord.GetIIDC2Address(), 0xFFFFFFFFFFFFFFFFU );
}

class CapabilitiesU3VThreads : public testing::Test
{
protected:
    ~CapabilitiesU3VThreads() override { CapabilitiesU3V::Destroy(); }
};

} // namespace

TEST_F( CapabilitiesU3VThreads, AskingForTheSameDeviceGetTheSameRecord )
{
    constexpr unsigned int DEVICES = 64;
    std::vector<std::vector<CapabilitiesU3V*>> lRecords( THREADS );
    RunThreads( THREADS,
                [&lRecords]( unsigned int aIndex )
                {
                    for ( unsigned int lDevice = 0; lDevice < DEVICES; ++lDevice )
                    {
                        lRecords[aIndex].push_back(
                            CapabilitiesU3V::GetCapabilities( MakeGUID( lDevice ), nullptr ) );
                    }
                } );
    for ( const std::vector<CapabilitiesU3V*>& lOne : lRecords )
    {
        EXPECT_EQ( lRecords[0], lOne );
    }
    EXPECT_EQ( std::set<CapabilitiesU3V*>( lRecords[0].begin(), lRecords[0].end() ).size(),
               DEVICES );
}

TEST_F( CapabilitiesU3VThreads, MayDestroyTheRecordsWhileOthersAskForThem )
{
    RunThreads( THREADS,
                []( unsigned int aIndex )
                {
                    for ( unsigned int lTurn = 0; lTurn < 50; ++lTurn )
                    {
                        if ( aIndex == 0 )
                        {
                            CapabilitiesU3V::Destroy();
                            continue;
                        }
                        EXPECT_NE( CapabilitiesU3V::GetCapabilities( MakeGUID( lTurn ), nullptr ),
                                   nullptr );
                    }
                } );
}

TEST_F( CapabilitiesU3VThreads, ReadADeviceOnceAndAllGetIt )
{
    BeginningThreads lBeginning;
    Device lDevice( [&] { EXPECT_TRUE( lBeginning.mGate.WaitFor( THREADS ) ); } );
    RunThreads( THREADS,
                [&lDevice]( unsigned int )
                {
                    CapabilitiesU3V* const lRecord =
                        CapabilitiesU3V::GetCapabilities( GUID, nullptr );
                    Link lLink( lDevice );
                    EXPECT_TRUE( lRecord->Init( &lLink ).IsOK() );
                    EXPECT_TRUE( lRecord->IsInitialized() );
                    ExpectFilled( *lRecord );
                } );
    const std::vector<std::thread::id> lAskers = lDevice.GetAskers();
    EXPECT_EQ( lAskers.size(), READS );
    EXPECT_EQ( std::set<std::thread::id>( lAskers.begin(), lAskers.end() ).size(), 1U );
}

TEST_F( CapabilitiesU3VThreads, SizeTheirLinksByOneReading )
{
    Device lDevice;
    RunThreads( THREADS,
                [&lDevice]( unsigned int )
                {
                    Link lLink( lDevice );
                    lLink.UpdateMaxSizes();
                    EXPECT_EQ( lLink.GetMaxCommandSize(), 1024U );
                    EXPECT_EQ( lLink.GetMaxAckSize(), 1024U );
                } );
    EXPECT_EQ( lDevice.GetAskers().size(), READS );
}

TEST_F( CapabilitiesU3VThreads, ReadARecordAndItsCopyOneAfterTheOther )
{
    BeginningThreads lBeginning;
    // All threads have begun, so only the shared mutex can keep the others waiting.
    Device lDevice( [&] { EXPECT_TRUE( lBeginning.mGate.WaitFor( 3 ) ); } );
    CapabilitiesU3V lSource( GUID, nullptr );
    CapabilitiesU3V lCopy( lSource );
    CapabilitiesU3V lAssigned( OTHER, nullptr );
    lAssigned = lCopy;
    CapabilitiesU3V* const lRecords[] = { &lSource, &lCopy, &lAssigned };
    RunThreads( 3,
                [&]( unsigned int aIndex )
                {
                    Link lLink( lDevice );
                    EXPECT_TRUE( lRecords[aIndex]->Init( &lLink ).IsOK() );
                    ExpectFilled( *lRecords[aIndex] );
                } );
    // Each record is read on its own, and the reads are not interleaved.
    const std::vector<std::thread::id> lAskers = lDevice.GetAskers();
    ASSERT_EQ( lAskers.size(), 3 * READS );
    for ( std::size_t lRun = 0; lRun < 3; ++lRun )
    {
        const auto lBegin = lAskers.begin() + static_cast<std::ptrdiff_t>( lRun * READS );
        EXPECT_EQ( std::vector<std::thread::id>( READS, *lBegin ),
                   std::vector<std::thread::id>( lBegin, lBegin + READS ) );
    }
}

TEST_F( CapabilitiesU3VThreads, GetOtherRecordsWhileADeviceIsRead )
{
    CapabilitiesU3V* lOther = nullptr;
    CapabilitiesU3V* lSame = nullptr;
    // On a thread of its own, while the record waits for the first answer.
    Device lDevice(
        [&]
        {
            std::thread lThread(
                [&]
                {
                    lOther = CapabilitiesU3V::GetCapabilities( OTHER, nullptr );
                    lSame = CapabilitiesU3V::GetCapabilities( GUID, nullptr );
                } );
            lThread.join();
        } );
    CapabilitiesU3V* const lRecord = CapabilitiesU3V::GetCapabilities( GUID, nullptr );
    Link lLink( lDevice );
    EXPECT_TRUE( lRecord->Init( &lLink ).IsOK() );
    EXPECT_NE( lOther, nullptr );
    EXPECT_NE( lOther, lRecord );
    EXPECT_EQ( lSame, lRecord );
}

TEST_F( CapabilitiesU3VThreads, MayUseTheRecordAsSoonAsItSaysItIsInitialised )
{
    Gate lAsked;
    Device lDevice( [&] { EXPECT_TRUE( lAsked.WaitFor( THREADS - 1 ) ); } );
    CapabilitiesU3V lRecord( GUID, nullptr );
    RunThreads( THREADS,
                [&]( unsigned int aIndex )
                {
                    if ( aIndex == 0 )
                    {
                        Link lLink( lDevice );
                        EXPECT_TRUE( lRecord.Init( &lLink ).IsOK() );
                        return;
                    }
                    EXPECT_FALSE( lRecord.IsInitialized() );
                    lAsked.Arrive();
                    while ( !lRecord.IsInitialized() )
                    {
                        std::this_thread::yield();
                    }
                    ExpectFilled( lRecord );
                } );
}
