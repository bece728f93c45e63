#pragma once

#include "Simulators/Datagram.h"

#include <cstdint>

namespace Simulators
{

// Something that goes wrong with one command; see VirtualDeviceU3V::Inject.
struct FaultU3V
{
    enum class Kind
    {
        STATUS,       // mValue is the status of the acknowledge, and nothing is executed
        SILENT,       // executed, never acknowledged
        DELAY,        // acknowledged mValue ms later
        PENDING,      // mCount pending acknowledges of mValue ms each, mApartMs apart, come first
        EMPTY,        // mCount transfers of no bytes come first
        STALE,        // an acknowledge of the previous command comes first
        SHORT,        // mValue bytes of data fewer, or none at all; the length field agrees
        LONG,         // mValue bytes of data more; the length field agrees
        TRUNCATED,    // only the first mValue bytes of the transfer
        CORRUPTED,    // the byte at offset mValue is inverted, if there is one
        WRONG_LENGTH, // the length field is mValue
        WRONG_CODE,   // the acknowledge code is mValue
        WRONG_ID,     // the identifier is mValue more than it should be
        WRONG_PREFIX,
        STALL_OUT, // the OUT endpoint halts; nothing is executed
        STALL_IN,  // executed; the IN endpoint halts in place of the acknowledge
        UNPLUG     // executed; the device is unplugged before it acknowledges
    };

    Kind mKind = Kind::SILENT;
    uint32_t mValue = 0; // numbers of 16 bits are cut to them
    uint32_t mCount = 1;
    uint32_t mApartMs = 0;
};

// What the fault makes of a whole acknowledge; the same bytes for faults of another kind.
Bytes Damage( Bytes aAcknowledge, const FaultU3V& aFault );

} // namespace Simulators
