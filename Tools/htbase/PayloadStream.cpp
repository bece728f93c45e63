#include "Tools/htbase/PayloadStream.h"

#include "Tools/htbase/Failure.h"
#include "Tools/htbase/Files.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace HtBaseTool
{

namespace
{

constexpr size_t PORTION = 65536;

constexpr unsigned int SKIP_FAILED = 0xFFFFFFFF;

} // namespace

PayloadStream::PayloadStream( OutputFile& aFile, PayloadOutcome& aOutcome )
    : mFile( aFile )
    , mOutcome( aOutcome )
    , mBuffer( PORTION )
{
}

PayloadStream::~PayloadStream()
{
    (void)PayloadStream::Close(); // the outcome reports a failure
}

// The library is called from here on up to the writer's owner, and nothing is thrown through it.
void PayloadStream::Flush()
{
    if ( mOutcome.mFailure == nullptr )
    {
        try
        {
            mFile.Write( mBuffer.data(), mFilled );
        }
        catch ( const Failure& )
        {
            mOutcome.mFailure = std::current_exception();
        }
    }
    mFilled = 0;
}

int PayloadStream::Close()
{
    Flush();
    try
    {
        mFile.Close();
    }
    catch ( const Failure& )
    {
        if ( mOutcome.mFailure == nullptr )
        {
            mOutcome.mFailure = std::current_exception();
        }
    }
    return mOutcome.mFailure == nullptr ? 0 : EOF;
}

unsigned int PayloadStream::Write( const void* aData, unsigned int aSize, unsigned int aCount )
{
    const size_t lSize = size_t{ aSize } * aCount;
    const auto* const lBytes = static_cast<const uint8_t*>( aData );
    for ( size_t lDone = 0; lDone < lSize; )
    {
        const size_t lPart = std::min( lSize - lDone, PORTION - mFilled );
        std::memcpy( mBuffer.data() + mFilled, lBytes + lDone, lPart );
        lDone += lPart;
        mFilled += lPart;
        if ( mFilled == PORTION )
        {
            Flush();
        }
    }
    if ( mOutcome.mFailure != nullptr )
    {
        return 0;
    }
    mOutcome.mSize += lSize;
    mBytesWritten += static_cast<unsigned int>( lSize ); // modulo 2^32
    return aCount;
}

unsigned int PayloadStream::Read( void* /*aData*/, unsigned int /*aSize*/, unsigned int /*aCount*/ )
{
    return 0;
}

int PayloadStream::Rewind()
{
    return EOF;
}

unsigned int PayloadStream::Skip( unsigned int /*aOffset*/ )
{
    return SKIP_FAILED;
}

} // namespace HtBaseTool
