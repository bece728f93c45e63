#include "Tools/htbase/MessageCollector.h"

#include "Tools/htbase/Text.h"

#include <cstdio>
#include <string_view>

namespace HtBaseTool
{

namespace
{

// Types that carry no data: counts of records, and ends. A warning ends with the type.
constexpr std::string_view EXPECTED_TYPES = "5789";

[[gnu::format( printf, 1, 0 )]] std::string Format( const char* aFormat, std::va_list aValues )
{
    std::va_list lCopy;
    va_copy( lCopy, aValues );
    const int lSize = std::vsnprintf( nullptr, 0, aFormat, lCopy );
    va_end( lCopy );
    std::string lText( lSize > 0 ? static_cast<size_t>( lSize ) : 0, '\0' );
    (void)std::vsnprintf( lText.data(), lText.size() + 1, aFormat, aValues ); // as long as before
    return lText;
}

} // namespace

std::vector<std::string> MessageCollector::GetWarnings( const std::string& aPath ) const
{
    std::vector<std::string> lWarnings;
    for ( const auto& [lText, lCount] : mWarnings )
    {
        if ( EXPECTED_TYPES.find( lText.back() ) == std::string_view::npos )
        {
            lWarnings.push_back( "'" + aPath + "': " + lText + ", " +
                                 FormatCount( lCount, "time" ) );
        }
    }
    return lWarnings;
}

std::string MessageCollector::GetFailure() const
{
    return mFailure.substr( 0, mFailure.find_last_not_of( '\n' ) + 1 );
}

void MessageCollector::TakeWarning( const char* aFormat, std::va_list aValues )
{
    ++mWarnings[Format( aFormat, aValues )];
}

void MessageCollector::TakeFailure( const char* aFormat, std::va_list aValues )
{
    mFailure = Format( aFormat, aValues );
}

void MessageCollector::TakeRefusal( const char* aFormat, std::va_list aValues )
{
    mRefusal = Format( aFormat, aValues );
}

} // namespace HtBaseTool
