// A byte stream that keeps what is written to it.
#pragma once

#include "Libraries/HtBase/IoStream.h"

#include <cstddef>
#include <string>

namespace TestSupport
{

// StringStream appends what is written to a text of the test's, which must outlive it. With a
// capacity it takes no more than that. Nothing can be read from it.
class StringStream : public HtBaseLib::IoStream
{
public:
    explicit StringStream( std::string& aText, std::size_t aCapacity = std::string::npos )
        : mText( aText )
        , mCapacity( aCapacity )
    {
    }

    int Close() override { return 0; }

    unsigned int Write( const void* aData, unsigned int aSize, unsigned int aCount ) override
    {
        const std::size_t lWanted = static_cast<std::size_t>( aSize ) * aCount;
        const std::size_t lTaken =
            lWanted < mCapacity - mText.size() ? lWanted : mCapacity - mText.size();
        mText.append( static_cast<const char*>( aData ), lTaken );
        mBytesWritten += static_cast<unsigned int>( lTaken );
        return static_cast<unsigned int>( lTaken );
    }

    unsigned int Read( void*, unsigned int, unsigned int ) override { return 0; }
    int Rewind() override { return -1; }
    unsigned int Skip( unsigned int ) override { return 0xFFFFFFFF; }

private:
    std::string& mText;
    const std::size_t mCapacity;
};

} // namespace TestSupport
