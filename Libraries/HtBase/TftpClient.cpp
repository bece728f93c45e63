#include "Libraries/HtBase/TftpClient.h"

#include "Libraries/HtBase/Support/Results.h"
#include "Libraries/HtBase/TftpAck.h"
#include "Libraries/HtBase/TftpRrq.h"
#include "Libraries/HtBase/TftpWrq.h"

#include <QmUtilsLib/Mutex.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <new>
#include <system_error>
#include <utility>

namespace HtBaseLib
{

using QmUtilsLib::LockScope;
using QmUtilsLib::Result;
using WdUtilsLib::Network::IpAddress;

namespace
{

constexpr unsigned short SERVER_PORT = 69;
constexpr unsigned int BUFFER_SIZE = 1024;
constexpr unsigned int RECEIVE_TIMEOUT = 1000; // milliseconds
constexpr uint32_t RETRY_LIMIT = 20;
constexpr uint32_t QUIET_RETRIES = 3; // failures to get an acknowledge that warn of nothing

constexpr unsigned int FILE_NOT_FOUND = 0x0010;
constexpr unsigned int TRANSFER_FAILED = 0x0013;
constexpr unsigned int NO_WARNING = 0x0015;

constexpr const char* SEND_GIVEN_UP =
    "Reached the maximum number of retries. Please ensure that the firewall is disabled. The "
    "device must be power cycled before trying again.";
// KEEP: The text of a read that gives up names a send operation.
constexpr const char* RECEIVE_GIVEN_UP =
    "Reached the maximum number of retries. Aborting send operation.";
constexpr const char* BLOCKS_GIVEN_UP =
    "Maximum number of retries reached attempting to receive a data block";

// SAFE: A FIFO counts as a file that cannot be opened, for sending and for fetching. Opening it
// would wait for its other end, and `Abort` could not end that wait. A pipe without a name, as
// behind `/dev/stdout`, is opened.
bool IsFifo( const char* aPath )
{
    std::error_code lError;
    return std::filesystem::is_fifo( std::filesystem::canonical( aPath, lError ), lError );
}

} // namespace

// What is raised to end a transfer; it never leaves this unit.
struct TftpClient::Failure
{
    Result mResult;
};

// A transfer's hold on the client.
// SAFE: However a transfer ends, also by an exception of the caller's own code, the stream is
// released, the socket is closed, the client is free and the result is not pending. It is 0x4000
// where such an exception passes. Of two transfers that begin at once one is refused.
class TftpClient::Hold
{
public:
    explicit Hold( TftpClient* aClient )
        : mClient( aClient->mIsRunning.exchange( true ) ? nullptr : aClient )
    {
    }
    ~Hold()
    {
        if ( mClient != nullptr )
        {
            mClient->End();
            mClient->mIsRunning.store( false );
        }
    }

    Hold( const Hold& ) = delete;
    Hold& operator=( const Hold& ) = delete;

    bool IsGranted() const { return mClient != nullptr; }

private:
    TftpClient* const mClient;
};

// Stores, when its scope ends, the number of bytes written to a stream.
class TftpClient::CountStored
{
public:
    CountStored( const std::unique_ptr<IoStream>& aStream, unsigned int& aCount )
        : mStream( aStream )
        , mCount( aCount )
    {
    }
    ~CountStored() { mCount = mStream != nullptr ? mStream->GetBytesWritten() : 0; }

