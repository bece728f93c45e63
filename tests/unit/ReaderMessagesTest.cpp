// What the readers of firmware images have in common: where their messages go, and when they stop.

#include "Libraries/HtBase/DfwPayload.h"
#include "Libraries/HtBase/Firmware/BinaryReader.h"
#include "Libraries/HtBase/Firmware/SRecordReader.h"
#include "Libraries/HtBase/Firmware/WordHexReader.h"

#include "tests/support/AssertionRecorder.h"
#include "tests/support/ByteFile.h"
#include "tests/support/StandardOutput.h"
#include "tests/support/StringStream.h"
#include "tests/support/TemporaryDirectory.h"

#include <gmock/gmock.h>

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <utility>
#include <vector>

using HtBaseLib::BinaryReader;
using HtBaseLib::DfwPayloadWriter;
using HtBaseLib::PayloadSink;
using HtBaseLib::ReaderMessages;
using HtBaseLib::SRecordChecks;
using HtBaseLib::SRecordReader;
using HtBaseLib::WordHexReader;
using testing::ElementsAre;
using testing::IsEmpty;
using TestSupport::AssertionRecorder;
using TestSupport::ByteFile;
using TestSupport::StandardOutputCapture;
using TestSupport::StringStream;
using TestSupport::TemporaryDirectory;

namespace
{

// Keeps every message as "warning: TEXT", "failure: TEXT" or "refusal: TEXT".
class RecordedMessages : public ReaderMessages
{
public:
    const std::vector<std::string>& Get() const { return mMessages; }

private:
    void TakeWarning( const char* aFormat, std::va_list aValues ) override
    {
        Add( "warning: ", aFormat, aValues );
    }

    void TakeFailure( const char* aFormat, std::va_list aValues ) override
    {
        Add( "failure: ", aFormat, aValues );
    }

    void TakeRefusal( const char* aFormat, std::va_list aValues ) override
    {
        Add( "refusal: ", aFormat, aValues );
    }

    [[gnu::format( printf, 3, 0 )]] void Add( const char* aKind, const char* aFormat,
                                              std::va_list aValues )
    {
        char lText[200];
        std::vsnprintf( lText, sizeof( lText ), aFormat, aValues );
        mMessages.push_back( std::string( aKind ) + lText );
    }

    std::vector<std::string> mMessages;
};

// Keeps addresses as "@1000" and data as its bytes in hex, and stops the reader at its call number
// aLast.
class RecordingSink : public PayloadSink
{
public:
    static constexpr std::size_t NEVER = 1000;

    explicit RecordingSink( std::size_t aLast = NEVER )
        : mLast( aLast )
    {
    }

    const std::vector<std::string>& Get() const { return mTaken; }

    bool TakeAddress( std::uint32_t aAddress ) override
    {
        char lText[16];
        std::snprintf( lText, sizeof( lText ), "@%X", aAddress );
        return Take( lText );
    }

    bool TakeData( HtBaseLib::PayloadFormat::DataRecord& aRecord, unsigned int aCount ) override
    {
        std::string lText;
        for ( unsigned int lIndex = 0; lIndex < aCount; ++lIndex )
        {
            char lPair[3];
            std::snprintf( lPair, sizeof( lPair ), "%02X", aRecord.mBytes[lIndex] );
            lText += lPair;
        }
        // The header is the sink's.
        aRecord.mHeader[0] = 0xEE;
        aRecord.mHeader[1] = 0xEE;
        return Take( lText );
    }

private:
    bool Take( const std::string& aText )
    {
        mTaken.push_back( aText );
        return mTaken.size() < mLast;
    }

