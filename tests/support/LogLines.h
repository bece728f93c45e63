// The records of a log as lines of text, whole and in order.
#pragma once

#include <QmUtilsLib/Scripted/RecordingLogSink.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace TestSupport
{

using Log = std::vector<std::string>;

inline std::string MakeLogLine( const std::string& aLogger, int aPriority, const std::string& aUnit,
                                const std::string& aFunction, const std::string& aFormat,
                                const std::string& aText )
{
    return aLogger + " " + std::to_string( aPriority ) + " " + aUnit + " " + aFunction + " [" +
           aFormat + "] [" + aText + "]";
}

// Expects every record to have a line number.
inline Log GetLines( const QmUtilsLib::Scripted::RecordingLogSink& aLog )
{
    Log lLines;
    for ( const auto& lEntry : aLog.GetEntries() )
    {
        lLines.push_back( MakeLogLine( lEntry.mLogger, lEntry.mPriority, lEntry.mUnit,
                                       lEntry.mFunction, lEntry.mFormat, lEntry.mText ) );
        EXPECT_GT( lEntry.mLine, 0 ) << lEntry.mText;
    }
    return lLines;
}

} // namespace TestSupport
