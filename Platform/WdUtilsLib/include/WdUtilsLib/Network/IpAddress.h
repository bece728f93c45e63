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

/// IpAddress is an IPv4 address. Values of this type follow the rules of int for threads.
class WDUTILSLIB_API IpAddress
{
public:
    /// 0.0.0.0, any address.
    IpAddress() = default;

    /// From a number in host order: 0x7F000001 is 127.0.0.1.
    explicit IpAddress( uint32_t aValue )
        : mValue( aValue )
    {
    }

    /// Set takes four decimal numbers from 0 to 255 with a full stop between them, nothing before,
    /// after or within, at most three digits each and no leading zero. False for any other text,
    /// null included; the address is then unchanged.
    [[nodiscard]] bool Set( const char* aText );

    /// The dotted text.
    std::string GetString() const;

    /// The address in host order.
    uint32_t GetValue() const { return mValue; }

    /// Compare the addresses.
    ///@{
    bool operator==( const IpAddress& aOther ) const { return mValue == aOther.mValue; }
    bool operator!=( const IpAddress& aOther ) const { return mValue != aOther.mValue; }
    ///@}

private:
    uint32_t mValue = 0;
};

} // namespace Network
} // namespace WdUtilsLib
