// The enumerator over the real libusb, on a USB bus of the test's own.

#include "tests/support/VirtualUsb.h"

#include <WdTransportLayerLib/U3V/DeviceEnumerator.h>

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

namespace
{

using Simulators::ConfigurationU3V;
using TestSupport::VirtualUsbBus;
using WdTransportLayerLib::U3V::DeviceEnumerator;
using WdTransportLayerLib::U3V::DeviceInfo;

TEST( DeviceEnumerator, ListsNothingOnABusWithOnlyAHub )
{
    VirtualUsbBus lBus;
    std::vector<DeviceInfo> lDevices( 1 );
    EXPECT_TRUE( DeviceEnumerator::GetDevices( lDevices ).IsOK() );
    EXPECT_TRUE( lDevices.empty() );
}

TEST( DeviceEnumerator, ListsAllInformationOfADevice )
{
    VirtualUsbBus lBus;
    ConfigurationU3V lConfiguration;
    lConfiguration.mVendorID = 0x1234;
    lConfiguration.mProductID = 0xABCD;
    lConfiguration.mGUID = "1234C0FFEE01";
    lConfiguration.mManufacturerName = "Maker";
    lConfiguration.mModelName = "Model";
    lConfiguration.mFamilyName = "Family";
    lConfiguration.mDeviceVersion = "3.1";
    lConfiguration.mManufacturerInfo = "Info";
    lConfiguration.mSerialNumber = "S-1";
    lConfiguration.mUserName = "Left camera";
    lConfiguration.mGenCPVersion = 0x00010003;
    lConfiguration.mU3VVersion = 0x00010002;
    const auto lDevice = lBus.Plug( lConfiguration, 2 );

    std::vector<DeviceInfo> lDevices;
    ASSERT_TRUE( DeviceEnumerator::GetDevices( lDevices ).IsOK() );
    ASSERT_EQ( 1U, lDevices.size() );
    const DeviceInfo& lInfo = lDevices[0];
    EXPECT_EQ( "1-2", lInfo.mPath );
    EXPECT_STREQ( "1234C0FFEE01", lInfo.mGUID.Get() );
    EXPECT_EQ( 0x1234, lInfo.mVendorID );
    EXPECT_EQ( 0xABCD, lInfo.mProductID );
    EXPECT_EQ( DeviceInfo::Speed::SUPER, lInfo.mSpeed );
    EXPECT_EQ( 0x00010003U, lInfo.mGenCPVersion );
    EXPECT_EQ( 0x00010002U, lInfo.mU3VVersion );
    EXPECT_EQ( "Maker", lInfo.mVendorName );
    EXPECT_EQ( "Model", lInfo.mModelName );
    EXPECT_EQ( "Family", lInfo.mFamilyName );
    EXPECT_EQ( "3.1", lInfo.mDeviceVersion );
    EXPECT_EQ( "Info", lInfo.mManufacturerInfo );
    EXPECT_EQ( "S-1", lInfo.mSerialNumber );
    EXPECT_EQ( "Left camera", lInfo.mUserDefinedName );
    EXPECT_TRUE( lInfo.mAccess.IsOK() );
    EXPECT_EQ( 0U, lDevice->GetClaims() );
}

TEST( DeviceEnumerator, OrdersDevicesByPortsAndNamesHubsInThePath )
{
    VirtualUsbBus lBus;
    ConfigurationU3V lConfiguration;
    lConfiguration.mGUID = "1AB20000000A";
    (void)lBus.Plug( lConfiguration, 10 );
    lConfiguration.mGUID = "1AB200000022";
    (void)lBus.PlugBehindHub( lConfiguration, 2, 2 );
    lConfiguration.mGUID = "1AB200000001";
    (void)lBus.Plug( lConfiguration, 1 );

    std::vector<DeviceInfo> lDevices;
    ASSERT_TRUE( DeviceEnumerator::GetDevices( lDevices ).IsOK() );
    ASSERT_EQ( 3U, lDevices.size() );
    EXPECT_EQ( "1-1", lDevices[0].mPath );
    EXPECT_STREQ( "1AB200000001", lDevices[0].mGUID.Get() );
    EXPECT_EQ( "1-2.2", lDevices[1].mPath );
    EXPECT_STREQ( "1AB200000022", lDevices[1].mGUID.Get() );
    EXPECT_EQ( "1-10", lDevices[2].mPath );
}

TEST( DeviceEnumerator, LeavesMissingInformationEmpty )
{
    VirtualUsbBus lBus;
    ConfigurationU3V lConfiguration;
    lConfiguration.mGUID = "too short";
    lConfiguration.mFamilyName.clear();
    lConfiguration.mUserName.clear();
    (void)lBus.Plug( lConfiguration, 1 );

    std::vector<DeviceInfo> lDevices;
    ASSERT_TRUE( DeviceEnumerator::GetDevices( lDevices ).IsOK() );
    ASSERT_EQ( 1U, lDevices.size() );
    EXPECT_TRUE( lDevices[0].mGUID.IsEmpty() );
    EXPECT_EQ( "", lDevices[0].mFamilyName );
    EXPECT_EQ( "", lDevices[0].mUserDefinedName );
    EXPECT_TRUE( lDevices[0].mAccess.IsOK() );
}

TEST( DeviceEnumerator, ForgetsADeviceThatWasUnplugged )
{
    VirtualUsbBus lBus;
    const auto lDevice = lBus.Plug( ConfigurationU3V(), 1 );
    lBus.Unplug( lDevice );
    std::vector<DeviceInfo> lDevices;
    ASSERT_TRUE( DeviceEnumerator::GetDevices( lDevices ).IsOK() );
    EXPECT_TRUE( lDevices.empty() );
}

} // namespace
