// The capability records that the whole process shares, one per device.
#pragma once

#include <QmUtilsLib/Mutex.h>

#include <cstdlib>
#include <map>
#include <memory>
#include <new>

namespace HtBaseLib
{

// CapabilityRegistry keeps one Record per Key from the first request until Destroy, which it
// registers with the exit handlers of the library's module, so that it also runs when the module is
// unloaded. All operations are safe from any thread; the mutex is held for the table only, never
// while a record reads its device.
template <typename Key, typename Record>
class CapabilityRegistry
{
public:
    // GetInstance returns the one registry of this kind of record. It is never destroyed, because
    // exit handlers may still ask for records.
    static CapabilityRegistry& GetInstance()
    {
        alignas( CapabilityRegistry ) static unsigned char sStorage[sizeof( CapabilityRegistry )];
        static CapabilityRegistry& sInstance = *new ( sStorage ) CapabilityRegistry;
        return sInstance;
    }

    CapabilityRegistry( const CapabilityRegistry& ) = delete;
    CapabilityRegistry& operator=( const CapabilityRegistry& ) = delete;

    // Get returns the record of aKey, made of aArguments when there is none yet. Record::Destroy,
    // which must call Destroy, is registered when it is not.
    template <typename... Arguments>
    Record* Get( const Key& aKey, const Arguments&... aArguments )
    {
        QmUtilsLib::LockScope lLock( mMutex );
        auto lEntry = mRecords.find( aKey );
        if ( lEntry == mRecords.end() )
        {
            lEntry = mRecords.emplace( aKey, std::make_unique<Record>( aArguments... ) ).first;
        }
        if ( !mIsCleanUpRegistered )
        {
            (void)std::atexit( &Record::Destroy ); // without it the records go with the process
            mIsCleanUpRegistered = true;
        }
        return lEntry->second.get();
    }

    // Destroy deletes every record.
    // KEEP: `Destroy` makes the next `GetCapabilities` register it at exit once more. Exit
    // handlers run last in, first out, so the records that were made after an explicit `Destroy`
    // are destroyed before everything that was registered earlier.
    void Destroy()
    {
        QmUtilsLib::LockScope lLock( mMutex );
        if ( !mIsCleanUpRegistered )
        {
            return;
        }
        while ( !mRecords.empty() )
        {
            mRecords.begin()->second.reset();
            mRecords.erase( mRecords.begin() );
        }
        mIsCleanUpRegistered = false;
    }

private:
    CapabilityRegistry() = default;

    QmUtilsLib::Mutex mMutex;
    std::map<Key, std::unique_ptr<Record>> mRecords QMUTILSLIB_GUARDED_BY( mMutex );
    bool mIsCleanUpRegistered QMUTILSLIB_GUARDED_BY( mMutex ) = false;
};

} // namespace HtBaseLib
