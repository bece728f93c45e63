// The meter of event rate and bandwidth.

#include "tests/support/AllocationCounter.h"
#include "tests/support/LockCounter.h"

#include <InstantStats.h>

#include <QmUtilsLib/Scripted/RecordingLogSink.h>

#include <gmock/gmock.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <limits>
#include <numeric>
#include <random>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

using HtBaseLib::InstantStats;

namespace
{

constexpr unsigned long long SECOND = 1000000; // us
constexpr unsigned long long JOIN_END = 200000;
constexpr unsigned long long SILENCE_END = 2000000;

class Stats : public testing::Test
{
protected:
    void Report( unsigned long long aTimestamp, unsigned int aBytes = 1000,
                 bool aExcludeLast = false )
    {
        mStats.Report( aTimestamp, aBytes, aExcludeLast );
    }

    // aCount reports of 1000 bytes, the first at aStart.
    void ReportSteadily( unsigned long long aStart, unsigned long long aInterval,
                         unsigned int aCount )
    {
        for ( unsigned int lIndex = 0; lIndex < aCount; ++lIndex )
        {
            Report( aStart + lIndex * aInterval );
        }
    }

    void Expect( double aRate, double aBandwidth ) const
    {
        EXPECT_DOUBLE_EQ( mStats.GetRate(), aRate );
        EXPECT_DOUBLE_EQ( mStats.GetBandwidth(), aBandwidth );
    }

    InstantStats mStats;
};

} // namespace

TEST( StatsType, IsNotCopiedAndHasNoVirtualOperation )
{
    static_assert( !std::is_copy_constructible_v<InstantStats> );
    static_assert( !std::is_copy_assignable_v<InstantStats> );
    static_assert( !std::is_move_constructible_v<InstantStats> );
    static_assert( !std::is_move_assignable_v<InstantStats> );
    static_assert( !std::is_polymorphic_v<InstantStats> );
    static_assert(
        std::is_same_v<decltype( &InstantStats::Report ),
                       void ( InstantStats::* )( unsigned long long, unsigned int, bool )> );
    static_assert(
        std::is_same_v<decltype( &InstantStats::GetRate ), double ( InstantStats::* )() const> );
    static_assert( std::is_same_v<decltype( &InstantStats::GetBandwidth ),
                                  double ( InstantStats::* )() const> );
    static_assert( std::is_same_v<decltype( &InstantStats::Reset ), void ( InstantStats::* )()> );
}

TEST_F( Stats, BeginAtZero )
{
    Expect( 0.0, 0.0 );
}

TEST_F( Stats, LogNothingAndAllocateOnlyWhenMade )
{
    const QmUtilsLib::Scripted::RecordingLogSink lLog;
    const unsigned long long lBefore = TestSupport::GetAllocationCount();
    ReportSteadily( 0, 100000, 100 );
    (void)mStats.GetRate(); // only asked for
    mStats.Reset();
    EXPECT_EQ( TestSupport::GetAllocationCount(), lBefore );
    EXPECT_THAT( lLog.GetEntries(), testing::IsEmpty() );
}

TEST_F( Stats, LockForReportsAndResetsAndNotForReadings )
{
    const unsigned long long lBefore = TestSupport::GetLockCount();
    Report( 0 );
    EXPECT_EQ( TestSupport::GetLockCount(), lBefore + 1 );
    Report( SECOND );
    EXPECT_EQ( TestSupport::GetLockCount(), lBefore + 2 );
    Expect( 1.0, 8000.0 ); // asks for both
    EXPECT_EQ( TestSupport::GetLockCount(), lBefore + 2 );
    mStats.Reset();
    EXPECT_EQ( TestSupport::GetLockCount(), lBefore + 3 );
}

