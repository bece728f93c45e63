// Memory of a USB3 Vision device: the packets, the sizes offered and taken, every way in which an
// answer can be wrong, and the pieces of long transfers.

#include "tests/support/ScriptedControlTest.h"

#include <QmUtilsLib/String.h>

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <string>
#include <vector>

namespace
{

using namespace TestSupport;
using QmUtilsLib::Result;

constexpr const char* INVALID_ADDRESS = "Status GENCP_INVALID_ADDRESS received from the device.";
constexpr const char* BEYOND_A_PACKET = "The data does not fit a packet.";
constexpr const char* BEYOND_THE_BUFFER = "The command does not fit the buffer of the link.";
constexpr const char* NO_ROOM_FOR_DATA = "The limit of the link leaves no room for data.";
constexpr const char* BUSY = "Status GENCP_BUSY received from the device.";

class MemoryAccessU3VTest : public ScriptedControlTest
{
protected:
    // Opens and closes the link, so that it has no limits.
    void OpenWithoutLimits() { Open( false ); }
    void Open( bool aHasLimits )
    {
        Open();
        EXPECT_TRUE( aHasLimits || mLink.Close().IsOK() );
    }
    using ScriptedControlTest::Open;

    Result Write( const Bytes& aData, long long aAddress, bool aNoAck = false )
    {
        return mLink.WriteMemory( aData.data(), aAddress, static_cast<long long>( aData.size() ),
                                  aNoAck );
    }

