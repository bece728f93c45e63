#include "Libraries/HtBase/Location/ModulePath.h"

#include <dlfcn.h>
#include <link.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>

namespace HtBaseLib
{

namespace
{

constexpr char SEPARATOR = '/';

// The file as it was found when the module was loaded. The loader may know it by a name that is
// relative to the working directory of that moment, so it cannot be found later.
struct ModuleFile
{
    unsigned int mLength;
    char mPath[PATH_MAX + 1]; // not terminated
};

ModuleFile gModuleFile; // neither constructed nor destroyed: there as long as the module is

// The loader's name for the file that holds aAddress. The program itself has none there: what the
// loader says of it is only what its caller has called it.
const char* GetLoaderName( const void* aAddress )
{
    Dl_info lInfo{};
    link_map* lMap = nullptr;
    if ( dladdr1( aAddress, &lInfo, reinterpret_cast<void**>( &lMap ), RTLD_DL_LINKMAP ) == 0 )
    {
        return "";
    }
    return lMap->l_name[0] == '\0' ? "/proc/self/exe" : lMap->l_name;
}

void FindFile( const void* aAddress, ModuleFile& aFile )
{
    char lPath[PATH_MAX];
    if ( realpath( GetLoaderName( aAddress ), lPath ) == nullptr )
    {
        return;
    }
    // A second separator in front of a file of the root directory: cutting the name leaves the
    // root.
    const size_t lRoot = std::strrchr( lPath, SEPARATOR ) == lPath ? 1 : 0;
    const size_t lSize = std::strlen( lPath );
    aFile.mPath[0] = SEPARATOR;
    std::memcpy( aFile.mPath + lRoot, lPath, lSize );
    aFile.mLength = static_cast<unsigned int>( lRoot + lSize ); // at most PATH_MAX
}

// Before all other constructors of the module, so that these may ask.
[[gnu::constructor( 101 )]] void Load()
{
    FindFile( reinterpret_cast<const void*>( &Load ), gModuleFile );
    (void)EnterModule( &gModuleFile, MODULE_ATTACHED ); // always true
}

} // namespace

unsigned int GetModulePath( const void* aModule, char* aBuffer, unsigned int aSize )
{
    if ( aModule == nullptr )
    {
        return 0;
    }
    const ModuleFile& lFile = *static_cast<const ModuleFile*>( aModule );
    const unsigned int lLength = std::min( lFile.mLength, aSize );
    std::memcpy( aBuffer, lFile.mPath, lLength );
    return lLength;
}

char GetPathSeparator()
{
    return SEPARATOR;
}

} // namespace HtBaseLib
