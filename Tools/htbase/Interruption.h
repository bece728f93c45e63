// Ctrl-C, and the signal SIGTERM.
#pragma once

#include <QmUtilsLib/Mutex.h>

#include <csignal>

#include <atomic>
#include <functional>
#include <future>
#include <thread>

namespace HtBaseTool
{

// Interruption turns SIGINT and SIGTERM into a call on a thread of its own, where everything is
// allowed. The first signal runs the action that is set, which ends what the command waits for; the
// command then cleans up and fails. Without an action, and with a second signal, the program says
// so and ends at once, with exit status 1.
//
// One per program, made before any other thread: the signals are blocked in all threads.
class Interruption
{
public:
    Interruption();
    ~Interruption();

    Interruption( const Interruption& ) = delete;
    Interruption& operator=( const Interruption& ) = delete;

    // Whether a signal has come.
    bool IsRequested() const { return mIsRequested.load(); }

    // Waits until a signal has come and the action was run, for that many milliseconds at most.
    // Returns whether it has.
    bool WaitFor( long long aMilliseconds ) const;

    // Sets what the first signal does; an empty function: there is nothing to clean up. If the
    // signal has come already, the action is run at once. After the return the previous action no
    // longer runs.
    void SetAction( std::function<void()> aAction );

private:
    void Watch();

    sigset_t mSignals{};
    std::atomic<bool> mIsRequested{ false };
    std::atomic<bool> mIsEnding{ false };
    std::promise<void> mRequest;
    const std::shared_future<void> mHasRequest = mRequest.get_future().share();
    QmUtilsLib::Mutex mMutex;
    std::function<void()> mAction QMUTILSLIB_GUARDED_BY( mMutex );
    std::thread mThread;
};

} // namespace HtBaseTool
