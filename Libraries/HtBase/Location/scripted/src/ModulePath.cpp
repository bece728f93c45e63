#include "Libraries/HtBase/Location/ModulePath.h"

#include <HtBase/Scripted/ModulePath.h>

#include <utility>

namespace HtBaseLib
{

namespace
{

Scripted::ModulePathBody gBody;

} // namespace

unsigned int GetModulePath( const void* aModule, char* aBuffer, unsigned int aSize )
{
    return gBody ? gBody( aModule, aBuffer, aSize ) : 0;
}

char GetPathSeparator()
{
    return '\\';
}

namespace Scripted
{

void SetModulePathBody( ModulePathBody aBody )
{
    gBody = std::move( aBody );
}

} // namespace Scripted

} // namespace HtBaseLib
