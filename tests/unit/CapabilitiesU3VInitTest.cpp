// The record of a USB3 Vision device: what it holds before and after it was read, what each bit
// means, what a failure leaves behind, and what copies share.

#include "tests/support/GenCPPackets.h"
#include "tests/support/RegistersU3V.h"
#include "tests/support/ScriptedControlTest.h"

#include <CapabilitiesU3V.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace
{

using namespace TestSupport;
using HtBaseLib::CapabilitiesU3V;
using HtBaseLib::StringEncoding;
using QmUtilsLib::Result;
using WdUtilsLib::U3V::U3VGUID;

constexpr uint64_t SBRM = 0x1000;

// A record with what is meant for classes derived from it.
class Record : public CapabilitiesU3V
{
public:
    using CapabilitiesU3V::CapabilitiesU3V;
    using CapabilitiesU3V::UpdateABRM;
    using CapabilitiesU3V::UpdateSBRM;
};

// Numbers and flags as a text, so that two records can be compared.
std::string Join( const std::vector<unsigned long long>& aNumbers, const std::string& aFlags )
{
    std::string lText;
    for ( const unsigned long long lNumber : aNumbers )
    {
        char lDigits[20];
        std::snprintf( lDigits, sizeof( lDigits ), "%llX ", lNumber );
        lText += lDigits;
    }
    return lText + aFlags;
}

// Every answer of a record.
std::string Describe( const CapabilitiesU3V& aRecord )
{
    std::string lFlags;
    for ( const bool lFlag :
          { aRecord.IsUserNameAvailable(), aRecord.IsAccessPrivilegeAvailable(),
            aRecord.IsMessageChannelSupported(), aRecord.IsTimestampSupported(),
            aRecord.IsFamilyNameAvailable(), aRecord.IsSBRMSupported(),
            aRecord.IsEndianessRegistersSupported(), aRecord.IsWrittenLengthFieldSupported(),
            aRecord.IsSIRMAvailable(), aRecord.IsEIRMAvailable(), aRecord.IsIIDC2Available() } )
    {
        lFlags += lFlag ? '1' : '0';
    }
    return Join( { aRecord.GetGenCPVersion(), aRecord.GetMaxDeviceResponseTime(),
                   aRecord.GetManifestTableAddress(), aRecord.GetSBRMAddress(),
                   aRecord.GetTimestampIncrement(), aRecord.GetTimestampTickFrequency(),
                   aRecord.GetU3VVersion(), aRecord.GetMaxCommandTransferLength(),
                   aRecord.GetMaxAckTransferLength(), aRecord.GetStreamChannelCount(),
                   aRecord.GetSIRMAddress(), aRecord.GetSIRMLength(), aRecord.GetEIRMAddress(),
                   aRecord.GetEIRMLength(), aRecord.GetIIDC2Address(),
                   static_cast<unsigned long long>( aRecord.GetStringEncoding() ) },
                 lFlags );
}

constexpr unsigned long long NANOSECONDS = 1000000000;

// The values of a new record, and those of the record of the device below.
const std::string FRESH =
    Join( { 0, 0, 0, 0, 0, NANOSECONDS, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0 }, "00000000000" );
const std::string EVERYTHING =
    Join( { 0x00010203, 0x04050607, 0x100F0E0D0C0B0A09, SBRM, 0x1212121212121211, NANOSECONDS,
            0x16171817, 0x19181A1B, 0x1F1E1D1E, 1, 0x2122232425262728, 0x2B2A292D,
            0x2F2E2D2C2B2A2934, 0x35373737, 0x3836353433323141, 1 },
          "11111111111" );

class CapabilitiesU3VInit : public ScriptedControlTest
{
protected:
    CapabilitiesU3VInit()
    {
        mControl.Attach( [this]( const Bytes& aCommand ) { return mDevice.Answer( aCommand ); } );
        mDevice.SetBasics( SBRM, 512, 512 );
        Open();
    }

    // Numbers whose bytes all differ, and every bit.
    void SetEverything()
    {
        mDevice.Set4( 0x0000, 0x00010203 );
        mDevice.Set8( 0x01C4, 0x0F1F );
        mDevice.Set4( 0x01CC, 0x04050607 );
        mDevice.Set8( 0x01D0, 0x100F0E0D0C0B0A09 );
        mDevice.Set8( 0x01D8, SBRM );
        mDevice.Set8( 0x01FC, 0x1212121212121211 );
        mDevice.Set4( SBRM + 0x00, 0x16171817 );
        mDevice.Set8( SBRM + 0x04, 0x7 );
        mDevice.Set4( SBRM + 0x14, 0x19181A1B );
        mDevice.Set4( SBRM + 0x18, 0x1F1E1D1E );
        mDevice.Set4( SBRM + 0x1C, 1 );
        mDevice.Set8( SBRM + 0x20, 0x2122232425262728 );
        mDevice.Set4( SBRM + 0x28, 0x2B2A292D );
        mDevice.Set8( SBRM + 0x2C, 0x2F2E2D2C2B2A2934 );
        mDevice.Set4( SBRM + 0x34, 0x35373737 );
        mDevice.Set8( SBRM + 0x38, 0x3836353433323141 );
    }

    std::vector<std::string> GetReads() const
    {
        std::vector<std::string> lReads;
        for ( const RegistersU3V::Read& lRead : mDevice.GetReads() )
        {
            lReads.push_back( ToText( lRead ) );
        }
        return lReads;
    }

    Record mRecord{ GUID, nullptr };
};

const std::vector<std::string> ALL_READS = {
    "0x0000/4", "0x01C4/8", "0x01CC/4", "0x01D0/8", "0x01D8/8", "0x01FC/8", "0x1000/4", "0x1004/8",
    "0x1014/4", "0x1018/4", "0x101C/4", "0x1020/8", "0x1028/4", "0x102C/8", "0x1034/4", "0x1038/8",
};

} // namespace

