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

} // namespace U3V
} // namespace WdUtilsLib
