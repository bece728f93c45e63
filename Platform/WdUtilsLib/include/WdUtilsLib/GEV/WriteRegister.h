// WdUtilsLib: GVCP WRITEREG.
#pragma once

#include <WdUtilsLib/GEV/AcknowledgeHeader.h>
#include <WdUtilsLib/GEV/CommandHeader.h>

namespace WdUtilsLib
{
namespace GEV
{

// WriteRegisterCommand writes 32-bit registers.
//
//   offset      size
//   8 + 8 i     4     address of register i, a multiple of 4
//   12 + 8 i    4     value of register i
class WDUTILSLIB_API WriteRegisterCommand : public CommandHeader
{
public:
    static constexpr unsigned short COMMAND = 0x0082;                  // the command code
    static constexpr unsigned int MAX_QUANTITY = MAX_PAYLOAD_SIZE / 8; // registers in a packet

    WriteRegisterCommand();

    // Sets how many registers are written, 1 to MAX_QUANTITY. False, and nothing changed, beyond.
    bool InitOperationQty( unsigned int aQuantity );

    // Set the address, and the value in host order, of register aIndex. False, and nothing changed,
    // where the packet has no such register.
    bool InitAddress( unsigned int aIndex, unsigned int aAddress );
    bool InitValue( unsigned int aIndex, unsigned int aValue );
};

// WriteRegisterAcknowledge tells how far the device came.
//
//   offset  size
//   8       2     reserved
//   10      2     index: registers written
class WDUTILSLIB_API WriteRegisterAcknowledge : public AcknowledgeHeader
{
public:
    static constexpr std::size_t SIZE = 12; // bytes of the whole datagram

    // A view of the aSize bytes at aBuffer.
    WriteRegisterAcknowledge( const void* aBuffer, std::size_t aSize );

    // Registers that the device has written.
    unsigned short GetIndex() const;
};

} // namespace GEV
} // namespace WdUtilsLib
