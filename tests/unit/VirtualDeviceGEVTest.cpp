#include "Simulators/GEV/VirtualDeviceGEV.h"

#include "tests/support/Packets.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

using namespace Simulators;
using TestSupport::operator+; // NOLINT(misc-unused-using-decls): used by its sign

namespace
{

constexpr Endpoint HOST = { 0xC0A80002, 40000 };
constexpr Endpoint OTHER_PORT = { 0xC0A80002, 40001 };
constexpr Endpoint OTHER_HOST = { 0xC0A80003, 40000 };
constexpr uint32_t MEMORY = 0x00100000;
constexpr uint32_t MEMORY_END = 0x00200000;
constexpr int64_t START_MS = 100000;

Bytes Half( uint32_t aValue )
{
    return { static_cast<uint8_t>( ( aValue >> 8 ) & 0xFF ),
             static_cast<uint8_t>( aValue & 0xFF ) };
}

Bytes Word( uint32_t aValue )
{
    return Half( aValue >> 16 ) + Half( aValue & 0xFFFF );
}

uint32_t WordAt( const Bytes& aBytes, size_t aOffset )
{
    uint32_t lValue = 0;
    for ( size_t i = aOffset; i < aOffset + 4; i++ )
    {
        lValue = ( lValue << 8 ) | aBytes.at( i );
    }
    return lValue;
}

uint32_t HalfAt( const Bytes& aBytes, size_t aOffset )
{
    return ( static_cast<uint32_t>( aBytes.at( aOffset ) ) << 8 ) | aBytes.at( aOffset + 1 );
}

// A device and a host with a clock that does not move between commands.
class VirtualDeviceGEVTest : public ::testing::Test
{
protected:
    void Make( const VirtualDeviceGEV::Configuration& aConfiguration )
    {
        mDevice.emplace( aConfiguration );
    }

    VirtualDeviceGEV& Device()
    {
        if ( !mDevice )
        {
            mDevice.emplace( VirtualDeviceGEV::Configuration() );
        }
        return *mDevice;
    }

    std::vector<Outgoing> Receive( const Bytes& aDatagram, const Endpoint& aFrom = HOST )
    {
        return Device().Receive( aFrom, aDatagram.data(), aDatagram.size(), mNowMs );
    }

    // A command with the next identifier.
    Bytes MakeCommand( uint16_t aCommand, const Bytes& aPayload, uint32_t aFlags = 0x01 )
    {
        mIdentifier++;
        return Half( 0x4200 | aFlags ) + Half( aCommand ) +
               Half( static_cast<uint32_t>( aPayload.size() ) ) + Half( mIdentifier ) + aPayload;
    }

    // The one acknowledge of a command, checked for what all acknowledges have in common.
    Bytes Ask( uint16_t aCommand, const Bytes& aPayload, const Endpoint& aFrom = HOST )
    {
        const std::vector<Outgoing> lOut = Receive( MakeCommand( aCommand, aPayload ), aFrom );
        EXPECT_EQ( 1u, lOut.size() );
        if ( lOut.size() != 1 )
        {
            return Bytes( 12, 0xEE );
        }
        EXPECT_TRUE( aFrom == lOut[0].mTo );
        EXPECT_EQ( 0, lOut[0].mDelayMs );
        EXPECT_EQ( aCommand + 1u, HalfAt( lOut[0].mBytes, 2 ) );
        EXPECT_EQ( lOut[0].mBytes.size() - 8, HalfAt( lOut[0].mBytes, 4 ) );
        EXPECT_EQ( mIdentifier, HalfAt( lOut[0].mBytes, 6 ) );
        return lOut[0].mBytes;
    }

    uint32_t AskStatus( uint16_t aCommand, const Bytes& aPayload, const Endpoint& aFrom = HOST )
    {
        return HalfAt( Ask( aCommand, aPayload, aFrom ), 0 );
    }

    uint32_t ReadStatus( uint32_t aAddress, const Endpoint& aFrom = HOST )
    {
        return AskStatus( 0x0080, Word( aAddress ), aFrom );
    }

    uint32_t WriteStatus( uint32_t aAddress, uint32_t aValue, const Endpoint& aFrom = HOST )
    {
        return AskStatus( 0x0082, Word( aAddress ) + Word( aValue ), aFrom );
    }

    uint32_t ReadMemStatus( uint32_t aAddress, uint32_t aCount, const Endpoint& aFrom = HOST )
    {
        return AskStatus( 0x0084, Word( aAddress ) + Word( aCount ), aFrom );
    }

    uint32_t WriteMemStatus( uint32_t aAddress, const Bytes& aData, const Endpoint& aFrom = HOST )
    {
        return AskStatus( 0x0086, Word( aAddress ) + aData, aFrom );
    }

    uint32_t Read( uint32_t aAddress, const Endpoint& aFrom = HOST )
    {
        const Bytes lAnswer = Ask( 0x0080, Word( aAddress ), aFrom );
        EXPECT_EQ( 0x0000u, HalfAt( lAnswer, 0 ) );
        return ( lAnswer.size() == 12 ) ? WordAt( lAnswer, 8 ) : 0xEEEEEEEE;
    }

    void TakeControl( const Endpoint& aFrom = HOST )
    {
        ASSERT_EQ( 0x0000u, WriteStatus( 0x0A00, 2, aFrom ) );
    }

    int64_t mNowMs = START_MS;
    uint16_t mIdentifier = 0xB000;

private:
    std::optional<VirtualDeviceGEV> mDevice;
};

VirtualDeviceGEV::Configuration MakeVersion( uint16_t aMajor, uint16_t aMinor )
{
    VirtualDeviceGEV::Configuration lConfiguration;
    lConfiguration.mVersionMajor = aMajor;
    lConfiguration.mVersionMinor = aMinor;
    return lConfiguration;
}

VirtualDeviceGEV::Configuration MakePendingDevice( uint16_t aAnnouncedMs, uint32_t aTakesMs,
                                                   uint16_t aTimes )
{
    VirtualDeviceGEV::Configuration lConfiguration;
    lConfiguration.mRequireControl = false;
    lConfiguration.mPending.mAnnouncedMs = aAnnouncedMs;
    lConfiguration.mPending.mTakesMs = aTakesMs;
    lConfiguration.mPending.mTimes = aTimes;
    return lConfiguration;
}

// One good command of each kind; those that write take control in front.
const Bytes DISCOVERY_COMMAND = {
    0x42,       // key
    0x01,       // flags: acknowledge
    0x00, 0x02, // DISCOVERY
    0x00, 0x00, // length
    0xB0, 0x01, // request identifier
};

const Bytes READREG_COMMAND = {
    0x42,                   // key
    0x01,                   // flags: acknowledge
    0x00, 0x80,             // READREG
    0x00, 0x04,             // length
    0xB0, 0x02,             // request identifier
    0x00, 0x00, 0x09, 0x38, // address: heartbeat timeout
};

const Bytes WRITEREG_COMMAND = {
    0x42,                   // key
    0x01,                   // flags: acknowledge
    0x00, 0x82,             // WRITEREG
    0x00, 0x10,             // length
    0xB0, 0x03,             // request identifier
    0x00, 0x00, 0x0A, 0x00, // address: control channel privilege
    0x00, 0x00, 0x00, 0x02, // value: control
    0x00, 0x00, 0xA0, 0x04, // address: second scratch register
    0x12, 0x34, 0x56, 0x78, // value
};

const Bytes READMEM_COMMAND = {
    0x42,                   // key
    0x01,                   // flags: acknowledge
    0x00, 0x84,             // READMEM
    0x00, 0x08,             // length
    0xB0, 0x04,             // request identifier
    0x00, 0x00, 0x00, 0xD8, // address: serial number
    0x00, 0x00,             // reserved
    0x00, 0x08,             // count
};

const Bytes WRITEMEM_COMMAND = {
    0x42,                   // key
    0x01,                   // flags: acknowledge
    0x00, 0x86,             // WRITEMEM
    0x00, 0x0C,             // length
    0xB0, 0x05,             // request identifier
    0x00, 0x10, 0x00, 0x00, // address: the memory
    0xDE, 0xAD, 0xBE, 0xEF, // data
    0x01, 0x02, 0x03, 0x04, // data
};

} // namespace

// The datagrams themselves.

