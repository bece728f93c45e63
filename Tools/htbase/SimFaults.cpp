#include "Tools/htbase/SimFaults.h"

#include "Tools/htbase/Failure.h"
#include "Tools/htbase/Text.h"

#include <CLI/CLI.hpp>

namespace HtBaseTool
{

using QmUtilsLib::Result;
using Simulators::DeviceServer;
using Simulators::FaultPlan;
using Json = nlohmann::ordered_json;

namespace
{

Json MakeReport( const FaultPlan::Counters& aCounters )
{
    return { { "seen", aCounters.mSeen },
             { "passed", aCounters.mPassed },
             { "lost", aCounters.mLost },
             { "delayed", aCounters.mDelayed },
             { "duplicated", aCounters.mDuplicated },
             { "reordered", aCounters.mReordered },
             { "truncated", aCounters.mTruncated },
             { "corrupted", aCounters.mCorrupted },
             { "strays", aCounters.mStrays } };
}

// Empty, or what is wrong with a rate.
std::string CheckRate( const std::string& aText )
{
    double lRate = 0;
    const bool lIsRate = CLI::detail::lexical_cast( aText, lRate ) && lRate >= 0 &&
                         lRate <= 1; // not-a-number is refused
    return lIsRate ? std::string() : "'" + aText + "' is not a rate from 0 to 1";
}

void AddRate( CLI::App& aCommand, const char* aName, double& aRate, const char* aDescription )
{
    aCommand.add_option( aName, aRate, aDescription )->type_name( "RATE" )->check( CheckRate );
}

} // namespace

void SimFaults::Apply( DeviceServer::Options& aServer, uint64_t aIndex ) const
{
    const uint64_t lSeed = ParseNumber( mSeed, "seed" ) + 2 * aIndex;
    aServer.mRequestFaults = FaultPlan( mRates, lSeed );
    aServer.mAnswerFaults = FaultPlan( mRates, lSeed + 1 );
}

void AddFaultOptions( CLI::App& aCommand, SimFaults& aFaults )
{
    FaultPlan::Rates& lRates = aFaults.mRates;
    AddRate( aCommand, "--loss", lRates.mLoss,
             "Lose this fraction of the datagrams, 0 to 1, in each direction" );
    AddRate( aCommand, "--delay", lRates.mDelay, "Delay datagrams" );
    aCommand.add_option( "--max-delay", lRates.mMaxDelayMs, "Longest delay" )
        ->type_name( "MS" )
        ->check( CLI::Range( 1, 60000 ) )
        ->capture_default_str();
    AddRate( aCommand, "--duplicate", lRates.mDuplicate, "Send datagrams twice" );
    AddRate( aCommand, "--reorder", lRates.mReorder, "Reorder datagrams" );
    AddRate( aCommand, "--truncate", lRates.mTruncate, "Cut datagrams short" );
    AddRate( aCommand, "--corrupt", lRates.mCorrupt, "Change a byte of the header" );
    AddRate( aCommand, "--stray", lRates.mStray,
             "Insert strays: datagrams that do not belong to the exchange" );
    aCommand
        .add_option( "--seed", aFaults.mSeed,
                     "Seed of the faults; the same seed gives the same faults" )
        ->type_name( "N" )
        ->capture_default_str();
}

void OpenServer( DeviceServer& aServer, const DeviceServer::Options& aOptions )
{
    const Result lResult = aServer.Open( aOptions );
    if ( !lResult.IsOK() )
    {
        throw Failure( "cannot serve at " +
                           HostPort{ aOptions.mAddress, aOptions.mPort }.GetName() + ": " +
                           Describe( lResult ) + GetHint( lResult ),
                       lResult );
    }
}

void CheckServed( const Result& aResult, bool aIsStopped )
{
    if ( !aResult.IsOK() && !aIsStopped )
    {
        throw Failure( "cannot continue serving: " + Describe( aResult ), aResult );
    }
}

void ReportFaults( Json& aReport, const DeviceServer& aServer )
{
    aReport["sendFailures"] = aServer.GetCounters().mSendFailures;
    aReport["requestFaults"] = MakeReport( aServer.GetRequestFaults().GetCounters() );
    aReport["answerFaults"] = MakeReport( aServer.GetAnswerFaults().GetCounters() );
}

std::string GetFaultsText( const DeviceServer& aServer )
{
    return "requests: " + aServer.GetRequestFaults().GetSummary() +
           "\nanswers: " + aServer.GetAnswerFaults().GetSummary() + "\n";
}

} // namespace HtBaseTool
