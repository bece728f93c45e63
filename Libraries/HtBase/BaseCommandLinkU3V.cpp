#include <BaseCommandLinkU3V.h>

#include "Libraries/HtBase/Link/Notify.h"
#include "Libraries/HtBase/Link/Replaced.h"
#include "Libraries/HtBase/Link/StatusText.h"
#include "Libraries/HtBase/Support/Diagnostics.h"
#include "Libraries/HtBase/Support/Results.h"

#include <CapabilitiesU3V.h>
#include <QmUtilsLib/String.h>
#include <WdUtilsLib/U3V/ReadMem.h>
#include <WdUtilsLib/U3V/WriteMem.h>

#include <algorithm>
#include <iterator>
#include <utility>

namespace HtBaseLib
{

using QmUtilsLib::Logger;
using QmUtilsLib::Result;
using WdTransportLayerLib::U3V::DCI_COMMAND;
using WdTransportLayerLib::U3V::DCIConfiguration;
using WdTransportLayerLib::U3V::DeviceControlInterface;
using WdUtilsLib::U3V::ReadMemAck;
using WdUtilsLib::U3V::ReadMemCmd;
using WdUtilsLib::U3V::U3VGUID;
using WdUtilsLib::U3V::WriteMemAck;
using WdUtilsLib::U3V::WriteMemCmd;

namespace
{

constexpr const char* UNIT = "Libraries/HtBase/BaseCommandLinkU3V";
constexpr const char* SEND_ATOMIC_COMMANDS = "HtBaseLib::BaseCommandLinkU3V::SendAtomicCommands";
constexpr const char* RESULT_FROM_STATUS = "HtBaseLib::BaseCommandLinkU3V::ResultFromStatus";
constexpr const char* UPDATE_MAX_SIZES = "HtBaseLib::BaseCommandLinkU3V::UpdateMaxSizes";

// The limits of a new link. They are enough to read the registers that report the device's own.
constexpr uint32_t INITIAL_MAX_SIZE = 64;

// KEEP: The room for the acknowledge of `ReadMemory` is at least 16 bytes, and the device may
// fill it.
constexpr unsigned int MIN_READ_ACK_SIZE = 16;
constexpr long long MIN_READ_ACK_DATA_SIZE = 4;

constexpr const char* BEYOND_THE_BUFFER = "The command does not fit the buffer of the link.";
constexpr const char* NO_ROOM_FOR_DATA = "The limit of the link leaves no room for data.";

constexpr const char* UNKNOWN_STATUS = "Unknown status received from the device.";

// Status codes of GenCP with a text of their own; every other one has UNKNOWN_STATUS.
constexpr StatusText STATUS_TEXTS[] = {
    { 0x8001, "Status GENCP_NOT_IMPLEMENTED received from the device." },
    { 0x8002, "Status GENCP_INVALID_PARAMETER received from the device." },
    { 0x8003, "Status GENCP_INVALID_ADDRESS received from the device." },
    { 0x8004, "Status GENCP_WRITE_PROTECT received from the device." },
    { 0x8005, "Status GENCP_BAD_ALIGNMENT received from the device." },
    { 0x8006, "Status GENCP_ACCESS_DENIED received from the device." },
    { 0x8007, "Status GENCP_BUSY received from the device." },
    { 0x800B, "Status GENCP_MSG_TIMEOUT received from the device." },
    { 0x800E, "Status GENCP_INVALID_HEADER received from the device." },
    { 0x800F, "Status GENCP_WRONG_CONFIG received from the device." },
    { 0x8FFF, "Status GENCP_ERROR received from the device." },
};

// A command in a buffer of its own, a place for its acknowledge, and the record of both that the
// control interface gets.
class Exchange
{
public:
    Exchange()
    {
        mRecord.mCommand = mCommand;
        mRecord.mAck = mAck;
    }

    Exchange( const Exchange& ) = delete;
    Exchange& operator=( const Exchange& ) = delete;

    DCI_COMMAND& GetRecord() { return mRecord; }

