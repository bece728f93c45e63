// The real control interface and the enumerator where memory runs out, on a USB bus of the test's
// own.

#include "tests/support/AllocationCounter.h"
#include "tests/support/GenCPPackets.h"
#include "tests/support/UsbTalk.h"
#include "tests/support/VirtualUsb.h"

#include <WdTransportLayerLib/U3V/DeviceControlInterface.h>
#include <WdTransportLayerLib/U3V/DeviceEnumerator.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

namespace
{

using QmUtilsLib::Result;
using QmUtilsLib::String;
using Simulators::ConfigurationU3V;
using Simulators::VirtualDeviceU3V;
using TestSupport::AllocationFailure;
using TestSupport::GetLiveAllocationCount;
using TestSupport::ReadMem;
using TestSupport::UsbTalk;
using TestSupport::VirtualUsbBus;
using TestSupport::VirtualUsbDevice;
using WdTransportLayerLib::U3V::DCI_COMMAND;
using WdTransportLayerLib::U3V::DeviceControlInterface;
using WdTransportLayerLib::U3V::DeviceEnumerator;
using WdTransportLayerLib::U3V::DeviceInfo;
using WdUtilsLib::U3V::U3VGUID;

constexpr char GUID[] = "1AB200000001";
constexpr char OTHER_GUID[] = "1AB200000002";

// How many allocations in a row fail: one, or all from there on.
constexpr unsigned long long LENGTHS[] = { 1, ULLONG_MAX };

// Runs an operation that gives a result again and again, its first allocation failing, then its
// second, and so on until it needs no more of them. aCheck gets each result that came with a
// failure. Returns how many there were.
template <typename OPERATION, typename CHECK>
unsigned int FailEachAllocation( unsigned long long aLength, OPERATION aOperation, CHECK aCheck )
{
    for ( unsigned int lNumber = 1;; ++lNumber )
    {
        SCOPED_TRACE( "allocation " + std::to_string( lNumber ) );
        Result lResult;
        bool lHasFailed = false;
        {
            const AllocationFailure lFailure( lNumber, aLength );
            lResult = aOperation();
            lHasFailed = lFailure.HasHappened();
        }
        if ( !lHasFailed )
        {
            return lNumber - 1;
        }
        aCheck( lResult );
    }
}

void ExpectNoMemory( const Result& aResult )
{
    EXPECT_EQ( 0x4000U, aResult.GetCode() );
    EXPECT_EQ( static_cast<unsigned int>( ENOMEM ), aResult.GetOSCode() );
}

// Without sockets: those of the emulation are in this process too, and close when it gets to them.
std::ptrdiff_t CountOpenFiles()
{
    namespace Files = std::filesystem;
    return std::count_if( Files::directory_iterator( "/proc/self/fd" ), Files::directory_iterator(),
                          []( const Files::directory_entry& aEntry )
                          {
                              std::error_code lError; // one that closes meanwhile does not count
                              const Files::path lTarget = Files::read_symlink( aEntry, lError );
                              return !lError && lTarget.string().find( "socket:" ) != 0;
                          } );
}

// The blocks of this thread and the files of this process stay as many.
class LeakCheck
{
public:
    ~LeakCheck()
    {
        EXPECT_EQ( mFiles, CountOpenFiles() );
        EXPECT_EQ( mBlocks, GetLiveAllocationCount() );
    }

private:
    const std::ptrdiff_t mFiles = CountOpenFiles();
    const long long mBlocks = GetLiveAllocationCount();
};

uint64_t CountCommands( VirtualUsbDevice& aDevice )
{
    uint64_t lCount = 0;
    aDevice.Use( [&lCount]( VirtualDeviceU3V& aSimulated )
                 { lCount = aSimulated.GetCounters().mReceived; } );
    return lCount;
}

// A bus with one device at port 1, which a kernel driver holds.
class UsbAllocation : public testing::Test
{
protected:
    UsbAllocation()
        : mDevice( mBus.Plug( ConfigurationU3V(), 1 ) )
    {
        // What is kept from the first use on is there before anything is counted.
        SCOPED_TRACE( "" );
        (void)Result().GetDescription();
        DeviceControlInterface lInterface;
        EXPECT_TRUE( Open( lInterface ).IsOK() );
        EXPECT_TRUE( lInterface.Close().IsOK() );
        mDevice->BindDriver();
    }

