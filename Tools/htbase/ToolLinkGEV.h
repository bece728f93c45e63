// The program's link to a GigE Vision device.
#pragma once

#include "Tools/htbase/ToolLink.h"

#include <BaseCommandLinkGEV.h>

namespace HtBaseTool
{

// The time-out and the attempts of a link.
struct LinkOptions
{
    int mTimeoutMs = 400; // for the answer to one attempt
    int mAttempts = 3;    // how often a command is sent at most
};

// ToolLinkGEV is a link whose time-out and attempts the user chooses. The socket is borrowed.
class ToolLinkGEV : public ToolLink<HtBaseLib::BaseCommandLinkGEV, AddressBits::GEV>
{
public:
    ToolLinkGEV( WdUtilsLib::Network::SocketUDP& aSocket, const LinkOptions& aOptions );

    // Closes the socket; from any thread.
    QmUtilsLib::Result Close() override;
    bool IsConnected() const override;

protected:
    int GetRetryCount() const override { return mOptions.mAttempts; }
    int GetAnswerTimeout() const override { return mOptions.mTimeoutMs; }
    WdUtilsLib::Network::SocketUDP* GetSocket() override { return &mSocket; }

    // Never 0. The first one is taken from the clock: a device answers a command that is repeated
    // within seconds from memory, and the same port may have been another program's a moment ago.
    unsigned short GetRequestID() override;

private:
    WdUtilsLib::Network::SocketUDP& mSocket;
    const LinkOptions mOptions;
    unsigned short mRequestID; // the link's mutex is held where it is drawn
};

} // namespace HtBaseTool
