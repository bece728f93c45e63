#pragma once

#include "Simulators/Datagram.h"
#include "Simulators/U3V/ConfigurationU3V.h"

#include <cstdint>
#include <optional>

namespace Simulators
{

// The addresses of the device's endpoints.
namespace EndpointU3V
{
constexpr uint8_t CONTROL_OUT = 0x01;
constexpr uint8_t CONTROL_IN = 0x81;
constexpr uint8_t STREAM_IN = 0x82;
} // namespace EndpointU3V

// USB descriptors of the device: type 1 is the device descriptor, 2 the configuration with its
// interfaces, 3 the strings. Interface 0 is the control interface, interface 1 the stream's. Empty
// for descriptors that the device does not have.
std::optional<Bytes> GetDescriptor( const ConfigurationU3V& aConfiguration, uint8_t aType,
                                    uint8_t aIndex );

} // namespace Simulators