// The figures of a small example, one report after the other.
TEST_F( Stats, FollowAStreamReportByReport )
{
    Report( 0 );
    Expect( 0.0, 0.0 );
    Report( 100000 ); // 0.1 s later, and in a slot of its own: one interval of 1000 bytes
    Expect( 10.0, 80000.0 );
    Report( 1000000 ); // two intervals, 2000 bytes, 1 s
    Expect( 2.0, 16000.0 );
    Report( 1050000 ); // joins the slot before; three intervals, 3000 bytes, 1.05 s
    EXPECT_EQ( mStats.GetRate(), 1000000.0 / 1050000.0 * 3.0 );
    EXPECT_EQ( mStats.GetBandwidth(), 3000.0 * 8000000.0 / 1050000.0 );
    EXPECT_NEAR( mStats.GetRate(), 2.857142, 0.000001 );
    EXPECT_NEAR( mStats.GetBandwidth(), 22857.142857, 0.000001 );
}

TEST_F( Stats, RoundTheRateBeforeTheMultiplication )
{
    // 1000000 / 3 x 7 rounds otherwise than 7000000 / 3 does.
    ASSERT_NE( 1000000.0 / 3.0 * 7.0, 7000000.0 / 3.0 );
    Report( 0 );
    Report( 1 );
    for ( int lMore = 0; lMore < 6; ++lMore )
    {
        Report( 3 );
    }
    EXPECT_EQ( mStats.GetRate(), 1000000.0 / 3.0 * 7.0 );
    EXPECT_EQ( mStats.GetBandwidth(), 7000.0 * 8000000.0 / 3.0 );
}

TEST_F( Stats, RoundBandwidthAfterTheMultiplication )
{
    // 3 x 8000000 / 7 rounds otherwise than 8000000 / 7 x 3 and 3 / 7 x 8000000 do.
    ASSERT_NE( 3.0 * 8000000.0 / 7.0, 8000000.0 / 7.0 * 3.0 );
    ASSERT_NE( 3.0 * 8000000.0 / 7.0, 3.0 / 7.0 * 8000000.0 );
    Report( 0, 5 );
    Report( 7, 3 );
    EXPECT_EQ( mStats.GetBandwidth(), 3.0 * 8000000.0 / 7.0 );
}

TEST_F( Stats, CountSlowEventsInFractions )
{
    Report( 0 );
    Report( 2 * SECOND );
    Expect( 0.5, 4000.0 );
}

TEST_F( Stats, GiveNothingAfterOneReport )
{
    Report( 5 * SECOND );
    Expect( 0.0, 0.0 );
}

TEST_F( Stats, OpenASlotForEachOfTheFirstTwoReportsHoweverNear )
{
    // The second slot starts at 1, so a report at 200000 joins it and the one at 200001 does not.
    Report( 0, 100 );
    Report( 1, 100 );
    Expect( 1e6, 8e8 );
    Report( 200000, 100 );
    Report( 200001, 100 );
    // Fifteen further slots push out the first two: the oldest is then that of 200001, which holds
    // one report. Were the slot of 1 the first one, there would be more.
    ReportSteadily( 400001, JOIN_END, 15 );
    EXPECT_DOUBLE_EQ( mStats.GetRate(), 1e6 / ( 15.0 * JOIN_END ) * 15.0 );
}

TEST_F( Stats, OpenASlotForEachOfTheFirstTwoReportsAtTheSameTime )
{
    Report( 7, 100 );
    Report( 7, 100 ); // no time has passed, so no rate can be calculated
    Expect( 0.0, 0.0 );
    Report( 7 + SECOND, 100 );
    Expect( 2.0, 1600.0 );
}

TEST_F( Stats, OpenASlotForEachOfTheFirstTwoReportsHoweverFar )
{
    Report( 0 );
    Report( 10 * SECOND ); // no silence that begins anew: there was no interval before
    Expect( 0.1, 800.0 );
    Report( 11 * SECOND );
    Expect( 1e6 / 11e6 * 2.0, 2000.0 * 8e6 / 11e6 );
}

// With the first report at 0 and the second slot's start at 1 s, aDistance later comes another, and
// then one that shows whether a slot was opened: 15 slots later the oldest is the third report or
// what came after it.
class JoinAt : public Stats, public testing::WithParamInterface<std::pair<unsigned, bool>>
{
};

