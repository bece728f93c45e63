// Opens a USB3 Vision device, sizes the link to it and reads its texts.
//
//     UsbDevice            the first device of this machine
//     UsbDevice 2-1.4      by path, or by GUID
//
// Exit status: 0 success, 1 the device was not found or could not be read, 2 wrong usage.

#include <QmUtilsLib/String.h>
#include <SimpleCommandLinkU3V.h>
#include <WdTransportLayerLib/U3V/DeviceEnumerator.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

using QmUtilsLib::Result;
using WdTransportLayerLib::U3V::DeviceInfo;

namespace
{

// SizedLink makes its commands and acknowledges as large as the device allows. Without that they
// have 64 bytes, which do for registers.
class SizedLink : public HtBaseLib::SimpleCommandLinkU3V
{
public:
    Result Open( const WdUtilsLib::U3V::U3VGUID& aGUID, const std::string& aDevicePath ) override
    {
        Result lResult = SimpleCommandLinkU3V::Open( aGUID, aDevicePath );
        if ( lResult.IsOK() )
        {
            UpdateMaxSizes(); // reads the device's capability record, once per process
        }
        return lResult;
    }
};

Result FindDevice( const std::string& aName, DeviceInfo& aDevice )
{
    std::vector<DeviceInfo> lDevices;
    Result lResult = WdTransportLayerLib::U3V::DeviceEnumerator::GetDevices( lDevices );
    if ( !lResult.IsOK() )
    {
        return lResult;
    }
    const auto lIsMeant = [&aName]( const DeviceInfo& aInfo )
    {
        return aName.empty() || aName == aInfo.mPath || aName == aInfo.mGUID.Get();
    };
    const auto lFound = std::find_if( lDevices.begin(), lDevices.end(), lIsMeant );
    if ( lFound == lDevices.end() )
    {
        return Result( Result::GENERIC_ERROR, 0, "there is no such USB3 Vision device" );
    }
    aDevice = *lFound;
    return lFound->mAccess; // whether this user may open it
}

Result PrintTexts( SizedLink& aLink )
{
    constexpr long long TEXTS = 0x0004; // of the ABRM, 64 bytes each
    constexpr const char* NAMES[] = { "manufacturer", "model", "family", "version" };
    char lTexts[4][64] = {};
    Result lResult = aLink.Read( lTexts, TEXTS, sizeof( lTexts ) ); // split as the limits need it
    for ( int lIndex = 0; lIndex < 4 && lResult.IsOK(); ++lIndex )
    {
        std::printf( "  %-12s %.64s\n", NAMES[lIndex], lTexts[lIndex] );
    }
    return lResult;
}

// What the device or the library says, or the system's reason.
const char* Explain( const Result& aResult )
{
    const bool lIsSystems = aResult.GetDescription().GetLength() == 0 && aResult.GetOSCode() != 0;
    return lIsSystems ? std::strerror( static_cast<int>( aResult.GetOSCode() ) )
                      : aResult.GetDescription().GetAscii();
}

} // namespace

int main( int aCount, char** aArguments )
{
    if ( aCount > 2 )
    {
        std::fprintf( stderr, "usage: UsbDevice [NAME], with a path such as 2-1.4 or a GUID\n" );
        return 2;
    }
    DeviceInfo lDevice;
    SizedLink lLink;
    Result lResult = FindDevice( aCount == 2 ? aArguments[1] : "", lDevice );
    if ( lResult.IsOK() )
    {
        lResult = lLink.Open( lDevice.mGUID, lDevice.mPath ); // both, as the enumerator gave them
    }
    if ( lResult.IsOK() )
    {
        std::printf( "%s at %s, commands of %u bytes, acknowledges of %u\n", lDevice.mGUID.Get(),
                     lDevice.mPath.c_str(), lLink.GetMaxCommandSize(), lLink.GetMaxAckSize() );
        lResult = PrintTexts( lLink );
    }
    if ( !lResult.IsOK() )
    {
        std::fprintf( stderr, "UsbDevice: %s: %s\n", lResult.GetCodeString(), Explain( lResult ) );
        return 1;
    }
    return 0;
}
