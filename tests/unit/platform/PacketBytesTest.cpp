#include "tests/support/Packets.h"

#include <PacketBytes/ByteReader.h>
#include <PacketBytes/ByteWriter.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace
{

using PacketBytes::BigReader;
using PacketBytes::BigWriter;
using PacketBytes::ByteOrder;
using PacketBytes::ByteReader;
using PacketBytes::ByteWriter;
using PacketBytes::LittleReader;
using PacketBytes::LittleWriter;
using TestSupport::Bytes;

const Bytes FIFTEEN = { 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08,
                        0x09, 0x0A, 0x0B, 0x0C, 0x0D, 0x0E, 0xFF };

TEST( PacketBytes, ABigReaderTakesTheMostSignificantByteFirst )
{
    BigReader lReader( FIFTEEN.data(), FIFTEEN.size() );
    EXPECT_EQ( 0x01U, lReader.Get8() );
    EXPECT_EQ( 0x0203U, lReader.Get16() );
    EXPECT_EQ( 0x04050607U, lReader.Get32() );
    EXPECT_EQ( 0x08090A0B0C0D0EFFULL, lReader.Get64() );
    EXPECT_EQ( 0U, lReader.GetLeft() );
    EXPECT_TRUE( lReader.IsWhole() );
}

TEST( PacketBytes, ALittleReaderTakesTheLeastSignificantByteFirst )
{
    LittleReader lReader( FIFTEEN.data(), FIFTEEN.size() );
    EXPECT_EQ( 0x01U, lReader.Get8() );
    EXPECT_EQ( 0x0302U, lReader.Get16() );
    EXPECT_EQ( 0x07060504U, lReader.Get32() );
    EXPECT_EQ( 0xFF0E0D0C0B0A0908ULL, lReader.Get64() );
    EXPECT_TRUE( lReader.IsWhole() );
}

TEST( PacketBytes, AHostReaderUsesTheHostsByteOrder )
{
    uint32_t lExpected = 0;
    std::memcpy( &lExpected, FIFTEEN.data(), sizeof( lExpected ) );
    EXPECT_EQ( lExpected, ByteReader<ByteOrder::HOST>( FIFTEEN.data(), 4 ).Get32() );

    Bytes lBytes( 4 );
    ByteWriter<ByteOrder::HOST>( lBytes.data(), lBytes.size() ).Put32( lExpected );
    EXPECT_EQ( Bytes( FIFTEEN.begin(), FIFTEEN.begin() + 4 ), lBytes );
}

// Each prefix of a packet: the fields that are wholly in it are read, all others are 0.
TEST( PacketBytes, NothingBeyondTheEndIsRead )
{
    for ( std::size_t lSize = 0; lSize < FIFTEEN.size(); ++lSize )
    {
        const Bytes lPrefix( FIFTEEN.begin(), FIFTEEN.begin() + static_cast<long>( lSize ) );
        BigReader lReader( lPrefix.data(), lPrefix.size() );
        EXPECT_EQ( lSize < 1 ? 0U : 0x01U, lReader.Get8() ) << lSize;
        EXPECT_EQ( lSize < 3 ? 0U : 0x0203U, lReader.Get16() ) << lSize;
        EXPECT_EQ( lSize < 7 ? 0U : 0x04050607U, lReader.Get32() ) << lSize;
        EXPECT_EQ( 0U, lReader.Get64() ) << lSize;
        EXPECT_FALSE( lReader.IsWhole() ) << lSize;
        EXPECT_EQ( 0U, lReader.GetLeft() ) << lSize;
    }
}

TEST( PacketBytes, AfterAnOverrunSmallerFieldsReadAsZeroToo )
{
    BigReader lReader( FIFTEEN.data(), 3 );
    EXPECT_EQ( 0U, lReader.Get32() );
    EXPECT_EQ( 0U, lReader.Get8() );
    unsigned char lTarget = 0x55;
    lReader.GetBytes( &lTarget, 1 );
    EXPECT_EQ( 0x55, lTarget );
    EXPECT_FALSE( lReader.IsWhole() );
}

TEST( PacketBytes, SkippingReachesAFieldByItsOffset )
{
    EXPECT_EQ( 0x0506U, BigReader( FIFTEEN.data(), FIFTEEN.size() ).Skip( 4 ).Get16() );
    EXPECT_EQ( 0U, BigReader( FIFTEEN.data(), FIFTEEN.size() ).Skip( 14 ).Get16() );
    EXPECT_FALSE( BigReader( FIFTEEN.data(), 3 ).Skip( 4 ).IsWhole() );
    EXPECT_FALSE( BigReader( FIFTEEN.data(), 3 ).Skip( SIZE_MAX ).IsWhole() );
}

TEST( PacketBytes, BytesAreCopiedCompletelyOrNotAtAll )
{
    Bytes lTarget( 4, 0x55 );
    BigReader lReader( FIFTEEN.data(), 5 );
    lReader.GetBytes( lTarget.data(), 2 );
    EXPECT_EQ( ( Bytes{ 0x01, 0x02, 0x55, 0x55 } ), lTarget );
    lReader.GetBytes( lTarget.data(), 4 );
    EXPECT_EQ( ( Bytes{ 0x01, 0x02, 0x55, 0x55 } ), lTarget );
    EXPECT_FALSE( lReader.IsWhole() );
}

TEST( PacketBytes, NullHasNoBytesWhateverItsSize )
{
    for ( const std::size_t lSize : { std::size_t{ 0 }, std::size_t{ 4 }, SIZE_MAX } )
    {
        BigReader lReader( nullptr, lSize );
        lReader.GetBytes( nullptr, 0 );
        EXPECT_TRUE( lReader.IsWhole() ) << lSize;
        EXPECT_EQ( 0U, lReader.Get8() ) << lSize;
        EXPECT_FALSE( lReader.IsWhole() ) << lSize;

        BigWriter lWriter( nullptr, lSize );
        lWriter.PutBytes( nullptr, 0 );
        EXPECT_TRUE( lWriter.IsWhole() ) << lSize;
        lWriter.Put8( 1 );
        EXPECT_FALSE( lWriter.IsWhole() ) << lSize;
    }
}

struct ReadText
{
    std::string mText;
    bool mIsWhole;
    std::size_t mLeft;
};

ReadText GetText( const std::string& aPacket, std::size_t aCapacity )
{
    std::vector<char> lTarget( aCapacity, 'x' );
    BigReader lReader( aPacket.data(), aPacket.size() );
    lReader.GetText( lTarget.data(), lTarget.size() );
    return { lTarget.data(), lReader.IsWhole(), lReader.GetLeft() };
}

TEST( PacketBytes, ATextEndsWithItsZero )
{
    const ReadText lText = GetText( std::string( "ab\0cd", 5 ), 3 );
    EXPECT_EQ( "ab", lText.mText );
    EXPECT_TRUE( lText.mIsWhole );
    EXPECT_EQ( 2U, lText.mLeft );
}

TEST( PacketBytes, ATextWithoutZeroIsCutAndNotWhole )
{
    for ( const std::string& lPacket : { std::string( "abc" ), std::string( "abcd\0", 5 ) } )
    {
        const ReadText lText = GetText( lPacket, 4 );
        EXPECT_EQ( "abc", lText.mText );
        EXPECT_FALSE( lText.mIsWhole );
        EXPECT_EQ( 0U, lText.mLeft );
    }
}

TEST( PacketBytes, APartEndsAtItsGivenEnd )
{
    BigReader lReader( FIFTEEN.data(), 4 );
    BigReader lPart = lReader.Skip( 1 ).GetPart( 2 );
    EXPECT_EQ( 2U, lPart.GetLeft() );
    EXPECT_EQ( 0x0203U, lPart.Get16() );
    EXPECT_TRUE( lPart.IsWhole() );
    EXPECT_EQ( 0U, lPart.Get8() );
    EXPECT_FALSE( lPart.IsWhole() );

    EXPECT_EQ( 0x04U, lReader.Get8() );
    EXPECT_TRUE( lReader.GetPart( 0 ).IsWhole() );
    EXPECT_TRUE( lReader.IsWhole() );
}

TEST( PacketBytes, APartBeyondTheEndHasNothing )
{
    for ( const std::size_t lCount : { std::size_t{ 5 }, SIZE_MAX } )
    {
        BigReader lReader( FIFTEEN.data(), 4 );
        BigReader lPart = lReader.GetPart( lCount );
        EXPECT_EQ( 0U, lPart.GetLeft() );
        EXPECT_FALSE( lPart.IsWhole() );
        EXPECT_EQ( 0U, lPart.Get8() );
        EXPECT_EQ( 0U, lReader.Get8() );
        EXPECT_FALSE( lReader.IsWhole() );
        EXPECT_FALSE( lReader.GetPart( 0 ).IsWhole() );
    }
}

TEST( PacketBytes, APartUpToACountHasTheBytesThatThereAre )
{
    for ( const std::size_t lCount :
          { std::size_t{ 0 }, std::size_t{ 2 }, std::size_t{ 3 }, std::size_t{ 4 }, SIZE_MAX } )
    {
        BigReader lReader( FIFTEEN.data(), 4 );
        const BigReader lPart = lReader.Skip( 1 ).GetUpTo( lCount );
        EXPECT_EQ( lCount < 3 ? lCount : 3, lPart.GetLeft() );
        EXPECT_TRUE( lPart.IsWhole() );
        EXPECT_EQ( 3 - lPart.GetLeft(), lReader.GetLeft() );
        EXPECT_FALSE( lReader.Skip( 4 ).GetUpTo( lCount ).IsWhole() );
    }
}

TEST( PacketBytes, TakenBytesAreThoseOfThePacketOrNull )
{
    Bytes lBytes( 4 );
    BigReader lReader( lBytes.data(), lBytes.size() );
    EXPECT_EQ( lBytes.data(), lReader.Take( 1 ) );
    EXPECT_EQ( lBytes.data() + 1, lReader.Take( 3 ) );
    EXPECT_EQ( nullptr, lReader.Take( 1 ) );
    EXPECT_FALSE( lReader.IsWhole() );

    BigWriter lWriter( lBytes.data(), lBytes.size() );
    EXPECT_EQ( lBytes.data(), lWriter.Take( 1 ) );
    EXPECT_EQ( nullptr, lWriter.Take( 4 ) );
    EXPECT_FALSE( lWriter.IsWhole() );
}

TEST( PacketBytes, NumbersAreWrittenInTheOrderOfThePacket )
{
    Bytes lBig( FIFTEEN.size() );
    BigWriter lBigWriter( lBig.data(), lBig.size() );
    lBigWriter.Put8( 0x01 );
    lBigWriter.Put16( 0x0203 );
    lBigWriter.Put32( 0x04050607 );
    lBigWriter.Put64( 0x08090A0B0C0D0EFFULL );
    EXPECT_EQ( FIFTEEN, lBig );
    EXPECT_TRUE( lBigWriter.IsWhole() );

    Bytes lLittle( FIFTEEN.size() );
    LittleWriter lLittleWriter( lLittle.data(), lLittle.size() );
    lLittleWriter.Put8( 0x01 );
    lLittleWriter.Put16( 0x0302 );
    lLittleWriter.Put32( 0x07060504 );
    lLittleWriter.Put64( 0xFF0E0D0C0B0A0908ULL );
    EXPECT_EQ( FIFTEEN, lLittle );
    EXPECT_TRUE( lLittleWriter.IsWhole() );
}

// Each capacity: the fields that fit are written, nothing behind them is.
TEST( PacketBytes, NothingIsWrittenBeyondTheEnd )
{
    for ( std::size_t lCapacity = 0; lCapacity < FIFTEEN.size(); ++lCapacity )
    {
        Bytes lBytes( FIFTEEN.size(), 0x55 );
        BigWriter lWriter( lBytes.data(), lCapacity );
        lWriter.Put8( 0x01 );
        lWriter.Put16( 0x0203 );
        lWriter.Put32( 0x04050607 );
        lWriter.Put64( 0x08090A0B0C0D0EFFULL );
        EXPECT_FALSE( lWriter.IsWhole() ) << lCapacity;

        const long lFits = lCapacity < 1 ? 0 : lCapacity < 3 ? 1 : lCapacity < 7 ? 3 : 7;
        Bytes lExpected( FIFTEEN.size(), 0x55 );
        std::copy( FIFTEEN.begin(), FIFTEEN.begin() + lFits, lExpected.begin() );
        EXPECT_EQ( lExpected, lBytes ) << lCapacity;
    }
}

TEST( PacketBytes, AfterAFieldThatDidNotFitNothingIsWritten )
{
    Bytes lBytes( 3, 0x55 );
    BigWriter lWriter( lBytes.data(), lBytes.size() );
    lWriter.Put32( 0 );
    lWriter.Put8( 0 );
    lWriter.PutZeros( 1 );
    lWriter.PutText( "" );
    EXPECT_EQ( Bytes( 3, 0x55 ), lBytes );
    EXPECT_FALSE( lWriter.IsWhole() );
    EXPECT_EQ( 0U, lWriter.GetLeft() );
}

TEST( PacketBytes, APartIsWrittenCompletelyOrNotAtAll )
{
    Bytes lBytes( 4, 0x55 );
    BigWriter lTooLong = BigWriter( lBytes.data(), lBytes.size() ).GetPart( 5 );
    lTooLong.Put8( 0x01 );
    EXPECT_FALSE( lTooLong.IsWhole() );
    EXPECT_EQ( Bytes( 4, 0x55 ), lBytes );

    BigWriter lWriter( lBytes.data(), lBytes.size() );
    BigWriter lPart = lWriter.Skip( 1 ).GetPart( 2 );
    lPart.Put16( 0x0203 );
    EXPECT_TRUE( lPart.IsWhole() );
    lPart.Put8( 0xEE );
    EXPECT_FALSE( lPart.IsWhole() );
    lWriter.Put8( 0x04 );
    EXPECT_TRUE( lWriter.IsWhole() );
    EXPECT_EQ( ( Bytes{ 0x55, 0x02, 0x03, 0x04 } ), lBytes );
}

TEST( PacketBytes, TextsZerosAndGaps )
{
    Bytes lBytes( 9, 0x55 );
    BigWriter lWriter( lBytes.data(), lBytes.size() );
    lWriter.PutText( "ab" );
    lWriter.Skip( 1 ).PutZeros( 2 );
    lWriter.PutBytes( FIFTEEN.data(), 2 );
    lWriter.PutBytes( nullptr, 0 );
    EXPECT_TRUE( lWriter.IsWhole() );
    EXPECT_EQ( 1U, lWriter.GetLeft() );
    EXPECT_EQ( ( Bytes{ 'a', 'b', 0, 0x55, 0, 0, 0x01, 0x02, 0x55 } ), lBytes );
}

} // namespace
