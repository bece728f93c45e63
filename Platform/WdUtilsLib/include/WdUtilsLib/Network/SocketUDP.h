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
/// Results: on a closed socket every operation is NOT_CONNECTED. A receive that gets nothing in
/// time is TIMEOUT. Any other failure is GENERIC_ERROR with an errno value as OS code.
///
/// Threads: Close may run beside any other operation, from any thread: a thread that waits in one
/// ends with NOT_CONNECTED. Open and Close must not run at the same moment. Nothing may run beside
/// the destructor. Of two threads that receive on one socket, either may get a datagram. A signal
/// ends no wait early.
class WDUTILSLIB_API SocketUDP
{
public:
    /// A closed socket. Throws `std::bad_alloc` where memory is missing.
    SocketUDP();
    ~SocketUDP(); ///< closes

    SocketUDP( const SocketUDP& ) = delete;
    SocketUDP& operator=( const SocketUDP& ) = delete;

    /// Open binds to a local address (null: any) and port (0: the system chooses a free one). With
    /// aShareAddress other sockets may bind the same address and port; a device that receives
    /// both broadcasts and datagrams to its own address needs it. An open socket is closed before,
    /// and stays closed on failure.
    QmUtilsLib::Result Open( const IpAddress* aLocalAddress = nullptr,
                             unsigned short aLocalPort = 0, bool aShareAddress = false );

    /// Connect sets the peer: Send sends to it, and only its datagrams are received. It drops the
    /// datagrams that have arrived before, from any sender, at most 65536, and a pending error of
    /// an earlier peer. It sends nothing.
    QmUtilsLib::Result Connect( const IpAddress& aPeer, unsigned short aPort );

    /// SetBroadcast allows or forbids sending to broadcast addresses.
    QmUtilsLib::Result SetBroadcast( bool aEnable );

    /// IsOpened tells whether the socket is open. It is one atomic load.
    bool IsOpened() const;

    /// Send sends one datagram of aLength bytes, 0 included, to the connected peer. Where the
    /// system refuses it because an earlier datagram found no receiver, Send tries once more. OK
    /// when it was sent, also if the socket was closed meanwhile.
    QmUtilsLib::Result Send( const void* aData, int aLength );

    /// SendTo sends one datagram to the given address and port.
    QmUtilsLib::Result SendTo( const void* aData, int aLength, const IpAddress& aAddress,
                               unsigned short aPort );

    /// Receive takes one datagram, cut to aSize bytes, and sets aReceived to the bytes stored. It
    /// waits for the time of SetTimeoutRx. GENERIC_ERROR with ECONNREFUSED: no socket listens at
    /// the connected peer.
    QmUtilsLib::Result Receive( void* aBuffer, int aSize, int& aReceived );

    /// ReceiveFrom does the same and gives the sender's address and port.
    QmUtilsLib::Result ReceiveFrom( void* aBuffer, int aSize, int& aReceived, IpAddress& aAddress,
                                    unsigned short& aPort );

    /// SetTimeoutRx sets how long Receive and ReceiveFrom wait, in milliseconds. 0, which a newly
    /// opened socket has: they do not wait.
    QmUtilsLib::Result SetTimeoutRx( unsigned int aTimeout );

    /// SelectOnRx waits until one of aCount sockets has something to receive, at most aTimeout
    /// milliseconds. It returns the first such socket, or null. A socket with an error or a
    /// hang-up, or a closed one, counts too: its receive returns the reason. When the wait fails,
    /// or memory for more than 8 sockets is missing, it returns the first socket, whose next
    /// receive is GENERIC_ERROR with that errno value. aIndex may be null; otherwise it is set to
    /// the position of the returned socket.
    static SocketUDP* SelectOnRx( SocketUDP** aSockets, unsigned int aCount, unsigned int aTimeout,
                                  unsigned int* aIndex );

    /// Close closes the socket. OK also when it is not open.
    QmUtilsLib::Result Close();

    IpAddress GetLocalAddress() const;   ///< 0.0.0.0 when closed
    unsigned short GetLocalPort() const; ///< 0 when closed

private:
    class Implementation;
    std::unique_ptr<Implementation> mThis;
};

} // namespace Network
} // namespace WdUtilsLib
