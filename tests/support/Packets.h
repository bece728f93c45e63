// Packets of the tests: bytes that are written field by field and only concatenated.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <vector>

namespace TestSupport
{

using Bytes = std::vector<uint8_t>;

// The fields, concatenated.
inline Bytes Packet( std::initializer_list<Bytes> aFields )
{
    Bytes lPacket;
    for ( const Bytes& lField : aFields )
    {
        lPacket.insert( lPacket.end(), lField.begin(), lField.end() );
    }
    return lPacket;
}

// The first aSize bytes.
inline Bytes Prefix( const Bytes& aPacket, std::size_t aSize )
{
    return Bytes( aPacket.begin(), aPacket.begin() + static_cast<std::ptrdiff_t>( aSize ) );
}

} // namespace TestSupport
