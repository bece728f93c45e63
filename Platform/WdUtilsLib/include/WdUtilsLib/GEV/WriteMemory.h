// WdUtilsLib: GVCP WRITEMEM.
#pragma once

#include <WdUtilsLib/GEV/AcknowledgeHeader.h>
#include <WdUtilsLib/GEV/CommandHeader.h>

namespace WdUtilsLib
{
namespace GEV
{

// WriteMemoryCommand writes consecutive bytes.
//
//   offset  size
//   8       4     address, a multiple of 4
//   12      n     data
class WDUTILSLIB_API WriteMemoryCommand : public CommandHeader
{
public:
    static constexpr unsigned short COMMAND = 0x0086; // the command code

    // The most data that one packet carries: 536 bytes.
    static constexpr std::size_t MAX_DATA_SIZE = MAX_PAYLOAD_SIZE - 4;

    WriteMemoryCommand();

    // Sets the address.
    void InitAddress( unsigned int aAddress );

    // SetData copies aSize bytes into the packet. False, and nothing changed, when aSize is
    // negative or more than MAX_DATA_SIZE.
    bool SetData( const void* aData, long long aSize );
};

// WriteMemoryAcknowledge tells how far the device came.
//
//   offset  size
//   8       2     reserved
//   10      2     index: bytes written
class WDUTILSLIB_API WriteMemoryAcknowledge : public AcknowledgeHeader
{
public:
    static constexpr std::size_t SIZE = 12; // bytes of the whole datagram

    // A view of the aSize bytes at aBuffer.
    WriteMemoryAcknowledge( const void* aBuffer, std::size_t aSize );

    // Bytes that the device has written.
    unsigned short GetIndex() const;
};

} // namespace GEV
} // namespace WdUtilsLib
