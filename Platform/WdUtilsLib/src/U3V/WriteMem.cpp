#include <WdUtilsLib/U3V/WriteMem.h>

#include <QmUtilsLib/String.h>

#include <new>

namespace WdUtilsLib
{
namespace U3V
{

using QmUtilsLib::Result;

namespace
{

// Without memory for the text the code stands alone.
Result MakeTooMuchData()
{
    try
    {
        return Result( INVALID_PACKET, 0, QmUtilsLib::String( "The data does not fit a packet." ) );
    }
    catch ( const std::bad_alloc& )
    {
        return INVALID_PACKET;
    }
}

} // namespace

Result WriteMemCmd::Attach( unsigned char* aBuffer, unsigned int aSize )
{
    *this = WriteMemCmd();
    if ( aBuffer == nullptr || aSize < GetRequiredBufferSize( 0 ) )
    {
        return INVALID_PACKET;
    }
    mCommandHeader = CommandHeader( aBuffer, aSize );
    mWriteMemCmdHeader = WriteMemCmdHeader( aBuffer + CommandHeader::SIZE );
    mBytes = aBuffer;
    mSize = aSize;
    return Result::OK;
}

Result WriteMemCmd::SetCurrentDataSize( unsigned short aSize )
{
    const unsigned int lLength = static_cast<unsigned int>( WriteMemCmdHeader::SIZE ) + aSize;
    const bool lFits = PacketBytes::LittleWriter( mBytes, mSize )
                           .Skip( CommandHeader::SIZE )
                           .Skip( lLength )
                           .IsWhole();
    if ( !lFits || lLength > UINT16_MAX )
    {
        return MakeTooMuchData();
    }
    mCommandHeader.SetLength( static_cast<unsigned short>( lLength ) );
    return Result::OK;
}

Result WriteMemAck::Attach( unsigned char* aBuffer, unsigned int aSize )
{
    return mAckHeader.Attach( aBuffer, aSize );
}

} // namespace U3V
} // namespace WdUtilsLib
