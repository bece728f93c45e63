#include <QmUtilsLib/Scripted/RecordingLogSink.h>

#include <QmUtilsLib/Logger.h>

namespace QmUtilsLib
{
namespace Scripted
{

RecordingLogSink::RecordingLogSink( int aThreshold )
{
    Logger::SetSink(
        [this]( const LogRecord& aRecord )
        {
            LockScope lLock( mMutex );
            mEntries.push_back( { aRecord.mLogger, aRecord.mPriority, aRecord.mUnit, aRecord.mLine,
                                  aRecord.mFunction, aRecord.mFormat, aRecord.mText } );
        } );
    Logger::SetThreshold( aThreshold );
}

RecordingLogSink::~RecordingLogSink()
{
    Logger::SetThreshold( Logger::QUIET );
    Logger::SetSink( nullptr );
}

std::vector<RecordingLogSink::Entry> RecordingLogSink::GetEntries() const
{
    LockScope lLock( mMutex );
    return mEntries;
}

std::vector<std::string> RecordingLogSink::GetTexts() const
{
    std::vector<std::string> lTexts;
    for ( const Entry& lEntry : GetEntries() )
    {
        lTexts.push_back( lEntry.mText );
    }
    return lTexts;
}

void RecordingLogSink::Clear()
{
    LockScope lLock( mMutex );
    mEntries.clear();
}

} // namespace Scripted
} // namespace QmUtilsLib
