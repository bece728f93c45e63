// gev read, gev write.

#include "Tools/htbase/GevCommands.h"
#include "Tools/htbase/GevDevice.h"
#include "Tools/htbase/Registers.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <memory>
#include <vector>

namespace HtBaseTool
{

namespace
{

struct ReadOptions
{
    GevTarget mTarget;
    std::vector<std::string> mAddresses;
};

struct WriteOptions
{
    GevTarget mTarget;
    std::vector<std::string> mPairs;
    bool mNoAck = false;
    bool mNoControl = false;
};

void Read( Program& aProgram, const ReadOptions& aOptions )
{
    const std::vector<uint64_t> lAddresses =
        ParseRegisterAddresses( aOptions.mAddresses, AddressBits::GEV );
    GevDevice lDevice( aProgram.mInterruption, aOptions.mTarget.GetHost(), aOptions.mTarget.mLink );
    BeginRegisters( aProgram, lDevice );
    ReadRegisters( aProgram, lDevice, lAddresses );
}

void Write( Program& aProgram, const WriteOptions& aOptions )
{
    const std::vector<RegisterValue> lRegisters =
        ParseRegisterPairs( aOptions.mPairs, AddressBits::GEV );
    // A user who writes the privilege register controls the device explicitly.
    const bool lWantsControl =
        !aOptions.mNoControl &&
        std::none_of( lRegisters.begin(), lRegisters.end(),
                      []( const RegisterValue& aRegister )
                      { return aRegister.mAddress == GevDevice::CONTROL_PRIVILEGE; } );
    GevDevice lDevice( aProgram.mInterruption, aOptions.mTarget.GetHost(), aOptions.mTarget.mLink );
    BeginRegisters( aProgram, lDevice );
    aProgram.mReport["acknowledged"] = !aOptions.mNoAck;
    ControlScope lControl( lDevice, lWantsControl, GetNoneWritten( lRegisters.size() ) );
    WriteRegisters( aProgram, lDevice, lRegisters,
                    [&]( const RegisterValue& aRegister ) {
                        return lDevice.WriteRegister( aRegister.mAddress, aRegister.mValue,
                                                      aOptions.mNoAck );
                    } );
    lControl.Release( "the registers were written" );
    aProgram.mReport["statistics"] = lDevice.GetStatistics();
}

} // namespace

void AddGevRead( CLI::App& aGroup, Program& aProgram )
{
    const auto lOptions = std::make_shared<ReadOptions>();
    CLI::App* const lCommand = AddCommand(
        aGroup, "read", "Read registers: a line of address, value and value per register", aProgram,
        [lOptions]( Program& aRun ) { Read( aRun, *lOptions ); } );
    AddTarget( *lCommand, lOptions->mTarget );
    AddRegisterAddresses( *lCommand, lOptions->mAddresses );
}

void AddGevWrite( CLI::App& aGroup, Program& aProgram )
{
    const auto lOptions = std::make_shared<WriteOptions>();
    CLI::App* const lCommand =
        AddCommand( aGroup, "write", "Write registers, while holding control of the device",
                    aProgram, [lOptions]( Program& aRun ) { Write( aRun, *lOptions ); } );
    AddTarget( *lCommand, lOptions->mTarget );
    AddRegisterPairs( *lCommand, lOptions->mPairs );
    lCommand->add_flag(
        "--no-ack", lOptions->mNoAck,
        "Ask for no acknowledge; whether the device has written then remains unknown" );
    lCommand->add_flag( "--no-control", lOptions->mNoControl,
                        "Do not take or release control; a write to 0x0A00 implies this" );
}

} // namespace HtBaseTool