TEST_P( JoinAt, TheEndOf200MillisecondsFromTheStartOfTheSlot )
{
    const auto [lDistance, lJoins] = GetParam();
    Report( 0 );
    Report( SECOND );
    Report( SECOND + lDistance );
    // One that is 200 ms from the slot of the third report, if it has one, and joins no slot
    // otherwise either.
    const unsigned long long lFourth = SECOND + lDistance + JOIN_END;
    ReportSteadily( lFourth, JOIN_END, 14 );
    const unsigned long long lLast = lFourth + 13 * JOIN_END;
    // Seventeen reports so far. In 16 slots, when the third had none of its own, and all count;
    // in 17 otherwise, and the first was dropped.
    const double lSpan = static_cast<double>( lJoins ? lLast : lLast - SECOND );
    EXPECT_EQ( mStats.GetRate(), 1e6 / lSpan * ( lJoins ? 16.0 : 15.0 ) );
    EXPECT_EQ( mStats.GetBandwidth(), ( lJoins ? 16000.0 : 15000.0 ) * 8e6 / lSpan );
}

INSTANTIATE_TEST_SUITE_P( Distances, JoinAt,
                          testing::Values( std::pair( 0U, true ), std::pair( 1U, true ),
                                           std::pair( 199999U, true ), std::pair( 200000U, false ),
                                           std::pair( 200001U, false ) ) );

TEST_F( Stats, MeasureFromTheStartOfTheSlotAndNotFromTheReportBefore )
{
    // Every 150 ms: the report at 150 ms of a slot joins, the one at 300 ms opens the next.
    Report( 0 );
    ReportSteadily( SECOND, 150000, 30 ); // 15 slots of two reports each
    const double lLast = 1e6 + 29 * 150000.0;
    EXPECT_EQ( mStats.GetRate(), 1e6 / lLast * 30.0 ); // nothing has been dropped yet
    Report( SECOND + 30 * 150000 );                    // the 17th slot
    EXPECT_EQ( mStats.GetRate(), 1e6 / ( 30 * 150000.0 ) * 30.0 );
}

TEST_F( Stats, KeepTheStartOfASlotThatReportsJoin )
{
    // Each report is 190 ms behind the one before; were the start moved along, all would join.
    Report( 0 );
    ReportSteadily( SECOND, 190000, 40 );
    // 20 slots of two reports each and the first one: five were dropped, the last 16 hold 32.
    EXPECT_EQ( mStats.GetRate(), 1e6 / ( 31 * 190000.0 ) * 31.0 );
}

class SilenceOf : public Stats, public testing::WithParamInterface<std::pair<unsigned, bool>>
{
};

TEST_P( SilenceOf, TwoSecondsFromTheStartOfTheSlotIsTheLongest )
{
    const auto [lDistance, lBeginsAnew] = GetParam();
    Report( 0 );
    Report( SECOND );
    Report( SECOND + lDistance );
    const double lSpan = static_cast<double>( lBeginsAnew ? lDistance : SECOND + lDistance );
    const double lIntervals = lBeginsAnew ? 1.0 : 2.0;
    EXPECT_EQ( mStats.GetRate(), 1e6 / lSpan * lIntervals );
    EXPECT_EQ( mStats.GetBandwidth(), 1000.0 * lIntervals * 8e6 / lSpan );
}

INSTANTIATE_TEST_SUITE_P( Distances, SilenceOf,
                          testing::Values( std::pair( 1999999U, false ),
                                           std::pair( 2000000U, false ),
                                           std::pair( 2000001U, true ),
                                           std::pair( 4000000000U, true ) ) );

TEST_F( Stats, RestartWithTwoSlotsAfterASilence )
{
    Report( 0 );
    Report( SECOND );
    Report( SECOND + 2500000 );
    Expect( 0.4, 3200.0 );
    Report( SECOND + 2500000 + 100000 ); // there are two slots, so this one joins
    Expect( 1e6 / 2.6e6 * 2.0, 2000.0 * 8e6 / 2.6e6 );
}

