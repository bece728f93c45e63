/// @file
/// QmUtilsLib: log messages with priorities.
#pragma once

#include <QmUtilsLib/Export.h>
#include <QmUtilsLib/Result.h>

#include <functional>
#include <string>

/// QMUTILSLIB_PRINTF lets the compiler check a format, which argument aFormat of a function is,
/// against its arguments from aFirst on.
#if defined( __GNUC__ )
#define QMUTILSLIB_PRINTF( aFormat, aFirst ) __attribute__( ( format( printf, aFormat, aFirst ) ) )
#else
#define QMUTILSLIB_PRINTF( aFormat, aFirst )
#endif

namespace QmUtilsLib
{

/// LogRecord is one message as a sink gets it. All pointers are borrowed for the call of the sink.
struct LogRecord
{
    const char* mLogger;   ///< name of the logger
    int mPriority;         ///< 20000 detail, 30000 recovered from, 40000 error
    const char* mUnit;     ///< source unit, such as "Libraries/HtBase/HtResult"
    int mLine;             ///< line in it
    const char* mFunction; ///< qualified function name
    const char* mFormat;   ///< the message before its arguments were put in
    const char* mText;     ///< the message
};

/// LogSink receives the messages of all loggers of the process. Several threads may call it at the
/// same moment. It must not throw.
using LogSink = std::function<void( const LogRecord& )>;

/// Logger is a named source of messages.
///
/// A process has one threshold and one sink, both quiet until the application sets them, since a
/// library does not write to its user's terminal. All operations are safe from any thread.
class QMUTILSLIB_API Logger
{
public:
    /// The priorities in use.
    enum Priority : int
    {
        DETAIL = 20000,
        ANOMALY = 30000,
        FAILURE = 40000,
        QUIET = 0x7FFFFFFF ///< a threshold above every message
    };

    /// A logger of that name (copied; may throw std::bad_alloc). The configuration is kept for
    /// loggers of the kit that have several; here every configuration is the same.
    Logger( const char* aName, int aConfiguration );

    /// IsPriorityEnabled tells whether a message of that priority would be wanted: one relaxed
    /// atomic load. Ask it before Log, so that nothing is formatted in vain.
    bool IsPriorityEnabled( int aPriority ) const;

    /// Log formats the message and hands it to the sink, whatever its priority. A message that does
    /// not fit the memory is cut, to 255 characters.
    void Log( int aPriority, const char* aUnit, int aLine, const char* aFunction,
              const char* aFormat, ... ) const QMUTILSLIB_PRINTF( 6, 7 );

    /// LogResult logs at 40000, if that is enabled, and returns a result with the given code, OS
    /// code 0 and the formatted text as its description; without one where there is no memory for
    /// it.
    Result LogResult( unsigned int aCode, const char* aUnit, int aLine, const char* aFunction,
                      const char* aFormat, ... ) const QMUTILSLIB_PRINTF( 6, 7 );

    /// SetThreshold sets the lowest priority that is logged by any logger of the process.
    static void SetThreshold( int aPriority );

    /// SetSink replaces the sink of the process; an empty one silences it. A thread that is already
    /// logging may still call the old sink after the return; the old sink object lives until then.
    /// May throw std::bad_alloc; the old sink then stays.
    static void SetSink( LogSink aSink );

private:
    std::string mName;
};

} // namespace QmUtilsLib
