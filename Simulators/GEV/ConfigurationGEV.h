#pragma once

#include "Simulators/GEV/CommandGEV.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Simulators
{

// Bits of the three capability registers that change what the device does.
namespace Capability
{
constexpr uint32_t GVCP_CONCATENATION = 0x00000001; // several addresses in one register command
constexpr uint32_t GVCP_WRITEMEM = 0x00000002;
constexpr uint32_t GVCP_PENDING_ACK = 0x00000020;       // from version 1.1 on
constexpr uint32_t GVCP_CONTROL_OWNER = 0x08000000;     // from 1.1 on: 0x0A04 and 0x0A14
constexpr uint32_t GVCP_LINK_SPEED = 0x10000000;        // from 1.1 on: 0x0670
constexpr uint32_t GVCP_HEARTBEAT_DISABLE = 0x20000000; // from 1.1 on: bit 0 of 0x0954
constexpr uint32_t GVCP_SERIAL_NUMBER = 0x40000000;     // from 1.1 on, for hosts to know
constexpr uint32_t GVCP_USER_DEFINED_NAME = 0x80000000; // 0x00E8
constexpr uint32_t CHANNEL_SOURCE_PORT = 0x80000000;    // 0x0930: 0x0B1C; 0x092C: 0x0D1C + 0x40 i
constexpr uint32_t STREAM_LEGACY_BLOCK_ID = 0x40000000; // 0x092C, from 2.0 on
} // namespace Capability

// How long the device works on a command that succeeds, and the pending acknowledges that announce
// this to the host. It announces mTimes times and works mTakesMs milliseconds (T) after each
// announcement: announcements leave at 0, T, 2T, ... and the final acknowledge at mTimes x T. A
// device that cannot announce (mTimes 0, or see mAlways) is silent for T and then sends the final
// acknowledge.
struct PendingAcknowledge
{
    uint16_t mAnnouncedMs = 0; // time to completion that a pending acknowledge carries
    uint32_t mTakesMs = 0;     // T
    uint16_t mTimes = 0;       // announcements per command
    // Pending acknowledges came with version 1.1 and a bit of the GVCP Capability register. true:
    // send them also without these.
    bool mAlways = false;
    // The commands that take this long. Those without acknowledge never do.
    std::vector<uint16_t> mCommands = { Command::READREG, Command::WRITEREG, Command::READMEM,
                                        Command::WRITEMEM };
};

// What a virtual GigE Vision device is. Every value is accepted; numbers are in host order.
struct ConfigurationGEV
{
    // 1.0, 1.1, 1.2, 2.0 or 2.1. It decides which registers and capabilities there are.
    uint16_t mVersionMajor = 2;
    uint16_t mVersionMinor = 0;
    uint32_t mDeviceMode = 0x80000001; // big-endian, transmitter, UTF-8
    std::array<uint8_t, 6> mMacAddress = { 0x02, 0x48, 0x54, 0x42, 0x00, 0x01 };
    uint32_t mIpAddress = 0x7F000001; // 127.0.0.1
    uint32_t mSubnetMask = 0xFF000000;
    uint32_t mGateway = 0;

    // Device texts. What is longer than its field is cut to it; a text that fills its field has no
    // NUL at its end, as on the wire.
    std::string mManufacturerName = "HtBase Virtual Devices"; // 32 bytes
    std::string mModelName = "VirtualDeviceGEV";              // 32
    std::string mDeviceVersion = "1.0";                       // 32
    std::string mManufacturerInfo = "Runs without a camera";  // 48
    std::string mSerialNumber = "VD-0001";                    // 16
    std::string mUserName;                                    // 16, writable

    // The memory that hosts read and write; its size is rounded up to a multiple of 4. Where it
    // overlaps other parts of the address map, those take precedence. Bytes beyond 0xFFFFFFFF are
    // cut off.
    uint32_t mMemoryBase = 0x00100000;
    uint32_t mMemorySize = 0x00100000; // 1 MiB

    uint32_t mHeartbeatTimeoutMs = 3000; // at least 500, as the register itself

    // The counts that 0x0900 and 0x0904 report. One message channel and 512 stream channels at most
    // have registers, whatever is reported.
    uint32_t mMessageChannels = 1;
    uint32_t mStreamChannels = 1;

    // Capability words, exactly as a host reads them; unset: the value that suits the version and
    // the channels. A bit of a later version than the device's is shown but has no effect.
    std::optional<uint32_t> mGvcpCapability;    // 0x0934
    std::optional<uint32_t> mStreamCapability;  // 0x092C, no such register in 1.0
    std::optional<uint32_t> mMessageCapability; // 0x0930, no such register in 1.0

    // Source ports, published from 1.1 on by a CHANNEL_SOURCE_PORT bit in 0x0930 and 0x092C.
    uint32_t mMessageSourcePort = 50000;
    uint32_t mFirstStreamSourcePort = 50001; // channel i has this plus i

    uint64_t mTickFrequency = 0; // of the timestamp, Hz; 0: no timestamp

    PendingAcknowledge mPending;

    // true: lengths, alignment and counts are checked. false: trailing bytes, a wrong length field,
    // any alignment and any count up to 536 are accepted.
    bool mStrict = true;
    // What hosts may write while control is free. true: only Control Channel Privilege.
    // false: everything.
    bool mRequireControl = true;
    // How long after its acknowledge a repeated request is answered without being executed again.
    uint32_t mResendWindowMs = 3000;
    size_t mRequestsKept = 1024; // how many of the latest requests GetRequests returns
};

} // namespace Simulators
