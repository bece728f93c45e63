// The link over real sockets, against the virtual device and against canned answers.

#include "tests/support/LoopbackDevice.h"
#include "tests/support/Packets.h"

#include <QmUtilsLib/String.h>
#include <QmUtilsLib/Thread.h>
#include <SimpleCommandLinkGEV.h>

#include <sys/resource.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>

namespace
{

using HtBaseLib::SimpleCommandLinkGEV;
using QmUtilsLib::Result;
using Simulators::ConfigurationGEV;
using Simulators::DeviceServer;
using Simulators::Endpoint;
using Simulators::FaultPlan;
using Simulators::Outgoing;
using TestSupport::Bytes;
using TestSupport::LoopbackDevice;
using TestSupport::LoopbackSocket;
using TestSupport::PatientLink;
using TestSupport::Pattern;

constexpr long long MEMORY = 0x00100000;
constexpr long long SCRATCH = 0xA000;
constexpr long long CONTROL = 0x0A00;
constexpr long long PIECE = 512;

// The concrete link, but so patient that a slow machine causes no retry.
class VeryPatientLink : public SimpleCommandLinkGEV
{
public:
    using SimpleCommandLinkGEV::SimpleCommandLinkGEV;

protected:
    int GetAnswerTimeout() const override { return 20000; }
};

void TakeControl( HtBaseLib::BaseCommandLinkGEV& aLink )
{
    const unsigned int lControl = 2;
    ASSERT_TRUE( aLink.WriteRegister( &lControl, CONTROL, false ).IsOK() );
}

// Writes and reads back in pieces.
void MoveMemory( HtBaseLib::BaseCommandLinkGEV& aLink, const Bytes& aBytes )
{
    const auto lSize = static_cast<long long>( aBytes.size() );
    for ( long long lAt = 0; lAt < lSize; lAt += PIECE )
    {
        const Result lResult = aLink.WriteMemory( aBytes.data() + lAt, MEMORY + lAt, PIECE, false );
        ASSERT_TRUE( lResult.IsOK() ) << lResult.GetDescription().GetAscii();
    }
    Bytes lBack( aBytes.size() );
    for ( long long lAt = 0; lAt < lSize; lAt += PIECE )
    {
        const Result lResult = aLink.ReadMemory( lBack.data() + lAt, MEMORY + lAt, PIECE );
        ASSERT_TRUE( lResult.IsOK() ) << lResult.GetDescription().GetAscii();
    }
    EXPECT_EQ( aBytes, lBack );
}

// Device answers that the test lays down: a function from the request to datagrams.
class CannedDevice
{
public:
    using Answers = std::function<std::vector<Bytes>( const Bytes& aRequest )>;

    explicit CannedDevice( Answers aAnswers )
        : mServer(
              [lAnswers = std::move( aAnswers )]( const Endpoint& aFrom, const uint8_t* aData,
                                                  size_t aSize, int64_t )
              {
                  std::vector<Outgoing> lOut;
                  for ( Bytes& lBytes : lAnswers( Bytes( aData, aData + aSize ) ) )
                  {
                      lOut.push_back( { std::move( lBytes ), 0, aFrom } );
                  }
                  return lOut;
              } )
    {
        EXPECT_TRUE( mServer.Open( {} ).IsOK() );
        mServer.Start();
    }

    unsigned short GetPort() const { return mServer.GetPort(); }

private:
    DeviceServer mServer;
};

} // namespace

TEST( LinkOverLoopback, ReadsAndWritesRegistersAndMemoryOfADevice )
{
    LoopbackDevice lDevice;
    LoopbackSocket lSocket( lDevice.GetPort() );
    VeryPatientLink lLink( &lSocket.mSocket );

    unsigned int lValue = 0;
    ASSERT_TRUE( lLink.ReadRegister( &lValue, 0x0000 ).IsOK() );
    EXPECT_EQ( 0x00020000U, lValue ) << "version 2.0";
    char lName[32] = {};
    ASSERT_TRUE( lLink.ReadMemory( lName, 0x0048, sizeof( lName ) ).IsOK() );
    EXPECT_STREQ( "HtBase Virtual Devices", lName );

    TakeControl( lLink );
    const unsigned int lWritten = 0x11223344;
    ASSERT_TRUE( lLink.WriteRegister( &lWritten, SCRATCH, false ).IsOK() );
    ASSERT_TRUE( lLink.ReadRegister( &lValue, SCRATCH ).IsOK() );
    EXPECT_EQ( lWritten, lValue );
    MoveMemory( lLink, Pattern( 8 * PIECE ) );
    EXPECT_EQ( 0, lLink.GetRetriesCount() );
}

