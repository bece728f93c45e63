// WdTransportLayerLib for tests: a control endpoint that plays a script.
#pragma once

#include <QmUtilsLib/Result.h>
#include <WdTransportLayerLib/U3V/DeviceControlInterface.h>
#include <WdUtilsLib/Scripted/Network.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace WdTransportLayerLib
{
namespace Scripted
{

using WdUtilsLib::Scripted::Bytes;

// ControlState is what a script keeps; see Control.cpp.
class ControlState;

// ScriptedControl is what all control interfaces talk to while it lives, one at a time. It expects
// calls of SendCommands in the order of its script and answers them; everything else it records.
//
// The script is strict: an unexpected call, another number of commands, different bytes, and an
// expected call that never came are reported when they are found, the latter by the destructor, to
// what WdUtilsLib::Scripted::SetFailureReporter set. One thread at a time.
//
// The commands are seen as the caller made them, so their request identifier is what the caller put
// there. A reply is stored as the real interface does it: cut to the record's room, whose length is
// then what was stored. Whether the interface is open plays no part for an expected call; a call
// that nothing expects is NOT_CONNECTED, and no mistake, where it is not.
class ScriptedControl
{
public:
    ScriptedControl();
    ~ScriptedControl();

    ScriptedControl( const ScriptedControl& ) = delete;
    ScriptedControl& operator=( const ScriptedControl& ) = delete;

    // The next call carries one command of these bytes; or several, of these bytes each; or any.
    ScriptedControl& Expect( const Bytes& aCommand );
    ScriptedControl& ExpectTogether( const std::vector<Bytes>& aCommands );
    ScriptedControl& ExpectAny();

    // Answers the first command of the last expected call that has no answer yet. aOutcome becomes
    // mResult of that command, and decides nothing of the call.
    ScriptedControl& Reply( const Bytes& aAcknowledge,
                            const QmUtilsLib::Result& aOutcome = QmUtilsLib::Result::OK );

    // Answers as an interface of somebody else's may: every byte is stored, whatever room the
    // record tells, and its length becomes aLength. All of it must be the caller's memory.
    ScriptedControl& ReplyWithoutBounds( const Bytes& aAcknowledge, unsigned int aLength );

    // The last expected call returns that result once its replies are stored; so does, in mResult,
    // the first command without a reply, whose length becomes 0.
    ScriptedControl& Fail( const QmUtilsLib::Result& aResult );

    // Something happens when the last expected call comes, on the calling thread.
    ScriptedControl& Do( std::function<void()> aAction );

    // The next Open that has not been told a result yet, or every Close from now on, returns that.
    // Without this both succeed.
    ScriptedControl& ResultOfOpen( const QmUtilsLib::Result& aResult );
    ScriptedControl& ResultOfClose( const QmUtilsLib::Result& aResult );

    // Something happens at the beginning of every Close, or of the end of every interface, from now
    // on, on the calling thread.
    ScriptedControl& DoAtClose( std::function<void()> aAction );
    ScriptedControl& DoAtEnd( std::function<void()> aAction );

    // Attach puts a device in place of a script: it gets every command that no script expects, and
    // returns its acknowledge; an empty one is a TIMEOUT.
    using Device = std::function<Bytes( const Bytes& aCommand )>;
    ScriptedControl& Attach( Device aDevice );

    // What the interfaces were asked for, in order.
    struct Command
    {
        Bytes mBytes;
        unsigned int mCapacity = 0;
        Bytes mRoom; // what lay in the room for the acknowledge before
    };
    struct Opening
    {
        std::string mPath;
        WdUtilsLib::U3V::U3VGUID mGUID;
        bool mMaster = false;
    };
    const std::vector<std::vector<Command>>& GetCalls() const; // of SendCommands
    const std::vector<Opening>& GetOpenings() const;
    const std::vector<U3V::DCIConfiguration>& GetConfigurations() const;
    unsigned int GetCloseCount() const;

    // Interfaces that exist now; those made before the script count too.
    static unsigned int GetInterfaceCount();

    // True when every expected call has come.
    bool IsScriptDone() const;

private:
    std::shared_ptr<ControlState> mState;
};

} // namespace Scripted
} // namespace WdTransportLayerLib
