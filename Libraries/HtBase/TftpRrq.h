// TFTP: the read request.
#pragma once

#include "Libraries/HtBase/Tftp/TftpRequest.h"

namespace HtBaseLib
{

// TftpRrq asks the server for a file. See TftpPacket.h for encoders and decoders.
class TftpRrq : public TftpRequest
{
public:
    // aLength is set to the length of the packet, whether it fits or not. A number that is not a
    // mode is written as an empty text.
    bool Encode( unsigned char* aBuffer, unsigned int aCapacity, unsigned int& aLength ) const;

    // Takes 4 to 518 bytes with a mode of at most 10 characters. The opcode is expected in the
    // order of the host. A mode that is none of the three is asserted and refused.
    bool Decode( const unsigned char* aBytes, unsigned int aCount );
};

} // namespace HtBaseLib
