#include "Tools/htbase/Progress.h"

#include "Tools/htbase/Console.h"
#include "Tools/htbase/Text.h"

#include <QmUtilsLib/Thread.h>

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cstdio>

namespace HtBaseTool
{

using QmUtilsLib::Thread;

namespace
{

constexpr size_t WIDTH = 24;     // of the bar
constexpr size_t WIDTH_MIN = 10; // beside two numbers of ten digits
constexpr long long REDRAW_MS = 250;
constexpr uint64_t LONGEST_LEFT = 99 * 3600 + 59 * 60 + 59; // s

int GetPercent( uint64_t aDone, uint64_t aTotal )
{
    return aTotal == 0 ? 100 : static_cast<int>( aDone * 100 / aTotal );
}

template <typename... Values>
std::string Format( const char* aFormat, Values... aValues )
{
    std::array<char, 32> lText{};
    (void)std::snprintf( lText.data(), lText.size(), aFormat, aValues... ); // cut when longer
    return lText.data();
}

std::string FormatLeft( uint64_t aSeconds )
{
    const uint64_t lMinutes = aSeconds / 60;
    if ( lMinutes < 60 )
    {
        return Format( "%" PRIu64 ":%02" PRIu64 " left", lMinutes, aSeconds % 60 );
    }
    return Format( "%" PRIu64 ":%02" PRIu64 ":%02" PRIu64 " left", lMinutes / 60, lMinutes % 60,
                   aSeconds % 60 );
}

// "  1.5 MB/s  0:07 left"; empty until there is a rate to calculate with.
std::string FormatSpeed( uint64_t aDone, uint64_t aTotal, long long aElapsedMs )
{
    if ( aDone == 0 )
    {
        return std::string();
    }
    const double lRate =
        static_cast<double>( aDone ) * 1e3 / static_cast<double>( std::max( aElapsedMs, 1LL ) );
    const double lSeconds = static_cast<double>( aTotal - aDone ) / lRate;
    const auto lLeft =
        static_cast<uint64_t>( std::min( lSeconds, static_cast<double>( LONGEST_LEFT ) ) );
    return "  " + FormatScaled( lRate, "B/s" ) + "  " + FormatLeft( lLeft );
}

} // namespace

std::string FormatProgress( uint64_t aDone, uint64_t aTotal, long long aElapsedMs )
{
    const int lPercent = GetPercent( aDone, aTotal );
    const std::string lTotal = std::to_string( aTotal );
    // Wide enough for all but the widest numbers, and the same for the whole transfer.
    const size_t lNumbers = 2 * std::max<size_t>( lTotal.size(), 4 ) - 8;
    const size_t lWidth = WIDTH - std::min( lNumbers, WIDTH - WIDTH_MIN );
    const size_t lFilled = lWidth * static_cast<size_t>( lPercent ) / 100;
    std::string lLine = "[" + std::string( lFilled, '#' ) + std::string( lWidth - lFilled, '.' ) +
                        Format( "] %3d %%  ", lPercent ) + std::to_string( aDone ) + " of " +
                        lTotal + " bytes" + FormatSpeed( aDone, aTotal, aElapsedMs );
    lLine.resize( LINE_COLUMNS, ' ' ); // over what was there
    return lLine;
}

Progress::Progress( uint64_t aTotal )
    : mTotal( aTotal )
    , mIsShown( IsErrorTerminal() )
    , mStartMs( Thread::GetTickCount() )
{
    if ( mIsShown )
    {
        Draw( 0, 0, mStartMs );
    }
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
    if ( !mIsShown )
    {
        return;
    }
    const int lPercent = GetPercent( aDone, mTotal );
    const long long lNow = Thread::GetTickCount();
    if ( lPercent != mPercent || lNow - mDrawnMs >= REDRAW_MS )
    {
        Draw( lPercent, aDone, lNow );
    }
}

void Progress::Finish( uint64_t aTotal )
{
    mTotal = aTotal;
    mPercent = -1;
    Update( aTotal );
}

void Progress::Wipe()
{
    if ( mIsShown )
    {
        const std::string lLine = '\r' + std::string( LINE_COLUMNS, ' ' ) + '\r';
        (void)std::fputs( lLine.c_str(), stderr );
        mPercent = -1;
    }
}

void Progress::Draw( int aPercent, uint64_t aDone, long long aNowMs )
{
    mPercent = aPercent;
    mDrawnMs = aNowMs;
    const std::string lLine = '\r' + FormatProgress( aDone, mTotal, aNowMs - mStartMs );
    (void)std::fputs( lLine.c_str(), stderr ); // what cannot be written there is lost
    (void)std::fflush( stderr );
}

} // namespace HtBaseTool
