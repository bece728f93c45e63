// gev monitor.

#include "Tools/htbase/Console.h"
#include "Tools/htbase/Failure.h"
#include "Tools/htbase/GevCommands.h"
#include "Tools/htbase/GevDevice.h"
#include "Tools/htbase/RegisterPoll.h"
#include "Tools/htbase/Registers.h"
#include "Tools/htbase/Text.h"

#include <QmUtilsLib/Logger.h>
#include <QmUtilsLib/Thread.h>

#include <CLI/CLI.hpp>

#include <cstdio>
#include <memory>

namespace HtBaseTool
{

using QmUtilsLib::Logger;
using QmUtilsLib::Result;
using QmUtilsLib::Thread;
using Json = nlohmann::ordered_json;

namespace
{

constexpr int INTERVAL_MIN = 1; // ms
constexpr int INTERVAL_MAX = 3600000;
constexpr long long LINE_MS = 1000;  // between lines
constexpr long long REDRAW_MS = 250; // of a line that is drawn over and over

// Reads count as silent when none has succeeded for this long, and two of their intervals more.
constexpr double SILENCE_S = 2;

constexpr const char* NO_VALUE = "no value yet";

struct MonitorOptions
{
    GevTarget mTarget;
    std::string mAddress;
    int mIntervalMs = 100;
};

// How the state is shown.
enum class View
{
    LINES,
    LIVE, // one line, drawn over and over
    JSON
};

// On a terminal that shows a log too, lines: a note would end up in the middle of a live line.
View ChooseView( const Program& aProgram )
{
    if ( aProgram.mIsJson )
    {
        return View::JSON;
    }
    const bool lIsLogShown = Logger( "htbase", 0 ).IsPriorityEnabled( Logger::FAILURE );
    return IsOutputTerminal() && !lIsLogShown ? View::LIVE : View::LINES;
}

// Rate and bandwidth of the moment.
struct Speed
{
    double mRate = 0;      // reads per second
    double mBandwidth = 0; // bits of values per second
};

double ToSeconds( long long aMilliseconds )
{
    return static_cast<double>( aMilliseconds ) / 1e3;
}

Speed GetSpeed( const ToolLinkGEV& aLink, const PollState& aState )
{
    const Speed lSpeed{ aLink.GetMeter().GetRate(), aLink.GetMeter().GetBandwidth() };
    const double lQuiet = ToSeconds( Thread::GetTickCount() - aState.mGoodMs );
    // The meter keeps what it knew last.
    const bool lIsSilent = lSpeed.mRate <= 0 || lQuiet > SILENCE_S + 2 / lSpeed.mRate;
    return lIsSilent ? Speed() : lSpeed;
}

std::string FormatTenths( double aValue )
{
    char lText[340]; // the largest number has 309 digits
    std::snprintf( lText, sizeof( lText ), "%.1f", aValue );
    return lText;
}

// Shows the state of a poll repeatedly, and at its end.
class Display
{
public:
    Display( Program& aProgram, const GevDevice& aDevice, uint64_t aAddress )
        : mProgram( aProgram )
        , mDevice( aDevice )
        , mRegister( FormatAddress( aAddress, AddressBits::GEV ) )
        , mView( ChooseView( aProgram ) )
        , mStartMs( Thread::GetTickCount() )
    {
        mProgram.mIsReportLine = true;
        mProgram.mReport["device"] = aDevice.GetName();
        mProgram.mReport["address"] = aAddress;
        if ( mView == View::LIVE )
        {
            Print( "register " + mRegister + " of " + aDevice.GetName() +
                   "; press Ctrl-C to end\n" );
        }
    }

    // "read register 0x00000A00"
    std::string GetTried() const { return "read register " + mRegister; }

    // Milliseconds until the next Show is due; those that are too late are left out.
    long long GetWait() const
    {
        const long long lPeriod = mView == View::LIVE ? REDRAW_MS : LINE_MS;
        return lPeriod - GetElapsedMs() % lPeriod;
    }

