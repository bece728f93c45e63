// TFTP: a block of data.
#pragma once

#include "Libraries/HtBase/Tftp/TftpPacket.h"

#include <cstdint>

namespace HtBaseLib
{

// TftpData carries one block. See TftpPacket.h for encoders and decoders.
//
//     0   opcode 3 (2)
//     2   block number (2)
//     4   0 to 512 bytes of data
class TftpData
{
public:
    void SetBlockID( uint16_t aBlockID ) { lBlockID = aBlockID; }
    uint16_t GetBlockID() const { return lBlockID; }

    // Replaces the data by aLength bytes, 0 to 512. More is asserted and changes nothing.
    void SetData( const unsigned char* aBytes, unsigned int aLength );

    // Copies the data, up to 514 bytes after a decode, and sets aLength to their count. A smaller
    // capacity is asserted; then nothing is copied and aLength is unchanged.
    void GetData( unsigned char* aBytes, unsigned int aCapacity, unsigned int& aLength ) const;

    // aLength is set to the length of the packet, whether it fits or not.
    bool Encode( unsigned char* aBuffer, unsigned int aCapacity, unsigned int& aLength ) const;

    // Takes 4 to 518 bytes.
    bool Decode( const unsigned char* aBytes, unsigned int aCount );

private:
    uint16_t lBlockID = 0;
    unsigned char mData[1026] = {};
    uint32_t mLength = 0; // at most 514
};

} // namespace HtBaseLib
