// What is wrong with a line of an S-record file.
#pragma once

#include <cstddef>

namespace HtBaseLib
{

// A sentence without its subject, such as "is not an S-record"; empty: nothing is wrong.
struct SRecordFault
{
    char mText[80] = "";

    explicit operator bool() const { return mText[0] != '\0'; }
};

// The most characters of a line that FindSRecordFault needs to see: a record, CR, and one that
// shows that the line is too long.
constexpr std::size_t MAX_JUDGED = 517;

// Judges a line of any type, which is aSize characters without the line feed, at most MAX_JUDGED:
// that it is a record, as long as its byte count says and not shorter than its type needs, and that
// the checksum is right. The line may end in CR.
SRecordFault FindSRecordFault( const unsigned char* aLine, std::size_t aSize );

} // namespace HtBaseLib
