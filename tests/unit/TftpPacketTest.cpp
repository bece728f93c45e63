// The packets of TFTP, byte by byte as RFC 1350 lays them out.

#include "Libraries/HtBase/TftpAck.h"
#include "Libraries/HtBase/TftpData.h"
#include "Libraries/HtBase/TftpRrq.h"
#include "Libraries/HtBase/TftpWrq.h"

#include "tests/support/AssertionRecorder.h"
#include "tests/support/Packets.h"

#include <QmUtilsLib/Scripted/RecordingLogSink.h>

#include <gmock/gmock.h>

#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

using HtBaseLib::TftpAck;
using HtBaseLib::TftpData;
using HtBaseLib::TftpError;
using HtBaseLib::TftpRrq;
using HtBaseLib::TftpWrq;
using QmUtilsLib::Scripted::RecordingLogSink;
using testing::IsEmpty;
using TestSupport::AssertionRecorder;
using TestSupport::Bytes;
using TestSupport::Packet;
using TestSupport::Prefix;
using TestSupport::Text;

namespace
{

constexpr unsigned char UNTOUCHED = 0xEE;
constexpr unsigned int UNSET = 0xDDDDDDDD;

// What an encoder did with a buffer of that capacity, which has room for more than it says.
struct Encoded
{
    bool mIsWritten = false;
    unsigned int mLength = UNSET;
    Bytes mBuffer;

    bool IsBufferUntouched() const { return mBuffer == Bytes( mBuffer.size(), UNTOUCHED ); }
    Bytes GetPacket() const { return Bytes( mBuffer.begin(), mBuffer.begin() + mLength ); }
    bool IsRestUntouched() const
    {
        return Bytes( mBuffer.begin() + mLength, mBuffer.end() ) ==
               Bytes( mBuffer.size() - mLength, UNTOUCHED );
    }
};

template <typename Packet>
Encoded Encode( const Packet& aPacket, unsigned int aCapacity )
{
    Encoded lEncoded;
    lEncoded.mBuffer.assign( 2048, UNTOUCHED );
    lEncoded.mIsWritten = aPacket.Encode( lEncoded.mBuffer.data(), aCapacity, lEncoded.mLength );
    return lEncoded;
}

// Decodes from memory that ends where the packet ends, so that a sanitizer sees a read beyond.
template <typename Packet>
bool Decode( Packet& aPacket, const Bytes& aBytes )
{
    const Bytes lExact( aBytes );
    return aPacket.Decode( lExact.data(), static_cast<unsigned int>( lExact.size() ) );
}

template <typename Packet>
bool IsAccepted( const Bytes& aBytes )
{
    Packet lPacket;
    return Decode( lPacket, aBytes );
}

// A number as it lies in this machine's memory.
Bytes HostWord( uint16_t aValue )
{
    Bytes lBytes( sizeof( aValue ) );
    std::memcpy( lBytes.data(), &aValue, sizeof( aValue ) );
    return lBytes;
}

// A request as its decoder expects it: opcode in the order of the host, name, zero, mode, zero.
Bytes HostRequest( uint16_t aOpcode, const std::string& aName, const std::string& aMode )
{
    return Packet( { HostWord( aOpcode ), Text( aName ), { 0 }, Text( aMode ), { 0 } } );
}

// The name and mode that a request holds, as its encoder writes them.
template <typename Packet>
std::string GetContent( const Packet& aPacket )
{
    const Bytes lPacket = Encode( aPacket, 2048 ).GetPacket();
    std::string lText( lPacket.begin() + 2, lPacket.end() - 1 );
    lText[lText.find( '\0' )] = '/';
    return lText;
}

bool IsLittleEndian()
{
    return HostWord( 1 ) == Bytes{ 1, 0 };
}

template <typename Packet>
constexpr bool IS_PLAIN_VALUE =
    !std::is_polymorphic_v<Packet> && std::is_trivially_copyable_v<Packet> &&
    std::is_standard_layout_v<Packet>;

} // namespace