TEST_F( CapabilitiesU3VInit, AFreshRecordIsEmpty )
{
    EXPECT_EQ( Describe( mRecord ), FRESH );
    EXPECT_FALSE( mRecord.IsInitialized() );
    EXPECT_EQ( mRecord.GetStringEncoding(), StringEncoding::ASCII );
    EXPECT_EQ( GetCallCount(), 0U );
    ExpectLog( {} );
}

TEST_F( CapabilitiesU3VInit, IgnoresTheSecondArgument )
{
    Record lRecord( GUID, reinterpret_cast<unsigned char*>( uintptr_t{ 16 } ) );
    EXPECT_EQ( Describe( lRecord ), FRESH );
    EXPECT_TRUE( lRecord.Init( &mLink ).IsOK() );
}

TEST_F( CapabilitiesU3VInit, HoldsTheValuesOfTheDevice )
{
    SetEverything();
    ExpectResult( mRecord.Init( &mLink ), 0x0000 );
    EXPECT_TRUE( mRecord.IsInitialized() );
    EXPECT_EQ( GetReads(), ALL_READS );
    EXPECT_EQ( Describe( mRecord ), EVERYTHING );
    EXPECT_EQ( mRecord.GetManifestTableAddress(), 0x100F0E0D0C0B0A09U );
    EXPECT_EQ( mRecord.GetMaxAckTransferLength(), 0x1F1E1D1EU );
}

