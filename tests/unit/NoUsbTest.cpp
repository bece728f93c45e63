// USB3 Vision in a build without libusb: nothing can be opened, and the result says so.

#include <SimpleCommandLinkU3V.h>
#include <WdTransportLayerLib/U3V/DeviceControlInterface.h>
#include <WdTransportLayerLib/U3V/DeviceEnumerator.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace
{

using HtBaseLib::SimpleCommandLinkU3V;
using QmUtilsLib::Result;
using QmUtilsLib::String;
using WdTransportLayerLib::U3V::DCI_COMMAND;
using WdTransportLayerLib::U3V::DCIConfiguration;
using WdTransportLayerLib::U3V::DeviceControlInterface;
using WdTransportLayerLib::U3V::DeviceEnumerator;
using WdTransportLayerLib::U3V::DeviceInfo;
using WdUtilsLib::U3V::U3VGUID;

const U3VGUID GUID( "1AB200000001" );

// All three figures, in their order.
std::vector<uint32_t> GetFigures( const DCIConfiguration& aConfiguration )
{
    return { aConfiguration.mMaxDeviceResponseTime, aConfiguration.mMaxCommandTransferLength,
             aConfiguration.mMaxAckTransferLength };
}

TEST( NoUsb, OpenIsNotSupported )
{
    DeviceControlInterface lInterface;
    for ( const char* const lName : { "1-1", "" } )
    {
        String lPath( lName );
        const Result lResult = lInterface.Open( lPath, GUID, true );
        EXPECT_EQ( 0x0604U, lResult.GetCode() );
        EXPECT_EQ( 0U, lResult.GetOSCode() );
        EXPECT_STREQ( lName, lPath.GetAscii() );
        EXPECT_FALSE( lInterface.IsOpened() );
    }
}

TEST( NoUsb, CommandsAreNotConnectedAndTouchNothing )
{
    DeviceControlInterface lInterface;
    String lPath( "1-1" );
    (void)lInterface.Open( lPath, GUID, false );
    unsigned char lCommand[12] = { 1 };
    unsigned char lAck[16] = { 0xEE, 0xEE };
    DCI_COMMAND lRecord;
    lRecord.mCommand = lCommand;
    lRecord.mCommandLength = sizeof( lCommand );
    lRecord.mAck = lAck;
    lRecord.mAckLength = sizeof( lAck );
    EXPECT_EQ( 0x0017U, lInterface.SendCommands( &lRecord, 1 ).GetCode() );
    EXPECT_EQ( 0x0605U, lRecord.mResult.GetCode() ); // never sent
    EXPECT_EQ( sizeof( lAck ), lRecord.mAckLength );
    EXPECT_EQ( 0xEE, lAck[0] );
    EXPECT_EQ( 1, lCommand[0] );
}

TEST( NoUsb, CloseIsOKAndForgetsTheConfiguration )
{
    DeviceControlInterface lInterface;
    EXPECT_TRUE( lInterface.Close().IsOK() );
    EXPECT_EQ( ( std::vector<uint32_t>{ 0, 0, 0 } ),
               GetFigures( lInterface.GetDCIConfiguration() ) );

    DCIConfiguration lConfiguration{ 200, 2048, 1024 };
    EXPECT_TRUE( lInterface.SetDCIConfiguration( lConfiguration ).IsOK() );
    EXPECT_EQ( ( std::vector<uint32_t>{ 200, 2048, 1024 } ), GetFigures( lConfiguration ) );
    EXPECT_EQ( ( std::vector<uint32_t>{ 200, 2048, 1024 } ),
               GetFigures( lInterface.GetDCIConfiguration() ) );

    EXPECT_TRUE( lInterface.Close().IsOK() );
    EXPECT_EQ( ( std::vector<uint32_t>{ 0, 0, 0 } ),
               GetFigures( lInterface.GetDCIConfiguration() ) );
}

TEST( NoUsb, TheListOfDevicesIsEmptyAndNotSupported )
{
    std::vector<DeviceInfo> lDevices( 2 );
    EXPECT_EQ( 0x0604U, DeviceEnumerator::GetDevices( lDevices ).GetCode() );
    EXPECT_TRUE( lDevices.empty() );
}

TEST( NoUsb, ALinkStaysUnconnected )
{
    SimpleCommandLinkU3V lLink;
    EXPECT_EQ( 0x0604U, lLink.Open( GUID, "1-1" ).GetCode() );
    EXPECT_FALSE( lLink.IsConnected() );
    EXPECT_TRUE( lLink.GetGUID().IsEmpty() );
    EXPECT_EQ( 64U, lLink.GetMaxCommandSize() );
    unsigned char lData[4] = { 0xEE };
    EXPECT_EQ( 0x0017U, lLink.Read( lData, 0, sizeof( lData ) ).GetCode() );
    EXPECT_EQ( 0x0017U, lLink.Write( lData, 0, sizeof( lData ), false ).GetCode() );
    EXPECT_EQ( 0xEE, lData[0] );
    EXPECT_TRUE( lLink.Close().IsOK() );
}

} // namespace