TEST_F( Stats, MeasureASilenceFromTheStartOfTheSlotToo )
{
    Report( 0 );
    Report( SECOND );
    Report( SECOND + 190000 );          // joins
    Report( SECOND + SILENCE_END + 1 ); // only 1.81 s later
    const double lSpan = static_cast<double>( SILENCE_END + 1 );
    EXPECT_EQ( mStats.GetRate(), 1e6 / lSpan * 2.0 );
    EXPECT_EQ( mStats.GetBandwidth(), 2000.0 * 8e6 / lSpan );
}

TEST_F( Stats, CountAllThatHadJoinedTheSlotBeforeASilence )
{
    Report( 0, 1 );
    Report( SECOND, 10 );
    Report( SECOND + 50000, 200 );
    Report( SECOND + 100000, 3000 );
    Report( SECOND + 3000000, 40000 );
    // Three reports before the silence and one behind it; the first bytes of the old slot go.
    EXPECT_EQ( mStats.GetRate(), 1e6 / 3e6 * 3.0 );
    EXPECT_EQ( mStats.GetBandwidth(), 43200.0 * 8e6 / 3e6 );
}

TEST_F( Stats, RestartFromAFullHistory )
{
    ReportSteadily( 0, JOIN_END, 21 ); // the ring has wrapped
    Report( 20 * JOIN_END + 4 * SECOND );
    Expect( 0.25, 2000.0 );
    // Fourteen more fill it again, the fifteenth drops the first.
    ReportSteadily( 20 * JOIN_END + 5 * SECOND, SECOND, 14 );
    EXPECT_EQ( mStats.GetRate(), 1e6 / 18e6 * 15.0 );
    Report( 20 * JOIN_END + 19 * SECOND );
    EXPECT_EQ( mStats.GetRate(), 1e6 / 15e6 * 15.0 );
}

TEST_F( Stats, DropTheOldestOfSeventeenSlots )
{
    ReportSteadily( 0, SECOND / 2, 15 );
    Report( 8 * SECOND );
    EXPECT_EQ( mStats.GetRate(), 1e6 / 8e6 * 15.0 ); // 16 slots
    Report( 9 * SECOND );
    EXPECT_EQ( mStats.GetRate(), 1e6 / 8.5e6 * 15.0 ); // from the second slot, at 0.5 s
    EXPECT_EQ( mStats.GetBandwidth(), 15000.0 * 8e6 / 8.5e6 );
    Report( 10 * SECOND );
    EXPECT_EQ( mStats.GetRate(), 1e6 / 9e6 * 15.0 );
}

TEST_F( Stats, ExcludeTheFirstBytesOfTheOldestSlotAndNotAllOfThem )
{
    ReportSteadily( 0, JOIN_END, 16 );
    Report( 15 * JOIN_END + 1, 500 ); // joins the sixteenth
    ReportSteadily( 16 * JOIN_END, JOIN_END, 15 );
    // The oldest slot is now the one with 1000 and 500 bytes, of which the 500 count.
    const double lSpan = 15.0 * JOIN_END;
    EXPECT_EQ( mStats.GetRate(), 1e6 / lSpan * 16.0 );
    EXPECT_EQ( mStats.GetBandwidth(), 15500.0 * 8e6 / lSpan );
}

TEST_F( Stats, ExcludeTheBytesOfTheFirstReportOrOfTheLast )
{
    for ( const auto& [lExcludeLast, lMeasured] :
          { std::pair( false, 600.0 ), std::pair( true, 300.0 ) } )
    {
        mStats.Reset();
        Report( 0, 100, lExcludeLast );
        Report( SECOND, 200, lExcludeLast );
        Report( 2 * SECOND, 400, lExcludeLast );
        Expect( 1.0, lMeasured * 8e6 / 2e6 );
    }
}

