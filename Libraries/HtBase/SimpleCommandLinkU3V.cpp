#include <SimpleCommandLinkU3V.h>

#include "Libraries/HtBase/Support/Diagnostics.h"

namespace HtBaseLib
{

using QmUtilsLib::Logger;

SimpleCommandLinkU3V::SimpleCommandLinkU3V()
    : mLogger( std::make_shared<Logger>( LOGGER_NAME, LOGGER_CONFIGURATION ) )
{
}

// KEEP: A copy shares the logger with its source.
SimpleCommandLinkU3V::SimpleCommandLinkU3V( const SimpleCommandLinkU3V& aOther ) = default;

SimpleCommandLinkU3V& SimpleCommandLinkU3V::operator=( const SimpleCommandLinkU3V& aOther )
{
    if ( this != &aOther )
    {
        KeepReplaced( mLogger );
        BaseCommandLinkU3V::operator=( aOther ); // the last that needs memory
        mLogger = aOther.mLogger;
    }
    return *this;
}

SimpleCommandLinkU3V::~SimpleCommandLinkU3V()
{
    // KEEP: The logger is destroyed before the base class closes the device, so closing must not
    // log.
    mLogger.reset();
}

Logger* SimpleCommandLinkU3V::GetLibLogger()
{
    return mLogger.get();
}

Logger* SimpleCommandLinkU3V::GetLinkLogger()
{
    return mLogger.get();
}

bool SimpleCommandLinkU3V::IsMaster() const
{
    return false;
}

} // namespace HtBaseLib
