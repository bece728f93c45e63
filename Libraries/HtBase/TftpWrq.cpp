#include "Libraries/HtBase/TftpWrq.h"

#include <QmUtilsLib/Assert.h>

namespace HtBaseLib
{

bool TftpWrq::Encode( unsigned char* aBuffer, unsigned int aCapacity, unsigned int& aLength ) const
{
    // KEEP: A write request with an unknown mode asserts and is not encoded.
    const char* const lMode = GetModeText( mMode );
    if ( lMode == nullptr )
    {
        QMUTILSLIB_ASSERT( false );
        return false;
    }
    if ( !EncodeAs( Tftp::WRQ, lMode, aBuffer, aCapacity, aLength ) )
    {
        QMUTILSLIB_ASSERT( false );
        return false;
    }
    return true;
}

bool TftpWrq::Decode( const unsigned char* aBytes, unsigned int aCount )
{
    const Verdict lVerdict = DecodeAs( Tftp::WRQ, aBytes, aCount );
    if ( lVerdict == Verdict::UNKNOWN_MODE )
    {
        QMUTILSLIB_ASSERT( false );
    }
    return lVerdict == Verdict::ACCEPTED;
}

} // namespace HtBaseLib
