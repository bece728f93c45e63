#include "Simulators/U3V/VirtualDeviceU3V.h"

#include "tests/support/GenCPPackets.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

using namespace Simulators;
using TestSupport::FromLittle;
using TestSupport::GenCPAck;
using TestSupport::GenCPCommand;
using TestSupport::Little;
using TestSupport::operator+; // NOLINT(misc-unused-using-decls): used by its sign

namespace
{

using Ending = VirtualDeviceU3V::Ending;
using Kind = FaultU3V::Kind;

constexpr uint64_t MEMORY = 0x00100100;
constexpr uint64_t HIGH_MEMORY = 0x0123456700000000;
constexpr int64_t START_MS = 100000;

// Commands with a request identifier, as a control interface sends them.
Bytes ReadMem( uint64_t aAddress, size_t aCount, uint16_t aIdentifier = 1 )
{
    return TestSupport::ReadMem( aAddress, static_cast<uint16_t>( aCount ), aIdentifier );
}

Bytes WriteMem( uint64_t aAddress, const Bytes& aData, uint16_t aIdentifier = 1 )
{
    return TestSupport::WriteMem( aAddress, aData, aIdentifier );
}

// A device and a host with a clock that does not move between commands.
class VirtualDeviceU3VTest : public ::testing::Test
{
protected:
    VirtualDeviceU3V& Device()
    {
        if ( !mDevice )
        {
            mDevice.emplace( mConfiguration );
        }
        return *mDevice;
    }

    Ending Send( const Bytes& aBytes )
    {
        return Device().Receive( aBytes.data(), aBytes.size(), mNowMs );
    }

    VirtualDeviceU3V::Fetched Fetch( size_t aRoom = 2048 )
    {
        return Device().Fetch( aRoom, mNowMs );
    }

    // The one transfer that the device answers with.
    Bytes Ask( const Bytes& aCommand )
    {
        EXPECT_EQ( Ending::DONE, Send( aCommand ) );
        const VirtualDeviceU3V::Fetched lFetched = Fetch( 128 * 1024 );
        EXPECT_EQ( Ending::DONE, lFetched.mEnding );
        EXPECT_EQ( Ending::WAITING, Fetch().mEnding );
        return lFetched.mBytes;
    }

    uint64_t AskStatus( const Bytes& aCommand )
    {
        const Bytes lAck = Ask( aCommand );
        EXPECT_TRUE( FromLittle( lAck, 4, 2 ) == 0 || lAck.size() == 12 ); // refusals carry no data
        return FromLittle( lAck, 4, 2 );
    }

