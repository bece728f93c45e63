/// @file
/// QmUtilsLib: what the library exports.
#pragma once

#if defined( _WIN32 )
#define QMUTILSLIB_API
#else
#define QMUTILSLIB_API [[gnu::visibility( "default" )]] ///< exported
#endif
