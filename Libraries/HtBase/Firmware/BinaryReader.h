// Reads a binary file into a firmware payload.
#pragma once

#include <cstdint>
#include <cstdio>

namespace HtBaseLib
{

class PayloadSink;
class ReaderMessages;

// BinaryReader converts a file as it is, in records that are full but for the last.
class BinaryReader
{
public:
    // Both are borrowed.
    BinaryReader( PayloadSink& aSink, ReaderMessages& aMessages );

    // Converts the file aName, whose first byte goes to aAddress; true when the whole file was
    // converted. The file is closed unless the conversion failed.
    bool ConvertFile( const char* aName, std::uint32_t aAddress );

    // The same for a file that is open and stays open. aName is its name in messages.
    bool Convert( std::FILE* aFile, const char* aName, std::uint32_t aAddress );

private:
    PayloadSink& mSink;
    ReaderMessages& mMessages;
};

} // namespace HtBaseLib
