// The file that holds the library's code.
#pragma once

#include <string>

namespace HtBaseLib
{

// Why the load entry is called: the module has come into the process. The other reasons, such as
// its leaving and the coming and going of threads, have other numbers.
constexpr unsigned int MODULE_ATTACHED = 1;

// The library's load entry, called by the system, or by its body below, while the module is loaded:
// keeps the handle when the module comes. True always, since nothing speaks against loading it.
bool EnterModule( const void* aModule, unsigned int aReason );

// The handle that was kept; null where there is none.
const void* GetModule();

// Cuts aPath before the last aSeparator. False, and nothing is changed, where there is none. No
// other character separates.
bool CutFileName( std::string& aPath, char aSeparator );

// What asks the system. It has two bodies, chosen by the linker: posix/ and scripted/.

// GetModulePath writes the path of the file of aModule to aBuffer, aSize characters at most and not
// always terminated, and returns its length; 0 where it is not known. The posix handle is null or
// the one that was given to EnterModule.
unsigned int GetModulePath( const void* aModule, char* aBuffer, unsigned int aSize );

// What stands between a directory and a name in these paths.
char GetPathSeparator();

} // namespace HtBaseLib
