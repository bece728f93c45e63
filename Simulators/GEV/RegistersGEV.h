#pragma once

#include "Simulators/AddressFaults.h"
#include "Simulators/AddressSpace.h"
#include "Simulators/Datagram.h"
#include "Simulators/GEV/CommandGEV.h"
#include "Simulators/GEV/ConfigurationGEV.h"
#include "Simulators/GEV/ControlPrivilege.h"

#include <cstddef>
#include <cstdint>
#include <optional>

namespace Simulators
{

// RegistersGEV holds the registers and the memory of a GigE Vision device, decides which access is
// allowed at the moment, and carries out the effects of a write.
class RegistersGEV
{
public:
    explicit RegistersGEV( const ConfigurationGEV& aConfiguration );

    const ConfigurationGEV& GetConfiguration() const { return mConfiguration; }

    // Whether lengths, alignment and counts are checked.
    bool IsStrict() const { return mConfiguration.mStrict; }

    // Whether the word of GVCP Capability has this bit.
    bool HasCapability( uint32_t aBit ) const;

    // The status that was set to refuse this access; SUCCESS if there is none.
    uint16_t FindRefusal( const CommandGEV& aCommand, uint64_t aAddress, size_t aSize ) const;

    // The status that refuses the command's access to 1 to 4 bytes at aAddress; SUCCESS if it is
    // allowed. Each call that finds Register::BUSY_WORD busy takes one off Register::BUSY_COUNT.
    uint16_t Check( const CommandGEV& aCommand, uint64_t aAddress, size_t aSize );

    // The bytes of the span, without a check.
    Bytes Read( uint64_t aAddress, size_t aSize ) const { return mSpace.Read( aAddress, aSize ); }

    // Writes 1 to 4 bytes that Check allowed, and carries out the effects of the write.
    void Write( const CommandGEV& aCommand, uint64_t aAddress, const Bytes& aData );

    // Whether the command touches an address that the device is silent about.
    bool IsSilent( const CommandGEV& aCommand ) const;

    // See ControlPrivilege.
    void ExpireControl( int64_t aNowMs ) { mPrivilege.Expire( mSpace, aNowMs ); }
    void KeepControl( const Endpoint& aFrom, int64_t aTimeMs )
    {
        mPrivilege.KeepAlive( aFrom, aTimeMs );
    }
    std::optional<Endpoint> GetHolder( int64_t aNowMs ) const
    {
        return mPrivilege.GetHolder( mSpace, aNowMs );
    }

    // Direct access, without rules and effects. Faults are at addresses that are multiples of 4.
    AddressFaults& GetFaults() { return mFaults; }
    AddressSpace& GetSpace() { return mSpace; }
    const AddressSpace& GetSpace() const { return mSpace; }

private:
    uint16_t CheckAccess( const CommandGEV& aCommand, Access aAccess ) const;
    bool TakeBusy( uint64_t aAddress, size_t aSize );
    void Store( const CommandGEV& aCommand, uint64_t aAddress, uint32_t aValue );
    void ControlTimestamp( uint32_t aValue, int64_t aNowMs );

    ConfigurationGEV mConfiguration;
    AddressSpace mSpace;
    AddressFaults mFaults;
    ControlPrivilege mPrivilege;
    int64_t mTimestampZeroMs = 0;
};

} // namespace Simulators
