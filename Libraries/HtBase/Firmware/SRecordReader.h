// Reads an S-record file into a firmware payload.
#pragma once

#include "Libraries/HtBase/Firmware/BlockReader.h"
#include "Libraries/HtBase/Firmware/PayloadFormat.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <optional>

namespace HtBaseLib
{

class PayloadSink;
class ReaderMessages;

// What an SRecordReader checks.
//
// With checks every line has to be a record, of any type, as long as its byte count says and not
// shorter than its type needs, with the right checksum; a line without any character is passed
// over. Lines may end in CR LF. The first line that is not so is refused before it is converted,
// and ends the reading.
enum class SRecordChecks
{
    NONE,
    ALL,
    ONLY // checks and converts nothing; records that are sound cause no message
};

// SRecordReader converts the S3 records of one S-record file, once: the data of each, and its
// address where the addresses do not follow on. Other records are skipped with a warning, S0
// without. Memory does not grow with the file.
//
// A plain loop says what the result must be: characters are stored one after the other in one line
// buffer, and at every line feed and at the end of the file the buffer is parsed with sscanf. The
// buffer is never cleared, so what a line is too short for is read from an earlier, longer one.
// Lines that sscanf and a table of digits read alike, which is nearly all, are decoded by the table
// where they lie; any other line is parsed by the letter.
class SRecordReader
{
public:
    // Both are borrowed.
    SRecordReader( PayloadSink& aSink, ReaderMessages& aMessages,
                   SRecordChecks aChecks = SRecordChecks::NONE );

    // Converts the file aName; true when the whole file was converted. The file is left open.
    // False, and nothing is reported or read, when memory is missing.
    bool ConvertFile( const char* aName );

    // The same for a file that is open and stays open. aName is what messages call it.
    bool Convert( std::FILE* aFile, const char* aName );

private:
    // S, type, byte count and 255 bytes of two digits each.
    // SAFE: The line buffer of the S-record reader holds 514 characters, the most that a record
    // needs, and a zero behind them. What is longer is cut.
    static constexpr std::size_t MAX_LINE = 514;

    static_assert( MAX_LINE + 2 <= BlockReader::MAX_LEFT, "a line with CR LF may be left" );

    // The bytes of a usual line as they are decoded, from the address on. The last two bytes of the
    // address lie where the sink writes the header.
    struct Decoded
    {
        unsigned char mAddress[2];
        PayloadFormat::DataRecord mRecord;
    };
    static_assert( sizeof( Decoded ) >= 256, "address, data and checksum are decoded in vectors" );

    struct UsualLine
    {
        std::size_t mLength; // without the line feed
        std::uint32_t mAddress;
        int mCount; // data bytes
    };

    bool ConvertLines( const char* aName );
    bool EndAtZero( const char* aName );
    bool ConvertUsualLines();
    bool DecodeUsualLine( UsualLine& aLine );
    bool ConvertUsualLine( const UsualLine& aLine );
    bool CheckLine( const char* aName );
    bool ConvertLine();
    bool ConvertDataLine();
    bool ParseData( int aCount );
    bool HandOver( std::uint32_t aAddress, int aCount );

    void LookAhead();
    int ReadLine();
    void KeepUsualLine();

    PayloadSink& mSink;
    ReaderMessages& mMessages;
    const SRecordChecks mChecks;
    std::optional<BlockReader> mInput; // while converting

    // How the latest lines began, and the length of an S3 record that begins so; 0: it is none.
    // Most records of a file are of the same length.
    unsigned char mHead[4] = {};
    std::size_t mRecordLength = 0;

    std::uint32_t mExpected = 0xFFFFFFFF; // the address that needs no address record

    Decoded mDecoded = {}; // of the line that is being converted

    std::uint64_t mLineNumber = 0; // of the latest line; counted where lines are checked

    char mLine[MAX_LINE + 1] = {}; // the line buffer, always terminated

    // A usual line that belongs into the line buffer but was not copied yet; it lies in mInput.
    const unsigned char* mUsualLine = nullptr;
    std::size_t mUsualLength = 0;
};

// Checks a file that is open and stays open; aName is what messages call it. False when a line is
// refused, the file cannot be read to its end, which is a failure, or memory is missing, which is
// not reported.
bool CheckSRecords( std::FILE* aFile, const char* aName, ReaderMessages& aMessages );

} // namespace HtBaseLib
