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

/// EthernetAddress is a MAC address of six bytes. Values of this type follow the rules of int for
/// threads.
class WDUTILSLIB_API EthernetAddress
{
public:
    /// An address's bytes, and how many.
    ///@{
    static constexpr std::size_t SIZE = 6;
    using Bytes = std::array<uint8_t, SIZE>;
    ///@}

    /// 00:00:00:00:00:00.
    EthernetAddress() = default;

    /// From the bytes in the order in which they are written and sent.
    explicit EthernetAddress( const Bytes& aBytes )
        : mBytes( aBytes )
    {
    }

    /// From the bootstrap registers Device MAC Address High (the low 16 bits count) and Low, in
    /// host order.
    EthernetAddress( uint32_t aHigh, uint32_t aLow );

    /// Set takes six bytes of one or two hexadecimal digits with colons, or with hyphens, between
    /// them. False for any other text, null included; the address is then unchanged.
    [[nodiscard]] bool Set( const char* aText );

    /// GetString writes the text, such as "00:11:1C:0A:0B:0C" (17 characters, capitals), into a
    /// buffer of aSize characters, cut to fit and null-terminated. Nothing is written when aSize is
    /// 0. The text is one-to-one with the address.
    ///@{
    void GetString( char* aBuffer, std::size_t aSize ) const;
    std::string GetString() const;
    ///@}

    /// The bytes in the order in which they are written and sent.
    const Bytes& GetBytes() const { return mBytes; }

    /// Compare, and order, by the bytes.
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
