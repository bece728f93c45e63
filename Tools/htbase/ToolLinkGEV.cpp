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

constexpr unsigned long long MICROSECONDS = 1000; // in a millisecond

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

void ToolLinkGEV::Count( long long aSize )
{
    ++mTransfersCount;
    // The clock does not run backwards, and a transfer is at most 536 bytes.
    mMeter.Report( static_cast<unsigned long long>( Thread::GetTickCount() ) * MICROSECONDS,
                   static_cast<unsigned int>( aSize ), false );
}

void ToolLinkGEV::ReadCallback( const void*, long long aAddress, long long aSize )
{
    Count( aSize );
    if ( mLogger.IsPriorityEnabled( Logger::DETAIL ) )
    {
        mLogger.Log( Logger::DETAIL, UNIT, __LINE__, "HtBaseTool::ToolLinkGEV::ReadCallback",
                     "Read %lld bytes at 0x%08llX", aSize,
                     static_cast<unsigned long long>( aAddress ) );
    }
}

void ToolLinkGEV::WriteCallback( const void*, long long aAddress, long long aSize )
{
    Count( aSize );
    if ( mLogger.IsPriorityEnabled( Logger::DETAIL ) )
    {
        mLogger.Log( Logger::DETAIL, UNIT, __LINE__, "HtBaseTool::ToolLinkGEV::WriteCallback",
                     "Wrote %lld bytes at 0x%08llX", aSize,
                     static_cast<unsigned long long>( aAddress ) );
    }
}

} // namespace HtBaseTool
