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

// KEEP: where the separator is a backslash, a forward slash is none, and a root directory has none
// left.
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