    void ExpectNoCallbacks() const
    {
        EXPECT_TRUE( mLink.mReads.empty() );
        EXPECT_TRUE( mLink.mWrites.empty() );
    }
};

// A link that overrides IsConnected.
class ConnectedLink : public TestLinkU3V
{
public:
    explicit ConnectedLink( bool aIsConnected )
        : mIsConnected( aIsConnected )
    {
    }
    bool IsConnected() const override { return mIsConnected; }

private:
    bool mIsConnected;
};

// Packets that are not an acknowledge of that code, made from a good one: every truncation, every
// other length, another prefix, another code.
std::vector<Bytes> Spoil( const Bytes& aGood )
{
    std::vector<Bytes> lSpoilt;
    for ( std::size_t lSize = 1; lSize < aGood.size(); ++lSize )
    {
        lSpoilt.push_back( Prefix( aGood, lSize ) );
    }
    for ( const std::size_t lOffset : { 0U, 1U, 2U, 3U, 6U, 7U } )
    {
        Bytes lOther = aGood;
        lOther[lOffset] = static_cast<uint8_t>( lOther[lOffset] ^ 0x01 );
        lSpoilt.push_back( lOther );
    }
    for ( const uint8_t lMore : Bytes{ 0x01, 0x10 } )
    {
        Bytes lLonger = aGood;
        lLonger[8] = static_cast<uint8_t>( lLonger[8] + lMore );
        lSpoilt.push_back( lLonger );
        lLonger = aGood;
        lLonger[9] = lMore;
        lSpoilt.push_back( lLonger );
    }
    return lSpoilt;
}

// Not connected.

TEST_F( MemoryAccessU3VTest, IsNotConnectedBeforeItWasOpened )
{
    GuardedBuffer lBuffer( 4 );
    ExpectResult( mLink.ReadMemory( lBuffer.GetData(), 0, 4 ), 0x0017 );
    ExpectResult( mLink.WriteMemory( lBuffer.GetData(), 0, 4, false ), 0x0017 );
    ExpectResult( mLink.AtomicWriteAndRead( lBuffer.GetData(), 0, 4, lBuffer.GetData(), 0, 4 ),
                  0x0017 );
    // Sizes that no packet carries make no difference.
    ExpectResult( mLink.WriteMemory( lBuffer.GetData(), 0, 5000, false ), 0x0017 );
    lBuffer.ExpectUntouched();
    EXPECT_EQ( GetCallCount(), 0U );
    ExpectNoCallbacks();
    ExpectLog( {} );
}

TEST_F( MemoryAccessU3VTest, AsksTheDerivedLinkWhetherItIsConnected )
{
    GuardedBuffer lBuffer( 4 );
    ConnectedLink lClosed( true );
    const Bytes lAck = ReadMemAck( { 1, 2, 3, 4 } );
    mControl.Expect( ReadMem( 0, 4 ) ).Reply( lAck );
    mControl.Expect( WriteMem( 0, { 1, 2, 3, 4 } ) ).Reply( WriteMemAck( 4 ) );
    mControl.ExpectTogether( { WriteMem( 0, { 1, 2, 3, 4 } ), ReadMem( 0, 4 ) } )
        .Reply( WriteMemAck( 4 ) )
        .Reply( lAck );
    EXPECT_TRUE( lClosed.ReadMemory( lBuffer.GetData(), 0, 4 ).IsOK() );
    EXPECT_TRUE( lClosed.WriteMemory( lBuffer.GetData(), 0, 4, false ).IsOK() );
    EXPECT_TRUE(
        lClosed.AtomicWriteAndRead( lBuffer.GetData(), 0, 4, lBuffer.GetData(), 0, 4 ).IsOK() );
    EXPECT_TRUE( mControl.IsScriptDone() );

    ConnectedLink lOpen( false );
    Open( lOpen );
    ExpectResult( lOpen.ReadMemory( lBuffer.GetData(), 0, 4 ), 0x0017 );
    ExpectResult( lOpen.WriteMemory( lBuffer.GetData(), 0, 4, false ), 0x0017 );
    ExpectResult( lOpen.AtomicWriteAndRead( lBuffer.GetData(), 0, 4, lBuffer.GetData(), 0, 4 ),
                  0x0017 );
    EXPECT_EQ( GetCallCount(), 3U );
}

// Leaves bytes that are not 0 where the next call has its buffers.
[[gnu::noinline]] void SoilTheStack()
{
    volatile uint8_t lBytes[6 * 1024];
    for ( volatile uint8_t& lByte : lBytes )
    {
        lByte = 0xEE;
    }
}

TEST_F( MemoryAccessU3VTest, BeginsWithBuffersOfZeros )
{
    OpenSized( 1024, 1024 );
    const Bytes lData = Pattern( 4 );
    GuardedBuffer lBuffer( 1012 );
    mControl.Expect( ReadMem( 0, 1012 ) ).Reply( HeaderOnlyAck( 0x0801, 0 ) );
    mControl.Expect( WriteMem( 0, lData ) ).Reply( WriteMemAck( 4 ) );
    mControl.ExpectTogether( { WriteMem( 0, lData ), ReadMem( 0, 1012 ) } )
        .Reply( WriteMemAck( 4 ) )
        .Reply( HeaderOnlyAck( 0x0801, 0 ) );
    const std::size_t lFirst = mControl.GetCalls().size();
    SoilTheStack();
    EXPECT_TRUE( mLink.ReadMemory( lBuffer.GetData(), 0, 1012 ).IsOK() );
    SoilTheStack();
    EXPECT_TRUE( mLink.WriteMemory( lData.data(), 0, 4, false ).IsOK() );
    SoilTheStack();
    EXPECT_TRUE(
        mLink.AtomicWriteAndRead( lData.data(), 0, 4, lBuffer.GetData(), 0, 1012 ).IsOK() );
    const auto& lCalls = mControl.GetCalls();
    ASSERT_EQ( lCalls.size(), lFirst + 3 );
    EXPECT_EQ( lCalls[lFirst][0].mRoom, Bytes( 1024 ) );
    EXPECT_EQ( lCalls[lFirst + 1][0].mRoom, Bytes( 16 ) );
    EXPECT_EQ( lCalls[lFirst + 2][0].mRoom, Bytes( 16 ) );
    EXPECT_EQ( lCalls[lFirst + 2][1].mRoom, Bytes( 1024 ) );
    lBuffer.ExpectUntouched();
}

// Reading.

TEST_F( MemoryAccessU3VTest, CallsBackWhenTheDataIsThere )
{
    class LookingLink : public TestLinkU3V
    {
    public:
        std::vector<Bytes> mSeen;

    protected:
        void ReadCallback( const void* aData, long long, long long aSize ) override
        {
            const auto* const lBytes = static_cast<const uint8_t*>( aData );
            mSeen.emplace_back( lBytes, lBytes + aSize );
        }
    };
    LookingLink lLink;
    Open( lLink );
    mControl.Expect( ReadMem( 0, 4 ) ).Reply( ReadMemAck( { 1, 2, 3, 4 } ) );
    GuardedBuffer lBuffer( 4 );
    EXPECT_TRUE( lLink.ReadMemory( lBuffer.GetData(), 0, 4 ).IsOK() );
    EXPECT_EQ( lLink.mSeen, std::vector<Bytes>{ Bytes( { 1, 2, 3, 4 } ) } );
}

TEST_F( MemoryAccessU3VTest, ReadsByOneCommand )
{
    const Bytes lCommand = Packet( {
        { 0x55, 0x33, 0x56, 0x43 },                         // prefix
        { 0x00, 0x40 },                                     // flags: acknowledge requested
        { 0x00, 0x08 },                                     // command: READMEM
        { 0x0C, 0x00 },                                     // length
        { 0x00, 0x00 },                                     // request identifier: not set
        { 0xF0, 0xDE, 0xBC, 0x9A, 0x78, 0x56, 0x34, 0x12 }, // address
        { 0x00, 0x00 },                                     // reserved
        { 0x06, 0x00 },                                     // count
    } );
    const Bytes lAck = Packet( {
        { 0x55, 0x33, 0x56, 0x43 },             // prefix
        { 0x00, 0x00 },                         // status: success
        { 0x01, 0x08 },                         // acknowledge: READMEM
        { 0x06, 0x00 },                         // length
        { 0x22, 0x11 },                         // request identifier
        { 0x01, 0x02, 0x03, 0x04, 0x05, 0x06 }, // data
    } );
    Open();
    mControl.Expect( lCommand ).Reply( lAck );
    GuardedBuffer lBuffer( 6 );
    ExpectResult( mLink.ReadMemory( lBuffer.GetData(), 0x123456789ABCDEF0, 6 ), 0x0000 );
    lBuffer.ExpectContents( { 0x01, 0x02, 0x03, 0x04, 0x05, 0x06 } );
    EXPECT_EQ( GetLastCommand().mCapacity, 18U );
    EXPECT_EQ( mLink.mReads,
               ( TestLinkU3V::Transfers{ { lBuffer.GetData(), 0x123456789ABCDEF0, 6 } } ) );
    EXPECT_TRUE( mLink.mWrites.empty() );
    ExpectLog( {} );
}

TEST_F( MemoryAccessU3VTest, ReadsFromTheUpperHalfOfTheAddresses )
{
    Open();
    mControl.Expect( ReadMem( 0xFFFFFFFFFFFFFFF8, 4 ) ).Reply( ReadMemAck( { 1, 2, 3, 4 } ) );
    GuardedBuffer lBuffer( 4 );
    EXPECT_TRUE( mLink.ReadMemory( lBuffer.GetData(), -8, 4 ).IsOK() );
    EXPECT_EQ( mLink.mReads, ( TestLinkU3V::Transfers{ { lBuffer.GetData(), -8, 4 } } ) );
}

TEST_F( MemoryAccessU3VTest, OffersSpaceForTheDataAndAtLeast16Bytes )
{
    Open();
    for ( unsigned int lSize = 0; lSize <= 52; ++lSize )
    {
        const Bytes lData = Pattern( lSize );
        mControl.Expect( ReadMem( 0x100, static_cast<uint16_t>( lSize ) ) )
            .Reply( ReadMemAck( lData ) );
        GuardedBuffer lBuffer( lSize );
        EXPECT_TRUE( mLink.ReadMemory( lBuffer.GetData(), 0x100, lSize ).IsOK() );
        EXPECT_EQ( GetLastCommand().mCapacity, lSize < 4 ? 16U : 12U + lSize );
        lBuffer.ExpectContents( lData );
    }
    GuardedBuffer lBuffer( 53 );
    ExpectResult( mLink.ReadMemory( lBuffer.GetData(), 0x100, 53 ), 0x4001, 0,
                  "Command of 65 bytes is larger than maximum command size, 64" );
    EXPECT_EQ( GetCallCount(), 53U );
    lBuffer.ExpectUntouched();
    ExpectLog( { SizeLine( 65, 64 ) } );
}

TEST_F( MemoryAccessU3VTest, AcceptsLessDataThanItAskedFor )
{
    Open();
    GuardedBuffer lBuffer( 40 );
    for ( std::size_t lCarried = 0; lCarried < 40; ++lCarried )
    {
        const Bytes lData = Pattern( lCarried, 7 );
        mControl.Expect( ReadMem( 0x100, 40 ) ).Reply( ReadMemAck( lData ) );
        GuardedBuffer lFresh( 40 );
        ExpectResult( mLink.ReadMemory( lFresh.GetData(), 0x100, 40 ), 0x0000 );
        lFresh.ExpectContents( lData );
        EXPECT_EQ( mLink.mReads.back(), ( TestLinkU3V::Transfer{ lFresh.GetData(), 0x100, 40 } ) );
    }
    EXPECT_EQ( mLink.mReads.size(), 40U );
}

// There the least room is more than the caller's.
TEST_F( MemoryAccessU3VTest, WritesNothingBeyondASmallBuffer )
{
    Open();
    for ( unsigned int lSize = 0; lSize < 4; ++lSize )
    {
        for ( std::size_t lCarried = 0; lCarried <= 4; ++lCarried )
        {
            const Bytes lData = Pattern( lCarried, 9 );
            mControl.Expect( ReadMem( 0x100, static_cast<uint16_t>( lSize ) ) )
                .Reply( ReadMemAck( lData ) );
            GuardedBuffer lBuffer( lSize );
            ExpectResult( mLink.ReadMemory( lBuffer.GetData(), 0x100, lSize ), 0x0000 );
            lBuffer.ExpectContents( Prefix( lData, std::min<std::size_t>( lSize, lCarried ) ) );
        }
    }
}

TEST_F( MemoryAccessU3VTest, CopiesNothingForASizeBelowZero )
{
    OpenWithoutLimits();
    for ( const long long lSize : { -1LL, -4LL, -65536LL, -4294967292LL, LLONG_MIN } )
    {
        mControl.ExpectAny().Reply( ReadMemAck( Pattern( 4 ) ) );
        GuardedBuffer lBuffer( 0 );
        EXPECT_TRUE( mLink.ReadMemory( lBuffer.GetData(), 0, lSize ).IsOK() ) << lSize;
        lBuffer.ExpectUntouched();
        EXPECT_GE( GetLastCommand().mCapacity, 16U );
        EXPECT_LE( GetLastCommand().mCapacity, 1024U );
    }
}

TEST_F( MemoryAccessU3VTest, RefusesAnAnswerLongerThanItsBuffer )
{
    Open();
    for ( const unsigned int lSize : { 0U, 3U, 4U, 5U, 40U } )
    {
        mControl.ExpectAny().Reply( ReadMemAck( Pattern( std::max( lSize, 4U ) + 1 ) ) );
        GuardedBuffer lBuffer( lSize );
        ExpectResult( mLink.ReadMemory( lBuffer.GetData(), 0, lSize ), 0x4001 );
        lBuffer.ExpectUntouched();
    }
    ExpectNoCallbacks();
}

// A foreign control interface that stores beyond the buffer, or reports more bytes than it stored.
TEST_F( MemoryAccessU3VTest, UsesNoMoreBytesThanItsBufferHolds )
{
    for ( const bool lHasLimits : { true, false } )
    {
        Open( lHasLimits );
        mControl.ExpectAny().ReplyWithoutBounds( ReadMemAck( Pattern( 400 ) ), 412 );
        GuardedBuffer lBuffer( 4096 );
        ExpectResult( mLink.ReadMemory( lBuffer.GetData(), 0, 8 ), 0x4001 );
        lBuffer.ExpectUntouched();

        // The header says more than any buffer holds, and so does the length.
        Bytes lAck = ReadMemAck( Pattern( 8 ) );
        lAck[8] = 0xB8;
        lAck[9] = 0x0B; // 3000
        mControl.ExpectAny().ReplyWithoutBounds( lAck, 3012 );
        ExpectResult( mLink.ReadMemory( lBuffer.GetData(), 0, 8 ), 0x4001 );
        lBuffer.ExpectUntouched();
        ExpectNoCallbacks();

        // An acknowledge that fits the buffer is valid, whatever length is reported.
        for ( const unsigned int lLength : { 20U, 21U, 1025U, 0xFFFFFFFFU } )
        {
            mControl.ExpectAny().ReplyWithoutBounds( ReadMemAck( Pattern( 8 ) ), lLength );
            ExpectResult( mLink.ReadMemory( lBuffer.GetData(), 0, 8 ), 0x0000 );
            mControl.ExpectAny().ReplyWithoutBounds( WriteMemAck( 1 ), lLength );
            ExpectResult( Write( { 1 }, 0 ), 0x0000 );
        }
        lBuffer.ExpectContents( Pattern( 8 ) );
        mLink.mReads.clear();
        mLink.mWrites.clear();
    }
}

TEST_F( MemoryAccessU3VTest, RefusesAnythingButAnAcknowledgeOfARead )
{
    Open();
    std::vector<Bytes> lSpoilt = Spoil( ReadMemAck( Pattern( 20 ) ) );
    lSpoilt.push_back( WriteMemAck( 4 ) );
    for ( const Bytes& lAck : lSpoilt )
    {
        mControl.Expect( ReadMem( 0, 20 ) ).Reply( lAck );
        GuardedBuffer lBuffer( 20 );
        ExpectResult( mLink.ReadMemory( lBuffer.GetData(), 0, 20 ), 0x4001 );
        lBuffer.ExpectUntouched();
    }
    EXPECT_EQ( GetCallCount(), lSpoilt.size() );
    ExpectNoCallbacks();
    ExpectLog( {} );
}

TEST_F( MemoryAccessU3VTest, RefusesAnEmptyAnswer )
{
    Open();
    GuardedBuffer lBuffer( 4 );
    mControl.ExpectAny().Fail( Result::OK ); // answered, by no byte
    ExpectResult( mLink.ReadMemory( lBuffer.GetData(), 0, 4 ), 0x4001 );
    mControl.ExpectAny().Fail( Result::OK );
    ExpectResult( Write( { 1 }, 0 ), 0x4001 );
    mControl.ExpectAny().Fail( Result::OK );
    ExpectResult( mLink.AtomicWriteAndRead( lBuffer.GetData(), 0, 4, lBuffer.GetData(), 0, 4 ),
                  0x4001 );
    lBuffer.ExpectUntouched();
    ExpectNoCallbacks();
}

TEST_F( MemoryAccessU3VTest, ChecksTheStatusOnlyOfAnAcknowledge )
{
    Open();
    Bytes lAck = ReadMemAck( Pattern( 4 ), 0x8007 );
    lAck[0] = 0x54;
    mControl.ExpectAny().Reply( lAck );
    GuardedBuffer lBuffer( 4 );
    ExpectResult( mLink.ReadMemory( lBuffer.GetData(), 0, 4 ), 0x4001 );
    ExpectLog( {} );
}

TEST_F( MemoryAccessU3VTest, ReturnsTheStatusOfARefusedRead )
{
    Open();
    for ( const Bytes& lAck :
          { HeaderOnlyAck( 0x0801, 0x8003 ), ReadMemAck( Pattern( 4 ), 0x8003 ) } )
    {
        mControl.Expect( ReadMem( 0xDEAD0000, 4 ) ).Reply( lAck );
        GuardedBuffer lBuffer( 4 );
        ExpectResult( mLink.ReadMemory( lBuffer.GetData(), 0xDEAD0000, 4 ), 0x4000, 0x8003,
                      INVALID_ADDRESS );
        lBuffer.ExpectUntouched();
    }
    ExpectNoCallbacks();
    ExpectLog( { StatusLine( INVALID_ADDRESS ), StatusLine( INVALID_ADDRESS ) } );
}

TEST_F( MemoryAccessU3VTest, ReturnsTheFailureOfTheControlInterface )
{
    Open();
    mControl.Expect( ReadMem( 0, 4 ) )
        .Reply( ReadMemAck( Pattern( 4 ) ) )
        .Fail( Result( 0x4000, ENODEV, QmUtilsLib::String( "unplugged" ) ) );
    GuardedBuffer lBuffer( 4 );
    ExpectResult( mLink.ReadMemory( lBuffer.GetData(), 0, 4 ), 0x4000, ENODEV, "unplugged" );
    lBuffer.ExpectUntouched();
    mControl.Expect( WriteMem( 0, { 1 } ) ).Fail( Result( 0x001E, ETIMEDOUT ) );
    ExpectResult( Write( { 1 }, 0 ), 0x001E, ETIMEDOUT );
    ExpectNoCallbacks();
    ExpectLog( {} );
}

TEST_F( MemoryAccessU3VTest, PassesAReadAfterACloseToTheControlInterface )
{
    OpenWithoutLimits();
    GuardedBuffer lBuffer( 500 );
    ExpectResult( mLink.ReadMemory( lBuffer.GetData(), 0, 500 ), 0x0017 );
    EXPECT_EQ( GetLastCommand().mBytes, ReadMem( 0, 500 ) );
    EXPECT_EQ( GetLastCommand().mCapacity, 512U );
    lBuffer.ExpectUntouched();
    ExpectLog( {} );
}

TEST_F( MemoryAccessU3VTest, OffersNoMoreThanItsBuffersWithoutALimit )
{
    OpenWithoutLimits();
    for ( const unsigned int lSize : { 1011U, 1012U, 1013U, 1024U, 2000U, 65535U } )
    {
        const Bytes lData = Pattern( std::min( lSize, 1012U ) );
        mControl.Expect( ReadMem( 0x100, static_cast<uint16_t>( lSize ) ) )
            .Reply( ReadMemAck( lData ) );
        GuardedBuffer lBuffer( lSize );
        EXPECT_TRUE( mLink.ReadMemory( lBuffer.GetData(), 0x100, lSize ).IsOK() );
        EXPECT_EQ( GetLastCommand().mCapacity, std::min( 12U + lSize, 1024U ) );
        lBuffer.ExpectContents( lData );
    }
}

TEST_F( MemoryAccessU3VTest, AsksForTheLow16BitsOfASize )
{
    OpenWithoutLimits();
    mControl.Expect( ReadMem( 0x100, 2 ) ).Reply( ReadMemAck( { 0x11, 0x22 } ) );
    GuardedBuffer lBuffer( 65538 );
    ExpectResult( mLink.ReadMemory( lBuffer.GetData(), 0x100, 65538 ), 0x0000 );
    EXPECT_EQ( GetLastCommand().mCapacity, 1024U );
    lBuffer.ExpectContents( { 0x11, 0x22 } );
    EXPECT_EQ( mLink.mReads.back().mSize, 65538 );
}

TEST_F( MemoryAccessU3VTest, ComparesTheWholeSizeWithALimit )
{
    Open();
    GuardedBuffer lBuffer( 65538 );
    ExpectResult( mLink.ReadMemory( lBuffer.GetData(), 0x100, 65538 ), 0x4001, 0,
                  "Command of 65550 bytes is larger than maximum command size, 64" );
    EXPECT_EQ( GetCallCount(), 0U );
    lBuffer.ExpectUntouched();
}

// Writing.

TEST_F( MemoryAccessU3VTest, WritesByOneCommand )
{
    const Bytes lCommand = Packet( {
        { 0x55, 0x33, 0x56, 0x43 },                         // prefix
        { 0x00, 0x40 },                                     // flags: acknowledge requested
        { 0x02, 0x08 },                                     // command: WRITEMEM
        { 0x0D, 0x00 },                                     // length
        { 0x00, 0x00 },                                     // request identifier: not set
        { 0xF0, 0xDE, 0xBC, 0x9A, 0x78, 0x56, 0x34, 0x12 }, // address
        { 0x01, 0x02, 0x03, 0x04, 0x05 },                   // data
    } );
    const Bytes lAck = Packet( {
        { 0x55, 0x33, 0x56, 0x43 }, // prefix
        { 0x00, 0x00 },             // status: success
        { 0x03, 0x08 },             // acknowledge: WRITEMEM
        { 0x04, 0x00 },             // length
        { 0x22, 0x11 },             // request identifier
        { 0x00, 0x00 },             // reserved
        { 0x05, 0x00 },             // bytes written
    } );
    Open();
    const Bytes lData = { 0x01, 0x02, 0x03, 0x04, 0x05 };
    for ( const bool lNoAck : { false, true } )
    {
        mControl.Expect( lCommand ).Reply( lAck );
        ExpectResult( Write( lData, 0x123456789ABCDEF0, lNoAck ), 0x0000 );
        EXPECT_EQ( GetLastCommand().mCapacity, 16U );
        EXPECT_EQ( mLink.mWrites.back(),
                   ( TestLinkU3V::Transfer{ lData.data(), 0x123456789ABCDEF0, 5 } ) );
    }
    EXPECT_EQ( mLink.mWrites.size(), 2U );
    EXPECT_TRUE( mLink.mReads.empty() );
    ExpectLog( {} );
}

TEST_F( MemoryAccessU3VTest, WaitsForTheAcknowledgeEvenIfNoneIsRequested )
{
    Open();
    mControl.ExpectAny().Reply( WriteMemAck( 0, 0x8007 ) );
    ExpectResult( Write( { 1 }, 0, true ), 0x4000, 0x8007, BUSY );
    ExpectNoCallbacks();
}

TEST_F( MemoryAccessU3VTest, WritesZeroBytes )
{
    Open();
    mControl.Expect( WriteMem( 0x100, {} ) ).Reply( WriteMemAck( 0 ) );
    ExpectResult( mLink.WriteMemory( nullptr, 0x100, 0, false ), 0x0000 );
    EXPECT_EQ( GetLastCommand().mBytes.size(), 20U );
}

TEST_F( MemoryAccessU3VTest, WritesAsMuchAsTheLimitAllows )
{
    Open();
    mControl.Expect( WriteMem( 0x100, Pattern( 44 ) ) ).Reply( WriteMemAck( 44 ) );
    EXPECT_TRUE( Write( Pattern( 44 ), 0x100 ).IsOK() );
    ExpectResult( Write( Pattern( 45 ), 0x100 ), 0x4001, 0,
                  "Command of 65 bytes is larger than maximum command size, 64" );
    EXPECT_EQ( GetCallCount(), 1U );
    ExpectLog( { SizeLine( 65, 64 ) } );
}

TEST_F( MemoryAccessU3VTest, WritesAsMuchAsTheBuffersHoldWithoutALimit )
{
    OpenWithoutLimits();
    mControl.Expect( WriteMem( 0x100, Pattern( 1004 ) ) ).Reply( WriteMemAck( 1004 ) );
    EXPECT_TRUE( Write( Pattern( 1004 ), 0x100 ).IsOK() );
    EXPECT_EQ( GetLastCommand().mCapacity, 16U );
    for ( const std::size_t lSize : { 1005U, 1024U, 65535U } )
    {
        ExpectResult( Write( Pattern( lSize ), 0x100 ), 0x4001, 0, BEYOND_A_PACKET );
    }
    EXPECT_EQ( GetCallCount(), 1U );
    ExpectLog( {} );
}

// The packet is built of the low 16 bits, but what is sent is never longer than it.
TEST_F( MemoryAccessU3VTest, SendsNoCommandBeyondItsBuffer )
{
    OpenWithoutLimits();
    const Bytes lData = Pattern( 65540 );
    ExpectResult( Write( lData, 0x100 ), 0x4001, 0, BEYOND_THE_BUFFER );
    ExpectResult( Write( Pattern( 65536 ), 0x100 ), 0x4001, 0, BEYOND_THE_BUFFER );
    GuardedBuffer lBuffer( 4 );
    ExpectResult( mLink.AtomicWriteAndRead( lData.data(), 0x100, 65540, lBuffer.GetData(), 0, 4 ),
                  0x4001, 0, BEYOND_THE_BUFFER );
    EXPECT_EQ( GetCallCount(), 0U );
    ExpectLog( {} );
}

TEST_F( MemoryAccessU3VTest, ComparesTheWholeSizeOfAWriteWithALimit )
{
    Open();
    ExpectResult( Write( Pattern( 65540 ), 0x100 ), 0x4001, 0,
                  "Command of 65560 bytes is larger than maximum command size, 64" );
    ExpectResult( Write( Pattern( 1005 ), 0x100 ), 0x4001, 0, BEYOND_A_PACKET ); // not logged
    EXPECT_EQ( GetCallCount(), 0U );
    ExpectLog( { SizeLine( 65560, 64 ) } );
}

TEST_F( MemoryAccessU3VTest, IgnoresTheLengthWritten )
{
    Open();
    const Bytes lAcks[] = { WriteMemAck( 0 ), WriteMemAck( 3 ), WriteMemAck( 0xFFFF ),
                            HeaderOnlyAck( 0x0803, 0 ) };
    for ( const Bytes& lAck : lAcks )
    {
        mControl.Expect( WriteMem( 0, Pattern( 4 ) ) ).Reply( lAck );
        ExpectResult( Write( Pattern( 4 ), 0 ), 0x0000 );
    }
    EXPECT_EQ( mLink.mWrites.size(), 4U );
}

TEST_F( MemoryAccessU3VTest, RefusesAnythingButAnAcknowledgeOfAWrite )
{
    Open();
    std::vector<Bytes> lSpoilt = Spoil( WriteMemAck( 4 ) );
    lSpoilt.push_back( ReadMemAck( Pattern( 4 ) ) );
    for ( const Bytes& lAck : lSpoilt )
    {
        mControl.Expect( WriteMem( 0, Pattern( 4 ) ) ).Reply( lAck );
        ExpectResult( Write( Pattern( 4 ), 0 ), 0x4001 );
    }
    ExpectNoCallbacks();
    ExpectLog( {} );
}

TEST_F( MemoryAccessU3VTest, ReturnsTheStatusOfARefusedWrite )
{
    Open();
    mControl.ExpectAny().Reply( HeaderOnlyAck( 0x0803, 0x8003 ) );
    ExpectResult( Write( { 1 }, 0 ), 0x4000, 0x8003, INVALID_ADDRESS );
    ExpectNoCallbacks();
    ExpectLog( { StatusLine( INVALID_ADDRESS ) } );
}

TEST_F( MemoryAccessU3VTest, DoesNotChangeTheConnectionLostFlag )
{
    Open();
    for ( const bool lIsLost : { false, true } )
    {
        lIsLost ? mLink.SetConnectionLost() : mLink.ResetConnectionLost();
        for ( const Result& lOutcome : { Result( Result::OK ), Result( 0x4000, ENODEV ) } )
        {
            GuardedBuffer lBuffer( 4 );
            const unsigned int lCode = lOutcome.GetCode();
            mControl.ExpectAny().Reply( ReadMemAck( Pattern( 4 ) ) ).Fail( lOutcome );
            ExpectResult( mLink.Read( lBuffer.GetData(), 0, 4 ), lCode, lOutcome.GetOSCode() );
            EXPECT_EQ( mLink.GetConnectionLost(), lIsLost );
            mControl.ExpectAny().Reply( WriteMemAck( 4 ) ).Fail( lOutcome );
            ExpectResult( mLink.Write( lBuffer.GetData(), 0, 4, false ), lCode,
                          lOutcome.GetOSCode() );
            EXPECT_EQ( mLink.GetConnectionLost(), lIsLost );
            mControl.ExpectAny()
                .Reply( WriteMemAck( 4 ) )
                .Reply( ReadMemAck( Pattern( 4 ) ) )
                .Fail( lOutcome );
            ExpectResult(
                mLink.AtomicWriteAndRead( lBuffer.GetData(), 0, 4, lBuffer.GetData(), 0, 4 ), lCode,
                lOutcome.GetOSCode() );
            EXPECT_EQ( mLink.GetConnectionLost(), lIsLost );
        }
        mControl.ExpectAny().Fail( Result( 0x4000, ENODEV ) );
        mLink.UpdateMaxSizes();
        EXPECT_EQ( mLink.GetConnectionLost(), lIsLost );
    }
}

// Both at once.

class AtomicWriteAndReadTest : public MemoryAccessU3VTest
{
protected:
    Result Exchange( const Bytes& aData, GuardedBuffer& aBuffer, long long aSize )
    {
        return mLink.AtomicWriteAndRead( aData.data(), 0x1122334455667788,
                                         static_cast<long long>( aData.size() ), aBuffer.GetData(),
                                         0x0F1E2D3C4B5A6978, aSize );
    }
};

TEST_F( AtomicWriteAndReadTest, SendsAWriteAndAReadTogether )
{
    Open();
    const Bytes lWrite = Packet( {
        { 0x55, 0x33, 0x56, 0x43 },                         // prefix
        { 0x00, 0x40 },                                     // flags: acknowledge requested
        { 0x02, 0x08 },                                     // command: WRITEMEM
        { 0x0B, 0x00 },                                     // length
        { 0x00, 0x00 },                                     // request identifier: not set
        { 0x88, 0x77, 0x66, 0x55, 0x44, 0x33, 0x22, 0x11 }, // address
        { 0xAA, 0xBB, 0xCC },                               // data
    } );
    const Bytes lRead = Packet( {
        { 0x55, 0x33, 0x56, 0x43 },                         // prefix
        { 0x00, 0x40 },                                     // flags: acknowledge requested
        { 0x00, 0x08 },                                     // command: READMEM
        { 0x0C, 0x00 },                                     // length
        { 0x00, 0x00 },                                     // request identifier: not set
        { 0x78, 0x69, 0x5A, 0x4B, 0x3C, 0x2D, 0x1E, 0x0F }, // address
        { 0x00, 0x00 },                                     // reserved
        { 0x02, 0x00 },                                     // count
    } );
    mControl.ExpectTogether( { lWrite, lRead } )
        .Reply( WriteMemAck( 3 ) )
        .Reply( ReadMemAck( { 0x5A, 0xC3 } ) );
    GuardedBuffer lBuffer( 2 );
    ExpectResult( Exchange( { 0xAA, 0xBB, 0xCC }, lBuffer, 2 ), 0x0000 );
    lBuffer.ExpectContents( { 0x5A, 0xC3 } );
    ASSERT_EQ( mControl.GetCalls().size(), 1U );
    EXPECT_EQ( mControl.GetCalls()[0][0].mCapacity, 16U );
    EXPECT_EQ( mControl.GetCalls()[0][1].mCapacity, 14U ); // no least room
    ExpectNoCallbacks();
    ExpectLog( {} );
}

TEST_F( AtomicWriteAndReadTest, TransfersAsMuchAsTheLimitsAllow )
{
    OpenSized( 1024, 1024 );
    mControl.ExpectAny().Reply( WriteMemAck( 1004 ) ).Reply( ReadMemAck( Pattern( 1012 ) ) );
    GuardedBuffer lBuffer( 1012 );
    ExpectResult( Exchange( Pattern( 1004, 5 ), lBuffer, 1012 ), 0x0000 );
    lBuffer.ExpectContents( Pattern( 1012 ) );
    EXPECT_EQ( mControl.GetCalls().back()[0].mBytes,
               WriteMem( 0x1122334455667788, Pattern( 1004, 5 ) ) );
    EXPECT_EQ( mControl.GetCalls().back()[1].mCapacity, 1024U );
}

TEST_F( AtomicWriteAndReadTest, SendsNeitherWhenOneIsTooLarge )
{
    Open();
    GuardedBuffer lBuffer( 53 );
    ExpectResult( Exchange( Pattern( 45 ), lBuffer, 53 ), 0x4001, 0,
                  "Command of 65 bytes is larger than maximum command size, 64" );
    ExpectResult( Exchange( Pattern( 4 ), lBuffer, 53 ), 0x4001, 0,
                  "Command of 65 bytes is larger than maximum command size, 64" );
    EXPECT_EQ( GetCallCount(), 0U );
    lBuffer.ExpectUntouched();
    ExpectLog( { SizeLine( 65, 64 ), SizeLine( 65, 64 ) } );
}

TEST_F( AtomicWriteAndReadTest, ReturnsAWriteThatFitsNoPacket )
{
    Open();
    GuardedBuffer lBuffer( 53 );
    ExpectResult( Exchange( Pattern( 1005 ), lBuffer, 53 ), 0x4001, 0, BEYOND_A_PACKET );
    EXPECT_EQ( GetCallCount(), 0U );
    ExpectLog( {} );
}

TEST_F( AtomicWriteAndReadTest, OffersNoMoreThanItsBuffersWithoutALimit )
{
    OpenWithoutLimits();
    mControl.ExpectAny().Reply( WriteMemAck( 1004 ) ).Reply( ReadMemAck( Pattern( 1012 ) ) );
    GuardedBuffer lBuffer( 4000 );
    ExpectResult( Exchange( Pattern( 1004 ), lBuffer, 4000 ), 0x0000 );
    EXPECT_EQ( mControl.GetCalls().back()[1].mCapacity, 1024U );
    lBuffer.ExpectContents( Pattern( 1012 ) );
}

TEST_F( AtomicWriteAndReadTest, ReturnsTheFailureOfTheCall )
{
    Open();
    mControl.ExpectAny().Reply( WriteMemAck( 1 ) ).Fail( Result( 0x4000, EIO ) );
    GuardedBuffer lBuffer( 4 );
    ExpectResult( Exchange( { 1 }, lBuffer, 4 ), 0x4000, EIO );
    lBuffer.ExpectUntouched();
    ExpectLog( {} );
}

TEST_F( AtomicWriteAndReadTest, ChecksTheWriteFirst )
{
    Open();
    mControl.ExpectAny()
        .Reply( WriteMemAck( 0, 0x8003 ) )
        .Reply( ReadMemAck( Pattern( 4 ), 0x8007 ) );
    GuardedBuffer lBuffer( 4 );
    ExpectResult( Exchange( { 1 }, lBuffer, 4 ), 0x4000, 0x8003, INVALID_ADDRESS );
    ExpectLog( { StatusLine( INVALID_ADDRESS ) } );

    mControl.ExpectAny().Reply( WriteMemAck( 1 ) ).Reply( ReadMemAck( Pattern( 4 ), 0x8007 ) );
    ExpectResult( Exchange( { 1 }, lBuffer, 4 ), 0x4000, 0x8007, BUSY );
    lBuffer.ExpectUntouched();
    ExpectLog( { StatusLine( INVALID_ADDRESS ), StatusLine( BUSY ) } );
}

TEST_F( AtomicWriteAndReadTest, RefusesAnythingButAnAcknowledge )
{
    Open();
    GuardedBuffer lBuffer( 20 );
    for ( const Bytes& lAck : Spoil( WriteMemAck( 1 ) ) )
    {
        mControl.ExpectAny().Reply( lAck ).Reply( ReadMemAck( Pattern( 20 ) ) );
        ExpectResult( Exchange( { 1 }, lBuffer, 20 ), 0x4001 );
    }
    for ( const Bytes& lAck : Spoil( ReadMemAck( Pattern( 20 ) ) ) )
    {
        mControl.ExpectAny().Reply( WriteMemAck( 1 ) ).Reply( lAck );
        ExpectResult( Exchange( { 1 }, lBuffer, 20 ), 0x4001 );
    }
    lBuffer.ExpectUntouched();
    ExpectNoCallbacks();
    ExpectLog( {} );
}

TEST_F( AtomicWriteAndReadTest, UsesNoMoreBytesThanItsBufferHolds )
{
    for ( const bool lHasLimits : { true, false } )
    {
        Open( lHasLimits );
        GuardedBuffer lBuffer( 4096 );
        mControl.ExpectAny()
            .Reply( WriteMemAck( 1 ) )
            .ReplyWithoutBounds( ReadMemAck( Pattern( 400 ) ), 412 );
        ExpectResult( Exchange( { 1 }, lBuffer, 8 ), 0x4001 );
        Bytes lWriteAck = WriteMemAck( 1 );
        lWriteAck[8] = 5; // a byte more than there is room for
        mControl.ExpectAny()
            .ReplyWithoutBounds( lWriteAck, 5000 )
            .Reply( ReadMemAck( Pattern( 8 ) ) );
        ExpectResult( Exchange( { 1 }, lBuffer, 8 ), 0x4001 );
        lBuffer.ExpectUntouched();

        mControl.ExpectAny()
            .ReplyWithoutBounds( WriteMemAck( 1 ), 5000 )
            .ReplyWithoutBounds( ReadMemAck( Pattern( 8 ) ), 5000 );
        ExpectResult( Exchange( { 1 }, lBuffer, 8 ), 0x0000 );
        lBuffer.ExpectContents( Pattern( 8 ) );
    }
}

TEST_F( AtomicWriteAndReadTest, StoresWhatTheAcknowledgeCarries )
{
    Open();
    for ( std::size_t lCarried = 0; lCarried <= 20; ++lCarried )
    {
        mControl.ExpectAny()
            .Reply( HeaderOnlyAck( 0x0803, 0 ) )
            .Reply( ReadMemAck( Pattern( lCarried ) ) );
        GuardedBuffer lBuffer( 20 );
        ExpectResult( Exchange( { 1 }, lBuffer, 20 ), 0x0000 );
        lBuffer.ExpectContents( Pattern( lCarried ) );
    }
}

TEST_F( AtomicWriteAndReadTest, CopiesNothingForASizeBelowZero )
{
    OpenWithoutLimits();
    mControl.ExpectAny().Reply( WriteMemAck( 1 ) ).Reply( ReadMemAck( Pattern( 100 ) ) );
    GuardedBuffer lBuffer( 0 );
    ExpectResult( Exchange( { 1 }, lBuffer, -4294967196LL ), 0x0000 ); // its low half is 100
    lBuffer.ExpectUntouched();
}

// Long transfers.

// A link whose single commands only note what they are asked for.
class PieceLink : public TestLinkU3V
{
public:
    struct Piece
    {
        const void* mData;
        long long mAddress;
        long long mSize;
        bool mNoAck;