    // Builds a READMEM.
    // KEEP: The length field of a READMEM takes the low 16 bits of the size. The room for the
    // acknowledge is that of the whole size, and is what the limits are compared with.
    Result BuildRead( long long aAddress, long long aSize )
    {
        ReadMemCmd lPacket;
        Result lResult = lPacket.Attach( mCommand, sizeof( mCommand ) );
        if ( !lResult.IsOK() )
        {
            return lResult;
        }
        lPacket.Initialize();
        lPacket.GetCommandHeader()->SetRequestAck( true );
        lPacket.GetReadMemCmdHeader()->SetReadLength( static_cast<unsigned short>( aSize ) );
        lPacket.GetReadMemCmdHeader()->SetRegisterAddress(
            static_cast<unsigned long long>( aAddress ) );
        mRecord.mCommandLength = ReadMemCmd::GetRequiredBufferSize();
        mRecord.mAckLength =
            ReadMemAck::GetRequiredBufferSize( static_cast<unsigned int>( aSize ) );
        return lResult;
    }

    // Builds a WRITEMEM.
    // KEEP: A WRITEMEM takes the low 16 bits of the size. Its length, which is compared with the
    // limits, is that of the whole size.
    Result BuildWrite( const void* aData, long long aAddress, long long aSize )
    {
        WriteMemCmd lPacket;
        Result lResult = lPacket.Attach( mCommand, sizeof( mCommand ) );
        if ( !lResult.IsOK() )
        {
            return lResult;
        }
        lPacket.Initialize();
        lPacket.GetCommandHeader()->SetRequestAck( true );
        lPacket.GetWriteMemCmdHeader()->SetRegisterAddress(
            static_cast<unsigned long long>( aAddress ) );
        lResult = lPacket.SetCurrentDataSize( static_cast<unsigned short>( aSize ) );
        if ( !lResult.IsOK() )
        {
            return lResult;
        }
        std::copy_n( static_cast<const unsigned char*>( aData ), lPacket.GetCurrentDataSize(),
                     lPacket.GetData() );
        mRecord.mCommandLength =
            WriteMemCmd::GetRequiredBufferSize( static_cast<unsigned int>( aSize ) );
        mRecord.mAckLength = WriteMemAck::GetRequiredBufferSize();
        return lResult;
    }

private:
    unsigned char mCommand[BaseCommandLinkU3V::CMD_BUFFER_SIZE] = {};
    unsigned char mAck[BaseCommandLinkU3V::ACK_BUFFER_SIZE] = {};
    DCI_COMMAND mRecord;
};

// SAFE: The memory operations of a USB3 Vision link take no more of an acknowledge than the room
// that they offered for it, whatever length the control interface reports.
void KeepToRoom( DCI_COMMAND& aRecord, unsigned int aRoom )
{
    aRecord.mAckLength = std::min( aRecord.mAckLength, aRoom );
}

// Stores what the acknowledge carries.
// KEEP: An acknowledge with fewer bytes than asked is OK. `ReadCallback` gets the size asked
// for, and the rest of the caller's buffer is unchanged.
// SAFE: A read of 0 to 3 bytes over USB3 Vision stores no more than that, and one of a negative
// size stores nothing. The minimum room of 16 bytes would let an acknowledge carry 4 bytes of data.
void StoreData( const ReadMemAck& aAck, void* aData, long long aSize )
{
    long long lSize = aAck.GetCurrentDataSize();
    if ( aSize < MIN_READ_ACK_DATA_SIZE )
    {
        lSize = std::clamp<long long>( aSize, 0, lSize );
    }
    std::copy_n( aAck.GetData(), lSize, static_cast<unsigned char*>( aData ) );
}

long long Advance( long long aAddress, long long aOffset )
{
    return static_cast<long long>( static_cast<unsigned long long>( aAddress ) +
                                   static_cast<unsigned long long>( aOffset ) );
}

// Says that the device could do more than the link's buffers.
// KEEP: The two messages about buffers that are too small carry the device's length and 1024 as
// arguments that their texts do not show.
void WarnOfSmallBuffers( const Logger& aLogger, const DCIConfiguration& aConfiguration )
{
#if defined( __GNUC__ )
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-extra-args"
#endif
    if ( aConfiguration.mMaxCommandTransferLength > BaseCommandLinkU3V::CMD_BUFFER_SIZE )
    {
        HTBASE_LOG( &aLogger, Logger::ANOMALY, UNIT, UPDATE_MAX_SIZES,
                    "Internal command link buffers smaller than allowed command size.",
                    aConfiguration.mMaxCommandTransferLength, BaseCommandLinkU3V::CMD_BUFFER_SIZE );
    }
    if ( aConfiguration.mMaxAckTransferLength > BaseCommandLinkU3V::ACK_BUFFER_SIZE )
    {
        HTBASE_LOG( &aLogger, Logger::ANOMALY, UNIT, UPDATE_MAX_SIZES,
                    "Internal command link buffers smaller than allowed acknowledge size.",
                    aConfiguration.mMaxAckTransferLength, BaseCommandLinkU3V::ACK_BUFFER_SIZE );
    }
#if defined( __GNUC__ )
#pragma GCC diagnostic pop
#endif
}

// Calls aTransfer( offset, size ) for pieces of at most aChunk bytes, until one fails.
// SAFE: `Read` and `Write` over USB3 Vision transfer one empty piece when the limit leaves no room
// for data, and return its failure, or 0x4001. Otherwise they would transfer empty pieces for ever.
template <typename Transfer>
Result TransferPieces( long long aSize, long long aChunk, Transfer aTransfer )
{
    long long lOffset = 0;
    while ( lOffset < aSize )
    {
        const long long lPiece = std::min( aChunk, aSize - lOffset );
        Result lResult = Guarded( [&] { return aTransfer( lOffset, lPiece ); } );
        if ( !lResult.IsOK() )
        {
            return lResult;
        }
        if ( lPiece == 0 )
        {
            return MakeResult( INVALID_ARGUMENT, 0, NO_ROOM_FOR_DATA );
        }
        lOffset += lPiece;
    }
    return Result::OK;
}

} // namespace

BaseCommandLinkU3V::BaseCommandLinkU3V()
    : mDCI( std::make_shared<DeviceControlInterface>() )
    , mDevicePath( std::make_shared<std::string>() )
    , mMaxCommandSize( INITIAL_MAX_SIZE )
    , mMaxAckSize( INITIAL_MAX_SIZE )
{
}

// KEEP: A copy shares the control interface and the text of the device path with its source. The
// identity and the limits are each link's own. Opening one of them connects both.
BaseCommandLinkU3V::BaseCommandLinkU3V( const BaseCommandLinkU3V& aOther )
    : BaseCommandLink( aOther )
    , mDCI( aOther.mDCI )
    , mGUID( aOther.mGUID )
    , mDevicePath( aOther.mDevicePath )
    , mMaxCommandSize( aOther.mMaxCommandSize )
    , mMaxAckSize( aOther.mMaxAckSize )
{
}

// KEEP: Assigning to a link closes nothing. The device that the link had stays open until the
// link is destroyed.
BaseCommandLinkU3V& BaseCommandLinkU3V::operator=( const BaseCommandLinkU3V& aOther )
{
    KeepReplaced( mDCI );
    KeepReplaced( mDevicePath );
    BaseCommandLink::operator=( aOther ); // from here on no memory is needed
    mDCI = aOther.mDCI;
    mGUID = aOther.mGUID;
    mDevicePath = aOther.mDevicePath;
    mMaxCommandSize = aOther.mMaxCommandSize;
    mMaxAckSize = aOther.mMaxAckSize;
    return *this;
}

// KEEP: The destructor closes the device for the link's copies too.
BaseCommandLinkU3V::~BaseCommandLinkU3V()
{
    (void)BaseCommandLinkU3V::Close(); // a destructor cannot return it
    mDCI.reset();
    mDevicePath.reset();
}

Result BaseCommandLinkU3V::Open( const U3VGUID& aGUID, const std::string& aDevicePath )
{
    return Guarded(
        [&]() -> Result
        {
            std::string lDevicePath = aDevicePath; // while nothing has been opened yet
            QmUtilsLib::String lPath( lDevicePath.c_str() );
            const bool lIsMaster = IsMaster();
            Result lResult = mDCI->Open( lPath, aGUID, lIsMaster );
            if ( !lResult.IsOK() )
            {
                return lResult;
            }
            mGUID = aGUID;
            mDevicePath->swap( lDevicePath );
            return Result::OK;
        } );
}

// KEEP: `Close` keeps the device path. So `IsConnected` stays true. The identity becomes empty, and
// the limits become 0: `SendCommand` then lets every size through to the control interface. A later
// `Open` leaves the limits at 0 until `UpdateMaxSizes`.
Result BaseCommandLinkU3V::Close()
{
    mGUID.Clear();
    mMaxCommandSize = 0;
    mMaxAckSize = 0;
    return Guarded( [this] { return mDCI->Close(); } );
}

bool BaseCommandLinkU3V::IsConnected() const
{
    return !mDevicePath->empty();
}

Result BaseCommandLinkU3V::ReadMemory( void* aData, long long aAddress, long long aSize )
{
    if ( !IsConnected() )
    {
        return Result::NOT_CONNECTED;
    }
    Exchange lExchange;
    Result lResult = lExchange.BuildRead( aAddress, aSize );
    if ( !lResult.IsOK() )
    {
        return lResult;
    }
    DCI_COMMAND& lRecord = lExchange.GetRecord();
    lRecord.mAckLength = std::max( lRecord.mAckLength, MIN_READ_ACK_SIZE );

    ReadMemAck lAck;
    lResult = Transact( lRecord, lAck );
    if ( !lResult.IsOK() )
    {
        return lResult;
    }
    StoreData( lAck, aData, aSize );
    return Notify( std::move( lResult ), [&] { ReadCallback( aData, aAddress, aSize ); } );
}

// KEEP: `noAck` is ignored. The device is always asked for an acknowledge, and the count of
// bytes in it is not compared with the size.
Result BaseCommandLinkU3V::WriteMemory( const void* aData, long long aAddress, long long aSize,
                                        bool /*aNoAck*/ )
{
    if ( !IsConnected() )
    {
        return Result::NOT_CONNECTED;
    }
    Exchange lExchange;
    Result lResult = lExchange.BuildWrite( aData, aAddress, aSize );
    if ( !lResult.IsOK() )
    {
        return lResult;
    }
    WriteMemAck lAck;
    return Notify( Transact( lExchange.GetRecord(), lAck ),
                   [&] { WriteCallback( aData, aAddress, aSize ); } );
}

// KEEP: `Read` leaves room for the header of a READMEM command, not for the smaller header of
// its acknowledge. A limit of 64 makes pieces of 40 bytes, not of 52. A limit below 24, including
// 0, wraps around and makes one piece. In `Write` a limit from 1 to 19 wraps around; a limit of 0
// makes one piece by a rule of its own. A size of 0 or less is OK and sends nothing, also on a link
// that was never opened.
Result BaseCommandLinkU3V::Read( void* aData, long long aAddress, long long aSize )
{
    const uint32_t lChunk = mMaxAckSize - ReadMemCmd::GetRequiredBufferSize();
    return TransferPieces( aSize, lChunk,
                           [this, aData, aAddress]( long long aOffset, long long aPiece )
                           {
                               return ReadMemory( static_cast<unsigned char*>( aData ) + aOffset,
                                                  Advance( aAddress, aOffset ), aPiece );
                           } );
}

Result BaseCommandLinkU3V::Write( const void* aData, long long aAddress, long long aSize,
                                  bool aNoAck )
{
    long long lChunk = aSize;
    if ( mMaxCommandSize != 0 )
    {
        const uint32_t lWrapping = mMaxCommandSize - WriteMemCmd::GetRequiredBufferSize( 0 );
        lChunk = lWrapping;
    }
    return TransferPieces( aSize, lChunk,
                           [this, aData, aAddress, aNoAck]( long long aOffset, long long aPiece )
                           {
                               return WriteMemory( static_cast<const unsigned char*>( aData ) +
                                                       aOffset,
                                                   Advance( aAddress, aOffset ), aPiece, aNoAck );
                           } );
}

Result BaseCommandLinkU3V::AtomicWriteAndRead( const void* aWriteData, long long aWriteAddress,
                                               long long aWriteSize, void* aReadData,
                                               long long aReadAddress, long long aReadSize )
{
    if ( !IsConnected() )
    {
        return Result::NOT_CONNECTED;
    }
    Exchange lWrite;
    Result lResult = lWrite.BuildWrite( aWriteData, aWriteAddress, aWriteSize );
    if ( !lResult.IsOK() )
    {
        return lResult;
    }
    // KEEP: `AtomicWriteAndRead` has no minimum room for its acknowledge and calls no callback.
    Exchange lRead;
    lResult = lRead.BuildRead( aReadAddress, aReadSize );
    if ( !lResult.IsOK() )
    {
        return lResult;
    }
    DCI_COMMAND lRecords[] = { lWrite.GetRecord(), lRead.GetRecord() };
    lResult = FitBuffers( lRecords, 2 );
    if ( !lResult.IsOK() )
    {
        return lResult;
    }
    const unsigned int lRooms[] = { lRecords[0].mAckLength, lRecords[1].mAckLength };
    lResult = SendAtomicCommands( lRecords, 2 );
    if ( !lResult.IsOK() )
    {
        return lResult;
    }
    KeepToRoom( lRecords[0], lRooms[0] );
    KeepToRoom( lRecords[1], lRooms[1] );
    return ExamineBoth( lRecords, aReadData, aReadSize );
}

Result BaseCommandLinkU3V::SendCommand( unsigned char* aCommand, unsigned int aCommandLength,
                                        unsigned char* aAck, unsigned int aAckCapacity,
                                        unsigned int& aAckLength )
{
    DCI_COMMAND lRecord;
    lRecord.mCommand = aCommand;
    lRecord.mCommandLength = aCommandLength;
    lRecord.mAck = aAck;
    lRecord.mAckLength = aAckCapacity;
    Result lResult = SendAtomicCommands( &lRecord, 1 );
    aAckLength = lRecord.mAckLength;
    return lResult;
}

// KEEP: `SendCommand` and `SendAtomicCommands` do not ask whether the link is open. A closed
// control interface returns the error.
Result BaseCommandLinkU3V::SendAtomicCommands( DCI_COMMAND* aCommands, unsigned int aCount )
{
    for ( unsigned int lIndex = 0; lIndex < aCount; ++lIndex )
    {
        const DCI_COMMAND& lCommand = aCommands[lIndex];
        if ( mMaxCommandSize != 0 && lCommand.mCommandLength > mMaxCommandSize )
        {
            return RefuseSize( lCommand.mCommandLength, mMaxCommandSize );
        }
        // KEEP: An acknowledge that is too large is refused as a "Command of %d bytes", in the
        // words for a command.
        if ( mMaxAckSize != 0 && lCommand.mAckLength > mMaxAckSize )
        {
            return RefuseSize( lCommand.mAckLength, mMaxAckSize );
        }
    }
    return Guarded( [&] { return mDCI->SendCommands( aCommands, aCount ); } );
}

// KEEP: A status from the device is logged at 40000 and is the OS code, unlike the status of a
// GigE Vision device.
Result BaseCommandLinkU3V::ResultFromStatus( unsigned short aStatus )
{
    const char* const lText = FindStatusText( STATUS_TEXTS, aStatus, UNKNOWN_STATUS );
    HTBASE_LOG( GetLibLogger(), Logger::FAILURE, UNIT, RESULT_FROM_STATUS, "%s", lText );
    return MakeResult( Result::GENERIC_ERROR, aStatus, lText );
}

// KEEP: `UpdateMaxSizes` cuts the link's limits to 1024, but passes the device's own lengths to the
// control interface. The library never calls it. After a `Close` it takes the lengths from the
// record of the empty identity.
void BaseCommandLinkU3V::UpdateMaxSizes()
{
    CapabilitiesU3V* const lCapabilities = CapabilitiesU3V::GetCapabilities( mGUID, nullptr );
    if ( lCapabilities == nullptr )
    {
        return;
    }
    if ( !lCapabilities->IsInitialized() && !lCapabilities->Init( this ).IsOK() )
    {
        return;
    }
    DCIConfiguration lConfiguration;
    lConfiguration.mMaxDeviceResponseTime = lCapabilities->GetMaxDeviceResponseTime();
    lConfiguration.mMaxCommandTransferLength = lCapabilities->GetMaxCommandTransferLength();
    lConfiguration.mMaxAckTransferLength = lCapabilities->GetMaxAckTransferLength();
    WarnOfSmallBuffers( *GetLibLogger(), lConfiguration );
    mMaxCommandSize = std::min( lConfiguration.mMaxCommandTransferLength, CMD_BUFFER_SIZE );
    mMaxAckSize = std::min( lConfiguration.mMaxAckTransferLength, ACK_BUFFER_SIZE );
    QMUTILSLIB_ASSERT( CMD_BUFFER_SIZE >= mMaxCommandSize );
    QMUTILSLIB_ASSERT( ACK_BUFFER_SIZE >= mMaxAckSize );
    // An interface that does not take the lengths keeps its own.
    (void)Guarded( [&] { return mDCI->SetDCIConfiguration( lConfiguration ); } );
}

void BaseCommandLinkU3V::KeepReplaced( std::shared_ptr<const void> aObject )
{
    Keep( mReplaced, std::move( aObject ) );
}

Result BaseCommandLinkU3V::RefuseSize( unsigned int aSize, unsigned int aLimit )
{
    return GetLibLogger()->LogResult( INVALID_ARGUMENT, UNIT, __LINE__, SEND_ATOMIC_COMMANDS,
                                      "Command of %d bytes is larger than maximum command size, %d",
                                      ToLogged( aSize ), ToLogged( aLimit ) );
}

// SAFE: A memory operation of a USB3 Vision link whose limits are 0 offers no more than its
// acknowledge buffer of 1024 bytes and refuses a longer command with 0x4001. A limit other than 0
// is compared with the true lengths.
Result BaseCommandLinkU3V::FitBuffers( DCI_COMMAND* aRecords, unsigned int aCount ) const
{
    for ( unsigned int lIndex = 0; lIndex < aCount; ++lIndex )
    {
        DCI_COMMAND& lRecord = aRecords[lIndex];
        if ( mMaxCommandSize == 0 && lRecord.mCommandLength > CMD_BUFFER_SIZE )
        {
            return MakeResult( INVALID_ARGUMENT, 0, BEYOND_THE_BUFFER );
        }
        if ( mMaxAckSize == 0 )
        {
            lRecord.mAckLength = std::min( lRecord.mAckLength, ACK_BUFFER_SIZE );
        }
    }
    return Result::OK;
}

// Sends one command and examines what comes back. OK: aAck shows a success.
template <typename Ack>
Result BaseCommandLinkU3V::Transact( DCI_COMMAND& aRecord, Ack& aAck )
{
    Result lResult = FitBuffers( &aRecord, 1 );
    if ( !lResult.IsOK() )
    {
        return lResult;
    }
    const unsigned int lRoom = aRecord.mAckLength;
    lResult = SendAtomicCommands( &aRecord, 1 );
    if ( !lResult.IsOK() )
    {
        return lResult;
    }
    KeepToRoom( aRecord, lRoom );
    return Examine( aRecord, aAck );
}

// The write's acknowledge first, then the read's, whose data is stored only when both are good.
Result BaseCommandLinkU3V::ExamineBoth( const DCI_COMMAND* aRecords, void* aReadData,
                                        long long aReadSize )
{
    WriteMemAck lWriteAck;
    Result lResult = Examine( aRecords[0], lWriteAck );
    if ( !lResult.IsOK() )
    {
        return lResult;
    }
    ReadMemAck lReadAck;
    lResult = Examine( aRecords[1], lReadAck );
    if ( !lResult.IsOK() )
    {
        return lResult;
    }
    StoreData( lReadAck, aReadData, aReadSize );
    return Result::OK;
}

template <typename Ack>
Result BaseCommandLinkU3V::Examine( const DCI_COMMAND& aRecord, Ack& aAck )
{
    Result lResult = aAck.Attach( aRecord.mAck, aRecord.mAckLength );
    if ( !lResult.IsOK() )
    {
        return lResult;
    }
    if ( !aAck.IsValid() )
    {
        return INVALID_ARGUMENT;
    }
    const unsigned short lStatus = aAck.GetAckHeader()->GetStatus();
    return lStatus == 0 ? Result( Result::OK ) : ResultFromStatus( lStatus );
}

} // namespace HtBaseLib