TEST_F( VirtualDeviceGEVTest, AnswersDiscoveryWithTheBootstrapBlock )
{
    VirtualDeviceGEV::Configuration lConfiguration = MakeVersion( 1, 2 );
    lConfiguration.mMacAddress = { 0x02, 0x11, 0x22, 0x33, 0x44, 0x55 };
    lConfiguration.mIpAddress = 0xC0A80164;
    lConfiguration.mSubnetMask = 0xFFFFFF00;
    lConfiguration.mGateway = 0xC0A80101;
    lConfiguration.mManufacturerName = "Maker";
    lConfiguration.mModelName = "Model";
    lConfiguration.mDeviceVersion = "3.4";
    lConfiguration.mManufacturerInfo = "Info";
    lConfiguration.mSerialNumber = "S-7";
    lConfiguration.mUserName = "Left";
    Make( lConfiguration );
    const Bytes lHead = {
        0x00, 0x00,             // status
        0x00, 0x03,             // DISCOVERY acknowledge
        0x00, 0xF8,             // length
        0xB0, 0x01,             // identifier
        0x00, 0x01, 0x00, 0x02, // 0x0000 version 1.2
        0x80, 0x00, 0x00, 0x01, // 0x0004 device mode
        0x00, 0x00, 0x02, 0x11, // 0x0008 MAC address, high
        0x22, 0x33, 0x44, 0x55, // 0x000C MAC address, low
        0x00, 0x00, 0x00, 0x07, // 0x0010 supported IP configuration
        0x00, 0x00, 0x00, 0x06, // 0x0014 current IP configuration
        0x00, 0x00, 0x00, 0x00, // 0x0018 reserved
        0x00, 0x00, 0x00, 0x00, // 0x001C reserved
        0x00, 0x00, 0x00, 0x00, // 0x0020 reserved
        0xC0, 0xA8, 0x01, 0x64, // 0x0024 IP address
        0x00, 0x00, 0x00, 0x00, // 0x0028 reserved
        0x00, 0x00, 0x00, 0x00, // 0x002C reserved
        0x00, 0x00, 0x00, 0x00, // 0x0030 reserved
        0xFF, 0xFF, 0xFF, 0x00, // 0x0034 subnet mask
        0x00, 0x00, 0x00, 0x00, // 0x0038 reserved
        0x00, 0x00, 0x00, 0x00, // 0x003C reserved
        0x00, 0x00, 0x00, 0x00, // 0x0040 reserved
        0xC0, 0xA8, 0x01, 0x01, // 0x0044 gateway
    };
    const Bytes lTexts = Bytes{ 'M', 'a', 'k', 'e', 'r' } + Bytes( 27, 0 ) + // 0x0048
                         Bytes{ 'M', 'o', 'd', 'e', 'l' } + Bytes( 27, 0 ) + // 0x0068
                         Bytes{ '3', '.', '4' } + Bytes( 29, 0 ) +           // 0x0088
                         Bytes{ 'I', 'n', 'f', 'o' } + Bytes( 44, 0 ) +      // 0x00A8
                         Bytes{ 'S', '-', '7' } + Bytes( 13, 0 ) +           // 0x00D8
                         Bytes{ 'L', 'e', 'f', 't' } + Bytes( 12, 0 );       // 0x00E8
    const std::vector<Outgoing> lOut = Receive( DISCOVERY_COMMAND );
    ASSERT_EQ( 1u, lOut.size() );
    EXPECT_EQ( lHead + lTexts, lOut[0].mBytes );
    EXPECT_EQ( 0, lOut[0].mDelayMs );
    EXPECT_TRUE( HOST == lOut[0].mTo );
}

TEST_F( VirtualDeviceGEVTest, AcceptsOnlyDiscoveryFromABroadcast )
{
    EXPECT_TRUE( VirtualDeviceGEV::TakesFromBroadcast( DISCOVERY_COMMAND.data(),
                                                       DISCOVERY_COMMAND.size() ) );
    EXPECT_FALSE(
        VirtualDeviceGEV::TakesFromBroadcast( READREG_COMMAND.data(), READREG_COMMAND.size() ) );
    for ( size_t lSize = 0; lSize < DISCOVERY_COMMAND.size(); ++lSize )
    {
        EXPECT_FALSE( VirtualDeviceGEV::TakesFromBroadcast( DISCOVERY_COMMAND.data(), lSize ) );
    }
    Bytes lWrongKey = DISCOVERY_COMMAND;
    lWrongKey[0] = 0x43;
    EXPECT_FALSE( VirtualDeviceGEV::TakesFromBroadcast( lWrongKey.data(), lWrongKey.size() ) );
}

TEST_F( VirtualDeviceGEVTest, AnswersReadRegister )
{
    const Bytes lExpected = {
        0x00, 0x00,             // status
        0x00, 0x81,             // READREG acknowledge
        0x00, 0x04,             // length
        0xB0, 0x02,             // identifier
        0x00, 0x00, 0x0B, 0xB8, // value: 3000 ms
    };
    EXPECT_EQ( lExpected, Receive( READREG_COMMAND ).at( 0 ).mBytes );
}

TEST_F( VirtualDeviceGEVTest, AnswersWriteRegister )
{
    const Bytes lExpected = {
        0x00, 0x00, // status
        0x00, 0x83, // WRITEREG acknowledge
        0x00, 0x04, // length
        0xB0, 0x03, // identifier
        0x00, 0x00, // reserved
        0x00, 0x02, // index: both were written
    };
    EXPECT_EQ( lExpected, Receive( WRITEREG_COMMAND ).at( 0 ).mBytes );
    EXPECT_EQ( 0x12345678u, Device().ReadWord( 0xA004 ) );
}

TEST_F( VirtualDeviceGEVTest, AnswersReadMemory )
{
    const Bytes lExpected = {
        0x00, 0x00,             // status
        0x00, 0x85,             // READMEM acknowledge
        0x00, 0x0C,             // length
        0xB0, 0x04,             // identifier
        0x00, 0x00, 0x00, 0xD8, // address
        'V',  'D',  '-',  '0',  // data
        '0',  '0',  '1',  0x00, // data
    };
    EXPECT_EQ( lExpected, Receive( READMEM_COMMAND ).at( 0 ).mBytes );
}

TEST_F( VirtualDeviceGEVTest, AnswersWriteMemory )
{
    TakeControl();
    const Bytes lExpected = {
        0x00, 0x00, // status
        0x00, 0x87, // WRITEMEM acknowledge
        0x00, 0x04, // length
        0xB0, 0x05, // identifier
        0x00, 0x00, // reserved
        0x00, 0x08, // index: eight bytes were written
    };
    EXPECT_EQ( lExpected, Receive( WRITEMEM_COMMAND ).at( 0 ).mBytes );
    EXPECT_EQ( ( Bytes{ 0xDE, 0xAD, 0xBE, 0xEF, 0x01, 0x02, 0x03, 0x04 } ),
               Bytes( Device().GetMemory().begin(), Device().GetMemory().begin() + 8 ) );
}

TEST_F( VirtualDeviceGEVTest, SendsAPendingAcknowledgeForASlowCommand )
{
    Make( MakePendingDevice( 5000, 4999, 1 ) );
    const Bytes lPending = {
        0x00, 0x00, // status
        0x00, 0x89, // pending acknowledge
        0x00, 0x04, // length
        0xB0, 0x02, // identifier
        0x00, 0x00, // reserved
        0x13, 0x88, // time to completion: 5000 ms
    };
    const std::vector<Outgoing> lOut = Receive( READREG_COMMAND );
    ASSERT_EQ( 2u, lOut.size() );
    EXPECT_EQ( lPending, lOut[0].mBytes );
    EXPECT_EQ( 0, lOut[0].mDelayMs );
    EXPECT_TRUE( HOST == lOut[0].mTo );
    EXPECT_EQ( 0x0081u, HalfAt( lOut[1].mBytes, 2 ) );
    EXPECT_EQ( 4999, lOut[1].mDelayMs );
    EXPECT_TRUE( HOST == lOut[1].mTo );
}

// What is dropped and what is refused.

TEST_F( VirtualDeviceGEVTest, DropsDatagramsShorterThanAHeader )
{
    for ( size_t lSize = 0; lSize < 8; lSize++ )
    {
        const Bytes lPart( READREG_COMMAND.begin(),
                           READREG_COMMAND.begin() + static_cast<std::ptrdiff_t>( lSize ) );
        EXPECT_TRUE( Receive( lPart ).empty() );
    }
    EXPECT_TRUE( Device().Receive( HOST, nullptr, 0, mNowMs ).empty() );
    EXPECT_EQ( 9u, Device().GetOddities().mTooShort );
    EXPECT_EQ( 0u, Device().GetTotal().mReceived );
}

TEST_F( VirtualDeviceGEVTest, DropsAWrongKeyAndAZeroIdentifier )
{
    Bytes lDatagram = READREG_COMMAND;
    lDatagram[0] = 0x43;
    EXPECT_TRUE( Receive( lDatagram ).empty() );
    EXPECT_EQ( 1u, Device().GetOddities().mWrongKey );
    lDatagram = READREG_COMMAND;
    lDatagram[6] = 0;
    lDatagram[7] = 0;
    EXPECT_TRUE( Receive( lDatagram ).empty() );
    EXPECT_EQ( 1u, Device().GetOddities().mZeroIdentifier );
    EXPECT_TRUE( Device().GetRequests().empty() );
}

TEST_F( VirtualDeviceGEVTest, RefusesEveryTruncationOfACommand )
{
    for ( const Bytes& lCommand :
          { READREG_COMMAND, WRITEREG_COMMAND, READMEM_COMMAND, WRITEMEM_COMMAND } )
    {
        for ( size_t lSize = 8; lSize < lCommand.size(); lSize++ )
        {
            const Bytes lPart( lCommand.begin(),
                               lCommand.begin() + static_cast<std::ptrdiff_t>( lSize ) );
            const std::vector<Outgoing> lOut = Receive( lPart );
            ASSERT_EQ( 1u, lOut.size() );
            EXPECT_EQ( 0x800Eu, HalfAt( lOut[0].mBytes, 0 ) );
        }
    }
    EXPECT_FALSE( Device().GetHolder( mNowMs ) );
    EXPECT_EQ( 0u, Device().GetTotal().mExecuted );
}

TEST_F( VirtualDeviceGEVTest, ReportsAWrongLengthFieldAsInvalidHeader )
{
    Bytes lDatagram = WRITEREG_COMMAND;
    lDatagram[5] = 0x08;
    const Bytes lExpected = {
        0x80, 0x0E, // status: invalid header
        0x00, 0x83, // WRITEREG acknowledge
        0x00, 0x04, // length
        0xB0, 0x03, // identifier
        0x00, 0x00, // reserved
        0x00, 0x00, // index: nothing was written
    };
    EXPECT_EQ( lExpected, Receive( lDatagram ).at( 0 ).mBytes );
    EXPECT_EQ( 0u, Device().ReadWord( 0x0A00 ) );
}