TEST( TftpPackets, ArePlainValues )
{
    static_assert( IS_PLAIN_VALUE<TftpRrq> && sizeof( TftpRrq ) == 1024 + 4 );
    static_assert( IS_PLAIN_VALUE<TftpWrq> && sizeof( TftpWrq ) == sizeof( TftpRrq ) );
    static_assert( IS_PLAIN_VALUE<TftpData> && sizeof( TftpData ) == 2 + 1026 + 4 );
    static_assert( IS_PLAIN_VALUE<TftpAck> && sizeof( TftpAck ) == 2 + 2 );
    static_assert( IS_PLAIN_VALUE<TftpError> && sizeof( TftpError ) == 1024 + 2 );
    EXPECT_EQ( TftpAck().GetBlockID(), 0 );
    EXPECT_EQ( TftpData().GetBlockID(), 0 );
    EXPECT_EQ( TftpError().GetErrorCode(), 0 );
    EXPECT_STREQ( TftpError().GetMessage(), "" );
}

// Requests, encoding

TEST( TftpRequests, AreOpcodeNameAndMode )
{
    const Bytes READ = {
        0x00, 0x01,                         // opcode: read request
        0x61, 0x2E, 0x62, 0x69, 0x6E, 0x00, // file name "a.bin", zero
        0x6F, 0x63, 0x74, 0x65, 0x74, 0x00, // mode "octet", zero
    };
    const Bytes WRITE = {
        0x00, 0x02,                         // opcode: write request
        0x61, 0x2E, 0x62, 0x69, 0x6E, 0x00, // file name "a.bin", zero
        0x6F, 0x63, 0x74, 0x65, 0x74, 0x00, // mode "octet", zero
    };
    TftpRrq lRead;
    lRead.SetFileName( "a.bin" );
    const Encoded lReadPacket = Encode( lRead, 1024 );
    EXPECT_TRUE( lReadPacket.mIsWritten );
    EXPECT_EQ( lReadPacket.mLength, 14U );
    EXPECT_EQ( lReadPacket.GetPacket(), READ );
    EXPECT_TRUE( lReadPacket.IsRestUntouched() );

    TftpWrq lWrite;
    lWrite.SetFileName( "a.bin" );
    const Encoded lWritePacket = Encode( lWrite, 1024 );
    EXPECT_TRUE( lWritePacket.mIsWritten );
    EXPECT_EQ( lWritePacket.mLength, 14U );
    EXPECT_EQ( lWritePacket.GetPacket(), WRITE );
    EXPECT_TRUE( lWritePacket.IsRestUntouched() );
}

TEST( TftpRequests, SpellTheThreeModes )
{
    const char* const TEXTS[] = { "a/netascii", "a/octet", "a/mail" };
    for ( uint32_t lMode = 0; lMode < 3; ++lMode )
    {
        TftpRrq lRead;
        lRead.SetFileName( "a" );
        lRead.SetMode( lMode );
        EXPECT_EQ( GetContent( lRead ), TEXTS[lMode] );
        TftpWrq lWrite;
        lWrite.SetFileName( "a" );
        lWrite.SetMode( lMode );
        EXPECT_EQ( GetContent( lWrite ), TEXTS[lMode] );
    }
}

TEST( TftpRequests, NameIsReplaced )
{
    TftpRrq lRead;
    lRead.SetFileName( "a long name" );
    lRead.SetFileName( "b" );
    EXPECT_EQ( GetContent( lRead ), "b/octet" );
    lRead.SetFileName( "" );
    EXPECT_EQ( GetContent( lRead ), "/octet" );
}

TEST( TftpRequests, NameIsTruncatedToItsArray )
{
    TftpWrq lWrite;
    lWrite.SetFileName( std::string( 5000, 'n' ).c_str() );
    EXPECT_EQ( GetContent( lWrite ), std::string( 1023, 'n' ) + "/octet" );
}

