/// @file
/// HtBase: the control channel to a GigE Vision device over the caller's socket.
#pragma once

#include <BaseCommandLinkGEV.h>
#include <HtExport.h>

#include <atomic>
#include <memory>

namespace HtBaseLib
{

/// SimpleCommandLinkGEV is the link over a socket that the caller has connected to a device. It
/// makes three attempts per command and waits 400 ms for each answer, so a silent
/// device costs 1.2 s.
///
/// The socket is borrowed: it must outlive the link, and the link neither opens nor closes it. Two
/// independent links on one socket receive each other's answers. Copies share the socket, the mutex
/// and the logger, so their transactions follow one another.
///
/// Copying and assigning may run beside any other operation of either link, and take over all
/// values of the source at one moment. What an assignment has replaced is kept until the link is
/// destroyed.
class HTBASE_API SimpleCommandLinkGEV : public BaseCommandLinkGEV
{
public:
    /// A link on aSocket. With null, or while the socket is closed, transactions are NOT_CONNECTED.
    /// Constructors and assignment throw `std::bad_alloc` where memory is missing. A failed
    /// assignment changes nothing.
    ///@{
    explicit SimpleCommandLinkGEV( WdUtilsLib::Network::SocketUDP* aSocket );
    SimpleCommandLinkGEV( const SimpleCommandLinkGEV& aOther );
    SimpleCommandLinkGEV& operator=( const SimpleCommandLinkGEV& aOther );
    ///@}

    ~SimpleCommandLinkGEV() override;

    /// Close does nothing and returns NOT_SUPPORTED, since the socket is the caller's.
    QmUtilsLib::Result Close() override;

    /// IsConnected is always true. Only a transaction shows whether the device can be reached.
    bool IsConnected() const override;

protected:
    /// Both return the link's one logger, `HtBaseLib`.
    ///@{
    QmUtilsLib::Logger* GetLibLogger() override;
    QmUtilsLib::Logger* GetLinkLogger() override;
    ///@}

    int GetRetryCount() const override;                   ///< 3
    int GetAnswerTimeout() const override;                ///< 400 ms
    WdUtilsLib::Network::SocketUDP* GetSocket() override; ///< the socket of the constructor

    /// GetRequestID returns 0xB000 to 0xBFFF from one counter of the process. The first is 0xB001.
    /// Safe from any thread.
    unsigned short GetRequestID() override;

private:
    HTBASE_INTERNAL SimpleCommandLinkGEV( const SimpleCommandLinkGEV& aOther,
                                          const QmUtilsLib::LockScope& aCopyLock );

    HTBASE_INTERNAL static std::atomic<unsigned short> mRequestID;

    WdUtilsLib::Network::SocketUDP* mSocket;
    std::shared_ptr<QmUtilsLib::Logger> mLogger;
};

} // namespace HtBaseLib