TEST_F( VirtualDeviceGEVTest, RefusesUnknownCommands )
{
    const Bytes lCommand = {
        0x42,       // key
        0x01,       // flags: acknowledge
        0x00, 0x04, // FORCEIP
        0x00, 0x00, // length
        0xB0, 0x01, // request identifier
    };
    const Bytes lExpected = {
        0x80, 0x01, // status: not implemented
        0x00, 0x05, // acknowledge code
        0x00, 0x00, // length
        0xB0, 0x01, // identifier
    };
    EXPECT_EQ( lExpected, Receive( lCommand ).at( 0 ).mBytes );
    for ( const uint16_t lCode :
          std::initializer_list<uint16_t>{ 0x0000, 0x0001, 0x0081, 0x0088, 0x0100, 0xFFFE } )
    {
        EXPECT_EQ( 0x8001u, AskStatus( lCode, {} ) );
    }
    EXPECT_EQ( 7u, Device().GetCounters( 0x0004 ).mRefused );
}

TEST_F( VirtualDeviceGEVTest, RefusesPayloadsThatDoNotSuitTheCommand )
{
    TakeControl();
    const uint32_t lInvalid = 0x8002;
    EXPECT_EQ( lInvalid, AskStatus( 0x0002, Word( 0 ) ) );
    EXPECT_EQ( lInvalid, AskStatus( 0x0080, {} ) );
    EXPECT_EQ( lInvalid, AskStatus( 0x0080, Word( 0 ) + Half( 0 ) ) );
    EXPECT_EQ( lInvalid, AskStatus( 0x0080, Bytes( 544, 0 ) ) );
    EXPECT_EQ( lInvalid, AskStatus( 0x0082, {} ) );
    EXPECT_EQ( lInvalid, AskStatus( 0x0082, Word( 0xA000 ) ) );
    EXPECT_EQ( lInvalid, AskStatus( 0x0082, Bytes( 544, 0 ) ) );
    EXPECT_EQ( lInvalid, AskStatus( 0x0084, Word( 0 ) ) );
    EXPECT_EQ( lInvalid, AskStatus( 0x0084, Word( 0 ) + Word( 4 ) + Word( 0 ) ) );
    EXPECT_EQ( lInvalid, ReadMemStatus( 0, 0 ) );
    EXPECT_EQ( lInvalid, ReadMemStatus( 0, 3 ) );
    EXPECT_EQ( lInvalid, ReadMemStatus( 0, 540 ) );
    EXPECT_EQ( lInvalid, AskStatus( 0x0086, {} ) );
    EXPECT_EQ( lInvalid, WriteMemStatus( MEMORY, {} ) );
    EXPECT_EQ( lInvalid, WriteMemStatus( MEMORY, { 1, 2, 3 } ) );
    EXPECT_EQ( lInvalid, WriteMemStatus( MEMORY, Bytes( 540, 1 ) ) );
    EXPECT_EQ( Bytes( 540, 0 ),
               Bytes( Device().GetMemory().begin(), Device().GetMemory().begin() + 540 ) );
}

TEST_F( VirtualDeviceGEVTest, AcceptsTheLongestCommands )
{
    TakeControl();
    Bytes lPairs;
    for ( uint32_t i = 0; i < 67; i++ )
    {
        lPairs = lPairs + Word( MEMORY + 4 * i ) + Word( i + 1 );
    }
    const Bytes lWritten = Ask( 0x0082, lPairs );
    EXPECT_EQ( 0x0000u, HalfAt( lWritten, 0 ) );
    EXPECT_EQ( 67u, HalfAt( lWritten, 10 ) );
    Bytes lAddresses;
    for ( uint32_t i = 0; i < 135; i++ )
    {
        lAddresses = lAddresses + Word( MEMORY + 4 * i );
    }
    const Bytes lRead = Ask( 0x0080, lAddresses );
    ASSERT_EQ( 548u, lRead.size() );
    EXPECT_EQ( 67u, WordAt( lRead, 8 + 4 * 66 ) );
    EXPECT_EQ( 0u, WordAt( lRead, 8 + 4 * 67 ) );
    EXPECT_EQ( 0x0000u, WriteMemStatus( MEMORY, Bytes( 536, 0x5A ) ) );
    const Bytes lBlock = Ask( 0x0084, Word( MEMORY ) + Word( 536 ) );
    EXPECT_EQ( Word( MEMORY ) + Bytes( 536, 0x5A ), Bytes( lBlock.begin() + 8, lBlock.end() ) );
}

TEST_F( VirtualDeviceGEVTest, RefusesBadAlignment )
{
    TakeControl();
    for ( uint32_t i = 1; i < 4; i++ )
    {
        EXPECT_EQ( 0x8005u, ReadStatus( 0xA000 + i ) );
        EXPECT_EQ( 0x8005u, WriteStatus( 0xA000 + i, 1 ) );
        EXPECT_EQ( 0x8005u, ReadMemStatus( MEMORY + i, 4 ) );
        EXPECT_EQ( 0x8005u, WriteMemStatus( MEMORY + i, Word( 1 ) ) );
    }
}

TEST_F( VirtualDeviceGEVTest, RefusesInvalidAddresses )
{
    TakeControl();
    for ( const uint32_t lAddress : { 0x0018u, 0x0D40u, 0x9FFCu, 0xA04Cu, 0xA110u, MEMORY - 4,
                                      MEMORY_END, 0x80000000u, 0xFFFFFFFCu } )
    {
        EXPECT_EQ( 0x8003u, ReadStatus( lAddress ) ) << lAddress;
        EXPECT_EQ( 0x8003u, WriteStatus( lAddress, 1 ) ) << lAddress;
        EXPECT_EQ( 0x8003u, WriteMemStatus( lAddress, Word( 1 ) ) ) << lAddress;
    }
    EXPECT_EQ( 0x8003u, ReadMemStatus( 0x0D40, 4 ) );
    EXPECT_EQ( 0x8003u, ReadMemStatus( MEMORY - 4, 8 ) );
    EXPECT_EQ( 0x8003u, ReadMemStatus( MEMORY_END - 4, 8 ) );
    EXPECT_EQ( 0x8003u, ReadMemStatus( 0xFFFFFFFC, 8 ) );
    EXPECT_EQ( 0x8003u, WriteMemStatus( 0xFFFFFFFC, Bytes( 8, 1 ) ) );
    EXPECT_EQ( 0x0000u, ReadMemStatus( MEMORY_END - 8, 8 ) );
}

TEST_F( VirtualDeviceGEVTest, RefusesWritesToReadOnlyRegisters )
{
    TakeControl();
    for ( const uint32_t lAddress :
          { 0x0000u, 0x0024u, 0x0048u, 0x0200u, 0x0904u, 0x0934u, 0x0940u, 0xA040u, 0x10000u } )
    {
        const uint32_t lBefore = Device().ReadWord( lAddress );
        EXPECT_EQ( 0x8004u, WriteStatus( lAddress, ~lBefore ) ) << lAddress;
        EXPECT_EQ( 0x8004u, WriteMemStatus( lAddress, Word( ~lBefore ) ) ) << lAddress;
        EXPECT_EQ( lBefore, Read( lAddress ) ) << lAddress;
    }
}

TEST_F( VirtualDeviceGEVTest, AnswersBusyAsOftenAsAsked )
{
    TakeControl();
    EXPECT_EQ( 0x0000u, WriteStatus( 0xA048, 3 ) );
    EXPECT_EQ( 0x4854424Cu, Read( 0xA040 ) );
    EXPECT_EQ( 3u, Read( 0xA048 ) );
    EXPECT_EQ( 0x8007u, ReadStatus( 0xA044 ) );
    EXPECT_EQ( 0x8007u, WriteStatus( 0xA044, 9 ) );
    EXPECT_EQ( 0x8007u, ReadMemStatus( 0xA044, 4 ) );
    EXPECT_EQ( 0u, Read( 0xA044 ) );
    EXPECT_EQ( 0x0000u, WriteStatus( 0xA044, 9 ) );
    EXPECT_EQ( 9u, Read( 0xA044 ) );
}

TEST_F( VirtualDeviceGEVTest, EachByteOfTheBusyWordIsBusy )
{
    VirtualDeviceGEV::Configuration lConfiguration;
    lConfiguration.mStrict = false;
    Make( lConfiguration );
    ASSERT_TRUE( Device().WriteWord( Register::BUSY_COUNT, 100 ) );
    EXPECT_EQ( 0x0000u, ReadMemStatus( Register::BUSY_WORD - 1, 1 ) );
    for ( uint32_t i = 0; i < 4; i++ )
    {
        EXPECT_EQ( 0x8007u, ReadMemStatus( Register::BUSY_WORD + i, 1 ) );
    }
    EXPECT_EQ( 0x0000u, ReadMemStatus( Register::BUSY_WORD + 4, 1 ) );
}

TEST_F( VirtualDeviceGEVTest, RefusedReadCarriesTheEarlierValues )
{
    const Bytes lExpected = Half( 0x8003 ) + Half( 0x0081 ) + Half( 8 ) + Half( 0xB001 ) +
                            Word( 0x00020000 ) + Word( 3000 );
    EXPECT_EQ( lExpected,
               Ask( 0x0080, Word( 0x0000 ) + Word( 0x0938 ) + Word( 0x0018 ) + Word( 0x0000 ) ) );
    EXPECT_EQ( Half( 0x8003 ) + Half( 0x0085 ) + Half( 0 ) + Half( 0xB002 ),
               Ask( 0x0084, Word( MEMORY - 4 ) + Word( 8 ) ) );
}