TEST( TftpRequests, FitExactly )
{
    TftpRrq lRead;
    lRead.SetFileName( "a.bin" );
    EXPECT_TRUE( Encode( lRead, 14 ).mIsWritten );
    TftpWrq lWrite;
    lWrite.SetFileName( "a.bin" );
    EXPECT_TRUE( Encode( lWrite, 14 ).mIsWritten );
}

TEST( TftpRequests, TooSmallABufferIsAssertedAfterTheLengthWasReported )
{
    AssertionRecorder lAssertions;
    for ( unsigned int lCapacity = 0; lCapacity < 14; ++lCapacity )
    {
        TftpRrq lRead;
        lRead.SetFileName( "a.bin" );
        const Encoded lReadPacket = Encode( lRead, lCapacity );
        EXPECT_FALSE( lReadPacket.mIsWritten );
        EXPECT_EQ( lReadPacket.mLength, 14U );
        EXPECT_TRUE( lReadPacket.IsBufferUntouched() );
        EXPECT_EQ( lAssertions.Take(), AssertionRecorder::One( "false @ TftpRrq.cpp" ) );

        TftpWrq lWrite;
        lWrite.SetFileName( "a.bin" );
        const Encoded lWritePacket = Encode( lWrite, lCapacity );
        EXPECT_FALSE( lWritePacket.mIsWritten );
        EXPECT_EQ( lWritePacket.mLength, 14U );
        EXPECT_TRUE( lWritePacket.IsBufferUntouched() );
        EXPECT_EQ( lAssertions.Take(), AssertionRecorder::One( "false @ TftpWrq.cpp" ) );
    }
}

TEST( TftpRequests, LongestNameThatFitsTheEnginesBuffer )
{
    AssertionRecorder lAssertions;
    TftpWrq lWrite;
    lWrite.SetFileName( std::string( 1015, 'n' ).c_str() );
    EXPECT_EQ( Encode( lWrite, 1024 ).mLength, 1024U );
    EXPECT_THAT( lAssertions.Take(), IsEmpty() );
    lWrite.SetFileName( std::string( 1016, 'n' ).c_str() );
    EXPECT_FALSE( Encode( lWrite, 1024 ).mIsWritten );
    EXPECT_EQ( lAssertions.Take(), AssertionRecorder::One( "false @ TftpWrq.cpp" ) );
}

TEST( TftpRequests, WriteWithAnUnknownModeIsAssertedAndReportsNothing )
{
    for ( const uint32_t lMode : { 3U, 0xFFFFFFFFU } )
    {
        AssertionRecorder lAssertions;
        TftpWrq lWrite;
        lWrite.SetFileName( "a.bin" );
        lWrite.SetMode( lMode );
        const Encoded lPacket = Encode( lWrite, 1024 );
        EXPECT_FALSE( lPacket.mIsWritten );
        EXPECT_EQ( lPacket.mLength, UNSET );
        EXPECT_TRUE( lPacket.IsBufferUntouched() );
        EXPECT_EQ( lAssertions.Take(), AssertionRecorder::One( "false @ TftpWrq.cpp" ) );
    }
}

TEST( TftpRequests, ReadWithAnUnknownModeHasAnEmptyMode )
{
    const Bytes EXPECTED = {
        0x00, 0x01,                         // opcode: read request
        0x61, 0x2E, 0x62, 0x69, 0x6E, 0x00, // file name "a.bin", zero
        0x00,                               // mode: empty, zero
    };
    for ( const uint32_t lMode : { 3U, 0xFFFFFFFFU } )
    {
        AssertionRecorder lAssertions;
        TftpRrq lRead;
        lRead.SetFileName( "a.bin" );
        lRead.SetMode( lMode );
        const Encoded lPacket = Encode( lRead, 1024 );
        EXPECT_TRUE( lPacket.mIsWritten );
        EXPECT_EQ( lPacket.mLength, 9U );
        EXPECT_EQ( lPacket.GetPacket(), EXPECTED );
        EXPECT_THAT( lAssertions.Take(), IsEmpty() );
    }
}

