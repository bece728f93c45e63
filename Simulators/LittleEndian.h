#pragma once

#include "Simulators/Datagram.h"

#include <cstddef>
#include <cstdint>

namespace Simulators
{

// Appends a little-endian number of aSize bytes, 1 to 8.
void AppendLittle( Bytes* aBytes, uint64_t aValue, size_t aSize );

// The little-endian number of aSize bytes, 1 to 8, at aOffset; what lies beyond aBytes counts as 0.
uint64_t GetLittle( const Bytes& aBytes, size_t aOffset, size_t aSize );

} // namespace Simulators
