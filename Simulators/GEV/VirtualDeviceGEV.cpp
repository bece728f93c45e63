#include "Simulators/GEV/VirtualDeviceGEV.h"

#include "Simulators/GEV/ExecutionGEV.h"

#include <algorithm>

namespace Simulators
{

namespace
{

// Faults belong to whole words.
uint32_t GetWordAddress( uint32_t aAddress )
{
    return aAddress & ~3U;
}

} // namespace

VirtualDeviceGEV::VirtualDeviceGEV( const Configuration& aConfiguration )
    : mRegisters( aConfiguration )
    , mJournal( aConfiguration.mRequestsKept )
{
}

std::vector<Outgoing> VirtualDeviceGEV::Receive( const Endpoint& aFrom, const uint8_t* aData,
                                                 size_t aSize, int64_t aNowMs )
{
    mRegisters.ExpireControl( aNowMs );
    const std::optional<CommandGEV> lCommand = Take( aFrom, aData, aSize, aNowMs );
    if ( !lCommand )
    {
        return {};
    }
    // The standard has 0x8002 for a length that is wrong for the command. A length that differs
    // from that of the datagram gets 0x800E, so that a test can distinguish the two; the standard
    // has withdrawn 0x8009, message mismatch. Such a datagram is damaged: it does not restart the
    // heartbeat, and must not replace the complete command before it in the cache.
    if ( mRegisters.IsStrict() && lCommand->mLength != lCommand->GetPayloadSize() )
    {
        return Send( *lCommand, MakeRefusal( *lCommand, Status::INVALID_HEADER ), Work() );
    }
    mRegisters.KeepControl( aFrom, aNowMs );
    // Before the silent addresses: a repeated command gets its answer even if the test has made the
    // address silent since.
    if ( const ReplyCache::Entry* const lEntry = mReplies.Find( *lCommand ) )
    {
        return AnswerAgain( *lCommand, *lEntry );
    }
    if ( mRegisters.IsSilent( *lCommand ) )
    {
        ++mJournal.Count( lCommand->mCode ).mSilenced;
        return {};
    }
    return Answer( *lCommand );
}

// Reads the header. Empty if the datagram is dropped.
std::optional<CommandGEV> VirtualDeviceGEV::Take( const Endpoint& aFrom, const uint8_t* aData,
                                                  size_t aSize, int64_t aNowMs )
{
    std::optional<CommandGEV> lCommand =
        ParseCommandGEV( aFrom, aNowMs, Bytes( aData, aData + aSize ) );
    if ( !lCommand )
    {
        ++mJournal.CountOddity().mTooShort;
        return std::nullopt;
    }
    if ( lCommand->mKey != CommandGEV::KEY )
    {
        ++mJournal.CountOddity().mWrongKey;
        return std::nullopt;
    }
    if ( lCommand->mIdentifier == 0 )
    {
        ++mJournal.CountOddity().mZeroIdentifier;
        return std::nullopt;
    }
    mJournal.Record( *lCommand );
    return lCommand;
}

std::vector<Outgoing> VirtualDeviceGEV::Answer( const CommandGEV& aCommand )
{
    const ReplyGEV lReply = Execute( aCommand, mRegisters );
    const Work lWork = PlanWork( aCommand, lReply );
    // The host waits while the device works, and must not lose control because it sends nothing.
    mRegisters.KeepControl( aCommand.mFrom, aCommand.mNowMs + lWork.mFinalMs );
    std::vector<Outgoing> lOut = Send( aCommand, lReply, lWork );
    ReplyCache::Entry lEntry;
    lEntry.mRequest = aCommand.mDatagram;
    lEntry.mAnswer = lOut.empty() ? Bytes() : lOut.back().mBytes;
    lEntry.mAnswerMs = aCommand.mNowMs + lWork.mFinalMs;
    lEntry.mForgottenMs = aCommand.mNowMs + lWork.mPromisedMs + GetConfiguration().mResendWindowMs;
    mReplies.Remember( aCommand.mFrom, lEntry );
    return lOut;
}

std::vector<Outgoing> VirtualDeviceGEV::AnswerAgain( const CommandGEV& aCommand,
                                                     const ReplyCache::Entry& aEntry )
{
    Counters& lCounters = mJournal.Count( aCommand.mCode );
    ++lCounters.mRepeated;
    // Before the answer is due, a repeated command gets a pending acknowledge, or nothing if the
    // device has none: the answer is already on its way.
    const bool lIsDue = aCommand.mNowMs >= aEntry.mAnswerMs;
    if ( aEntry.mAnswer.empty() || ( !lIsDue && !MayAnnounce() ) )
    {
        return {};
    }
    if ( lIsDue )
    {
        ++lCounters.mAnswers;
        return { { aEntry.mAnswer, 0, aCommand.mFrom } };
    }
    ++lCounters.mPendings;
    return { { MakePendingAcknowledge( aCommand, GetConfiguration().mPending.mAnnouncedMs ), 0,
               aCommand.mFrom } };
}

bool VirtualDeviceGEV::MayAnnounce() const
{
    const PendingAcknowledge& lPending = GetConfiguration().mPending;
    const bool lIsPromised = HasVersion( GetConfiguration(), 1, 1 ) &&
                             mRegisters.HasCapability( Capability::GVCP_PENDING_ACK );
    return lPending.mTimes != 0 && ( lIsPromised || lPending.mAlways );
}

VirtualDeviceGEV::Work VirtualDeviceGEV::PlanWork( const CommandGEV& aCommand,
                                                   const ReplyGEV& aReply ) const
{
    const PendingAcknowledge& lPending = GetConfiguration().mPending;
    const bool lTakesLong = std::find( lPending.mCommands.begin(), lPending.mCommands.end(),
                                       aCommand.mCode ) != lPending.mCommands.end();
    if ( !lTakesLong || !aCommand.WantsAcknowledge() || aReply.mStatus != Status::SUCCESS )
    {
        return {};
    }
    Work lWork;
    lWork.mFinalMs = lPending.mTakesMs;
    lWork.mPromisedMs = lPending.mTakesMs;
    // Each pending acknowledge is sent after the work time of the one before. The promised time is
    // the latest that the host may wait until, so the cache remembers the command for that long.
    const int64_t lTimes = MayAnnounce() ? lPending.mTimes : 0;
    for ( int64_t i = 0; i < lTimes; ++i )
    {
        const int64_t lDelayMs = i * lPending.mTakesMs;
        lWork.mAnnouncementsMs.push_back( lDelayMs );
        lWork.mFinalMs = lDelayMs + lPending.mTakesMs;
        lWork.mPromisedMs = std::max( lWork.mFinalMs, lDelayMs + lPending.mAnnouncedMs );
    }
    return lWork;
}

// The acknowledge, if there is one, comes last; Answer relies on that.
std::vector<Outgoing> VirtualDeviceGEV::Send( const CommandGEV& aCommand, const ReplyGEV& aReply,
                                              const Work& aWork )
{
    Counters& lCounters = mJournal.Count( aCommand.mCode );
    ++( aReply.mStatus == Status::SUCCESS ? lCounters.mExecuted : lCounters.mRefused );
    std::vector<Outgoing> lOut;
    const uint16_t lAnnouncedMs = GetConfiguration().mPending.mAnnouncedMs;
    for ( const int64_t lDelayMs : aWork.mAnnouncementsMs )
    {
        ++lCounters.mPendings;
        lOut.push_back(
            { MakePendingAcknowledge( aCommand, lAnnouncedMs ), lDelayMs, aCommand.mFrom } );
    }
    if ( aCommand.WantsAcknowledge() )
    {
        ++lCounters.mAnswers;
        lOut.push_back( { MakeAcknowledge( aCommand, aReply ), aWork.mFinalMs, aCommand.mFrom } );
    }
    return lOut;
}

bool VirtualDeviceGEV::TakesFromBroadcast( const uint8_t* aData, size_t aSize )
{
    const std::optional<CommandGEV> lCommand =
        ParseCommandGEV( Endpoint(), 0, Bytes( aData, aData + aSize ) );
    return lCommand && lCommand->mKey == CommandGEV::KEY && lCommand->mCode == Command::DISCOVERY;
}

void VirtualDeviceGEV::RefuseAddress( uint32_t aAddress, uint16_t aStatus )
{
    Refuse( AddressFaults::ANY_COMMAND, aAddress, aStatus );
}

void VirtualDeviceGEV::Refuse( uint16_t aCommand, uint32_t aAddress, uint16_t aStatus )
{
    mRegisters.GetFaults().Refuse( aCommand, GetWordAddress( aAddress ), aStatus );
}

void VirtualDeviceGEV::SetSilent( uint32_t aAddress, bool aIsSilent )
{
    mRegisters.GetFaults().SetSilent( GetWordAddress( aAddress ), aIsSilent );
}

uint32_t VirtualDeviceGEV::ReadWord( uint32_t aAddress ) const
{
    return mRegisters.GetSpace().GetWord( aAddress );
}

bool VirtualDeviceGEV::WriteWord( uint32_t aAddress, uint32_t aValue )
{
    AddressSpace& lSpace = mRegisters.GetSpace();
    lSpace.SetWord( aAddress, aValue );
    return lSpace.GetAccess( aAddress, 4 ) != Access::NONE;
}

const Bytes& VirtualDeviceGEV::GetMemory() const
{
    return mRegisters.GetSpace().GetRegion( GetConfiguration().mMemoryBase );
}

std::optional<Endpoint> VirtualDeviceGEV::GetHolder( int64_t aNowMs ) const
{
    return mRegisters.GetHolder( aNowMs );
}

} // namespace Simulators
