// The program's link to a GigE Vision device.
#pragma once

#include <BaseCommandLinkGEV.h>
#include <InstantStats.h>
#include <QmUtilsLib/Logger.h>

#include <atomic>

namespace HtBaseTool
{

// How patient a link is.
struct LinkOptions
{
    int mTimeoutMs = 400; // for the answer to one attempt
    int mAttempts = 3;    // how often a command is sent at most
};

// ToolLinkGEV is a link whose patience the user chooses. The socket is borrowed. It counts and
// measures the transfers that succeeded, and logs each at 20000.
class ToolLinkGEV : public HtBaseLib::BaseCommandLinkGEV
{
public:
    ToolLinkGEV( WdUtilsLib::Network::SocketUDP& aSocket, const LinkOptions& aOptions );

    // Closes the socket; from any thread.
    QmUtilsLib::Result Close() override;
    bool IsConnected() const override;

    // Reads and writes that succeeded.
    long long GetTransfersCount() const { return mTransfersCount.load(); }

    // How often they come, and what they carry. From any thread.
    const HtBaseLib::InstantStats& GetMeter() const { return mMeter; }

protected:
    QmUtilsLib::Logger* GetLibLogger() override { return &mLogger; }
    QmUtilsLib::Logger* GetLinkLogger() override { return &mLogger; }

    int GetRetryCount() const override { return mOptions.mAttempts; }
    int GetAnswerTimeout() const override { return mOptions.mTimeoutMs; }
    WdUtilsLib::Network::SocketUDP* GetSocket() override { return &mSocket; }

    // Never 0. Starts somewhere, since devices answer a command that comes again within seconds
    // from memory: the same port may have been another program's a moment ago.
    unsigned short GetRequestID() override;

    void ReadCallback( const void* aData, long long aAddress, long long aSize ) override;
    void WriteCallback( const void* aData, long long aAddress, long long aSize ) override;

private:
    void Count( long long aSize );

    WdUtilsLib::Network::SocketUDP& mSocket;
    const LinkOptions mOptions;
    QmUtilsLib::Logger mLogger;
    unsigned short mRequestID; // the link's mutex is held where it is drawn
    std::atomic<long long> mTransfersCount{ 0 };
    HtBaseLib::InstantStats mMeter;
};

} // namespace HtBaseTool