TEST_F( VirtualDeviceGEVTest, RefusedWriteNamesTheFirstThatFailed )
{
    TakeControl();
    const Bytes lRegisters =
        Ask( 0x0082, Word( 0xA000 ) + Word( 1 ) + Word( 0xA004 ) + Word( 2 ) + Word( 0xA040 ) +
                         Word( 3 ) + Word( 0xA008 ) + Word( 4 ) );
    EXPECT_EQ( 0x8004u, HalfAt( lRegisters, 0 ) );
    EXPECT_EQ( 2u, HalfAt( lRegisters, 10 ) );
    EXPECT_EQ( 2u, Device().ReadWord( 0xA004 ) );
    EXPECT_EQ( 0u, Device().ReadWord( 0xA008 ) );
    const Bytes lMemory = Ask( 0x0086, Word( MEMORY_END - 8 ) + Bytes( 12, 0x77 ) );
    EXPECT_EQ( 0x8003u, HalfAt( lMemory, 0 ) );
    EXPECT_EQ( 8u, HalfAt( lMemory, 10 ) );
    EXPECT_EQ( 0x77777777u, Device().ReadWord( MEMORY_END - 4 ) );
}

TEST_F( VirtualDeviceGEVTest, RefusesCommandsThatItsCapabilitiesExclude )
{
    VirtualDeviceGEV::Configuration lConfiguration;
    lConfiguration.mGvcpCapability = 0;
    Make( lConfiguration );
    TakeControl();
    EXPECT_EQ( 0x8001u, WriteMemStatus( MEMORY, Word( 1 ) ) );
    EXPECT_EQ( 0x8002u, AskStatus( 0x0080, Word( 0 ) + Word( 4 ) ) );
    EXPECT_EQ( 0x8002u,
               AskStatus( 0x0082, Word( 0xA000 ) + Word( 4 ) + Word( 0xA004 ) + Word( 4 ) ) );
    EXPECT_EQ( 0x0000u, WriteStatus( 0xA000, 1 ) );
    EXPECT_EQ( 0x8004u, WriteStatus( 0x00E8, 1 ) );
    EXPECT_EQ( 0x8003u, ReadStatus( 0x0954 ) );
    EXPECT_EQ( 0x8003u, ReadStatus( 0x0A04 ) );
}

TEST_F( VirtualDeviceGEVTest, WritesWithoutAcknowledgeAreExecutedAndNotAnswered )
{
    TakeControl();
    const Bytes lGood = MakeCommand( 0x0082, Word( 0xA000 ) + Word( 5 ), 0x00 );
    EXPECT_TRUE( Receive( lGood ).empty() );
    EXPECT_EQ( 5u, Device().ReadWord( 0xA000 ) );
    const Bytes lBlock = MakeCommand( 0x0086, Word( MEMORY ) + Word( 6 ), 0x00 );
    EXPECT_TRUE( Receive( lBlock ).empty() );
    EXPECT_EQ( 6u, Device().ReadWord( MEMORY ) );
    const Bytes lBad = MakeCommand( 0x0082, Word( 0xA040 ) + Word( 5 ), 0x00 );
    EXPECT_TRUE( Receive( lBad ).empty() );
    EXPECT_TRUE( Receive( MakeCommand( 0x0040, {}, 0x00 ) ).empty() );
    EXPECT_EQ( 1u, Device().GetCounters( 0x0082 ).mRefused );
    EXPECT_EQ( 1u, Device().GetCounters( 0x0040 ).mRefused );
    EXPECT_EQ( 1u, Device().GetTotal().mAnswers );
}

TEST_F( VirtualDeviceGEVTest, ReadsAndDiscoveryAreAlwaysAnswered )
{
    EXPECT_EQ( 1u, Receive( MakeCommand( 0x0080, Word( 0 ), 0x00 ) ).size() );
    EXPECT_EQ( 1u, Receive( MakeCommand( 0x0084, Word( 0 ) + Word( 4 ), 0x00 ) ).size() );
    EXPECT_EQ( 1u, Receive( MakeCommand( 0x0002, {}, 0x00 ) ).size() );
    EXPECT_EQ( 3u, Device().GetOddities().mReadWithoutAckFlag );
}

TEST_F( VirtualDeviceGEVTest, NotesAReservedFieldThatIsNotZero )
{
    EXPECT_EQ( 0x0000u, AskStatus( 0x0084, Word( 0 ) + Half( 1 ) + Half( 4 ) ) );
    EXPECT_EQ( 1u, Device().GetOddities().mReservedNotZero );
}

TEST_F( VirtualDeviceGEVTest, LenientDeviceAcceptsAnyLengthAndAlignment )
{
    VirtualDeviceGEV::Configuration lConfiguration;
    lConfiguration.mStrict = false;
    Make( lConfiguration );
    TakeControl();
    EXPECT_EQ( 0x0000u, WriteMemStatus( MEMORY + 1, { 1, 2, 3, 4, 5 } ) );
    EXPECT_EQ( ( Bytes{ 0, 1, 2, 3, 4, 5, 0, 0 } ),
               Bytes( Device().GetMemory().begin(), Device().GetMemory().begin() + 8 ) );
    const Bytes lThree = Ask( 0x0084, Word( MEMORY + 2 ) + Word( 3 ) );
    EXPECT_EQ( ( Bytes{ 2, 3, 4 } ), Bytes( lThree.begin() + 12, lThree.end() ) );
    EXPECT_EQ( 0x03040500u, Read( MEMORY + 3 ) );
    EXPECT_EQ( 0x8003u, ReadMemStatus( MEMORY_END - 1, 2 ) );
    EXPECT_EQ( 0x0000u, WriteMemStatus( MEMORY_END - 1, { 9 } ) );
    EXPECT_EQ( 9u, Device().GetMemory().back() );
    EXPECT_EQ( 0x8002u, ReadMemStatus( MEMORY, 537 ) );
    Bytes lLongLength = READREG_COMMAND;
    lLongLength[5] = 0x40;
    EXPECT_EQ( 0x0000u, HalfAt( Receive( lLongLength ).at( 0 ).mBytes, 0 ) );
    EXPECT_EQ( 0x0000u, AskStatus( 0x0002, { 1, 2, 3 } ) );
}

TEST_F( VirtualDeviceGEVTest, LenientDeviceGuardsControlAgainstUnalignedWrites )
{
    VirtualDeviceGEV::Configuration lConfiguration;
    lConfiguration.mStrict = false;
    Make( lConfiguration );
    EXPECT_EQ( 0x8006u, WriteMemStatus( 0x0A01, { 0, 0, 2 } ) );
    TakeControl();
    EXPECT_EQ( 0x0000u, WriteMemStatus( 0x0A01, { 0, 0, 0 } ) );
    EXPECT_FALSE( Device().GetHolder( mNowMs ) );
}

// Control and heartbeat.

TEST_F( VirtualDeviceGEVTest, RefusesWritesWhileControlIsFree )
{
    EXPECT_EQ( 0x8006u, WriteStatus( 0xA000, 1 ) );
    EXPECT_EQ( 0x8006u, WriteMemStatus( MEMORY, Word( 1 ) ) );
    EXPECT_EQ( 0u, Read( 0xA000 ) );
    EXPECT_EQ( 0x0000u, WriteStatus( 0x0A00, 0 ) );
    EXPECT_FALSE( Device().GetHolder( mNowMs ) );
}

TEST_F( VirtualDeviceGEVTest, AcceptsWritesFromAnyHostIfControlIsNotRequired )
{
    VirtualDeviceGEV::Configuration lConfiguration;
    lConfiguration.mRequireControl = false;
    Make( lConfiguration );
    EXPECT_EQ( 0x0000u, WriteStatus( 0xA000, 1 ) );
    TakeControl();
    EXPECT_EQ( 0x8006u, WriteStatus( 0xA000, 2, OTHER_PORT ) );
}

TEST_F( VirtualDeviceGEVTest, OnlyTheHolderWrites )
{
    TakeControl();
    EXPECT_TRUE( Device().GetHolder( mNowMs ) == HOST );
    EXPECT_EQ( 0x0000u, WriteStatus( 0xA000, 1 ) );
    for ( const Endpoint& lOther : { OTHER_PORT, OTHER_HOST } )
    {
        EXPECT_EQ( 0x8006u, WriteStatus( 0xA000, 2, lOther ) );
        EXPECT_EQ( 0x8006u, WriteMemStatus( MEMORY, Word( 2 ), lOther ) );
        EXPECT_EQ( 0x8006u, WriteStatus( 0x0A00, 2, lOther ) );
        EXPECT_EQ( 0x8006u, WriteStatus( 0x0A00, 0, lOther ) );
        EXPECT_EQ( 1u, Read( 0xA000, lOther ) );
        EXPECT_EQ( 2u, Read( 0x0A00, lOther ) );
    }
    EXPECT_TRUE( Device().GetHolder( mNowMs ) == HOST );
}

TEST_F( VirtualDeviceGEVTest, HolderReleasesControl )
{
    TakeControl();
    EXPECT_EQ( 40000u, Read( 0x0A04 ) );
    EXPECT_EQ( 0xC0A80002u, Read( 0x0A14 ) );
    EXPECT_EQ( 0x0000u, WriteStatus( 0x0D00, 1234 ) );
    EXPECT_EQ( 0x0000u, WriteStatus( 0x0B00, 1235 ) );
    EXPECT_EQ( 0x0000u, WriteStatus( 0x0A00, 0 ) );
    EXPECT_EQ( 0u, Read( 0x0A00 ) );
    EXPECT_EQ( 0u, Read( 0x0A04 ) );
    EXPECT_EQ( 0u, Read( 0x0A14 ) );
    EXPECT_EQ( 0u, Read( 0x0D00 ) );
    EXPECT_EQ( 0u, Read( 0x0B00 ) );
    EXPECT_EQ( 0x0000u, WriteStatus( 0x0A00, 2, OTHER_HOST ) );
    EXPECT_EQ( 0x8006u, WriteStatus( 0xA000, 1 ) );
}

