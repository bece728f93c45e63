// The acknowledges of GVCP as they arrive: typed from the standard, whole, cut short at every byte,
// with wrong length fields, and on top of what an earlier datagram left in the buffer.

#include "tests/support/Packets.h"

#include <WdUtilsLib/GEV/AcknowledgeHeader.h>
#include <WdUtilsLib/GEV/CommandHeader.h>
#include <WdUtilsLib/GEV/Discovery.h>
#include <WdUtilsLib/GEV/ReadMemory.h>
#include <WdUtilsLib/GEV/ReadRegister.h>
#include <WdUtilsLib/GEV/WriteMemory.h>
#include <WdUtilsLib/GEV/WriteRegister.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <vector>

namespace
{

using namespace WdUtilsLib::GEV;
using TestSupport::Bytes;
using WdUtilsLib::Network::IpAddress;

const Bytes READREG_ACK = {
    0x00, 0x00,             // status: success
    0x00, 0x81,             // READREG acknowledge
    0x00, 0x08,             // length
    0xB0, 0x07,             // acknowledge identifier
    0x01, 0x02, 0x03, 0x04, // value of register 0
    0xFE, 0xDC, 0xBA, 0x98, // value of register 1
};

const Bytes WRITEREG_ACK = {
    0x00, 0x00, // status: success
    0x00, 0x83, // WRITEREG acknowledge
    0x00, 0x04, // length
    0xB0, 0x07, // acknowledge identifier
    0x00, 0x00, // reserved
    0x12, 0x34, // index
};

const Bytes READMEM_ACK = {
    0x00, 0x00,                   // status: success
    0x00, 0x85,                   // READMEM acknowledge
    0x00, 0x09,                   // length
    0xB0, 0x07,                   // acknowledge identifier
    0x00, 0x00, 0x09, 0x34,       // address
    0x11, 0x22, 0x33, 0x44, 0x55, // data
};

const Bytes WRITEMEM_ACK = {
    0x00, 0x00, // status: success
    0x00, 0x87, // WRITEMEM acknowledge
    0x00, 0x04, // length
    0xB0, 0x07, // acknowledge identifier
    0x00, 0x00, // reserved
    0x02, 0x18, // index
};

const Bytes PENDING_ACK = {
    0x00, 0x00, // status: success
    0x00, 0x89, // PENDINGACK
    0x00, 0x04, // length
    0xB0, 0x07, // acknowledge identifier
    0x00, 0x00, // reserved
    0x13, 0x88, // time to completion: 5000 ms
};

constexpr unsigned short IDENTIFIER = 0xB007;

CommandHeader MakeCommand( unsigned short aCommand )
{
    CommandHeader lCommand( aCommand );
    lCommand.InitRequestId( IDENTIFIER );
    return lCommand;
}

// The first bytes of a packet in a heap block of exactly their number.
class ExactBlock
{
public:
    ExactBlock( const Bytes& aPacket, std::size_t aSize )
        : mSize( aSize )
        , mBytes( new uint8_t[aSize] )
    {
        std::copy_n( aPacket.begin(), aSize, mBytes.get() );
    }

