// Registers and memory over GVCP: the packets, the values, the callbacks, and what stays untouched
// when something fails.

#include "tests/support/ScriptedLinkTest.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstddef>
#include <functional>
#include <string>

namespace
{

using namespace TestSupport;
using QmUtilsLib::Result;
using QmUtilsLib::String;
using WdUtilsLib::Network::SocketUDP;

using Sizes = std::vector<int>;
using Transfers = std::vector<TestLinkGEV::Transfer>;

constexpr uint8_t FILL = 0xA5;
constexpr unsigned int UNTOUCHED = 0xA5A5A5A5;

const Bytes READREG = Packet( {
    { 0x42 },                   // key
    { 0x01 },                   // flags: acknowledge required
    { 0x00, 0x80 },             // command: READREG
    { 0x00, 0x04 },             // length
    { 0xB1, 0x23 },             // request identifier
    { 0x00, 0x00, 0x0A, 0x00 }, // address
} );

const Bytes READREG_ACK = Packet( {
    { 0x00, 0x00 },             // status: success
    { 0x00, 0x81 },             // acknowledge: READREG
    { 0x00, 0x04 },             // length
    { 0xB1, 0x23 },             // acknowledge identifier
    { 0x01, 0x02, 0x03, 0x04 }, // value
} );

const Bytes WRITEREG = Packet( {
    { 0x42 },                   // key
    { 0x01 },                   // flags: acknowledge required
    { 0x00, 0x82 },             // command: WRITEREG
    { 0x00, 0x08 },             // length
    { 0xB1, 0x23 },             // request identifier
    { 0x00, 0x00, 0x0A, 0x00 }, // address
    { 0x81, 0x02, 0x03, 0x04 }, // value
} );

const Bytes WRITEREG_NO_ACK = Packet( {
    { 0x42 },                   // key
    { 0x00 },                   // flags: none
    { 0x00, 0x82 },             // command: WRITEREG
    { 0x00, 0x08 },             // length
    { 0xB1, 0x23 },             // request identifier
    { 0x00, 0x00, 0x0A, 0x00 }, // address
    { 0x81, 0x02, 0x03, 0x04 }, // value
} );

const Bytes WRITEREG_ACK = Packet( {
    { 0x00, 0x00 }, // status: success
    { 0x00, 0x83 }, // acknowledge: WRITEREG
    { 0x00, 0x04 }, // length
    { 0xB1, 0x23 }, // acknowledge identifier
    { 0x00, 0x00 }, // reserved
    { 0x00, 0x01 }, // index
} );

// A READMEM of address 0x0000D800 with that count, given as the two bytes of the packet.
Bytes ReadMem( uint8_t aHigh, uint8_t aLow )
{
    return Packet( {
        { 0x42 },                   // key
        { 0x01 },                   // flags: acknowledge required
        { 0x00, 0x84 },             // command: READMEM
        { 0x00, 0x08 },             // length
        { 0xB1, 0x23 },             // request identifier
        { 0x00, 0x00, 0xD8, 0x00 }, // address
        { 0x00, 0x00 },             // reserved
        { aHigh, aLow },            // count
    } );
}

// The acknowledge of a READMEM; the length field as its two bytes.
Bytes ReadMemAck( uint8_t aHigh, uint8_t aLow, const Bytes& aData )
{
    return Packet( {
        { 0x00, 0x00 },             // status: success
        { 0x00, 0x85 },             // acknowledge: READMEM
        { aHigh, aLow },            // length: address and data
        { 0xB1, 0x23 },             // acknowledge identifier
        { 0x00, 0x00, 0xD8, 0x00 }, // address
        aData,
    } );
}

// A WRITEMEM to address 0x0000D800; the flags and the length field as their bytes.
Bytes WriteMem( uint8_t aFlags, uint8_t aHigh, uint8_t aLow, const Bytes& aData )
{
    return Packet( {
        { 0x42 },                   // key
        { aFlags },                 // flags
        { 0x00, 0x86 },             // command: WRITEMEM
        { aHigh, aLow },            // length: address and data
        { 0xB1, 0x23 },             // request identifier
        { 0x00, 0x00, 0xD8, 0x00 }, // address
        aData,
    } );
}

const Bytes WRITEMEM_ACK = Packet( {
    { 0x00, 0x00 }, // status: success
    { 0x00, 0x87 }, // acknowledge: WRITEMEM
    { 0x00, 0x04 }, // length
    { 0xB1, 0x23 }, // acknowledge identifier
    { 0x00, 0x00 }, // reserved
    { 0x00, 0x04 }, // index
} );

const Bytes DATA_4{ 0xDE, 0xAD, 0xBE, 0xEF };

// Memory of a caller with guard bytes on both sides.
class GuardedArea
{
public:
    explicit GuardedArea( std::size_t aSize )
        : mBytes( GUARD + aSize + GUARD, FILL )
    {
    }

    uint8_t* Get() { return &mBytes[GUARD]; }

    // The bytes there, and whether nothing around it has changed.
    Bytes GetBytes() const { return Bytes( mBytes.begin() + GUARD, mBytes.end() - GUARD ); }
    bool IsGuardWhole() const
    {
        const Bytes lGuard( GUARD, FILL );
        return Bytes( mBytes.begin(), mBytes.begin() + GUARD ) == lGuard &&
               Bytes( mBytes.end() - GUARD, mBytes.end() ) == lGuard;
    }
    bool IsUntouched() const { return mBytes == Bytes( mBytes.size(), FILL ); }

private:
    static constexpr int GUARD = 64;
    Bytes mBytes;
};

class RegisterAccessTest : public ScriptedLinkTest
{
protected:
    // The next command carries the identifier that the packets above are typed with.
    void Rewind() { mLink.mRequestID = 0xB123; }

