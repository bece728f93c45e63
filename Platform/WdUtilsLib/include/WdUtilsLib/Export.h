/// @file
/// WdUtilsLib: what the library exports.
#pragma once

#if defined( _WIN32 )
#define WDUTILSLIB_API
#else
#define WDUTILSLIB_API [[gnu::visibility( "default" )]] ///< exported
#endif
