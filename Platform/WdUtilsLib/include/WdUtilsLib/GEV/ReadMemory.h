/// @file
/// WdUtilsLib: GVCP READMEM.
#pragma once

#include <WdUtilsLib/GEV/AcknowledgeHeader.h>
#include <WdUtilsLib/GEV/CommandHeader.h>

namespace WdUtilsLib
{
namespace GEV
{

/// ReadMemoryCommand (READMEM) reads consecutive bytes.
///
///     offset  size
///     8       4     address, a multiple of 4
///     12      2     reserved
///     14      2     number of bytes, a multiple of 4
class ReadMemoryCommand : public CommandHeader
{
public:
    static constexpr unsigned short COMMAND = 0x0084; ///< the command code

    /// Address and number of bytes are 0.
    ReadMemoryCommand()
        : CommandHeader( COMMAND )
    {
        (void)InitLength( 8 ); // fits
    }

    /// InitCount sets the number of bytes. The field takes the low 16 bits.
    void InitCount( unsigned int aCount )
    {
        MakeWriter( COUNT_OFFSET ).Put16( static_cast<uint16_t>( aCount ) );
    }

    /// InitAddress sets the address.
    void InitAddress( unsigned int aAddress ) { MakeWriter( ADDRESS_OFFSET ).Put32( aAddress ); }

private:
    static constexpr std::size_t ADDRESS_OFFSET = 8;
    static constexpr std::size_t COUNT_OFFSET = 14;
};
static_assert( sizeof( ReadMemoryCommand ) == CommandHeader::MAX_SIZE, "no members are added" );

/// ReadMemoryAcknowledge (READMEM_ACK) carries the bytes.
///
///     offset  size
///     8       4     address
///     12      n     data
class ReadMemoryAcknowledge : public AcknowledgeHeader
{
public:
    /// A view of the aSize bytes at aBuffer.
    ReadMemoryAcknowledge( const void* aBuffer, std::size_t aSize )
        : AcknowledgeHeader( aBuffer, aSize )
    {
    }

    /// CopyData copies the first aSize bytes of the data. It returns false and copies nothing when
    /// the packet carries fewer or aSize is negative.
    bool CopyData( void* aData, long long aSize ) const
    {
        PacketBytes::BigReader lReader = MakeReader( DATA_OFFSET );
        if ( aSize < 0 )
        {
            return false;
        }
        lReader.GetBytes( aData, static_cast<std::size_t>( aSize ) );
        return lReader.IsWhole();
    }

private:
    static constexpr std::size_t DATA_OFFSET = 12;
};

} // namespace GEV
} // namespace WdUtilsLib
