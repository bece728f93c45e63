#pragma once

#include "Simulators/Datagram.h"

#include <PacketBytes/ByteOrder.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Simulators
{

// The access that a byte of an address space allows, the least first.
enum class Access : uint8_t
{
    NONE,     // the byte does not exist
    RESERVED, // not part of a register, but reads as 0 within a longer span
    READ_ONLY,
    READ_WRITE,
};

// AddressSpace holds the registers and the memory of a device: regions of bytes at 64-bit
// addresses, and the access to each byte. All numbers have one byte order.
//
// It does not enforce the access; the device does. Any span may be given, also one beyond the last
// address: bytes that do not exist read as 0 and are not written. Not thread-safe.
class AddressSpace
{
public:
    explicit AddressSpace( PacketBytes::ByteOrder aOrder );

    // Adds a region. Where two regions overlap, the earlier one hides the later one.
    void Map( uint64_t aBase, Bytes aBytes, Access aAccess );

    // Changes the access of the span's bytes. Those that no region holds stay NONE.
    void SetAccess( uint64_t aAddress, size_t aSize, Access aAccess );

    // The least access of all bytes of the span; READ_WRITE for an empty one.
    Access GetAccess( uint64_t aAddress, size_t aSize ) const;

    // The bytes of the span, as many as asked for.
    Bytes Read( uint64_t aAddress, size_t aSize ) const;

    // Writes the bytes that exist, whatever their access. False if some of them do not exist.
    bool Write( uint64_t aAddress, const Bytes& aBytes );

    // A number of 1 to 8 bytes, and a word of 4. A value that is too large is written with its low
    // bytes.
    uint64_t GetNumber( uint64_t aAddress, size_t aSize ) const;
    void SetNumber( uint64_t aAddress, uint64_t aValue, size_t aSize );
    uint32_t GetWord( uint64_t aAddress ) const;
    void SetWord( uint64_t aAddress, uint32_t aValue );

    // Writes the text, cut to aSize bytes, and zeros after it up to aSize.
    void SetText( uint64_t aAddress, size_t aSize, const std::string& aText );

    // The bytes of the region that begins at aBase; empty if there is none. Valid until the next
    // Map.
    const Bytes& GetRegion( uint64_t aBase ) const;

private:
    struct Region
    {
        uint64_t mBase = 0;
        Bytes mBytes;
        std::vector<Access> mAccess; // one per byte
    };

    // A byte of a region.
    struct Place
    {
        size_t mRegion = 0;
        size_t mIndex = 0;
    };

    // The byte at aAddress + aOffset; empty if it does not exist.
    std::optional<Place> Find( uint64_t aAddress, size_t aOffset ) const;

    PacketBytes::ByteOrder mOrder;
    std::vector<Region> mRegions;
    Bytes mEmpty;
};

} // namespace Simulators
