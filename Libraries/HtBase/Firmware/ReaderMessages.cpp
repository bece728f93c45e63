#include "Libraries/HtBase/Firmware/ReaderMessages.h"

#include <cstdio>

namespace HtBaseLib
{

ReaderMessages& ReaderMessages::GetPrinter()
{
    static ReaderMessages sPrinter;
    return sPrinter;
}

void ReaderMessages::Warn( const char* aFormat, ... )
{
    std::va_list lValues;
    va_start( lValues, aFormat );
    TakeWarning( aFormat, lValues );
    va_end( lValues );
}

void ReaderMessages::Fail( const char* aFormat, ... )
{
    std::va_list lValues;
    va_start( lValues, aFormat );
    TakeFailure( aFormat, lValues );
    va_end( lValues );
}

void ReaderMessages::Refuse( const char* aFormat, ... )
{
    std::va_list lValues;
    va_start( lValues, aFormat );
    TakeRefusal( aFormat, lValues );
    va_end( lValues );
}

void ReaderMessages::FailToOpen( const char* aName, int aError )
{
    Fail( "Failed to open input file %s. error code %d", aName, aError );
}

void ReaderMessages::TakeWarning( const char* aFormat, std::va_list aValues )
{
    (void)std::vprintf( aFormat, aValues ); // what cannot be printed is lost
}

void ReaderMessages::TakeFailure( const char* aFormat, std::va_list aValues )
{
    (void)std::vprintf( aFormat, aValues ); // what cannot be printed is lost
}

void ReaderMessages::TakeRefusal( const char* aFormat, std::va_list aValues )
{
    (void)std::vprintf( aFormat, aValues ); // what cannot be printed is lost
}

} // namespace HtBaseLib