// Requests, decoding

TEST( TftpRequests, DecodeComparesTheOpcodeInTheOrderOfTheHost )
{
    TftpRrq lRead;
    EXPECT_TRUE( Decode( lRead, HostRequest( 1, "a.bin", "mail" ) ) );
    EXPECT_EQ( GetContent( lRead ), "a.bin/mail" );
    TftpWrq lWrite;
    EXPECT_TRUE( Decode( lWrite, HostRequest( 2, "b.bin", "netascii" ) ) );
    EXPECT_EQ( GetContent( lWrite ), "b.bin/netascii" );

    EXPECT_FALSE( IsAccepted<TftpRrq>( HostRequest( 2, "a.bin", "octet" ) ) );
    EXPECT_FALSE( IsAccepted<TftpWrq>( HostRequest( 1, "a.bin", "octet" ) ) );
    EXPECT_FALSE( IsAccepted<TftpRrq>( HostRequest( 0x0201, "a.bin", "octet" ) ) );
}

TEST( TftpRequests, DecodeRefusesTheWireOnALittleEndianHost )
{
    const Bytes READ = { 0x00, 0x01, 'a', 0x00, 'o', 'c', 't', 'e', 't', 0x00 };
    const Bytes WRITE = { 0x00, 0x02, 'a', 0x00, 'o', 'c', 't', 'e', 't', 0x00 };
    EXPECT_EQ( IsAccepted<TftpRrq>( READ ), !IsLittleEndian() );
    EXPECT_EQ( IsAccepted<TftpWrq>( WRITE ), !IsLittleEndian() );
    const Bytes SWAPPED = { 0x01, 0x00, 'a', 0x00, 'o', 'c', 't', 'e', 't', 0x00 };
    EXPECT_EQ( IsAccepted<TftpRrq>( SWAPPED ), IsLittleEndian() );
}

TEST( TftpRequests, DecodeKnowsTheThreeModes )
{
    for ( const char* const lMode : { "netascii", "octet", "mail" } )
    {
        TftpRrq lRead;
        EXPECT_TRUE( Decode( lRead, HostRequest( 1, "a", lMode ) ) );
        EXPECT_EQ( GetContent( lRead ), std::string( "a/" ) + lMode );
    }
}

TEST( TftpRequests, DecodeAssertsAnUnknownModeAndRefusesIt )
{
    for ( const char* const lMode : { "OCTET", "Mail", "octet ", "octe", "", "tencharact" } )
    {
        AssertionRecorder lAssertions;
        EXPECT_FALSE( IsAccepted<TftpRrq>( HostRequest( 1, "a", lMode ) ) ) << lMode;
        EXPECT_EQ( lAssertions.Take(), AssertionRecorder::One( "false @ TftpRrq.cpp" ) );
        EXPECT_FALSE( IsAccepted<TftpWrq>( HostRequest( 2, "a", lMode ) ) ) << lMode;
        EXPECT_EQ( lAssertions.Take(), AssertionRecorder::One( "false @ TftpWrq.cpp" ) );
    }
}

TEST( TftpRequests, DecodeRefusesALongerModeWithoutAnAssertion )
{
    AssertionRecorder lAssertions;
    EXPECT_FALSE( IsAccepted<TftpRrq>( HostRequest( 1, "a", "elevenchara" ) ) );
    EXPECT_FALSE( IsAccepted<TftpWrq>( HostRequest( 2, "a", std::string( 400, 'm' ) ) ) );
    EXPECT_THAT( lAssertions.Take(), IsEmpty() );
}