    ConfigurationU3V mConfiguration;
    std::optional<VirtualDeviceU3V> mDevice;
    int64_t mNowMs = START_MS;
};

TEST_F( VirtualDeviceU3VTest, AnswersAReadWithTheIdentifierOfTheCommand )
{
    EXPECT_EQ( GenCPAck( 0, 0x0801, 0xBEEF, { 0x02, 0x00, 0x01, 0x00 } ),
               Ask( ReadMem( 0x0000, 4, 0xBEEF ) ) );
}

TEST_F( VirtualDeviceU3VTest, WritesAndReportsTheLengthWritten )
{
    EXPECT_EQ( GenCPAck( 0, 0x0803, 7, { 0, 0, 3, 0 } ),
               Ask( WriteMem( MEMORY, { 1, 2, 3 }, 7 ) ) );
    EXPECT_EQ( GenCPAck( 0, 0x0801, 8, { 1, 2, 3, 0 } ), Ask( ReadMem( MEMORY, 4, 8 ) ) );
    EXPECT_EQ( GenCPAck( 0, 0x0803, 9, { 0, 0, 1, 0 } ), Ask( WriteMem( HIGH_MEMORY, { 5 }, 9 ) ) );
    EXPECT_EQ( GenCPAck( 0, 0x0801, 10, { 5 } ), Ask( ReadMem( HIGH_MEMORY, 1, 10 ) ) );
    EXPECT_EQ( GenCPAck( 0, 0x0801, 11, { 1 } ), Ask( ReadMem( MEMORY, 1, 11 ) ) );
}

TEST_F( VirtualDeviceU3VTest, WriteAcknowledgeHasNoLengthWithoutThatCapability )
{
    mConfiguration.mDeviceCapability &= ~CapabilityU3V::WRITTEN_LENGTH;
    EXPECT_EQ( GenCPAck( 0, 0x0803, 7, {} ), Ask( WriteMem( MEMORY, { 1, 2, 3 }, 7 ) ) );
}

TEST_F( VirtualDeviceU3VTest, DropsOtherPackets )
{
    const Bytes lGood = ReadMem( 0, 4 );
    for ( size_t lSize = 0; lSize < 12; lSize++ )
    {
        EXPECT_EQ( Ending::DONE, Device().Receive( lGood.data(), lSize, mNowMs ) );
    }
    EXPECT_EQ( Ending::DONE, Device().Receive( nullptr, 0, mNowMs ) );
    for ( size_t i = 0; i < 4; i++ )
    {
        Bytes lBad = lGood;
        lBad[i] ^= 1;
        EXPECT_EQ( Ending::DONE, Send( lBad ) );
    }
    EXPECT_EQ( Ending::WAITING, Fetch().mEnding );
    EXPECT_EQ( 17U, Device().GetCounters().mDropped );
    EXPECT_TRUE( Device().GetRequests().empty() );
}

TEST_F( VirtualDeviceU3VTest, RefusesEveryTruncationAfterTheHeader )
{
    const Bytes COMMANDS[] = { ReadMem( MEMORY, 4 ), WriteMem( MEMORY, { 1, 2, 3, 4 } ) };
    for ( const Bytes& lCommand : COMMANDS )
    {
        for ( size_t lSize = 12; lSize < lCommand.size(); lSize++ )
        {
            const Bytes lCut( lCommand.begin(), lCommand.begin() + static_cast<long>( lSize ) );
            EXPECT_EQ( 0x800EU, AskStatus( lCut ) );
        }
        EXPECT_EQ( 0x800EU, AskStatus( lCommand + Bytes{ 0 } ) );
    }
    EXPECT_EQ( 0U, Device().GetMemory().GetNumber( MEMORY, 4 ) );
}

TEST_F( VirtualDeviceU3VTest, RefusesEachMistakeWithItsStatus )
{
    const Bytes lRead = Little( MEMORY, 8 ) + Little( 0, 2 ) + Little( 4, 2 );
    // Invalid header.
    EXPECT_EQ( 0x800EU, AskStatus( GenCPCommand( 0x0800, 1, lRead, 0xC000 ) ) );
    EXPECT_EQ( 0x800EU, AskStatus( WriteMem( MEMORY, Bytes( 1005, 0 ) ) ) );
    EXPECT_EQ( 0x0000U, AskStatus( WriteMem( MEMORY, Bytes( 1004, 0 ) ) ) );
    // Not implemented.
    EXPECT_EQ( 0x8001U, AskStatus( GenCPCommand( 0x0804, 1, lRead ) ) );
    EXPECT_EQ( 0x8001U, AskStatus( GenCPCommand( 0x0801, 1, lRead ) ) );
    // Invalid parameter.
    EXPECT_EQ( 0x8002U, AskStatus( GenCPCommand( 0x0800, 1, Bytes( 11, 0 ) ) ) );
    EXPECT_EQ( 0x8002U, AskStatus( GenCPCommand( 0x0800, 1, Bytes( 13, 0 ) ) ) );
    EXPECT_EQ( 0x8002U, AskStatus( GenCPCommand( 0x0802, 1, Bytes( 7, 0 ) ) ) );
    EXPECT_EQ( 0x8002U, AskStatus( ReadMem( MEMORY, 0 ) ) );
    EXPECT_EQ( 0x8002U, AskStatus( WriteMem( MEMORY, {} ) ) );
    EXPECT_EQ( 0x8002U, AskStatus( ReadMem( MEMORY, 1013 ) ) );
    EXPECT_EQ( 0x0000U, AskStatus( ReadMem( MEMORY, 1012 ) ) );
    EXPECT_EQ( 0x8002U, AskStatus( GenCPCommand(
                            0x0800, 1, Little( MEMORY, 8 ) + Little( 1, 2 ) + Little( 4, 2 ) ) ) );
    // Invalid address.
    EXPECT_EQ( 0x8003U, AskStatus( ReadMem( 0x00F00000, 1 ) ) );
    EXPECT_EQ( 0x8003U, AskStatus( ReadMem( 0x024F, 2 ) ) );
    EXPECT_EQ( 0x8003U, AskStatus( ReadMem( UINT64_MAX, 1 ) ) );
    EXPECT_EQ( 0x8003U, AskStatus( ReadMem( UINT64_MAX - 1, 8 ) ) );
    EXPECT_EQ( 0x8003U, AskStatus( WriteMem( HIGH_MEMORY + 4095, { 1, 2 } ) ) );
    EXPECT_EQ( 0x8003U, AskStatus( ReadMem( 0x0123456800000000, 1 ) ) );
    // Write protect.
    EXPECT_EQ( 0x8004U, AskStatus( WriteMem( 0x0000, { 1 } ) ) );
    EXPECT_EQ( 0x8004U, AskStatus( WriteMem( 0x01C3, { 1, 2 } ) ) ); // its first byte may be
}

TEST_F( VirtualDeviceU3VTest, AllowsEmptyAccessIfConfigured )
{
    mConfiguration.mAllowsEmptyAccess = true;
    EXPECT_EQ( GenCPAck( 0, 0x0801, 1, {} ), Ask( ReadMem( MEMORY, 0 ) ) );
    EXPECT_EQ( GenCPAck( 0, 0x0803, 1, { 0, 0, 0, 0 } ), Ask( WriteMem( MEMORY, {} ) ) );
}

TEST_F( VirtualDeviceU3VTest, RequiresTheConfiguredAlignment )
{
    mConfiguration.mAlignment = 4;
    EXPECT_EQ( 0x8005U, AskStatus( ReadMem( MEMORY + 2, 4 ) ) );
    EXPECT_EQ( 0x8005U, AskStatus( ReadMem( MEMORY, 6 ) ) );
    EXPECT_EQ( 0x8005U, AskStatus( WriteMem( MEMORY + 1, { 1, 2, 3, 4 } ) ) );
    EXPECT_EQ( 0x0000U, AskStatus( ReadMem( MEMORY, 8 ) ) );
}

TEST_F( VirtualDeviceU3VTest, RefusesAConfiguredAddress )
{
    Device().RefuseAddress( MEMORY + 4, 0x8007 );
    EXPECT_EQ( 0x0000U, AskStatus( ReadMem( MEMORY, 4 ) ) );
    EXPECT_EQ( 0x8007U, AskStatus( ReadMem( MEMORY, 5 ) ) );
    EXPECT_EQ( 0x8007U, AskStatus( WriteMem( MEMORY + 4, { 1 } ) ) );
    EXPECT_EQ( 0x0000U, AskStatus( ReadMem( MEMORY + 5, 4 ) ) );
    Device().RefuseAddress( MEMORY + 4, 0 );
    EXPECT_EQ( 0x0000U, AskStatus( ReadMem( MEMORY, 5 ) ) );
}

TEST_F( VirtualDeviceU3VTest, ShowsItsTextsAndRegisters )
{
    mConfiguration.mUserName = "Left";
    const auto lText = [this]( uint64_t aAddress )
    {
        const Bytes lAck = Ask( ReadMem( aAddress, 64 ) );
        return std::string( reinterpret_cast<const char*>( lAck.data() ) + 12 );
    };
    EXPECT_EQ( "HtBase", lText( 0x0004 ) );
    EXPECT_EQ( "VirtualDeviceU3V", lText( 0x0044 ) );
    EXPECT_EQ( "Virtual", lText( 0x0084 ) );
    EXPECT_EQ( "1.0", lText( 0x00C4 ) );
    EXPECT_EQ( "Simulated device", lText( 0x0104 ) );
    EXPECT_EQ( "U3V-0001", lText( 0x0144 ) );
    EXPECT_EQ( "Left", lText( 0x0184 ) );
    const auto lNumber = [this]( uint64_t aAddress, size_t aSize )
    {
        return FromLittle( Ask( ReadMem( aAddress, aSize ) ), 12, aSize );
    };
    EXPECT_EQ( 0x0F0BU, lNumber( 0x01C4, 8 ) );
    EXPECT_EQ( 200U, lNumber( 0x01CC, 4 ) );
    const uint64_t lSbrm = lNumber( 0x01D8, 8 );
    EXPECT_EQ( 0x00010000U, lNumber( lSbrm + 0x00, 4 ) );
    EXPECT_EQ( 1U, lNumber( lSbrm + 0x04, 8 ) );
    EXPECT_EQ( 1024U, lNumber( lSbrm + 0x14, 4 ) );
    EXPECT_EQ( 1024U, lNumber( lSbrm + 0x18, 4 ) );
    EXPECT_EQ( 1U, lNumber( lSbrm + 0x1C, 4 ) );
    const uint64_t lSirm = lNumber( lSbrm + 0x20, 8 );
    EXPECT_EQ( 0x30U, lNumber( lSbrm + 0x28, 4 ) );
    EXPECT_EQ( 640U * 480U, lNumber( lSirm + 0x08, 8 ) );
    EXPECT_EQ( 0U, lNumber( lSbrm + 0x2C, 8 ) );
}

TEST_F( VirtualDeviceU3VTest, HasEventRegistersIfConfigured )
{
    mConfiguration.mDeviceCapability |= CapabilityU3V::MESSAGE_CHANNEL;
    const Bytes lAck = Ask( ReadMem( 0x00010000 + 0x2C, 12 ) );
    const uint64_t lEirm = FromLittle( lAck, 12, 8 );
    EXPECT_EQ( 0x0CU, FromLittle( lAck, 20, 4 ) );
    EXPECT_EQ( 0x0000U, AskStatus( WriteMem( lEirm, { 1, 0, 0, 0 } ) ) );
}

TEST_F( VirtualDeviceU3VTest, HasNoStreamRegistersIfConfigured )
{
    mConfiguration.mStreamChannels = 0;
    const Bytes lAck = Ask( ReadMem( 0x00010000 + 0x1C, 16 ) );
    EXPECT_EQ( GenCPAck( 0, 0x0801, 1, Bytes( 16, 0 ) ), lAck );
}

TEST_F( VirtualDeviceU3VTest, KeepsItsDescriptionWhereTheManifestSays )
{
    const Bytes lHead = Ask( ReadMem( 0x01D0, 8 ) );
    const uint64_t lTable = FromLittle( lHead, 12, 8 );
    const Bytes lEntry = Ask( ReadMem( lTable, 72 ) );
    EXPECT_EQ( 1U, FromLittle( lEntry, 12, 8 ) );
    const uint64_t lAddress = FromLittle( lEntry, 12 + 8 + 8, 8 );
    const uint64_t lSize = FromLittle( lEntry, 12 + 8 + 16, 8 );
    std::string lText;
    for ( uint64_t lAt = 0; lAt < lSize; lAt += 512 )
    {
        const Bytes lAck = Ask( ReadMem( lAddress + lAt, std::min<uint64_t>( 512, lSize - lAt ) ) );
        lText.append( lAck.begin() + 12, lAck.end() );
    }
    EXPECT_EQ( GetDescriptionU3V( mConfiguration ), lText );
    EXPECT_EQ( 0U, lText.find( "<?xml" ) );
    EXPECT_EQ( 0x8003U, AskStatus( ReadMem( lAddress + lSize, 1 ) ) );
}

TEST_F( VirtualDeviceU3VTest, LatchesItsTimestamp )
{
    mNowMs = 1234;
    EXPECT_EQ( 0U, AskStatus( WriteMem( 0x01F8, { 0, 0, 0, 0 } ) ) );
    EXPECT_EQ( 0U, FromLittle( Ask( ReadMem( 0x01F0, 8 ) ), 12, 8 ) );
    EXPECT_EQ( 0U, AskStatus( WriteMem( 0x01F8, { 1, 0, 0, 0 } ) ) );
    mNowMs = 5000;
    EXPECT_EQ( 1234000000U, FromLittle( Ask( ReadMem( 0x01F0, 8 ) ), 12, 8 ) );
}

TEST_F( VirtualDeviceU3VTest, ExecutesWithoutAnAcknowledgeThatIsNotAskedFor )
{
    EXPECT_EQ( Ending::DONE,
               Send( GenCPCommand( 0x0802, 1, Little( MEMORY, 8 ) + Bytes{ 9 }, 0 ) ) );
    EXPECT_EQ( Ending::WAITING, Fetch().mEnding );
    EXPECT_EQ( 9U, Device().GetMemory().GetNumber( MEMORY, 1 ) );
}

TEST_F( VirtualDeviceU3VTest, CountsWhatHappensAndNoticesSkippedIdentifiers )
{
    (void)Ask( ReadMem( 0, 4, 0xFFFF ) );
    (void)Ask( ReadMem( 0, 4, 0x0000 ) );
    (void)Ask( ReadMem( 0x00F00000, 4, 0x0001 ) );
    EXPECT_EQ( 0U, Device().GetCounters().mSkippedIds );
    (void)Ask( ReadMem( 0, 4, 0x0001 ) );
    (void)Ask( ReadMem( 0, 4, 0x0003 ) );
    const VirtualDeviceU3V::Counters& lCounters = Device().GetCounters();
    EXPECT_EQ( 2U, lCounters.mSkippedIds );
    EXPECT_EQ( 5U, lCounters.mReceived );
    EXPECT_EQ( 4U, lCounters.mExecuted );
    EXPECT_EQ( 1U, lCounters.mRefused );
    EXPECT_EQ( 5U, lCounters.mFetched );
    ASSERT_EQ( 5U, Device().GetRequests().size() );
    EXPECT_EQ( ReadMem( 0, 4, 0xFFFF ), Device().GetRequests().front() );
}

TEST_F( VirtualDeviceU3VTest, KeepsAtMostTheConfiguredNumberOfRequests )
{
    mConfiguration.mRequestsKept = 2;
    (void)Ask( ReadMem( 0, 1 ) );
    (void)Ask( ReadMem( 0, 2 ) );
    (void)Ask( ReadMem( 0, 3 ) );
    ASSERT_EQ( 2U, Device().GetRequests().size() );
    EXPECT_EQ( ReadMem( 0, 2 ), Device().GetRequests().front() );
}

TEST_F( VirtualDeviceU3VTest, ReturnsATransferInSeveralPartsOfWholePackets )
{
    mConfiguration.mPacketSize = 512;
    EXPECT_EQ( Ending::DONE, Send( ReadMem( MEMORY, 1000 ) ) );
    EXPECT_EQ( 512U, Fetch( 512 ).mBytes.size() );
    EXPECT_EQ( 500U, Fetch( 512 ).mBytes.size() );
    EXPECT_EQ( Ending::WAITING, Fetch( 512 ).mEnding );
}

TEST_F( VirtualDeviceU3VTest, LosesATransferThatIsFetchedInLessThanWholePackets )
{
    EXPECT_EQ( Ending::DONE, Send( ReadMem( 0, 4 ) ) );
    EXPECT_EQ( Ending::OVERRUN, Fetch( 15 ).mEnding );
    EXPECT_EQ( Ending::WAITING, Fetch().mEnding );
    EXPECT_EQ( Ending::DONE, Send( ReadMem( 0, 4 ) ) );
    EXPECT_EQ( Ending::DONE, Fetch( 16 ).mEnding );
}

TEST_F( VirtualDeviceU3VTest, CountsAPacketSizeOfZeroAsOne )
{
    mConfiguration.mPacketSize = 0;
    EXPECT_EQ( Ending::DONE, Send( ReadMem( 0, 4 ) ) );
    EXPECT_EQ( 15U, Fetch( 15 ).mBytes.size() );
    EXPECT_EQ( 1U, Fetch( 15 ).mBytes.size() );
}

// What a read of 4 bytes is answered with under each fault.
TEST_F( VirtualDeviceU3VTest, DamagesOneAcknowledgeAsConfigured )
{
    const Bytes lGood = GenCPAck( 0, 0x0801, 1, { 0x02, 0x00, 0x01, 0x00 } );
    const auto lAskWith = [this]( const FaultU3V& aFault )
    {
        Device().Inject( aFault );
        return Ask( ReadMem( 0, 4 ) );
    };
    EXPECT_EQ( GenCPAck( 0, 0x0801, 1, { 0x02, 0x00, 0x01 } ),
               lAskWith( { Kind::SHORT, 1, 1, 0 } ) );
    EXPECT_EQ( GenCPAck( 0, 0x0801, 1, {} ), lAskWith( { Kind::SHORT, 99, 1, 0 } ) );
    EXPECT_EQ( GenCPAck( 0, 0x0801, 1, { 0x02, 0x00, 0x01, 0x00, 0xDA } ),
               lAskWith( { Kind::LONG, 1, 1, 0 } ) );
    for ( uint32_t lSize = 0; lSize < 16; lSize++ )
    {
        EXPECT_EQ( Bytes( lGood.begin(), lGood.begin() + lSize ),
                   lAskWith( { Kind::TRUNCATED, lSize, 1, 0 } ) );
        Bytes lCorrupted = lGood;
        lCorrupted[lSize] = static_cast<uint8_t>( ~lCorrupted[lSize] );
        EXPECT_EQ( lCorrupted, lAskWith( { Kind::CORRUPTED, lSize, 1, 0 } ) );
    }
    EXPECT_EQ( lGood, lAskWith( { Kind::TRUNCATED, 99, 1, 0 } ) );
    EXPECT_EQ( lGood, lAskWith( { Kind::CORRUPTED, 16, 1, 0 } ) );
    EXPECT_EQ( GenCPAck( 0, 0x0803, 1, { 0x02, 0x00, 0x01, 0x00 } ),
               lAskWith( { Kind::WRONG_CODE, 0x0803, 1, 0 } ) );
    EXPECT_EQ( GenCPAck( 0, 0x0801, 3, { 0x02, 0x00, 0x01, 0x00 } ),
               lAskWith( { Kind::WRONG_ID, 2, 1, 0 } ) );
    Bytes lExpected = lGood;
    lExpected[8] = 0x22;
    lExpected[9] = 0x11;
    EXPECT_EQ( lExpected, lAskWith( { Kind::WRONG_LENGTH, 0x1122, 1, 0 } ) );
    lExpected = lGood;
    std::fill_n( lExpected.begin(), 4, static_cast<uint8_t>( 0 ) );
    EXPECT_EQ( lExpected, lAskWith( { Kind::WRONG_PREFIX, 0, 1, 0 } ) );
    EXPECT_EQ( GenCPAck( 0x8FFF, 0x0801, 1, {} ), lAskWith( { Kind::STATUS, 0x8FFF, 1, 0 } ) );
    EXPECT_EQ( lGood, Ask( ReadMem( 0, 4 ) ) ); // one fault to a command
    EXPECT_EQ( 0U, Device().GetFaultsLeft() );
}

TEST_F( VirtualDeviceU3VTest, DoesNotExecuteWhatAFaultRefuses )
{
    Device().Inject( { Kind::STATUS, 0x8006, 1, 0 } );
    EXPECT_EQ( 0x8006U, AskStatus( WriteMem( MEMORY, { 1 } ) ) );
    Device().Inject( { Kind::STALL_OUT, 0, 1, 0 } );
    EXPECT_EQ( Ending::HALTED, Send( WriteMem( MEMORY, { 1 } ) ) );
    EXPECT_EQ( 0U, Device().GetMemory().GetNumber( MEMORY, 1 ) );
    EXPECT_EQ( 1U, Device().GetCounters().mHalted );
}

TEST_F( VirtualDeviceU3VTest, ExecutesACommandThatItDoesNotAnswer )
{
    Device().Inject( { Kind::SILENT, 0, 1, 0 } );
    EXPECT_EQ( Ending::DONE, Send( WriteMem( MEMORY, { 1 } ) ) );
    EXPECT_EQ( Ending::WAITING, Fetch().mEnding );
    EXPECT_FALSE( Device().GetNextDueMs().has_value() );
    EXPECT_EQ( 1U, Device().GetMemory().GetNumber( MEMORY, 1 ) );
}

TEST_F( VirtualDeviceU3VTest, AnswersLateAndInOrder )
{
    Device().Inject( { Kind::DELAY, 50, 1, 0 } );
    EXPECT_EQ( Ending::DONE, Send( ReadMem( 0, 1, 1 ) ) );
    EXPECT_EQ( Ending::DONE, Send( ReadMem( 0, 2, 2 ) ) );
    EXPECT_EQ( START_MS + 50, Device().GetNextDueMs() );
    mNowMs += 49;
    EXPECT_EQ( Ending::WAITING, Fetch().mEnding );
    mNowMs += 1;
    EXPECT_EQ( GenCPAck( 0, 0x0801, 1, { 2 } ), Fetch().mBytes );
    EXPECT_EQ( GenCPAck( 0, 0x0801, 2, { 2, 0 } ), Fetch().mBytes );
}

TEST_F( VirtualDeviceU3VTest, SendsAPendingAcknowledgeForASlowCommand )
{
    Device().Inject( { Kind::PENDING, 1000, 2, 30 } );
    EXPECT_EQ( Ending::DONE, Send( ReadMem( 0, 1, 5 ) ) );
    const Bytes lPending = GenCPAck( 0, 0x0805, 5, { 0, 0, 0xE8, 0x03 } );
    EXPECT_EQ( lPending, Fetch().mBytes );
    EXPECT_EQ( Ending::WAITING, Fetch().mEnding );
    mNowMs += 30;
    EXPECT_EQ( lPending, Fetch().mBytes );
    EXPECT_EQ( START_MS + 60, Device().GetNextDueMs() );
    mNowMs += 30;
    EXPECT_EQ( GenCPAck( 0, 0x0801, 5, { 2 } ), Fetch().mBytes );
}

TEST_F( VirtualDeviceU3VTest, SendsEmptyAndStaleTransfersFirst )
{
    Device().Inject( { Kind::EMPTY, 0, 2, 0 } );
    EXPECT_EQ( Ending::DONE, Send( ReadMem( 0, 1, 5 ) ) );
    for ( int i = 0; i < 2; i++ )
    {
        const VirtualDeviceU3V::Fetched lFetched = Fetch();
        EXPECT_EQ( Ending::DONE, lFetched.mEnding );
        EXPECT_TRUE( lFetched.mBytes.empty() );
    }
    EXPECT_EQ( GenCPAck( 0, 0x0801, 5, { 2 } ), Fetch().mBytes );
    Device().Inject( { Kind::STALE, 0, 1, 0 } );
    EXPECT_EQ( Ending::DONE, Send( ReadMem( 0, 1, 6 ) ) );
    EXPECT_EQ( GenCPAck( 0, 0x0801, 5, Bytes( 4, 0xEE ) ), Fetch().mBytes );
    EXPECT_EQ( GenCPAck( 0, 0x0801, 6, { 2 } ), Fetch().mBytes );
}

TEST_F( VirtualDeviceU3VTest, StaysHaltedUntilThatEndpointIsCleared )
{
    Device().Inject( { Kind::STALL_OUT, 0, 1, 0 } );
    EXPECT_EQ( Ending::HALTED, Send( ReadMem( 0, 1 ) ) );
    EXPECT_EQ( Ending::HALTED, Send( ReadMem( 0, 1 ) ) );
    Device().ClearHalt( EndpointU3V::CONTROL_IN );
    EXPECT_EQ( Ending::HALTED, Send( ReadMem( 0, 1 ) ) );
    Device().ClearHalt( EndpointU3V::CONTROL_OUT );
    EXPECT_EQ( GenCPAck( 0, 0x0801, 1, { 2 } ), Ask( ReadMem( 0, 1 ) ) );

    Device().Inject( { Kind::STALL_IN, 0, 1, 0 } );
    EXPECT_EQ( Ending::DONE, Send( ReadMem( 0, 1 ) ) );
    EXPECT_EQ( Ending::HALTED, Fetch().mEnding );
    EXPECT_EQ( Ending::HALTED, Fetch().mEnding );
    Device().ClearHalt( EndpointU3V::CONTROL_IN );
    EXPECT_EQ( GenCPAck( 0, 0x0801, 1, { 2 } ), Ask( ReadMem( 0, 1 ) ) );
}

TEST_F( VirtualDeviceU3VTest, CanBeUnplugged )
{
    Device().Inject( { Kind::UNPLUG, 0, 1, 0 } );
    EXPECT_EQ( Ending::DONE, Send( ReadMem( 0, 1 ) ) );
    EXPECT_TRUE( Device().IsGone() );
    EXPECT_EQ( Ending::GONE, Fetch().mEnding );
    EXPECT_EQ( Ending::GONE, Send( ReadMem( 0, 1 ) ) );
}

TEST_F( VirtualDeviceU3VTest, IsCopiedWithItsWholeState )
{
    (void)Ask( WriteMem( MEMORY, { 1 } ) );
    VirtualDeviceU3V lCopy = Device();
    (void)Ask( WriteMem( MEMORY, { 2 } ) );
    EXPECT_EQ( 1U, lCopy.GetMemory().GetNumber( MEMORY, 1 ) );
    EXPECT_EQ( 2U, Device().GetMemory().GetNumber( MEMORY, 1 ) );
}

TEST_F( VirtualDeviceU3VTest, DescribesItselfOnUsb )
{
    const Bytes lDevice = GetDescriptor( mConfiguration, 1, 0 ).value();
    ASSERT_EQ( 18U, lDevice.size() );
    EXPECT_EQ( 0x1AB2U, FromLittle( lDevice, 8, 2 ) );
    const Bytes lConfiguration = GetDescriptor( mConfiguration, 2, 0 ).value();
    EXPECT_EQ( lConfiguration.size(), FromLittle( lConfiguration, 2, 2 ) );
    size_t lEnd = 0;
    while ( lEnd < lConfiguration.size() && lConfiguration[lEnd] != 0 )
    {
        lEnd += lConfiguration[lEnd]; // its length says where the next one begins
    }
    EXPECT_EQ( lConfiguration.size(), lEnd );
    EXPECT_EQ( ( Bytes{ 4, 3, 0x09, 0x04 } ), GetDescriptor( mConfiguration, 3, 0 ).value() );
    EXPECT_EQ( ( Bytes{ 14, 3, 'H', 0, 't', 0, 'B', 0, 'a', 0, 's', 0, 'e', 0 } ),
               GetDescriptor( mConfiguration, 3, 1 ).value() );
    EXPECT_FALSE( GetDescriptor( mConfiguration, 3, 8 ).has_value() ); // no user's name
    EXPECT_FALSE( GetDescriptor( mConfiguration, 3, 9 ).has_value() );
    EXPECT_FALSE( GetDescriptor( mConfiguration, 4, 0 ).has_value() );
}

} // namespace