TEST_F( Stats, ExcludeTheLastReportAlsoWhereItHasJoinedASlot )
{
    Report( 0, 100 );
    Report( SECOND, 200 );
    Report( SECOND + 100000, 400, true );
    EXPECT_EQ( mStats.GetBandwidth(), 300.0 * 8e6 / 1.1e6 );
}

TEST_F( Stats, ApplyTheFlagOfTheLatestReportToTheWholeHistory )
{
    Report( 0, 100, true );
    Report( SECOND, 200, true );
    Report( 2 * SECOND, 400, false );
    EXPECT_EQ( mStats.GetBandwidth(), 600.0 * 8e6 / 2e6 );
    Report( 3 * SECOND, 800, true );
    EXPECT_EQ( mStats.GetBandwidth(), 700.0 * 8e6 / 3e6 );
    Report( 4 * SECOND, 1600, false );
    EXPECT_EQ( mStats.GetBandwidth(), 3000.0 * 8e6 / 4e6 );
}

TEST_F( Stats, KeepTheBandwidthWhileThereAreFewerThanTwoBytes )
{
    Report( 0, 0 );
    Report( SECOND, 2 );
    Expect( 1.0, 16.0 );
    for ( const unsigned int lBytes : { 0U, 1U } )
    {
        mStats.Reset();
        Report( 0, 1000 );
        Report( SECOND, 500 );
        Expect( 1.0, 4000.0 );
        Report( 4 * SECOND, lBytes ); // begins anew: the 500 do not count, this does
        Expect( 1e6 / 3e6, 4000.0 );
    }
    Report( 4 * SECOND + 1, 1 ); // one byte and one make two
    EXPECT_EQ( mStats.GetBandwidth(), 2.0 * 8e6 / 3000001.0 );
}

TEST_F( Stats, HaveNoBandwidthOfEventsWithoutBytes )
{
    Report( 0, 0 );
    Report( SECOND, 0 );
    Report( 2 * SECOND, 0 );
    Expect( 1.0, 0.0 );
}

TEST_F( Stats, KeepRateAndBandwidthWhileNoTimePasses )
{
    Report( SECOND );
    Report( SECOND );
    Expect( 0.0, 0.0 );
    Report( 2 * SECOND );
    Expect( 2.0, 16000.0 );
    Report( 10 * SECOND );
    Expect( 0.125, 1000.0 );
    // The oldest slot is now that of 2 s. What joins a slot at an earlier time than the oldest
    // cannot be, but a clock that was put back begins anew, without any span.
    Report( SECOND );
    Expect( 0.125, 1000.0 );
}

TEST_F( Stats, RestartWhenTheClockGoesBack )
{
    Report( 10 * SECOND, 100 );
    Report( 11 * SECOND, 200 );
    Report( 11 * SECOND - 1, 400 ); // before the newest slot: no span, nothing changes
    Expect( 1.0, 1600.0 );
    // The history is the slot of 11 s and the one of 10.999999 s, so this one joins.
    Report( 11 * SECOND + 100000, 800 );
    EXPECT_EQ( mStats.GetRate(), 1e6 / 100000.0 * 2.0 );
    EXPECT_EQ( mStats.GetBandwidth(), 1200.0 * 8e6 / 100000.0 );
}

TEST_F( Stats, AcceptASecondReportWithAnEarlierTime )
{
    Report( 10 * SECOND, 100 );
    Report( 9 * SECOND, 200 );
    Expect( 0.0, 0.0 );
    Report( 10 * SECOND + 500000, 400 ); // 1.5 s behind the newest slot: another slot
    EXPECT_EQ( mStats.GetRate(), 1e6 / 500000.0 * 2.0 );
    EXPECT_EQ( mStats.GetBandwidth(), 600.0 * 8e6 / 500000.0 );
}

TEST_F( Stats, WorkAtTheHighestTimes )
{
    constexpr unsigned long long LAST = std::numeric_limits<unsigned long long>::max();
    Report( LAST - SECOND );
    Report( LAST );
    Expect( 1.0, 8000.0 );
    // The counter of the clock has wrapped around: 0.1 s later, but lower than the oldest.
    Report( 99999 );
    Expect( 1.0, 8000.0 );
}

