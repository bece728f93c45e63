#include <WdUtilsLib/GEV/ReadMemory.h>

namespace WdUtilsLib
{
namespace GEV
{

static_assert( sizeof( ReadMemoryCommand ) == CommandHeader::MAX_SIZE, "no members are added" );

ReadMemoryCommand::ReadMemoryCommand()
    : CommandHeader( COMMAND )
{
    (void)InitLength( 8 ); // fits
}

void ReadMemoryCommand::InitCount( unsigned int aCount )
{
    (void)Put16( 6, static_cast<uint16_t>( aCount ) ); // fits; the field has no more bits
}

void ReadMemoryCommand::InitAddress( unsigned int aAddress )
{
    (void)Put32( 0, aAddress ); // fits
}

ReadMemoryAcknowledge::ReadMemoryAcknowledge( const void* aBuffer, std::size_t aSize )
    : AcknowledgeHeader( aBuffer, aSize )
{
}

bool ReadMemoryAcknowledge::CopyData( void* aData, long long aSize ) const
{
    return aSize >= 0 && GetBytes( 4, aData, static_cast<std::size_t>( aSize ) );
}

} // namespace GEV
} // namespace WdUtilsLib