        bool operator==( const Piece& aOther ) const
        {
            return mData == aOther.mData && mAddress == aOther.mAddress && mSize == aOther.mSize &&
                   mNoAck == aOther.mNoAck;
        }
    };
    using Pieces = std::vector<Piece>;

    Result ReadMemory( void* aData, long long aAddress, long long aSize ) override
    {
        return Note( mReadPieces, { aData, aAddress, aSize, false } );
    }
    Result WriteMemory( const void* aData, long long aAddress, long long aSize,
                        bool aNoAck ) override
    {
        return Note( mWritePieces, { aData, aAddress, aSize, aNoAck } );
    }

    Pieces mReadPieces;
    Pieces mWritePieces;
    std::size_t mFailing = SIZE_MAX; // the piece of that number fails

private:
    Result Note( Pieces& aPieces, const Piece& aPiece )
    {
        aPieces.push_back( aPiece );
        return aPieces.size() - 1 == mFailing ? Result( 0x4000, 77, QmUtilsLib::String( "here" ) )
                                              : Result( Result::OK );
    }
};

PieceLink::Pieces Cut( const uint8_t* aData, long long aAddress, long long aSize, long long aChunk,
                       bool aNoAck = false )
{
    PieceLink::Pieces lPieces;
    for ( long long lDone = 0; lDone < aSize; lDone += aChunk )
    {
        lPieces.push_back(
            { aData + lDone, aAddress + lDone, std::min( aChunk, aSize - lDone ), aNoAck } );
    }
    return lPieces;
}

TEST( TransferInPieces, ReadsWithTheVirtualReadMemory )
{
    PieceLink lLink;
    uint8_t lData[128];
    for ( long long lSize = -1; lSize <= 128; ++lSize )
    {
        lLink.mReadPieces.clear();
        ExpectResult( lLink.Read( lData, 0x1000, lSize ), 0x0000 );
        EXPECT_EQ( lLink.mReadPieces, Cut( lData, 0x1000, lSize, 40 ) ) << lSize;
    }
    EXPECT_TRUE( lLink.mWritePieces.empty() );
}

TEST( TransferInPieces, WritesWithTheVirtualWriteMemory )
{
    PieceLink lLink;
    const uint8_t lData[140] = {};
    for ( const bool lNoAck : { false, true } )
    {
        for ( long long lSize = -1; lSize <= 140; ++lSize )
        {
            lLink.mWritePieces.clear();
            ExpectResult( lLink.Write( lData, 0x1000, lSize, lNoAck ), 0x0000 );
            EXPECT_EQ( lLink.mWritePieces, Cut( lData, 0x1000, lSize, 44, lNoAck ) ) << lSize;
        }
    }
    EXPECT_TRUE( lLink.mReadPieces.empty() );
}

TEST( TransferInPieces, EndsWithTheFirstThatFails )
{
    uint8_t lData[200];
    for ( std::size_t lFailing = 0; lFailing < 4; ++lFailing )
    {
        PieceLink lLink;
        lLink.mFailing = lFailing;
        ExpectResult( lLink.Read( lData, 0, 160 ), 0x4000, 77, "here" );
        EXPECT_EQ( lLink.mReadPieces.size(), lFailing + 1 );
        ExpectResult( lLink.Write( lData, 0, 176, false ), 0x4000, 77, "here" );
        EXPECT_EQ( lLink.mWritePieces.size(), lFailing + 1 );
    }
}

TEST( TransferInPieces, DoesNothingForZeroBytes )
{
    TestLinkU3V lLink; // never opened
    ExpectResult( lLink.Read( nullptr, 0, 0 ), 0x0000 );
    ExpectResult( lLink.Write( nullptr, 0, 0, false ), 0x0000 );
    ExpectResult( lLink.Read( nullptr, 0, -5 ), 0x0000 );
    ExpectResult( lLink.Write( nullptr, 0, LLONG_MIN, true ), 0x0000 );
    uint8_t lByte = 0;
    ExpectResult( lLink.Read( &lByte, 0, 1 ), 0x0017 ); // from the piece
    ExpectResult( lLink.Write( &lByte, 0, 1, false ), 0x0017 );
}

TEST( TransferInPieces, WrapsAroundAtTheEndOfTheAddresses )
{
    PieceLink lLink;
    uint8_t lData[100] = {};
    ExpectResult( lLink.Read( lData, -8, 41 ), 0x0000 );
    ExpectResult( lLink.Write( lData, LLONG_MAX, 45, false ), 0x0000 );
    ASSERT_EQ( lLink.mReadPieces.size(), 2U );
    EXPECT_EQ( lLink.mReadPieces[1].mAddress, 32 );
    ASSERT_EQ( lLink.mWritePieces.size(), 2U );
    EXPECT_EQ( lLink.mWritePieces[1].mAddress, LLONG_MIN + 43 );
}

// Addresses without memory behind them, as long as a transfer that no memory holds.
class Reservation
{
public:
    explicit Reservation( std::size_t aSize )
        : mSize( aSize )
        , mData( mmap( nullptr, aSize, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1,
                       0 ) )
    {
    }
    ~Reservation() { munmap( mData, mSize ); }
    Reservation( const Reservation& ) = delete;
    Reservation& operator=( const Reservation& ) = delete;

