// The records of a firmware payload, and the readers that turn firmware images into them.
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
//                                beyond what n says
//   'R' reset           0
//   'E' end             4        32-bit value
#pragma once

#include "Libraries/HtBase/IoStream.h"

#include <cstdint>
#include <cstdio>
#include <memory>

namespace HtBaseLib
{

// DfwPayloadWriter writes the records of a payload to a stream, finds records in one, and converts
// firmware images. Not copyable. One thread at a time.
//
// The writing operations do not look at how much the stream took: a full stream cuts the payload
// off, and what was written before a failure stays written.
//
// The readers say what is wrong with their file on standard output and answer whether the whole
// file was converted. Each comes as two operations: one opens a file, the other converts a stream
// that is open and stays open; aName is what messages call it. Memory does not grow with the file.
class DfwPayloadWriter
{
public:
    // Type and length byte.
    static constexpr unsigned int HEADER_SIZE = 2;

    // The most that one data record holds.
    static constexpr unsigned int MAX_DATA_SIZE = 254;

    // The text of an identification record is filled up with zeros to this length.
    static constexpr unsigned int MIN_ID_SIZE = 16;

    // Takes ownership of the stream.
    explicit DfwPayloadWriter( std::unique_ptr<IoStream> aTarget );

    // Closes the stream, then deletes it.
    ~DfwPayloadWriter();

    DfwPayloadWriter( const DfwPayloadWriter& ) = delete;
    DfwPayloadWriter& operator=( const DfwPayloadWriter& ) = delete;

    bool WriteAddressRecord( std::uint32_t aAddress );

    // False, and nothing is written, for more than MAX_DATA_SIZE bytes; no bytes are no record and
    // true. aBytes may be null when there are none.
    bool WriteDataRecord( const unsigned char* aBytes, unsigned int aCount );

    // The same for data that stands behind HEADER_SIZE bytes, which are overwritten with the
    // header: spares a copy.
    bool WriteDataInPlace( unsigned char* aRecord, unsigned int aCount );

    // As many data records as it takes, all full but the last.
    bool WriteData( const unsigned char* aBytes, unsigned int aCount );

    bool WriteVersionRecord( unsigned char aFirst, unsigned char aSecond, unsigned char aThird );

    // The two flags select the mode: (false, true) none, (true, true) 'D', (false, false) 'U',
    // (true, false) 'f'.
    bool WriteTargetRecord( unsigned char aFirst, unsigned char aSecond, std::uint16_t aValue,
                            bool aFirstFlag, bool aSecondFlag );

    // False, and nothing is written, for more than 255 bytes of text, since the length byte cannot
    // tell them.
    bool WriteIdRecord( const char* aText, unsigned int aLength );

    bool WriteResetRecord();
    bool WriteEndRecord( std::uint32_t aValue );

    // Find the first version record of exactly 3 bytes, or the first target record of at least 5.
    // A target record that does not begin with 0x02 or whose mode letter is unknown is a failure,
    // whatever comes after it; one that is longer than 6 bytes has no mode. The search starts at
    // the first byte of the stream and leaves the position where it ended. False, and the outputs
    // are unchanged, when there is no such record or it is cut off.
    bool ReadVersionRecord( unsigned char& aFirst, unsigned char& aSecond, unsigned char& aThird );
    bool ReadTargetRecord( unsigned char& aFirst, unsigned char& aSecond, std::uint16_t& aValue,
                           bool& aFirstFlag, bool& aSecondFlag );

    // Write the record that aSource's Read operation finds; nothing when it finds none.
    bool CopyVersionRecord( DfwPayloadWriter& aSource );
    bool CopyTargetRecord( DfwPayloadWriter& aSource );

    // The stream's bytes written.
    unsigned int GetSize() const;

    // Converts the S3 records of an S-record file, one data record each, with an address record
    // where the addresses do not follow on. Other records are skipped with a warning, S0 without.
    // Checksums are not looked at. The file is left open. False, and nothing is printed or read,
    // when memory is missing.
    bool AddSRecordFile( const char* aName );
    bool AddSRecords( std::FILE* aFile, const char* aName );

    // Converts a file as it is, to be placed at aAddress. The file is closed unless reading it
    // failed.
    bool AddBinaryFile( const char* aName, std::uint32_t aAddress );
    bool AddBinary( std::FILE* aFile, const char* aName, std::uint32_t aAddress );

    // Converts lines of two or four hexadecimal digits. "@" and a hexadecimal number is an address
    // in units of two bytes; "/" begins a comment. The file is closed unless converting it failed.
    bool AddWordHexFile( const char* aName );
    bool AddWordHex( std::FILE* aFile );

private:
    bool WriteRecord( char aType, const unsigned char* aBytes, unsigned int aLength );
    bool WriteInPlace( char aType, unsigned char* aRecord, unsigned int aLength );
    bool WriteNumberRecord( char aType, std::uint32_t aNumber );
    bool FindRecord( char aType, unsigned int aMinLength, unsigned int aMaxLength,
                     unsigned int& aLength );
    bool ReadMode( bool& aFirstFlag, bool& aSecondFlag );
    bool ReadBytes( unsigned char* aBytes, unsigned int aCount );

    std::unique_ptr<IoStream> mTarget;
};

} // namespace HtBaseLib
