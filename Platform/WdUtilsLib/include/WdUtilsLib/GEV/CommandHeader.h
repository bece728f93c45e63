/// @file
/// WdUtilsLib: the commands of GVCP, the GigE Vision control protocol.
#pragma once

#include <PacketBytes/ByteReader.h>
#include <PacketBytes/ByteWriter.h>

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace WdUtilsLib
{
namespace GEV
{

/// The UDP port on which a device listens for GVCP.
constexpr unsigned short GVCP_PORT = 3956;

/// CommandHeader is a whole GVCP command. The object is the datagram: GetTotalLength() bytes from
/// the object's own address are sent.
///
///     offset  size
///     0       1     key, 0x42
///     1       1     flags: 0x01 acknowledge required
///     2       2     command
///     4       2     length of the payload behind the header
///     6       2     request identifier, never 0 on the wire
///
/// Derived classes add operations on the payload and no members. Bytes behind the payload are never
/// sent and have no defined value. All values are in host order.
class CommandHeader
{
public:
    static constexpr std::size_t HEADER_SIZE = 8; ///< bytes of the header
    static constexpr std::size_t MAX_SIZE = 548;  ///< bytes of the largest datagram of GVCP

    /// Bytes of the largest payload.
    static constexpr std::size_t MAX_PAYLOAD_SIZE = MAX_SIZE - HEADER_SIZE;

    static constexpr uint8_t KEY = 0x42;              ///< the first byte of every command
    static constexpr uint8_t FLAG_ACKNOWLEDGE = 0x01; ///< acknowledge required

    /// A command without payload, with acknowledge required and request identifier 0.
    explicit CommandHeader( unsigned short aCommand )
    {
        PacketBytes::BigWriter lWriter( mBytes, HEADER_SIZE );
        lWriter.Put8( KEY );
        lWriter.Put8( FLAG_ACKNOWLEDGE );
        lWriter.Put16( aCommand );
        lWriter.Put16( 0 ); // length
        lWriter.Put16( 0 ); // request identifier
    }

    /// InitRequestId sets the request identifier. The acknowledge carries the same one.
    void InitRequestId( unsigned short aRequestId )
    {
        MakeHeaderWriter( REQUEST_ID_OFFSET ).Put16( aRequestId );
    }

    /// InitFlagAcknowledge sets or clears the acknowledge-required flag.
    void InitFlagAcknowledge( bool aRequired ) { InitFlag( FLAG_ACKNOWLEDGE, aRequired ); }

    /// The fields of the header.
    ///@{
    unsigned short GetRequestId() const { return MakeHeaderReader( REQUEST_ID_OFFSET ).Get16(); }
    unsigned short GetCommand() const { return MakeHeaderReader( COMMAND_OFFSET ).Get16(); }
    bool GetFlagAcknowledge() const
    {
        return ( MakeHeaderReader( FLAGS_OFFSET ).Get8() & FLAG_ACKNOWLEDGE ) != 0;
    }
    ///@}

    /// Bytes of the payload.
    unsigned short GetLength() const { return MakeHeaderReader( LENGTH_OFFSET ).Get16(); }

    /// Bytes to send: header and payload.
    unsigned short GetTotalLength() const
    {
        return static_cast<unsigned short>( HEADER_SIZE + GetLength() ); // at most MAX_SIZE
    }

protected:
    /// InitFlag sets or clears a flag that only some commands define.
    void InitFlag( uint8_t aFlag, bool aSet )
    {
        const int lOthers = MakeHeaderReader( FLAGS_OFFSET ).Get8() & ~aFlag;
        MakeHeaderWriter( FLAGS_OFFSET )
            .Put8( static_cast<uint8_t>( lOthers | ( aSet ? aFlag : 0 ) ) );
    }

    /// InitLength sets the payload's length in bytes. Bytes that the payload gains are 0. It
    /// returns false beyond MAX_PAYLOAD_SIZE, and nothing changes then.
    bool InitLength( std::size_t aLength )
    {
        const std::size_t lBefore = GetLength();
        PacketBytes::BigWriter lGain( mBytes, sizeof( mBytes ) );
        lGain.Skip( HEADER_SIZE + lBefore ).PutZeros( aLength > lBefore ? aLength - lBefore : 0 );
        if ( !lGain.IsWhole() )
        {
            return false;
        }
        MakeHeaderWriter( LENGTH_OFFSET ).Put16( static_cast<uint16_t>( aLength ) ); // at most 540
        return true;
    }

    /// MakeWriter returns a writer from an offset in the datagram to the end of the payload.
    PacketBytes::BigWriter MakeWriter( std::size_t aOffset )
    {
        PacketBytes::BigWriter lWriter( mBytes, sizeof( mBytes ) );
        return lWriter.GetPart( GetTotalLength() ).Skip( aOffset );
    }

private:
    static constexpr std::size_t FLAGS_OFFSET = 1;
    static constexpr std::size_t COMMAND_OFFSET = 2;
    static constexpr std::size_t LENGTH_OFFSET = 4;
    static constexpr std::size_t REQUEST_ID_OFFSET = 6;

    PacketBytes::BigReader MakeHeaderReader( std::size_t aOffset ) const
    {
        return PacketBytes::BigReader( mBytes, HEADER_SIZE ).Skip( aOffset );
    }

    PacketBytes::BigWriter MakeHeaderWriter( std::size_t aOffset )
    {
        return PacketBytes::BigWriter( mBytes, HEADER_SIZE ).Skip( aOffset );
    }

    uint8_t mBytes[MAX_SIZE];
};

static_assert( std::is_standard_layout<CommandHeader>::value, "the object is the datagram" );
static_assert( sizeof( CommandHeader ) == CommandHeader::MAX_SIZE, "the object is the datagram" );
static_assert( alignof( CommandHeader ) == 1, "the object is the datagram" );

} // namespace GEV
} // namespace WdUtilsLib
