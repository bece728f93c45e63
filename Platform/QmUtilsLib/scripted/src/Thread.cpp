#include <QmUtilsLib/Thread.h>

#include <QmUtilsLib/Scripted/VirtualClock.h>

#include <atomic>

namespace QmUtilsLib
{

namespace
{

// Beyond 32 bits, so that a time kept in too narrow a type shows.
std::atomic<long long> gNow{ 0x1'2345'6789 };

} // namespace

long long Thread::GetTickCount()
{
    return gNow.load();
}

namespace Scripted
{

long long VirtualClock::Now()
{
    return gNow.load();
}

void VirtualClock::Advance( long long aMilliseconds )
{
    gNow.fetch_add( aMilliseconds );
}

void VirtualClock::Set( long long aNow )
{
    gNow.store( aNow );
}

} // namespace Scripted
} // namespace QmUtilsLib
