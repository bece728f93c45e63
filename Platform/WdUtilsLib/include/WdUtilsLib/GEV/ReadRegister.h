// WdUtilsLib: GVCP READREG.
#pragma once

#include <WdUtilsLib/GEV/AcknowledgeHeader.h>
#include <WdUtilsLib/GEV/CommandHeader.h>

namespace WdUtilsLib
{
namespace GEV
{

// ReadRegisterCommand reads 32-bit registers.
//
//   offset     size
//   8 + 4 i    4     address of register i, a multiple of 4
class WDUTILSLIB_API ReadRegisterCommand : public CommandHeader
{
public:
    static constexpr unsigned short COMMAND = 0x0080;                  // the command code
    static constexpr unsigned int MAX_QUANTITY = MAX_PAYLOAD_SIZE / 4; // registers in a packet

    ReadRegisterCommand();

    // Sets how many registers are read, 1 to MAX_QUANTITY. False, and nothing changed, beyond.
    bool InitOperationQty( unsigned int aQuantity );

    // Sets the address of register aIndex. False, and nothing changed, where the packet has no such
    // register.
    bool InitAddress( unsigned int aIndex, unsigned int aAddress );
};

// ReadRegisterAcknowledge carries the values in the order of the addresses.
//
//   offset     size
//   8 + 4 i    4     value of register i
class WDUTILSLIB_API ReadRegisterAcknowledge : public AcknowledgeHeader
{
public:
    // A view of the aSize bytes at aBuffer.
    ReadRegisterAcknowledge( const void* aBuffer, std::size_t aSize );

    // The value of register aIndex, in host order, or with its bytes as they lie in the packet.
    // 0 where the packet has no such value.
    unsigned int GetValue( unsigned int aIndex, bool aHostOrder ) const;
};

} // namespace GEV
} // namespace WdUtilsLib
