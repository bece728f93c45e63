// A network namespace for a test.
#pragma once

#include <string>

namespace TestSupport
{

// EnterNetworkNamespace moves this process, and all that it starts, into a new network that has
// nothing but the loopback interface, which is up; 127.0.0.0/8 are its addresses. Broadcasts cannot
// leave it. Works as root and, where the system allows it, as an ordinary user. To be called before
// the process has a second thread. The process cannot go back; another call makes another network.
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

// EnterTftpNetwork lets this process serve UDP port 69 of 127.0.0.1. It does so in a network of its
// own or, if none can be made, in this machine's network, one process at a time. The port is then
// this process's until it ends; it waits up to a minute for others. Serve on 127.0.0.1 only.
//
// Returns an empty text, or the reasons why neither is possible: skip the test with it.
std::string EnterTftpNetwork();

} // namespace TestSupport
