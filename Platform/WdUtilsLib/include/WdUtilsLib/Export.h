// WdUtilsLib: what the library shows to others.
#pragma once

#if defined( _WIN32 )
#define WDUTILSLIB_API
#else
#define WDUTILSLIB_API [[gnu::visibility( "default" )]]
#endif
