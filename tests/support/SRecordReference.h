// The S-record reader as plainly as it can be written, to hold the fast one against.
#pragma once

#include "Libraries/HtBase/Firmware/SRecordReader.h"

#include <cstdio>
#include <string>

namespace TestSupport
{

class StandardOutputCapture;

// What became of a file.
struct SRecordOutcome
{
    bool mAnswer = false;
    std::string mRecords; // of the payload
    std::string mOutput;  // the messages

    bool operator==( const SRecordOutcome& aOther ) const
    {
        return mAnswer == aOther.mAnswer && mRecords == aOther.mRecords &&
               mOutput == aOther.mOutput;
    }
};

// Converts an open file character by character and number by number, with fgetc and sscanf. aName
// is what messages call it. Prints nothing.
SRecordOutcome ConvertSRecordsPlainly( std::FILE* aFile, const std::string& aName );

// The same for a file of this text, with checks: ALL or ONLY. When aFails is set, reading fails
// behind the text.
SRecordOutcome CheckSRecordsPlainly( const std::string& aText, bool aFails,
                                     const std::string& aName, HtBaseLib::SRecordChecks aChecks );

// The same by the reader of the library: its records, its answer and what aCapture found printed.
SRecordOutcome
ConvertSRecordsByReader( std::FILE* aFile, const std::string& aName,
                         StandardOutputCapture& aCapture,
                         HtBaseLib::SRecordChecks aChecks = HtBaseLib::SRecordChecks::NONE );

} // namespace TestSupport
