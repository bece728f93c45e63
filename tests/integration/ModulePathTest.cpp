// The posix body's path of the file that holds the library's code; here, of the program.

#include "Libraries/HtBase/Location/ModulePath.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace
{

using HtBaseLib::GetModule;
using HtBaseLib::GetModulePath;

const std::string PROGRAM = std::filesystem::canonical( "/proc/self/exe" ).string();

TEST( ModulePath, IsTheWholePathOfTheFile )
{
    std::string lBuffer( 4096, '#' );
    const unsigned int lLength = GetModulePath( GetModule(), lBuffer.data(), 4096 );
    EXPECT_EQ( lBuffer.substr( 0, lLength ), PROGRAM );
    EXPECT_EQ( lBuffer[lLength], '#' ); // not terminated
    EXPECT_EQ( HtBaseLib::GetPathSeparator(), '/' );
}

TEST( ModulePath, IsTruncatedToTheBuffer )
{
    const auto lWhole = static_cast<unsigned int>( PROGRAM.size() );
    for ( const unsigned int lSize : { 0U, 1U, lWhole - 1, lWhole } )
    {
        std::string lBuffer( 4096, '#' );
        EXPECT_EQ( GetModulePath( GetModule(), lBuffer.data(), lSize ), lSize );
        EXPECT_EQ( lBuffer, PROGRAM.substr( 0, lSize ) + std::string( 4096 - lSize, '#' ) );
    }
}

TEST( ModulePath, IsNotKnownWithoutAModule )
{
    std::string lBuffer( 4096, '#' );
    EXPECT_EQ( GetModulePath( nullptr, lBuffer.data(), 4096 ), 0U );
    EXPECT_EQ( lBuffer, std::string( 4096, '#' ) );
}

} // namespace
