// The S-record reader against the plain one, without checks and with: same records, same messages,
// same answer.

#include "fuzz/FuzzTarget.h"

#include "tests/support/ByteFile.h"
#include "tests/support/SRecordReference.h"
#include "tests/support/StandardOutput.h"

#include <string>

using HtBaseLib::SRecordChecks;
using TestSupport::ByteFile;
using TestSupport::SRecordOutcome;

// An input is a file. One of odd length fails to be read at its end.
int LLVMFuzzerTestOneInput( const std::uint8_t* aData, std::size_t aSize )
{
    static TestSupport::StandardOutputCapture sCapture; // for good: libFuzzer prints elsewhere
    const std::string lText( reinterpret_cast<const char*>( aData ), aSize );
    const std::size_t lFailsAt = aSize % 2 == 0 ? ByteFile::NEVER : aSize;

    for ( const SRecordChecks lChecks :
          { SRecordChecks::NONE, SRecordChecks::ALL, SRecordChecks::ONLY } )
    {
        const ByteFile lPlainFile( lText, lFailsAt );
        const ByteFile lFastFile( lText, lFailsAt );
        const SRecordOutcome lPlain =
            lChecks == SRecordChecks::NONE
                ? TestSupport::ConvertSRecordsPlainly( lPlainFile.Get(), "image" )
                : TestSupport::CheckSRecordsPlainly( lText, aSize % 2 != 0, "image", lChecks );
        const SRecordOutcome lFast =
            TestSupport::ConvertSRecordsByReader( lFastFile.Get(), "image", sCapture, lChecks );
        Fuzz::Require( lFast.mAnswer == lPlain.mAnswer, "same answer" );
        Fuzz::Require( lFast.mOutput == lPlain.mOutput, "same messages" );
        Fuzz::Require( lFast.mRecords == lPlain.mRecords, "same records" );
    }
    return 0;
}
