#include "Tools/htbase/ToolLinkGEV.h"

#include <QmUtilsLib/Thread.h>

namespace HtBaseTool
{

using QmUtilsLib::Logger;
using QmUtilsLib::Result;
using QmUtilsLib::Thread;
using WdUtilsLib::Network::SocketUDP;

namespace
{

constexpr const char* UNIT = "Tools/htbase/ToolLinkGEV";

} // namespace

ToolLinkGEV::ToolLinkGEV( SocketUDP& aSocket, const LinkOptions& aOptions )
    : mSocket( aSocket )
    , mOptions( aOptions )
    , mLogger( "htbase", 0 )
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

void ToolLinkGEV::ReadCallback( const void*, long long aAddress, long long aSize )
{
    ++mTransfersCount;
    if ( mLogger.IsPriorityEnabled( Logger::DETAIL ) )
    {
        mLogger.Log( Logger::DETAIL, UNIT, __LINE__, "HtBaseTool::ToolLinkGEV::ReadCallback",
                     "Read %lld bytes at 0x%08llX", aSize,
                     static_cast<unsigned long long>( aAddress ) );
    }
}

void ToolLinkGEV::WriteCallback( const void*, long long aAddress, long long aSize )
{
    ++mTransfersCount;
    if ( mLogger.IsPriorityEnabled( Logger::DETAIL ) )
    {
        mLogger.Log( Logger::DETAIL, UNIT, __LINE__, "HtBaseTool::ToolLinkGEV::WriteCallback",
                     "Wrote %lld bytes at 0x%08llX", aSize,
                     static_cast<unsigned long long>( aAddress ) );
    }
}

} // namespace HtBaseTool
