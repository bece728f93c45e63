// Hexadecimal digits, two to a byte.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace HtBaseLib::HexDigits
{

// The value of a digit, or -1.
constexpr int GetValue( unsigned char aDigit )
{
    if ( aDigit >= '0' && aDigit <= '9' )
    {
        return aDigit - '0';
    }
    const int lLetter = ( aDigit | 0x20 ) - 'a';
    return lLetter >= 0 && lLetter < 6 ? lLetter + 10 : -1;
}

// The value of the two digits at aText, or -1.
constexpr int GetByte( const unsigned char* aText )
{
    const int lHigh = GetValue( aText[0] );
    const int lLow = GetValue( aText[1] );
    return lHigh < 0 || lLow < 0 ? -1 : lHigh * 16 + lLow;
}

// Decode works on vectors of this many bytes. The compilers make one instruction of an operation on
// a vector where the processor has it, and a loop elsewhere.
constexpr std::size_t VECTOR_SIZE = 16;
constexpr std::size_t STEP = 2 * VECTOR_SIZE; // the digits of a vector

using Vector [[gnu::vector_size( VECTOR_SIZE )]] = unsigned char;
using Words [[gnu::vector_size( VECTOR_SIZE )]] = std::uint64_t;

inline Vector Load( const unsigned char* aBytes )
{
    Vector lVector;
    std::memcpy( &lVector, aBytes, VECTOR_SIZE );
    return lVector;
}

// All ones where aVector is below aLimit, zero elsewhere.
inline Vector IsBelow( Vector aVector, unsigned char aLimit )
{
    return reinterpret_cast<Vector>( aVector < aLimit );
}

// The values of digits. Clears in aAreDigits what is not a digit.
inline Vector GetValues( Vector aText, Vector& aAreDigits )
{
    const Vector lIsNumber = IsBelow( aText - static_cast<unsigned char>( '0' ), 10 );
    const Vector lLetter =
        ( aText | static_cast<unsigned char>( 0x20 ) ) - static_cast<unsigned char>( 'a' );
    const Vector lIsLetter = IsBelow( lLetter, 6 );
    aAreDigits &= lIsNumber | lIsLetter;
    // The low half of a letter's code is 1 to 6.
    return ( aText & static_cast<unsigned char>( 0x0F ) ) +
           ( lIsLetter & static_cast<unsigned char>( 9 ) );
}

// The bytes of which aFirst and aSecond hold the values of the digits.
inline Vector Join( Vector aFirst, Vector aSecond )
{
    const Vector lHigh = __builtin_shufflevector( aFirst, aSecond, 0, 2, 4, 6, 8, 10, 12, 14, 16,
                                                  18, 20, 22, 24, 26, 28, 30 );
    const Vector lLow = __builtin_shufflevector( aFirst, aSecond, 1, 3, 5, 7, 9, 11, 13, 15, 17, 19,
                                                 21, 23, 25, 27, 29, 31 );
    // A value has four bits, so no bit leaves its byte where more than a byte is shifted at a time,
    // which takes one instruction.
    return reinterpret_cast<Vector>( reinterpret_cast<Words>( lHigh ) << 4 ) | lLow;
}

inline bool AreAllOnes( Vector aVector )
{
    std::uint64_t lHalves[2];
    std::memcpy( lHalves, &aVector, sizeof( lHalves ) );
    return ( lHalves[0] & lHalves[1] ) == UINT64_MAX;
}

// The low byte of the sum of all bytes.
inline unsigned char Sum( Vector aVector )
{
    constexpr std::uint64_t EVERY_OTHER = 0x00FF00FF00FF00FF;
    constexpr std::uint64_t ONES = 0x0001000100010001; // the product has the sum at its top
    const auto lWords = reinterpret_cast<Words>( aVector );
    const Words lPairs = ( lWords & EVERY_OTHER ) + ( lWords >> 8 & EVERY_OTHER );
    return static_cast<unsigned char>( ( lPairs[0] + lPairs[1] ) * ONES >> 48 & 0xFF );
}

// All ones in the first aCount places, up to VECTOR_SIZE, and zero behind.
inline Vector MakeMask( std::size_t aCount )
{
    static constexpr unsigned char ONES_AND_ZEROS[2 * VECTOR_SIZE] = {
        0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, //
        0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,
    };
    return Load( ONES_AND_ZEROS + VECTOR_SIZE - aCount );
}

// Decodes aCount digits, an even number, into aBytes. False when not all are digits; then the
// outputs have no meaning. The bytes and aSum have the same sum.
//
// What is behind the digits, up to a multiple of STEP, is read but not looked at, and as many bytes
// as a multiple of VECTOR_SIZE are written.
inline bool Decode( const unsigned char* aText, std::size_t aCount, unsigned char* aBytes,
                    Vector& aSum )
{
    Vector lAreDigits = ~Vector{};
    Vector lSum{};
    const auto lStore = [&]( Vector aFirst, Vector aSecond )
    {
        const Vector lBytes = Join( aFirst, aSecond );
        std::memcpy( aBytes, &lBytes, VECTOR_SIZE );
        aBytes += VECTOR_SIZE;
        lSum += lBytes;
    };
    for ( ; aCount >= STEP; aCount -= STEP, aText += STEP )
    {
        lStore( GetValues( Load( aText ), lAreDigits ),
                GetValues( Load( aText + VECTOR_SIZE ), lAreDigits ) );
    }
    // What is not text counts as '0', so it is a digit and adds nothing to the sum.
    const Vector lZeros = Vector{} + static_cast<unsigned char>( '0' );
    if ( aCount > VECTOR_SIZE )
    {
        const Vector lIsText = MakeMask( aCount - VECTOR_SIZE );
        const Vector lLast = ( Load( aText + VECTOR_SIZE ) & lIsText ) | ( lZeros & ~lIsText );
        lStore( GetValues( Load( aText ), lAreDigits ), GetValues( lLast, lAreDigits ) );
    }
    else if ( aCount > 0 )
    {
        const Vector lIsText = MakeMask( aCount );
        const Vector lLast = ( Load( aText ) & lIsText ) | ( lZeros & ~lIsText );
        lStore( GetValues( lLast, lAreDigits ), Vector{} );
    }
    aSum = lSum;
    return AreAllOnes( lAreDigits );
}

} // namespace HtBaseLib::HexDigits
