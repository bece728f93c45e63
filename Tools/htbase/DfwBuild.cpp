// dfw build.

#include "Tools/htbase/Console.h"
#include "Tools/htbase/DfwCommands.h"
#include "Tools/htbase/Failure.h"
#include "Tools/htbase/Files.h"
#include "Tools/htbase/MessageCollector.h"
#include "Tools/htbase/PayloadStream.h"
#include "Tools/htbase/Text.h"

#include "Libraries/HtBase/DfwPayload.h"
#include "Libraries/HtBase/Firmware/SRecordReader.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <functional>
#include <iterator>
#include <memory>
#include <optional>
#include <sstream>
#include <vector>

namespace HtBaseTool
{

using HtBaseLib::DfwPayloadWriter;
using HtBaseLib::SRecordChecks;
using QmUtilsLib::Result;
using Json = nlohmann::ordered_json;

namespace
{

enum class InputKind
{
    S_RECORDS,
    BINARY,
    WORD_HEX
};

struct Input
{
    InputKind mKind;
    std::string mPath;
    uint32_t mAddress = 0; // of BINARY
};

struct BuildOptions
{
    std::string mOutput;
    std::string mTarget;
    std::optional<std::string> mVersion; // empty: --version without a value
    std::vector<std::pair<InputKind, std::string>> mInputs;
    std::optional<std::string> mEnd;
    bool mReset = false;
    bool mNoVerify = false;
};

struct Target
{
    unsigned char mFirst;
    unsigned char mSecond;
    uint16_t mValue;
    bool mFirstFlag;
    bool mSecondFlag;
};

struct Version
{
    unsigned char mParts[3];
};

// The letters of the modes and the two flags that stand for them.
struct Mode
{
    const char* mLetter;
    bool mFirst;
    bool mSecond;
};

constexpr Mode MODES[] = {
    { "D", true, true },
    { "U", false, false },
    { "f", true, false },
    { "-", false, true },
};

// The parts between the separators; one more than there are separators.
std::vector<std::string> Split( const std::string& aText, char aSeparator )
{
    std::vector<std::string> lParts;
    std::istringstream lStream( aText + aSeparator );
    for ( std::string lPart; std::getline( lStream, lPart, aSeparator ); )
    {
        lParts.push_back( lPart );
    }
    return lParts;
}

uint32_t ParseUpTo( const std::string& aText, uint32_t aMax, const std::string& aWhat )
{
    const uint32_t lValue = ParseNumber( aText, aWhat );
    if ( lValue > aMax )
    {
        throw MakeUsageFailure( aWhat + " '" + aText + "' is greater than " +
                                std::to_string( aMax ) );
    }
    return lValue;
}

unsigned char ParseByte( const std::string& aText, const std::string& aWhat )
{
    return static_cast<unsigned char>( ParseUpTo( aText, UINT8_MAX, aWhat ) );
}

Target ParseTarget( const std::string& aText )
{
    const std::vector<std::string> lParts = Split( aText, ',' );
    if ( lParts.size() != 4 )
    {
        throw MakeUsageFailure( "target '" + aText + "' is not of the form A,B,VALUE,MODE" );
    }
    const auto* const lMode =
        std::find_if( std::begin( MODES ), std::end( MODES ),
                      [&]( const Mode& aMode ) { return lParts[3] == aMode.mLetter; } );
    if ( lMode == std::end( MODES ) )
    {
        throw MakeUsageFailure( "mode '" + lParts[3] + "' is none of D, U, f and -" );
    }
    return { ParseByte( lParts[0], "target byte" ), ParseByte( lParts[1], "target byte" ),
             static_cast<uint16_t>( ParseUpTo( lParts[2], UINT16_MAX, "target value" ) ),
             lMode->mFirst, lMode->mSecond };
}

Version ParseVersion( const std::string& aText )
{
    const std::vector<std::string> lParts = Split( aText, '.' );
    Version lVersion{};
    if ( lParts.size() != std::size( lVersion.mParts ) )
    {
        throw MakeUsageFailure( "version '" + aText + "' is not of the form X.Y.Z" );
    }
    std::transform( lParts.begin(), lParts.end(), std::begin( lVersion.mParts ),
                    []( const std::string& aPart ) { return ParseByte( aPart, "version part" ); } );
    return lVersion;
}

Input ParseInput( InputKind aKind, const std::string& aText )
{
    if ( aKind != InputKind::BINARY )
    {
        return { aKind, aText };
    }
    const size_t lAt = aText.rfind( '@' );
    if ( lAt == std::string::npos )
    {
        throw MakeUsageFailure( "binary file '" + aText + "' is not of the form FILE@ADDRESS" );
    }
    return { aKind, aText.substr( 0, lAt ), ParseNumber( aText.substr( lAt + 1 ), "address" ) };
}

// All inputs are judged before the first is read.
std::vector<Input> ParseInputs( const BuildOptions& aOptions )
{
    std::vector<Input> lInputs;
    for ( const auto& [lKind, lText] : aOptions.mInputs )
    {
        lInputs.push_back( ParseInput( lKind, lText ) );
    }
    for ( const Input& lInput : lInputs )
    {
        CheckInputFile( lInput.mPath );
    }
    return lInputs;
}

// Throws a Failure that names the first bad line of an S-record file.
void VerifySRecordFile( const std::string& aPath )
{
    const std::unique_ptr<std::FILE, decltype( &std::fclose )> lFile(
        std::fopen( aPath.c_str(), "re" ), &std::fclose );
    MessageCollector lMessages;
    if ( lFile != nullptr && HtBaseLib::CheckSRecords( lFile.get(), aPath.c_str(), lMessages ) )
    {
        return;
    }
    const int lError = errno;
    throw Failure( ExitStatus::REFUSED,
                   lMessages.GetRefusal().empty()
                       ? "cannot read file '" + aPath + "': " + GetSystemErrorText( lError )
                       : lMessages.GetRefusal() );
}

void VerifyInputs( const std::vector<Input>& aInputs )
{
    for ( const Input& lInput : aInputs )
    {
        if ( lInput.mKind == InputKind::S_RECORDS )
        {
            VerifySRecordFile( lInput.mPath );
        }
    }
}

bool Convert( DfwPayloadWriter& aWriter, const Input& aInput, SRecordChecks aChecks,
              MessageCollector& aMessages )
{
    switch ( aInput.mKind )
    {
    case InputKind::S_RECORDS:
        return aWriter.AddSRecordFile( aInput.mPath.c_str(), aMessages, aChecks );
    case InputKind::BINARY:
        return aWriter.AddBinaryFile( aInput.mPath.c_str(), aInput.mAddress, aMessages );
    case InputKind::WORD_HEX:
        break;
    }
    return aWriter.AddWordHexFile( aInput.mPath.c_str(), aMessages );
}

// What is to be said of the inputs, unless an S-record is refused: then that is all.
struct Remarks
{
    Json mWarnings = Json::array(); // of the report
    std::vector<std::string> mNotes;
};

void AddInput( DfwPayloadWriter& aWriter, const Input& aInput, SRecordChecks aChecks,
               Remarks& aRemarks )
{
    if ( aInput.mKind == InputKind::WORD_HEX )
    {
        const std::string lWarning = "the data records made of '" + aInput.mPath +
                                     "' hold words as they lie in memory, not the packed values";
        aRemarks.mWarnings.push_back( lWarning );
        aRemarks.mNotes.push_back( "warning: " + lWarning );
    }
    MessageCollector lMessages;
    const bool lIsConverted = Convert( aWriter, aInput, aChecks, lMessages );
    for ( const std::string& lWarning : lMessages.GetWarnings( aInput.mPath ) )
    {
        aRemarks.mNotes.push_back( lWarning );
    }
    if ( !lMessages.GetRefusal().empty() )
    {
        throw Failure( ExitStatus::REFUSED, lMessages.GetRefusal() );
    }
    if ( !lIsConverted )
    {
        throw Failure( ExitStatus::REFUSED,
                       "cannot convert file '" + aInput.mPath + "': " + lMessages.GetFailure() );
    }
}

struct Plan
{
    Target mTarget;
    Version mVersion;
    std::vector<Input> mInputs;
    std::optional<uint32_t> mEnd;
    bool mReset;
    SRecordChecks mChecks; // while S-records are converted
};

Plan MakePlan( const BuildOptions& aOptions )
{
    if ( !aOptions.mVersion )
    {
        throw MakeUsageFailure( "--version is required - see htbase dfw build --help" );
    }
    Plan lPlan{ ParseTarget( aOptions.mTarget ),
                ParseVersion( *aOptions.mVersion ),
                {},
                std::nullopt,
                aOptions.mReset,
                aOptions.mNoVerify ? SRecordChecks::NONE : SRecordChecks::ALL };
    if ( aOptions.mEnd )
    {
        lPlan.mEnd = ParseNumber( *aOptions.mEnd, "end value" );
    }
    lPlan.mInputs = ParseInputs( aOptions );
    return lPlan;
}

// The writer looks at none of its writes; the stream remembers.
void WriteRecords( DfwPayloadWriter& aWriter, const Plan& aPlan, Remarks& aRemarks )
{
    const Target& lTarget = aPlan.mTarget;
    aWriter.WriteTargetRecord( lTarget.mFirst, lTarget.mSecond, lTarget.mValue, lTarget.mFirstFlag,
                               lTarget.mSecondFlag );
    const auto& lVersion = aPlan.mVersion.mParts;
    aWriter.WriteVersionRecord( lVersion[0], lVersion[1], lVersion[2] );
    for ( const Input& lInput : aPlan.mInputs )
    {
        AddInput( aWriter, lInput, aPlan.mChecks, aRemarks );
    }
    if ( aPlan.mEnd )
    {
        aWriter.WriteEndRecord( *aPlan.mEnd );
    }
    if ( aPlan.mReset )
    {
        aWriter.WriteResetRecord();
    }
}

// Returns the size of the payload.
uint64_t WritePayload( Program& aProgram, const Plan& aPlan, const std::string& aPath,
                       Remarks& aRemarks )
{
    OutputFile lFile( aPath );
    // From here on there is a file to be removed; reading regular files comes to its end soon.
    aProgram.mInterruption.SetAction( [] {} );
    PayloadOutcome lOutcome;
    {
        DfwPayloadWriter lWriter( std::make_unique<PayloadStream>( lFile, lOutcome ) );
        WriteRecords( lWriter, aPlan, aRemarks );
    }
    if ( lOutcome.mFailure != nullptr )
    {
        std::rethrow_exception( lOutcome.mFailure );
    }
    if ( aProgram.mInterruption.IsRequested() )
    {
        throw Failure( "interrupted before '" + aPath + "' was complete", Result::ABORTED );
    }
    lFile.Commit();
    return lOutcome.mSize;
}

void Publish( Program& aProgram, const Remarks& aRemarks )
{
    aProgram.mReport["warnings"] = aRemarks.mWarnings;
    for ( const std::string& lNote : aRemarks.mNotes )
    {
        PrintNote( lNote );
    }
}

// S-records are checked while they are converted, and a payload that was begun is discarded. So
// whatever else fails in the meantime counts only when no S-record of any input is bad.
uint64_t WriteCheckedPayload( Program& aProgram, const Plan& aPlan, const std::string& aPath,
                              Remarks& aRemarks )
{
    try
    {
        return WritePayload( aProgram, aPlan, aPath, aRemarks );
    }
    catch ( const Failure& )
    {
        if ( aPlan.mChecks != SRecordChecks::NONE && !aProgram.mInterruption.IsRequested() )
        {
            VerifyInputs( aPlan.mInputs );
        }
        Publish( aProgram, aRemarks );
        throw;
    }
}

void Build( Program& aProgram, const BuildOptions& aOptions )
{
    if ( aOptions.mVersion && aOptions.mVersion->empty() )
    {
        PrintVersion();
        return;
    }
    if ( aOptions.mOutput.empty() || aOptions.mTarget.empty() )
    {
        throw MakeUsageFailure( "-o and --target are required - see htbase dfw build --help" );
    }
    Plan lPlan = MakePlan( aOptions );
    aProgram.mReport["warnings"] = Json::array();
    if ( lPlan.mChecks != SRecordChecks::NONE && IsWrittenDirectly( aOptions.mOutput ) )
    {
        VerifyInputs( lPlan.mInputs ); // what is written cannot be discarded
        lPlan.mChecks = SRecordChecks::NONE;
    }
    Remarks lRemarks;
    const uint64_t lSize = WriteCheckedPayload( aProgram, lPlan, aOptions.mOutput, lRemarks );
    Publish( aProgram, lRemarks );
    ReportPayload( aProgram, aOptions.mOutput, lSize );
}

// Inputs of all kinds are kept in the order in which they stand on the command line.
void AddInputOption( CLI::App& aCommand, const char* aName, const char* aType, InputKind aKind,
                     const std::shared_ptr<BuildOptions>& aOptions, const char* aDescription )
{
    aCommand
        .add_option_function<std::string>(
            aName,
            [aOptions, aKind]( const std::string& aText )
            { aOptions->mInputs.emplace_back( aKind, aText ); },
            aDescription )
        ->type_name( aType )
        ->trigger_on_parse();
}

// No option is required for CLI11, or --version alone would not tell the program's.
void AddRecordOptions( CLI::App& aCommand, BuildOptions& aOptions )
{
    aCommand
        .add_option(
            "-o,--output", aOptions.mOutput,
            "Write the payload to this file, which appears when it is complete (required)" )
        ->type_name( "FILE" );
    aCommand
        .add_option( "--target", aOptions.mTarget,
                     "Two bytes, a value of 16 bits, and the mode: D, U, f or - (required)" )
        ->type_name( "A,B,VALUE,MODE" );
    aCommand
        .add_option( "--version", aOptions.mVersion,
                     "Version of the firmware, three bytes "
                     "(required)" )
        ->expected( 0, 1 )
        ->type_name( "X.Y.Z" );
    CLI::Option* const lEnd =
        aCommand.add_option( "--end", aOptions.mEnd, "Close with an end record of this value" )
            ->type_name( "VALUE" );
    aCommand.add_flag( "--reset", aOptions.mReset, "Close with a reset record" )->excludes( lEnd );
}

} // namespace

void AddDfwBuild( CLI::App& aGroup, Program& aProgram )
{
    const auto lOptions = std::make_shared<BuildOptions>();
    CLI::App* const lCommand = AddCommand(
        aGroup, "build", "Build a payload of firmware images, which are taken in the order given",
        aProgram, [lOptions]( Program& aRun ) { Build( aRun, *lOptions ); } );
    AddRecordOptions( *lCommand, *lOptions );
    AddInputOption( *lCommand, "--srec", "FILE", InputKind::S_RECORDS, lOptions,
                    "Add the S3 records of an S-record file" );
    AddInputOption( *lCommand, "--bin", "FILE@ADDRESS", InputKind::BINARY, lOptions,
                    "Add a file as it is" );
    AddInputOption( *lCommand, "--hex", "FILE", InputKind::WORD_HEX, lOptions,
                    "Add lines of two or four hexadecimal digits, stored as words" );
    lCommand->add_flag( "--no-verify", lOptions->mNoVerify,
                        "Do not check lengths and checksums of S-records first" );
}

} // namespace HtBaseTool
