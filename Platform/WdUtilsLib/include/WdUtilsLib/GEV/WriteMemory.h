/// @file
/// WdUtilsLib: GVCP WRITEMEM.
#pragma once

#include <WdUtilsLib/GEV/CommandHeader.h>
#include <WdUtilsLib/GEV/WriteAcknowledge.h>

namespace WdUtilsLib
{
namespace GEV
{

/// WriteMemoryCommand (WRITEMEM) writes consecutive bytes.
///
///     offset  size
///     8       4     address, a multiple of 4
///     12      n     data
class WriteMemoryCommand : public CommandHeader
{
public:
    static constexpr unsigned short COMMAND = 0x0086; ///< the command code

    /// Bytes of data that one packet can carry: 536.
    static constexpr std::size_t MAX_DATA_SIZE = MAX_PAYLOAD_SIZE - 4;

    /// The address is 0 and there is no data.
    WriteMemoryCommand()
        : CommandHeader( COMMAND )
    {
        (void)InitLength( 4 ); // fits
    }

    /// InitAddress sets the address.
    void InitAddress( unsigned int aAddress ) { MakeWriter( ADDRESS_OFFSET ).Put32( aAddress ); }

    /// SetData copies aSize bytes into the packet. It returns false when aSize is negative or more
    /// than MAX_DATA_SIZE, and nothing changes then.
    bool SetData( const void* aData, long long aSize )
    {
        if ( aSize < 0 || aSize > static_cast<long long>( MAX_DATA_SIZE ) )
        {
            return false;
        }
        const auto lSize = static_cast<std::size_t>( aSize );
        (void)InitLength( 4 + lSize ); // fits
        MakeWriter( DATA_OFFSET ).PutBytes( aData, lSize );
        return true;
    }

private:
    static constexpr std::size_t ADDRESS_OFFSET = 8;
    static constexpr std::size_t DATA_OFFSET = 12;
};
static_assert( sizeof( WriteMemoryCommand ) == CommandHeader::MAX_SIZE, "no members are added" );

/// WriteMemoryAcknowledge (WRITEMEM_ACK) tells by its index how many bytes were written.
class WriteMemoryAcknowledge : public WriteAcknowledge
{
public:
    using WriteAcknowledge::WriteAcknowledge;
};

} // namespace GEV
} // namespace WdUtilsLib