TEST( TftpRequests, DecodeRefusesEveryTruncation )
{
    AssertionRecorder lAssertions;
    const Bytes lRead = HostRequest( 1, "a.bin", "octet" );
    const Bytes lWrite = HostRequest( 2, "a.bin", "octet" );
    for ( std::size_t lCount = 0; lCount < lRead.size(); ++lCount )
    {
        EXPECT_FALSE( IsAccepted<TftpRrq>( Prefix( lRead, lCount ) ) ) << lCount;
        EXPECT_FALSE( IsAccepted<TftpWrq>( Prefix( lWrite, lCount ) ) ) << lCount;
    }
    EXPECT_THAT( lAssertions.Take(), IsEmpty() ); // a truncated name or mode is not a mode
}

TEST( TftpRequests, DecodeTakes4To518Bytes )
{
    AssertionRecorder lAssertions;
    // 2 of opcode, name, zero, 5 of mode, zero.
    EXPECT_TRUE( IsAccepted<TftpRrq>( HostRequest( 1, std::string( 509, 'n' ), "octet" ) ) );
    EXPECT_FALSE( IsAccepted<TftpRrq>( HostRequest( 1, std::string( 510, 'n' ), "octet" ) ) );
    EXPECT_TRUE( IsAccepted<TftpWrq>( HostRequest( 2, std::string( 509, 'n' ), "octet" ) ) );
    EXPECT_FALSE( IsAccepted<TftpWrq>( HostRequest( 2, std::string( 510, 'n' ), "octet" ) ) );
    EXPECT_THAT( lAssertions.Take(), IsEmpty() );
    // The least: an empty name and an empty mode, which is known not to be one.
    EXPECT_FALSE( IsAccepted<TftpRrq>( HostRequest( 1, "", "" ) ) );
    EXPECT_EQ( lAssertions.Take(), AssertionRecorder::One( "false @ TftpRrq.cpp" ) );
    EXPECT_FALSE( IsAccepted<TftpRrq>( Prefix( HostRequest( 1, "", "" ), 3 ) ) );
    EXPECT_THAT( lAssertions.Take(), IsEmpty() );
}

// Data

TEST( TftpBlock, IsOpcodeNumberAndData )
{
    const Bytes EXPECTED = {
        0x00, 0x03,       // opcode: data
        0x12, 0x34,       // block number
        0xA1, 0xA2, 0xA3, // data
    };
    const Bytes lBytes = { 0xA1, 0xA2, 0xA3 };
    TftpData lData;
    lData.SetBlockID( 0x1234 );
    lData.SetData( lBytes.data(), 3 );
    EXPECT_EQ( lData.GetBlockID(), 0x1234 );
    const Encoded lPacket = Encode( lData, 1024 );
    EXPECT_TRUE( lPacket.mIsWritten );
    EXPECT_EQ( lPacket.mLength, 7U );
    EXPECT_EQ( lPacket.GetPacket(), EXPECTED );
    EXPECT_TRUE( lPacket.IsRestUntouched() );
}

TEST( TftpBlock, IsEmptyWhenNew )
{
    const Bytes EXPECTED = {
        0x00, 0x03, // opcode: data
        0x00, 0x00, // block number
    };
    EXPECT_EQ( Encode( TftpData(), 4 ).GetPacket(), EXPECTED );
    unsigned int lLength = UNSET;
    TftpData().GetData( nullptr, 0, lLength );
    EXPECT_EQ( lLength, 0U );
}

TEST( TftpBlock, TooSmallABufferIsAssertedAfterTheLengthWasReported )
{
    AssertionRecorder lAssertions;
    const Bytes lBytes = { 0xA1, 0xA2, 0xA3 };
    TftpData lData;
    lData.SetData( lBytes.data(), 3 );
    EXPECT_TRUE( Encode( lData, 7 ).mIsWritten );
    EXPECT_THAT( lAssertions.Take(), IsEmpty() );
    for ( unsigned int lCapacity = 0; lCapacity < 7; ++lCapacity )
    {
        const Encoded lPacket = Encode( lData, lCapacity );
        EXPECT_FALSE( lPacket.mIsWritten );
        EXPECT_EQ( lPacket.mLength, 7U );
        EXPECT_TRUE( lPacket.IsBufferUntouched() );
        EXPECT_EQ( lAssertions.Take(), AssertionRecorder::One( "false @ TftpData.cpp" ) );
    }
}

