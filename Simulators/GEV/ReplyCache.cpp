#include "Simulators/GEV/ReplyCache.h"

#include <algorithm>
#include <cstddef>

namespace Simulators
{

namespace
{

// A test host opens a new port for each socket. The limit keeps a long-running device from growing.
constexpr size_t SENDERS_MAX = 64;

} // namespace

const ReplyCache::Entry* ReplyCache::Find( const CommandGEV& aCommand ) const
{
    const auto lFound = mEntries.find( aCommand.mFrom );
    if ( lFound == mEntries.end() || aCommand.mCode == Command::DISCOVERY )
    {
        return nullptr;
    }
    const Entry& lEntry = lFound->second;
    // The whole datagram is compared: another program may reuse a port and an identifier.
    const bool lIsSame =
        lEntry.mRequest == aCommand.mDatagram && aCommand.mNowMs <= lEntry.mForgottenMs;
    return lIsSame ? &lEntry : nullptr;
}

void ReplyCache::Remember( const Endpoint& aFrom, const Entry& aEntry )
{
    mEntries[aFrom] = aEntry;
    if ( mEntries.size() > SENDERS_MAX )
    {
        mEntries.erase(
            std::min_element( mEntries.begin(), mEntries.end(),
                              []( const auto& aA, const auto& aB )
                              { return aA.second.mForgottenMs < aB.second.mForgottenMs; } ) );
    }
}

} // namespace Simulators