    const std::size_t mLast;
    std::vector<std::string> mTaken;
};

// A reader on an open file.
using Conversion = bool ( * )( PayloadSink&, ReaderMessages&, std::FILE* );

bool ConvertSRecords( PayloadSink& aSink, ReaderMessages& aMessages, std::FILE* aFile )
{
    return SRecordReader( aSink, aMessages ).Convert( aFile, "image" );
}

bool ConvertBinary( PayloadSink& aSink, ReaderMessages& aMessages, std::FILE* aFile )
{
    return BinaryReader( aSink, aMessages ).Convert( aFile, "image", 0x1000 );
}

bool ConvertWordHex( PayloadSink& aSink, ReaderMessages& aMessages, std::FILE* aFile )
{
    return WordHexReader( aSink, aMessages ).Convert( aFile );
}

struct Case
{
    Conversion mConvert;
    std::string mText;
    std::string mMessage;
    std::size_t mFailsAt = ByteFile::NEVER;
    bool mIsErrorSet = false; // before the reader begins
};

// Every message that a reader has about an open file.
const std::vector<Case> CASES = {
    { ConvertSRecords, "X", "Error reading new line from input file\n" },
    { ConvertSRecords, "S3", "Failed reading record\n" },
    { ConvertSRecords, "S3060000100001\nS30700001000", "failed reading data byte 1" },
    { ConvertSRecords, "S0", "Error reading input file\n", 1 },
    { ConvertSRecords, std::string( 1, '\0' ), "Error reading from file image", ByteFile::NEVER,
      true },
    { ConvertBinary, "abc", "Error reading from file image", 1 },
    { ConvertWordHex, "@\n", "Failed to read address." },
    { ConvertWordHex, "z\n", "unexpected data read\n" },
    { ConvertWordHex, "123\n", "unexpected data 4\n" },
};

bool Convert( const Case& aCase, ReaderMessages& aMessages )
{
    AssertionRecorder lAssertions; // of the word-hex reader
    ByteFile lFile( aCase.mText, aCase.mFailsAt );
    if ( aCase.mIsErrorSet )
    {
        lFile.SetError();
    }
    RecordingSink lSink;
    return aCase.mConvert( lSink, aMessages, lFile.Get() );
}

} // namespace

TEST( ReaderMessages, FailuresGoToTheObjectGivenAndNowhereElse )
{
    for ( const Case& lCase : CASES )
    {
        RecordedMessages lMessages;
        StandardOutputCapture lCapture;
        EXPECT_FALSE( Convert( lCase, lMessages ) ) << lCase.mMessage;
        EXPECT_THAT( lMessages.Get(), ElementsAre( "failure: " + lCase.mMessage ) );
        EXPECT_EQ( lCapture.Take(), "" );
    }
}

TEST( ReaderMessages, ByDefaultFailuresArePrintedOnStandardOutput )
{
    for ( const Case& lCase : CASES )
    {
        ReaderMessages lMessages;
        StandardOutputCapture lCapture;
        EXPECT_FALSE( Convert( lCase, lMessages ) );
        EXPECT_FALSE( Convert( lCase, ReaderMessages::GetPrinter() ) );
        EXPECT_EQ( lCapture.Take(), lCase.mMessage + lCase.mMessage );
    }
}

TEST( ReaderMessages, ARefusalGoesToTheObjectGivenOrIsPrinted )
{
    const TemporaryDirectory lDirectory;
    const std::string lPath = lDirectory.GetPath( "image" );
    TestSupport::WriteWholeFile( lPath, "S1\nS0030000FC\n" );
    std::string lRecords;
    DfwPayloadWriter lWriter( std::make_unique<StringStream>( lRecords ) );
    const std::string lRefusal = "line 1 of '" + lPath + "' is not an S-record";
    RecordedMessages lMessages;
    StandardOutputCapture lCapture;
    EXPECT_FALSE( lWriter.AddSRecordFile( lPath.c_str(), lMessages, SRecordChecks::ALL ) );
    EXPECT_THAT( lMessages.Get(), ElementsAre( "refusal: " + lRefusal ) );
    EXPECT_EQ( lCapture.Take(), "" );
    EXPECT_FALSE(
        lWriter.AddSRecordFile( lPath.c_str(), ReaderMessages::GetPrinter(), SRecordChecks::ALL ) );
    EXPECT_EQ( lCapture.Take(), lRefusal );
    EXPECT_EQ( lRecords, "" );
}

