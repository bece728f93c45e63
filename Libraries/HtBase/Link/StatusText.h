// The texts of the status words in the answers of devices.
#pragma once

#include <algorithm>
#include <cstddef>
#include <iterator>

namespace HtBaseLib
{

// A status word of GVCP or GenCP and its text.
struct StatusText
{
    unsigned short mStatus;
    const char* mText;
};

// FindStatusText returns the text of a status, or aOther for a status without a text of its own.
template <std::size_t COUNT>
const char* FindStatusText( const StatusText ( &aTexts )[COUNT], unsigned short aStatus,
                            const char* aOther )
{
    const auto* const lEntry =
        std::find_if( std::begin( aTexts ), std::end( aTexts ),
                      [aStatus]( const StatusText& aText ) { return aText.mStatus == aStatus; } );
    return lEntry != std::end( aTexts ) ? lEntry->mText : aOther;
}

} // namespace HtBaseLib