TEST_F( VirtualDeviceGEVTest, ExclusiveAccessKeepsOthersFromReading )
{
    EXPECT_EQ( 0x0000u, WriteStatus( 0x0A00, 1 ) );
    EXPECT_EQ( 0x0000u, ReadStatus( 0xA000 ) );
    EXPECT_EQ( 0x8006u, ReadStatus( 0xA000, OTHER_PORT ) );
    EXPECT_EQ( 0x8006u, ReadMemStatus( MEMORY, 4, OTHER_HOST ) );
    EXPECT_EQ( 0x8006u, ReadMemStatus( 0x0A00, 8, OTHER_HOST ) );
    EXPECT_EQ( 1u, Read( 0x0A00, OTHER_HOST ) );
    EXPECT_EQ( 0x0000u, ReadMemStatus( 0x0A00, 4, OTHER_HOST ) );
    EXPECT_EQ( 0x0000u, AskStatus( 0x0002, {}, OTHER_HOST ) );
    EXPECT_EQ( 0x0000u, WriteStatus( 0x0A00, 2 ) );
    EXPECT_EQ( 0x0000u, ReadStatus( 0xA000, OTHER_PORT ) );
}

TEST_F( VirtualDeviceGEVTest, SilenceOfTheHolderFreesControl )
{
    TakeControl();
    EXPECT_EQ( 0x0000u, WriteStatus( 0x0D00, 1234 ) );
    mNowMs += 3000;
    EXPECT_EQ( 0x8006u, WriteStatus( 0x0A00, 2, OTHER_HOST ) );
    EXPECT_TRUE( Device().GetHolder( mNowMs ) == HOST );
    mNowMs += 1;
    EXPECT_FALSE( Device().GetHolder( mNowMs ) );
    EXPECT_EQ( 0u, Read( 0x0A00, OTHER_HOST ) );
    EXPECT_EQ( 0u, Read( 0x0D00, OTHER_HOST ) );
    EXPECT_EQ( 0x0000u, WriteStatus( 0x0A00, 2, OTHER_HOST ) );
    EXPECT_EQ( 0x8006u, WriteStatus( 0xA000, 1 ) );
}

TEST_F( VirtualDeviceGEVTest, EachCompleteCommandOfTheHolderRestartsTheHeartbeat )
{
    TakeControl();
    const std::vector<Bytes> lCommands = { Word( 0x0A00 ), Word( 0x0018 ) };
    for ( const Bytes& lPayload : lCommands )
    {
        mNowMs += 3000;
        (void)Ask( 0x0080, lPayload );
        EXPECT_TRUE( Device().GetHolder( mNowMs + 3000 ) == HOST );
    }
    mNowMs += 3000;
    (void)Receive( { 0x42, 0x01, 0x00, 0x80, 0x00, 0x04, 0x00 } );       // no whole header
    (void)Receive( { 0x42, 0x01, 0x00, 0x80, 0x00, 0x04, 0x00, 0x01 } ); // cut off
    EXPECT_FALSE( Device().GetHolder( mNowMs + 1 ) );
}

TEST_F( VirtualDeviceGEVTest, HeartbeatTimeoutIsAtLeastHalfASecond )
{
    TakeControl();
    EXPECT_EQ( 0x0000u, WriteStatus( 0x0938, 499 ) );
    EXPECT_EQ( 500u, Read( 0x0938 ) );
    EXPECT_EQ( 0x0000u, WriteMemStatus( 0x0938, Word( 600 ) ) );
    EXPECT_EQ( 600u, Read( 0x0938 ) );
    EXPECT_TRUE( Device().GetHolder( mNowMs + 600 ) == HOST );
    EXPECT_FALSE( Device().GetHolder( mNowMs + 601 ) );
    EXPECT_EQ( 0x8006u, WriteStatus( 0x0938, 1000, OTHER_HOST ) );
    VirtualDeviceGEV::Configuration lConfiguration;
    lConfiguration.mHeartbeatTimeoutMs = 0;
    Make( lConfiguration );
    EXPECT_EQ( 500u, Read( 0x0938 ) );
}

TEST_F( VirtualDeviceGEVTest, HeartbeatCanBeDisabled )
{
    TakeControl();
    EXPECT_EQ( 0x0000u, WriteStatus( 0x0954, 1 ) );
    EXPECT_TRUE( Device().GetHolder( mNowMs + 1000000 ) == HOST );
    EXPECT_EQ( 0x0000u, WriteStatus( 0x0954, 0 ) );
    EXPECT_FALSE( Device().GetHolder( mNowMs + 1000000 ) );
}

TEST_F( VirtualDeviceGEVTest, HolderStaysWhileTheDeviceWorks )
{
    VirtualDeviceGEV::Configuration lConfiguration = MakePendingDevice( 10000, 9000, 1 );
    lConfiguration.mRequireControl = true;
    lConfiguration.mPending.mCommands = { 0x0086 };
    Make( lConfiguration );
    TakeControl();
    EXPECT_EQ( 2u, Receive( WRITEMEM_COMMAND ).size() );
    EXPECT_TRUE( Device().GetHolder( mNowMs + 12000 ) == HOST );
    EXPECT_FALSE( Device().GetHolder( mNowMs + 12001 ) );
}

// Pending acknowledges and repeated commands.

TEST_F( VirtualDeviceGEVTest, SendsAsManyPendingAcknowledgesAsConfigured )
{
    Make( MakePendingDevice( 700, 600, 3 ) );
    const std::vector<Outgoing> lOut = Receive( READREG_COMMAND );
    ASSERT_EQ( 4u, lOut.size() );
    for ( size_t i = 0; i < 3; i++ )
    {
        EXPECT_EQ( 0x0089u, HalfAt( lOut[i].mBytes, 2 ) );
        EXPECT_EQ( 700u, HalfAt( lOut[i].mBytes, 10 ) );
        EXPECT_EQ( static_cast<int64_t>( 600 * i ), lOut[i].mDelayMs );
    }
    EXPECT_EQ( 0x0081u, HalfAt( lOut[3].mBytes, 2 ) );
    EXPECT_EQ( 1800, lOut[3].mDelayMs );
    EXPECT_EQ( 3u, Device().GetCounters( 0x0080 ).mPendings );
    EXPECT_EQ( 1u, Device().GetCounters( 0x0080 ).mAnswers );
}

TEST_F( VirtualDeviceGEVTest, SendsNothingDuringWorkWithoutPendingAcknowledges )
{
    VirtualDeviceGEV::Configuration lOld = MakePendingDevice( 700, 600, 3 );
    lOld.mVersionMajor = 1;
    lOld.mVersionMinor = 0;
    lOld.mGvcpCapability = 0xFFFFFFFF;
    VirtualDeviceGEV::Configuration lPlain = MakePendingDevice( 700, 600, 3 );
    lPlain.mGvcpCapability = 0xFFFFFFDF;
    for ( const auto& lConfiguration : { lOld, lPlain, MakePendingDevice( 700, 600, 0 ) } )
    {
        Make( lConfiguration );
        const std::vector<Outgoing> lOut = Receive( READREG_COMMAND );
        ASSERT_EQ( 1u, lOut.size() );
        EXPECT_EQ( 0x0081u, HalfAt( lOut[0].mBytes, 2 ) );
        EXPECT_EQ( 600, lOut[0].mDelayMs );
    }
    lOld.mPending.mAlways = true;
    Make( lOld );
    EXPECT_EQ( 4u, Receive( READREG_COMMAND ).size() );
}

TEST_F( VirtualDeviceGEVTest, SendsPendingAcknowledgesFromVersion1_1On )
{
    VirtualDeviceGEV::Configuration lConfiguration = MakePendingDevice( 700, 600, 1 );
    lConfiguration.mVersionMajor = 1;
    lConfiguration.mVersionMinor = 1;
    Make( lConfiguration );
    EXPECT_EQ( 2u, Receive( READREG_COMMAND ).size() );
}

TEST_F( VirtualDeviceGEVTest, SendsNoPendingAcknowledgeForRefusedOrUnacknowledgedCommands )
{
    Make( MakePendingDevice( 700, 600, 1 ) );
    EXPECT_EQ( 0x8003u, ReadStatus( 0x0018 ) );
    EXPECT_EQ( 0x0000u, AskStatus( 0x0002, {} ) );
    EXPECT_TRUE( Receive( MakeCommand( 0x0082, Word( 0xA000 ) + Word( 1 ), 0x00 ) ).empty() );
    EXPECT_EQ( 0u, Device().GetTotal().mPendings );
}

TEST_F( VirtualDeviceGEVTest, RepeatedCommandIsAnsweredAgainAndNotExecutedAgain )
{
    Make( MakePendingDevice( 0, 0, 0 ) );
    const Bytes lCommand = MakeCommand( 0x0082, Word( 0xA000 ) + Word( 1 ) );
    const std::vector<Outgoing> lFirst = Receive( lCommand );
    ASSERT_EQ( 1u, lFirst.size() );
    EXPECT_TRUE( Device().WriteWord( 0xA000, 99 ) );
    const std::vector<Outgoing> lSecond = Receive( lCommand );
    ASSERT_EQ( 1u, lSecond.size() );
    EXPECT_EQ( lFirst[0].mBytes, lSecond[0].mBytes );
    EXPECT_EQ( 99u, Device().ReadWord( 0xA000 ) );
    EXPECT_EQ( 1u, Device().GetCounters( 0x0082 ).mExecuted );
    EXPECT_EQ( 1u, Device().GetCounters( 0x0082 ).mRepeated );
    EXPECT_EQ( 2u, Device().GetCounters( 0x0082 ).mAnswers );
}

