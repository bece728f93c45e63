// HtBase: a part of the capability records; not for applications.
#pragma once

#include <atomic>

namespace HtBaseLib
{

// PublishedFlag is false until it is set, and publishes what was written before it was set to
// whoever sees it set. A copy has the value of the moment and its own life. Get is safe from any
// thread; Set and assigning may run beside Get, but not beside each other.
class PublishedFlag
{
public:
    PublishedFlag() = default;
    PublishedFlag( const PublishedFlag& aOther )
        : mValue( aOther.Get() )
    {
    }
    PublishedFlag& operator=( const PublishedFlag& aOther )
    {
        mValue.store( aOther.Get(), std::memory_order_release );
        return *this;
    }

    void Set() { mValue.store( true, std::memory_order_release ); }
    bool Get() const { return mValue.load( std::memory_order_acquire ); }

private:
    std::atomic<bool> mValue{ false };
};

} // namespace HtBaseLib
