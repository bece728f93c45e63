#include <WdUtilsLib/U3V/StringDescriptor.h>

#include <PacketBytes/ByteReader.h>
#include <WdUtilsLib/U3V/CommandHeader.h>

#include <string>

namespace WdUtilsLib
{
namespace U3V
{

using PacketBytes::LittleReader;
using QmUtilsLib::Result;
using QmUtilsLib::String;

namespace
{

constexpr std::size_t HEADER_SIZE = 2;
constexpr unsigned char TYPE = 3;

bool IsHighSurrogate( uint32_t aUnit )
{
    return aUnit >= 0xD800 && aUnit <= 0xDBFF;
}

bool IsLowSurrogate( uint32_t aUnit )
{
    return aUnit >= 0xDC00 && aUnit <= 0xDFFF;
}

} // namespace

Result StringDescriptor::Attach( const unsigned char* aBytes, std::size_t aSize )
{
    *this = StringDescriptor();
    LittleReader lReader( aBytes, aSize );
    const std::size_t lLength = lReader.Get8();
    const uint8_t lType = lReader.Get8();
    if ( lLength < HEADER_SIZE || lType != TYPE )
    {
        return INVALID_PACKET;
    }
    mUnits = aBytes + HEADER_SIZE;
    mCount = lReader.GetUpTo( lLength - HEADER_SIZE ).GetLeft() / 2;
    return Result::OK;
}

uint16_t StringDescriptor::GetLanguage() const
{
    return LittleReader( mUnits, 2 * mCount ).Get16();
}

String StringDescriptor::GetText() const
{
    std::wstring lText;
    LittleReader lReader( mUnits, 2 * mCount );
    while ( lReader.GetLeft() != 0 )
    {
        uint32_t lCharacter = lReader.Get16();
        const uint32_t lNext = LittleReader( lReader ).Get16(); // 0 behind the last
        if ( sizeof( wchar_t ) > 2 && IsHighSurrogate( lCharacter ) && IsLowSurrogate( lNext ) )
        {
            lCharacter = 0x10000 + ( ( lCharacter - 0xD800 ) << 10 ) + ( lNext - 0xDC00 );
            lReader.Skip( 2 );
        }
        lText += static_cast<wchar_t>( lCharacter );
    }
    return String( lText.c_str() );
}

} // namespace U3V
} // namespace WdUtilsLib