TEST_F( VirtualDeviceGEVTest, RepeatedCommandWithoutAcknowledgeIsNotExecutedAgain )
{
    Make( MakePendingDevice( 0, 0, 0 ) );
    const Bytes lCommand = MakeCommand( 0x0082, Word( 0xA000 ) + Word( 1 ), 0x00 );
    EXPECT_TRUE( Receive( lCommand ).empty() );
    EXPECT_TRUE( Device().WriteWord( 0xA000, 99 ) );
    EXPECT_TRUE( Receive( lCommand ).empty() );
    EXPECT_EQ( 99u, Device().ReadWord( 0xA000 ) );
}

TEST_F( VirtualDeviceGEVTest, RepeatedCommandDuringTheWorkGetsAPendingAcknowledge )
{
    Make( MakePendingDevice( 500, 300, 2 ) );
    const Bytes lCommand = MakeCommand( 0x0082, Word( 0xA000 ) + Word( 1 ) );
    EXPECT_EQ( 3u, Receive( lCommand ).size() );
    mNowMs += 599;
    const std::vector<Outgoing> lMeanwhile = Receive( lCommand );
    ASSERT_EQ( 1u, lMeanwhile.size() );
    EXPECT_EQ( 0x0089u, HalfAt( lMeanwhile[0].mBytes, 2 ) );
    EXPECT_EQ( 0, lMeanwhile[0].mDelayMs );
    mNowMs += 1;
    const std::vector<Outgoing> lAfterwards = Receive( lCommand );
    ASSERT_EQ( 1u, lAfterwards.size() );
    EXPECT_EQ( 0x0083u, HalfAt( lAfterwards[0].mBytes, 2 ) );
    EXPECT_EQ( 0, lAfterwards[0].mDelayMs );
    EXPECT_EQ( 1u, Device().GetCounters( 0x0082 ).mExecuted );
}

TEST_F( VirtualDeviceGEVTest, RepeatedCommandDuringSilentWorkIsNotAnsweredTwice )
{
    Make( MakePendingDevice( 0, 300, 0 ) );
    EXPECT_EQ( 1u, Receive( READREG_COMMAND ).size() );
    mNowMs += 299;
    EXPECT_TRUE( Receive( READREG_COMMAND ).empty() );
    mNowMs += 1;
    EXPECT_EQ( 1u, Receive( READREG_COMMAND ).size() );
}

TEST_F( VirtualDeviceGEVTest, RemembersAtLeastUntilTheAnnouncedTimeIsOver )
{
    Make( MakePendingDevice( 60000, 100, 1 ) );
    const Bytes lCommand = MakeCommand( 0x0082, Word( 0xA000 ) + Word( 1 ) );
    (void)Receive( lCommand );
    mNowMs += 63000;
    EXPECT_EQ( 1u, Receive( lCommand ).size() );
    EXPECT_EQ( 1u, Device().GetCounters( 0x0082 ).mExecuted );
    mNowMs += 1;
    EXPECT_EQ( 2u, Receive( lCommand ).size() );
    EXPECT_EQ( 2u, Device().GetCounters( 0x0082 ).mExecuted );
}

TEST_F( VirtualDeviceGEVTest, ForgetsAnAnswerAfterTheResendWindow )
{
    EXPECT_EQ( 3000u, WordAt( Receive( READREG_COMMAND ).at( 0 ).mBytes, 8 ) );
    EXPECT_TRUE( Device().WriteWord( 0x0938, 4000 ) );
    mNowMs += 3000;
    EXPECT_EQ( 3000u, WordAt( Receive( READREG_COMMAND ).at( 0 ).mBytes, 8 ) );
    mNowMs += 1;
    EXPECT_EQ( 4000u, WordAt( Receive( READREG_COMMAND ).at( 0 ).mBytes, 8 ) );
}

TEST_F( VirtualDeviceGEVTest, RemembersOnlyTheLatestCommandOfASender )
{
    (void)Receive( READREG_COMMAND );
    EXPECT_TRUE( Device().WriteWord( 0x0938, 4000 ) );
    (void)Receive( READMEM_COMMAND, OTHER_HOST );
    EXPECT_EQ( 3000u, WordAt( Receive( READREG_COMMAND ).at( 0 ).mBytes, 8 ) );
    (void)Receive( READMEM_COMMAND );
    EXPECT_EQ( 4000u, WordAt( Receive( READREG_COMMAND ).at( 0 ).mBytes, 8 ) );
}

TEST_F( VirtualDeviceGEVTest, SameIdentifierOfAnotherSenderOrWithOtherBytesIsExecuted )
{
    (void)Receive( READREG_COMMAND );
    EXPECT_TRUE( Device().WriteWord( 0x0938, 4000 ) );
    EXPECT_EQ( 4000u, WordAt( Receive( READREG_COMMAND, OTHER_PORT ).at( 0 ).mBytes, 8 ) );
    EXPECT_EQ( 4000u, WordAt( Receive( READREG_COMMAND, OTHER_HOST ).at( 0 ).mBytes, 8 ) );
    Bytes lOtherFlags = READREG_COMMAND;
    lOtherFlags[1] = 0x81;
    EXPECT_EQ( 4000u, WordAt( Receive( lOtherFlags ).at( 0 ).mBytes, 8 ) );
}

TEST_F( VirtualDeviceGEVTest, DamagedCopyDoesNotMakeItForget )
{
    (void)Receive( READREG_COMMAND );
    EXPECT_TRUE( Device().WriteWord( 0x0938, 4000 ) );
    (void)Receive( Bytes( READREG_COMMAND.begin(), READREG_COMMAND.end() - 1 ) );
    EXPECT_EQ( 3000u, WordAt( Receive( READREG_COMMAND ).at( 0 ).mBytes, 8 ) );
}

TEST_F( VirtualDeviceGEVTest, RepeatedDiscoveryIsExecuted )
{
    (void)Receive( DISCOVERY_COMMAND );
    EXPECT_TRUE( Device().WriteWord( 0x0024, 0x0A000001 ) );
    EXPECT_EQ( 0x0A000001u, WordAt( Receive( DISCOVERY_COMMAND ).at( 0 ).mBytes, 8 + 0x24 ) );
}

TEST_F( VirtualDeviceGEVTest, ForgetsTheOldestOfManySenders )
{
    (void)Receive( READREG_COMMAND );
    for ( uint16_t i = 0; i < 64; i++ )
    {
        mNowMs++;
        (void)Receive( READREG_COMMAND, { 0x0A000001, i } );
    }
    (void)Receive( READREG_COMMAND );
    (void)Receive( READREG_COMMAND, { 0x0A000001, 63 } );
    EXPECT_EQ( 66u, Device().GetCounters( 0x0080 ).mExecuted );
    EXPECT_EQ( 1u, Device().GetCounters( 0x0080 ).mRepeated );
}

// The address map.

TEST_F( VirtualDeviceGEVTest, EachVersionHasItsRegisters )
{
    for ( const auto& lVersion : { MakeVersion( 1, 0 ), MakeVersion( 1, 1 ), MakeVersion( 1, 2 ),
                                   MakeVersion( 2, 0 ), MakeVersion( 2, 1 ) } )
    {
        Make( lVersion );
        const bool lIsFirst = lVersion.mVersionMajor == 1 && lVersion.mVersionMinor == 0;
        EXPECT_EQ( ( static_cast<uint32_t>( lVersion.mVersionMajor ) << 16 ) +
                       lVersion.mVersionMinor,
                   Read( 0x0000 ) );
        EXPECT_EQ( lIsFirst ? 0x00000003u : 0xF8000023u, Read( 0x0934 ) );
        const uint32_t lLater = lIsFirst ? 0x8003 : 0x0000;
        for ( const uint32_t lAddress : { 0x092Cu, 0x0930u, 0x0954u, 0x0A04u, 0x0B1Cu, 0x0D1Cu } )
        {
            EXPECT_EQ( lLater, ReadStatus( lAddress ) ) << lAddress;
        }
        for ( const uint32_t lAddress : { 0x0900u, 0x0904u, 0x0938u, 0x093Cu, 0x0940u, 0x0A00u,
                                          0x0B00u, 0x0B10u, 0x0D00u, 0x0D18u } )
        {
            EXPECT_EQ( 0x0000u, ReadStatus( lAddress ) ) << lAddress;
        }
    }
    EXPECT_EQ( 0xC0000000u, Read( 0x092C ) );
    Make( MakeVersion( 1, 2 ) );
    EXPECT_EQ( 0x80000000u, Read( 0x092C ) );
    EXPECT_EQ( 0x80000000u, Read( 0x0930 ) );
}

TEST_F( VirtualDeviceGEVTest, CapabilityWordsReadAsConfigured )
{
    VirtualDeviceGEV::Configuration lConfiguration;
    lConfiguration.mGvcpCapability = 0x12345678;
    lConfiguration.mStreamCapability = 0x00000001;
    lConfiguration.mMessageCapability = 0x00000002;
    Make( lConfiguration );
    EXPECT_EQ( 0x12345678u, Read( 0x0934 ) );
    EXPECT_EQ( 0x00000001u, Read( 0x092C ) );
    EXPECT_EQ( 0x00000002u, Read( 0x0930 ) );
    EXPECT_EQ( 0x8003u, ReadStatus( 0x0B1C ) );
    EXPECT_EQ( 0x8003u, ReadStatus( 0x0D1C ) );
}