TEST_F( CapabilitiesU3VInit, HoldsTheBytesAsTheLinkStoresThem )
{
    // A link that stores a run of bytes of its own.
    class ByteLink : public TestLinkU3V
    {
    public:
        Result ReadMemory( void* aData, long long aAddress, long long aSize ) override
        {
            const Bytes lBytes = aAddress == 0x01C4 || aAddress == SBRM_OF_BYTES + 4
                                     ? Bytes( 8 )
                                     : Pattern( static_cast<std::size_t>( aSize ), 0x11 );
            std::memcpy( aData, lBytes.data(), static_cast<std::size_t>( aSize ) );
            mSizes.push_back( aSize );
            return Result::OK;
        }
        const long long SBRM_OF_BYTES = []
        {
            long long lAddress = 0;
            std::memcpy( &lAddress, Pattern( 8, 0x11 ).data(), 8 );
            return lAddress;
        }();
        std::vector<long long> mSizes;
    };
    ByteLink lLink;
    ASSERT_TRUE( mRecord.Init( &lLink ).IsOK() );
    const unsigned int lShort = mRecord.GetMaxDeviceResponseTime();
    EXPECT_EQ( std::memcmp( &lShort, Pattern( 4, 0x11 ).data(), 4 ), 0 );
    const unsigned long long lLong = mRecord.GetManifestTableAddress();
    EXPECT_EQ( std::memcmp( &lLong, Pattern( 8, 0x11 ).data(), 8 ), 0 );
    EXPECT_THAT( lLink.mSizes, testing::ElementsAre( 4, 8, 4, 8, 8, 4, 8, 4, 4, 4, 8, 4 ) );
    EXPECT_EQ( GetCallCount(), 0U );
}

// Bits.

TEST_F( CapabilitiesU3VInit, EachBitOfTheDeviceIsOneAnswer )
{
    using Query = bool ( CapabilitiesU3V::* )() const;
    const std::map<unsigned int, Query> lQueries = {
        { 0, &CapabilitiesU3V::IsUserNameAvailable },
        { 1, &CapabilitiesU3V::IsAccessPrivilegeAvailable },
        { 2, &CapabilitiesU3V::IsMessageChannelSupported },
        { 3, &CapabilitiesU3V::IsTimestampSupported },
        { 8, &CapabilitiesU3V::IsFamilyNameAvailable },
        { 9, &CapabilitiesU3V::IsSBRMSupported },
        { 10, &CapabilitiesU3V::IsEndianessRegistersSupported },
        { 11, &CapabilitiesU3V::IsWrittenLengthFieldSupported },
    };
    SetEverything();
    mDevice.Set8( SBRM + 0x04, 0 );
    for ( unsigned int lBit = 0; lBit < 64; ++lBit )
    {
        mDevice.Set8( 0x01C4, uint64_t{ 1 } << lBit );
        Record lRecord( GUID, nullptr );
        ASSERT_TRUE( lRecord.Init( &mLink ).IsOK() );
        for ( const auto& lQuery : lQueries )
        {
            EXPECT_EQ( ( lRecord.*lQuery.second )(), lQuery.first == lBit ) << lBit;
        }
        const bool lIsEncoding = lBit >= 4 && lBit <= 7;
        EXPECT_EQ( lRecord.GetStringEncoding() == StringEncoding::ASCII, !lIsEncoding ) << lBit;
        EXPECT_FALSE( lRecord.IsSIRMAvailable() || lRecord.IsEIRMAvailable() ||
                      lRecord.IsIIDC2Available() );
    }
}

TEST_F( CapabilitiesU3VInit, EachBitOfTheProtocolIsOneAnswer )
{
    SetEverything();
    mDevice.Set8( 0x01C4, 0 );
    for ( unsigned int lBit = 0; lBit < 64; ++lBit )
    {
        mDevice.Set8( SBRM + 0x04, uint64_t{ 1 } << lBit );
        Record lRecord( GUID, nullptr );
        ASSERT_TRUE( lRecord.Init( &mLink ).IsOK() );
        EXPECT_EQ( lRecord.IsSIRMAvailable(), lBit == 0 );
        EXPECT_EQ( lRecord.IsEIRMAvailable(), lBit == 1 );
        EXPECT_EQ( lRecord.IsIIDC2Available(), lBit == 2 );
        EXPECT_EQ( Describe( lRecord ).substr( Describe( lRecord ).size() - 11, 8 ), "00000000" );
    }
}