TEST( TftpBlock, TakesUpTo512BytesOfData )
{
    AssertionRecorder lAssertions;
    const Bytes lBytes( 513, 0x77 );
    TftpData lData;
    lData.SetData( lBytes.data(), 512 );
    EXPECT_EQ( Encode( lData, 1024 ).mLength, 516U );
    EXPECT_THAT( lAssertions.Take(), IsEmpty() );

    const Bytes lFew = { 0xA1, 0xA2 };
    lData.SetData( lFew.data(), 2 );
    lData.SetData( lBytes.data(), 513 );
    EXPECT_EQ( lAssertions.Take(), AssertionRecorder::One( "false @ TftpData.cpp" ) );
    EXPECT_EQ( Encode( lData, 1024 ).GetPacket(), ( Bytes{ 0x00, 0x03, 0x00, 0x00, 0xA1, 0xA2 } ) );
}

TEST( TftpBlock, GivesItsDataToABufferThatHoldsThem )
{
    AssertionRecorder lAssertions;
    const Bytes lBytes = { 0xA1, 0xA2, 0xA3 };
    TftpData lData;
    lData.SetData( lBytes.data(), 3 );
    Bytes lTarget( 4, UNTOUCHED );
    unsigned int lLength = UNSET;
    lData.GetData( lTarget.data(), 3, lLength );
    EXPECT_EQ( lLength, 3U );
    EXPECT_EQ( lTarget, ( Bytes{ 0xA1, 0xA2, 0xA3, UNTOUCHED } ) );
    EXPECT_THAT( lAssertions.Take(), IsEmpty() );

    Bytes lSmall( 4, UNTOUCHED );
    lLength = UNSET;
    lData.GetData( lSmall.data(), 2, lLength );
    EXPECT_EQ( lLength, UNSET );
    EXPECT_EQ( lSmall, Bytes( 4, UNTOUCHED ) );
    EXPECT_EQ( lAssertions.Take(), AssertionRecorder::One( "false @ TftpData.cpp" ) );
}

TEST( TftpBlock, DecodesNumberAndData )
{
    const Bytes PACKET = {
        0x00, 0x03,       // opcode: data
        0xFE, 0xDC,       // block number
        0xB1, 0xB2, 0xB3, // data
    };
    TftpData lData;
    ASSERT_TRUE( Decode( lData, PACKET ) );
    EXPECT_EQ( lData.GetBlockID(), 0xFEDC );
    Bytes lTarget( 3, UNTOUCHED );
    unsigned int lLength = UNSET;
    lData.GetData( lTarget.data(), 3, lLength );
    EXPECT_EQ( lLength, 3U );
    EXPECT_EQ( lTarget, ( Bytes{ 0xB1, 0xB2, 0xB3 } ) );
}

TEST( TftpBlock, Decodes4To518Bytes )
{
    for ( std::size_t lCount = 0; lCount < 600; ++lCount )
    {
        Bytes lPacket = Packet( { { 0x00, 0x03, 0x00, 0x01 }, Bytes( 600, 0x5C ) } );
        lPacket.resize( lCount );
        TftpData lData;
        ASSERT_EQ( Decode( lData, lPacket ), lCount >= 4 && lCount <= 518 ) << lCount;
        if ( lCount >= 4 && lCount <= 518 )
        {
            Bytes lTarget( 600, UNTOUCHED );
            unsigned int lLength = UNSET;
            lData.GetData( lTarget.data(), 600, lLength );
            ASSERT_EQ( lLength, lCount - 4 );
            EXPECT_EQ( Prefix( lTarget, lLength ), Bytes( lLength, 0x5C ) );
            EXPECT_EQ( lTarget[lLength], UNTOUCHED );
        }
    }
}

