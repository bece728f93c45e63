/// @file
/// WdUtilsLib: GVCP READREG.
#pragma once

#include <WdUtilsLib/GEV/AcknowledgeHeader.h>
#include <WdUtilsLib/GEV/CommandHeader.h>

namespace WdUtilsLib
{
namespace GEV
{

/// ReadRegisterCommand (READREG) reads 32-bit registers.
///
///     offset     size
///     8 + 4 i    4     address of register i, a multiple of 4
class ReadRegisterCommand : public CommandHeader
{
public:
    static constexpr unsigned short COMMAND = 0x0080;                  ///< the command code
    static constexpr unsigned int MAX_QUANTITY = MAX_PAYLOAD_SIZE / 4; ///< registers in a packet

    /// A command for no register. Call InitOperationQty before it is sent.
    ReadRegisterCommand()
        : CommandHeader( COMMAND )
    {
    }

    /// InitOperationQty sets the number of registers, 1 to MAX_QUANTITY. A register that is added
    /// has the address 0. It returns false for any other number, and nothing changes then.
    bool InitOperationQty( unsigned int aQuantity )
    {
        return aQuantity != 0 && InitLength( REGISTER_SIZE * aQuantity );
    }

    /// InitAddress sets the address of register aIndex. It returns false where the packet does not
    /// have that register, and nothing changes then.
    bool InitAddress( unsigned int aIndex, unsigned int aAddress )
    {
        PacketBytes::BigWriter lWriter = MakeWriter( ADDRESS_OFFSET + REGISTER_SIZE * aIndex );
        lWriter.Put32( aAddress );
        return lWriter.IsWhole();
    }

private:
    static constexpr std::size_t ADDRESS_OFFSET = 8;
    static constexpr std::size_t REGISTER_SIZE = 4;
};
static_assert( sizeof( ReadRegisterCommand ) == CommandHeader::MAX_SIZE, "no members are added" );

/// ReadRegisterAcknowledge (READREG_ACK) carries the values in the order of the addresses.
///
///     offset     size
///     8 + 4 i    4     value of register i
class ReadRegisterAcknowledge : public AcknowledgeHeader
{
public:
    /// A view of the aSize bytes at aBuffer.
    ReadRegisterAcknowledge( const void* aBuffer, std::size_t aSize )
        : AcknowledgeHeader( aBuffer, aSize )
    {
    }

    /// GetValue returns the value of register aIndex, in host order or with its bytes as in the
    /// packet. 0 where the packet does not have that value.
    unsigned int GetValue( unsigned int aIndex, bool aHostOrder ) const
    {
        PacketBytes::BigReader lReader = MakeReader( VALUE_OFFSET + REGISTER_SIZE * aIndex );
        if ( aHostOrder )
        {
            return lReader.Get32();
        }
        unsigned int lValue = 0;
        lReader.GetBytes( &lValue, sizeof( lValue ) );
        return lValue;
    }

private:
    static constexpr std::size_t VALUE_OFFSET = 8;
    static constexpr std::size_t REGISTER_SIZE = 4;
};

} // namespace GEV
} // namespace WdUtilsLib
