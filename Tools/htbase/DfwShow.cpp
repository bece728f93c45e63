// dfw show.

#include "Tools/htbase/Console.h"
#include "Tools/htbase/DfwCommands.h"
#include "Tools/htbase/Failure.h"
#include "Tools/htbase/PayloadFile.h"
#include "Tools/htbase/Text.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <map>
#include <memory>
#include <optional>

namespace HtBaseTool
{

using Json = nlohmann::ordered_json;

namespace
{

constexpr uint64_t ADDRESSES = uint64_t{ 1 } << 32;
constexpr size_t PORTION = 65536;
constexpr size_t NAME_WIDTH = 16;

// Which addresses data goes to, however often.
class Ranges
{
public:
    // The addresses after the last one are the first ones again.
    void Add( uint32_t aAddress, size_t aSize )
    {
        const uint64_t lEnd = aAddress + uint64_t{ aSize };
        Join( aAddress, std::min( lEnd, ADDRESSES ) );
        if ( lEnd > ADDRESSES )
        {
            Join( 0, lEnd - ADDRESSES );
        }
    }

    // By its first address, where each ends, exclusive.
    const std::map<uint64_t, uint64_t>& Get() const { return mRanges; }

private:
    void Join( uint64_t aBegin, uint64_t aEnd )
    {
        auto lNext = mRanges.upper_bound( aBegin );
        if ( lNext != mRanges.begin() && std::prev( lNext )->second >= aBegin )
        {
            --lNext; // touches or overlaps
            aBegin = lNext->first;
        }
        while ( lNext != mRanges.end() && lNext->first <= aEnd )
        {
            aEnd = std::max( aEnd, lNext->second );
            lNext = mRanges.erase( lNext );
        }
        mRanges[aBegin] = aEnd;
    }

    std::map<uint64_t, uint64_t> mRanges;
};

std::string FormatRange( uint64_t aFirst, uint64_t aLast )
{
    return FormatHex( aFirst ) + " to " + FormatHex( aLast );
}

// One record, as a line's contents and as members of its JSON object.
struct Description
{
    std::string mText;
    Json mMembers = Json::object();
};

Description DescribeTarget( const PayloadRecord& aRecord )
{
    const uint32_t lFirst = GetNumber( aRecord, 1, 1 );
    const uint32_t lSecond = GetNumber( aRecord, 2, 1 );
    const uint32_t lValue = GetNumber( aRecord, 3, 2 );
    // A record that is longer still has no mode either.
    const std::string lMode( 1, aRecord.mBytes.size() == 6 ? static_cast<char>( aRecord.mBytes[5] )
                                                           : '-' );
    Description lDescription;
    lDescription.mText = FormatHex( lFirst, 2 ) + " " + FormatHex( lSecond, 2 ) + ", value " +
                         FormatHex( lValue, 4 ) + ", mode " + lMode;
    lDescription.mMembers = {
        { "target", { lFirst, lSecond } }, { "value", lValue }, { "mode", lMode } };
    return lDescription;
}

Description DescribeVersion( const PayloadRecord& aRecord )
{
    Description lDescription;
    for ( const uint8_t lPart : aRecord.mBytes )
    {
        lDescription.mText += ( lDescription.mText.empty() ? "" : "." ) + std::to_string( lPart );
    }
    lDescription.mMembers["version"] = lDescription.mText;
    return lDescription;
}

Description DescribeNumber( const PayloadRecord& aRecord, const char* aMember )
{
    const uint32_t lNumber = GetNumber( aRecord, 0, 4 );
    Description lDescription;
    lDescription.mText = FormatHex( lNumber );
    lDescription.mMembers[aMember] = lNumber;
    return lDescription;
}

Description DescribeId( const PayloadRecord& aRecord )
{
    const std::string lText( aRecord.mBytes.begin(), aRecord.mBytes.end() );
    Description lDescription;
    lDescription.mText = "\"" + Escape( lText ) + "\"";
    lDescription.mMembers["text"] = lText;
    return lDescription;
}

// What is known of a payload at some record.
class Listing
{
public:
    explicit Listing( Program& aProgram )
        : mProgram( aProgram )
    {
        mProgram.mReport["records"] = Json::array();
    }

    void Add( const PayloadRecord& aRecord );

    // The last part: address ranges and totals, of so many bytes of records.
    void Finish( uint64_t aSize );

private:
    Description Describe( const PayloadRecord& aRecord );
    Description DescribeData( const PayloadRecord& aRecord );
    void PrintLines();

