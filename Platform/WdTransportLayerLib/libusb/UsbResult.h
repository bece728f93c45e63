// How the failures of libusb become results.
#pragma once

#include <QmUtilsLib/Result.h>
#include <WdUtilsLib/U3V/U3VGUID.h>

#include <string>

namespace WdTransportLayerLib
{
namespace U3V
{

// A failure with an errno value as OS code; a refused access is told apart with what to do about
// it. aPath names the device. Where there is no memory for the text, it goes without.
QmUtilsLib::Result MakeFailure( int aErrno, const std::string& aPath );

// The failure of one that is looked for by its identity; likewise. aPath may be empty.
QmUtilsLib::Result MakeNotFound( const WdUtilsLib::U3V::U3VGUID& aGUID, const std::string& aPath );

// The same for a libusb_error; LIBUSB_ERROR_TIMEOUT becomes TIMEOUT, success OK.
QmUtilsLib::Result MakeUsbResult( int aUsbError, const std::string& aPath );

} // namespace U3V
} // namespace WdTransportLayerLib
