// What read and write requests of TFTP have in common.
#pragma once

#include "Libraries/HtBase/Tftp/TftpPacket.h"

#include <cstdint>

namespace HtBaseLib
{

// TftpRequest holds the fields of a request and knows its layout:
//
//     0   opcode (2)
//     2   file name, zero
//     .   mode, zero
class TftpRequest
{
public:
    // The modes of transfer; the number is the object's, the wire has "netascii", "octet", "mail".
    enum Mode : uint32_t
    {
        NETASCII = 0,
        OCTET = 1,
        MAIL = 2
    };

    // Replaces the file name. It is cut after 1023 characters, which is more than any packet of
    // this library carries.
    void SetFileName( const char* aName );

    // Replaces the mode, OCTET at first; any number is stored.
    void SetMode( uint32_t aMode ) { mMode = aMode; }

protected:
    enum class Verdict
    {
        ACCEPTED,
        REFUSED,
        UNKNOWN_MODE
    };

    TftpRequest() = default;

    // The text of a mode, or null.
    static const char* GetModeText( uint32_t aMode );

    // Sets aLength to the length of the packet. False, and nothing is written, when it does not
    // fit.
    bool EncodeAs( Tftp::Opcode aOpcode, const char* aModeText, unsigned char* aBuffer,
                   unsigned int aCapacity, unsigned int& aLength ) const;

    Verdict DecodeAs( Tftp::Opcode aOpcode, const unsigned char* aBytes, unsigned int aCount );

    char mFileName[1024] = {};
    uint32_t mMode = OCTET;
};

} // namespace HtBaseLib
