#include "Tools/htbase/Files.h"

#include "Tools/htbase/Failure.h"
#include "Tools/htbase/Text.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>

namespace HtBaseTool
{

namespace
{

constexpr size_t PORTION = 65536;

Failure MakeFileFailure( const char* aTried, const std::string& aPath, const std::string& aReason )
{
    return MakeUsageFailure( std::string( "cannot " ) + aTried + " file '" + aPath +
                             "': " + aReason );
}

// How long a file may be, and why.
struct Limit
{
    uint64_t mMax;
    const std::string& mWhy;
};

Failure MakeTooLong( const std::string& aPath, const Limit& aLimit )
{
    return MakeFileFailure( "load", aPath,
                            "it is longer than the " + FormatCount( aLimit.mMax, "byte" ) + " " +
                                aLimit.mWhy );
}

// A descriptor that closes itself.
class Descriptor
{
public:
    explicit Descriptor( int aNumber )
        : mNumber( aNumber )
    {
    }
    ~Descriptor()
    {
        if ( mNumber >= 0 )
        {
            (void)close( mNumber ); // it was only read from
        }
    }
    Descriptor( const Descriptor& ) = delete;
    Descriptor& operator=( const Descriptor& ) = delete;
    int Get() const { return mNumber; }

private:
    const int mNumber;
};

// What the file is; no directory.
struct stat GetStatus( const Descriptor& aFile, const std::string& aPath )
{
    struct stat lStatus
    {
    };
    if ( aFile.Get() < 0 || fstat( aFile.Get(), &lStatus ) != 0 )
    {
        throw MakeFileFailure( "read", aPath, GetSystemErrorText( errno ) );
    }
    if ( S_ISDIR( lStatus.st_mode ) )
    {
        throw MakeFileFailure( "read", aPath, GetSystemErrorText( EISDIR ) );
    }
    return lStatus;
}

// Reads to the end, or throws what aMakeTooLong makes when there are more than aMax bytes.
template <typename TooLong>
std::vector<uint8_t> ReadAll( const Descriptor& aFile, const std::string& aPath, uint64_t aMax,
                              TooLong aMakeTooLong )
{
    std::vector<uint8_t> lBytes;
    for ( ;; )
    {
        const size_t lSize = lBytes.size();
        lBytes.resize( lSize + PORTION );
        const ssize_t lCount = read( aFile.Get(), lBytes.data() + lSize, PORTION );
        if ( lCount < 0 )
        {
            throw MakeFileFailure( "read", aPath, GetSystemErrorText( errno ) );
        }
        lBytes.resize( lSize + static_cast<size_t>( lCount ) );
        if ( lBytes.size() > aMax )
        {
            throw aMakeTooLong();
        }
        if ( lCount == 0 )
        {
            return lBytes;
        }
    }
}

std::vector<uint8_t> ReadRegular( const std::string& aPath, uint64_t aMax )
{
    // Without O_NONBLOCK, open would wait until another program opens the pipe for writing.
    const Descriptor lFile( open( aPath.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK ) );
    const struct stat lStatus = GetStatus( lFile, aPath );
    if ( !S_ISREG( lStatus.st_mode ) )
    {
        throw MakeFileFailure( "read", aPath, "it is not a regular file" );
    }
    const auto lMakeTooLong = [&]
    {
        return MakeFileFailure( "send", aPath, "it is longer than " + FormatCount( aMax, "byte" ) );
    };
    if ( static_cast<uint64_t>( lStatus.st_size ) > aMax )
    {
        throw lMakeTooLong();
    }
    return ReadAll( lFile, aPath, aMax, lMakeTooLong );
}

} // namespace

std::vector<uint8_t> ReadWholeFile( const std::string& aPath, uint64_t aMax,
                                    const std::string& aWhyMax )
{
    const Limit lLimit{ aMax, aWhyMax };
    const Descriptor lFile( open( aPath.c_str(), O_RDONLY | O_CLOEXEC ) );
    const struct stat lStatus = GetStatus( lFile, aPath );
    if ( !S_ISREG( lStatus.st_mode ) && !S_ISFIFO( lStatus.st_mode ) )
    {
        throw MakeFileFailure( "read", aPath, "it is neither a regular file nor a pipe" );
    }
    if ( S_ISREG( lStatus.st_mode ) && static_cast<uint64_t>( lStatus.st_size ) > aMax )
    {
        throw MakeTooLong( aPath, lLimit );
    }
    std::vector<uint8_t> lBytes =
        ReadAll( lFile, aPath, aMax, [&] { return MakeTooLong( aPath, lLimit ); } );
    if ( lBytes.empty() )
    {
        throw MakeFileFailure( "load", aPath, "it is empty" );
    }
    return lBytes;
}

std::vector<uint8_t> ReadRegularFile( const std::string& aPath, uint64_t aMax )
{
    try
    {
        return ReadRegular( aPath, aMax );
    }
    catch ( const Failure& lFailure )
    {
        throw Failure( ExitStatus::REFUSED, lFailure.what() );
    }
}

std::string GetFileName( const std::string& aPath )
{
    return aPath.substr( aPath.rfind( '/' ) + 1 ); // without a slash npos becomes 0
}

void CheckOutputFile( const std::string& aPath )
{
    struct stat lStatus
    {
    };
    const bool lIsThere = stat( aPath.c_str(), &lStatus ) == 0;
    if ( !lIsThere || S_ISREG( lStatus.st_mode ) )
    {
        const OutputFile lProbe( aPath );
        return;
    }
    // It is not opened: that may have an effect, or wait for a program at the other end.
    if ( S_ISDIR( lStatus.st_mode ) )
    {
        throw MakeFileFailure( "write", aPath, GetSystemErrorText( EISDIR ) );
    }
    if ( access( aPath.c_str(), W_OK ) != 0 )
    {
        throw MakeFileFailure( "write", aPath, GetSystemErrorText( errno ) );
    }
}

void CheckInputFile( const std::string& aPath )
{
    // O_NONBLOCK: open must not wait for a pipe that no program writes to.
    const Descriptor lFile( open( aPath.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC ) );
    if ( !S_ISREG( GetStatus( lFile, aPath ).st_mode ) )
    {
        throw MakeFileFailure( "read", aPath, "it is not a regular file" );
    }
}

bool IsWrittenDirectly( const std::string& aPath )
{
    struct stat lStatus
    {
    };
    return stat( aPath.c_str(), &lStatus ) == 0 && !S_ISREG( lStatus.st_mode );
}

OutputFile::OutputFile( const std::string& aPath )
    : mPath( aPath )
    , mTarget( aPath )
{
    if ( aPath.empty() )
    {
        throw MakeFileFailure( "write", mPath, GetSystemErrorText( ENOENT ) );
    }
    struct stat lStatus
    {
    };
    const bool lExists = stat( aPath.c_str(), &lStatus ) == 0;
    if ( lExists && !S_ISREG( lStatus.st_mode ) )
    {
        mDescriptor = open( aPath.c_str(), O_WRONLY | O_CLOEXEC );
        if ( mDescriptor < 0 )
        {
            throw MakeFileFailure( "write", mPath, GetSystemErrorText( errno ) );
        }
        return;
    }
    if ( lExists && access( aPath.c_str(), W_OK ) != 0 )
    {
        throw MakeFileFailure( "write", mPath, GetSystemErrorText( errno ) );
    }
    if ( lExists )
    {
        const std::unique_ptr<char, decltype( &std::free )> lResolved(
            realpath( aPath.c_str(), nullptr ), &std::free );
        mTarget = lResolved != nullptr ? lResolved.get() : aPath;
    }
    OpenTemporary();
}

// The temporary file gets the rights that a new file gets.
void OutputFile::OpenTemporary()
{
    mTemporary = mTarget + ".XXXXXX";
    mDescriptor = mkostemp( mTemporary.data(), O_CLOEXEC );
    if ( mDescriptor < 0 )
    {
        mTemporary.clear();
        throw MakeFileFailure( "write", mPath, GetSystemErrorText( errno ) );
    }
    const mode_t lMask = umask( 0 );
    (void)umask( lMask );
    (void)fchmod( mDescriptor, 0666 & ~lMask ); // else only its owner may read it: no failure
}

OutputFile::~OutputFile()
{
    if ( mDescriptor >= 0 )
    {
        (void)close( mDescriptor ); // what is complete was closed by Commit
    }
    if ( !mTemporary.empty() )
    {
        (void)unlink( mTemporary.c_str() ); // a failure cannot be reported here
    }
}

void OutputFile::ThrowFailure( const char* aTried ) const
{
    const int lError = errno;
    throw Failure( std::string( "cannot " ) + aTried + " file '" + mPath +
                       "': " + GetSystemErrorText( lError ),
                   QmUtilsLib::Result( QmUtilsLib::Result::GENERIC_ERROR,
                                       static_cast<unsigned int>( lError ) ) );
}

void OutputFile::Write( const void* aData, size_t aSize )
{
    const auto* const lBytes = static_cast<const uint8_t*>( aData );
    for ( size_t lDone = 0; lDone < aSize; )
    {
        const ssize_t lCount = write( mDescriptor, lBytes + lDone, aSize - lDone );
        if ( lCount < 0 )
        {
            ThrowFailure( "write" );
        }
        lDone += static_cast<size_t>( lCount );
    }
}

void OutputFile::Close()
{
    const int lDescriptor = mDescriptor;
    mDescriptor = -1;
    if ( lDescriptor >= 0 && close( lDescriptor ) != 0 )
    {
        ThrowFailure( "write" );
    }
}

void OutputFile::Commit()
{
    Close();
    if ( mTemporary.empty() )
    {
        return;
    }
    if ( std::rename( mTemporary.c_str(), mTarget.c_str() ) != 0 )
    {
        ThrowFailure( "name" );
    }
    mTemporary.clear();
}

} // namespace HtBaseTool
