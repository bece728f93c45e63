// dfw id and dfw reset, and what the commands on firmware payloads share.

#include "Tools/htbase/DfwCommands.h"

#include "Tools/htbase/Console.h"
#include "Tools/htbase/Failure.h"
#include "Tools/htbase/Files.h"
#include "Tools/htbase/Text.h"

#include "Libraries/HtBase/DfwPayload.h"
#include "Libraries/HtBase/Firmware/PayloadReader.h"

#include <CLI/CLI.hpp>

#include <functional>
#include <memory>

namespace HtBaseTool
{

using HtBaseLib::DfwPayloadWriter;
using HtBaseLib::IoStreamFile;
using HtBaseLib::IoStreamRaw;
using HtBaseLib::PayloadReader;

namespace
{

constexpr size_t MAX_TEXT = 255; // bytes; the length byte holds no greater number

// A target record of 8 bytes, a version record of 5 and an identification record of 257 at most.
constexpr unsigned int BUFFER_SIZE = 512;

struct SmallOptions
{
    std::string mPayload;
    std::string mText;
    std::string mOutput;
};

// Writes the record that makes a small payload what it is.
using AddRecord = std::function<void( DfwPayloadWriter& )>;

Failure MakeRefusal( const std::string& aSentence )
{
    return Failure( ExitStatus::REFUSED, aSentence );
}

void OpenPayload( IoStreamFile& aStream, const std::string& aPath )
{
    CheckInputFile( aPath );
    const int lError = aStream.Open( aPath.c_str(), "rb" );
    if ( lError != 0 )
    {
        throw MakeRefusal( "cannot read file '" + aPath + "': " + GetSystemErrorText( lError ) );
    }
}

// The library's own builders leave out what they do not find, and report a file that they cannot
// open on standard output.
void CopyHead( DfwPayloadWriter& aWriter, const std::string& aPath )
{
    IoStreamFile lStream;
    OpenPayload( lStream, aPath );
    PayloadReader lSource( lStream );
    if ( !aWriter.CopyTargetRecord( lSource ) )
    {
        throw MakeRefusal( "payload '" + aPath + "' has no target record that can be read" );
    }
    if ( !aWriter.CopyVersionRecord( lSource ) )
    {
        throw MakeRefusal( "payload '" + aPath + "' has no version record that can be read" );
    }
}

void BuildSmall( Program& aProgram, const SmallOptions& aOptions, const AddRecord& aAddRecord )
{
    unsigned char lBuffer[BUFFER_SIZE] = {};
    DfwPayloadWriter lWriter( std::make_unique<IoStreamRaw>( lBuffer, BUFFER_SIZE ) );
    CopyHead( lWriter, aOptions.mPayload );
    aAddRecord( lWriter );
    OutputFile lFile( aOptions.mOutput );
    lFile.Write( lBuffer, lWriter.GetSize() );
    lFile.Commit();
    ReportPayload( aProgram, aOptions.mOutput, lWriter.GetSize() );
}

void BuildId( Program& aProgram, const SmallOptions& aOptions )
{
    const size_t lLength = aOptions.mText.size();
    if ( lLength == 0 || lLength > MAX_TEXT )
    {
        throw MakeUsageFailure( "an identification has 1 to 255 bytes, not " +
                                std::to_string( lLength ) );
    }
    aProgram.mReport["payload"] = aOptions.mPayload;
    aProgram.mReport["text"] = aOptions.mText;
    BuildSmall( aProgram, aOptions,
                [&]( DfwPayloadWriter& aWriter ) {
                    aWriter.WriteIdRecord( aOptions.mText.c_str(),
                                           static_cast<unsigned int>( lLength ) );
                } );
}

void BuildReset( Program& aProgram, const SmallOptions& aOptions )
{
    aProgram.mReport["payload"] = aOptions.mPayload;
    BuildSmall( aProgram, aOptions,
                []( DfwPayloadWriter& aWriter ) { aWriter.WriteResetRecord(); } );
}

void AddPayload( CLI::App& aCommand, SmallOptions& aOptions )
{
    aCommand.add_option( "PAYLOAD", aOptions.mPayload, "A payload with target and version" )
        ->type_name( "" )
        ->required();
}

void AddOutput( CLI::App& aCommand, SmallOptions& aOptions )
{
    aCommand
        .add_option( "-o,--output", aOptions.mOutput,
                     "Write the payload to this file, which appears when it is complete" )
        ->type_name( "FILE" )
        ->required();
}

void AddDfwId( CLI::App& aGroup, Program& aProgram )
{
    const auto lOptions = std::make_shared<SmallOptions>();
    CLI::App* const lCommand =
        AddCommand( aGroup, "id",
                    "Build the payload that gives a device its name, for the target and version "
                    "of another payload",
                    aProgram, [lOptions]( Program& aRun ) { BuildId( aRun, *lOptions ); } );
    AddPayload( *lCommand, *lOptions );
    lCommand->add_option( "TEXT", lOptions->mText, "The name, 1 to 255 bytes" )
        ->type_name( "" )
        ->required();
    AddOutput( *lCommand, *lOptions );
}

void AddDfwReset( CLI::App& aGroup, Program& aProgram )
{
    const auto lOptions = std::make_shared<SmallOptions>();
    CLI::App* const lCommand =
        AddCommand( aGroup, "reset",
                    "Build the payload that resets a device, for the target and version of "
                    "another payload",
                    aProgram, [lOptions]( Program& aRun ) { BuildReset( aRun, *lOptions ); } );
    AddPayload( *lCommand, *lOptions );
    AddOutput( *lCommand, *lOptions );
}

} // namespace

void ReportPayload( Program& aProgram, const std::string& aPath, uint64_t aSize )
{
    aProgram.mReport["file"] = aPath;
    aProgram.mReport["bytes"] = aSize;
    if ( !aProgram.mIsJson )
    {
        PrintNote( "wrote " + FormatCount( aSize, "byte" ) + " to '" + aPath + "'" );
    }
}

void AddDfwCommands( CLI::App& aApp, Program& aProgram )
{
    CLI::App* const lGroup = AddGroup( aApp, "dfw", "Firmware payloads" );
    AddDfwBuild( *lGroup, aProgram );
    AddDfwShow( *lGroup, aProgram );
    AddDfwId( *lGroup, aProgram );
    AddDfwReset( *lGroup, aProgram );
}

} // namespace HtBaseTool
