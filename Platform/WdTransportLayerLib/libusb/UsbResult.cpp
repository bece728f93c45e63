#include "UsbResult.h"

#include <QmUtilsLib/String.h>

#include <libusb.h>

#include <cerrno>
#include <new>

namespace WdTransportLayerLib
{
namespace U3V
{

using QmUtilsLib::Result;
using QmUtilsLib::String;
using WdUtilsLib::U3V::U3VGUID;

namespace
{

struct Translation
{
    int mUsbError;
    int mErrno;
};

constexpr Translation TRANSLATIONS[] = {
    { LIBUSB_ERROR_IO, EIO },
    { LIBUSB_ERROR_INVALID_PARAM, EINVAL },
    { LIBUSB_ERROR_ACCESS, EACCES },
    { LIBUSB_ERROR_NO_DEVICE, ENODEV },
    { LIBUSB_ERROR_NOT_FOUND, ENOENT },
    { LIBUSB_ERROR_BUSY, EBUSY },
    { LIBUSB_ERROR_OVERFLOW, EOVERFLOW },
    { LIBUSB_ERROR_PIPE, EPIPE },
    { LIBUSB_ERROR_INTERRUPTED, EINTR },
    { LIBUSB_ERROR_NO_MEM, ENOMEM },
    { LIBUSB_ERROR_NOT_SUPPORTED, ENOSYS },
};

int GetErrno( int aUsbError )
{
    for ( const Translation& lTranslation : TRANSLATIONS )
    {
        if ( lTranslation.mUsbError == aUsbError )
        {
            return lTranslation.mErrno;
        }
    }
    return EIO;
}

std::string Describe( int aErrno, const std::string& aPath )
{
    switch ( aErrno )
    {
    case EACCES:
        return "The system does not allow this user to open the USB device " + aPath +
               ". Install 60-htbase.rules, which allows it for USB3 Vision devices, in "
               "/etc/udev/rules.d, run \"udevadm control --reload\" and plug the device in again.";
    case EBUSY:
        return "The USB device " + aPath + " is in use by another program.";
    case ENODEV:
        return "The USB device " + aPath + " is not there.";
    default:
        return std::string();
    }
}

// aDescribe gives the text.
template <typename DESCRIBE>
Result MakeDescribed( int aErrno, DESCRIBE aDescribe )
{
    const auto lOSCode = static_cast<unsigned int>( aErrno );
    try
    {
        return Result( Result::GENERIC_ERROR, lOSCode, String( aDescribe().c_str() ) );
    }
    catch ( const std::bad_alloc& )
    {
        return Result( Result::GENERIC_ERROR, lOSCode );
    }
}

} // namespace

Result MakeFailure( int aErrno, const std::string& aPath )
{
    return MakeDescribed( aErrno, [&] { return Describe( aErrno, aPath ); } );
}

Result MakeNotFound( const U3VGUID& aGUID, const std::string& aPath )
{
    return MakeDescribed( ENODEV,
                          [&]
                          {
                              return std::string( "No USB3 Vision device " ) + aGUID.Get() +
                                     ( aPath.empty() ? " is there." : " is at " + aPath + "." );
                          } );
}

Result MakeUsbResult( int aUsbError, const std::string& aPath )
{
    if ( aUsbError >= LIBUSB_SUCCESS )
    {
        return Result::OK;
    }
    if ( aUsbError == LIBUSB_ERROR_TIMEOUT )
    {
        return Result::TIMEOUT;
    }
    return MakeFailure( GetErrno( aUsbError ), aPath );
}

} // namespace U3V
} // namespace WdTransportLayerLib
