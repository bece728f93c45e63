// WdUtilsLib: the commands of GenCP as USB3 Vision carries them.
#pragma once

#include <WdUtilsLib/Export.h>

#include <cstddef>
#include <cstdint>

namespace WdUtilsLib
{
namespace U3V
{

// The code of the results that say that a packet does not fit the memory it is attached to, or that
// what lies there is no packet.
constexpr unsigned int INVALID_PACKET = 0x4001;

// CommandHeader is a view of the header that every GenCP command begins with.
//
//   offset  size
//   0       4     prefix, 0x43563355 ("U3VC": bytes 55 33 56 43)
//   4       2     flags: 0x4000 an acknowledge is requested
//   6       2     command
//   8       2     length of the command-specific data behind the header
//   10      2     request identifier
//
// All numbers are little-endian on the wire and host order here. The memory is borrowed and must
// outlive the view. A view that is not attached, which is how one begins, reads as 0 and writes
// nothing. Views follow the rules of int for threads, and so does what they show.
class WDUTILSLIB_API CommandHeader
{
public:
    static constexpr std::size_t SIZE = 12;              // bytes of the header
    static constexpr uint32_t PREFIX = 0x43563355;       // "U3VC" on the wire
    static constexpr uint16_t FLAG_REQUEST_ACK = 0x4000; // an acknowledge is requested

    CommandHeader() = default;

    // Shows aSize bytes at aBuffer; where these are fewer than a header, nothing is attached.
    CommandHeader( unsigned char* aBuffer, unsigned int aSize );

    // Initialize fills the header: the prefix, the command and the length of its data; no flags,
    // request identifier 0.
    void Initialize( unsigned short aCommand, unsigned short aLength );

    // SetRequestAck sets or clears the flag that asks for an acknowledge.
    void SetRequestAck( bool aRequested );

    // SetRequestID sets the identifier that the acknowledge echoes. The device control interface
    // does this when it sends.
    void SetRequestID( unsigned short aRequestID );

    // SetLength sets the bytes of data behind the header.
    void SetLength( unsigned short aLength );

    // The fields of the header.
    uint32_t GetPrefix() const;
    bool GetRequestAck() const;
    unsigned short GetCommand() const;
    unsigned short GetLength() const;
    unsigned short GetRequestID() const;

private:
    unsigned char* mBytes = nullptr;
};

} // namespace U3V
} // namespace WdUtilsLib
