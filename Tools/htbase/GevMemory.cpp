// gev dump, gev load.

#include "Tools/htbase/GevCommands.h"
#include "Tools/htbase/GevDevice.h"
#include "Tools/htbase/Maker.h"
#include "Tools/htbase/Memory.h"

#include <CLI/CLI.hpp>

#include <memory>

namespace HtBaseTool
{

namespace
{

struct GevDumpOptions
{
    GevTarget mTarget;
    MakerOptions mMaker;
    DumpOptions mDump;
};

struct GevLoadOptions
{
    GevTarget mTarget;
    MakerOptions mMaker;
    LoadOptions mLoad;
    bool mNoControl = false;
};

void Dump( Program& aProgram, const GevDumpOptions& aOptions )
{
    const Range lRange = ParseRange( aOptions.mDump, AddressBits::GEV );
    aOptions.mMaker.Apply();
    GevDevice lDevice( aProgram.mInterruption, aOptions.mTarget.GetHost(), aOptions.mTarget.mLink );
    DumpRange( aProgram, lDevice, lRange, aOptions.mDump,
               [&] { return GetPieceSizes( lDevice, aOptions.mMaker ); } );
}

void Load( Program& aProgram, const GevLoadOptions& aOptions )
{
    aOptions.mMaker.Apply();
    Image lImage = ReadImage( aOptions.mLoad, AddressBits::GEV );
    GevDevice lDevice( aProgram.mInterruption, aOptions.mTarget.GetHost(), aOptions.mTarget.mLink );
    BeginLoad( aProgram, lDevice, lImage, aOptions.mLoad );
    const StatisticsAtEnd lStatistics( aProgram, lDevice );
    const uint32_t lPieceSize = GetPieceSizes( lDevice, aOptions.mMaker ).mWrite;
    ControlScope lControl( lDevice, !aOptions.mNoControl, lImage.GetHowMany( 0 ) );
    LoadImage( aProgram, lDevice, lImage, lPieceSize );
    lControl.Release( "all bytes reached the device" );
}

} // namespace

void AddGevDump( CLI::App& aGroup, Program& aProgram )
{
    const auto lOptions = std::make_shared<GevDumpOptions>();
    CLI::App* const lCommand =
        AddCommand( aGroup, "dump",
                    "Read memory of any length and alignment: lines of address, bytes and text, or "
                    "with -o the bytes themselves",
                    aProgram, [lOptions]( Program& aRun ) { Dump( aRun, *lOptions ); } );
    AddTarget( *lCommand, lOptions->mTarget );
    AddMakerOptions( *lCommand, lOptions->mMaker );
    AddDumpOptions( *lCommand, lOptions->mDump );
}

void AddGevLoad( CLI::App& aGroup, Program& aProgram )
{
    const auto lOptions = std::make_shared<GevLoadOptions>();
    CLI::App* const lCommand =
        AddCommand( aGroup, "load",
                    "Write a file to memory of any alignment, while holding control of the device",
                    aProgram, [lOptions]( Program& aRun ) { Load( aRun, *lOptions ); } );
    AddTarget( *lCommand, lOptions->mTarget );
    AddMakerOptions( *lCommand, lOptions->mMaker );
    AddLoadOptions( *lCommand, lOptions->mLoad );
    lCommand->add_flag( "--no-control", lOptions->mNoControl, "Do not take or release control" );
}

} // namespace HtBaseTool
