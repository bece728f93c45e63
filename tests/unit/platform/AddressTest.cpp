#include <WdUtilsLib/Network/EthernetAddress.h>
#include <WdUtilsLib/Network/IpAddress.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace
{

using WdUtilsLib::Network::EthernetAddress;
using WdUtilsLib::Network::IpAddress;

const EthernetAddress::Bytes MAC = { 0x00, 0x11, 0x1C, 0x0A, 0xFB, 0x0C };

} // namespace

TEST( IpAddress, DefaultIsAnyAddress )
{
    EXPECT_EQ( IpAddress().GetValue(), 0U );
    EXPECT_EQ( IpAddress().GetString(), "0.0.0.0" );
}

TEST( IpAddress, TakesDottedDecimal )
{
    struct Row
    {
        const char* mText;
        uint32_t mValue;
    };
    for ( const Row& lRow :
          { Row{ "0.0.0.0", 0 }, Row{ "127.0.0.1", 0x7F000001 }, Row{ "1.2.3.4", 0x01020304 },
            Row{ "192.168.10.100", 0xC0A80A64 }, Row{ "255.255.255.255", 0xFFFFFFFF } } )
    {
        IpAddress lAddress( 0x55555555 );
        EXPECT_TRUE( lAddress.Set( lRow.mText ) ) << lRow.mText;
        EXPECT_EQ( lAddress.GetValue(), lRow.mValue );
        EXPECT_EQ( lAddress.GetString(), lRow.mText );
        EXPECT_TRUE( lAddress == IpAddress( lRow.mValue ) );
        EXPECT_FALSE( lAddress != IpAddress( lRow.mValue ) );
        EXPECT_TRUE( lAddress != IpAddress( lRow.mValue ^ 1U ) );
    }
}

TEST( IpAddress, RefusesOtherTextsAndStaysUnchanged )
{
    const char* const lTexts[] = { "",
                                   ".",
                                   "1",
                                   "1.2",
                                   "1.2.3",
                                   "1.2.3.",
                                   ".1.2.3",
                                   "1..2.3",
                                   "1.2.3.4.",
                                   ".1.2.3.4",
                                   "1.2.3.4.5",
                                   "256.0.0.1",
                                   "0.256.0.1",
                                   "0.0.256.1",
                                   "0.0.0.256",
                                   "1.2.3.300",
                                   "1.2.3.999",
                                   "1.2.3.1000",
                                   "01.2.3.4",
                                   "1.02.3.4",
                                   "1.2.3.04",
                                   "00.0.0.0",
                                   "1.2.3.004",
                                   "0x1.2.3.4",
                                   " 1.2.3.4",
                                   "1.2.3.4 ",
                                   "1. 2.3.4",
                                   "1.2.3.4\n",
                                   "\t1.2.3.4",
                                   "1.2.3.4\r\n",
                                   "-1.2.3.4",
                                   "+1.2.3.4",
                                   "1.2.3.-4",
                                   "1,2,3,4",
                                   "1.2.3.a",
                                   "a.b.c.d",
                                   "1.2.3.4a",
                                   "1.2.3.4/24",
                                   "1.2.3.4:80",
                                   "::1",
                                   "localhost",
                                   "16909060",
                                   "4294967296.0.0.0",
                                   "1.2.3.4294967297",
                                   "\xB9.2.3.4" };
    for ( const char* const lText : lTexts )
    {
        IpAddress lAddress( 0x0A0B0C0D );
        EXPECT_FALSE( lAddress.Set( lText ) ) << lText;
        EXPECT_EQ( lAddress.GetValue(), 0x0A0B0C0DU ) << lText;
    }
    IpAddress lAddress( 0x0A0B0C0D );
    EXPECT_FALSE( lAddress.Set( nullptr ) );
    EXPECT_EQ( lAddress.GetValue(), 0x0A0B0C0DU );
}

TEST( IpAddress, EveryPartTakesEveryNumberUpTo255 )
{
    for ( uint32_t lNumber = 0; lNumber <= 999; ++lNumber )
    {
        const std::string lText = std::to_string( lNumber );
        for ( unsigned int lPart = 0; lPart < 4; ++lPart )
        {
            std::string lWhole;
            for ( unsigned int lIndex = 0; lIndex < 4; ++lIndex )
            {
                lWhole += ( lIndex > 0 ? "." : "" ) + ( lIndex == lPart ? lText : "7" );
            }
            IpAddress lAddress;
            ASSERT_EQ( lAddress.Set( lWhole.c_str() ), lNumber <= 255 ) << lWhole;
            if ( lNumber <= 255 )
            {
                const uint32_t lShift = 24 - 8 * lPart;
                ASSERT_EQ( ( lAddress.GetValue() >> lShift ) & 0xFFU, lNumber );
                ASSERT_EQ( lAddress.GetString(), lWhole );
            }
        }
    }
}

// A text that ends right behind its last character: nothing is read beyond it.
TEST( IpAddress, ReadsNoFurtherThanTheText )
{
    const std::string lText = "192.168.10.100";
    for ( std::size_t lLength = 0; lLength <= lText.size(); ++lLength )
    {
        std::vector<char> lExact( lText.begin(), lText.begin() + static_cast<long>( lLength ) );
        lExact.push_back( '\0' );
        lExact.shrink_to_fit();
        IpAddress lAddress;
        const bool lWhole = lLength >= std::strlen( "192.168.10.1" );
        EXPECT_EQ( lAddress.Set( lExact.data() ), lWhole ) << lLength;
    }
}