TEST_F( Stats, TreatASpanOf2To63MicrosecondsAsNegative )
{
    constexpr unsigned long long HUGE_SPAN = 1ULL << 63;
    Report( 0 );
    Report( HUGE_SPAN - 1 );
    EXPECT_GT( mStats.GetRate(), 0.0 );
    mStats.Reset();
    Report( 0 );
    Report( HUGE_SPAN );
    EXPECT_EQ( mStats.GetRate(), 1e6 / -9223372036854775808.0 );
    EXPECT_EQ( mStats.GetBandwidth(), 8e9 / -9223372036854775808.0 );
}

TEST_F( Stats, AddUpMoreBytesThan32BitsHold )
{
    constexpr unsigned int MOST = std::numeric_limits<unsigned int>::max();
    Report( 0, 0 );
    Report( SECOND, MOST );
    Report( SECOND + 1, MOST ); // in the same slot
    Report( 2 * SECOND, MOST );
    EXPECT_EQ( mStats.GetBandwidth(), 3.0 * MOST * 8e6 / 2e6 );
    Report( 2 * SECOND + 1, MOST, true );
    EXPECT_EQ( mStats.GetBandwidth(), 3.0 * MOST * 8e6 / 2000001.0 );
}

TEST_F( Stats, AreAtZeroAfterAReset )
{
    ReportSteadily( 0, JOIN_END, 21 );
    EXPECT_NE( mStats.GetRate(), 0.0 );
    mStats.Reset();
    Expect( 0.0, 0.0 );
    Report( 100 * SECOND );
    Expect( 0.0, 0.0 );
    Report( 100 * SECOND + 100000 ); // opens a slot: there is one only
    Expect( 10.0, 80000.0 );
}

TEST_F( Stats, BeginWithAnyTimeAfterAReset )
{
    Report( 100 * SECOND );
    Report( 101 * SECOND );
    mStats.Reset();
    Report( 0 ); // earlier than all before
    Report( SECOND );
    Expect( 1.0, 8000.0 );
}

TEST_F( Stats, UseAllSixteenSlotsAfterAReset )
{
    ReportSteadily( 0, SECOND, 5 );
    mStats.Reset();
    ReportSteadily( 0, SECOND, 16 );
    EXPECT_EQ( mStats.GetRate(), 1e6 / 15e6 * 15.0 );
    Report( 17 * SECOND );
    EXPECT_EQ( mStats.GetRate(), 1e6 / 16e6 * 15.0 );
}

// A plain model: all reports of the history, slot by slot, reckoned anew each time.
namespace
{

struct Event
{
    std::uint64_t mTimestamp;
    std::uint64_t mBytes;
};

class Model
{
public:
    void Report( std::uint64_t aTimestamp, unsigned int aBytes, bool aExcludeLast )
    {
        const Event lEvent{ aTimestamp, aBytes };
        const std::uint64_t lDistance =
            mSlots.empty() ? 0 : aTimestamp - mSlots.back().front().mTimestamp;
        if ( mSlots.size() >= 2 && lDistance < JOIN_END )
        {
            mSlots.back().push_back( lEvent );
        }
        else
        {
            if ( mSlots.size() >= 2 && lDistance > SILENCE_END )
            {
                mSlots.erase( mSlots.begin(), mSlots.end() - 1 );
            }
            mSlots.push_back( { lEvent } );
            if ( mSlots.size() > 16 )
            {
                mSlots.pop_front();
            }
        }
        Reckon( lEvent, aExcludeLast );
    }

    void Reset() { *this = Model(); }

