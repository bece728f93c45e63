// HtBase: what the library shows to others.
#pragma once

// HTBASE_API marks what is exported; HTBASE_INTERNAL what is not, of an exported class.
#if defined( _WIN32 )
#define HTBASE_API
#define HTBASE_INTERNAL
#else
#define HTBASE_API [[gnu::visibility( "default" )]]
#define HTBASE_INTERNAL [[gnu::visibility( "hidden" )]]
#endif
