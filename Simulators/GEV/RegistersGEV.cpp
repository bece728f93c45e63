#include "Simulators/GEV/RegistersGEV.h"

#include "Simulators/GEV/BootstrapGEV.h"

#include <PacketBytes/ByteReader.h>

#include <algorithm>

namespace Simulators
{

namespace
{

constexpr uint32_t TIMESTAMP_LATCH = 0x2;
constexpr uint32_t TIMESTAMP_RESET = 0x1;

// The words that hold the span.
SpanGEV GetWords( uint64_t aAddress, size_t aSize )
{
    return { aAddress / 4 * 4, aSize + aAddress % 4 };
}

// Milliseconds as ticks. Whole seconds and the rest are converted separately, because the product
// of milliseconds and frequency may not fit in 64 bits.
uint64_t GetTicks( uint64_t aMs, uint64_t aFrequency )
{
    return aMs / 1000 * aFrequency + aMs % 1000 * ( aFrequency / 1000 ) +
           aMs % 1000 * ( aFrequency % 1000 ) / 1000;
}

} // namespace

RegistersGEV::RegistersGEV( const ConfigurationGEV& aConfiguration )
    : mConfiguration( aConfiguration )
    , mSpace( MakeAddressSpaceGEV( aConfiguration ) )
    , mPrivilege( aConfiguration )
{
}

bool RegistersGEV::HasCapability( uint32_t aBit ) const
{
    return ( mSpace.GetWord( Register::GVCP_CAPABILITY ) & aBit ) != 0;
}

uint16_t RegistersGEV::FindRefusal( const CommandGEV& aCommand, uint64_t aAddress,
                                    size_t aSize ) const
{
    const SpanGEV lWords = GetWords( aAddress, aSize );
    return mFaults.FindStatus( aCommand.mCode, lWords.mAddress, lWords.mSize );
}

uint16_t RegistersGEV::Check( const CommandGEV& aCommand, uint64_t aAddress, size_t aSize )
{
    if ( IsStrict() && aAddress % 4 != 0 )
    {
        return Status::BAD_ALIGNMENT;
    }
    if ( const uint16_t lRefusal = FindRefusal( aCommand, aAddress, aSize ) )
    {
        return lRefusal;
    }
    const bool lIsAllowed = aCommand.IsWrite()
                                ? mPrivilege.MayWrite( aCommand.mFrom, aAddress )
                                : mPrivilege.MayRead( mSpace, aCommand.mFrom, aAddress );
    if ( !lIsAllowed )
    {
        return Status::ACCESS_DENIED;
    }
    const uint16_t lStatus = CheckAccess( aCommand, mSpace.GetAccess( aAddress, aSize ) );
    // Last, so that a command that is refused anyway does not use up a busy answer.
    const bool lIsBusy = lStatus == Status::SUCCESS && TakeBusy( aAddress, aSize );
    return lIsBusy ? Status::BUSY : lStatus;
}

uint16_t RegistersGEV::CheckAccess( const CommandGEV& aCommand, Access aAccess ) const
{
    // Only a READMEM may include the gaps between registers.
    const bool lIsThere = aAccess != Access::NONE &&
                          ( aAccess != Access::RESERVED || aCommand.mCode == Command::READMEM );
    if ( !lIsThere )
    {
        return Status::INVALID_ADDRESS;
    }
    const bool lIsProtected = aCommand.IsWrite() && aAccess == Access::READ_ONLY;
    return lIsProtected ? Status::WRITE_PROTECT : Status::SUCCESS;
}

// Takes one off the count of busy answers if the span touches the busy word.
bool RegistersGEV::TakeBusy( uint64_t aAddress, size_t aSize )
{
    const SpanGEV lWords = GetWords( aAddress, aSize );
    const uint32_t lCount = mSpace.GetWord( Register::BUSY_COUNT );
    const bool lIsTouched = lWords.mAddress <= Register::BUSY_WORD &&
                            Register::BUSY_WORD - lWords.mAddress < lWords.mSize;
    if ( !lIsTouched || lCount == 0 )
    {
        return false;
    }
    mSpace.SetWord( Register::BUSY_COUNT, lCount - 1 );
    return true;
}

// Effects belong to whole registers, so the bytes are merged into the one or two words that hold
// them.
void RegistersGEV::Write( const CommandGEV& aCommand, uint64_t aAddress, const Bytes& aData )
{
    const SpanGEV lWords = GetWords( aAddress, aData.size() );
    Bytes lBytes = mSpace.Read( lWords.mAddress, ( lWords.mSize + 3 ) / 4 * 4 );
    std::copy( aData.begin(), aData.end(),
               lBytes.begin() + static_cast<std::ptrdiff_t>( aAddress - lWords.mAddress ) );
    PacketBytes::BigReader lReader( lBytes.data(), lBytes.size() );
    for ( size_t i = 0; i < lBytes.size(); i += 4 )
    {
        Store( aCommand, lWords.mAddress + i, lReader.Get32() );
    }
}

void RegistersGEV::Store( const CommandGEV& aCommand, uint64_t aAddress, uint32_t aValue )
{
    switch ( aAddress )
    {
    case Register::CONTROL_PRIVILEGE:
        mPrivilege.Write( mSpace, aCommand.mFrom, aValue, aCommand.mNowMs );
        return;
    case Register::TIMESTAMP_CONTROL:
        ControlTimestamp( aValue, aCommand.mNowMs );
        return;
    case Register::HEARTBEAT_TIMEOUT:
        mSpace.SetWord( aAddress, std::max( aValue, HEARTBEAT_MIN_MS ) );
        return;
    default:
        mSpace.SetWord( aAddress, aValue );
        return;
    }
}

void RegistersGEV::ControlTimestamp( uint32_t aValue, int64_t aNowMs )
{
    // Latch before reset: a write with both bits latches the time from before the reset.
    if ( ( aValue & TIMESTAMP_LATCH ) != 0 )
    {
        const auto lMs = static_cast<uint64_t>( std::max<int64_t>( aNowMs - mTimestampZeroMs, 0 ) );
        mSpace.SetNumber( Register::TIMESTAMP_HIGH, GetTicks( lMs, mConfiguration.mTickFrequency ),
                          8 );
    }
    if ( ( aValue & TIMESTAMP_RESET ) != 0 )
    {
        mTimestampZeroMs = aNowMs;
    }
}

bool RegistersGEV::IsSilent( const CommandGEV& aCommand ) const
{
    const std::vector<SpanGEV> lSpans = aCommand.GetSpans();
    return std::any_of( lSpans.begin(), lSpans.end(),
                        [this]( const SpanGEV& aSpan )
                        {
                            const SpanGEV lWords = GetWords( aSpan.mAddress, aSpan.mSize );
                            return mFaults.IsSilent( lWords.mAddress, lWords.mSize );
                        } );
}

} // namespace Simulators
