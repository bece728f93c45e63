/// @file
/// WdUtilsLib: GVCP WRITEREG.
#pragma once

#include <WdUtilsLib/GEV/CommandHeader.h>
#include <WdUtilsLib/GEV/WriteAcknowledge.h>

namespace WdUtilsLib
{
namespace GEV
{

/// WriteRegisterCommand (WRITEREG) writes 32-bit registers.
///
///     offset      size
///     8 + 8 i     4     address of register i, a multiple of 4
///     12 + 8 i    4     value of register i
class WriteRegisterCommand : public CommandHeader
{
public:
    static constexpr unsigned short COMMAND = 0x0082;                  ///< the command code
    static constexpr unsigned int MAX_QUANTITY = MAX_PAYLOAD_SIZE / 8; ///< registers in a packet

    /// A command for no register. Call InitOperationQty before it is sent.
    WriteRegisterCommand()
        : CommandHeader( COMMAND )
    {
    }

    /// InitOperationQty sets the number of registers, 1 to MAX_QUANTITY. A register that is added
    /// has address and value 0. It returns false for any other number, and nothing changes then.
    bool InitOperationQty( unsigned int aQuantity )
    {
        return aQuantity != 0 && InitLength( REGISTER_SIZE * aQuantity );
    }

    /// InitAddress sets the address of register aIndex, InitValue its value in host order. They
    /// return false where the packet does not have that register, and nothing changes then.
    ///@{
    bool InitAddress( unsigned int aIndex, unsigned int aAddress )
    {
        return InitField( ADDRESS_OFFSET + REGISTER_SIZE * aIndex, aAddress );
    }
    bool InitValue( unsigned int aIndex, unsigned int aValue )
    {
        return InitField( VALUE_OFFSET + REGISTER_SIZE * aIndex, aValue );
    }
    ///@}

private:
    static constexpr std::size_t ADDRESS_OFFSET = 8;
    static constexpr std::size_t VALUE_OFFSET = 12;
    static constexpr std::size_t REGISTER_SIZE = 8; // an address and a value

    bool InitField( std::size_t aOffset, uint32_t aField )
    {
        PacketBytes::BigWriter lWriter = MakeWriter( aOffset );
        lWriter.Put32( aField );
        return lWriter.IsWhole();
    }
};
static_assert( sizeof( WriteRegisterCommand ) == CommandHeader::MAX_SIZE, "no members are added" );

/// WriteRegisterAcknowledge (WRITEREG_ACK) tells by its index how many registers were written.
class WriteRegisterAcknowledge : public WriteAcknowledge
{
public:
    using WriteAcknowledge::WriteAcknowledge;
};

} // namespace GEV
} // namespace WdUtilsLib
