// WdTransportLayerLib: what the library shows to others.
#pragma once

#if defined( _WIN32 )
#define WDTRANSPORTLAYERLIB_API
#else
#define WDTRANSPORTLAYERLIB_API [[gnu::visibility( "default" )]]
#endif
