// Numbers and texts as the program reads and prints them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace HtBaseTool
{

// Reads a number of 32 bits, decimal or hexadecimal with 0x in front; nothing else, no sign and no
// blank. aWhat names it in the usage failure that is thrown otherwise ("address").
uint32_t ParseNumber( const std::string& aText, const std::string& aWhat );

// "0x00000A00"; a number that needs more digits has more.
std::string FormatHex( uint64_t aValue, int aDigits = 8 );

// How wide the addresses of a device are.
enum class AddressBits : unsigned int
{
    GEV = 32,
    U3V = 64
};

// The same for an address, and the largest one that there is.
uint64_t ParseAddress( const std::string& aText, AddressBits aBits );
uint64_t GetLastAddress( AddressBits aBits );

// An address with all its digits.
std::string FormatAddress( uint64_t aAddress, AddressBits aBits );

// "1 byte", "2 bytes", for words that take an s.
std::string FormatCount( uint64_t aCount, const std::string& aWord );

// "999 B/s", "1.0 kB/s", "12.5 MB/s". The value is not negative.
std::string FormatScaled( double aValue, const std::string& aUnit );

// A text from elsewhere, fit for a terminal: valid UTF-8 without control characters. What is not
// becomes \xNN for each byte, a backslash becomes two.
std::string Escape( const std::string& aText );

// Rows of cells as lines with the columns aligned by two blanks; an empty cell is shown as "-".
// The cells are escaped texts.
std::string FormatTable( const std::vector<std::vector<std::string>>& aRows );

} // namespace HtBaseTool
