// WdUtilsLib: GVCP READMEM.
#pragma once

#include <WdUtilsLib/GEV/AcknowledgeHeader.h>
#include <WdUtilsLib/GEV/CommandHeader.h>

namespace WdUtilsLib
{
namespace GEV
{

// ReadMemoryCommand reads consecutive bytes.
//
//   offset  size
//   8       4     address, a multiple of 4
//   12      2     reserved
//   14      2     count of bytes, a multiple of 4
class WDUTILSLIB_API ReadMemoryCommand : public CommandHeader
{
public:
    static constexpr unsigned short COMMAND = 0x0084; // the command code

    ReadMemoryCommand();

    // Sets the count; the field has 16 bits and takes the low ones.
    void InitCount( unsigned int aCount );

    // Sets the address.
    void InitAddress( unsigned int aAddress );
};

// ReadMemoryAcknowledge carries the bytes.
//
//   offset  size
//   8       4     address
//   12      n     data
class WDUTILSLIB_API ReadMemoryAcknowledge : public AcknowledgeHeader
{
public:
    // A view of the aSize bytes at aBuffer.
    ReadMemoryAcknowledge( const void* aBuffer, std::size_t aSize );

    // CopyData copies the first aSize bytes of the data. False, and nothing copied, when the packet
    // carries fewer or aSize is negative.
    bool CopyData( void* aData, long long aSize ) const;
};

} // namespace GEV
} // namespace WdUtilsLib
