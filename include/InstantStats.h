/// @file
/// HtBase: the rate and the bandwidth of a stream of events.
#pragma once

#include <HtExport.h>
#include <QmUtilsLib/Mutex.h>

#include <atomic>
#include <memory>

namespace HtBaseLib
{

/// InstantStats measures events that carry bytes, such as blocks or packets received: the caller
/// reports each with its time and size, and reads back how many there are per second and how many
/// bits per second they carry, over the last few seconds.
///
/// Times are microseconds of any clock of the caller's; none is read here. The history has at most
/// 16 slots. A report less than 0.2 s after the start of the newest slot joins that slot, one more
/// than 2 s after it leaves only that slot and a new one in the history, any other opens a slot and
/// drops the oldest of 16. The first two reports always open a slot each. So the history covers
/// 3.2 s or more of a steady stream.
///
/// Rate and bandwidth are those of the latest report for which there was something to reckon with:
/// a stream that stops keeps them, and so does what gives no time span, such as a clock that was
/// put back. A caller who wants to see silence looks at his own clock, and calls Reset.
///
/// Threads: any operation may be called at any time from any thread. Report and Reset take the
/// object's mutex, the getters take none: rate and bandwidth read one after the other may be those
/// of two reports. Nothing blocks longer than that, nothing but construction allocates, nothing is
/// logged. Not copyable.
class HTBASE_API InstantStats
{
public:
    /// An empty history; rate and bandwidth are 0. Throws std::bad_alloc where there is no memory.
    ///@{
    InstantStats();
    ~InstantStats();
    ///@}

    InstantStats( const InstantStats& ) = delete;
    InstantStats& operator=( const InstantStats& ) = delete;

    /// Adds one event of aBytes bytes at aTimestamp, in microseconds. A time before the start of
    /// the newest slot counts as a long silence: the history begins anew with that slot and this
    /// one.
    ///
    /// Between n events lie n - 1 intervals, so the bytes of one of them do not count: with
    /// aExcludeLast those of this event, the latest (where an event is reported when its bytes
    /// begin to flow), otherwise those of the first in the history (where it is reported when they
    /// have come). The flag holds for all that is in the history, whatever came with earlier
    /// reports.
    void Report( unsigned long long aTimestamp, unsigned int aBytes, bool aExcludeLast );

    /// Events per second; 0 before the second report.
    double GetRate() const;

    /// Bits per second; 0 before there were two bytes to count.
    double GetBandwidth() const;

    /// Back to the empty history; rate and bandwidth are 0.
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
