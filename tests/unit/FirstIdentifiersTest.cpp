// The first identifiers of a process. This is the only test of its program, so that none has been
// drawn before.

#include "tests/support/Packets.h"

#include <SimpleCommandLinkGEV.h>
#include <WdUtilsLib/Network/IpAddress.h>
#include <WdUtilsLib/Network/SocketUDP.h>
#include <WdUtilsLib/Scripted/Network.h>

#include <gtest/gtest.h>

#include <cstdint>

namespace
{

using HtBaseLib::SimpleCommandLinkGEV;
using TestSupport::Bytes;
using TestSupport::Packet;
using WdUtilsLib::Network::IpAddress;
using WdUtilsLib::Network::SocketUDP;
using WdUtilsLib::Scripted::ScriptedNetwork;

void ExpectRead( ScriptedNetwork& aNet, uint8_t aIdentifierLow )
{
    aNet.Expect( Packet( {
                     { 0x42 },                   // key
                     { 0x01 },                   // flags: acknowledge required
                     { 0x00, 0x80 },             // command: READREG
                     { 0x00, 0x04 },             // length
                     { 0xB0, aIdentifierLow },   // request identifier
                     { 0x00, 0x00, 0x09, 0x34 }, // address
                 } ) )
        .Reply( Packet( {
            { 0x00, 0x00 },             // status: success
            { 0x00, 0x81 },             // acknowledge: READREG
            { 0x00, 0x04 },             // length
            { 0xB0, aIdentifierLow },   // acknowledge identifier
            { 0x01, 0x02, 0x03, 0x04 }, // value
        } ) );
}

unsigned int Read( SimpleCommandLinkGEV& aLink )
{
    unsigned int lValue = 0;
    EXPECT_TRUE( aLink.ReadRegister( &lValue, 0x0934 ).IsOK() );
    return lValue;
}

TEST( FirstIdentifiers, AreB001AndB002AcrossLinks )
{
    ScriptedNetwork lNet;
    SocketUDP lSocket;
    SocketUDP lOtherSocket;
    ASSERT_TRUE( lSocket.Open().IsOK() );
    ASSERT_TRUE( lSocket.Connect( IpAddress( 0xC000020A ), 3956 ).IsOK() );
    ASSERT_TRUE( lOtherSocket.Open().IsOK() );
    ASSERT_TRUE( lOtherSocket.Connect( IpAddress( 0xC000020B ), 3956 ).IsOK() );
    SimpleCommandLinkGEV lLink( &lSocket );
    SimpleCommandLinkGEV lOther( &lOtherSocket );
    ExpectRead( lNet, 0x01 );
    ExpectRead( lNet, 0x02 );
    ExpectRead( lNet, 0x03 );
    EXPECT_EQ( Read( lLink ), 0x01020304U );
    EXPECT_EQ( Read( lOther ), 0x01020304U );
    EXPECT_EQ( Read( lLink ), 0x01020304U );
}

} // namespace
