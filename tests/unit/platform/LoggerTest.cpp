#include <QmUtilsLib/Logger.h>
#include <QmUtilsLib/Scripted/RecordingLogSink.h>
#include <QmUtilsLib/String.h>

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace
{

using QmUtilsLib::Logger;
using QmUtilsLib::LogRecord;
using QmUtilsLib::Result;
using QmUtilsLib::Scripted::RecordingLogSink;

constexpr const char* UNIT = "Platform/Unit";
constexpr const char* FUNCTION = "Class::Function";

} // namespace

TEST( Logger, IsQuietByDefault )
{
    const Logger lLogger( "Name", 0 );
    for ( const int lPriority : { 0, 20000, 30000, 40000, 0x7FFFFFFE } )
    {
        EXPECT_FALSE( lLogger.IsPriorityEnabled( lPriority ) ) << lPriority;
    }
    lLogger.Log( 40000, UNIT, 1, FUNCTION, "nobody hears this %d", 1 );
    const Result lResult = lLogger.LogResult( 0x001E, UNIT, 1, FUNCTION, "nor this %d", 2 );
    EXPECT_EQ( lResult.GetCode(), 0x001EU );
    EXPECT_STREQ( lResult.GetDescription().GetAscii(), "nor this 2" );
}

TEST( Logger, TheThresholdIsTheLowestPriorityThatIsEnabled )
{
    const Logger lLogger( "Name", 0 );
    Logger::SetThreshold( 30000 );
    EXPECT_FALSE( lLogger.IsPriorityEnabled( 20000 ) );
    EXPECT_FALSE( lLogger.IsPriorityEnabled( 29999 ) );
    EXPECT_TRUE( lLogger.IsPriorityEnabled( 30000 ) );
    EXPECT_TRUE( lLogger.IsPriorityEnabled( 40000 ) );
    const Logger lOther( "Other", 3 );
    EXPECT_FALSE( lOther.IsPriorityEnabled( 29999 ) );
    EXPECT_TRUE( lOther.IsPriorityEnabled( 30000 ) );
    Logger::SetThreshold( Logger::QUIET );
    EXPECT_FALSE( lLogger.IsPriorityEnabled( 40000 ) );
}

TEST( Logger, ARecordHoldsAllThatWasGiven )
{
    RecordingLogSink lLog;
    std::string lName = "Name";
    const Logger lLogger( lName.c_str(), 0 );
    lName = "Gone";
    lLogger.Log( 30000, UNIT, 123, FUNCTION, "%s has %d of 0x%08X", "it", -5, 0xABCU );
    const std::vector<RecordingLogSink::Entry> lEntries = lLog.GetEntries();
    ASSERT_EQ( lEntries.size(), 1U );
    EXPECT_EQ( lEntries[0].mLogger, "Name" );
    EXPECT_EQ( lEntries[0].mPriority, 30000 );
    EXPECT_EQ( lEntries[0].mUnit, UNIT );
    EXPECT_EQ( lEntries[0].mLine, 123 );
    EXPECT_EQ( lEntries[0].mFunction, FUNCTION );
    EXPECT_EQ( lEntries[0].mFormat, "%s has %d of 0x%08X" );
    EXPECT_EQ( lEntries[0].mText, "it has -5 of 0x00000ABC" );
}

// The caller of Log has checked the priority; the record is not filtered a second time.
TEST( Logger, LogPassesOnEveryPriority )
{
    const RecordingLogSink lLog( 30000 );
    Logger( "Name", 0 ).Log( 20000, UNIT, 1, FUNCTION, "detail" );
    EXPECT_EQ( lLog.GetTexts(), ( std::vector<std::string>{ "detail" } ) );
}

TEST( Logger, PercentSignsInArgumentsAreUnchanged )
{
    const RecordingLogSink lLog;
    const Logger lLogger( "Name", 0 );
    lLogger.Log( 40000, UNIT, 1, FUNCTION, "[%s]", "%s%n%x 100%" );
    lLogger.Log( 40000, UNIT, 1, FUNCTION, "100%% done" );
    const Result lResult =
        lLogger.LogResult( 0x4000, UNIT, 1, FUNCTION, "device says %s", "%s%n%x 100%" );
    EXPECT_STREQ( lResult.GetDescription().GetAscii(), "device says %s%n%x 100%" );
    EXPECT_EQ( lLog.GetTexts(), ( std::vector<std::string>{ "[%s%n%x 100%]", "100% done",
                                                            "device says %s%n%x 100%" } ) );
}

