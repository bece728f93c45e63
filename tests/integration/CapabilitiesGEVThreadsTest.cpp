// Capability records and many threads, over real sockets.

#include "tests/support/LoopbackDevice.h"
#include "tests/support/RegisterTable.h"
#include "tests/support/Threads.h"

#include <CapabilitiesGEV.h>
#include <QmUtilsLib/String.h>
#include <WdUtilsLib/Network/DeviceIdentity.h>

#include <gmock/gmock.h>

#include <atomic>
#include <functional>
#include <memory>
#include <set>
#include <thread>

namespace
{

using HtBaseLib::CapabilitiesGEV;
using QmUtilsLib::Result;
using Simulators::DeviceServer;
using Simulators::Endpoint;
using Simulators::Outgoing;
using TestSupport::BeginningThreads;
using TestSupport::Bytes;
using TestSupport::Gate;
using TestSupport::LoopbackDevice;
using TestSupport::LoopbackSocket;
using TestSupport::PatientLink;
using TestSupport::RegisterTable;
using TestSupport::RunThreads;
using WdUtilsLib::Network::DeviceIdentity;
using WdUtilsLib::Network::EthernetAddress;

constexpr unsigned int THREADS = 16;
constexpr int PATIENCE = 20000; // ms, so that no command is ever sent twice

const EthernetAddress ADDRESS( 0x0200, 0x5E100001 );
const EthernetAddress OTHER( 0x0200, 0x5E100002 );

// A table of registers on a port of 127.0.0.1, with something to do ahead of the first answer.
class TableServer
{
public:
    explicit TableServer( std::function<void()> aBeforeFirstAnswer )
        : mBeforeFirstAnswer( std::move( aBeforeFirstAnswer ) )
        , mServer( [this]( const Endpoint& aFrom, const uint8_t* aData, size_t aSize, int64_t )
                   { return Receive( aFrom, aData, aSize ); } )
    {
        mTable.SetRegister( 0x0000, 0x00020001 );
        mTable.SetRegister( 0x0004, 0x80000001 );
        mTable.SetRegister( 0x0934, 0xFFFFFFFF );
        mTable.SetRegister( 0x0904, 2 );
        mTable.SetRegister( 0x0900, 1 );
        mTable.SetRegister( 0x0930, 0x80000000 );
        mTable.SetRegister( 0x092C, 0x80000000 );
        mTable.SetRegister( 0x0B1C, 1111 );
        mTable.SetRegister( 0x0D1C, 2222 );
        mTable.SetRegister( 0x0D5C, 2223 );
        mTable.SetRegister( 0x0940, 3333 );
        mTable.SetRegister( 0x093C, 0 );
        mTable.SetText( 0x0088, 32, "1.0" );
        mTable.SetText( 0x00A8, 48, "none" );
        EXPECT_TRUE( mServer.Open( {} ).IsOK() );
        mServer.Start();
    }

    unsigned short GetPort() const { return mServer.GetPort(); }

    // The link that asked, one entry per read.
    std::vector<uint16_t> GetAskers()
    {
        return mServer.Access( [this] { return mAskers; } );
    }

private:
    std::vector<Outgoing> Receive( const Endpoint& aFrom, const uint8_t* aData, size_t aSize )
    {
        mAskers.push_back( aFrom.mPort );
        if ( mAskers.size() == 1 )
        {
            mBeforeFirstAnswer();
        }
        return { { mTable.Answer( Bytes( aData, aData + aSize ) ), 0, aFrom } };
    }

    RegisterTable mTable;
    const std::function<void()> mBeforeFirstAnswer;
    std::vector<uint16_t> mAskers;
    DeviceServer mServer; // last, because its thread uses the others
};

constexpr size_t READS = 14;

void ExpectFilled( const CapabilitiesGEV& aRecord )
{
    EXPECT_EQ( 2U, aRecord.GetVersionMajor() );
    EXPECT_TRUE( aRecord.IsUserDefinedNameSupported() );
    EXPECT_EQ( 1111U, aRecord.GetMessageChannelSourcePort() );
    EXPECT_EQ( 2223U, aRecord.GetStreamChannelSourcePort( 1 ) );
    EXPECT_EQ( 3333U, aRecord.GetTimestampTickFrequency() );
    EXPECT_TRUE( aRecord.IsEndOfBlockResendRequestSupported() );
}

class CapabilitiesGEVThreads : public testing::Test
{
protected:
    ~CapabilitiesGEVThreads() override { CapabilitiesGEV::Destroy(); }
};

} // namespace

TEST_F( CapabilitiesGEVThreads, AskingForTheSameDeviceGetTheSameRecord )
{
    constexpr unsigned int DEVICES = 64;
    std::vector<std::vector<CapabilitiesGEV*>> lRecords( THREADS );
    RunThreads( THREADS,
                [&lRecords]( unsigned int aIndex )
                {
                    for ( unsigned int lDevice = 0; lDevice < DEVICES; ++lDevice )
                    {
                        lRecords[aIndex].push_back( CapabilitiesGEV::GetCapabilities(
                            EthernetAddress( 0x0200, lDevice ) ) );
                    }
                } );
    for ( const std::vector<CapabilitiesGEV*>& lOne : lRecords )
    {
        EXPECT_EQ( lRecords[0], lOne );
    }
    EXPECT_EQ( DEVICES,
               std::set<CapabilitiesGEV*>( lRecords[0].begin(), lRecords[0].end() ).size() );
}

