#pragma once

#include "Simulators/Datagram.h"

#include <cstdint>
#include <string>
#include <vector>

namespace Simulators
{

// A fault in an answer of the server.
enum class TroubleTFTP
{
    SILENCE,      // it is not sent; its other effects have happened
    DUPLICATE,    // it is sent twice
    WRONG_BLOCK,  // it has another block number
    FOREIGN_PORT, // it leaves from DisturbanceTFTP::mForeignPort, where no session is
    ERROR_PACKET  // an ERROR packet is sent in its place and the session ends
};

// mTrouble applies to the answers mFirst to mFirst + mCount - 1 of the server, counted from 0.
struct DisturbanceTFTP
{
    TroubleTFTP mTrouble = TroubleTFTP::SILENCE;
    uint64_t mFirst = 0;
    uint64_t mCount = 1;
    uint16_t mBlockOffset = 1; // added to the block number
    uint16_t mForeignPort = 40069;
    uint16_t mErrorCode = 0;
    std::string mMessage = "Disturbed";
};

// What is sent in place of the answer.
std::vector<Outgoing> Disturb( const Outgoing& aAnswer, const DisturbanceTFTP& aDisturbance );

} // namespace Simulators
