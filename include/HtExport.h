/// @file
/// HtBase: what the library exports.
#pragma once

#if defined( _WIN32 )
#define HTBASE_API
#define HTBASE_INTERNAL
#else
#define HTBASE_API [[gnu::visibility( "default" )]]     ///< exported
#define HTBASE_INTERNAL [[gnu::visibility( "hidden" )]] ///< not exported, in an exported class
#endif
