#include "Simulators/GEV/ControlPrivilege.h"

#include "Simulators/GEV/BootstrapGEV.h"

#include <algorithm>

namespace Simulators
{

namespace
{

constexpr uint32_t PRIVILEGE_EXCLUSIVE = 0x1;
constexpr uint32_t PRIVILEGE_BITS = 0x3; // control and exclusive
constexpr uint32_t HEARTBEAT_DISABLE = 0x1;

} // namespace

ControlPrivilege::ControlPrivilege( const ConfigurationGEV& aConfiguration )
    : mIsRequired( aConfiguration.mRequireControl )
    , mStreamChannels( GetStreamRegisterCount( aConfiguration ) )
{
}

void ControlPrivilege::Write( AddressSpace& aSpace, const Endpoint& aFrom, uint32_t aValue,
                              int64_t aNowMs )
{
    // MayWrite has let through only the holder, or any host while control is free.
    if ( ( aValue & PRIVILEGE_BITS ) == 0 )
    {
        Free( aSpace );
        return;
    }
    mHolder = aFrom;
    mHolderSeenMs = aNowMs;
    aSpace.SetWord( Register::CONTROL_PRIVILEGE, aValue & PRIVILEGE_BITS );
    // Only a device with that capability has these registers.
    if ( aSpace.GetAccess( Register::CONTROL_OWNER_PORT, 4 ) == Access::READ_ONLY )
    {
        aSpace.SetWord( Register::CONTROL_OWNER_PORT, aFrom.mPort );
        aSpace.SetWord( Register::CONTROL_OWNER_ADDRESS, aFrom.mAddress );
    }
}

void ControlPrivilege::Expire( AddressSpace& aSpace, int64_t aNowMs )
{
    if ( mHolder && !GetHolder( aSpace, aNowMs ) )
    {
        Free( aSpace );
    }
}

// The channels close with control, since only its holder could close them. Words that are not
// registers of this device are 0 already.
void ControlPrivilege::Free( AddressSpace& aSpace )
{
    mHolder.reset();
    aSpace.SetWord( Register::CONTROL_PRIVILEGE, 0 );
    aSpace.SetWord( Register::CONTROL_OWNER_PORT, 0 );
    aSpace.SetWord( Register::CONTROL_OWNER_ADDRESS, 0 );
    aSpace.SetWord( Register::MESSAGE_PORT, 0 );
    for ( uint32_t i = 0; i < mStreamChannels; ++i )
    {
        aSpace.SetWord( Register::STREAM_PORT + Register::STREAM_STRIDE * i, 0 );
    }
}

void ControlPrivilege::KeepAlive( const Endpoint& aFrom, int64_t aTimeMs )
{
    if ( mHolder == aFrom )
    {
        // A slow command keeps control until its answer is due, which may be later than aTimeMs.
        mHolderSeenMs = std::max( mHolderSeenMs, aTimeMs );
    }
}

std::optional<Endpoint> ControlPrivilege::GetHolder( const AddressSpace& aSpace,
                                                     int64_t aNowMs ) const
{
    const int64_t lTimeoutMs = aSpace.GetWord( Register::HEARTBEAT_TIMEOUT );
    const bool lIsDisabled =
        ( aSpace.GetWord( Register::GVCP_CONFIGURATION ) & HEARTBEAT_DISABLE ) != 0;
    const bool lIsSilent = aNowMs - mHolderSeenMs > lTimeoutMs;
    return lIsSilent && !lIsDisabled ? std::nullopt : mHolder;
}

// Any host may read the privilege register, so that a host that is refused can see why.
bool ControlPrivilege::MayRead( const AddressSpace& aSpace, const Endpoint& aFrom,
                                uint64_t aAddress ) const
{
    const uint32_t lPrivilege = aSpace.GetWord( Register::CONTROL_PRIVILEGE );
    return !mHolder || mHolder == aFrom || ( lPrivilege & PRIVILEGE_EXCLUSIVE ) == 0 ||
           aAddress == Register::CONTROL_PRIVILEGE;
}

bool ControlPrivilege::MayWrite( const Endpoint& aFrom, uint64_t aAddress ) const
{
    if ( mHolder )
    {
        return mHolder == aFrom;
    }
    return !mIsRequired || aAddress == Register::CONTROL_PRIVILEGE;
}

} // namespace Simulators
