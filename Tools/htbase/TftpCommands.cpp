// The commands that move files: tftp put, tftp get.

#include "Tools/htbase/Console.h"
#include "Tools/htbase/Failure.h"
#include "Tools/htbase/Files.h"
#include "Tools/htbase/Host.h"
#include "Tools/htbase/Program.h"
#include "Tools/htbase/Progress.h"
#include "Tools/htbase/Text.h"

#include <HtTftpClient.h>
#include <QmUtilsLib/String.h>
#include <QmUtilsLib/Thread.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace HtBaseTool
{

using QmUtilsLib::Result;
using QmUtilsLib::Thread;

namespace
{

constexpr unsigned short TFTP_PORT = 69;
constexpr unsigned int ABORTED = 0x0001;
constexpr uint64_t CONTENT_MAX = 0xFFFFFFFF; // bytes; the library counts in 32 bits
constexpr size_t NAME_MAX_SIZE = 1015;       // a longer name fits no request
constexpr size_t BLOCK_SIZE = 512;
constexpr size_t BUFFER_SIZE = 1024; // nothing longer is taken from the network
constexpr std::chrono::milliseconds LOOK_MS( 100 );

// A read that ends with one of these has stored nothing, although it ends well.
constexpr const char* NOTHING_STORED[] = { "Unexpected packet",
                                           "Unexpected block ID. Resending ACK" };

struct PutOptions
{
    std::string mHost;
    std::string mPath;
    std::optional<std::string> mName;
};

struct GetOptions
{
    std::string mHost;
    std::string mName;
    std::optional<std::string> mPath;
};

HostPort ParseTftpHost( const std::string& aText )
{
    const HostPort lHost = ParseHost( aText, TFTP_PORT );
    if ( lHost.mPort != TFTP_PORT )
    {
        throw MakeUsageFailure( "host '" + aText +
                                "' has a port, but TFTP requests always go to port 69" );
    }
    return lHost;
}

void CheckName( const std::string& aName )
{
    if ( aName.empty() )
    {
        throw MakeUsageFailure( "the name of the file on the device is empty" );
    }
    if ( aName.size() > NAME_MAX_SIZE )
    {
        throw Failure( ExitStatus::REFUSED,
                       "the name of the file on the device has " +
                           FormatCount( aName.size(), "byte" ) + "; no more than " +
                           std::to_string( NAME_MAX_SIZE ) + " fit into a request" );
    }
}

// One transfer to or from one device, with a second thread that looks at it: progress, warnings,
// and Ctrl-C.
class Transfer
{
public:
    // aTotal: how many bytes the progress bar expects.
    Transfer( Program& aProgram, const HostPort& aHost, const std::string& aName, uint64_t aTotal )
        : mProgram( aProgram )
        , mProgress( std::in_place, aTotal )
        , mStartMs( Thread::GetTickCount() )
    {
        const HtResult lResult = mClient.Init( aHost.mAddress.GetString().c_str(), aName.c_str() );
        if ( !lResult.IsOK() )
        {
            throw Failure( "cannot use address " + aHost.mAddress.GetString(),
                           Result( lResult.GetCode() ) );
        }
        mProgram.mInterruption.SetAction( [this] { Abort(); } );
        mWatcher = std::thread( [this] { Watch(); } );
    }

    ~Transfer()
    {
        End();
        mProgram.mInterruption.SetAction( nullptr );
    }

    Transfer( const Transfer& ) = delete;
    Transfer& operator=( const Transfer& ) = delete;

    HtTftpClient& GetClient() { return mClient; }

    // Only after this, once the transfer has returned, the report is whole. aTotal: how many bytes
    // it came to; nothing when it failed.
    void Finish( std::optional<uint64_t> aTotal )
    {
        End();
        if ( aTotal && mProgress )
        {
            mProgress->Finish( *aTotal );
        }
        mProgress.reset();
        mProgram.mReport["warnings"] = mWarnings;
        mProgram.mReport["milliseconds"] = Thread::GetTickCount() - mStartMs;
    }

    // After Finish.
    const std::vector<std::string>& GetWarnings() const { return mWarnings; }

private:
    // Refused when no transfer runs: it has ended, or the next look finds it begun.
    void Abort() { (void)mClient.Abort(); }

    void Watch()
    {
        std::unique_lock<std::mutex> lLock( mMutex );
        while ( !mIsEnding )
        {
            Look();
            (void)mWake.wait_for( lLock, LOOK_MS, [this] { return mIsEnding; } );
        }
    }

    void Look()
    {
        if ( mProgram.mInterruption.IsRequested() )
        {
            Abort(); // a transfer that began after the signal does not know of it
        }
        TakeWarnings();
        long long lDone = 0;
        long long lTotal = 0;
        if ( mClient.GetProgress( lDone, lTotal ).IsOK() )
        {
            mProgress->Update( static_cast<uint64_t>( lDone ) ); // 32 bits, widened
        }
    }

    void TakeWarnings()
    {
        HtString lText;
        while ( mClient.GetWarning( lText ).IsOK() )
        {
            mWarnings.emplace_back( lText.GetAscii() );
            if ( !mProgram.mIsJson )
            {
                mProgress->Wipe();
                PrintNote( "warning: " + mWarnings.back() );
            }
        }
    }

    void End()
    {
        if ( !mWatcher.joinable() )
        {
            return;
        }
        {
            const std::lock_guard<std::mutex> lLock( mMutex );
            mIsEnding = true;
        }
        mWake.notify_one();
        mWatcher.join();
        TakeWarnings();
    }

    Program& mProgram;
    HtTftpClient mClient;

    // Of the watching thread while it runs.
    std::optional<Progress> mProgress;
    std::vector<std::string> mWarnings;

    const long long mStartMs;
    std::mutex mMutex;
    std::condition_variable mWake;
    bool mIsEnding = false; // guarded by mMutex
    std::thread mWatcher;
};

// Why a transfer failed: the device's text or the library's, or our own if there is none.
std::string GetReason( const Result& aResult )
{
    std::string lText = aResult.GetDescription().GetAscii();
    while ( !lText.empty() && lText.back() == '.' )
    {
        lText.pop_back();
    }
    return lText.empty() ? "the device refused and gave no reason" : lText;
}

// aTried: "send file 'x' ..."; aOutcome: what became of the bytes.
Failure MakeTransferFailure( const std::string& aTried, const HtResult& aResult,
                             const std::string& aOutcome )
{
    const Result lResult( aResult.GetCode(), aResult.GetOSCode(),
                          QmUtilsLib::String( aResult.GetDescription().GetAscii() ) );
    const std::string lSentence = aResult.GetCode() == ABORTED
                                      ? "interrupted before it could " + aTried
                                      : "cannot " + aTried + ": " + GetReason( lResult );
    return Failure( lSentence + aOutcome, lResult );
}

uint64_t GetAcknowledged( HtTftpClient& aClient )
{
    long long lDone = 0;
    long long lTotal = 0;
    (void)aClient.GetProgress( lDone, lTotal ); // refused only before the first transfer: 0
    return static_cast<uint64_t>( lDone );
}

void SendContent( Program& aProgram, const HostPort& aHost, const std::string& aName,
                  const std::string& aTried, const std::vector<uint8_t>& aContent )
{
    const auto lSize = static_cast<unsigned int>( aContent.size() ); // at most CONTENT_MAX
    Transfer lTransfer( aProgram, aHost, aName, lSize );
    const HtResult lResult = lTransfer.GetClient().SendData( aContent.data(), lSize );
    const uint64_t lAcknowledged =
        lResult.IsOK() ? lSize : GetAcknowledged( lTransfer.GetClient() );
    aProgram.mReport["bytesAcknowledged"] = lAcknowledged;
    if ( !lResult.IsOK() )
    {
        lTransfer.Finish( std::nullopt );
        throw MakeTransferFailure( aTried, lResult,
                                   ", " + std::to_string( lAcknowledged ) + " of " +
                                       FormatCount( lSize, "byte" ) + " were acknowledged" );
    }
    lTransfer.Finish( lSize );
}

void Put( Program& aProgram, const PutOptions& aOptions )
{
    const HostPort lHost = ParseTftpHost( aOptions.mHost );
    const std::string lName = aOptions.mName.value_or( GetFileName( aOptions.mPath ) );
    CheckName( lName );
    aProgram.mReport["device"] = lHost.GetName();
    aProgram.mReport["file"] = aOptions.mPath;
    aProgram.mReport["name"] = lName;
    const std::vector<uint8_t> lContent = ReadRegularFile( aOptions.mPath, CONTENT_MAX );
    aProgram.mReport["bytes"] = lContent.size();
    aProgram.mReport["bytesAcknowledged"] = 0;
    const std::string lTried =
        "send file '" + aOptions.mPath + "' to " + lHost.GetName() + " as '" + lName + "'";
    SendContent( aProgram, lHost, lName, lTried, lContent );
    if ( !aProgram.mIsJson )
    {
        PrintNote( "sent " + FormatCount( lContent.size(), "byte" ) + " to " + lHost.GetName() +
                   " as '" + lName + "'" );
    }
}

// The path of the local file: that of the option, or the device's name without its folders.
std::string GetLocalPath( const GetOptions& aOptions )
{
    if ( aOptions.mPath )
    {
        return *aOptions.mPath;
    }
    std::string lName = GetFileName( aOptions.mName );
    if ( lName.empty() || lName == "." || lName == ".." )
    {
        throw MakeUsageFailure( "'" + aOptions.mName +
                                "' does not end in a file name - give one with -o" );
    }
    return lName;
}

// The warning that says that nothing was stored; empty if data was stored.
std::string FindRejection( const std::vector<std::string>& aWarnings )
{
    const auto lIsRejection = []( const std::string& aWarning )
    {
        return std::find( std::begin( NOTHING_STORED ), std::end( NOTHING_STORED ), aWarning ) !=
               std::end( NOTHING_STORED );
    };
    const auto lFound = std::find_if( aWarnings.begin(), aWarnings.end(), lIsRejection );
    return lFound == aWarnings.end() ? std::string() : *lFound;
}

// The transfer has taken place, so a file that cannot be created now is not wrong usage.
void WriteContent( const std::string& aPath, const uint8_t* aData, size_t aSize )
{
    try
    {
        OutputFile lFile( aPath );
        lFile.Write( aData, aSize );
        lFile.Commit();
    }
    catch ( const Failure& lFailure )
    {
        throw Failure( lFailure.what(),
                       lFailure.GetResult().IsOK() ? Result::GENERIC_ERROR : lFailure.GetResult() );
    }
}

// Fetches the first block and writes it. Returns its size.
size_t FetchContent( Program& aProgram, const HostPort& aHost, const std::string& aName,
                     const std::string& aPath )
{
    const std::string lTried = "fetch '" + aName + "' from " + aHost.GetName();
    const std::string lOutcome = "; nothing was written";
    std::vector<uint8_t> lBuffer( BUFFER_SIZE );
    unsigned int lReceived = 0;
    // Interruptions still go to it while the file is written, so that none leaves half of one.
    Transfer lTransfer( aProgram, aHost, aName, BLOCK_SIZE );
    const HtResult lResult =
        lTransfer.GetClient().GetData( lBuffer.data(), BUFFER_SIZE, &lReceived );
    if ( !lResult.IsOK() )
    {
        lTransfer.Finish( std::nullopt );
        throw MakeTransferFailure( lTried, lResult, lOutcome );
    }
    lTransfer.Finish( lReceived );
    const std::string lRejection = FindRejection( lTransfer.GetWarnings() );
    if ( !lRejection.empty() )
    {
        throw Failure( "cannot " + lTried + ": the answer was not the first block of a file (" +
                           lRejection + ")" + lOutcome,
                       Result::GENERIC_ERROR );
    }
    WriteContent( aPath, lBuffer.data(), lReceived );
    return lReceived;
}

void Get( Program& aProgram, const GetOptions& aOptions )
{
    const HostPort lHost = ParseTftpHost( aOptions.mHost );
    CheckName( aOptions.mName );
    const std::string lPath = GetLocalPath( aOptions );
    CheckOutputFile( lPath );
    aProgram.mReport["device"] = lHost.GetName();
    aProgram.mReport["name"] = aOptions.mName;
    aProgram.mReport["file"] = lPath;
    const size_t lSize = FetchContent( aProgram, lHost, aOptions.mName, lPath );
    const bool lMayBeMore = lSize >= BLOCK_SIZE;
    aProgram.mReport["bytes"] = lSize;
    aProgram.mReport["possiblyIncomplete"] = lMayBeMore;
    if ( lMayBeMore )
    {
        throw Failure( ExitStatus::PARTIAL,
                       "file '" + lPath + "' may be incomplete: it has the first " +
                           FormatCount( lSize, "byte" ) + ", and the program never fetches more" );
    }
    if ( !aProgram.mIsJson )
    {
        PrintNote( "fetched " + FormatCount( lSize, "byte" ) + " into file '" + lPath + "'" );
    }
}

void AddHost( CLI::App& aCommand, std::string& aHost )
{
    aCommand
        .add_option( "HOST", aHost,
                     "The device: dotted IPv4 address or name; requests go to UDP port 69" )
        ->type_name( "" )
        ->required();
}

void AddPut( CLI::App& aGroup, Program& aProgram )
{
    const auto lOptions = std::make_shared<PutOptions>();
    CLI::App* const lCommand =
        AddCommand( aGroup, "put",
                    "Send a file to a device. Ctrl-C aborts the transfer after the current wait; a "
                    "second Ctrl-C ends the program at once",
                    aProgram, [lOptions]( Program& aRun ) { Put( aRun, *lOptions ); } );
    AddHost( *lCommand, lOptions->mHost );
    lCommand
        ->add_option( "FILE", lOptions->mPath,
                      "A regular file of less than 4 GiB; it may be empty" )
        ->type_name( "" )
        ->required();
    lCommand
        ->add_option(
            "--as", lOptions->mName,
            "Its name on the device, at most 1015 bytes; by default FILE without folders" )
        ->type_name( "NAME" );
}

void AddGet( CLI::App& aGroup, Program& aProgram )
{
    const auto lOptions = std::make_shared<GetOptions>();
    CLI::App* const lCommand = AddCommand(
        aGroup, "get",
        "Fetch the first block of a device's file, at most 512 bytes and never more. A file that "
        "fills the block is kept and may be incomplete: exit status 3",
        aProgram, [lOptions]( Program& aRun ) { Get( aRun, *lOptions ); } );
    AddHost( *lCommand, lOptions->mHost );
    lCommand->add_option( "NAME", lOptions->mName, "The file's name on the device" )
        ->type_name( "" )
        ->required();
    lCommand
        ->add_option( "-o,--output", lOptions->mPath,
                      "The file to write, which appears when the transfer has succeeded; by "
                      "default NAME without folders, in the current folder" )
        ->type_name( "FILE" );
}

} // namespace

void AddTftpCommands( CLI::App& aApp, Program& aProgram )
{
    CLI::App* const lGroup = AddGroup( aApp, "tftp", "Files to and from devices, by TFTP" );
    AddPut( *lGroup, aProgram );
    AddGet( *lGroup, aProgram );
}

} // namespace HtBaseTool