TEST( LinkOverLoopback, AWriteWithoutAcknowledgeArrivesAndIsNotAnswered )
{
    LoopbackDevice lDevice;
    LoopbackSocket lSocket( lDevice.GetPort() );
    VeryPatientLink lLink( &lSocket.mSocket );
    TakeControl( lLink );

    const unsigned int lWritten = 0x55667788;
    ASSERT_TRUE( lLink.WriteRegister( &lWritten, SCRATCH, true ).IsOK() );
    // The device handles datagrams in order, so the answer to a read proves the write is done.
    unsigned int lValue = 0;
    ASSERT_TRUE( lLink.ReadRegister( &lValue, SCRATCH ).IsOK() );
    EXPECT_EQ( lWritten, lValue );
    const uint64_t lAnswers =
        lDevice.mServer.Access( [&] { return lDevice.mDevice.GetTotal().mAnswers; } );
    EXPECT_EQ( 2U, lAnswers ) << "to the write of control and to the read";
}

TEST( LinkOverLoopback, DescribesWhyTheDeviceRefused )
{
    LoopbackDevice lDevice;
    LoopbackSocket lFirst( lDevice.GetPort() );
    LoopbackSocket lSecond( lDevice.GetPort() );
    VeryPatientLink lHolder( &lFirst.mSocket );
    VeryPatientLink lOther( &lSecond.mSocket );
    TakeControl( lHolder );

    const unsigned int lValue = 1;
    const Result lDenied = lOther.WriteRegister( &lValue, SCRATCH, false );
    EXPECT_EQ( Result::GENERIC_ERROR, lDenied.GetCode() );
    EXPECT_EQ( 0U, lDenied.GetOSCode() );
    EXPECT_STREQ( "Access denied status received from the device. The device is probably already "
                  "in use.",
                  lDenied.GetDescription().GetAscii() );

    unsigned int lRead = 0x5A5A5A5A;
    const Result lNowhere = lOther.ReadRegister( &lRead, 0x7FFFFFF0 );
    EXPECT_STREQ( "Invalid address status received from the device.",
                  lNowhere.GetDescription().GetAscii() );
    EXPECT_EQ( 0x5A5A5A5AU, lRead );
    EXPECT_EQ( 0, lOther.GetRetriesCount() ) << "a refusal is an answer";
}

TEST( LinkOverLoopback, MovesMemoryThroughLossDelayDuplicatesAndReordering )
{
    for ( uint64_t lSeed = 1; lSeed <= 3; ++lSeed )
    {
        FaultPlan::Rates lRates;
        lRates.mLoss = 0.1;
        lRates.mDelay = 0.1;
        lRates.mDuplicate = 0.1;
        lRates.mReorder = 0.05;
        lRates.mMaxDelayMs = 15;
        lRates.mHoldMs = 30;
        DeviceServer::Options lOptions;
        lOptions.mRequestFaults = FaultPlan( lRates, lSeed );
        lOptions.mAnswerFaults = FaultPlan( lRates, lSeed + 100 );
        LoopbackDevice lDevice( {}, lOptions );
        LoopbackSocket lSocket( lDevice.GetPort() );
        PatientLink lLink( &lSocket.mSocket, 20, 25 );
        TakeControl( lLink );

        MoveMemory( lLink, Pattern( 32 * PIECE ) );
        EXPECT_GT( lLink.GetRetriesCount(), 0 );
        EXPECT_LE( lLink.GetRetriesMax(), lLink.GetRetriesCount() );
    }
}

TEST( LinkOverLoopback, SurvivesTruncatedCorruptedAndStrayDatagrams )
{
    FaultPlan::Rates lRates;
    lRates.mTruncate = 0.1;
    lRates.mCorrupt = 0.1;
    lRates.mStray = 0.2;
    lRates.mCorruptData = true;
    DeviceServer::Options lOptions;
    lOptions.mRequestFaults = FaultPlan( lRates, 11 );
    lOptions.mAnswerFaults = FaultPlan( lRates, 12 );
    LoopbackDevice lDevice( {}, lOptions );
    LoopbackSocket lSocket( lDevice.GetPort() );
    PatientLink lLink( &lSocket.mSocket, 20, 15 );

    std::atomic<int> lStrays{ 0 };
    QmUtilsLib::Logger::SetThreshold( QmUtilsLib::Logger::ANOMALY );
    QmUtilsLib::Logger::SetSink(
        [&lStrays]( const QmUtilsLib::LogRecord& aRecord )
        {
            lStrays += std::strcmp( aRecord.mText, "Unexpected device answer - malformed or out of "
                                                   "sync" ) == 0;
        } );
    // Data may be damaged, so only survival and the counters can be checked.
    int lAnswered = 0;
    for ( int lIndex = 0; lIndex < 200; ++lIndex )
    {
        Bytes lBack( PIECE );
        lAnswered += lLink.ReadMemory( lBack.data(), MEMORY, PIECE ).IsOK() ? 1 : 0;
    }
    QmUtilsLib::Logger::SetThreshold( QmUtilsLib::Logger::QUIET );
    QmUtilsLib::Logger::SetSink( nullptr );
    EXPECT_GT( lAnswered, 0 );
    EXPECT_GT( lLink.GetRetriesCount(), 0 );
    EXPECT_GT( lStrays, 0 );
}

