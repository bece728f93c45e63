// QmUtilsLib for tests: what was logged, in order.
#pragma once

#include <QmUtilsLib/Mutex.h>

#include <string>
#include <vector>

namespace QmUtilsLib
{
namespace Scripted
{

// RecordingLogSink is the sink of the process from its construction to its destruction, and keeps
// what it was given. At most one at a time. Safe from any thread.
class RecordingLogSink
{
public:
    struct Entry
    {
        std::string mLogger;
        int mPriority;
        std::string mUnit;
        int mLine;
        std::string mFunction;
        std::string mFormat;
        std::string mText;
    };

    // Records everything of that priority and above; the threshold is quiet again afterwards.
    explicit RecordingLogSink( int aThreshold = 0 );
    ~RecordingLogSink();

    RecordingLogSink( const RecordingLogSink& ) = delete;
    RecordingLogSink& operator=( const RecordingLogSink& ) = delete;

    // The records so far; their texts only; forget them.
    std::vector<Entry> GetEntries() const;
    std::vector<std::string> GetTexts() const;
    void Clear();

private:
    mutable Mutex mMutex;
    std::vector<Entry> mEntries QMUTILSLIB_GUARDED_BY( mMutex );
};

} // namespace Scripted
} // namespace QmUtilsLib