TEST_F( CapabilitiesGEVThreads, AskingForDifferentDevicesGetDifferentRecords )
{
    std::vector<CapabilitiesGEV*> lRecords( THREADS );
    RunThreads( THREADS,
                [&lRecords]( unsigned int aIndex ) {
                    lRecords[aIndex] =
                        CapabilitiesGEV::GetCapabilities( EthernetAddress( 0x0200, aIndex ) );
                } );
    EXPECT_EQ( THREADS, std::set<CapabilitiesGEV*>( lRecords.begin(), lRecords.end() ).size() );
}

TEST_F( CapabilitiesGEVThreads, MayDestroyTheRecordsWhileOthersAskForThem )
{
    RunThreads( THREADS,
                []( unsigned int aIndex )
                {
                    for ( unsigned int lTurn = 0; lTurn < 50; ++lTurn )
                    {
                        if ( aIndex == 0 )
                        {
                            CapabilitiesGEV::Destroy();
                            continue;
                        }
                        EXPECT_NE( nullptr, CapabilitiesGEV::GetCapabilities(
                                                EthernetAddress( 0x0200, lTurn ) ) );
                    }
                } );
}

TEST_F( CapabilitiesGEVThreads, ReadADeviceOnceAndAllGetIt )
{
    BeginningThreads lBeginning;
    TableServer lDevice( [&] { EXPECT_TRUE( lBeginning.mGate.WaitFor( THREADS ) ); } );
    RunThreads( THREADS,
                [&lDevice]( unsigned int )
                {
                    CapabilitiesGEV* const lRecord = CapabilitiesGEV::GetCapabilities( ADDRESS );
                    LoopbackSocket lSocket( lDevice.GetPort() );
                    PatientLink lLink( &lSocket.mSocket, 1, PATIENCE );
                    EXPECT_TRUE( lRecord->Init( &lLink ).IsOK() );
                    EXPECT_TRUE( lRecord->IsInitialized() );
                    ExpectFilled( *lRecord );
                } );
    const std::vector<uint16_t> lAskers = lDevice.GetAskers();
    EXPECT_EQ( READS, lAskers.size() );
    EXPECT_EQ( 1U, std::set<uint16_t>( lAskers.begin(), lAskers.end() ).size() );
}

TEST_F( CapabilitiesGEVThreads, ReadARecordAndItsCopyOneAfterTheOther )
{
    BeginningThreads lBeginning;
    // Both threads have begun, so only the shared mutex can keep the second one waiting.
    TableServer lDevice( [&] { EXPECT_TRUE( lBeginning.mGate.WaitFor( 3 ) ); } );
    CapabilitiesGEV lSource( ADDRESS );
    CapabilitiesGEV lCopy( lSource );
    CapabilitiesGEV lAssigned( OTHER );
    lAssigned = lCopy;
    CapabilitiesGEV* const lRecords[] = { &lSource, &lCopy, &lAssigned };
    RunThreads( 3,
                [&]( unsigned int aIndex )
                {
                    LoopbackSocket lSocket( lDevice.GetPort() );
                    PatientLink lLink( &lSocket.mSocket, 1, PATIENCE );
                    EXPECT_TRUE( lRecords[aIndex]->Init( &lLink ).IsOK() );
                    ExpectFilled( *lRecords[aIndex] );
                } );
    // Each record is read on its own, and the reads are not interleaved.
    const std::vector<uint16_t> lAskers = lDevice.GetAskers();
    ASSERT_EQ( 3 * READS, lAskers.size() );
    for ( size_t lRun = 0; lRun < 3; ++lRun )
    {
        const auto lBegin = lAskers.begin() + static_cast<std::ptrdiff_t>( lRun * READS );
        EXPECT_EQ( std::vector<uint16_t>( READS, *lBegin ),
                   std::vector<uint16_t>( lBegin, lBegin + READS ) );
    }
}

TEST_F( CapabilitiesGEVThreads, GetOtherRecordsWhileADeviceIsRead )
{
    std::atomic<CapabilitiesGEV*> lOther{ nullptr };
    std::atomic<CapabilitiesGEV*> lSame{ nullptr };
    // On the device's thread, while the record waits for the first answer.
    TableServer lDevice(
        [&]
        {
            lOther = CapabilitiesGEV::GetCapabilities( OTHER );
            lSame = CapabilitiesGEV::GetCapabilities( ADDRESS );
        } );
    CapabilitiesGEV* const lRecord = CapabilitiesGEV::GetCapabilities( ADDRESS );
    LoopbackSocket lSocket( lDevice.GetPort() );
    PatientLink lLink( &lSocket.mSocket, 1, PATIENCE );
    EXPECT_TRUE( lRecord->Init( &lLink ).IsOK() );
    EXPECT_NE( nullptr, lOther.load() );
    EXPECT_NE( lRecord, lOther.load() );
    EXPECT_EQ( lRecord, lSame.load() );
}

