/// @file
/// WdUtilsLib: Ethernet (MAC) addresses.
#pragma once

#include <WdUtilsLib/Export.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace WdUtilsLib
{
namespace Network
{

/// EthernetAddress is a MAC address of six bytes.
class WDUTILSLIB_API EthernetAddress
{
public:
    static constexpr std::size_t SIZE = 6;   ///< bytes of an address
    using Bytes = std::array<uint8_t, SIZE>; ///< in the order in which they are written and sent

    /// 00:00:00:00:00:00.
    EthernetAddress() = default;

    /// The address with these bytes.
    explicit EthernetAddress( const Bytes& aBytes )
        : mBytes( aBytes )
    {
    }

    /// The address in the bootstrap registers Device MAC Address High, of which the low 16 bits
    /// count, and Low, in host order.
    EthernetAddress( uint32_t aHigh, uint32_t aLow );

    /// Set takes six bytes of one or two hexadecimal digits, with colons or with hyphens between
    /// them. It returns false for any other text and for null; the address is then unchanged.
    [[nodiscard]] bool Set( const char* aText );

    /// GetString writes the text, such as "00:11:1C:0A:0B:0C", into a buffer of aSize characters,
    /// cut to fit and null-terminated. The text has 17 characters, in capitals. With an aSize of 0
    /// nothing is written.
    void GetString( char* aBuffer, std::size_t aSize ) const;

    /// The same text. Different addresses have different texts.
    std::string GetString() const;

    /// The bytes of the address.
    const Bytes& GetBytes() const { return mBytes; }

    /// Compares, or orders, by the bytes.
    ///@{
    bool operator==( const EthernetAddress& aOther ) const { return mBytes == aOther.mBytes; }
    bool operator!=( const EthernetAddress& aOther ) const { return mBytes != aOther.mBytes; }
    bool operator<( const EthernetAddress& aOther ) const { return mBytes < aOther.mBytes; }
    ///@}

private:
    Bytes mBytes{};
};

} // namespace Network
} // namespace WdUtilsLib
