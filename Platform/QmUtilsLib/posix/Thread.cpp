#include <QmUtilsLib/Thread.h>

#include <ctime>

namespace QmUtilsLib
{

long long Thread::GetTickCount()
{
    timespec lNow{};
    (void)clock_gettime( CLOCK_MONOTONIC, &lNow ); // cannot fail for this clock
    return static_cast<long long>( lNow.tv_sec ) * 1000 + lNow.tv_nsec / 1000000;
}

} // namespace QmUtilsLib
