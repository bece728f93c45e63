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

/// BaseCommandLinkGEV reads and writes a GigE Vision device by GVCP over UDP. A derived link brings
/// the socket, the request identifiers and the patience.
///
/// Every operation is one transaction: one command, sent again until its acknowledge has come or
/// the attempts are used up. None splits a transfer. A transaction holds the link's mutex, so any
/// thread may call at any time and transactions follow one another; links of their own run beside
/// each other. With a silent device a transaction blocks for GetRetryCount() x GetAnswerTimeout(),
/// with one that keeps asking for more time as long as it asks; closing the socket from another
/// thread ends it at once.
///
/// Results of a transaction:
///     OK             the device has acknowledged, or none was asked for and the command has left
///     NOT_CONNECTED  no socket, or a socket that is not open; also when it is closed meanwhile
///     GENERIC_ERROR  without OS code: the device refused, the description says why; with one: the
///                    socket could not receive, the OS code says why, or memory is missing (ENOMEM)
///     TIMEOUT        no answer to any attempt; logged on the library logger
///     NOT_INITIALIZED  the derived link allows no attempt at all; logged on the library logger
///
/// Copies share the mutex; the counters and the connection-lost flag are copied. A copy and its
/// source may be used at the same moment.
///
/// Assigning may run beside transactions of either link: it waits for the one of the target, and
/// for none of the source. Afterwards the transactions of both follow one another, also that of a
/// thread that waited meanwhile. The mutex that the target had is kept until the target is
/// destroyed. A thread that holds it by LockMutex waits for the source's and holds that afterwards.
/// A link must not be assigned to in the middle of a transaction of the same thread; nor beside a
/// transaction where it is a derived link with fields of its own that transactions use, unless that
/// says so.
class HTBASE_API BaseCommandLinkGEV : public BaseCommandLink
{
public:
    /// Throw std::bad_alloc where there is no memory; an assignment has changed nothing then.
    ///@{
    BaseCommandLinkGEV();
    BaseCommandLinkGEV( const BaseCommandLinkGEV& aOther );
    BaseCommandLinkGEV& operator=( const BaseCommandLinkGEV& aOther );
    ~BaseCommandLinkGEV() override;
    ///@}

    /// ReadRegister reads one 32-bit register (READREG) into *aValue, in host order, and calls
    /// ReadCallback( aValue, aAddress, 4 ) after the link's mutex was released. On failure *aValue
    /// is unchanged. An acknowledge that carries no value is GENERIC_ERROR. Of the address the low
    /// 32 bits count.
    QmUtilsLib::Result ReadRegister( unsigned int* aValue, long long aAddress );

    /// WriteRegister writes one 32-bit register (WRITEREG), given in host order, and calls
    /// WriteCallback( aValue, aAddress, 4 ). With aNoAck the device is told not to acknowledge, and
    /// the operation ends as soon as the command has left.
    QmUtilsLib::Result WriteRegister( const unsigned int* aValue, long long aAddress, bool aNoAck );

    /// ReadMemory reads aSize bytes (READMEM), of which the device gives at most 536 at a time; a
    /// larger request is sent as it is and the device decides. The field that carries the size has
    /// 16 bits. An acknowledge that carries fewer bytes is GENERIC_ERROR, and aData is unchanged. A
    /// read of 0 bytes is OK with any acknowledge.
    QmUtilsLib::Result ReadMemory( void* aData, long long aAddress, long long aSize ) override;

    /// WriteMemory writes 0 to 536 bytes (WRITEMEM); any other size is 0x4001 and nothing is sent.
    /// With aNoAck as WriteRegister.
    QmUtilsLib::Result WriteMemory( const void* aData, long long aAddress, long long aSize,
                                    bool aNoAck ) override;

    /// SendCommand runs one transaction with a finished command of the caller's, which is stamped
    /// with the request identifier. Answers are received into aAckBuffer of aAckBufferSize bytes;
    /// its contents after a failure are whatever came. A command whose acknowledge flag is clear
    /// goes with aNoAck. Takes the link's mutex; logs the events of the link at 30000 on the link
    /// logger.
    QmUtilsLib::Result SendCommand( WdUtilsLib::GEV::CommandHeader* aCommand, void* aAckBuffer,
                                    long long aAckBufferSize, bool aNoAck );

    /// What has happened on the link since the last ResetStats. Atomic, so they may be asked, and
    /// reset, at any time from any thread; none takes the mutex.
    ///@{
    long long GetRetriesCount() const;             ///< commands sent again
    long long GetRetriesMax() const;               ///< most re-sends that one command needed
    long long GetPendingAcknowledgesCount() const; ///< times a device asked for more time
    long long GetTransmitFailures() const;         ///< datagrams that the socket refused to send
    void ResetStats();
    ///@}

protected:
    /// How often a command is sent at most, the first time included; asked before every attempt.
    virtual int GetRetryCount() const = 0;

    /// Milliseconds to wait for the answer to one attempt; asked at every attempt.
    virtual int GetAnswerTimeout() const = 0;

    /// The socket, connected to the device, or null. Not owned. Once it was not null it must not
    /// become null before the transaction has ended.
    virtual WdUtilsLib::Network::SocketUDP* GetSocket() = 0;

    /// The identifier of the next command; asked once per transaction.
    virtual unsigned short GetRequestID() = 0;

    /// Wait for, and release, the mutex that serialises the link's transactions. It is re-entrant:
    /// who holds it may run transactions.
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

    // The mutex of the transactions. Whoever has waited for it looks whether it still is.
    std::atomic<QmUtilsLib::Mutex*> mPublished;
    const std::unique_ptr<Holdings> mHoldings; // owns it
};

} // namespace HtBaseLib
