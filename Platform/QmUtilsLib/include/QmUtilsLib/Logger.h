/// @file
/// QmUtilsLib: log messages with priorities.
#pragma once

#include <QmUtilsLib/Export.h>
#include <QmUtilsLib/Result.h>

#include <functional>
#include <string>

#if defined( __GNUC__ )
/// QMUTILSLIB_PRINTF makes the compiler check a function's arguments from number aFirst on against
/// its format, argument number aFormat.
#define QMUTILSLIB_PRINTF( aFormat, aFirst ) __attribute__( ( format( printf, aFormat, aFirst ) ) )
#else
#define QMUTILSLIB_PRINTF( aFormat, aFirst )
#endif

namespace QmUtilsLib
{

/// LogRecord is one message as a sink gets it. Its pointers are borrowed for the call of the sink.
struct LogRecord
{
    const char* mLogger;   ///< name of the logger
    int mPriority;         ///< 20000 detail, 30000 recovered from, 40000 failure
    const char* mUnit;     ///< source unit, such as "Libraries/HtBase/HtResult"
    int mLine;             ///< line in it
    const char* mFunction; ///< qualified function name
    const char* mFormat;   ///< the format of the message
    const char* mText;     ///< the formatted message
};

/// LogSink receives the messages of all loggers of the process. Several threads may call it at the
/// same moment. It must not throw.
using LogSink = std::function<void( const LogRecord& )>;

/// Logger is a named source of messages.
///
/// A process has one threshold and one sink. Nothing is logged until the application sets both. All
/// operations are safe from any thread.
class QMUTILSLIB_API Logger
{
public:
    /// The priorities in use.
    enum Priority : int
    {
        DETAIL = 20000,    ///< diagnostic detail
        ANOMALY = 30000,   ///< something the library recovered from
        FAILURE = 40000,   ///< a failed operation
        QUIET = 0x7FFFFFFF ///< a threshold above every message
    };

    /// A logger with a copy of aName. aConfiguration is ignored: it serves libraries of the kit
    /// that have several configurations. Throws `std::bad_alloc` where memory is missing.
    Logger( const char* aName, int aConfiguration );

    /// IsPriorityEnabled tells whether a message of that priority is at or above the threshold. Ask
    /// it before Log, so that nothing is formatted in vain. It is one relaxed atomic load.
    bool IsPriorityEnabled( int aPriority ) const;

    /// Log formats the message and passes it to the sink, whatever its priority. A message for
    /// which memory is missing is cut to 255 characters.
    void Log( int aPriority, const char* aUnit, int aLine, const char* aFunction,
              const char* aFormat, ... ) const QMUTILSLIB_PRINTF( 6, 7 );

    /// LogResult logs at 40000, if that is enabled. It returns a result with aCode, OS code 0 and
    /// the formatted text as description, or without description where memory is missing.
    Result LogResult( unsigned int aCode, const char* aUnit, int aLine, const char* aFunction,
                      const char* aFormat, ... ) const QMUTILSLIB_PRINTF( 6, 7 );

    /// SetThreshold sets the lowest priority that any logger of the process logs.
    static void SetThreshold( int aPriority );

    /// SetSink replaces the sink of the process. An empty sink turns logging off. A thread that is
    /// logging meanwhile may still call the old sink after the return; the old sink object lives
    /// until then. Throws `std::bad_alloc` where memory is missing; the old sink then stays.
    static void SetSink( LogSink aSink );

private:
    std::string mName;
};

} // namespace QmUtilsLib
