// A GigE Vision device that consists of registers and texts alone.
#pragma once

#include "tests/support/Packets.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace TestSupport
{

// RegisterTable answers READREG of one register and READMEM of one text with the values that the
// test has set, on bytes: no socket and no clock. Every other command, and every other address, is
// refused as a device does. Not safe for several threads at once.
class RegisterTable
{
public:
    // What the device was asked for; the size is that of a READMEM, 0 for a READREG.
    struct Read
    {
        uint32_t mAddress;
        unsigned int mSize;
        uint16_t mIdentifier;
    };

    void SetRegister( uint32_t aAddress, uint32_t aValue ) { mRegisters[aAddress] = aValue; }

    // A field of aSize bytes: the text, cut or filled up with NUL.
    void SetText( uint32_t aAddress, size_t aSize, const std::string& aText )
    {
        mTexts[aAddress] = aText;
        mTexts[aAddress].resize( aSize );
    }

    // These take precedence over the table: the address is answered with that status, or not at
    // all.
    void Refuse( uint32_t aAddress, uint16_t aStatus ) { mRefused[aAddress] = aStatus; }
    void Silence( uint32_t aAddress ) { mSilent.insert( aAddress ); }
    void Relent()
    {
        mRefused.clear();
        mSilent.clear();
    }

    // Called with every read, before it is answered.
    void SetObserver( std::function<void( const Read& )> aObserver )
    {
        mObserver = std::move( aObserver );
    }

    // The acknowledge of a command; empty if there is none.
    Bytes Answer( const Bytes& aCommand );

    // The reads so far, in order; as texts, "0x0934" or "0x0088/32"; forget them.
    const std::vector<Read>& GetReads() const { return mReads; }
    std::vector<std::string> GetReadTexts() const;
    void ClearReads() { mReads.clear(); }

private:
    std::map<uint32_t, uint32_t> mRegisters;
    std::map<uint32_t, std::string> mTexts;
    std::map<uint32_t, uint16_t> mRefused;
    std::set<uint32_t> mSilent;
    std::function<void( const Read& )> mObserver;
    std::vector<Read> mReads;
};

// "0x0934".
std::string ToText( uint32_t aAddress );

} // namespace TestSupport
