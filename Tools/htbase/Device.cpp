#include "Tools/htbase/Device.h"

#include "Tools/htbase/Interruption.h"

#include <utility>

namespace HtBaseTool
{

using QmUtilsLib::Result;

Device::Device( Interruption& aInterruption, std::string aName, AddressBits aAddressBits )
    : mInterruption( aInterruption )
    , mName( std::move( aName ) )
    , mAddressBits( aAddressBits )
{
}

Failure Device::MakeFailure( const std::string& aTried, const Result& aResult,
                             const std::string& aMore ) const
{
    if ( mInterruption.IsRequested() )
    {
        return Failure( "interrupted before it could " + aTried + " of " + mName + aMore,
                        Result::ABORTED );
    }
    return Failure( "cannot " + aTried + " of " + mName + ": " + Describe( aResult ) + aMore +
                        GetAdvice( aResult ),
                    aResult );
}

} // namespace HtBaseTool
