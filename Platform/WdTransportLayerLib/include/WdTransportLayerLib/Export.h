// WdTransportLayerLib: what the library shows to others.
#pragma once

// WDTRANSPORTLAYERLIB_API marks what is exported.
#if defined( _WIN32 )
#define WDTRANSPORTLAYERLIB_API
#else
#define WDTRANSPORTLAYERLIB_API [[gnu::visibility( "default" )]]
#endif
