#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace Simulators
{

// Bits of the two capability registers that change what the device does; bit 0 is the least
// significant.
namespace CapabilityU3V
{
constexpr uint64_t USER_NAME = 0x0001;
constexpr uint64_t ACCESS_PRIVILEGE = 0x0002;
constexpr uint64_t MESSAGE_CHANNEL = 0x0004; // EIRM address and length
constexpr uint64_t TIMESTAMP = 0x0008;       // timestamp, latch and increment
constexpr uint64_t FAMILY_NAME = 0x0100;
constexpr uint64_t SBRM = 0x0200;
constexpr uint64_t ENDIANESS = 0x0400;
constexpr uint64_t WRITTEN_LENGTH = 0x0800; // a WRITEMEM acknowledge carries the length written
// Of the U3VCP capability register.
constexpr uint64_t U3VCP_SIRM = 0x01;
constexpr uint64_t U3VCP_EIRM = 0x02;
constexpr uint64_t U3VCP_IIDC2 = 0x04;
} // namespace CapabilityU3V

// What a virtual USB3 Vision device is.
struct ConfigurationU3V
{
    // USB. The packet size is that of all bulk endpoints. Real devices have 512 or 1024; 0 counts
    // as 1.
    uint16_t mVendorID = 0x1AB2;
    uint16_t mProductID = 0x0001;
    uint16_t mPacketSize = 1024;

    // The identity: 12 characters, the first four the vendor in hexadecimal.
    std::string mGUID = "1AB200000001";

    // Texts of the ABRM (at most 64 bytes are shown) and of the USB descriptors (at most 126
    // characters, ASCII). An empty one has no string descriptor.
    std::string mManufacturerName = "HtBase";
    std::string mModelName = "VirtualDeviceU3V";
    std::string mFamilyName = "Virtual";
    std::string mDeviceVersion = "1.0";
    std::string mManufacturerInfo = "Simulated device";
    std::string mSerialNumber = "U3V-0001";
    std::string mUserName;

    // Registers.
    uint32_t mGenCPVersion = 0x00010002;
    uint64_t mDeviceCapability = CapabilityU3V::USER_NAME | CapabilityU3V::ACCESS_PRIVILEGE |
                                 CapabilityU3V::TIMESTAMP | CapabilityU3V::FAMILY_NAME |
                                 CapabilityU3V::SBRM | CapabilityU3V::ENDIANESS |
                                 CapabilityU3V::WRITTEN_LENGTH;
    uint32_t mMaxResponseTimeMs = 200;
    uint64_t mTimestampIncrement = 1000; // ns
    uint32_t mU3VVersion = 0x00010000;
    uint64_t mU3VCapability = CapabilityU3V::U3VCP_SIRM;
    uint32_t mMaxCommandTransferLength = 1024; // as reported
    uint32_t mMaxAckTransferLength = 1024;     // as reported
    uint32_t mStreamChannels = 1;

    // The longest command and acknowledge that the device really takes, in bytes, whatever it
    // reports: a longer command, or a read whose acknowledge would be longer, is refused.
    uint32_t mCommandRoom = 1024;
    uint32_t mAckRoom = 1024;

    // Writable memory, and writable memory at addresses above 32 bits.
    uint64_t mMemoryBase = 0x00100000;
    size_t mMemorySize = 0x00100000;
    uint64_t mHighMemoryBase = 0x0123456700000000;
    size_t mHighMemorySize = 4096;

    // true: reads and writes of 0 bytes succeed and do nothing. false: they are refused.
    bool mAllowsEmptyAccess = false;
    // Addresses and counts must be multiples of this.
    uint32_t mAlignment = 1;

    // How many of the latest requests are kept.
    size_t mRequestsKept = 1024;
};

} // namespace Simulators
