// WdUtilsLib: what the library shows to others.
#pragma once

// WDUTILSLIB_API marks what is exported.
#if defined( _WIN32 )
#define WDUTILSLIB_API
#else
#define WDUTILSLIB_API [[gnu::visibility( "default" )]]
#endif
