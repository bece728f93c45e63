// TFTP: the acknowledge and the error.
#pragma once

#include "Libraries/HtBase/Tftp/TftpPacket.h"

#include <cstdint>

namespace HtBaseLib
{

// TftpAck acknowledges a block, or with number 0 a write request. See TftpPacket.h for encoders and
// decoders.
//
//     0   opcode 4 (2)
//     2   block number (2)
class TftpAck
{
public:
    void SetBlockID( uint16_t aBlockID ) { mBlockID = aBlockID; }
    uint16_t GetBlockID() const { return mBlockID; }

    // aLength is set to 4 when the packet was written, and unchanged otherwise.
    bool Encode( unsigned char* aBuffer, unsigned int aCapacity, unsigned int& aLength ) const;

    // Takes exactly 4 bytes.
    bool Decode( const unsigned char* aBytes, unsigned int aCount );

private:
    uint16_t mOpcode = Tftp::ACK;
    uint16_t mBlockID = 0;
};

// TftpError ends a transfer and says why. See TftpPacket.h for encoders and decoders.
//
//     0   opcode 5 (2)
//     2   error code (2)
//     4   message, zero
class TftpError
{
public:
    uint16_t GetErrorCode() const { return mErrorCode; }

    // The message, null-terminated, valid until the object is changed or destroyed. It comes from
    // the device: any bytes, never a format.
    const char* GetMessage() const { return mMessage; }

    // Writes 4 bytes and the message without its zero, whatever the capacity says, and leaves
    // aLength unchanged: aBuffer needs room for 4 bytes and the message. The two numbers are in the
    // order of the host. Always true.
    bool Encode( unsigned char* aBuffer, unsigned int aCapacity, unsigned int& aLength ) const;

    // Takes 5 bytes and more. A message without a zero ends with the packet; it is cut after 1023
    // characters.
    bool Decode( const unsigned char* aBytes, unsigned int aCount );

private:
    char mMessage[1024] = {};
    uint16_t mErrorCode = 0;
};

} // namespace HtBaseLib
