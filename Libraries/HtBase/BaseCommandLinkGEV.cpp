#include <BaseCommandLinkGEV.h>

#include "Libraries/HtBase/Link/LinkAssignment.h"
#include "Libraries/HtBase/Link/Notify.h"
#include "Libraries/HtBase/Link/Replaced.h"
#include "Libraries/HtBase/Link/StatusText.h"
#include "Libraries/HtBase/Support/Diagnostics.h"
#include "Libraries/HtBase/Support/Results.h"

#include <PacketBytes/ByteReader.h>
#include <PacketBytes/ByteWriter.h>
#include <QmUtilsLib/Thread.h>
#include <WdUtilsLib/GEV/AcknowledgeHeader.h>
#include <WdUtilsLib/GEV/ReadMemory.h>
#include <WdUtilsLib/GEV/ReadRegister.h>
#include <WdUtilsLib/GEV/WriteMemory.h>
#include <WdUtilsLib/GEV/WriteRegister.h>

#include <algorithm>
#include <climits>
#include <cstddef>
#include <functional>
#include <iterator>
#include <utility>

namespace HtBaseLib
{

using QmUtilsLib::LockScope;
using QmUtilsLib::Logger;
using QmUtilsLib::Mutex;
using QmUtilsLib::Result;
using QmUtilsLib::Thread;
using WdUtilsLib::Network::SocketUDP;
namespace GEV = WdUtilsLib::GEV;

namespace
{

constexpr const char* UNIT = "Libraries/HtBase/BaseCommandLinkGEV";
constexpr const char* FUNCTION = "HtBaseLib::BaseCommandLinkGEV::SendCommand";

// Receive areas: the largest acknowledge of a read, and the acknowledge of a write.
constexpr std::size_t READ_ACKNOWLEDGE_SIZE = 548;
constexpr std::size_t WRITE_ACKNOWLEDGE_SIZE = 12;

// The offset of an acknowledge's length field, and the length of a payload of one register.
constexpr std::size_t LENGTH_OFFSET = 4;
constexpr std::size_t REGISTER_SIZE = 4;

// SAFE: After the deadline, 65536 stray datagrams in a row count as silence. Each of them makes
// the transaction look once more for an answer that is queued behind it, so without this bound a
// flood would never let it end.
constexpr int MAX_STRAYS_AFTER_DEADLINE = 65536;

constexpr const char* INVALID_ANSWER = "Invalid answer received from device";

// Status codes of GVCP with a text of their own; every other refusal has INVALID_ANSWER.
constexpr StatusText STATUS_TEXTS[] = {
    { 0x8001, "Not implemented status received from the device." },
    { 0x8002, "Invalid parameter status received from the device." },
    { 0x8003, "Invalid address status received from the device." },
    { 0x8004, "Write protect status received from the device." },
    { 0x8006, "Access denied status received from the device. The device is probably already in "
              "use." },
    { 0x8007, "Busy status received from the device." },
    { 0x8008, "Local problem status received from the device." },
    { 0x800A, "Invalid protocol status received from the device." },
};

// KEEP: A status from the device is not logged and is not an OS code. It becomes `GENERIC_ERROR`
// with a text, unlike the status of a USB3 Vision device. The last of the texts has no full stop.
Result TranslateStatus( unsigned short aStatus )
{
    if ( aStatus == 0 )
    {
        return Result::OK;
    }
    const char* const lErrorMsg = FindStatusText( STATUS_TEXTS, aStatus, INVALID_ANSWER );
    QMUTILSLIB_ASSERT( lErrorMsg != NULL );
    return MakeResult( Result::GENERIC_ERROR, 0, lErrorMsg );
}

// The buffer for the largest acknowledge of a read. Only its first bytes are cleared: those of a
// PENDINGACK, which are read before the received length has been checked.
struct ReadArea
{
    ReadArea()
    {
        PacketBytes::BigWriter( mBytes, sizeof( mBytes ) )
            .PutZeros( GEV::PendingAcknowledgeHeader::SIZE );
    }

