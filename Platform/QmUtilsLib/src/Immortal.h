// What lives as long as the process.
#pragma once

#include <new>

namespace QmUtilsLib
{

// GetImmortal gives the one T of the process. It is made at the first call, without the heap, and
// never destroyed, since exit handlers of others may still ask for it.
template <class T>
T& GetImmortal()
{
    alignas( T ) static unsigned char sStorage[sizeof( T )];
    static T& sObject = *::new ( static_cast<void*>( sStorage ) ) T;
    return sObject;
}

} // namespace QmUtilsLib