TEST( Logger, TextsAreNeverCut )
{
    const RecordingLogSink lLog;
    const Logger lLogger( "Name", 0 );
    for ( const std::size_t lLength :
          std::vector<std::size_t>{ 0, 1, 255, 256, 1023, 1024, 4096, 1000000 } )
    {
        const std::string lText( lLength, 'x' );
        lLogger.Log( 40000, UNIT, 1, FUNCTION, "%s", lText.c_str() );
        EXPECT_EQ( lLog.GetTexts().back(), lText );
        const Result lResult = lLogger.LogResult( 1, UNIT, 1, FUNCTION, "%s", lText.c_str() );
        EXPECT_EQ( lResult.GetDescription().GetAscii(), lText );
        EXPECT_EQ( lLog.GetTexts().back(), lText );
    }
}

TEST( Logger, LogResultLogsAtFailureAndReturnsTheCode )
{
    const RecordingLogSink lLog( 40000 );
    const Result lResult =
        Logger( "Name", 0 )
            .LogResult( 0x001E, UNIT, 77, FUNCTION, "No %s after %d ms", "answer", 400 );
    EXPECT_EQ( lResult.GetCode(), 0x001EU );
    EXPECT_EQ( lResult.GetOSCode(), 0U );
    EXPECT_STREQ( lResult.GetDescription().GetAscii(), "No answer after 400 ms" );
    const std::vector<RecordingLogSink::Entry> lEntries = lLog.GetEntries();
    ASSERT_EQ( lEntries.size(), 1U );
    EXPECT_EQ( lEntries[0].mLogger, "Name" );
    EXPECT_EQ( lEntries[0].mPriority, 40000 );
    EXPECT_EQ( lEntries[0].mUnit, UNIT );
    EXPECT_EQ( lEntries[0].mLine, 77 );
    EXPECT_EQ( lEntries[0].mFunction, FUNCTION );
    EXPECT_EQ( lEntries[0].mFormat, "No %s after %d ms" );
    EXPECT_EQ( lEntries[0].mText, "No answer after 400 ms" );
}

TEST( Logger, LogResultFiltersItself )
{
    const RecordingLogSink lLog( 40001 );
    const Result lResult = Logger( "Name", 0 ).LogResult( 0x0605, UNIT, 1, FUNCTION, "text %d", 1 );
    EXPECT_EQ( lResult.GetCode(), 0x0605U );
    EXPECT_STREQ( lResult.GetDescription().GetAscii(), "text 1" );
    EXPECT_TRUE( lLog.GetEntries().empty() );
}

TEST( Logger, TheSinkCanBeReplacedAndRemoved )
{
    std::vector<std::string> lFirst;
    std::vector<std::string> lSecond;
    const Logger lLogger( "Name", 0 );
    Logger::SetThreshold( 0 );
    Logger::SetSink( [&]( const LogRecord& aRecord ) { lFirst.emplace_back( aRecord.mText ); } );
    lLogger.Log( 1, UNIT, 1, FUNCTION, "one" );
    Logger::SetSink( [&]( const LogRecord& aRecord ) { lSecond.emplace_back( aRecord.mText ); } );
    lLogger.Log( 1, UNIT, 1, FUNCTION, "two" );
    Logger::SetSink( nullptr );
    lLogger.Log( 1, UNIT, 1, FUNCTION, "three" );
    EXPECT_TRUE( lLogger.LogResult( 0, UNIT, 1, FUNCTION, "four" ).IsOK() );
    Logger::SetThreshold( Logger::QUIET );
    EXPECT_EQ( lFirst, ( std::vector<std::string>{ "one" } ) );
    EXPECT_EQ( lSecond, ( std::vector<std::string>{ "two" } ) );
}

