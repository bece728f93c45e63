// The real control interface over the real libusb, on a USB bus of the test's own.

#include "tests/support/ChildProcess.h"
#include "tests/support/GenCPPackets.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/UsbTalk.h"
#include "tests/support/VirtualUsb.h"

#include <QmUtilsLib/Thread.h>
#include <WdTransportLayerLib/U3V/DeviceControlInterface.h>
#include <WdTransportLayerLib/U3V/DeviceEnumerator.h>

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace
{

using QmUtilsLib::Result;
using QmUtilsLib::String;
using QmUtilsLib::Thread;
using Simulators::ConfigurationU3V;
using Simulators::FaultU3V;
using Simulators::VirtualDeviceU3V;
using TestSupport::Bytes;
using TestSupport::GenCPCommand;
using TestSupport::ReadMem;
using TestSupport::UsbTalk;
using TestSupport::VirtualUsbBus;
using TestSupport::VirtualUsbDevice;
using TestSupport::WriteMem;
using WdTransportLayerLib::U3V::DCI_COMMAND;
using WdTransportLayerLib::U3V::DCIConfiguration;
using WdTransportLayerLib::U3V::DeviceControlInterface;
using WdTransportLayerLib::U3V::DeviceEnumerator;
using WdTransportLayerLib::U3V::DeviceInfo;
using WdUtilsLib::U3V::U3VGUID;
using Identity = VirtualUsbDevice::Identity;
using Kind = FaultU3V::Kind;
using Request = VirtualUsbDevice::Request;

constexpr uint64_t MEMORY = 0x00100100;
constexpr char GUID[] = "1AB200000001";
constexpr char OTHER_GUID[] = "1AB200000002";
constexpr unsigned int LONG_MS = 60000; // longer than any test

Result Open( DeviceControlInterface& aInterface, const char* aPath, const char* aGUID )
{
    String lPath( aPath );
    return aInterface.Open( lPath, U3VGUID( aGUID ), false );
}

void SetResponseTime( DeviceControlInterface& aInterface, unsigned int aMilliseconds )
{
    DCIConfiguration lConfiguration;
    lConfiguration.mMaxDeviceResponseTime = aMilliseconds;
    EXPECT_TRUE( aInterface.SetDCIConfiguration( lConfiguration ).IsOK() );
}

ConfigurationU3V MakeConfiguration( const char* aGUID )
{
    ConfigurationU3V lConfiguration;
    lConfiguration.mGUID = aGUID;
    return lConfiguration;
}

// Whether the device answers a read of the GenCP version.
bool Answers( DeviceControlInterface& aInterface )
{
    UsbTalk lTalk( ReadMem( 0, 4 ), 16 );
    return lTalk.Send( aInterface ).IsOK() && lTalk.GetData() == Bytes{ 0x02, 0x00, 0x01, 0x00 };
}

VirtualDeviceU3V::Counters GetCounters( VirtualUsbDevice& aDevice )
{
    VirtualDeviceU3V::Counters lCounters;
    aDevice.Use( [&lCounters]( VirtualDeviceU3V& aSimulated )
                 { lCounters = aSimulated.GetCounters(); } );
    return lCounters;
}

// A bus with one device at port 1 and an interface that is not open.
class DeviceControlInterfaceTest : public testing::Test
{
protected:
    DeviceControlInterfaceTest()
        : mDevice( mBus.Plug( ConfigurationU3V(), 1 ) )
    {
    }

    void OpenDevice() { ASSERT_TRUE( Open( mInterface, "1-1", GUID ).IsOK() ); }

    VirtualUsbBus mBus;
    std::shared_ptr<VirtualUsbDevice> mDevice;
    DeviceControlInterface mInterface;
};

using OpeningTest = DeviceControlInterfaceTest;
using TalkTest = DeviceControlInterfaceTest;
using FaultTest = DeviceControlInterfaceTest;
using ClosingTest = DeviceControlInterfaceTest;
using JudgeTest = DeviceControlInterfaceTest;

TEST_F( OpeningTest, WorksByPathByIdentityAndByBoth )
{
    const char* const WAYS[][2] = { { "1-1", GUID }, { "1-1", "" }, { "", GUID } };
    for ( const auto& lWay : WAYS )
    {
        EXPECT_FALSE( mInterface.IsOpened() );
        EXPECT_TRUE( Open( mInterface, lWay[0], lWay[1] ).IsOK() );
        EXPECT_TRUE( mInterface.IsOpened() );
        EXPECT_EQ( 1U, mDevice->GetClaims() );
        EXPECT_TRUE( Answers( mInterface ) );
        EXPECT_TRUE( mInterface.Close().IsOK() );
        EXPECT_EQ( 0U, mDevice->GetClaims() );
    }
}

TEST_F( OpeningTest, FindsTheRightDeviceAmongSeveral )
{
    const auto lSecond = mBus.PlugBehindHub( MakeConfiguration( OTHER_GUID ), 3, 2 );
    ASSERT_TRUE( Open( mInterface, "", OTHER_GUID ).IsOK() );
    EXPECT_EQ( 0U, mDevice->GetClaims() );
    EXPECT_EQ( 1U, lSecond->GetClaims() );
    EXPECT_TRUE( mInterface.Close().IsOK() );
    ASSERT_TRUE( Open( mInterface, "1-3.2", OTHER_GUID ).IsOK() );
    EXPECT_EQ( 1U, lSecond->GetClaims() );
}

TEST_F( OpeningTest, RefusesMismatchedPathAndIdentityAndMissingDevices )
{
    const char* const WAYS[][2] = { { "1-1", OTHER_GUID }, { "1-2", GUID }, { "1-2", "" },
                                    { "", OTHER_GUID },    { "1", "" },     { "1-11", "" } };
    for ( const auto& lWay : WAYS )
    {
        const Result lResult = Open( mInterface, lWay[0], lWay[1] );
        EXPECT_EQ( 0x4000U, lResult.GetCode() );
        EXPECT_EQ( static_cast<unsigned int>( ENODEV ), lResult.GetOSCode() );
        EXPECT_NE( 0U, lResult.GetDescription().GetLength() );
        EXPECT_FALSE( mInterface.IsOpened() );
    }
    EXPECT_EQ( 0U, mDevice->GetClaims() );
}

TEST_F( OpeningTest, NeedsAPathOrAnIdentity )
{
    const Result lResult = Open( mInterface, "", "" );
    EXPECT_EQ( 0x4000U, lResult.GetCode() );
    EXPECT_EQ( static_cast<unsigned int>( EINVAL ), lResult.GetOSCode() );
}

TEST_F( OpeningTest, OfTheOpenDeviceChangesNothing )
{
    OpenDevice();
    SetResponseTime( mInterface, 77 );
    UsbTalk lBefore( ReadMem( 0, 4 ), 16 );
    ASSERT_TRUE( lBefore.Send( mInterface ).IsOK() );

    const char* const WAYS[][2] = { { "1-1", GUID }, { "1-1", "" }, { "", GUID } };
    for ( const auto& lWay : WAYS )
    {
        EXPECT_TRUE( Open( mInterface, lWay[0], lWay[1] ).IsOK() );
    }
    EXPECT_EQ( 77U, mInterface.GetDCIConfiguration().mMaxDeviceResponseTime );
    UsbTalk lAfter( ReadMem( 0, 4 ), 16 );
    ASSERT_TRUE( lAfter.Send( mInterface ).IsOK() );
    // The identifiers go on, so it is the same opening.
    EXPECT_EQ( ( lBefore.GetIdentifier() + 1 ) & 0xFFFF, lAfter.GetIdentifier() );
    EXPECT_EQ( 1U, mDevice->GetClaims() );
}

TEST_F( OpeningTest, OfAnotherDeviceReplacesTheFirst )
{
    const auto lSecond = mBus.Plug( MakeConfiguration( OTHER_GUID ), 2 );
    OpenDevice();
    SetResponseTime( mInterface, 77 );
    ASSERT_TRUE( Open( mInterface, "1-2", OTHER_GUID ).IsOK() );
    EXPECT_EQ( 0U, mDevice->GetClaims() );
    EXPECT_EQ( 1U, lSecond->GetClaims() );
    EXPECT_EQ( 0U, mInterface.GetDCIConfiguration().mMaxDeviceResponseTime );
    EXPECT_TRUE( Answers( mInterface ) );
    EXPECT_EQ( 0U, GetCounters( *mDevice ).mReceived );
    EXPECT_EQ( 1U, GetCounters( *lSecond ).mReceived );
}

TEST_F( OpeningTest, OfTheOpenDeviceChangesNothingWhenTheSystemFails )
{
    OpenDevice();
    SetResponseTime( mInterface, 77 );
    mDevice->FailNext( Request::TRANSFER, ENOMEM );
    UsbTalk lTalk( ReadMem( 0, 4 ), 16 );
    EXPECT_EQ( static_cast<unsigned int>( ENOMEM ), lTalk.Send( mInterface ).GetOSCode() );
    EXPECT_TRUE( Open( mInterface, "1-1", GUID ).IsOK() );
    EXPECT_EQ( 77U, mInterface.GetDCIConfiguration().mMaxDeviceResponseTime );
    EXPECT_EQ( 1U, mDevice->GetClaims() );
    EXPECT_TRUE( Answers( mInterface ) );
}

// Even if it has the address of the old one, and the system has reported another error since.
TEST_F( OpeningTest, OfADeviceThatWasUnpluggedFindsTheNewOne )
{
    OpenDevice();
    for ( const int lError : { ENODEV, ENOMEM } )
    {
        mDevice->FailNext( Request::TRANSFER, lError );
        UsbTalk lTalk( ReadMem( 0, 4 ), 16 );
        EXPECT_EQ( static_cast<unsigned int>( lError ), lTalk.Send( mInterface ).GetOSCode() );
    }
    mDevice->Replug();
    EXPECT_TRUE( Open( mInterface, "1-1", GUID ).IsOK() );
    EXPECT_EQ( 1U, mDevice->GetClaims() );
    EXPECT_TRUE( Answers( mInterface ) );
}

TEST_F( OpeningTest, KeepsTheConfigurationThatWasSetBefore )
{
    SetResponseTime( mInterface, 77 );
    OpenDevice();
    EXPECT_EQ( 77U, mInterface.GetDCIConfiguration().mMaxDeviceResponseTime );
}

TEST_F( OpeningTest, ThatFailsLeavesTheOpenDeviceOpen )
{
    OpenDevice();
    SetResponseTime( mInterface, 77 );
    EXPECT_FALSE( Open( mInterface, "1-2", "" ).IsOK() );
    EXPECT_FALSE( Open( mInterface, "1-1", OTHER_GUID ).IsOK() );
    EXPECT_FALSE( Open( mInterface, "", "" ).IsOK() );
    EXPECT_TRUE( mInterface.IsOpened() );
    EXPECT_EQ( 77U, mInterface.GetDCIConfiguration().mMaxDeviceResponseTime );
    EXPECT_TRUE( Answers( mInterface ) );
}

TEST_F( OpeningTest, OfADeviceThatWasPluggedInAgainFindsTheNewOne )
{
    OpenDevice();
    mBus.Unplug( mDevice );
    const auto lAgain = mBus.Plug( ConfigurationU3V(), 1 );
    ASSERT_TRUE( Open( mInterface, "1-1", GUID ).IsOK() );
    EXPECT_EQ( 1U, lAgain->GetClaims() );
    EXPECT_TRUE( Answers( mInterface ) );
}

// Even if the device reports the wanted identity only now.
TEST_F( OpeningTest, OfTheOpenDeviceAsksForAnIdentityThatCouldNotBeReadBefore )
{
    mDevice->SetIdentity( Identity::STALLED );
    ASSERT_TRUE( Open( mInterface, "1-1", "" ).IsOK() );
    SetResponseTime( mInterface, 77 );
    mDevice->SetIdentity( Identity::TOLD );
    EXPECT_TRUE( Open( mInterface, "1-1", GUID ).IsOK() );
    EXPECT_TRUE( Open( mInterface, "", GUID ).IsOK() );
    EXPECT_EQ( static_cast<unsigned int>( ENODEV ),
               Open( mInterface, "1-1", OTHER_GUID ).GetOSCode() );
    EXPECT_EQ( 77U, mInterface.GetDCIConfiguration().mMaxDeviceResponseTime );
    EXPECT_EQ( 1U, mDevice->GetClaims() );
    EXPECT_TRUE( Answers( mInterface ) );
}

// The answer of a device that does not report its identity, and the result of Open.
struct Untold
{
    Identity mIdentity;
    unsigned int mCode;
    int mErrno;
};
constexpr Untold UNTOLD[] = { { Identity::STALLED, 0x4000, EPIPE },
                              { Identity::SILENT, 0x001E, 0 },
                              { Identity::MALFORMED, 0x4000, EPROTO } };

TEST_F( OpeningTest, ReportsWhyAnIdentityCannotBeRead )
{
    for ( const Untold& lUntold : UNTOLD )
    {
        mDevice->SetIdentity( lUntold.mIdentity );
        for ( const char* const lPath : { "1-1", "" } )
        {
            const Result lResult = Open( mInterface, lPath, GUID );
            EXPECT_EQ( lUntold.mCode, lResult.GetCode() );
            EXPECT_EQ( static_cast<unsigned int>( lUntold.mErrno ), lResult.GetOSCode() );
        }
        EXPECT_EQ( static_cast<unsigned int>( ENODEV ),
                   Open( mInterface, "1-2", GUID ).GetOSCode() );
        EXPECT_EQ( 0U, mDevice->GetClaims() );
        EXPECT_TRUE( Open( mInterface, "1-1", "" ).IsOK() ); // which does not need it
        EXPECT_TRUE( mInterface.Close().IsOK() );
    }
}

TEST_F( OpeningTest, FindsTheRightDeviceAfterOneWithoutAnIdentity )
{
    const auto lSecond = mBus.Plug( MakeConfiguration( OTHER_GUID ), 2 );
    mDevice->SetIdentity( Identity::STALLED );
    EXPECT_TRUE( Open( mInterface, "", OTHER_GUID ).IsOK() );
    EXPECT_EQ( 1U, lSecond->GetClaims() );
}

TEST_F( OpeningTest, ReportsTheFirstFailureOfSeveral )
{
    const auto lSecond = mBus.Plug( MakeConfiguration( OTHER_GUID ), 2 );
    const auto lThird = mBus.Plug( MakeConfiguration( "1AB200000003" ), 3 );
    lSecond->SetIdentity( Identity::STALLED );
    lThird->SetIdentity( Identity::SILENT );
    EXPECT_EQ( static_cast<unsigned int>( EPIPE ),
               Open( mInterface, "", "1AB200000004" ).GetOSCode() );
    lSecond->SetIdentity( Identity::SILENT );
    lThird->SetIdentity( Identity::STALLED );
    EXPECT_EQ( 0x001EU, Open( mInterface, "", "1AB200000004" ).GetCode() );
}

// The descriptors of an interface and, of 13 bytes each, of its endpoints.
Bytes MakeInterface( const Bytes& aNumberAndKind, const std::vector<Bytes>& aEndpoints )
{
    Bytes lBytes = { 9, 4, aNumberAndKind[0], 0, static_cast<uint8_t>( aEndpoints.size() ) };
    lBytes.insert( lBytes.end(), aNumberAndKind.begin() + 1, aNumberAndKind.end() );
    lBytes.push_back( 0 ); // text
    for ( const Bytes& lEndpoint : aEndpoints )
    {
        const Bytes lHead = { 7, 5 };
        const Bytes lRest = { 0, 6, 48, 0, 0, 0, 0 }; // interval, and companion
        lBytes.insert( lBytes.end(), lHead.begin(), lHead.end() );
        lBytes.insert( lBytes.end(), lEndpoint.begin(), lEndpoint.end() );
        lBytes.insert( lBytes.end(), lRest.begin(), lRest.end() );
    }
    return lBytes;
}

TEST_F( OpeningTest, TakesBothEndpointsFromOneInterface )
{
    unsigned int lPort = 2;
    for ( const uint8_t lEndpoint : { uint8_t{ 0x03 }, uint8_t{ 0x83 } } )
    {
        const Bytes lHalf =
            MakeInterface( { 2, 0xEF, 0x05, 0x00 }, { { lEndpoint, 2, 0x00, 0x02 } } );
        const auto lDevice = mBus.Plug( MakeConfiguration( OTHER_GUID ), lPort, lHalf );
        ASSERT_TRUE( Open( mInterface, lDevice->GetPath().c_str(), OTHER_GUID ).IsOK() );
        EXPECT_EQ( 1U, lDevice->GetClaims() );
        EXPECT_TRUE( Answers( mInterface ) );
        EXPECT_EQ( 1024U, lDevice->GetTransfers().back().mRoom );
        ++lPort;
    }
}

TEST_F( OpeningTest, SkipsInterfacesOfAnotherKind )
{
    const Bytes KINDS[] = {
        { 2, 0xFF, 0x05, 0x00 }, { 2, 0xEF, 0x06, 0x00 }, { 2, 0xEF, 0x05, 1 } };
    unsigned int lPort = 2;
    for ( const Bytes& lKind : KINDS )
    {
        const Bytes lInterface = MakeInterface(
            lKind, { { 0x03, 2, 0x00, 0x04 }, { 0x83, 2, 0x00, 0x04 } } ); // address, bulk, 1024
        const auto lDevice = mBus.Plug( MakeConfiguration( OTHER_GUID ), lPort++, lInterface );
        ASSERT_TRUE( Open( mInterface, lDevice->GetPath().c_str(), OTHER_GUID ).IsOK() );
        EXPECT_EQ( 1U, lDevice->GetClaims() );
        EXPECT_TRUE( Answers( mInterface ) );
    }
}

TEST_F( OpeningTest, TakesTheFirstBulkEndpointOfEachDirectionWithTheSizeOfItsPackets )
{
    // Size as in the descriptor, and what a room of 16 bytes makes of it. Only 11 bits are the
    // size; if a device reports none, as much is requested as the buffer holds.
    const struct
    {
        Bytes mSize;
        unsigned int mAsked;
    } SIZES[] = { { { 0x00, 0x04 }, 1024 }, { { 0x00, 0x14 }, 1024 }, { { 0x00, 0x00 }, 16 } };
    unsigned int lPort = 2;
    for ( const auto& lSize : SIZES )
    {
        const Bytes lInterface =
            MakeInterface( { 0, 0xEF, 0x05, 0x00 }, { { 0x84, 3, 0x00, 0x04 }, // interrupt
                                                      { 0x04, 3, 0x00, 0x04 },
                                                      { 0x01, 2, 0x00, 0x04 },
                                                      { 0x81, 2, lSize.mSize[0], lSize.mSize[1] },
                                                      { 0x03, 2, 0x00, 0x02 },
                                                      { 0x83, 2, 0x00, 0x02 } } );
        const auto lDevice = mBus.Plug( ConfigurationU3V(), lPort++, lInterface );
        ASSERT_TRUE( Open( mInterface, lDevice->GetPath().c_str(), "" ).IsOK() );
        EXPECT_TRUE( Answers( mInterface ) );
        ASSERT_FALSE( lDevice->GetTransfers().empty() );
        EXPECT_EQ( lSize.mAsked, lDevice->GetTransfers().back().mRoom );
    }
}

TEST_F( OpeningTest, IsRefusedWhileAnotherProgramHasTheDevice )
{
    OpenDevice();
    DeviceControlInterface lOther;
    const Result lResult = Open( lOther, "1-1", GUID );
    EXPECT_EQ( 0x4000U, lResult.GetCode() );
    EXPECT_EQ( static_cast<unsigned int>( EBUSY ), lResult.GetOSCode() );
    EXPECT_TRUE( mInterface.Close().IsOK() );
    EXPECT_TRUE( Open( lOther, "1-1", GUID ).IsOK() );
}

TEST_F( OpeningTest, TakesTheInterfaceFromAKernelDriverUntilClose )
{
    mDevice->BindDriver();
    OpenDevice();
    EXPECT_FALSE( mDevice->IsDriverBound() );
    EXPECT_TRUE( Answers( mInterface ) );
    EXPECT_TRUE( mInterface.Close().IsOK() );
    EXPECT_TRUE( mDevice->IsDriverBound() );
}

TEST_F( OpeningTest, LeavesTheKernelDriverInPlaceIfTheIdentityDiffers )
{
    mDevice->BindDriver();
    EXPECT_FALSE( Open( mInterface, "1-1", OTHER_GUID ).IsOK() );
    EXPECT_TRUE( mDevice->IsDriverBound() );
}

// As long as it exists, this user may not open the device. Root may open everything, so under root
// this thread changes to another user.
class NoAccess
{
public:
    explicit NoAccess( const VirtualUsbDevice& aDevice )
    {
        constexpr uid_t NOBODY = 65534;
        const std::string& lNode = aDevice.GetNode();
        const std::string lRoot = lNode.substr( 0, lNode.find( "/dev/" ) );
        const std::string lSocket = lRoot + "/ioctl" + lNode.substr( lRoot.size() );
        EXPECT_EQ( 0, chmod( lNode.c_str(), 0 ) );
        EXPECT_EQ( 0, chmod( lSocket.c_str(), 0777 ) ); // the emulation's own
        EXPECT_EQ( 0, chmod( lRoot.c_str(), 0777 ) );
        if ( geteuid() == 0 )
        {
            EXPECT_EQ( 0, seteuid( NOBODY ) );
        }
    }
    ~NoAccess() { EXPECT_EQ( 0, seteuid( getuid() ) ); }

    NoAccess( const NoAccess& ) = delete;
    NoAccess& operator=( const NoAccess& ) = delete;
};

TEST_F( OpeningTest, SaysWhatToDoIfTheSystemRefuses )
{
    const NoAccess lNoAccess( *mDevice );
    const char* const WAYS[][2] = { { "1-1", GUID }, { "1-1", "" }, { "", GUID } };
    for ( const auto& lWay : WAYS )
    {
        const Result lResult = Open( mInterface, lWay[0], lWay[1] );
        EXPECT_EQ( 0x4000U, lResult.GetCode() );
        EXPECT_EQ( static_cast<unsigned int>( EACCES ), lResult.GetOSCode() );
        const std::string lDescription = lResult.GetDescription().GetAscii();
        EXPECT_NE( std::string::npos, lDescription.find( "60-htbase.rules" ) ) << lDescription;
        EXPECT_NE( std::string::npos, lDescription.find( "1-1" ) ) << lDescription;
    }
    std::vector<DeviceInfo> lDevices;
    EXPECT_TRUE( DeviceEnumerator::GetDevices( lDevices ).IsOK() );
    ASSERT_EQ( 1U, lDevices.size() );
    EXPECT_EQ( "1-1", lDevices[0].mPath );
    EXPECT_EQ( 0x1AB2, lDevices[0].mVendorID );
    EXPECT_EQ( static_cast<unsigned int>( EACCES ), lDevices[0].mAccess.GetOSCode() );
    EXPECT_TRUE( lDevices[0].mGUID.IsEmpty() );
}

TEST_F( TalkTest, NeedsAnOpenInterface )
{
    UsbTalk lTalk( ReadMem( 0, 4 ), 16 );
    EXPECT_EQ( 0x0017U, lTalk.Send( mInterface ).GetCode() );
    EXPECT_TRUE( lTalk.IsUntouchedBehind( 0 ) );
    EXPECT_EQ( 0x0017U, mInterface.SendCommands( nullptr, 0 ).GetCode() );
    OpenDevice();
    EXPECT_TRUE( mInterface.SendCommands( nullptr, 0 ).IsOK() );
    EXPECT_TRUE( mInterface.Close().IsOK() );
    EXPECT_EQ( 0x0017U, lTalk.Send( mInterface ).GetCode() );
}

TEST_F( TalkTest, ReturnsTheAcknowledgeWithTheStampedIdentifier )
{
    OpenDevice();
    uint64_t lLast = 0;
    for ( int i = 0; i < 5; ++i )
    {
        const Bytes lCommand = ReadMem( 0x01CC, 4 );
        UsbTalk lTalk( lCommand, 16 );
        ASSERT_TRUE( lTalk.Send( mInterface ).IsOK() );
        EXPECT_TRUE( lTalk.GetCommandResult().IsOK() );
        const uint64_t lId = lTalk.GetIdentifier();
        EXPECT_TRUE( i == 0 || lId == ( ( lLast + 1 ) & 0xFFFF ) ) << lLast << " " << lId;
        lLast = lId;
        // clang-format off
        const Bytes lExpected = {
            0x55, 0x33, 0x56, 0x43,                                                  // prefix
            0x00, 0x00,                                                              // status
            0x01, 0x08,                                                              // READMEM_ACK
            0x04, 0x00,                                                              // length
            static_cast<uint8_t>( lId & 0xFF ), static_cast<uint8_t>( lId >> 8 ),    // identifier
            0xC8, 0x00, 0x00, 0x00,                                                  // 200 ms
        };
        // clang-format on
        EXPECT_EQ( lExpected, lTalk.GetAck() );
        EXPECT_TRUE( lTalk.IsUntouchedBehind( 16 ) );
        EXPECT_EQ( lCommand, lTalk.GetCommand() ); // what the caller handed over stays
    }
    EXPECT_EQ( 0U, GetCounters( *mDevice ).mSkippedIds );
}

TEST_F( TalkTest, WritesAndReadsMemoryAt64BitAddresses )
{
    OpenDevice();
    const uint64_t ADDRESSES[] = { MEMORY, 0x0123456700000010 };
    for ( const uint64_t lAddress : ADDRESSES )
    {
        UsbTalk lWrite( WriteMem( lAddress, { 1, 2, 3, 4, 5 } ), 16 );
        ASSERT_TRUE( lWrite.Send( mInterface ).IsOK() );
        EXPECT_EQ( 0U, lWrite.GetStatus() );
        EXPECT_EQ( ( Bytes{ 0, 0, 5, 0 } ), lWrite.GetData() );
        UsbTalk lRead( ReadMem( lAddress, 6 ), 64 );
        ASSERT_TRUE( lRead.Send( mInterface ).IsOK() );
        EXPECT_EQ( ( Bytes{ 1, 2, 3, 4, 5, 0 } ), lRead.GetData() );
    }
}

TEST_F( TalkTest, CarriesCommandsAndAcknowledgesOfSeveralPackets )
{
    ConfigurationU3V lConfiguration = MakeConfiguration( OTHER_GUID );
    lConfiguration.mPacketSize = 512;
    lConfiguration.mCommandRoom = 70000;
    lConfiguration.mAckRoom = 70000;
    const auto lDevice = mBus.Plug( lConfiguration, 2 );
    ASSERT_TRUE( Open( mInterface, "1-2", OTHER_GUID ).IsOK() );
    constexpr size_t SIZES[] = { 491, 492, 493, 500, 501, 1012, 5000, 65527 };
    for ( const size_t lSize : SIZES )
    {
        Bytes lData( lSize );
        for ( size_t i = 0; i < lSize; ++i )
        {
            lData[i] = static_cast<uint8_t>( i * 7 + lSize );
        }
        UsbTalk lWrite( WriteMem( MEMORY, lData ), 16 );
        ASSERT_TRUE( lWrite.Send( mInterface ).IsOK() ) << lSize;
        EXPECT_EQ( 0U, lWrite.GetStatus() );
        UsbTalk lRead( ReadMem( MEMORY, static_cast<uint16_t>( lSize ) ),
                       static_cast<uint32_t>( 12 + lSize ) );
        ASSERT_TRUE( lRead.Send( mInterface ).IsOK() ) << lSize;
        EXPECT_EQ( lData, lRead.GetData() );
        EXPECT_TRUE( lRead.IsUntouchedBehind( 12 + lSize ) );
    }
}

TEST_F( TalkTest, SendsSeveralCommandsInOrderWhateverTheFirstAnswerIs )
{
    OpenDevice();
    UsbTalk lWrite( WriteMem( 0x0000, { 1 } ), 16 ); // the version cannot be written
    UsbTalk lRead( ReadMem( 0, 4 ), 16 );
    DCI_COMMAND lRecords[] = { lWrite.MakeRecord(), lRead.MakeRecord() };
    ASSERT_TRUE( mInterface.SendCommands( lRecords, 2 ).IsOK() );
    lWrite.Take( lRecords[0] );
    lRead.Take( lRecords[1] );
    EXPECT_TRUE( lWrite.GetCommandResult().IsOK() );
    EXPECT_EQ( 0x8004U, lWrite.GetStatus() ); // write protect
    EXPECT_EQ( 12U, lWrite.GetReceived() );
    EXPECT_EQ( ( Bytes{ 2, 0, 1, 0 } ), lRead.GetData() );
    EXPECT_EQ( ( lWrite.GetIdentifier() + 1 ) & 0xFFFF, lRead.GetIdentifier() );
}

TEST_F( TalkTest, EndsAtTheFirstCommandThatIsNotAnswered )
{
    OpenDevice();
    mDevice->Inject( { Kind::DELAY, 0, 1 } );
    mDevice->Inject( { Kind::SILENT, 0, 1 } );
    UsbTalk lTalks[] = {
        { ReadMem( 0, 4 ), 16 }, { ReadMem( 0, 4 ), 16 }, { ReadMem( 0, 4 ), 16 } };
    DCI_COMMAND lRecords[] = { lTalks[0].MakeRecord(), lTalks[1].MakeRecord(),
                               lTalks[2].MakeRecord() };
    EXPECT_EQ( 0x001EU, mInterface.SendCommands( lRecords, 3 ).GetCode() );
    EXPECT_TRUE( lRecords[0].mResult.IsOK() );
    EXPECT_EQ( 16U, lRecords[0].mAckLength );
    EXPECT_EQ( 0x001EU, lRecords[1].mResult.GetCode() );
    EXPECT_EQ( 0U, lRecords[1].mAckLength );
    EXPECT_EQ( 0x0605U, lRecords[2].mResult.GetCode() );
    EXPECT_EQ( 16U, lRecords[2].mAckLength );
    EXPECT_TRUE( lTalks[2].IsUntouchedBehind( 0 ) );
    EXPECT_EQ( 2U, GetCounters( *mDevice ).mReceived );
}

TEST_F( TalkTest, ReturnsEveryStatusToTheCaller )
{
    OpenDevice();
    const uint16_t STATUSES[] = { 0x8001, 0x8002, 0x8003, 0x8004, 0x8005, 0x8006,
                                  0x8007, 0x800B, 0x800E, 0x800F, 0x8FFF, 0x1234 };
    for ( const uint16_t lStatus : STATUSES )
    {
        mDevice->Inject( { Kind::STATUS, lStatus, 1 } );
        UsbTalk lTalk( ReadMem( 0, 4 ), 16 );
        EXPECT_TRUE( lTalk.Send( mInterface ).IsOK() );
        EXPECT_EQ( lStatus, lTalk.GetStatus() );
        EXPECT_EQ( 12U, lTalk.GetReceived() );
    }
}

TEST_F( TalkTest, RefusesInvalidRecordsBeforeSendingAnything )
{
    OpenDevice();
    const auto lExpectRefused = [this]( DCI_COMMAND aBad )
    {
        UsbTalk lGood( ReadMem( 0, 4 ), 16 );
        DCI_COMMAND lRecords[] = { lGood.MakeRecord(), aBad };
        const Result lResult = mInterface.SendCommands( lRecords, 2 );
        EXPECT_EQ( 0x4000U, lResult.GetCode() );
        EXPECT_EQ( static_cast<unsigned int>( EINVAL ), lResult.GetOSCode() );
        EXPECT_EQ( static_cast<unsigned int>( EINVAL ), lRecords[1].mResult.GetOSCode() );
        EXPECT_EQ( 0U, lRecords[1].mAckLength );
        EXPECT_TRUE( lGood.IsUntouchedBehind( 0 ) );
    };
    UsbTalk lTalk( Bytes( 65548, 0 ), 16 );
    DCI_COMMAND lRecord = lTalk.MakeRecord();
    lExpectRefused( lRecord ); // longer than a command can be
    lRecord.mCommandLength = 11;
    lExpectRefused( lRecord ); // shorter than a header
    lRecord.mCommandLength = 12;
    lRecord.mAck = nullptr;
    lExpectRefused( lRecord );
    lRecord.mAckLength = 0;
    lRecord.mCommand = nullptr;
    lExpectRefused( lRecord );
    EXPECT_EQ( 0U, GetCounters( *mDevice ).mReceived );
}

TEST_F( TalkTest, DoesNotWaitIfNoAcknowledgeIsRequested )
{
    OpenDevice();
    SetResponseTime( mInterface, LONG_MS );
    Bytes lCommand = WriteMem( MEMORY, { 9 } );
    lCommand[5] = 0; // flags
    UsbTalk lTalk( lCommand, 16 );
    EXPECT_TRUE( lTalk.Send( mInterface ).IsOK() );
    EXPECT_EQ( 0U, lTalk.GetReceived() );
    UsbTalk lRead( ReadMem( MEMORY, 1 ), 16 );
    EXPECT_TRUE( lRead.Send( mInterface ).IsOK() );
    EXPECT_EQ( Bytes{ 9 }, lRead.GetData() );
}

TEST_F( TalkTest, StoresNoMoreThanTheBufferAndRequestsWholePackets )
{
    OpenDevice();
    for ( uint32_t lRoom = 0; lRoom <= 40; ++lRoom )
    {
        UsbTalk lTalk( ReadMem( 0x0004, 20 ), lRoom ); // 32 bytes come
        ASSERT_TRUE( lTalk.Send( mInterface ).IsOK() ) << lRoom;
        EXPECT_EQ( std::min( lRoom, 32U ), lTalk.GetReceived() );
        EXPECT_TRUE( lTalk.IsUntouchedBehind( lTalk.GetReceived() ) );
    }
    for ( const uint32_t lRoom : { 1023U, 1024U, 1025U, 0x7FFFFU } )
    {
        UsbTalk lTalk( ReadMem( 0, 4 ), lRoom );
        ASSERT_TRUE( lTalk.Send( mInterface ).IsOK() ) << lRoom;
    }
    for ( const VirtualUsbDevice::Transfer& lTransfer : mDevice->GetTransfers() )
    {
        if ( lTransfer.mEndpoint == 0x81 )
        {
            EXPECT_EQ( 0U, lTransfer.mRoom % 1024 );
            EXPECT_GE( lTransfer.mRoom, 1024U );
            EXPECT_LE( lTransfer.mRoom, 66U * 1024U ); // whatever the caller offers
        }
    }
}

TEST_F( TalkTest, RequestsAsManyPacketsAsTheBufferNeeds )
{
    OpenDevice();
    // Room, and the packets of 1024 bytes that hold it; 65547 bytes are the longest acknowledge.
    constexpr unsigned int CASES[][2] = {
        { 0, 1 },    { 1, 1 },    { 1023, 1 },   { 1024, 1 },   { 1025, 2 },   { 2047, 2 },
        { 2048, 2 }, { 2049, 3 }, { 65536, 64 }, { 65537, 65 }, { 66561, 65 }, { 0x7FFFF, 65 } };
    for ( const auto& lCase : CASES )
    {
        UsbTalk lTalk( ReadMem( 0, 4 ), lCase[0] );
        ASSERT_TRUE( lTalk.Send( mInterface ).IsOK() );
        EXPECT_EQ( lCase[1] * 1024, mDevice->GetTransfers().back().mRoom ) << lCase[0];
    }
}

TEST_F( TalkTest, AcceptsACommandThatIsOnlyAHeader )
{
    OpenDevice();
    UsbTalk lTalk( GenCPCommand( 0x0806, 0, {} ), 16 );
    EXPECT_TRUE( lTalk.Send( mInterface ).IsOK() );
    EXPECT_EQ( 12U, lTalk.GetReceived() );
    EXPECT_EQ( 0x8001U, lTalk.GetStatus() ); // not implemented
}

TEST_F( TalkTest, AcceptsACommandWithoutABufferForItsAcknowledge )
{
    OpenDevice();
    UsbTalk lTalk( WriteMem( MEMORY, { 9 } ), 0 );
    DCI_COMMAND lRecord = lTalk.MakeRecord();
    lRecord.mAck = nullptr;
    EXPECT_TRUE( mInterface.SendCommands( &lRecord, 1 ).IsOK() );
    EXPECT_TRUE( lRecord.mResult.IsOK() );
    EXPECT_EQ( 0U, lRecord.mAckLength );
    UsbTalk lRead( ReadMem( MEMORY, 1 ), 16 );
    EXPECT_TRUE( lRead.Send( mInterface ).IsOK() );
    EXPECT_EQ( Bytes{ 9 }, lRead.GetData() );
}

TEST_F( TalkTest, KeepsTheCommandsOfOneCallTogetherAmongThreads )
{
    OpenDevice();
    constexpr int THREADS = 4;
    constexpr int ROUNDS = 25;
    std::atomic<int> lGood{ 0 };
    std::vector<std::thread> lThreads;
    for ( int lThread = 0; lThread < THREADS; ++lThread )
    {
        lThreads.emplace_back(
            [this, lThread, &lGood]
            {
                for ( int lRound = 0; lRound < ROUNDS; ++lRound )
                {
                    const auto lMark = static_cast<uint8_t>( lThread * ROUNDS + lRound );
                    // All write to the same place and read it back.
                    UsbTalk lWrite( WriteMem( MEMORY, { lMark } ), 16 );
                    UsbTalk lRead( ReadMem( MEMORY, 1 ), 16 );
                    DCI_COMMAND lRecords[] = { lWrite.MakeRecord(), lRead.MakeRecord() };
                    const Result lResult = mInterface.SendCommands( lRecords, 2 );
                    lRead.Take( lRecords[1] );
                    lGood += lResult.IsOK() && lRead.GetData() == Bytes{ lMark } ? 1 : 0;
                }
            } );
    }
    for ( std::thread& lThread : lThreads )
    {
        lThread.join();
    }
    EXPECT_EQ( THREADS * ROUNDS, lGood.load() );
    EXPECT_EQ( 0U, GetCounters( *mDevice ).mSkippedIds );
}

TEST_F( FaultTest, WaitsHalfASecondUntilTheDevicesResponseTimeIsKnown )
{
    OpenDevice();
    const auto lMeasure = [this]
    {
        mDevice->Inject( { Kind::SILENT, 0, 1 } );
        UsbTalk lTalk( ReadMem( 0, 4 ), 16 );
        const long long lStart = Thread::GetTickCount();
        EXPECT_EQ( 0x001EU, lTalk.Send( mInterface ).GetCode() );
        EXPECT_EQ( 0x001EU, lTalk.GetCommandResult().GetCode() );
        EXPECT_EQ( 0U, lTalk.GetReceived() );
        EXPECT_TRUE( lTalk.IsUntouchedBehind( 0 ) );
        return Thread::GetTickCount() - lStart;
    };
    EXPECT_GE( lMeasure(), 495 ); // not configured
    SetResponseTime( mInterface, 0 );
    EXPECT_GE( lMeasure(), 495 );
    SetResponseTime( mInterface, 1000 );
    EXPECT_GE( lMeasure(), 995 );
    SetResponseTime( mInterface, 1 );
    EXPECT_LT( lMeasure(), 495 );
    EXPECT_TRUE( mInterface.Close().IsOK() );
    OpenDevice();
    EXPECT_GE( lMeasure(), 495 ); // closing forgets
}

TEST_F( FaultTest, APendingAcknowledgeProlongsTheWait )
{
    OpenDevice();
    SetResponseTime( mInterface, 150 );
    mDevice->Inject( { Kind::PENDING, 10000, 3, 100 } );
    UsbTalk lTalk( ReadMem( 0, 4 ), 16 );
    const long long lStart = Thread::GetTickCount();
    ASSERT_TRUE( lTalk.Send( mInterface ).IsOK() );
    EXPECT_GE( Thread::GetTickCount() - lStart, 295 );
    EXPECT_EQ( ( Bytes{ 2, 0, 1, 0 } ), lTalk.GetData() );
    EXPECT_TRUE( lTalk.IsUntouchedBehind( 16 ) );
}

TEST_F( FaultTest, TheWaitEndsAtTheTimeOfTheLastPendingAcknowledge )
{
    OpenDevice();
    SetResponseTime( mInterface, LONG_MS );
    mDevice->Inject( { Kind::PENDING, 100, 1, LONG_MS } );
    UsbTalk lTalk( ReadMem( 0, 4 ), 16 );
    const long long lStart = Thread::GetTickCount();
    EXPECT_EQ( 0x001EU, lTalk.Send( mInterface ).GetCode() );
    EXPECT_GE( Thread::GetTickCount() - lStart, 95 );
    EXPECT_LT( Thread::GetTickCount() - lStart, LONG_MS / 2 );
    EXPECT_TRUE( lTalk.IsUntouchedBehind( 0 ) );
}

TEST_F( FaultTest, APendingAcknowledgeOfZeroTimeDoesNotWaitForEver )
{
    OpenDevice();
    SetResponseTime( mInterface, LONG_MS );
    mDevice->Inject( { Kind::PENDING, 0, 1, LONG_MS } );
    UsbTalk lTalk( ReadMem( 0, 4 ), 16 );
    const long long lStart = Thread::GetTickCount();
    EXPECT_EQ( 0x001EU, lTalk.Send( mInterface ).GetCode() );
    EXPECT_LT( Thread::GetTickCount() - lStart, LONG_MS / 2 );
}

// Its answer is there already.
TEST_F( FaultTest, APendingAcknowledgeOfZeroTimeAllowsOneMoreReceive )
{
    OpenDevice();
    mDevice->Inject( { Kind::PENDING, 0, 1, 0 } );
    EXPECT_TRUE( Answers( mInterface ) );
}

TEST_F( FaultTest, APendingAcknowledgeWithoutItsTimeIsIgnored )
{
    OpenDevice();
    SetResponseTime( mInterface, 200 );
    mDevice->Inject( { Kind::WRONG_CODE, 0x0805, 1 } );
    UsbTalk lTalk( ReadMem( 0, 2 ), 16 ); // two bytes of data, where it has four
    const long long lStart = Thread::GetTickCount();
    EXPECT_EQ( 0x001EU, lTalk.Send( mInterface ).GetCode() );
    EXPECT_GE( Thread::GetTickCount() - lStart, 195 );
    EXPECT_TRUE( lTalk.IsUntouchedBehind( 0 ) );
}

TEST_F( FaultTest, PendingAcknowledgesAreNotLimited )
{
    OpenDevice();
    mDevice->Inject( { Kind::PENDING, 10000, 300, 0 } );
    EXPECT_TRUE( Answers( mInterface ) );
}

TEST_F( FaultTest, APendingAcknowledgeOfAnotherCommandIsIgnored )
{
    OpenDevice();
    mDevice->Inject( { Kind::PENDING, LONG_MS, 2, 100 } );
    UsbTalk lFirst( ReadMem( 0, 4 ), 16 );
    std::thread lCloser(
        [this]
        {
            while ( mDevice->GetTransfers().size() < 2 || mDevice->GetReaders() == 0 )
            {
                std::this_thread::yield();
            }
            EXPECT_TRUE( mInterface.Close().IsOK() );
        } );
    EXPECT_EQ( 0x0017U, lFirst.Send( mInterface ).GetCode() );
    lCloser.join();
    OpenDevice();
    SetResponseTime( mInterface, 300 );
    mDevice->Inject( { Kind::SILENT, 0, 1 } );
    // Meanwhile the second pending acknowledge of the first command comes.
    UsbTalk lSecond( ReadMem( 0, 4 ), 16 );
    const long long lStart = Thread::GetTickCount();
    EXPECT_EQ( 0x001EU, lSecond.Send( mInterface ).GetCode() );
    EXPECT_LT( Thread::GetTickCount() - lStart, LONG_MS / 2 );
    EXPECT_TRUE( lSecond.IsUntouchedBehind( 0 ) );
}

TEST_F( FaultTest, ALateAcknowledgeDoesNotAnswerTheNextCommand )
{
    OpenDevice();
    SetResponseTime( mInterface, 30 );
    mDevice->Inject( { Kind::DELAY, 100, 1 } );
    UsbTalk lFirst( ReadMem( 0x01CC, 4 ), 16 );
    EXPECT_EQ( 0x001EU, lFirst.Send( mInterface ).GetCode() );
    SetResponseTime( mInterface, 5000 );
    EXPECT_TRUE( Answers( mInterface ) ); // with its own data, behind the late one
    EXPECT_TRUE( lFirst.IsUntouchedBehind( 0 ) );
}

TEST_F( FaultTest, StaleAndEmptyTransfersAreDropped )
{
    OpenDevice();
    mDevice->Inject( { Kind::STALE, 0, 1 } );
    EXPECT_TRUE( Answers( mInterface ) );
    mDevice->Inject( { Kind::EMPTY, 0, 10 } );
    EXPECT_TRUE( Answers( mInterface ) );
}

TEST_F( FaultTest, AnAcknowledgeOfAnotherCommandIsNotAnAnswer )
{
    OpenDevice();
    const FaultU3V FAULTS[] = { { Kind::WRONG_ID, 1, 1 },     { Kind::WRONG_ID, 0x100, 1 },
                                { Kind::WRONG_PREFIX, 0, 1 }, { Kind::CORRUPTED, 0, 1 },
                                { Kind::CORRUPTED, 3, 1 },    { Kind::CORRUPTED, 10, 1 },
                                { Kind::CORRUPTED, 11, 1 } };
    for ( const FaultU3V& lFault : FAULTS )
    {
        mDevice->Inject( lFault );
        SetResponseTime( mInterface, 30 );
        UsbTalk lTalk( ReadMem( 0, 4 ), 16 );
        EXPECT_EQ( 0x001EU, lTalk.Send( mInterface ).GetCode() );
        EXPECT_TRUE( lTalk.IsUntouchedBehind( 0 ) );
        SetResponseTime( mInterface, LONG_MS );
        EXPECT_TRUE( Answers( mInterface ) );
    }
}

TEST_F( FaultTest, OtherFaultsOfAnAcknowledgeAreLeftToTheCaller )
{
    OpenDevice();
    const FaultU3V FAULTS[] = { { Kind::WRONG_CODE, 0x0803, 1 },
                                { Kind::WRONG_LENGTH, 0xFFFF, 1 },
                                { Kind::SHORT, 1, 1 },
                                { Kind::SHORT, 4, 1 },
                                { Kind::CORRUPTED, 15, 1 } };
    const uint32_t SIZES[] = { 16, 16, 15, 12, 16 };
    for ( size_t i = 0; i < std::size( SIZES ); ++i )
    {
        mDevice->Inject( FAULTS[i] );
        UsbTalk lTalk( ReadMem( 0, 4 ), 16 );
        EXPECT_TRUE( lTalk.Send( mInterface ).IsOK() ) << i;
        EXPECT_EQ( SIZES[i], lTalk.GetReceived() );
    }
}

TEST_F( FaultTest, EveryTruncationStoresOnlyTheReceivedBytes )
{
    OpenDevice();
    for ( uint32_t lSize = 0; lSize <= 16; ++lSize )
    {
        SetResponseTime( mInterface, lSize < 12 ? 20 : LONG_MS );
        mDevice->Inject( { Kind::TRUNCATED, lSize, 1 } );
        UsbTalk lTalk( ReadMem( 0, 4 ), 16 );
        const Result lResult = lTalk.Send( mInterface );
        EXPECT_EQ( lSize < 12 ? 0x001EU : 0U, lResult.GetCode() ) << lSize;
        EXPECT_EQ( lSize < 12 ? 0 : lSize, lTalk.GetReceived() );
        EXPECT_TRUE( lTalk.IsUntouchedBehind( lTalk.GetReceived() ) );
    }
}

TEST_F( FaultTest, AnAcknowledgeThatIsTooLongIsTruncated )
{
    OpenDevice();
    for ( const uint32_t lMore : { 1U, 100U, 1008U, 1009U, 3000U, 10000U } )
    {
        mDevice->Inject( { Kind::LONG, lMore, 1 } );
        UsbTalk lTalk( ReadMem( 0, 4 ), 16 );
        ASSERT_TRUE( lTalk.Send( mInterface ).IsOK() ) << lMore;
        EXPECT_EQ( 16U, lTalk.GetReceived() );
        EXPECT_TRUE( lTalk.IsUntouchedBehind( 16 ) );
        EXPECT_EQ( ( Bytes{ 2, 0, 1, 0 } ), lTalk.GetData() );
        EXPECT_TRUE( Answers( mInterface ) ) << lMore;
    }
}

TEST_F( FaultTest, ACompleteAcknowledgeIsAnAnswerEvenIfItsTransferDoesNotEnd )
{
    OpenDevice();
    SetResponseTime( mInterface, 100 );
    mDevice->LeaveTransfersOpen();
    EXPECT_TRUE( Answers( mInterface ) );
    mDevice->Inject( { Kind::WRONG_LENGTH, 5, 1 } ); // one more is to come
    UsbTalk lTalk( ReadMem( 0, 4 ), 17 );
    EXPECT_EQ( 0x001EU, lTalk.Send( mInterface ).GetCode() );
    EXPECT_EQ( 0U, lTalk.GetReceived() );
    EXPECT_TRUE( lTalk.IsUntouchedBehind( 0 ) );
}

TEST_F( FaultTest, ACommandThatIsSentOnlyInPartIsAnError )
{
    OpenDevice();
    mDevice->CutCommand( 23 );
    UsbTalk lTalk( ReadMem( 0, 4 ), 16 );
    const Result lResult = lTalk.Send( mInterface );
    EXPECT_EQ( 0x4000U, lResult.GetCode() );
    EXPECT_EQ( static_cast<unsigned int>( EIO ), lResult.GetOSCode() );
    EXPECT_TRUE( lTalk.IsUntouchedBehind( 0 ) );
    EXPECT_TRUE( Answers( mInterface ) );
}

TEST_F( FaultTest, ABusErrorIsReportedWithItsCode )
{
    OpenDevice();
    constexpr int CASES[][2] = { { EOVERFLOW, EOVERFLOW }, { EPROTO, EIO }, { EILSEQ, EIO } };
    for ( const auto& lCase : CASES )
    {
        mDevice->FailNext( Request::FETCH, lCase[0] );
        UsbTalk lTalk( ReadMem( 0, 4 ), 16 );
        const Result lResult = lTalk.Send( mInterface );
        EXPECT_EQ( 0x4000U, lResult.GetCode() );
        EXPECT_EQ( static_cast<unsigned int>( lCase[1] ), lResult.GetOSCode() );
        EXPECT_TRUE( lTalk.IsUntouchedBehind( 0 ) );
        EXPECT_TRUE( Answers( mInterface ) );
    }
}

TEST_F( FaultTest, AHaltedEndpointThatCannotBeClearedIsReportedToo )
{
    OpenDevice();
    constexpr int CASES[][2] = { { EPROTO, EPIPE }, { ENODEV, ENODEV } };
    for ( const auto& lCase : CASES )
    {
        mDevice->Inject( { Kind::STALL_OUT, 0, 1 } );
        mDevice->FailNext( Request::CLEAR_HALT, lCase[0] );
        UsbTalk lTalk( ReadMem( 0, 4 ), 16 );
        EXPECT_EQ( static_cast<unsigned int>( lCase[1] ), lTalk.Send( mInterface ).GetOSCode() );
        EXPECT_EQ( static_cast<unsigned int>( EPIPE ), lTalk.Send( mInterface ).GetOSCode() );
        EXPECT_TRUE( Answers( mInterface ) ); // cleared the second time
    }
}

TEST_F( FaultTest, AHaltedEndpointIsReportedAndCleared )
{
    OpenDevice();
    unsigned int lClears = 0;
    for ( const Kind lKind : { Kind::STALL_IN, Kind::STALL_OUT } )
    {
        mDevice->Inject( { lKind, 0, 1 } );
        UsbTalk lTalk( ReadMem( 0, 4 ), 16 );
        const Result lResult = lTalk.Send( mInterface );
        EXPECT_EQ( 0x4000U, lResult.GetCode() );
        EXPECT_EQ( static_cast<unsigned int>( EPIPE ), lResult.GetOSCode() );
        EXPECT_EQ( 0U, lTalk.GetReceived() );
        EXPECT_TRUE( lTalk.IsUntouchedBehind( 0 ) );
        EXPECT_EQ( ++lClears, mDevice->GetClears() );
        EXPECT_TRUE( Answers( mInterface ) );
    }
}

TEST_F( FaultTest, AnUnpluggedDeviceIsReportedWithTheSystemsCode )
{
    OpenDevice();
    mDevice->Inject( { Kind::UNPLUG, 0, 1 } );
    for ( int i = 0; i < 3; ++i ) // the first time while it waits for the acknowledge
    {
        UsbTalk lTalk( ReadMem( 0, 4 ), 16 );
        const Result lResult = lTalk.Send( mInterface );
        EXPECT_EQ( 0x4000U, lResult.GetCode() );
        EXPECT_EQ( static_cast<unsigned int>( ENODEV ), lResult.GetOSCode() );
        EXPECT_TRUE( lTalk.IsUntouchedBehind( 0 ) );
    }
    EXPECT_TRUE( mInterface.IsOpened() );
    EXPECT_TRUE( mInterface.Close().IsOK() );
    EXPECT_FALSE( mInterface.IsOpened() );
}

// Runs aAction once a command waits for its acknowledge, and gives the result of the command.
Result SendWhile( DeviceControlInterface& aInterface, VirtualUsbDevice& aDevice,
                  const std::function<void()>& aAction )
{
    aDevice.Inject( { Kind::SILENT, 0, 1 } );
    std::thread lOther(
        [&aDevice, &aAction]
        {
            EXPECT_TRUE( aDevice.WaitForReader() );
            aAction();
        } );
    UsbTalk lTalk( ReadMem( 0, 4 ), 16 );
    const Result lResult = lTalk.Send( aInterface );
    lOther.join();
    EXPECT_EQ( 0U, lTalk.GetReceived() );
    EXPECT_TRUE( lTalk.IsUntouchedBehind( 0 ) );
    return lResult;
}

TEST_F( FaultTest, AnUnpluggedDeviceEndsTheWait )
{
    OpenDevice();
    SetResponseTime( mInterface, LONG_MS );
    const Result lResult = SendWhile( mInterface, *mDevice, [this] { mBus.Unplug( mDevice ); } );
    EXPECT_EQ( 0x4000U, lResult.GetCode() );
    EXPECT_EQ( static_cast<unsigned int>( ENODEV ), lResult.GetOSCode() );
}

// With the address of the old one.
TEST_F( FaultTest, ADevicePluggedInAgainDuringTheWaitCanBeOpened )
{
    OpenDevice();
    SetResponseTime( mInterface, LONG_MS );
    const Result lResult = SendWhile( mInterface, *mDevice, [this] { mDevice->Replug(); } );
    EXPECT_EQ( static_cast<unsigned int>( ENODEV ), lResult.GetOSCode() );
    EXPECT_TRUE( Open( mInterface, "1-1", GUID ).IsOK() );
    EXPECT_EQ( 1U, mDevice->GetClaims() );
    EXPECT_TRUE( Answers( mInterface ) );
}

TEST_F( ClosingTest, IsAlwaysPossible )
{
    EXPECT_TRUE( mInterface.Close().IsOK() );
    OpenDevice();
    EXPECT_TRUE( mInterface.Close().IsOK() );
    EXPECT_TRUE( mInterface.Close().IsOK() );
    EXPECT_FALSE( mInterface.IsOpened() );
}

TEST_F( ClosingTest, ResetsTheConfigurationEvenIfNothingIsOpen )
{
    SetResponseTime( mInterface, 77 );
    EXPECT_TRUE( mInterface.Close().IsOK() );
    EXPECT_EQ( 0U, mInterface.GetDCIConfiguration().mMaxDeviceResponseTime );
}

TEST_F( ClosingTest, IsDoneByTheDestructor )
{
    mDevice->BindDriver();
    {
        DeviceControlInterface lInterface;
        ASSERT_TRUE( Open( lInterface, "1-1", GUID ).IsOK() );
    }
    EXPECT_EQ( 0U, mDevice->GetClaims() );
    EXPECT_TRUE( mDevice->IsDriverBound() );
}

TEST_F( ClosingTest, FromAnotherThreadEndsATransferAtOnce )
{
    OpenDevice();
    SetResponseTime( mInterface, LONG_MS );
    const long long lStart = Thread::GetTickCount();
    const Result lResult = SendWhile( mInterface, *mDevice,
                                      [this]
                                      {
                                          EXPECT_TRUE( mInterface.Close().IsOK() );
                                          EXPECT_EQ( 0U, mDevice->GetClaims() );
                                      } );
    EXPECT_EQ( 0x0017U, lResult.GetCode() );
    EXPECT_LT( Thread::GetTickCount() - lStart, LONG_MS / 2 );
    OpenDevice();
    EXPECT_TRUE( Answers( mInterface ) );
}

TEST_F( ClosingTest, IsAwaitedByAnOpenOfTheSameDevice )
{
    OpenDevice();
    mDevice->HoldReleases();
    std::thread lCloser( [this] { EXPECT_TRUE( mInterface.Close().IsOK() ); } );
    EXPECT_TRUE( mDevice->WaitForRelease() );
    std::atomic<bool> lIsOpened{ false };
    std::thread lOpener(
        [this, &lIsOpened]
        {
            EXPECT_TRUE( Open( mInterface, "1-1", GUID ).IsOK() );
            lIsOpened = true;
        } );
    // The time in which one that does not wait meets the claim.
    const long long lStart = Thread::GetTickCount();
    while ( !lIsOpened && Thread::GetTickCount() - lStart < 200 )
    {
        std::this_thread::yield();
    }
    EXPECT_FALSE( lIsOpened );
    mDevice->LetReleasesGo();
    lCloser.join();
    lOpener.join();
    EXPECT_TRUE( mInterface.IsOpened() );
    EXPECT_EQ( 1U, mDevice->GetClaims() );
    EXPECT_TRUE( Answers( mInterface ) );
}

TEST_F( ClosingTest, PreventsAWaitingCallFromStarting )
{
    OpenDevice();
    SetResponseTime( mInterface, 5000 );
    std::vector<std::thread> lWaiting;
    std::atomic<int> lStarted{ 0 };
    const Result lResult =
        SendWhile( mInterface, *mDevice,
                   [&]
                   {
                       for ( int i = 0; i < 8; ++i )
                       {
                           lWaiting.emplace_back(
                               [&]
                               {
                                   UsbTalk lTalk( ReadMem( 0, 4 ), 16 );
                                   ++lStarted;
                                   EXPECT_EQ( 0x0017U, lTalk.Send( mInterface ).GetCode() );
                               } );
                       }
                       while ( lStarted < 8 )
                       {
                           std::this_thread::yield();
                       }
                       EXPECT_TRUE( mInterface.Close().IsOK() );
                   } );
    EXPECT_EQ( 0x0017U, lResult.GetCode() );
    for ( std::thread& lThread : lWaiting )
    {
        lThread.join();
    }
    EXPECT_EQ( 1U, GetCounters( *mDevice ).mReceived );
}

TEST_F( ClosingTest, EndsPendingWaitsToo )
{
    OpenDevice();
    mDevice->Inject( { Kind::PENDING, 60000, 1, LONG_MS } );
    std::thread lCloser(
        [this]
        {
            // The second transfer that is waited for is the acknowledge behind the pending one.
            while ( mDevice->GetTransfers().size() < 2 || mDevice->GetReaders() == 0 )
            {
                std::this_thread::yield();
            }
            EXPECT_TRUE( mInterface.Close().IsOK() );
        } );
    UsbTalk lTalk( ReadMem( 0, 4 ), 16 );
    EXPECT_EQ( 0x0017U, lTalk.Send( mInterface ).GetCode() );
    EXPECT_TRUE( lTalk.IsUntouchedBehind( 0 ) );
    lCloser.join();
}

TEST_F( ClosingTest, AndOpeningDuringTransfersIsSafe )
{
    std::atomic<bool> lIsDone{ false };
    std::atomic<int> lOdd{ 0 };
    std::atomic<int> lAnswered{ 0 };
    std::vector<std::thread> lThreads;
    for ( int lThread = 0; lThread < 3; ++lThread )
    {
        lThreads.emplace_back(
            [this, &lIsDone, &lOdd, &lAnswered]
            {
                while ( !lIsDone )
                {
                    UsbTalk lTalk( ReadMem( 0, 4 ), 16 );
                    const Result lResult = lTalk.Send( mInterface );
                    const bool lIsGood =
                        lResult.IsOK() && lTalk.GetData() == Bytes{ 0x02, 0x00, 0x01, 0x00 };
                    lAnswered += lIsGood ? 1 : 0;
                    lOdd += lIsGood || lResult == Result::NOT_CONNECTED ? 0 : 1;
                }
            } );
    }
    for ( int lRound = 0; lRound < 5; ++lRound )
    {
        EXPECT_TRUE( Open( mInterface, "1-1", GUID ).IsOK() );
        const int lBefore = lAnswered;
        while ( lAnswered == lBefore )
        {
            std::this_thread::yield();
        }
        EXPECT_TRUE( mInterface.Close().IsOK() );
        EXPECT_EQ( 0U, mDevice->GetClaims() );
    }
    lIsDone = true;
    for ( std::thread& lThread : lThreads )
    {
        lThread.join();
    }
    EXPECT_EQ( 0, lOdd.load() );
}

TEST_F( JudgeTest, ADissectorDecodesEveryFieldOfTheExchange )
{
    OpenDevice();
    mDevice->Inject( { Kind::PENDING, 1000, 1, 1 } );
    UsbTalk lRead( ReadMem( 0x01CC, 4 ), 16 );
    ASSERT_TRUE( lRead.Send( mInterface ).IsOK() );
    UsbTalk lWrite( WriteMem( MEMORY, { 1, 2, 3 } ), 16 );
    ASSERT_TRUE( lWrite.Send( mInterface ).IsOK() );
    UsbTalk lRefused( ReadMem( 0x00F00000, 4 ), 16 );
    ASSERT_TRUE( lRefused.Send( mInterface ).IsOK() );

    const TestSupport::TemporaryDirectory lDirectory;
    const std::string lFile = lDirectory.GetPath( "talk.pcap" );
    ASSERT_TRUE( TestSupport::WriteUsbCapture( lFile, mDevice->GetTransfers() ) );
    const auto lDissect = [&lFile]( const std::string& aFilter )
    {
        return TestSupport::RunProgram( { "tshark",
                                          "-r",
                                          lFile,
                                          "-Y",
                                          aFilter,
                                          "-T",
                                          "fields",
                                          "-E",
                                          "separator=,",
                                          "-e",
                                          "u3v.gencp.flag.acq_required",
                                          "-e",
                                          "u3v.gencp.command_id",
                                          "-e",
                                          "u3v.gencp.status",
                                          "-e",
                                          "u3v.gencp.payloadlength",
                                          "-e",
                                          "u3v.gencp.req_id",
                                          "-e",
                                          "u3v.gencp.address",
                                          "-e",
                                          "u3v.gencp.custom_addr",
                                          "-e",
                                          "u3v.gencp.count",
                                          "-e",
                                          "u3v.gencp.timetocompletion",
                                          "-e",
                                          "u3v.gencp.custom_data" } );
    };
    const TestSupport::Outcome lOutcome = lDissect( "u3v" );
    if ( lOutcome.mStatus == 127 )
    {
        GTEST_SKIP() << "tshark is not installed";
    }
    ASSERT_EQ( 0, lOutcome.mStatus ) << lOutcome.mError;
    const auto lId = []( const UsbTalk& aTalk )
    {
        char lText[8];
        std::snprintf( lText, sizeof( lText ), "0x%04x",
                       static_cast<unsigned int>( aTalk.GetIdentifier() ) );
        return std::string( lText );
    };
    // Acknowledge wanted, code, status, length, identifier, address (of a register, or another),
    // count, time to completion, data.
    const std::string lExpected =
        "1,0x0800,,0x000c," + lId( lRead ) + ",0x00000000000001cc,,0x0004,,\n" +
        ",0x0805,0x0000,0x0004," + lId( lRead ) + ",,,,1000,\n" + ",0x0801,0x0000,0x0004," +
        lId( lRead ) + ",0x00000000000001cc,,,,\n" + "1,0x0802,,0x000b," + lId( lWrite ) +
        ",,0x0000000000100100,,,010203\n" + ",0x0803,0x0000,0x0004," + lId( lWrite ) +
        ",0x0000000000100100,,0x0003,,\n" + "1,0x0800,,0x000c," + lId( lRefused ) +
        ",,0x0000000000f00000,0x0004,,\n" + ",0x0801,0x8003,0x0000," + lId( lRefused ) + ",,,,,\n";
    EXPECT_EQ( lExpected, lOutcome.mOutput );
    EXPECT_EQ( "", lDissect( "_ws.malformed" ).mOutput );
}

TEST_F( JudgeTest, AnotherHostListsTheDeviceAndUsesItsRegisters )
{
    const char* const lOwn = geteuid() == 0 ? "-n" : "-Urn"; // it broadcasts on every interface
    const auto lRun = [lOwn]( const std::vector<std::string>& aArguments )
    {
        std::vector<std::string> lAll = { "unshare", lOwn, "arv-tool-0.8" };
        lAll.insert( lAll.end(), aArguments.begin(), aArguments.end() );
        return TestSupport::RunProgram( lAll );
    };
    const TestSupport::Outcome lList = lRun( {} );
    if ( lList.mError.find( "unshare:" ) != std::string::npos )
    {
        GTEST_SKIP() << lList.mError; // no network of its own, or not installed
    }
    EXPECT_EQ( "HtBase-1AB200000001-U3V-0001 (USB3)\n", lList.mOutput );
    const TestSupport::Outcome lControl =
        lRun( { "control", "DeviceModelName", "Scratch=305419896", "R[0x100010]", "Width" } );
    EXPECT_EQ( "HtBase-1AB200000001-U3V-0001 (USB3)\n"
               "DeviceModelName = VirtualDeviceU3V\n"
               "Scratch = 305419896 min:0 max:4294967295\n"
               "R[0x00100010] = 0x12345678\n"
               "Width = 640 min:4 max:4096 inc:4\n",
               lControl.mOutput );
    mDevice->Use(
        []( VirtualDeviceU3V& aSimulated )
        {
            EXPECT_EQ( 0x12345678U, aSimulated.GetMemory().GetNumber( 0x00100010, 4 ) );
            EXPECT_EQ( 0U, aSimulated.GetCounters().mRefused );
            EXPECT_EQ( 0U, aSimulated.GetCounters().mDropped );
        } );
}

} // namespace
