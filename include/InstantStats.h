/// @file
/// HtBase: the rate and the bandwidth of a stream of events.
#pragma once

#include <HtExport.h>
#include <QmUtilsLib/Mutex.h>

#include <atomic>
#include <memory>

namespace HtBaseLib
{

/// InstantStats measures events that carry bytes, such as received blocks. The caller reports each
/// event with its time and size. The object gives events per second and bits per second over the
/// last seconds.
///
/// Times are microseconds from any clock that the caller chooses; the object reads no clock. Its
/// history has at most 16 slots:
/// - The first two reports open a slot each.
/// - A report less than 0.2 s after the start of the newest slot joins that slot.
/// - A report more than 2 s after that start leaves only the newest slot in the history and opens
///   another.
/// - Any other report opens a slot. Of 16 slots the oldest is dropped.
///
/// So the history of a steady stream covers 3.2 s or more.
///
/// Rate and bandwidth each keep their value until a report gives a new one. They do not change when
/// the stream stops, or when the reports in the history span no time, as after a clock was set
/// back. To notice silence, compare the time of the last report with your clock, and call Reset.
///
/// Threads: any thread may call any operation at any time. Report and Reset take the object's
/// mutex; the getters take none, so a rate and a bandwidth may come from two different reports.
/// Only the constructor allocates. Nothing is logged. Not copyable.
class HTBASE_API InstantStats
{
public:
    /// An empty history; rate and bandwidth are 0. Throws `std::bad_alloc` where memory is missing.
    InstantStats();
    ~InstantStats();

    InstantStats( const InstantStats& ) = delete;
    InstantStats& operator=( const InstantStats& ) = delete;

    /// Report adds one event of aBytes bytes at aTimestamp, in microseconds. A time before the
    /// start of the newest slot counts as more than 2 s after it.
    ///
    /// Between n events lie n - 1 intervals, so the bytes of one event do not count for the
    /// bandwidth. With aExcludeLast that is the latest event: use it where an event is reported
    /// when its bytes begin to flow. Otherwise it is the first event in the history: use that where
    /// an event is reported when its bytes have arrived. The flag of the latest report applies to
    /// the whole history.
    void Report( unsigned long long aTimestamp, unsigned int aBytes, bool aExcludeLast );

    /// Events per second. 0 before the second report.
    double GetRate() const;

    /// Bits per second. 0 until there are two bytes to count.
    double GetBandwidth() const;

    /// Reset empties the history and sets rate and bandwidth to 0.
    void Reset();

private:
    struct Slot
    {
        unsigned long long mTimestamp;  // of the first report in it
        unsigned long long mBytes;      // of all reports in it
        unsigned int mCount;            // of reports in it
        unsigned long long mFirstBytes; // of the first report in it
    };

    HTBASE_INTERNAL void Place( unsigned long long aTimestamp, unsigned int aBytes )
        QMUTILSLIB_REQUIRES( *mMutex );
    HTBASE_INTERNAL void OpenSlot( unsigned long long aTimestamp, unsigned int aBytes )
        QMUTILSLIB_REQUIRES( *mMutex );
    HTBASE_INTERNAL void Recompute() QMUTILSLIB_REQUIRES( *mMutex );

    const std::unique_ptr<QmUtilsLib::Mutex> mMutex;
    unsigned int mNewest QMUTILSLIB_GUARDED_BY( *mMutex ) = 0; // the slot that takes reports now
    unsigned int mOldest QMUTILSLIB_GUARDED_BY( *mMutex ) = 0;
    unsigned int mUsed QMUTILSLIB_GUARDED_BY( *mMutex ) = 0; // slots in the history
    unsigned long long mLastTimestamp QMUTILSLIB_GUARDED_BY( *mMutex ) = 0;
    unsigned long long mLastBytes QMUTILSLIB_GUARDED_BY( *mMutex ) = 0;
    bool mExcludeLast QMUTILSLIB_GUARDED_BY( *mMutex ) = false;
    const std::unique_ptr<Slot[]> mSlots QMUTILSLIB_GUARDED_BY( *mMutex ); // a ring
    std::atomic<double> mBandwidth{ 0.0 };
    std::atomic<double> mRate{ 0.0 };
};

} // namespace HtBaseLib
