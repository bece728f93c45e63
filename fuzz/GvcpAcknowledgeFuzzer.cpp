// The acknowledges of GVCP. Whatever a device has sent, a view of it returns the received bytes,
// zeros or nothing beyond them, and is valid exactly when the standard says so.

#include "fuzz/FuzzTarget.h"

#include <WdUtilsLib/GEV/AcknowledgeHeader.h>
#include <WdUtilsLib/GEV/Discovery.h>
#include <WdUtilsLib/GEV/ReadMemory.h>
#include <WdUtilsLib/GEV/ReadRegister.h>
#include <WdUtilsLib/GEV/WriteMemory.h>
#include <WdUtilsLib/GEV/WriteRegister.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>

namespace
{

namespace GEV = WdUtilsLib::GEV;

// A datagram, decoded independently of the library, from the standard alone.
class Datagram
{
public:
    explicit Datagram( std::string aBytes )
        : mBytes( std::move( aBytes ) )
    {
        // A missing field is zero. Bytes beyond the length field are ignored.
        mLength = IsWhole() ? GetNumber( 4, 2 ) : 0;
        mPayload = mBytes.substr( std::min<std::size_t>( 8, mBytes.size() ), mLength );
    }

    bool IsWhole() const { return mBytes.size() >= 8; }
    std::size_t GetSize() const { return mBytes.size(); }
    std::size_t GetLength() const { return mLength; }
    const std::string& GetPayload() const { return mPayload; }

    unsigned int GetStatus() const { return IsWhole() ? GetNumber( 0, 2 ) : 0; }
    unsigned int GetCode() const { return IsWhole() ? GetNumber( 2, 2 ) : 0; }
    unsigned int GetId() const { return IsWhole() ? GetNumber( 6, 2 ) : 0; }

    // The time of a pending acknowledge is read whatever the length field says.
    unsigned int GetTime() const { return mBytes.size() >= 12 ? GetNumber( 10, 2 ) : 0; }

    // A number of the payload; 0 unless all of it is there.
    unsigned int GetValue( std::size_t aOffset, std::size_t aSize ) const
    {
        return aOffset + aSize <= mPayload.size() ? GetNumber( 8 + aOffset, aSize ) : 0;
    }

private:
    unsigned int GetNumber( std::size_t aOffset, std::size_t aSize ) const
    {
        unsigned int lNumber = 0;
        for ( const char lByte : mBytes.substr( aOffset, aSize ) )
        {
            lNumber = lNumber << 8 | static_cast<unsigned char>( lByte );
        }
        return lNumber;
    }

