// QmUtilsLib: what the library shows to others.
#pragma once

// QMUTILSLIB_API marks what is exported.
#if defined( _WIN32 )
#define QMUTILSLIB_API
#else
#define QMUTILSLIB_API [[gnu::visibility( "default" )]]
#endif
