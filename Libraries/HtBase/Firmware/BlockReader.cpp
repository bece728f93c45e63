#include "Libraries/HtBase/Firmware/BlockReader.h"

#include <cstring>

namespace HtBaseLib
{

BlockReader::BlockReader( std::FILE* aFile )
    : mFile( aFile )
    , mBlock( new unsigned char[MAX_LEFT + BLOCK_SIZE + SLACK]() )
    , mHasFailed( std::ferror( aFile ) != 0 )
{
}

// A whole block is read straight into its place by one system call. Any other size would partly be
// copied through the stream's own buffer.
void BlockReader::ReadAhead()
{
    if ( mHasEnded )
    {
        return;
    }
    const std::size_t lLeft = GetSize();
    unsigned char* const lBlock = mBlock.get() + MAX_LEFT;
    std::memmove( lBlock - lLeft, GetText(), lLeft );
    mNext = MAX_LEFT - lLeft;
    const std::size_t lRead = std::fread( lBlock, 1, BLOCK_SIZE, mFile );
    mEnd = MAX_LEFT + lRead;
    mHasEnded = lRead < BLOCK_SIZE;
}

int BlockReader::ReadCharacter()
{
    if ( mNext == mEnd )
    {
        ReadAhead();
    }
    if ( mNext == mEnd )
    {
        mHasFailed = mHasFailed || std::ferror( mFile ) != 0;
        return EOF;
    }
    return mBlock[mNext++];
}

} // namespace HtBaseLib
