#include "Tools/htbase/Interruption.h"

#include "Tools/htbase/Failure.h"

#include <poll.h>
#include <pthread.h>
#include <unistd.h>

#include <chrono>
#include <utility>

namespace HtBaseTool
{

using QmUtilsLib::LockScope;

namespace
{

// Wakes the watching thread at the end of the program; from elsewhere it has no effect.
constexpr int WAKE = SIGUSR2;

[[noreturn]] void EndProgram()
{
    // Not through the stream, which another thread may hold while it waits for a slow reader.
    constexpr char TEXT[] = "htbase: interrupted\n";
    pollfd lError{ STDERR_FILENO, POLLOUT, 0 };
    if ( poll( &lError, 1, 0 ) == 1 )
    {
        const ssize_t lWritten = write( STDERR_FILENO, TEXT, sizeof( TEXT ) - 1 );
        (void)lWritten; // what cannot be written there is lost
    }
    _exit( static_cast<int>( ExitStatus::REFUSED ) );
}

} // namespace

Interruption::Interruption()
{
    (void)sigemptyset( &mSignals ); // cannot fail with these numbers
    (void)sigaddset( &mSignals, SIGINT );
    (void)sigaddset( &mSignals, SIGTERM );
    (void)sigaddset( &mSignals, WAKE );
    (void)pthread_sigmask( SIG_BLOCK, &mSignals, nullptr );
    // If the reader has closed its end, the write fails, and the command cleans up.
    (void)std::signal( SIGPIPE, SIG_IGN );
    mThread = std::thread( [this] { Watch(); } );
}

Interruption::~Interruption()
{
    mIsEnding = true;
    (void)pthread_kill( mThread.native_handle(), WAKE );
    mThread.join();
}

bool Interruption::WaitFor( long long aMilliseconds ) const
{
    return mHasRequest.wait_for( std::chrono::milliseconds( aMilliseconds ) ) ==
           std::future_status::ready;
}

void Interruption::SetAction( std::function<void()> aAction )
{
    LockScope lLock( mMutex );
    mAction = std::move( aAction );
    if ( IsRequested() && mAction )
    {
        mAction();
    }
}

void Interruption::Watch()
{
    while ( !mIsEnding )
    {
        int lSignal = 0;
        if ( sigwait( &mSignals, &lSignal ) != 0 || lSignal == WAKE )
        {
            continue;
        }
        if ( mIsRequested.exchange( true ) )
        {
            EndProgram();
        }
        LockScope lLock( mMutex );
        if ( !mAction )
        {
            EndProgram();
        }
        mAction();
        // Last, because the thread that this wakes may remove the action.
        mRequest.set_value();
    }
}

} // namespace HtBaseTool
