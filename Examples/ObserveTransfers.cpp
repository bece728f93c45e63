// Observes every transfer that succeeds, by the callbacks of a link. Takes control of the device
// and gives it back.
//
//     ObserveTransfers 192.168.1.20
//
// Exit status: 0 done, 1 the device refused or did not answer, 2 wrong usage.

#include <QmUtilsLib/String.h>
#include <SimpleCommandLinkGEV.h>
#include <WdUtilsLib/GEV/CommandHeader.h>
#include <WdUtilsLib/Network/IpAddress.h>
#include <WdUtilsLib/Network/SocketUDP.h>

#include <cstdio>
#include <cstring>

using QmUtilsLib::Result;

namespace
{

constexpr long long VERSION = 0x0000;
constexpr long long MODEL_NAME = 0x0068; // 32 bytes
constexpr long long CONTROL_CHANNEL_PRIVILEGE = 0x0A00;
constexpr unsigned int CONTROL = 2;
constexpr unsigned int NO_CONTROL = 0;

// ObservedLink prints each transfer. The callbacks run on the thread that called for the transfer,
// after the link's mutex was released, so they may use the link themselves.
class ObservedLink : public HtBaseLib::SimpleCommandLinkGEV
{
public:
    using SimpleCommandLinkGEV::SimpleCommandLinkGEV;

protected:
    // aData is the caller's own buffer; a register's value in it is in host order.
    void ReadCallback( const void* /*aData*/, long long aAddress, long long aSize ) override
    {
        std::printf( "read  %2lld bytes at 0x%08llX\n", aSize, aAddress );
    }
    void WriteCallback( const void* /*aData*/, long long aAddress, long long aSize ) override
    {
        std::printf( "wrote %2lld bytes at 0x%08llX\n", aSize, aAddress );
    }
};

Result Talk( ObservedLink& aLink )
{
    unsigned int lVersion = 0;
    Result lResult = aLink.ReadRegister( &lVersion, VERSION );
    if ( !lResult.IsOK() )
    {
        return lResult;
    }
    char lModel[32] = {};
    lResult = aLink.ReadMemory( lModel, MODEL_NAME, sizeof( lModel ) );
    if ( !lResult.IsOK() )
    {
        return lResult;
    }
    lResult = aLink.WriteRegister( &CONTROL, CONTROL_CHANNEL_PRIVILEGE, false );
    if ( !lResult.IsOK() )
    {
        return lResult;
    }
    // A register that the device does not have: a transfer that fails is not observed.
    (void)aLink.ReadRegister( &lVersion, 0xFFFFFFFC );
    return aLink.WriteRegister( &NO_CONTROL, CONTROL_CHANNEL_PRIVILEGE, false );
}

// What the device or the library says, or the system's reason.
const char* Explain( const Result& aResult )
{
    const bool lIsSystems = aResult.GetDescription().GetLength() == 0 && aResult.GetOSCode() != 0;
    return lIsSystems ? std::strerror( static_cast<int>( aResult.GetOSCode() ) )
                      : aResult.GetDescription().GetAscii();
}

} // namespace

int main( int aCount, char** aArguments )
{
    WdUtilsLib::Network::IpAddress lHost;
    if ( aCount != 2 || !lHost.Set( aArguments[1] ) )
    {
        std::fprintf( stderr, "usage: ObserveTransfers HOST, with the device's IPv4 address\n" );
        return 2;
    }
    WdUtilsLib::Network::SocketUDP lSocket;
    Result lResult = lSocket.Open();
    lResult |= lSocket.Connect( lHost, WdUtilsLib::GEV::GVCP_PORT ); // a failure is kept
    if ( lResult.IsOK() )
    {
        ObservedLink lLink( &lSocket );
        lResult = Talk( lLink );
    }
    if ( !lResult.IsOK() )
    {
        std::fprintf( stderr, "ObserveTransfers: %s: %s: %s\n", aArguments[1],
                      lResult.GetCodeString(), Explain( lResult ) );
        return 1;
    }
    return 0;
}
