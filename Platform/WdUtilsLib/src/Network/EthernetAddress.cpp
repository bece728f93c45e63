#include <WdUtilsLib/Network/EthernetAddress.h>

#include <PacketBytes/ByteWriter.h>

#include <cstdio>

namespace WdUtilsLib
{
namespace Network
{

namespace
{

int GetDigit( char aCharacter )
{
    if ( aCharacter >= '0' && aCharacter <= '9' )
    {
        return aCharacter - '0';
    }
    if ( aCharacter >= 'a' && aCharacter <= 'f' )
    {
        return aCharacter - 'a' + 10;
    }
    if ( aCharacter >= 'A' && aCharacter <= 'F' )
    {
        return aCharacter - 'A' + 10;
    }
    return -1;
}

// Takes one byte of one or two digits from aText, which it moves on. False when there is none.
bool TakeByte( const char*& aText, uint8_t& aByte )
{
    const int lFirst = GetDigit( *aText );
    if ( lFirst < 0 )
    {
        return false;
    }
    ++aText;
    const int lSecond = GetDigit( *aText );
    if ( lSecond < 0 )
    {
        aByte = static_cast<uint8_t>( lFirst );
        return true;
    }
    ++aText;
    aByte = static_cast<uint8_t>( lFirst * 16 + lSecond );
    return true;
}

} // namespace

EthernetAddress::EthernetAddress( uint32_t aHigh, uint32_t aLow )
{
    PacketBytes::BigWriter lWriter( mBytes.data(), mBytes.size() );
    lWriter.Put16( static_cast<uint16_t>( aHigh ) );
    lWriter.Put32( aLow );
}

bool EthernetAddress::Set( const char* aText )
{
    if ( aText == nullptr )
    {
        return false;
    }
    Bytes lBytes{};
    char lSeparator = '\0';
    for ( std::size_t lIndex = 0; lIndex < SIZE; ++lIndex )
    {
        if ( lIndex == 1 )
        {
            lSeparator = *aText;
        }
        if ( lIndex > 0 && ( *aText != lSeparator || ( lSeparator != ':' && lSeparator != '-' ) ) )
        {
            return false;
        }
        aText += lIndex > 0 ? 1 : 0;
        if ( !TakeByte( aText, lBytes[lIndex] ) )
        {
            return false;
        }
    }
    if ( *aText != '\0' )
    {
        return false;
    }
    mBytes = lBytes;
    return true;
}

void EthernetAddress::GetString( char* aBuffer, std::size_t aSize ) const
{
    (void)std::snprintf( aBuffer, aSize, "%02X:%02X:%02X:%02X:%02X:%02X", mBytes[0], mBytes[1],
                         mBytes[2], mBytes[3], mBytes[4], mBytes[5] );
}

std::string EthernetAddress::GetString() const
{
    char lText[18];
    GetString( lText, sizeof( lText ) );
    return lText;
}

} // namespace Network
} // namespace WdUtilsLib
