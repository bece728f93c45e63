// A link of one's own: it owns its socket, tries five times with 200 ms each, and numbers its
// commands itself.
//
//     OwnLink 192.168.1.20
//
// Exit status: 0 done, 1 the device did not answer, 2 wrong usage.

#include <BaseCommandLinkGEV.h>
#include <QmUtilsLib/Logger.h>
#include <QmUtilsLib/String.h>
#include <WdUtilsLib/GEV/CommandHeader.h>
#include <WdUtilsLib/Network/IpAddress.h>
#include <WdUtilsLib/Network/SocketUDP.h>

#include <cstdio>
#include <cstring>

using QmUtilsLib::Result;

namespace
{

class OwnLink : public HtBaseLib::BaseCommandLinkGEV
{
public:
    Result Open( const WdUtilsLib::Network::IpAddress& aHost )
    {
        Result lResult = mSocket.Open();
        lResult |= mSocket.Connect( aHost, WdUtilsLib::GEV::GVCP_PORT ); // a failure is kept
        return lResult;
    }

    // May be called from any thread: a transaction that runs then ends with NOT_CONNECTED.
    Result Close() override { return mSocket.Close(); }

    bool IsConnected() const override { return mSocket.IsOpened(); }

protected:
    // Failures of whole operations, and events such as retries. Named apart, for one's own sink.
    QmUtilsLib::Logger* GetLibLogger() override { return &mLibLogger; }
    QmUtilsLib::Logger* GetLinkLogger() override { return &mLinkLogger; }

    int GetRetryCount() const override { return 5; }
    int GetAnswerTimeout() const override { return 200; }
    WdUtilsLib::Network::SocketUDP* GetSocket() override { return &mSocket; }

    // Drawn under the link's mutex, so it needs no lock. Never 0.
    unsigned short GetRequestID() override
    {
        mRequestID = static_cast<unsigned short>( mRequestID == 0xFFFF ? 1 : mRequestID + 1 );
        return mRequestID;
    }

private:
    WdUtilsLib::Network::SocketUDP mSocket;
    QmUtilsLib::Logger mLibLogger{ "OwnLink", 0 };
    QmUtilsLib::Logger mLinkLogger{ "OwnLink.Events", 0 };
    unsigned short mRequestID = 0;
};

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
        std::fprintf( stderr, "usage: OwnLink HOST, with the device's IPv4 address\n" );
        return 2;
    }
    constexpr long long MODEL_NAME = 0x0068;
    char lModel[32 + 1] = {}; // a text that fills its field has no zero
    OwnLink lLink;
    Result lResult = lLink.Open( lHost );
    if ( lResult.IsOK() )
    {
        lResult = lLink.ReadMemory( lModel, MODEL_NAME, 32 );
    }
    std::printf( "%lld retries, %lld pending acknowledges, %lld transmit failures\n",
                 lLink.GetRetriesCount(), lLink.GetPendingAcknowledgesCount(),
                 lLink.GetTransmitFailures() );
    if ( !lResult.IsOK() )
    {
        std::fprintf( stderr, "OwnLink: cannot read %s: %s: %s\n", aArguments[1],
                      lResult.GetCodeString(), Explain( lResult ) );
        return 1;
    }
    std::printf( "%s\n", lModel );
    return 0;
}
