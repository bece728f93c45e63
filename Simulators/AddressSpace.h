#pragma once

#include "Simulators/Datagram.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace Simulators
{

// What may be done with the four bytes of a word.
enum class Access : uint8_t
{
    NONE,     // not there
    RESERVED, // no register, but reads as 0 within a longer span
    READ_ONLY,
    READ_WRITE,
};

// The 32-bit address space of a device: regions of bytes, and what may be done with each word.
// Words are big-endian. Nothing here enforces the access, it is kept for the one who does. Any
// address may be asked about; none is undefined. Not safe for several threads at once.
class AddressSpace
{
public:
    // Adds a region. aBase is a multiple of 4; the bytes are filled up to a multiple of 4 with 0.
    // An earlier region hides a later one, and what would lie beyond 0xFFFFFFFF is unreachable.
    void Map( uint32_t aBase, Bytes aBytes, Access aAccess );

    // Changes the access of all words that lie wholly or in part in the span; those that no region
    // holds stay NONE.
    void SetAccess( uint32_t aAddress, uint32_t aSize, Access aAccess );

    // The access of the word that holds the byte. Takes 64 bits, so that a sum cannot wrap.
    Access GetAccess( uint64_t aAddress ) const;

    // 0 where nothing is mapped.
    uint8_t GetByte( uint64_t aAddress ) const;
    uint32_t GetWord( uint64_t aAddress ) const;

    // Writes whatever the access says; returns false where nothing is mapped, and then the bytes
    // that are mapped have been written.
    bool SetByte( uint64_t aAddress, uint8_t aValue );
    bool SetWord( uint64_t aAddress, uint32_t aValue );

    // Writes the text, cut to aSize bytes, and zeros behind it up to aSize.
    void SetText( uint32_t aAddress, uint32_t aSize, const std::string& aText );

    // The bytes of the region that begins at aBase; empty if there is none. Valid until the next
    // Map.
    const Bytes& GetRegion( uint32_t aBase ) const;

private:
    struct Region
    {
        uint64_t mBase = 0;
        Bytes mBytes;
        std::vector<Access> mAccess; // one per word
    };

    static constexpr size_t NOT_FOUND = static_cast<size_t>( -1 );

    // The index of the first region that holds the byte, or NOT_FOUND.
    size_t Find( uint64_t aAddress ) const;

    std::vector<Region> mRegions;
    Bytes mEmpty;
};

} // namespace Simulators
