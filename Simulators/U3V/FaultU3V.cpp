#include "Simulators/U3V/FaultU3V.h"

#include "Simulators/U3V/CommandU3V.h"

#include <PacketBytes/ByteReader.h>
#include <PacketBytes/ByteWriter.h>

#include <algorithm>

namespace Simulators
{

namespace
{

constexpr uint8_t FILLING = 0xDA; // of data that the command did not ask for

void SetField( Bytes& aAcknowledge, size_t aOffset, size_t aValue )
{
    PacketBytes::LittleWriter lWriter( aAcknowledge.data(), aAcknowledge.size() );
    lWriter.Skip( aOffset ).Put16( static_cast<uint16_t>( aValue ) );
}

uint16_t GetField( const Bytes& aAcknowledge, size_t aOffset )
{
    PacketBytes::LittleReader lReader( aAcknowledge.data(), aAcknowledge.size() );
    return lReader.Skip( aOffset ).Get16();
}

void SetDataSize( Bytes& aAcknowledge, size_t aSize )
{
    aAcknowledge.resize( CommandU3V::HEADER_SIZE + aSize, FILLING );
    SetField( aAcknowledge, AcknowledgeU3V::LENGTH_OFFSET, aSize );
}

} // namespace

Bytes Damage( Bytes aAcknowledge, const FaultU3V& aFault )
{
    const size_t lValue = aFault.mValue;
    const size_t lDataSize = aAcknowledge.size() - CommandU3V::HEADER_SIZE;
    switch ( aFault.mKind )
    {
    case FaultU3V::Kind::SHORT:
        SetDataSize( aAcknowledge, lDataSize - std::min( lDataSize, lValue ) );
        break;
    case FaultU3V::Kind::LONG:
        SetDataSize( aAcknowledge, lDataSize + lValue );
        break;
    case FaultU3V::Kind::TRUNCATED:
        aAcknowledge.resize( std::min( aAcknowledge.size(), lValue ) );
        break;
    case FaultU3V::Kind::CORRUPTED:
        if ( lValue < aAcknowledge.size() )
        {
            aAcknowledge[lValue] = static_cast<uint8_t>( ~aAcknowledge[lValue] );
        }
        break;
    case FaultU3V::Kind::WRONG_LENGTH:
        SetField( aAcknowledge, AcknowledgeU3V::LENGTH_OFFSET, lValue );
        break;
    case FaultU3V::Kind::WRONG_CODE:
        SetField( aAcknowledge, AcknowledgeU3V::CODE_OFFSET, lValue );
        break;
    case FaultU3V::Kind::WRONG_ID:
        SetField( aAcknowledge, AcknowledgeU3V::IDENTIFIER_OFFSET,
                  GetField( aAcknowledge, AcknowledgeU3V::IDENTIFIER_OFFSET ) + lValue );
        break;
    case FaultU3V::Kind::WRONG_PREFIX:
        std::fill_n( aAcknowledge.begin(), 4, uint8_t{ 0 } );
        break;
    default:
        break;
    }
    return aAcknowledge;
}

} // namespace Simulators
