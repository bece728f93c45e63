#include "tests/support/ChildProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

namespace TestSupport
{

namespace
{

using Clock = std::chrono::steady_clock;

int GetLeft( Clock::time_point aDeadline )
{
    const auto lLeft =
        std::chrono::duration_cast<std::chrono::milliseconds>( aDeadline - Clock::now() );
    return static_cast<int>( std::max<long long>( lLeft.count(), 0 ) );
}

// The two ends of an output: ours to read, the program's to write.
struct Ends
{
    int mRead = -1;
    int mWrite = -1;
};

[[noreturn]] void Fail( const char* aWhat )
{
    throw std::runtime_error( std::string( aWhat ) + ": " + std::strerror( errno ) );
}

Ends MakePipe()
{
    int lPipe[2] = { -1, -1 };
    if ( pipe2( lPipe, O_CLOEXEC ) != 0 )
    {
        Fail( "pipe" );
    }
    return { lPipe[0], lPipe[1] };
}

Ends MakeTerminal()
{
    const int lMaster = posix_openpt( O_RDWR | O_NOCTTY | O_CLOEXEC );
    if ( lMaster < 0 || grantpt( lMaster ) != 0 || unlockpt( lMaster ) != 0 )
    {
        Fail( "terminal" );
    }
    const int lSlave = open( ptsname( lMaster ), O_RDWR | O_NOCTTY | O_CLOEXEC );
    termios lSettings{};
    winsize lSize{};
    lSize.ws_row = 24;
    lSize.ws_col = 80;
    if ( lSlave < 0 || tcgetattr( lSlave, &lSettings ) != 0 )
    {
        Fail( "terminal" );
    }
    lSettings.c_oflag &= ~static_cast<tcflag_t>( OPOST ); // line ends as the program writes them
    if ( tcsetattr( lSlave, TCSANOW, &lSettings ) != 0 ||
         ioctl( lMaster, TIOCSWINSZ, &lSize ) != 0 )
    {
        Fail( "terminal" );
    }
    return { lMaster, lSlave };
}

Ends MakeOutput( const ChildProcess::Options& aOptions )
{
    if ( aOptions.mOutputIsTerminal )
    {
        return MakeTerminal();
    }
    if ( aOptions.mOutputPath.empty() )
    {
        return MakePipe();
    }
    const int lFile = open( aOptions.mOutputPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC,
                            S_IRUSR | S_IWUSR );
    if ( lFile < 0 )
    {
        Fail( aOptions.mOutputPath.c_str() );
    }
    return { -1, lFile };
}

std::vector<char*> MakePointers( std::vector<std::string>& aTexts )
{
    std::vector<char*> lPointers;
    for ( std::string& lText : aTexts )
    {
        lPointers.push_back( lText.data() );
    }
    lPointers.push_back( nullptr );
    return lPointers;
}

std::vector<std::string> MakeEnvironment( const std::vector<std::string>& aExtra )
{
    std::vector<std::string> lAll = aExtra; // the first of equal names counts
    for ( char** lEntry = environ; *lEntry != nullptr; ++lEntry )
    {
        lAll.emplace_back( *lEntry );
    }
    return lAll;
}

// What the child needs, made before the fork: other threads may hold the allocator's lock.
struct Plan
{
    char** mArguments;
    char** mEnvironment;
    const char* mDirectory;
    bool mCloseOutput;
    int mOutput;
    int mError;
};

// In the child: calls that are safe after a fork only.
[[noreturn]] void Execute( const Plan& aPlan )
{
    (void)prctl( PR_SET_PDEATHSIG, SIGKILL );
    const int lInput = open( "/dev/null", O_RDONLY );
    (void)dup2( lInput, STDIN_FILENO );
    (void)close( lInput );
    (void)dup2( aPlan.mOutput, STDOUT_FILENO );
    (void)dup2( aPlan.mError, STDERR_FILENO );
    if ( aPlan.mCloseOutput )
    {
        (void)close( STDOUT_FILENO );
    }
    if ( *aPlan.mDirectory == '\0' || chdir( aPlan.mDirectory ) == 0 )
    {
        (void)execvpe( aPlan.mArguments[0], aPlan.mArguments, aPlan.mEnvironment );
    }
    constexpr char TEXT[] = "cannot be started\n";
    (void)!write( STDERR_FILENO, TEXT, sizeof( TEXT ) - 1 ); // a failure cannot be reported here
    _exit( 127 );
}

} // namespace

ChildProcess::ChildProcess( const std::vector<std::string>& aArguments )
{
    Start( aArguments, Options() );
}

ChildProcess::ChildProcess( const std::vector<std::string>& aArguments, const Options& aOptions )
{
    Start( aArguments, aOptions );
}

ChildProcess::~ChildProcess()
{
    if ( !Reap( WNOHANG ) )
    {
        Signal( SIGKILL );
        (void)Reap( 0 );
    }
    for ( const int lDescriptor : { mOutput.mDescriptor, mError.mDescriptor } )
    {
        if ( lDescriptor >= 0 )
        {
            (void)close( lDescriptor );
        }
    }
}

void ChildProcess::Start( const std::vector<std::string>& aArguments, const Options& aOptions )
{
    std::vector<std::string> lArguments = aArguments;
    std::vector<std::string> lEnvironment = MakeEnvironment( aOptions.mEnvironment );
    const std::vector<char*> lArgumentPointers = MakePointers( lArguments );
    const std::vector<char*> lEnvironmentPointers = MakePointers( lEnvironment );
    const Ends lOutput = MakeOutput( aOptions );
    const Ends lError = aOptions.mErrorIsTerminal ? MakeTerminal() : MakePipe();
    const Plan lPlan{ const_cast<char**>( lArgumentPointers.data() ),
                      const_cast<char**>( lEnvironmentPointers.data() ),
                      aOptions.mDirectory.c_str(),
                      aOptions.mCloseOutput,
                      lOutput.mWrite,
                      lError.mWrite };
    mId = fork();
    if ( mId < 0 )
    {
        Fail( "fork" );
    }
    if ( mId == 0 )
    {
        Execute( lPlan );
    }
    (void)close( lOutput.mWrite );
    (void)close( lError.mWrite );
    mOutput.mDescriptor = lOutput.mRead;
    mError.mDescriptor = lError.mRead;
}

std::optional<std::string> ChildProcess::ReadLine( int aTimeoutMs )
{
    const Clock::time_point lDeadline = Clock::now() + std::chrono::milliseconds( aTimeoutMs );
    for ( ;; )
    {
        const size_t lEnd = mOutput.mText.find( '\n', mOutput.mLineStart );
        if ( lEnd != std::string::npos )
        {
            const size_t lStart = mOutput.mLineStart;
            mOutput.mLineStart = lEnd + 1;
            return mOutput.mText.substr( lStart, lEnd - lStart );
        }
        const int lLeft = GetLeft( lDeadline );
        if ( lLeft == 0 || mOutput.mDescriptor < 0 || !Pump( lLeft ) )
        {
            return std::nullopt;
        }
    }
}

bool ChildProcess::WaitForOutput( const std::string& aText, int aTimeoutMs )
{
    return WaitForText( mOutput, aText, aTimeoutMs );
}

bool ChildProcess::WaitForError( const std::string& aText, int aTimeoutMs )
{
    return WaitForText( mError, aText, aTimeoutMs );
}

bool ChildProcess::WaitForText( const Stream& aStream, const std::string& aText, int aTimeoutMs )
{
    const Clock::time_point lDeadline = Clock::now() + std::chrono::milliseconds( aTimeoutMs );
    while ( aStream.mText.find( aText ) == std::string::npos )
    {
        const int lLeft = GetLeft( lDeadline );
        if ( lLeft == 0 || aStream.mDescriptor < 0 || !Pump( lLeft ) )
        {
            return false;
        }
    }
    return true;
}

void ChildProcess::Signal( int aSignal )
{
    if ( !mIsReaped )
    {
        (void)kill( mId, aSignal ); // our child until it is reaped, so its id is not reused
    }
}

Ending ChildProcess::Wait( int aTimeoutMs )
{
    const Clock::time_point lDeadline = Clock::now() + std::chrono::milliseconds( aTimeoutMs );
    // A grandchild may keep the outputs open, so the program's end counts, not theirs.
    while ( !Reap( WNOHANG ) )
    {
        const int lLeft = GetLeft( lDeadline );
        if ( lLeft == 0 )
        {
            Signal( SIGKILL );
            (void)Reap( 0 );
            return Ending();
        }
        if ( !Pump( std::min( lLeft, 20 ) ) )
        {
            (void)poll( nullptr, 0, 1 );
        }
    }
    for ( size_t lBefore = 0;; )
    {
        (void)Pump( 0 );
        const size_t lNow = mOutput.mText.size() + mError.mText.size();
        if ( lNow == lBefore )
        {
            break;
        }
        lBefore = lNow;
    }
    Ending lEnding;
    lEnding.mExited = WIFEXITED( mWaitStatus );
    lEnding.mStatus = lEnding.mExited ? WEXITSTATUS( mWaitStatus ) : -1;
    lEnding.mSignal = WIFSIGNALED( mWaitStatus ) ? WTERMSIG( mWaitStatus ) : 0;
    return lEnding;
}

bool ChildProcess::Pump( int aTimeoutMs )
{
    pollfd lEntries[2] = { { mOutput.mDescriptor, POLLIN, 0 }, { mError.mDescriptor, POLLIN, 0 } };
    if ( mOutput.mDescriptor < 0 && mError.mDescriptor < 0 )
    {
        return false;
    }
    if ( poll( lEntries, 2, aTimeoutMs ) > 0 ) // a negative descriptor is passed over
    {
        if ( lEntries[0].revents != 0 )
        {
            ReadFrom( mOutput );
        }
        if ( lEntries[1].revents != 0 )
        {
            ReadFrom( mError );
        }
    }
    return true;
}

// Reading a terminal whose other end is closed fails; reading such a pipe returns nothing.
void ChildProcess::ReadFrom( Stream& aStream )
{
    char lBuffer[65536];
    const ssize_t lCount = read( aStream.mDescriptor, lBuffer, sizeof( lBuffer ) );
    if ( lCount > 0 )
    {
        aStream.mText.append( lBuffer, static_cast<size_t>( lCount ) );
        return;
    }
    if ( lCount < 0 && errno == EINTR )
    {
        return;
    }
    (void)close( aStream.mDescriptor );
    aStream.mDescriptor = -1;
}

bool ChildProcess::Reap( int aFlags )
{
    if ( mIsReaped )
    {
        return true;
    }
    pid_t lResult = -1;
    do
    {
        lResult = waitpid( mId, &mWaitStatus, aFlags );
    } while ( lResult < 0 && errno == EINTR );
    mIsReaped = lResult == mId;
    return mIsReaped;
}

Outcome RunProgram( const std::vector<std::string>& aArguments,
                    const ChildProcess::Options& aOptions, int aTimeoutMs )
{
    ChildProcess lChild( aArguments, aOptions );
    Outcome lOutcome;
    lOutcome.mEnding = lChild.Wait( aTimeoutMs );
    lOutcome.mStatus = lOutcome.mEnding.mStatus;
    lOutcome.mOutput = lChild.GetOutput();
    lOutcome.mError = lChild.GetError();
    return lOutcome;
}

} // namespace TestSupport
