#include "Tools/htbase/HexDump.h"

namespace HtBaseTool
{

namespace
{

constexpr size_t LINE = 16;

} // namespace

void AppendHex( std::string& aText, const uint8_t* aData, size_t aSize )
{
    constexpr const char* DIGITS = "0123456789abcdef";
    for ( size_t lIndex = 0; lIndex < aSize; ++lIndex )
    {
        aText += DIGITS[aData[lIndex] >> 4];
        aText += DIGITS[aData[lIndex] & 0x0F];
    }
}

HexDump::HexDump( uint64_t aAddress, AddressBits aBits )
    : mAddress( aAddress )
    , mBits( aBits )
{
}

std::string HexDump::Add( const uint8_t* aData, size_t aSize )
{
    std::string lLines;
    for ( size_t lIndex = 0; lIndex < aSize; ++lIndex )
    {
        mBytes.push_back( aData[lIndex] );
        if ( mBytes.size() == LINE )
        {
            lLines += TakeLine();
        }
    }
    return lLines;
}

std::string HexDump::Finish()
{
    return mBytes.empty() ? std::string() : TakeLine();
}

std::string HexDump::TakeLine()
{
    std::string lLine = FormatAddress( mAddress, mBits ) + " ";
    std::string lText;
    for ( size_t lIndex = 0; lIndex < LINE; ++lIndex )
    {
        lLine += lIndex == LINE / 2 ? "  " : " ";
        if ( lIndex >= mBytes.size() )
        {
            lLine += "  ";
            continue;
        }
        const uint8_t lByte = mBytes[lIndex];
        AppendHex( lLine, &lByte, 1 );
        lText += lByte >= 0x20 && lByte < 0x7F ? static_cast<char>( lByte ) : '.';
    }
    mAddress += LINE; // wraps behind the last line only
    mBytes.clear();
    return lLine + "  |" + lText + "|\n";
}

} // namespace HtBaseTool
