// How many times as fast as another each benchmark of one run is.
#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace Benchmarks
{

// What is held against what, by the names that the benchmarks print: function, and "/" and the
// arguments where it has some.
struct Ratio
{
    std::string mWhat; // the start of the printed line
    std::string mSubject;
    std::string mBase;
};

enum class Clock
{
    CPU, // of the benchmark's thread
    REAL
};

// RatioReporter prints as always, and keeps the shortest time of each benchmark.
class RatioReporter : public benchmark::ConsoleReporter
{
public:
    explicit RatioReporter( Clock aClock )
        : mClock( aClock )
    {
    }

    void ReportRuns( const std::vector<Run>& aRuns ) override
    {
        ConsoleReporter::ReportRuns( aRuns );
        for ( const Run& lRun : aRuns )
        {
            if ( lRun.run_type == Run::RT_Iteration && !lRun.error_occurred )
            {
                const double lTime =
                    mClock == Clock::CPU ? lRun.GetAdjustedCPUTime() : lRun.GetAdjustedRealTime();
                const std::string lArguments =
                    lRun.run_name.args.empty() ? "" : "/" + lRun.run_name.args;
                const auto lPlace =
                    mTimes.emplace( lRun.run_name.function_name + lArguments, lTime );
                lPlace.first->second = std::min( lPlace.first->second, lTime );
            }
        }
    }

    // Leaves out what did not run.
    void PrintRatios( const std::vector<Ratio>& aRatios ) const
    {
        for ( const Ratio& lRatio : aRatios )
        {
            const auto lSubject = mTimes.find( lRatio.mSubject );
            const auto lBase = mTimes.find( lRatio.mBase );
            if ( lSubject != mTimes.end() && lBase != mTimes.end() )
            {
                std::printf( "%s: %s runs at %.2f of %s\n", lRatio.mWhat.c_str(),
                             lRatio.mSubject.c_str(), lBase->second / lSubject->second,
                             lRatio.mBase.c_str() );
            }
        }
    }

private:
    const Clock mClock;
    std::map<std::string, double> mTimes;
};

// RunAndCompare runs the benchmarks that the command line chooses, prints the ratios, and returns
// the program's exit status.
inline int RunAndCompare( int aCount, char** aArguments, Clock aClock,
                          const std::vector<Ratio>& aRatios )
{
    benchmark::Initialize( &aCount, aArguments );
    if ( benchmark::ReportUnrecognizedArguments( aCount, aArguments ) )
    {
        return 1;
    }
    RatioReporter lReporter( aClock );
    benchmark::RunSpecifiedBenchmarks( &lReporter );
    lReporter.PrintRatios( aRatios );
    return 0;
}

} // namespace Benchmarks