    void Show( const PollState& aState ) const
    {
        switch ( mView )
        {
        case View::JSON:
            PrintJsonLine( MakeReport( aState ) );
            break;
        case View::LIVE:
            PrintLive( FormatLive( aState ) );
            break;
        case View::LINES:
            Print( FormatLine( aState ) + "\n" );
            break;
        }
    }

    void Finish( const PollState& aState ) const
    {
        const double lSeconds = ToSeconds( GetElapsedMs() );
        const auto lGood = static_cast<double>( aState.mReads - aState.mFailedReads );
        const double lAverage = lSeconds > 0 ? lGood / lSeconds : 0;
        if ( mView == View::JSON )
        {
            Json& lSummary = mProgram.mReport["summary"];
            lSummary["elapsedMs"] = GetElapsedMs();
            ReportCounts( lSummary, aState );
            lSummary["averageRate"] = lAverage;
            lSummary["lastValue"] = lGood > 0 ? Json( aState.mValue ) : Json();
            return;
        }
        if ( mView == View::LIVE )
        {
            PrintLive( FormatLive( aState ) );
            Print( "\n" );
        }
        Print( FormatCount( aState.mReads, "read" ) + " in " + FormatTenths( lSeconds ) + " s, " +
               std::to_string( aState.mFailedReads ) + " failed, " + FormatTenths( lAverage ) +
               " values/s on average, the last " +
               ( lGood > 0 ? FormatValue( aState.mValue ) : "unknown" ) + "\n" );
        PrintNote( mDevice.GetStatisticsText() );
    }

private:
    long long GetElapsedMs() const { return Thread::GetTickCount() - mStartMs; }

    static std::string FormatValue( uint32_t aValue )
    {
        return FormatHex( aValue ) + "  " + std::to_string( aValue );
    }

    static void PrintLive( std::string aLine )
    {
        aLine.resize( LINE_COLUMNS, ' ' ); // over what was there
        Print( '\r' + aLine );
    }

    void ReportCounts( Json& aReport, const PollState& aState ) const
    {
        aReport["reads"] = aState.mReads;
        aReport["failedReads"] = aState.mFailedReads;
        aReport["statistics"] = mDevice.GetStatistics();
    }

    Json MakeReport( const PollState& aState ) const
    {
        const Speed lSpeed = GetSpeed( mDevice.GetLink(), aState );
        Json lReport = mProgram.mReport;
        lReport["elapsedMs"] = GetElapsedMs();
        lReport["value"] = aState.mResult.IsOK() ? Json( aState.mValue ) : Json();
        lReport["rate"] = lSpeed.mRate;
        lReport["bandwidth"] = lSpeed.mBandwidth;
        ReportCounts( lReport, aState );
        if ( aState.mReads > 0 && !aState.mResult.IsOK() )
        {
            lReport["error"] = MakeError( mDevice.MakeFailure( GetTried(), aState.mResult ) );
        }
        return lReport;
    }

    std::string FormatSpeed( const PollState& aState ) const
    {
        const Speed lSpeed = GetSpeed( mDevice.GetLink(), aState );
        return FormatTenths( lSpeed.mRate ) + "/s  " + FormatScaled( lSpeed.mBandwidth, "bit/s" );
    }

    // What fits into a line: a failure by its code, counters in a word.
    std::string FormatLive( const PollState& aState ) const
    {
        const ToolLinkGEV& lLink = mDevice.GetLink();
        const std::string lLatest =
            aState.mResult.IsOK() ? FormatHex( aState.mValue ) : aState.mResult.GetCodeString();
        return ( aState.mReads > 0 ? lLatest : NO_VALUE ) + "  " + FormatSpeed( aState ) +
               "  retries " + std::to_string( lLink.GetRetriesCount() ) + "  pending " +
               std::to_string( lLink.GetPendingAcknowledgesCount() ) + "  failed " +
               std::to_string( aState.mFailedReads ) + "  unsent " +
               std::to_string( lLink.GetTransmitFailures() );
    }

