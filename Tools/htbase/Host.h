// Hosts, addresses and network interfaces.
#pragma once

#include <WdUtilsLib/Network/IpAddress.h>

#include <string>
#include <vector>

namespace HtBaseTool
{

// Where a device listens.
struct HostPort
{
    WdUtilsLib::Network::IpAddress mAddress;
    unsigned short mPort = 0;

    std::string GetName() const; // "192.168.0.5:3956"
};

// Reads HOST or HOST:PORT; HOST is a dotted IPv4 address or a name, which the system is asked
// about and which may block for as long as its name service does. The port is 1 to 65535, decimal;
// without one it is aDefaultPort. Throws a usage failure.
HostPort ParseHost( const std::string& aText, unsigned short aDefaultPort );

// Reads a dotted IPv4 address. aWhat names it in the usage failure that is thrown otherwise.
WdUtilsLib::Network::IpAddress ParseAddress( const std::string& aText, const std::string& aWhat );

// An IPv4 address of this machine, on an interface that is up and can broadcast (or is loopback).
struct LocalInterface
{
    std::string mName;
    WdUtilsLib::Network::IpAddress mAddress;
};

// All of them, in the system's order. Throws a failure if the system cannot list them.
std::vector<LocalInterface> GetLocalInterfaces();

} // namespace HtBaseTool
