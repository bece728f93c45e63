#pragma once

#include <cstdint>
#include <vector>

namespace Simulators
{

using Bytes = std::vector<uint8_t>;

inline void Append( Bytes& aBytes, const Bytes& aMore )
{
    aBytes.insert( aBytes.end(), aMore.begin(), aMore.end() );
}

// A UDP address: an IPv4 address and a port, both in host order. Ordered by address, then port.
struct Endpoint
{
    uint32_t mAddress = 0;
    uint16_t mPort = 0;
};

inline bool operator==( const Endpoint& aA, const Endpoint& aB )
{
    return aA.mAddress == aB.mAddress && aA.mPort == aB.mPort;
}

inline bool operator!=( const Endpoint& aA, const Endpoint& aB )
{
    return !( aA == aB );
}

inline bool operator<( const Endpoint& aA, const Endpoint& aB )
{
    return aA.mAddress != aB.mAddress ? aA.mAddress < aB.mAddress : aA.mPort < aB.mPort;
}

// A datagram to be sent to mTo, mDelayMs milliseconds (0 or more) after the call that returned it.
// The owner of the socket keeps it until then, and sends two that are due at the same time in the
// order in which they were returned. mFromPort is the local port to send from: 0 is the port that
// the device listens on. Any other number is the device's own name for a further port, which the
// owner of the sockets may map to a real one.
struct Outgoing
{
    Bytes mBytes;
    int64_t mDelayMs = 0;
    Endpoint mTo;
    uint16_t mFromPort = 0;
};

} // namespace Simulators
