#include "Libraries/HtBase/Firmware/InputFile.h"

#include "Libraries/HtBase/Firmware/ReaderMessages.h"

#include <cerrno>

namespace HtBaseLib
{

std::FILE* OpenInputFile( const char* aName, const char* aMode, ReaderMessages& aMessages )
{
    std::FILE* const lFile = std::fopen( aName, aMode );
    if ( lFile == nullptr )
    {
        aMessages.FailToOpen( aName, errno );
    }
    return lFile;
}

} // namespace HtBaseLib
