#include <WdUtilsLib/GEV/ReadRegister.h>

namespace WdUtilsLib
{
namespace GEV
{

static_assert( sizeof( ReadRegisterCommand ) == CommandHeader::MAX_SIZE, "no members are added" );

ReadRegisterCommand::ReadRegisterCommand()
    : CommandHeader( COMMAND )
{
}

bool ReadRegisterCommand::InitOperationQty( unsigned int aQuantity )
{
    return aQuantity != 0 && InitLength( std::size_t{ 4 } * aQuantity );
}

bool ReadRegisterCommand::InitAddress( unsigned int aIndex, unsigned int aAddress )
{
    const std::size_t lOffset = std::size_t{ 4 } * aIndex;
    return lOffset < GetLength() && Put32( lOffset, aAddress );
}

ReadRegisterAcknowledge::ReadRegisterAcknowledge( const void* aBuffer, std::size_t aSize )
    : AcknowledgeHeader( aBuffer, aSize )
{
}

unsigned int ReadRegisterAcknowledge::GetValue( unsigned int aIndex, bool aHostOrder ) const
{
    const std::size_t lOffset = std::size_t{ 4 } * aIndex;
    if ( aHostOrder )
    {
        return Get32( lOffset );
    }
    unsigned int lValue = 0;
    (void)GetBytes( lOffset, &lValue, sizeof( lValue ) ); // 0 where there is nothing
    return lValue;
}

} // namespace GEV
} // namespace WdUtilsLib