TEST( LinkOverLoopback, WaitsAsLongAsADeviceAsksForMoreTime )
{
    ConfigurationGEV lConfiguration;
    lConfiguration.mPending.mAnnouncedMs = 20000;
    lConfiguration.mPending.mTakesMs = 800;
    lConfiguration.mPending.mTimes = 2;
    LoopbackDevice lDevice( lConfiguration );
    LoopbackSocket lSocket( lDevice.GetPort() );
    PatientLink lLink( &lSocket.mSocket, 1, 1200 ); // the answer takes 1600 ms

    unsigned int lValue = 0;
    EXPECT_TRUE( lLink.ReadRegister( &lValue, 0x0000 ).IsOK() );
    EXPECT_EQ( 2, lLink.GetPendingAcknowledgesCount() );
    EXPECT_EQ( 0, lLink.GetRetriesCount() );
}

TEST( LinkOverLoopback, TwoLinksOnTwoThreadsDoNotDisturbEachOther )
{
    LoopbackDevice lOne;
    LoopbackDevice lTwo;
    const auto lWork = []( const LoopbackDevice& aDevice, unsigned int aSalt )
    {
        LoopbackSocket lSocket( aDevice.GetPort() );
        SimpleCommandLinkGEV lLink( &lSocket.mSocket );
        TakeControl( lLink );
        for ( unsigned int lIndex = 0; lIndex < 300; ++lIndex )
        {
            const unsigned int lWritten = lIndex * 2 + aSalt;
            unsigned int lRead = 0;
            ASSERT_TRUE( lLink.WriteRegister( &lWritten, SCRATCH, false ).IsOK() );
            ASSERT_TRUE( lLink.ReadRegister( &lRead, SCRATCH ).IsOK() );
            ASSERT_EQ( lWritten, lRead );
        }
    };
    std::thread lOther( [&] { lWork( lOne, 0 ); } );
    lWork( lTwo, 1 );
    lOther.join();
}

TEST( LinkOverLoopback, ClosingTheSocketEndsAWaitingTransactionAtOnce )
{
    ConfigurationGEV lConfiguration;
    lConfiguration.mPending.mAnnouncedMs = 60000;
    lConfiguration.mPending.mTakesMs = 60000;
    lConfiguration.mPending.mTimes = 1;
    LoopbackDevice lDevice( lConfiguration );
    LoopbackSocket lSocket( lDevice.GetPort() );
    SimpleCommandLinkGEV lLink( &lSocket.mSocket );

    std::thread lOwner(
        [&]
        {
            while ( lLink.GetPendingAcknowledgesCount() == 0 )
            {
                std::this_thread::sleep_for( std::chrono::milliseconds( 1 ) );
            }
            EXPECT_TRUE( lSocket.mSocket.Close().IsOK() );
        } );
    unsigned int lValue = 7;
    // Within the time limit of the test, a fraction of the minute that the device asked for.
    EXPECT_EQ( Result::NOT_CONNECTED, lLink.ReadRegister( &lValue, 0x0000 ).GetCode() );
    EXPECT_EQ( 7U, lValue );
    lOwner.join();
}

TEST( LinkOverLoopback, ReportsThatNoProgramListens )
{
    unsigned short lPort = 0;
    {
        const LoopbackSocket lGone( 9 );
        lPort = lGone.mSocket.GetLocalPort();
    }
    LoopbackSocket lSocket( lPort );
    SimpleCommandLinkGEV lLink( &lSocket.mSocket );
    unsigned int lValue = 0;
    const Result lResult = lLink.ReadRegister( &lValue, 0x0000 );
    EXPECT_EQ( Result::GENERIC_ERROR, lResult.GetCode() );
    EXPECT_EQ( static_cast<unsigned int>( ECONNREFUSED ), lResult.GetOSCode() );
}