    Program& mProgram;
    std::string mLines;               // not printed yet
    std::optional<uint32_t> mAddress; // where data goes next
    Ranges mRanges;
    uint64_t mRecords = 0;
    uint64_t mDataRecords = 0;
    uint64_t mDataBytes = 0;
};

Description Listing::DescribeData( const PayloadRecord& aRecord )
{
    const size_t lSize = aRecord.mBytes.size();
    ++mDataRecords;
    mDataBytes += lSize;
    Description lDescription;
    lDescription.mText = FormatCount( lSize, "byte" ) + ", ";
    if ( !mAddress )
    {
        lDescription.mText += "no address";
        lDescription.mMembers["address"] = nullptr;
        return lDescription;
    }
    const uint32_t lNext = *mAddress + static_cast<uint32_t>( lSize ); // modulo 2^32
    lDescription.mText += FormatRange( *mAddress, lNext - 1 );
    lDescription.mMembers["address"] = *mAddress;
    mRanges.Add( *mAddress, lSize );
    mAddress = lNext;
    return lDescription;
}

Description Listing::Describe( const PayloadRecord& aRecord )
{
    switch ( aRecord.mType )
    {
    case 'T':
        return DescribeTarget( aRecord );
    case 'V':
        return DescribeVersion( aRecord );
    case 'O':
        mAddress = GetNumber( aRecord, 0, 4 );
        return DescribeNumber( aRecord, "address" );
    case 'D':
        return DescribeData( aRecord );
    case 'I':
        return DescribeId( aRecord );
    case 'E':
        return DescribeNumber( aRecord, "value" );
    default: // reset
        return {};
    }
}

void Listing::Add( const PayloadRecord& aRecord )
{
    ++mRecords;
    const Description lDescription = Describe( aRecord );
    if ( mProgram.mIsJson )
    {
        Json lObject = { { "offset", aRecord.mOffset },
                         { "type", aRecord.mName },
                         { "length", aRecord.mBytes.size() } };
        lObject.update( lDescription.mMembers );
        mProgram.mReport["records"].push_back( std::move( lObject ) );
        return;
    }
    std::string lName = aRecord.mName;
    if ( !lDescription.mText.empty() )
    {
        lName.resize( NAME_WIDTH, ' ' );
    }
    mLines += FormatHex( aRecord.mOffset ) + "  " + lName + lDescription.mText + '\n';
    if ( mLines.size() >= PORTION )
    {
        PrintLines();
    }
}

void Listing::PrintLines()
{
    Print( mLines );
    mLines.clear();
}

void Listing::Finish( uint64_t aSize )
{
    Json lRanges = Json::array();
    for ( const auto& [lBegin, lEnd] : mRanges.Get() )
    {
        lRanges.push_back(
            { { "first", lBegin }, { "last", lEnd - 1 }, { "bytes", lEnd - lBegin } } );
        mLines += "range: " + FormatRange( lBegin, lEnd - 1 ) + ", " +
                  FormatCount( lEnd - lBegin, "byte" ) + '\n';
    }
    mProgram.mReport["ranges"] = std::move( lRanges );
    mProgram.mReport["totals"] = { { "records", mRecords },
                                   { "dataRecords", mDataRecords },
                                   { "dataBytes", mDataBytes },
                                   { "bytes", aSize } };
    mLines += "total: " + FormatCount( mRecords, "record" ) + " of " +
              FormatCount( aSize, "byte" ) + ", " + FormatCount( mDataBytes, "data byte" ) +
              " in " + FormatCount( mDataRecords, "data record" ) + '\n';
    if ( !mProgram.mIsJson )
    {
        PrintLines();
    }
}

void Show( Program& aProgram, const std::string& aPath )
{
    PayloadFile lFile( aPath );
    aProgram.mReport["file"] = aPath;
    Listing lListing( aProgram );
    try
    {
        while ( const std::optional<PayloadRecord> lRecord = lFile.Read() )
        {
            lListing.Add( *lRecord );
        }
    }
    catch ( const Failure& )
    {
        lListing.Finish( lFile.GetSize() ); // up to the damage
        throw;
    }
    lListing.Finish( lFile.GetSize() );
    if ( lFile.GetSize() == 0 )
    {
        throw Failure( ExitStatus::REFUSED, "payload '" + aPath + "' is empty" );
    }
}

} // namespace

void AddDfwShow( CLI::App& aGroup, Program& aProgram )
{
    const auto lPath = std::make_shared<std::string>();
    CLI::App* const lCommand = AddCommand(
        aGroup, "show",
        "Print every record of a payload with its offset in the file, and which addresses its data "
        "goes to. Of a damaged payload the records before the damage are printed",
        aProgram, [lPath]( Program& aRun ) { Show( aRun, *lPath ); } );
    lCommand->add_option( "FILE", *lPath, "The payload" )->type_name( "" )->required();
}

} // namespace HtBaseTool
