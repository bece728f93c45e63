#include "tests/support/SystemCallTrace.h"

#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <iterator>

namespace TestSupport
{

namespace
{

constexpr int DONE = 0;
constexpr int FAILED = 1;
constexpr int NOT_TRACED = 2;

// This call marks the start and the end of the job; nothing else here uses it.
constexpr long MARK = SYS_getpgid;

// The event of a stop at a system call, which PTRACE_O_TRACESYSGOOD marks.
constexpr int SYSTEM_CALL_STOP = SIGTRAP | 0x80;

struct Name
{
    long mNumber;
    const char* mName;
};

constexpr Name NAMES[] = {
    { SYS_socket, "socket" },   { SYS_bind, "bind" },
    { SYS_connect, "connect" }, { SYS_shutdown, "shutdown" },
    { SYS_close, "close" },     { SYS_setsockopt, "setsockopt" },
    { SYS_sendto, "sendto" },   { SYS_recvfrom, "recvfrom" },
// The poll of the C library, which has no other on some machines.
#if defined( SYS_poll )
    { SYS_poll, "poll" },
#else
    { SYS_ppoll, "poll" },
#endif
    { SYS_futex, "futex" },     { SYS_brk, "brk" },
    { SYS_mmap, "mmap" },       { SYS_munmap, "munmap" },
    { SYS_madvise, "madvise" }, { SYS_clock_gettime, "clock_gettime" },
};

std::string Explain( const std::string& aWhat )
{
    return aWhat + ": " + std::strerror( errno );
}

[[noreturn]] void RunTraced( const std::function<bool()>& aJob )
{
    if ( ptrace( PTRACE_TRACEME, 0, nullptr, nullptr ) != 0 )
    {
        _exit( NOT_TRACED );
    }
    (void)raise( SIGSTOP ); // until the parent watches
    (void)syscall( MARK, 0 );
    const bool lIsDone = aJob();
    (void)syscall( MARK, 0 );
    _exit( lIsDone ? DONE : FAILED );
}

// Watches one child, which has stopped itself, to its end.
class Tracer
{
public:
    explicit Tracer( pid_t aChild )
        : mChild( aChild )
    {
    }

    SystemCallTrace Run()
    {
        int lSignal = 0;
        while ( mTrace.mReason.empty() && Continue( lSignal ) )
        {
            lSignal = HandleStop();
        }
        return mTrace;
    }

    // Waits for the first stop and takes charge of it.
    void Begin()
    {
        if ( waitpid( mChild, &mStatus, __WALL ) != mChild || !WIFSTOPPED( mStatus ) )
        {
            mTrace.mReason = "the system lets no process be traced";
            return;
        }
        if ( ptrace( PTRACE_SETOPTIONS, mChild, nullptr,
                     PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL ) != 0 )
        {
            Abandon( Explain( "the child cannot be traced" ) );
        }
    }

private:
    void Abandon( const std::string& aReason )
    {
        mTrace.mReason = aReason;
        (void)kill( mChild, SIGKILL ); // it is there until it is waited for
        (void)waitpid( mChild, &mStatus, __WALL );
    }

    // Lets the child go on to its next stop. False when it has ended.
    bool Continue( int aSignal )
    {
        if ( ptrace( PTRACE_SYSCALL, mChild, nullptr, aSignal ) != 0 ||
             waitpid( mChild, &mStatus, __WALL ) != mChild )
        {
            mTrace.mReason = Explain( "the child was lost" );
            return false;
        }
        if ( WIFSTOPPED( mStatus ) )
        {
            return true;
        }
        mTrace.mIsDone = WIFEXITED( mStatus ) && WEXITSTATUS( mStatus ) == DONE;
        return false;
    }

    // Returns the signal that the child is to get.
    int HandleStop()
    {
        if ( WSTOPSIG( mStatus ) != SYSTEM_CALL_STOP )
        {
            return WSTOPSIG( mStatus );
        }
        __ptrace_syscall_info lInfo{};
        if ( ptrace( static_cast<__ptrace_request>( PTRACE_GET_SYSCALL_INFO ), mChild,
                     sizeof( lInfo ), &lInfo ) < 0 )
        {
            Abandon( Explain( "the child's system calls cannot be told" ) );
            return 0;
        }
        if ( lInfo.op == PTRACE_SYSCALL_INFO_ENTRY )
        {
            mNumber = static_cast<long>( lInfo.entry.nr );
        }
        else if ( lInfo.op == PTRACE_SYSCALL_INFO_EXIT )
        {
            Take( { mNumber, lInfo.exit.rval } );
        }
        return 0;
    }

    void Take( const SystemCall& aCall )
    {
        if ( aCall.mNumber == MARK )
        {
            ++mMarks;
        }
        else if ( mMarks == 1 )
        {
            mTrace.mCalls.push_back( aCall );
        }
    }

    const pid_t mChild;
    int mStatus = 0;
    long mNumber = 0; // of the call that the child is in
    int mMarks = 0;
    SystemCallTrace mTrace;
};

} // namespace

long SystemCallTrace::Count( long aNumber ) const
{
    return std::count_if( mCalls.begin(), mCalls.end(),
                          [aNumber]( const SystemCall& aCall )
                          { return aCall.mNumber == aNumber; } );
}

std::vector<std::string> SystemCallTrace::GetNames() const
{
    std::vector<std::string> lNames;
    for ( const SystemCall& lCall : mCalls )
    {
        const auto* const lFound = std::find_if( std::begin( NAMES ), std::end( NAMES ),
                                                 [&lCall]( const Name& aName )
                                                 { return aName.mNumber == lCall.mNumber; } );
        lNames.push_back( lFound != std::end( NAMES ) ? lFound->mName
                                                      : "?" + std::to_string( lCall.mNumber ) );
    }
    return lNames;
}

SystemCallTrace TraceSystemCalls( const std::function<bool()>& aJob )
{
    const pid_t lChild = fork();
    if ( lChild == 0 )
    {
        RunTraced( aJob );
    }
    if ( lChild < 0 )
    {
        SystemCallTrace lTrace;
        lTrace.mReason = Explain( "no child can be made" );
        return lTrace;
    }
    Tracer lTracer( lChild );
    lTracer.Begin();
    return lTracer.Run();
}

} // namespace TestSupport
