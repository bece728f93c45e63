/// @file
/// WdTransportLayerLib: what the library exports.
#pragma once

#if defined( _WIN32 )
#define WDTRANSPORTLAYERLIB_API
#else
#define WDTRANSPORTLAYERLIB_API [[gnu::visibility( "default" )]] ///< exported
#endif
