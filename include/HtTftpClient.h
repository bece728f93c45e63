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

/// HtTftpClient sends a file or a block of memory to a device by TFTP (RFC 1350), or fetches the
/// first block of a file from it. It uses octet mode, blocks of 512 bytes, no options, and sends
/// requests to UDP port 69.
///
/// A transfer runs on its caller's thread until it has ended. Meanwhile any other thread may call
/// Abort, GetProgress, GetWarning and GetTransferResult, which wait for one another only. Init and
/// the destructor must not run beside a transfer. Any number of transfers may follow one Init. Not
/// copyable.
///
/// Results of a transfer:
/// - 0x0000 (`OK`): it has come to its end.
/// - 0x0001: it was aborted, see Abort.
/// - 0x0013: it failed. The description is the device's own message, or says that nothing usable
///   came in 21 waits of 1000 ms, or answers, in a row.
/// - 0x001C: another transfer of this client is running. Nothing changes.
/// - 0x4000 without OS code, of SendFile: the file does not exist. The internal code of the
///   returned object, not of a copy, is 0x0010.
/// - 0x4000 with ENOMEM as OS code: memory is missing.
///
/// A device that never answers makes a transfer block for 21 s. A device's message may hold any
/// bytes: it is never a format. Where memory for a description is missing, the result has none. Run
/// one transfer to a device at a time: what a device does with two is not defined.
///
/// Limits that the client does not check:
/// - Failures to open, read or write a local file are not reported. Zeros are sent for what cannot
///   be read. Where this matters, read the file and use SendData, or use GetData and write the
///   file.
/// - A file to be sent must be a regular file of less than 4 GiB. A FIFO counts as a file that
///   cannot be opened.
/// - The remote file name must have at most 1015 bytes. The request for a longer one is not sent,
///   so the transfer fails as with a silent device; a debug build asserts.
class HTBASE_API HtTftpClient
{
public:
    HtTftpClient(); ///< throws `std::bad_alloc` where memory is missing
    ~HtTftpClient();

    HtTftpClient( const HtTftpClient& ) = delete;
    HtTftpClient& operator=( const HtTftpClient& ) = delete;

    /// Init sets the device's IPv4 address, in dotted decimal, and the name of the file on the
    /// device. 0x4001, logged at 40000: aAddress is not an address. 0x4000 with ENOMEM as OS code:
    /// memory is missing. A failed Init leaves what an earlier one has set.
    HtResult Init( const HtString& aAddress, const HtString& aRemoteFileName );

    /// SendFile sends the local file aPath. It checks before sending whether the file exists. After
    /// a file that does not exist, GetTransferResult is 0xFFFF until the next transfer.
    HtResult SendFile( const HtString& aPath );

    /// SendData sends aSize bytes at aData, which it does not change. aData may be null when aSize
    /// is 0.
    HtResult SendData( const unsigned char* aData, unsigned int aSize );

    /// GetFile fetches the first block of the device's file, 512 bytes by the standard, into the
    /// local file aPath, which it creates or empties before. When aPath is empty, the local file
    /// has the name that was given to Init.
    ///
    /// The transfer ends with the first datagram that arrives. A block of 512 bytes or more may not
    /// be the whole file; one of up to 514 bytes is stored. OK with the warning "Unexpected packet"
    /// or "Unexpected block ID. Resending ACK" means that the datagram was not a first block and
    /// nothing was stored.
    HtResult GetFile( const HtString& aPath );

    /// GetData does the same into aSize bytes at aBuffer. `*aReceived` is the number of bytes
    /// stored, or 0 unless the result is OK. Data that does not fit is dropped. A zero byte follows
    /// the data where there is room. On failure the bytes at aBuffer may have changed.
    HtResult GetData( unsigned char* aBuffer, unsigned int aSize, unsigned int* aReceived );

    /// GetProgress sets aDone to the bytes of a send that the device has acknowledged, and aTotal
    /// to the bytes to send. The last block never counts: 700 bytes end at 512 of 700. During and
    /// after a fetch aDone is 0 and aTotal is that of the last send. NOT_INITIALIZED before the
    /// first transfer.
    HtResult GetProgress( long long& aDone, long long& aTotal );

    /// GetTransferResult returns 0xFFFF while a transfer runs, then the result of the last one: OK,
    /// 0x0013 with a description, or 0x4000. NOT_INITIALIZED before the first transfer. After an
    /// abort, and after SendFile of a file that does not exist, it stays 0xFFFF until the next
    /// transfer.
    HtResult GetTransferResult() const;

    /// GetWarning takes the oldest warning of the running or last transfer. 0x0015: there is none,
    /// and aText is empty afterwards. 0x4000 with ENOMEM as OS code: memory is missing, aText is
    /// unchanged and the warning is lost. Each transfer drops the warnings of the one before.
    HtResult GetWarning( HtString& aText );

    /// Abort tells the running transfer to end, and is OK. The transfer ends after 1000 ms at most.
    /// 0x001C when GetTransferResult is not 0xFFFF: there is nothing to abort.
    HtResult Abort();

private:
    HtBaseLib::TftpClient* mThis; // owned
};
