// The file that a reader of firmware images opens.
#pragma once

#include <cstdio>

namespace HtBaseLib
{

class ReaderMessages;

// Opens a file in a mode of fopen. Null when it cannot be opened, which is reported to
// aMessages.
std::FILE* OpenInputFile( const char* aName, const char* aMode, ReaderMessages& aMessages );

// Opens a file, has aConvert convert it, and closes it. False when it cannot be opened or aConvert
// returns false.
template <typename Conversion>
bool ConvertInputFile( const char* aName, const char* aMode, ReaderMessages& aMessages,
                       const Conversion& aConvert )
{
    std::FILE* const lFile = OpenInputFile( aName, aMode, aMessages );
    // KEEP: The readers of word-hex and binary files leave their file open when they fail.
    if ( lFile == nullptr || !aConvert( lFile ) )
    {
        return false;
    }
    (void)std::fclose( lFile ); // it was only read
    return true;
}

} // namespace HtBaseLib
