// The word-hex reader: whatever the file, it writes whole address and data records, and a failure
// has its message and its assertion.

#include "fuzz/FuzzTarget.h"

#include "Libraries/HtBase/DfwPayload.h"
#include "Libraries/HtBase/Firmware/WordHexReader.h"
#include "tests/support/ByteFile.h"
#include "tests/support/StandardOutput.h"
#include "tests/support/StringStream.h"

#include <QmUtilsLib/Assert.h>

#include <memory>
#include <string>

namespace
{

int gAssertions = 0;

void CountAssertion( const char* /*aText*/, const char* /*aFile*/, int /*aLine*/ )
{
    ++gAssertions;
}

void RequireWholeRecords( const std::string& aRecords )
{
    std::size_t lAt = 0;
    while ( lAt < aRecords.size() )
    {
        Fuzz::Require( aRecords.size() - lAt >= 2, "a record has a header" );
        const auto lLength = static_cast<unsigned char>( aRecords[lAt + 1] );
        Fuzz::Require( aRecords[lAt] == 'O'
                           ? lLength == 4
                           : aRecords[lAt] == 'D' && lLength >= 1 && lLength <= 254,
                       "a record is an address or data" );
        lAt += 2U + lLength;
    }
    Fuzz::Require( lAt == aRecords.size(), "the last record is whole" );
}

} // namespace

int LLVMFuzzerTestOneInput( const std::uint8_t* aData, std::size_t aSize )
{
    static TestSupport::StandardOutputCapture sCapture; // for good: libFuzzer prints elsewhere
    QmUtilsLib::SetAssertionHandler( CountAssertion );
    gAssertions = 0;

    const std::string lText( reinterpret_cast<const char*>( aData ), aSize );
    const TestSupport::ByteFile lFile( lText );
    std::string lRecords;
    bool lAnswer = false;
    {
        HtBaseLib::DfwPayloadWriter lWriter(
            std::make_unique<TestSupport::StringStream>( lRecords ) );
        HtBaseLib::DfwPayloadSink lSink( lWriter );
        HtBaseLib::WordHexReader lReader( lSink, HtBaseLib::ReaderMessages::GetPrinter() );
        lAnswer = lReader.Convert( lFile.Get() );
    }
    const std::string lOutput = sCapture.Take();
    RequireWholeRecords( lRecords );
    Fuzz::Require( lAnswer == lOutput.empty(), "a failure and nothing else is printed" );
#ifndef NDEBUG
    const bool lIsBadData = lOutput.rfind( "unexpected data", 0 ) == 0;
    Fuzz::Require( gAssertions == ( lIsBadData ? 1 : 0 ), "bad data is an assertion" );
#endif
    return 0;
}
