#include "Simulators/U3V/VirtualDeviceU3V.h"

#include <PacketBytes/ByteReader.h>
#include <PacketBytes/ByteWriter.h>

#include <algorithm>

namespace Simulators
{

using PacketBytes::LittleReader;
using PacketBytes::LittleWriter;

namespace
{

using Kind = FaultU3V::Kind;

bool Is( const std::optional<FaultU3V>& aFault, Kind aKind )
{
    return aFault && aFault->mKind == aKind;
}

// The data of a write acknowledge.
Bytes MakeWrittenLength( size_t aLength )
{
    Bytes lData( 4 );
    LittleWriter lWriter( lData.data(), lData.size() );
    lWriter.Put16( 0 );                                // reserved
    lWriter.Put16( static_cast<uint16_t>( aLength ) ); // no more than its command's length field
    return lData;
}

} // namespace

VirtualDeviceU3V::VirtualDeviceU3V( const Configuration& aConfiguration )
    : mConfiguration( aConfiguration )
    , mSpace( MakeAddressSpaceU3V( aConfiguration ) )
    , mIn( aConfiguration.mPacketSize )
    , mRequests( aConfiguration.mRequestsKept )
{
}

VirtualDeviceU3V::Ending VirtualDeviceU3V::Receive( const uint8_t* aData, size_t aSize,
                                                    int64_t aNowMs )
{
    if ( mIsGone )
    {
        return Ending::GONE;
    }
    ++mCounters.mReceived;
    if ( mIsOutHalted )
    {
        ++mCounters.mHalted;
        return Ending::HALTED;
    }
    const std::optional<CommandU3V> lCommand =
        ParseCommandU3V( Bytes( aData, aData + aSize ), aNowMs );
    if ( !lCommand )
    {
        ++mCounters.mDropped;
        return Ending::DONE;
    }
    // Only a command uses up a fault, so a test knows which command has which fault.
    const std::optional<FaultU3V> lFault = TakeFault();
    if ( Is( lFault, Kind::STALL_OUT ) )
    {
        ++mCounters.mHalted;
        mIsOutHalted = true;
        return Ending::HALTED;
    }
    // After STALL_OUT: a command that the endpoint refused has not arrived, and leaves no gap in
    // the identifiers.
    Note( *lCommand );
    ReplyU3V lReply;
    lReply.mStatus = CheckHeader( *lCommand );
    if ( lReply.mStatus == StatusU3V::SUCCESS )
    {
        lReply = Is( lFault, Kind::STATUS )
                     ? ReplyU3V{ static_cast<uint16_t>( lFault->mValue ), {} }
                     : Execute( *lCommand );
    }
    Answer( *lCommand, lReply, lFault );
    return Ending::DONE;
}

std::optional<FaultU3V> VirtualDeviceU3V::TakeFault()
{
    if ( mFaults.empty() )
    {
        return std::nullopt;
    }
    const FaultU3V lFault = mFaults.front();
    mFaults.pop_front();
    return lFault;
}

void VirtualDeviceU3V::Note( const CommandU3V& aCommand )
{
    const uint16_t lIdentifier = aCommand.mIdentifier;
    if ( mLastIdentifier && lIdentifier != static_cast<uint16_t>( *mLastIdentifier + 1 ) )
    {
        ++mCounters.mSkippedIds;
    }
    mLastIdentifier = lIdentifier;
    mRequests.Add( aCommand.mTransfer );
}

uint16_t VirtualDeviceU3V::CheckHeader( const CommandU3V& aCommand ) const
{
    const bool lIsGood = aCommand.mLength == aCommand.GetDataSize() &&
                         ( aCommand.mFlags & ~CommandU3V::FLAG_REQUEST_ACK ) == 0 &&
                         aCommand.mTransfer.size() <= mConfiguration.mCommandRoom;
    return lIsGood ? StatusU3V::SUCCESS : StatusU3V::INVALID_HEADER;
}

ReplyU3V VirtualDeviceU3V::Execute( const CommandU3V& aCommand )
{
    switch ( aCommand.mCode )
    {
    case CommandCodeU3V::READMEM:
        return ReadMemory( aCommand );
    case CommandCodeU3V::WRITEMEM:
        return WriteMemory( aCommand );
    default:
        return { StatusU3V::NOT_IMPLEMENTED, {} };
    }
}

// The status of an access to the span. aNeeded is the access that each byte must allow.
uint16_t VirtualDeviceU3V::CheckSpan( uint64_t aAddress, size_t aSize, Access aNeeded ) const
{
    if ( const uint16_t lRefusal =
             mAddressFaults.FindStatus( AddressFaults::ANY_COMMAND, aAddress, aSize ) )
    {
        return lRefusal;
    }
    const uint64_t lUnit = std::max<uint64_t>( mConfiguration.mAlignment, 1 );
    if ( aAddress % lUnit != 0 || aSize % lUnit != 0 )
    {
        return StatusU3V::BAD_ALIGNMENT;
    }
    const Access lAccess = mSpace.GetAccess( aAddress, aSize );
    if ( lAccess == Access::NONE )
    {
        return StatusU3V::INVALID_ADDRESS;
    }
    return lAccess < aNeeded ? StatusU3V::WRITE_PROTECT : StatusU3V::SUCCESS;
}

ReplyU3V VirtualDeviceU3V::ReadMemory( const CommandU3V& aCommand ) const
{
    LittleReader lData = aCommand.ReadData();
    const uint64_t lAddress = lData.Get64();
    const uint16_t lReserved = lData.Get16();
    const uint16_t lCount = lData.Get16();
    const bool lIsRead = lData.IsWhole() && lData.GetLeft() == 0 && lReserved == 0;
    if ( !lIsRead || ( lCount == 0 && !mConfiguration.mAllowsEmptyAccess ) ||
         CommandU3V::HEADER_SIZE + lCount > mConfiguration.mAckRoom )
    {
        return { StatusU3V::INVALID_PARAMETER, {} };
    }
    const uint16_t lStatus = CheckSpan( lAddress, lCount, Access::READ_ONLY );
    return { lStatus, lStatus == StatusU3V::SUCCESS ? mSpace.Read( lAddress, lCount ) : Bytes() };
}

ReplyU3V VirtualDeviceU3V::WriteMemory( const CommandU3V& aCommand )
{
    LittleReader lData = aCommand.ReadData();
    const uint64_t lAddress = lData.Get64();
    Bytes lBytes( lData.GetLeft() );
    lData.GetBytes( lBytes.data(), lBytes.size() );
    if ( !lData.IsWhole() || ( lBytes.empty() && !mConfiguration.mAllowsEmptyAccess ) )
    {
        return { StatusU3V::INVALID_PARAMETER, {} };
    }
    if ( const uint16_t lStatus = CheckSpan( lAddress, lBytes.size(), Access::READ_WRITE ) )
    {
        return { lStatus, {} };
    }
    (void)mSpace.Write( lAddress, lBytes ); // cannot fail: CheckSpan has checked every byte
    Latch( lAddress, lBytes.size(), aCommand.mNowMs );
    const bool lTellsLength =
        ( mConfiguration.mDeviceCapability & CapabilityU3V::WRITTEN_LENGTH ) != 0;
    return { StatusU3V::SUCCESS, lTellsLength ? MakeWrittenLength( lBytes.size() ) : Bytes() };
}

// A write to the latch register copies the time to the timestamp register.
void VirtualDeviceU3V::Latch( uint64_t aAddress, size_t aSize, int64_t aNowMs )
{
    constexpr int64_t NS_PER_MS = 1000000;
    // A difference instead of aAddress + aSize, which may overflow.
    const bool lIsTouched =
        aAddress <= RegisterU3V::TIMESTAMP_LATCH && RegisterU3V::TIMESTAMP_LATCH - aAddress < aSize;
    if ( lIsTouched && ( mSpace.GetWord( RegisterU3V::TIMESTAMP_LATCH ) & 1 ) != 0 )
    {
        mSpace.SetNumber( RegisterU3V::TIMESTAMP, static_cast<uint64_t>( aNowMs * NS_PER_MS ), 8 );
    }
}

void VirtualDeviceU3V::Answer( const CommandU3V& aCommand, const ReplyU3V& aReply,
                               const std::optional<FaultU3V>& aFault )
{
    ++( aReply.mStatus == StatusU3V::SUCCESS ? mCounters.mExecuted : mCounters.mRefused );
    if ( Is( aFault, Kind::UNPLUG ) )
    {
        Unplug();
        return;
    }
    if ( Is( aFault, Kind::SILENT ) || !aCommand.WantsAcknowledge() )
    {
        return;
    }
    if ( Is( aFault, Kind::STALL_IN ) )
    {
        mIn.QueueHalt( aCommand.mNowMs );
        return;
    }
    SendAcknowledge( aCommand, aReply, aFault );
}

void VirtualDeviceU3V::SendAcknowledge( const CommandU3V& aCommand, const ReplyU3V& aReply,
                                        const std::optional<FaultU3V>& aFault )
{
    const Bytes lAcknowledge =
        MakeAcknowledge( GetAcknowledgeCode( aCommand ), aCommand.mIdentifier, aReply );
    if ( !aFault )
    {
        mIn.Queue( aCommand.mNowMs, lAcknowledge );
        return;
    }
    const int64_t lDueMs = SendInFront( aCommand, *aFault );
    mIn.Queue( lDueMs, Damage( lAcknowledge, *aFault ) );
}

// Queues the transfers that a fault sends before the acknowledge. Returns when the acknowledge is
// due.
int64_t VirtualDeviceU3V::SendInFront( const CommandU3V& aCommand, const FaultU3V& aFault )
{
    int64_t lDueMs = aCommand.mNowMs;
    switch ( aFault.mKind )
    {
    case Kind::DELAY:
        lDueMs += aFault.mValue;
        break;
    case Kind::PENDING:
        for ( uint32_t i = 0; i < aFault.mCount; ++i )
        {
            mIn.Queue( lDueMs, MakePendingAcknowledge( aCommand.mIdentifier,
                                                       static_cast<uint16_t>( aFault.mValue ) ) );
            lDueMs += aFault.mApartMs;
        }
        break;
    case Kind::EMPTY:
        for ( uint32_t i = 0; i < aFault.mCount; ++i )
        {
            mIn.Queue( lDueMs, Bytes() );
        }
        break;
    case Kind::STALE:
        mIn.Queue( lDueMs, MakeAcknowledge( GetAcknowledgeCode( aCommand ),
                                            static_cast<uint16_t>( aCommand.mIdentifier - 1 ),
                                            { StatusU3V::SUCCESS, Bytes( 4, 0xEE ) } ) );
        break;
    default:
        break;
    }
    return lDueMs;
}

VirtualDeviceU3V::Fetched VirtualDeviceU3V::Fetch( size_t aCapacity, int64_t aNowMs )
{
    if ( mIsGone )
    {
        return { Ending::GONE, {} };
    }
    if ( mIn.IsHalted() )
    {
        return { Ending::HALTED, {} };
    }
    const std::optional<int64_t> lDueMs = mIn.GetNextDueMs();
    if ( !lDueMs || *lDueMs > aNowMs )
    {
        return { Ending::WAITING, {} };
    }
    ++mCounters.mFetched;
    return mIn.Take( aCapacity );
}

void VirtualDeviceU3V::ClearHalt( uint8_t aEndpoint )
{
    if ( aEndpoint == EndpointU3V::CONTROL_OUT )
    {
        mIsOutHalted = false;
    }
    if ( aEndpoint == EndpointU3V::CONTROL_IN )
    {
        mIn.ClearHalt();
    }
}

void VirtualDeviceU3V::RefuseAddress( uint64_t aAddress, uint16_t aStatus )
{
    mAddressFaults.Refuse( AddressFaults::ANY_COMMAND, aAddress, aStatus );
}

} // namespace Simulators
