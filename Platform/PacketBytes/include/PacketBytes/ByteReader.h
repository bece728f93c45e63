/// @file
/// PacketBytes: a bounded reader of packets.
#pragma once

#include <PacketBytes/ByteOrder.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace PacketBytes
{

/// ByteReader reads the fields of a packet in order and never reads beyond its end.
///
/// Numbers are returned in host order. A field that is not wholly in the packet is 0; from then on
/// every field is 0 and IsWhole is false. So read a packet field by field and check IsWhole once at
/// the end. The bytes are borrowed and must outlive the reader.
template <ByteOrder ORDER>
class ByteReader
{
public:
    /// A reader of the aSize bytes at aBytes. With null it has no bytes, whatever aSize is.
    ByteReader( const void* aBytes, std::size_t aSize )
        : mBytes( static_cast<const unsigned char*>( aBytes ) )
        , mLeft( aBytes == nullptr ? 0 : aSize )
    {
    }

    /// IsWhole is true while every field was wholly in the packet.
    bool IsWhole() const { return mIsWhole; }

    /// The number of bytes behind the latest field. 0 once the packet was too short.
    std::size_t GetLeft() const { return mLeft; }

    /// The next field: a number of 1 byte.
    ///@{
    uint8_t Get8()
    {
        const unsigned char* const lBytes = Take( 1 );
        return lBytes == nullptr ? uint8_t{ 0 } : lBytes[0];
    }
    uint16_t Get16() { return GetNumber<uint16_t>(); } ///< a number of 2 bytes
    uint32_t Get32() { return GetNumber<uint32_t>(); } ///< a number of 4 bytes
    uint64_t Get64() { return GetNumber<uint64_t>(); } ///< a number of 8 bytes
    ///@}

    /// GetBytes copies the next aCount bytes to aTarget. It copies nothing where the packet has
    /// fewer.
    void GetBytes( void* aTarget, std::size_t aCount )
    {
        const unsigned char* const lBytes = Take( aCount );
        if ( lBytes != nullptr && aCount != 0 )
        {
            std::memcpy( aTarget, lBytes, aCount );
        }
    }

    /// GetText copies a text and its zero to aTarget, which has room for aCapacity characters, at
    /// least 1. Where no zero lies within the packet and the capacity, it stores the characters
    /// that fit and a zero, and IsWhole is false.
    void GetText( char* aTarget, std::size_t aCapacity )
    {
        std::size_t lLength = 0;
        while ( lLength < mLeft && lLength + 1 < aCapacity && mBytes[lLength] != 0 )
        {
            aTarget[lLength] = static_cast<char>( mBytes[lLength] );
            ++lLength;
        }
        aTarget[lLength] = '\0';
        const bool lHasZero = lLength < mLeft && mBytes[lLength] == 0;
        (void)Take( lHasZero ? lLength + 1 : mLeft + 1 ); // without a zero: more than there is
    }

    /// Skip leaves out aCount bytes and returns this reader, so that a field can be read by its
    /// offset: `ByteReader( lPacket, lSize ).Skip( OFFSET ).Get16()`.
    ByteReader& Skip( std::size_t aCount )
    {
        (void)Take( aCount );
        return *this;
    }

    /// GetPart returns a reader of the next aCount bytes, and this reader goes on behind them.
    /// Where the packet has fewer, that reader has no bytes and is not whole.
    ByteReader GetPart( std::size_t aCount )
    {
        ByteReader lPart = *this;
        (void)Take( aCount );
        lPart.mLeft = mIsWhole ? aCount : 0;
        lPart.mIsWhole = mIsWhole;
        return lPart;
    }

    /// GetUpTo does what GetPart does, but where the packet has fewer bytes, the part has those.
    ByteReader GetUpTo( std::size_t aCount )
    {
        ByteReader lPart = *this;
        lPart.mLeft = std::min( aCount, mLeft );
        mBytes += lPart.mLeft;
        mLeft -= lPart.mLeft;
        return lPart;
    }

    /// Take returns the address of the next aCount bytes, and this reader goes on behind them. Null
    /// where the packet has fewer.
    const unsigned char* Take( std::size_t aCount ) // the one check of a bound
    {
        if ( aCount > mLeft )
        {
            mLeft = 0;
            mIsWhole = false;
            return nullptr;
        }
        const unsigned char* const lBytes = mBytes;
        mBytes += aCount;
        mLeft -= aCount;
        return lBytes;
    }

private:
    template <typename NUMBER>
    NUMBER GetNumber()
    {
        const unsigned char* const lBytes = Take( sizeof( NUMBER ) );
        return lBytes == nullptr ? NUMBER{ 0 } : Load<ORDER, NUMBER>( lBytes );
    }

    const unsigned char* mBytes;
    std::size_t mLeft;
    bool mIsWhole = true;
};

/// A reader of GVCP and TFTP.
using BigReader = ByteReader<ByteOrder::BIG>;

/// A reader of GenCP and USB.
using LittleReader = ByteReader<ByteOrder::LITTLE>;

} // namespace PacketBytes