    const uint8_t* Get() const { return mBytes.get(); }
    std::size_t GetSize() const { return mSize; }
    unsigned int GetReceived() const { return static_cast<unsigned int>( mSize ); }

private:
    std::size_t mSize;
    std::unique_ptr<uint8_t[]> mBytes;
};

void Put( Bytes& aPacket, std::size_t aOffset, const Bytes& aBytes )
{
    std::copy( aBytes.begin(), aBytes.end(),
               aPacket.begin() + static_cast<std::ptrdiff_t>( aOffset ) );
}

void PutText( Bytes& aPacket, std::size_t aRegister, const std::string& aText )
{
    Put( aPacket, 8 + aRegister, Bytes( aText.begin(), aText.end() ) );
}

Bytes MakeDiscoveryAck()
{
    Bytes lPacket( 8 + 248, 0 );
    Put( lPacket, 0, { 0x00, 0x00 } );                    // status: success
    Put( lPacket, 2, { 0x00, 0x03 } );                    // DISCOVERY acknowledge
    Put( lPacket, 4, { 0x00, 0xF8 } );                    // length
    Put( lPacket, 6, { 0xB0, 0x07 } );                    // acknowledge identifier
    Put( lPacket, 8 + 0x00, { 0x00, 0x02, 0x00, 0x01 } ); // version 2.1
    Put( lPacket, 8 + 0x04, { 0x80, 0x00, 0x00, 0x01 } ); // device mode
    Put( lPacket, 8 + 0x08, { 0xFF, 0xFF, 0x00, 0x11 } ); // MAC address high, above it reserved
    Put( lPacket, 8 + 0x0C, { 0x1C, 0x0A, 0x0B, 0x0C } ); // MAC address low
    Put( lPacket, 8 + 0x24, { 192, 168, 10, 5 } );        // current IP address
    Put( lPacket, 8 + 0x34, { 255, 255, 255, 0 } );       // subnet mask
    Put( lPacket, 8 + 0x44, { 192, 168, 10, 1 } );        // default gateway
    PutText( lPacket, 0x48, "Maker" );                    // manufacturer name, 32 bytes
    PutText( lPacket, 0x68, "Model" );                    // model name, 32 bytes
    PutText( lPacket, 0x88, "1.2.3" );                    // device version, 32 bytes
    PutText( lPacket, 0xA8, "information" );              // manufacturer information, 48 bytes
    PutText( lPacket, 0xD8, "SN 0001" );                  // serial number, 16 bytes
    PutText( lPacket, 0xE8, "left \xC3\xA9" );            // user defined name, 16 bytes
    return lPacket;
}

struct Exchange
{
    const char* mName;
    unsigned short mCommand;
    Bytes mAcknowledge;
};

std::vector<Exchange> GetExchanges()
{
    return { { "READREG", 0x0080, READREG_ACK },
             { "WRITEREG", 0x0082, WRITEREG_ACK },
             { "READMEM", 0x0084, READMEM_ACK },
             { "WRITEMEM", 0x0086, WRITEMEM_ACK },
             { "DISCOVERY", 0x0002, MakeDiscoveryAck() } };
}

} // namespace

TEST( GvcpAcknowledge, HeaderFields )
{
    const Bytes lPacket = {
        0x80, 0x06, // status: access denied
        0x12, 0x34, // acknowledge code
        0x00, 0x02, // length
        0xAB, 0xCD, // acknowledge identifier
        0x55, 0xAA, // payload
    };
    const AcknowledgeHeader lHeader( lPacket.data(), lPacket.size() );
    EXPECT_EQ( lHeader.GetStatus(), 0x8006 );
    EXPECT_EQ( lHeader.GetAcknowledge(), 0x1234 );
    EXPECT_EQ( lHeader.GetLength(), 0x0002 );
    EXPECT_EQ( lHeader.GetAcknowledgeId(), 0xABCD );
}

TEST( GvcpAcknowledge, ACompleteAnswerIsValid )
{
    for ( const Exchange& lExchange : GetExchanges() )
    {
        const ExactBlock lBlock( lExchange.mAcknowledge, lExchange.mAcknowledge.size() );
        const AcknowledgeHeader lHeader( lBlock.Get(), lBlock.GetSize() );
        EXPECT_TRUE( lHeader.IsValid( lBlock.GetReceived(), MakeCommand( lExchange.mCommand ) ) )
            << lExchange.mName;
    }
}

