// QmUtilsLib for tests: the time that GetTickCount gives.
#pragma once

namespace QmUtilsLib
{
namespace Scripted
{

// VirtualClock is the time of the scripted platform, in milliseconds. It starts away from zero and
// moves only when a scripted wait or a test moves it. Safe from any thread.
class VirtualClock
{
public:
    VirtualClock() = delete;

    static long long Now();

    // Advance moves the time on. Set puts it anywhere, also back.
    static void Advance( long long aMilliseconds );
    static void Set( long long aNow );
};

} // namespace Scripted
} // namespace QmUtilsLib
