/// @file
/// WdUtilsLib: IPv4 addresses.
#pragma once

#include <WdUtilsLib/Export.h>

#include <cstdint>
#include <string>

namespace WdUtilsLib
{
namespace Network
{

/// IpAddress is an IPv4 address.
class WDUTILSLIB_API IpAddress
{
public:
    /// 0.0.0.0, any address.
    IpAddress() = default;

    /// The address with that number in host order: 0x7F000001 is 127.0.0.1.
    explicit IpAddress( uint32_t aValue )
        : mValue( aValue )
    {
    }

    /// Set takes four decimal numbers from 0 to 255 with full stops between them: at most three
    /// digits each, no leading zero and no other character. It returns false for any other text and
    /// for null; the address is then unchanged.
    [[nodiscard]] bool Set( const char* aText );

    /// The text in dotted decimal.
    std::string GetString() const;

    /// The number in host order.
    uint32_t GetValue() const { return mValue; }

    /// Compares the addresses.
    ///@{
    bool operator==( const IpAddress& aOther ) const { return mValue == aOther.mValue; }
    bool operator!=( const IpAddress& aOther ) const { return mValue != aOther.mValue; }
    ///@}

private:
    uint32_t mValue = 0;
};

} // namespace Network
} // namespace WdUtilsLib
