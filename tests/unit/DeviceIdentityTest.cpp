// Which devices are the maker's.

#include <WdUtilsLib/Network/DeviceIdentity.h>

#include <gtest/gtest.h>

namespace
{

using WdUtilsLib::Network::DeviceIdentity;
using WdUtilsLib::Network::EthernetAddress;
using Product = DeviceIdentity::Product;

const EthernetAddress ADDRESS( 0x0200, 0x5E0A0B0C );   // 02:00:5E:0A:0B:0C
const EthernetAddress NEIGHBOUR( 0x0200, 0x5E0A0B0D ); // of the same prefix
const EthernetAddress STRANGER( 0x0200, 0x5F0A0B0C );

class DeviceIdentityTest : public testing::Test
{
protected:
    DeviceIdentityTest() { DeviceIdentity::Clear(); }
};

} // namespace

TEST( DeviceIdentity, IsEmptyByDefault )
{
    EXPECT_FALSE( DeviceIdentity::IsCorvaneDevice( ADDRESS ) );
    EXPECT_FALSE( DeviceIdentity::IsCorvaneTransmitter( ADDRESS ) );
    EXPECT_FALSE( DeviceIdentity::IsCorvaneDevice( EthernetAddress() ) );
    EXPECT_FALSE( DeviceIdentity::IsCorvaneTransmitter( EthernetAddress() ) );
}

TEST_F( DeviceIdentityTest, KnowsAnAddress )
{
    DeviceIdentity::Add( Product::DEVICE, ADDRESS );
    DeviceIdentity::Add( Product::DEVICE, ADDRESS );
    EXPECT_TRUE( DeviceIdentity::IsCorvaneDevice( ADDRESS ) );
    EXPECT_FALSE( DeviceIdentity::IsCorvaneDevice( NEIGHBOUR ) );
    EXPECT_FALSE( DeviceIdentity::IsCorvaneTransmitter( ADDRESS ) );
}

TEST_F( DeviceIdentityTest, KnowsAPrefix )
{
    DeviceIdentity::Add( Product::TRANSMITTER, DeviceIdentity::Prefix{ 0x02, 0x00, 0x5E } );
    EXPECT_TRUE( DeviceIdentity::IsCorvaneTransmitter( ADDRESS ) );
    EXPECT_TRUE( DeviceIdentity::IsCorvaneTransmitter( NEIGHBOUR ) );
    EXPECT_FALSE( DeviceIdentity::IsCorvaneTransmitter( STRANGER ) );
    EXPECT_FALSE( DeviceIdentity::IsCorvaneTransmitter( EthernetAddress( 0x0201, 0x5E0A0B0C ) ) );
    EXPECT_FALSE( DeviceIdentity::IsCorvaneTransmitter( EthernetAddress( 0x0300, 0x5E0A0B0C ) ) );
    EXPECT_FALSE( DeviceIdentity::IsCorvaneDevice( ADDRESS ) );
}

TEST_F( DeviceIdentityTest, ReadsAnAddressOrAPrefix )
{
    EXPECT_TRUE( DeviceIdentity::Add( Product::DEVICE, "02:00:5e:0a:0b:0c" ) );
    EXPECT_TRUE( DeviceIdentity::IsCorvaneDevice( ADDRESS ) );
    EXPECT_FALSE( DeviceIdentity::IsCorvaneDevice( NEIGHBOUR ) );
    EXPECT_TRUE( DeviceIdentity::Add( Product::TRANSMITTER, "2-0-5F" ) );
    EXPECT_TRUE( DeviceIdentity::IsCorvaneTransmitter( STRANGER ) );
    EXPECT_FALSE( DeviceIdentity::IsCorvaneTransmitter( ADDRESS ) );
    EXPECT_TRUE( DeviceIdentity::Add( Product::DEVICE, "02:00:5E" ) );
    EXPECT_TRUE( DeviceIdentity::IsCorvaneDevice( NEIGHBOUR ) );
}

TEST_F( DeviceIdentityTest, RefusesOtherTexts )
{
    const char* const TEXTS[] = { nullptr,
                                  "",
                                  ":",
                                  "02",
                                  "02:00",
                                  "02:00:",
                                  "02:00:5E:",
                                  ":02:00:5E",
                                  "02:00-5E",
                                  "02:00:5G",
                                  "002:00:5E",
                                  "02:00:5E ",
                                  " 02:00:5E",
                                  "02005E",
                                  "02:00:5E:0A",
                                  "02:00:5E:0A:0B",
                                  "02:00:5E:0A:0B:0C:0D",
                                  "any" };
    for ( const char* const lText : TEXTS )
    {
        EXPECT_FALSE( DeviceIdentity::Add( Product::DEVICE, lText ) )
            << ( lText != nullptr ? lText : "null" );
    }
    EXPECT_FALSE( DeviceIdentity::IsCorvaneDevice( ADDRESS ) );
}

TEST_F( DeviceIdentityTest, ForgetsAllEntries )
{
    DeviceIdentity::Add( Product::DEVICE, ADDRESS );
    DeviceIdentity::Add( Product::TRANSMITTER, DeviceIdentity::Prefix{ 0x02, 0x00, 0x5E } );
    DeviceIdentity::Clear();
    EXPECT_FALSE( DeviceIdentity::IsCorvaneDevice( ADDRESS ) );
    EXPECT_FALSE( DeviceIdentity::IsCorvaneTransmitter( ADDRESS ) );
}
