// GenCP packets of the tests, written field by field as USB3 Vision carries them.
#pragma once

#include "tests/support/Packets.h"

#include <cstddef>
#include <cstdint>

namespace TestSupport
{

// Numbers on the wire: the lowest byte first.
inline Bytes Little( uint64_t aValue, std::size_t aSize )
{
    Bytes lBytes;
    for ( std::size_t lIndex = 0; lIndex < aSize; ++lIndex )
    {
        lBytes.push_back( static_cast<uint8_t>( aValue >> ( 8 * lIndex ) ) );
    }
    return lBytes;
}

inline uint64_t FromLittle( const Bytes& aPacket, std::size_t aOffset, std::size_t aSize )
{
    uint64_t lValue = 0;
    for ( std::size_t lIndex = aSize; lIndex-- > 0; )
    {
        lValue = lValue << 8 | aPacket.at( aOffset + lIndex );
    }
    return lValue;
}

inline Bytes ReadMem( uint64_t aAddress, uint16_t aCount )
{
    return Packet( {
        { 0x55, 0x33, 0x56, 0x43 }, // prefix
        { 0x00, 0x40 },             // flags: acknowledge requested
        { 0x00, 0x08 },             // command: READMEM
        { 0x0C, 0x00 },             // length
        { 0x00, 0x00 },             // request identifier: set by the control interface
        Little( aAddress, 8 ),      // address
        { 0x00, 0x00 },             // reserved
        Little( aCount, 2 ),        // count
    } );
}

inline Bytes WriteMem( uint64_t aAddress, const Bytes& aData )
{
    return Packet( {
        { 0x55, 0x33, 0x56, 0x43 },    // prefix
        { 0x00, 0x40 },                // flags: acknowledge requested
        { 0x02, 0x08 },                // command: WRITEMEM
        Little( 8 + aData.size(), 2 ), // length
        { 0x00, 0x00 },                // request identifier: set by the control interface
        Little( aAddress, 8 ),         // address
        aData,
    } );
}

inline Bytes ReadMemAck( const Bytes& aData, uint16_t aStatus = 0 )
{
    return Packet( {
        { 0x55, 0x33, 0x56, 0x43 }, // prefix
        Little( aStatus, 2 ),       // status
        { 0x01, 0x08 },             // acknowledge: READMEM
        Little( aData.size(), 2 ),  // length
        { 0x07, 0x00 },             // request identifier
        aData,
    } );
}

inline Bytes WriteMemAck( uint16_t aWritten, uint16_t aStatus = 0 )
{
    return Packet( {
        { 0x55, 0x33, 0x56, 0x43 }, // prefix
        Little( aStatus, 2 ),       // status
        { 0x03, 0x08 },             // acknowledge: WRITEMEM
        { 0x04, 0x00 },             // length
        { 0x07, 0x00 },             // request identifier
        { 0x00, 0x00 },             // reserved
        Little( aWritten, 2 ),      // bytes written
    } );
}

// The header alone: a refusal, or the acknowledge of a write.
inline Bytes HeaderOnlyAck( uint16_t aAcknowledge, uint16_t aStatus )
{
    return Packet( {
        { 0x55, 0x33, 0x56, 0x43 }, // prefix
        Little( aStatus, 2 ),       // status
        Little( aAcknowledge, 2 ),  // acknowledge
        { 0x00, 0x00 },             // length
        { 0x07, 0x00 },             // request identifier
    } );
}

// A run of bytes, each different from its neighbours.
inline Bytes Pattern( std::size_t aSize, uint8_t aFirst = 1 )
{
    Bytes lBytes( aSize );
    uint8_t lNext = aFirst;
    for ( uint8_t& lByte : lBytes )
    {
        lByte = lNext;
        lNext = static_cast<uint8_t>( lNext * 5 + 3 ); // goes through all values
    }
    return lBytes;
}

} // namespace TestSupport
