// A network of the test's own.
#pragma once

#include <string>

namespace TestSupport
{

// EnterNetworkNamespace moves this process, and all that it starts, into a new network that has
// nothing but the loopback interface, which is up; 127.0.0.0/8 are its addresses. Broadcasts cannot
// leave it. Works as root and, where the system allows it, as an ordinary user. To be called before
// the process has a second thread. There is no way back; the next call makes the next network.
//
// Returns an empty text, or the reason why it is not possible: skip the test with it. A namespace
// that was made but cannot be used is an error of the machine and is reported too.
//
//     const std::string lReason = TestSupport::EnterNetworkNamespace();
//     if ( !lReason.empty() )
//     {
//         GTEST_SKIP() << lReason;
//     }
std::string EnterNetworkNamespace();

} // namespace TestSupport