    Result Open( DeviceControlInterface& aInterface )
    {
        return aInterface.Open( mPath, U3VGUID( GUID ), false );
    }

    static bool Answers( DeviceControlInterface& aInterface )
    {
        UsbTalk lTalk( ReadMem( 0, 4 ), 16 );
        return lTalk.Send( aInterface ).IsOK() && lTalk.GetReceived() == 16;
    }

    VirtualUsbBus mBus;
    std::shared_ptr<VirtualUsbDevice> mDevice;
    String mPath{ "1-1" };
};

TEST_F( UsbAllocation, OpenLeavesTheDeviceAsItIsAndCanBeTriedAgain )
{
    for ( const unsigned long long lLength : LENGTHS )
    {
        const LeakCheck lCheck;
        DeviceControlInterface lInterface;
        const unsigned int lFailures = FailEachAllocation(
            lLength, [&] { return Open( lInterface ); },
            [&]( const Result& aResult )
            {
                ExpectNoMemory( aResult );
                EXPECT_FALSE( lInterface.IsOpened() );
                EXPECT_EQ( 0U, mDevice->GetClaims() );
                EXPECT_TRUE( mDevice->IsDriverBound() );
                EXPECT_TRUE( Open( lInterface ).IsOK() );
                EXPECT_TRUE( Answers( lInterface ) );
                EXPECT_TRUE( lInterface.Close().IsOK() );
            } );
        EXPECT_LT( 10U, lFailures );
        EXPECT_TRUE( Answers( lInterface ) );
    }
}

TEST_F( UsbAllocation, OpenOfAnotherDeviceLeavesTheFirstOpen )
{
    ConfigurationU3V lConfiguration;
    lConfiguration.mGUID = OTHER_GUID;
    const auto lOther = mBus.Plug( lConfiguration, 2 );
    String lPath( "1-2" );
    for ( const unsigned long long lLength : LENGTHS )
    {
        const LeakCheck lCheck;
        DeviceControlInterface lInterface;
        ASSERT_TRUE( Open( lInterface ).IsOK() );
        const unsigned int lFailures = FailEachAllocation(
            lLength, [&] { return lInterface.Open( lPath, U3VGUID( OTHER_GUID ), false ); },
            [&]( const Result& aResult )
            {
                ExpectNoMemory( aResult );
                EXPECT_EQ( 1U, mDevice->GetClaims() );
                EXPECT_EQ( 0U, lOther->GetClaims() );
                EXPECT_TRUE( Answers( lInterface ) );
            } );
        EXPECT_LT( 10U, lFailures );
        EXPECT_EQ( 1U, lOther->GetClaims() );
    }
}

// The result of a search that has ended then has no text.
TEST_F( UsbAllocation, OpenReportsAMissingDeviceWithoutText )
{
    String lPaths[] = { "1-1", "", "1-9" };
    for ( String& lPath : lPaths )
    {
        const LeakCheck lCheck;
        DeviceControlInterface lInterface;
        const auto lOpen = [&]
        {
            return lInterface.Open( lPath, U3VGUID( OTHER_GUID ), false );
        };
        unsigned int lWithoutText = 0;
        (void)FailEachAllocation( 1, lOpen,
                                  [&]( const Result& aResult )
                                  {
                                      const bool lHasEnded = aResult.GetOSCode() == ENODEV;
                                      lWithoutText += lHasEnded ? 1 : 0;
                                      EXPECT_EQ( 0x4000U, aResult.GetCode() );
                                      EXPECT_TRUE( lHasEnded || aResult.GetOSCode() == ENOMEM )
                                          << aResult.GetOSCode();
                                      EXPECT_EQ( 0U, aResult.GetDescription().GetLength() );
                                      EXPECT_FALSE( lInterface.IsOpened() );
                                  } );
        EXPECT_LT( 1U, lWithoutText );
        EXPECT_NE( 0U, lOpen().GetDescription().GetLength() );
    }
}

TEST_F( UsbAllocation, ACommandIsNotSentIfItsAnswerCannotBeStored )
{
    const LeakCheck lCheck;
    unsigned int lFailures = 0;
    for ( unsigned long long lNumber = 1; lNumber == 1 || lFailures == lNumber - 1; ++lNumber )
    {
        DeviceControlInterface lInterface; // which has no place yet
        ASSERT_TRUE( Open( lInterface ).IsOK() );
        UsbTalk lTalk( ReadMem( 0, 4 ), 16 );
        const uint64_t lBefore = CountCommands( *mDevice );
        Result lResult;
        {
            const AllocationFailure lFailure( lNumber );
            lResult = lTalk.Send( lInterface );
            lFailures += lFailure.HasHappened() ? 1 : 0;
        }
        if ( lFailures == lNumber )
        {
            ExpectNoMemory( lResult );
            ExpectNoMemory( lTalk.GetCommandResult() );
            EXPECT_EQ( 0U, lTalk.GetReceived() );
            EXPECT_TRUE( lTalk.IsUntouchedBehind( 0 ) );
            EXPECT_EQ( lBefore, CountCommands( *mDevice ) );
            EXPECT_TRUE( Answers( lInterface ) );
        }
    }
    EXPECT_EQ( 2U, lFailures ); // of the command and of the acknowledge
}

TEST_F( UsbAllocation, TheCommandsBeforeItAreAnswered )
{
    DeviceControlInterface lInterface;
    ASSERT_TRUE( Open( lInterface ).IsOK() );
    ASSERT_TRUE( Answers( lInterface ) );
    UsbTalk lShort( ReadMem( 0, 4 ), 16 );
    UsbTalk lLong( ReadMem( 0, 4 ), 5000 );
    DCI_COMMAND lRecords[] = { lShort.MakeRecord(), lLong.MakeRecord() };
    const uint64_t lBefore = CountCommands( *mDevice );
    Result lResult;
    {
        const AllocationFailure lFailure( 1 );
        lResult = lInterface.SendCommands( lRecords, 2 );
    }
    ExpectNoMemory( lResult );
    EXPECT_TRUE( lRecords[0].mResult.IsOK() );
    EXPECT_EQ( 16U, lRecords[0].mAckLength );
    ExpectNoMemory( lRecords[1].mResult );
    EXPECT_EQ( 0U, lRecords[1].mAckLength );
    EXPECT_EQ( lBefore + 1, CountCommands( *mDevice ) );
    // The identifiers have no gap.
    EXPECT_TRUE( Answers( lInterface ) );
    mDevice->Use( []( VirtualDeviceU3V& aSimulated )
                  { EXPECT_EQ( 0U, aSimulated.GetCounters().mSkippedIds ); } );
}

TEST_F( UsbAllocation, ABusErrorKeepsItsCodeWithoutItsText )
{
    DeviceControlInterface lInterface;
    ASSERT_TRUE( Open( lInterface ).IsOK() );
    ASSERT_TRUE( Answers( lInterface ) );
    mBus.Unplug( mDevice );
    UsbTalk lTalk( ReadMem( 0, 4 ), 16 );
    for ( const unsigned long long lLength : LENGTHS )
    {
        const unsigned int lFailures = FailEachAllocation(
            lLength, [&] { return lTalk.Send( lInterface ); },
            []( const Result& aResult )
            {
                EXPECT_EQ( 0x4000U, aResult.GetCode() );
                EXPECT_EQ( static_cast<unsigned int>( ENODEV ), aResult.GetOSCode() );
                EXPECT_EQ( 0U, aResult.GetDescription().GetLength() );
            } );
        EXPECT_LT( 1U, lFailures );
    }
    EXPECT_NE( 0U, lTalk.Send( lInterface ).GetDescription().GetLength() );
}

TEST_F( UsbAllocation, TheEnumeratorGivesAllDevicesOrNone )
{
    (void)mBus.PlugBehindHub( ConfigurationU3V(), 2, 1 );
    for ( const unsigned long long lLength : LENGTHS )
    {
        const LeakCheck lCheck;
        std::vector<DeviceInfo> lDevices;
        const unsigned int lFailures = FailEachAllocation(
            lLength, [&] { return DeviceEnumerator::GetDevices( lDevices ); },
            [&]( const Result& aResult )
            {
                ExpectNoMemory( aResult );
                EXPECT_TRUE( lDevices.empty() );
            } );
        EXPECT_LT( 10U, lFailures );
        EXPECT_EQ( 2U, lDevices.size() );
    }
}

} // namespace