TEST_F( CapabilitiesU3VInit, EncodingsBeyondTheThreeAreUnknown )
{
    for ( unsigned int lValue = 0; lValue < 16; ++lValue )
    {
        mDevice.Set8( 0x01C4, 0xFFFFFFFFFFFFF000 | lValue << 4 );
        Record lRecord( GUID, nullptr );
        ASSERT_TRUE( lRecord.Init( &mLink ).IsOK() );
        EXPECT_EQ( static_cast<uint32_t>( lRecord.GetStringEncoding() ),
                   lValue <= 2 ? lValue : 0xFFFFFFFF );
    }
}

// What is read.

TEST_F( CapabilitiesU3VInit, ReadsMapsByChannelsAndNotByTheirBits )
{
    for ( unsigned int lCase = 0; lCase < 64; ++lCase )
    {
        const bool lHasStream = ( lCase & 1 ) != 0;
        const bool lHasMessages = ( lCase & 2 ) != 0;
        const bool lHasIIDC2 = ( lCase & 4 ) != 0;
        const bool lHasTimestamps = ( lCase & 8 ) != 0;
        SetEverything();
        mDevice.Set4( SBRM + 0x1C, lHasStream ? 1 : 0 );
        mDevice.Set8( 0x01C4, ( lHasMessages ? 4U : 0U ) | ( lHasTimestamps ? 8U : 0U ) );
        mDevice.Set8( SBRM + 0x04, ( lHasIIDC2 ? 4U : 0U ) | lCase >> 4 ); // and SIRM, EIRM

        std::vector<std::string> lExpected( ALL_READS.begin(), ALL_READS.begin() + 5 );
        if ( lHasTimestamps )
        {
            lExpected.emplace_back( "0x01FC/8" );
        }
        lExpected.insert( lExpected.end(), ALL_READS.begin() + 6, ALL_READS.begin() + 11 );
        if ( lHasStream )
        {
            lExpected.insert( lExpected.end(), { "0x1020/8", "0x1028/4" } );
        }
        if ( lHasMessages )
        {
            lExpected.insert( lExpected.end(), { "0x102C/8", "0x1034/4" } );
        }
        if ( lHasIIDC2 )
        {
            lExpected.emplace_back( "0x1038/8" );
        }
        mDevice.ClearReads();
        Record lRecord( GUID, nullptr );
        ASSERT_TRUE( lRecord.Init( &mLink ).IsOK() );
        EXPECT_EQ( GetReads(), lExpected ) << lCase;
        EXPECT_EQ( lRecord.GetTimestampIncrement() != 0, lHasTimestamps );
        EXPECT_EQ( lRecord.GetSIRMAddress() != 0, lHasStream );
        EXPECT_EQ( lRecord.GetSIRMLength() != 0, lHasStream );
        EXPECT_EQ( lRecord.GetEIRMAddress() != 0, lHasMessages );
        EXPECT_EQ( lRecord.GetEIRMLength() != 0, lHasMessages );
        EXPECT_EQ( lRecord.GetIIDC2Address() != 0, lHasIIDC2 );
    }
}

TEST_F( CapabilitiesU3VInit, ReadsThroughTheVirtualReadMemory )
{
    // A link that has the registers itself.
    class TableLink : public TestLinkU3V
    {
    public:
        explicit TableLink( RegistersU3V& aDevice )
            : mDevice( aDevice )
        {
        }
        Result ReadMemory( void* aData, long long aAddress, long long aSize ) override
        {
            const Bytes lAck = mDevice.Answer(
                ReadMem( static_cast<uint64_t>( aAddress ), static_cast<uint16_t>( aSize ) ) );
            std::memcpy( aData, lAck.data() + 12, lAck.size() - 12 );
            return FromLittle( lAck, 4, 2 ) == 0 ? Result( Result::OK ) : Result( 0x4000, 5 );
        }

    private:
        RegistersU3V& mDevice;
    };
    SetEverything();
    TableLink lLink( mDevice );
    EXPECT_TRUE( mRecord.Init( &lLink ).IsOK() );
    EXPECT_EQ( GetReads(), ALL_READS );
    EXPECT_EQ( Describe( mRecord ), EVERYTHING );
    EXPECT_EQ( GetCallCount(), 0U );
}

