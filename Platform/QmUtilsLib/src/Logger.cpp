#include <QmUtilsLib/Logger.h>

#include <QmUtilsLib/Mutex.h>
#include <QmUtilsLib/String.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <memory>
#include <utility>

namespace QmUtilsLib
{

namespace
{

std::atomic<int> gThreshold{ Logger::QUIET };

// Never destroyed, because exit handlers of others may still log.
struct SinkHolder
{
    Mutex mMutex;
    std::shared_ptr<const LogSink> mSink QMUTILSLIB_GUARDED_BY( mMutex );
};

SinkHolder& GetSinkHolder()
{
    static SinkHolder& sHolder = *new SinkHolder;
    return sHolder;
}

std::shared_ptr<const LogSink> GetSink()
{
    SinkHolder& lHolder = GetSinkHolder();
    LockScope lLock( lHolder.mMutex );
    return lHolder.mSink;
}

std::string Format( const char* aFormat, va_list aArguments )
{
    va_list lCopy;
    va_copy( lCopy, aArguments );
    const int lLength = std::vsnprintf( nullptr, 0, aFormat, lCopy );
    va_end( lCopy );
    if ( lLength <= 0 )
    {
        return std::string();
    }
    std::string lText( static_cast<std::size_t>( lLength ), '\0' );
    (void)std::vsnprintf( &lText[0], lText.size() + 1, aFormat, aArguments );
    return lText;
}

} // namespace

Logger::Logger( const char* aName, int /*aConfiguration*/ )
    : mName( aName )
{
}

bool Logger::IsPriorityEnabled( int aPriority ) const
{
    return aPriority >= gThreshold.load( std::memory_order_relaxed );
}

void Logger::Log( int aPriority, const char* aUnit, int aLine, const char* aFunction,
                  const char* aFormat, ... ) const
{
    const std::shared_ptr<const LogSink> lSink = GetSink();
    if ( lSink == nullptr )
    {
        return;
    }
    va_list lArguments;
    va_start( lArguments, aFormat );
    const std::string lText = Format( aFormat, lArguments );
    va_end( lArguments );
    ( *lSink )( { mName.c_str(), aPriority, aUnit, aLine, aFunction, aFormat, lText.c_str() } );
}

Result Logger::LogResult( unsigned int aCode, const char* aUnit, int aLine, const char* aFunction,
                          const char* aFormat, ... ) const
{
    va_list lArguments;
    va_start( lArguments, aFormat );
    const std::string lText = Format( aFormat, lArguments );
    va_end( lArguments );
    if ( IsPriorityEnabled( FAILURE ) )
    {
        if ( const std::shared_ptr<const LogSink> lSink = GetSink() )
        {
            ( *lSink )(
                { mName.c_str(), FAILURE, aUnit, aLine, aFunction, aFormat, lText.c_str() } );
        }
    }
    return Result( aCode, 0, String( lText.c_str() ) );
}

void Logger::SetThreshold( int aPriority )
{
    gThreshold.store( aPriority, std::memory_order_relaxed );
}

void Logger::SetSink( LogSink aSink )
{
    std::shared_ptr<const LogSink> lSink;
    if ( aSink )
    {
        lSink = std::make_shared<const LogSink>( std::move( aSink ) );
    }
    SinkHolder& lHolder = GetSinkHolder();
    LockScope lLock( lHolder.mMutex );
    lHolder.mSink.swap( lSink );
    // The lock is released before lSink, declared above it, lets the old sink go.
}

} // namespace QmUtilsLib
