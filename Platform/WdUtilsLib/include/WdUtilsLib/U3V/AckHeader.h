/// @file
/// WdUtilsLib: the acknowledges of GenCP as USB3 Vision carries them.
#pragma once

#include <PacketBytes/ByteReader.h>
#include <QmUtilsLib/Result.h>
#include <WdUtilsLib/Export.h>
#include <WdUtilsLib/U3V/CommandHeader.h>

#include <cstddef>
#include <cstdint>

namespace WdUtilsLib
{
namespace U3V
{

/// AckHeader is a view of the header of every GenCP acknowledge.
///
///     offset  size
///     0       4     prefix, as in the command
///     4       2     status, 0x0000 success
///     6       2     acknowledge code, the command's plus one
///     8       2     length of the data behind the header
///     10      2     request identifier of the command
///
/// The memory is borrowed and must outlive the view. Values are in host order. A new view is not
/// attached: its fields are 0.
class WDUTILSLIB_API AckHeader
{
public:
    static constexpr std::size_t SIZE = 12;                   ///< bytes of the header
    static constexpr uint32_t PREFIX = CommandHeader::PREFIX; ///< "U3VC" on the wire

    AckHeader() = default;

    /// Attach makes this a view of the aSize received bytes at aBuffer. Where they are fewer than a
    /// header, or aBuffer is null, it returns INVALID_PACKET and nothing is attached.
    QmUtilsLib::Result Attach( const unsigned char* aBuffer, unsigned int aSize )
    {
        mBytes = PacketBytes::LittleReader( aBuffer, aSize ).Take( SIZE );
        mSize = aSize;
        return mBytes == nullptr ? INVALID_PACKET : unsigned{ QmUtilsLib::Result::OK };
    }

    /// IsWhole tells whether header and data lie within the attached bytes.
    bool IsWhole() const { return MakeReader( SIZE ).Skip( GetLength() ).IsWhole(); }

    /// IsValid tells whether the attached bytes are a whole acknowledge with the code aAcknowledge:
    /// the prefix is right, and IsWhole. The status may be any, since a refusal is an answer too.
    /// The request identifier is not checked, since DeviceControlInterface has done so.
    bool IsValid( unsigned short aAcknowledge ) const
    {
        return GetPrefix() == PREFIX && GetAcknowledge() == aAcknowledge && IsWhole();
    }

    /// The fields of the header.
    ///@{
    uint32_t GetPrefix() const { return MakeReader( PREFIX_OFFSET ).Get32(); }
    unsigned short GetStatus() const { return MakeReader( STATUS_OFFSET ).Get16(); }
    unsigned short GetAcknowledge() const { return MakeReader( ACKNOWLEDGE_OFFSET ).Get16(); }
    unsigned short GetLength() const { return MakeReader( LENGTH_OFFSET ).Get16(); }
    unsigned short GetRequestID() const { return MakeReader( REQUEST_ID_OFFSET ).Get16(); }
    ///@}

    /// GetCurrentDataSize returns how many bytes of data can be read: the length field, or less
    /// where fewer bytes are attached.
    unsigned int GetCurrentDataSize() const
    {
        return static_cast<unsigned int>( MakeDataReader().GetLeft() );
    }

    /// GetData returns the address of the data, or null when nothing is attached.
    const unsigned char* GetData() const { return mBytes == nullptr ? nullptr : mBytes + SIZE; }

    /// MakeDataReader returns a reader of that data.
    PacketBytes::LittleReader MakeDataReader() const
    {
        return MakeReader( SIZE ).GetUpTo( GetLength() );
    }

private:
    static constexpr std::size_t PREFIX_OFFSET = 0;
    static constexpr std::size_t STATUS_OFFSET = 4;
    static constexpr std::size_t ACKNOWLEDGE_OFFSET = 6;
    static constexpr std::size_t LENGTH_OFFSET = 8;
    static constexpr std::size_t REQUEST_ID_OFFSET = 10;

    PacketBytes::LittleReader MakeReader( std::size_t aOffset ) const
    {
        return PacketBytes::LittleReader( mBytes, mSize ).Skip( aOffset );
    }

    const unsigned char* mBytes = nullptr;
    unsigned int mSize = 0;
};

/// PendingAck is a view of a PENDING_ACK, by which the device asks for more time.
///
///     offset  size
///     12      2     reserved
///     14      2     time-out, milliseconds
class WDUTILSLIB_API PendingAck
{
public:
    static constexpr unsigned short ACKNOWLEDGE = 0x0805; ///< its acknowledge code
    static constexpr unsigned int SIZE = 16;              ///< bytes of the whole acknowledge

    /// Attach does what AckHeader::Attach does.
    QmUtilsLib::Result Attach( const unsigned char* aBuffer, unsigned int aSize )
    {
        return mHeader.Attach( aBuffer, aSize );
    }

    /// IsValid tells whether the attached bytes are a PENDING_ACK with its time-out.
    bool IsValid() const
    {
        return mHeader.IsValid( ACKNOWLEDGE ) &&
               mHeader.MakeDataReader().Skip( SIZE - AckHeader::SIZE ).IsWhole();
    }

    /// The view belongs to this object and is valid while the object lives.
    ///@{
    AckHeader* GetAckHeader() { return &mHeader; }
    const AckHeader* GetAckHeader() const { return &mHeader; }
    ///@}

    /// Milliseconds from the arrival of this acknowledge within which the next one comes. 0 unless
    /// IsValid.
    unsigned short GetTimeout() const
    {
        PacketBytes::LittleReader lData = mHeader.MakeDataReader();
        return IsValid() ? lData.Skip( TIMEOUT_OFFSET ).Get16() : uint16_t{ 0 };
    }

private:
    static constexpr std::size_t TIMEOUT_OFFSET = 2; // in the data

    AckHeader mHeader;
};

} // namespace U3V
} // namespace WdUtilsLib
