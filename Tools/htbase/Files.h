// Files of memory contents.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace HtBaseTool
{

// Reads a whole file of 1 to aMax bytes: a regular one, or a pipe. Throws a usage failure that says
// what is wrong with it. aWhyMax follows "the 42 bytes".
std::vector<uint8_t> ReadWholeFile( const std::string& aPath, uint64_t aMax,
                                    const std::string& aWhyMax );

// Reads a whole regular file of 0 to aMax bytes. Throws a failure of status REFUSED that says what
// is wrong with it.
std::vector<uint8_t> ReadRegularFile( const std::string& aPath, uint64_t aMax );

// The part of a path behind its last slash.
std::string GetFileName( const std::string& aPath );

// Throws a usage failure when an OutputFile of this path could not be made. Leaves nothing behind.
void CheckOutputFile( const std::string& aPath );

// Throws a usage failure unless the file is a regular one that can be read. Its contents are not
// read.
void CheckInputFile( const std::string& aPath );

// Whether an OutputFile of this path would be written to directly: what it has taken cannot be
// discarded.
bool IsWrittenDirectly( const std::string& aPath );

// OutputFile is a file that appears under its name only when it is complete: until Commit it is a
// temporary file beside it, which the destructor removes. A path that is not a regular file (a
// device, a pipe) is written to directly.
class OutputFile
{
public:
    // Throws a usage failure when the file cannot be made.
    explicit OutputFile( const std::string& aPath );
    ~OutputFile();

    OutputFile( const OutputFile& ) = delete;
    OutputFile& operator=( const OutputFile& ) = delete;

    // Throw a failure when the system does not take the bytes, or the name. Nothing is written
    // after Close; Commit closes the file if that was not done yet.
    void Write( const void* aData, size_t aSize );
    void Close();
    void Commit();

private:
    void OpenTemporary();
    [[noreturn]] void ThrowFailure( const char* aTried ) const;

    const std::string mPath; // as it was given
    std::string mTarget;     // what is replaced, symbolic links resolved
    std::string mTemporary;  // empty: none
    int mDescriptor = -1;
};

} // namespace HtBaseTool
