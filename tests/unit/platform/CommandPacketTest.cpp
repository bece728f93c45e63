// The commands of GVCP as they leave: every expected packet is typed from the standard.

#include "tests/support/Packets.h"

#include <WdUtilsLib/GEV/CommandHeader.h>
#include <WdUtilsLib/GEV/Discovery.h>
#include <WdUtilsLib/GEV/ReadMemory.h>
#include <WdUtilsLib/GEV/ReadRegister.h>
#include <WdUtilsLib/GEV/WriteMemory.h>
#include <WdUtilsLib/GEV/WriteRegister.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <type_traits>
#include <vector>

namespace
{

using namespace WdUtilsLib::GEV;
using TestSupport::Bytes;
using TestSupport::Pattern;

// The object is the datagram.
template <class Command>
constexpr bool IS_DATAGRAM = std::is_standard_layout<Command>::value && sizeof( Command ) == 548 &&
                             alignof( Command ) == 1 && !std::is_polymorphic<Command>::value;
static_assert( IS_DATAGRAM<CommandHeader>, "" );
static_assert( IS_DATAGRAM<DiscoveryCommand>, "" );
static_assert( IS_DATAGRAM<ReadRegisterCommand>, "" );
static_assert( IS_DATAGRAM<WriteRegisterCommand>, "" );
static_assert( IS_DATAGRAM<ReadMemoryCommand>, "" );
static_assert( IS_DATAGRAM<WriteMemoryCommand>, "" );

// The first bytes of a command, which may be more than is sent where it was longer before.
Bytes GetBytes( const CommandHeader& aCommand, std::size_t aCount )
{
    const auto* const lBytes = reinterpret_cast<const uint8_t*>( &aCommand );
    return Bytes( lBytes, lBytes + aCount );
}

// What is sent.
Bytes GetDatagram( const CommandHeader& aCommand )
{
    return GetBytes( aCommand, aCommand.GetTotalLength() );
}

// A command made in memory that is full of something else, as the stack is.
template <class Command>
class UsedMemory
{
public:
    UsedMemory() { std::memset( mMemory, 0xA5, sizeof( mMemory ) ); }

    Command* Make() { return ::new ( mMemory ) Command; }

private:
    unsigned char mMemory[sizeof( Command )];
};

Bytes GetPayload( const CommandHeader& aCommand )
{
    const Bytes lDatagram = GetDatagram( aCommand );
    return Bytes( lDatagram.begin() + 8, lDatagram.end() );
}

} // namespace

TEST( GvcpCommand, HeaderOfACommandWithoutPayload )
{
    CommandHeader lCommand( 0x1234 );
    const Bytes lExpected = {
        0x42,       // key
        0x01,       // flags: acknowledge required
        0x12, 0x34, // command
        0x00, 0x00, // length
        0x00, 0x00, // request identifier
    };
    EXPECT_EQ( GetDatagram( lCommand ), lExpected );
    EXPECT_EQ( lCommand.GetCommand(), 0x1234 );
    EXPECT_EQ( lCommand.GetRequestId(), 0 );
    EXPECT_EQ( lCommand.GetLength(), 0 );
    EXPECT_EQ( lCommand.GetTotalLength(), 8 );
    EXPECT_TRUE( lCommand.GetFlagAcknowledge() );
}

TEST( GvcpCommand, RequestIdentifierAndFlag )
{
    CommandHeader lCommand( 0x0080 );
    lCommand.InitRequestId( 0xB00F );
    lCommand.InitFlagAcknowledge( false );
    const Bytes lExpected = {
        0x42,       // key
        0x00,       // flags: no acknowledge
        0x00, 0x80, // command
        0x00, 0x00, // length
        0xB0, 0x0F, // request identifier
    };
    EXPECT_EQ( GetDatagram( lCommand ), lExpected );
    EXPECT_FALSE( lCommand.GetFlagAcknowledge() );
    EXPECT_EQ( lCommand.GetRequestId(), 0xB00F );

    lCommand.InitFlagAcknowledge( true );
    lCommand.InitRequestId( 0xFFFF );
    const Bytes lAgain = { 0x42, 0x01, 0x00, 0x80, 0x00, 0x00, 0xFF, 0xFF };
    EXPECT_EQ( GetDatagram( lCommand ), lAgain );
}

