/// @file
/// WdUtilsLib: the commands of GenCP as USB3 Vision carries them.
#pragma once

#include <PacketBytes/ByteWriter.h>
#include <QmUtilsLib/Result.h>
#include <WdUtilsLib/U3V/FieldsView.h>

#include <cstddef>
#include <cstdint>

namespace WdUtilsLib
{
namespace U3V
{

/// The result code where a packet does not fit the memory that it is attached to, or that memory
/// does not hold such a packet.
constexpr unsigned int INVALID_PACKET = 0x4001;

/// CommandHeader is a view of the header of every GenCP command.
///
///     offset  size
///     0       4     prefix, 0x43563355 ("U3VC": bytes 55 33 56 43)
///     4       2     flags: 0x4000 an acknowledge is requested
///     6       2     command
///     8       2     length of the command-specific data behind the header
///     10      2     request identifier
///
/// Numbers are little-endian in the packet and in host order here. The memory is borrowed and must
/// outlive the view. A new view is not attached: its fields are 0 and writing does nothing. Two
/// views of the same memory count as one object for threads.
class CommandHeader : public FieldsView<CommandHeader>
{
public:
    static constexpr std::size_t SIZE = 12;              ///< bytes of the header
    static constexpr uint32_t PREFIX = 0x43563355;       ///< "U3VC" on the wire
    static constexpr uint16_t FLAG_REQUEST_ACK = 0x4000; ///< an acknowledge is requested

    CommandHeader() = default;

    /// A view of the aSize bytes at aBuffer. It is not attached where they are fewer than a header.
    CommandHeader( unsigned char* aBuffer, unsigned int aSize )
        : FieldsView( PacketBytes::LittleWriter( aBuffer, aSize ).Take( SIZE ) )
    {
    }

    /// Initialize sets prefix, command and length of the data. Flags and request identifier are 0.
    void Initialize( unsigned short aCommand, unsigned short aLength )
    {
        PacketBytes::LittleWriter lWriter = MakeWriter( 0 );
        lWriter.Put32( PREFIX );
        lWriter.Put16( 0 ); // flags
        lWriter.Put16( aCommand );
        lWriter.Put16( aLength );
        lWriter.Put16( 0 ); // request identifier
    }

    /// SetRequestAck sets or clears the flag that requests an acknowledge.
    void SetRequestAck( bool aRequested )
    {
        const int lOthers = MakeReader( FLAGS_OFFSET ).Get16() & ~FLAG_REQUEST_ACK;
        MakeWriter( FLAGS_OFFSET )
            .Put16( static_cast<uint16_t>( lOthers | ( aRequested ? FLAG_REQUEST_ACK : 0 ) ) );
    }

    /// SetRequestID sets the identifier, which the acknowledge carries too. DeviceControlInterface
    /// sets it when it sends the command.
    void SetRequestID( unsigned short aRequestID )
    {
        MakeWriter( REQUEST_ID_OFFSET ).Put16( aRequestID );
    }

    /// SetLength sets the number of bytes of data behind the header.
    void SetLength( unsigned short aLength ) { MakeWriter( LENGTH_OFFSET ).Put16( aLength ); }

    /// The fields of the header.
    ///@{
    uint32_t GetPrefix() const { return MakeReader( PREFIX_OFFSET ).Get32(); }
    bool GetRequestAck() const
    {
        return ( MakeReader( FLAGS_OFFSET ).Get16() & FLAG_REQUEST_ACK ) != 0;
    }
    unsigned short GetCommand() const { return MakeReader( COMMAND_OFFSET ).Get16(); }
    unsigned short GetLength() const { return MakeReader( LENGTH_OFFSET ).Get16(); }
    unsigned short GetRequestID() const { return MakeReader( REQUEST_ID_OFFSET ).Get16(); }
    ///@}

private:
    static constexpr std::size_t PREFIX_OFFSET = 0;
    static constexpr std::size_t FLAGS_OFFSET = 4;
    static constexpr std::size_t COMMAND_OFFSET = 6;
    static constexpr std::size_t LENGTH_OFFSET = 8;
    static constexpr std::size_t REQUEST_ID_OFFSET = 10;
};

/// AttachCommand attaches a command header, and the view of the fields behind it, to the aSize
/// bytes at aBuffer. Where they are fewer than both have, or aBuffer is null, it returns
/// INVALID_PACKET and neither is attached.
template <typename Fields>
QmUtilsLib::Result AttachCommand( unsigned char* aBuffer, unsigned int aSize,
                                  CommandHeader& aHeader, Fields& aFields )
{
    PacketBytes::LittleWriter lBoth =
        PacketBytes::LittleWriter( aBuffer, aSize ).GetPart( CommandHeader::SIZE + Fields::SIZE );
    aHeader = CommandHeader( lBoth.Take( CommandHeader::SIZE ), CommandHeader::SIZE );
    aFields = Fields( lBoth.Take( Fields::SIZE ) );
    return lBoth.IsWhole() ? unsigned{ QmUtilsLib::Result::OK } : INVALID_PACKET;
}

} // namespace U3V
} // namespace WdUtilsLib