    unsigned char mBytes[READ_ACKNOWLEDGE_SIZE];
};

// Returns whether the valid acknowledge in the area holds a whole value. Bytes after the value are
// ignored, as are those after the data of a memory read.
bool HasRegister( const ReadArea& aArea )
{
    PacketBytes::BigReader lReader( aArea.mBytes, sizeof( aArea.mBytes ) );
    return lReader.Skip( LENGTH_OFFSET ).Get16() >= REGISTER_SIZE;
}

// SAFE: A read whose acknowledge carries fewer bytes than asked is `GENERIC_ERROR`, "Invalid
// answer received from device". The caller's buffer is unchanged.
Result MakeInvalidAnswer()
{
    return MakeResult( Result::GENERIC_ERROR, 0, INVALID_ANSWER );
}

// Milliseconds until aStart + aTimeout, 0 when that has passed. A clock that went back counts as
// one that stopped.
unsigned int GetRemaining( long long aStart, int aTimeout )
{
    const long long lElapsed = std::max<long long>( Thread::GetTickCount() - aStart, 0 );
    const long long lRemaining = std::clamp<long long>( aTimeout - lElapsed, 0, INT_MAX );
    return static_cast<unsigned int>( lRemaining );
}

// Returns whether the device asks for more time for this very command.
// SAFE: A datagram shorter than a header is never read together with bytes of the one before it,
// and a pending acknowledge needs 12 bytes.
bool IsPending( const GEV::PendingAcknowledgeHeader& aAcknowledge, unsigned int aReceived,
                const GEV::CommandHeader& aCommand )
{
    return aReceived >= GEV::PendingAcknowledgeHeader::SIZE &&
           aAcknowledge.GetAcknowledge() == GEV::PendingAcknowledgeHeader::ACKNOWLEDGE &&
           aAcknowledge.GetAcknowledgeId() == aCommand.GetRequestId();
}

void Increment( std::atomic<long long>& aCounter )
{
    aCounter.fetch_add( 1, std::memory_order_relaxed );
}

} // namespace

BaseCommandLinkGEV::Turn::Turn( const BaseCommandLinkGEV& aLink )
    : mMutex( aLink.Acquire() )
{
}

BaseCommandLinkGEV::Turn::~Turn()
{
    mMutex.Release();
}

// The mutex is kept before anything changes, so that nothing after that needs memory.
BaseCommandLinkGEV::Assignment::Assignment( BaseCommandLinkGEV& aTarget,
                                            const BaseCommandLinkGEV& aSource )
    : mTarget( aTarget )
    , mSource( aSource )
    , mTurn( aTarget )
{
    Keep( aTarget.mHoldings->mReplaced, aTarget.mHoldings->mMutex );
    const bool lIsTargetFirst = std::less<>()( &aTarget, &aSource );
    (void)( lIsTargetFirst ? aTarget : aSource ).mHoldings->mCopyMutex.Wait(); // cannot fail
    (void)( lIsTargetFirst ? aSource : aTarget ).mHoldings->mCopyMutex.Wait(); // nor this
}

BaseCommandLinkGEV::Assignment::~Assignment()
{
    mSource.mHoldings->mCopyMutex.Release();
    mTarget.mHoldings->mCopyMutex.Release();
    mTarget.Publish();
}

BaseCommandLinkGEV::BaseCommandLinkGEV()
    : mPublished( nullptr )
    , mHoldings( std::make_unique<Holdings>() )
{
    mHoldings->mMutex = std::make_shared<Mutex>();
    Publish();
}

BaseCommandLinkGEV::BaseCommandLinkGEV( const BaseCommandLinkGEV& aOther )
    : BaseCommandLinkGEV( aOther, LockScope( aOther.mHoldings->mCopyMutex ) )
{
}

BaseCommandLinkGEV::BaseCommandLinkGEV( const BaseCommandLinkGEV& aOther,
                                        const LockScope& /*aCopyLock*/ )
    : BaseCommandLink( aOther )
    , mRetriesCount( aOther.GetRetriesCount() )
    , mRetriesMax( aOther.GetRetriesMax() )
    , mPendingAcknowledgesCount( aOther.GetPendingAcknowledgesCount() )
    , mTransmitFailures( aOther.GetTransmitFailures() )
    , mPublished( nullptr )
    , mHoldings( std::make_unique<Holdings>() )
{
    mHoldings->mMutex = aOther.mHoldings->mMutex;
    Publish();
}

BaseCommandLinkGEV& BaseCommandLinkGEV::operator=( const BaseCommandLinkGEV& aOther )
{
    if ( this != &aOther )
    {
        const Assignment lAssignment( *this, aOther );
        TakeOver( aOther );
    }
    return *this;
}

BaseCommandLinkGEV::~BaseCommandLinkGEV() = default;

Result BaseCommandLinkGEV::ReadRegister( unsigned int* aValue, long long aAddress )
{
    GEV::ReadRegisterCommand lCommand;
    lCommand.InitOperationQty( 1 );
    lCommand.InitAddress( 0, static_cast<unsigned int>( aAddress ) ); // the field has 32 bits
    ReadArea lArea;
    const GEV::ReadRegisterAcknowledge lAcknowledge( lArea.mBytes, sizeof( lArea.mBytes ) );

    Result lResult = SendCommand( &lCommand, lArea.mBytes, sizeof( lArea.mBytes ), false );
    if ( !lResult.IsOK() )
    {
        return lResult;
    }
    if ( !HasRegister( lArea ) )
    {
        return MakeInvalidAnswer();
    }
    *aValue = lAcknowledge.GetValue( 0, true );
    return Notify( std::move( lResult ),
                   [&] { ReadCallback( aValue, aAddress, sizeof( *aValue ) ); } );
}

// KEEP: A write without an acknowledge calls `WriteCallback` as soon as it has been sent.
Result BaseCommandLinkGEV::WriteRegister( const unsigned int* aValue, long long aAddress,
                                          bool aNoAck )
{
    GEV::WriteRegisterCommand lCommand;
    lCommand.InitFlagAcknowledge( !aNoAck );
    lCommand.InitOperationQty( 1 );
    lCommand.InitAddress( 0, static_cast<unsigned int>( aAddress ) ); // the field has 32 bits
    lCommand.InitValue( 0, *aValue );
    unsigned char lArea[WRITE_ACKNOWLEDGE_SIZE] = {};

    return Notify( SendCommand( &lCommand, lArea, sizeof( lArea ), aNoAck ),
                   [&] { WriteCallback( aValue, aAddress, sizeof( *aValue ) ); } );
}

Result BaseCommandLinkGEV::ReadMemory( void* aData, long long aAddress, long long aSize )
{
    GEV::ReadMemoryCommand lCommand;
    lCommand.InitCount( static_cast<unsigned int>( aSize ) );
    lCommand.InitAddress( static_cast<unsigned int>( aAddress ) ); // the field has 32 bits
    ReadArea lArea;
    const GEV::ReadMemoryAcknowledge lAcknowledge( lArea.mBytes, sizeof( lArea.mBytes ) );

    Result lResult = SendCommand( &lCommand, lArea.mBytes, sizeof( lArea.mBytes ), false );
    if ( !lResult.IsOK() )
    {
        return lResult;
    }
    if ( aSize != 0 && !lAcknowledge.CopyData( aData, aSize ) )
    {
        return MakeInvalidAnswer();
    }
    return Notify( std::move( lResult ), [&] { ReadCallback( aData, aAddress, aSize ); } );
}

Result BaseCommandLinkGEV::WriteMemory( const void* aData, long long aAddress, long long aSize,
                                        bool aNoAck )
{
    if ( aSize < 0 || aSize > static_cast<long long>( GEV::WriteMemoryCommand::MAX_DATA_SIZE ) )
    {
        // SAFE: `WriteMemory` of a negative size or beyond 536 bytes is 0x4001 and sends nothing.
        return INVALID_ARGUMENT;
    }
    GEV::WriteMemoryCommand lCommand;
    lCommand.InitFlagAcknowledge( !aNoAck );
    lCommand.InitAddress( static_cast<unsigned int>( aAddress ) ); // the field has 32 bits
    lCommand.SetData( aData, aSize );
    unsigned char lArea[WRITE_ACKNOWLEDGE_SIZE] = {};

    return Notify( SendCommand( &lCommand, lArea, sizeof( lArea ), aNoAck ),
                   [&] { WriteCallback( aData, aAddress, aSize ); } );
}

Result BaseCommandLinkGEV::SendCommand( Command* aCommand, void* aAckBuffer,
                                        long long aAckBufferSize, bool aNoAck )
{
    return Guarded(
        [&]() -> Result
        {
            const Turn lTurn( *this );
            SocketUDP* const lSocket = GetSocket();
            if ( lSocket == nullptr || !lSocket->IsOpened() )
            {
                return Result::NOT_CONNECTED;
            }
            aCommand->InitRequestId( GetRequestID() );
            return RunAttempts( *aCommand, aAckBuffer, aAckBufferSize, aNoAck );
        } );
}

long long BaseCommandLinkGEV::GetRetriesCount() const
{
    return mRetriesCount.load( std::memory_order_relaxed );
}

long long BaseCommandLinkGEV::GetRetriesMax() const
{
    return mRetriesMax.load( std::memory_order_relaxed );
}

long long BaseCommandLinkGEV::GetPendingAcknowledgesCount() const
{
    return mPendingAcknowledgesCount.load( std::memory_order_relaxed );
}

long long BaseCommandLinkGEV::GetTransmitFailures() const
{
    return mTransmitFailures.load( std::memory_order_relaxed );
}

// No lock: a reset does not wait for a transaction.
void BaseCommandLinkGEV::ResetStats()
{
    mRetriesCount.store( 0, std::memory_order_relaxed );
    mRetriesMax.store( 0, std::memory_order_relaxed );
    mPendingAcknowledgesCount.store( 0, std::memory_order_relaxed );
    mTransmitFailures.store( 0, std::memory_order_relaxed );
}

// Held beyond the return, which clang's analysis of locks does not follow.
void BaseCommandLinkGEV::LockMutex() QMUTILSLIB_NO_THREAD_SAFETY_ANALYSIS
{
    (void)Acquire();
    ++mHoldings->mHeld;
}

// This thread holds the published mutex, so no other thread can replace it meanwhile.
void BaseCommandLinkGEV::ReleaseMutex() QMUTILSLIB_NO_THREAD_SAFETY_ANALYSIS
{
    --mHoldings->mHeld;
    mPublished.load( std::memory_order_relaxed )->Release();
}

void BaseCommandLinkGEV::TakeOver( const BaseCommandLinkGEV& aOther )
{
    BaseCommandLink::operator=( aOther );
    mRetriesCount = aOther.GetRetriesCount();
    mRetriesMax = aOther.GetRetriesMax();
    mPendingAcknowledgesCount = aOther.GetPendingAcknowledgesCount();
    mTransmitFailures = aOther.GetTransmitFailures();
    mHoldings->mMutex = aOther.mHoldings->mMutex;
}

// Waits until the calling thread owns the link's published mutex, and returns it. Every mutex that
// the link ever had exists as long as the link.
Mutex& BaseCommandLinkGEV::Acquire() const QMUTILSLIB_NO_THREAD_SAFETY_ANALYSIS
{
    for ( ;; )
    {
        Mutex* const lMutex = mPublished.load( std::memory_order_acquire );
        (void)lMutex->Wait(); // cannot fail
        if ( mPublished.load( std::memory_order_acquire ) == lMutex )
        {
            return *lMutex;
        }
        lMutex->Release(); // an assignment has replaced it meanwhile
    }
}

// Publishes the mutex of the holdings. The calling thread owns the mutex that was published before.
// If it has taken that one by LockMutex, it takes the new one as often and releases the old one.
void BaseCommandLinkGEV::Publish() QMUTILSLIB_NO_THREAD_SAFETY_ANALYSIS
{
    Mutex* const lOld = mPublished.load( std::memory_order_relaxed );
    Mutex* const lNew = mHoldings->mMutex.get();
    const int lHeld = lNew == lOld ? 0 : mHoldings->mHeld;
    for ( int lCount = 0; lCount < lHeld; ++lCount )
    {
        (void)lNew->Wait(); // cannot fail
    }
    mPublished.store( lNew, std::memory_order_release );
    for ( int lCount = 0; lCount < lHeld; ++lCount )
    {
        lOld->Release();
    }
}

Result BaseCommandLinkGEV::RunAttempts( Command& aCommand, void* aAckBuffer,
                                        long long aAckBufferSize, bool aNoAck )
{
    // KEEP: With a retry count of 0 the result is `NOT_INITIALIZED`, since nothing was tried. A
    // request identifier is used up all the same.
    unsigned int lCode = Result::NOT_INITIALIZED;
    for ( int lAttempt = 0; lAttempt < GetRetryCount(); ++lAttempt )
    {
        if ( lAttempt > 0 )
        {
            CountRetry( lAttempt );
        }
        const bool lSent = SendAttempt( aCommand );
        if ( aNoAck && lSent )
        {
            return Result::OK;
        }
        // KEEP: A refused send still waits the whole answer time-out. The wait paces the
        // attempts, and an answer to an earlier attempt may still arrive.
        Result lResult = WaitForAnswer( aCommand, aAckBuffer, aAckBufferSize );
        if ( lResult.IsOK() )
        {
            const GEV::AcknowledgeHeader lAcknowledge( aAckBuffer,
                                                       static_cast<std::size_t>( aAckBufferSize ) );
            return TranslateStatus( lAcknowledge.GetStatus() );
        }
        // KEEP: A receive error other than a time-out ends the transaction at once, without
        // another attempt and without a message.
        lCode = lResult.GetCode();
        if ( lCode != Result::TIMEOUT )
        {
            return lResult;
        }
    }
    return GetLibLogger()->LogResult( lCode, UNIT, __LINE__, FUNCTION,
                                      "Command link operation failure" );
}

void BaseCommandLinkGEV::CountRetry( int aAttempt )
{
    HTBASE_LOG( GetLinkLogger(), Logger::ANOMALY, UNIT, FUNCTION, "Command link retry" );
    Increment( mRetriesCount );
    if ( aAttempt > mRetriesMax.load( std::memory_order_relaxed ) )
    {
        mRetriesMax.store( aAttempt, std::memory_order_relaxed );
    }
}

bool BaseCommandLinkGEV::SendAttempt( const Command& aCommand )
{
    if ( GetSocket()->Send( &aCommand, aCommand.GetTotalLength() ).IsOK() )
    {
        return true;
    }
    Increment( mTransmitFailures );
    HTBASE_LOG( GetLinkLogger(), Logger::ANOMALY, UNIT, FUNCTION,
                "Command link unable to send command" );
    return false;
}

// Waits for the acknowledge of aCommand, and returns OK when it is in the buffer.
// KEEP: A wait is never shorter than 1 ms, also after the deadline. So each stray datagram causes
// one more look at the queue, and an answer that is already queued is received.
Result BaseCommandLinkGEV::WaitForAnswer( const Command& aCommand, void* aAckBuffer,
                                          long long aAckBufferSize )
{
    const GEV::PendingAcknowledgeHeader lAnswer( aAckBuffer,
                                                 static_cast<std::size_t>( aAckBufferSize ) );
    long long lStart = Thread::GetTickCount();
    int lTimeout = GetAnswerTimeout();
    auto lRemaining = static_cast<unsigned int>( std::max( lTimeout, 0 ) ); // nothing passed yet
    int lStraysAfterDeadline = 0;
    while ( lStraysAfterDeadline < MAX_STRAYS_AFTER_DEADLINE )
    {
        int lReceived = 0;
        Result lResult =
            ReceiveAnswer( aAckBuffer, aAckBufferSize, std::max( lRemaining, 1U ), lReceived );
        if ( lResult == Result::TIMEOUT )
        {
            break;
        }
        if ( !lResult.IsOK() )
        {
            return lResult;
        }
        const auto lSize = static_cast<unsigned int>( lReceived ); // never negative when OK
        if ( lAnswer.IsValid( lSize, aCommand ) )
        {
            return Result::OK;
        }
        if ( IsPending( lAnswer, lSize, aCommand ) )
        {
            // KEEP: Each pending acknowledge replaces the remaining wait, also by a shorter one,
            // and uses up no attempt. Closing the socket ends such a wait.
            lStart = Thread::GetTickCount();
            lTimeout = lAnswer.GetTimeToCompletion();
            lRemaining = static_cast<unsigned int>( lTimeout );
            lStraysAfterDeadline = 0;
            Increment( mPendingAcknowledgesCount );
            continue;
        }
        HTBASE_LOG( GetLinkLogger(), Logger::ANOMALY, UNIT, FUNCTION,
                    "Unexpected device answer - malformed or out of sync" );
        lStraysAfterDeadline += lRemaining == 0 ? 1 : 0;
        lRemaining = GetRemaining( lStart, lTimeout );
    }
    HTBASE_LOG( GetLinkLogger(), Logger::ANOMALY, UNIT, FUNCTION, "Command link timeout" );
    return Result::TIMEOUT;
}

// Takes one datagram that comes within aWait milliseconds, or TIMEOUT.
Result BaseCommandLinkGEV::ReceiveAnswer( void* aAckBuffer, long long aAckBufferSize,
                                          unsigned int aWait, int& aReceived )
{
    SocketUDP* lSocket = GetSocket();
    if ( SocketUDP::SelectOnRx( &lSocket, 1, aWait, nullptr ) == nullptr )
    {
        return Result::TIMEOUT;
    }
    const int lCapacity = static_cast<int>( std::clamp<long long>( aAckBufferSize, 0, INT_MAX ) );
    return lSocket->Receive( aAckBuffer, lCapacity, aReceived );
}

} // namespace HtBaseLib
