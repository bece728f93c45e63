// How a link tells its callbacks what it has transferred.
#pragma once

#include "Libraries/HtBase/Support/Results.h"

#include <QmUtilsLib/Result.h>

#include <utility>

namespace HtBaseLib
{

// Notify calls aCallback if the transaction whose result is aResult was OK, and returns aResult, or
// what Guarded makes of a callback that finds no memory.
template <typename Callback>
QmUtilsLib::Result Notify( QmUtilsLib::Result aResult, Callback aCallback )
{
    if ( !aResult.IsOK() )
    {
        return aResult;
    }
    return Guarded(
        [&]
        {
            aCallback();
            return std::move( aResult );
        } );
}

} // namespace HtBaseLib
