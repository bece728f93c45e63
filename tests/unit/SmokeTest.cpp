#include <SimpleCommandLinkGEV.h>
#include <WdUtilsLib/Scripted/Network.h>
#include <gtest/gtest.h>
using namespace WdUtilsLib::Scripted;
TEST( Smoke, Reads )
{
    ScriptedNetwork lNet;
    WdUtilsLib::Network::SocketUDP lSocket;
    ASSERT_TRUE( lSocket.Open().IsOK() );
    ASSERT_TRUE( lSocket.Connect( WdUtilsLib::Network::IpAddress( 0x7F000001 ), 3956 ).IsOK() );
    HtBaseLib::SimpleCommandLinkGEV lLink( &lSocket );
    const Bytes lCommand{ 0x42, 1, 0, 0x80, 0, 4, 0xB0, 1, 0, 0, 9, 0x34 };
    lNet.Expect( lCommand )
        .Silence()
        .Expect( lCommand )
        .Reply( { 0, 0, 0, 0x81, 0, 4, 0xB0, 1, 1, 2, 3, 4 }, AFTER_MS( 399 ) );
    unsigned int lValue = 0;
    EXPECT_TRUE( lLink.ReadRegister( &lValue, 0x0934 ).IsOK() );
    EXPECT_EQ( lValue, 0x01020304U );
    EXPECT_EQ( lLink.GetRetriesCount(), 1 );
}
