// Dumping and loading memory, the same for all devices.
#pragma once

#include "Tools/htbase/Device.h"
#include "Tools/htbase/Program.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace HtBaseTool
{

// The user's options, besides the device.
struct DumpOptions
{
    std::string mAddress;
    std::string mLength;
    std::optional<std::string> mPath;
};

struct LoadOptions
{
    std::string mAddress;
    std::string mPath;
};

// Add ADDRESS, LENGTH and -o, or ADDRESS and FILE.
void AddDumpOptions( CLI::App& aCommand, DumpOptions& aOptions );
void AddLoadOptions( CLI::App& aCommand, LoadOptions& aOptions );

// Bytes of a device: the range that was asked for, and the whole words that hold it. Offsets are
// counted from the first byte of those words, so that nothing wraps at the last address.
class Range
{
public:
    static constexpr uint32_t WORD = 4;

    // aLength: at least 1; the range must end within the addresses.
    Range( uint64_t aAddress, uint64_t aLength )
        : mAddress( aAddress )
        , mLength( aLength )
    {
    }

    uint64_t GetAddress() const { return mAddress; }
    uint64_t GetLength() const { return mLength; }
    uint64_t GetFirstWord() const { return mAddress - GetHead(); }
    uint64_t GetWordsSize() const { return ( GetEnd() + WORD - 1 ) / WORD * WORD; }

    // Bytes of the words before the range, and before its end.
    uint64_t GetHead() const { return mAddress % WORD; }
    uint64_t GetEnd() const { return GetHead() + mLength; }
    bool IsHeadPartial() const { return GetHead() != 0; }
    bool IsTailPartial() const { return GetEnd() != GetWordsSize(); }

    // How many bytes of the range are before an offset in the words.
    uint64_t CountBefore( uint64_t aOffset ) const;

private:
    uint64_t mAddress;
    uint64_t mLength;
};

// The whole words around a file's bytes.
struct Image
{
    Range mRange;
    std::vector<uint8_t> mWords;

    // ", 0 of 1024 bytes reached the device".
    std::string GetHowMany( uint64_t aDone ) const;
};

// Throw a usage failure.
Range ParseRange( const DumpOptions& aOptions, AddressBits aBits );
Image ReadImage( const LoadOptions& aOptions, AddressBits aBits );

// Finds out how much a command may carry; may ask the device, and throw a Failure.
using PieceSizesQuery = std::function<PieceSizes()>;

// Reads the range in pieces, with a progress bar, to where the options say: a file, the report, or
// lines on standard output. Throws a Failure.
void DumpRange( Program& aProgram, Device& aDevice, const Range& aRange,
                const DumpOptions& aOptions, const PieceSizesQuery& aQuery );

// StatisticsAtEnd puts the statistics last, and also when the transfer failed.
class StatisticsAtEnd
{
public:
    StatisticsAtEnd( Program& aProgram, const Device& aDevice )
        : mProgram( aProgram )
        , mDevice( aDevice )
    {
    }
    ~StatisticsAtEnd();
    StatisticsAtEnd( const StatisticsAtEnd& ) = delete;
    StatisticsAtEnd& operator=( const StatisticsAtEnd& ) = delete;

private:
    Program& mProgram;
    const Device& mDevice;
};

// Begins the report of a load.
void BeginLoad( Program& aProgram, const Device& aDevice, const Image& aImage,
                const LoadOptions& aOptions );

// Writes the image in pieces of aPieceSize, with a progress bar. The bytes around the range in its
// first and last word are those that the device holds. Throws a Failure.
void LoadImage( Program& aProgram, Device& aDevice, Image& aImage, uint32_t aPieceSize );

} // namespace HtBaseTool
