// A directory for the files of one test.
#pragma once

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <ios>
#include <sstream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

namespace TestSupport
{

// TemporaryDirectory is a new empty directory. The destructor removes it with its contents.
class TemporaryDirectory
{
public:
    TemporaryDirectory()
    {
        mPath = ( std::filesystem::temp_directory_path() / "htbase-test-XXXXXX" ).string();
        if ( mkdtemp( mPath.data() ) == nullptr )
        {
            throw std::runtime_error( "cannot make a temporary directory" );
        }
    }

    ~TemporaryDirectory()
    {
        std::error_code lIgnored;
        std::filesystem::remove_all( mPath, lIgnored );
    }

    TemporaryDirectory( const TemporaryDirectory& ) = delete;
    TemporaryDirectory& operator=( const TemporaryDirectory& ) = delete;

    const std::string& GetPath() const { return mPath; }

    // The path of a file of that name in it.
    std::string GetPath( const std::string& aName ) const { return mPath + "/" + aName; }

    // The names in it, in order.
    std::vector<std::string> List() const
    {
        std::vector<std::string> lNames;
        for ( const auto& lEntry : std::filesystem::directory_iterator( mPath ) )
        {
            lNames.push_back( lEntry.path().filename().string() );
        }
        std::sort( lNames.begin(), lNames.end() );
        return lNames;
    }

private:
    std::string mPath;
};

// The whole content of a file; empty when it cannot be read.
inline std::string ReadWholeFile( const std::string& aPath )
{
    std::ostringstream lContent;
    lContent << std::ifstream( aPath, std::ios::binary ).rdbuf();
    return lContent.str();
}

// Makes a file of that content.
inline void WriteWholeFile( const std::string& aPath, const std::string& aContent )
{
    std::ofstream lFile( aPath, std::ios::binary );
    lFile.write( aContent.data(), static_cast<std::streamsize>( aContent.size() ) );
    lFile.close();
    if ( !lFile )
    {
        throw std::runtime_error( "cannot write " + aPath );
    }
}

} // namespace TestSupport
