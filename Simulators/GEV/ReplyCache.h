#pragma once

#include "Simulators/Datagram.h"
#include "Simulators/GEV/CommandGEV.h"

#include <cstdint>
#include <map>

namespace Simulators
{

// ReplyCache keeps the latest command of each sender with its answer. A command that is repeated,
// because its acknowledge was lost or late, is then not executed again.
class ReplyCache
{
public:
    struct Entry
    {
        Bytes mRequest;
        Bytes mAnswer;            // empty: none was due
        int64_t mAnswerMs = 0;    // when the answer leaves
        int64_t mForgottenMs = 0; // when the entry expires
    };

    // The entry of the command if it repeats the latest command of its sender; otherwise null.
    // Always null for DISCOVERY, which is always executed. Valid until the next Remember.
    const Entry* Find( const CommandGEV& aCommand ) const;

    // Replaces the entry of the sender. When there are too many senders, the entry that expires
    // first is removed.
    void Remember( const Endpoint& aFrom, const Entry& aEntry );

private:
    std::map<Endpoint, Entry> mEntries;
};

} // namespace Simulators
