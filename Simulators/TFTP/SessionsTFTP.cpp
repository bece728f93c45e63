#include "Simulators/TFTP/SessionsTFTP.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace Simulators
{

SessionsTFTP::SessionsTFTP( uint16_t aFirstPort, uint16_t aPorts )
    : mFirstPort( aFirstPort )
    , mPorts( std::max<uint16_t>( aPorts, 1 ) )
{
}

SessionTFTP& SessionsTFTP::Add( const Endpoint& aPeer, const std::string& aName, int64_t aNowMs )
{
    if ( mSessions.size() >= mPorts )
    {
        mSessions.erase( std::min_element( mSessions.begin(), mSessions.end(),
                                           []( const auto& aA, const auto& aB )
                                           { return aA.second.mLastMs < aB.second.mLastMs; } ) );
    }
    SessionTFTP lSession;
    lSession.mPeer = aPeer;
    lSession.mPort = ChoosePort();
    lSession.mName = aName;
    lSession.mLastMs = aNowMs;
    return mSessions[lSession.mPort] = std::move( lSession );
}

SessionTFTP* SessionsTFTP::Find( uint16_t aPort )
{
    const auto lFound = mSessions.find( aPort );
    return lFound == mSessions.end() ? nullptr : &lFound->second;
}

void SessionsTFTP::RemoveSilent( int64_t aNowMs, int64_t aTimeoutMs )
{
    for ( auto lSession = mSessions.begin(); lSession != mSessions.end(); )
    {
        const bool lIsSilent = aNowMs - lSession->second.mLastMs > aTimeoutMs;
        lSession = lIsSilent ? mSessions.erase( lSession ) : std::next( lSession );
    }
}

// The loop ends, since there are fewer sessions than ports. A port is used again as late as
// possible, so that a late packet of an earlier session does not reach a new one.
uint16_t SessionsTFTP::ChoosePort()
{
    for ( ;; )
    {
        const auto lPort = static_cast<uint16_t>( mFirstPort + mNextPort );
        mNextPort = static_cast<uint16_t>( ( mNextPort + 1 ) % mPorts );
        if ( mSessions.count( lPort ) == 0 )
        {
            return lPort;
        }
    }
}

} // namespace Simulators