TEST( EthernetAddress, DefaultIsZero )
{
    EXPECT_EQ( EthernetAddress().GetBytes(), EthernetAddress::Bytes{} );
    EXPECT_EQ( EthernetAddress().GetString(), "00:00:00:00:00:00" );
}

TEST( EthernetAddress, IsMadeOfBytesOrRegisters )
{
    EXPECT_EQ( EthernetAddress( MAC ).GetBytes(), MAC );
    EXPECT_EQ( EthernetAddress( MAC ).GetString(), "00:11:1C:0A:FB:0C" );
    EXPECT_EQ( EthernetAddress( 0x00000011, 0x1C0AFB0C ).GetBytes(), MAC );
    // The upper half of the high register is not part of the address.
    EXPECT_EQ( EthernetAddress( 0xABCD0011, 0x1C0AFB0C ).GetBytes(), MAC );
    EXPECT_EQ( EthernetAddress( 0x0000FFEE, 0xDDCCBBAA ).GetString(), "FF:EE:DD:CC:BB:AA" );
}

TEST( EthernetAddress, TakesColonsOrHyphensAndOneOrTwoDigits )
{
    for ( const char* const lText : { "00:11:1C:0A:FB:0C", "00-11-1C-0A-FB-0C", "00:11:1c:0a:fb:0c",
                                      "0:11:1c:a:FB:C", "0-11-1C-A-fb-c" } )
    {
        EthernetAddress lAddress;
        EXPECT_TRUE( lAddress.Set( lText ) ) << lText;
        EXPECT_EQ( lAddress.GetBytes(), MAC ) << lText;
    }
}

TEST( EthernetAddress, RefusesOtherTextsAndStaysUnchanged )
{
    const char* const lTexts[] = { "",
                                   ":",
                                   "00",
                                   "00:11:1C:0A:FB",
                                   "00:11:1C:0A:FB:",
                                   ":00:11:1C:0A:FB:0C",
                                   "00:11:1C:0A:FB:0C:",
                                   "00:11:1C:0A:FB:0C:0D",
                                   "00:11:1C:0A:FB:0C ",
                                   " 00:11:1C:0A:FB:0C",
                                   "00:11:1C-0A:FB:0C",
                                   "00:11-1C:0A:FB:0C",
                                   "00-11:1C-0A-FB-0C",
                                   "00::1C:0A:FB:0C",
                                   "000:11:1C:0A:FB:0C",
                                   "00:11:1C:0A:FB:0CC",
                                   "00:11:1C:0A:FB:0G",
                                   "00:11:1C:0A:FB:G0",
                                   "00.11.1C.0A.FB.0C",
                                   "0011.1C0A.FB0C",
                                   "00111C0AFB0C",
                                   "00 11 1C 0A FB 0C",
                                   "0x0:11:1C:0A:FB:0C",
                                   "\xC3\xA9:11:1C:0A:FB:0C" };
    for ( const char* const lText : lTexts )
    {
        EthernetAddress lAddress( MAC );
        EXPECT_FALSE( lAddress.Set( lText ) ) << lText;
        EXPECT_EQ( lAddress.GetBytes(), MAC ) << lText;
    }
    EthernetAddress lAddress( MAC );
    EXPECT_FALSE( lAddress.Set( nullptr ) );
    EXPECT_EQ( lAddress.GetBytes(), MAC );
}

TEST( EthernetAddress, ReadsNoFurtherThanTheText )
{
    const std::string lText = "00:11:1C:0A:FB:0C";
    for ( std::size_t lLength = 0; lLength <= lText.size(); ++lLength )
    {
        std::vector<char> lExact( lText.begin(), lText.begin() + static_cast<long>( lLength ) );
        lExact.push_back( '\0' );
        lExact.shrink_to_fit();
        EthernetAddress lAddress;
        EXPECT_EQ( lAddress.Set( lExact.data() ), lLength >= lText.size() - 1 ) << lLength;
    }
}

TEST( EthernetAddress, TheTextIsTruncatedToTheBuffer )
{
    const std::string lWhole = "00:11:1C:0A:FB:0C";
    for ( std::size_t lSize = 0; lSize <= 20; ++lSize )
    {
        std::vector<char> lBuffer( 21, '#' );
        EthernetAddress( MAC ).GetString( lBuffer.data(), lSize );
        const std::string lExpected =
            lSize == 0 ? "" : lWhole.substr( 0, lSize - 1 ) + std::string( 1, '\0' );
        const std::string lWritten( lBuffer.data(), lBuffer.size() );
        EXPECT_EQ( lWritten.substr( 0, lExpected.size() ), lExpected );
        EXPECT_EQ( lWritten.substr( lExpected.size() ),
                   std::string( lBuffer.size() - lExpected.size(), '#' ) );
    }
}

TEST( EthernetAddress, ComparesAndOrdersByBytes )
{
    const EthernetAddress lSmall( 0x0000, 0x00000001 );
    const EthernetAddress lMiddle( 0x0000, 0xFF000000 );
    const EthernetAddress lLarge( 0x0100, 0x00000000 );
    EXPECT_TRUE( lSmall < lMiddle );
    EXPECT_TRUE( lMiddle < lLarge );
    EXPECT_FALSE( lLarge < lSmall );
    EXPECT_FALSE( lSmall < lSmall );
    EXPECT_TRUE( lSmall == EthernetAddress( 0x0000, 0x00000001 ) );
    EXPECT_FALSE( lSmall != EthernetAddress( 0x0000, 0x00000001 ) );
    EXPECT_TRUE( lSmall != lLarge );
    EXPECT_FALSE( lSmall == lLarge );
}
