// The records of a firmware payload.
//
//   0       1       2              2 + n
//   +-------+-------+---------------+
//   | type  | n     | n bytes       |    numbers in the payload are big-endian
//   +-------+-------+---------------+
//
//   'T' target          5 or 6   0x02, two target bytes, 16-bit value, mode letter if n is 6
//   'V' version         3        three bytes
//   'O' address         4        32 bits, where the data records after it go
//   'D' data            1..254   the bytes
//   'I' identification  1..255   text without terminator; zero bytes follow up to 16 bytes of text,
//                                which n does not count
//   'R' reset           0
//   'E' end             4        32-bit value
#pragma once

namespace HtBaseLib::PayloadFormat
{

constexpr char TARGET = 'T';
constexpr char VERSION = 'V';
constexpr char ADDRESS = 'O';
constexpr char DATA = 'D';
constexpr char IDENTIFICATION = 'I';
constexpr char RESET = 'R';
constexpr char END = 'E';

constexpr unsigned int HEADER_SIZE = 2; // type and length byte
constexpr unsigned int MAX_LENGTH = 0xFF;

constexpr unsigned int VERSION_SIZE = 3;
constexpr unsigned int MAX_DATA_SIZE = 254;
constexpr unsigned int MIN_ID_SIZE = 16; // shorter texts are filled up with zeros

constexpr unsigned char TARGET_PREFIX = 0x02;
constexpr unsigned int TARGET_SIZE = 5; // without mode letter
constexpr unsigned int TARGET_SIZE_WITH_MODE = 6;

// The mode of a target: two flags, and the letter that encodes them.
struct Mode
{
    bool mFirst;
    bool mSecond;
    char mLetter;
};

// KEEP: The mode letter `f` is lower case, and the mode (false, true) has none: its record is a
// byte shorter.
constexpr Mode MODES[] = {
    { true, true, 'D' },
    { false, false, 'U' },
    { true, false, 'f' },
};

// A data record that is being built. The source of the data fills in the bytes, and the writer of
// the record fills in the header, so the bytes are not copied.
struct DataRecord
{
    unsigned char mHeader[HEADER_SIZE];
    unsigned char mBytes[MAX_DATA_SIZE];
};
static_assert( sizeof( DataRecord ) == HEADER_SIZE + MAX_DATA_SIZE, "the bytes follow the header" );

} // namespace HtBaseLib::PayloadFormat
