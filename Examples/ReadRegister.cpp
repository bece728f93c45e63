// Reads one register of a GigE Vision device.
//
//     ReadRegister 192.168.1.20 0x0000
//
// Exit status: 0 done, 1 the device did not give the register, 2 wrong usage.

#include <QmUtilsLib/String.h>
#include <SimpleCommandLinkGEV.h>
#include <WdUtilsLib/GEV/CommandHeader.h>
#include <WdUtilsLib/Network/IpAddress.h>
#include <WdUtilsLib/Network/SocketUDP.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace
{

// A register address has 32 bits and is a multiple of 4.
bool ParseAddress( const char* aText, unsigned int& aAddress )
{
    char* lEnd = nullptr;
    errno = 0;
    const unsigned long long lValue = std::strtoull( aText, &lEnd, 0 );
    const bool lIsNumber = *aText >= '0' && *aText <= '9' && *lEnd == '\0' && errno == 0;
    if ( !lIsNumber || lValue > 0xFFFFFFFF || lValue % 4 != 0 )
    {
        return false;
    }
    aAddress = static_cast<unsigned int>( lValue );
    return true;
}

// What the device or the library says, or the system's reason.
const char* Explain( const QmUtilsLib::Result& aResult )
{
    const bool lIsSystems = aResult.GetDescription().GetLength() == 0 && aResult.GetOSCode() != 0;
    return lIsSystems ? std::strerror( static_cast<int>( aResult.GetOSCode() ) )
                      : aResult.GetDescription().GetAscii();
}

} // namespace

int main( int aCount, char** aArguments )
{
    WdUtilsLib::Network::IpAddress lHost;
    unsigned int lAddress = 0;
    if ( aCount != 3 || !lHost.Set( aArguments[1] ) || !ParseAddress( aArguments[2], lAddress ) )
    {
        std::fprintf( stderr,
                      "usage: ReadRegister HOST ADDRESS, with the device's IPv4 address and "
                      "a multiple of 4, such as 0x0934\n" );
        return 2;
    }

    // The socket is the caller's. A link waits 400 ms for an answer and sends a command three
    // times.
    WdUtilsLib::Network::SocketUDP lSocket;
    QmUtilsLib::Result lResult = lSocket.Open();
    lResult |= lSocket.Connect( lHost, WdUtilsLib::GEV::GVCP_PORT ); // a failure is kept
    unsigned int lValue = 0;
    if ( lResult.IsOK() )
    {
        HtBaseLib::SimpleCommandLinkGEV lLink( &lSocket );
        lResult = lLink.ReadRegister( &lValue, lAddress );
    }
    if ( !lResult.IsOK() )
    {
        std::fprintf( stderr, "ReadRegister: cannot read 0x%08X of %s: %s: %s\n", lAddress,
                      aArguments[1], lResult.GetCodeString(), Explain( lResult ) );
        return 1;
    }
    std::printf( "0x%08X = 0x%08X\n", lAddress, lValue );
    return 0;
}