    CountStored( const CountStored& ) = delete;
    CountStored& operator=( const CountStored& ) = delete;

private:
    const std::unique_ptr<IoStream>& mStream;
    unsigned int& mCount;
};

TftpClient::TftpClient()
    : mPacket( std::make_unique<unsigned char[]>( BUFFER_SIZE ) )
    , mStaging( std::make_unique<unsigned char[]>( BUFFER_SIZE ) )
{
}

TftpClient::~TftpClient() = default;

Result TftpClient::Init( const IpAddress& aAddress, const char* aRemoteFileName )
{
    try
    {
        mRemoteFileName = std::string( aRemoteFileName );
    }
    catch ( const std::bad_alloc& )
    {
        return Result( Result::GENERIC_ERROR, ENOMEM );
    }
    mDeviceAddress = aAddress;
    return Result::OK;
}

Result TftpClient::SendFile( const char* aPath )
{
    return Run(
        [this, aPath]() -> Result
        {
            auto& lFile = Start<IoStreamFile>();
            std::error_code lError;
            if ( !std::filesystem::exists( aPath, lError ) )
            {
                // KEEP: After a missing file the socket stays open until the next transfer.
                mStream.reset();
                return FILE_NOT_FOUND;
            }
            const auto lSize = std::filesystem::file_size( aPath, lError );
            mTotalSize.store( lError ? 0 : static_cast<uint32_t>( lSize ) ); // the low 32 bits
            OpenFile( lFile, aPath, "rb" );
            return SendLoop();
        } );
}

Result TftpClient::SendData( const unsigned char* aData, unsigned int aSize )
{
    return Run(
        [this, aData, aSize]
        {
            Start<IoStreamRaw>( IoStreamRaw::READ_ONLY, aData, aSize );
            mTotalSize.store( aSize );
            return SendLoop();
        } );
}

Result TftpClient::GetFile( const char* aPath )
{
    return Run(
        [this, aPath]
        {
            OpenFile( Start<IoStreamFile>(), aPath, "wb" );
            return ReceiveLoop();
        } );
}

Result TftpClient::GetData( unsigned char* aBuffer, unsigned int& aSize )
{
    return Run(
        [this, aBuffer, &aSize]
        {
            // KEEP: `TftpClient::GetData` reports what was stored also after a failure.
            const CountStored lCount( mStream, aSize );
            Start<IoStreamRaw>( aBuffer, aSize );
            return ReceiveLoop();
        } );
}

Result TftpClient::Abort()
{
    // Also OK after a transfer whose result stays PENDING: see Run.
    if ( mResultCode.load() != Result::PENDING )
    {
        return Result::BUSY;
    }
    mIsAborted.store( true );
    return Result::OK;
}

Result TftpClient::GetWarning( std::string& aText )
{
    LockScope lLock( mMutex );
    if ( mWarnings.empty() )
    {
        return NO_WARNING;
    }
    aText = std::move( mWarnings.front() );
    mWarnings.pop_front();
    return Result::OK;
}

Result TftpClient::GetTransferResult() const
{
    LockScope lLock( mResultMutex );
    return mResult;
}

Result TftpClient::GetProgress( long long& aDone, long long& aTotal ) const
{
    if ( mResultCode.load() == Result::NOT_INITIALIZED )
    {
        return Result::NOT_INITIALIZED;
    }
    aDone = mBytesDone.load();
    aTotal = mTotalSize.load();
    return Result::OK;
}

// KEEP: A read does not change the total of the last send.
template <typename Stream, typename... Arguments>
Stream& TftpClient::Start( Arguments... aArguments )
{
    mBytesDone.store( 0 );
    mIsLastBlock = false;
    mBlockID = 1;
    mDevicePort = 0;
    mBlockLength = 0;
    mRetries = 0;
    mData = TftpData();
    mIsAborted.store( false );
    SetTransferResult( Result::PENDING );
    {
        LockScope lLock( mMutex );
        mWarnings.clear();
    }
    auto lStream = std::make_unique<Stream>( aArguments... );
    Stream& lStarted = *lStream;
    mStream = std::move( lStream );
    (void)mSocket.Open( nullptr, 0, false ); // without a socket every wait fails, and so the whole
    return lStarted;
}

void TftpClient::End()
{
    if ( mStream == nullptr )
    {
        return;
    }
    mStream.reset();
    (void)mSocket.Close(); // the transfer has ended, whatever the result
}

// An empty path means the device's name for the file.
// KEEP: A local file that cannot be opened does not stop a transfer: a send sends zeros, a read
// stores nothing.
void TftpClient::OpenFile( IoStreamFile& aFile, const char* aPath, const char* aMode ) const
{
    const char* const lPath = *aPath != '\0' ? aPath : mRemoteFileName.c_str();
    if ( !IsFifo( lPath ) )
    {
        (void)aFile.Open( lPath, aMode );
    }
}

// Runs a transfer to its end, whatever that is, and publishes its result.
// KEEP: An aborted transfer, and one whose file is missing, stay PENDING in `GetTransferResult`. So
// `Abort` is OK after them, although nothing runs. The next transfer is not refused.
template <typename Transfer>
Result TftpClient::Run( const Transfer& aTransfer )
{
    const Hold lHold( this );
    if ( !lHold.IsGranted() )
    {
        return Result::BUSY;
    }
    Result lResult;
    try
    {
        lResult = aTransfer();
        if ( !lResult.IsOK() )
        {
            return lResult;
        }
    }
    catch ( const Failure& aFailure )
    {
        lResult = aFailure.mResult;
    }
    catch ( const std::bad_alloc& )
    {
        lResult = Result( Result::GENERIC_ERROR, ENOMEM );
    }
    catch ( ... )
    {
        SetTransferResult( Result::GENERIC_ERROR );
        throw;
    }
    SetTransferResult( lResult );
    return lResult;
}

Result TftpClient::SendLoop()
{
    OfferFile();
    return SendBlocks();
}

// Until the device has taken the offer or the transfer is aborted.
void TftpClient::OfferFile()
{
    bool lIsTaken = false;
    while ( !lIsTaken && !mIsAborted.load() )
    {
        SendRequest<TftpWrq>();
        // KEEP: Any acknowledge accepts a write request, whatever its block number.
        lIsTaken = WaitForAck( false );
    }
}

Result TftpClient::SendBlocks()
{
    while ( !mIsAborted.load() )
    {
        SendBlock();
        if ( !WaitForAck( true ) )
        {
            // KEEP: A wrong acknowledge, a duplicate too, sends the block again at once.
            continue;
        }
        if ( mIsLastBlock )
        {
            // KEEP: The last block is not added to the bytes done: 700 bytes end at 512 of 700.
            return Result::OK;
        }
        mBytesDone.fetch_add( mBlockLength );
        ++mBlockID; // wraps after 65535
        mRetries = 0;
    }
    return Result::ABORTED;
}

void TftpClient::SendBlock()
{
    if ( mData.GetBlockID() != mBlockID )
    {
        ReadBlock();
    }
    unsigned int lLength = 0;
    if ( mData.Encode( mPacket.get(), BUFFER_SIZE, lLength ) )
    {
        Send( lLength, mDevicePort );
    }
}

// SAFE: The bytes of a block that could not be read from the local file are zero. Otherwise the
// block would contain bytes of an earlier transfer, perhaps with another device.
void TftpClient::ReadBlock()
{
    mBlockLength = std::min( Tftp::BLOCK_SIZE, mTotalSize.load() - mBytesDone.load() );
    if ( mBlockLength != 0 )
    {
        // KEEP: Each block has the length that the file had at the start, whatever could be
        // read. Only a regular file has a length: a directory, like a device file, is sent as an
        // empty file.
        const unsigned int lRead = mStream->Read( mStaging.get(), 1, mBlockLength );
        std::fill( mStaging.get() + lRead, mStaging.get() + mBlockLength, '\0' );
    }
    mData.SetData( mStaging.get(), mBlockLength );
    if ( mBlockLength < Tftp::BLOCK_SIZE )
    {
        mIsLastBlock = true;
    }
    mData.SetBlockID( mBlockID );
}

// True: the acknowledge has arrived. False: one more failure, within the limit.
bool TftpClient::WaitForAck( bool aCheckBlock )
{
    unsigned int lCount = 0;
    if ( Receive( lCount ) )
    {
        TftpAck lAck;
        const bool lIsAck = lAck.Decode( mPacket.get(), lCount );
        if ( lIsAck && ( !aCheckBlock || lAck.GetBlockID() == mBlockID ) )
        {
            mRetries = 0;
            return true;
        }
        if ( !lIsAck )
        {
            RaiseError( lCount );
        }
    }
    CountMissingAck();
    return false;
}

// KEEP: A send warns before it counts a failure, and is quiet for the first three: 21 failures
// in a row make 18 warnings.
void TftpClient::CountMissingAck()
{
    if ( mRetries >= QUIET_RETRIES )
    {
        QueueWarning( "Invalid or missing ACK, retrying" + std::string( mRetries + 1, '.' ) );
    }
    ++mRetries;
    if ( mRetries > RETRY_LIMIT )
    {
        Raise( SEND_GIVEN_UP );
    }
}

// KEEP: A read ends with the first datagram that arrives, and with success, unless that is an
// error: at most one block is ever fetched.
Result TftpClient::ReceiveLoop()
{
    while ( !mIsAborted.load() )
    {
        SendRequest<TftpRrq>();
        if ( mIsAborted.load() )
        {
            break;
        }
        unsigned int lCount = 0;
        if ( Receive( lCount ) )
        {
            HandleDatagram( lCount );
            return Result::OK;
        }
        CountMissingData();
    }
    return Result::ABORTED;
}

void TftpClient::HandleDatagram( unsigned int aCount )
{
    TftpData lData;
    if ( !lData.Decode( mPacket.get(), aCount ) )
    {
        RaiseError( aCount );
        // KEEP: Garbage in a read stores nothing and is OK. It leaves a warning.
        QueueWarning( "Unexpected packet" );
        return;
    }
    if ( lData.GetBlockID() != mBlockID )
    {
        RefuseBlock();
        return;
    }
    // KEEP: A full block in a read, behind which more would follow, is OK too.
    unsigned int lLength = 0;
    lData.GetData( mStaging.get(), BUFFER_SIZE, lLength );
    if ( lLength != 0 )
    {
        (void)mStream->Write( mStaging.get(), 1, lLength ); // a buffer takes what it has room for
    }
    SendAck();
}

// KEEP: A wrong block number in a read stores nothing and is OK, unless it is the 21st failure. It
// leaves a warning.
void TftpClient::RefuseBlock()
{
    ++mRetries;
    QueueWarning( "Unexpected block ID. Resending ACK" );
    SendAck();
    if ( mRetries > RETRY_LIMIT )
    {
        Raise( BLOCKS_GIVEN_UP );
    }
}

// KEEP: A read counts a failure before it warns: 21 time-outs in a row make 20 warnings.
void TftpClient::CountMissingData()
{
    ++mRetries;
    if ( mRetries > RETRY_LIMIT )
    {
        Raise( RECEIVE_GIVEN_UP );
    }
    QueueWarning( "Failed to receive first block. Resending read command" );
}

// A name that is too long for the packet is not sent; the wait that follows fails as for a silent
// device.
template <typename Request>
void TftpClient::SendRequest()
{
    Request lRequest;
    lRequest.SetFileName( mRemoteFileName.c_str() );
    unsigned int lLength = 0;
    if ( lRequest.Encode( mPacket.get(), BUFFER_SIZE, lLength ) )
    {
        Send( lLength, SERVER_PORT );
    }
}

// KEEP: An acknowledge in a read names the block that is expected, not the one that has arrived.
void TftpClient::SendAck()
{
    TftpAck lAck;
    lAck.SetBlockID( mBlockID );
    unsigned int lLength = 0;
    if ( lAck.Encode( mPacket.get(), BUFFER_SIZE, lLength ) )
    {
        Send( lLength, mDevicePort );
    }
}

// A datagram that the system refuses to send counts as lost.
void TftpClient::Send( unsigned int aCount, unsigned short aPort )
{
    (void)mSocket.SendTo( mPacket.get(), static_cast<int>( aCount ), mDeviceAddress, aPort );
}

// True: a datagram of aCount bytes is in the packet buffer.
// KEEP: What is sent next goes to the port of the last datagram, also of an unusable one and of one
// from another address. The address stays the device's. A time-out leaves the port.
bool TftpClient::Receive( unsigned int& aCount )
{
    int lReceived = 0;
    IpAddress lSender;
    (void)mSocket.SetTimeoutRx( RECEIVE_TIMEOUT ); // a closed socket fails in the receive
    const Result lResult =
        mSocket.ReceiveFrom( mPacket.get(), BUFFER_SIZE, lReceived, lSender, mDevicePort );
    if ( !lResult.IsOK() )
    {
        return false;
    }
    aCount = static_cast<unsigned int>( lReceived ); // 0 to BUFFER_SIZE
    return true;
}

// Raises the device's message if the datagram received is an error.
void TftpClient::RaiseError( unsigned int aCount ) const
{
    TftpError lError;
    if ( lError.Decode( mPacket.get(), aCount ) )
    {
        Raise( lError.GetMessage() );
    }
}

void TftpClient::Raise( const char* aText )
{
    throw Failure{ MakeResult( TRANSFER_FAILED, 0, aText ) };
}

void TftpClient::QueueWarning( std::string aText )
{
    LockScope lLock( mMutex );
    mWarnings.push_back( std::move( aText ) );
}

// The code is stored first: a thread that has read a new result finds its code in Abort and
// GetProgress. The old result is destroyed after the lock is released.
// SAFE: The result of a transfer has a lock of its own, held only while the result is copied or
// swapped. Without it a thread that asks for the result could read a text that is being freed.
void TftpClient::SetTransferResult( Result aResult )
{
    mResultCode.store( aResult.GetCode() );
    LockScope lLock( mResultMutex );
    std::swap( mResult, aResult );
}

} // namespace HtBaseLib
