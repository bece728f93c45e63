#include "Tools/htbase/ToolLink.h"

namespace HtBaseTool
{

using QmUtilsLib::Logger;

namespace
{

constexpr const char* UNIT = "Tools/htbase/ToolLink";

} // namespace

TransferLog::TransferLog( AddressBits aAddressBits )
    : mAddressBits( aAddressBits )
    , mLogger( "htbase", 0 )
{
}

void TransferLog::AddRead( long long aAddress, long long aSize )
{
    ++mCount;
    if ( mLogger.IsPriorityEnabled( Logger::DETAIL ) )
    {
        mLogger.Log( Logger::DETAIL, UNIT, __LINE__, "HtBaseTool::TransferLog::AddRead",
                     "Read %lld bytes at %s", aSize, Format( aAddress ).c_str() );
    }
}

void TransferLog::AddWrite( long long aAddress, long long aSize )
{
    ++mCount;
    if ( mLogger.IsPriorityEnabled( Logger::DETAIL ) )
    {
        mLogger.Log( Logger::DETAIL, UNIT, __LINE__, "HtBaseTool::TransferLog::AddWrite",
                     "Wrote %lld bytes at %s", aSize, Format( aAddress ).c_str() );
    }
}

// Links give addresses of 64 bits as signed ones, bit by bit.
std::string TransferLog::Format( long long aAddress ) const
{
    return FormatAddress( static_cast<uint64_t>( aAddress ), mAddressBits );
}

} // namespace HtBaseTool
