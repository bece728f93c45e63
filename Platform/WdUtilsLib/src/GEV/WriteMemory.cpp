#include <WdUtilsLib/GEV/WriteMemory.h>

namespace WdUtilsLib
{
namespace GEV
{

static_assert( sizeof( WriteMemoryCommand ) == CommandHeader::MAX_SIZE, "no members are added" );

WriteMemoryCommand::WriteMemoryCommand()
    : CommandHeader( COMMAND )
{
    (void)InitLength( 4 ); // fits
}

void WriteMemoryCommand::InitAddress( unsigned int aAddress )
{
    (void)Put32( 0, aAddress ); // fits
}

bool WriteMemoryCommand::SetData( const void* aData, long long aSize )
{
    if ( aSize < 0 || aSize > static_cast<long long>( MAX_DATA_SIZE ) )
    {
        return false;
    }
    const auto lSize = static_cast<std::size_t>( aSize );
    return PutBytes( 4, aData, lSize ) && InitLength( 4 + lSize );
}

WriteMemoryAcknowledge::WriteMemoryAcknowledge( const void* aBuffer, std::size_t aSize )
    : AcknowledgeHeader( aBuffer, aSize )
{
}

unsigned short WriteMemoryAcknowledge::GetIndex() const
{
    return Get16( 2 );
}

} // namespace GEV
} // namespace WdUtilsLib