TEST_F( VirtualDeviceGEVTest, ChannelsHaveRegistersAsFarAsThereAreChannels )
{
    VirtualDeviceGEV::Configuration lConfiguration;
    lConfiguration.mMessageChannels = 0;
    lConfiguration.mStreamChannels = 0;
    Make( lConfiguration );
    EXPECT_EQ( 0u, Read( 0x0900 ) );
    EXPECT_EQ( 0u, Read( 0x0904 ) );
    EXPECT_EQ( 0u, Read( 0x092C ) );
    EXPECT_EQ( 0u, Read( 0x0930 ) );
    EXPECT_EQ( 0x8003u, ReadStatus( 0x0B00 ) );
    EXPECT_EQ( 0x8003u, ReadStatus( 0x0D00 ) );
    lConfiguration.mMessageChannels = 1;
    lConfiguration.mMessageSourcePort = 4444;
    lConfiguration.mStreamChannels = 3;
    lConfiguration.mFirstStreamSourcePort = 5555;
    Make( lConfiguration );
    EXPECT_EQ( 4444u, Read( 0x0B1C ) );
    EXPECT_EQ( 5555u, Read( 0x0D1C ) );
    EXPECT_EQ( 5557u, Read( 0x0D9C ) );
    EXPECT_EQ( 0x8003u, ReadStatus( 0x0DDC ) );
}

TEST_F( VirtualDeviceGEVTest, ReportsMoreStreamChannelsThanItHasRegistersFor )
{
    VirtualDeviceGEV::Configuration lConfiguration;
    lConfiguration.mStreamChannels = 0xFFFFFFFF;
    Make( lConfiguration );
    EXPECT_EQ( 0xFFFFFFFFu, Read( 0x0904 ) );
    EXPECT_EQ( 50001u + 511u, Read( 0x8CDC ) );
    EXPECT_EQ( 0x8003u, ReadStatus( 0x8D1C ) );
    TakeControl();
    EXPECT_EQ( 0x0000u, WriteStatus( 0x0A00, 0 ) );
}

TEST_F( VirtualDeviceGEVTest, BootstrapBlockCanBeReadInOneCommand )
{
    const Bytes lAnswer = Ask( 0x0084, Word( 0x0000 ) + Word( 536 ) );
    ASSERT_EQ( 548u, lAnswer.size() );
    const Bytes lDiscovery = Receive( DISCOVERY_COMMAND ).at( 0 ).mBytes;
    EXPECT_TRUE( std::equal( lDiscovery.begin() + 8, lDiscovery.end(), lAnswer.begin() + 12 ) );
    const std::string lUrl( lAnswer.begin() + 12 + 0x200, lAnswer.begin() + 12 + 0x206 );
    EXPECT_EQ( "Local:", lUrl );
    EXPECT_EQ( 0x0000u, ReadMemStatus( 0x0C00, 0x0140 ) );
    EXPECT_EQ( 0x8003u, ReadMemStatus( 0x0C00, 0x0144 ) );
}

TEST_F( VirtualDeviceGEVTest, TextsFillTheirFieldsAndNoMore )
{
    VirtualDeviceGEV::Configuration lConfiguration;
    lConfiguration.mManufacturerName = std::string( 40, 'n' );
    lConfiguration.mModelName = std::string( 32, 'm' );
    lConfiguration.mUserName = std::string( "a\0b", 3 );
    Make( lConfiguration );
    const Bytes lAnswer = Ask( 0x0084, Word( 0x0048 ) + Word( 64 ) );
    EXPECT_EQ( Bytes( 32, 'n' ) + Bytes( 32, 'm' ), Bytes( lAnswer.begin() + 12, lAnswer.end() ) );
    EXPECT_EQ( 0x61006200u, Read( 0x00E8 ) );
}

TEST_F( VirtualDeviceGEVTest, UserNameAndNetworkSettingsCanBeWritten )
{
    TakeControl();
    EXPECT_EQ( 0x0000u, WriteMemStatus( 0x00E8, Bytes( 16, 'u' ) ) );
    EXPECT_EQ( 0x75757575u, Read( 0x00F4 ) );
    for ( const uint32_t lAddress : { 0x0014u, 0x064Cu, 0x065Cu, 0x066Cu, 0x0B00u, 0x0B10u, 0x0D00u,
                                      0x0D04u, 0x0D08u, 0x0D18u, 0xA000u, 0xA03Cu, 0xA100u } )
    {
        EXPECT_EQ( 0x0000u, WriteStatus( lAddress, 0x01020304 ) ) << lAddress;
        EXPECT_EQ( 0x01020304u, Read( lAddress ) ) << lAddress;
    }
}

TEST_F( VirtualDeviceGEVTest, UrlLeadsToTheDescription )
{
    std::string lUrl;
    for ( uint32_t i = 0; i < 64; i += 4 )
    {
        const Bytes lWord = Word( Device().ReadWord( 0x0200 + i ) );
        lUrl.append( lWord.begin(), lWord.end() );
    }
    const std::string lDescription = GetDescriptionGEV();
    EXPECT_EQ( "Local:virtual_device_gev.xml;10000;",
               lUrl.substr( 0, std::string( "Local:virtual_device_gev.xml;10000;" ).size() ) );
    EXPECT_EQ( lDescription.size(),
               std::stoul( lUrl.substr( lUrl.rfind( ';' ) + 1 ), nullptr, 16 ) );
    EXPECT_EQ( 0u, lDescription.size() % 4 );
    std::string lRead;
    while ( lRead.size() < lDescription.size() )
    {
        const size_t lCount = std::min<size_t>( 512, lDescription.size() - lRead.size() );
        const Bytes lAnswer = Ask( 0x0084, Word( 0x10000 + static_cast<uint32_t>( lRead.size() ) ) +
                                               Word( static_cast<uint32_t>( lCount ) ) );
        ASSERT_EQ( lCount + 12, lAnswer.size() );
        lRead.append( lAnswer.begin() + 12, lAnswer.end() );
    }
    EXPECT_EQ( lDescription, lRead );
    EXPECT_EQ( "<?xml version=\"1.0\"", lRead.substr( 0, 19 ) );
    EXPECT_EQ( 0x8003u, ReadStatus( 0x10000 + static_cast<uint32_t>( lDescription.size() ) ) );
}

TEST_F( VirtualDeviceGEVTest, MemoryLiesWhereConfigured )
{
    VirtualDeviceGEV::Configuration lConfiguration;
    lConfiguration.mMemoryBase = 0xFFFFFF00;
    lConfiguration.mMemorySize = 0xFD;
    Make( lConfiguration );
    TakeControl();
    EXPECT_EQ( 0x100u, Device().GetMemory().size() );
    EXPECT_EQ( 0x0000u, WriteStatus( 0xFFFFFFFC, 7 ) );
    EXPECT_EQ( 7u, Read( 0xFFFFFFFC ) );
    EXPECT_EQ( 0x8003u, ReadMemStatus( 0xFFFFFFFC, 8 ) );
    EXPECT_EQ( 0x8003u, ReadStatus( 0xFFFFFEFC ) );
    lConfiguration.mMemorySize = 0;
    Make( lConfiguration );
    EXPECT_EQ( 0x8003u, ReadStatus( 0xFFFFFF00 ) );
}

TEST_F( VirtualDeviceGEVTest, MemoryDoesNotHideRegisters )
{
    VirtualDeviceGEV::Configuration lConfiguration;
    lConfiguration.mMemoryBase = 0x8000;
    lConfiguration.mMemorySize = 0x10000;
    Make( lConfiguration );
    TakeControl();
    EXPECT_EQ( 0x0000u, WriteStatus( 0x9000, 7 ) );
    EXPECT_EQ( 0x8004u, WriteStatus( 0xA040, 7 ) );
    EXPECT_EQ( 0x8004u, WriteStatus( 0x10000, 7 ) );
    EXPECT_EQ( 0x4854424Cu, Read( 0xA040 ) );
}

TEST_F( VirtualDeviceGEVTest, TimestampCountsOnlyWithATickFrequency )
{
    EXPECT_EQ( 0u, Read( 0x093C ) );
    EXPECT_EQ( 0u, Read( 0x0940 ) );
    EXPECT_EQ( 0x8003u, ReadStatus( 0x0948 ) );
    VirtualDeviceGEV::Configuration lConfiguration;
    lConfiguration.mTickFrequency = 0x0000000300000001;
    Make( lConfiguration );
    EXPECT_EQ( 3u, Read( 0x093C ) );
    EXPECT_EQ( 1u, Read( 0x0940 ) );
    TakeControl();
    EXPECT_EQ( 0x0000u, WriteStatus( 0x0944, 1 ) );
    mNowMs += 2000;
    EXPECT_EQ( 0x0000u, WriteStatus( 0x0944, 2 ) );
    EXPECT_EQ( 6u, Read( 0x0948 ) );
    EXPECT_EQ( 2u, Read( 0x094C ) );
    EXPECT_EQ( 0u, Read( 0x0944 ) );
}

// What a test can ask of it.

TEST_F( VirtualDeviceGEVTest, RefusesAnAddressWithAnyConfiguredStatus )
{
    TakeControl();
    for ( uint16_t lStatus = 0x8001; lStatus <= 0x800E; lStatus++ )
    {
        Device().RefuseAddress( 0xA000, lStatus );
        EXPECT_EQ( lStatus, ReadStatus( 0xA000 ) );
        EXPECT_EQ( lStatus, WriteStatus( 0xA000, 1 ) );
        EXPECT_EQ( lStatus, ReadMemStatus( 0xA000, 8 ) );
        EXPECT_EQ( lStatus, WriteMemStatus( 0xA000, Word( 1 ) ) );
        EXPECT_EQ( 0x0000u, ReadStatus( 0xA004 ) );
    }
    Device().RefuseAddress( 0xA000, 0 );
    EXPECT_EQ( 0u, Read( 0xA000 ) );
}

