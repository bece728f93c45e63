#include <WdUtilsLib/U3V/CommandHeader.h>

#include "LittleEndian.h"

namespace WdUtilsLib
{
namespace U3V
{

namespace
{

constexpr std::size_t PREFIX_OFFSET = 0;
constexpr std::size_t FLAGS_OFFSET = 4;
constexpr std::size_t COMMAND_OFFSET = 6;
constexpr std::size_t LENGTH_OFFSET = 8;
constexpr std::size_t REQUEST_ID_OFFSET = 10;

uint16_t Get16( const unsigned char* aBytes, std::size_t aOffset )
{
    return aBytes == nullptr ? uint16_t{ 0 } : GetLittle16( aBytes + aOffset );
}

void Put16( unsigned char* aBytes, std::size_t aOffset, uint16_t aValue )
{
    if ( aBytes != nullptr )
    {
        PutLittle16( aBytes + aOffset, aValue );
    }
}

} // namespace

CommandHeader::CommandHeader( unsigned char* aBuffer, unsigned int aSize )
    : mBytes( aSize < SIZE ? nullptr : aBuffer )
{
}

void CommandHeader::Initialize( unsigned short aCommand, unsigned short aLength )
{
    if ( mBytes != nullptr )
    {
        PutLittle32( mBytes + PREFIX_OFFSET, PREFIX );
    }
    Put16( mBytes, FLAGS_OFFSET, 0 );
    Put16( mBytes, COMMAND_OFFSET, aCommand );
    Put16( mBytes, LENGTH_OFFSET, aLength );
    Put16( mBytes, REQUEST_ID_OFFSET, 0 );
}

void CommandHeader::SetRequestAck( bool aRequested )
{
    const int lOthers = Get16( mBytes, FLAGS_OFFSET ) & ~FLAG_REQUEST_ACK;
    Put16( mBytes, FLAGS_OFFSET,
           static_cast<uint16_t>( lOthers | ( aRequested ? FLAG_REQUEST_ACK : 0 ) ) );
}

void CommandHeader::SetRequestID( unsigned short aRequestID )
{
    Put16( mBytes, REQUEST_ID_OFFSET, aRequestID );
}

void CommandHeader::SetLength( unsigned short aLength )
{
    Put16( mBytes, LENGTH_OFFSET, aLength );
}

uint32_t CommandHeader::GetPrefix() const
{
    return mBytes == nullptr ? 0 : GetLittle32( mBytes + PREFIX_OFFSET );
}

bool CommandHeader::GetRequestAck() const
{
    return ( Get16( mBytes, FLAGS_OFFSET ) & FLAG_REQUEST_ACK ) != 0;
}

unsigned short CommandHeader::GetCommand() const
{
    return Get16( mBytes, COMMAND_OFFSET );
}

unsigned short CommandHeader::GetLength() const
{
    return Get16( mBytes, LENGTH_OFFSET );
}

unsigned short CommandHeader::GetRequestID() const
{
    return Get16( mBytes, REQUEST_ID_OFFSET );
}

} // namespace U3V
} // namespace WdUtilsLib
