#include "Simulators/GEV/JournalGEV.h"

#include <cinttypes>
#include <cstdio>

namespace Simulators
{

namespace
{

// The key that all unimplemented commands share.
constexpr uint16_t NOT_IMPLEMENTED = 0;

bool HasReservedBits( const CommandGEV& aCommand )
{
    constexpr size_t RESERVED_OFFSET = 4;
    return aCommand.mCode == Command::READMEM &&
           aCommand.ReadPayload().Skip( RESERVED_OFFSET ).Get16() != 0;
}

} // namespace

JournalGEV::JournalGEV( size_t aRequestsKept )
    : mRequests( aRequestsKept )
{
}

uint16_t JournalGEV::GetKey( uint16_t aCommand )
{
    switch ( aCommand )
    {
    case Command::DISCOVERY:
    case Command::READREG:
    case Command::WRITEREG:
    case Command::READMEM:
    case Command::WRITEMEM:
        return aCommand;
    default:
        return NOT_IMPLEMENTED;
    }
}

void JournalGEV::Record( const CommandGEV& aCommand )
{
    ++Count( aCommand.mCode ).mReceived;
    mRequests.Add( { aCommand.mFrom, aCommand.mNowMs, aCommand.mDatagram } );
    if ( aCommand.IsQuestion() && !aCommand.HasAcknowledgeFlag() )
    {
        ++mOddities.mReadWithoutAckFlag;
    }
    if ( HasReservedBits( aCommand ) )
    {
        ++mOddities.mReservedNotZero;
    }
}

CountersGEV JournalGEV::GetCounters( uint16_t aCommand ) const
{
    const auto lFound = mCounters.find( GetKey( aCommand ) );
    return lFound == mCounters.end() ? CountersGEV() : lFound->second;
}

CountersGEV JournalGEV::GetTotal() const
{
    CountersGEV lTotal;
    for ( const auto& lEntry : mCounters )
    {
        const CountersGEV& lCounters = lEntry.second;
        lTotal.mReceived += lCounters.mReceived;
        lTotal.mExecuted += lCounters.mExecuted;
        lTotal.mRefused += lCounters.mRefused;
        lTotal.mRepeated += lCounters.mRepeated;
        lTotal.mSilenced += lCounters.mSilenced;
        lTotal.mAnswers += lCounters.mAnswers;
        lTotal.mPendings += lCounters.mPendings;
    }
    return lTotal;
}

std::string JournalGEV::GetSummary() const
{
    const CountersGEV lTotal = GetTotal();
    char lText[320];
    std::snprintf( lText, sizeof( lText ),
                   "%" PRIu64 " commands: %" PRIu64 " executed, %" PRIu64 " refused, %" PRIu64
                   " repeated, %" PRIu64 " silenced; %" PRIu64 " acknowledges and %" PRIu64
                   " pending acknowledges sent; %" PRIu64 " datagrams dropped",
                   lTotal.mReceived, lTotal.mExecuted, lTotal.mRefused, lTotal.mRepeated,
                   lTotal.mSilenced, lTotal.mAnswers, lTotal.mPendings,
                   mOddities.mTooShort + mOddities.mWrongKey + mOddities.mZeroIdentifier );
    return lText;
}

} // namespace Simulators