// A thread that has seen the record initialised may read it, so the record must not change any
// more.
TEST_F( CapabilitiesU3VInit, AnInitFromACallbackOfItsOwnReadsIsRefused )
{
    SetEverything();
    CapabilitiesU3V lCopy( mRecord );
    std::size_t lCalls = 0;
    mLink.mOnRead = [&]
    {
        ++lCalls;
        ExpectResult( mRecord.Init( &mLink ), 0x001C );
        EXPECT_FALSE( mRecord.IsInitialized() );
    };
    EXPECT_TRUE( mRecord.Init( &mLink ).IsOK() );
    EXPECT_EQ( lCalls, ALL_READS.size() );
    EXPECT_EQ( GetReads(), ALL_READS );
    EXPECT_EQ( Describe( mRecord ), EVERYTHING );
    const Log lTexts = mLog.GetTexts();
    EXPECT_EQ(
        std::count( lTexts.begin(), lTexts.end(), "Reading device properties (1AB200C0FFEE)" ),
        static_cast<std::ptrdiff_t>( 1 + lCalls ) );

    // A copy is another record.
    mLink.mOnRead = [&]
    {
        mLink.mOnRead = nullptr;
        EXPECT_TRUE( CapabilitiesU3V( lCopy ).Init( &mLink ).IsOK() );
    };
    EXPECT_TRUE( lCopy.Init( &mLink ).IsOK() );
}

TEST_F( CapabilitiesU3VInit, CanBeTriedAgainAfterAnInitWithinAnInitThatFailed )
{
    SetEverything();
    mDevice.Refuse( 0x01CC, 0x8003 );
    mLink.mOnRead = [&]
    {
        ExpectResult( mRecord.Init( &mLink ), 0x001C );
    };
    EXPECT_EQ( mRecord.Init( &mLink ).GetCode(), 0x4000U );
    mLink.mOnRead = []
    {
        throw std::runtime_error( "of a callback" );
    };
    EXPECT_THROW( (void)mRecord.Init( &mLink ), std::runtime_error );
    EXPECT_FALSE( mRecord.IsInitialized() );
    mLink.mOnRead = nullptr;
    mDevice.Relent();
    EXPECT_TRUE( mRecord.Init( &mLink ).IsOK() );
    EXPECT_EQ( Describe( mRecord ), EVERYTHING );
}

// Failures.

TEST_F( CapabilitiesU3VInit, EndsWithTheFirstReadThatFails )
{
    for ( std::size_t lFailing = 0; lFailing < ALL_READS.size(); ++lFailing )
    {
        SetEverything();
        mDevice.Relent();
        mDevice.ClearReads();
        const uint64_t lAddress = std::stoull( ALL_READS[lFailing], nullptr, 16 );
        mDevice.Refuse( lAddress, 0x8006 );
        mLog.Clear();
        Record lRecord( GUID, nullptr );
        ExpectResult( lRecord.Init( &mLink ), 0x4000, 0x8006,
                      "Status GENCP_ACCESS_DENIED received from the device." );
        EXPECT_FALSE( lRecord.IsInitialized() );
        EXPECT_EQ( GetReads(),
                   std::vector<std::string>( ALL_READS.begin(),
                                             ALL_READS.begin() +
                                                 static_cast<std::ptrdiff_t>( lFailing ) + 1 ) );
        // Nothing is logged after the link's message.
        EXPECT_EQ( mLog.GetTexts().back(), "Status GENCP_ACCESS_DENIED received from the device." );

        // The next one begins at the beginning.
        mDevice.Relent();
        mDevice.ClearReads();
        EXPECT_TRUE( lRecord.Init( &mLink ).IsOK() );
        EXPECT_EQ( GetReads(), ALL_READS );
        EXPECT_EQ( Describe( lRecord ), EVERYTHING );
        EXPECT_TRUE( lRecord.IsInitialized() );
    }
}

