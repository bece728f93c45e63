#include "Libraries/HtBase/TftpRrq.h"

#include <QmUtilsLib/Assert.h>

namespace HtBaseLib
{

bool TftpRrq::Encode( unsigned char* aBuffer, unsigned int aCapacity, unsigned int& aLength ) const
{
    // KEEP: A read request with an unknown mode is sent with an empty one.
    const char* const lKnownMode = GetModeText( mMode );
    const char* const lMode = lKnownMode != nullptr ? lKnownMode : "";
    if ( !EncodeAs( Tftp::RRQ, lMode, aBuffer, aCapacity, aLength ) )
    {
        QMUTILSLIB_ASSERT( false );
        return false;
    }
    return true;
}

bool TftpRrq::Decode( const unsigned char* aBytes, unsigned int aCount )
{
    const Verdict lVerdict = DecodeAs( Tftp::RRQ, aBytes, aCount );
    if ( lVerdict == Verdict::UNKNOWN_MODE )
    {
        QMUTILSLIB_ASSERT( false );
    }
    return lVerdict == Verdict::ACCEPTED;
}

} // namespace HtBaseLib
