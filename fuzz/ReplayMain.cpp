// Runs a fuzz target on every file of the directories that are named, in order of their names.

#include "fuzz/FuzzTarget.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

int main( int aCount, char** aArguments )
{
    std::vector<std::filesystem::path> lFiles;
    for ( int lIndex = 1; lIndex < aCount; ++lIndex )
    {
        for ( const auto& lEntry :
              std::filesystem::recursive_directory_iterator( aArguments[lIndex] ) )
        {
            if ( lEntry.is_regular_file() )
            {
                lFiles.push_back( lEntry.path() );
            }
        }
    }
    std::sort( lFiles.begin(), lFiles.end() );
    for ( const std::filesystem::path& lPath : lFiles )
    {
        std::fprintf( stderr, "%s\n", lPath.c_str() );
        std::ifstream lFile( lPath, std::ios::binary );
        std::vector<char> lBytes( std::istreambuf_iterator<char>( lFile ), {} );
        lBytes.shrink_to_fit(); // a sanitizer is to see a look beyond
        LLVMFuzzerTestOneInput( reinterpret_cast<const std::uint8_t*>( lBytes.data() ),
                                lBytes.size() );
    }
    std::fprintf( stderr, "%zu inputs\n", lFiles.size() );
    return lFiles.empty() ? 1 : 0;
}
