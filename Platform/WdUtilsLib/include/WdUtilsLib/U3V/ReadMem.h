/// @file
/// WdUtilsLib: GenCP READMEM.
#pragma once

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

/// ReadMemCmdHeader is a view of the fields of READMEM behind the header.
///
///     offset  size
///     12      8     address
///     20      2     reserved
///     22      2     number of bytes to read
class ReadMemCmdHeader : public FieldsView<ReadMemCmdHeader>
{
public:
    static constexpr std::size_t SIZE = 12; ///< bytes of the fields

    ReadMemCmdHeader() = default;

    /// A view of the SIZE bytes at aBytes, behind the command header. With null it is not attached.
    explicit ReadMemCmdHeader( unsigned char* aBytes )
        : FieldsView( aBytes )
    {
    }

    /// The fields.
    ///@{
    void SetRegisterAddress( unsigned long long aAddress )
    {
        MakeWriter( ADDRESS_OFFSET ).Put64( aAddress );
    }
    void SetReadLength( unsigned short aLength )
    {
        MakeWriter( READ_LENGTH_OFFSET ).Put16( aLength );
    }
    unsigned long long GetRegisterAddress() const { return MakeReader( ADDRESS_OFFSET ).Get64(); }
    unsigned short GetReadLength() const { return MakeReader( READ_LENGTH_OFFSET ).Get16(); }
    ///@}

private:
    friend class ReadMemCmd;

    // From the start of the command-specific data.
    static constexpr std::size_t ADDRESS_OFFSET = 0;
    static constexpr std::size_t READ_LENGTH_OFFSET = 10;
};

/// ReadMemCmd is a view of a whole READMEM command. The memory is borrowed and must outlive it.
class WDUTILSLIB_API ReadMemCmd
{
public:
    static constexpr unsigned short COMMAND = 0x0800; ///< the command code

    ReadMemCmd() = default;

    /// Attach makes this a view of the aSize bytes at aBuffer. Where they are fewer than
    /// GetRequiredBufferSize(), or aBuffer is null, it returns INVALID_PACKET and nothing is
    /// attached.
    QmUtilsLib::Result Attach( unsigned char* aBuffer, unsigned int aSize )
    {
        return AttachCommand( aBuffer, aSize, mCommandHeader, mReadMemCmdHeader );
    }

    /// Initialize fills the whole command. Flags, request identifier, address and number of bytes
    /// are 0.
    void Initialize()
    {
        mCommandHeader.Initialize( COMMAND, ReadMemCmdHeader::SIZE );
        mReadMemCmdHeader.MakeWriter( 0 ).PutZeros( ReadMemCmdHeader::SIZE );
    }

    /// The view belongs to this object and is valid while the object lives.
    ///@{
    CommandHeader* GetCommandHeader() { return &mCommandHeader; }
    ReadMemCmdHeader* GetReadMemCmdHeader() { return &mReadMemCmdHeader; }
    ///@}

    /// Bytes of the whole command: 24.
    static unsigned int GetRequiredBufferSize()
    {
        return CommandHeader::SIZE + ReadMemCmdHeader::SIZE;
    }

private:
    CommandHeader mCommandHeader;
    ReadMemCmdHeader mReadMemCmdHeader;
};

/// ReadMemAck is a view of a READMEM acknowledge. The memory is borrowed and must outlive it.
///
///     offset  size
///     12      n     data
class WDUTILSLIB_API ReadMemAck
{
public:
    static constexpr unsigned short ACKNOWLEDGE = ReadMemCmd::COMMAND + 1; ///< its code

    ReadMemAck() = default;

    /// Attach makes this a view of the aSize received bytes at aBuffer, with the results of
    /// AckHeader::Attach.
    QmUtilsLib::Result Attach( unsigned char* aBuffer, unsigned int aSize )
    {
        return mAckHeader.Attach( aBuffer, aSize );
    }

    /// IsValid tells whether the attached bytes are a whole READMEM acknowledge, of any status.
    bool IsValid() const { return mAckHeader.IsValid( ACKNOWLEDGE ); }

    /// The view belongs to this object and is valid while the object lives.
    AckHeader* GetAckHeader() { return &mAckHeader; }

    /// The number of bytes of data, and their address. The number is the length field, or less
    /// where fewer bytes are attached. Without an attached acknowledge they are 0 and null.
    ///@{
    unsigned int GetCurrentDataSize() const { return mAckHeader.GetCurrentDataSize(); }
    const unsigned char* GetData() const { return mAckHeader.GetData(); }
    ///@}

    /// Bytes of an acknowledge with aDataSize bytes of data: 12 + aDataSize, modulo 2^32.
    static unsigned int GetRequiredBufferSize( unsigned int aDataSize )
    {
        return static_cast<unsigned int>( AckHeader::SIZE ) + aDataSize;
    }

private:
    AckHeader mAckHeader;
};

} // namespace U3V
} // namespace WdUtilsLib
