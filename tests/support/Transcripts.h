// Transcripts: the requests and the log lines that reading a device must cause, and those of a run.
#pragma once

#include <QmUtilsLib/Logger.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace TestSupport
{

// The lines of a transcript without comments and empty ones.
inline std::vector<std::string> ReadTranscript( const std::string& aPath )
{
    std::ifstream lFile( aPath );
    EXPECT_TRUE( lFile.is_open() ) << aPath;
    std::vector<std::string> lLines;
    for ( std::string lLine; std::getline( lFile, lLine ); )
    {
        if ( !lLine.empty() && lLine[0] != '#' )
        {
            lLines.push_back( lLine );
        }
    }
    return lLines;
}

// The paths of the transcripts in that directory whose names begin so.
inline std::set<std::string> ListTranscripts( const std::string& aDirectory,
                                              const std::string& aBeginning )
{
    std::set<std::string> lFiles;
    for ( const auto& lEntry : std::filesystem::directory_iterator( aDirectory ) )
    {
        const std::string lName = lEntry.path().filename().string();
        if ( lName.compare( 0, aBeginning.size(), aBeginning ) == 0 )
        {
            lFiles.insert( lEntry.path().string() );
        }
    }
    return lFiles;
}

// The name of the test whose parameter is the name of a transcript.
inline std::string GetTranscriptTestName( const testing::TestParamInfo<const char*>& aInfo )
{
    std::string lName = aInfo.param;
    std::replace_if(
        lName.begin(), lName.end(),
        []( char aCharacter ) { return aCharacter == '-' || aCharacter == '.'; }, '_' );
    return lName;
}

// RunRecorder is the log sink of the process while it lives, and keeps the records as the lines of
// a transcript. The test adds the requests to the device. One thread at a time.
class RunRecorder
{
public:
    RunRecorder()
    {
        QmUtilsLib::Logger::SetSink(
            [this]( const QmUtilsLib::LogRecord& aRecord )
            {
                mHappened.push_back( std::to_string( aRecord.mPriority ) + " " + aRecord.mFunction +
                                     " " + aRecord.mText );
                mLoggers.insert( aRecord.mLogger );
                mUnits.insert( { aRecord.mFunction, aRecord.mUnit } );
            } );
        QmUtilsLib::Logger::SetThreshold( 0 );
    }

    ~RunRecorder()
    {
        QmUtilsLib::Logger::SetThreshold( QmUtilsLib::Logger::QUIET );
        QmUtilsLib::Logger::SetSink( nullptr );
    }

    RunRecorder( const RunRecorder& ) = delete;
    RunRecorder& operator=( const RunRecorder& ) = delete;

    std::vector<std::string> mHappened;
    std::set<std::string> mLoggers;
    std::set<std::pair<std::string, std::string>> mUnits; // of each function
};

} // namespace TestSupport