    const std::string mBytes;
    std::size_t mLength = 0;
    std::string mPayload;
};

void TryHeader( const GEV::AcknowledgeHeader& aView, const Datagram& aPlain )
{
    Fuzz::Require( aView.GetStatus() == aPlain.GetStatus(), "status" );
    Fuzz::Require( aView.GetAcknowledge() == aPlain.GetCode(), "acknowledge code" );
    Fuzz::Require( aView.GetLength() == aPlain.GetLength(), "length" );
    Fuzz::Require( aView.GetAcknowledgeId() == aPlain.GetId(), "identifier" );
}

// Held against a command that fits in all respects, and against some that do not.
void TryValidity( const GEV::AcknowledgeHeader& aView, const Datagram& aPlain )
{
    const auto lIsValid = [&]( unsigned int aCode, unsigned int aId, std::size_t aReceived )
    {
        GEV::CommandHeader lCommand( static_cast<unsigned short>( aCode ) );
        lCommand.InitRequestId( static_cast<unsigned short>( aId ) );
        return aView.IsValid( static_cast<unsigned int>( aReceived ), lCommand );
    };
    const std::size_t lSize = aPlain.GetSize();
    const unsigned int lCode = aPlain.GetCode() - 1;
    const unsigned int lId = aPlain.GetId();
    const std::size_t lTold = 8 + aPlain.GetLength();
    if ( aPlain.GetCode() != 0 ) // no command has the code before 0
    {
        const bool lIsThere = aPlain.IsWhole() && lTold <= lSize;
        Fuzz::Require( lIsValid( lCode, lId, lTold ) == lIsThere, "the answer that is there" );
        Fuzz::Require( lIsValid( lCode, lId, lSize ) == ( lIsThere && lTold == lSize ),
                       "the answer that fills the buffer" );
    }
    Fuzz::Require( !lIsValid( lCode + 1, lId, lTold ), "an answer to another command" );
    Fuzz::Require( !lIsValid( lCode, lId + 1, lTold ), "an answer to another request" );
    Fuzz::Require( !lIsValid( lCode, lId, lTold + 1 ), "an answer of another length" );
    Fuzz::Require( !lIsValid( lCode, lId, lSize + 1 ), "an answer beyond the buffer" );
    Fuzz::Require( !lIsValid( lCode, lId, 7 ), "an answer without a header" );
}

void TryRegisters( const GEV::ReadRegisterAcknowledge& aView, const Datagram& aPlain )
{
    const auto lCount = static_cast<unsigned int>( aPlain.GetPayload().size() / 4 );
    for ( const unsigned int lIndex : { 0U, lCount / 2, lCount - 1, lCount, lCount + 1, ~0U } )
    {
        const std::size_t lOffset = std::size_t{ 4 } * lIndex;
        Fuzz::Require( aView.GetValue( lIndex, true ) == aPlain.GetValue( lOffset, 4 ),
                       "a register in the order of the host" );
        unsigned int lRaw = 0;
        if ( lIndex < lCount )
        {
            std::memcpy( &lRaw, aPlain.GetPayload().data() + lOffset, sizeof( lRaw ) );
        }
        Fuzz::Require( aView.GetValue( lIndex, false ) == lRaw, "a register as it lies there" );
    }
}

void TryMemory( const GEV::ReadMemoryAcknowledge& aView, const Datagram& aPlain )
{
    const std::string& lPayload = aPlain.GetPayload();
    const bool lHasAddress = lPayload.size() >= 4;
    const std::string lWanted = lHasAddress ? lPayload.substr( 4 ) : std::string();
    std::string lCopy( lWanted.size() + 1, '\xEE' );
    Fuzz::Require( !aView.CopyData( lCopy.data(), -1 ), "fewer than no bytes" );
    Fuzz::Require( !aView.CopyData( lCopy.data(), static_cast<long long>( lCopy.size() ) ),
                   "more bytes than there are" );
    Fuzz::Require( lCopy == std::string( lCopy.size(), '\xEE' ), "nothing is copied in part" );
    Fuzz::Require( aView.CopyData( lCopy.data(), static_cast<long long>( lWanted.size() ) ) ==
                       lHasAddress,
                   "all bytes" );
    Fuzz::Require( !lHasAddress || lCopy == lWanted + '\xEE', "what is copied" );
}

std::string GetText( const Datagram& aPlain, std::size_t aOffset, std::size_t aSize )
{
    const std::string lField = aPlain.GetPayload().substr( aOffset, aSize );
    return lField.substr( 0, lField.find( '\0' ) );
}

void TryDiscovery( const GEV::DiscoveryAcknowledge& aView, const Datagram& aPlain )
{
    const bool lIsComplete = aPlain.GetPayload().size() >= 248;
    Fuzz::Require( aView.IsComplete() == lIsComplete, "a discovery has 248 bytes" );
    // An incomplete one reads as empty.
    const Datagram lNothing{ std::string() };
    const Datagram& lPlain = lIsComplete ? aPlain : lNothing;
    const auto lText = [&]( std::size_t aOffset, std::size_t aSize )
    {
        return lIsComplete ? GetText( lPlain, aOffset, aSize ) : std::string();
    };
    Fuzz::Require( aView.GetVersionMajor() == lPlain.GetValue( 0x00, 2 ) &&
                       aView.GetVersionMinor() == lPlain.GetValue( 0x02, 2 ),
                   "version" );
    const auto lMac = aView.GetMacAddress().GetBytes();
    for ( std::size_t lPlace = 0; lPlace < lMac.size(); ++lPlace )
    {
        Fuzz::Require( lMac[lPlace] == lPlain.GetValue( 0x0A + lPlace, 1 ), "MAC address" );
    }
    Fuzz::Require( aView.GetIpAddress().GetValue() == lPlain.GetValue( 0x24, 4 ), "IP address" );
    Fuzz::Require( aView.GetSubnetMask().GetValue() == lPlain.GetValue( 0x34, 4 ), "subnet mask" );
    Fuzz::Require( aView.GetDefaultGateway().GetValue() == lPlain.GetValue( 0x44, 4 ), "gateway" );
    Fuzz::Require( aView.GetManufacturerName() == lText( 0x48, 32 ) &&
                       aView.GetModelName() == lText( 0x68, 32 ) &&
                       aView.GetDeviceVersion() == lText( 0x88, 32 ) &&
                       aView.GetManufacturerInformation() == lText( 0xA8, 48 ) &&
                       aView.GetSerialNumber() == lText( 0xD8, 16 ) &&
                       aView.GetUserDefinedName() == lText( 0xE8, 16 ),
                   "texts" );
}

} // namespace

// An input is a datagram; it is looked at as each of the acknowledges.
int LLVMFuzzerTestOneInput( const std::uint8_t* aData, std::size_t aSize )
{
    const Datagram lPlain( std::string( reinterpret_cast<const char*>( aData ), aSize ) );
    const GEV::AcknowledgeHeader lHeader( aData, aSize );
    TryHeader( lHeader, lPlain );
    TryValidity( lHeader, lPlain );
    TryRegisters( GEV::ReadRegisterAcknowledge( aData, aSize ), lPlain );
    TryMemory( GEV::ReadMemoryAcknowledge( aData, aSize ), lPlain );
    TryDiscovery( GEV::DiscoveryAcknowledge( aData, aSize ), lPlain );
    Fuzz::Require( GEV::PendingAcknowledgeHeader( aData, aSize ).GetTimeToCompletion() ==
                       lPlain.GetTime(),
                   "time to completion" );
    Fuzz::Require( GEV::WriteRegisterAcknowledge( aData, aSize ).GetIndex() ==
                       lPlain.GetValue( 2, 2 ),
                   "registers written" );
    Fuzz::Require( GEV::WriteMemoryAcknowledge( aData, aSize ).GetIndex() ==
                       lPlain.GetValue( 2, 2 ),
                   "bytes written" );
    return 0;
}
