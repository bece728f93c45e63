#include "ControlState.h"

#include <algorithm>
#include <cstdio>
#include <utility>

namespace WdTransportLayerLib
{
namespace Scripted
{

using QmUtilsLib::Result;
using U3V::DCI_COMMAND;
using WdUtilsLib::Scripted::ReportFailure;

namespace
{

std::shared_ptr<ControlState> gCurrent;
unsigned int gInterfaceCount = 0;

std::string Describe( const std::vector<Bytes>& aCommands )
{
    std::string lText;
    for ( const Bytes& lCommand : aCommands )
    {
        lText += lText.empty() ? "" : "| ";
        for ( const uint8_t lByte : lCommand )
        {
            char lDigits[4];
            std::snprintf( lDigits, sizeof( lDigits ), "%02X ", lByte );
            lText += lDigits;
        }
    }
    return lText;
}

std::vector<Bytes> GetBytes( const std::vector<ScriptedControl::Command>& aCommands )
{
    std::vector<Bytes> lBytes;
    lBytes.reserve( aCommands.size() );
    for ( const ScriptedControl::Command& lCommand : aCommands )
    {
        lBytes.push_back( lCommand.mBytes );
    }
    return lBytes;
}

void Answer( DCI_COMMAND* aCommand, const ControlState::ExpectedReply& aReply )
{
    const auto lSize = aReply.mLength.has_value()
                           ? aReply.mBytes.size()
                           : std::min<std::size_t>( aReply.mBytes.size(), aCommand->mAckLength );
    std::copy_n( aReply.mBytes.begin(), lSize, aCommand->mAck );
    aCommand->mAckLength = aReply.mLength.value_or( static_cast<uint32_t>( lSize ) );
    aCommand->mResult = aReply.mOutcome;
}

Result LeaveUnanswered( DCI_COMMAND* aCommand, const Result& aResult )
{
    aCommand->mAckLength = 0;
    aCommand->mResult = aResult;
    return aResult;
}

} // namespace

std::shared_ptr<ControlState> ControlState::GetCurrent()
{
    return gCurrent;
}

void ControlState::SetCurrent( std::shared_ptr<ControlState> aState )
{
    gCurrent = std::move( aState );
}

void ControlState::Join()
{
    ++gInterfaceCount;
}

void ControlState::Leave()
{
    --gInterfaceCount;
}

void ControlState::Record( const DCI_COMMAND* aCommands, unsigned int aCount )
{
    std::vector<ScriptedControl::Command> lCall;
    for ( unsigned int lIndex = 0; lIndex < aCount; ++lIndex )
    {
        const DCI_COMMAND& lCommand = aCommands[lIndex];
        lCall.push_back( { Bytes( lCommand.mCommand, lCommand.mCommand + lCommand.mCommandLength ),
                           lCommand.mAckLength,
                           Bytes( lCommand.mAck, lCommand.mAck + lCommand.mAckLength ) } );
    }
    mCalls.push_back( std::move( lCall ) );
}

Result ControlState::SendCommands( bool aIsOpened, DCI_COMMAND* aCommands, unsigned int aCount )
{
    Record( aCommands, aCount );
    const std::vector<Bytes> lCommands = GetBytes( mCalls.back() );
    ExpectedCall lExpected;
    if ( !mExpected.empty() )
    {
        lExpected = std::move( mExpected.front() );
        mExpected.pop_front();
        if ( lExpected.mCommands.has_value() && *lExpected.mCommands != lCommands )
        {
            ReportFailure( "expected call: " + Describe( *lExpected.mCommands ) +
                           "\n  actual call: " + Describe( lCommands ) );
        }
    }
    else if ( !aIsOpened )
    {
        return Result::NOT_CONNECTED;
    }
    else if ( mDevice )
    {
        for ( const Bytes& lCommand : lCommands )
        {
            lExpected.mReplies.push_back( { mDevice( lCommand ), Result::OK, {} } );
        }
    }
    else
    {
        ReportFailure( "unexpected call: " + Describe( lCommands ) );
    }
    for ( const std::function<void()>& lAction : lExpected.mActions )
    {
        lAction();
    }
    for ( unsigned int lIndex = 0; lIndex < aCount; ++lIndex )
    {
        if ( lIndex >= lExpected.mReplies.size() || lExpected.mReplies[lIndex].mBytes.empty() )
        {
            return LeaveUnanswered( aCommands + lIndex,
                                    lExpected.mFailure.value_or( Result( Result::TIMEOUT ) ) );
        }
        Answer( aCommands + lIndex, lExpected.mReplies[lIndex] );
    }
    return lExpected.mFailure.value_or( Result( Result::OK ) );
}

ControlState::ExpectedCall& ControlState::GetLastCall()
{
    if ( mExpected.empty() )
    {
        ReportFailure( "a step of the script comes before any expected call" );
        mExpected.emplace_back();
    }
    return mExpected.back();
}

ScriptedControl::ScriptedControl()
    : mState( std::make_shared<ControlState>() )
{
    ControlState::SetCurrent( mState );
}

ScriptedControl::~ScriptedControl()
{
    ControlState::SetCurrent( nullptr );
    for ( const ControlState::ExpectedCall& lCall : mState->mExpected )
    {
        ReportFailure( "expected call never came: " +
                       Describe( lCall.mCommands.value_or( std::vector<Bytes>() ) ) );
    }
}

ScriptedControl& ScriptedControl::Expect( const Bytes& aCommand )
{
    return ExpectTogether( { aCommand } );
}

ScriptedControl& ScriptedControl::ExpectTogether( const std::vector<Bytes>& aCommands )
{
    mState->mExpected.emplace_back();
    mState->mExpected.back().mCommands = aCommands;
    return *this;
}

ScriptedControl& ScriptedControl::ExpectAny()
{
    mState->mExpected.emplace_back();
    return *this;
}

ScriptedControl& ScriptedControl::Reply( const Bytes& aAcknowledge, const Result& aOutcome )
{
    mState->GetLastCall().mReplies.push_back( { aAcknowledge, aOutcome, {} } );
    return *this;
}

ScriptedControl& ScriptedControl::ReplyWithoutBounds( const Bytes& aAcknowledge,
                                                      unsigned int aLength )
{
    mState->GetLastCall().mReplies.push_back( { aAcknowledge, Result::OK, aLength } );
    return *this;
}

ScriptedControl& ScriptedControl::Fail( const Result& aResult )
{
    mState->GetLastCall().mFailure = aResult;
    return *this;
}

ScriptedControl& ScriptedControl::Do( std::function<void()> aAction )
{
    mState->GetLastCall().mActions.push_back( std::move( aAction ) );
    return *this;
}

ScriptedControl& ScriptedControl::ResultOfOpen( const Result& aResult )
{
    mState->mResultsOfOpen.push_back( aResult );
    return *this;
}

ScriptedControl& ScriptedControl::ResultOfClose( const Result& aResult )
{
    mState->mResultOfClose = aResult;
    return *this;
}

ScriptedControl& ScriptedControl::DoAtClose( std::function<void()> aAction )
{
    mState->mAtClose = std::move( aAction );
    return *this;
}

ScriptedControl& ScriptedControl::DoAtEnd( std::function<void()> aAction )
{
    mState->mAtEnd = std::move( aAction );
    return *this;
}

ScriptedControl& ScriptedControl::Attach( Device aDevice )
{
    mState->mDevice = std::move( aDevice );
    return *this;
}

const std::vector<std::vector<ScriptedControl::Command>>& ScriptedControl::GetCalls() const
{
    return mState->mCalls;
}

const std::vector<ScriptedControl::Opening>& ScriptedControl::GetOpenings() const
{
    return mState->mOpenings;
}

const std::vector<U3V::DCIConfiguration>& ScriptedControl::GetConfigurations() const
{
    return mState->mConfigurations;
}

unsigned int ScriptedControl::GetCloseCount() const
{
    return mState->mCloseCount;
}

unsigned int ScriptedControl::GetInterfaceCount()
{
    return gInterfaceCount;
}

bool ScriptedControl::IsScriptDone() const
{
    return mState->mExpected.empty();
}

} // namespace Scripted
} // namespace WdTransportLayerLib