TEST( GvcpAcknowledge, ARefusalIsValidWithAndWithoutPayload )
{
    for ( unsigned int lStatus = 0x8001; lStatus <= 0x800E; ++lStatus )
    {
        for ( const Exchange& lExchange : GetExchanges() )
        {
            Bytes lPacket = lExchange.mAcknowledge;
            lPacket[0] = static_cast<uint8_t>( lStatus >> 8 );
            lPacket[1] = static_cast<uint8_t>( lStatus & 0xFFU );
            const CommandHeader lCommand = MakeCommand( lExchange.mCommand );
            const ExactBlock lWhole( lPacket, lPacket.size() );
            EXPECT_TRUE( AcknowledgeHeader( lWhole.Get(), lWhole.GetSize() )
                             .IsValid( lWhole.GetReceived(), lCommand ) );
            lPacket[4] = 0;
            lPacket[5] = 0;
            const ExactBlock lBare( lPacket, 8 );
            const AcknowledgeHeader lHeader( lBare.Get(), lBare.GetSize() );
            EXPECT_TRUE( lHeader.IsValid( 8, lCommand ) ) << lExchange.mName << lStatus;
            EXPECT_EQ( lHeader.GetStatus(), lStatus );
        }
    }
}

TEST( GvcpAcknowledge, AnotherCodeIsNotValid )
{
    const AcknowledgeHeader lHeader( READREG_ACK.data(), READREG_ACK.size() );
    const auto lReceived = static_cast<unsigned int>( READREG_ACK.size() );
    EXPECT_TRUE( lHeader.IsValid( lReceived, MakeCommand( 0x0080 ) ) );
    for ( const uint16_t lCommand :
          std::vector<uint16_t>{ 0x0002, 0x007F, 0x0081, 0x0082, 0x0084, 0x8080, 0xFFFF } )
    {
        EXPECT_FALSE( lHeader.IsValid( lReceived, MakeCommand( lCommand ) ) ) << lCommand;
    }
    // One more than the last code has no acknowledge, not even that of code 0.
    Bytes lZero = READREG_ACK;
    lZero[2] = 0;
    lZero[3] = 0;
    EXPECT_FALSE( AcknowledgeHeader( lZero.data(), lZero.size() )
                      .IsValid( lReceived, MakeCommand( 0xFFFF ) ) );
}

TEST( GvcpAcknowledge, AnotherIdentifierIsNotValid )
{
    const AcknowledgeHeader lHeader( READREG_ACK.data(), READREG_ACK.size() );
    CommandHeader lCommand = MakeCommand( 0x0080 );
    for ( const uint16_t lIdentifier :
          std::vector<uint16_t>{ 0x0000, 0xB006, 0xB008, 0x07B0, 0xB107, 0x3007 } )
    {
        lCommand.InitRequestId( lIdentifier );
        EXPECT_FALSE( lHeader.IsValid( 16, lCommand ) ) << lIdentifier;
    }
    lCommand.InitRequestId( IDENTIFIER );
    EXPECT_TRUE( lHeader.IsValid( 16, lCommand ) );
}

TEST( GvcpAcknowledge, APendingAcknowledgeIsNotAnAnswer )
{
    const AcknowledgeHeader lHeader( PENDING_ACK.data(), PENDING_ACK.size() );
    for ( const Exchange& lExchange : GetExchanges() )
    {
        EXPECT_FALSE( lHeader.IsValid( 12, MakeCommand( lExchange.mCommand ) ) );
    }
}

TEST( GvcpAcknowledge, AWrongLengthFieldIsNotValid )
{
    const CommandHeader lCommand = MakeCommand( 0x0080 );
    for ( const unsigned int lLength :
          { 0U, 4U, 7U, 9U, 12U, 0x0100U, 0x0800U, 0x8008U, 0xFFF8U, 0xFFFFU } )
    {
        Bytes lPacket = READREG_ACK;
        lPacket[4] = static_cast<uint8_t>( lLength >> 8 );
        lPacket[5] = static_cast<uint8_t>( lLength & 0xFFU );
        const ExactBlock lBlock( lPacket, lPacket.size() );
        EXPECT_FALSE( AcknowledgeHeader( lBlock.Get(), lBlock.GetSize() )
                          .IsValid( lBlock.GetReceived(), lCommand ) )
            << lLength;
    }
}

