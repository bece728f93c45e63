/// @file
/// WdUtilsLib: GenCP WRITEMEM.
#pragma once

#include <PacketBytes/ByteReader.h>
#include <PacketBytes/ByteWriter.h>
#include <QmUtilsLib/Result.h>
#include <WdUtilsLib/Export.h>
#include <WdUtilsLib/U3V/AckHeader.h>
#include <WdUtilsLib/U3V/CommandHeader.h>

#include <algorithm>
#include <cstddef>

namespace WdUtilsLib
{
namespace U3V
{

/// WriteMemCmdHeader is a view of WRITEMEM's own field.
///
///     offset  size
///     12      8     address
class WriteMemCmdHeader
{
public:
    static constexpr std::size_t SIZE = 8; ///< bytes of the field

    WriteMemCmdHeader() = default;

    /// Shows the SIZE bytes at aBytes, which lie behind the command header; null: not attached.
    explicit WriteMemCmdHeader( unsigned char* aBytes )
        : mBytes( aBytes )
    {
    }

    /// The field.
    ///@{
    void SetRegisterAddress( unsigned long long aAddress )
    {
        PacketBytes::LittleWriter( mBytes, mBytes == nullptr ? 0 : SIZE ).Put64( aAddress );
    }
    unsigned long long GetRegisterAddress() const
    {
        return PacketBytes::LittleReader( mBytes, mBytes == nullptr ? 0 : SIZE ).Get64();
    }
    ///@}

private:
    unsigned char* mBytes = nullptr;
};

/// WriteMemCmd is a view of a whole WRITEMEM command. The memory is borrowed and must outlive it.
///
///     offset  size
///     20      n     data
class WDUTILSLIB_API WriteMemCmd
{
public:
    static constexpr unsigned short COMMAND = 0x0802; ///< the command code

    WriteMemCmd() = default;

    /// Attach binds the packet to memory of the caller. INVALID_PACKET, and the packet is not
    /// attached, when that is null or smaller than GetRequiredBufferSize( 0 ).
    QmUtilsLib::Result Attach( unsigned char* aBuffer, unsigned int aSize );

    /// Initialize fills every field: no acknowledge requested, request identifier and address 0, no
    /// data.
    void Initialize()
    {
        mCommandHeader.Initialize( COMMAND, WriteMemCmdHeader::SIZE );
        mWriteMemCmdHeader.SetRegisterAddress( 0 );
    }

    /// The two views belong to this object and are valid as long as it is.
    ///@{
    CommandHeader* GetCommandHeader() { return &mCommandHeader; }
    WriteMemCmdHeader* GetWriteMemCmdHeader() { return &mWriteMemCmdHeader; }
    ///@}

    /// SetCurrentDataSize sets how many bytes of data the command carries. INVALID_PACKET with
    /// a description, and nothing changed, when these do not fit the attached memory or the 16 bits
    /// of the length field.
    QmUtilsLib::Result SetCurrentDataSize( unsigned short aSize );

    /// The bytes of data that the length field tells, never more than the memory has room for, and
    /// where they are to be put; 0 and null when not attached.
    ///@{
    unsigned short GetCurrentDataSize() const
    {
        PacketBytes::LittleReader lReader( mBytes, mSize );
        const std::size_t lAttached = lReader.Skip( CommandHeader::SIZE ).GetLeft();
        const std::size_t lLength = std::min<std::size_t>( mCommandHeader.GetLength(), lAttached );
        return static_cast<unsigned short>(
            lReader.GetPart( lLength ).Skip( WriteMemCmdHeader::SIZE ).GetLeft() );
    }
    unsigned char* GetData() { return mBytes == nullptr ? nullptr : mBytes + HEADERS_SIZE; }
    ///@}

    /// Bytes of a command with aDataSize bytes of data: 20 and these, modulo 2^32.
    static unsigned int GetRequiredBufferSize( unsigned int aDataSize )
    {
        return static_cast<unsigned int>( HEADERS_SIZE ) + aDataSize;
    }

private:
    static constexpr std::size_t HEADERS_SIZE = CommandHeader::SIZE + WriteMemCmdHeader::SIZE;

    CommandHeader mCommandHeader;
    WriteMemCmdHeader mWriteMemCmdHeader;
    unsigned char* mBytes = nullptr;
    unsigned int mSize = 0;
};

/// WriteMemAck is a view of a WRITEMEM acknowledge. A device that does not report how much it wrote
/// sends the header alone.
///
///     offset  size
///     12      2     reserved
///     14      2     bytes written
class WDUTILSLIB_API WriteMemAck
{
public:
    static constexpr unsigned short ACKNOWLEDGE = WriteMemCmd::COMMAND + 1; ///< its code

    WriteMemAck() = default;

    /// Attach binds the view to the aSize bytes received. INVALID_PACKET, and nothing is attached,
    /// when that is less than the header, not the whole acknowledge, or aBuffer is null.
    QmUtilsLib::Result Attach( unsigned char* aBuffer, unsigned int aSize );

    /// IsValid tells whether what was attached is a whole WRITEMEM acknowledge, of any status.
    bool IsValid() const { return mAckHeader.IsValid( ACKNOWLEDGE ); }

    /// The view belongs to this object and is valid as long as it is.
    AckHeader* GetAckHeader() { return &mAckHeader; }

    /// Room for the longest such acknowledge: 16.
    static unsigned int GetRequiredBufferSize()
    {
        return AckHeader::SIZE + 4; // the reserved half, and the bytes written
    }

private:
    AckHeader mAckHeader;
};

} // namespace U3V
} // namespace WdUtilsLib
