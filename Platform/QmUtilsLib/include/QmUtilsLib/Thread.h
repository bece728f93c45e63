/// @file
/// QmUtilsLib: the one source of time.
#pragma once

#include <QmUtilsLib/Export.h>

namespace QmUtilsLib
{

/// Thread groups what the calling thread may ask of the system.
class QMUTILSLIB_API Thread
{
public:
    Thread() = delete;

    /// GetTickCount gives a monotonic time in milliseconds since a moment that never changes while
    /// the process runs. Safe from any thread.
    static long long GetTickCount();
};

} // namespace QmUtilsLib
