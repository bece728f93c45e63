/// @file
/// HtBase: files to and from a device by TFTP.
#pragma once

#include <HtExport.h>
#include <HtResult.h>
#include <HtString.h>

namespace HtBaseLib
{
class TftpClient;
}

/// HtTftpClient sends a file or a block of memory to a device, or fetches the beginning of one, by
/// TFTP (RFC 1350): octet mode, blocks of 512 bytes, no options, requests to UDP port 69.
///
/// A transfer runs on the thread that calls for it, until it has ended. Meanwhile any other thread
/// may call Abort, GetProgress, GetWarning and GetTransferResult; they wait for nothing but one
/// another. Init and the destructor must not run beside a transfer. After Init any number of
/// transfers may follow one another.
///
/// Results of a transfer:
///     0x0000  OK: it came to its end
///     0x0001  aborted, see Abort
///     0x0013  failed; the description is the device's own message, or tells that nothing usable
///     has
///             come for 21 waits of 1000 ms, or answers, in a row
///     0x001C  another transfer of this client is running; nothing has changed
///     0x4000  SendFile: there is no such file. Only the returned object itself tells the internal
///             code 0x0010. Any transfer, with ENOMEM as OS code: memory is missing
/// A device that never answers costs 21 seconds. A device's message may be any bytes: it is a text
/// for people, never a format.
///
/// What goes wrong while a local file is opened, read or written is not reported: zeros are sent in
/// place of what cannot be read. A FIFO counts as a file that cannot be opened. An application that
/// must know reads the file itself and uses SendData, and fetches by GetData and writes the file
/// itself. It also sees to it that what it sends is a regular file of less than 4 GiB, and that
/// the device's name for it has at most 1015 bytes: a longer one is asserted in a debug build and
/// never sent, which looks like a device that does not answer.
///
/// A failure for whose description memory is missing has none.
///
/// What a device does with two senders is its business; run one transfer to a device at a time. Not
/// copyable.
class HTBASE_API HtTftpClient
{
public:
    HtTftpClient();  ///< may throw std::bad_alloc
    ~HtTftpClient(); ///< no transfer may be running

    HtTftpClient( const HtTftpClient& ) = delete;
    HtTftpClient& operator=( const HtTftpClient& ) = delete;

    /// Init sets the device's IPv4 address, in dotted decimal, and the name that the file has
    /// there. 0x4001, logged at priority 40000, when the address is none, or 0x4000 with ENOMEM as
    /// OS code; what an earlier Init has set then stays.
    HtResult Init( const HtString& aAddress, const HtString& aRemoteFileName );

    /// Sends the local file aPath. A path that is not there is found out before anything is sent;
    /// GetTransferResult then tells 0xFFFF until the next transfer.
    HtResult SendFile( const HtString& aPath );

    /// Sends aSize bytes, which are only read. aData may be null when aSize is 0.
    HtResult SendData( const unsigned char* aData, unsigned int aSize );

    /// Fetches the first block, at most 512 bytes of the device's file, into the local file aPath,
    /// which is made or emptied first. With an empty path that is the name that was given to Init.
    ///
    /// A read ends with the first datagram that comes. A first block of 512 bytes or more may not
    /// be all; and OK with the warning "Unexpected packet" or "Unexpected block ID. Resending ACK"
    /// means that what came was no first block and nothing was stored.
    HtResult GetFile( const HtString& aPath );

    /// Does the same into aSize bytes at aBuffer. *aReceived is how many were stored, and 0 unless
    /// the result is OK. What does not fit is dropped. A zero byte follows the data where there is
    /// room, so the bytes at aBuffer may also change when the transfer fails.
    HtResult GetData( unsigned char* aBuffer, unsigned int aSize, unsigned int* aReceived );

    /// How many bytes of a send the device has acknowledged, and how many there are. The last block
    /// is never counted: 700 bytes end at 512 of 700. During and after a fetch aDone is 0 and
    /// aTotal what the last send had. NOT_INITIALIZED before the first transfer; both are then
    /// unchanged.
    HtResult GetProgress( long long& aDone, long long& aTotal );

    /// The result of the running transfer, 0xFFFF, or of the last one: OK, 0x0013 with a
    /// description, or 0x4000. NOT_INITIALIZED before the first transfer. After an abort, and after
    /// a SendFile without a file, it stays 0xFFFF until the next transfer.
    HtResult GetTransferResult() const;

    /// Takes the oldest warning of the running or last transfer: OK, or 0x0015 when there is none;
    /// aText is then empty, whatever it was before. 0x4000 with ENOMEM as OS code when there is no
    /// memory for it: aText is unchanged and the warning is lost. Starting a transfer drops the
    /// warnings.
    HtResult GetWarning( HtString& aText );

    /// Tells the running transfer to end: OK. It ends before its next turn, after 1000 ms at most.
    /// 0x001C when GetTransferResult is not 0xFFFF, since there is nothing to abort.
    HtResult Abort();

private:
    HtBaseLib::TftpClient* mThis; // owned
};