TEST_F( CapabilitiesU3VInit, KeepsWhatWasReadBeforeAFailure )
{
    SetEverything();
    mDevice.Refuse( SBRM + 0x18, 0x8003 );
    ASSERT_FALSE( mRecord.Init( &mLink ).IsOK() );
    EXPECT_EQ( mRecord.GetGenCPVersion(), 0x00010203U );
    EXPECT_EQ( mRecord.GetMaxCommandTransferLength(), 0x19181A1BU );
    EXPECT_EQ( mRecord.GetMaxAckTransferLength(), 0U );
    EXPECT_TRUE( mRecord.IsIIDC2Available() );
    EXPECT_EQ( mRecord.GetIIDC2Address(), 0U );
}

TEST_F( CapabilitiesU3VInit, ClearsOnlyTheTimestampIncrementWhenItReadsAgain )
{
    SetEverything();
    mDevice.Refuse( SBRM + 0x38, 0x8003 );
    ASSERT_FALSE( mRecord.Init( &mLink ).IsOK() );
    EXPECT_EQ( mRecord.GetTimestampIncrement(), 0x1212121212121211U );

    // The device has lost timestamps, channels and IIDC2 meanwhile.
    mDevice.Relent();
    mDevice.Set8( 0x01C4, 0 );
    mDevice.Set4( SBRM + 0x1C, 0 );
    mDevice.Set8( SBRM + 0x04, 0 );
    ASSERT_TRUE( mRecord.Init( &mLink ).IsOK() );
    EXPECT_EQ( mRecord.GetTimestampIncrement(), 0U );
    EXPECT_EQ( mRecord.GetSIRMAddress(), 0x2122232425262728U );
    EXPECT_EQ( mRecord.GetSIRMLength(), 0x2B2A292DU );
    EXPECT_EQ( mRecord.GetEIRMAddress(), 0x2F2E2D2C2B2A2934U );
    EXPECT_EQ( mRecord.GetEIRMLength(), 0x35373737U );
    EXPECT_EQ( mRecord.GetIIDC2Address(), 0U );
}

TEST_F( CapabilitiesU3VInit, KeepsAFieldThatCannotBeReadAgain )
{
    SetEverything();
    mDevice.Refuse( SBRM + 0x38, 0x8003 );
    ASSERT_FALSE( mRecord.Init( &mLink ).IsOK() );
    mDevice.Relent();
    mDevice.Refuse( 0x01FC, 0x8003 );
    ASSERT_FALSE( mRecord.Init( &mLink ).IsOK() );
    EXPECT_EQ( mRecord.GetTimestampIncrement(), 0U );
    mDevice.Relent();
    mDevice.Refuse( 0x0000, 0x8003 );
    ASSERT_FALSE( mRecord.Init( &mLink ).IsOK() );
    EXPECT_EQ( mRecord.GetGenCPVersion(), 0x00010203U );
    EXPECT_EQ( mRecord.GetMaxAckTransferLength(), 0x1F1E1D1EU );
}

// Through its halves, since a record that was read to the end is not read again.
TEST_F( CapabilitiesU3VInit, KeepsEveryFieldButTheTimestampIncrementThatCannotBeReadAgain )
{
    for ( const std::string& lRead : ALL_READS )
    {
        SetEverything();
        mDevice.Relent();
        Record lRecord( GUID, nullptr );
        ASSERT_TRUE( lRecord.UpdateABRM( &mLink ).IsOK() );
        ASSERT_TRUE( lRecord.UpdateSBRM( &mLink ).IsOK() );
        mDevice.Refuse( std::stoull( lRead, nullptr, 16 ), 0x8003 );
        const bool lIsRead =
            lRecord.UpdateABRM( &mLink ).IsOK() && lRecord.UpdateSBRM( &mLink ).IsOK();
        EXPECT_FALSE( lIsRead );
        EXPECT_EQ( Describe( lRecord ) == EVERYTHING, lRead != "0x01FC/8" ) << lRead;
    }
}

