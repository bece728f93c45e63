#include "Tools/htbase/ToolLinkU3V.h"

#include <CapabilitiesU3V.h>

#include <cerrno>

namespace HtBaseTool
{

using HtBaseLib::CapabilitiesU3V;
using QmUtilsLib::Result;

ToolLinkU3V::ToolLinkU3V( bool aIsMaster )
    : mIsMaster( aIsMaster )
{
}

// UpdateMaxSizes does not report why it changed nothing, so the record is filled first.
Result ToolLinkU3V::FitSizes()
{
    CapabilitiesU3V* const lRecord = CapabilitiesU3V::GetCapabilities( GetGUID(), nullptr );
    if ( lRecord == nullptr )
    {
        return Result( Result::GENERIC_ERROR, ENOMEM );
    }
    Result lResult = lRecord->Init( this );
    if ( lResult.IsOK() )
    {
        UpdateMaxSizes();
    }
    return lResult;
}

void ToolLinkU3V::Abort()
{
    (void)GetDCI()->Close(); // what it cannot release, the end of the program releases
}

} // namespace HtBaseTool