TEST( TftpBlock, DecodeRefusesOtherOpcodes )
{
    for ( unsigned char lOpcode = 0; lOpcode < 8; ++lOpcode )
    {
        EXPECT_EQ( IsAccepted<TftpData>( { 0x00, lOpcode, 0x00, 0x01, 0x55 } ), lOpcode == 3 );
    }
    EXPECT_FALSE( IsAccepted<TftpData>( { 0x03, 0x00, 0x00, 0x01, 0x55 } ) );
    EXPECT_FALSE( IsAccepted<TftpData>( { 0x01, 0x03, 0x00, 0x01, 0x55 } ) );
}

// Acknowledges

TEST( TftpAcknowledge, IsOpcodeAndNumber )
{
    const Bytes EXPECTED = {
        0x00, 0x04, // opcode: acknowledge
        0x12, 0x34, // block number
    };
    TftpAck lAck;
    lAck.SetBlockID( 0x1234 );
    EXPECT_EQ( lAck.GetBlockID(), 0x1234 );
    const Encoded lPacket = Encode( lAck, 4 );
    EXPECT_TRUE( lPacket.mIsWritten );
    EXPECT_EQ( lPacket.mLength, 4U );
    EXPECT_EQ( lPacket.GetPacket(), EXPECTED );
    EXPECT_TRUE( lPacket.IsRestUntouched() );
}

TEST( TftpAcknowledge, TooSmallABufferIsAssertedAndReportsNothing )
{
    AssertionRecorder lAssertions;
    for ( unsigned int lCapacity = 0; lCapacity < 4; ++lCapacity )
    {
        const Encoded lPacket = Encode( TftpAck(), lCapacity );
        EXPECT_FALSE( lPacket.mIsWritten );
        EXPECT_EQ( lPacket.mLength, UNSET );
        EXPECT_TRUE( lPacket.IsBufferUntouched() );
        EXPECT_EQ( lAssertions.Take(), AssertionRecorder::One( "false @ TftpAck.cpp" ) );
    }
}

TEST( TftpAcknowledge, DecodesExactlyFourBytes )
{
    const Bytes PACKET = {
        0x00, 0x04,                   // opcode: acknowledge
        0xFE, 0xDC,                   // block number
        0x00, 0x00, 0x00, 0x00, 0x00, // more than there should be
    };
    for ( std::size_t lCount = 0; lCount <= PACKET.size(); ++lCount )
    {
        TftpAck lAck;
        EXPECT_EQ( Decode( lAck, Prefix( PACKET, lCount ) ), lCount == 4 ) << lCount;
    }
    TftpAck lAck;
    ASSERT_TRUE( Decode( lAck, Prefix( PACKET, 4 ) ) );
    EXPECT_EQ( lAck.GetBlockID(), 0xFEDC );
}

TEST( TftpAcknowledge, DecodeRefusesOtherOpcodes )
{
    for ( unsigned char lOpcode = 0; lOpcode < 8; ++lOpcode )
    {
        EXPECT_EQ( IsAccepted<TftpAck>( { 0x00, lOpcode, 0x00, 0x01 } ), lOpcode == 4 );
    }
    EXPECT_FALSE( IsAccepted<TftpAck>( { 0x04, 0x00, 0x00, 0x01 } ) );
}

// Errors

TEST( TftpErrorPacket, DecodesCodeAndMessage )
{
    const Bytes PACKET = {
        0x00, 0x05,                   // opcode: error
        0x01, 0x02,                   // error code
        0x46, 0x75, 0x6C, 0x6C, 0x00, // message "Full", zero
    };
    TftpError lError;
    ASSERT_TRUE( Decode( lError, PACKET ) );
    EXPECT_EQ( lError.GetErrorCode(), 0x0102 );
    EXPECT_STREQ( lError.GetMessage(), "Full" );
}