    void ExpectNoCallback() const
    {
        EXPECT_TRUE( mLink.mReads.empty() );
        EXPECT_TRUE( mLink.mWrites.empty() );
    }

    static void ExpectTransfer( const Transfers& aTransfers, const void* aData, long long aAddress,
                                const Bytes& aBytes )
    {
        ASSERT_EQ( aTransfers.size(), 1U );
        EXPECT_EQ( aTransfers[0].mData, aData );
        EXPECT_EQ( aTransfers[0].mAddress, aAddress );
        EXPECT_EQ( aTransfers[0].mSize, static_cast<long long>( aBytes.size() ) );
        EXPECT_EQ( aTransfers[0].mBytes, aBytes );
    }
};

// The register or the bytes in memory that an unsigned int has on this machine.
Bytes GetHostBytes( unsigned int aValue )
{
    const auto* const lBytes = reinterpret_cast<const uint8_t*>( &aValue );
    return Bytes( lBytes, lBytes + sizeof( aValue ) );
}

// Reading a register.

TEST_F( RegisterAccessTest, ReadsARegister )
{
    mNet.Expect( READREG ).Reply( READREG_ACK );
    unsigned int lValue = UNTOUCHED;
    const Result lResult = mLink.ReadRegister( &lValue, 0x0A00 );
    EXPECT_TRUE( lResult.IsOK() );
    EXPECT_STREQ( lResult.GetDescription().GetAscii(), "" );
    EXPECT_EQ( lValue, 0x01020304U );
    EXPECT_EQ( mNet.GetSends().size(), 1U );
    EXPECT_EQ( mNet.GetReceiveSizes(), Sizes( { 548 } ) );
    ExpectTransfer( mLink.mReads, &lValue, 0x0A00, GetHostBytes( 0x01020304 ) );
    EXPECT_TRUE( mLink.mWrites.empty() );
    ExpectLog( {} );
}

TEST_F( RegisterAccessTest, ReadsEveryBitOfARegister )
{
    mNet.Expect( READREG ).Reply( Packet( {
        { 0x00, 0x00 },             // status: success
        { 0x00, 0x81 },             // acknowledge: READREG
        { 0x00, 0x04 },             // length
        { 0xB1, 0x23 },             // acknowledge identifier
        { 0x80, 0x00, 0xFF, 0xFE }, // value
    } ) );
    unsigned int lValues[3] = { UNTOUCHED, UNTOUCHED, UNTOUCHED };
    EXPECT_TRUE( mLink.ReadRegister( &lValues[1], 0x0A00 ).IsOK() );
    EXPECT_EQ( lValues[0], UNTOUCHED );
    EXPECT_EQ( lValues[1], 0x8000FFFEU );
    EXPECT_EQ( lValues[2], UNTOUCHED );
}

TEST_F( RegisterAccessTest, ReadsARegisterAfterRetriesAndAPendingAcknowledge )
{
    const Bytes lPending = Packet( {
        { 0x00, 0x00 }, // status: success
        { 0x00, 0x89 }, // acknowledge: PENDINGACK
        { 0x00, 0x04 }, // length
        { 0xB1, 0x23 }, // acknowledge identifier
        { 0x00, 0x00 }, // reserved
        { 0x13, 0x88 }, // time to completion: 5000 ms
    } );
    mNet.Expect( READREG )
        .Silence()
        .Expect( READREG )
        .Reply( lPending )
        .Reply( READREG_ACK, AFTER_MS( 4999 ) );
    unsigned int lValue = UNTOUCHED;
    EXPECT_TRUE( mLink.ReadRegister( &lValue, 0x0A00 ).IsOK() );
    EXPECT_EQ( lValue, 0x01020304U );
    EXPECT_EQ( GetElapsed(), 5399 );
    EXPECT_EQ( mLink.mReads.size(), 1U );
    ExpectCounters( mLink, 1, 1, 1, 0 );
}

TEST_F( RegisterAccessTest, LeavesTheValueWhenTheDeviceRefuses )
{
    mNet.Expect( READREG ).Reply( Packet( {
        { 0x80, 0x03 },             // status: invalid address
        { 0x00, 0x81 },             // acknowledge: READREG
        { 0x00, 0x04 },             // length
        { 0xB1, 0x23 },             // acknowledge identifier
        { 0x01, 0x02, 0x03, 0x04 }, // value, of no use
    } ) );
    unsigned int lValue = UNTOUCHED;
    const Result lResult = mLink.ReadRegister( &lValue, 0x0A00 );
    EXPECT_EQ( lResult.GetCode(), 0x4000U );
    EXPECT_STREQ( lResult.GetDescription().GetAscii(),
                  "Invalid address status received from the device." );
    EXPECT_EQ( lValue, UNTOUCHED );
    ExpectNoCallback();
}

TEST_F( RegisterAccessTest, ReadsNoRegisterFromAnAcknowledgeWithoutACompleteValue )
{
    for ( uint8_t lSize = 0; lSize < 4; ++lSize )
    {
        Rewind();
        mNet.Expect( READREG ).Reply( Packet( {
            { 0x00, 0x00 },       // status: success
            { 0x00, 0x81 },       // acknowledge: READREG
            { 0x00, lSize },      // length
            { 0xB1, 0x23 },       // acknowledge identifier
            Bytes( lSize, 0x11 ), // what there is of the value
        } ) );
        unsigned int lValue = UNTOUCHED;
        const Result lResult = mLink.ReadRegister( &lValue, 0x0A00 );
        EXPECT_EQ( lResult.GetCode(), 0x4000U );
        EXPECT_EQ( lResult.GetOSCode(), 0U );
        EXPECT_STREQ( lResult.GetDescription().GetAscii(), "Invalid answer received from device" );
        EXPECT_EQ( lValue, UNTOUCHED );
    }
    ExpectNoCallback();
    ExpectLog( {} );
}

TEST_F( RegisterAccessTest, TakesTheFirstValueOfALongerAcknowledge )
{
    for ( uint8_t lMore = 1; lMore <= 8; ++lMore )
    {
        Rewind();
        mNet.Expect( READREG ).Reply( Packet( {
            { 0x00, 0x00 },                                 // status: success
            { 0x00, 0x81 },                                 // acknowledge: READREG
            { 0x00, static_cast<uint8_t>( 0x04 + lMore ) }, // length
            { 0xB1, 0x23 },                                 // acknowledge identifier
            { 0x81, 0x02, 0x03, 0x04 },                     // value
            Bytes( lMore, 0x99 ),                           // more than was asked for
        } ) );
        unsigned int lValue = UNTOUCHED;
        EXPECT_TRUE( mLink.ReadRegister( &lValue, 0x0A00 ).IsOK() ) << lMore;
        EXPECT_EQ( lValue, 0x81020304U );
    }
    EXPECT_EQ( mLink.mReads.size(), 8U );
    ExpectLog( {} );
}

// Writing a register.

TEST_F( RegisterAccessTest, WritesARegister )
{
    mNet.Expect( WRITEREG ).Reply( WRITEREG_ACK );
    const unsigned int lValue = 0x81020304;
    const Result lResult = mLink.WriteRegister( &lValue, 0x0A00, false );
    EXPECT_TRUE( lResult.IsOK() );
    EXPECT_EQ( mNet.GetSends().size(), 1U );
    EXPECT_EQ( mNet.GetReceiveSizes(), Sizes( { 12 } ) );
    EXPECT_EQ( lValue, 0x81020304U );
    ExpectTransfer( mLink.mWrites, &lValue, 0x0A00, GetHostBytes( 0x81020304 ) );
    EXPECT_TRUE( mLink.mReads.empty() );
    ExpectLog( {} );
}

TEST_F( RegisterAccessTest, WritesARegisterWithoutAcknowledge )
{
    mNet.Expect( WRITEREG_NO_ACK ).Reply( WRITEREG_ACK );
    const unsigned int lValue = 0x81020304;
    EXPECT_TRUE( mLink.WriteRegister( &lValue, 0x0A00, true ).IsOK() );
    EXPECT_TRUE( mNet.GetSelectTimeouts().empty() );
    EXPECT_TRUE( mNet.GetReceiveSizes().empty() );
    ExpectTransfer( mLink.mWrites, &lValue, 0x0A00, GetHostBytes( 0x81020304 ) );
}

TEST_F( RegisterAccessTest, AcceptsAHeaderWithoutPayloadAsAcknowledgeOfAWrite )
{
    const unsigned int lValue = 0x81020304;
    mNet.Expect( WRITEREG ).Reply( { 0, 0, 0, 0x83, 0, 0, 0xB1, 0x23 } );
    EXPECT_TRUE( mLink.WriteRegister( &lValue, 0x0A00, false ).IsOK() );
    Rewind();
    mNet.Expect( WriteMem( 0x01, 0x00, 0x08, DATA_4 ) )
        .Reply( { 0, 0, 0, 0x87, 0, 0, 0xB1, 0x23 } );
    EXPECT_TRUE( mLink.WriteMemory( DATA_4.data(), 0xD800, 4, false ).IsOK() );
    EXPECT_EQ( mLink.mWrites.size(), 2U );
}

TEST_F( RegisterAccessTest, TreatsAWriteAcknowledgeLongerThanItsBufferAsAStray )
{
    mLink.mRetryCount = 1;
    const unsigned int lValue = 0x81020304;
    mNet.Expect( WRITEREG ).Reply( { 0, 0, 0, 0x83, 0, 8, 0xB1, 0x23, 0, 0, 0, 1, 0, 0, 0, 0 } );
    EXPECT_EQ( mLink.WriteRegister( &lValue, 0x0A00, false ).GetCode(), 0x001EU );
    ExpectNoCallback();
    ExpectLog( { mLines.UNEXPECTED, mLines.TIMEOUT, mLines.FAILURE } );
}

// Reading memory.

TEST_F( RegisterAccessTest, ReadsMemory )
{
    mNet.Expect( ReadMem( 0x00, 0x04 ) ).Reply( ReadMemAck( 0x00, 0x08, DATA_4 ) );
    GuardedArea lArea( 4 );
    const Result lResult = mLink.ReadMemory( lArea.Get(), 0xD800, 4 );
    EXPECT_TRUE( lResult.IsOK() );
    EXPECT_STREQ( lResult.GetDescription().GetAscii(), "" );
    EXPECT_EQ( lArea.GetBytes(), DATA_4 );
    EXPECT_TRUE( lArea.IsGuardWhole() );
    EXPECT_EQ( mNet.GetSends().size(), 1U );
    EXPECT_EQ( mNet.GetReceiveSizes(), Sizes( { 548 } ) );
    ExpectTransfer( mLink.mReads, lArea.Get(), 0xD800, DATA_4 );
    EXPECT_TRUE( mLink.mWrites.empty() );
    ExpectLog( {} );
}

TEST_F( RegisterAccessTest, ReadsAsMuchMemoryAsOnePacketCarries )
{
    const Bytes lData = Pattern( 536 );
    mNet.Expect( ReadMem( 0x02, 0x18 ) ).Reply( ReadMemAck( 0x02, 0x1C, lData ) );
    GuardedArea lArea( 536 );
    EXPECT_TRUE( mLink.ReadMemory( lArea.Get(), 0xD800, 536 ).IsOK() );
    EXPECT_EQ( lArea.GetBytes(), lData );
    EXPECT_TRUE( lArea.IsGuardWhole() );
    ExpectTransfer( mLink.mReads, lArea.Get(), 0xD800, lData );
}

TEST_F( RegisterAccessTest, ReadsMemoryOfSizesThatAreNotWholeWords )
{
    mNet.Expect( ReadMem( 0x00, 0x01 ) ).Reply( ReadMemAck( 0x00, 0x05, { 0x77 } ) );
    GuardedArea lArea( 1 );
    EXPECT_TRUE( mLink.ReadMemory( lArea.Get(), 0xD800, 1 ).IsOK() );
    EXPECT_EQ( lArea.GetBytes(), Bytes( { 0x77 } ) );
    EXPECT_TRUE( lArea.IsGuardWhole() );
}

TEST_F( RegisterAccessTest, ReadsNoMemoryWhenNoneIsAskedFor )
{
    mNet.Expect( ReadMem( 0x00, 0x00 ) ).Reply( ReadMemAck( 0x00, 0x04, {} ) );
    GuardedArea lArea( 4 );
    EXPECT_TRUE( mLink.ReadMemory( lArea.Get(), 0xD800, 0 ).IsOK() );
    EXPECT_TRUE( lArea.IsUntouched() );
    ExpectTransfer( mLink.mReads, lArea.Get(), 0xD800, {} );
}

TEST_F( RegisterAccessTest, ReadsNoMemoryAlsoFromAnAcknowledgeWithoutPayload )
{
    // Nothing, and parts of an address.
    for ( std::size_t lSize = 0; lSize < 4; ++lSize )
    {
        Rewind();
        mNet.Expect( ReadMem( 0x00, 0x00 ) )
            .Reply( Packet( {
                { 0x00, 0x00 },                          // status: success
                { 0x00, 0x85 },                          // acknowledge: READMEM
                { 0x00, static_cast<uint8_t>( lSize ) }, // length
                { 0xB1, 0x23 },                          // acknowledge identifier
                Bytes( lSize, 0x00 ),                    // of the address
            } ) );
        mLink.mReads.clear();
        GuardedArea lArea( 4 );
        EXPECT_TRUE( mLink.ReadMemory( lArea.Get(), 0xD800, 0 ).IsOK() ) << lSize;
        EXPECT_TRUE( lArea.IsUntouched() );
        ExpectTransfer( mLink.mReads, lArea.Get(), 0xD800, {} );
    }
}

TEST_F( RegisterAccessTest, CopiesNoMoreMemoryThanWasAskedFor )
{
    const Bytes lData = Pattern( 12 );
    mNet.Expect( ReadMem( 0x00, 0x04 ) ).Reply( ReadMemAck( 0x00, 0x10, lData ) );
    GuardedArea lArea( 4 );
    EXPECT_TRUE( mLink.ReadMemory( lArea.Get(), 0xD800, 4 ).IsOK() );
    EXPECT_EQ( lArea.GetBytes(), Prefix( lData, 4 ) );
    EXPECT_TRUE( lArea.IsGuardWhole() );
    EXPECT_EQ( mLink.mReads.size(), 1U );
}

TEST_F( RegisterAccessTest, CopiesNoMemoryFromAnAcknowledgeWithLessThanWasAskedFor )
{
    // Address and data cut to every shorter size, the address alone and parts of it included.
    const Bytes lPayload = Packet( { { 0x00, 0x00, 0xD8, 0x00 }, Pattern( 8 ) } );
    for ( std::size_t lSize = 0; lSize < lPayload.size(); ++lSize )
    {
        Rewind();
        mNet.Expect( ReadMem( 0x00, 0x08 ) )
            .Reply( Packet( {
                { 0x00, 0x00 },                          // status: success
                { 0x00, 0x85 },                          // acknowledge: READMEM
                { 0x00, static_cast<uint8_t>( lSize ) }, // length
                { 0xB1, 0x23 },                          // acknowledge identifier
                Prefix( lPayload, lSize ),
            } ) );
        GuardedArea lArea( 8 );
        const Result lResult = mLink.ReadMemory( lArea.Get(), 0xD800, 8 );
        EXPECT_EQ( lResult.GetCode(), 0x4000U ) << lSize;
        EXPECT_EQ( lResult.GetOSCode(), 0U ) << lSize;
        EXPECT_STREQ( lResult.GetDescription().GetAscii(), "Invalid answer received from device" );
        EXPECT_TRUE( lArea.IsUntouched() ) << lSize;
    }
    ExpectNoCallback();
    ExpectLog( {} );
}

TEST_F( RegisterAccessTest, SendsAReadOfMoreThanOnePacketUnchanged )
{
    const Bytes lRefusal{ 0x80, 0x02, 0x00, 0x85, 0x00, 0x00, 0xB1, 0x23 }; // invalid parameter
    const struct
    {
        long long mSize;
        Bytes mCommand;
    } lReads[] = {
        { 537, ReadMem( 0x02, 0x19 ) },
        { 540, ReadMem( 0x02, 0x1C ) },
        { 65535, ReadMem( 0xFF, 0xFF ) },
    };
    for ( const auto& lRead : lReads )
    {
        Rewind();
        mNet.Expect( lRead.mCommand ).Reply( lRefusal );
        GuardedArea lArea( 540 );
        const Result lResult = mLink.ReadMemory( lArea.Get(), 0xD800, lRead.mSize );
        EXPECT_EQ( lResult.GetCode(), 0x4000U );
        EXPECT_STREQ( lResult.GetDescription().GetAscii(),
                      "Invalid parameter status received from the device." );
        EXPECT_TRUE( lArea.IsUntouched() );
    }
    EXPECT_EQ( mNet.GetSends().size(), 3U ); // none was split
    ExpectNoCallback();
}

TEST_F( RegisterAccessTest, FailsIfTheDeviceAnswersALargerReadWithOneFullPacket )
{
    const Bytes lData = Pattern( 536 );
    mNet.Expect( ReadMem( 0x02, 0x1C ) ).Reply( ReadMemAck( 0x02, 0x1C, lData ) );
    GuardedArea lArea( 540 );
    const Result lResult = mLink.ReadMemory( lArea.Get(), 0xD800, 540 );
    EXPECT_EQ( lResult.GetCode(), 0x4000U );
    EXPECT_STREQ( lResult.GetDescription().GetAscii(), "Invalid answer received from device" );
    EXPECT_TRUE( lArea.IsUntouched() );
    ExpectNoCallback();
}

TEST_F( RegisterAccessTest, TreatsAnAcknowledgeBeyondTheLargestPacketAsAStray )
{
    mLink.mRetryCount = 1;
    mNet.Expect( ReadMem( 0x02, 0x1C ) ).Reply( ReadMemAck( 0x02, 0x20, Pattern( 540 ) ) );
    GuardedArea lArea( 540 );
    EXPECT_EQ( mLink.ReadMemory( lArea.Get(), 0xD800, 540 ).GetCode(), 0x001EU );
    EXPECT_TRUE( lArea.IsUntouched() );
    ExpectNoCallback();
    ExpectLog( { mLines.UNEXPECTED, mLines.TIMEOUT, mLines.FAILURE } );
}

TEST_F( RegisterAccessTest, FailsForSizesThatTheCountFieldCannotExpress )
{
    // The command carries the low 16 bits of the count, and the answer is short.
    const struct
    {
        long long mSize;
        Bytes mCommand;
    } lReads[] = {
        { -1, ReadMem( 0xFF, 0xFF ) },
        { -4, ReadMem( 0xFF, 0xFC ) },
        { 65536 + 4, ReadMem( 0x00, 0x04 ) },
        { 0x1'0000'0004, ReadMem( 0x00, 0x04 ) },
        { LLONG_MAX, ReadMem( 0xFF, 0xFF ) },
        { LLONG_MIN, ReadMem( 0x00, 0x00 ) },
        { LLONG_MIN + 4, ReadMem( 0x00, 0x04 ) },
    };
    for ( const auto& lRead : lReads )
    {
        Rewind();
        mNet.Expect( lRead.mCommand ).Reply( ReadMemAck( 0x00, 0x08, DATA_4 ) );
        GuardedArea lArea( 4 );
        const Result lResult = mLink.ReadMemory( lArea.Get(), 0xD800, lRead.mSize );
        EXPECT_EQ( lResult.GetCode(), 0x4000U ) << lRead.mSize;
        EXPECT_STREQ( lResult.GetDescription().GetAscii(), "Invalid answer received from device" );
        EXPECT_TRUE( lArea.IsUntouched() ) << lRead.mSize;
    }
    ExpectNoCallback();
    ExpectLog( {} );
}

// Writing memory.

TEST_F( RegisterAccessTest, WritesMemory )
{
    mNet.Expect( WriteMem( 0x01, 0x00, 0x08, DATA_4 ) ).Reply( WRITEMEM_ACK );
    const Bytes lData = DATA_4;
    const Result lResult = mLink.WriteMemory( lData.data(), 0xD800, 4, false );
    EXPECT_TRUE( lResult.IsOK() );
    EXPECT_EQ( mNet.GetSends().size(), 1U );
    EXPECT_EQ( mNet.GetReceiveSizes(), Sizes( { 12 } ) );
    EXPECT_EQ( lData, DATA_4 );
    ExpectTransfer( mLink.mWrites, lData.data(), 0xD800, DATA_4 );
    EXPECT_TRUE( mLink.mReads.empty() );
    ExpectLog( {} );
}

TEST_F( RegisterAccessTest, WritesMemoryWithoutAcknowledge )
{
    mNet.Expect( WriteMem( 0x00, 0x00, 0x08, DATA_4 ) ).Reply( WRITEMEM_ACK );
    EXPECT_TRUE( mLink.WriteMemory( DATA_4.data(), 0xD800, 4, true ).IsOK() );
    EXPECT_TRUE( mNet.GetSelectTimeouts().empty() );
    EXPECT_TRUE( mNet.GetReceiveSizes().empty() );
    ExpectTransfer( mLink.mWrites, DATA_4.data(), 0xD800, DATA_4 );
}

TEST_F( RegisterAccessTest, WritesAsMuchMemoryAsOnePacketCarries )
{
    const Bytes lData = Pattern( 536 );
    mNet.Expect( WriteMem( 0x01, 0x02, 0x1C, lData ) ).Reply( WRITEMEM_ACK );
    EXPECT_TRUE( mLink.WriteMemory( lData.data(), 0xD800, 536, false ).IsOK() );
    ExpectTransfer( mLink.mWrites, lData.data(), 0xD800, lData );
    EXPECT_EQ( mNet.GetSends()[0].mBytes.size(), 548U );
}

TEST_F( RegisterAccessTest, WritesMemoryOfSizesThatAreNotWholeWords )
{
    mNet.Expect( WriteMem( 0x01, 0x00, 0x05, { 0x77 } ) ).Reply( WRITEMEM_ACK );
    const uint8_t lData = 0x77;
    EXPECT_TRUE( mLink.WriteMemory( &lData, 0xD800, 1, false ).IsOK() );
    Rewind();
    mNet.Expect( WriteMem( 0x01, 0x00, 0x04, {} ) ).Reply( WRITEMEM_ACK );
    EXPECT_TRUE( mLink.WriteMemory( &lData, 0xD800, 0, false ).IsOK() );
    ASSERT_EQ( mLink.mWrites.size(), 2U );
    EXPECT_EQ( mLink.mWrites[1].mSize, 0 );
}

TEST_F( RegisterAccessTest, RefusesToWriteMoreThanAPacketCarries )
{
    const Bytes lData = Pattern( 540 );
    for ( const long long lSize : { 537LL, 540LL, 65536LL + 4, 0x1'0000'0004LL, -1LL, -4LL,
                                    LLONG_MAX, LLONG_MIN, LLONG_MIN + 4 } )
    {
        EXPECT_EQ( mLink.WriteMemory( lData.data(), 0xD800, lSize, false ).GetCode(), 0x4001U )
            << lSize;
        EXPECT_EQ( mLink.WriteMemory( lData.data(), 0xD800, lSize, true ).GetCode(), 0x4001U )
            << lSize;
    }
    EXPECT_TRUE( mNet.GetSends().empty() );
    EXPECT_EQ( mLink.mRequestIDsDrawn, 0 );
    EXPECT_EQ( GetElapsed(), 0 );
    ExpectNoCallback();
    ExpectLog( {} );
}

// Addresses.

TEST_F( RegisterAccessTest, SendsTheLow32BitsOfAnAddressAndPassesAllBitsToTheCallback )
{
    const long long lAddress = 0x1'0000'0A00;
    unsigned int lValue = 0x81020304;
    mNet.Expect( WRITEREG ).Reply( WRITEREG_ACK );
    EXPECT_TRUE( mLink.WriteRegister( &lValue, lAddress, false ).IsOK() );
    Rewind();
    mNet.Expect( READREG ).Reply( READREG_ACK );
    EXPECT_TRUE( mLink.ReadRegister( &lValue, lAddress ).IsOK() );

    uint8_t lData[4] = {};
    Rewind();
    mNet.Expect( ReadMem( 0x00, 0x04 ) ).Reply( ReadMemAck( 0x00, 0x08, DATA_4 ) );
    EXPECT_TRUE( mLink.ReadMemory( lData, 0x7FFF'FFFF'0000'D800, 4 ).IsOK() );
    Rewind();
    mNet.Expect( WriteMem( 0x01, 0x00, 0x08, DATA_4 ) ).Reply( WRITEMEM_ACK );
    EXPECT_TRUE( mLink.WriteMemory( lData, 0x7FFF'FFFF'0000'D800, 4, false ).IsOK() );

    ASSERT_EQ( mLink.mReads.size(), 2U );
    ASSERT_EQ( mLink.mWrites.size(), 2U );
    EXPECT_EQ( mLink.mWrites[0].mAddress, lAddress );
    EXPECT_EQ( mLink.mReads[0].mAddress, lAddress );
    EXPECT_EQ( mLink.mReads[1].mAddress, 0x7FFF'FFFF'0000'D800 );
    EXPECT_EQ( mLink.mWrites[1].mAddress, 0x7FFF'FFFF'0000'D800 );
}

TEST_F( RegisterAccessTest, SendsEveryBitOfAnAddress )
{
    mNet.Expect( Packet( {
                     { 0x42, 0x01 },             // key, flags
                     { 0x00, 0x80 },             // command: READREG
                     { 0x00, 0x04 },             // length
                     { 0xB1, 0x23 },             // request identifier
                     { 0xFE, 0xDC, 0xBA, 0x98 }, // address
                 } ) )
        .Reply( READREG_ACK );
    unsigned int lValue = 0;
    EXPECT_TRUE( mLink.ReadRegister( &lValue, 0xFEDCBA98 ).IsOK() );
    Rewind();
    mNet.Expect( Packet( {
                     { 0x42, 0x01 },             // key, flags
                     { 0x00, 0x80 },             // command: READREG
                     { 0x00, 0x04 },             // length
                     { 0xB1, 0x23 },             // request identifier
                     { 0xFF, 0xFF, 0xFF, 0xFC }, // address
                 } ) )
        .Reply( READREG_ACK );
    EXPECT_TRUE( mLink.ReadRegister( &lValue, -4 ).IsOK() );
    EXPECT_EQ( mLink.mReads.back().mAddress, -4 );
}

// The four operations, each with what a test of all of them needs.
struct Access
{
    const char* mName;
    Bytes mCommand;
    Bytes mAcknowledge;
    std::function<Result( TestLinkGEV&, uint8_t* )> mRun; // on four bytes of the caller's
};

const Access ACCESSES[] = {
    { "ReadRegister", READREG, READREG_ACK,
      []( TestLinkGEV& aLink, uint8_t* aData )
      {
          return aLink.ReadRegister( reinterpret_cast<unsigned int*>( aData ), 0x0A00 );
      } },
    { "WriteRegister", WRITEREG, WRITEREG_ACK,
      []( TestLinkGEV& aLink, uint8_t* )
      {
          const unsigned int lValue = 0x81020304;
          return aLink.WriteRegister( &lValue, 0x0A00, false );
      } },
    { "ReadMemory", ReadMem( 0x00, 0x04 ), ReadMemAck( 0x00, 0x08, DATA_4 ),
      []( TestLinkGEV& aLink, uint8_t* aData )
      {
          return aLink.ReadMemory( aData, 0xD800, 4 );
      } },
    { "WriteMemory", WriteMem( 0x01, 0x00, 0x08, DATA_4 ), WRITEMEM_ACK,
      []( TestLinkGEV& aLink, uint8_t* )
      {
          return aLink.WriteMemory( DATA_4.data(), 0xD800, 4, false );
      } },
};

TEST_F( RegisterAccessTest, IsOneTransactionWithOneIdentifier )
{
    for ( const Access& lAccess : ACCESSES )
    {
        const int lDrawn = mLink.mRequestIDsDrawn;
        const std::size_t lSent = mNet.GetSends().size();
        Rewind();
        GuardedArea lArea( 4 );
        mNet.Expect( lAccess.mCommand ).Reply( lAccess.mAcknowledge );
        EXPECT_TRUE( lAccess.mRun( mLink, lArea.Get() ).IsOK() ) << lAccess.mName;
        EXPECT_EQ( mLink.mRequestIDsDrawn, lDrawn + 1 );
        EXPECT_EQ( mNet.GetSends().size(), lSent + 1 );
    }
    EXPECT_EQ( mLink.mReads.size(), 2U );
    EXPECT_EQ( mLink.mWrites.size(), 2U );
}

TEST_F( RegisterAccessTest, ReturnsTheTransactionsFailureAndChangesNothing )
{
    const auto lExpectFailure = [this]( const Access& aAccess, const Result& aExpected )
    {
        Rewind();
        GuardedArea lArea( 4 );
        const Result lResult = aAccess.mRun( mLink, lArea.Get() );
        EXPECT_EQ( lResult.GetCode(), aExpected.GetCode() ) << aAccess.mName;
        EXPECT_EQ( lResult.GetOSCode(), aExpected.GetOSCode() ) << aAccess.mName;
        EXPECT_STREQ( lResult.GetDescription().GetAscii(), aExpected.GetDescription().GetAscii() )
            << aAccess.mName;
        EXPECT_TRUE( lArea.IsUntouched() ) << aAccess.mName;
        ExpectNoCallback();
    };
    mLink.mRetryCount = 2;
    for ( const Access& lAccess : ACCESSES )
    {
        mLog.Clear();
        mLink.mSocket = nullptr;
        lExpectFailure( lAccess, Result( 0x0017 ) );
        SocketUDP lClosed;
        mLink.mSocket = &lClosed;
        lExpectFailure( lAccess, Result( 0x0017 ) );
        mLink.mSocket = &mSocket;

        const Result lError( 0x4000, ECONNREFUSED, String( "no program listens" ) );
        mNet.Expect( lAccess.mCommand ).FailReceive( lError );
        lExpectFailure( lAccess, lError );
        ExpectLog( {} );

        mNet.Expect( lAccess.mCommand ).Silence().Expect( lAccess.mCommand ).Silence();
        lExpectFailure( lAccess, Result( 0x001E, 0, String( "Command link operation failure" ) ) );
        ExpectLog( { mLines.TIMEOUT, mLines.RETRY, mLines.TIMEOUT, mLines.FAILURE } );

        Bytes lRefusal = lAccess.mAcknowledge;
        lRefusal[0] = 0x80; // status: busy
        lRefusal[1] = 0x07;
        mNet.Expect( lAccess.mCommand ).Reply( lRefusal );
        lExpectFailure( lAccess,
                        Result( 0x4000, 0, String( "Busy status received from the device." ) ) );
    }
}

TEST_F( RegisterAccessTest, SurvivesEveryTruncationOfAGoodAnswerFollowedBySilence )
{
    for ( const Access& lAccess : ACCESSES )
    {
        for ( std::size_t lSize = 0; lSize < lAccess.mAcknowledge.size(); ++lSize )
        {
            Rewind();
            mLog.Clear();
            const long long lStart = GetElapsed();
            const Bytes lCut = Prefix( lAccess.mAcknowledge, lSize );
            mNet.Expect( lAccess.mCommand ).Reply( lCut );
            mNet.Expect( lAccess.mCommand ).Reply( lCut );
            mNet.Expect( lAccess.mCommand ).Reply( lCut );
            GuardedArea lArea( 4 );
            EXPECT_EQ( lAccess.mRun( mLink, lArea.Get() ).GetCode(), 0x001EU )
                << lAccess.mName << " " << lSize;
            EXPECT_EQ( GetElapsed(), lStart + 1200 );
            EXPECT_TRUE( lArea.IsUntouched() );
            ExpectLog( { mLines.UNEXPECTED, mLines.TIMEOUT, mLines.RETRY, mLines.UNEXPECTED,
                         mLines.TIMEOUT, mLines.RETRY, mLines.UNEXPECTED, mLines.TIMEOUT,
                         mLines.FAILURE } );
        }
    }
    ExpectNoCallback();
}

TEST_F( RegisterAccessTest, SurvivesEveryTruncationOfAGoodAnswerFollowedByTheWhole )
{
    for ( const Access& lAccess : ACCESSES )
    {
        for ( std::size_t lSize = 0; lSize < lAccess.mAcknowledge.size(); ++lSize )
        {
            Rewind();
            mLog.Clear();
            mNet.Expect( lAccess.mCommand )
                .Reply( Prefix( lAccess.mAcknowledge, lSize ) )
                .Reply( lAccess.mAcknowledge );
            GuardedArea lArea( 4 );
            EXPECT_TRUE( lAccess.mRun( mLink, lArea.Get() ).IsOK() )
                << lAccess.mName << " " << lSize;
            ExpectLog( { mLines.UNEXPECTED } );
        }
    }
    EXPECT_EQ( GetElapsed(), 0 );
    ExpectCounters( mLink, 0, 0, 0, 0 );
}

// Writes without acknowledge whose sends fail.

TEST_F( RegisterAccessTest, FailsToWriteWithoutAcknowledgeWhenEverySendIsRefused )
{
    const Result lRefusal( Result::GENERIC_ERROR, ENETDOWN );
    const unsigned int lValue = 0x81020304;
    for ( int lAttempt = 0; lAttempt < 3; ++lAttempt )
    {
        mNet.Expect( WRITEREG_NO_ACK ).Refuse( lRefusal );
    }
    EXPECT_EQ( mLink.WriteRegister( &lValue, 0x0A00, true ).GetCode(), 0x001EU );
    EXPECT_EQ( GetElapsed(), 1200 );
    ExpectCounters( mLink, 2, 2, 0, 3 );
    ExpectNoCallback();

    Rewind();
    const Bytes lWriteMem = WriteMem( 0x00, 0x00, 0x08, DATA_4 );
    for ( int lAttempt = 0; lAttempt < 3; ++lAttempt )
    {
        mNet.Expect( lWriteMem ).Refuse( lRefusal );
    }
    EXPECT_EQ( mLink.WriteMemory( DATA_4.data(), 0xD800, 4, true ).GetCode(), 0x001EU );
    EXPECT_EQ( GetElapsed(), 2400 );
    ExpectNoCallback();
}

TEST_F( RegisterAccessTest, WritesWithoutAcknowledgeOnceASendLeaves )
{
    const Result lRefusal( Result::GENERIC_ERROR, ENETDOWN );
    const unsigned int lValue = 0x81020304;
    mNet.Expect( WRITEREG_NO_ACK ).Refuse( lRefusal ).Expect( WRITEREG_NO_ACK );
    EXPECT_TRUE( mLink.WriteRegister( &lValue, 0x0A00, true ).IsOK() );
    EXPECT_EQ( GetElapsed(), 400 );
    ExpectTransfer( mLink.mWrites, &lValue, 0x0A00, GetHostBytes( 0x81020304 ) );
    ExpectLog( { mLines.UNABLE, mLines.TIMEOUT, mLines.RETRY } );
}

// The callbacks.

TEST_F( RegisterAccessTest, CallsBackOutsideTheMutex )
{
    int lFree = 0;
    const auto lCheck = [this, &lFree]
    {
        lFree += IsMutexFree( mLink ) ? 1 : 0;
    };
    mLink.mOnRead = lCheck;
    mLink.mOnWrite = lCheck;
    for ( const Access& lAccess : ACCESSES )
    {
        Rewind();
        GuardedArea lArea( 4 );
        mNet.Expect( lAccess.mCommand ).Reply( lAccess.mAcknowledge );
        EXPECT_TRUE( lAccess.mRun( mLink, lArea.Get() ).IsOK() ) << lAccess.mName;
    }
    Rewind();
    mNet.Expect( WRITEREG_NO_ACK );
    const unsigned int lValue = 0x81020304;
    EXPECT_TRUE( mLink.WriteRegister( &lValue, 0x0A00, true ).IsOK() );
    EXPECT_EQ( lFree, 5 );
}

TEST_F( RegisterAccessTest, LetsACallbackStartAnotherTransaction )
{
    unsigned int lInner = UNTOUCHED;
    mLink.mOnWrite = [this, &lInner]
    {
        Rewind();
        EXPECT_TRUE( mLink.ReadRegister( &lInner, 0x0A00 ).IsOK() );
    };
    mLink.mOnRead = [this]
    {
        mLink.mOnRead = nullptr;
        Rewind();
        EXPECT_TRUE( mLink.WriteMemory( DATA_4.data(), 0xD800, 4, false ).IsOK() );
    };
    mNet.Expect( READREG ).Reply( READREG_ACK );
    mNet.Expect( WriteMem( 0x01, 0x00, 0x08, DATA_4 ) ).Reply( WRITEMEM_ACK );
    mNet.Expect( READREG ).Reply( READREG_ACK );
    unsigned int lOuter = UNTOUCHED;
    EXPECT_TRUE( mLink.ReadRegister( &lOuter, 0x0A00 ).IsOK() );
    EXPECT_EQ( lOuter, 0x01020304U );
    EXPECT_EQ( lInner, 0x01020304U );
    EXPECT_EQ( mLink.mReads.size(), 2U );
    EXPECT_EQ( mLink.mWrites.size(), 1U );
}

TEST_F( RegisterAccessTest, ReturnsOkWhateverACallbackDoesToTheLink )
{
    mLink.mOnRead = [this]
    {
        (void)mSocket.Close(); /* cannot fail */
    };
    mNet.Expect( READREG ).Reply( READREG_ACK );
    unsigned int lValue = UNTOUCHED;
    EXPECT_TRUE( mLink.ReadRegister( &lValue, 0x0A00 ).IsOK() );
    EXPECT_EQ( lValue, 0x01020304U );
    EXPECT_EQ( mLink.ReadRegister( &lValue, 0x0A00 ).GetCode(), 0x0017U );
}

TEST_F( RegisterAccessTest, RunsThroughTheAbstractLink )
{
    HtBaseLib::BaseCommandLink& lLink = mLink;
    mNet.Expect( ReadMem( 0x00, 0x04 ) ).Reply( ReadMemAck( 0x00, 0x08, DATA_4 ) );
    GuardedArea lArea( 4 );
    EXPECT_TRUE( lLink.ReadMemory( lArea.Get(), 0xD800, 4 ).IsOK() );
    EXPECT_EQ( lArea.GetBytes(), DATA_4 );
    Rewind();
    mNet.Expect( WriteMem( 0x00, 0x00, 0x08, DATA_4 ) );
    EXPECT_TRUE( lLink.WriteMemory( DATA_4.data(), 0xD800, 4, true ).IsOK() );
    EXPECT_EQ( mLink.mReads.size(), 1U );
    EXPECT_EQ( mLink.mWrites.size(), 1U );
}

TEST_F( RegisterAccessTest, RunsWhileTheConnectionLostFlagIsSet )
{
    mLink.SetConnectionLost();
    for ( const Access& lAccess : ACCESSES )
    {
        Rewind();
        GuardedArea lArea( 4 );
        mNet.Expect( lAccess.mCommand ).Reply( lAccess.mAcknowledge );
        EXPECT_TRUE( lAccess.mRun( mLink, lArea.Get() ).IsOK() ) << lAccess.mName;
    }
    EXPECT_TRUE( mLink.GetConnectionLost() );
}

} // namespace
