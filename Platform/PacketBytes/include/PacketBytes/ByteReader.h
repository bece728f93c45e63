/// @file
/// PacketBytes: reading a packet, field by field.
#pragma once

#include <PacketBytes/ByteOrder.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace PacketBytes
{

/// ByteReader reads the fields of a packet from its first byte on and never looks past its end.
///
/// Numbers come back in host order. A field that does not lie wholly in the packet reads as 0; from
/// then on everything reads as 0 and IsWhole is false. So a packet is read straight down and judged
/// once. The bytes are borrowed and must outlive the reader. Objects follow the rules of int for
/// threads.
template <ByteOrder ORDER>
class ByteReader
{
public:
    /// Reads aSize bytes at aBytes, which may be null where aSize is 0.
    ByteReader( const void* aBytes, std::size_t aSize )
        : mBytes( static_cast<const unsigned char*>( aBytes ) )
        , mLeft( aSize )
    {
    }

    /// True while every field lay in the packet.
    bool IsWhole() const { return mIsWhole; }

    /// Bytes behind the latest field; 0 once the packet was too short.
    std::size_t GetLeft() const { return mLeft; }

    /// The next field, a number of one byte.
    ///@{
    uint8_t Get8()
    {
        const unsigned char* const lBytes = Take( 1 );
        return lBytes == nullptr ? uint8_t{ 0 } : lBytes[0];
    }
    uint16_t Get16() { return GetNumber<uint16_t>(); } ///< one of 2 bytes
    uint32_t Get32() { return GetNumber<uint32_t>(); } ///< one of 4 bytes
    uint64_t Get64() { return GetNumber<uint64_t>(); } ///< one of 8 bytes
    ///@}

    /// Copies the next aCount bytes to aTarget; nothing where the packet ends before.
    void GetBytes( void* aTarget, std::size_t aCount )
    {
        const unsigned char* const lBytes = Take( aCount );
        if ( lBytes != nullptr && aCount != 0 )
        {
            std::memcpy( aTarget, lBytes, aCount );
        }
    }

    /// Copies a text and its zero to aTarget of aCapacity characters, at least 1. Where no zero
    /// comes within the packet or the capacity, the characters that fit are stored with a zero
    /// behind them, and the reader is not whole any more.
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

    /// Leaves out aCount bytes. The same reader, so that a field can be read by its offset:
    /// ByteReader( lPacket, lSize ).Skip( OFFSET ).Get16().
    ByteReader& Skip( std::size_t aCount )
    {
        (void)Take( aCount );
        return *this;
    }

    /// A reader of the next aCount bytes alone, which this one leaves behind. Where the packet ends
    /// before, that reader has no bytes and is not whole.
    ByteReader GetPart( std::size_t aCount )
    {
        const unsigned char* const lBytes = Take( aCount );
        ByteReader lPart( lBytes, mIsWhole ? aCount : 0 );
        lPart.mIsWhole = mIsWhole;
        return lPart;
    }

private:
    // The one check of a bound. Null, and nothing is left, where the packet ends before.
    const unsigned char* Take( std::size_t aCount )
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
