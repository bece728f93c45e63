// Reads an S-record file into a firmware payload.
#pragma once

#include "Libraries/HtBase/DfwPayload.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>

namespace HtBaseLib
{

// SRecordReader converts one S-record file, once.
//
// What the result must be is told by a plain loop: characters are stored one after the other in one
// line buffer, and at every line feed and at the end of the file the buffer is parsed with sscanf.
// The buffer is never cleared, so what a line is too short for is read from an earlier, longer one.
// Lines that sscanf and a table of digits read alike, which is nearly all, are decoded by the table
// where they lie; any other line is parsed by the letter.
class SRecordReader
{
public:
    // All are borrowed. aName is what messages call the file.
    SRecordReader( std::FILE* aFile, const char* aName, DfwPayloadWriter& aWriter );

    // True when the whole file was converted; else what is wrong was printed on standard output.
    bool Convert();

private:
    // S, type, byte count and 255 bytes of two digits each.
    static constexpr std::size_t MAX_LINE = 514;
    static constexpr std::size_t MAX_BYTES = 251; // data and checksum
    static constexpr std::size_t BLOCK_SIZE = 65536;
    static constexpr std::size_t MARGIN = MAX_LINE + 2; // the most that a usual line takes, CR LF

    void ConvertUsualLines();
    bool ConvertUsualLine();
    bool ConvertLine();
    bool ConvertDataLine();
    void WriteData( std::uint32_t aAddress, int aCount );

    int ReadLine();
    int ReadCharacter();
    void ReadAhead();
    void KeepUsualLine();

    std::FILE* mFile;
    const char* mName;
    DfwPayloadWriter& mWriter;

    std::uint32_t mExpected = 0xFFFFFFFF; // the address that needs no address record

    // The data record of the line that is being converted; its header is left to the writer.
    unsigned char mRecord[DfwPayloadWriter::HEADER_SIZE + MAX_BYTES] = {};

    char mLine[MAX_LINE + 1] = {}; // the line buffer, always terminated

    // A usual line that belongs into the line buffer but was not copied yet; it lies in the block.
    const unsigned char* mUsualLine = nullptr;
    std::size_t mUsualLength = 0;

    // The file read ahead: a block, and in front of it what was left of the one before. An error is
    // only seen when all before it has been consumed.
    std::unique_ptr<unsigned char[]> mBlock;
    std::size_t mNext = 0;
    std::size_t mEnd = 0;
    bool mHasEnded = false; // nothing follows the block
    bool mHasFailed;        // the error indicator, as reading by single characters would see it
};

} // namespace HtBaseLib
