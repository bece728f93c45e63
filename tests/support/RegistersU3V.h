// A USB3 Vision device that consists of registers alone.
#pragma once

#include "tests/support/Packets.h"

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace TestSupport
{

// RegistersU3V answers READMEM of whole registers with the values that the test has set, on bytes.
// Every other command, and every other address or size, is refused as a device does. Not safe for
// several threads at once.
class RegistersU3V
{
public:
    // What the device was asked for.
    struct Read
    {
        uint64_t mAddress;
        unsigned int mSize;

        bool operator==( const Read& aOther ) const
        {
            return mAddress == aOther.mAddress && mSize == aOther.mSize;
        }
    };
    using Reads = std::vector<Read>;

    // A register of 4 or 8 bytes.
    void Set4( uint64_t aAddress, uint32_t aValue );
    void Set8( uint64_t aAddress, uint64_t aValue );

    // A device with that SBRM address, version 1.2 of GenCP and 1.0 of USB3 Vision, these transfer
    // lengths, no stream channel and no bit set.
    void SetBasics( uint64_t aSBRM, uint32_t aMaxCommand, uint32_t aMaxAck );

    // These take precedence over the registers: the address is answered with that status, or not at
    // all.
    void Refuse( uint64_t aAddress, uint16_t aStatus ) { mRefused[aAddress] = aStatus; }
    void Silence( uint64_t aAddress ) { mSilent.insert( aAddress ); }
    void Relent();

    // Called with every read, before it is answered.
    void SetObserver( std::function<void( const Read& )> aObserver )
    {
        mObserver = std::move( aObserver );
    }

    // The acknowledge of a command; empty if there is none.
    Bytes Answer( const Bytes& aCommand );

    const Reads& GetReads() const { return mReads; }
    void ClearReads() { mReads.clear(); }

private:
    std::map<uint64_t, Bytes> mRegisters;
    std::map<uint64_t, uint16_t> mRefused;
    std::set<uint64_t> mSilent;
    std::function<void( const Read& )> mObserver;
    Reads mReads;
};

// "0x01C4/8".
std::string ToText( const RegistersU3V::Read& aRead );

} // namespace TestSupport
