/// @file
/// WdUtilsLib: GenCP WRITEMEM.
#pragma once

#include <PacketBytes/ByteReader.h>
#include <QmUtilsLib/Result.h>
#include <WdUtilsLib/Export.h>
#include <WdUtilsLib/U3V/AckHeader.h>
#include <WdUtilsLib/U3V/CommandHeader.h>
#include <WdUtilsLib/U3V/FieldsView.h>

#include <cstddef>

namespace WdUtilsLib
{
namespace U3V
{

/// WriteMemCmdHeader is a view of the field of WRITEMEM behind the header.
///
///     offset  size
///     12      8     address
class WriteMemCmdHeader : public FieldsView<WriteMemCmdHeader>
{
public:
    static constexpr std::size_t SIZE = 8; ///< bytes of the field

    WriteMemCmdHeader() = default;

    /// A view of the SIZE bytes at aBytes, behind the command header. With null it is not attached.
    explicit WriteMemCmdHeader( unsigned char* aBytes )
        : FieldsView( aBytes )
    {
    }

    /// The address.
    ///@{
    void SetRegisterAddress( unsigned long long aAddress ) { MakeWriter( 0 ).Put64( aAddress ); }
    unsigned long long GetRegisterAddress() const { return MakeReader( 0 ).Get64(); }
    ///@}
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

    /// Attach makes this a view of the aSize bytes at aBuffer. Where they are fewer than 20, or
    /// aBuffer is null, it returns INVALID_PACKET and nothing is attached.
    QmUtilsLib::Result Attach( unsigned char* aBuffer, unsigned int aSize )
    {
        QmUtilsLib::Result lResult =
            AttachCommand( aBuffer, aSize, mCommandHeader, mWriteMemCmdHeader );
        mBytes = lResult.IsOK() ? aBuffer : nullptr;
        mSize = aSize;
        return lResult;
    }

    /// Initialize fills the header fields. Flags, request identifier and address are 0, and there
    /// is no data.
    void Initialize()
    {
        mCommandHeader.Initialize( COMMAND, WriteMemCmdHeader::SIZE );
        mWriteMemCmdHeader.SetRegisterAddress( 0 );
    }

    /// The view belongs to this object and is valid while the object lives.
    ///@{
    CommandHeader* GetCommandHeader() { return &mCommandHeader; }
    WriteMemCmdHeader* GetWriteMemCmdHeader() { return &mWriteMemCmdHeader; }
    ///@}

    /// SetCurrentDataSize sets the number of bytes of data. Where they do not fit the attached
    /// memory, or the 16 bits of the length field, it returns INVALID_PACKET with a description and
    /// nothing changes.
    QmUtilsLib::Result SetCurrentDataSize( unsigned short aSize );

    /// The number of bytes of data, and the address to write them to. The number is that of the
    /// length field, or less where the memory is smaller. Without attached memory they are 0 and
    /// null.
    ///@{
    unsigned short GetCurrentDataSize() const
    {
        PacketBytes::LittleReader lReader( mBytes, mSize );
        return static_cast<unsigned short>( lReader.Skip( CommandHeader::SIZE )
                                                .GetUpTo( mCommandHeader.GetLength() )
                                                .Skip( WriteMemCmdHeader::SIZE )
                                                .GetLeft() );
    }
    unsigned char* GetData() { return mBytes == nullptr ? nullptr : mBytes + HEADERS_SIZE; }
    ///@}

    /// Bytes of a command with aDataSize bytes of data: 20 + aDataSize, modulo 2^32.
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

/// WriteMemAck is a view of a WRITEMEM acknowledge. The memory is borrowed and must outlive it. A
/// device that does not report the written length sends the header alone.
///
///     offset  size
///     12      2     reserved
///     14      2     bytes written
class WDUTILSLIB_API WriteMemAck
{
public:
    static constexpr unsigned short ACKNOWLEDGE = WriteMemCmd::COMMAND + 1; ///< its code

    WriteMemAck() = default;

    /// Attach makes this a view of the aSize received bytes at aBuffer, with the results of
    /// AckHeader::Attach.
    QmUtilsLib::Result Attach( unsigned char* aBuffer, unsigned int aSize )
    {
        return mAckHeader.Attach( aBuffer, aSize );
    }

    /// IsValid tells whether the attached bytes are a whole WRITEMEM acknowledge, of any status.
    bool IsValid() const { return mAckHeader.IsValid( ACKNOWLEDGE ); }

    /// The view belongs to this object and is valid while the object lives.
    AckHeader* GetAckHeader() { return &mAckHeader; }

    /// Bytes of the longest such acknowledge: 16.
    static unsigned int GetRequiredBufferSize()
    {
        return AckHeader::SIZE + 4; // the reserved half, and the bytes written
    }

private:
    AckHeader mAckHeader;
};

} // namespace U3V
} // namespace WdUtilsLib
