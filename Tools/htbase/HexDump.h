// Bytes as text.
#pragma once

#include "Tools/htbase/Text.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace HtBaseTool
{

// Appends two lower-case hexadecimal digits per byte.
void AppendHex( std::string& aText, const uint8_t* aData, size_t aSize );

// HexDump formats bytes that arrive in pieces as lines of sixteen, the first at the given address:
//
//     0x00100000  48 65 6c 6c 6f 00 00 00  00 00 00 00 00 00 00 00  |Hello...........|
class HexDump
{
public:
    HexDump( uint64_t aAddress, AddressBits aBits );

    // Takes bytes and returns the lines that are full.
    std::string Add( const uint8_t* aData, size_t aSize );

    // Returns the last line, if there is one that is not full.
    std::string Finish();

private:
    std::string TakeLine();

    uint64_t mAddress;
    const AddressBits mBits;
    std::vector<uint8_t> mBytes; // of the line that is not full
};

} // namespace HtBaseTool
