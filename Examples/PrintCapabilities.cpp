// Prints what a GigE Vision device can do, from its capability record.
//
//     PrintCapabilities 192.168.1.20
//
// Exit status: 0 done, 1 the device could not be read, 2 wrong usage.

#include <CapabilitiesGEV.h>
#include <QmUtilsLib/String.h>
#include <SimpleCommandLinkGEV.h>
#include <WdUtilsLib/GEV/CommandHeader.h>
#include <WdUtilsLib/Network/EthernetAddress.h>
#include <WdUtilsLib/Network/IpAddress.h>
#include <WdUtilsLib/Network/SocketUDP.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

using HtBaseLib::CapabilitiesGEV;
using HtBaseLib::SimpleCommandLinkGEV;
using QmUtilsLib::Result;

namespace
{

constexpr long long MAC_ADDRESS_HIGH = 0x0008;
constexpr long long MAC_ADDRESS_LOW = 0x000C;

// The process has one record for each device, found by its MAC address. Later calls for the same
// address return this record, already filled.
Result GetRecord( WdUtilsLib::Network::SocketUDP& aSocket, CapabilitiesGEV*& aRecord )
{
    SimpleCommandLinkGEV lLink( &aSocket );
    unsigned int lHigh = 0;
    unsigned int lLow = 0;
    Result lResult = lLink.ReadRegister( &lHigh, MAC_ADDRESS_HIGH );
    if ( lResult.IsOK() )
    {
        lResult = lLink.ReadRegister( &lLow, MAC_ADDRESS_LOW );
    }
    if ( !lResult.IsOK() )
    {
        return lResult;
    }
    const WdUtilsLib::Network::EthernetAddress lAddress( lHigh, lLow );
    std::printf( "%s\n", lAddress.GetString().c_str() );
    aRecord = CapabilitiesGEV::GetCapabilities( lAddress );
    return aRecord != nullptr ? aRecord->Init( &lLink ) : Result( Result::GENERIC_ERROR, ENOMEM );
}

void Print( const CapabilitiesGEV& aRecord )
{
    const auto lPrintBit = []( const char* aName, bool aAnswer )
    {
        std::printf( "  %-22s %s\n", aName, aAnswer ? "yes" : "no" );
    };
    std::printf( "  %-22s %u.%u\n", "GigE Vision", aRecord.GetVersionMajor(),
                 aRecord.GetVersionMinor() );
    std::printf( "  %-22s %u\n", "stream channels", aRecord.GetStreamingChannelCount() );
    std::printf( "  %-22s %u\n", "message channels", aRecord.GetMessagingChannelCount() );
    std::printf( "  %-22s %u bytes\n", "largest memory read", aRecord.GetMaxReadMemSize() );
    std::printf( "  %-22s %llu Hz\n", "timestamps", aRecord.GetTimestampTickFrequency() );
    lPrintBit( "memory writes", aRecord.IsWriteMemSupported() );
    lPrintBit( "packet resend", aRecord.IsPacketResendSupported() );
    lPrintBit( "pending acknowledges", aRecord.IsPendingSupported() );
    lPrintBit( "actions", aRecord.IsActionSupported() );
    lPrintBit( "events", aRecord.IsEventSupported() );
    lPrintBit( "IEEE 1588", aRecord.IsIEEE1588Supported() );
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
        std::fprintf( stderr, "usage: PrintCapabilities HOST, with the device's IPv4 address\n" );
        return 2;
    }
    WdUtilsLib::Network::SocketUDP lSocket;
    CapabilitiesGEV* lRecord = nullptr;
    Result lResult = lSocket.Open();
    lResult |= lSocket.Connect( lHost, WdUtilsLib::GEV::GVCP_PORT ); // a failure is kept
    if ( lResult.IsOK() )
    {
        lResult = GetRecord( lSocket, lRecord );
    }
    if ( !lResult.IsOK() )
    {
        std::fprintf( stderr, "PrintCapabilities: cannot read %s: %s: %s\n", aArguments[1],
                      lResult.GetCodeString(), Explain( lResult ) );
        return 1;
    }
    Print( *lRecord );
    return 0;
}
