/// @file
/// HtBase: firmware payloads.
#pragma once

#include <HtExport.h>
#include <HtResult.h>
#include <HtString.h>

#include <memory>

namespace HtBaseLib
{
class DfwPayloadWriter;
}

/// HtDfwPayload is a firmware payload in a file or in memory: a flat sequence of records, each a
/// type letter, a length byte and that many bytes, numbers in big-endian order. Its two builders
/// make the small payloads that a client sends to name a device or to reset it.
///
/// Not copyable. Operations on one object need the caller's lock; the builders may run at the same
/// moment on several threads, unless their buffers overlap. They block for as long as reading the
/// file takes.
///
/// What goes wrong with a file is printed on standard output, as
/// "Failed to open input file NAME. error code NUMBER", without an end of line. The constructors
/// may throw std::bad_alloc.
class HTBASE_API HtDfwPayload
{
public:
    /// Opens a payload file for reading and keeps it open. A file that cannot be opened is reported
    /// on standard output; the object is good for nothing but its destruction then.
    explicit HtDfwPayload( const HtString& aFileName );

    /// A payload in aSize bytes of the caller's, which must outlive the object.
    HtDfwPayload( unsigned char* aBuffer, unsigned int aSize );

    /// The class's only virtual operation. Closes the file; in memory it stores a zero byte at the
    /// position, which is the first byte of the buffer, unless the buffer is empty.
    virtual ~HtDfwPayload();

    HtDfwPayload( const HtDfwPayload& ) = delete;
    HtDfwPayload& operator=( const HtDfwPayload& ) = delete;

    /// Builds the payload that tells a device its name: the target and the version record of a
    /// firmware payload file, then an identification record with the 8-bit form of aDeviceId, which
    /// has 1 to 255 bytes: a longer one gives no record, an empty one 16 zero bytes without type
    /// and length. aOutSize is the number of bytes built; where the buffer has room, a zero byte
    /// follows them that does not count.
    ///
    /// OK, or 0x4000 with ENOMEM as OS code when memory is missing; then aOutSize is unchanged and
    /// the buffer's first byte may be zeroed. Whether the payload is whole is for the caller to
    /// see: a record that the file lacks is missing from the payload too, a file that cannot be
    /// opened gives neither target nor version (and is reported on standard output), and what does
    /// not fit into aSize bytes is cut off, aOutSize counting what fitted.
    static HtResult GetDeviceIdRecord( const HtString& aPayloadFile, const HtString& aDeviceId,
                                       unsigned char* aBuffer, unsigned int aSize,
                                       unsigned int& aOutSize );

    /// Builds the payload that resets a device: the same with a reset record at the end.
    static HtResult GetResetRecord( const HtString& aPayloadFile, unsigned char* aBuffer,
                                    unsigned int aSize, unsigned int& aOutSize );

private:
    std::unique_ptr<HtBaseLib::DfwPayloadWriter> mWriter; // never null
};
