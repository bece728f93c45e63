// The stream that a firmware payload is written to.
#pragma once

#include "Libraries/HtBase/IoStream.h"

#include <cstdint>
#include <exception>
#include <vector>

namespace HtBaseTool
{

class OutputFile;

// The outcome of the writes. The writer of the payload does not check it, and it is needed after
// the stream is destroyed.
struct PayloadOutcome
{
    uint64_t mSize = 0;          // bytes that were to be written
    std::exception_ptr mFailure; // the first Failure of the file; null: none
};

// PayloadStream writes to an OutputFile through a buffer. It is written to only: reading finds
// nothing and moving fails. Closing it closes the file and gives it no name yet; nothing can be
// written afterwards.
class PayloadStream final : public HtBaseLib::IoStream
{
public:
    // Both are borrowed.
    PayloadStream( OutputFile& aFile, PayloadOutcome& aOutcome );
    ~PayloadStream() override; // closes

    // 0, or EOF when anything could not be written; the outcome says why.
    int Close() override;

    // Returns aCount, or 0 when the file has failed. Adds the bytes to the bytes written.
    unsigned int Write( const void* aData, unsigned int aSize, unsigned int aCount ) override;

    unsigned int Read( void* aData, unsigned int aSize, unsigned int aCount ) override;
    int Rewind() override;
    unsigned int Skip( unsigned int aOffset ) override;

private:
    void Flush();

    OutputFile& mFile;
    PayloadOutcome& mOutcome;
    std::vector<uint8_t> mBuffer; // its size is its room
    size_t mFilled = 0;
};

} // namespace HtBaseTool
