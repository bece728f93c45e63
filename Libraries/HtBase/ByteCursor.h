// Walks along the bytes of a packet.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace HtBaseLib
{

// NETWORK: the more significant byte first. HOST: as the word lies in memory.
enum class ByteOrder
{
    NETWORK,
    HOST
};

// ByteReader reads a packet from its first byte on and never looks past its end: whatever lies
// there reads as zero, and IsWhole tells from then on that there was too little. The bytes are
// borrowed.
class ByteReader
{
public:
    ByteReader( const unsigned char* aBytes, std::size_t aSize, ByteOrder aOrder )
        : mBytes( aBytes )
        , mLeft( aSize )
        , mOrder( aOrder )
    {
    }

    bool IsWhole() const { return mIsWhole; }
    std::size_t GetLeft() const { return mLeft; }

    uint16_t Get16()
    {
        unsigned char lBytes[2] = { 0, 0 };
        GetBytes( lBytes, sizeof( lBytes ) );
        if ( mOrder == ByteOrder::NETWORK )
        {
            return static_cast<uint16_t>( ( lBytes[0] << 8 ) | lBytes[1] );
        }
        uint16_t lValue = 0;
        std::memcpy( &lValue, lBytes, sizeof( lValue ) );
        return lValue;
    }

    void GetBytes( void* aTarget, std::size_t aCount )
    {
        const std::size_t lCount = std::min( aCount, mLeft );
        mIsWhole = mIsWhole && lCount == aCount;
        std::copy_n( mBytes, lCount, static_cast<unsigned char*>( aTarget ) );
        mBytes += lCount;
        mLeft -= lCount;
    }

    // Reads a text up to its zero, which is taken too, into aTarget of aCapacity characters. The
    // text there always ends with a zero. When the packet or the capacity ends before the text
    // does, the part that fits is stored and the reader is not whole any more.
    void GetText( char* aTarget, std::size_t aCapacity )
    {
        std::size_t lLength = 0;
        while ( lLength < mLeft && lLength + 1 < aCapacity && mBytes[lLength] != 0 )
        {
            aTarget[lLength] = static_cast<char>( mBytes[lLength] );
            ++lLength;
        }
        aTarget[lLength] = '\0';
        mIsWhole = mIsWhole && lLength < mLeft && mBytes[lLength] == 0;
        const std::size_t lTaken = std::min( lLength + 1, mLeft );
        mBytes += lTaken;
        mLeft -= lTaken;
    }

private:
    const unsigned char* mBytes;
    std::size_t mLeft;
    const ByteOrder mOrder;
    bool mIsWhole = true;
};

// ByteWriter writes a packet from its first byte on and never writes past the end of the buffer:
// what does not fit is not written, nor is anything after it, and IsWhole tells. The buffer is
// borrowed.
class ByteWriter
{
public:
    ByteWriter( unsigned char* aBytes, std::size_t aCapacity, ByteOrder aOrder )
        : mBytes( aBytes )
        , mLeft( aCapacity )
        , mOrder( aOrder )
    {
    }

    bool IsWhole() const { return mIsWhole; }

    void Put16( uint16_t aValue )
    {
        unsigned char lBytes[2] = { static_cast<unsigned char>( aValue >> 8 ),
                                    static_cast<unsigned char>( aValue ) };
        if ( mOrder == ByteOrder::HOST )
        {
            std::memcpy( lBytes, &aValue, sizeof( aValue ) );
        }
        PutBytes( lBytes, sizeof( lBytes ) );
    }

    void PutBytes( const void* aSource, std::size_t aCount )
    {
        mIsWhole = mIsWhole && aCount <= mLeft;
        if ( !mIsWhole )
        {
            return;
        }
        std::copy_n( static_cast<const unsigned char*>( aSource ), aCount, mBytes );
        mBytes += aCount;
        mLeft -= aCount;
    }

    // A text with its zero.
    void PutText( const char* aText ) { PutBytes( aText, std::strlen( aText ) + 1 ); }

private:
    unsigned char* mBytes;
    std::size_t mLeft;
    const ByteOrder mOrder;
    bool mIsWhole = true;
};

} // namespace HtBaseLib