TEST( GvcpCommand, Discovery )
{
    DiscoveryCommand lCommand;
    lCommand.InitRequestId( 0x0001 );
    const Bytes lPlain = {
        0x42,       // key
        0x01,       // flags: acknowledge required
        0x00, 0x02, // command DISCOVERY
        0x00, 0x00, // length
        0x00, 0x01, // request identifier
    };
    EXPECT_EQ( GetDatagram( lCommand ), lPlain );

    lCommand.InitFlagAllowBroadcastAcknowledge( true );
    const Bytes lBroadcast = {
        0x42,       // key
        0x11,       // flags: allow broadcast acknowledge, acknowledge required
        0x00, 0x02, // command DISCOVERY
        0x00, 0x00, // length
        0x00, 0x01, // request identifier
    };
    EXPECT_EQ( GetDatagram( lCommand ), lBroadcast );
    lCommand.InitFlagAllowBroadcastAcknowledge( false );
    EXPECT_EQ( GetDatagram( lCommand ), lPlain );
}

TEST( GvcpCommand, ReadRegister )
{
    ReadRegisterCommand lCommand;
    ASSERT_TRUE( lCommand.InitOperationQty( 2 ) );
    ASSERT_TRUE( lCommand.InitAddress( 0, 0x00000934 ) );
    ASSERT_TRUE( lCommand.InitAddress( 1, 0xFEDCBA98 ) );
    lCommand.InitRequestId( 0x8001 );
    const Bytes lExpected = {
        0x42,                   // key
        0x01,                   // flags: acknowledge required
        0x00, 0x80,             // command READREG
        0x00, 0x08,             // length
        0x80, 0x01,             // request identifier
        0x00, 0x00, 0x09, 0x34, // address of register 0
        0xFE, 0xDC, 0xBA, 0x98, // address of register 1
    };
    EXPECT_EQ( GetDatagram( lCommand ), lExpected );
}

TEST( GvcpCommand, ReadRegisterQuantity )
{
    ReadRegisterCommand lCommand;
    EXPECT_EQ( ReadRegisterCommand::MAX_QUANTITY, 135U );
    ASSERT_TRUE( lCommand.InitOperationQty( 135 ) );
    ASSERT_TRUE( lCommand.InitOperationQty( 2 ) );
    const Bytes lBefore = GetBytes( lCommand, 548 );
    for ( const unsigned int lQuantity :
          { 0U, 136U, 137U, 0x10000U, 0x40000000U, 0x40000001U, 0x80000000U, 0xFFFFFFFFU } )
    {
        EXPECT_FALSE( lCommand.InitOperationQty( lQuantity ) ) << lQuantity;
        EXPECT_EQ( GetBytes( lCommand, 548 ), lBefore );
    }
    EXPECT_TRUE( lCommand.InitOperationQty( 135 ) );
    EXPECT_EQ( lCommand.GetLength(), 540 );
    EXPECT_EQ( lCommand.GetTotalLength(), 548 );
    EXPECT_TRUE( lCommand.InitOperationQty( 1 ) );
    EXPECT_EQ( lCommand.GetTotalLength(), 12 );
}

TEST( GvcpCommand, ReadRegisterIndex )
{
    auto lCommand = std::make_unique<ReadRegisterCommand>();
    EXPECT_FALSE( lCommand->InitAddress( 0, 0x11111111 ) ); // no register yet
    ASSERT_TRUE( lCommand->InitOperationQty( 135 ) );
    ASSERT_TRUE( lCommand->InitOperationQty( 2 ) );
    const Bytes lBefore = GetBytes( *lCommand, 548 );
    for ( const unsigned int lIndex :
          { 2U, 3U, 134U, 135U, 136U, 0x40000000U, 0x40000001U, 0x80000000U, 0xFFFFFFFFU } )
    {
        EXPECT_FALSE( lCommand->InitAddress( lIndex, 0x11111111 ) ) << lIndex;
        EXPECT_EQ( GetBytes( *lCommand, 548 ), lBefore );
    }
    ASSERT_TRUE( lCommand->InitOperationQty( 135 ) );
    EXPECT_TRUE( lCommand->InitAddress( 134, 0x01020304 ) );
    EXPECT_FALSE( lCommand->InitAddress( 135, 0x01020304 ) );
    const Bytes lDatagram = GetDatagram( *lCommand );
    ASSERT_EQ( lDatagram.size(), 548U );
    EXPECT_EQ( Bytes( lDatagram.end() - 4, lDatagram.end() ), ( Bytes{ 1, 2, 3, 4 } ) );
}

