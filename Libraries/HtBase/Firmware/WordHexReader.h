// Reads a text of hexadecimal words into a firmware payload.
#pragma once

#include <cstdint>
#include <cstdio>

namespace HtBaseLib
{

class PayloadSink;
class ReaderMessages;

// WordHexReader converts one file of lines of two or four hexadecimal digits, once. "@" and a
// hexadecimal number is an address in units of two bytes; "/" begins a comment.
class WordHexReader
{
public:
    // Both are borrowed.
    WordHexReader( PayloadSink& aSink, ReaderMessages& aMessages );

    // Converts the file aName; true when the whole file was converted. The file is closed unless
    // the conversion failed.
    bool ConvertFile( const char* aName );

    // The same for a file that is open and stays open.
    bool Convert( std::FILE* aFile );

private:
    static constexpr unsigned int SLOT_COUNT = 256;

    bool ConvertLine( const char* aLine );
    bool ConvertAddress( const char* aLine );
    bool ConvertValue( const char* aLine );
    bool Flush();

    PayloadSink& mSink;
    ReaderMessages& mMessages;
    unsigned int mPending = 0; // bytes that wait for their data record

    // SAFE: The slots of the word-hex reader are zero at first.
    // KEEP: The slots are not cleared between records, so a slot that is passed over has its
    // word from before.
    //
    // A value is stored below slot FLUSH_SIZE.
    std::uint32_t mWords[SLOT_COUNT] = {};
};

} // namespace HtBaseLib
