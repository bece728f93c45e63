// WdUtilsLib: the commands of GVCP, the GigE Vision control protocol.
#pragma once

#include <WdUtilsLib/Export.h>

#include <cstddef>
#include <cstdint>

namespace WdUtilsLib
{
namespace GEV
{

// The UDP port on which a device listens for GVCP.
constexpr unsigned short GVCP_PORT = 3956;

// CommandHeader is a whole GVCP command: the object is the datagram, so what is sent is
// GetTotalLength() bytes from the object's own address.
//
//   offset  size
//   0       1     key, 0x42
//   1       1     flags: 0x01 acknowledge required
//   2       2     command
//   4       2     length of the payload behind the header
//   6       2     request identifier, never 0 on the wire
//
// The classes derived from it add operations on the payload and no members. All values are given
// and returned in host order. Objects of these classes follow the rules of int for threads.
class WDUTILSLIB_API CommandHeader
{
public:
    // The header; the largest datagram that GVCP allows, and the largest payload in it.
    static constexpr std::size_t HEADER_SIZE = 8;
    static constexpr std::size_t MAX_SIZE = 548;
    static constexpr std::size_t MAX_PAYLOAD_SIZE = MAX_SIZE - HEADER_SIZE;

    static constexpr uint8_t KEY = 0x42;              // the first byte of every command
    static constexpr uint8_t FLAG_ACKNOWLEDGE = 0x01; // acknowledge required

    // A command without payload, acknowledge required, request identifier 0.
    explicit CommandHeader( unsigned short aCommand );

    // Sets the request identifier, which the acknowledge echoes.
    void InitRequestId( unsigned short aRequestId );

    // Sets or clears the acknowledge-required flag.
    void InitFlagAcknowledge( bool aRequired );

    // The fields of the header.
    unsigned short GetRequestId() const;
    unsigned short GetCommand() const;
    bool GetFlagAcknowledge() const;

    // Bytes of payload, and bytes to send: header and payload.
    unsigned short GetLength() const;
    unsigned short GetTotalLength() const;

protected:
    // Sets the flags byte's other bits, which some commands define.
    void InitFlag( uint8_t aFlag, bool aSet );

    // Sets the payload's length. False, and nothing changed, beyond MAX_PAYLOAD_SIZE.
    bool InitLength( std::size_t aLength );

    // Write at an offset from the start of the payload. False, and nothing written, where the
    // packet ends before.
    bool Put16( std::size_t aOffset, uint16_t aValue );
    bool Put32( std::size_t aOffset, uint32_t aValue );
    bool PutBytes( std::size_t aOffset, const void* aData, std::size_t aSize );

private:
    uint8_t mBytes[MAX_SIZE];
};

} // namespace GEV
} // namespace WdUtilsLib
