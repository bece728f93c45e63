#include <WdUtilsLib/GEV/WriteRegister.h>

namespace WdUtilsLib
{
namespace GEV
{

static_assert( sizeof( WriteRegisterCommand ) == CommandHeader::MAX_SIZE, "no members are added" );

WriteRegisterCommand::WriteRegisterCommand()
    : CommandHeader( COMMAND )
{
}

bool WriteRegisterCommand::InitOperationQty( unsigned int aQuantity )
{
    return aQuantity != 0 && InitLength( std::size_t{ 8 } * aQuantity );
}

bool WriteRegisterCommand::InitAddress( unsigned int aIndex, unsigned int aAddress )
{
    const std::size_t lOffset = std::size_t{ 8 } * aIndex;
    return lOffset < GetLength() && Put32( lOffset, aAddress );
}

bool WriteRegisterCommand::InitValue( unsigned int aIndex, unsigned int aValue )
{
    const std::size_t lOffset = std::size_t{ 8 } * aIndex;
    return lOffset < GetLength() && Put32( lOffset + 4, aValue );
}

WriteRegisterAcknowledge::WriteRegisterAcknowledge( const void* aBuffer, std::size_t aSize )
    : AcknowledgeHeader( aBuffer, aSize )
{
}

unsigned short WriteRegisterAcknowledge::GetIndex() const
{
    return Get16( 2 );
}

} // namespace GEV
} // namespace WdUtilsLib
