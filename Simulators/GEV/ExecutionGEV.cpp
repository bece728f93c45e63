#include "Simulators/GEV/ExecutionGEV.h"

#include "Simulators/GEV/BootstrapGEV.h"

#include <PacketBytes/ByteReader.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace Simulators
{

using PacketBytes::BigReader;

namespace
{

// Bytes of payload: 576 of the largest datagram without the IP, UDP and GVCP headers.
constexpr size_t PAYLOAD_MAX = 540;
constexpr size_t DATA_MAX = 536;       // and without an address
constexpr size_t PAIRS_SIZE_MAX = 536; // 67 pairs of address and value

// Whether the payload is made of whole units, one or more, of aMax bytes at most.
bool IsCountRight( const CommandGEV& aCommand, const RegistersGEV& aRegisters, size_t aUnit,
                   size_t aMax )
{
    const size_t lSize = aCommand.GetPayloadSize();
    const bool lIsWhole = lSize % aUnit == 0 || !aRegisters.IsStrict();
    return lSize >= aUnit && lSize <= aMax && lIsWhole;
}

// Whether one command may name that many registers.
bool MayConcatenate( const RegistersGEV& aRegisters, size_t aCount )
{
    return aCount == 1 || aRegisters.HasCapability( Capability::GVCP_CONCATENATION );
}

// Discovery does not depend on control: any host may discover the device.
ReplyGEV Discover( const CommandGEV& aCommand, const RegistersGEV& aRegisters )
{
    if ( aRegisters.IsStrict() && aCommand.GetPayloadSize() != 0 )
    {
        return MakeRefusal( aCommand, Status::INVALID_PARAMETER );
    }
    if ( const uint16_t lRefusal = aRegisters.FindRefusal( aCommand, 0, 4 ) )
    {
        return MakeRefusal( aCommand, lRefusal );
    }
    return { Status::SUCCESS, aRegisters.Read( 0, DISCOVERY_SIZE ) };
}

ReplyGEV ReadRegisters( const CommandGEV& aCommand, RegistersGEV& aRegisters )
{
    const size_t lCount = aCommand.GetPayloadSize() / 4;
    if ( !IsCountRight( aCommand, aRegisters, 4, PAYLOAD_MAX ) ||
         !MayConcatenate( aRegisters, lCount ) )
    {
        return MakeRefusal( aCommand, Status::INVALID_PARAMETER );
    }
    BigReader lAddresses = aCommand.ReadPayload();
    ReplyGEV lReply;
    for ( size_t i = 0; i < lCount; ++i )
    {
        const uint32_t lAddress = lAddresses.Get32();
        lReply.mStatus = aRegisters.Check( aCommand, lAddress, 4 );
        if ( lReply.mStatus != Status::SUCCESS )
        {
            return lReply; // with the values read before it
        }
        Append( lReply.mPayload, aRegisters.Read( lAddress, 4 ) );
    }
    return lReply;
}

ReplyGEV WriteRegisters( const CommandGEV& aCommand, RegistersGEV& aRegisters )
{
    const size_t lCount = aCommand.GetPayloadSize() / 8;
    if ( !IsCountRight( aCommand, aRegisters, 8, PAIRS_SIZE_MAX ) ||
         !MayConcatenate( aRegisters, lCount ) )
    {
        return MakeRefusal( aCommand, Status::INVALID_PARAMETER );
    }
    BigReader lPairs = aCommand.ReadPayload();
    for ( size_t i = 0; i < lCount; ++i )
    {
        const uint32_t lAddress = lPairs.Get32();
        Bytes lValue( 4 );
        lPairs.GetBytes( lValue.data(), lValue.size() );
        // Each register is checked just before it is written, because an earlier write of the same
        // command may change the answer: it may release control. Earlier writes are not undone.
        if ( const uint16_t lStatus = aRegisters.Check( aCommand, lAddress, lValue.size() ) )
        {
            return { lStatus, MakeIndex( i ) };
        }
        aRegisters.Write( aCommand, lAddress, lValue );
    }
    return { Status::SUCCESS, MakeIndex( lCount ) };
}

// The status of the first word that may not be read.
uint16_t CheckRead( const CommandGEV& aCommand, RegistersGEV& aRegisters, uint64_t aAddress,
                    size_t aCount )
{
    uint16_t lStatus = Status::SUCCESS;
    for ( size_t i = 0; i < aCount && lStatus == Status::SUCCESS; i += 4 )
    {
        lStatus = aRegisters.Check( aCommand, aAddress + i, std::min<size_t>( aCount - i, 4 ) );
    }
    return lStatus;
}

ReplyGEV ReadMemory( const CommandGEV& aCommand, RegistersGEV& aRegisters )
{
    BigReader lPayload = aCommand.ReadPayload();
    const uint64_t lAddress = lPayload.Get32();
    lPayload.Skip( 2 ); // reserved
    const uint16_t lCount = lPayload.Get16();
    // A count that is not a multiple of 4 is a bad parameter; bad alignment speaks of the address.
    const bool lIsWhole = !aRegisters.IsStrict() || ( lCount % 4 == 0 && lPayload.GetLeft() == 0 );
    if ( !IsCountRight( aCommand, aRegisters, 8, PAYLOAD_MAX ) || lCount == 0 ||
         lCount > DATA_MAX || !lIsWhole )
    {
        return MakeRefusal( aCommand, Status::INVALID_PARAMETER );
    }
    if ( const uint16_t lStatus = CheckRead( aCommand, aRegisters, lAddress, lCount ) )
    {
        return MakeRefusal( aCommand, lStatus );
    }
    Bytes lData( 4 );
    aCommand.ReadPayload().GetBytes( lData.data(), lData.size() ); // the address
    Append( lData, aRegisters.Read( lAddress, lCount ) );
    return { Status::SUCCESS, lData };
}

ReplyGEV WriteMemory( const CommandGEV& aCommand, RegistersGEV& aRegisters )
{
    if ( !aRegisters.HasCapability( Capability::GVCP_WRITEMEM ) )
    {
        return MakeRefusal( aCommand, Status::NOT_IMPLEMENTED );
    }
    BigReader lPayload = aCommand.ReadPayload();
    const uint64_t lAddress = lPayload.Get32();
    const size_t lCount = lPayload.GetLeft();
    const bool lIsWhole = lCount % 4 == 0 || !aRegisters.IsStrict();
    if ( lCount == 0 || lCount > DATA_MAX || !lIsWhole )
    {
        return MakeRefusal( aCommand, Status::INVALID_PARAMETER );
    }
    for ( size_t i = 0; i < lCount; i += 4 )
    {
        Bytes lData( std::min<size_t>( lCount - i, 4 ) );
        lPayload.GetBytes( lData.data(), lData.size() );
        if ( const uint16_t lStatus = aRegisters.Check( aCommand, lAddress + i, lData.size() ) )
        {
            return { lStatus, MakeIndex( i ) };
        }
        aRegisters.Write( aCommand, lAddress + i, lData );
    }
    return { Status::SUCCESS, MakeIndex( lCount ) };
}

} // namespace

ReplyGEV Execute( const CommandGEV& aCommand, RegistersGEV& aRegisters )
{
    switch ( aCommand.mCode )
    {
    case Command::DISCOVERY:
        return Discover( aCommand, aRegisters );
    case Command::READREG:
        return ReadRegisters( aCommand, aRegisters );
    case Command::WRITEREG:
        return WriteRegisters( aCommand, aRegisters );
    case Command::READMEM:
        return ReadMemory( aCommand, aRegisters );
    case Command::WRITEMEM:
        return WriteMemory( aCommand, aRegisters );
    default:
        return MakeRefusal( aCommand, Status::NOT_IMPLEMENTED );
    }
}

} // namespace Simulators
