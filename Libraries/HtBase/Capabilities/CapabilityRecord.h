// What the capability records of both kinds of device have in common.
#pragma once

#include "Libraries/HtBase/Support/Results.h"

#include <QmUtilsLib/Mutex.h>
#include <QmUtilsLib/Result.h>

#include <atomic>
#include <cstdint>

namespace HtBaseLib
{

// A record's initialised flag publishes the fields that were written before it: a thread for which
// IsPublished is true sees them too. IsPublished is safe during a Publish; two calls of Publish
// must not overlap.
inline void Publish( std::atomic<bool>& aInitialized, bool aValue )
{
    aInitialized.store( aValue, std::memory_order_release );
}

inline bool IsPublished( const std::atomic<bool>& aInitialized )
{
    return aInitialized.load( std::memory_order_acquire );
}

// Marks a record as being filled, as long as the object lives.
class FillingScope
{
public:
    explicit FillingScope( bool& aIsFilling )
        : mIsFilling( aIsFilling )
    {
        mIsFilling = true;
    }
    ~FillingScope() { mIsFilling = false; }

    FillingScope( const FillingScope& ) = delete;
    FillingScope& operator=( const FillingScope& ) = delete;

private:
    bool& mIsFilling;
};

// Fills a record by aRead, which returns a Result, and marks it as initialised when that is OK,
// all under the record's mutex. A record that is marked already is left alone: OK. One that is
// being filled is BUSY: the mutex is re-entrant, so this is a call from within aRead.
// SAFE: An `Init` of a record from a callback of that record's own reads is 0x001C. It would
// publish fields that are still written, or never end.
template <typename Read>
QmUtilsLib::Result FillOnce( std::atomic<bool>& aInitialized, bool& aIsFilling,
                             QmUtilsLib::Mutex& aMutex, Read aRead )
{
    QmUtilsLib::LockScope lLock( aMutex );
    if ( aIsFilling )
    {
        return QmUtilsLib::Result::BUSY;
    }
    if ( IsPublished( aInitialized ) )
    {
        return QmUtilsLib::Result::OK;
    }
    const FillingScope lFilling( aIsFilling );
    QmUtilsLib::Result lResult = Guarded( aRead );
    if ( !lResult.IsOK() )
    {
        return lResult;
    }
    Publish( aInitialized, true );
    return QmUtilsLib::Result::OK;
}

inline bool HasBit( uint64_t aRegister, uint64_t aMask )
{
    return ( aRegister & aMask ) != 0;
}

} // namespace HtBaseLib