    bool IsMade() const { return mData != MAP_FAILED; }
    uint8_t* GetData() const { return static_cast<uint8_t*>( mData ); }

private:
    std::size_t mSize;
    void* mData;
};

TEST( TransferInPieces, IsOnePieceAfterAClose )
{
    PieceLink lLink;
    EXPECT_TRUE( lLink.Close().IsOK() );
    constexpr long long SIZE = 0x100000010;
    const Reservation lPlace( SIZE );
    ASSERT_TRUE( lPlace.IsMade() );
    // A limit of 0 less the 24 bytes of a command, in 32 bits.
    ExpectResult( lLink.Read( lPlace.GetData(), 0, SIZE ), 0x0000 );
    EXPECT_EQ( lLink.mReadPieces, Cut( lPlace.GetData(), 0, SIZE, 0xFFFFFFE8 ) );
    ExpectResult( lLink.Write( lPlace.GetData(), 0, SIZE, false ), 0x0000 );
    EXPECT_EQ( lLink.mWritePieces, Cut( lPlace.GetData(), 0, SIZE, SIZE ) );
}

// Over the control interface, with limits that a device reports.

class LimitsTest : public MemoryAccessU3VTest
{
protected:
    // Transfers aSize bytes each way; the device takes and gives everything. What the control
    // interface was handed, in the order of the pieces.
    void ReadAll( long long aSize, const std::vector<unsigned int>& aPieces )
    {
        const std::size_t lBefore = mControl.GetCalls().size();
        Bytes lContents;
        for ( const unsigned int lPiece : aPieces )
        {
            const Bytes lData = Pattern( lPiece, static_cast<uint8_t>( lContents.size() ) );
            mControl.Expect( ReadMem( 0x5000 + lContents.size(), static_cast<uint16_t>( lPiece ) ) )
                .Reply( ReadMemAck( lData ) );
            lContents.insert( lContents.end(), lData.begin(), lData.end() );
        }
        GuardedBuffer lBuffer( static_cast<std::size_t>( aSize ) );
        ExpectResult( mLink.Read( lBuffer.GetData(), 0x5000, aSize ), 0x0000 );
        lBuffer.ExpectContents( lContents );
        EXPECT_EQ( mControl.GetCalls().size() - lBefore, aPieces.size() );
        EXPECT_TRUE( mControl.IsScriptDone() );
    }

