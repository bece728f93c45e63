// The virtual TFTP server on 127.0.0.1.
#pragma once

#include "Simulators/Servers/DeviceServer.h"
#include "Simulators/TFTP/VirtualTftpServer.h"

#include <QmUtilsLib/Result.h>
#include <WdUtilsLib/Network/IpAddress.h>

#include <string>

namespace TestSupport
{

// LoopbackTftpServer serves on port 69 of 127.0.0.1, by a thread of its own. The process must be in
// a network of its own, see NetworkNamespace.h.
class LoopbackTftpServer
{
public:
    static constexpr const char* ADDRESS = "127.0.0.1";

    explicit LoopbackTftpServer( Simulators::DeviceServer::Options aOptions = {} )
        : mHost( [this]( const Simulators::Endpoint& aFrom, uint16_t aToPort, const uint8_t* aData,
                         size_t aSize, int64_t aNow )
                 { return mServer.Receive( aFrom, aToPort, aData, aSize, aNow ); } )
    {
        aOptions.mAddress = WdUtilsLib::Network::IpAddress( 0x7F000001 );
        aOptions.mPort = 69;
        mOpened = mHost.Open( aOptions );
        mHost.Start();
    }

    // OK when it serves.
    const QmUtilsLib::Result& GetOpened() const { return mOpened; }

    // Calls aFunction with the server while it handles no datagram.
    template <typename Function>
    auto Access( Function&& aFunction )
    {
        return mHost.Access( [&] { return aFunction( mServer ); } );
    }

    // A copy of a file; empty if there is none.
    Simulators::Bytes GetFile( const std::string& aName )
    {
        return Access(
            [&]( const Simulators::VirtualTftpServer& aServer )
            {
                const Simulators::Bytes* const lFile = aServer.FindFile( aName );
                return lFile != nullptr ? *lFile : Simulators::Bytes();
            } );
    }

private:
    Simulators::VirtualTftpServer mServer;
    Simulators::DeviceServer mHost;
    QmUtilsLib::Result mOpened;
};

} // namespace TestSupport
