#include "Tools/htbase/Progress.h"

#include "Tools/htbase/Console.h"

#include <cinttypes>
#include <cstdio>
#include <string>

namespace HtBaseTool
{

namespace
{

constexpr size_t WIDTH = 40;

} // namespace

Progress::Progress( uint64_t aTotal )
    : mTotal( aTotal )
    , mIsShown( IsErrorTerminal() )
{
    Update( 0 );
}

Progress::~Progress()
{
    if ( mIsShown )
    {
        (void)std::fputc( '\n', stderr );
    }
}

void Progress::Update( uint64_t aDone )
{
    const int lPercent = static_cast<int>( aDone * 100 / mTotal );
    if ( !mIsShown || lPercent == mPercent )
    {
        return;
    }
    mPercent = lPercent;
    const size_t lFilled = WIDTH * static_cast<size_t>( lPercent ) / 100;
    const std::string lBar = std::string( lFilled, '#' ) + std::string( WIDTH - lFilled, '.' );
    (void)std::fprintf( stderr, "\r[%s] %3d %%  %" PRIu64 " of %" PRIu64 " bytes", lBar.c_str(),
                        lPercent, aDone, mTotal );
    (void)std::fflush( stderr );
}

} // namespace HtBaseTool