    std::string FormatLine( const PollState& aState ) const
    {
        const ToolLinkGEV& lLink = mDevice.GetLink();
        const auto lCount = []( long long aCount, const char* aWord )
        {
            return ", " + FormatCount( static_cast<uint64_t>( aCount ), aWord );
        };
        const std::string lLatest =
            aState.mResult.IsOK() ? FormatValue( aState.mValue ) : Describe( aState.mResult );
        return FormatTenths( ToSeconds( GetElapsedMs() ) ) + " s  " + mRegister + "  " +
               ( aState.mReads > 0 ? Escape( lLatest ) : NO_VALUE ) + "  " + FormatSpeed( aState ) +
               lCount( lLink.GetRetriesCount(), "repeated command" ) +
               lCount( lLink.GetPendingAcknowledgesCount(), "pending acknowledge" ) +
               lCount( static_cast<long long>( aState.mFailedReads ), "failed read" ) +
               lCount( lLink.GetTransmitFailures(), "transmit failure" );
    }

    Program& mProgram;
    const GevDevice& mDevice;
    const std::string mRegister;
    const View mView;
    const long long mStartMs;
};

// Throws the failure that sets the exit status, unless every read succeeded.
void Judge( const GevDevice& aDevice, const std::string& aTried, const PollState& aState )
{
    if ( aState.mReads == 0 )
    {
        throw aDevice.MakeFailure( aTried, Result::ABORTED );
    }
    if ( aState.mFailedReads == 0 )
    {
        return;
    }
    const std::string lHowMany = std::to_string( aState.mFailedReads ) + " of " +
                                 FormatCount( aState.mReads, "attempt" ) + " to " + aTried +
                                 " of " + aDevice.GetName() + " failed, the last with " +
                                 Describe( aState.mFailure ) + GetHint( aState.mFailure );
    if ( aState.mFailedReads < aState.mReads )
    {
        throw Failure( ExitStatus::PARTIAL, lHowMany );
    }
    throw Failure( lHowMany, aState.mFailure );
}

void Monitor( Program& aProgram, const MonitorOptions& aOptions )
{
    const uint64_t lAddress = ParseRegisterAddress( aOptions.mAddress, AddressBits::GEV );
    GevDevice lDevice( aProgram.mInterruption, aOptions.mTarget.GetHost(), aOptions.mTarget.mLink );
    const Display lDisplay( aProgram, lDevice, lAddress );
    RegisterPoll lPoll( lDevice, lAddress, aOptions.mIntervalMs );
    while ( !aProgram.mInterruption.WaitFor( lDisplay.GetWait() ) )
    {
        lDisplay.Show( lPoll.GetState() );
    }
    lPoll.Stop();
    const PollState lState = lPoll.GetState();
    lDisplay.Finish( lState );
    Judge( lDevice, lDisplay.GetTried(), lState );
}

} // namespace

void AddGevMonitor( CLI::App& aGroup, Program& aProgram )
{
    const auto lOptions = std::make_shared<MonitorOptions>();
    CLI::App* const lCommand = AddCommand(
        aGroup, "monitor",
        "Read a register repeatedly until SIGINT or SIGTERM, and show its value and statistics of "
        "the link: one line updated in place on a terminal, elsewhere a line every second. A "
        "failed read is counted. Exit status: 0 every read succeeded, 3 some did, 1 none did",
        aProgram, [lOptions]( Program& aRun ) { Monitor( aRun, *lOptions ); } );
    AddTarget( *lCommand, lOptions->mTarget );
    AddRegisterAddress( *lCommand, lOptions->mAddress );
    lCommand
        ->add_option( "--interval", lOptions->mIntervalMs,
                      "Milliseconds from the start of one read to the start of the next" )
        ->type_name( "MS" )
        ->check( CLI::Range( INTERVAL_MIN, INTERVAL_MAX ) )
        ->capture_default_str();
}

} // namespace HtBaseTool