// Every proper prefix of a good acknowledge comes first, the good one right after it.
TEST( LinkOverLoopback, EveryTruncatedAnswerIsDroppedAndTheCompleteOneAccepted )
{
    std::atomic<size_t> lPrefix{ 0 };
    CannedDevice lDevice(
        [&lPrefix]( const Bytes& aRequest )
        {
            Bytes lGood{
                0x00,        0x00,                    // status: success
                0x00,        0x85,                    // READMEM acknowledge
                0x00,        0x44,                    // length: address and 64 bytes
                aRequest[6], aRequest[7],             // identifier
                0x00,        0x10,        0x00, 0x00, // address
            };
            for ( uint8_t lByte = 0; lByte < 64; ++lByte )
            {
                lGood.push_back( static_cast<uint8_t>( 0xC0 ^ lByte ) );
            }
            const Bytes lCut( lGood.begin(),
                              lGood.begin() + static_cast<std::ptrdiff_t>( lPrefix.load() ) );
            return std::vector<Bytes>{ lCut, lGood };
        } );
    LoopbackSocket lSocket( lDevice.GetPort() );
    VeryPatientLink lLink( &lSocket.mSocket );
    for ( lPrefix = 0; lPrefix < 76; ++lPrefix )
    {
        uint8_t lBack[64] = {};
        ASSERT_TRUE( lLink.ReadMemory( lBack, MEMORY, sizeof( lBack ) ).IsOK() ) << lPrefix;
        ASSERT_EQ( 0xC0, lBack[0] ) << lPrefix;
        ASSERT_EQ( 0xFF, lBack[63] ) << lPrefix;
    }
    EXPECT_EQ( 0, lLink.GetRetriesCount() );
}

TEST( LinkOverLoopback, ControlIsFreedAfterSilenceOfItsHolder )
{
    ConfigurationGEV lConfiguration;
    lConfiguration.mHeartbeatTimeoutMs = 1500;
    LoopbackDevice lDevice( lConfiguration );
    LoopbackSocket lFirst( lDevice.GetPort() );
    LoopbackSocket lSecond( lDevice.GetPort() );
    SimpleCommandLinkGEV lHolder( &lFirst.mSocket );
    SimpleCommandLinkGEV lOther( &lSecond.mSocket );
    TakeControl( lHolder );
    const unsigned int lControl = 2;
    EXPECT_FALSE( lOther.WriteRegister( &lControl, CONTROL, false ).IsOK() );
    std::this_thread::sleep_for( std::chrono::milliseconds( 1600 ) );
    EXPECT_TRUE( lOther.WriteRegister( &lControl, CONTROL, false ).IsOK() );
}

// Under a limit of no open files poll refuses every socket; those that are open can still be used.
TEST( LinkOverLoopback, AWaitThatTheSystemRefusesEndsTheCommandWithItsError )
{
    const WdUtilsLib::Network::IpAddress lLoopback( 0x7F000001 );
    WdUtilsLib::Network::SocketUDP lSilent;
    WdUtilsLib::Network::SocketUDP lSocket;
    SimpleCommandLinkGEV lLink( &lSocket );
    unsigned int lValue = 77;
    // A sanitizer that looks at the link for the first time opens a file.
    EXPECT_EQ( lLink.ReadRegister( &lValue, CONTROL ).GetCode(), Result::NOT_CONNECTED );
    ASSERT_TRUE( lSilent.Open( &lLoopback ).IsOK() );
    ASSERT_TRUE( lSocket.Open( &lLoopback ).IsOK() );
    ASSERT_TRUE( lSocket.Connect( lLoopback, lSilent.GetLocalPort() ).IsOK() );
    rlimit lLimit{};
    ASSERT_EQ( getrlimit( RLIMIT_NOFILE, &lLimit ), 0 );
    const rlimit lNothing{ 0, lLimit.rlim_max };

    ASSERT_EQ( setrlimit( RLIMIT_NOFILE, &lNothing ), 0 );
    const Result lResult = lLink.ReadRegister( &lValue, CONTROL );
    ASSERT_EQ( setrlimit( RLIMIT_NOFILE, &lLimit ), 0 );
    EXPECT_EQ( lResult.GetCode(), Result::GENERIC_ERROR );
    EXPECT_EQ( lResult.GetOSCode(), static_cast<unsigned int>( EINVAL ) );
    EXPECT_EQ( lLink.GetRetriesCount(), 0 );
    EXPECT_EQ( lValue, 77U );
}
