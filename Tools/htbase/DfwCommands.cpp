// dfw id and dfw reset, and what the commands on firmware payloads share.

#include "Tools/htbase/DfwCommands.h"

#include "Tools/htbase/Console.h"
#include "Tools/htbase/Failure.h"
#include "Tools/htbase/Files.h"
#include "Tools/htbase/ReaderOutput.h"
#include "Tools/htbase/Text.h"

#include "Libraries/HtBase/Firmware/PayloadReader.h"
#include "Libraries/HtBase/IoStream.h"

#include <HtDfwPayload.h>

#include <CLI/CLI.hpp>

#include <functional>
#include <memory>

namespace HtBaseTool
{

using HtBaseLib::IoStreamFile;
using HtBaseLib::PayloadReader;

namespace
{

constexpr size_t MAX_TEXT = 255; // bytes; the length byte tells no more

// A target record of 8 bytes, a version record of 5 and an identification record of 257 at most,
// and enough over that a payload that was cut off can be told.
constexpr unsigned int BUFFER_SIZE = 512;

struct SmallOptions
{
    std::string mPayload;
    std::string mText;
    std::string mOutput;
};

// Builds a small payload into memory.
using Builder = std::function<HtResult( unsigned char*, unsigned int, unsigned int& )>;

Failure MakeRefusal( const std::string& aSentence )
{
    return Failure( ExitStatus::REFUSED, aSentence );
}

// The builders leave out what they do not find, and say nothing.
void CheckHead( const std::string& aPath )
{
    CheckInputFile( aPath );
    IoStreamFile lStream;
    const int lError = lStream.Open( aPath.c_str(), "rb" );
    if ( lError != 0 )
    {
        throw MakeRefusal( "cannot read file '" + aPath + "': " + GetSystemErrorText( lError ) );
    }
    PayloadReader lPayload( lStream );
    unsigned char lBytes[3] = {};
    uint16_t lValue = 0;
    bool lFlags[2] = {};
    if ( !lPayload.ReadTargetRecord( lBytes[0], lBytes[1], lValue, lFlags[0], lFlags[1] ) )
    {
        throw MakeRefusal( "payload '" + aPath + "' has no target record that can be read" );
    }
    if ( !lPayload.ReadVersionRecord( lBytes[0], lBytes[1], lBytes[2] ) )
    {
        throw MakeRefusal( "payload '" + aPath + "' has no version record that can be read" );
    }
}

void BuildSmall( Program& aProgram, const SmallOptions& aOptions, const Builder& aBuild )
{
    CheckHead( aOptions.mPayload );
    unsigned char lBuffer[BUFFER_SIZE] = {};
    unsigned int lSize = 0;
    ReaderOutput lOutput( aOptions.mPayload );
    (void)aBuild( lBuffer, BUFFER_SIZE, lSize ); // always OK
    const std::string lMessage = lOutput.Finish();
    if ( !lMessage.empty() )
    {
        throw MakeRefusal( lMessage );
    }
    if ( lSize >= BUFFER_SIZE )
    {
        throw MakeRefusal( "the payload made of '" + aOptions.mPayload + "' is cut off after " +
                           FormatCount( lSize, "byte" ) );
    }
    OutputFile lFile( aOptions.mOutput );
    lFile.Write( lBuffer, lSize );
    lFile.Commit();
    ReportPayload( aProgram, aOptions.mOutput, lSize );
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
                [&]( unsigned char* aBuffer, unsigned int aSize, unsigned int& aOutSize )
                {
                    return HtDfwPayload::GetDeviceIdRecord( aOptions.mPayload.c_str(),
                                                            aOptions.mText.c_str(), aBuffer, aSize,
                                                            aOutSize );
                } );
}

void BuildReset( Program& aProgram, const SmallOptions& aOptions )
{
    aProgram.mReport["payload"] = aOptions.mPayload;
    BuildSmall( aProgram, aOptions,
                [&]( unsigned char* aBuffer, unsigned int aSize, unsigned int& aOutSize ) {
                    return HtDfwPayload::GetResetRecord( aOptions.mPayload.c_str(), aBuffer, aSize,
                                                         aOutSize );
                } );
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
                    "Build the payload that tells a device its name, for the target and version "
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
