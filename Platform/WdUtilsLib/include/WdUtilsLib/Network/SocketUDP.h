/// @file
/// WdUtilsLib: UDP sockets.
#pragma once

#include <QmUtilsLib/Result.h>
#include <WdUtilsLib/Export.h>
#include <WdUtilsLib/Network/IpAddress.h>

#include <memory>

namespace WdUtilsLib
{
namespace Network
{

/// SocketUDP is an IPv4 UDP socket.
///
/// On a closed socket every operation is NOT_CONNECTED. Other failures are GENERIC_ERROR with the
/// operating system's error number as OS code, except that nothing received in time is TIMEOUT.
/// Outputs are unchanged on failure.
///
/// A signal ends no wait early. Close may run beside any other operation, from any thread: whoever
/// waits in one is woken and ends with NOT_CONNECTED. Open and Close must not run at the same
/// moment, nor may the destructor run beside anything. Two threads that receive on one socket share
/// its datagrams as chance has it.
class WDUTILSLIB_API SocketUDP
{
public:
    /// A closed socket. May throw std::bad_alloc.
    ///@{
    SocketUDP();
    ~SocketUDP(); ///< closes
    ///@}

    SocketUDP( const SocketUDP& ) = delete;
    SocketUDP& operator=( const SocketUDP& ) = delete;

    /// Open binds to a local address (null: any) and port (0: the system chooses a free one). With
    /// aShareAddress other sockets may bind the same address and port, as a device must that hears
    /// broadcasts beside its own address. An open socket is closed first; it stays closed when the
    /// new one cannot be had.
    QmUtilsLib::Result Open( const IpAddress* aLocalAddress = nullptr,
                             unsigned short aLocalPort = 0, bool aShareAddress = false );

    /// Connect sets the peer: Send sends to it, and only its datagrams are received. What has
    /// arrived before is dropped, whoever sent it, and so is the report that an earlier peer does
    /// not listen; of a flood 65536 datagrams at most. Nothing is sent.
    QmUtilsLib::Result Connect( const IpAddress& aPeer, unsigned short aPort );

    /// SetBroadcast allows, or forbids again, sending to broadcast addresses.
    QmUtilsLib::Result SetBroadcast( bool aEnable );

    /// IsOpened tells whether the socket can be used: one atomic load.
    bool IsOpened() const;

    /// Send sends one datagram of aLength bytes (0 is allowed) to the connected peer. When the
    /// system refuses it only because an earlier datagram found no receiver, it is sent once more.
    /// OK when it has left, also if the socket was closed meanwhile.
    QmUtilsLib::Result Send( const void* aData, int aLength );

    /// SendTo sends one datagram to the given address and port.
    QmUtilsLib::Result SendTo( const void* aData, int aLength, const IpAddress& aAddress,
                               unsigned short aPort );

    /// Receive takes one datagram, cut to aSize bytes, and sets aReceived to the bytes stored. It
    /// waits no longer than the time-out of SetTimeoutRx; where none was set it does not wait at
    /// all. GENERIC_ERROR with ECONNREFUSED tells that nobody listens at the connected peer.
    QmUtilsLib::Result Receive( void* aBuffer, int aSize, int& aReceived );

    /// ReceiveFrom is Receive that also tells who sent the datagram.
    QmUtilsLib::Result ReceiveFrom( void* aBuffer, int aSize, int& aReceived, IpAddress& aAddress,
                                    unsigned short& aPort );

    /// SetTimeoutRx sets how long Receive and ReceiveFrom wait, in milliseconds; 0: not at all.
    /// A newly opened socket does not wait.
    QmUtilsLib::Result SetTimeoutRx( unsigned int aTimeout );

    /// SelectOnRx waits until one of aCount sockets has something to receive, at most aTimeout
    /// milliseconds, and returns the first such socket, or null. An error, a hang-up or a socket
    /// that is closed counts as something to receive, so that the receive can tell. Where the wait
    /// itself fails, or memory for more than 8 sockets is missing, the first socket is returned and
    /// its next receive is GENERIC_ERROR with that error's number. aIndex may be null; otherwise it
    /// is set to the place of the returned socket. The sockets are borrowed for the call.
    static SocketUDP* SelectOnRx( SocketUDP** aSockets, unsigned int aCount, unsigned int aTimeout,
                                  unsigned int* aIndex );

    /// Close closes the socket. OK also when it is closed already.
    QmUtilsLib::Result Close();

    /// The local address and port; 0.0.0.0 and 0 when closed.
    ///@{
    IpAddress GetLocalAddress() const;
    unsigned short GetLocalPort() const;
    ///@}

private:
    class Implementation;
    std::unique_ptr<Implementation> mThis;
};

} // namespace Network
} // namespace WdUtilsLib