    double mRate = 0.0;
    double mBandwidth = 0.0;

private:
    void Reckon( const Event& aLast, bool aExcludeLast )
    {
        std::vector<Event> lAll;
        for ( const std::vector<Event>& lSlot : mSlots )
        {
            lAll.insert( lAll.end(), lSlot.begin(), lSlot.end() );
        }
        const Event& lFirst = lAll.front();
        if ( aLast.mTimestamp <= lFirst.mTimestamp )
        {
            return;
        }
        const double lSpan = static_cast<double>(
            static_cast<std::int64_t>( aLast.mTimestamp - lFirst.mTimestamp ) );
        const std::uint64_t lBytes = std::accumulate( lAll.begin(), lAll.end(), std::uint64_t{ 0 },
                                                      []( std::uint64_t aSum, const Event& aEvent )
                                                      { return aSum + aEvent.mBytes; } );
        const std::uint64_t lMeasured = lBytes - ( aExcludeLast ? aLast : lFirst ).mBytes;
        if ( lAll.size() >= 2 )
        {
            mRate = ( 1000000.0 / lSpan ) * static_cast<double>( lAll.size() - 1 );
        }
        if ( lMeasured >= 2 )
        {
            mBandwidth = ( static_cast<double>( lMeasured ) * 8000000.0 ) / lSpan;
        }
    }

    std::deque<std::vector<Event>> mSlots;
};

// The next timestamp of a stream with gaps, bursts, equal times and a clock that is put back.
std::uint64_t GetNextTime( std::mt19937_64& aRandom, std::uint64_t aNow )
{
    const auto lBelow = [&aRandom]( std::uint64_t aLimit )
    {
        return aRandom() % aLimit;
    };
    switch ( lBelow( 16 ) )
    {
    case 0:
        return aNow; // at the same time
    case 1:
        return aNow + SILENCE_END - 2 + lBelow( 5 ); // about the longest silence
    case 2:
        return aNow + JOIN_END - 2 + lBelow( 5 ); // about the end of a slot
    case 3:
        return aNow + lBelow( 10 * SECOND );
    case 4:
        return aNow - lBelow( 3 ); // back, by little
    case 5:
        return lBelow( 8 ) == 0 ? aNow - lBelow( 5 * SECOND ) : aNow + 1;
    case 6:
        return lBelow( 200 ) == 0 ? aRandom() : aNow + lBelow( SECOND );
    case 7:
    case 8:
        return aNow + lBelow( 3 ); // a burst
    default:
        return aNow + lBelow( 4 * JOIN_END );
    }
}

unsigned int GetNextSize( std::mt19937_64& aRandom )
{
    const std::uint64_t lKind = aRandom() % 8;
    if ( lKind < 3 )
    {
        return static_cast<unsigned int>( lKind );
    }
    return lKind == 3 ? std::numeric_limits<unsigned int>::max()
                      : static_cast<unsigned int>( aRandom() % 10000 );
}

class StatsOfSeed : public testing::TestWithParam<unsigned int>
{
};

} // namespace

TEST_P( StatsOfSeed, AreThoseOfAPlainModel )
{
    constexpr int REPORTS = 20000;
    std::mt19937_64 lRandom( GetParam() );
    InstantStats lStats;
    Model lModel;
    std::uint64_t lNow = lRandom() % 2 == 0 ? 0 : lRandom();
    for ( int lReport = 0; lReport < REPORTS; ++lReport )
    {
        if ( lRandom() % 500 == 0 )
        {
            lStats.Reset();
            lModel.Reset();
        }
        lNow = GetNextTime( lRandom, lNow );
        const unsigned int lBytes = GetNextSize( lRandom );
        const bool lExcludeLast = lRandom() % 4 == 0;
        lStats.Report( lNow, lBytes, lExcludeLast );
        lModel.Report( lNow, lBytes, lExcludeLast );
        ASSERT_EQ( lStats.GetRate(), lModel.mRate ) << "report " << lReport << " at " << lNow;
        ASSERT_EQ( lStats.GetBandwidth(), lModel.mBandwidth )
            << "report " << lReport << " at " << lNow;
    }
}

INSTANTIATE_TEST_SUITE_P( Seeds, StatsOfSeed, testing::Range( 1U, 13U ) );
