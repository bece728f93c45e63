/// @file
/// HtBase: the control channel to a GigE Vision device.
#pragma once

#include <BaseCommandLink.h>
#include <HtExport.h>
#include <QmUtilsLib/Mutex.h>
#include <WdUtilsLib/GEV/CommandHeader.h>
#include <WdUtilsLib/Network/SocketUDP.h>

#include <atomic>
#include <memory>

namespace HtBaseLib
{

/// BaseCommandLinkGEV reads and writes a GigE Vision device by GVCP over UDP. A derived class
/// provides the socket, the request identifiers, the number of attempts and the answer time-out.
///
/// Every operation is one transaction: it sends one command, and sends it again until the
/// acknowledge arrives or the attempts are used up. No operation splits a transfer.
///
/// A transaction holds the link's mutex, so any thread may call at any time and the transactions of
/// one link follow one another. Different links run at the same moment. A transaction with a silent
/// device blocks for GetRetryCount() x GetAnswerTimeout(). A device that sends PENDING_ACK extends
/// that for as long as it sends them. Closing the socket from another thread ends a transaction at
/// once.
///
/// Results of a transaction:
/// - `OK`: the device has acknowledged; or no acknowledge was requested and the command was sent.
/// - `NOT_CONNECTED`: the socket is null or not open, or was closed meanwhile.
/// - `GENERIC_ERROR` without OS code: the device refused; the description says why.
/// - `GENERIC_ERROR` with OS code: the socket could not receive, or memory is missing (ENOMEM).
/// - `TIMEOUT`: no attempt was answered. Logged on the library logger.
/// - `NOT_INITIALIZED`: the derived class allows no attempt. Logged on the library logger.
///
/// A copy shares the mutex with its source and copies the counters and the connection-lost flag. A
/// copy and its source may be used at the same moment.
///
/// An assignment may run beside transactions of either link. It waits for the target's transaction,
/// not for the source's. Afterwards both links use the source's mutex, and so does a thread that
/// was waiting for the target's. The target's old mutex is kept until the target is destroyed. A
/// thread that holds it by LockMutex waits for the source's mutex and holds that one afterwards.
/// An assignment is not allowed in two cases: from within a transaction of the same thread, and,
/// unless the derived class allows it, beside a transaction that uses fields of the derived class.
class HTBASE_API BaseCommandLinkGEV : public BaseCommandLink
{
public:
    /// Constructors and assignment throw `std::bad_alloc` where memory is missing. A failed
    /// assignment changes nothing.
    ///@{
    BaseCommandLinkGEV();
    BaseCommandLinkGEV( const BaseCommandLinkGEV& aOther );
    BaseCommandLinkGEV& operator=( const BaseCommandLinkGEV& aOther );
    ///@}

    ~BaseCommandLinkGEV() override;

    /// ReadRegister reads one 32-bit register (READREG) into `*aValue`, in host order. The low 32
    /// bits of aAddress are used. It calls ReadCallback( aValue, aAddress, 4 ) after it has
    /// released the link's mutex. An acknowledge without a value is GENERIC_ERROR.
    QmUtilsLib::Result ReadRegister( unsigned int* aValue, long long aAddress );

    /// WriteRegister writes one 32-bit register (WRITEREG) from `*aValue`, in host order. It calls
    /// WriteCallback( aValue, aAddress, 4 ). With aNoAck the command asks for no acknowledge, and
    /// the operation ends when the command is sent.
    QmUtilsLib::Result WriteRegister( const unsigned int* aValue, long long aAddress, bool aNoAck );

    /// ReadMemory reads aSize bytes (READMEM). The link does not check aSize: the command's field
    /// takes the low 16 bits, and GVCP allows 536 bytes. An acknowledge with fewer than aSize bytes
    /// is GENERIC_ERROR. A read of 0 bytes is OK with any acknowledge.
    QmUtilsLib::Result ReadMemory( void* aData, long long aAddress, long long aSize ) override;

