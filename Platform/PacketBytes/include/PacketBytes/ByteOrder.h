/// @file
/// PacketBytes: the order of a number's bytes in a packet.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace PacketBytes
{

/// ByteOrder is the order of a number's bytes in a packet.
enum class ByteOrder
{
    BIG,    ///< the most significant byte first: GVCP and TFTP
    LITTLE, ///< the least significant byte first: GenCP and USB
    HOST    ///< as the number lies in this machine's memory
};

/// HalfOf is the unsigned number of half the size of NUMBER, which has 2, 4 or 8 bytes.
template <typename NUMBER>
using HalfOf = std::conditional_t<sizeof( NUMBER ) == 2, uint8_t,
                                  std::conditional_t<sizeof( NUMBER ) == 4, uint16_t, uint32_t>>;

/// Load returns the unsigned number in the `sizeof( NUMBER )` bytes at aBytes. It reads by halves,
/// which compilers turn into one load and, where needed, a swap of its bytes.
template <ByteOrder ORDER, typename NUMBER>
NUMBER Load( const unsigned char* aBytes )
{
    NUMBER lNumber = 0;
    if constexpr ( ORDER == ByteOrder::HOST || sizeof( NUMBER ) == 1 )
    {
        std::memcpy( &lNumber, aBytes, sizeof( lNumber ) );
    }
    else
    {
        using Half = HalfOf<NUMBER>;
        constexpr std::size_t HALF = sizeof( Half );
        const NUMBER lFirst = Load<ORDER, Half>( aBytes );
        const NUMBER lSecond = Load<ORDER, Half>( aBytes + HALF );
        lNumber = static_cast<NUMBER>( ORDER == ByteOrder::BIG ? lFirst << ( 8 * HALF ) | lSecond
                                                               : lSecond << ( 8 * HALF ) | lFirst );
    }
    return lNumber;
}

/// Store writes an unsigned number to the `sizeof( NUMBER )` bytes at aBytes.
template <ByteOrder ORDER, typename NUMBER>
void Store( NUMBER aValue, unsigned char* aBytes )
{
    if constexpr ( ORDER == ByteOrder::HOST || sizeof( NUMBER ) == 1 )
    {
        std::memcpy( aBytes, &aValue, sizeof( aValue ) );
    }
    else
    {
        using Half = HalfOf<NUMBER>;
        constexpr std::size_t HALF = sizeof( Half );
        const auto lHigh = static_cast<Half>( aValue >> ( 8 * HALF ) );
        const auto lLow = static_cast<Half>( aValue );
        Store<ORDER>( ORDER == ByteOrder::BIG ? lHigh : lLow, aBytes );
        Store<ORDER>( ORDER == ByteOrder::BIG ? lLow : lHigh, aBytes + HALF );
    }
}

} // namespace PacketBytes
