// GenCP packets of the tests, written field by field as USB3 Vision carries them.
#pragma once

#include "tests/support/LittleEndian.h"
#include "tests/support/Packets.h"

#include <cstdint>

namespace TestSupport
{

// A command. A link leaves the request identifier to the control interface and sends 0.
inline Bytes GenCPCommand( uint16_t aCommand, uint16_t aIdentifier, const Bytes& aData,
                           uint16_t aFlags = 0x4000 )
{
    return Packet( {
        { 0x55, 0x33, 0x56, 0x43 }, // prefix
        Little( aFlags, 2 ),        // flags: 0x4000 acknowledge requested
        Little( aCommand, 2 ),      // command
        Little( aData.size(), 2 ),  // length
        Little( aIdentifier, 2 ),   // request identifier
        aData,
    } );
}

inline Bytes ReadMem( uint64_t aAddress, uint16_t aCount, uint16_t aIdentifier = 0 )
{
    const Bytes lData = Packet( {
        Little( aAddress, 8 ), // address
        { 0x00, 0x00 },        // reserved
        Little( aCount, 2 ),   // count
    } );
    return GenCPCommand( 0x0800, aIdentifier, lData );
}

inline Bytes WriteMem( uint64_t aAddress, const Bytes& aData, uint16_t aIdentifier = 0 )
{
    return GenCPCommand( 0x0802, aIdentifier, Little( aAddress, 8 ) + aData );
}

inline Bytes GenCPAck( uint16_t aStatus, uint16_t aAcknowledge, uint16_t aIdentifier,
                       const Bytes& aData )
{
    return Packet( {
        { 0x55, 0x33, 0x56, 0x43 }, // prefix
        Little( aStatus, 2 ),       // status
        Little( aAcknowledge, 2 ),  // acknowledge
        Little( aData.size(), 2 ),  // length
        Little( aIdentifier, 2 ),   // request identifier
        aData,
    } );
}

// Acknowledges to a link, which does not look at the request identifier.
inline Bytes ReadMemAck( const Bytes& aData, uint16_t aStatus = 0 )
{
    return GenCPAck( aStatus, 0x0801, 7, aData );
}

inline Bytes WriteMemAck( uint16_t aWritten, uint16_t aStatus = 0 )
{
    const Bytes lData = Packet( {
        { 0x00, 0x00 },        // reserved
        Little( aWritten, 2 ), // bytes written
    } );
    return GenCPAck( aStatus, 0x0803, 7, lData );
}

// The header alone, as a device may refuse, or acknowledge a write, with.
inline Bytes HeaderOnlyAck( uint16_t aAcknowledge, uint16_t aStatus )
{
    return GenCPAck( aStatus, aAcknowledge, 7, {} );
}

} // namespace TestSupport
