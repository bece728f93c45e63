#include "tests/support/NetworkNamespace.h"

#include <fcntl.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <thread>

namespace TestSupport
{

namespace
{

std::string Explain( const std::string& aWhat )
{
    return aWhat + ": " + std::strerror( errno );
}

bool WriteFile( const char* aPath, const std::string& aText )
{
    const int lFile = open( aPath, O_WRONLY | O_CLOEXEC );
    if ( lFile < 0 )
    {
        return false;
    }
    const bool lIsWritten =
        write( lFile, aText.data(), aText.size() ) == static_cast<ssize_t>( aText.size() );
    (void)close( lFile );
    return lIsWritten;
}

// An ordinary user becomes root of a user namespace, which owns the network.
std::string Unshare()
{
    const std::string lUser = std::to_string( geteuid() );
    const std::string lGroup = std::to_string( getegid() );
    if ( geteuid() == 0 )
    {
        return unshare( CLONE_NEWNET ) == 0 ? std::string()
                                            : Explain( "no network namespace can be made" );
    }
    if ( unshare( CLONE_NEWUSER | CLONE_NEWNET ) != 0 )
    {
        return Explain( "no user and network namespace can be made" );
    }
    if ( !WriteFile( "/proc/self/setgroups", "deny" ) ||
         !WriteFile( "/proc/self/uid_map", "0 " + lUser + " 1" ) ||
         !WriteFile( "/proc/self/gid_map", "0 " + lGroup + " 1" ) )
    {
        return Explain( "the user namespace cannot be mapped" );
    }
    return std::string();
}

std::string RaiseLoopback()
{
    const int lSocket = socket( AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0 );
    if ( lSocket < 0 )
    {
        return Explain( "no socket in the namespace" );
    }
    ifreq lRequest{};
    std::memcpy( lRequest.ifr_name, "lo", 3 );
    lRequest.ifr_flags = IFF_UP | IFF_RUNNING;
    const bool lIsUp = ioctl( lSocket, SIOCSIFFLAGS, &lRequest ) == 0;
    const std::string lReason = lIsUp ? "" : Explain( "the loopback interface stays down" );
    (void)close( lSocket );
    return lReason;
}

// The lock of scripts/demo too. Held until the process ends; programs that it starts do not get it.
std::string LockTftpPort()
{
    static int sLock = -1;
    if ( sLock >= 0 )
    {
        return std::string();
    }
    const char* const lFolder = std::getenv( "TMPDIR" );
    const std::string lPath =
        std::string( lFolder != nullptr ? lFolder : "/tmp" ) + "/htbase-port-69.lock";
    const int lFile = open( lPath.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666 );
    if ( lFile < 0 )
    {
        return Explain( lPath );
    }
    for ( int lTry = 0; lTry < 600; ++lTry )
    {
        if ( flock( lFile, LOCK_EX | LOCK_NB ) == 0 )
        {
            sLock = lFile;
            return std::string();
        }
        std::this_thread::sleep_for( std::chrono::milliseconds( 100 ) );
    }
    const std::string lReason = Explain( lPath + " is held by another process" );
    (void)close( lFile );
    return lReason;
}

std::string ProbeTftpPort()
{
    const int lSocket = socket( AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0 );
    if ( lSocket < 0 )
    {
        return Explain( "no socket" );
    }
    sockaddr_in lAddress{};
    lAddress.sin_family = AF_INET;
    lAddress.sin_port = htons( 69 );
    lAddress.sin_addr.s_addr = htonl( INADDR_LOOPBACK );
    const bool lIsFree =
        bind( lSocket, reinterpret_cast<const sockaddr*>( &lAddress ), sizeof( lAddress ) ) == 0;
    const std::string lReason = lIsFree ? "" : Explain( "127.0.0.1:69 cannot be served" );
    (void)close( lSocket );
    return lReason;
}

} // namespace

std::string EnterTftpNetwork()
{
    const std::string lNoNetwork = EnterNetworkNamespace();
    if ( lNoNetwork.empty() )
    {
        return std::string();
    }
    const std::string lNoLock = LockTftpPort();
    const std::string lNoPort = lNoLock.empty() ? ProbeTftpPort() : lNoLock;
    return lNoPort.empty() ? std::string() : lNoNetwork + "; " + lNoPort;
}

std::string EnterNetworkNamespace()
{
    const std::string lReason = Unshare();
    return lReason.empty() ? RaiseLoopback() : lReason;
}

} // namespace TestSupport
