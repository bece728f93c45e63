#pragma once

#include "Simulators/Datagram.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>

namespace Simulators
{

// One transfer.
struct SessionTFTP
{
    Endpoint mPeer;
    uint16_t mPort = 0;
    bool mIsUpload = false;
    std::string mName;
    Bytes mContent;                     // of an upload, so far
    std::shared_ptr<const Bytes> mFile; // of a download
    size_t mOffset = 0;                 // of the current block of a download
    uint16_t mBlock = 0;                // the last one taken, or the current one sent; wraps
    bool mIsComplete = false;
    int64_t mLastMs = 0; // when its peer last sent a packet
};

// SessionsTFTP holds the sessions of a server, by transfer port. Ports are taken in turn.
class SessionsTFTP
{
public:
    // Ports from aFirstPort on. There is at least one.
    SessionsTFTP( uint16_t aFirstPort, uint16_t aPorts );

    // Begins a session. Where every port has one, the session that was silent for the longest time
    // is removed. The reference is valid until the session is removed.
    SessionTFTP& Add( const Endpoint& aPeer, const std::string& aName, int64_t aNowMs );

    // The session at the port; null if there is none.
    SessionTFTP* Find( uint16_t aPort );

    void Remove( uint16_t aPort ) { mSessions.erase( aPort ); }
    void RemoveSilent( int64_t aNowMs, int64_t aTimeoutMs );

    size_t GetCount() const { return mSessions.size(); }

private:
    uint16_t ChoosePort();

    uint16_t mFirstPort;
    uint16_t mPorts;
    uint16_t mNextPort = 0; // counted from mFirstPort
    std::map<uint16_t, SessionTFTP> mSessions;
};

} // namespace Simulators
