#pragma once

#include "Simulators/AddressSpace.h"
#include "Simulators/GEV/ConfigurationGEV.h"

#include <cstdint>
#include <string>

namespace Simulators
{

// The address map of the virtual device.
//
// 0x00000000  bootstrap registers of the standard, up to the last stream channel's
// 0x0000A000  manufacturer's registers, see below
// 0x00010000  description of the device (XML), read only
// 0x00100000  memory, 1 MiB (both figures are configurable)
//
// Everything else is an invalid address. Within the bootstrap and manufacturer's registers a word
// that is not a register is refused to READREG, WRITEREG and WRITEMEM and reads as 0 within a
// READMEM.
namespace Register
{
constexpr uint32_t VERSION = 0x0000;
constexpr uint32_t DEVICE_MODE = 0x0004;
constexpr uint32_t MAC_HIGH = 0x0008;
constexpr uint32_t MAC_LOW = 0x000C;
constexpr uint32_t IP_CONFIGURATION_SUPPORTED = 0x0010;
constexpr uint32_t IP_CONFIGURATION = 0x0014;
constexpr uint32_t IP_ADDRESS = 0x0024;
constexpr uint32_t SUBNET_MASK = 0x0034;
constexpr uint32_t GATEWAY = 0x0044;
constexpr uint32_t MANUFACTURER_NAME = 0x0048;
constexpr uint32_t MODEL_NAME = 0x0068;
constexpr uint32_t DEVICE_VERSION = 0x0088;
constexpr uint32_t MANUFACTURER_INFO = 0x00A8;
constexpr uint32_t SERIAL_NUMBER = 0x00D8;
constexpr uint32_t USER_NAME = 0x00E8;
constexpr uint32_t FIRST_URL = 0x0200;
constexpr uint32_t SECOND_URL = 0x0400;
constexpr uint32_t NETWORK_INTERFACES = 0x0600;
constexpr uint32_t PERSISTENT_IP = 0x064C;
constexpr uint32_t PERSISTENT_MASK = 0x065C;
constexpr uint32_t PERSISTENT_GATEWAY = 0x066C;
constexpr uint32_t LINK_SPEED = 0x0670;
constexpr uint32_t MESSAGE_CHANNELS = 0x0900;
constexpr uint32_t STREAM_CHANNELS = 0x0904;
constexpr uint32_t STREAM_CAPABILITY = 0x092C;
constexpr uint32_t MESSAGE_CAPABILITY = 0x0930;
constexpr uint32_t GVCP_CAPABILITY = 0x0934;
constexpr uint32_t HEARTBEAT_TIMEOUT = 0x0938;
constexpr uint32_t TICK_FREQUENCY_HIGH = 0x093C;
constexpr uint32_t TICK_FREQUENCY_LOW = 0x0940;
constexpr uint32_t TIMESTAMP_CONTROL = 0x0944; // bit 1 latches, bit 0 resets
constexpr uint32_t TIMESTAMP_HIGH = 0x0948;
constexpr uint32_t TIMESTAMP_LOW = 0x094C;
constexpr uint32_t GVCP_CONFIGURATION = 0x0954; // bit 0 disables the heartbeat
constexpr uint32_t PENDING_TIMEOUT = 0x0958;
constexpr uint32_t CONTROL_PRIVILEGE = 0x0A00;
constexpr uint32_t CONTROL_OWNER_PORT = 0x0A04;
constexpr uint32_t CONTROL_OWNER_ADDRESS = 0x0A14;
constexpr uint32_t MESSAGE_PORT = 0x0B00;
constexpr uint32_t MESSAGE_DESTINATION = 0x0B10;
constexpr uint32_t MESSAGE_TIMEOUT = 0x0B14;
constexpr uint32_t MESSAGE_RETRIES = 0x0B18;
constexpr uint32_t MESSAGE_SOURCE_PORT = 0x0B1C;
constexpr uint32_t STREAM_STRIDE = 0x40; // from one stream channel to the next
constexpr uint32_t STREAM_PORT = 0x0D00;
constexpr uint32_t STREAM_PACKET_SIZE = 0x0D04;
constexpr uint32_t STREAM_PACKET_DELAY = 0x0D08;
constexpr uint32_t STREAM_DESTINATION = 0x0D18;
constexpr uint32_t STREAM_SOURCE_PORT = 0x0D1C;

// Manufacturer's registers.
constexpr uint32_t SCRATCH = 0xA000; // sixteen words, 0 at first, without any effect
constexpr uint32_t SCRATCH_COUNT = 16;
constexpr uint32_t READ_ONLY_WORD =
    0xA040; // reads READ_ONLY_VALUE, a write is refused: write protect
constexpr uint32_t READ_ONLY_VALUE = 0x4854424C;
constexpr uint32_t BUSY_WORD =
    0xA044; // answered busy as often as BUSY_COUNT says, else a scratch word
constexpr uint32_t BUSY_COUNT = 0xA048; // accesses to BUSY_WORD that are still to be answered busy
// Registers that the description of the device names.
constexpr uint32_t WIDTH = 0xA100;
constexpr uint32_t HEIGHT = 0xA104;
constexpr uint32_t PIXEL_FORMAT = 0xA108;
constexpr uint32_t ACQUISITION = 0xA10C;

constexpr uint32_t DESCRIPTION = 0x00010000;
} // namespace Register

// Number of bytes that DISCOVERY acknowledges with, from 0x0000 on.
constexpr uint32_t DISCOVERY_SIZE = 0x00F8;

// The shortest Heartbeat Timeout that the standard allows, in ms. A shorter one that is written
// becomes this.
constexpr uint32_t HEARTBEAT_MIN_MS = 500;

// Stream channels that have registers, at most.
constexpr uint32_t STREAM_CHANNELS_MAX = 512;

// Stream channels that have registers; the device may report more.
uint32_t GetStreamRegisterCount( const ConfigurationGEV& aConfiguration );

// Whether the device is of at least this version.
bool HasVersion( const ConfigurationGEV& aConfiguration, uint16_t aMajor, uint16_t aMinor );

// The words that the capability registers show.
uint32_t GetGvcpCapability( const ConfigurationGEV& aConfiguration );
uint32_t GetStreamCapability( const ConfigurationGEV& aConfiguration );
uint32_t GetMessageCapability( const ConfigurationGEV& aConfiguration );

// The description of the device: GenICam XML, a multiple of 4 long.
std::string GetDescriptionGEV();

// The whole address map with the values that a device has after power-up.
AddressSpace MakeAddressSpaceGEV( const ConfigurationGEV& aConfiguration );

} // namespace Simulators
