// Runs programs from tests.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace TestSupport
{

// How a program ended.
struct Ending
{
    bool mExited = false; // by itself; otherwise by a signal, or it was still running
    int mStatus = -1;     // exit status, when mExited
    int mSignal = 0;      // the signal that ended it, 0: none
};

// ChildProcess is one running program whose output is read. Every wait has a time limit, in
// milliseconds. The destructor kills the program, by its process id, and waits for its end; so does
// the system when the thread that started it ends. Not safe for several threads at once.
class ChildProcess
{
public:
    struct Options
    {
        // Where standard output goes: empty: to this object; otherwise the path of a file, such as
        // /dev/full.
        std::string mOutputPath;
        bool mCloseOutput = false;     // the program starts without standard output
        bool mErrorIsTerminal = false; // standard error is a terminal, 80 columns wide
        bool mOutputIsTerminal = false;
        std::string mDirectory;                // working directory, empty: this one
        std::vector<std::string> mEnvironment; // NAME=value, on top of this process's
    };

    // Starts aArguments[0], looked up in PATH where it contains no slash. Standard input is empty.
    // A program that cannot be started ends with status 127 and says so on its standard error.
    explicit ChildProcess( const std::vector<std::string>& aArguments );
    ChildProcess( const std::vector<std::string>& aArguments, const Options& aOptions );
    ~ChildProcess();

    ChildProcess( const ChildProcess& ) = delete;
    ChildProcess& operator=( const ChildProcess& ) = delete;

    pid_t GetId() const { return mId; }

    // The next whole line of standard output, without its end; nothing when none comes in time.
    std::optional<std::string> ReadLine( int aTimeoutMs = 10000 );

    // Waits until standard output, or standard error, contains aText. False when it does not in
    // time.
    bool WaitForOutput( const std::string& aText, int aTimeoutMs = 10000 );
    bool WaitForError( const std::string& aText, int aTimeoutMs = 10000 );

    // Sends a signal, if the program still runs.
    void Signal( int aSignal );

    // Reads both outputs until the program has ended. When it has not in time it is killed, and
    // mExited is false with mSignal 0.
    Ending Wait( int aTimeoutMs = 20000 );

    // Everything that was read so far.
    const std::string& GetOutput() const { return mOutput.mText; }
    const std::string& GetError() const { return mError.mText; }

private:
    // The reading end of one output.
    struct Stream
    {
        int mDescriptor = -1;
        std::string mText;
        size_t mLineStart = 0; // of the next line for ReadLine
    };

    void Start( const std::vector<std::string>& aArguments, const Options& aOptions );
    bool WaitForText( const Stream& aStream, const std::string& aText, int aTimeoutMs );
    // Reads what there is, waiting for at most aTimeoutMs. False when both outputs have ended.
    bool Pump( int aTimeoutMs );
    void ReadFrom( Stream& aStream );
    bool Reap( int aFlags );

    pid_t mId = -1;
    bool mIsReaped = false;
    int mWaitStatus = 0;
    Stream mOutput;
    Stream mError;
};

// What a program did.
struct Outcome
{
    Ending mEnding;
    int mStatus = -1; // exit status; -1 when the program did not exit by itself
    std::string mOutput;
    std::string mError;
};

// Runs a program to its end.
Outcome RunProgram( const std::vector<std::string>& aArguments,
                    const ChildProcess::Options& aOptions = {}, int aTimeoutMs = 20000 );

} // namespace TestSupport
