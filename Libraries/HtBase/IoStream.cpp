#include "Libraries/HtBase/IoStream.h"

#include <sys/types.h>

#include <algorithm>
#include <cerrno>

namespace HtBaseLib
{

namespace
{

constexpr unsigned int SKIP_FAILED = 0xFFFFFFFF;

static_assert( sizeof( off_t ) == 8, "a skip goes up to 4 GiB, where long may end at 2" );

} // namespace

unsigned int IoStream::PutByte( unsigned char aByte )
{
    return Write( &aByte, 1, 1 );
}

unsigned int IoStream::GetByte( unsigned char* aByte )
{
    return Read( aByte, 1, 1 );
}

unsigned int IoStream::GetBytesWritten() const
{
    return mBytesWritten;
}

IoStreamFile::~IoStreamFile()
{
    (void)IoStreamFile::Close(); // a destructor cannot return it
}

int IoStreamFile::Open( const char* aPath, const char* aMode )
{
    (void)IoStreamFile::Close(); // the result of the previous file does not matter here
    mFile = std::fopen( aPath, aMode );
    return mFile != nullptr ? 0 : errno;
}

// SAFE: Reading and writing a file stream that is not open does nothing and returns 0. Closing
// twice closes once.
int IoStreamFile::Close()
{
    if ( mFile == nullptr )
    {
        return EOF;
    }
    std::FILE* const lFile = mFile;
    mFile = nullptr; // closed whatever fclose says
    return std::fclose( lFile );
}

unsigned int IoStreamFile::Write( const void* aData, unsigned int aSize, unsigned int aCount )
{
    if ( mFile == nullptr )
    {
        return 0;
    }
    const auto lWritten = static_cast<unsigned int>( std::fwrite( aData, aSize, aCount, mFile ) );
    // KEEP: `IoStreamFile::Write` adds count times count to the bytes written, not count times
    // size: 3 elements of 4 bytes add 9. Callers expect this sum and never use it as the length of
    // a file.
    mBytesWritten += lWritten * aCount;
    return lWritten;
}

unsigned int IoStreamFile::Read( void* aData, unsigned int aSize, unsigned int aCount )
{
    if ( mFile == nullptr )
    {
        return 0;
    }
    return static_cast<unsigned int>( std::fread( aData, aSize, aCount, mFile ) );
}

int IoStreamFile::Rewind()
{
    return mFile != nullptr ? std::fseek( mFile, 0, SEEK_SET ) : EOF;
}

unsigned int IoStreamFile::Skip( unsigned int aOffset )
{
    if ( mFile == nullptr )
    {
        return SKIP_FAILED;
    }
    return static_cast<unsigned int>( fseeko( mFile, static_cast<off_t>( aOffset ), SEEK_CUR ) );
}

IoStreamRaw::IoStreamRaw( unsigned char* aBuffer, unsigned int aCapacity )
    : mBuffer( aBuffer )
    , mTarget( aBuffer )
    , mCapacity( aCapacity )
{
}

// SAFE: Bytes handed over to be sent are never written to: the stream over them stores no zero,
// so they may be in read-only memory.
IoStreamRaw::IoStreamRaw( ReadOnly /*aReadOnly*/, const unsigned char* aBytes, unsigned int aCount )
    : mBuffer( aBytes )
    , mTarget( nullptr )
    , mCapacity( aCount )
{
}

IoStreamRaw::~IoStreamRaw()
{
    (void)IoStreamRaw::Close(); // cannot fail
}

int IoStreamRaw::Close()
{
    // KEEP: Closing or destroying an `IoStreamRaw` stores a zero byte at its position, wherever
    // that is, unless it is the end. The zero ends a received text and is not counted. A stream
    // that was never used has its first byte zeroed.
    if ( mTarget != nullptr && mPosition < mCapacity )
    {
        mTarget[mPosition] = 0;
    }
    return 0;
}

// The product of two 32-bit numbers needs 64 bits.
unsigned int IoStreamRaw::GetCopyCount( unsigned int aSize, unsigned int aCount ) const
{
    const unsigned long long lWanted = static_cast<unsigned long long>( aSize ) * aCount;
    const unsigned int lLeft = mCapacity - mPosition;
    return static_cast<unsigned int>( std::min<unsigned long long>( lWanted, lLeft ) );
}

// KEEP: A stream over memory returns a number of bytes, a stream over a file a number of elements.
// In memory a part of an element is copied too.
unsigned int IoStreamRaw::Write( const void* aData, unsigned int aSize, unsigned int aCount )
{
    if ( mTarget == nullptr )
    {
        return 0;
    }
    const unsigned int lCopied = GetCopyCount( aSize, aCount );
    unsigned char* const lTo = mTarget + mPosition;
    mPosition += lCopied;
    mBytesWritten += lCopied;
    std::copy_n( static_cast<const unsigned char*>( aData ), lCopied, lTo );
    return lCopied;
}

unsigned int IoStreamRaw::Read( void* aData, unsigned int aSize, unsigned int aCount )
{
    const unsigned int lCopied = GetCopyCount( aSize, aCount );
    std::copy_n( mBuffer + mPosition, lCopied, static_cast<unsigned char*>( aData ) );
    mPosition += lCopied;
    return lCopied;
}

int IoStreamRaw::Rewind()
{
    // KEEP: `Rewind` keeps the bytes written. What is written again counts again.
    mPosition = 0;
    return 0;
}

unsigned int IoStreamRaw::Skip( unsigned int aOffset )
{
    const unsigned long long lPosition = static_cast<unsigned long long>( mPosition ) + aOffset;
    // KEEP: `Skip` to exactly the end of memory is refused, `Skip( 0 )` at the end too. A search
    // record by record ends there.
    if ( lPosition >= mCapacity )
    {
        return SKIP_FAILED;
    }
    mPosition = static_cast<unsigned int>( lPosition );
    return 0;
}

} // namespace HtBaseLib
