/// @file
/// QmUtilsLib: the one source of time.
#pragma once

#include <QmUtilsLib/Export.h>

namespace QmUtilsLib
{

/// Thread holds what a thread asks of the system.
class QMUTILSLIB_API Thread
{
public:
    Thread() = delete;

    /// GetTickCount returns a monotonic time in milliseconds. Its zero is the same for the life of
    /// the process. Safe from any thread.
    static long long GetTickCount();
};

} // namespace QmUtilsLib
