/// @file
/// WdUtilsLib: the acknowledges of GVCP, the GigE Vision control protocol.
#pragma once

#include <PacketBytes/ByteReader.h>
#include <WdUtilsLib/GEV/CommandHeader.h>

#include <cstddef>
#include <cstdint>

namespace WdUtilsLib
{
namespace GEV
{

/// AcknowledgeHeader is a view of a buffer into which an acknowledge is received.
///
///     offset  size
///     0       2     status, 0x0000 success
///     2       2     acknowledge code, the command's plus one
///     4       2     length of the payload behind the header
///     6       2     acknowledge identifier, the command's request identifier
///
/// The buffer is borrowed and must outlive the view. No operation reads beyond its size; a field
/// beyond it is 0. Values are in host order. The view does not know how many bytes were received:
/// ask IsValid before the fields.
class AcknowledgeHeader
{
public:
    static constexpr std::size_t HEADER_SIZE = 8; ///< bytes in front of the payload

    /// A view of the aSize bytes at aBuffer.
    AcknowledgeHeader( const void* aBuffer, std::size_t aSize )
        : mBytes( static_cast<const uint8_t*>( aBuffer ) )
        , mSize( aSize )
    {
    }

    /// IsValid tells whether the aReceived bytes in the buffer are the complete acknowledge of
    /// aCommand. Header and payload length must make up aReceived, the code must be the command's
    /// plus one, and the identifier must be the command's. The status may be any, since a refusal
    /// is an answer too. The operation that reads the payload must check its length.
    bool IsValid( unsigned int aReceived, const CommandHeader& aCommand ) const
    {
        PacketBytes::BigReader lReader = MakePart( aReceived );
        lReader.Skip( ACKNOWLEDGE_OFFSET );
        const unsigned short lAcknowledge = lReader.Get16();
        const unsigned short lLength = lReader.Get16();
        const unsigned short lAcknowledgeId = lReader.Get16();
        return lReader.IsWhole() && lReader.GetLeft() == lLength &&
               lAcknowledge == aCommand.GetCommand() + 1 &&
               lAcknowledgeId == aCommand.GetRequestId();
    }

    /// The fields of the header. 0 where the buffer is shorter than a header.
    ///@{
    unsigned short GetStatus() const { return GetHeaderField( STATUS_OFFSET ); }
    unsigned short GetAcknowledge() const { return GetHeaderField( ACKNOWLEDGE_OFFSET ); }
    unsigned short GetLength() const { return GetHeaderField( LENGTH_OFFSET ); }
    unsigned short GetAcknowledgeId() const { return GetHeaderField( ACKNOWLEDGE_ID_OFFSET ); }
    ///@}

protected:
    /// MakeReader returns a reader from an offset in the datagram to the end of the payload. The
    /// end is that of the length field, or of the buffer where that is shorter.
    PacketBytes::BigReader MakeReader( std::size_t aOffset ) const
    {
        return PacketBytes::BigReader( mBytes, mSize )
            .GetUpTo( HEADER_SIZE + GetLength() )
            .Skip( aOffset );
    }

    /// MakePart returns a reader of the first aSize bytes of the buffer, whatever the length field
    /// is. It has no bytes where the buffer has fewer.
    PacketBytes::BigReader MakePart( std::size_t aSize ) const
    {
        return PacketBytes::BigReader( mBytes, mSize ).GetPart( aSize );
    }

private:
    static constexpr std::size_t STATUS_OFFSET = 0;
    static constexpr std::size_t ACKNOWLEDGE_OFFSET = 2;
    static constexpr std::size_t LENGTH_OFFSET = 4;
    static constexpr std::size_t ACKNOWLEDGE_ID_OFFSET = 6;

    unsigned short GetHeaderField( std::size_t aOffset ) const
    {
        return MakePart( HEADER_SIZE ).Skip( aOffset ).Get16();
    }

    const uint8_t* mBytes;
    std::size_t mSize;
};

/// PendingAcknowledgeHeader is a view of a PENDING_ACK, by which the device asks for more time.
///
///     offset  size
///     8       2     reserved
///     10      2     time to completion, milliseconds
class PendingAcknowledgeHeader : public AcknowledgeHeader
{
public:
    static constexpr unsigned short ACKNOWLEDGE = 0x0089; ///< its acknowledge code
    static constexpr std::size_t SIZE = 12;               ///< bytes of the whole datagram

    /// A view of the aSize bytes at aBuffer.
    PendingAcknowledgeHeader( const void* aBuffer, std::size_t aSize )
        : AcknowledgeHeader( aBuffer, aSize )
    {
    }

    /// Milliseconds that the device still needs, from the arrival of this datagram. The length
    /// field is ignored.
    unsigned short GetTimeToCompletion() const
    {
        return MakePart( SIZE ).Skip( TIME_OFFSET ).Get16();
    }

private:
    static constexpr std::size_t TIME_OFFSET = 10;
};

} // namespace GEV
} // namespace WdUtilsLib
