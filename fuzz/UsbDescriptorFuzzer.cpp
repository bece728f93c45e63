// The descriptors of a USB3 Vision device: whatever it says of itself, a look at it ends, stays
// within it, and finds what a plain reading finds.

#include "fuzz/FuzzTarget.h"

#include <WdUtilsLib/U3V/DeviceInfoDescriptor.h>
#include <WdUtilsLib/U3V/StringDescriptor.h>
#include <WdUtilsLib/U3V/U3VGUID.h>

#include <cstring>
#include <string>

namespace
{

namespace U3V = WdUtilsLib::U3V;
using U3V::DeviceInfoDescriptor;

// Where the device information begins among descriptors, each of which begins with its own length;
// beyond the end where there is none.
std::size_t FindDeviceInfo( const std::uint8_t* aData, std::size_t aSize )
{
    std::size_t lPlace = 0;
    while ( lPlace < aSize && aData[lPlace] >= 2 && aData[lPlace] <= aSize - lPlace )
    {
        if ( aData[lPlace] >= 20 && aData[lPlace + 1] == 0x24 && aData[lPlace + 2] == 0x01 )
        {
            return lPlace;
        }
        lPlace += aData[lPlace];
    }
    return aSize;
}

std::uint32_t GetLittle32( const std::uint8_t* aBytes )
{
    std::uint32_t lNumber = 0;
    for ( const int lPlace : { 3, 2, 1, 0 } )
    {
        lNumber = lNumber << 8 | aBytes[lPlace];
    }
    return lNumber;
}

void TryDeviceInfo( const std::uint8_t* aData, std::size_t aSize )
{
    const std::uint8_t lNothing[20] = {};
    const std::size_t lPlace = FindDeviceInfo( aData, aSize );
    const bool lIsThere = lPlace < aSize;
    const std::uint8_t* const lPlain = lIsThere ? aData + lPlace : lNothing;
    DeviceInfoDescriptor lInfo;
    Fuzz::Require( lInfo.Attach( aData, aSize ).IsOK() == lIsThere, "device information" );
    Fuzz::Require( lInfo.GetGenCPVersion() == GetLittle32( lPlain + 3 ), "GenCP version" );
    Fuzz::Require( lInfo.GetU3VVersion() == GetLittle32( lPlain + 7 ), "USB3 Vision version" );
    for ( int lText = 0; lText < 8; ++lText )
    {
        Fuzz::Require( lInfo.GetTextIndex( static_cast<DeviceInfoDescriptor::Text>( lText ) ) ==
                           lPlain[11 + lText],
                       "index of a text" );
    }
}

// The number of characters of a text of UTF-16, up to its first zero; whatever is not half of a
// pair counts for one.
std::size_t CountCharacters( const std::uint8_t* aUnits, std::size_t aCount )
{
    std::size_t lCharacters = 0;
    bool lIsAfterHigh = false; // a low surrogate would now end a pair
    for ( std::size_t lIndex = 0; lIndex < aCount; ++lIndex )
    {
        const unsigned int lUnit = aUnits[2 * lIndex] + 256U * aUnits[2 * lIndex + 1];
        if ( lUnit == 0 )
        {
            break;
        }
        const bool lEndsPair = lIsAfterHigh && lUnit >= 0xDC00 && lUnit <= 0xDFFF;
        lCharacters += lEndsPair ? 0 : 1;
        lIsAfterHigh = lUnit >= 0xD800 && lUnit <= 0xDBFF;
    }
    return lCharacters;
}

bool IsIdentity( const std::string& aText )
{
    const std::string DIGITS = "0123456789ABCDEFabcdef";
    for ( const char lCharacter : aText )
    {
        if ( lCharacter < '!' || lCharacter > '~' )
        {
            return false;
        }
    }
    return aText.size() == 12 && aText.find_first_not_of( DIGITS ) >= 4;
}

void TryIdentity( const std::string& aText )
{
    U3V::U3VGUID lIdentity( "1AB200000001" );
    const bool lIsTaken = lIdentity.Set( aText.c_str() );
    Fuzz::Require( lIsTaken == IsIdentity( aText ), "identities are told from other texts" );
    Fuzz::Require( lIdentity.Get() == ( lIsTaken ? aText : "1AB200000001" ), "the identity" );
    const std::string lVendor = std::string( lIdentity.Get() ).substr( 0, 4 );
    Fuzz::Require( lIdentity.GetVendorID() == std::stoul( lVendor, nullptr, 16 ), "the vendor" );
}

void TryString( const std::uint8_t* aData, std::size_t aSize )
{
    U3V::StringDescriptor lDescriptor;
    const bool lIsThere = aSize >= 2 && aData[0] >= 2 && aData[1] == 3;
    Fuzz::Require( lDescriptor.Attach( aData, aSize ).IsOK() == lIsThere, "string descriptors" );
    const std::size_t lTold = lIsThere ? aData[0] : 2;
    const std::size_t lCount = ( ( lTold < aSize || !lIsThere ? lTold : aSize ) - 2 ) / 2;
    const unsigned int lLanguage = lCount == 0 ? 0 : aData[2] + 256U * aData[3];
    Fuzz::Require( lDescriptor.GetLanguage() == lLanguage, "the first language" );
    const QmUtilsLib::String lText = lDescriptor.GetText();
    const std::size_t lCharacters = lCount == 0 ? 0 : CountCharacters( aData + 2, lCount );
    Fuzz::Require( lText.GetLength() == lCharacters, "as many characters as there are" );
    TryIdentity( lText.GetAscii() );
}

} // namespace

// An input is what a device has sent; it is looked at as descriptors that follow an interface, as a
// string descriptor, and up to its first zero as an identity.
int LLVMFuzzerTestOneInput( const std::uint8_t* aData, std::size_t aSize )
{
    TryDeviceInfo( aData, aSize );
    TryString( aData, aSize );
    const std::string lText( reinterpret_cast<const char*>( aData ), aSize );
    TryIdentity( lText.substr( 0, lText.find( '\0' ) ) );
    return 0;
}