    void WriteAll( long long aSize, const std::vector<unsigned int>& aPieces )
    {
        const Bytes lData = Pattern( static_cast<std::size_t>( aSize ) );
        const std::size_t lBefore = mControl.GetCalls().size();
        std::ptrdiff_t lDone = 0;
        for ( const unsigned int lPiece : aPieces )
        {
            const Bytes lPart( lData.begin() + lDone, lData.begin() + lDone + lPiece );
            mControl.Expect( WriteMem( 0x5000 + static_cast<uint64_t>( lDone ), lPart ) )
                .Reply( HeaderOnlyAck( 0x0803, 0 ) );
            lDone += lPiece;
        }
        ExpectResult( mLink.Write( lData.data(), 0x5000, aSize, false ), 0x0000 );
        EXPECT_EQ( mControl.GetCalls().size() - lBefore, aPieces.size() );
        EXPECT_TRUE( mControl.IsScriptDone() );
    }

    static std::vector<unsigned int> Cut( long long aSize, unsigned int aChunk )
    {
        std::vector<unsigned int> lPieces;
        for ( long long lRest = aSize; lRest > 0; lRest -= aChunk )
        {
            lPieces.push_back( static_cast<unsigned int>( std::min<long long>( lRest, aChunk ) ) );
        }
        return lPieces;
    }