// The datagram ends where its heap block ends.
TEST( GvcpAcknowledge, EveryTruncationIsNotValid )
{
    for ( const Exchange& lExchange : GetExchanges() )
    {
        const CommandHeader lCommand = MakeCommand( lExchange.mCommand );
        for ( std::size_t lSize = 0; lSize < lExchange.mAcknowledge.size(); ++lSize )
        {
            const ExactBlock lBlock( lExchange.mAcknowledge, lSize );
            const AcknowledgeHeader lHeader( lBlock.Get(), lBlock.GetSize() );
            EXPECT_FALSE( lHeader.IsValid( lBlock.GetReceived(), lCommand ) )
                << lExchange.mName << lSize;
            // Nor does a caller's mistake about the bytes received lead beyond the buffer.
            EXPECT_FALSE( lHeader.IsValid(
                static_cast<unsigned int>( lExchange.mAcknowledge.size() ), lCommand ) );
            EXPECT_FALSE( lHeader.IsValid( 0xFFFFFFFF, lCommand ) );
        }
    }
}

// The buffer still holds a good answer; the received datagram is shorter, or empty.
TEST( GvcpAcknowledge, StaleBytesAreNeverJudged )
{
    for ( const Exchange& lExchange : GetExchanges() )
    {
        const CommandHeader lCommand = MakeCommand( lExchange.mCommand );
        Bytes lBuffer = lExchange.mAcknowledge;
        lBuffer.resize( 548 );
        const AcknowledgeHeader lHeader( lBuffer.data(), lBuffer.size() );
        for ( unsigned int lReceived = 0; lReceived <= lBuffer.size(); ++lReceived )
        {
            EXPECT_EQ( lHeader.IsValid( lReceived, lCommand ),
                       lReceived == lExchange.mAcknowledge.size() )
                << lExchange.mName << lReceived;
        }
        EXPECT_FALSE( lHeader.IsValid( 549, lCommand ) );
    }
}

TEST( GvcpAcknowledge, ABufferWithoutAHeaderReadsAsZero )
{
    for ( std::size_t lSize = 0; lSize < 8; ++lSize )
    {
        const ExactBlock lBlock( Bytes( 8, 0xFF ), lSize );
        const AcknowledgeHeader lHeader( lBlock.Get(), lBlock.GetSize() );
        EXPECT_EQ( lHeader.GetStatus(), 0 );
        EXPECT_EQ( lHeader.GetAcknowledge(), 0 );
        EXPECT_EQ( lHeader.GetLength(), 0 );
        EXPECT_EQ( lHeader.GetAcknowledgeId(), 0 );
        EXPECT_EQ( PendingAcknowledgeHeader( lBlock.Get(), lSize ).GetTimeToCompletion(), 0 );
        EXPECT_EQ( ReadRegisterAcknowledge( lBlock.Get(), lSize ).GetValue( 0, true ), 0U );
        EXPECT_EQ( ReadRegisterAcknowledge( lBlock.Get(), lSize ).GetValue( 0, false ), 0U );
        EXPECT_EQ( WriteRegisterAcknowledge( lBlock.Get(), lSize ).GetIndex(), 0 );
        EXPECT_EQ( WriteMemoryAcknowledge( lBlock.Get(), lSize ).GetIndex(), 0 );
        uint8_t lByte = 0x77;
        EXPECT_FALSE( ReadMemoryAcknowledge( lBlock.Get(), lSize ).CopyData( &lByte, 1 ) );
        EXPECT_EQ( lByte, 0x77 );
        EXPECT_FALSE( DiscoveryAcknowledge( lBlock.Get(), lSize ).IsComplete() );
    }
    const AcknowledgeHeader lNothing( nullptr, 0 );
    EXPECT_EQ( lNothing.GetLength(), 0 );
    EXPECT_FALSE( lNothing.IsValid( 0, MakeCommand( 0x0080 ) ) );
}

