// The example for USB3 Vision over the real libusb, on a USB bus of the test's own.

#include "tests/integration/ExampleRunner.h"
#include "tests/support/VirtualUsb.h"

#include <algorithm>
#include <cstddef>
#include <memory>

using testing::IsEmpty;
using testing::StartsWith;

namespace TestSupport
{

namespace
{

using Simulators::ConfigurationU3V;

// The largest acknowledge that the device has given.
size_t GetLargestAcknowledge( const VirtualUsbDevice& aDevice )
{
    size_t lLargest = 0;
    for ( const VirtualUsbDevice::Transfer& lTransfer : aDevice.GetTransfers() )
    {
        const bool lIsIn = ( lTransfer.mEndpoint & 0x80 ) != 0;
        lLargest = std::max( lLargest, lIsIn ? lTransfer.mBytes.size() : 0 );
    }
    return lLargest;
}

} // namespace

TEST( UsbDeviceExample, SizesItselfAndReads )
{
    VirtualUsbBus lBus;
    ConfigurationU3V lConfiguration;
    lConfiguration.mMaxCommandTransferLength = 512;
    lConfiguration.mMaxAckTransferLength = 256;
    const auto lDevice = lBus.Plug( lConfiguration, 1 );
    const Outcome lOutcome = RunExample( "UsbDevice", {} );
    EXPECT_EQ( lOutcome.mStatus, 0 );
    EXPECT_THAT( lOutcome.mError, IsEmpty() );
    EXPECT_EQ( lOutcome.mOutput, "1AB200000001 at 1-1, commands of 512 bytes, acknowledges of 256\n"
                                 "  manufacturer HtBase\n"
                                 "  model        VirtualDeviceU3V\n"
                                 "  family       Virtual\n"
                                 "  version      1.0\n" );
    // 256 bytes of texts in pieces of 256 - 24, each behind a header of 12.
    EXPECT_EQ( GetLargestAcknowledge( *lDevice ), 244U );
    EXPECT_EQ( lDevice->GetClaims(), 0U );
}

TEST( UsbDeviceExample, TakesADeviceByPathOrByGuid )
{
    VirtualUsbBus lBus;
    (void)lBus.Plug( {}, 1 );
    ConfigurationU3V lSecond;
    lSecond.mGUID = "1AB200000022";
    (void)lBus.PlugBehindHub( lSecond, 3, 2 );
    for ( const char* const lName : { "1-3.2", "1AB200000022" } )
    {
        const Outcome lOutcome = RunExample( "UsbDevice", { lName } );
        EXPECT_EQ( lOutcome.mStatus, 0 ) << lOutcome.mError;
        EXPECT_THAT( lOutcome.mOutput, StartsWith( "1AB200000022 at 1-3.2, " ) );
    }
}

TEST( UsbDeviceExample, ReportsThatADeviceIsNotFound )
{
    VirtualUsbBus lBus;
    EXPECT_EQ( RunExample( "UsbDevice", {} ).mStatus, 1 );
    (void)lBus.Plug( {}, 1 );
    const Outcome lOutcome = RunExample( "UsbDevice", { "1-2" } );
    EXPECT_EQ( lOutcome.mStatus, 1 );
    EXPECT_THAT( lOutcome.mOutput, IsEmpty() );
    EXPECT_EQ( lOutcome.mError, "UsbDevice: GENERIC_ERROR: there is no such USB3 Vision device\n" );
}

TEST( UsbDeviceExample, WrongArgumentsPrintTheUsage )
{
    const Outcome lOutcome = RunExample( "UsbDevice", { "1-1", "1-2" } );
    EXPECT_EQ( lOutcome.mStatus, 2 );
    EXPECT_THAT( lOutcome.mError, StartsWith( "usage: UsbDevice " ) );
    ExpectOneLine( lOutcome.mError );
}

} // namespace TestSupport
