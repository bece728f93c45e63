// Logging and assertions as every unit of this library does them.
#pragma once

#include <QmUtilsLib/Assert.h>
#include <QmUtilsLib/Logger.h>

namespace HtBaseLib
{

// The name and configuration of every logger of this library.
constexpr const char* LOGGER_NAME = "HtBaseLib";
constexpr int LOGGER_CONFIGURATION = 0;

// Returns whether a reference refers to something. A compiler assumes that it does, so the address
// is read through a volatile pointer.
inline bool IsPresent( const void* aAddress )
{
    const void* volatile lAddress = aAddress;
    return lAddress != nullptr;
}

// KEEP: Numbers of the device are logged signed: 0xFFFFFFFF reads -1.
inline int ToLogged( unsigned int aValue )
{
    return static_cast<int>( aValue );
}

} // namespace HtBaseLib

// HTBASE_LOG( logger, priority, unit, function, format, ... ) logs when the priority is enabled;
// otherwise no argument is evaluated.
#define HTBASE_LOG( aLogger, aPriority, aUnit, aFunction, ... )                     \
    do                                                                              \
    {                                                                               \
        if ( ( aLogger )->IsPriorityEnabled( aPriority ) )                          \
        {                                                                           \
            ( aLogger )->Log( aPriority, aUnit, __LINE__, aFunction, __VA_ARGS__ ); \
        }                                                                           \
    } while ( false )
