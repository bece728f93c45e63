#include <WdUtilsLib/U3V/AckHeader.h>

namespace WdUtilsLib
{
namespace U3V
{

using QmUtilsLib::Result;

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

Result PendingAck::Attach( const unsigned char* aBuffer, unsigned int aSize )
{
    return mHeader.Attach( aBuffer, aSize );
}

} // namespace U3V
} // namespace WdUtilsLib
