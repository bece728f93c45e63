// Threads that start together, wait for one another, and are counted.
#pragma once

#include <QmUtilsLib/Logger.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace TestSupport
{

// Runs a function on that many threads, which all start it together.
inline void RunThreads( unsigned int aCount, const std::function<void( unsigned int )>& aFunction )
{
    std::atomic<unsigned int> lReady{ 0 };
    std::vector<std::thread> lThreads;
    for ( unsigned int lIndex = 0; lIndex < aCount; ++lIndex )
    {
        lThreads.emplace_back(
            [&, lIndex]
            {
                ++lReady;
                while ( lReady < aCount )
                {
                    std::this_thread::yield();
                }
                aFunction( lIndex );
            } );
    }
    for ( std::thread& lThread : lThreads )
    {
        lThread.join();
    }
}

// A thread can wait at a Gate until others have arrived.
class Gate
{
public:
    void Arrive()
    {
        const std::lock_guard<std::mutex> lLock( mMutex );
        ++mCount;
        mChanged.notify_all();
    }

    // False after 10 s.
    bool WaitFor( unsigned int aCount )
    {
        std::unique_lock<std::mutex> lLock( mMutex );
        return mChanged.wait_for( lLock, std::chrono::seconds( 10 ),
                                  [&] { return mCount >= aCount; } );
    }

private:
    std::mutex mMutex;
    std::condition_variable mChanged;
    unsigned int mCount = 0;
};

// Counts the threads that have begun to read a device. They log this before they take a lock.
class BeginningThreads
{
public:
    BeginningThreads()
    {
        QmUtilsLib::Logger::SetSink(
            [this]( const QmUtilsLib::LogRecord& aRecord )
            {
                if ( std::string( aRecord.mFormat ) == "Reading device properties (%s)" )
                {
                    mGate.Arrive();
                }
            } );
        QmUtilsLib::Logger::SetThreshold( QmUtilsLib::Logger::DETAIL );
    }

    ~BeginningThreads()
    {
        QmUtilsLib::Logger::SetThreshold( QmUtilsLib::Logger::QUIET );
        QmUtilsLib::Logger::SetSink( nullptr );
    }

    Gate mGate;
};

} // namespace TestSupport
