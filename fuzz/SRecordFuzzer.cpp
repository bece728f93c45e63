// The S-record reader against the plain one: same records, same messages, same answer.

#include "fuzz/FuzzTarget.h"

#include "tests/support/ByteFile.h"
#include "tests/support/SRecordReference.h"
#include "tests/support/StandardOutput.h"

#include <string>

using TestSupport::ByteFile;
using TestSupport::SRecordOutcome;

// An input is a file. One of odd length fails to be read at its end.
int LLVMFuzzerTestOneInput( const std::uint8_t* aData, std::size_t aSize )
{
    static TestSupport::StandardOutputCapture sCapture; // for good: libFuzzer prints elsewhere
    const std::string lText( reinterpret_cast<const char*>( aData ), aSize );
    const std::size_t lFailsAt = aSize % 2 == 0 ? ByteFile::NEVER : aSize;

    const ByteFile lPlainFile( lText, lFailsAt );
    const ByteFile lFastFile( lText, lFailsAt );
    const SRecordOutcome lPlain = TestSupport::ConvertSRecordsPlainly( lPlainFile.Get(), "image" );
    const SRecordOutcome lFast =
        TestSupport::ConvertSRecordsByReader( lFastFile.Get(), "image", sCapture );
    Fuzz::Require( lFast.mAnswer == lPlain.mAnswer, "same answer" );
    Fuzz::Require( lFast.mOutput == lPlain.mOutput, "same messages" );
    Fuzz::Require( lFast.mRecords == lPlain.mRecords, "same records" );
    return 0;
}
