// A directory for the files of one test.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <ios>
#include <iterator>
#include <stdexcept>
#include <string>
#include <system_error>

namespace TestSupport
{

// TemporaryDirectory is a new empty directory that goes, with all in it, when the object goes.
class TemporaryDirectory
{
public:
    TemporaryDirectory()
    {
        std::string lName =
            ( std::filesystem::temp_directory_path() / "htbase-test-XXXXXX" ).string();
        if ( mkdtemp( lName.data() ) == nullptr )
        {
            throw std::runtime_error( "cannot make a temporary directory" );
        }
        mPath = lName;
    }

    ~TemporaryDirectory()
    {
        std::error_code lIgnored;
        std::filesystem::remove_all( mPath, lIgnored );
    }

    TemporaryDirectory( const TemporaryDirectory& ) = delete;
    TemporaryDirectory& operator=( const TemporaryDirectory& ) = delete;

    const std::filesystem::path& GetPath() const { return mPath; }

    // The path of a file of that name in it.
    std::string GetPath( const std::string& aName ) const { return ( mPath / aName ).string(); }

private:
    std::filesystem::path mPath;
};

// The whole content of a file; empty when it cannot be read.
inline std::string ReadWholeFile( const std::string& aPath )
{
    std::ifstream lFile( aPath, std::ios::binary );
    return std::string( std::istreambuf_iterator<char>( lFile ), {} );
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
