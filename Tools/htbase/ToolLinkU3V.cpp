#include "Tools/htbase/ToolLinkU3V.h"

#include <CapabilitiesU3V.h>

namespace HtBaseTool
{

using HtBaseLib::CapabilitiesU3V;
using QmUtilsLib::Logger;
using QmUtilsLib::Result;

namespace
{

constexpr const char* UNIT = "Tools/htbase/ToolLinkU3V";

} // namespace

ToolLinkU3V::ToolLinkU3V( bool aIsMaster )
    : mIsMaster( aIsMaster )
    , mLogger( "htbase", 0 )
{
}

// UpdateMaxSizes does not tell why it changed nothing, so the record is filled first.
Result ToolLinkU3V::FitSizes()
{
    const Result lResult = CapabilitiesU3V::GetCapabilities( GetGUID(), nullptr )->Init( this );
    if ( lResult.IsOK() )
    {
        UpdateMaxSizes();
    }
    return lResult;
}

void ToolLinkU3V::Abort()
{
    (void)GetDCI()->Close(); // what it cannot give back the end of the program does
}

void ToolLinkU3V::ReadCallback( const void*, long long aAddress, long long aSize )
{
    ++mTransfersCount;
    if ( mLogger.IsPriorityEnabled( Logger::DETAIL ) )
    {
        mLogger.Log( Logger::DETAIL, UNIT, __LINE__, "HtBaseTool::ToolLinkU3V::ReadCallback",
                     "Read %lld bytes at 0x%016llX", aSize,
                     static_cast<unsigned long long>( aAddress ) );
    }
}

void ToolLinkU3V::WriteCallback( const void*, long long aAddress, long long aSize )
{
    ++mTransfersCount;
    if ( mLogger.IsPriorityEnabled( Logger::DETAIL ) )
    {
        mLogger.Log( Logger::DETAIL, UNIT, __LINE__, "HtBaseTool::ToolLinkU3V::WriteCallback",
                     "Wrote %lld bytes at 0x%016llX", aSize,
                     static_cast<unsigned long long>( aAddress ) );
    }
}

} // namespace HtBaseTool
