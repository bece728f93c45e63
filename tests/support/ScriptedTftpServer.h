// The virtual TFTP server on the scripted network, with faults in both directions.
#pragma once

#include "Simulators/FaultPlan.h"
#include "Simulators/TFTP/VirtualTftpServer.h"

#include <WdUtilsLib/Scripted/Network.h>

#include <utility>
#include <vector>

namespace TestSupport
{

// ScriptedTftpServer takes every datagram that no script of the network expects. Port 69 is the
// server's listening port; any other port is a transfer port. Datagrams that a fault plan delays
// arrive late in virtual time, in either direction. It must outlive the talk.
class ScriptedTftpServer
{
public:
    using Network = WdUtilsLib::Scripted::ScriptedNetwork;

    ScriptedTftpServer( Network& aNetwork, const Simulators::FaultPlan& aRequests,
                        const Simulators::FaultPlan& aAnswers )
        : mRequests( aRequests )
        , mAnswers( aAnswers )
    {
        aNetwork.Attach( [this]( const Network::Sent& aSent ) { return OnSend( aSent ); } );
    }

    explicit ScriptedTftpServer( Network& aNetwork )
        : ScriptedTftpServer( aNetwork, { {}, 0 }, { {}, 0 } )
    {
    }

    ScriptedTftpServer( const ScriptedTftpServer& ) = delete;
    ScriptedTftpServer& operator=( const ScriptedTftpServer& ) = delete;

    Simulators::VirtualTftpServer mServer;
    Simulators::FaultPlan mRequests; // on the way to the server
    Simulators::FaultPlan mAnswers;  // on the way back

private:
    static constexpr unsigned short PORT = 69;

    std::vector<Network::Answer> OnSend( const Network::Sent& aSent )
    {
        Simulators::Outgoing lSent;
        lSent.mBytes = aSent.mBytes;
        lSent.mTo = { aSent.mFrom.mAddress.GetValue(), aSent.mFrom.mPort };
        lSent.mFromPort = aSent.mTo.mPort == PORT ? uint16_t{ 0 } : aSent.mTo.mPort;
        std::vector<Network::Answer> lAnswers;
        for ( const Simulators::Outgoing& lRequest : mRequests.Apply( lSent ) )
        {
            Network::Answer lArrival;
            lArrival.mAfterMs = lRequest.mDelayMs;
            lArrival.mContinuation =
                [this, lRequest, lDevice = aSent.mTo.mAddress]( long long aNow )
            {
                return Deliver( lRequest, lDevice, aNow );
            };
            lAnswers.push_back( std::move( lArrival ) );
        }
        return lAnswers;
    }

    std::vector<Network::Answer> Deliver( const Simulators::Outgoing& aRequest,
                                          const WdUtilsLib::Network::IpAddress& aDevice,
                                          long long aNow )
    {
        std::vector<Network::Answer> lAnswers;
        for ( const Simulators::Outgoing& lSent :
              mServer.Receive( aRequest.mTo, aRequest.mFromPort, aRequest.mBytes.data(),
                               aRequest.mBytes.size(), aNow ) )
        {
            for ( const Simulators::Outgoing& lAnswer : mAnswers.Apply( lSent ) )
            {
                const unsigned short lPort = lAnswer.mFromPort == 0 ? PORT : lAnswer.mFromPort;
                lAnswers.push_back( { lAnswer.mBytes, lAnswer.mDelayMs,
                                      WdUtilsLib::Scripted::Peer{ aDevice, lPort } } );
            }
        }
        return lAnswers;
    }
};

} // namespace TestSupport
