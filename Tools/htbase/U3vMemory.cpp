// u3v read, u3v write, u3v dump, u3v load.

#include "Tools/htbase/Memory.h"
#include "Tools/htbase/Registers.h"
#include "Tools/htbase/U3vCommands.h"
#include "Tools/htbase/U3vDevice.h"

#include <CLI/CLI.hpp>

#include <memory>
#include <vector>

namespace HtBaseTool
{

namespace
{

struct RegisterOptions
{
    U3vTarget mTarget;
    std::vector<std::string> mTexts;
};

struct U3vDumpOptions
{
    U3vTarget mTarget;
    DumpOptions mDump;
};

struct U3vLoadOptions
{
    U3vTarget mTarget;
    LoadOptions mLoad;
};

void Read( Program& aProgram, const RegisterOptions& aOptions )
{
    const std::vector<uint64_t> lAddresses =
        ParseRegisterAddresses( aOptions.mTexts, AddressBits::U3V );
    U3vDevice lDevice( aProgram.mInterruption, aOptions.mTarget, false );
    BeginRegisters( aProgram, lDevice );
    ReadRegisters( aProgram, lDevice, lAddresses );
}

void Write( Program& aProgram, const RegisterOptions& aOptions )
{
    const std::vector<RegisterValue> lRegisters =
        ParseRegisterPairs( aOptions.mTexts, AddressBits::U3V );
    U3vDevice lDevice( aProgram.mInterruption, aOptions.mTarget, true );
    BeginRegisters( aProgram, lDevice );
    WriteRegisters( aProgram, lDevice, lRegisters,
                    [&lDevice]( const RegisterValue& aRegister )
                    { return lDevice.WriteRegister( aRegister.mAddress, aRegister.mValue ); } );
}

void Dump( Program& aProgram, const U3vDumpOptions& aOptions )
{
    const Range lRange = ParseRange( aOptions.mDump, AddressBits::U3V );
    U3vDevice lDevice( aProgram.mInterruption, aOptions.mTarget, false );
    DumpRange( aProgram, lDevice, lRange, aOptions.mDump, [&] { return lDevice.FitPieces(); } );
}

void Load( Program& aProgram, const U3vLoadOptions& aOptions )
{
    Image lImage = ReadImage( aOptions.mLoad, AddressBits::U3V );
    U3vDevice lDevice( aProgram.mInterruption, aOptions.mTarget, true );
    BeginLoad( aProgram, lDevice, lImage, aOptions.mLoad );
    const StatisticsAtEnd lStatistics( aProgram, lDevice );
    const uint32_t lPieceSize = lDevice.FitPieces().mWrite;
    LoadImage( aProgram, lDevice, lImage, lPieceSize );
}

} // namespace

void AddU3vRead( CLI::App& aGroup, Program& aProgram )
{
    const auto lOptions = std::make_shared<RegisterOptions>();
    CLI::App* const lCommand = AddCommand(
        aGroup, "read", "Read registers: a line of address, value and value per register", aProgram,
        [lOptions]( Program& aRun ) { Read( aRun, *lOptions ); } );
    AddTarget( *lCommand, lOptions->mTarget );
    AddRegisterAddresses( *lCommand, lOptions->mTexts );
}

void AddU3vWrite( CLI::App& aGroup, Program& aProgram )
{
    const auto lOptions = std::make_shared<RegisterOptions>();
    CLI::App* const lCommand =
        AddCommand( aGroup, "write", "Write registers", aProgram,
                    [lOptions]( Program& aRun ) { Write( aRun, *lOptions ); } );
    AddTarget( *lCommand, lOptions->mTarget );
    AddRegisterPairs( *lCommand, lOptions->mTexts );
}

void AddU3vDump( CLI::App& aGroup, Program& aProgram )
{
    const auto lOptions = std::make_shared<U3vDumpOptions>();
    CLI::App* const lCommand =
        AddCommand( aGroup, "dump",
                    "Read memory of any length and alignment: lines of address, bytes and text, or "
                    "with -o the bytes themselves",
                    aProgram, [lOptions]( Program& aRun ) { Dump( aRun, *lOptions ); } );
    AddTarget( *lCommand, lOptions->mTarget );
    AddDumpOptions( *lCommand, lOptions->mDump );
}

void AddU3vLoad( CLI::App& aGroup, Program& aProgram )
{
    const auto lOptions = std::make_shared<U3vLoadOptions>();
    CLI::App* const lCommand =
        AddCommand( aGroup, "load", "Write a file to memory of any alignment", aProgram,
                    [lOptions]( Program& aRun ) { Load( aRun, *lOptions ); } );
    AddTarget( *lCommand, lOptions->mTarget );
    AddLoadOptions( *lCommand, lOptions->mLoad );
}

} // namespace HtBaseTool
