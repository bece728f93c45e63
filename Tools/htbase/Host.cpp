#include "Tools/htbase/Host.h"

#include "Tools/htbase/Failure.h"
#include "Tools/htbase/Text.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

namespace HtBaseTool
{

using WdUtilsLib::Network::IpAddress;

namespace
{

constexpr size_t NAME_MAX_SIZE = 253;

// Only what a name consists of reaches the system's resolver, which would also take the old
// spellings of numeric addresses ("127.1", "0x7f000001") and mean something unexpected by them.
bool IsName( const std::string& aText )
{
    const auto lIsAllowed = []( char aByte )
    {
        return ( aByte >= 'a' && aByte <= 'z' ) || ( aByte >= 'A' && aByte <= 'Z' ) ||
               ( aByte >= '0' && aByte <= '9' ) || aByte == '-' || aByte == '.' || aByte == '_';
    };
    in_addr lNumeric{};
    return !aText.empty() && aText.size() <= NAME_MAX_SIZE && aText.front() != '-' &&
           aText.front() != '.' && std::all_of( aText.begin(), aText.end(), lIsAllowed ) &&
           inet_aton( aText.c_str(), &lNumeric ) == 0 &&
           aText.find_first_not_of( "0123456789." ) != std::string::npos;
}

IpAddress ToIpAddress( const sockaddr* aAddress )
{
    sockaddr_in lAddress{};
    std::memcpy( &lAddress, aAddress, sizeof( lAddress ) ); // the family is AF_INET
    return IpAddress( ntohl( lAddress.sin_addr.s_addr ) );
}

IpAddress Resolve( const std::string& aName )
{
    addrinfo lHints{};
    lHints.ai_family = AF_INET;
    lHints.ai_socktype = SOCK_DGRAM;
    addrinfo* lFound = nullptr;
    const int lError = getaddrinfo( aName.c_str(), nullptr, &lHints, &lFound );
    const std::unique_ptr<addrinfo, decltype( &freeaddrinfo )> lOwner( lFound, &freeaddrinfo );
    if ( lError != 0 || lFound == nullptr )
    {
        const std::string lReason =
            lError == EAI_SYSTEM ? GetSystemErrorText( errno ) : gai_strerror( lError );
        throw MakeUsageFailure( "cannot find the IPv4 address of host '" + aName +
                                "': " + lReason );
    }
    return ToIpAddress( lFound->ai_addr );
}

unsigned short ParsePort( const std::string& aText, const std::string& aWhole )
{
    const bool lIsNumber = !aText.empty() && aText.size() <= 5 &&
                           aText.find_first_not_of( "0123456789" ) == std::string::npos;
    const unsigned long lPort = lIsNumber ? std::stoul( aText ) : 0;
    if ( lPort == 0 || lPort > 65535 )
    {
        throw MakeUsageFailure( "port '" + aText + "' of '" + aWhole +
                                "' is not a number from 1 to 65535" );
    }
    return static_cast<unsigned short>( lPort );
}

} // namespace

std::string HostPort::GetName() const
{
    return mAddress.GetString() + ":" + std::to_string( mPort );
}

HostPort ParseHost( const std::string& aText, unsigned short aDefaultPort )
{
    const size_t lColon = aText.find( ':' );
    const std::string lHost = aText.substr( 0, lColon );
    HostPort lResult;
    lResult.mPort =
        lColon == std::string::npos ? aDefaultPort : ParsePort( aText.substr( lColon + 1 ), aText );
    if ( lResult.mAddress.Set( lHost.c_str() ) )
    {
        return lResult;
    }
    if ( !IsName( lHost ) )
    {
        throw MakeUsageFailure( "host '" + aText +
                                "' is neither a dotted IPv4 address nor a name" );
    }
    lResult.mAddress = Resolve( lHost );
    return lResult;
}

IpAddress ParseAddress( const std::string& aText, const std::string& aWhat )
{
    IpAddress lAddress;
    if ( !lAddress.Set( aText.c_str() ) )
    {
        throw MakeUsageFailure( aWhat + " '" + aText + "' is not a dotted IPv4 address" );
    }
    return lAddress;
}

std::vector<LocalInterface> GetLocalInterfaces()
{
    ifaddrs* lList = nullptr;
    if ( getifaddrs( &lList ) != 0 )
    {
        throw Failure( ExitStatus::REFUSED,
                       "cannot list the network interfaces: " + GetSystemErrorText( errno ) );
    }
    const std::unique_ptr<ifaddrs, decltype( &freeifaddrs )> lOwner( lList, &freeifaddrs );
    std::vector<LocalInterface> lInterfaces;
    for ( const ifaddrs* lEntry = lList; lEntry != nullptr; lEntry = lEntry->ifa_next )
    {
        const bool lIsUsable = ( lEntry->ifa_flags & IFF_UP ) != 0 &&
                               ( lEntry->ifa_flags & ( IFF_BROADCAST | IFF_LOOPBACK ) ) != 0;
        if ( lIsUsable && lEntry->ifa_addr != nullptr && lEntry->ifa_addr->sa_family == AF_INET )
        {
            lInterfaces.push_back( { lEntry->ifa_name, ToIpAddress( lEntry->ifa_addr ) } );
        }
    }
    return lInterfaces;
}

} // namespace HtBaseTool
