#include <WdUtilsLib/Network/IpAddress.h>

namespace WdUtilsLib
{
namespace Network
{

namespace
{

// Takes one number of a dotted address from aText, which it moves on. False when there is none.
bool TakeNumber( const char*& aText, uint32_t& aNumber )
{
    const char* const lStart = aText;
    uint32_t lNumber = 0;
    while ( *aText >= '0' && *aText <= '9' && aText - lStart < 3 )
    {
        lNumber = lNumber * 10 + static_cast<uint32_t>( *aText - '0' );
        ++aText;
    }
    const bool lLeadingZero = *lStart == '0' && aText - lStart > 1;
    aNumber = lNumber;
    return aText != lStart && !lLeadingZero && lNumber <= 255;
}

} // namespace

bool IpAddress::Set( const char* aText )
{
    if ( aText == nullptr )
    {
        return false;
    }
    uint32_t lValue = 0;
    for ( int lPart = 0; lPart < 4; ++lPart )
    {
        uint32_t lNumber = 0;
        if ( lPart > 0 && *aText++ != '.' )
        {
            return false;
        }
        if ( !TakeNumber( aText, lNumber ) )
        {
            return false;
        }
        lValue = ( lValue << 8 ) | lNumber;
    }
    if ( *aText != '\0' )
    {
        return false;
    }
    mValue = lValue;
    return true;
}

std::string IpAddress::GetString() const
{
    return std::to_string( mValue >> 24 ) + '.' + std::to_string( ( mValue >> 16 ) & 0xFFU ) + '.' +
           std::to_string( ( mValue >> 8 ) & 0xFFU ) + '.' + std::to_string( mValue & 0xFFU );
}

} // namespace Network
} // namespace WdUtilsLib
