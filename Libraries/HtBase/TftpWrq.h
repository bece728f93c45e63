// TFTP: the write request.
#pragma once

#include "Libraries/HtBase/Tftp/TftpRequest.h"

namespace HtBaseLib
{

// TftpWrq offers the server a file. See TftpPacket.h for encoders and decoders.
class TftpWrq : public TftpRequest
{
public:
    // aLength is set to the length of the packet, whether it fits or not. A number that is not a
    // mode is asserted; then nothing is written and aLength is unchanged.
    bool Encode( unsigned char* aBuffer, unsigned int aCapacity, unsigned int& aLength ) const;

    // Takes 4 to 518 bytes with a mode of at most 10 characters. The opcode is expected in the
    // order of the host. A mode that is none of the three is asserted and refused.
    bool Decode( const unsigned char* aBytes, unsigned int aCount );
};

} // namespace HtBaseLib
