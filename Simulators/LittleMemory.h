#pragma once

#include "Simulators/Datagram.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace Simulators
{

// Appends a little-endian number of aSize bytes, 1 to 8.
void AppendLittle( Bytes* aBytes, uint64_t aValue, size_t aSize );

// The little-endian number of aSize bytes, 1 to 8, at aOffset; what lies beyond aBytes counts as 0.
uint64_t GetLittle( const Bytes& aBytes, size_t aOffset, size_t aSize );

// A 64-bit address space of bytes in regions; numbers in it are little-endian. Which bytes may be
// written is kept for the one who enforces it. A span lies in the space when it lies in one region.
// Not safe for several threads at once.
class LittleMemory
{
public:
    // Adds a region; an earlier one hides a later one. It does not reach beyond the last address.
    void Map( uint64_t aBase, Bytes aBytes, bool aIsWritable );

    // Lets the bytes of the span that lie in the region of its first byte be written.
    void Allow( uint64_t aAddress, size_t aSize );

    bool Contains( uint64_t aAddress, size_t aSize ) const;
    bool IsWritable( uint64_t aAddress, size_t aSize ) const;

    // Whatever may be written. Empty, or false, where the span does not lie in the space.
    Bytes Read( uint64_t aAddress, size_t aSize ) const;
    bool Write( uint64_t aAddress, const Bytes& aBytes );

    // A number of 1 to 8 bytes; 0 where there is none.
    uint64_t GetNumber( uint64_t aAddress, size_t aSize ) const;
    bool SetNumber( uint64_t aAddress, uint64_t aValue, size_t aSize );

    // The text, cut to aSize bytes, and zeros behind it up to aSize.
    bool SetText( uint64_t aAddress, size_t aSize, const std::string& aText );

private:
    struct Region
    {
        uint64_t mBase = 0;
        Bytes mBytes;
        std::vector<bool> mIsWritable; // one per byte
    };

    const Region* Find( uint64_t aAddress, size_t aSize ) const;
    Region* Find( uint64_t aAddress, size_t aSize );

    std::vector<Region> mRegions;
};

} // namespace Simulators
