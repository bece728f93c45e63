// A device on a loopback address, and a link to it with a retry count and a time-out of the test's.
#pragma once

#include "Simulators/GEV/VirtualDeviceGEV.h"
#include "Simulators/Servers/DeviceServer.h"

#include <BaseCommandLinkGEV.h>
#include <QmUtilsLib/Logger.h>
#include <WdUtilsLib/GEV/CommandHeader.h>
#include <WdUtilsLib/Network/IpAddress.h>
#include <WdUtilsLib/Network/SocketUDP.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <functional>

namespace TestSupport
{

const WdUtilsLib::Network::IpAddress LOOPBACK( 0x7F000001 );

// A socket connected to a port of 127.0.0.1.
class LoopbackSocket
{
public:
    explicit LoopbackSocket( unsigned short aPort )
    {
        EXPECT_TRUE( mSocket.Open( &LOOPBACK ).IsOK() );
        EXPECT_TRUE( mSocket.Connect( LOOPBACK, aPort ).IsOK() );
    }

    WdUtilsLib::Network::SocketUDP mSocket;
};

// A link on a socket of the test's, with the retry count and the time-out (ms) of the test's.
class PatientLink : public HtBaseLib::BaseCommandLinkGEV
{
public:
    PatientLink( WdUtilsLib::Network::SocketUDP* aSocket, int aRetryCount, int aTimeout )
        : mSocket( aSocket )
        , mRetryCount( aRetryCount )
        , mTimeout( aTimeout )
    {
    }

    QmUtilsLib::Result Close() override { return QmUtilsLib::Result::NOT_SUPPORTED; }
    bool IsConnected() const override { return mSocket->IsOpened(); }

protected:
    QmUtilsLib::Logger* GetLibLogger() override { return &mLogger; }
    QmUtilsLib::Logger* GetLinkLogger() override { return &mLogger; }
    int GetRetryCount() const override { return mRetryCount; }
    int GetAnswerTimeout() const override { return mTimeout; }
    WdUtilsLib::Network::SocketUDP* GetSocket() override { return mSocket; }
    unsigned short GetRequestID() override
    {
        mIdentifier = static_cast<unsigned short>( mIdentifier == 0xFFFF ? 1 : mIdentifier + 1 );
        return mIdentifier;
    }

private:
    WdUtilsLib::Network::SocketUDP* mSocket;
    const int mRetryCount;
    const int mTimeout;
    unsigned short mIdentifier = 0;
    QmUtilsLib::Logger mLogger{ "HtBaseLib", 0 };
};

// A virtual device on 127.0.0.1, served by a thread of its own. Port 0: a free one.
class LoopbackDevice
{
public:
    explicit LoopbackDevice( const Simulators::ConfigurationGEV& aConfiguration = {},
                             Simulators::DeviceServer::Options aOptions = {} )
        : mDevice( aConfiguration )
        , mServer(
              [this]( const Simulators::Endpoint& aFrom, const uint8_t* aData, size_t aSize,
                      int64_t aNow )
              {
                  if ( mBefore )
                  {
                      mBefore( Simulators::Bytes( aData, aData + aSize ) );
                  }
                  return mDevice.Receive( aFrom, aData, aSize, aNow + mLeapMs );
              } )
    {
        aOptions.mAddress = LOOPBACK;
        EXPECT_TRUE( mServer.Open( aOptions ).IsOK() );
        mServer.Start();
    }

    unsigned short GetPort() const { return mServer.GetPort(); }

    // Called with each datagram right before the device gets it. Set it through mServer.Access; it
    // is called on the serving thread, while no other thread uses the device.
    std::function<void( const Simulators::Bytes& aDatagram )> mBefore;
    // How far the device's clock is ahead; it must not be set back. Through mServer.Access as well.
    int64_t mLeapMs = 0;

    Simulators::VirtualDeviceGEV mDevice; // while it serves, use it through mServer.Access
    Simulators::DeviceServer mServer;
};

// The virtual device on the port of the standard, which also receives broadcasts. For a test in a
// network namespace of its own.
class WellKnownDevice : public LoopbackDevice
{
public:
    explicit WellKnownDevice( const Simulators::ConfigurationGEV& aConfiguration = {} )
        : LoopbackDevice( aConfiguration, MakeOptions() )
    {
    }

private:
    static Simulators::DeviceServer::Options MakeOptions()
    {
        Simulators::DeviceServer::Options lOptions;
        lOptions.mPort = WdUtilsLib::GEV::GVCP_PORT;
        lOptions.mHearBroadcasts = true;
        return lOptions;
    }
};

} // namespace TestSupport