    /// WriteMemory writes 0 to 536 bytes (WRITEMEM). Any other size is 0x4001 and nothing is sent.
    /// aNoAck works as in WriteRegister.
    QmUtilsLib::Result WriteMemory( const void* aData, long long aAddress, long long aSize,
                                    bool aNoAck ) override;

    /// SendCommand runs one transaction with the caller's command, whose request identifier it
    /// sets. It receives answers into aAckBuffer, which has aAckBufferSize bytes and may hold any
    /// answer after a failure. Use aNoAck for a command whose acknowledge flag is clear.
    /// SendCommand takes the link's mutex and logs events of the link at 30000 on the link logger.
    QmUtilsLib::Result SendCommand( WdUtilsLib::GEV::CommandHeader* aCommand, void* aAckBuffer,
                                    long long aAckBufferSize, bool aNoAck );

    /// Counters since the last ResetStats. They are atomic: any thread may read or reset them at
    /// any time, and none takes the mutex.
    ///@{
    long long GetRetriesCount() const;             ///< commands sent again
    long long GetRetriesMax() const;               ///< most retries of one command
    long long GetPendingAcknowledgesCount() const; ///< PENDING_ACK received
    long long GetTransmitFailures() const;         ///< datagrams that the socket failed to send
    void ResetStats();                             ///< sets all of them to 0
    ///@}

protected:
    /// GetRetryCount returns how many times a command is sent at most, the first time included. It
    /// is called before every attempt.
    virtual int GetRetryCount() const = 0;

    /// GetAnswerTimeout returns how long one attempt waits for its answer, in milliseconds. It is
    /// called at every attempt.
    virtual int GetAnswerTimeout() const = 0;

    /// GetSocket returns the socket, connected to the device, or null. The link does not own it. A
    /// socket that was returned must stay until the transaction has ended.
    virtual WdUtilsLib::Network::SocketUDP* GetSocket() = 0;

    /// GetRequestID returns the identifier of the next command. It is called once per transaction.
    virtual unsigned short GetRequestID() = 0;

    /// LockMutex waits for the mutex of the link's transactions, ReleaseMutex releases it. The
    /// mutex is re-entrant: the thread that holds it may run transactions.
    ///@{
    void LockMutex();
    void ReleaseMutex();
    ///@}

private:
    friend class SimpleCommandLinkGEV;

    using Command = WdUtilsLib::GEV::CommandHeader;
    class HTBASE_INTERNAL Turn;
    class HTBASE_INTERNAL Assignment;
    struct HTBASE_INTERNAL Holdings;

    HTBASE_INTERNAL BaseCommandLinkGEV( const BaseCommandLinkGEV& aOther,
                                        const QmUtilsLib::LockScope& aCopyLock );
    HTBASE_INTERNAL void TakeOver( const BaseCommandLinkGEV& aOther );
    HTBASE_INTERNAL QmUtilsLib::Mutex& Acquire() const;
    HTBASE_INTERNAL void Publish();

    HTBASE_INTERNAL QmUtilsLib::Result RunAttempts( Command& aCommand, void* aAckBuffer,
                                                    long long aAckBufferSize, bool aNoAck );
    HTBASE_INTERNAL void CountRetry( int aAttempt );
    HTBASE_INTERNAL bool SendAttempt( const Command& aCommand );
    HTBASE_INTERNAL QmUtilsLib::Result WaitForAnswer( const Command& aCommand, void* aAckBuffer,
                                                      long long aAckBufferSize );
    HTBASE_INTERNAL QmUtilsLib::Result ReceiveAnswer( void* aAckBuffer, long long aAckBufferSize,
                                                      unsigned int aWait, int& aReceived );

    std::atomic<long long> mRetriesCount{ 0 };
    std::atomic<long long> mRetriesMax{ 0 };
    std::atomic<long long> mPendingAcknowledgesCount{ 0 };
    std::atomic<long long> mTransmitFailures{ 0 };

    // The mutex of the transactions. A thread that got it checks that it is still the published
    // one.
    std::atomic<QmUtilsLib::Mutex*> mPublished;
    const std::unique_ptr<Holdings> mHoldings; // owns it
};

} // namespace HtBaseLib
