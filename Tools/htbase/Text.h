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

// A register, and a value for it.
struct RegisterValue
{
    uint32_t mAddress;
    uint32_t mValue;
};

// The address of a register, a multiple of 4, and "ADDRESS=VALUE". Anything else is a usage
// failure.
uint32_t ParseRegisterAddress( const std::string& aText );
RegisterValue ParseRegisterValue( const std::string& aText );

// "0x00000A00".
std::string FormatHex( uint32_t aValue );

// "1 byte", "2 bytes", for words that take an s.
std::string FormatCount( uint64_t aCount, const std::string& aWord );

// A text from elsewhere, fit for a terminal: valid UTF-8 without control characters. What is not
// becomes \xNN for each byte, a backslash becomes two.
std::string Escape( const std::string& aText );

// Rows of cells as lines with the columns aligned by two blanks; an empty cell is shown as "-".
// The cells are escaped texts.
std::string FormatTable( const std::vector<std::vector<std::string>>& aRows );

} // namespace HtBaseTool
