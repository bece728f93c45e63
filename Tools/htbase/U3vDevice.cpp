#include "Tools/htbase/U3vDevice.h"

#include "Tools/htbase/Console.h"
#include "Tools/htbase/Interruption.h"
#include "Tools/htbase/Text.h"

#include <CapabilitiesU3V.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cerrno>

namespace HtBaseTool
{

using HtBaseLib::BaseCommandLinkU3V;
using HtBaseLib::CapabilitiesU3V;
using QmUtilsLib::Result;
using WdTransportLayerLib::U3V::DeviceEnumerator;
using WdUtilsLib::U3V::U3VGUID;

namespace
{

// What a packet of GenCP needs beside the data.
constexpr uint32_t READ_ACK_OVERHEAD = 12;
constexpr uint32_t WRITE_COMMAND_OVERHEAD = 20;
constexpr uint32_t WORD = 4;

// Bus, a hyphen, and ports with full stops between them: "2-1.4".
bool IsPath( const std::string& aName )
{
    const auto lIsDigit = []( char aCharacter )
    {
        return aCharacter >= '0' && aCharacter <= '9';
    };
    const size_t lHyphen = aName.find( '-' );
    for ( size_t lPlace = 0; lPlace < aName.size(); ++lPlace )
    {
        const bool lIsSeparator = lPlace == lHyphen || ( aName[lPlace] == '.' && lPlace > lHyphen );
        if ( lIsSeparator ? lPlace == 0 || !lIsDigit( aName[lPlace - 1] )
                          : !lIsDigit( aName[lPlace] ) )
        {
            return false;
        }
    }
    return lHyphen != std::string::npos && lIsDigit( aName.back() );
}

// What is neither can name no device.
void CheckName( const std::string& aName )
{
    if ( !U3VGUID().Set( aName.c_str() ) && !IsPath( aName ) )
    {
        throw MakeUsageFailure( "device '" + aName +
                                "' is neither a path, such as 2-1.4, nor a GUID of 12 characters" );
    }
}

bool IsNamed( const U3vDeviceInfo& aInfo, const std::string& aName )
{
    return aInfo.mPath == aName || aInfo.mGUID.Get() == aName;
}

// The devices that were found instead, and those whose identity could not be read.
std::string GetOthers( const std::vector<U3vDeviceInfo>& aDevices )
{
    std::string lText;
    for ( const U3vDeviceInfo& lInfo : aDevices )
    {
        lText += ( lText.empty() ? "; found " : ", " ) + GetU3vName( lInfo );
        lText += lInfo.mAccess.IsOK()
                     ? std::string()
                     : ", whose identity cannot be read: " + Describe( lInfo.mAccess );
    }
    return lText.empty() ? "; no USB3 Vision device was found - is it plugged in?" : lText;
}

U3vDeviceInfo FindDevice( const std::string& aName )
{
    CheckName( aName );
    const std::vector<U3vDeviceInfo> lDevices = ListU3vDevices();
    std::vector<U3vDeviceInfo> lFound;
    std::copy_if( lDevices.begin(), lDevices.end(), std::back_inserter( lFound ),
                  [&aName]( const U3vDeviceInfo& aInfo ) { return IsNamed( aInfo, aName ); } );
    if ( lFound.empty() )
    {
        throw Failure( "no USB3 Vision device " + aName + " on this machine" +
                           GetOthers( lDevices ),
                       Result( Result::GENERIC_ERROR, ENODEV ) );
    }
    if ( lFound.size() > 1 )
    {
        throw MakeUsageFailure( "GUID " + aName + " belongs to both " + lFound[0].mPath + " and " +
                                lFound[1].mPath + "; name the device by its path" );
    }
    if ( !lFound[0].mAccess.IsOK() )
    {
        throw Failure( GetRefusal( lFound[0] ), lFound[0].mAccess );
    }
    return lFound[0];
}

// The room for data, in whole words. A limit of 0 means the size of the link's buffers.
uint32_t GetRoom( uint32_t aLimit, uint32_t aBuffer, uint32_t aOverhead )
{
    const uint32_t lPacket = aLimit != 0 ? aLimit : aBuffer;
    return lPacket < aOverhead ? 0 : ( lPacket - aOverhead ) / WORD * WORD;
}

// 64-bit addresses are the link's signed ones, bit by bit.
long long ToLinkAddress( uint64_t aAddress )
{
    return static_cast<long long>( aAddress );
}

} // namespace

std::vector<U3vDeviceInfo> ListU3vDevices()
{
    std::vector<U3vDeviceInfo> lDevices;
    const Result lResult = DeviceEnumerator::GetDevices( lDevices );
    if ( !lResult.IsOK() )
    {
        throw Failure(
            "cannot list the USB3 Vision devices on this machine: " + Describe( lResult ) +
                ( lResult == Result::NOT_SUPPORTED ? " - the program was built without libusb-1.0"
                                                   : "" ),
            lResult );
    }
    return lDevices;
}

std::string GetU3vName( const U3vDeviceInfo& aInfo )
{
    return aInfo.mGUID.IsEmpty() ? aInfo.mPath : aInfo.mPath + " (" + aInfo.mGUID.Get() + ")";
}

std::string GetRefusal( const U3vDeviceInfo& aInfo )
{
    return "cannot open " + GetU3vName( aInfo ) + ": " + Describe( aInfo.mAccess );
}

U3vDevice::U3vDevice( Interruption& aInterruption, const U3vTarget& aTarget, bool aIsMaster )
    : U3vDevice( aInterruption, FindDevice( aTarget.mName ), aIsMaster )
{
}

U3vDevice::U3vDevice( Interruption& aInterruption, const U3vDeviceInfo& aInfo, bool aIsMaster )
    : Device( aInterruption, GetU3vName( aInfo ), AddressBits::U3V )
    , mInfo( aInfo )
    , mLink( aIsMaster )
{
    const Result lResult = mLink.Open( mInfo.mGUID, mInfo.mPath );
    if ( !lResult.IsOK() )
    {
        throw Failure( "cannot open " + GetName() + ": " + Describe( lResult ), lResult );
    }
    GetInterruption().SetAction( [this] { mLink.Abort(); } );
}

U3vDevice::~U3vDevice()
{
    GetInterruption().SetAction( nullptr );
}

const CapabilitiesU3V& U3vDevice::ReadCapabilities()
{
    const Result lResult = mLink.FitSizes();
    if ( !lResult.IsOK() )
    {
        throw MakeFailure( "read the capabilities", lResult );
    }
    return *CapabilitiesU3V::GetCapabilities( mLink.GetGUID(), nullptr );
}

PieceSizes U3vDevice::FitPieces()
{
    const Result lResult = mLink.FitSizes();
    if ( GetInterruption().IsRequested() )
    {
        throw MakeFailure( "read the capabilities", lResult );
    }
    if ( !lResult.IsOK() )
    {
        PrintNote(
            "transfers to " + GetName() +
            " are kept small, because it does not report its limits: " + Describe( lResult ) );
    }
    const PieceSizes lSizes{
        GetRoom( mLink.GetMaxAckSize(), BaseCommandLinkU3V::ACK_BUFFER_SIZE, READ_ACK_OVERHEAD ),
        GetRoom( mLink.GetMaxCommandSize(), BaseCommandLinkU3V::CMD_BUFFER_SIZE,
                 WRITE_COMMAND_OVERHEAD ) };
    if ( lSizes.mRead == 0 || lSizes.mWrite == 0 )
    {
        throw Failure(
            ExitStatus::REFUSED,
            "cannot transfer memory of " + GetName() + ": it takes commands of " +
                FormatCount( mLink.GetMaxCommandSize(), "byte" ) + " and sends acknowledges of " +
                FormatCount( mLink.GetMaxAckSize(), "byte" ) + ", too small for a word" );
    }
    return lSizes;
}

Result U3vDevice::ReadRegister( uint64_t aAddress, uint32_t& aValue )
{
    uint8_t lBytes[WORD] = {};
    Result lResult = ReadPiece( lBytes, aAddress, WORD );
    aValue = 0;
    for ( uint32_t lByte = WORD; lByte-- > 0; )
    {
        aValue = aValue << 8 | lBytes[lByte];
    }
    return lResult;
}

Result U3vDevice::WriteRegister( uint64_t aAddress, uint32_t aValue )
{
    uint8_t lBytes[WORD] = {};
    for ( uint32_t lByte = 0; lByte < WORD; ++lByte )
    {
        lBytes[lByte] = static_cast<uint8_t>( aValue >> ( 8 * lByte ) & 0xFF );
    }
    return WritePiece( lBytes, aAddress, WORD );
}

Result U3vDevice::ReadPiece( void* aData, uint64_t aAddress, uint32_t aSize )
{
    return mLink.ReadMemory( aData, ToLinkAddress( aAddress ), aSize );
}

Result U3vDevice::WritePiece( const void* aData, uint64_t aAddress, uint32_t aSize )
{
    return mLink.WriteMemory( aData, ToLinkAddress( aAddress ), aSize, false );
}

nlohmann::ordered_json U3vDevice::GetStatistics() const
{
    nlohmann::ordered_json lStatistics;
    lStatistics["transfers"] = mLink.GetTransfersCount();
    lStatistics["maxCommandSize"] = mLink.GetMaxCommandSize();
    lStatistics["maxAckSize"] = mLink.GetMaxAckSize();
    return lStatistics;
}

std::string U3vDevice::GetStatisticsText() const
{
    const auto lSize = []( uint32_t aLimit )
    {
        return aLimit != 0 ? FormatCount( aLimit, "byte" ) : "any size";
    };
    return "statistics: " +
           FormatCount( static_cast<uint64_t>( mLink.GetTransfersCount() ), "transfer" ) +
           ", commands of at most " + lSize( mLink.GetMaxCommandSize() ) +
           ", acknowledges of at most " + lSize( mLink.GetMaxAckSize() );
}

std::string U3vDevice::GetAdvice( const Result& aResult ) const
{
    if ( aResult == Result::TIMEOUT )
    {
        return " - no answer: is the device busy, or the cable bad?";
    }
    switch ( GetDeviceStatus( aResult ) != 0 ? 0 : aResult.GetOSCode() )
    {
    case ENODEV:
        return " - was the device unplugged?";
    case EPIPE:
        return " - the device did not accept the command; try again";
    default:
        return "";
    }
}

} // namespace HtBaseTool
