#include <SimpleCommandLinkGEV.h>

#include "Libraries/HtBase/Link/LinkAssignment.h"
#include "Libraries/HtBase/Link/Replaced.h"
#include "Libraries/HtBase/Support/Diagnostics.h"

namespace HtBaseLib
{

using QmUtilsLib::LockScope;
using QmUtilsLib::Logger;
using QmUtilsLib::Result;
using WdUtilsLib::Network::SocketUDP;

namespace
{

constexpr int RETRY_COUNT = 3;
constexpr int ANSWER_TIMEOUT = 400; // milliseconds

constexpr unsigned short IDENTIFIER_MASK = 0x0FFF;
constexpr unsigned short IDENTIFIER_BASE = 0xB000;

} // namespace

std::atomic<unsigned short> SimpleCommandLinkGEV::mRequestID{ 1 };

SimpleCommandLinkGEV::SimpleCommandLinkGEV( SocketUDP* aSocket )
    : mSocket( aSocket )
    , mLogger( std::make_shared<Logger>( LOGGER_NAME, LOGGER_CONFIGURATION ) )
{
}

SimpleCommandLinkGEV::SimpleCommandLinkGEV( const SimpleCommandLinkGEV& aOther )
    : SimpleCommandLinkGEV( aOther, LockScope( aOther.mHoldings->mCopyMutex ) )
{
}

SimpleCommandLinkGEV::SimpleCommandLinkGEV( const SimpleCommandLinkGEV& aOther,
                                            const LockScope& aCopyLock )
    : BaseCommandLinkGEV( aOther, aCopyLock )
    , mSocket( aOther.mSocket )
    , mLogger( aOther.mLogger )
{
}

SimpleCommandLinkGEV& SimpleCommandLinkGEV::operator=( const SimpleCommandLinkGEV& aOther )
{
    if ( this != &aOther )
    {
        const Assignment lAssignment( *this, aOther );
        Keep( mHoldings->mReplaced, mLogger );
        mSocket = aOther.mSocket;
        mLogger = aOther.mLogger;
        TakeOver( aOther );
    }
    return *this;
}

SimpleCommandLinkGEV::~SimpleCommandLinkGEV() = default;

// KEEP: `SimpleCommandLinkGEV::Close` is `NOT_SUPPORTED`, and `IsConnected` is always true. The
// socket is the caller's to close, and only a transaction shows whether it leads to a device.
// KEEP: Links neither set nor obey the connection-lost flag. It belongs to the link's owner.
Result SimpleCommandLinkGEV::Close()
{
    return Result::NOT_SUPPORTED;
}

bool SimpleCommandLinkGEV::IsConnected() const
{
    return true;
}

Logger* SimpleCommandLinkGEV::GetLibLogger()
{
    return mLogger.get();
}

Logger* SimpleCommandLinkGEV::GetLinkLogger()
{
    return mLogger.get();
}

int SimpleCommandLinkGEV::GetRetryCount() const
{
    return RETRY_COUNT;
}

int SimpleCommandLinkGEV::GetAnswerTimeout() const
{
    return ANSWER_TIMEOUT;
}

SocketUDP* SimpleCommandLinkGEV::GetSocket()
{
    return mSocket;
}

// KEEP: The counter of identifiers skips 0, but the identifiers do not skip 0xB000. That is the
// identifier whenever the low 12 bits of the counter are 0. No identifier is 0.
unsigned short SimpleCommandLinkGEV::GetRequestID()
{
    unsigned short lCounter = mRequestID.load( std::memory_order_relaxed );
    unsigned short lNext = 0;
    do
    {
        lNext = static_cast<unsigned short>( lCounter + 1 ); // wraps
        lNext = lNext == 0 ? 1 : lNext;
    } while ( !mRequestID.compare_exchange_weak( lCounter, lNext, std::memory_order_relaxed ) );
    return static_cast<unsigned short>( ( lCounter & IDENTIFIER_MASK ) | IDENTIFIER_BASE );
}

} // namespace HtBaseLib
