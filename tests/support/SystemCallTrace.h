// The system calls that a piece of code makes.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace TestSupport
{

// One system call: its number, as in <sys/syscall.h>, and what it returned, -errno on failure.
struct SystemCall
{
    long mNumber = 0;
    long long mReturned = 0;
};

struct SystemCallTrace
{
    std::string mReason;            // why there is none; empty: there is one
    bool mIsDone = false;           // what the job returned; false when it did not end
    std::vector<SystemCall> mCalls; // in order

    // How many of them have this number.
    long Count( long aNumber ) const;

    // Their names in order, with "?" and a number where this file knows none.
    std::vector<std::string> GetNames() const;
};

// TraceSystemCalls runs aJob in a child process, which is a copy of this one with the calling
// thread alone. It returns every system call of the job, whether the library or the test makes it.
// The system's clock is usually read without a call, and then does not appear. The child must not
// start a thread.
//
// It ends by _exit, so its destructors do not run. Tests that need the trace are skipped with the
// reason if the system does not allow tracing.
SystemCallTrace TraceSystemCalls( const std::function<bool()>& aJob );

} // namespace TestSupport