TEST_F( CapabilitiesU3VInit, KeepsTheAddressOfIIDC2AfterTheDeviceDropsIt )
{
    SetEverything();
    ASSERT_TRUE( mRecord.UpdateABRM( &mLink ).IsOK() );
    ASSERT_TRUE( mRecord.UpdateSBRM( &mLink ).IsOK() );
    mDevice.Set8( SBRM + 0x04, 0 );
    ASSERT_TRUE( mRecord.UpdateSBRM( &mLink ).IsOK() );
    EXPECT_FALSE( mRecord.IsIIDC2Available() );
    EXPECT_EQ( mRecord.GetIIDC2Address(), 0x3836353433323141U );
}

// A device that reports no SBRM, and the address of the ABRM as that of the SBRM.
TEST_F( CapabilitiesU3VInit, ReadsTheSBRMAtItsReportedAddress )
{
    mDevice.SetBasics( 0, 512, 300 );
    mDevice.Set8( 0x01C4, 0 );
    mDevice.Set8( 0x0004, 0 );
    mDevice.Set4( 0x001C, 0 );
    ASSERT_TRUE( mRecord.Init( &mLink ).IsOK() );
    EXPECT_FALSE( mRecord.IsSBRMSupported() );
    EXPECT_THAT( GetReads(), testing::ElementsAre( "0x0000/4", "0x01C4/8", "0x01CC/4", "0x01D0/8",
                                                   "0x01D8/8", "0x0000/4", "0x0004/8", "0x0014/4",
                                                   "0x0018/4", "0x001C/4" ) );
    EXPECT_EQ( mRecord.GetMaxCommandTransferLength(), 512U );
    EXPECT_EQ( mRecord.GetMaxAckTransferLength(), 300U );
}

TEST_F( CapabilitiesU3VInit, ReturnsTheResultOfTheLink )
{
    TestLinkU3V lClosed;
    ExpectResult( mRecord.Init( &lClosed ), 0x0017 );
    mDevice.Silence( 0x01D8 );
    ExpectResult( mRecord.Init( &mLink ), 0x001E );
    EXPECT_FALSE( mRecord.IsInitialized() );
}

// A link whose limits do not even take these reads.
TEST_F( CapabilitiesU3VInit, ReturnsTheLinksRefusalOfASize )
{
    mDevice.SetBasics( SBRM, 64, 19 );
    mLink.UpdateMaxSizes();
    ASSERT_EQ( mLink.GetMaxAckSize(), 19U );
    ExpectResult( mRecord.Init( &mLink ), 0x4001, 0,
                  "Command of 20 bytes is larger than maximum command size, 19" );
    EXPECT_EQ( mRecord.GetGenCPVersion(), 0x00010002U );
}

TEST_F( CapabilitiesU3VInit, ReadsAnInitialisedRecordNeverAgain )
{
    SetEverything();
    ASSERT_TRUE( mRecord.Init( &mLink ).IsOK() );
    mDevice.ClearReads();
    mLog.Clear();
    TestLinkU3V lClosed;
    ExpectResult( mRecord.Init( &lClosed ), 0x0000 );
    ExpectResult( mRecord.Init( &mLink ), 0x0000 );
    EXPECT_TRUE( mDevice.GetReads().empty() );
    EXPECT_THAT( mLog.GetTexts(),
                 testing::ElementsAre( "Reading device properties (1AB200C0FFEE)",
                                       "Reading device properties (1AB200C0FFEE)" ) );
}

