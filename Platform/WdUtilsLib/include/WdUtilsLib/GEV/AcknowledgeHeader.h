// WdUtilsLib: the acknowledges of GVCP, the GigE Vision control protocol.
#pragma once

#include <WdUtilsLib/Export.h>
#include <WdUtilsLib/GEV/CommandHeader.h>

#include <cstddef>
#include <cstdint>

namespace WdUtilsLib
{
namespace GEV
{

// AcknowledgeHeader is a view of a buffer into which an acknowledge is, or will be, received.
//
//   offset  size
//   0       2     status, 0x0000 success
//   2       2     acknowledge code, the command's plus one
//   4       2     length of the payload behind the header
//   6       2     acknowledge identifier, the command's request identifier
//
// The buffer is borrowed and must outlive the view. No operation looks past the size given; a field
// beyond it reads as 0. Values are returned in host order. Whether the datagram in the buffer is
// long enough for a field only the caller knows: ask IsValid with the bytes received first.
class WDUTILSLIB_API AcknowledgeHeader
{
public:
    static constexpr std::size_t HEADER_SIZE = 8; // bytes in front of the payload

    // A view of the aSize bytes at aBuffer.
    AcknowledgeHeader( const void* aBuffer, std::size_t aSize );

    // IsValid tells whether the aReceived bytes in the buffer are the complete acknowledge of
    // aCommand: header and payload length make up what was received, the code is the command's plus
    // one and the identifier is the command's. The status plays no part, since a refusal is a valid
    // answer; nor does the payload's size, which the operation that reads it must judge.
    bool IsValid( unsigned int aReceived, const CommandHeader& aCommand ) const;

    // The fields of the header.
    unsigned short GetStatus() const;
    unsigned short GetAcknowledge() const;
    unsigned short GetLength() const;
    unsigned short GetAcknowledgeId() const;

protected:
    // Payload bytes that may be read: the length field, or less where the buffer ends before.
    std::size_t GetPayloadSize() const;

    // Read at an offset from the start of the payload. 0, or false and nothing copied, where the
    // payload ends before.
    uint16_t Get16( std::size_t aOffset ) const;
    uint32_t Get32( std::size_t aOffset ) const;
    bool GetBytes( std::size_t aOffset, void* aData, std::size_t aSize ) const;

    // Reads at an offset from the start of the buffer, whatever the length field says. 0 where the
    // buffer ends before.
    uint16_t GetField( std::size_t aOffset ) const;

private:
    const uint8_t* mBytes;
    std::size_t mSize;
};

// PendingAcknowledgeHeader is a view of a PENDINGACK: the device asks for more time.
//
//   offset  size
//   8       2     reserved
//   10      2     time to completion, milliseconds
class WDUTILSLIB_API PendingAcknowledgeHeader : public AcknowledgeHeader
{
public:
    static constexpr unsigned short ACKNOWLEDGE = 0x0089; // its acknowledge code
    static constexpr std::size_t SIZE = 12;               // bytes of the whole datagram

    // A view of the aSize bytes at aBuffer.
    PendingAcknowledgeHeader( const void* aBuffer, std::size_t aSize );

    // Milliseconds the device still needs, counted from the arrival of this datagram. The length
    // field plays no part.
    unsigned short GetTimeToCompletion() const;
};

} // namespace GEV
} // namespace WdUtilsLib
