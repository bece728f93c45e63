#include "tests/support/Packets.h"

#include <WdUtilsLib/U3V/DeviceInfoDescriptor.h>
#include <WdUtilsLib/U3V/ReadMem.h>
#include <WdUtilsLib/U3V/StringDescriptor.h>
#include <WdUtilsLib/U3V/WriteMem.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <vector>

namespace
{

using namespace WdUtilsLib::U3V;
using TestSupport::Bytes;

unsigned int GetSize( const Bytes& aBytes )
{
    return static_cast<unsigned int>( aBytes.size() );
}

// The first aSize bytes in memory of exactly that size, so that a sanitizer sees every step beyond.
std::unique_ptr<unsigned char[]> CopyFirst( const Bytes& aBytes, std::size_t aSize )
{
    auto lCopy = std::make_unique<unsigned char[]>( aSize );
    std::copy_n( aBytes.begin(), aSize, lCopy.get() );
    return lCopy;
}

// clang-format off
const Bytes READMEM_COMMAND = {
    0x55, 0x33, 0x56, 0x43,                         // prefix
    0x00, 0x40,                                     // flags: request acknowledge
    0x00, 0x08,                                     // READMEM_CMD
    0x0C, 0x00,                                     // length 12
    0x00, 0x00,                                     // request identifier
    0xEF, 0xCD, 0xAB, 0x89, 0x67, 0x45, 0x23, 0x01, // address 0x0123456789ABCDEF
    0x00, 0x00,                                     // reserved
    0x04, 0x03,                                     // read length 0x0304
};
const Bytes WRITEMEM_COMMAND = {
    0x55, 0x33, 0x56, 0x43,                         // prefix
    0x00, 0x40,                                     // flags: request acknowledge
    0x02, 0x08,                                     // WRITEMEM_CMD
    0x0B, 0x00,                                     // length 8 + 3
    0x00, 0x00,                                     // request identifier
    0xEF, 0xCD, 0xAB, 0x89, 0x67, 0x45, 0x23, 0x01, // address 0x0123456789ABCDEF
    0xA1, 0xA2, 0xA3,                               // data
};
const Bytes READMEM_ACK = {
    0x55, 0x33, 0x56, 0x43, // prefix
    0x00, 0x00,             // status: success
    0x01, 0x08,             // READMEM_ACK
    0x04, 0x00,             // length 4
    0x22, 0x11,             // request identifier 0x1122
    0xD1, 0xD2, 0xD3, 0xD4, // data
};
const Bytes WRITEMEM_ACK = {
    0x55, 0x33, 0x56, 0x43, // prefix
    0x00, 0x00,             // status: success
    0x03, 0x08,             // WRITEMEM_ACK
    0x04, 0x00,             // length 4
    0x22, 0x11,             // request identifier 0x1122
    0x00, 0x00,             // reserved
    0x03, 0x00,             // length written 3
};
const Bytes WRITEMEM_ACK_SHORT = {
    0x55, 0x33, 0x56, 0x43, // prefix
    0x00, 0x00,             // status: success
    0x03, 0x08,             // WRITEMEM_ACK
    0x00, 0x00,             // length 0
    0x22, 0x11,             // request identifier 0x1122
};
const Bytes REFUSAL = {
    0x55, 0x33, 0x56, 0x43, // prefix
    0x03, 0x80,             // status: invalid address
    0x01, 0x08,             // READMEM_ACK
    0x00, 0x00,             // length 0
    0x22, 0x11,             // request identifier 0x1122
};
const Bytes PENDING_ACK = {
    0x55, 0x33, 0x56, 0x43, // prefix
    0x00, 0x00,             // status
    0x05, 0x08,             // PENDING_ACK
    0x04, 0x00,             // length 4
    0x22, 0x11,             // request identifier 0x1122
    0x00, 0x00,             // reserved
    0xE8, 0x03,             // time-out 1000 ms
};
// clang-format on

TEST( ReadMemCmd, IsLaidOutAsTheStandardSays )
{
    Bytes lBuffer( 24, 0xEE );
    ReadMemCmd lCommand;
    ASSERT_TRUE( lCommand.Attach( lBuffer.data(), GetSize( lBuffer ) ).IsOK() );
    lCommand.Initialize();
    lCommand.GetCommandHeader()->SetRequestAck( true );
    lCommand.GetReadMemCmdHeader()->SetReadLength( 0x0304 );
    lCommand.GetReadMemCmdHeader()->SetRegisterAddress( 0x0123456789ABCDEF );
    EXPECT_EQ( READMEM_COMMAND, lBuffer );
}

TEST( ReadMemCmd, InitializeSetsEveryFieldWhateverTheMemoryContained )
{
    Bytes lBuffer( 24, 0xEE );
    ReadMemCmd lCommand;
    ASSERT_TRUE( lCommand.Attach( lBuffer.data(), 24 ).IsOK() );
    lCommand.Initialize();
    const Bytes lExpected = { 0x55, 0x33, 0x56, 0x43, 0, 0, 0x00, 0x08, 0x0C, 0, 0, 0,
                              0,    0,    0,    0,    0, 0, 0,    0,    0,    0, 0, 0 };
    EXPECT_EQ( lExpected, lBuffer );
}

TEST( ReadMemCmd, DoesNotWriteBeyondThePacket )
{
    Bytes lBuffer( 1024, 0xEE );
    ReadMemCmd lCommand;
    ASSERT_TRUE( lCommand.Attach( lBuffer.data(), 1024 ).IsOK() );
    lCommand.Initialize();
    EXPECT_EQ( Bytes( 1000, 0xEE ), Bytes( lBuffer.begin() + 24, lBuffer.end() ) );
}

TEST( ReadMemCmd, RefusesMemoryThatIsTooSmall )
{
    EXPECT_EQ( 24U, ReadMemCmd::GetRequiredBufferSize() );
    for ( unsigned int lSize = 0; lSize < 24; ++lSize )
    {
        const auto lBuffer = CopyFirst( READMEM_COMMAND, lSize );
        ReadMemCmd lCommand;
        EXPECT_EQ( 0x4001U, lCommand.Attach( lBuffer.get(), lSize ).GetCode() );
        lCommand.Initialize();
        lCommand.GetCommandHeader()->SetRequestAck( true );
        lCommand.GetReadMemCmdHeader()->SetReadLength( 1 );
        lCommand.GetReadMemCmdHeader()->SetRegisterAddress( 1 );
        EXPECT_EQ( 0U, lCommand.GetReadMemCmdHeader()->GetReadLength() );
        EXPECT_EQ( 0U, lCommand.GetReadMemCmdHeader()->GetRegisterAddress() );
        EXPECT_TRUE( std::equal( lBuffer.get(), lBuffer.get() + lSize, READMEM_COMMAND.begin() ) );
    }
    ReadMemCmd lCommand;
    EXPECT_EQ( 0x4001U, lCommand.Attach( nullptr, 1024 ).GetCode() );
}

TEST( ReadMemCmd, ARefusedAttachReleasesTheEarlierMemory )
{
    Bytes lBuffer( 24, 0 );
    ReadMemCmd lCommand;
    ASSERT_TRUE( lCommand.Attach( lBuffer.data(), 24 ).IsOK() );
    EXPECT_FALSE( lCommand.Attach( lBuffer.data(), 23 ).IsOK() );
    lCommand.Initialize();
    EXPECT_EQ( Bytes( 24, 0 ), lBuffer );
}

TEST( WriteMemCmd, IsLaidOutAsTheStandardSays )
{
    Bytes lBuffer( 23, 0xEE );
    WriteMemCmd lCommand;
    ASSERT_TRUE( lCommand.Attach( lBuffer.data(), GetSize( lBuffer ) ).IsOK() );
    lCommand.Initialize();
    EXPECT_EQ( 0, lCommand.GetCurrentDataSize() );
    lCommand.GetCommandHeader()->SetRequestAck( true );
    lCommand.GetWriteMemCmdHeader()->SetRegisterAddress( 0x0123456789ABCDEF );
    ASSERT_TRUE( lCommand.SetCurrentDataSize( 3 ).IsOK() );
    EXPECT_EQ( 3, lCommand.GetCurrentDataSize() );
    std::copy_n( WRITEMEM_COMMAND.end() - 3, 3, lCommand.GetData() );
    EXPECT_EQ( WRITEMEM_COMMAND, lBuffer );
    EXPECT_EQ( 0x0123456789ABCDEFU, lCommand.GetWriteMemCmdHeader()->GetRegisterAddress() );
}

TEST( WriteMemCmd, CarriesNoMoreDataThanItsMemoryHolds )
{
    Bytes lBuffer( 1024, 0 );
    WriteMemCmd lCommand;
    ASSERT_TRUE( lCommand.Attach( lBuffer.data(), 1024 ).IsOK() );
    lCommand.Initialize();
    ASSERT_TRUE( lCommand.SetCurrentDataSize( 1004 ).IsOK() );
    EXPECT_EQ( 0x4001U, lCommand.SetCurrentDataSize( 1005 ).GetCode() );
    EXPECT_EQ( 0x4001U, lCommand.SetCurrentDataSize( 0xFFFF ).GetCode() );
    EXPECT_EQ( 1004, lCommand.GetCurrentDataSize() );
    EXPECT_EQ( lBuffer.data() + 20, lCommand.GetData() );
}

TEST( WriteMemCmd, CarriesNoMoreDataThanItsLengthFieldCanExpress )
{
    Bytes lBuffer( 0x10100, 0 );
    WriteMemCmd lCommand;
    ASSERT_TRUE( lCommand.Attach( lBuffer.data(), GetSize( lBuffer ) ).IsOK() );
    lCommand.Initialize();
    EXPECT_TRUE( lCommand.SetCurrentDataSize( 0xFFF7 ).IsOK() ); // and 8: 0xFFFF
    EXPECT_EQ( 0x4001U, lCommand.SetCurrentDataSize( 0xFFF8 ).GetCode() );
    EXPECT_EQ( 0xFFF7, lCommand.GetCurrentDataSize() );
}

TEST( WriteMemCmd, NeverReportsMoreDataThanItsMemoryHolds )
{
    Bytes lBuffer( 30, 0xFF ); // not initialised: the length field reads 0xFFFF
    WriteMemCmd lCommand;
    ASSERT_TRUE( lCommand.Attach( lBuffer.data(), 30 ).IsOK() );
    EXPECT_EQ( 10, lCommand.GetCurrentDataSize() );
    lBuffer.assign( 30, 0 ); // reads 0, less than the address
    EXPECT_EQ( 0, lCommand.GetCurrentDataSize() );
}

TEST( WriteMemCmd, RefusesMemoryThatIsTooSmall )
{
    EXPECT_EQ( 20U, WriteMemCmd::GetRequiredBufferSize( 0 ) );
    EXPECT_EQ( 1024U, WriteMemCmd::GetRequiredBufferSize( 1004 ) );
    for ( unsigned int lSize = 0; lSize < 20; ++lSize )
    {
        const auto lBuffer = CopyFirst( WRITEMEM_COMMAND, lSize );
        WriteMemCmd lCommand;
        EXPECT_EQ( 0x4001U, lCommand.Attach( lBuffer.get(), lSize ).GetCode() );
        lCommand.Initialize();
        EXPECT_EQ( 0x4001U, lCommand.SetCurrentDataSize( 0 ).GetCode() );
        EXPECT_EQ( nullptr, lCommand.GetData() );
        EXPECT_EQ( 0, lCommand.GetCurrentDataSize() );
        EXPECT_TRUE( std::equal( lBuffer.get(), lBuffer.get() + lSize, WRITEMEM_COMMAND.begin() ) );
    }
    WriteMemCmd lCommand;
    EXPECT_EQ( 0x4001U, lCommand.Attach( nullptr, 1024 ).GetCode() );
}

TEST( GenCPCommandHeader, ChangesOneFieldAtATime )
{
    Bytes lBuffer( 12, 0 );
    CommandHeader lHeader( lBuffer.data(), 12 );
    lHeader.Initialize( 0x0802, 0x0102 );
    lHeader.SetRequestID( 0x0A0B );
    const Bytes lWithout = { 0x55, 0x33, 0x56, 0x43, 0, 0, 0x02, 0x08, 0x02, 0x01, 0x0B, 0x0A };
    EXPECT_EQ( lWithout, lBuffer );

    lBuffer[4] = 0x01; // another flag
    lHeader.SetRequestAck( true );
    EXPECT_TRUE( lHeader.GetRequestAck() );
    EXPECT_EQ( 0x01, lBuffer[4] );
    EXPECT_EQ( 0x40, lBuffer[5] );
    lHeader.SetRequestAck( false );
    EXPECT_FALSE( lHeader.GetRequestAck() );
    EXPECT_EQ( 0x01, lBuffer[4] );
    EXPECT_EQ( 0x00, lBuffer[5] );

    EXPECT_EQ( 0x43563355U, lHeader.GetPrefix() );
    EXPECT_EQ( 0x0802, lHeader.GetCommand() );
    EXPECT_EQ( 0x0102, lHeader.GetLength() );
    EXPECT_EQ( 0x0A0B, lHeader.GetRequestID() );
}

TEST( GenCPCommandHeader, ShowsNothingOfLessThanAHeader )
{
    Bytes lBuffer( 11, 0xEE );
    CommandHeader lHeader( lBuffer.data(), 11 );
    lHeader.Initialize( 1, 1 );
    lHeader.SetRequestAck( true );
    lHeader.SetRequestID( 1 );
    EXPECT_EQ( Bytes( 11, 0xEE ), lBuffer );
    EXPECT_EQ( 0U, lHeader.GetPrefix() );
    EXPECT_EQ( 0, lHeader.GetRequestID() );
}

TEST( ReadMemAck, CarriesItsData )
{
    Bytes lBuffer = READMEM_ACK;
    ReadMemAck lAck;
    ASSERT_TRUE( lAck.Attach( lBuffer.data(), GetSize( lBuffer ) ).IsOK() );
    EXPECT_TRUE( lAck.IsValid() );
    EXPECT_EQ( 0, lAck.GetAckHeader()->GetStatus() );
    EXPECT_EQ( 0x0801, lAck.GetAckHeader()->GetAcknowledge() );
    EXPECT_EQ( 4, lAck.GetAckHeader()->GetLength() );
    EXPECT_EQ( 0x1122, lAck.GetAckHeader()->GetRequestID() );
    EXPECT_EQ( 4U, lAck.GetCurrentDataSize() );
    EXPECT_EQ( lBuffer.data() + 12, lAck.GetData() );
}

TEST( ReadMemAck, IsAlsoValidAsARefusal )
{
    Bytes lBuffer = REFUSAL;
    ReadMemAck lAck;
    ASSERT_TRUE( lAck.Attach( lBuffer.data(), GetSize( lBuffer ) ).IsOK() );
    EXPECT_TRUE( lAck.IsValid() );
    EXPECT_EQ( 0x8003, lAck.GetAckHeader()->GetStatus() );
    EXPECT_EQ( 0U, lAck.GetCurrentDataSize() );
}

TEST( ReadMemAck, IsRefusedOrInvalidAtEveryTruncation )
{
    for ( unsigned int lSize = 0; lSize < GetSize( READMEM_ACK ); ++lSize )
    {
        const auto lBuffer = CopyFirst( READMEM_ACK, lSize );
        ReadMemAck lAck;
        EXPECT_EQ( lSize < 12 ? 0x4001U : 0U, lAck.Attach( lBuffer.get(), lSize ).GetCode() );
        EXPECT_FALSE( lAck.IsValid() ) << lSize;
        EXPECT_EQ( lSize < 12 ? 0U : lSize - 12, lAck.GetCurrentDataSize() );
        EXPECT_EQ( lSize < 12 ? nullptr : lBuffer.get() + 12, lAck.GetData() );
        EXPECT_EQ( lSize < 12 ? 0 : 0x1122, lAck.GetAckHeader()->GetRequestID() );
    }
    ReadMemAck lAck;
    EXPECT_EQ( 0x4001U, lAck.Attach( nullptr, 16 ).GetCode() );
}

TEST( ReadMemAck, MayBeFollowedByMoreThanItAnnounces )
{
    Bytes lBuffer = READMEM_ACK;
    lBuffer.resize( 512, 0xEE );
    ReadMemAck lAck;
    ASSERT_TRUE( lAck.Attach( lBuffer.data(), 512 ).IsOK() );
    EXPECT_TRUE( lAck.IsValid() );
    EXPECT_EQ( 4U, lAck.GetCurrentDataSize() );
}

TEST( ReadMemAck, IsInvalidWhenPrefixOrCodeIsAnother )
{
    const std::size_t KEYS[] = { 0, 1, 2, 3, 6, 7 }; // prefix and acknowledge code
    for ( const std::size_t lOffset : KEYS )
    {
        for ( int lBit = 0; lBit < 8; ++lBit )
        {
            Bytes lBuffer = READMEM_ACK;
            lBuffer[lOffset] = static_cast<unsigned char>( lBuffer[lOffset] ^ ( 1 << lBit ) );
            ReadMemAck lAck;
            ASSERT_TRUE( lAck.Attach( lBuffer.data(), GetSize( lBuffer ) ).IsOK() );
            EXPECT_FALSE( lAck.IsValid() ) << lOffset << " " << lBit;
        }
    }
}

TEST( ReadMemAck, NeedsSpaceForHeaderAndData )
{
    EXPECT_EQ( 12U, ReadMemAck::GetRequiredBufferSize( 0 ) );
    EXPECT_EQ( 14U, ReadMemAck::GetRequiredBufferSize( 2 ) );
    EXPECT_EQ( 1024U, ReadMemAck::GetRequiredBufferSize( 1012 ) );
}

TEST( WriteMemAck, IsValidWithAndWithoutTheLengthWritten )
{
    EXPECT_EQ( 16U, WriteMemAck::GetRequiredBufferSize() );
    for ( const Bytes& lBytes : { WRITEMEM_ACK, WRITEMEM_ACK_SHORT } )
    {
        Bytes lBuffer = lBytes;
        WriteMemAck lAck;
        ASSERT_TRUE( lAck.Attach( lBuffer.data(), GetSize( lBuffer ) ).IsOK() );
        EXPECT_TRUE( lAck.IsValid() );
        EXPECT_EQ( 0, lAck.GetAckHeader()->GetStatus() );
        EXPECT_EQ( 0x1122, lAck.GetAckHeader()->GetRequestID() );
    }
}

TEST( WriteMemAck, IsRefusedOrInvalidAtEveryTruncation )
{
    for ( unsigned int lSize = 0; lSize < GetSize( WRITEMEM_ACK ); ++lSize )
    {
        const auto lBuffer = CopyFirst( WRITEMEM_ACK, lSize );
        WriteMemAck lAck;
        EXPECT_EQ( lSize < 12 ? 0x4001U : 0U, lAck.Attach( lBuffer.get(), lSize ).GetCode() );
        EXPECT_FALSE( lAck.IsValid() ) << lSize;
    }
}

TEST( WriteMemAck, IsNotAnotherAcknowledge )
{
    for ( const Bytes& lBytes : { READMEM_ACK, REFUSAL, PENDING_ACK } )
    {
        Bytes lBuffer = lBytes;
        WriteMemAck lAck;
        ASSERT_TRUE( lAck.Attach( lBuffer.data(), GetSize( lBuffer ) ).IsOK() );
        EXPECT_FALSE( lAck.IsValid() );
    }
}

TEST( PendingAck, ReturnsItsTimeout )
{
    PendingAck lAck;
    ASSERT_TRUE( lAck.Attach( PENDING_ACK.data(), GetSize( PENDING_ACK ) ).IsOK() );
    EXPECT_TRUE( lAck.IsValid() );
    EXPECT_EQ( 1000, lAck.GetTimeout() );
    EXPECT_EQ( 0x1122, lAck.GetAckHeader()->GetRequestID() );
}

TEST( PendingAck, IsRefusedOrInvalidAtEveryTruncation )
{
    for ( unsigned int lSize = 0; lSize < GetSize( PENDING_ACK ); ++lSize )
    {
        const auto lBuffer = CopyFirst( PENDING_ACK, lSize );
        PendingAck lAck;
        EXPECT_EQ( lSize < 12 ? 0x4001U : 0U, lAck.Attach( lBuffer.get(), lSize ).GetCode() );
        EXPECT_FALSE( lAck.IsValid() ) << lSize;
        EXPECT_EQ( 0, lAck.GetTimeout() );
    }
}

TEST( PendingAck, IsInvalidWithoutSpaceForTheTimeout )
{
    Bytes lBuffer = PENDING_ACK;
    lBuffer[8] = 2; // length
    PendingAck lAck;
    ASSERT_TRUE( lAck.Attach( lBuffer.data(), GetSize( lBuffer ) ).IsOK() );
    EXPECT_FALSE( lAck.IsValid() );
    EXPECT_EQ( 0, lAck.GetTimeout() );
}

// clang-format off
const Bytes DEVICE_INFO = {
    20,                     // length
    0x24,                   // class-specific interface descriptor
    0x01,                   // device information
    0x03, 0x00, 0x01, 0x00, // GenCP version 1.3
    0x02, 0x00, 0x01, 0x00, // USB3 Vision version 1.2
    4,                      // GUID
    1,                      // vendor name
    2,                      // model name
    0,                      // family name: none
    5,                      // device version
    6,                      // manufacturer information
    3,                      // serial number
    7,                      // user-defined name
    0x0C,                   // speeds supported
};
// clang-format on

TEST( DeviceInfoDescriptor, IsReadAsTheStandardLaysItOut )
{
    DeviceInfoDescriptor lInfo;
    ASSERT_TRUE( lInfo.Attach( DEVICE_INFO.data(), DEVICE_INFO.size() ).IsOK() );
    using Text = DeviceInfoDescriptor::Text;
    EXPECT_EQ( 0x00010003U, lInfo.GetGenCPVersion() );
    EXPECT_EQ( 0x00010002U, lInfo.GetU3VVersion() );
    EXPECT_EQ( 4, lInfo.GetTextIndex( Text::GUID ) );
    EXPECT_EQ( 1, lInfo.GetTextIndex( Text::VENDOR_NAME ) );
    EXPECT_EQ( 2, lInfo.GetTextIndex( Text::MODEL_NAME ) );
    EXPECT_EQ( 0, lInfo.GetTextIndex( Text::FAMILY_NAME ) );
    EXPECT_EQ( 5, lInfo.GetTextIndex( Text::DEVICE_VERSION ) );
    EXPECT_EQ( 6, lInfo.GetTextIndex( Text::MANUFACTURER_INFO ) );
    EXPECT_EQ( 3, lInfo.GetTextIndex( Text::SERIAL_NUMBER ) );
    EXPECT_EQ( 7, lInfo.GetTextIndex( Text::USER_DEFINED_NAME ) );
}

TEST( DeviceInfoDescriptor, IsFoundAfterOthers )
{
    Bytes lBuffer = { 2, 0x24, 3, 0x24, 0x02, 4, 0x25, 0x01, 0xAA };
    lBuffer.insert( lBuffer.end(), DEVICE_INFO.begin(), DEVICE_INFO.end() );
    DeviceInfoDescriptor lInfo;
    ASSERT_TRUE( lInfo.Attach( lBuffer.data(), lBuffer.size() ).IsOK() );
    EXPECT_EQ( 0x00010003U, lInfo.GetGenCPVersion() );
}

TEST( DeviceInfoDescriptor, IsRefusedAtEveryTruncationAndEveryShorterLength )
{
    for ( std::size_t lSize = 0; lSize < DEVICE_INFO.size(); ++lSize )
    {
        const auto lBuffer = CopyFirst( DEVICE_INFO, lSize );
        DeviceInfoDescriptor lInfo;
        EXPECT_EQ( 0x4001U, lInfo.Attach( lBuffer.get(), lSize ).GetCode() );
        EXPECT_EQ( 0U, lInfo.GetGenCPVersion() );
        EXPECT_EQ( 0, lInfo.GetTextIndex( DeviceInfoDescriptor::Text::USER_DEFINED_NAME ) );

        Bytes lShort = DEVICE_INFO;
        lShort[0] = static_cast<unsigned char>( lSize );
        EXPECT_EQ( 0x4001U, lInfo.Attach( lShort.data(), lShort.size() ).GetCode() );
    }
}

// clang-format off
const Bytes TEXT_DESCRIPTOR = {
    14,                     // length
    3,                      // string descriptor
    0x41, 0x00,             // A
    0xE4, 0x00,             // a with diaeresis
    0x3D, 0xD8, 0xF7, 0xDC, // U+1F4F7, a camera, as two surrogates
    0x00, 0xD8,             // a surrogate without its second half
    0x5A, 0x00,             // Z
};
// clang-format on

TEST( StringDescriptor, BecomesText )
{
    StringDescriptor lDescriptor;
    ASSERT_TRUE( lDescriptor.Attach( TEXT_DESCRIPTOR.data(), TEXT_DESCRIPTOR.size() ).IsOK() );
    EXPECT_STREQ( "A\xC3\xA4\xF0\x9F\x93\xB7\xEF\xBF\xBDZ", lDescriptor.GetText().GetAscii() );
}

TEST( StringDescriptor, ReturnsTheFirstLanguage )
{
    const Bytes lLanguages = { 6, 3, 0x09, 0x04, 0x07, 0x04 };
    StringDescriptor lDescriptor;
    ASSERT_TRUE( lDescriptor.Attach( lLanguages.data(), lLanguages.size() ).IsOK() );
    EXPECT_EQ( 0x0409, lDescriptor.GetLanguage() );
    EXPECT_EQ( 0, StringDescriptor().GetLanguage() );
}

TEST( StringDescriptor, ShowsNoMoreThanWasReceivedAtEveryTruncation )
{
    for ( std::size_t lSize = 0; lSize < TEXT_DESCRIPTOR.size(); ++lSize )
    {
        const auto lBuffer = CopyFirst( TEXT_DESCRIPTOR, lSize );
        StringDescriptor lDescriptor;
        EXPECT_EQ( lSize < 2 ? 0x4001U : 0U, lDescriptor.Attach( lBuffer.get(), lSize ).GetCode() );
        EXPECT_EQ( lSize >= 4 ? 0x0041 : 0, lDescriptor.GetLanguage() );
        EXPECT_EQ( lSize >= 4 ? 'A' : '\0', *lDescriptor.GetText().GetAscii() );
    }
}

TEST( StringDescriptor, IsBoundedByItsLengthField )
{
    Bytes lBuffer = TEXT_DESCRIPTOR;
    lBuffer[0] = 5; // and half a code unit
    StringDescriptor lDescriptor;
    ASSERT_TRUE( lDescriptor.Attach( lBuffer.data(), lBuffer.size() ).IsOK() );
    EXPECT_STREQ( "A", lDescriptor.GetText().GetAscii() );
    lBuffer[0] = 1;
    EXPECT_EQ( 0x4001U, lDescriptor.Attach( lBuffer.data(), lBuffer.size() ).GetCode() );
    EXPECT_STREQ( "", lDescriptor.GetText().GetAscii() );
    lBuffer[0] = 14;
    lBuffer[1] = 4;
    EXPECT_EQ( 0x4001U, lDescriptor.Attach( lBuffer.data(), lBuffer.size() ).GetCode() );
}

} // namespace