TEST_F( CapabilitiesU3VInit, ReadsItsHalvesForDerivedRecords )
{
    SetEverything();
    ASSERT_TRUE( mRecord.UpdateABRM( &mLink ).IsOK() );
    EXPECT_EQ( GetReads(), std::vector<std::string>( ALL_READS.begin(), ALL_READS.begin() + 6 ) );
    mDevice.ClearReads();
    ASSERT_TRUE( mRecord.UpdateSBRM( &mLink ).IsOK() );
    EXPECT_EQ( GetReads(), std::vector<std::string>( ALL_READS.begin() + 6, ALL_READS.end() ) );
    EXPECT_EQ( Describe( mRecord ), EVERYTHING );
    EXPECT_FALSE( mRecord.IsInitialized() );
}

TEST_F( CapabilitiesU3VInit, LogsNoIdentityIfThereIsNone )
{
    Record lNameless( U3VGUID(), nullptr );
    ASSERT_TRUE( lNameless.Init( &mLink ).IsOK() );
    EXPECT_EQ( mLog.GetTexts().front(), "Reading device properties ()" );
}

TEST( CapabilitiesU3VQuiet, LogsNothingBelowTheThreshold )
{
    const QmUtilsLib::Scripted::RecordingLogSink lLog( 20001 );
    WdTransportLayerLib::Scripted::ScriptedControl lControl;
    RegistersU3V lDevice;
    lDevice.SetBasics( SBRM, 2048, 2048 );
    lControl.Attach( [&lDevice]( const Bytes& aCommand ) { return lDevice.Answer( aCommand ); } );
    TestLinkU3V lLink;
    ASSERT_TRUE( lLink.Open( U3VGUID( "1AB200C0FFEE" ), "2-1" ).IsOK() );
    Record lRecord( U3VGUID( "1AB200C0FFEE" ), nullptr );
    EXPECT_TRUE( lRecord.Init( &lLink ).IsOK() );
    EXPECT_TRUE( lLog.GetEntries().empty() );
}

// Copies.

TEST_F( CapabilitiesU3VInit, ACopyHoldsWhatItsSourceHolds )
{
    SetEverything();
    Record lBefore( mRecord );
    ASSERT_TRUE( mRecord.Init( &mLink ).IsOK() );
    Record lAfter( mRecord );
    Record lAssigned( U3VGUID( "1AB2DEADBEEF" ), nullptr );
    EXPECT_EQ( &( lAssigned = mRecord ), &lAssigned );

    EXPECT_FALSE( lBefore.IsInitialized() );
    EXPECT_EQ( Describe( lBefore ), FRESH );
    EXPECT_TRUE( lAfter.IsInitialized() );
    EXPECT_EQ( Describe( lAfter ), EVERYTHING );
    EXPECT_TRUE( lAssigned.IsInitialized() );
    EXPECT_EQ( Describe( lAssigned ), EVERYTHING );

    mLog.Clear();
    EXPECT_TRUE( lAssigned.Init( &mLink ).IsOK() );
    EXPECT_THAT( mLog.GetTexts(),
                 testing::ElementsAre( "Reading device properties (1AB200C0FFEE)" ) );
    EXPECT_TRUE( lBefore.Init( &mLink ).IsOK() );
    EXPECT_EQ( Describe( lBefore ), EVERYTHING );

    lAfter = Record( GUID, nullptr );
    EXPECT_FALSE( lAfter.IsInitialized() );
    EXPECT_EQ( Describe( lAfter ), FRESH );
    EXPECT_TRUE( mRecord.IsInitialized() );
}

TEST_F( CapabilitiesU3VInit, ACopyAndItsSourceMayBeDestroyedInAnyOrder )
{
    for ( const bool lSourceFirst : { false, true } )
    {
        auto lSource = std::make_unique<Record>( GUID, nullptr );
        auto lCopy = std::make_unique<Record>( *lSource );
        ( lSourceFirst ? lSource : lCopy ).reset();
        Record& lLast = lSourceFirst ? *lCopy : *lSource;
        EXPECT_TRUE( lLast.Init( &mLink ).IsOK() );
        lLast = *&lLast; // to itself
        EXPECT_TRUE( lLast.IsInitialized() );
    }
}
