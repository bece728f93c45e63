#pragma once

#include "Simulators/AddressSpace.h"
#include "Simulators/U3V/ConfigurationU3V.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace Simulators
{

// The address map of the virtual device. Every address outside these regions and the two memories
// is invalid.
//
// 0x00000000  ABRM
// 0x00010000  SBRM
// 0x00020000  SIRM, one after the other where there are several stream channels
// 0x00030000  EIRM
// 0x00040000  manifest table
// 0x00050000  description of the device (XML)
namespace RegisterU3V
{
// ABRM. Texts have 64 bytes.
constexpr uint64_t GENCP_VERSION = 0x0000; // 4 bytes
constexpr uint64_t MANUFACTURER_NAME = 0x0004;
constexpr uint64_t MODEL_NAME = 0x0044;
constexpr uint64_t FAMILY_NAME = 0x0084;
constexpr uint64_t DEVICE_VERSION = 0x00C4;
constexpr uint64_t MANUFACTURER_INFO = 0x0104;
constexpr uint64_t SERIAL_NUMBER = 0x0144;
constexpr uint64_t USER_NAME = 0x0184;                // can be written
constexpr uint64_t DEVICE_CAPABILITY = 0x01C4;        // 8
constexpr uint64_t MAX_RESPONSE_TIME = 0x01CC;        // 4
constexpr uint64_t MANIFEST_TABLE_ADDRESS = 0x01D0;   // 8
constexpr uint64_t SBRM_ADDRESS = 0x01D8;             // 8
constexpr uint64_t DEVICE_CONFIGURATION = 0x01E0;     // 8, can be written
constexpr uint64_t HEARTBEAT_TIMEOUT = 0x01E8;        // 4, can be written
constexpr uint64_t MESSAGE_CHANNEL_ID = 0x01EC;       // 4, can be written
constexpr uint64_t TIMESTAMP = 0x01F0;                // 8
constexpr uint64_t TIMESTAMP_LATCH = 0x01F8;          // 4, can be written: bit 0 latches
constexpr uint64_t TIMESTAMP_INCREMENT = 0x01FC;      // 8
constexpr uint64_t ACCESS_PRIVILEGE = 0x0204;         // 4, can be written
constexpr uint64_t PROTOCOL_ENDIANESS = 0x0208;       // 4
constexpr uint64_t IMPLEMENTATION_ENDIANESS = 0x020C; // 4
constexpr size_t ABRM_SIZE = 0x0250;
constexpr size_t TEXT_SIZE = 64;

// SBRM.
constexpr uint64_t SBRM = 0x00010000;
constexpr uint64_t U3V_VERSION = SBRM + 0x00;          // 4
constexpr uint64_t U3VCP_CAPABILITY = SBRM + 0x04;     // 8
constexpr uint64_t U3VCP_CONFIGURATION = SBRM + 0x0C;  // 8, can be written
constexpr uint64_t MAX_COMMAND_TRANSFER = SBRM + 0x14; // 4
constexpr uint64_t MAX_ACK_TRANSFER = SBRM + 0x18;     // 4
constexpr uint64_t STREAM_CHANNELS = SBRM + 0x1C;      // 4
constexpr uint64_t SIRM_ADDRESS = SBRM + 0x20;         // 8
constexpr uint64_t SIRM_LENGTH = SBRM + 0x28;          // 4
constexpr uint64_t EIRM_ADDRESS = SBRM + 0x2C;         // 8
constexpr uint64_t EIRM_LENGTH = SBRM + 0x34;          // 4
constexpr uint64_t IIDC2_ADDRESS = SBRM + 0x38;        // 8
constexpr uint64_t CURRENT_SPEED = SBRM + 0x40;        // 4
constexpr size_t SBRM_SIZE = 0x44;

constexpr uint64_t SIRM = 0x00020000; // all of it can be written but the sizes it requires
constexpr size_t SIRM_SIZE = 0x30;
constexpr uint64_t EIRM = 0x00030000; // where events are supported; can be written
constexpr size_t EIRM_SIZE = 0x0C;
constexpr uint64_t MANIFEST = 0x00040000; // one entry
constexpr uint64_t DESCRIPTION = 0x00050000;

// Offsets in the memory of the words that the description names. They are little-endian.
constexpr uint64_t WIDTH_OFFSET = 0x00;
constexpr uint64_t HEIGHT_OFFSET = 0x04;
constexpr uint64_t PIXEL_FORMAT_OFFSET = 0x08;
constexpr uint64_t ACQUISITION_OFFSET = 0x0C;
constexpr uint64_t SCRATCH_OFFSET = 0x10;
} // namespace RegisterU3V

// The description of the device: GenICam XML.
std::string GetDescriptionU3V( const ConfigurationU3V& aConfiguration );

// The whole address map with the values that a device has after power-up.
AddressSpace MakeAddressSpaceU3V( const ConfigurationU3V& aConfiguration );

} // namespace Simulators