TEST( GvcpCommand, WriteRegister )
{
    WriteRegisterCommand lCommand;
    ASSERT_TRUE( lCommand.InitOperationQty( 2 ) );
    ASSERT_TRUE( lCommand.InitAddress( 0, 0x00000A00 ) );
    ASSERT_TRUE( lCommand.InitValue( 0, 0x00000002 ) );
    ASSERT_TRUE( lCommand.InitAddress( 1, 0x00000938 ) );
    ASSERT_TRUE( lCommand.InitValue( 1, 0x89ABCDEF ) );
    lCommand.InitRequestId( 0x00FF );
    lCommand.InitFlagAcknowledge( false );
    const Bytes lExpected = {
        0x42,                   // key
        0x00,                   // flags: no acknowledge
        0x00, 0x82,             // command WRITEREG
        0x00, 0x10,             // length
        0x00, 0xFF,             // request identifier
        0x00, 0x00, 0x0A, 0x00, // address of register 0
        0x00, 0x00, 0x00, 0x02, // value of register 0
        0x00, 0x00, 0x09, 0x38, // address of register 1
        0x89, 0xAB, 0xCD, 0xEF, // value of register 1
    };
    EXPECT_EQ( GetDatagram( lCommand ), lExpected );
}

TEST( GvcpCommand, WriteRegisterQuantity )
{
    WriteRegisterCommand lCommand;
    EXPECT_EQ( WriteRegisterCommand::MAX_QUANTITY, 67U );
    ASSERT_TRUE( lCommand.InitOperationQty( 67 ) );
    ASSERT_TRUE( lCommand.InitOperationQty( 1 ) );
    const Bytes lBefore = GetBytes( lCommand, 544 );
    for ( const unsigned int lQuantity :
          { 0U, 68U, 69U, 0x10000U, 0x20000000U, 0x20000001U, 0x80000000U, 0xFFFFFFFFU } )
    {
        EXPECT_FALSE( lCommand.InitOperationQty( lQuantity ) ) << lQuantity;
        EXPECT_EQ( GetBytes( lCommand, 544 ), lBefore );
    }
    EXPECT_TRUE( lCommand.InitOperationQty( 67 ) );
    EXPECT_EQ( lCommand.GetLength(), 536 );
}

TEST( GvcpCommand, WriteRegisterIndex )
{
    auto lCommand = std::make_unique<WriteRegisterCommand>();
    EXPECT_FALSE( lCommand->InitAddress( 0, 0x11111111 ) ); // no register yet
    EXPECT_FALSE( lCommand->InitValue( 0, 0x11111111 ) );
    ASSERT_TRUE( lCommand->InitOperationQty( 67 ) );
    ASSERT_TRUE( lCommand->InitOperationQty( 1 ) );
    const Bytes lBefore = GetBytes( *lCommand, 544 );
    for ( const unsigned int lIndex :
          { 1U, 2U, 66U, 67U, 68U, 0x20000000U, 0x20000001U, 0x80000000U, 0xFFFFFFFFU } )
    {
        EXPECT_FALSE( lCommand->InitAddress( lIndex, 0x11111111 ) ) << lIndex;
        EXPECT_FALSE( lCommand->InitValue( lIndex, 0x11111111 ) ) << lIndex;
        EXPECT_EQ( GetBytes( *lCommand, 544 ), lBefore );
    }
    ASSERT_TRUE( lCommand->InitOperationQty( 67 ) );
    EXPECT_TRUE( lCommand->InitAddress( 66, 0x01020304 ) );
    EXPECT_TRUE( lCommand->InitValue( 66, 0x05060708 ) );
    EXPECT_FALSE( lCommand->InitAddress( 67, 0x01020304 ) );
    EXPECT_FALSE( lCommand->InitValue( 67, 0x01020304 ) );
    const Bytes lDatagram = GetDatagram( *lCommand );
    EXPECT_EQ( Bytes( lDatagram.end() - 8, lDatagram.end() ), ( Bytes{ 1, 2, 3, 4, 5, 6, 7, 8 } ) );
}

