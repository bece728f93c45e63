#include "Tools/htbase/ToolLink.h"

#include <QmUtilsLib/Thread.h>

namespace HtBaseTool
{

using QmUtilsLib::Logger;
using QmUtilsLib::Thread;

namespace
{

constexpr const char* UNIT = "Tools/htbase/ToolLink";

constexpr unsigned long long MICROSECONDS = 1000; // in a millisecond

} // namespace

TransferLog::TransferLog( AddressBits aAddressBits )
    : mAddressBits( aAddressBits )
    , mLogger( "htbase", 0 )
{
}

void TransferLog::AddRead( long long aAddress, long long aSize )
{
    Count( aSize );
    if ( mLogger.IsPriorityEnabled( Logger::DETAIL ) )
    {
        mLogger.Log( Logger::DETAIL, UNIT, __LINE__, "HtBaseTool::TransferLog::AddRead",
                     "Read %lld bytes at %s", aSize, Format( aAddress ).c_str() );
    }
}

void TransferLog::AddWrite( long long aAddress, long long aSize )
{
    Count( aSize );
    if ( mLogger.IsPriorityEnabled( Logger::DETAIL ) )
    {
        mLogger.Log( Logger::DETAIL, UNIT, __LINE__, "HtBaseTool::TransferLog::AddWrite",
                     "Wrote %lld bytes at %s", aSize, Format( aAddress ).c_str() );
    }
}

void TransferLog::Count( long long aSize )
{
    ++mCount;
    // The clock does not run backwards, and one transfer is never 4 GiB.
    mMeter.Report( static_cast<unsigned long long>( Thread::GetTickCount() ) * MICROSECONDS,
                   static_cast<unsigned int>( aSize ), false );
}

// Links give addresses of 64 bits as signed ones, bit by bit.
std::string TransferLog::Format( long long aAddress ) const
{
    return FormatAddress( static_cast<uint64_t>( aAddress ), mAddressBits );
}

} // namespace HtBaseTool