TEST_F( CapabilitiesGEVThreads, MayUseTheRecordAsSoonAsItSaysItIsInitialised )
{
    Gate lAsked;
    TableServer lDevice( [&] { EXPECT_TRUE( lAsked.WaitFor( THREADS - 1 ) ); } );
    CapabilitiesGEV lRecord( ADDRESS );
    RunThreads( THREADS,
                [&]( unsigned int aIndex )
                {
                    if ( aIndex == 0 )
                    {
                        LoopbackSocket lSocket( lDevice.GetPort() );
                        PatientLink lLink( &lSocket.mSocket, 1, PATIENCE );
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

TEST_F( CapabilitiesGEVThreads, MayAddAndLookUpTheMakersDevices )
{
    RunThreads( THREADS,
                []( unsigned int aIndex )
                {
                    for ( unsigned int lTurn = 0; lTurn < 50; ++lTurn )
                    {
                        const EthernetAddress lAddress( 0x0200, aIndex << 8 | lTurn );
                        if ( aIndex % 2 == 0 ) // these teach, the others only ask
                        {
                            DeviceIdentity::Add( DeviceIdentity::Product::DEVICE, lAddress );
                        }
                        EXPECT_EQ( aIndex % 2 == 0, DeviceIdentity::IsCorvaneDevice( lAddress ) );
                        EXPECT_FALSE( DeviceIdentity::IsCorvaneTransmitter( lAddress ) );
                    }
                } );
}

// The virtual device is another author's reading of the standard: what the record says must be what
// it holds.
TEST( CapabilitiesGEVOverLoopback, ReportsTheDataOfADeviceOfEveryVersion )
{
    struct Version
    {
        uint16_t mMajor;
        uint16_t mMinor;
    };
    for ( const Version& lVersion :
          { Version{ 1, 0 }, Version{ 1, 1 }, Version{ 1, 2 }, Version{ 2, 0 }, Version{ 2, 1 } } )
    {
        SCOPED_TRACE( std::to_string( lVersion.mMajor ) + "." + std::to_string( lVersion.mMinor ) );
        Simulators::ConfigurationGEV lConfiguration;
        lConfiguration.mVersionMajor = lVersion.mMajor;
        lConfiguration.mVersionMinor = lVersion.mMinor;
        lConfiguration.mStreamChannels = 3;
        lConfiguration.mTickFrequency = 0x123456789;
        lConfiguration.mStreamCapability = 0xC0000000;
        lConfiguration.mMessageCapability = 0x80000000;
        LoopbackDevice lDevice( lConfiguration );
        LoopbackSocket lSocket( lDevice.GetPort() );
        CapabilitiesGEV lRecord( EthernetAddress( lConfiguration.mMacAddress ) );
        const Result lResult = lRecord.Init( &lSocket.mSocket );
        ASSERT_TRUE( lResult.IsOK() ) << lResult.GetDescription().GetAscii();

        const bool lPublishes = lVersion.mMajor > 1 || lVersion.mMinor > 0;
        EXPECT_EQ( lVersion.mMajor, lRecord.GetVersionMajor() );
        EXPECT_EQ( lVersion.mMinor, lRecord.GetVersionMinor() );
        EXPECT_EQ( 0U, lRecord.GetDeviceClass() );
        EXPECT_EQ( 3U, lRecord.GetStreamingChannelCount() );
        EXPECT_EQ( 1U, lRecord.GetMessagingChannelCount() );
        EXPECT_EQ( 0x123456789U, lRecord.GetTimestampTickFrequency() );
        EXPECT_EQ( lPublishes ? 50000U : 0U, lRecord.GetMessageChannelSourcePort() );
        EXPECT_EQ( lPublishes ? 50003U : 0U, lRecord.GetStreamChannelSourcePort( 2 ) );
        EXPECT_EQ( 0U, lRecord.GetStreamChannelSourcePort( 3 ) );
        EXPECT_TRUE( lRecord.IsLegacy16BitsBlockIdSupported() );
        const uint32_t lCapability =
            lDevice.mServer.Access( [&] { return lDevice.mDevice.ReadWord( 0x0934 ); } );
        EXPECT_EQ( ( lCapability & 0x00000001 ) != 0, lRecord.IsConcatenationSupported() );
        EXPECT_EQ( ( lCapability & 0x00000002 ) != 0, lRecord.IsWriteMemSupported() );
        EXPECT_EQ( lPublishes && ( lCapability & 0x00000020 ) != 0, lRecord.IsPendingSupported() );
        EXPECT_EQ( lPublishes && ( lCapability & 0x10000000 ) != 0,
                   lRecord.IsLinkSpeedRegisterSupported() );
    }
}