TEST( GvcpCommand, ReadMemory )
{
    ReadMemoryCommand lCommand;
    lCommand.InitAddress( 0x00010000 );
    lCommand.InitCount( 512 );
    lCommand.InitRequestId( 0x8002 );
    const Bytes lExpected = {
        0x42,                   // key
        0x01,                   // flags: acknowledge required
        0x00, 0x84,             // command READMEM
        0x00, 0x08,             // length
        0x80, 0x02,             // request identifier
        0x00, 0x01, 0x00, 0x00, // address
        0x00, 0x00,             // reserved
        0x02, 0x00,             // count
    };
    EXPECT_EQ( GetDatagram( lCommand ), lExpected );
}

TEST( GvcpCommand, ReadMemoryCountTakesTheLowBits )
{
    ReadMemoryCommand lCommand;
    lCommand.InitCount( 0xFFFF );
    Bytes lDatagram = GetDatagram( lCommand );
    EXPECT_EQ( Bytes( lDatagram.begin() + 12, lDatagram.end() ), ( Bytes{ 0, 0, 0xFF, 0xFF } ) );
    lCommand.InitCount( 0x00120034 );
    lDatagram = GetDatagram( lCommand );
    EXPECT_EQ( Bytes( lDatagram.begin() + 12, lDatagram.end() ), ( Bytes{ 0, 0, 0x00, 0x34 } ) );
}

TEST( GvcpCommand, WriteMemory )
{
    const uint8_t lData[] = { 0x11, 0x22, 0x33, 0x44, 0x55 };
    WriteMemoryCommand lCommand;
    lCommand.InitAddress( 0x89ABCDEC );
    ASSERT_TRUE( lCommand.SetData( lData, sizeof( lData ) ) );
    lCommand.InitRequestId( 0x1003 );
    const Bytes lExpected = {
        0x42,                         // key
        0x01,                         // flags: acknowledge required
        0x00, 0x86,                   // command WRITEMEM
        0x00, 0x09,                   // length
        0x10, 0x03,                   // request identifier
        0x89, 0xAB, 0xCD, 0xEC,       // address
        0x11, 0x22, 0x33, 0x44, 0x55, // data
    };
    EXPECT_EQ( GetDatagram( lCommand ), lExpected );
}

TEST( GvcpCommand, WriteMemoryTakesUpTo536Bytes )
{
    EXPECT_EQ( WriteMemoryCommand::MAX_DATA_SIZE, 536U );
    for ( const std::size_t lSize : std::vector<std::size_t>{ 0, 1, 4, 535, 536 } )
    {
        const Bytes lData = Pattern( lSize ); // the heap block is exactly as large
        WriteMemoryCommand lCommand;
        ASSERT_TRUE( lCommand.SetData( lData.data(), static_cast<long long>( lSize ) ) );
        EXPECT_EQ( lCommand.GetLength(), 4 + lSize );
        const Bytes lDatagram = GetDatagram( lCommand );
        ASSERT_EQ( lDatagram.size(), 12 + lSize );
        EXPECT_EQ( Bytes( lDatagram.begin() + 12, lDatagram.end() ), lData );
    }
    WriteMemoryCommand lEmpty;
    EXPECT_TRUE( lEmpty.SetData( nullptr, 0 ) );
    EXPECT_EQ( lEmpty.GetTotalLength(), 12 );
}

TEST( GvcpCommand, WriteMemoryRefusesOtherSizesAndStaysUnchanged )
{
    const Bytes lData = Pattern( 600 );
    auto lCommand = std::make_unique<WriteMemoryCommand>();
    lCommand->InitAddress( 0x01020304 );
    ASSERT_TRUE( lCommand->SetData( lData.data(), 536 ) );
    ASSERT_TRUE( lCommand->SetData( lData.data(), 10 ) );
    const Bytes lBefore = GetBytes( *lCommand, 548 );
    const long long lSizes[] = { -1,
                                 -536,
                                 537,
                                 540,
                                 548,
                                 0x10000,
                                 0x10004,
                                 0x100000000LL,
                                 0x100000004LL,
                                 std::numeric_limits<long long>::max(),
                                 std::numeric_limits<long long>::min() };
    for ( const long long lSize : lSizes )
    {
        EXPECT_FALSE( lCommand->SetData( lData.data(), lSize ) ) << lSize;
        EXPECT_EQ( GetBytes( *lCommand, 548 ), lBefore );
    }
}