TEST( GvcpAcknowledge, ReadRegister )
{
    const ExactBlock lBlock( READREG_ACK, READREG_ACK.size() );
    const ReadRegisterAcknowledge lAcknowledge( lBlock.Get(), lBlock.GetSize() );
    EXPECT_EQ( lAcknowledge.GetValue( 0, true ), 0x01020304U );
    EXPECT_EQ( lAcknowledge.GetValue( 1, true ), 0xFEDCBA98U );
    // The bytes as they are in the packet.
    const unsigned int lRaw = lAcknowledge.GetValue( 1, false );
    EXPECT_EQ( std::memcmp( &lRaw, &READREG_ACK[12], 4 ), 0 );
    for ( const unsigned int lIndex :
          { 2U, 3U, 134U, 135U, 0x40000000U, 0x40000001U, 0x80000000U, 0xFFFFFFFFU } )
    {
        EXPECT_EQ( lAcknowledge.GetValue( lIndex, true ), 0U ) << lIndex;
        EXPECT_EQ( lAcknowledge.GetValue( lIndex, false ), 0U ) << lIndex;
    }
}

TEST( GvcpAcknowledge, ReadRegisterTruncated )
{
    for ( std::size_t lSize = 0; lSize <= READREG_ACK.size(); ++lSize )
    {
        const ExactBlock lBlock( READREG_ACK, lSize );
        const ReadRegisterAcknowledge lAcknowledge( lBlock.Get(), lBlock.GetSize() );
        EXPECT_EQ( lAcknowledge.GetValue( 0, true ), lSize >= 12 ? 0x01020304U : 0U ) << lSize;
        EXPECT_EQ( lAcknowledge.GetValue( 1, true ), lSize >= 16 ? 0xFEDCBA98U : 0U ) << lSize;
        EXPECT_EQ( lAcknowledge.GetValue( 1, false ) != 0, lSize >= 16 ) << lSize;
    }
}

// The length field says how much there is, also where the buffer goes on.
TEST( GvcpAcknowledge, ReadRegisterBeyondTheLengthField )
{
    for ( uint8_t lLength = 0; lLength <= 8; ++lLength )
    {
        Bytes lPacket = READREG_ACK;
        lPacket[5] = lLength;
        const ReadRegisterAcknowledge lAcknowledge( lPacket.data(), lPacket.size() );
        EXPECT_EQ( lAcknowledge.GetValue( 0, true ), lLength >= 4 ? 0x01020304U : 0U );
        EXPECT_EQ( lAcknowledge.GetValue( 1, true ), lLength >= 8 ? 0xFEDCBA98U : 0U );
    }
}

TEST( GvcpAcknowledge, WriteRegisterAndWriteMemoryReturnTheIndex )
{
    for ( std::size_t lSize = 0; lSize <= 12; ++lSize )
    {
        const ExactBlock lRegister( WRITEREG_ACK, lSize );
        EXPECT_EQ( WriteRegisterAcknowledge( lRegister.Get(), lSize ).GetIndex(),
                   lSize == 12 ? 0x1234 : 0 );
        const ExactBlock lMemory( WRITEMEM_ACK, lSize );
        EXPECT_EQ( WriteMemoryAcknowledge( lMemory.Get(), lSize ).GetIndex(),
                   lSize == 12 ? 536 : 0 );
    }
}

TEST( GvcpAcknowledge, PendingReturnsTheTime )
{
    for ( std::size_t lSize = 0; lSize <= PENDING_ACK.size(); ++lSize )
    {
        const ExactBlock lBlock( PENDING_ACK, lSize );
        const PendingAcknowledgeHeader lHeader( lBlock.Get(), lBlock.GetSize() );
        EXPECT_EQ( lHeader.GetTimeToCompletion(), lSize == 12 ? 5000 : 0 ) << lSize;
        EXPECT_EQ( lHeader.GetAcknowledge(), lSize >= 8 ? 0x0089 : 0 );
    }
    Bytes lLongest = PENDING_ACK;
    Put( lLongest, 10, { 0xFF, 0xFF } );
    EXPECT_EQ( PendingAcknowledgeHeader( lLongest.data(), 12 ).GetTimeToCompletion(), 65535 );
}

