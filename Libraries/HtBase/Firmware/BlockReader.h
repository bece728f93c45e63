// Reads a file ahead, a block at a time.
#pragma once

#include <cstddef>
#include <cstdio>
#include <memory>

namespace HtBaseLib
{

// BlockReader holds the part of a file that was read and not consumed yet: one block, and in front
// of it what was left of the block before.
//
// KEEP: A whole block is read before any of it is processed. On a pipe the S-record reader waits
// until a block is full or the pipe ends, so it answers later than one that reads single characters
// would.
class BlockReader
{
public:
    // The most that ReadAhead may find left.
    static constexpr std::size_t MAX_LEFT = 516;

    // The file is borrowed, and nothing is read yet. Throws std::bad_alloc.
    explicit BlockReader( std::FILE* aFile );

    // So many bytes behind what was read may be read as well; they have no meaning.
    static constexpr std::size_t SLACK = 32;

    // What was read and not consumed.
    const unsigned char* GetText() const { return mBlock.get() + mNext; }
    std::size_t GetSize() const { return mEnd - mNext; }
    void Consume( std::size_t aSize ) { mNext += aSize; }

    // Reads the next block, and moves what is left to its front. Where the file has ended, nothing
    // changes.
    void ReadAhead();

    // Consumes a character and returns it. EOF where the file has ended.
    int ReadCharacter();

    // The error indicator of the file, as reading by single characters would see it: an error
    // counts when all before it has been consumed.
    bool HasFailed() const { return mHasFailed; }

private:
    static constexpr std::size_t BLOCK_SIZE = 65536;

    std::FILE* mFile;
    std::unique_ptr<unsigned char[]> mBlock;
    std::size_t mNext = 0;
    std::size_t mEnd = 0;
    bool mHasEnded = false; // nothing follows the block
    bool mHasFailed;
};

} // namespace HtBaseLib
