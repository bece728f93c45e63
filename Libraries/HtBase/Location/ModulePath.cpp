#include "Libraries/HtBase/Location/ModulePath.h"

namespace HtBaseLib
{

namespace
{

const void* gModule = nullptr; // written while the module is loaded, before anything can read it

} // namespace

bool EnterModule( const void* aModule, unsigned int aReason )
{
    if ( aReason == MODULE_ATTACHED )
    {
        gModule = aModule;
    }
    return true;
}

const void* GetModule()
{
    return gModule;
}

// KEEP: Where the backslash is the separator, a forward slash is not one: the directory of
// `C:/a\b.dll` is `C:/a`. A root directory is named without its separator: that of `C:\module.dll`
// is `C:`.
// SAFE: The result is 0x0019 when the path of the library's file has no separator, since there is
// nothing to cut.
bool CutFileName( std::string& aPath, char aSeparator )
{
    const std::string::size_type lPlace = aPath.find_last_of( aSeparator );
    if ( lPlace == std::string::npos )
    {
        return false;
    }
    aPath.erase( lPlace );
    return true;
}

} // namespace HtBaseLib
