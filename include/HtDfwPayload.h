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

/// HtDfwPayload is a firmware payload in a file or in memory. A payload is a sequence of records,
/// each a type letter, a length byte and that many bytes; numbers are big-endian. Two functions
/// build the small payloads that a client sends to name a device or to reset it.
///
/// Not copyable. The two builders may run at the same moment on several threads, unless their
/// buffers overlap. They block while they read the file. The constructors throw `std::bad_alloc`
/// where memory is missing.
///
/// A failure of a file is reported on standard output only, as
/// "Failed to open input file NAME. error code NUMBER" without an end of line.
class HTBASE_API HtDfwPayload
{
public:
    /// Opens a payload file for reading and keeps it open. When it cannot be opened, the only
    /// operation left is the destructor.
    explicit HtDfwPayload( const HtString& aFileName );

    /// A payload in aSize bytes at aBuffer, which must outlive the object.
    HtDfwPayload( unsigned char* aBuffer, unsigned int aSize );

    /// The class's only virtual operation. It closes the file. In memory it stores a zero in the
    /// first byte of the buffer, unless the buffer is empty.
    virtual ~HtDfwPayload();

    HtDfwPayload( const HtDfwPayload& ) = delete;
    HtDfwPayload& operator=( const HtDfwPayload& ) = delete;

    /// GetDeviceIdRecord builds in aBuffer, of aSize bytes, the payload that gives a device its
    /// name: the target record and the version record of a payload file, then an identification
    /// record with the 8-bit form of aDeviceId, 1 to 255 bytes. A longer name gives no
    /// identification record; an empty one gives 16 zero bytes without type and length. aOutSize is
    /// the number of bytes built. A zero byte that does not count follows them where there is room.
    ///
    /// The result is OK, also when the payload is incomplete: check aOutSize. A record that the
    /// file lacks is left out. A file that cannot be opened gives neither target nor version. What
    /// does not fit is cut, and aOutSize counts what fitted.
    ///
    /// 0x4000 with ENOMEM as OS code: memory is missing. aOutSize is then unchanged, and the first
    /// byte of the buffer may be 0.
    static HtResult GetDeviceIdRecord( const HtString& aPayloadFile, const HtString& aDeviceId,
                                       unsigned char* aBuffer, unsigned int aSize,
                                       unsigned int& aOutSize );

    /// GetResetRecord builds in the same way the payload that resets a device: target, version and
    /// a reset record.
    static HtResult GetResetRecord( const HtString& aPayloadFile, unsigned char* aBuffer,
                                    unsigned int aSize, unsigned int& aOutSize );

private:
    std::unique_ptr<HtBaseLib::DfwPayloadWriter> mWriter; // never null
};
