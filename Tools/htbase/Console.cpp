#include "Tools/htbase/Console.h"

#include "Tools/htbase/Failure.h"
#include "Tools/htbase/Text.h"

#include <nlohmann/json.hpp>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace HtBaseTool
{

namespace
{

using Json = nlohmann::ordered_json;

// aIndent below 0: on one line.
void PrintJson( const Json& aValue, int aIndent )
{
    Print( aValue.dump( aIndent, ' ', false, Json::error_handler_t::replace ) + '\n' );
}

[[noreturn]] void ThrowUnwritable( int aError )
{
    throw Failure( "cannot write to standard output: " + GetSystemErrorText( aError ),
                   QmUtilsLib::Result( QmUtilsLib::Result::GENERIC_ERROR,
                                       static_cast<unsigned int>( aError ) ) );
}

} // namespace

void GuardStandardStreams()
{
    // The wrong way round: reading from standard input gives an end, the others refuse each write.
    for ( const int lStream : { STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO } )
    {
        if ( fcntl( lStream, F_GETFD ) < 0 && errno == EBADF )
        {
            (void)open( "/dev/null", O_RDONLY ); // takes the lowest number that is free: this one
        }
    }
}

void Print( const std::string& aText )
{
    if ( std::fwrite( aText.data(), 1, aText.size(), stdout ) != aText.size() ||
         std::fflush( stdout ) != 0 )
    {
        ThrowUnwritable( errno );
    }
}

void PrintJson( const nlohmann::ordered_json& aValue )
{
    PrintJson( aValue, 2 );
}

void PrintJsonLine( const nlohmann::ordered_json& aValue )
{
    PrintJson( aValue, -1 );
}

void PrintNote( const std::string& aText )
{
    const std::string lLine = "htbase: " + Escape( aText ) + '\n';
    (void)std::fwrite( lLine.data(), 1, lLine.size(), stderr );
}

bool IsOutputTerminal()
{
    return isatty( STDOUT_FILENO ) == 1;
}

bool IsErrorTerminal()
{
    return isatty( STDERR_FILENO ) == 1;
}

} // namespace HtBaseTool