TEST( Logger, ASinkMayLogAndReplaceItself )
{
    std::vector<std::string> lTexts;
    const Logger lLogger( "Name", 0 );
    auto lOwned = std::make_shared<int>( 5 );
    const std::weak_ptr<int> lWatch = lOwned;
    int lDepth = 0;
    Logger::SetSink(
        [&lTexts, &lLogger, &lDepth, lOwned]( const LogRecord& aRecord )
        {
            lTexts.emplace_back( aRecord.mText );
            if ( ++lDepth == 1 )
            {
                lLogger.Log( 1, UNIT, 1, FUNCTION, "inner" );
                Logger::SetSink( nullptr );
                lTexts.emplace_back( *lOwned == 5 ? "alive" : "dead" );
            }
        } );
    lOwned.reset();
    EXPECT_FALSE( lWatch.expired() );
    lLogger.Log( 1, UNIT, 1, FUNCTION, "outer" );
    EXPECT_TRUE( lWatch.expired() ); // the last caller let the old sink go
    EXPECT_EQ( lTexts, ( std::vector<std::string>{ "outer", "inner", "alive" } ) );
}

TEST( Logger, ManyThreadsLogAtOnce )
{
    constexpr int THREADS = 4;
    constexpr int MESSAGES = 500;
    const RecordingLogSink lLog;
    std::vector<std::thread> lThreads;
    for ( int lThread = 0; lThread < THREADS; ++lThread )
    {
        lThreads.emplace_back(
            [lThread]
            {
                const Logger lLogger( "Name", 0 );
                for ( int lMessage = 0; lMessage < MESSAGES; ++lMessage )
                {
                    if ( lLogger.IsPriorityEnabled( 30000 ) )
                    {
                        lLogger.Log( 30000, UNIT, 1, FUNCTION, "%d/%d", lThread, lMessage );
                    }
                }
            } );
    }
    for ( std::thread& lThread : lThreads )
    {
        lThread.join();
    }
    const std::vector<std::string> lTexts = lLog.GetTexts();
    EXPECT_EQ( lTexts.size(), static_cast<std::size_t>( THREADS * MESSAGES ) );
    const std::set<std::string> lDifferent( lTexts.begin(), lTexts.end() );
    EXPECT_EQ( lDifferent.size(), lTexts.size() );
    EXPECT_EQ( lDifferent.count( "3/499" ), 1U );
}

// Each message reaches one sink, whole, while sinks and threshold change under the loggers' hands.
TEST( Logger, SinkAndThresholdMayChangeWhileOthersLog )
{
    constexpr int MESSAGES = 2000;
    std::atomic<int> lHeard{ 0 };
    std::atomic<int> lBroken{ 0 };
    const auto lMakeSink = [&]
    {
        // The sink owns something that a sanitizer sees if it is used after its end.
        auto lExpected = std::make_shared<std::string>( "message with an argument 42" );
        return [&lHeard, &lBroken, lExpected]( const LogRecord& aRecord )
        {
            ++lHeard;
            lBroken += *lExpected == aRecord.mText ? 0 : 1;
        };
    };
    Logger::SetSink( lMakeSink() );
    std::atomic<bool> lStop{ false };
    std::thread lSwapper(
        [&]
        {
            while ( !lStop )
            {
                Logger::SetSink( lMakeSink() );
                Logger::SetThreshold( 0 );
                Logger::SetThreshold( 40000 );
            }
        } );
    std::vector<std::thread> lLoggers;
    std::atomic<int> lEnabled{ 0 };
    for ( int lThread = 0; lThread < 2; ++lThread )
    {
        lLoggers.emplace_back(
            [&lEnabled]
            {
                const Logger lLogger( "Name", 0 );
                for ( int lMessage = 0; lMessage < MESSAGES; ++lMessage )
                {
                    lEnabled += lLogger.IsPriorityEnabled( 20000 ) ? 1 : 0;
                    lLogger.Log( 20000, UNIT, 1, FUNCTION, "message with %s %d", "an argument",
                                 42 );
                }
            } );
    }
    for ( std::thread& lThread : lLoggers )
    {
        lThread.join();
    }
    lStop = true;
    lSwapper.join();
    Logger::SetThreshold( Logger::QUIET );
    Logger::SetSink( nullptr );
    EXPECT_EQ( lHeard, 2 * MESSAGES );
    EXPECT_EQ( lBroken, 0 );
    EXPECT_LE( lEnabled, 2 * MESSAGES );
}
