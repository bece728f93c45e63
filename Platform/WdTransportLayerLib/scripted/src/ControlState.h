// What a script and the control interfaces that talk to it share.
#pragma once

#include <WdTransportLayerLib/Scripted/Control.h>

#include <deque>
#include <optional>

namespace WdTransportLayerLib
{
namespace Scripted
{

class ControlState
{
public:
    struct ExpectedReply
    {
        Bytes mBytes; // none: there is no reply
        QmUtilsLib::Result mOutcome = QmUtilsLib::Result::OK;
        std::optional<unsigned int> mLength; // there: stored whole, whatever the room, and told
    };
    struct ExpectedCall
    {
        std::optional<std::vector<Bytes>> mCommands; // empty: any
        std::vector<ExpectedReply> mReplies;
        std::optional<QmUtilsLib::Result> mFailure;
        std::vector<std::function<void()>> mActions;
    };

    // The script that interfaces talk to now, or null.
    static std::shared_ptr<ControlState> GetCurrent();
    static void SetCurrent( std::shared_ptr<ControlState> aState );

    // Counts the interfaces that exist.
    static void Join();
    static void Leave();

    QmUtilsLib::Result SendCommands( bool aIsOpened, U3V::DCI_COMMAND* aCommands,
                                     unsigned int aCount );

    ExpectedCall& GetLastCall();

    std::deque<ExpectedCall> mExpected;
    std::deque<QmUtilsLib::Result> mResultsOfOpen;
    QmUtilsLib::Result mResultOfClose = QmUtilsLib::Result::OK;
    std::function<void()> mAtClose;
    std::function<void()> mAtEnd;
    ScriptedControl::Device mDevice;
    std::vector<std::vector<ScriptedControl::Command>> mCalls;
    std::vector<ScriptedControl::Opening> mOpenings;
    std::vector<U3V::DCIConfiguration> mConfigurations;
    unsigned int mCloseCount = 0;

private:
    void Record( const U3V::DCI_COMMAND* aCommands, unsigned int aCount );
};

} // namespace Scripted
} // namespace WdTransportLayerLib
