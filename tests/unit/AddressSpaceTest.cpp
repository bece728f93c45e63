#include "Simulators/AddressSpace.h"

#include <cstdint>

#include <gtest/gtest.h>

using namespace Simulators;
using PacketBytes::ByteOrder;

TEST( AddressSpace, NumbersLieInTheByteOrderOfTheSpace )
{
    AddressSpace lBig( ByteOrder::BIG );
    AddressSpace lLittle( ByteOrder::LITTLE );
    for ( AddressSpace* const lSpace : { &lBig, &lLittle } )
    {
        lSpace->Map( 0x100, Bytes( 8 ), Access::READ_ONLY );
        lSpace->SetWord( 0x100, 0x12345678 );
        lSpace->SetNumber( 0x104, 0xFFABCDEF, 3 ); // cut to its low bytes
        EXPECT_EQ( 0x12345678U, lSpace->GetWord( 0x100 ) );
        EXPECT_EQ( 0xABCDEFU, lSpace->GetNumber( 0x104, 3 ) );
    }
    EXPECT_EQ( ( Bytes{ 0x12, 0x34, 0x56, 0x78, 0xAB, 0xCD, 0xEF, 0x00 } ), lBig.Read( 0x100, 8 ) );
    EXPECT_EQ( ( Bytes{ 0x78, 0x56, 0x34, 0x12, 0xEF, 0xCD, 0xAB, 0x00 } ),
               lLittle.Read( 0x100, 8 ) );
}

TEST( AddressSpace, UnmappedAddressesReadAsZeroAndAreNotWritten )
{
    AddressSpace lSpace( ByteOrder::BIG );
    lSpace.Map( 0x100, { 1, 2 }, Access::READ_WRITE );
    EXPECT_EQ( ( Bytes{ 0, 1, 2, 0 } ), lSpace.Read( 0xFF, 4 ) );
    EXPECT_FALSE( lSpace.Write( 0xFF, { 5, 6, 7, 8 } ) );
    EXPECT_TRUE( lSpace.Write( 0x101, { 9 } ) );
    EXPECT_EQ( ( Bytes{ 0, 6, 9, 0 } ), lSpace.Read( 0xFF, 4 ) );
    EXPECT_EQ( ( Bytes{ 6, 9 } ), lSpace.GetRegion( 0x100 ) );
    EXPECT_TRUE( lSpace.GetRegion( 0x101 ).empty() );
}

TEST( AddressSpace, AccessToASpanIsTheMostRestrictiveOfItsBytes )
{
    AddressSpace lSpace( ByteOrder::LITTLE );
    lSpace.Map( 0x100, Bytes( 4 ), Access::READ_WRITE );
    lSpace.Map( 0x104, Bytes( 4 ), Access::READ_ONLY ); // side by side
    lSpace.SetAccess( 0x106, 8, Access::RESERVED );     // more than there is
    EXPECT_EQ( Access::READ_WRITE, lSpace.GetAccess( 0x100, 4 ) );
    EXPECT_EQ( Access::READ_ONLY, lSpace.GetAccess( 0x103, 2 ) );
    EXPECT_EQ( Access::RESERVED, lSpace.GetAccess( 0x100, 8 ) );
    EXPECT_EQ( Access::NONE, lSpace.GetAccess( 0x100, 9 ) );
    EXPECT_EQ( Access::NONE, lSpace.GetAccess( 0xFF, 2 ) );
    EXPECT_EQ( Access::READ_WRITE, lSpace.GetAccess( 0x500, 0 ) ); // no byte is in the way
}

TEST( AddressSpace, AnEarlierRegionHidesALaterOne )
{
    AddressSpace lSpace( ByteOrder::BIG );
    lSpace.Map( 0x102, { 1, 1 }, Access::READ_ONLY );
    lSpace.Map( 0x100, { 2, 2, 2, 2, 2, 2 }, Access::READ_WRITE );
    EXPECT_EQ( ( Bytes{ 2, 2, 1, 1, 2, 2 } ), lSpace.Read( 0x100, 6 ) );
    EXPECT_EQ( Access::READ_ONLY, lSpace.GetAccess( 0x101, 2 ) );
    EXPECT_EQ( Access::READ_WRITE, lSpace.GetAccess( 0x104, 2 ) );
}

TEST( AddressSpace, ASpanEndsAtTheLastAddress )
{
    AddressSpace lSpace( ByteOrder::LITTLE );
    lSpace.Map( 0, { 1, 2 }, Access::READ_WRITE );
    lSpace.Map( UINT64_MAX, { 3 }, Access::READ_WRITE );
    EXPECT_EQ( Access::READ_WRITE, lSpace.GetAccess( UINT64_MAX, 1 ) );
    EXPECT_EQ( Access::NONE, lSpace.GetAccess( UINT64_MAX, 2 ) );
    EXPECT_EQ( ( Bytes{ 3, 0 } ), lSpace.Read( UINT64_MAX, 2 ) );
    EXPECT_FALSE( lSpace.Write( UINT64_MAX, { 4, 5 } ) );
    EXPECT_EQ( ( Bytes{ 1, 2 } ), lSpace.Read( 0, 2 ) );
}

TEST( AddressSpace, ATextIsTruncatedAndPaddedWithZeros )
{
    AddressSpace lSpace( ByteOrder::BIG );
    lSpace.Map( 0, Bytes( 6, 0xEE ), Access::READ_ONLY );
    lSpace.SetText( 0, 4, "ab" );
    EXPECT_EQ( ( Bytes{ 'a', 'b', 0, 0, 0xEE, 0xEE } ), lSpace.Read( 0, 6 ) );
    lSpace.SetText( 0, 2, "xyz" );
    EXPECT_EQ( ( Bytes{ 'x', 'y', 0, 0, 0xEE, 0xEE } ), lSpace.Read( 0, 6 ) );
}
