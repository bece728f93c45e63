#include <WdUtilsLib/GEV/CommandHeader.h>

#include "BigEndian.h"

#include <cstring>
#include <type_traits>

namespace WdUtilsLib
{
namespace GEV
{

static_assert( std::is_standard_layout<CommandHeader>::value, "the object is the datagram" );
static_assert( sizeof( CommandHeader ) == CommandHeader::MAX_SIZE, "the object is the datagram" );
static_assert( alignof( CommandHeader ) == 1, "the object is the datagram" );

namespace
{

constexpr std::size_t KEY_OFFSET = 0;
constexpr std::size_t FLAGS_OFFSET = 1;
constexpr std::size_t COMMAND_OFFSET = 2;
constexpr std::size_t LENGTH_OFFSET = 4;
constexpr std::size_t REQUEST_ID_OFFSET = 6;

} // namespace

CommandHeader::CommandHeader( unsigned short aCommand )
    : mBytes{}
{
    mBytes[KEY_OFFSET] = KEY;
    mBytes[FLAGS_OFFSET] = FLAG_ACKNOWLEDGE;
    PutBig16( &mBytes[COMMAND_OFFSET], aCommand );
}

void CommandHeader::InitRequestId( unsigned short aRequestId )
{
    PutBig16( &mBytes[REQUEST_ID_OFFSET], aRequestId );
}

void CommandHeader::InitFlagAcknowledge( bool aRequired )
{
    InitFlag( FLAG_ACKNOWLEDGE, aRequired );
}

unsigned short CommandHeader::GetRequestId() const
{
    return GetBig16( &mBytes[REQUEST_ID_OFFSET] );
}

unsigned short CommandHeader::GetCommand() const
{
    return GetBig16( &mBytes[COMMAND_OFFSET] );
}

bool CommandHeader::GetFlagAcknowledge() const
{
    return ( mBytes[FLAGS_OFFSET] & FLAG_ACKNOWLEDGE ) != 0;
}

unsigned short CommandHeader::GetLength() const
{
    return GetBig16( &mBytes[LENGTH_OFFSET] );
}

unsigned short CommandHeader::GetTotalLength() const
{
    return static_cast<unsigned short>( HEADER_SIZE + GetLength() ); // at most MAX_SIZE
}

void CommandHeader::InitFlag( uint8_t aFlag, bool aSet )
{
    const uint8_t lOthers = static_cast<uint8_t>( mBytes[FLAGS_OFFSET] & ~aFlag );
    mBytes[FLAGS_OFFSET] = static_cast<uint8_t>( lOthers | ( aSet ? aFlag : 0 ) );
}

bool CommandHeader::InitLength( std::size_t aLength )
{
    if ( aLength > MAX_PAYLOAD_SIZE )
    {
        return false;
    }
    PutBig16( &mBytes[LENGTH_OFFSET], static_cast<uint16_t>( aLength ) ); // at most 540
    return true;
}

bool CommandHeader::Put16( std::size_t aOffset, uint16_t aValue )
{
    uint8_t lBytes[2];
    PutBig16( lBytes, aValue );
    return PutBytes( aOffset, lBytes, sizeof( lBytes ) );
}

bool CommandHeader::Put32( std::size_t aOffset, uint32_t aValue )
{
    uint8_t lBytes[4];
    PutBig32( lBytes, aValue );
    return PutBytes( aOffset, lBytes, sizeof( lBytes ) );
}

bool CommandHeader::PutBytes( std::size_t aOffset, const void* aData, std::size_t aSize )
{
    if ( aOffset > MAX_PAYLOAD_SIZE || aSize > MAX_PAYLOAD_SIZE - aOffset )
    {
        return false;
    }
    if ( aSize != 0 )
    {
        std::memcpy( &mBytes[HEADER_SIZE + aOffset], aData, aSize );
    }
    return true;
}

} // namespace GEV
} // namespace WdUtilsLib
