#include <WdUtilsLib/U3V/AckHeader.h>

#include "LittleEndian.h"

#include <algorithm>

namespace WdUtilsLib
{
namespace U3V
{

using QmUtilsLib::Result;

namespace
{

constexpr std::size_t PREFIX_OFFSET = 0;
constexpr std::size_t STATUS_OFFSET = 4;
constexpr std::size_t ACKNOWLEDGE_OFFSET = 6;
constexpr std::size_t LENGTH_OFFSET = 8;
constexpr std::size_t REQUEST_ID_OFFSET = 10;

uint16_t Get16( const unsigned char* aBytes, std::size_t aOffset )
{
    return aBytes == nullptr ? uint16_t{ 0 } : GetLittle16( aBytes + aOffset );
}

} // namespace

Result AckHeader::Attach( const unsigned char* aBuffer, unsigned int aSize )
{
    *this = AckHeader();
    if ( aBuffer == nullptr || aSize < SIZE )
    {
        return INVALID_PACKET;
    }
    mBytes = aBuffer;
    mSize = aSize;
    return Result::OK;
}

bool AckHeader::IsValid( unsigned short aAcknowledge ) const
{
    return mBytes != nullptr && GetPrefix() == PREFIX && GetAcknowledge() == aAcknowledge &&
           SIZE + GetLength() <= mSize;
}

uint32_t AckHeader::GetPrefix() const
{
    return mBytes == nullptr ? 0 : GetLittle32( mBytes + PREFIX_OFFSET );
}

unsigned short AckHeader::GetStatus() const
{
    return Get16( mBytes, STATUS_OFFSET );
}

unsigned short AckHeader::GetAcknowledge() const
{
    return Get16( mBytes, ACKNOWLEDGE_OFFSET );
}

unsigned short AckHeader::GetLength() const
{
    return Get16( mBytes, LENGTH_OFFSET );
}

unsigned short AckHeader::GetRequestID() const
{
    return Get16( mBytes, REQUEST_ID_OFFSET );
}

unsigned int AckHeader::GetCurrentDataSize() const
{
    return mBytes == nullptr
               ? 0
               : std::min<unsigned int>( GetLength(), mSize - static_cast<unsigned int>( SIZE ) );
}

const unsigned char* AckHeader::GetData() const
{
    return mBytes == nullptr ? nullptr : mBytes + SIZE;
}

Result PendingAck::Attach( const unsigned char* aBuffer, unsigned int aSize )
{
    return mHeader.Attach( aBuffer, aSize );
}

bool PendingAck::IsValid() const
{
    return mHeader.IsValid( ACKNOWLEDGE ) && mHeader.GetCurrentDataSize() >= SIZE - AckHeader::SIZE;
}

unsigned short PendingAck::GetTimeout() const
{
    constexpr std::size_t TIMEOUT_OFFSET = 2;
    return IsValid() ? GetLittle16( mHeader.GetData() + TIMEOUT_OFFSET ) : uint16_t{ 0 };
}

} // namespace U3V
} // namespace WdUtilsLib