TEST( GvcpAcknowledge, PendingReturnsTheTimeWhateverItsLengthFieldSays )
{
    for ( const unsigned int lLength : { 0U, 1U, 2U, 3U, 4U, 5U, 255U } )
    {
        Bytes lPacket = PENDING_ACK;
        lPacket[5] = static_cast<uint8_t>( lLength );
        for ( std::size_t lSize = 0; lSize <= lPacket.size(); ++lSize )
        {
            const ExactBlock lBlock( lPacket, lSize );
            const PendingAcknowledgeHeader lHeader( lBlock.Get(), lBlock.GetSize() );
            EXPECT_EQ( lHeader.GetTimeToCompletion(), lSize == 12 ? 5000 : 0 ) << lSize;
        }
    }
}

TEST( GvcpAcknowledge, ReadMemory )
{
    const ExactBlock lBlock( READMEM_ACK, READMEM_ACK.size() );
    const ReadMemoryAcknowledge lAcknowledge( lBlock.Get(), lBlock.GetSize() );
    for ( std::size_t lSize = 0; lSize <= 5; ++lSize )
    {
        Bytes lData( 8, 0xEE );
        EXPECT_TRUE( lAcknowledge.CopyData( lData.data(), static_cast<long long>( lSize ) ) );
        Bytes lExpected( 8, 0xEE );
        std::copy_n( READMEM_ACK.begin() + 12, lSize, lExpected.begin() );
        EXPECT_EQ( lData, lExpected );
    }
}

TEST( GvcpAcknowledge, ReadMemoryRefusesMoreThanThereIs )
{
    const ExactBlock lBlock( READMEM_ACK, READMEM_ACK.size() );
    const ReadMemoryAcknowledge lAcknowledge( lBlock.Get(), lBlock.GetSize() );
    const long long lSizes[] = { -1,
                                 6,
                                 9,
                                 536,
                                 537,
                                 0xFFFF,
                                 0x10000,
                                 0x100000001LL,
                                 std::numeric_limits<long long>::max(),
                                 std::numeric_limits<long long>::min() };
    for ( const long long lSize : lSizes )
    {
        Bytes lData( 600, 0xEE );
        EXPECT_FALSE( lAcknowledge.CopyData( lData.data(), lSize ) ) << lSize;
        EXPECT_EQ( lData, Bytes( 600, 0xEE ) );
    }
}

TEST( GvcpAcknowledge, ReadMemoryOfTheLargestPacket )
{
    Bytes lPacket( 548, 0x5A );
    Put( lPacket, 0, { 0x00, 0x00 } ); // status: success
    Put( lPacket, 2, { 0x00, 0x85 } ); // READMEM acknowledge
    Put( lPacket, 4, { 0x02, 0x1C } ); // length: 4 and 536
    Put( lPacket, 6, { 0xB0, 0x07 } ); // acknowledge identifier
    Put( lPacket, 8, { 0, 0, 0, 0 } ); // address
    const ExactBlock lBlock( lPacket, lPacket.size() );
    const ReadMemoryAcknowledge lAcknowledge( lBlock.Get(), lBlock.GetSize() );
    EXPECT_TRUE( lAcknowledge.IsValid( 548, MakeCommand( 0x0084 ) ) );
    Bytes lData( 536, 0 );
    EXPECT_TRUE( lAcknowledge.CopyData( lData.data(), 536 ) );
    EXPECT_EQ( lData, Bytes( 536, 0x5A ) );
    Bytes lMore( 537, 0 );
    EXPECT_FALSE( lAcknowledge.CopyData( lMore.data(), 537 ) );
    EXPECT_EQ( lMore, Bytes( 537, 0 ) );
}

