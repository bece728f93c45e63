// Byte streams over a file and over memory.
#pragma once

#include <cstdio>

namespace HtBaseLib
{

// IoStream is what a transfer or a payload is read from or written to, without knowing whether that
// is a file or a caller's memory. Not copyable. One thread at a time.
//
// The order of the virtual operations is part of the contract, the destructor first.
class IoStream
{
public:
    IoStream() = default;
    virtual ~IoStream() = default;

    IoStream( const IoStream& ) = delete;
    IoStream& operator=( const IoStream& ) = delete;

    // Ends the use of the file or memory; 0 on success. The destructor does it too.
    virtual int Close() = 0;

    // Write of one byte, with its return value.
    virtual unsigned int PutByte( unsigned char aByte );

    // Writes aCount elements of aSize bytes each, as many as there is room for. Each stream says
    // what it returns.
    virtual unsigned int Write( const void* aData, unsigned int aSize, unsigned int aCount ) = 0;

    // Read of one byte, with its return value.
    virtual unsigned int GetByte( unsigned char* aByte );

    // Reads up to aCount elements of aSize bytes each. Each stream says what it returns.
    virtual unsigned int Read( void* aData, unsigned int aSize, unsigned int aCount ) = 0;

    // Goes back to the first byte; 0 on success.
    virtual int Rewind() = 0;

    // Goes forward by aOffset bytes; 0 on success, otherwise 0xFFFFFFFF and the position is where
    // it was.
    virtual unsigned int Skip( unsigned int aOffset ) = 0;

    // The sum that the writes of this stream have added, modulo 2^32. Reading, Rewind and Skip do
    // not change it. Each stream's Write says what it adds.
    virtual unsigned int GetBytesWritten() const;

protected:
    unsigned int mBytesWritten = 0;
};

// IoStreamFile is a stream over a file of the standard library.
//
// On a stream that is not open Read and Write do nothing and return 0; Close and Rewind return EOF,
// Skip 0xFFFFFFFF.
class IoStreamFile final : public IoStream
{
public:
    IoStreamFile() = default;
    ~IoStreamFile() override; // closes

    // Opens the file aPath in a mode of fopen and returns 0, or the error number of the system and
    // the stream is closed. A file that is open already is closed first.
    int Open( const char* aPath, const char* aMode );

    // Writes out what is buffered and closes the file: 0, or EOF when that failed. The stream is
    // closed either way.
    int Close() override;

    // Returns the number of whole elements written, and adds that number times aCount to the bytes
    // written: 3 elements of 4 bytes add 9.
    unsigned int Write( const void* aData, unsigned int aSize, unsigned int aCount ) override;

    // Returns the number of whole elements read.
    unsigned int Read( void* aData, unsigned int aSize, unsigned int aCount ) override;

    int Rewind() override;

    // As fseek has it, past the end of the file is a success.
    unsigned int Skip( unsigned int aOffset ) override;

private:
    std::FILE* mFile = nullptr; // owned
};

// IoStreamRaw is a stream over memory of the caller's, which must outlive it.
//
// Close, and so the destructor too, stores a zero byte at the position unless that is the end: a
// text that was written into a larger buffer is terminated. The zero does not count as written.
class IoStreamRaw final : public IoStream
{
public:
    // Chooses a stream that never stores anything.
    struct ReadOnly
    {
    };
    static constexpr ReadOnly READ_ONLY{};

    // A stream over aCapacity bytes, from the first one on.
    IoStreamRaw( unsigned char* aBuffer, unsigned int aCapacity );

    // The same over aCount bytes that are only lent for reading: nothing is ever stored there, no
    // zero either, and Write copies nothing and returns 0.
    IoStreamRaw( ReadOnly /*aReadOnly*/, const unsigned char* aBytes, unsigned int aCount );

    ~IoStreamRaw() override; // closes

    // Always 0.
    int Close() override;

    // Returns the number of bytes copied, which is also added to the bytes written. Writing ends at
    // the end of the buffer, within an element if need be.
    unsigned int Write( const void* aData, unsigned int aSize, unsigned int aCount ) override;

    // Returns the number of bytes copied. Reading ends at the end of the buffer, within an element
    // if need be.
    unsigned int Read( void* aData, unsigned int aSize, unsigned int aCount ) override;

    // Always 0.
    int Rewind() override;

    // Past the end is refused, and so is exactly to the end.
    unsigned int Skip( unsigned int aOffset ) override;

private:
    unsigned int GetCopyCount( unsigned int aSize, unsigned int aCount ) const;

    const unsigned char* mBuffer; // the caller's
    unsigned char* mTarget;       // the same, or null where nothing may be stored
    unsigned int mCapacity;
    unsigned int mPosition = 0;
};

} // namespace HtBaseLib