TEST( TftpErrorPacket, NeedsFiveBytesAndTerminatesItsMessage )
{
    const Bytes PACKET = { 0x00, 0x05, 0x00, 0x01, 'F', 'u', 'l', 'l' };
    for ( std::size_t lCount = 0; lCount <= PACKET.size(); ++lCount )
    {
        TftpError lError;
        ASSERT_EQ( Decode( lError, Prefix( PACKET, lCount ) ), lCount >= 5 ) << lCount;
        EXPECT_EQ( lError.GetMessage(), lCount >= 5 ? std::string( "Full", lCount - 4 ) : "" );
    }
    TftpError lEmpty;
    EXPECT_TRUE( Decode( lEmpty, { 0x00, 0x05, 0x00, 0x01, 0x00 } ) );
    EXPECT_STREQ( lEmpty.GetMessage(), "" );
}

TEST( TftpErrorPacket, KeepsNothingOfTheEarlierMessage )
{
    TftpError lError;
    ASSERT_TRUE( Decode( lError, Packet( { { 0x00, 0x05, 0x00, 0x01 }, Text( "a long one" ) } ) ) );
    ASSERT_TRUE( Decode( lError, { 0x00, 0x05, 0x00, 0x01, 'b' } ) );
    EXPECT_STREQ( lError.GetMessage(), "b" );
}

TEST( TftpErrorPacket, TruncatesAMessageThatDoesNotFit )
{
    TftpError lError;
    ASSERT_TRUE( Decode( lError, Packet( { { 0x00, 0x05, 0x00, 0x01 }, Bytes( 1023, 'm' ) } ) ) );
    EXPECT_EQ( std::strlen( lError.GetMessage() ), 1023U );
    ASSERT_TRUE( Decode( lError, Packet( { { 0x00, 0x05, 0x00, 0x01 }, Bytes( 5000, 'm' ) } ) ) );
    EXPECT_EQ( std::strlen( lError.GetMessage() ), 1023U );
}

TEST( TftpErrorPacket, DecodeRefusesOtherOpcodes )
{
    for ( unsigned char lOpcode = 0; lOpcode < 8; ++lOpcode )
    {
        EXPECT_EQ( IsAccepted<TftpError>( { 0x00, lOpcode, 0x00, 0x01, 0x00 } ), lOpcode == 5 );
    }
    EXPECT_FALSE( IsAccepted<TftpError>( { 0x05, 0x00, 0x00, 0x01, 0x00 } ) );
}

TEST( TftpErrorPacket, EncodesAsItLiesInMemoryWithoutLookingAtTheCapacity )
{
    AssertionRecorder lAssertions;
    TftpError lError;
    ASSERT_TRUE( Decode( lError, { 0x00, 0x05, 0x12, 0x34, 'F', 'u', 'l', 'l', 0x00 } ) );
    const Encoded lPacket = Encode( lError, 0 );
    EXPECT_TRUE( lPacket.mIsWritten );
    EXPECT_EQ( lPacket.mLength, UNSET );
    EXPECT_EQ( Prefix( lPacket.mBuffer, 9 ),
               Packet( { HostWord( 5 ), HostWord( 0x1234 ), Text( "Full" ), { UNTOUCHED } } ) );
    EXPECT_THAT( lAssertions.Take(), IsEmpty() );
}

TEST( TftpPackets, LogNothing )
{
    AssertionRecorder lAssertions;
    const RecordingLogSink lLog;
    (void)Encode( TftpAck(), 0 );
    (void)Encode( TftpData(), 0 );
    (void)Encode( TftpRrq(), 0 );
    (void)Encode( TftpWrq(), 0 );
    EXPECT_FALSE( IsAccepted<TftpRrq>( HostRequest( 1, "a", "what" ) ) );
    EXPECT_FALSE( IsAccepted<TftpData>( {} ) );
    EXPECT_FALSE( IsAccepted<TftpAck>( {} ) );
    EXPECT_FALSE( IsAccepted<TftpError>( {} ) );
    EXPECT_THAT( lLog.GetTexts(), IsEmpty() );
}
