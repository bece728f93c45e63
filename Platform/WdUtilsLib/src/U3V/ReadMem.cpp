#include <WdUtilsLib/U3V/ReadMem.h>

namespace WdUtilsLib
{
namespace U3V
{

using QmUtilsLib::Result;

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

Result ReadMemAck::Attach( unsigned char* aBuffer, unsigned int aSize )
{
    return mAckHeader.Attach( aBuffer, aSize );
}

} // namespace U3V
} // namespace WdUtilsLib
