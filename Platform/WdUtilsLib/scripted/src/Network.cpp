#include "NetworkState.h"

#include <QmUtilsLib/Scripted/VirtualClock.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <utility>

namespace WdUtilsLib
{
namespace Scripted
{

using QmUtilsLib::Result;
using QmUtilsLib::Scripted::VirtualClock;

namespace
{

std::shared_ptr<NetworkState> gCurrent;

void PrintAndAbort( const std::string& aSentence )
{
    std::fprintf( stderr, "%s\n", aSentence.c_str() );
    std::abort();
}

FailureReporter gReporter = PrintAndAbort;

std::string Describe( const Bytes& aBytes )
{
    std::string lText;
    for ( const uint8_t lByte : aBytes )
    {
        char lDigits[4];
        std::snprintf( lDigits, sizeof( lDigits ), "%02X ", lByte );
        lText += lDigits;
    }
    return lText;
}

} // namespace

void SetFailureReporter( FailureReporter aReporter )
{
    gReporter = aReporter ? std::move( aReporter ) : PrintAndAbort;
}

void ReportFailure( const std::string& aSentence )
{
    gReporter( aSentence );
}

std::shared_ptr<NetworkState> NetworkState::GetCurrent()
{
    return gCurrent;
}

void NetworkState::SetCurrent( std::shared_ptr<NetworkState> aState )
{
    gCurrent = std::move( aState );
}

void NetworkState::Note( const std::string& aCall )
{
    mCalls.push_back( aCall );
    if ( mObserver )
    {
        mObserver( aCall );
    }
}

unsigned int NetworkState::Join()
{
    return ++mSocketCount;
}

Result NetworkState::Send( unsigned int aSocket, const Bytes& aBytes, const Peer& aFrom,
                           const Peer& aTo )
{
    mSends.push_back( { aBytes, aTo, VirtualClock::Now(), false, aFrom } );
    if ( mSteps.empty() && mDevice )
    {
        Schedule( aSocket, aTo, mDevice( mSends.back() ) );
        return Result::OK;
    }
    if ( mSteps.empty() )
    {
        ReportFailure( "unexpected send: " + Describe( aBytes ) );
        return Result::OK;
    }
    ExpectedSend lStep = std::move( mSteps.front() );
    mSteps.pop_front();
    if ( lStep.mBytes.has_value() && *lStep.mBytes != aBytes )
    {
        ReportFailure( "expected send: " + Describe( *lStep.mBytes ) +
                       "\n  actual send: " + Describe( aBytes ) );
    }
    Schedule( aSocket, aTo, std::move( lStep.mEvents ) );
    mSends.back().mRefused = lStep.mRefusal.has_value();
    return lStep.mRefusal.value_or( Result( Result::OK ) );
}

void NetworkState::Schedule( unsigned int aSocket, const Peer& aTo, std::vector<Event> aEvents )
{
    for ( Event& lEvent : aEvents )
    {
        lEvent.mSocket = aSocket;
        lEvent.mTime += VirtualClock::Now();
        lEvent.mFrom = lEvent.mFrom.value_or( aTo );
        auto lPlace = mEvents.end();
        while ( lPlace != mEvents.begin() && std::prev( lPlace )->mTime > lEvent.mTime )
        {
            --lPlace;
        }
        mEvents.insert( lPlace, std::move( lEvent ) );
    }
}

void NetworkState::Schedule( unsigned int aSocket, const Peer& aTo,
                             std::vector<ScriptedNetwork::Answer> aAnswers )
{
    std::vector<Event> lEvents;
    for ( ScriptedNetwork::Answer& lAnswer : aAnswers )
    {
        Event lEvent;
        lEvent.mTime = lAnswer.mAfterMs;
        lEvent.mFrom = lAnswer.mFrom;
        lEvent.mBytes = std::move( lAnswer.mBytes );
        if ( lAnswer.mContinuation )
        {
            lEvent.mAction = [this, aSocket, aTo, lContinue = std::move( lAnswer.mContinuation )]
            {
                Schedule( aSocket, aTo, lContinue( VirtualClock::Now() ) );
            };
        }
        lEvents.push_back( std::move( lEvent ) );
    }
    Schedule( aSocket, aTo, std::move( lEvents ) );
}

// Runs the actions that are due before the next datagram.
void NetworkState::RunActions()
{
    for ( ;; )
    {
        const auto lAction =
            FindDue( []( const Event& aEvent ) { return aEvent.mAction != nullptr; } );
        if ( lAction == mEvents.end() )
        {
            return;
        }
        const std::function<void()> lRun = std::move( lAction->mAction );
        mEvents.erase( lAction );
        lRun();
    }
}

// The first event whose time has come and that fits; the end where there is none. A talk may have
// very many events, and most lie ahead.
template <typename Predicate>
std::deque<NetworkState::Event>::iterator NetworkState::FindDue( Predicate aFits )
{
    const long long lNow = VirtualClock::Now();
    const auto lEvent = std::find_if( mEvents.begin(), mEvents.end(),
                                      [&]( const Event& aEvent )
                                      { return aEvent.mTime > lNow || aFits( aEvent ); } );
    return lEvent != mEvents.end() && lEvent->mTime <= lNow ? lEvent : mEvents.end();
}

// The first datagram, or failure to receive one, that the socket has now.
std::deque<NetworkState::Event>::iterator NetworkState::FindReadable( unsigned int aSocket )
{
    return FindDue( [aSocket]( const Event& aEvent )
                    { return aEvent.mSocket == aSocket && !aEvent.mAction; } );
}

std::optional<unsigned int>
NetworkState::Wait( const std::vector<unsigned int>& aSockets, unsigned int aTimeout,
                    const std::function<bool( unsigned int )>& aIsClosed )
{
    const long long lDeadline = VirtualClock::Now() + aTimeout;
    for ( ;; )
    {
        RunActions();
        for ( const unsigned int lSocket : aSockets )
        {
            if ( aIsClosed( lSocket ) || FindReadable( lSocket ) != mEvents.end() )
            {
                return lSocket;
            }
        }
        if ( VirtualClock::Now() >= lDeadline )
        {
            return std::nullopt;
        }
        const auto lNext = std::find_if( mEvents.begin(), mEvents.end(),
                                         []( const Event& aEvent )
                                         { return aEvent.mTime > VirtualClock::Now(); } );
        const long long lUntil = lNext != mEvents.end() ? lNext->mTime : lDeadline;
        VirtualClock::Set( std::min( lUntil, lDeadline ) );
    }
}

std::optional<NetworkState::Event> NetworkState::Take( unsigned int aSocket )
{
    const auto lEvent = FindReadable( aSocket );
    if ( lEvent == mEvents.end() )
    {
        return std::nullopt;
    }
    Event lTaken = std::move( *lEvent );
    mEvents.erase( lEvent );
    return lTaken;
}

NetworkState::ExpectedSend& NetworkState::GetLastStep()
{
    if ( mSteps.empty() )
    {
        ReportFailure( "a step of the script comes before any expected send" );
        mSteps.emplace_back();
    }
    return mSteps.back();
}

ScriptedNetwork::ScriptedNetwork()
    : mState( std::make_shared<NetworkState>() )
{
    NetworkState::SetCurrent( mState );
}

ScriptedNetwork::~ScriptedNetwork()
{
    NetworkState::SetCurrent( nullptr );
    for ( const NetworkState::ExpectedSend& lStep : mState->mSteps )
    {
        ReportFailure( "expected send never came: " +
                       Describe( lStep.mBytes.value_or( Bytes() ) ) );
    }
}

ScriptedNetwork& ScriptedNetwork::Expect( const Bytes& aBytes )
{
    mState->mSteps.push_back( { aBytes, std::nullopt, {} } );
    return *this;
}

ScriptedNetwork& ScriptedNetwork::ExpectAnySend()
{
    mState->mSteps.emplace_back();
    return *this;
}

ScriptedNetwork& ScriptedNetwork::Refuse( const Result& aResult )
{
    mState->GetLastStep().mRefusal = aResult;
    return *this;
}

ScriptedNetwork& ScriptedNetwork::Silence()
{
    return *this;
}

ScriptedNetwork& ScriptedNetwork::Reply( const Bytes& aBytes, AFTER_MS aAfter )
{
    NetworkState::Event lEvent;
    lEvent.mTime = aAfter.mMilliseconds;
    lEvent.mBytes = aBytes;
    mState->GetLastStep().mEvents.push_back( std::move( lEvent ) );
    return *this;
}

ScriptedNetwork& ScriptedNetwork::ReplyFrom( const Peer& aFrom, const Bytes& aBytes,
                                             AFTER_MS aAfter )
{
    Reply( aBytes, aAfter );
    mState->GetLastStep().mEvents.back().mFrom = aFrom;
    return *this;
}

ScriptedNetwork& ScriptedNetwork::FailReceive( const Result& aResult, AFTER_MS aAfter )
{
    Reply( {}, aAfter );
    mState->GetLastStep().mEvents.back().mFailure = aResult;
    return *this;
}

ScriptedNetwork& ScriptedNetwork::Do( std::function<void()> aAction, AFTER_MS aAfter )
{
    Reply( {}, aAfter );
    mState->GetLastStep().mEvents.back().mAction = std::move( aAction );
    return *this;
}

ScriptedNetwork& ScriptedNetwork::Attach( Device aDevice )
{
    return Attach( [lDevice = std::move( aDevice )]( const Sent& aSent )
                   { return lDevice( aSent.mBytes, aSent.mTime ); } );
}

ScriptedNetwork& ScriptedNetwork::Attach( PortDevice aDevice )
{
    mState->mDevice = std::move( aDevice );
    return *this;
}

const std::vector<ScriptedNetwork::Sent>& ScriptedNetwork::GetSends() const
{
    return mState->mSends;
}

const std::vector<unsigned int>& ScriptedNetwork::GetSelectTimeouts() const
{
    return mState->mSelectTimeouts;
}

const std::vector<int>& ScriptedNetwork::GetReceiveSizes() const
{
    return mState->mReceiveSizes;
}

const std::vector<std::string>& ScriptedNetwork::GetCalls() const
{
    return mState->mCalls;
}

ScriptedNetwork& ScriptedNetwork::Observe( std::function<void( const std::string& )> aObserver )
{
    mState->mObserver = std::move( aObserver );
    return *this;
}

bool ScriptedNetwork::IsScriptDone() const
{
    return mState->mSteps.empty();
}

} // namespace Scripted
} // namespace WdUtilsLib
