#include <HtBinariesLocation.h>

#include "Libraries/HtBase/Location/ModulePath.h"
#include "Libraries/HtBase/Support/Results.h"

#include <algorithm>

namespace
{

constexpr unsigned int NOT_FOUND = 0x0019;
constexpr unsigned int PATH_SIZE = 4096;

} // namespace

HtResult HtBinariesLocation( HtString& aLocation )
{
    char lBuffer[PATH_SIZE];
    const unsigned int lLength =
        HtBaseLib::GetModulePath( HtBaseLib::GetModule(), lBuffer, PATH_SIZE );
    return HtBaseLib::Guarded(
        [&]() -> HtResult
        {
            // A path that fills the buffer has no end of its own.
            std::string lPath( lBuffer, std::min( lLength, PATH_SIZE ) );
            if ( !HtBaseLib::CutFileName( lPath, HtBaseLib::GetPathSeparator() ) )
            {
                return NOT_FOUND;
            }
            aLocation = lPath.c_str();
            return HtResult::OK;
        } );
}
