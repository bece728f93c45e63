/// @file
/// HtBase: the control channel to a GigE Vision device over a socket of the caller's.
#pragma once

#include <BaseCommandLinkGEV.h>
#include <HtExport.h>

#include <atomic>
#include <memory>

namespace HtBaseLib
{

/// SimpleCommandLinkGEV is the link for a caller who has nothing but a socket connected to a
/// device: three attempts per command with 400 ms for each answer, so a silent device costs 1.2 s.
///
/// The socket is borrowed: it must outlive the link, and the link never opens or closes it. Two
/// links on one socket at the same moment take each other's answers. Copies share the socket, the
/// mutex and the logger, so their transactions follow one another.
///
/// Copying and assigning may run beside anything else on either link. What is taken over belongs
/// together; what an assignment has replaced is kept until the link is destroyed.
class HTBASE_API SimpleCommandLinkGEV : public BaseCommandLinkGEV
{
public:
    /// A link on that socket. With null, or while the socket is closed, transactions are
    /// NOT_CONNECTED. What makes, copies or assigns a link throws std::bad_alloc where there is no
    /// memory, as the base's does.
    ///@{
    explicit SimpleCommandLinkGEV( WdUtilsLib::Network::SocketUDP* aSocket );
    SimpleCommandLinkGEV( const SimpleCommandLinkGEV& aOther );
    SimpleCommandLinkGEV& operator=( const SimpleCommandLinkGEV& aOther );
    ~SimpleCommandLinkGEV() override;
    ///@}

    /// NOT_SUPPORTED, and nothing else: the socket is the caller's.
    QmUtilsLib::Result Close() override;

    /// Always true: whether the device can be reached, only a transaction can tell.
    bool IsConnected() const override;

protected:
    /// One logger, "HtBaseLib", for both.
    ///@{
    QmUtilsLib::Logger* GetLibLogger() override;
    QmUtilsLib::Logger* GetLinkLogger() override;
    ///@}

    int GetRetryCount() const override;    ///< 3
    int GetAnswerTimeout() const override; ///< 400
    WdUtilsLib::Network::SocketUDP* GetSocket() override;

    /// Identifiers lie in 0xB000 to 0xBFFF, drawn from one counter of the process; the first is
    /// 0xB001. Safe from any thread.
    unsigned short GetRequestID() override;

private:
    HTBASE_INTERNAL SimpleCommandLinkGEV( const SimpleCommandLinkGEV& aOther,
                                          const QmUtilsLib::LockScope& aCopyLock );

    HTBASE_INTERNAL static std::atomic<unsigned short> mRequestID;

    WdUtilsLib::Network::SocketUDP* mSocket;
    std::shared_ptr<QmUtilsLib::Logger> mLogger;
};

} // namespace HtBaseLib
