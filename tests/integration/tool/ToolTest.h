// The htbase program as a child process, and a virtual device for it.
#pragma once

#include "tests/support/ChildProcess.h"
#include "tests/support/LoopbackDevice.h"
#include "tests/support/TemporaryDirectory.h"

#include <nlohmann/json.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace TestSupport
{

using Arguments = std::vector<std::string>;

// The command line of the program.
Arguments MakeToolCommand( const Arguments& aArguments );

// The arguments, with a time-out so long that a slow machine causes no repeated command, unless
// they have one of their own.
Arguments MakePatient( const Arguments& aArguments );

// Runs the program to its end; 20 s at most.
Outcome RunTool( const Arguments& aArguments, const ChildProcess::Options& aOptions = {} );

// What --json printed: one value and nothing else. Null, and the test failed, when it is not that.
nlohmann::json ParseReport( const Outcome& aOutcome );

// Expects that aError is one line, "htbase: ...", and nothing behind it.
void ExpectOneSentence( const std::string& aError );

// aCount bytes that look like chance and are always the same.
std::string MakeBytes( size_t aCount );

// A command as the device got it, taken apart by hand.
struct SeenCommand
{
    uint16_t mCommand = 0;
    bool mWantsAck = false;
    uint32_t mAddress = 0;
    uint32_t mValue = 0;  // of WRITEREG; of READMEM the count
    size_t mDataSize = 0; // of WRITEMEM
    Simulators::Endpoint mFrom;
};

bool operator==( const SeenCommand& aA, const SeenCommand& aB );

// A virtual device and the program's commands on it.
class ToolTest : public testing::Test
{
protected:
    static constexpr uint32_t MEMORY = 0x00100000;

    // Serves a device of this configuration; otherwise the first use serves a plain one.
    void Serve( const Simulators::ConfigurationGEV& aConfiguration,
                const Simulators::DeviceServer::Options& aOptions = {} );
    LoopbackDevice& GetDevice();

    // "127.0.0.1:40000".
    std::string GetTarget();

    // Runs `gev COMMAND TARGET ARGUMENT...` with a long time-out.
    Outcome RunGev( const std::string& aCommand, const Arguments& aArguments,
                    const ChildProcess::Options& aOptions = {} );
    Arguments MakeGevCommand( const std::string& aCommand, const Arguments& aArguments );

    // These run while the device handles no command.
    uint32_t ReadWord( uint32_t aAddress );
    void WriteWord( uint32_t aAddress, uint32_t aValue );
    std::string GetMemory( uint32_t aAddress, size_t aSize );
    void SetMemory( uint32_t aAddress, const std::string& aBytes ); // whole words
    bool IsControlHeld();
    void SetSilent( uint32_t aAddress, bool aIsSilent = true );
    std::vector<SeenCommand> GetCommands();
    std::vector<SeenCommand> GetCommands( uint16_t aCommand );

    // Runs aAction when the device gets the first command from now on with that code and address,
    // right before it does, on a thread of the device's. The one before it is forgotten.
    void OnCommand( uint16_t aCommand, uint32_t aAddress,
                    const std::function<void( LoopbackDevice& )>& aAction );

    // Waits until the device has got a command with that code and address. Fails the test when it
    // does not in ten seconds.
    void WaitForCommand( uint16_t aCommand, uint32_t aAddress );

private:
    std::unique_ptr<LoopbackDevice> mDevice;
};

} // namespace TestSupport
