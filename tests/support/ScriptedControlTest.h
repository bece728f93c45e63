// The fixture of the tests of the USB3 Vision link: a scripted control interface, the log from its
// first record, a link, and the registers of a device that the link can be sized by.
#pragma once

#include "tests/support/GenCPPackets.h"
#include "tests/support/LogLines.h"
#include "tests/support/RegistersU3V.h"
#include "tests/support/TestLinkU3V.h"

#include <QmUtilsLib/Result.h>
#include <QmUtilsLib/Scripted/RecordingLogSink.h>
#include <WdTransportLayerLib/Scripted/Control.h>
#include <WdUtilsLib/U3V/U3VGUID.h>

#include <gtest/gtest.h>

#include <string>

namespace TestSupport
{

// A caller's buffer between guards; all bytes are FILL to begin with.
class GuardedBuffer
{
public:
    static constexpr uint8_t FILL = 0xA5;

    explicit GuardedBuffer( std::size_t aSize );

    uint8_t* GetData() { return mBytes.data() + GUARD; }

    // Expects the buffer to begin with aContents and everything else to be as it was.
    void ExpectContents( const Bytes& aContents ) const;
    void ExpectUntouched() const { ExpectContents( {} ); }

private:
    static constexpr std::size_t GUARD = 64;
    Bytes mBytes;
};

class ScriptedControlTest : public testing::Test
{
protected:
    static constexpr const char* PATH = "2-1.4";
    const WdUtilsLib::U3V::U3VGUID GUID{ "1AB200C0FFEE" };

    ScriptedControlTest() = default;
    ~ScriptedControlTest() override;

    // Opens the link.
    void Open( HtBaseLib::BaseCommandLinkU3V& aLink );
    void Open() { Open( mLink ); }

    // Opens the link, sizes it by a device that reports these lengths, and forgets what was logged;
    // the device still answers commands that no script expects.
    void OpenSized( uint32_t aMaxCommand, uint32_t aMaxAck );

    // Every command so far except the reads of the sizing.
    std::size_t GetCallCount() const { return mControl.GetCalls().size() - mCallsOfSizing; }
    // The last of all commands; there must be one.
    WdTransportLayerLib::Scripted::ScriptedControl::Command GetLastCommand() const;

    void ExpectLog( const Log& aExpected ) const { EXPECT_EQ( GetLines( mLog ), aExpected ); }

    // The log lines that a link may write.
    static std::string SizeLine( unsigned int aSize, unsigned int aLimit );
    static std::string StatusLine( const std::string& aText );

    QmUtilsLib::Scripted::RecordingLogSink mLog;
    WdTransportLayerLib::Scripted::ScriptedControl mControl;
    RegistersU3V mDevice;
    TestLinkU3V mLink;

private:
    std::size_t mCallsOfSizing = 0;
};

// Expects code, OS code and description.
void ExpectResult( const QmUtilsLib::Result& aResult, unsigned int aCode, unsigned int aOSCode = 0,
                   const std::string& aDescription = "" );

} // namespace TestSupport
