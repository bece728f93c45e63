#pragma once

#include <cstddef>
#include <deque>
#include <utility>

namespace Simulators
{

// Latest keeps the latest items of a sequence, at most a given number of them.
template <typename ITEM>
class Latest
{
public:
    explicit Latest( size_t aMax )
        : mMax( aMax )
    {
    }

    void Add( ITEM aItem )
    {
        mItems.push_back( std::move( aItem ) );
        if ( mItems.size() > mMax )
        {
            mItems.pop_front();
        }
    }

    // Oldest first.
    const std::deque<ITEM>& Get() const { return mItems; }

private:
    size_t mMax;
    std::deque<ITEM> mItems;
};

} // namespace Simulators
