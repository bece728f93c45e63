// gev read, gev write.

#include "Tools/htbase/Console.h"
#include "Tools/htbase/Failure.h"
#include "Tools/htbase/GevCommands.h"
#include "Tools/htbase/GevDevice.h"
#include "Tools/htbase/Text.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <memory>
#include <vector>

namespace HtBaseTool
{

using QmUtilsLib::Result;

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

void Report( Program& aProgram, const RegisterValue& aRegister )
{
    if ( !aProgram.mIsJson )
    {
        Print( FormatHex( aRegister.mAddress ) + "  " + FormatHex( aRegister.mValue ) + "  " +
               std::to_string( aRegister.mValue ) + "\n" );
        return;
    }
    aProgram.mReport["registers"].push_back(
        { { "address", aRegister.mAddress }, { "value", aRegister.mValue } } );
}

void BeginReport( Program& aProgram, const GevDevice& aDevice )
{
    aProgram.mReport["device"] = aDevice.GetName();
    aProgram.mReport["registers"] = nlohmann::ordered_json::array();
}

// ", 1 of 3 registers ..." where several were asked for.
std::string GetHowMany( size_t aDone, size_t aCount, const char* aWhat )
{
    return aCount == 1 ? std::string()
                       : ", " + std::to_string( aDone ) + " of " + std::to_string( aCount ) +
                             " registers were " + aWhat;
}

void ReadRegisters( Program& aProgram, const ReadOptions& aOptions )
{
    std::vector<uint32_t> lAddresses;
    std::transform( aOptions.mAddresses.begin(), aOptions.mAddresses.end(),
                    std::back_inserter( lAddresses ), ParseRegisterAddress );
    GevDevice lDevice( aProgram.mInterruption, aOptions.mTarget.GetHost(), aOptions.mTarget.mLink );
    BeginReport( aProgram, lDevice );
    size_t lDone = 0;
    for ( const uint32_t lAddress : lAddresses )
    {
        uint32_t lValue = 0;
        const Result lResult = lDevice.ReadRegister( lAddress, lValue );
        aProgram.mReport["statistics"] = lDevice.GetStatistics();
        if ( !lResult.IsOK() )
        {
            throw lDevice.MakeFailure( "read register " + FormatHex( lAddress ), lResult,
                                       GetHowMany( lDone, lAddresses.size(), "read" ) );
        }
        Report( aProgram, { lAddress, lValue } );
        ++lDone;
    }
}

void WriteAll( Program& aProgram, GevDevice& aDevice, const std::vector<RegisterValue>& aRegisters,
               bool aNoAck )
{
    size_t lDone = 0;
    for ( const RegisterValue& lRegister : aRegisters )
    {
        const Result lResult =
            aDevice.WriteRegister( lRegister.mAddress, lRegister.mValue, aNoAck );
        aProgram.mReport["statistics"] = aDevice.GetStatistics();
        if ( !lResult.IsOK() )
        {
            throw aDevice.MakeFailure( "write " + FormatHex( lRegister.mValue ) + " to register " +
                                           FormatHex( lRegister.mAddress ),
                                       lResult, GetHowMany( lDone, aRegisters.size(), "written" ) );
        }
        Report( aProgram, lRegister );
        ++lDone;
    }
}

void WriteRegisters( Program& aProgram, const WriteOptions& aOptions )
{
    std::vector<RegisterValue> lRegisters;
    std::transform( aOptions.mPairs.begin(), aOptions.mPairs.end(),
                    std::back_inserter( lRegisters ), ParseRegisterValue );
    // Who writes the privilege decides about control himself.
    const bool lWantsControl =
        !aOptions.mNoControl &&
        std::none_of( lRegisters.begin(), lRegisters.end(),
                      []( const RegisterValue& aRegister )
                      { return aRegister.mAddress == GevDevice::CONTROL_PRIVILEGE; } );
    GevDevice lDevice( aProgram.mInterruption, aOptions.mTarget.GetHost(), aOptions.mTarget.mLink );
    BeginReport( aProgram, lDevice );
    aProgram.mReport["acknowledged"] = !aOptions.mNoAck;
    ControlScope lControl( lDevice, lWantsControl, GetHowMany( 0, lRegisters.size(), "written" ) );
    WriteAll( aProgram, lDevice, lRegisters, aOptions.mNoAck );
    lControl.Release( "the registers were written" );
    aProgram.mReport["statistics"] = lDevice.GetStatistics();
}

} // namespace

void AddGevRead( CLI::App& aGroup, Program& aProgram )
{
    const auto lOptions = std::make_shared<ReadOptions>();
    CLI::App* const lCommand = AddCommand(
        aGroup, "read", "Read registers: a line of address, value and value per register", aProgram,
        [lOptions]( Program& aRun ) { ReadRegisters( aRun, *lOptions ); } );
    AddTarget( *lCommand, lOptions->mTarget );
    lCommand->add_option( "ADDRESS", lOptions->mAddresses, "Decimal or 0x, a multiple of 4" )
        ->type_name( "" )
        ->required();
}

void AddGevWrite( CLI::App& aGroup, Program& aProgram )
{
    const auto lOptions = std::make_shared<WriteOptions>();
    CLI::App* const lCommand =
        AddCommand( aGroup, "write", "Write registers, with control of the device taken meanwhile",
                    aProgram, [lOptions]( Program& aRun ) { WriteRegisters( aRun, *lOptions ); } );
    AddTarget( *lCommand, lOptions->mTarget );
    lCommand
        ->add_option( "ADDRESS=VALUE", lOptions->mPairs,
                      "Decimal or 0x, of 32 bits, in this order" )
        ->type_name( "" )
        ->required();
    lCommand->add_flag( "--no-ack", lOptions->mNoAck,
                        "Ask for no acknowledge: whether the device has written stays unknown" );
    lCommand->add_flag( "--no-control", lOptions->mNoControl,
                        "Leave control alone, as a write of 0x0A00 does" );
}

} // namespace HtBaseTool
