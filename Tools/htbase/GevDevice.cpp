#include "Tools/htbase/GevDevice.h"

#include "Tools/htbase/Console.h"
#include "Tools/htbase/Interruption.h"
#include "Tools/htbase/Text.h"

#include <CapabilitiesGEV.h>

#include <nlohmann/json.hpp>

#include <utility>

namespace HtBaseTool
{

using QmUtilsLib::LockScope;
using QmUtilsLib::Result;
using WdUtilsLib::Network::EthernetAddress;
using WdUtilsLib::Network::IpAddress;

namespace
{

// Device MAC Address High, with Low behind it.
constexpr uint32_t MAC_ADDRESS = 0x0008;

// Values of Control Channel Privilege.
constexpr uint32_t CONTROL_ACCESS = 2;
constexpr uint32_t OPEN_ACCESS = 0;

constexpr int REPEATS_MAX = 5;

// Addresses were read as numbers of 32 bits.
uint32_t ToLinkAddress( uint64_t aAddress )
{
    return static_cast<uint32_t>( aAddress );
}

} // namespace

GevDevice::GevDevice( Interruption& aInterruption, const HostPort& aHost,
                      const LinkOptions& aOptions )
    : Device( aInterruption, aHost.GetName(), AddressBits::GEV )
    , mHost( aHost )
    , mLink( mSocket, aOptions )
{
    const Result lResult = OpenSocket( nullptr, 0 );
    if ( !lResult.IsOK() )
    {
        throw Failure( "cannot reach " + GetName() + ": " + Describe( lResult ) +
                           GetHint( lResult ),
                       lResult );
    }
    mLocalAddress = mSocket.GetLocalAddress();
    mLocalPort = mSocket.GetLocalPort();
    GetInterruption().SetAction( [this] { Abort(); } );
}

GevDevice::~GevDevice()
{
    GetInterruption().SetAction( nullptr );
}

Result GevDevice::OpenSocket( const IpAddress* aAddress, unsigned short aPort )
{
    const Result lResult = mSocket.Open( aAddress, aPort );
    return lResult.IsOK() ? mSocket.Connect( mHost.mAddress, mHost.mPort ) : lResult;
}

EthernetAddress GevDevice::ReadMacAddress()
{
    uint32_t lWords[2] = {};
    for ( uint32_t lIndex = 0; lIndex < 2; ++lIndex )
    {
        const uint32_t lRegister = MAC_ADDRESS + 4 * lIndex;
        const Result lResult = ReadRegister( lRegister, lWords[lIndex] );
        if ( !lResult.IsOK() )
        {
            throw MakeFailure( "read register " + FormatHex( lRegister ), lResult );
        }
    }
    return EthernetAddress( lWords[0], lWords[1] );
}

Result GevDevice::Read( HtBaseLib::CapabilitiesGEV& aRecord )
{
    return aRecord.Init( &mLink );
}

Result GevDevice::ReadRegister( uint64_t aAddress, uint32_t& aValue )
{
    return mLink.ReadRegister( &aValue, ToLinkAddress( aAddress ) );
}

Result GevDevice::WriteRegister( uint64_t aAddress, uint32_t aValue, bool aNoAck )
{
    return Write( [&]
                  { return mLink.WriteRegister( &aValue, ToLinkAddress( aAddress ), aNoAck ); } );
}

Result GevDevice::ReadPiece( void* aData, uint64_t aAddress, uint32_t aSize )
{
    return Repeat( [&] { return mLink.ReadMemory( aData, ToLinkAddress( aAddress ), aSize ); } );
}

Result GevDevice::WritePiece( const void* aData, uint64_t aAddress, uint32_t aSize )
{
    return Write(
        [&]
        {
            return Repeat(
                [&]
                { return mLink.WriteMemory( aData, ToLinkAddress( aAddress ), aSize, false ); } );
        } );
}

Result GevDevice::Repeat( const std::function<Result()>& aTransfer )
{
    Result lResult = aTransfer();
    for ( int lRepeat = 0; lRepeat < REPEATS_MAX && lResult == Result::TIMEOUT; ++lRepeat )
    {
        ++mRepeats;
        lResult = aTransfer();
    }
    return lResult;
}

// Takes control again when it ran out meanwhile.
Result GevDevice::Write( const std::function<Result()>& aTransfer )
{
    Result lResult = aTransfer();
    if ( mControl != Control::HELD || !IsAccessDenied( lResult ) || !TakeControl().IsOK() )
    {
        return lResult;
    }
    ++mRenewals;
    return aTransfer();
}

Result GevDevice::TakeControl()
{
    mControl = Control::UNCERTAIN;
    const uint32_t lValue = CONTROL_ACCESS;
    Result lResult = mLink.WriteRegister( &lValue, CONTROL_PRIVILEGE, false );
    const bool lIsOpen = lResult == Result::TIMEOUT || lResult == Result::NOT_CONNECTED;
    if ( !lIsOpen )
    {
        mControl = lResult.IsOK() ? Control::HELD : Control::NONE;
    }
    return lResult;
}

// If it is not known whether the device granted control, the release does not wait for an answer.
Result GevDevice::ReleaseControl()
{
    const Control lControl = mControl;
    mControl = Control::NONE;
    if ( lControl == Control::NONE )
    {
        return Result::OK;
    }
    Result lResult = EnterCleanUp();
    if ( !lResult.IsOK() )
    {
        return lResult;
    }
    const uint32_t lValue = OPEN_ACCESS;
    return mLink.WriteRegister( &lValue, CONTROL_PRIVILEGE, lControl == Control::UNCERTAIN );
}

void GevDevice::Abort()
{
    LockScope lLock( mMutex );
    if ( !mIsCleanUp )
    {
        (void)mLink.Close(); // cannot fail; wakes a thread that waits for the device
    }
}

// From here on an interruption leaves the socket alone. If it was closed it is opened again with
// the port it had, since only that port can give control back.
Result GevDevice::EnterCleanUp()
{
    LockScope lLock( mMutex );
    mIsCleanUp = true;
    return mSocket.IsOpened() ? Result( Result::OK ) : OpenSocket( &mLocalAddress, mLocalPort );
}

std::string GevDevice::GetAdvice( const Result& aResult ) const
{
    return GetHint( aResult );
}

nlohmann::ordered_json GevDevice::GetStatistics() const
{
    nlohmann::ordered_json lStatistics;
    lStatistics["transfers"] = mLink.GetTransfersCount();
    lStatistics["retries"] = mLink.GetRetriesCount();
    lStatistics["retriesMax"] = mLink.GetRetriesMax();
    lStatistics["pendingAcknowledges"] = mLink.GetPendingAcknowledgesCount();
    lStatistics["transmitFailures"] = mLink.GetTransmitFailures();
    lStatistics["piecesRepeated"] = mRepeats;
    lStatistics["controlRenewals"] = mRenewals;
    return lStatistics;
}

std::string GevDevice::GetStatisticsText() const
{
    const auto lCount = []( long long aCount, const char* aWord )
    {
        return FormatCount( static_cast<uint64_t>( aCount ), aWord );
    };
    return "statistics: " + lCount( mLink.GetTransfersCount(), "transfer" ) + ", " +
           lCount( mLink.GetRetriesCount(), "repeated command" ) + " (at most " +
           std::to_string( mLink.GetRetriesMax() ) + " for one command), " +
           lCount( mLink.GetPendingAcknowledgesCount(), "pending acknowledge" ) + ", " +
           lCount( mLink.GetTransmitFailures(), "transmit failure" ) + ", " +
           lCount( mRepeats, "repeated piece" ) + ", " + lCount( mRenewals, "control renewal" );
}

ControlScope::ControlScope( GevDevice& aDevice, bool aIsWanted, const std::string& aMore )
    : mDevice( aDevice )
    , mIsActive( aIsWanted )
{
    if ( !mIsActive )
    {
        return;
    }
    const Result lResult = mDevice.TakeControl();
    if ( !lResult.IsOK() )
    {
        Failure lFailure = mDevice.MakeFailure( "take control", lResult, aMore );
        (void)mDevice.ReleaseControl(); // only if it may have been given; the first failure counts
        throw Failure( std::move( lFailure ) );
    }
}

ControlScope::~ControlScope()
{
    if ( !mIsActive )
    {
        return;
    }
    const Result lResult = mDevice.ReleaseControl();
    if ( !lResult.IsOK() )
    {
        PrintNote( "cannot release control of " + mDevice.GetName() + ": " + Describe( lResult ) +
                   "; the device frees it by itself after its heartbeat timeout" );
    }
}

void ControlScope::Release( const std::string& aDone )
{
    if ( !mIsActive )
    {
        return;
    }
    mIsActive = false;
    const Result lResult = mDevice.ReleaseControl();
    if ( !lResult.IsOK() )
    {
        throw Failure( aDone + ", but cannot release control of " + mDevice.GetName() + ": " +
                           Describe( lResult ) +
                           "; the device frees it by itself after its heartbeat timeout",
                       lResult );
    }
}

} // namespace HtBaseTool
