// The engine behind HtTftpClient: one TFTP transfer at a time with one device.
#pragma once

#include "Libraries/HtBase/IoStream.h"
#include "Libraries/HtBase/TftpData.h"

#include <QmUtilsLib/Mutex.h>
#include <QmUtilsLib/Result.h>
#include <WdUtilsLib/Network/IpAddress.h>
#include <WdUtilsLib/Network/SocketUDP.h>

#include <atomic>
#include <cstdint>
#include <list>
#include <memory>
#include <string>

namespace HtBaseLib
{

// TftpClient speaks TFTP (RFC 1350) in octet mode, blocks of 512 bytes and without options.
//
// A transfer runs on its caller's thread until it has ended; one that is called meanwhile is BUSY
// and changes nothing. Abort, GetProgress, GetWarning and GetTransferResult may be called from any
// thread at any time; nothing is locked but the list of warnings and the copy of the result, for a
// moment. Init and the destructor must not run beside a transfer.
//
// Results of a transfer:
//   OK       it has succeeded
//   ABORTED  see Abort
//   0x0010   there is no file to send
//   0x0013   it failed; the description says why: the device's own message, or that nothing usable
//            has come for 21 waits in a row. Without memory for the description there is none
//   0x4000   with ENOMEM as OS code: memory for anything else is missing
//   BUSY     a transfer is running
// Failures to send a datagram, and to open, read or write a local file, are not reported. A FIFO
// counts as a file that cannot be opened, since opening it might wait for ever.
//
// Nothing is logged. An exception of the caller's own code passes; the transfer's result is then
// 0x4000. The constructor may throw std::bad_alloc.
class TftpClient
{
public:
    TftpClient();
    virtual ~TftpClient();

    TftpClient( const TftpClient& ) = delete;
    TftpClient& operator=( const TftpClient& ) = delete;

    // Sets the device and the name of the file there, for the transfers to come. OK, or 0x4000 with
    // ENOMEM as OS code, and nothing has changed.
    QmUtilsLib::Result Init( const WdUtilsLib::Network::IpAddress& aAddress,
                             const char* aRemoteFileName );

    // Sends a local file. Only the low 32 bits of its size count; a file that is not regular has
    // size 0. If there is no file, nothing is sent and the result stays PENDING until the next
    // transfer.
    QmUtilsLib::Result SendFile( const char* aPath );

    // Sends aSize bytes. Nothing is ever stored in them.
    QmUtilsLib::Result SendData( const unsigned char* aData, unsigned int aSize );

    // Fetches the first block of the device's file into a local one, which is created or emptied.
    // An empty path means the device's name for it.
    QmUtilsLib::Result GetFile( const char* aPath );

    // Fetches the first block of the device's file into aSize bytes at aBuffer; then aSize is the
    // number of bytes stored, also on failure. A zero byte follows the data where there is room.
    QmUtilsLib::Result GetData( unsigned char* aBuffer, unsigned int& aSize );

    // Makes the transfer end after its current wait of at most 1000 ms, and returns OK at once.
    // BUSY if the result is not PENDING, since there is nothing to abort.
    QmUtilsLib::Result Abort();

    // Moves the oldest warning into aText; 0x0015 when there is none, and aText is unchanged.
    QmUtilsLib::Result GetWarning( std::string& aText );

    // The result of the running transfer, PENDING, or of the last one: OK, 0x0013 or 0x4000.
    // NOT_INITIALIZED before the first. An aborted one stays PENDING.
    QmUtilsLib::Result GetTransferResult() const;

    // How many bytes of a send the device has acknowledged, the last block not counted, and how
    // many there are. NOT_INITIALIZED before the first transfer. Fetching changes only that aDone
    // becomes 0.
    QmUtilsLib::Result GetProgress( long long& aDone, long long& aTotal ) const;

private:
    class CountStored;
    class Hold;
    struct Failure;

    template <typename Stream, typename... Arguments>
    Stream& Start( Arguments... aArguments );
    void End();
    void OpenFile( IoStreamFile& aFile, const char* aPath, const char* aMode ) const;

    template <typename Transfer>
    QmUtilsLib::Result Run( const Transfer& aTransfer );
    QmUtilsLib::Result SendLoop();
    void OfferFile();
    QmUtilsLib::Result SendBlocks();
    void SendBlock();
    void ReadBlock();
    bool WaitForAck( bool aCheckBlock );
    void CountMissingAck();

    QmUtilsLib::Result ReceiveLoop();
    void HandleDatagram( unsigned int aCount );
    void RefuseBlock();
    void CountMissingData();

    template <typename Request>
    void SendRequest();
    void SendAck();
    void Send( unsigned int aCount, unsigned short aPort );
    bool Receive( unsigned int& aCount );
    void RaiseError( unsigned int aCount ) const;
    [[noreturn]] static void Raise( const char* aText );

    void QueueWarning( std::string aText );
    void SetTransferResult( QmUtilsLib::Result aResult );

    WdUtilsLib::Network::SocketUDP mSocket;
    std::unique_ptr<IoStream> mStream; // while a transfer runs
    std::atomic<uint32_t> mTotalSize{ 0 };
    uint16_t mBlockID = 1; // that is sent or expected; wraps
    std::atomic<uint32_t> mBytesDone{ 0 };
    bool mIsLastBlock = false;
    WdUtilsLib::Network::IpAddress mDeviceAddress;
    std::string mRemoteFileName;
    unsigned short mDevicePort = 0; // of the last datagram received
    uint32_t mBlockLength = 0;
    uint32_t mRetries = 0;
    TftpData mData; // kept, so that the block can be sent again
    const std::unique_ptr<unsigned char[]> mPacket;
    const std::unique_ptr<unsigned char[]> mStaging;
    std::atomic<bool> mIsAborted{ false };

    // The result: its code, and all of it. The lock is held only while the result is copied, which
    // allocates nothing, or swapped.
    std::atomic<unsigned int> mResultCode{ QmUtilsLib::Result::NOT_INITIALIZED };
    QmUtilsLib::Result mResult QMUTILSLIB_GUARDED_BY( mResultMutex );
    mutable QmUtilsLib::Mutex mResultMutex;

    std::list<std::string> mWarnings QMUTILSLIB_GUARDED_BY( mMutex ); // oldest first
    QmUtilsLib::Mutex mMutex;

    std::atomic<bool> mIsRunning{ false };
};

} // namespace HtBaseLib