// So that every step of reading what it can do can be made to fail.
TEST_F( VirtualDeviceGEVTest, RefusesEveryBootstrapRegisterWithAnyConfiguredStatus )
{
    const uint32_t ADDRESSES[] = { 0x0000, 0x0004, 0x0008, 0x000C, 0x0048, 0x0068, 0x0088,
                                   0x00A8, 0x00D8, 0x00E8, 0x0900, 0x0904, 0x092C, 0x0930,
                                   0x0934, 0x093C, 0x0940, 0x0B1C, 0x0D1C };
    for ( const uint32_t lAddress : ADDRESSES )
    {
        EXPECT_EQ( 0x0000u, ReadStatus( lAddress ) ) << std::hex << lAddress;
        for ( uint16_t lStatus = 0x8001; lStatus <= 0x800E; lStatus++ )
        {
            Device().RefuseAddress( lAddress, lStatus );
            EXPECT_EQ( lStatus, ReadStatus( lAddress ) ) << std::hex << lAddress;
            EXPECT_EQ( lStatus, ReadMemStatus( lAddress, 4 ) ) << std::hex << lAddress;
        }
        Device().RefuseAddress( lAddress, 0 );
        EXPECT_EQ( 0x0000u, ReadStatus( lAddress ) ) << std::hex << lAddress;
    }
}

TEST_F( VirtualDeviceGEVTest, RefusesOnlyTheConfiguredCommand )
{
    TakeControl();
    Device().Refuse( 0x0084, 0x00A8, 0x8008 );
    EXPECT_EQ( 0x0000u, ReadStatus( 0x00A8 ) );
    EXPECT_EQ( 0x8008u, ReadMemStatus( 0x0088, 80 ) );
    EXPECT_EQ( 0x0000u, ReadMemStatus( 0x0088, 32 ) );
    Device().RefuseAddress( 0x00A8, 0x8007 );
    EXPECT_EQ( 0x8008u, ReadMemStatus( 0x00A8, 4 ) );
    EXPECT_EQ( 0x8007u, ReadStatus( 0x00A8 ) );
    Device().Refuse( 0x0002, 0, 0x8006 );
    EXPECT_EQ( 0x8006u, AskStatus( 0x0002, {} ) );
}

TEST_F( VirtualDeviceGEVTest, RefusalOfTwoWordsFollowsTheFirst )
{
    VirtualDeviceGEV::Configuration lConfiguration;
    lConfiguration.mStrict = false;
    Make( lConfiguration );
    TakeControl();
    Device().RefuseAddress( MEMORY, 0x8008 );
    Device().RefuseAddress( MEMORY + 4, 0x8007 );
    EXPECT_EQ( 0x8008u, ReadMemStatus( MEMORY + 2, 4 ) );
    EXPECT_EQ( 0x8008u, WriteMemStatus( MEMORY + 2, { 1, 2, 3, 4 } ) );
    EXPECT_EQ( 0x8008u, ReadStatus( MEMORY + 1 ) );
    Device().RefuseAddress( MEMORY, 0 );
    EXPECT_EQ( 0x8007u, ReadMemStatus( MEMORY + 2, 4 ) );
    EXPECT_EQ( 0x8007u, WriteMemStatus( MEMORY + 2, { 1, 2, 3, 4 } ) );
    EXPECT_EQ( 0x8007u, ReadStatus( MEMORY + 1 ) );
    EXPECT_EQ( 0x0000u, ReadMemStatus( MEMORY + 2, 2 ) );
}

TEST_F( VirtualDeviceGEVTest, DoesNotAnswerAtASilentAddress )
{
    TakeControl();
    Device().SetSilent( 0xA004 );
    EXPECT_TRUE( Receive( MakeCommand( 0x0080, Word( 0xA000 ) + Word( 0xA004 ) ) ).empty() );
    const Bytes lPairs = Word( 0xA000 ) + Word( 1 ) + Word( 0xA004 ) + Word( 2 );
    EXPECT_TRUE( Receive( MakeCommand( 0x0082, lPairs ) ).empty() );
    EXPECT_TRUE( Receive( MakeCommand( 0x0084, Word( 0xA000 ) + Word( 8 ) ) ).empty() );
    EXPECT_TRUE( Receive( MakeCommand( 0x0086, Word( 0xA000 ) + Bytes( 8, 3 ) ) ).empty() );
    EXPECT_EQ( 0u, Device().ReadWord( 0xA000 ) );
    EXPECT_EQ( 0x0000u, ReadMemStatus( 0xA000, 4 ) );
    EXPECT_EQ( 0x0000u, WriteMemStatus( 0xA000, Word( 4 ) ) );
    EXPECT_EQ( 0x0000u, ReadStatus( 0xA008 ) );
    EXPECT_EQ( 4u, Device().GetTotal().mSilenced );
    Device().SetSilent( 0xA004, false );
    EXPECT_EQ( 0x0000u, ReadStatus( 0xA004 ) );
    Device().SetSilent( 0x0000 );
    EXPECT_TRUE( Receive( DISCOVERY_COMMAND ).empty() );
}

TEST_F( VirtualDeviceGEVTest, DirectChangesBypassAllAccessRules )
{
    EXPECT_TRUE( Device().WriteWord( 0x0934, 0x11223344 ) );
    EXPECT_EQ( 0x11223344u, Read( 0x0934 ) );
    EXPECT_FALSE( Device().WriteWord( 0x90000000, 1 ) );
    EXPECT_EQ( 0u, Device().ReadWord( 0x90000000 ) );
}

TEST_F( VirtualDeviceGEVTest, KeepsTheLatestRequests )
{
    VirtualDeviceGEV::Configuration lConfiguration;
    lConfiguration.mRequestsKept = 2;
    Make( lConfiguration );
    (void)Receive( DISCOVERY_COMMAND );
    (void)Receive( READREG_COMMAND );
    mNowMs++;
    (void)Receive( READMEM_COMMAND, OTHER_HOST );
    ASSERT_EQ( 2u, Device().GetRequests().size() );
    EXPECT_EQ( READREG_COMMAND, Device().GetRequests()[0].mBytes );
    EXPECT_EQ( READMEM_COMMAND, Device().GetRequests()[1].mBytes );
    EXPECT_TRUE( OTHER_HOST == Device().GetRequests()[1].mFrom );
    EXPECT_EQ( START_MS + 1, Device().GetRequests()[1].mTimeMs );
}

TEST_F( VirtualDeviceGEVTest, SummaryCountsInOneLine )
{
    (void)Receive( READREG_COMMAND );
    (void)Receive( READREG_COMMAND );
    (void)Receive( WRITEMEM_COMMAND );
    (void)Receive( Bytes( 3, 0x42 ) );
    EXPECT_EQ( 2u, Device().GetCounters( 0x0080 ).mReceived );
    EXPECT_EQ( 1u, Device().GetCounters( 0x0080 ).mExecuted );
    EXPECT_EQ( 1u, Device().GetCounters( 0x0086 ).mRefused );
    EXPECT_EQ( "3 commands: 1 executed, 1 refused, 1 repeated, 0 silenced; 3 acknowledges and 0 "
               "pending acknowledges sent; 1 datagrams dropped",
               Device().GetSummary() );
}

// Whatever comes.

TEST_F( VirtualDeviceGEVTest, AnswersRandomDatagramsWithWholeAcknowledges )
{
    for ( const bool lStrict : { true, false } )
    {
        VirtualDeviceGEV::Configuration lConfiguration = MakePendingDevice( 10, 10, 1 );
        lConfiguration.mStrict = lStrict;
        lConfiguration.mTickFrequency = 1000000000;
        Make( lConfiguration );
        Device().SetSilent( 0xA008 );
        Device().RefuseAddress( 0xA00C, 0x8007 );
        std::mt19937 lRandom( 20240607 );
        const std::vector<Bytes> lSeeds = { DISCOVERY_COMMAND, READREG_COMMAND, WRITEREG_COMMAND,
                                            READMEM_COMMAND, WRITEMEM_COMMAND };
        for ( unsigned int i = 0; i < 5000; i++ )
        {
            Bytes lDatagram = lSeeds[lRandom() % lSeeds.size()];
            lDatagram.resize( ( i % 3 == 0 ) ? lRandom() % 600 : lDatagram.size() );
            for ( unsigned int j = lRandom() % 4; j > 0 && !lDatagram.empty(); j-- )
            {
                lDatagram[lRandom() % lDatagram.size()] = static_cast<uint8_t>( lRandom() & 0xFF );
            }
            for ( const Outgoing& lOut : Receive( lDatagram, ( i % 2 == 0 ) ? HOST : OTHER_HOST ) )
            {
                ASSERT_GE( lOut.mBytes.size(), 8u );
                ASSERT_LE( lOut.mBytes.size(), 548u );
                ASSERT_EQ( lOut.mBytes.size() - 8, HalfAt( lOut.mBytes, 4 ) );
            }
            mNowMs += lRandom() % 100;
        }
        EXPECT_GT( Device().GetTotal().mExecuted, 0u );
        EXPECT_GT( Device().GetTotal().mRefused, 0u );
        const uint64_t lBefore = Device().GetCounters( 0x0002 ).mExecuted;
        (void)Receive( DISCOVERY_COMMAND );
        EXPECT_EQ( lBefore + 1, Device().GetCounters( 0x0002 ).mExecuted );
    }
}
