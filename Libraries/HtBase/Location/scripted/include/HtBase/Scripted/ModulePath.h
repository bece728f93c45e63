// HtBase for tests: what the system knows of the library's module.
#pragma once

#include <functional>

namespace HtBaseLib
{
namespace Scripted
{

// Writes the path of aModule to aBuffer of aSize characters and returns its length, 0 on failure.
using ModulePathBody =
    std::function<unsigned int( const void* aModule, char* aBuffer, unsigned int aSize )>;

// SetModulePathBody sets what GetModulePath does from now on; by default it returns 0. Paths are
// separated by backslashes.
void SetModulePathBody( ModulePathBody aBody );

} // namespace Scripted
} // namespace HtBaseLib
