// What the capability records of both kinds of device have in common.
#pragma once

#include <PublishedFlag.h>
#include <QmUtilsLib/Mutex.h>
#include <QmUtilsLib/Result.h>

#include <cstdint>

namespace HtBaseLib
{

// Fills a record by aRead, which returns a Result, and marks it as initialised when that is OK,
// all under the record's mutex. A record that is marked already is left alone: OK.
template <typename Read>
QmUtilsLib::Result FillOnce( PublishedFlag& aInitialized, QmUtilsLib::Mutex& aMutex, Read aRead )
{
    QmUtilsLib::LockScope lLock( aMutex );
    if ( aInitialized.Get() )
    {
        return QmUtilsLib::Result::OK;
    }
    QmUtilsLib::Result lResult = aRead();
    if ( !lResult.IsOK() )
    {
        return lResult;
    }
    aInitialized.Set();
    return QmUtilsLib::Result::OK;
}

inline bool HasBit( uint64_t aRegister, uint64_t aMask )
{
    return ( aRegister & aMask ) != 0;
}

} // namespace HtBaseLib
