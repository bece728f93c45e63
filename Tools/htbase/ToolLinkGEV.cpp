#include "Tools/htbase/ToolLinkGEV.h"

#include <QmUtilsLib/Thread.h>

namespace HtBaseTool
{

using QmUtilsLib::Result;
using QmUtilsLib::Thread;
using WdUtilsLib::Network::SocketUDP;

ToolLinkGEV::ToolLinkGEV( SocketUDP& aSocket, const LinkOptions& aOptions )
    : mSocket( aSocket )
    , mOptions( aOptions )
    , mRequestID( static_cast<unsigned short>( Thread::GetTickCount() ) )
{
}

Result ToolLinkGEV::Close()
{
    return mSocket.Close();
}

bool ToolLinkGEV::IsConnected() const
{
    return mSocket.IsOpened();
}

unsigned short ToolLinkGEV::GetRequestID()
{
    ++mRequestID; // wraps
    mRequestID = mRequestID == 0 ? 1 : mRequestID;
    return mRequestID;
}

} // namespace HtBaseTool
