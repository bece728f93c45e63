#include <WdUtilsLib/U3V/WriteMem.h>

#include "LittleEndian.h"

#include <algorithm>

namespace WdUtilsLib
{
namespace U3V
{

using QmUtilsLib::Result;

namespace
{

constexpr unsigned int HEADERS_SIZE = CommandHeader::SIZE + WriteMemCmdHeader::SIZE;

} // namespace

WriteMemCmdHeader::WriteMemCmdHeader( unsigned char* aBytes )
    : mBytes( aBytes )
{
}

void WriteMemCmdHeader::SetRegisterAddress( unsigned long long aAddress )
{
    if ( mBytes != nullptr )
    {
        PutLittle64( mBytes, aAddress );
    }
}

unsigned long long WriteMemCmdHeader::GetRegisterAddress() const
{
    return mBytes == nullptr ? 0 : GetLittle64( mBytes );
}

Result WriteMemCmd::Attach( unsigned char* aBuffer, unsigned int aSize )
{
    *this = WriteMemCmd();
    if ( aBuffer == nullptr || aSize < HEADERS_SIZE )
    {
        return INVALID_PACKET;
    }
    mCommandHeader = CommandHeader( aBuffer, aSize );
    mWriteMemCmdHeader = WriteMemCmdHeader( aBuffer + CommandHeader::SIZE );
    mBytes = aBuffer;
    mSize = aSize;
    return Result::OK;
}

void WriteMemCmd::Initialize()
{
    mCommandHeader.Initialize( COMMAND, WriteMemCmdHeader::SIZE );
    mWriteMemCmdHeader.SetRegisterAddress( 0 );
}

Result WriteMemCmd::SetCurrentDataSize( unsigned short aSize )
{
    const unsigned int lLength = static_cast<unsigned int>( WriteMemCmdHeader::SIZE ) + aSize;
    if ( mBytes == nullptr || aSize > mSize - HEADERS_SIZE || lLength > UINT16_MAX )
    {
        return INVALID_PACKET;
    }
    mCommandHeader.SetLength( static_cast<unsigned short>( lLength ) );
    return Result::OK;
}

unsigned short WriteMemCmd::GetCurrentDataSize() const
{
    const unsigned short lLength = mCommandHeader.GetLength();
    if ( lLength < WriteMemCmdHeader::SIZE )
    {
        return 0;
    }
    const auto lDataSize = static_cast<unsigned short>( lLength - WriteMemCmdHeader::SIZE );
    return static_cast<unsigned short>(
        std::min<unsigned int>( lDataSize, mSize - HEADERS_SIZE ) ); // attached, so no less
}

unsigned char* WriteMemCmd::GetData()
{
    return mBytes == nullptr ? nullptr : mBytes + HEADERS_SIZE;
}

unsigned int WriteMemCmd::GetRequiredBufferSize( unsigned int aDataSize )
{
    return HEADERS_SIZE + aDataSize;
}

Result WriteMemAck::Attach( unsigned char* aBuffer, unsigned int aSize )
{
    return mAckHeader.Attach( aBuffer, aSize );
}

bool WriteMemAck::IsValid() const
{
    return mAckHeader.IsValid( ACKNOWLEDGE );
}

unsigned int WriteMemAck::GetRequiredBufferSize()
{
    constexpr unsigned int WRITTEN_LENGTH_SIZE = 4; // with the reserved half
    return AckHeader::SIZE + WRITTEN_LENGTH_SIZE;
}

} // namespace U3V
} // namespace WdUtilsLib
