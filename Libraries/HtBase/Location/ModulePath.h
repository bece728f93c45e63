// The file that holds the library's code.
#pragma once

#include <string>

namespace HtBaseLib
{

// The reason of the load entry's call: the module was loaded. Other reasons, such as unloading and
// the start and end of threads, have other numbers.
constexpr unsigned int MODULE_ATTACHED = 1;

// The library's load entry, called by the system, or by its body below, while the module is loaded:
// keeps the handle when the module is loaded. Always true, so that loading succeeds.
bool EnterModule( const void* aModule, unsigned int aReason );

// The handle that was kept; null if there is none.
const void* GetModule();

// Cuts aPath before the last aSeparator. False, and nothing is changed, if there is none. No other
// character is a separator.
bool CutFileName( std::string& aPath, char aSeparator );

// What asks the system. It has two bodies, chosen by the linker: posix/ and scripted/.

// GetModulePath writes the path of the file of aModule to aBuffer, aSize characters at most and not
// always terminated, and returns its length; 0 where it is not known. The posix handle is null or
// the one that was given to EnterModule.
unsigned int GetModulePath( const void* aModule, char* aBuffer, unsigned int aSize );

// The separator of these paths.
char GetPathSeparator();

} // namespace HtBaseLib
