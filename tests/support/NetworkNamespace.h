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

// The lock that everybody on this machine takes who uses its own port 69 for a while.
constexpr const char* TFTP_LOCK_PATH = "/tmp/htbase-port-69.lock";

// EnterTftpNetwork is EnterNetworkNamespace for a test that serves 127.0.0.1:69. Where no namespace
// can be made it takes this machine's own port, if that may be had, and holds the lock until the
// process ends. Returns an empty text, or the reasons why neither is possible.
std::string EnterTftpNetwork( const std::string& aLockPath = TFTP_LOCK_PATH );

// The second half of it: waits for the lock and tries the port. aReason, why there is no namespace,
// stands in front of what is returned.
std::string ShareTftpPort( const std::string& aReason, const std::string& aLockPath );

} // namespace TestSupport
