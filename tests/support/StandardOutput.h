// What this process prints on its standard output.
#pragma once

#include <cstdio>
#include <stdexcept>
#include <string>

#include <unistd.h>

namespace TestSupport
{

// StandardOutputCapture collects, while it lives, what the process prints on standard output. Cheap
// enough to ask for after each of many thousand calls. One at a time, and no other thread prints.
class StandardOutputCapture
{
public:
    StandardOutputCapture()
        : mFile( std::tmpfile() )
    {
        std::fflush( stdout );
        mSaved = dup( STDOUT_FILENO );
        if ( mFile == nullptr || mSaved < 0 || dup2( fileno( mFile ), STDOUT_FILENO ) < 0 )
        {
            throw std::runtime_error( "cannot capture standard output" );
        }
    }

    ~StandardOutputCapture()
    {
        std::fflush( stdout );
        dup2( mSaved, STDOUT_FILENO );
        close( mSaved );
        std::fclose( mFile );
    }

    StandardOutputCapture( const StandardOutputCapture& ) = delete;
    StandardOutputCapture& operator=( const StandardOutputCapture& ) = delete;

    // What was printed since the last call, to the last character.
    std::string Take()
    {
        std::fflush( stdout );
        const int lDescriptor = fileno( mFile );
        const off_t lSize = lseek( lDescriptor, 0, SEEK_CUR );
        if ( lSize == 0 )
        {
            return {};
        }
        std::string lText( static_cast<std::size_t>( lSize ), '\0' );
        if ( pread( lDescriptor, lText.data(), lText.size(), 0 ) != lSize ||
             ftruncate( lDescriptor, 0 ) != 0 || lseek( lDescriptor, 0, SEEK_SET ) != 0 )
        {
            throw std::runtime_error( "cannot read the captured standard output" );
        }
        return lText;
    }

private:
    std::FILE* mFile;
    int mSaved = -1;
};

} // namespace TestSupport
