#include <WdUtilsLib/U3V/ReadMem.h>

#include "LittleEndian.h"

#include <algorithm>

namespace WdUtilsLib
{
namespace U3V
{

using QmUtilsLib::Result;

namespace
{

// From the start of the command-specific data.
constexpr std::size_t ADDRESS_OFFSET = 0;
constexpr std::size_t READ_LENGTH_OFFSET = 10;

} // namespace

ReadMemCmdHeader::ReadMemCmdHeader( unsigned char* aBytes )
    : mBytes( aBytes )
{
}

void ReadMemCmdHeader::Initialize()
{
    if ( mBytes != nullptr )
    {
        std::fill_n( mBytes, SIZE, static_cast<unsigned char>( 0 ) );
    }
}

void ReadMemCmdHeader::SetRegisterAddress( unsigned long long aAddress )
{
    if ( mBytes != nullptr )
    {
        PutLittle64( mBytes + ADDRESS_OFFSET, aAddress );
    }
}

void ReadMemCmdHeader::SetReadLength( unsigned short aLength )
{
    if ( mBytes != nullptr )
    {
        PutLittle16( mBytes + READ_LENGTH_OFFSET, aLength );
    }
}

unsigned long long ReadMemCmdHeader::GetRegisterAddress() const
{
    return mBytes == nullptr ? 0 : GetLittle64( mBytes + ADDRESS_OFFSET );
}

unsigned short ReadMemCmdHeader::GetReadLength() const
{
    return mBytes == nullptr ? uint16_t{ 0 } : GetLittle16( mBytes + READ_LENGTH_OFFSET );
}

Result ReadMemCmd::Attach( unsigned char* aBuffer, unsigned int aSize )
{
    *this = ReadMemCmd();
    if ( aBuffer == nullptr || aSize < GetRequiredBufferSize() )
    {
        return INVALID_PACKET;
    }
    mCommandHeader = CommandHeader( aBuffer, aSize );
    mReadMemCmdHeader = ReadMemCmdHeader( aBuffer + CommandHeader::SIZE );
    return Result::OK;
}

void ReadMemCmd::Initialize()
{
    mCommandHeader.Initialize( COMMAND, ReadMemCmdHeader::SIZE );
    mReadMemCmdHeader.Initialize();
}

unsigned int ReadMemCmd::GetRequiredBufferSize()
{
    return CommandHeader::SIZE + ReadMemCmdHeader::SIZE;
}

Result ReadMemAck::Attach( unsigned char* aBuffer, unsigned int aSize )
{
    return mAckHeader.Attach( aBuffer, aSize );
}

bool ReadMemAck::IsValid() const
{
    return mAckHeader.IsValid( ACKNOWLEDGE );
}

unsigned int ReadMemAck::GetRequiredBufferSize( unsigned int aDataSize )
{
    return static_cast<unsigned int>( AckHeader::SIZE ) + aDataSize;
}

} // namespace U3V
} // namespace WdUtilsLib