TEST( ReaderMessages, WarningsGoToTheObjectGivenOrArePrinted )
{
    const std::string lText = "S1\nS9";
    RecordingSink lSink;
    RecordedMessages lMessages;
    StandardOutputCapture lCapture;
    EXPECT_TRUE( ConvertSRecords( lSink, lMessages, ByteFile( lText ).Get() ) );
    EXPECT_THAT( lMessages.Get(), ElementsAre( "warning: Warning: unknown record type: S1",
                                               "warning: Warning: unknown record type: S9" ) );
    EXPECT_EQ( lCapture.Take(), "" );
    EXPECT_TRUE( ConvertSRecords( lSink, ReaderMessages::GetPrinter(), ByteFile( lText ).Get() ) );
    EXPECT_EQ( lCapture.Take(),
               "Warning: unknown record type: S1Warning: unknown record type: S9" );
}

TEST( ReaderMessages, TheWriterHandsItsObjectToEachReader )
{
    const TemporaryDirectory lDirectory;
    const std::string lPath = lDirectory.GetPath( "%s%n" );
    RecordedMessages lMessages;
    StandardOutputCapture lCapture;
    std::string lPayload;
    DfwPayloadWriter lWriter( std::make_unique<StringStream>( lPayload ) );
    EXPECT_FALSE( lWriter.AddSRecordFile( lPath.c_str(), lMessages ) );
    EXPECT_FALSE( lWriter.AddBinaryFile( lPath.c_str(), 0, lMessages ) );
    EXPECT_FALSE( lWriter.AddWordHexFile( lPath.c_str(), lMessages ) );
    const std::string lFailure = "failure: Failed to open input file " + lPath + ". error code 2";
    EXPECT_THAT( lMessages.Get(), ElementsAre( lFailure, lFailure, lFailure ) );
    EXPECT_EQ( lCapture.Take(), "" );
}

TEST( PayloadSink, FalseStopsAReaderWithoutAMessage )
{
    const std::pair<Conversion, std::string> lImages[] = {
        // The first two lines are decoded by the table of digits, the others are parsed by sscanf.
        { ConvertSRecords, "S3060000100001E8\nS3060000200002E8\nS306000030003 \nS3060000400004E8" },
        { ConvertBinary, std::string( 600, 'a' ) },
        { ConvertWordHex, "@1\n12\n@2\n34\n" },
    };
    for ( const auto& [lConvert, lImage] : lImages )
    {
        RecordedMessages lMessages;
        RecordingSink lWhole;
        ASSERT_TRUE( lConvert( lWhole, lMessages, ByteFile( lImage ).Get() ) );
        ASSERT_GE( lWhole.Get().size(), 4U );
        for ( std::size_t lLast = 1; lLast <= lWhole.Get().size(); ++lLast )
        {
            RecordingSink lSink( lLast );
            EXPECT_FALSE( lConvert( lSink, lMessages, ByteFile( lImage ).Get() ) ) << lLast;
            EXPECT_EQ( lSink.Get(), std::vector<std::string>( lWhole.Get().begin(),
                                                              lWhole.Get().begin() +
                                                                  static_cast<int>( lLast ) ) );
        }
        EXPECT_THAT( lMessages.Get(), IsEmpty() );
    }
}

TEST( PayloadSink, TakesAddressesAndDataInOrderAndNoEmptyData )
{
    RecordedMessages lMessages;
    RecordingSink lSink;
    const std::string lText = "S30500001000EA\nS30600001000015A\nS30700002000B1B211";
    EXPECT_TRUE( ConvertSRecords( lSink, lMessages, ByteFile( lText ).Get() ) );
    EXPECT_THAT( lSink.Get(), ElementsAre( "@1000", "01", "@2000", "B1B2" ) );
}
