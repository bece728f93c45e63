// HtBase: what the library shows to others.
#pragma once

// HTBASE_API marks what is exported.
#if defined( _WIN32 )
#define HTBASE_API
#else
#define HTBASE_API [[gnu::visibility( "default" )]]
#endif
