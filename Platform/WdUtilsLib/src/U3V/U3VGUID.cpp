#include <WdUtilsLib/U3V/U3VGUID.h>

#include <algorithm>
#include <cstring>

namespace WdUtilsLib
{
namespace U3V
{

namespace
{

constexpr std::size_t VENDOR_DIGITS = 4;

// The value of a hexadecimal digit, or -1.
int GetDigit( char aCharacter )
{
    if ( aCharacter >= '0' && aCharacter <= '9' )
    {
        return aCharacter - '0';
    }
    if ( aCharacter >= 'A' && aCharacter <= 'F' )
    {
        return aCharacter - 'A' + 10;
    }
    if ( aCharacter >= 'a' && aCharacter <= 'f' )
    {
        return aCharacter - 'a' + 10;
    }
    return -1;
}

bool IsVisible( char aCharacter )
{
    return aCharacter > ' ' && aCharacter <= '~';
}

} // namespace

U3VGUID::U3VGUID( const char* aText )
{
    (void)Set( aText ); // stays empty otherwise
}

bool U3VGUID::Set( const char* aText )
{
    if ( aText == nullptr || strnlen( aText, LENGTH + 1 ) != LENGTH ||
         !std::all_of( aText, aText + LENGTH, IsVisible ) ||
         !std::all_of( aText, aText + VENDOR_DIGITS,
                       []( char aCharacter ) { return GetDigit( aCharacter ) >= 0; } ) )
    {
        return false;
    }
    std::memmove( mText, aText, LENGTH ); // aText may be the text of this object
    return true;
}

void U3VGUID::Clear()
{
    *this = U3VGUID();
}

unsigned short U3VGUID::GetVendorID() const
{
    if ( IsEmpty() )
    {
        return 0;
    }
    int lValue = 0;
    for ( std::size_t lIndex = 0; lIndex < VENDOR_DIGITS; ++lIndex )
    {
        lValue = lValue * 16 + GetDigit( mText[lIndex] );
    }
    return static_cast<unsigned short>( lValue ); // four digits
}

bool U3VGUID::operator==( const U3VGUID& aOther ) const
{
    return std::memcmp( mText, aOther.mText, LENGTH ) == 0;
}

bool U3VGUID::operator<( const U3VGUID& aOther ) const
{
    return std::memcmp( mText, aOther.mText, LENGTH ) < 0;
}

} // namespace U3V
} // namespace WdUtilsLib