    // Every length around the first three boundaries of the pieces.
    void ReadAround( unsigned int aChunk )
    {
        for ( long long lSize : GetLengths( aChunk ) )
        {
            ReadAll( lSize, Cut( lSize, aChunk ) );
        }
    }
    void WriteAround( unsigned int aChunk )
    {
        for ( long long lSize : GetLengths( aChunk ) )
        {
            WriteAll( lSize, Cut( lSize, aChunk ) );
        }
    }

private:
    static std::vector<long long> GetLengths( long long aChunk )
    {
        std::vector<long long> lLengths;
        for ( long long lCount = 0; lCount <= 3; ++lCount )
        {
            for ( long long lOffset = -2; lOffset <= 2; ++lOffset )
            {
                if ( lCount * aChunk + lOffset >= 0 )
                {
                    lLengths.push_back( lCount * aChunk + lOffset );
                }
            }
        }
        return lLengths;
    }
};

TEST_F( LimitsTest, OfANewLinkMakePiecesOf40And44 )
{
    Open();
    ReadAround( 40 );
    WriteAround( 44 );
    EXPECT_FALSE( mLink.mReads.empty() );
    ExpectLog( {} );
}

TEST_F( LimitsTest, Of64MakePiecesOf40And44 )
{
    OpenSized( 64, 64 );
    ReadAround( 40 );
    WriteAround( 44 );
}

TEST_F( LimitsTest, Of25MakePiecesOf1And5 )
{
    OpenSized( 25, 25 );
    ReadAround( 1 );
    WriteAround( 5 );
}

TEST_F( LimitsTest, Of24LeaveNoByteToReadAnd4ToWrite )
{
    OpenSized( 24, 24 );
    WriteAround( 4 );
    ReadAll( 0, {} );

    // An empty piece is requested once, whatever its result is.
    mControl.Expect( ReadMem( 0x5000, 0 ) ).Reply( ReadMemAck( {} ) );
    GuardedBuffer lBuffer( 100 );
    ExpectResult( mLink.Read( lBuffer.GetData(), 0x5000, 100 ), 0x4001, 0, NO_ROOM_FOR_DATA );
    EXPECT_TRUE( mControl.IsScriptDone() );
    mControl.Expect( ReadMem( 0x5000, 0 ) ).Reply( HeaderOnlyAck( 0x0801, 0x8007 ) );
    ExpectResult( mLink.Read( lBuffer.GetData(), 0x5000, 100 ), 0x4000, 0x8007, BUSY );
    EXPECT_TRUE( mControl.IsScriptDone() );
    lBuffer.ExpectUntouched();
}

// Less than a read command makes everything one piece, which the limit takes or not.
TEST_F( LimitsTest, Of20MakeOnePieceToRead )
{
    OpenSized( 24, 20 );
    for ( unsigned int lSize = 1; lSize <= 8; ++lSize )
    {
        ReadAll( lSize, { lSize } );
    }
    GuardedBuffer lBuffer( 100 );
    ExpectResult( mLink.Read( lBuffer.GetData(), 0x5000, 9 ), 0x4001, 0,
                  "Command of 21 bytes is larger than maximum command size, 20" );
    ExpectResult( mLink.Read( lBuffer.GetData(), 0x5000, 100 ), 0x4001, 0,
                  "Command of 112 bytes is larger than maximum command size, 20" );
    lBuffer.ExpectUntouched();
}

TEST_F( LimitsTest, Of20LeaveNoByteToWrite )
{
    OpenSized( 20, 64 );
    const Bytes lData = Pattern( 100 );
    mControl.Expect( WriteMem( 0x5000, {} ) ).Reply( WriteMemAck( 0 ) );
    ExpectResult( mLink.Write( lData.data(), 0x5000, 100, false ), 0x4001, 0, NO_ROOM_FOR_DATA );
    EXPECT_TRUE( mControl.IsScriptDone() );
    mControl.Expect( WriteMem( 0x5000, {} ) ).Reply( WriteMemAck( 0, 0x8007 ) );
    ExpectResult( mLink.Write( lData.data(), 0x5000, 100, false ), 0x4000, 0x8007, BUSY );
    EXPECT_TRUE( mControl.IsScriptDone() );

    // Nor is there room for a command that reads.
    GuardedBuffer lBuffer( 4 );
    ExpectResult( mLink.Read( lBuffer.GetData(), 0x5000, 4 ), 0x4001, 0,
                  "Command of 24 bytes is larger than maximum command size, 20" );
}

TEST_F( LimitsTest, Of16AllowReadsOfUpTo4 )
{
    OpenSized( 24, 16 );
    for ( unsigned int lSize = 1; lSize <= 4; ++lSize )
    {
        ReadAll( lSize, { lSize } );
    }
    GuardedBuffer lBuffer( 5 );
    ExpectResult( mLink.Read( lBuffer.GetData(), 0x5000, 5 ), 0x4001, 0,
                  "Command of 17 bytes is larger than maximum command size, 16" );
}

TEST_F( LimitsTest, Of16AllowNoWrite )
{
    OpenSized( 16, 64 );
    const Bytes lData = Pattern( 4 );
    ExpectResult( mLink.Write( lData.data(), 0x5000, 4, false ), 0x4001, 0,
                  "Command of 24 bytes is larger than maximum command size, 16" );
    EXPECT_EQ( GetCallCount(), 0U );
}

TEST_F( LimitsTest, Of0MakeOnePiece )
{
    OpenSized( 0, 0 );
    for ( const unsigned int lSize : { 1U, 40U, 41U, 1000U, 1012U } )
    {
        ReadAll( lSize, { lSize } );
    }
    for ( const unsigned int lSize : { 1U, 44U, 45U, 1004U } )
    {
        WriteAll( lSize, { lSize } );
    }
    const std::size_t lCalls = mControl.GetCalls().size();
    const Bytes lData = Pattern( 1005 );
    ExpectResult( mLink.Write( lData.data(), 0x5000, 1005, false ), 0x4001, 0, BEYOND_A_PACKET );
    EXPECT_EQ( mControl.GetCalls().size(), lCalls );
}

TEST_F( LimitsTest, Of1024MakePiecesOf1000And1004 )
{
    OpenSized( 1024, 1024 );
    ReadAround( 1000 );
    WriteAround( 1004 );
}

TEST_F( LimitsTest, Of2048AreThoseOfTheBuffers )
{
    OpenSized( 2048, 2048 );
    ReadAround( 1000 );
    WriteAround( 1004 );
}

TEST_F( LimitsTest, OfTheLargestNumberAreThoseOfTheBuffers )
{
    OpenSized( 0xFFFFFFFF, 0xFFFFFFFF );
    ReadAround( 1000 );
    WriteAround( 1004 );
}

TEST_F( LimitsTest, CallBackOncePerPiece )
{
    Open();
    ReadAll( 100, { 40, 40, 20 } );
    WriteAll( 100, { 44, 44, 12 } );
    ASSERT_EQ( mLink.mReads.size(), 3U );
    EXPECT_EQ( mLink.mReads[0].mAddress, 0x5000 );
    EXPECT_EQ( mLink.mReads[1].mAddress, 0x5028 );
    EXPECT_EQ( mLink.mReads[2].mSize, 20 );
    ASSERT_EQ( mLink.mWrites.size(), 3U );
    EXPECT_EQ( mLink.mWrites[2].mAddress, 0x5058 );
    EXPECT_EQ( mLink.mWrites[2].mSize, 12 );
}

TEST_F( LimitsTest, KeepWhatWasReadBeforeAFailure )
{
    Open();
    mControl.Expect( ReadMem( 0x5000, 40 ) )
        .Reply( ReadMemAck( Pattern( 40 ) ) )
        .Expect( ReadMem( 0x5028, 40 ) )
        .Fail( Result( 0x4000, ENODEV ) );
    GuardedBuffer lBuffer( 100 );
    ExpectResult( mLink.Read( lBuffer.GetData(), 0x5000, 100 ), 0x4000, ENODEV );
    lBuffer.ExpectContents( Pattern( 40 ) );
    EXPECT_EQ( mLink.mReads.size(), 1U );
}

// The last piece may be smaller than the least room of an acknowledge, at the very end of the
// caller's buffer, and the device may fill that room.
TEST_F( LimitsTest, WriteNothingBeyondTheEndOfALongRead )
{
    Open();
    for ( unsigned int lRest = 1; lRest < 4; ++lRest )
    {
        mControl.Expect( ReadMem( 0x5000, 40 ) )
            .Reply( ReadMemAck( Pattern( 40 ) ) )
            .Expect( ReadMem( 0x5028, static_cast<uint16_t>( lRest ) ) )
            .Reply( ReadMemAck( Pattern( 4 ) ) );
        GuardedBuffer lBuffer( 40 + lRest );
        ExpectResult( mLink.Read( lBuffer.GetData(), 0x5000, 40 + lRest ), 0x0000 );
        lBuffer.ExpectContents( Packet( { Pattern( 40 ), Prefix( Pattern( 4 ), lRest ) } ) );
    }
}

// A device that answers every piece without data is still read to the end.
TEST_F( LimitsTest, EndIfTheDeviceReturnsNothing )
{
    Open();
    for ( int lPiece = 0; lPiece < 3; ++lPiece )
    {
        mControl.ExpectAny().Reply( ReadMemAck( {} ) );
    }
    GuardedBuffer lBuffer( 100 );
    ExpectResult( mLink.Read( lBuffer.GetData(), 0x5000, 100 ), 0x0000 );
    lBuffer.ExpectUntouched();
    EXPECT_EQ( GetCallCount(), 3U );
}

} // namespace
