#include "Tools/htbase/Memory.h"

#include "Tools/htbase/Console.h"
#include "Tools/htbase/Failure.h"
#include "Tools/htbase/Files.h"
#include "Tools/htbase/HexDump.h"
#include "Tools/htbase/Progress.h"
#include "Tools/htbase/Text.h"

#include <CLI/CLI.hpp>

#include <algorithm>

namespace HtBaseTool
{

using QmUtilsLib::Result;
using Json = nlohmann::ordered_json;

namespace
{

// What is loaded at once, since it is held in memory: as much as 32-bit addresses can name.
constexpr uint64_t LOAD_MAX = uint64_t{ 1 } << 32;
constexpr uint32_t WORD = Range::WORD;

// Where the bytes of a dump go, in order.
using Sink = std::function<void( const uint8_t* aData, size_t aSize )>;

std::string GetBitsText( AddressBits aBits )
{
    return "the " + std::to_string( static_cast<unsigned int>( aBits ) ) + "-bit address space";
}

// The next piece from aOffset on, of whole words.
uint32_t GetPieceSize( const Range& aRange, uint64_t aOffset, uint32_t aMax )
{
    return static_cast<uint32_t>( std::min<uint64_t>( aMax, aRange.GetWordsSize() - aOffset ) );
}

// ", 512 of 1024 bytes ...".
std::string GetHowMany( uint64_t aDone, const Range& aRange, const char* aWhat )
{
    return ", " + std::to_string( aDone ) + " of " + FormatCount( aRange.GetLength(), "byte" ) +
           " " + aWhat;
}

void BeginReport( Program& aProgram, const Device& aDevice, const Range& aRange )
{
    aProgram.mReport["device"] = aDevice.GetName();
    aProgram.mReport["address"] = aRange.GetAddress();
    aProgram.mReport["length"] = aRange.GetLength();
}

// "512 bytes at 0x00100000".
std::string GetPieceText( const Device& aDevice, uint64_t aAddress, uint32_t aSize )
{
    return std::to_string( aSize ) + " bytes at " +
           FormatAddress( aAddress, aDevice.GetAddressBits() );
}

// Reads whole words and hands on what belongs to the range.
void ReadRange( Device& aDevice, const Range& aRange, uint32_t aPieceSize, const Sink& aSink )
{
    Progress lProgress( aRange.GetLength() );
    std::vector<uint8_t> lPiece( aPieceSize );
    for ( uint64_t lOffset = 0; lOffset < aRange.GetWordsSize(); )
    {
        const uint32_t lSize = GetPieceSize( aRange, lOffset, aPieceSize );
        const uint64_t lAddress = aRange.GetFirstWord() + lOffset;
        const uint64_t lBefore = aRange.CountBefore( lOffset );
        const Result lResult = aDevice.ReadPiece( lPiece.data(), lAddress, lSize );
        if ( !lResult.IsOK() )
        {
            throw aDevice.MakeFailure( "read " + GetPieceText( aDevice, lAddress, lSize ), lResult,
                                       GetHowMany( lBefore, aRange, "were read" ) );
        }
        const uint64_t lAfter = aRange.CountBefore( lOffset + lSize );
        const uint64_t lCut = aRange.GetHead() + lBefore - lOffset;
        aSink( lPiece.data() + lCut, static_cast<size_t>( lAfter - lBefore ) );
        lProgress.Update( lAfter );
        lOffset += lSize;
    }
}

void DumpToFile( Device& aDevice, const Range& aRange, uint32_t aPieceSize, OutputFile& aFile )
{
    ReadRange( aDevice, aRange, aPieceSize,
               [&]( const uint8_t* aData, size_t aSize ) { aFile.Write( aData, aSize ); } );
    aFile.Commit();
}

void DumpToReport( Program& aProgram, Device& aDevice, const Range& aRange, uint32_t aPieceSize )
{
    std::string lText;
    ReadRange( aDevice, aRange, aPieceSize,
               [&]( const uint8_t* aData, size_t aSize ) { AppendHex( lText, aData, aSize ); } );
    aProgram.mReport["data"] = lText;
}

void DumpToOutput( Device& aDevice, const Range& aRange, uint32_t aPieceSize )
{
    HexDump lDump( aRange.GetAddress(), aDevice.GetAddressBits() );
    ReadRange( aDevice, aRange, aPieceSize,
               [&]( const uint8_t* aData, size_t aSize ) { Print( lDump.Add( aData, aSize ) ); } );
    Print( lDump.Finish() );
}

// Fills the part of the image's word at aOffset that is outside the range with what the device
// holds there.
void MergeWord( Program& aProgram, Device& aDevice, Image& aImage, uint64_t aOffset )
{
    const uint64_t lAddress = aImage.mRange.GetFirstWord() + aOffset;
    const std::string lName = FormatAddress( lAddress, aDevice.GetAddressBits() );
    uint8_t lHeld[WORD] = {};
    const Result lResult = aDevice.ReadPiece( lHeld, lAddress, WORD );
    if ( !lResult.IsOK() )
    {
        throw aDevice.MakeFailure( "read the partly loaded word at " + lName, lResult,
                                   aImage.GetHowMany( 0 ) );
    }
    uint64_t lKept = 0;
    for ( uint32_t lByte = 0; lByte < WORD; ++lByte )
    {
        const uint64_t lPlace = aOffset + lByte;
        if ( aImage.mRange.CountBefore( lPlace ) == aImage.mRange.CountBefore( lPlace + 1 ) )
        {
            aImage.mWords[static_cast<size_t>( lPlace )] = lHeld[lByte];
            ++lKept;
        }
    }
    aProgram.mReport["mergedWords"].push_back( lAddress );
    if ( !aProgram.mIsJson )
    {
        PrintNote( "the word at " + lName + " keeps " + FormatCount( lKept, "byte" ) +
                   " from the device" );
    }
}

void MergePartialWords( Program& aProgram, Device& aDevice, Image& aImage )
{
    aProgram.mReport["mergedWords"] = Json::array();
    const Range& lRange = aImage.mRange;
    const uint64_t lLast = lRange.GetWordsSize() - WORD;
    if ( lRange.IsHeadPartial() || ( lRange.IsTailPartial() && lLast == 0 ) )
    {
        MergeWord( aProgram, aDevice, aImage, 0 );
    }
    if ( lRange.IsTailPartial() && lLast != 0 )
    {
        MergeWord( aProgram, aDevice, aImage, lLast );
    }
}

void WriteImage( Program& aProgram, Device& aDevice, const Image& aImage, uint32_t aPieceSize )
{
    const Range& lRange = aImage.mRange;
    Progress lProgress( lRange.GetLength() );
    for ( uint64_t lOffset = 0; lOffset < lRange.GetWordsSize(); )
    {
        const uint32_t lSize = GetPieceSize( lRange, lOffset, aPieceSize );
        const uint64_t lAddress = lRange.GetFirstWord() + lOffset;
        const Result lResult = aDevice.WritePiece(
            aImage.mWords.data() + static_cast<size_t>( lOffset ), lAddress, lSize );
        if ( !lResult.IsOK() )
        {
            throw aDevice.MakeFailure( "write " + GetPieceText( aDevice, lAddress, lSize ), lResult,
                                       aImage.GetHowMany( lRange.CountBefore( lOffset ) ) );
        }
        lOffset += lSize;
        aProgram.mReport["bytesWritten"] = lRange.CountBefore( lOffset );
        lProgress.Update( lRange.CountBefore( lOffset ) );
    }
}

} // namespace

uint64_t Range::CountBefore( uint64_t aOffset ) const
{
    return std::clamp( aOffset, GetHead(), GetEnd() ) - GetHead();
}

std::string Image::GetHowMany( uint64_t aDone ) const
{
    return HtBaseTool::GetHowMany( aDone, mRange, "reached the device" );
}

void AddDumpOptions( CLI::App& aCommand, DumpOptions& aOptions )
{
    aCommand.add_option( "ADDRESS", aOptions.mAddress, "Decimal or 0x" )
        ->type_name( "" )
        ->required();
    aCommand.add_option( "LENGTH", aOptions.mLength, "Bytes, decimal or 0x" )
        ->type_name( "" )
        ->required();
    aCommand
        .add_option( "-o,--output", aOptions.mPath,
                     "Write the bytes to this file, which appears when it is complete" )
        ->type_name( "FILE" );
}

void AddLoadOptions( CLI::App& aCommand, LoadOptions& aOptions )
{
    aCommand.add_option( "ADDRESS", aOptions.mAddress, "Decimal or 0x" )
        ->type_name( "" )
        ->required();
    aCommand.add_option( "FILE", aOptions.mPath, "The bytes, at least one" )
        ->type_name( "" )
        ->required();
}

Range ParseRange( const DumpOptions& aOptions, AddressBits aBits )
{
    const uint64_t lAddress = ParseAddress( aOptions.mAddress, aBits );
    const uint32_t lLength = ParseNumber( aOptions.mLength, "length" );
    if ( lLength == 0 )
    {
        throw MakeUsageFailure( "the length is 0: give at least 1" );
    }
    if ( lLength - 1 > GetLastAddress( aBits ) - lAddress )
    {
        throw MakeUsageFailure( "address " + FormatAddress( lAddress, aBits ) + " and length " +
                                std::to_string( lLength ) + " together exceed " +
                                GetBitsText( aBits ) );
    }
    return Range( lAddress, lLength );
}

Image ReadImage( const LoadOptions& aOptions, AddressBits aBits )
{
    const uint64_t lAddress = ParseAddress( aOptions.mAddress, aBits );
    const uint64_t lBehind = GetLastAddress( aBits ) - lAddress; // bytes, but for the first
    const bool lIsToEnd = lBehind < LOAD_MAX;
    const std::vector<uint8_t> lFile =
        ReadWholeFile( aOptions.mPath, lIsToEnd ? lBehind + 1 : LOAD_MAX,
                       lIsToEnd ? "from the address to the end of " + GetBitsText( aBits )
                                : "that can be loaded at once" );
    Image lImage{ Range( lAddress, lFile.size() ), {} };
    lImage.mWords.resize( static_cast<size_t>( lImage.mRange.GetWordsSize() ) );
    std::copy( lFile.begin(), lFile.end(),
               lImage.mWords.begin() + static_cast<std::ptrdiff_t>( lImage.mRange.GetHead() ) );
    return lImage;
}

void DumpRange( Program& aProgram, Device& aDevice, const Range& aRange,
                const DumpOptions& aOptions, const PieceSizesQuery& aQuery )
{
    BeginReport( aProgram, aDevice, aRange );
    std::optional<OutputFile> lFile; // destroyed before the device, which can be interrupted
    if ( aOptions.mPath )
    {
        lFile.emplace( *aOptions.mPath );
        aProgram.mReport["file"] = *aOptions.mPath;
    }
    const StatisticsAtEnd lStatistics( aProgram, aDevice );
    const uint32_t lPieceSize = aQuery().mRead;
    if ( lFile )
    {
        DumpToFile( aDevice, aRange, lPieceSize, *lFile );
        return;
    }
    if ( aProgram.mIsJson )
    {
        DumpToReport( aProgram, aDevice, aRange, lPieceSize );
        return;
    }
    DumpToOutput( aDevice, aRange, lPieceSize );
}

StatisticsAtEnd::~StatisticsAtEnd()
{
    mProgram.mReport["statistics"] = mDevice.GetStatistics();
    if ( !mProgram.mIsJson )
    {
        PrintNote( mDevice.GetStatisticsText() );
    }
}

void BeginLoad( Program& aProgram, const Device& aDevice, const Image& aImage,
                const LoadOptions& aOptions )
{
    BeginReport( aProgram, aDevice, aImage.mRange );
    aProgram.mReport["file"] = aOptions.mPath;
    aProgram.mReport["bytesWritten"] = 0;
}

void LoadImage( Program& aProgram, Device& aDevice, Image& aImage, uint32_t aPieceSize )
{
    MergePartialWords( aProgram, aDevice, aImage );
    WriteImage( aProgram, aDevice, aImage, aPieceSize );
}

} // namespace HtBaseTool
