// What assignments to a link have replaced.
#pragma once

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

namespace HtBaseLib
{

// Keep adds an object to those that may still be in use; each is kept once.
inline void Keep( std::vector<std::shared_ptr<const void>>& aKept,
                  std::shared_ptr<const void> aObject )
{
    if ( std::find( aKept.begin(), aKept.end(), aObject ) == aKept.end() )
    {
        aKept.push_back( std::move( aObject ) );
    }
}

} // namespace HtBaseLib
