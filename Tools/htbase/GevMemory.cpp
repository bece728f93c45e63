// gev dump, gev load.

#include "Tools/htbase/Console.h"
#include "Tools/htbase/Failure.h"
#include "Tools/htbase/Files.h"
#include "Tools/htbase/GevCommands.h"
#include "Tools/htbase/GevDevice.h"
#include "Tools/htbase/HexDump.h"
#include "Tools/htbase/Maker.h"
#include "Tools/htbase/Progress.h"
#include "Tools/htbase/Text.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace HtBaseTool
{

using QmUtilsLib::Result;
using Json = nlohmann::ordered_json;

namespace
{

constexpr uint64_t ADDRESSES = uint64_t{ 1 } << 32;
constexpr uint32_t WORD = 4;

constexpr const char* REACHED = "reached the device";

struct DumpOptions
{
    GevTarget mTarget;
    std::string mAddress;
    std::string mLength;
    std::optional<std::string> mPath;
    MakerOptions mMaker;
};

struct LoadOptions
{
    GevTarget mTarget;
    std::string mAddress;
    std::string mPath;
    bool mNoControl = false;
    MakerOptions mMaker;
};

// Bytes of the device: the range that was asked for, and the whole words that hold it.
class Range
{
public:
    Range( uint32_t aAddress, uint64_t aLength )
        : mBegin( aAddress )
        , mEnd( aAddress + aLength )
    {
    }

    uint64_t GetLength() const { return mEnd - mBegin; }
    uint64_t GetFirstWord() const { return mBegin - mBegin % WORD; }
    uint64_t GetLastWordEnd() const { return ( mEnd + WORD - 1 ) / WORD * WORD; }
    bool IsHeadPartial() const { return GetFirstWord() != mBegin; }
    bool IsTailPartial() const { return GetLastWordEnd() != mEnd; }

    // How many bytes of the range lie in front of an address.
    uint64_t CountBefore( uint64_t aAddress ) const
    {
        return std::clamp( aAddress, mBegin, mEnd ) - mBegin;
    }

    uint32_t GetAddress() const { return static_cast<uint32_t>( mBegin ); } // of 32 bits

private:
    uint64_t mBegin;
    uint64_t mEnd;
};

// The next piece from aAddress on, of whole words.
uint32_t GetPieceSize( const Range& aRange, uint64_t aAddress, uint32_t aMax )
{
    return static_cast<uint32_t>( std::min<uint64_t>( aMax, aRange.GetLastWordEnd() - aAddress ) );
}

Range ParseRange( const std::string& aAddress, const std::string& aLength )
{
    const uint32_t lAddress = ParseNumber( aAddress, "address" );
    const uint32_t lLength = ParseNumber( aLength, "length" );
    if ( lLength == 0 )
    {
        throw MakeUsageFailure( "length 0 leaves nothing to dump" );
    }
    if ( lAddress + uint64_t{ lLength } > ADDRESSES )
    {
        throw MakeUsageFailure( "address " + FormatHex( lAddress ) + " and length " +
                                std::to_string( lLength ) + " together exceed 32-bit addresses" );
    }
    return Range( lAddress, lLength );
}

void BeginReport( Program& aProgram, const GevDevice& aDevice, const Range& aRange )
{
    aProgram.mReport["device"] = aDevice.GetName();
    aProgram.mReport["address"] = aRange.GetAddress();
    aProgram.mReport["length"] = aRange.GetLength();
}

// The statistics come last, and also when the transfer failed.
class StatisticsAtEnd
{
public:
    StatisticsAtEnd( Program& aProgram, const GevDevice& aDevice )
        : mProgram( aProgram )
        , mDevice( aDevice )
    {
    }
    ~StatisticsAtEnd()
    {
        mProgram.mReport["statistics"] = mDevice.GetStatistics();
        if ( !mProgram.mIsJson )
        {
            PrintNote( mDevice.GetStatisticsText() );
        }
    }
    StatisticsAtEnd( const StatisticsAtEnd& ) = delete;
    StatisticsAtEnd& operator=( const StatisticsAtEnd& ) = delete;

private:
    Program& mProgram;
    const GevDevice& mDevice;
};

// Where the bytes of a dump go, in order.
using Sink = std::function<void( const uint8_t* aData, size_t aSize )>;

// ", 512 of 1024 bytes ...".
std::string GetHowMany( uint64_t aDone, const Range& aRange, const char* aWhat )
{
    return ", " + std::to_string( aDone ) + " of " + FormatCount( aRange.GetLength(), "byte" ) +
           " " + aWhat;
}

// Reads whole words and hands on what belongs to the range.
void ReadRange( GevDevice& aDevice, const Range& aRange, uint32_t aPieceSize, const Sink& aSink )
{
    Progress lProgress( aRange.GetLength() );
    std::vector<uint8_t> lPiece( aPieceSize );
    for ( uint64_t lAddress = aRange.GetFirstWord(); lAddress < aRange.GetLastWordEnd(); )
    {
        const uint32_t lSize = GetPieceSize( aRange, lAddress, aPieceSize );
        const auto lAddress32 = static_cast<uint32_t>( lAddress ); // the range ends within 32 bits
        const uint64_t lBefore = aRange.CountBefore( lAddress );
        const Result lResult = aDevice.ReadPiece( lPiece.data(), lAddress32, lSize );
        if ( !lResult.IsOK() )
        {
            throw aDevice.MakeFailure( "read " + std::to_string( lSize ) + " bytes at " +
                                           FormatHex( lAddress32 ),
                                       lResult, GetHowMany( lBefore, aRange, "were read" ) );
        }
        const uint64_t lAfter = aRange.CountBefore( lAddress + lSize );
        const uint64_t lCut = aRange.GetAddress() + lBefore - lAddress;
        aSink( lPiece.data() + lCut, static_cast<size_t>( lAfter - lBefore ) );
        lProgress.Update( lAfter );
        lAddress += lSize;
    }
}

void DumpToFile( GevDevice& aDevice, const Range& aRange, uint32_t aPieceSize, OutputFile& aFile )
{
    ReadRange( aDevice, aRange, aPieceSize,
               [&]( const uint8_t* aData, size_t aSize ) { aFile.Write( aData, aSize ); } );
    aFile.Commit();
}

void DumpToReport( Program& aProgram, GevDevice& aDevice, const Range& aRange, uint32_t aPieceSize )
{
    std::string lText;
    ReadRange( aDevice, aRange, aPieceSize,
               [&]( const uint8_t* aData, size_t aSize ) { AppendHex( lText, aData, aSize ); } );
    aProgram.mReport["data"] = lText;
}

void DumpToOutput( GevDevice& aDevice, const Range& aRange, uint32_t aPieceSize )
{
    HexDump lDump( aRange.GetAddress() );
    ReadRange( aDevice, aRange, aPieceSize,
               [&]( const uint8_t* aData, size_t aSize ) { Print( lDump.Add( aData, aSize ) ); } );
    Print( lDump.Finish() );
}

void Dump( Program& aProgram, const DumpOptions& aOptions )
{
    const Range lRange = ParseRange( aOptions.mAddress, aOptions.mLength );
    aOptions.mMaker.Apply();
    GevDevice lDevice( aProgram.mInterruption, aOptions.mTarget.GetHost(), aOptions.mTarget.mLink );
    BeginReport( aProgram, lDevice, lRange );
    std::optional<OutputFile> lFile; // goes before the device does, which can be interrupted
    if ( aOptions.mPath )
    {
        lFile.emplace( *aOptions.mPath );
        aProgram.mReport["file"] = *aOptions.mPath;
    }
    const StatisticsAtEnd lStatistics( aProgram, lDevice );
    const uint32_t lPieceSize = GetPieceSizes( lDevice, aOptions.mMaker ).mRead;
    if ( lFile )
    {
        DumpToFile( lDevice, lRange, lPieceSize, *lFile );
        return;
    }
    if ( aProgram.mIsJson )
    {
        DumpToReport( aProgram, lDevice, lRange, lPieceSize );
        return;
    }
    DumpToOutput( lDevice, lRange, lPieceSize );
}

// The whole words around a file's bytes.
struct Image
{
    Range mRange;
    std::vector<uint8_t> mWords;
};

Image ReadImage( const LoadOptions& aOptions )
{
    const uint32_t lAddress = ParseNumber( aOptions.mAddress, "address" );
    const std::vector<uint8_t> lFile = ReadWholeFile( aOptions.mPath, ADDRESSES - lAddress );
    Image lImage{ Range( lAddress, lFile.size() ), {} };
    const uint64_t lFirst = lImage.mRange.GetFirstWord();
    lImage.mWords.resize( static_cast<size_t>( lImage.mRange.GetLastWordEnd() - lFirst ) );
    std::copy( lFile.begin(), lFile.end(),
               lImage.mWords.begin() + static_cast<std::ptrdiff_t>( lAddress - lFirst ) );
    return lImage;
}

// Fills the part of the image's word at aAddress that lies outside the range with what the device
// holds there.
void MergeWord( Program& aProgram, GevDevice& aDevice, Image& aImage, uint64_t aAddress )
{
    const auto lAddress = static_cast<uint32_t>( aAddress ); // within 32 bits as the range
    uint8_t lHeld[WORD] = {};
    const Result lResult = aDevice.ReadPiece( lHeld, lAddress, WORD );
    if ( !lResult.IsOK() )
    {
        throw aDevice.MakeFailure( "read the partly loaded word at " + FormatHex( lAddress ),
                                   lResult, GetHowMany( 0, aImage.mRange, REACHED ) );
    }
    uint64_t lKept = 0;
    for ( uint32_t lByte = 0; lByte < WORD; ++lByte )
    {
        const uint64_t lPlace = aAddress + lByte;
        if ( aImage.mRange.CountBefore( lPlace ) == aImage.mRange.CountBefore( lPlace + 1 ) )
        {
            aImage.mWords[static_cast<size_t>( lPlace - aImage.mRange.GetFirstWord() )] =
                lHeld[lByte];
            ++lKept;
        }
    }
    aProgram.mReport["mergedWords"].push_back( lAddress );
    if ( !aProgram.mIsJson )
    {
        PrintNote( "the word at " + FormatHex( lAddress ) + " keeps " +
                   FormatCount( lKept, "byte" ) + " that the device holds" );
    }
}

void MergePartialWords( Program& aProgram, GevDevice& aDevice, Image& aImage )
{
    aProgram.mReport["mergedWords"] = Json::array();
    const Range& lRange = aImage.mRange;
    const uint64_t lFirst = lRange.GetFirstWord();
    const uint64_t lLast = lRange.GetLastWordEnd() - WORD;
    if ( lRange.IsHeadPartial() || ( lRange.IsTailPartial() && lFirst == lLast ) )
    {
        MergeWord( aProgram, aDevice, aImage, lFirst );
    }
    if ( lRange.IsTailPartial() && lFirst != lLast )
    {
        MergeWord( aProgram, aDevice, aImage, lLast );
    }
}

void WriteImage( Program& aProgram, GevDevice& aDevice, const Image& aImage, uint32_t aPieceSize )
{
    const Range& lRange = aImage.mRange;
    Progress lProgress( lRange.GetLength() );
    for ( uint64_t lAddress = lRange.GetFirstWord(); lAddress < lRange.GetLastWordEnd(); )
    {
        const uint32_t lSize = GetPieceSize( lRange, lAddress, aPieceSize );
        const auto lAddress32 = static_cast<uint32_t>( lAddress ); // the range ends within 32 bits
        const auto lOffset = static_cast<size_t>( lAddress - lRange.GetFirstWord() );
        const Result lResult =
            aDevice.WritePiece( aImage.mWords.data() + lOffset, lAddress32, lSize );
        if ( !lResult.IsOK() )
        {
            throw aDevice.MakeFailure(
                "write " + std::to_string( lSize ) + " bytes at " + FormatHex( lAddress32 ),
                lResult, GetHowMany( lRange.CountBefore( lAddress ), lRange, REACHED ) );
        }
        lAddress += lSize;
        aProgram.mReport["bytesWritten"] = lRange.CountBefore( lAddress );
        lProgress.Update( lRange.CountBefore( lAddress ) );
    }
}

void Load( Program& aProgram, const LoadOptions& aOptions )
{
    aOptions.mMaker.Apply();
    Image lImage = ReadImage( aOptions );
    GevDevice lDevice( aProgram.mInterruption, aOptions.mTarget.GetHost(), aOptions.mTarget.mLink );
    BeginReport( aProgram, lDevice, lImage.mRange );
    aProgram.mReport["file"] = aOptions.mPath;
    aProgram.mReport["bytesWritten"] = 0;
    const StatisticsAtEnd lStatistics( aProgram, lDevice );
    const uint32_t lPieceSize = GetPieceSizes( lDevice, aOptions.mMaker ).mWrite;
    ControlScope lControl( lDevice, !aOptions.mNoControl, GetHowMany( 0, lImage.mRange, REACHED ) );
    MergePartialWords( aProgram, lDevice, lImage );
    WriteImage( aProgram, lDevice, lImage, lPieceSize );
    lControl.Release( "all bytes reached the device" );
}

} // namespace

void AddGevDump( CLI::App& aGroup, Program& aProgram )
{
    const auto lOptions = std::make_shared<DumpOptions>();
    CLI::App* const lCommand =
        AddCommand( aGroup, "dump",
                    "Read memory of any length and alignment: lines of address, bytes and text, or "
                    "with -o the bytes themselves",
                    aProgram, [lOptions]( Program& aRun ) { Dump( aRun, *lOptions ); } );
    AddTarget( *lCommand, lOptions->mTarget );
    AddMakerOptions( *lCommand, lOptions->mMaker );
    lCommand->add_option( "ADDRESS", lOptions->mAddress, "Decimal or 0x" )
        ->type_name( "" )
        ->required();
    lCommand->add_option( "LENGTH", lOptions->mLength, "Bytes, decimal or 0x" )
        ->type_name( "" )
        ->required();
    lCommand
        ->add_option( "-o,--output", lOptions->mPath,
                      "Write the bytes to this file, which appears when it is complete" )
        ->type_name( "FILE" );
}

void AddGevLoad( CLI::App& aGroup, Program& aProgram )
{
    const auto lOptions = std::make_shared<LoadOptions>();
    CLI::App* const lCommand = AddCommand(
        aGroup, "load",
        "Write a file to memory of any alignment, with control of the device taken meanwhile",
        aProgram, [lOptions]( Program& aRun ) { Load( aRun, *lOptions ); } );
    AddTarget( *lCommand, lOptions->mTarget );
    AddMakerOptions( *lCommand, lOptions->mMaker );
    lCommand->add_option( "ADDRESS", lOptions->mAddress, "Decimal or 0x" )
        ->type_name( "" )
        ->required();
    lCommand->add_option( "FILE", lOptions->mPath, "The bytes, at least one" )
        ->type_name( "" )
        ->required();
    lCommand->add_flag( "--no-control", lOptions->mNoControl, "Leave control alone" );
}

} // namespace HtBaseTool