// Data that is set again is what is sent, whether it is longer or shorter than before.
TEST( GvcpCommand, WriteMemoryDiscardsEarlierData )
{
    WriteMemoryCommand lCommand;
    const Bytes lLong = Pattern( 100 );
    ASSERT_TRUE( lCommand.SetData( lLong.data(), 100 ) );
    const uint8_t lShort[] = { 0xAA, 0xBB };
    ASSERT_TRUE( lCommand.SetData( lShort, 2 ) );
    const Bytes lExpected = { 0x42, 0x01, 0x00, 0x86, 0x00, 0x06, 0x00,
                              0x00, 0x00, 0x00, 0x00, 0x00, 0xAA, 0xBB };
    EXPECT_EQ( GetDatagram( lCommand ), lExpected );
}

// Whatever lay in the memory before, none of it is sent.
TEST( GvcpCommand, EveryByteThatIsSentWasWritten )
{
    UsedMemory<DiscoveryCommand> lDiscovery;
    EXPECT_EQ( GetDatagram( *lDiscovery.Make() ), ( Bytes{ 0x42, 1, 0, 2, 0, 0, 0, 0 } ) );

    UsedMemory<ReadRegisterCommand> lReadRegister;
    ReadRegisterCommand* const lRead = lReadRegister.Make();
    EXPECT_EQ( GetDatagram( *lRead ), ( Bytes{ 0x42, 1, 0, 0x80, 0, 0, 0, 0 } ) );
    ASSERT_TRUE( lRead->InitOperationQty( 135 ) );
    EXPECT_EQ( GetPayload( *lRead ), Bytes( 540, 0 ) );

    UsedMemory<WriteRegisterCommand> lWriteRegister;
    WriteRegisterCommand* const lWrite = lWriteRegister.Make();
    EXPECT_EQ( GetDatagram( *lWrite ), ( Bytes{ 0x42, 1, 0, 0x82, 0, 0, 0, 0 } ) );
    ASSERT_TRUE( lWrite->InitOperationQty( 67 ) );
    EXPECT_EQ( GetPayload( *lWrite ), Bytes( 536, 0 ) );

    UsedMemory<ReadMemoryCommand> lReadMemory;
    const Bytes lEmptyRead = { 0x42, 1, 0, 0x84, 0, 8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0 };
    EXPECT_EQ( GetDatagram( *lReadMemory.Make() ), lEmptyRead );

    UsedMemory<WriteMemoryCommand> lWriteMemory;
    WriteMemoryCommand* const lWriteData = lWriteMemory.Make();
    const Bytes lEmptyWrite = { 0x42, 1, 0, 0x86, 0, 4, 0, 0, 0, 0, 0, 0 };
    EXPECT_EQ( GetDatagram( *lWriteData ), lEmptyWrite );
    const Bytes lData = Pattern( 536 );
    ASSERT_TRUE( lWriteData->SetData( lData.data(), 536 ) );
    Bytes lExpected = Bytes( 4, 0 ); // the address
    lExpected.insert( lExpected.end(), lData.begin(), lData.end() );
    EXPECT_EQ( GetPayload( *lWriteData ), lExpected );
}

TEST( GvcpCommand, MoreRegistersKeepTheFirstAndBeginAtZero )
{
    UsedMemory<ReadRegisterCommand> lMemory;
    ReadRegisterCommand* const lCommand = lMemory.Make();
    ASSERT_TRUE( lCommand->InitOperationQty( 2 ) );
    ASSERT_TRUE( lCommand->InitAddress( 0, 0x01020304 ) );
    ASSERT_TRUE( lCommand->InitAddress( 1, 0x05060708 ) );
    ASSERT_TRUE( lCommand->InitOperationQty( 1 ) );
    ASSERT_TRUE( lCommand->InitOperationQty( 3 ) );
    EXPECT_EQ( GetPayload( *lCommand ), ( Bytes{ 1, 2, 3, 4, 0, 0, 0, 0, 0, 0, 0, 0 } ) );
}
