#include "Simulators/U3V/VirtualDeviceU3V.h"

#include "Simulators/LittleEndian.h"

#include <algorithm>
#include <utility>

namespace Simulators
{

namespace
{

constexpr uint32_t PREFIX = 0x43563355;
constexpr uint16_t FLAG_REQUEST_ACK = 0x4000;
constexpr size_t HEADER_SIZE = 12;
constexpr size_t STATUS_OFFSET = 4; // flags in a command
constexpr size_t CODE_OFFSET = 6;
constexpr size_t LENGTH_OFFSET = 8;
constexpr size_t IDENTIFIER_OFFSET = 10;
constexpr size_t ADDRESS_SIZE = 8;
constexpr size_t READMEM_SIZE = 12; // behind the header

Bytes MakeAck( uint16_t aStatus, uint16_t aCode, uint16_t aIdentifier, const Bytes& aData )
{
    Bytes lBytes;
    AppendLittle( &lBytes, PREFIX, 4 );
    AppendLittle( &lBytes, aStatus, 2 );
    AppendLittle( &lBytes, aCode, 2 );
    AppendLittle( &lBytes, aData.size(), 2 );
    AppendLittle( &lBytes, aIdentifier, 2 );
    lBytes.insert( lBytes.end(), aData.begin(), aData.end() );
    return lBytes;
}

// A command's code is even and its acknowledge's the next.
uint16_t GetAckCode( uint16_t aCommand )
{
    return static_cast<uint16_t>( aCommand | 1 );
}

void SetHalf( Bytes* aBytes, size_t aOffset, uint32_t aValue )
{
    aBytes->at( aOffset ) = static_cast<uint8_t>( aValue & 0xFF );
    aBytes->at( aOffset + 1 ) = static_cast<uint8_t>( ( aValue >> 8 ) & 0xFF );
}

void SetDataSize( Bytes* aAck, size_t aSize )
{
    aAck->resize( HEADER_SIZE + aSize, 0xDA );
    SetHalf( aAck, LENGTH_OFFSET, static_cast<uint32_t>( aSize ) );
}

// What a fault makes of an acknowledge.
void Damage( Bytes* aAck, const FaultU3V& aFault )
{
    const size_t lDataSize = aAck->size() - HEADER_SIZE;
    const size_t lIdentifier = GetLittle( *aAck, IDENTIFIER_OFFSET, 2 );
    switch ( aFault.mKind )
    {
    case FaultU3V::Kind::SHORT:
        SetDataSize( aAck, lDataSize - std::min<size_t>( lDataSize, aFault.mValue ) );
        break;
    case FaultU3V::Kind::LONG:
        SetDataSize( aAck, lDataSize + aFault.mValue );
        break;
    case FaultU3V::Kind::TRUNCATED:
        aAck->resize( std::min<size_t>( aAck->size(), aFault.mValue ) );
        break;
    case FaultU3V::Kind::CORRUPTED:
        if ( aFault.mValue < aAck->size() )
        {
            ( *aAck )[aFault.mValue] = static_cast<uint8_t>( ~( *aAck )[aFault.mValue] );
        }
        break;
    case FaultU3V::Kind::WRONG_LENGTH:
        SetHalf( aAck, LENGTH_OFFSET, aFault.mValue );
        break;
    case FaultU3V::Kind::WRONG_CODE:
        SetHalf( aAck, CODE_OFFSET, aFault.mValue );
        break;
    case FaultU3V::Kind::WRONG_ID:
        SetHalf( aAck, IDENTIFIER_OFFSET, static_cast<uint32_t>( lIdentifier + aFault.mValue ) );
        break;
    case FaultU3V::Kind::WRONG_PREFIX:
        std::fill_n( aAck->begin(), 4, static_cast<uint8_t>( 0 ) );
        break;
    default:
        break;
    }
}

} // namespace

VirtualDeviceU3V::VirtualDeviceU3V( const Configuration& aConfiguration )
    : mConfiguration( aConfiguration )
    , mSpace( MakeAddressSpaceU3V( aConfiguration ) )
{
}

VirtualDeviceU3V::Ending VirtualDeviceU3V::Receive( const uint8_t* aData, size_t aSize,
                                                    int64_t aNowMs )
{
    if ( mIsGone )
    {
        return Ending::GONE;
    }
    mCounters.mReceived++;
    if ( mIsOutHalted )
    {
        mCounters.mHalted++;
        return Ending::HALTED;
    }
    const Bytes lTransfer = ( aSize == 0 ) ? Bytes() : Bytes( aData, aData + aSize );
    if ( ( aSize < HEADER_SIZE ) || ( GetLittle( lTransfer, 0, 4 ) != PREFIX ) )
    {
        mCounters.mDropped++;
        return Ending::DONE;
    }
    const std::optional<FaultU3V> lFault = TakeFault();
    if ( lFault && ( lFault->mKind == FaultU3V::Kind::STALL_OUT ) )
    {
        mCounters.mHalted++;
        mIsOutHalted = true;
        return Ending::HALTED;
    }
    const Parsed lParsed = Parse( lTransfer, aNowMs );
    Note( lTransfer, lParsed.mIdentifier );
    Reply lReply;
    lReply.mStatus = CheckHeader( lTransfer );
    if ( ( lReply.mStatus == StatusU3V::SUCCESS ) && lFault &&
         ( lFault->mKind == FaultU3V::Kind::STATUS ) )
    {
        lReply.mStatus = static_cast<uint16_t>( lFault->mValue );
    }
    else if ( lReply.mStatus == StatusU3V::SUCCESS )
    {
        lReply = Execute( lParsed );
    }
    ( ( lReply.mStatus == StatusU3V::SUCCESS ) ? mCounters.mExecuted : mCounters.mRefused )++;
    Acknowledge( lParsed, lReply, lFault ? &*lFault : nullptr );
    return Ending::DONE;
}

VirtualDeviceU3V::Parsed VirtualDeviceU3V::Parse( const Bytes& aTransfer, int64_t aNowMs )
{
    Parsed lParsed;
    lParsed.mWantsAck = ( GetLittle( aTransfer, STATUS_OFFSET, 2 ) & FLAG_REQUEST_ACK ) != 0;
    lParsed.mCommand = static_cast<uint16_t>( GetLittle( aTransfer, CODE_OFFSET, 2 ) );
    lParsed.mIdentifier = static_cast<uint16_t>( GetLittle( aTransfer, IDENTIFIER_OFFSET, 2 ) );
    lParsed.mData.assign( aTransfer.begin() + HEADER_SIZE, aTransfer.end() );
    lParsed.mNowMs = aNowMs;
    return lParsed;
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

uint16_t VirtualDeviceU3V::CheckHeader( const Bytes& aTransfer ) const
{
    const uint64_t lFlags = GetLittle( aTransfer, STATUS_OFFSET, 2 );
    const bool lIsGood =
        ( GetLittle( aTransfer, LENGTH_OFFSET, 2 ) == aTransfer.size() - HEADER_SIZE ) &&
        ( ( lFlags & ~uint64_t{ FLAG_REQUEST_ACK } ) == 0 ) &&
        ( aTransfer.size() <= mConfiguration.mCommandRoom );
    return lIsGood ? StatusU3V::SUCCESS : StatusU3V::INVALID_HEADER;
}

void VirtualDeviceU3V::Note( const Bytes& aTransfer, uint16_t aIdentifier )
{
    if ( mLastIdentifier && ( aIdentifier != static_cast<uint16_t>( *mLastIdentifier + 1 ) ) )
    {
        mCounters.mSkippedIds++;
    }
    mLastIdentifier = aIdentifier;
    mRequests.push_back( aTransfer );
    if ( mRequests.size() > mConfiguration.mRequestsKept )
    {
        mRequests.pop_front();
    }
}

VirtualDeviceU3V::Reply VirtualDeviceU3V::Execute( const Parsed& aParsed )
{
    switch ( aParsed.mCommand )
    {
    case CommandU3V::READMEM:
        return ReadMemory( aParsed );
    case CommandU3V::WRITEMEM:
        return WriteMemory( aParsed );
    default:
        return { StatusU3V::NOT_IMPLEMENTED, {} };
    }
}

bool VirtualDeviceU3V::IsAligned( uint64_t aAddress, size_t aSize ) const
{
    const uint64_t lUnit = std::max<uint64_t>( mConfiguration.mAlignment, 1 );
    return ( aAddress % lUnit == 0 ) && ( aSize % lUnit == 0 );
}

uint16_t VirtualDeviceU3V::FindRefusal( uint64_t aAddress, size_t aSize ) const
{
    const auto lFound = mRefusals.lower_bound( aAddress );
    const bool lIsTouched = ( lFound != mRefusals.end() ) && ( lFound->first - aAddress < aSize );
    return lIsTouched ? lFound->second : StatusU3V::SUCCESS;
}

VirtualDeviceU3V::Reply VirtualDeviceU3V::ReadMemory( const Parsed& aParsed )
{
    const uint64_t lAddress = GetLittle( aParsed.mData, 0, ADDRESS_SIZE );
    const uint64_t lReserved = GetLittle( aParsed.mData, ADDRESS_SIZE, 2 );
    const size_t lCount = GetLittle( aParsed.mData, ADDRESS_SIZE + 2, 2 );
    if ( ( aParsed.mData.size() != READMEM_SIZE ) || ( lReserved != 0 ) ||
         ( ( lCount == 0 ) && !mConfiguration.mAllowsEmptyAccess ) ||
         ( HEADER_SIZE + lCount > mConfiguration.mAckRoom ) )
    {
        return { StatusU3V::INVALID_PARAMETER, {} };
    }
    if ( const uint16_t lRefusal = FindRefusal( lAddress, lCount ) )
    {
        return { lRefusal, {} };
    }
    if ( !IsAligned( lAddress, lCount ) )
    {
        return { StatusU3V::BAD_ALIGNMENT, {} };
    }
    if ( mSpace.GetAccess( lAddress, lCount ) == Access::NONE )
    {
        return { StatusU3V::INVALID_ADDRESS, {} };
    }
    return { StatusU3V::SUCCESS, mSpace.Read( lAddress, lCount ) };
}

VirtualDeviceU3V::Reply VirtualDeviceU3V::WriteMemory( const Parsed& aParsed )
{
    const size_t lDataSize = aParsed.mData.size();
    if ( ( lDataSize < ADDRESS_SIZE ) ||
         ( ( lDataSize == ADDRESS_SIZE ) && !mConfiguration.mAllowsEmptyAccess ) )
    {
        return { StatusU3V::INVALID_PARAMETER, {} };
    }
    const uint64_t lAddress = GetLittle( aParsed.mData, 0, ADDRESS_SIZE );
    const Bytes lBytes( aParsed.mData.begin() + ADDRESS_SIZE, aParsed.mData.end() );
    if ( const uint16_t lRefusal = FindRefusal( lAddress, lBytes.size() ) )
    {
        return { lRefusal, {} };
    }
    if ( !IsAligned( lAddress, lBytes.size() ) )
    {
        return { StatusU3V::BAD_ALIGNMENT, {} };
    }
    const Access lAccess = mSpace.GetAccess( lAddress, lBytes.size() );
    if ( lAccess == Access::NONE )
    {
        return { StatusU3V::INVALID_ADDRESS, {} };
    }
    if ( lAccess != Access::READ_WRITE )
    {
        return { StatusU3V::WRITE_PROTECT, {} };
    }
    if ( !lBytes.empty() )
    {
        (void)mSpace.Write( lAddress, lBytes );
        Latch( lAddress, lBytes.size(), aParsed.mNowMs );
    }
    Reply lReply;
    if ( ( mConfiguration.mDeviceCapability & CapabilityU3V::WRITTEN_LENGTH ) != 0 )
    {
        AppendLittle( &lReply.mData, 0, 2 );
        AppendLittle( &lReply.mData, lBytes.size(), 2 );
    }
    return lReply;
}

void VirtualDeviceU3V::Latch( uint64_t aAddress, size_t aSize, int64_t aNowMs )
{
    constexpr int64_t NS_PER_MS = 1000000;
    const bool lIsTouched = ( aAddress <= RegisterU3V::TIMESTAMP_LATCH ) &&
                            ( RegisterU3V::TIMESTAMP_LATCH - aAddress < aSize );
    if ( lIsTouched && ( ( mSpace.GetNumber( RegisterU3V::TIMESTAMP_LATCH, 4 ) & 1 ) != 0 ) )
    {
        mSpace.SetNumber( RegisterU3V::TIMESTAMP, static_cast<uint64_t>( aNowMs * NS_PER_MS ), 8 );
    }
}

// What a fault puts in front of the acknowledge, and when that is due itself.
int64_t VirtualDeviceU3V::AnswerBefore( const Parsed& aParsed, const FaultU3V& aFault )
{
    int64_t lDueMs = aParsed.mNowMs;
    switch ( aFault.mKind )
    {
    case FaultU3V::Kind::DELAY:
        lDueMs += aFault.mValue;
        break;
    case FaultU3V::Kind::PENDING:
        for ( uint32_t i = 0; i < aFault.mCount; i++ )
        {
            Bytes lData;
            AppendLittle( &lData, 0, 2 );
            AppendLittle( &lData, aFault.mValue, 2 );
            Queue( lDueMs, Ending::DONE,
                   MakeAck( StatusU3V::SUCCESS, CommandU3V::PENDING_ACK, aParsed.mIdentifier,
                            lData ) );
            lDueMs += aFault.mApartMs;
        }
        break;
    case FaultU3V::Kind::EMPTY:
        for ( uint32_t i = 0; i < aFault.mCount; i++ )
        {
            Queue( lDueMs, Ending::DONE, Bytes() );
        }
        break;
    case FaultU3V::Kind::STALE:
        Queue( lDueMs, Ending::DONE,
               MakeAck( StatusU3V::SUCCESS, GetAckCode( aParsed.mCommand ),
                        static_cast<uint16_t>( aParsed.mIdentifier - 1 ), Bytes( 4, 0xEE ) ) );
        break;
    default:
        break;
    }
    return lDueMs;
}

void VirtualDeviceU3V::Acknowledge( const Parsed& aParsed, const Reply& aReply,
                                    const FaultU3V* aFault )
{
    const auto lIs = [aFault]( FaultU3V::Kind aKind )
    {
        return ( aFault != nullptr ) && ( aFault->mKind == aKind );
    };
    if ( lIs( FaultU3V::Kind::UNPLUG ) )
    {
        Unplug();
    }
    if ( lIs( FaultU3V::Kind::SILENT ) || !aParsed.mWantsAck || mIsGone )
    {
        return;
    }
    if ( lIs( FaultU3V::Kind::STALL_IN ) )
    {
        Queue( aParsed.mNowMs, Ending::HALTED, Bytes() );
        return;
    }
    Bytes lAck = MakeAck( aReply.mStatus, GetAckCode( aParsed.mCommand ), aParsed.mIdentifier,
                          ( aReply.mStatus == StatusU3V::SUCCESS ) ? aReply.mData : Bytes() );
    int64_t lDueMs = aParsed.mNowMs;
    if ( aFault != nullptr )
    {
        lDueMs = AnswerBefore( aParsed, *aFault );
        Damage( &lAck, *aFault );
    }
    Queue( lDueMs, Ending::DONE, lAck );
}

// Nothing overtakes what came before.
void VirtualDeviceU3V::Queue( int64_t aDueMs, Ending aEnding, const Bytes& aBytes )
{
    Waiting lWaiting;
    lWaiting.mDueMs = mWaiting.empty() ? aDueMs : std::max( aDueMs, mWaiting.back().mDueMs );
    lWaiting.mEnding = aEnding;
    lWaiting.mBytes = aBytes;
    mWaiting.push_back( std::move( lWaiting ) );
}

VirtualDeviceU3V::Fetched VirtualDeviceU3V::Fetch( size_t aCapacity, int64_t aNowMs )
{
    if ( mIsGone )
    {
        return { Ending::GONE, {} };
    }
    if ( mIsInHalted )
    {
        return { Ending::HALTED, {} };
    }
    if ( mWaiting.empty() || ( mWaiting.front().mDueMs > aNowMs ) )
    {
        return { Ending::WAITING, {} };
    }
    Waiting& lFront = mWaiting.front();
    Fetched lFetched{ lFront.mEnding, lFront.mBytes };
    mCounters.mFetched++;
    const bool lIsTooLong = lFetched.mBytes.size() > aCapacity;
    if ( lIsTooLong && ( aCapacity % mConfiguration.mPacketSize != 0 ) )
    {
        mWaiting.pop_front();
        return { Ending::OVERRUN, {} };
    }
    if ( lIsTooLong )
    {
        const auto lCut = lFront.mBytes.begin() + static_cast<std::ptrdiff_t>( aCapacity );
        lFront.mBytes.erase( lFront.mBytes.begin(), lCut );
        lFetched.mBytes.resize( aCapacity );
        return lFetched;
    }
    mIsInHalted = lFetched.mEnding == Ending::HALTED;
    mWaiting.pop_front();
    return lFetched;
}

std::optional<int64_t> VirtualDeviceU3V::GetNextDueMs() const
{
    return mWaiting.empty() ? std::nullopt : std::make_optional( mWaiting.front().mDueMs );
}

void VirtualDeviceU3V::ClearHalt( uint8_t aEndpoint )
{
    if ( aEndpoint == EndpointU3V::CONTROL_OUT )
    {
        mIsOutHalted = false;
    }
    if ( aEndpoint == EndpointU3V::CONTROL_IN )
    {
        mIsInHalted = false;
    }
}

void VirtualDeviceU3V::RefuseAddress( uint64_t aAddress, uint16_t aStatus )
{
    if ( aStatus == StatusU3V::SUCCESS )
    {
        mRefusals.erase( aAddress );
        return;
    }
    mRefusals[aAddress] = aStatus;
}

} // namespace Simulators