TEST( GvcpAcknowledge, ReadMemoryTruncated )
{
    for ( std::size_t lSize = 0; lSize <= READMEM_ACK.size(); ++lSize )
    {
        const ExactBlock lBlock( READMEM_ACK, lSize );
        const ReadMemoryAcknowledge lAcknowledge( lBlock.Get(), lBlock.GetSize() );
        for ( std::size_t lCount = 1; lCount <= 6; ++lCount )
        {
            Bytes lData( lCount, 0xEE ); // a heap block of its own
            const bool lIsThere = lCount <= 5 && 12 + lCount <= lSize;
            EXPECT_EQ( lAcknowledge.CopyData( lData.data(), static_cast<long long>( lCount ) ),
                       lIsThere )
                << lSize << ' ' << lCount;
            EXPECT_EQ( lData == Bytes( lCount, 0xEE ), !lIsThere );
        }
    }
}

TEST( GvcpAcknowledge, ReadMemoryBeyondTheLengthField )
{
    for ( unsigned int lLength : { 0U, 3U, 4U, 5U, 8U, 9U, 10U, 0xFFFFU } )
    {
        Bytes lPacket = READMEM_ACK;
        lPacket[4] = static_cast<uint8_t>( lLength >> 8 );
        lPacket[5] = static_cast<uint8_t>( lLength & 0xFFU );
        const ExactBlock lBlock( lPacket, lPacket.size() );
        const ReadMemoryAcknowledge lAcknowledge( lBlock.Get(), lBlock.GetSize() );
        Bytes lData( 6, 0xEE );
        EXPECT_EQ( lAcknowledge.CopyData( lData.data(), 1 ), lLength >= 5 ) << lLength;
        EXPECT_EQ( lAcknowledge.CopyData( lData.data(), 5 ), lLength >= 9 ) << lLength;
        EXPECT_FALSE( lAcknowledge.CopyData( lData.data(), 6 ) ) << lLength;
        EXPECT_EQ( lData[5], 0xEE );
    }
}

TEST( GvcpAcknowledge, Discovery )
{
    const Bytes lPacket = MakeDiscoveryAck();
    const ExactBlock lBlock( lPacket, lPacket.size() );
    const DiscoveryAcknowledge lAcknowledge( lBlock.Get(), lBlock.GetSize() );
    EXPECT_TRUE( lAcknowledge.IsValid( 256, MakeCommand( 0x0002 ) ) );
    EXPECT_TRUE( lAcknowledge.IsComplete() );
    EXPECT_EQ( lAcknowledge.GetVersionMajor(), 2 );
    EXPECT_EQ( lAcknowledge.GetVersionMinor(), 1 );
    EXPECT_EQ( lAcknowledge.GetMacAddress().GetString(), "00:11:1C:0A:0B:0C" );
    EXPECT_EQ( lAcknowledge.GetIpAddress().GetString(), "192.168.10.5" );
    EXPECT_EQ( lAcknowledge.GetSubnetMask().GetString(), "255.255.255.0" );
    EXPECT_EQ( lAcknowledge.GetDefaultGateway().GetString(), "192.168.10.1" );
    EXPECT_EQ( lAcknowledge.GetManufacturerName(), "Maker" );
    EXPECT_EQ( lAcknowledge.GetModelName(), "Model" );
    EXPECT_EQ( lAcknowledge.GetDeviceVersion(), "1.2.3" );
    EXPECT_EQ( lAcknowledge.GetManufacturerInformation(), "information" );
    EXPECT_EQ( lAcknowledge.GetSerialNumber(), "SN 0001" );
    EXPECT_EQ( lAcknowledge.GetUserDefinedName(), "left \xC3\xA9" );
}

