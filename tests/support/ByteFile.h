// A file of the standard library over bytes of the test's.
#pragma once

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <limits>
#include <stdexcept>
#include <string>

namespace TestSupport
{

// ByteFile is an open file that holds aBytes. Reading it fails from the offset aFailsAt on. The
// bytes must outlive it. The destructor closes it.
class ByteFile
{
public:
    static constexpr std::size_t NEVER = std::numeric_limits<std::size_t>::max();

    explicit ByteFile( const std::string& aBytes, std::size_t aFailsAt = NEVER )
        : mData( aBytes.data() )
        , mSize( aBytes.size() )
        , mFailsAt( aFailsAt )
    {
        cookie_io_functions_t lFunctions{};
        lFunctions.read = Read;
        mFile = fopencookie( this, "r", lFunctions );
        if ( mFile == nullptr )
        {
            throw std::runtime_error( "cannot open bytes as a file" );
        }
    }

    ~ByteFile() { std::fclose( mFile ); }

    ByteFile( const ByteFile& ) = delete;
    ByteFile& operator=( const ByteFile& ) = delete;

    std::FILE* Get() const { return mFile; }

    // Sets the error indicator, as an attempt to write does; reading still works.
    void SetError()
    {
        if ( std::fputc( 'x', mFile ) != EOF )
        {
            throw std::logic_error( "the file can be written" );
        }
    }

private:
    static ssize_t Read( void* aCookie, char* aBuffer, std::size_t aSize )
    {
        auto* const lThis = static_cast<ByteFile*>( aCookie );
        const std::size_t lStop = std::min( lThis->mSize, lThis->mFailsAt );
        const std::size_t lCount = std::min( aSize, lStop - lThis->mPosition );
        if ( lCount == 0 && lThis->mFailsAt <= lThis->mSize )
        {
            errno = EIO;
            return -1;
        }
        std::copy_n( lThis->mData + lThis->mPosition, lCount, aBuffer );
        lThis->mPosition += lCount;
        return static_cast<ssize_t>( lCount );
    }

    const char* mData;
    const std::size_t mSize;
    const std::size_t mFailsAt;
    std::size_t mPosition = 0;
    std::FILE* mFile = nullptr;
};

} // namespace TestSupport
