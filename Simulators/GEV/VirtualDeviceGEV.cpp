#include "Simulators/GEV/VirtualDeviceGEV.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <iterator>

namespace Simulators
{

namespace
{

constexpr uint8_t KEY = 0x42;
constexpr uint8_t FLAG_ACKNOWLEDGE = 0x01;
constexpr size_t HEADER_SIZE = 8;
constexpr size_t PAYLOAD_MAX = 540;    // 576 without the IP, UDP and GVCP headers
constexpr size_t DATA_MAX = 536;       // and without an address
constexpr size_t PAIRS_SIZE_MAX = 536; // 67 pairs of address and value
constexpr size_t SENDERS_MAX = 64;     // whose latest request is remembered
constexpr uint32_t PRIVILEGE_EXCLUSIVE = 0x1;
constexpr uint32_t PRIVILEGE_BITS = 0x3; // control and exclusive

uint8_t Get8( const Bytes& aBytes, size_t aOffset )
{
    return ( aOffset < aBytes.size() ) ? aBytes[aOffset] : uint8_t{ 0 };
}

uint16_t Get16( const Bytes& aBytes, size_t aOffset )
{
    return static_cast<uint16_t>( ( Get8( aBytes, aOffset ) << 8 ) | Get8( aBytes, aOffset + 1 ) );
}

uint32_t Get32( const Bytes& aBytes, size_t aOffset )
{
    return ( static_cast<uint32_t>( Get16( aBytes, aOffset ) ) << 16 ) |
           Get16( aBytes, aOffset + 2 );
}

void Put16( Bytes* aBytes, uint32_t aValue )
{
    aBytes->push_back( static_cast<uint8_t>( ( aValue >> 8 ) & 0xFF ) );
    aBytes->push_back( static_cast<uint8_t>( aValue & 0xFF ) );
}

void Put32( Bytes* aBytes, uint32_t aValue )
{
    Put16( aBytes, aValue >> 16 );
    Put16( aBytes, aValue & 0xFFFF );
}

// Reserved and index, the payload of both write acknowledges.
Bytes MakeIndex( size_t aIndex )
{
    Bytes lPayload;
    Put16( &lPayload, 0 );
    Put16( &lPayload, static_cast<uint32_t>( aIndex ) );
    return lPayload;
}

Bytes MakeAcknowledge( uint16_t aStatus, uint32_t aCode, uint16_t aIdentifier,
                       const Bytes& aPayload )
{
    Bytes lBytes;
    lBytes.reserve( HEADER_SIZE + aPayload.size() );
    Put16( &lBytes, aStatus );
    Put16( &lBytes, aCode & 0xFFFF );
    Put16( &lBytes, static_cast<uint32_t>( aPayload.size() ) );
    Put16( &lBytes, aIdentifier );
    lBytes.insert( lBytes.end(), aPayload.begin(), aPayload.end() );
    return lBytes;
}

Bytes MakePending( uint16_t aIdentifier, uint16_t aAnnouncedMs )
{
    Bytes lPayload;
    Put16( &lPayload, 0 );
    Put16( &lPayload, aAnnouncedMs );
    return MakeAcknowledge( Status::SUCCESS, Command::PENDING_ACK, aIdentifier, lPayload );
}

bool IsImplemented( uint16_t aCommand )
{
    return ( aCommand == Command::DISCOVERY ) || ( aCommand == Command::READREG ) ||
           ( aCommand == Command::WRITEREG ) || ( aCommand == Command::READMEM ) ||
           ( aCommand == Command::WRITEMEM );
}

// Commands that are nothing without their acknowledge.
bool AlwaysAnswers( uint16_t aCommand )
{
    return ( aCommand == Command::DISCOVERY ) || ( aCommand == Command::READREG ) ||
           ( aCommand == Command::READMEM );
}

// What a refusal carries: a write acknowledge always has its index.
Bytes MakeRefusalPayload( uint16_t aCommand )
{
    const bool lWrites = ( aCommand == Command::WRITEREG ) || ( aCommand == Command::WRITEMEM );
    return lWrites ? MakeIndex( 0 ) : Bytes();
}

} // namespace

VirtualDeviceGEV::VirtualDeviceGEV( const Configuration& aConfiguration )
    : mConfiguration( aConfiguration )
    , mSpace( MakeAddressSpaceGEV( aConfiguration ) )
{
}

std::vector<Outgoing> VirtualDeviceGEV::Receive( const Endpoint& aFrom, const uint8_t* aData,
                                                 size_t aSize, int64_t aNowMs )
{
    const Bytes lDatagram( aData, aData + aSize );
    Parsed lParsed;
    lParsed.mFrom = aFrom;
    lParsed.mNowMs = aNowMs;
    if ( mHolder && !GetHolder( aNowMs ) )
    {
        FreeControl();
    }
    if ( !Parse( &lParsed, lDatagram ) )
    {
        return {};
    }
    Record( lParsed, lDatagram );
    // The standard has 0x8002 for a length that does not suit the command. One that is not even
    // that of the datagram is told apart by 0x800E; 0x8009, message mismatch, has been withdrawn.
    if ( mConfiguration.mStrict && ( lParsed.mLength != lParsed.mPayload.size() ) )
    {
        const Bytes lPayload = MakeRefusalPayload( lParsed.mCommand );
        return Send( lParsed, {}, { Status::INVALID_HEADER, lPayload } );
    }
    if ( mHolder == aFrom )
    {
        mHolderSeenMs = std::max( mHolderSeenMs, aNowMs );
    }
    const auto lLast = mLast.find( aFrom );
    if ( ( lParsed.mCommand != Command::DISCOVERY ) && ( lLast != mLast.end() ) &&
         ( lLast->second.mRequest == lDatagram ) && ( aNowMs <= lLast->second.mForgottenMs ) )
    {
        return SendAgain( lParsed, lLast->second );
    }
    if ( IsSilent( lParsed ) )
    {
        Count( lParsed.mCommand ).mSilenced++;
        return {};
    }
    return Send( lParsed, lDatagram, Execute( lParsed ) );
}

bool VirtualDeviceGEV::Parse( Parsed* aParsed, const Bytes& aDatagram )
{
    if ( aDatagram.size() < HEADER_SIZE )
    {
        mOddities.mTooShort++;
        return false;
    }
    if ( Get8( aDatagram, 0 ) != KEY )
    {
        mOddities.mWrongKey++;
        return false;
    }
    aParsed->mWantsAck = ( Get8( aDatagram, 1 ) & FLAG_ACKNOWLEDGE ) != 0;
    aParsed->mCommand = Get16( aDatagram, 2 );
    aParsed->mLength = Get16( aDatagram, 4 );
    aParsed->mIdentifier = Get16( aDatagram, 6 );
    aParsed->mPayload.assign( aDatagram.begin() + HEADER_SIZE, aDatagram.end() );
    if ( aParsed->mIdentifier == 0 )
    {
        mOddities.mZeroIdentifier++;
        return false;
    }
    if ( AlwaysAnswers( aParsed->mCommand ) && !aParsed->mWantsAck )
    {
        mOddities.mReadWithoutAckFlag++;
        aParsed->mWantsAck = true;
    }
    return true;
}

void VirtualDeviceGEV::Record( const Parsed& aParsed, const Bytes& aDatagram )
{
    Count( aParsed.mCommand ).mReceived++;
    mRequests.push_back( { aParsed.mFrom, aParsed.mNowMs, aDatagram } );
    while ( mRequests.size() > mConfiguration.mRequestsKept )
    {
        mRequests.pop_front();
    }
}

VirtualDeviceGEV::Reply VirtualDeviceGEV::Execute( const Parsed& aParsed )
{
    switch ( aParsed.mCommand )
    {
    case Command::DISCOVERY:
        return Discover( aParsed );
    case Command::READREG:
        return ReadRegisters( aParsed );
    case Command::WRITEREG:
        return WriteRegisters( aParsed );
    case Command::READMEM:
        return ReadMemory( aParsed );
    case Command::WRITEMEM:
        return WriteMemory( aParsed );
    default:
        return { Status::NOT_IMPLEMENTED, {} };
    }
}

VirtualDeviceGEV::Reply VirtualDeviceGEV::Discover( const Parsed& aParsed )
{
    if ( mConfiguration.mStrict && !aParsed.mPayload.empty() )
    {
        return { Status::INVALID_PARAMETER, {} };
    }
    const uint16_t lRefusal = FindRefusal( Command::DISCOVERY, 0 );
    if ( lRefusal != Status::SUCCESS )
    {
        return { lRefusal, {} };
    }
    Reply lReply;
    for ( uint32_t i = 0; i < DISCOVERY_SIZE; i += 4 )
    {
        Put32( &lReply.mPayload, mSpace.GetWord( i ) );
    }
    return lReply;
}

// Whether the payload is made of whole units, one or more, and no longer than aMax.
bool VirtualDeviceGEV::IsCountRight( const Parsed& aParsed, size_t aUnit, size_t aMax ) const
{
    const size_t lSize = aParsed.mPayload.size();
    if ( ( lSize < aUnit ) || ( lSize > aMax ) )
    {
        return false;
    }
    return !mConfiguration.mStrict || ( lSize % aUnit == 0 );
}

// Whether a command with that many registers may be sent.
bool VirtualDeviceGEV::MayConcatenate( size_t aCount ) const
{
    const uint32_t lCapability = mSpace.GetWord( Register::GVCP_CAPABILITY );
    return ( aCount == 1 ) || ( ( lCapability & Capability::GVCP_CONCATENATION ) != 0 );
}

VirtualDeviceGEV::Reply VirtualDeviceGEV::ReadRegisters( const Parsed& aParsed )
{
    const size_t lCount = aParsed.mPayload.size() / 4;
    if ( !IsCountRight( aParsed, 4, PAYLOAD_MAX ) || !MayConcatenate( lCount ) )
    {
        return { Status::INVALID_PARAMETER, {} };
    }
    Reply lReply;
    for ( size_t i = 0; i < lCount; i++ )
    {
        const uint32_t lAddress = Get32( aParsed.mPayload, 4 * i );
        lReply.mStatus = CheckReadWord( aParsed, lAddress, 4 );
        if ( lReply.mStatus != Status::SUCCESS )
        {
            return lReply;
        }
        Put32( &lReply.mPayload, mSpace.GetWord( lAddress ) );
    }
    return lReply;
}

VirtualDeviceGEV::Reply VirtualDeviceGEV::WriteRegisters( const Parsed& aParsed )
{
    const size_t lCount = aParsed.mPayload.size() / 8;
    if ( !IsCountRight( aParsed, 8, PAIRS_SIZE_MAX ) || !MayConcatenate( lCount ) )
    {
        return { Status::INVALID_PARAMETER, MakeRefusalPayload( Command::WRITEREG ) };
    }
    for ( size_t i = 0; i < lCount; i++ )
    {
        Bytes lValue;
        Put32( &lValue, Get32( aParsed.mPayload, 8 * i + 4 ) );
        const uint16_t lStatus = WriteOne( aParsed, Get32( aParsed.mPayload, 8 * i ), lValue );
        if ( lStatus != Status::SUCCESS )
        {
            return { lStatus, MakeIndex( i ) };
        }
    }
    return { Status::SUCCESS, MakeIndex( lCount ) };
}

VirtualDeviceGEV::Reply VirtualDeviceGEV::ReadMemory( const Parsed& aParsed )
{
    const uint32_t lAddress = Get32( aParsed.mPayload, 0 );
    const uint16_t lCount = Get16( aParsed.mPayload, 6 );
    // A count that is no multiple of 4 is a bad parameter; bad alignment speaks of the address.
    const bool lIsWhole =
        !mConfiguration.mStrict || ( ( lCount % 4 == 0 ) && ( aParsed.mPayload.size() == 8 ) );
    if ( !IsCountRight( aParsed, 8, PAYLOAD_MAX ) || ( lCount == 0 ) || ( lCount > DATA_MAX ) ||
         !lIsWhole )
    {
        return { Status::INVALID_PARAMETER, {} };
    }
    if ( Get16( aParsed.mPayload, 4 ) != 0 )
    {
        mOddities.mReservedNotZero++;
    }
    const uint16_t lStatus = CheckRead( aParsed, lAddress, lCount );
    if ( lStatus != Status::SUCCESS )
    {
        return { lStatus, {} };
    }
    Reply lReply;
    Put32( &lReply.mPayload, lAddress );
    for ( uint32_t i = 0; i < lCount; i++ )
    {
        lReply.mPayload.push_back( mSpace.Read( static_cast<uint64_t>( lAddress ) + i, 1 )[0] );
    }
    return lReply;
}

VirtualDeviceGEV::Reply VirtualDeviceGEV::WriteMemory( const Parsed& aParsed )
{
    const uint32_t lCapability = mSpace.GetWord( Register::GVCP_CAPABILITY );
    if ( ( lCapability & Capability::GVCP_WRITEMEM ) == 0 )
    {
        return { Status::NOT_IMPLEMENTED, MakeRefusalPayload( Command::WRITEMEM ) };
    }
    const Bytes& lPayload = aParsed.mPayload;
    const bool lIsWhole = !mConfiguration.mStrict || ( lPayload.size() % 4 == 0 );
    if ( ( lPayload.size() <= 4 ) || ( lPayload.size() > PAYLOAD_MAX ) || !lIsWhole )
    {
        return { Status::INVALID_PARAMETER, MakeRefusalPayload( Command::WRITEMEM ) };
    }
    const size_t lSize = lPayload.size() - 4;
    const uint64_t lAddress = Get32( lPayload, 0 );
    for ( size_t i = 0; i < lSize; i += 4 )
    {
        Bytes lData;
        for ( size_t j = i; j < std::min( i + 4, lSize ); j++ )
        {
            lData.push_back( Get8( lPayload, 4 + j ) );
        }
        const uint16_t lStatus = WriteOne( aParsed, lAddress + i, lData );
        if ( lStatus != Status::SUCCESS )
        {
            return { lStatus, MakeIndex( i ) };
        }
    }
    return { Status::SUCCESS, MakeIndex( lSize ) };
}

uint16_t VirtualDeviceGEV::CheckRead( const Parsed& aParsed, uint32_t aAddress, uint32_t aSize )
{
    for ( uint32_t i = 0; i < aSize; i += 4 )
    {
        const uint64_t lAddress = static_cast<uint64_t>( aAddress ) + i;
        const uint16_t lStatus = CheckReadWord( aParsed, lAddress, std::min( aSize - i, 4u ) );
        if ( lStatus != Status::SUCCESS )
        {
            return lStatus;
        }
    }
    return Status::SUCCESS;
}

// aSize is 1 to 4. Takes one off the count of busy answers if the word is the busy one.
uint16_t VirtualDeviceGEV::CheckReadWord( const Parsed& aParsed, uint64_t aAddress, uint32_t aSize )
{
    const uint64_t lEnd = aAddress + aSize - 1;
    if ( mConfiguration.mStrict && ( aAddress % 4 != 0 ) )
    {
        return Status::BAD_ALIGNMENT;
    }
    const uint16_t lRefusal = FindRefusal( aParsed.mCommand, aAddress, lEnd );
    if ( lRefusal != Status::SUCCESS )
    {
        return lRefusal;
    }
    if ( !MayRead( aParsed, aAddress ) )
    {
        return Status::ACCESS_DENIED;
    }
    const Access lWeaker = std::min( mSpace.GetAccess( aAddress, 1 ), mSpace.GetAccess( lEnd, 1 ) );
    const bool lIsRegister = aParsed.mCommand == Command::READREG;
    if ( ( lWeaker == Access::NONE ) || ( ( lWeaker == Access::RESERVED ) && lIsRegister ) )
    {
        return Status::INVALID_ADDRESS;
    }
    return IsBusy( aAddress, lEnd ) ? Status::BUSY : Status::SUCCESS;
}

// Writes 1 to 4 bytes, if that is allowed.
uint16_t VirtualDeviceGEV::WriteOne( const Parsed& aParsed, uint64_t aAddress, const Bytes& aData )
{
    const uint64_t lEnd = aAddress + aData.size() - 1;
    if ( mConfiguration.mStrict && ( aAddress % 4 != 0 ) )
    {
        return Status::BAD_ALIGNMENT;
    }
    const uint16_t lRefusal = FindRefusal( aParsed.mCommand, aAddress, lEnd );
    if ( lRefusal != Status::SUCCESS )
    {
        return lRefusal;
    }
    if ( !MayWrite( aParsed, aAddress ) )
    {
        return Status::ACCESS_DENIED;
    }
    const Access lWeaker = std::min( mSpace.GetAccess( aAddress, 1 ), mSpace.GetAccess( lEnd, 1 ) );
    if ( ( lWeaker == Access::NONE ) || ( lWeaker == Access::RESERVED ) )
    {
        return Status::INVALID_ADDRESS;
    }
    if ( lWeaker == Access::READ_ONLY )
    {
        return Status::WRITE_PROTECT;
    }
    if ( IsBusy( aAddress, lEnd ) )
    {
        return Status::BUSY;
    }
    StoreBytes( aParsed, aAddress, aData );
    return Status::SUCCESS;
}

// Merges the bytes into the one or two words that hold them.
void VirtualDeviceGEV::StoreBytes( const Parsed& aParsed, uint64_t aAddress, const Bytes& aData )
{
    const uint64_t lEnd = aAddress + aData.size();
    for ( uint64_t lWord = aAddress / 4 * 4; lWord < lEnd; lWord += 4 )
    {
        Bytes lValue;
        for ( uint64_t i = lWord; i < lWord + 4; i++ )
        {
            const bool lIsNew = ( i >= aAddress ) && ( i < lEnd );
            lValue.push_back( lIsNew ? Get8( aData, i - aAddress ) : mSpace.Read( i, 1 )[0] );
        }
        Store( aParsed, lWord, Get32( lValue, 0 ) );
    }
}

// A write of a whole register with what it brings about.
void VirtualDeviceGEV::Store( const Parsed& aParsed, uint64_t aAddress, uint32_t aValue )
{
    switch ( aAddress )
    {
    case Register::CONTROL_PRIVILEGE:
        SetPrivilege( aParsed, aValue );
        return;
    case Register::TIMESTAMP_CONTROL:
        ControlTimestamp( aValue, aParsed.mNowMs );
        return;
    case Register::HEARTBEAT_TIMEOUT:
        mSpace.SetWord( aAddress, std::max( aValue, HEARTBEAT_MIN_MS ) );
        return;
    default:
        mSpace.SetWord( aAddress, aValue );
        return;
    }
}

// The words that hold the first and the last byte of an access.
uint16_t VirtualDeviceGEV::FindRefusal( uint16_t aCommand, uint64_t aFirst, uint64_t aLast ) const
{
    const uint16_t lStatus = FindRefusal( aCommand, aFirst );
    return ( lStatus != Status::SUCCESS ) ? lStatus : FindRefusal( aCommand, aLast );
}

uint16_t VirtualDeviceGEV::FindRefusal( uint16_t aCommand, uint64_t aAddress ) const
{
    if ( aAddress > UINT32_MAX )
    {
        return Status::SUCCESS;
    }
    const uint32_t lWord = static_cast<uint32_t>( aAddress ) & ~3u;
    auto lFound = mRefusals.find( { aCommand, lWord } );
    if ( lFound == mRefusals.end() )
    {
        lFound = mRefusals.find( { ANY_COMMAND, lWord } );
    }
    return ( lFound == mRefusals.end() ) ? Status::SUCCESS : lFound->second;
}

bool VirtualDeviceGEV::IsBusy( uint64_t aFirst, uint64_t aLast )
{
    if ( ( aLast < Register::BUSY_WORD ) || ( aFirst >= Register::BUSY_WORD + 4 ) )
    {
        return false;
    }
    const uint32_t lCount = mSpace.GetWord( Register::BUSY_COUNT );
    if ( lCount == 0 )
    {
        return false;
    }
    mSpace.SetWord( Register::BUSY_COUNT, lCount - 1 );
    return true;
}

bool VirtualDeviceGEV::MayRead( const Parsed& aParsed, uint64_t aAddress ) const
{
    const uint32_t lPrivilege = mSpace.GetWord( Register::CONTROL_PRIVILEGE );
    return !mHolder || ( mHolder == aParsed.mFrom ) ||
           ( ( lPrivilege & PRIVILEGE_EXCLUSIVE ) == 0 ) ||
           ( aAddress == Register::CONTROL_PRIVILEGE );
}

bool VirtualDeviceGEV::MayWrite( const Parsed& aParsed, uint64_t aAddress ) const
{
    if ( mHolder )
    {
        return mHolder == aParsed.mFrom;
    }
    return !mConfiguration.mRequireControl || ( aAddress == Register::CONTROL_PRIVILEGE );
}

void VirtualDeviceGEV::SetPrivilege( const Parsed& aParsed, uint32_t aValue )
{
    if ( ( aValue & PRIVILEGE_BITS ) == 0 )
    {
        FreeControl();
        return;
    }
    mHolder = aParsed.mFrom;
    mHolderSeenMs = aParsed.mNowMs;
    mSpace.SetWord( Register::CONTROL_PRIVILEGE, aValue & PRIVILEGE_BITS );
    if ( mSpace.GetAccess( Register::CONTROL_OWNER_PORT, 1 ) == Access::READ_ONLY )
    {
        mSpace.SetWord( Register::CONTROL_OWNER_PORT, mHolder->mPort );
        mSpace.SetWord( Register::CONTROL_OWNER_ADDRESS, mHolder->mAddress );
    }
}

void VirtualDeviceGEV::FreeControl()
{
    mHolder.reset();
    // These words are 0 also where they are no registers.
    mSpace.SetWord( Register::CONTROL_PRIVILEGE, 0 );
    mSpace.SetWord( Register::CONTROL_OWNER_PORT, 0 );
    mSpace.SetWord( Register::CONTROL_OWNER_ADDRESS, 0 );
    mSpace.SetWord( Register::MESSAGE_PORT, 0 );
    const uint32_t lChannels = std::min( mConfiguration.mStreamChannels, STREAM_CHANNELS_MAX );
    for ( uint32_t i = 0; i < lChannels; i++ )
    {
        mSpace.SetWord( Register::STREAM_PORT + Register::STREAM_STRIDE * i, 0 );
    }
}

std::optional<Endpoint> VirtualDeviceGEV::GetHolder( int64_t aNowMs ) const
{
    const int64_t lTimeoutMs = mSpace.GetWord( Register::HEARTBEAT_TIMEOUT );
    const bool lIsDisabled = ( mSpace.GetWord( Register::GVCP_CONFIGURATION ) & 1 ) != 0;
    if ( mHolder && !lIsDisabled && ( aNowMs - mHolderSeenMs > lTimeoutMs ) )
    {
        return std::nullopt;
    }
    return mHolder;
}

void VirtualDeviceGEV::ControlTimestamp( uint32_t aValue, int64_t aNowMs )
{
    if ( ( aValue & 2 ) != 0 )
    {
        const uint64_t lMs =
            static_cast<uint64_t>( std::max<int64_t>( aNowMs - mTimestampZeroMs, 0 ) );
        const uint64_t lFrequency = mConfiguration.mTickFrequency;
        const uint64_t lTicks = lMs / 1000 * lFrequency + lMs % 1000 * ( lFrequency / 1000 ) +
                                lMs % 1000 * ( lFrequency % 1000 ) / 1000;
        mSpace.SetWord( Register::TIMESTAMP_HIGH, static_cast<uint32_t>( lTicks >> 32 ) );
        mSpace.SetWord( Register::TIMESTAMP_LOW, static_cast<uint32_t>( lTicks & UINT32_MAX ) );
    }
    if ( ( aValue & 1 ) != 0 )
    {
        mTimestampZeroMs = aNowMs;
    }
}

std::vector<VirtualDeviceGEV::Span> VirtualDeviceGEV::GetSpans( const Parsed& aParsed ) const
{
    const Bytes& lPayload = aParsed.mPayload;
    std::vector<Span> lSpans;
    if ( aParsed.mCommand == Command::READMEM )
    {
        lSpans.push_back( { Get32( lPayload, 0 ), Get16( lPayload, 6 ) } );
    }
    if ( aParsed.mCommand == Command::WRITEMEM )
    {
        lSpans.push_back( { Get32( lPayload, 0 ), std::max<size_t>( lPayload.size(), 4 ) - 4 } );
    }
    if ( aParsed.mCommand == Command::DISCOVERY )
    {
        lSpans.push_back( { 0, 4 } );
    }
    const bool lReads = aParsed.mCommand == Command::READREG;
    const size_t lStep = lReads ? 4 : 8;
    if ( lReads || ( aParsed.mCommand == Command::WRITEREG ) )
    {
        for ( size_t i = 0; i + lStep <= lPayload.size(); i += lStep )
        {
            lSpans.push_back( { Get32( lPayload, i ), 4 } );
        }
    }
    return lSpans;
}

bool VirtualDeviceGEV::IsSilent( const Parsed& aParsed ) const
{
    if ( mSilent.empty() )
    {
        return false;
    }
    const std::vector<Span> lSpans = GetSpans( aParsed );
    return std::any_of(
        lSpans.begin(), lSpans.end(),
        [this]( const Span& aSpan )
        {
            const auto lFound =
                mSilent.lower_bound( static_cast<uint32_t>( aSpan.mAddress / 4 * 4 ) );
            return ( lFound != mSilent.end() ) && ( *lFound < aSpan.mAddress + aSpan.mSize );
        } );
}

bool VirtualDeviceGEV::IsPendingOffered() const
{
    const uint32_t lCapability = mSpace.GetWord( Register::GVCP_CAPABILITY );
    const bool lIsPromised = HasVersion( mConfiguration, 1, 1 ) &&
                             ( ( lCapability & Capability::GVCP_PENDING_ACK ) != 0 );
    return ( mConfiguration.mPending.mTimes != 0 ) &&
           ( lIsPromised || mConfiguration.mPending.mAlways );
}

bool VirtualDeviceGEV::TakesLong( const Parsed& aParsed, const Reply& aReply ) const
{
    const std::vector<uint16_t>& lCommands = mConfiguration.mPending.mCommands;
    return aParsed.mWantsAck && ( aReply.mStatus == Status::SUCCESS ) &&
           ( std::find( lCommands.begin(), lCommands.end(), aParsed.mCommand ) != lCommands.end() );
}

// Appends the pending acknowledges that the work begins with and returns how it goes on.
VirtualDeviceGEV::Work VirtualDeviceGEV::Announce( const Parsed& aParsed,
                                                   std::vector<Outgoing>* aOut )
{
    const PendingAcknowledge& lPending = mConfiguration.mPending;
    const int64_t lTimes = IsPendingOffered() ? lPending.mTimes : 0;
    Work lWork;
    lWork.mFinalMs = lPending.mTakesMs;
    lWork.mPromisedMs = lPending.mTakesMs;
    for ( int64_t i = 0; i < lTimes; i++ )
    {
        const int64_t lDelayMs = i * lPending.mTakesMs;
        aOut->push_back( { MakePending( aParsed.mIdentifier, lPending.mAnnouncedMs ), lDelayMs,
                           aParsed.mFrom } );
        lWork.mFinalMs = lDelayMs + lPending.mTakesMs;
        lWork.mPromisedMs = std::max( lWork.mFinalMs, lDelayMs + lPending.mAnnouncedMs );
        Count( aParsed.mCommand ).mPendings++;
    }
    return lWork;
}

// Makes the datagrams for a command that was just executed, and remembers the answer, unless
// aDatagram is empty.
std::vector<Outgoing> VirtualDeviceGEV::Send( const Parsed& aParsed, const Bytes& aDatagram,
                                              const Reply& aReply )
{
    Counters& lCounters = Count( aParsed.mCommand );
    ( aReply.mStatus == Status::SUCCESS ? lCounters.mExecuted : lCounters.mRefused )++;
    std::vector<Outgoing> lOut;
    const Work lWork = TakesLong( aParsed, aReply ) ? Announce( aParsed, &lOut ) : Work();
    Last lLast;
    lLast.mRequest = aDatagram;
    lLast.mAnswerMs = aParsed.mNowMs + lWork.mFinalMs;
    lLast.mForgottenMs = aParsed.mNowMs + lWork.mPromisedMs + mConfiguration.mResendWindowMs;
    if ( aParsed.mWantsAck )
    {
        lLast.mAnswer = MakeAcknowledge( aReply.mStatus, aParsed.mCommand + 1u, aParsed.mIdentifier,
                                         aReply.mPayload );
        lOut.push_back( { lLast.mAnswer, lWork.mFinalMs, aParsed.mFrom } );
        lCounters.mAnswers++;
    }
    if ( ( lWork.mFinalMs > 0 ) && ( mHolder == aParsed.mFrom ) )
    {
        // Its host waits as long as the device works.
        mHolderSeenMs = std::max( mHolderSeenMs, lLast.mAnswerMs );
    }
    Remember( aParsed, lLast );
    return lOut;
}

std::vector<Outgoing> VirtualDeviceGEV::SendAgain( const Parsed& aParsed, const Last& aLast )
{
    Counters& lCounters = Count( aParsed.mCommand );
    lCounters.mRepeated++;
    if ( aLast.mAnswer.empty() )
    {
        return {};
    }
    if ( aParsed.mNowMs >= aLast.mAnswerMs )
    {
        lCounters.mAnswers++;
        return { { aLast.mAnswer, 0, aParsed.mFrom } };
    }
    if ( !IsPendingOffered() )
    {
        return {};
    }
    lCounters.mPendings++;
    return { { MakePending( aParsed.mIdentifier, mConfiguration.mPending.mAnnouncedMs ), 0,
               aParsed.mFrom } };
}

void VirtualDeviceGEV::Remember( const Parsed& aParsed, const Last& aLast )
{
    if ( aLast.mRequest.empty() )
    {
        return;
    }
    mLast[aParsed.mFrom] = aLast;
    if ( mLast.size() > SENDERS_MAX )
    {
        mLast.erase( std::min_element( mLast.begin(), mLast.end(),
                                       []( const auto& aA, const auto& aB ) {
                                           return aA.second.mForgottenMs < aB.second.mForgottenMs;
                                       } ) );
    }
}

void VirtualDeviceGEV::RefuseAddress( uint32_t aAddress, uint16_t aStatus )
{
    Refuse( ANY_COMMAND, aAddress, aStatus );
}

void VirtualDeviceGEV::Refuse( uint16_t aCommand, uint32_t aAddress, uint16_t aStatus )
{
    const std::pair<uint16_t, uint32_t> lKey( aCommand, aAddress & ~3u );
    if ( aStatus == Status::SUCCESS )
    {
        mRefusals.erase( lKey );
        return;
    }
    mRefusals[lKey] = aStatus;
}

bool VirtualDeviceGEV::WriteWord( uint32_t aAddress, uint32_t aValue )
{
    mSpace.SetWord( aAddress, aValue );
    return mSpace.GetAccess( aAddress, 4 ) != Access::NONE;
}

void VirtualDeviceGEV::SetSilent( uint32_t aAddress, bool aIsSilent )
{
    if ( aIsSilent )
    {
        mSilent.insert( aAddress & ~3u );
        return;
    }
    mSilent.erase( aAddress & ~3u );
}

VirtualDeviceGEV::Counters& VirtualDeviceGEV::Count( uint16_t aCommand )
{
    return mCounters[IsImplemented( aCommand ) ? aCommand : ANY_COMMAND];
}

VirtualDeviceGEV::Counters VirtualDeviceGEV::GetCounters( uint16_t aCommand ) const
{
    const auto lFound = mCounters.find( IsImplemented( aCommand ) ? aCommand : ANY_COMMAND );
    return ( lFound == mCounters.end() ) ? Counters() : lFound->second;
}

VirtualDeviceGEV::Counters VirtualDeviceGEV::GetTotal() const
{
    Counters lTotal;
    for ( const auto& lEntry : mCounters )
    {
        lTotal.mReceived += lEntry.second.mReceived;
        lTotal.mExecuted += lEntry.second.mExecuted;
        lTotal.mRefused += lEntry.second.mRefused;
        lTotal.mRepeated += lEntry.second.mRepeated;
        lTotal.mSilenced += lEntry.second.mSilenced;
        lTotal.mAnswers += lEntry.second.mAnswers;
        lTotal.mPendings += lEntry.second.mPendings;
    }
    return lTotal;
}

std::string VirtualDeviceGEV::GetSummary() const
{
    const Counters lTotal = GetTotal();
    char lText[320];
    std::snprintf( lText, sizeof( lText ),
                   "%" PRIu64 " commands: %" PRIu64 " executed, %" PRIu64 " refused, %" PRIu64
                   " repeated, %" PRIu64 " silenced; %" PRIu64 " acknowledges and %" PRIu64
                   " pending acknowledges sent; %" PRIu64 " datagrams dropped",
                   lTotal.mReceived, lTotal.mExecuted, lTotal.mRefused, lTotal.mRepeated,
                   lTotal.mSilenced, lTotal.mAnswers, lTotal.mPendings,
                   mOddities.mTooShort + mOddities.mWrongKey + mOddities.mZeroIdentifier );
    return lText;
}

} // namespace Simulators
