/// @file
/// PacketBytes: a bounded writer of packets.
#pragma once

#include <PacketBytes/ByteOrder.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace PacketBytes
{

/// ByteWriter writes the fields of a packet in order and never writes beyond the end of its buffer.
///
/// Numbers are given in host order. A field that does not fit is not written, nor is any field
/// after it, and IsWhole is false from then on. The buffer is borrowed and must outlive the writer.
template <ByteOrder ORDER>
class ByteWriter
{
public:
    /// A writer into the aCapacity bytes at aBytes. With null it has none, whatever aCapacity is.
    ByteWriter( void* aBytes, std::size_t aCapacity )
        : mBytes( static_cast<unsigned char*>( aBytes ) )
        , mLeft( aBytes == nullptr ? 0 : aCapacity )
    {
    }

    /// IsWhole is true while every field did fit.
    bool IsWhole() const { return mIsWhole; }

    /// The number of bytes behind the latest field. 0 once a field did not fit.
    std::size_t GetLeft() const { return mLeft; }

    /// Writes a number of 1 byte.
    ///@{
    void Put8( uint8_t aValue ) { PutBytes( &aValue, sizeof( aValue ) ); }
    void Put16( uint16_t aValue ) { PutNumber( aValue ); } ///< a number of 2 bytes
    void Put32( uint32_t aValue ) { PutNumber( aValue ); } ///< a number of 4 bytes
    void Put64( uint64_t aValue ) { PutNumber( aValue ); } ///< a number of 8 bytes
    ///@}

    /// PutBytes writes the aCount bytes at aSource, which may be null when aCount is 0.
    void PutBytes( const void* aSource, std::size_t aCount )
    {
        unsigned char* const lBytes = Take( aCount );
        if ( lBytes != nullptr && aCount != 0 )
        {
            std::memcpy( lBytes, aSource, aCount );
        }
    }

    /// PutText writes a text and its zero.
    void PutText( const char* aText ) { PutBytes( aText, std::strlen( aText ) + 1 ); }

    /// PutZeros writes aCount zero bytes.
    void PutZeros( std::size_t aCount )
    {
        unsigned char* const lBytes = Take( aCount );
        if ( lBytes != nullptr && aCount != 0 )
        {
            std::memset( lBytes, 0, aCount );
        }
    }

    /// Skip leaves aCount bytes of the buffer as they are and returns this writer, so that a field
    /// can be written by its offset: `ByteWriter( lPacket, lSize ).Skip( OFFSET ).Put16( lValue )`.
    ByteWriter& Skip( std::size_t aCount )
    {
        (void)Take( aCount );
        return *this;
    }

    /// GetPart returns a writer into the next aCount bytes, and this writer goes on behind them. It
    /// serves a packet that is written wholly or not at all: where the buffer has fewer bytes, that
    /// writer has none and is not whole.
    ByteWriter GetPart( std::size_t aCount )
    {
        ByteWriter lPart = *this;
        (void)Take( aCount );
        lPart.mLeft = mIsWhole ? aCount : 0;
        lPart.mIsWhole = mIsWhole;
        return lPart;
    }

    /// Take returns the address of the next aCount bytes, and this writer goes on behind them. Null
    /// where the buffer has fewer.
    unsigned char* Take( std::size_t aCount ) // the one check of a bound
    {
        if ( aCount > mLeft )
        {
            mLeft = 0;
            mIsWhole = false;
            return nullptr;
        }
        unsigned char* const lBytes = mBytes;
        mBytes += aCount;
        mLeft -= aCount;
        return lBytes;
    }

private:
    template <typename NUMBER>
    void PutNumber( NUMBER aValue )
    {
        unsigned char* const lBytes = Take( sizeof( NUMBER ) );
        if ( lBytes != nullptr )
        {
            Store<ORDER>( aValue, lBytes );
        }
    }

    unsigned char* mBytes;
    std::size_t mLeft;
    bool mIsWhole = true;
};

/// A writer of GVCP and TFTP.
using BigWriter = ByteWriter<ByteOrder::BIG>;

/// A writer of GenCP and USB.
using LittleWriter = ByteWriter<ByteOrder::LITTLE>;

} // namespace PacketBytes
