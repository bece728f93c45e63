// What the readers of firmware images print.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

namespace HtBaseTool
{

// ReaderOutput takes what is printed on standard output while it lives: there the readers complain,
// where the program's own output belongs. One at a time, and no other thread may print meanwhile.
class ReaderOutput
{
public:
    // aPath names the file that is read. Throws std::system_error when there is no memory.
    explicit ReaderOutput( const std::string& aPath );
    ~ReaderOutput();

    ReaderOutput( const ReaderOutput& ) = delete;
    ReaderOutput& operator=( const ReaderOutput& ) = delete;

    // Gives standard output back and prints the warnings about record types on standard error, each
    // type once; not those that every good file has: S5, S7, S8 and S9. Returns what else was
    // printed, without line end: why the reader failed.
    std::string Finish();

private:
    static ssize_t Take( void* aSelf, const char* aText, size_t aSize );
    void TakeWarnings();
    void Restore();

    const std::string mPath;
    std::FILE* const mOutput; // the real one
    std::FILE* mCapture;      // null: given back
    std::string mText;        // not understood yet
    uint64_t mWarnings[256] = {};
};

} // namespace HtBaseTool
