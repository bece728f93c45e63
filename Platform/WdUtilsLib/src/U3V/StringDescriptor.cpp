#include <WdUtilsLib/U3V/StringDescriptor.h>

#include <WdUtilsLib/U3V/CommandHeader.h>

#include "LittleEndian.h"

#include <algorithm>
#include <string>

namespace WdUtilsLib
{
namespace U3V
{

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
    if ( aSize < HEADER_SIZE || aBytes[0] < HEADER_SIZE || aBytes[1] != TYPE )
    {
        return INVALID_PACKET;
    }
    mUnits = aBytes + HEADER_SIZE;
    mCount = ( std::min<std::size_t>( aBytes[0], aSize ) - HEADER_SIZE ) / 2;
    return Result::OK;
}

uint16_t StringDescriptor::GetLanguage() const
{
    return mCount == 0 ? uint16_t{ 0 } : GetLittle16( mUnits );
}

String StringDescriptor::GetText() const
{
    std::wstring lText;
    for ( std::size_t lIndex = 0; lIndex < mCount; ++lIndex )
    {
        uint32_t lCharacter = GetLittle16( mUnits + 2 * lIndex );
        if ( sizeof( wchar_t ) > 2 && IsHighSurrogate( lCharacter ) && lIndex + 1 < mCount )
        {
            const uint32_t lLow = GetLittle16( mUnits + 2 * lIndex + 2 );
            if ( IsLowSurrogate( lLow ) )
            {
                lCharacter = 0x10000 + ( ( lCharacter - 0xD800 ) << 10 ) + ( lLow - 0xDC00 );
                ++lIndex;
            }
        }
        lText += static_cast<wchar_t>( lCharacter );
    }
    return String( lText.c_str() );
}

} // namespace U3V
} // namespace WdUtilsLib
