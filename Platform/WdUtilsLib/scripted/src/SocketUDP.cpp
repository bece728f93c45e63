#include <WdUtilsLib/Network/SocketUDP.h>

#include "NetworkState.h"

#include <QmUtilsLib/Scripted/VirtualClock.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace WdUtilsLib
{
namespace Network
{

using QmUtilsLib::Result;
using Scripted::Bytes;
using Scripted::NetworkState;
using Scripted::Peer;

namespace
{

std::string Describe( const IpAddress& aAddress, unsigned short aPort )
{
    return aAddress.GetString() + ":" + std::to_string( aPort );
}

} // namespace

class SocketUDP::Implementation
{
public:
    void Note( const std::string& aCall ) const { mNetwork->Note( aCall ); }

    std::shared_ptr<NetworkState> mNetwork; // null while the socket is closed
    unsigned int mNumber = 0;
    Peer mLocal;
    Peer mPeer; // port 0: not connected
    unsigned int mTimeout = 0;
};

SocketUDP::SocketUDP()
    : mThis( std::make_unique<Implementation>() )
{
}

SocketUDP::~SocketUDP() = default;

Result SocketUDP::Open( const IpAddress* aLocalAddress, unsigned short aLocalPort,
                        bool aShareAddress )
{
    *mThis = Implementation();
    mThis->mNetwork = NetworkState::GetCurrent();
    if ( mThis->mNetwork == nullptr )
    {
        return Result( Result::GENERIC_ERROR, ENETDOWN );
    }
    constexpr unsigned short FIRST_FREE_PORT = 49152;
    mThis->Note( "Open(" + ( aLocalAddress != nullptr ? aLocalAddress->GetString() : "any" ) + ":" +
                 std::to_string( aLocalPort ) + ( aShareAddress ? ", shared)" : ", own)" ) );
    mThis->mNumber = mThis->mNetwork->Join();
    mThis->mLocal.mAddress = aLocalAddress != nullptr ? *aLocalAddress : IpAddress();
    mThis->mLocal.mPort = aLocalPort != 0
                              ? aLocalPort
                              : static_cast<unsigned short>( FIRST_FREE_PORT + mThis->mNumber );
    return Result::OK;
}

Result SocketUDP::Connect( const IpAddress& aPeer, unsigned short aPort )
{
    if ( !IsOpened() )
    {
        return Result::NOT_CONNECTED;
    }
    mThis->Note( "Connect(" + Describe( aPeer, aPort ) + ")" );
    mThis->mPeer = { aPeer, aPort };
    return Result::OK;
}

Result SocketUDP::SetBroadcast( bool /*aEnable*/ )
{
    return IsOpened() ? Result::OK : Result::NOT_CONNECTED;
}

bool SocketUDP::IsOpened() const
{
    return mThis->mNetwork != nullptr;
}

Result SocketUDP::Send( const void* aData, int aLength )
{
    if ( !IsOpened() )
    {
        return Result::NOT_CONNECTED;
    }
    if ( mThis->mPeer.mPort == 0 )
    {
        return Result( Result::GENERIC_ERROR, EDESTADDRREQ );
    }
    return SendTo( aData, aLength, mThis->mPeer.mAddress, mThis->mPeer.mPort );
}

Result SocketUDP::SendTo( const void* aData, int aLength, const IpAddress& aAddress,
                          unsigned short aPort )
{
    if ( !IsOpened() )
    {
        return Result::NOT_CONNECTED;
    }
    mThis->Note( "SendTo(" + Describe( aAddress, aPort ) + ", " + std::to_string( aLength ) +
                 " bytes)" );
    const auto* const lBytes = static_cast<const uint8_t*>( aData );
    return mThis->mNetwork->Send( mThis->mNumber, Bytes( lBytes, lBytes + aLength ), mThis->mLocal,
                                  { aAddress, aPort } );
}

Result SocketUDP::Receive( void* aBuffer, int aSize, int& aReceived )
{
    IpAddress lAddress;
    unsigned short lPort = 0;
    return ReceiveFrom( aBuffer, aSize, aReceived, lAddress, lPort );
}

Result SocketUDP::ReceiveFrom( void* aBuffer, int aSize, int& aReceived, IpAddress& aAddress,
                               unsigned short& aPort )
{
    if ( !IsOpened() )
    {
        return Result::NOT_CONNECTED;
    }
    const std::shared_ptr<NetworkState> lNetwork = mThis->mNetwork;
    mThis->Note( "ReceiveFrom(" + std::to_string( aSize ) + ")" );
    lNetwork->mReceiveSizes.push_back( aSize );
    (void)lNetwork->Wait( { mThis->mNumber }, mThis->mTimeout,
                          [this]( unsigned int ) { return !IsOpened(); } );
    if ( !IsOpened() )
    {
        return Result::NOT_CONNECTED;
    }
    const std::optional<NetworkState::Event> lEvent = lNetwork->Take( mThis->mNumber );
    if ( !lEvent.has_value() )
    {
        return Result::TIMEOUT;
    }
    if ( lEvent->mFailure.has_value() )
    {
        return *lEvent->mFailure;
    }
    const std::size_t lCount =
        std::min( lEvent->mBytes.size(), static_cast<std::size_t>( std::max( aSize, 0 ) ) );
    std::copy_n( lEvent->mBytes.begin(), lCount, static_cast<uint8_t*>( aBuffer ) );
    aReceived = static_cast<int>( lCount );
    aAddress = lEvent->mFrom->mAddress;
    aPort = lEvent->mFrom->mPort;
    return Result::OK;
}

Result SocketUDP::SetTimeoutRx( unsigned int aTimeout )
{
    if ( !IsOpened() )
    {
        return Result::NOT_CONNECTED;
    }
    mThis->Note( "SetTimeoutRx(" + std::to_string( aTimeout ) + ")" );
    mThis->mTimeout = aTimeout;
    return Result::OK;
}

SocketUDP* SocketUDP::SelectOnRx( SocketUDP** aSockets, unsigned int aCount, unsigned int aTimeout,
                                  unsigned int* aIndex )
{
    const auto lChoose = [aSockets, aIndex]( unsigned int aChosen )
    {
        if ( aIndex != nullptr )
        {
            *aIndex = aChosen;
        }
        return aSockets[aChosen];
    };
    std::vector<unsigned int> lNumbers;
    for ( unsigned int lIndex = 0; lIndex < aCount; ++lIndex )
    {
        if ( !aSockets[lIndex]->IsOpened() )
        {
            return lChoose( lIndex );
        }
        lNumbers.push_back( aSockets[lIndex]->mThis->mNumber );
    }
    if ( lNumbers.empty() )
    {
        return nullptr;
    }
    const std::shared_ptr<NetworkState> lNetwork = aSockets[0]->mThis->mNetwork;
    lNetwork->mSelectTimeouts.push_back( aTimeout );
    const auto lFind = [&lNumbers]( unsigned int aNumber )
    {
        const auto lPlace = std::find( lNumbers.begin(), lNumbers.end(), aNumber );
        return static_cast<unsigned int>( lPlace - lNumbers.begin() );
    };
    const std::optional<unsigned int> lReady =
        lNetwork->Wait( lNumbers, aTimeout,
                        [aSockets, &lFind]( unsigned int aNumber )
                        { return !aSockets[lFind( aNumber )]->IsOpened(); } );
    return lReady.has_value() ? lChoose( lFind( *lReady ) ) : nullptr;
}

Result SocketUDP::Close()
{
    if ( IsOpened() )
    {
        mThis->Note( "Close()" );
    }
    *mThis = Implementation();
    return Result::OK;
}

IpAddress SocketUDP::GetLocalAddress() const
{
    return mThis->mLocal.mAddress;
}

unsigned short SocketUDP::GetLocalPort() const
{
    return mThis->mLocal.mPort;
}

} // namespace Network
} // namespace WdUtilsLib
