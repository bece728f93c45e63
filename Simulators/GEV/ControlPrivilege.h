#pragma once

#include "Simulators/AddressSpace.h"
#include "Simulators/Datagram.h"
#include "Simulators/GEV/ConfigurationGEV.h"

#include <cstdint>
#include <optional>

namespace Simulators
{

// ControlPrivilege decides which host holds control of a GigE Vision device, and so which hosts may
// read and write it. The privilege, the holder's address and the heartbeat are registers in the
// device's address space, which each operation is given. VirtualDeviceGEV.h states the rules.
class ControlPrivilege
{
public:
    explicit ControlPrivilege( const ConfigurationGEV& aConfiguration );

    // Carries out a write of aValue to Control Channel Privilege that MayWrite allowed.
    void Write( AddressSpace& aSpace, const Endpoint& aFrom, uint32_t aValue, int64_t aNowMs );

    // Frees control if its holder was silent for longer than Heartbeat Timeout.
    void Expire( AddressSpace& aSpace, int64_t aNowMs );

    // Restarts the heartbeat at aTimeMs if aFrom is the holder. aTimeMs may be in the future.
    void KeepAlive( const Endpoint& aFrom, int64_t aTimeMs );

    // The holder of control at that time; empty if control is free.
    std::optional<Endpoint> GetHolder( const AddressSpace& aSpace, int64_t aNowMs ) const;

    // Call Expire for the time of the access before these.
    bool MayRead( const AddressSpace& aSpace, const Endpoint& aFrom, uint64_t aAddress ) const;
    bool MayWrite( const Endpoint& aFrom, uint64_t aAddress ) const;

private:
    void Free( AddressSpace& aSpace );

    bool mIsRequired;
    uint32_t mStreamChannels; // that have registers
    std::optional<Endpoint> mHolder;
    int64_t mHolderSeenMs = 0;
};

} // namespace Simulators
