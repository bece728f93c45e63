#include <WdUtilsLib/GEV/AcknowledgeHeader.h>

#include "BigEndian.h"

#include <algorithm>
#include <cstring>

namespace WdUtilsLib
{
namespace GEV
{

namespace
{

constexpr std::size_t STATUS_OFFSET = 0;
constexpr std::size_t ACKNOWLEDGE_OFFSET = 2;
constexpr std::size_t LENGTH_OFFSET = 4;
constexpr std::size_t ACKNOWLEDGE_ID_OFFSET = 6;
constexpr std::size_t TIME_TO_COMPLETION_OFFSET = 10;

} // namespace

AcknowledgeHeader::AcknowledgeHeader( const void* aBuffer, std::size_t aSize )
    : mBytes( static_cast<const uint8_t*>( aBuffer ) )
    , mSize( aSize )
{
}

bool AcknowledgeHeader::IsValid( unsigned int aReceived, const CommandHeader& aCommand ) const
{
    if ( aReceived < HEADER_SIZE || aReceived > mSize )
    {
        return false;
    }
    return HEADER_SIZE + GetLength() == aReceived &&
           GetAcknowledge() == aCommand.GetCommand() + 1 &&
           GetAcknowledgeId() == aCommand.GetRequestId();
}

unsigned short AcknowledgeHeader::GetStatus() const
{
    return GetField( STATUS_OFFSET );
}

unsigned short AcknowledgeHeader::GetAcknowledge() const
{
    return GetField( ACKNOWLEDGE_OFFSET );
}

unsigned short AcknowledgeHeader::GetLength() const
{
    return GetField( LENGTH_OFFSET );
}

unsigned short AcknowledgeHeader::GetAcknowledgeId() const
{
    return GetField( ACKNOWLEDGE_ID_OFFSET );
}

std::size_t AcknowledgeHeader::GetPayloadSize() const
{
    return mSize < HEADER_SIZE ? 0 : std::min<std::size_t>( GetLength(), mSize - HEADER_SIZE );
}

uint16_t AcknowledgeHeader::Get16( std::size_t aOffset ) const
{
    uint8_t lBytes[2] = {};
    (void)GetBytes( aOffset, lBytes, sizeof( lBytes ) ); // zeros where there is nothing
    return GetBig16( lBytes );
}

uint32_t AcknowledgeHeader::Get32( std::size_t aOffset ) const
{
    uint8_t lBytes[4] = {};
    (void)GetBytes( aOffset, lBytes, sizeof( lBytes ) ); // zeros where there is nothing
    return GetBig32( lBytes );
}

bool AcknowledgeHeader::GetBytes( std::size_t aOffset, void* aData, std::size_t aSize ) const
{
    const std::size_t lPayloadSize = GetPayloadSize();
    if ( aOffset > lPayloadSize || aSize > lPayloadSize - aOffset )
    {
        return false;
    }
    if ( aSize != 0 )
    {
        std::memcpy( aData, mBytes + HEADER_SIZE + aOffset, aSize );
    }
    return true;
}

uint16_t AcknowledgeHeader::GetField( std::size_t aOffset ) const
{
    const bool lIsThere = mSize >= std::max( HEADER_SIZE, aOffset + sizeof( uint16_t ) );
    return lIsThere ? GetBig16( mBytes + aOffset ) : uint16_t{ 0 };
}

PendingAcknowledgeHeader::PendingAcknowledgeHeader( const void* aBuffer, std::size_t aSize )
    : AcknowledgeHeader( aBuffer, aSize )
{
}

unsigned short PendingAcknowledgeHeader::GetTimeToCompletion() const
{
    return GetField( TIME_TO_COMPLETION_OFFSET );
}

} // namespace GEV
} // namespace WdUtilsLib
