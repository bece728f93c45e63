// Takes the library's log into a sink of its own, while it reads what a GigE Vision device can do.
//
//     LogSink 192.168.1.20
//
// Exit status: 0 done, 1 the device could not be read, 2 wrong usage.

#include <CapabilitiesGEV.h>
#include <QmUtilsLib/Logger.h>
#include <QmUtilsLib/String.h>
#include <WdUtilsLib/GEV/CommandHeader.h>
#include <WdUtilsLib/Network/EthernetAddress.h>
#include <WdUtilsLib/Network/IpAddress.h>
#include <WdUtilsLib/Network/SocketUDP.h>

#include <cstdio>
#include <cstring>
#include <mutex>

using QmUtilsLib::Logger;
using QmUtilsLib::Result;

namespace
{

// CountingSink prints each message and counts the serious ones. Several threads may log at the same
// moment, so it has a lock of its own.
class CountingSink
{
public:
    void Take( const QmUtilsLib::LogRecord& aRecord )
    {
        const std::lock_guard<std::mutex> lLock( mMutex );
        std::printf( "%d %s: %s\n", aRecord.mPriority, aRecord.mFunction, aRecord.mText );
        mSerious += aRecord.mPriority >= Logger::ANOMALY ? 1 : 0;
    }

    int GetSerious() const { return mSerious; }

private:
    std::mutex mMutex;
    int mSerious = 0;
};

Result ReadCapabilities( const WdUtilsLib::Network::IpAddress& aHost )
{
    WdUtilsLib::Network::SocketUDP lSocket;
    Result lResult = lSocket.Open();
    lResult |= lSocket.Connect( aHost, WdUtilsLib::GEV::GVCP_PORT ); // a failure is kept
    if ( !lResult.IsOK() )
    {
        return lResult;
    }
    // A record of its own, for a device whose MAC address does not matter.
    HtBaseLib::CapabilitiesGEV lRecord( ( WdUtilsLib::Network::EthernetAddress() ) );
    return lRecord.Init( &lSocket );
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
        std::fprintf( stderr, "usage: LogSink HOST, with the device's IPv4 address\n" );
        return 2;
    }
    CountingSink lSink;
    Logger::SetSink( [&lSink]( const QmUtilsLib::LogRecord& aRecord ) { lSink.Take( aRecord ); } );
    Logger::SetThreshold( Logger::DETAIL ); // until then nothing is logged

    const Result lResult = ReadCapabilities( lHost );

    // Before the sink goes. No other thread uses the library here, so none is still in it.
    Logger::SetThreshold( Logger::QUIET );
    Logger::SetSink( {} );
    std::printf( "%d messages report a problem\n", lSink.GetSerious() );
    if ( !lResult.IsOK() )
    {
        std::fprintf( stderr, "LogSink: cannot read %s: %s: %s\n", aArguments[1],
                      lResult.GetCodeString(), Explain( lResult ) );
        return 1;
    }
    return 0;
}
