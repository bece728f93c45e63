// Whether an S-record file is sound.
#pragma once

#include <string>

namespace HtBaseTool
{

// Checks every record of an S-record file, of any type: that it is one, as long as its byte count
// says and not shorter than its type needs, and that the checksum is right. The reader of the
// library looks at none of that. Lines may end in CR LF; a line without any character is passed
// over. Throws a Failure that names the first bad line. Memory does not grow with the file.
void CheckSRecordFile( const std::string& aPath );

} // namespace HtBaseTool
