#include <QmUtilsLib/Logger.h>

#include "Immortal.h"

#include <QmUtilsLib/Mutex.h>
#include <QmUtilsLib/String.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <memory>
#include <new>
#include <utility>

namespace QmUtilsLib
{

namespace
{

std::atomic<int> gThreshold{ Logger::QUIET };

struct SinkHolder
{
    Mutex mMutex;
    std::shared_ptr<const LogSink> mSink QMUTILSLIB_GUARDED_BY( mMutex );
};

std::shared_ptr<const LogSink> GetSink()
{
    auto& lHolder = GetImmortal<SinkHolder>();
    LockScope lLock( lHolder.mMutex );
    return lHolder.mSink;
}

// A message with its arguments put in. A short one needs no heap; a long one for which there is no
// memory is cut to what a short one may hold.
class Message
{
public:
    Message( const char* aFormat, va_list aArguments )
    {
        va_list lCopy;
        va_copy( lCopy, aArguments );
        const int lLength = std::vsnprintf( mShort, sizeof( mShort ), aFormat, lCopy );
        va_end( lCopy );
        if ( lLength < 0 )
        {
            mShort[0] = '\0';
        }
        if ( lLength < static_cast<int>( sizeof( mShort ) ) )
        {
            return;
        }
        try
        {
            mLong.resize( static_cast<std::size_t>( lLength ) );
            (void)std::vsnprintf( mLong.data(), mLong.size() + 1, aFormat, aArguments );
        }
        catch ( const std::bad_alloc& )
        {
            // mLong is still empty.
        }
    }

    const char* GetText() const { return mLong.empty() ? mShort : mLong.c_str(); }

private:
    char mShort[256];
    std::string mLong;
};

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
    const Message lMessage( aFormat, lArguments );
    va_end( lArguments );
    ( *lSink )(
        { mName.c_str(), aPriority, aUnit, aLine, aFunction, aFormat, lMessage.GetText() } );
}

Result Logger::LogResult( unsigned int aCode, const char* aUnit, int aLine, const char* aFunction,
                          const char* aFormat, ... ) const
{
    va_list lArguments;
    va_start( lArguments, aFormat );
    const Message lMessage( aFormat, lArguments );
    va_end( lArguments );
    if ( IsPriorityEnabled( FAILURE ) )
    {
        if ( const std::shared_ptr<const LogSink> lSink = GetSink() )
        {
            ( *lSink )(
                { mName.c_str(), FAILURE, aUnit, aLine, aFunction, aFormat, lMessage.GetText() } );
        }
    }
    try
    {
        return Result( aCode, 0, String( lMessage.GetText() ) );
    }
    catch ( const std::bad_alloc& )
    {
        return Result( aCode );
    }
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
    auto& lHolder = GetImmortal<SinkHolder>();
    LockScope lLock( lHolder.mMutex );
    lHolder.mSink.swap( lSink );
    // The lock is released before lSink, declared above it, lets the old sink go.
}

} // namespace QmUtilsLib