TEST( GvcpAcknowledge, DiscoveryTextsMayFillTheirFields )
{
    Bytes lPacket = MakeDiscoveryAck();
    PutText( lPacket, 0x48, std::string( 32, 'a' ) );
    PutText( lPacket, 0x68, std::string( 32, 'b' ) );
    PutText( lPacket, 0x88, std::string( 32, 'c' ) );
    PutText( lPacket, 0xA8, std::string( 48, 'd' ) );
    PutText( lPacket, 0xD8, std::string( 16, 'e' ) );
    PutText( lPacket, 0xE8, std::string( 16, 'f' ) );
    const ExactBlock lBlock( lPacket, lPacket.size() );
    const DiscoveryAcknowledge lAcknowledge( lBlock.Get(), lBlock.GetSize() );
    EXPECT_EQ( lAcknowledge.GetManufacturerName(), std::string( 32, 'a' ) );
    EXPECT_EQ( lAcknowledge.GetModelName(), std::string( 32, 'b' ) );
    EXPECT_EQ( lAcknowledge.GetDeviceVersion(), std::string( 32, 'c' ) );
    EXPECT_EQ( lAcknowledge.GetManufacturerInformation(), std::string( 48, 'd' ) );
    EXPECT_EQ( lAcknowledge.GetSerialNumber(), std::string( 16, 'e' ) );
    EXPECT_EQ( lAcknowledge.GetUserDefinedName(), std::string( 16, 'f' ) );
}

TEST( GvcpAcknowledge, DiscoveryTextsEndAtTheirFirstZero )
{
    Bytes lPacket = MakeDiscoveryAck();
    PutText( lPacket, 0x48, std::string( "\0hidden", 7 ) );
    PutText( lPacket, 0x68, std::string( "seen\0hidden", 11 ) );
    const DiscoveryAcknowledge lAcknowledge( lPacket.data(), lPacket.size() );
    EXPECT_EQ( lAcknowledge.GetManufacturerName(), "" );
    EXPECT_EQ( lAcknowledge.GetModelName(), "seen" );
}

// An incomplete identity does not count: truncated, or with a smaller length field.
TEST( GvcpAcknowledge, AnIncompleteDiscoveryReadsAsEmpty )
{
    const Bytes lWhole = MakeDiscoveryAck();
    const auto lExpectNothing = []( const DiscoveryAcknowledge& aAcknowledge )
    {
        EXPECT_FALSE( aAcknowledge.IsComplete() );
        EXPECT_EQ( aAcknowledge.GetVersionMajor(), 0 );
        EXPECT_EQ( aAcknowledge.GetVersionMinor(), 0 );
        EXPECT_EQ( aAcknowledge.GetMacAddress().GetString(), "00:00:00:00:00:00" );
        EXPECT_EQ( aAcknowledge.GetIpAddress(), IpAddress() );
        EXPECT_EQ( aAcknowledge.GetSubnetMask(), IpAddress() );
        EXPECT_EQ( aAcknowledge.GetDefaultGateway(), IpAddress() );
        EXPECT_EQ( aAcknowledge.GetManufacturerName(), "" );
        EXPECT_EQ( aAcknowledge.GetModelName(), "" );
        EXPECT_EQ( aAcknowledge.GetDeviceVersion(), "" );
        EXPECT_EQ( aAcknowledge.GetManufacturerInformation(), "" );
        EXPECT_EQ( aAcknowledge.GetSerialNumber(), "" );
        EXPECT_EQ( aAcknowledge.GetUserDefinedName(), "" );
    };
    for ( std::size_t lSize = 0; lSize < lWhole.size(); ++lSize )
    {
        const ExactBlock lBlock( lWhole, lSize );
        lExpectNothing( DiscoveryAcknowledge( lBlock.Get(), lBlock.GetSize() ) );
    }
    for ( unsigned int lLength = 0; lLength < 248; ++lLength )
    {
        Bytes lPacket = lWhole;
        lPacket[5] = static_cast<uint8_t>( lLength );
        lExpectNothing( DiscoveryAcknowledge( lPacket.data(), lPacket.size() ) );
    }
}
