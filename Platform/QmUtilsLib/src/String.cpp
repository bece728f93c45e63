#include <QmUtilsLib/String.h>

#include <cstddef>

namespace QmUtilsLib
{

namespace
{

constexpr char32_t REPLACEMENT = 0xFFFD;
constexpr char32_t LAST_CHARACTER = 0x10FFFF;
constexpr bool WIDE_IS_UTF16 = sizeof( wchar_t ) == 2;

bool IsSurrogate( char32_t aCharacter )
{
    return aCharacter >= 0xD800 && aCharacter <= 0xDFFF;
}

// What the first byte of a UTF-8 sequence says: how many bytes follow, the bits it carries, and the
// range of the second byte, which is what excludes overlong forms, surrogates and what lies beyond
// the last character.
struct LeadByte
{
    int mFollowing; // -1: no character starts with this byte
    char32_t mBits;
    unsigned char mSecondMin;
    unsigned char mSecondMax;
};

LeadByte ClassifyLeadByte( unsigned char aByte )
{
    if ( aByte < 0x80 )
    {
        return { 0, aByte, 0x80, 0xBF };
    }
    if ( aByte < 0xC2 )
    {
        return { -1, 0, 0x80, 0xBF };
    }
    if ( aByte < 0xE0 )
    {
        return { 1, aByte & 0x1FU, 0x80, 0xBF };
    }
    if ( aByte < 0xF0 )
    {
        const unsigned char lMin = aByte == 0xE0 ? 0xA0 : 0x80;
        const unsigned char lMax = aByte == 0xED ? 0x9F : 0xBF;
        return { 2, aByte & 0x0FU, lMin, lMax };
    }
    if ( aByte < 0xF5 )
    {
        const unsigned char lMin = aByte == 0xF0 ? 0x90 : 0x80;
        const unsigned char lMax = aByte == 0xF4 ? 0x8F : 0xBF;
        return { 3, aByte & 0x07U, lMin, lMax };
    }
    return { -1, 0, 0x80, 0xBF };
}

// Takes one character from aText at aPosition, which it moves on. Of a malformed sequence it takes
// the longest part that could have begun a character, and gives one replacement for it.
char32_t DecodeUtf8( const std::string& aText, std::size_t& aPosition )
{
    const LeadByte lLead = ClassifyLeadByte( static_cast<unsigned char>( aText[aPosition++] ) );
    if ( lLead.mFollowing < 0 )
    {
        return REPLACEMENT;
    }
    char32_t lCharacter = lLead.mBits;
    for ( int lIndex = 0; lIndex < lLead.mFollowing; ++lIndex )
    {
        const unsigned char lMin = lIndex == 0 ? lLead.mSecondMin : 0x80;
        const unsigned char lMax = lIndex == 0 ? lLead.mSecondMax : 0xBF;
        const unsigned char lByte = aPosition < aText.size()
                                        ? static_cast<unsigned char>( aText[aPosition] )
                                        : static_cast<unsigned char>( 0 );
        if ( lByte < lMin || lByte > lMax )
        {
            return REPLACEMENT;
        }
        lCharacter = ( lCharacter << 6 ) | static_cast<char32_t>( lByte & 0x3F );
        ++aPosition;
    }
    return lCharacter;
}

void AppendUtf8( std::string& aText, char32_t aCharacter )
{
    const auto lPut = [&aText]( char32_t aByte )
    {
        aText.push_back( static_cast<char>( aByte ) );
    };
    if ( aCharacter < 0x80 )
    {
        lPut( aCharacter );
        return;
    }
    if ( aCharacter < 0x800 )
    {
        lPut( 0xC0U | ( aCharacter >> 6 ) );
        lPut( 0x80U | ( aCharacter & 0x3FU ) );
        return;
    }
    if ( aCharacter < 0x10000 )
    {
        lPut( 0xE0U | ( aCharacter >> 12 ) );
        lPut( 0x80U | ( ( aCharacter >> 6 ) & 0x3FU ) );
        lPut( 0x80U | ( aCharacter & 0x3FU ) );
        return;
    }
    lPut( 0xF0U | ( aCharacter >> 18 ) );
    lPut( 0x80U | ( ( aCharacter >> 12 ) & 0x3FU ) );
    lPut( 0x80U | ( ( aCharacter >> 6 ) & 0x3FU ) );
    lPut( 0x80U | ( aCharacter & 0x3FU ) );
}

// Takes one character from the wide form. Where wide characters have 16 bits a pair of surrogates
// is one character; a surrogate without its partner is malformed everywhere.
char32_t DecodeWide( const std::wstring& aText, std::size_t& aPosition )
{
    const auto lFirst = static_cast<char32_t>( aText[aPosition++] );
    if ( WIDE_IS_UTF16 && lFirst >= 0xD800 && lFirst < 0xDC00 && aPosition < aText.size() )
    {
        const auto lSecond = static_cast<char32_t>( aText[aPosition] );
        if ( lSecond >= 0xDC00 && lSecond <= 0xDFFF )
        {
            ++aPosition;
            return 0x10000 + ( ( lFirst - 0xD800 ) << 10 ) + ( lSecond - 0xDC00 );
        }
    }
    return IsSurrogate( lFirst ) || lFirst > LAST_CHARACTER ? REPLACEMENT : lFirst;
}

void AppendWide( std::wstring& aText, char32_t aCharacter )
{
    if ( WIDE_IS_UTF16 && aCharacter >= 0x10000 )
    {
        aText.push_back( static_cast<wchar_t>( 0xD800 + ( ( aCharacter - 0x10000 ) >> 10 ) ) );
        aText.push_back( static_cast<wchar_t>( 0xDC00 + ( ( aCharacter - 0x10000 ) & 0x3FFU ) ) );
        return;
    }
    aText.push_back( static_cast<wchar_t>( aCharacter ) );
}

// Where a character begins that the end of the text cuts off, or the size of the text. Such a
// beginning is one replacement at the end of the wide form.
std::size_t FindCutOff( const std::string& aText )
{
    for ( std::size_t lLength = 1; lLength <= 3 && lLength <= aText.size(); ++lLength )
    {
        const std::size_t lStart = aText.size() - lLength;
        const LeadByte lLead = ClassifyLeadByte( static_cast<unsigned char>( aText[lStart] ) );
        if ( lLead.mFollowing >= static_cast<int>( lLength ) )
        {
            std::size_t lPosition = lStart;
            (void)DecodeUtf8( aText, lPosition );
            return lPosition == aText.size() ? lStart : aText.size();
        }
    }
    return aText.size();
}

std::wstring ToWide( const std::string& aText )
{
    std::wstring lWide;
    lWide.reserve( aText.size() );
    for ( std::size_t lPosition = 0; lPosition < aText.size(); )
    {
        AppendWide( lWide, DecodeUtf8( aText, lPosition ) );
    }
    return lWide;
}

std::string ToUtf8( const std::wstring& aText )
{
    std::string lUtf8;
    lUtf8.reserve( aText.size() );
    for ( std::size_t lPosition = 0; lPosition < aText.size(); )
    {
        AppendUtf8( lUtf8, DecodeWide( aText, lPosition ) );
    }
    return lUtf8;
}

} // namespace

String::String( const char* aText )
    : mAscii( aText != nullptr ? aText : "" )
    , mUnicode( ToWide( mAscii ) )
{
}

String::String( const wchar_t* aText )
    : mUnicode( aText != nullptr ? aText : L"" )
{
    mAscii = ToUtf8( mUnicode );
}

// Each form is appended to its like, so that what was given stays. Only a character that this text
// begins is looked at again: each byte that it takes from aOther is one replacement in aOther's
// wide form. aOther may be this text itself, so nothing is overwritten before it was appended.
const String& String::operator+=( const String& aOther )
{
    const std::size_t lCutOff = FindCutOff( mAscii );
    const std::size_t lBegun = mAscii.size() - lCutOff;
    std::wstring lCharacter;
    std::size_t lSkipped = 0;
    if ( lBegun != 0 )
    {
        const std::string lJoint = mAscii.substr( lCutOff ) + aOther.mAscii.substr( 0, 3 );
        std::size_t lPosition = 0;
        AppendWide( lCharacter, DecodeUtf8( lJoint, lPosition ) );
        // It replaces its beginning; a pair of surrogates also one of those of aOther.
        lSkipped = lPosition - lBegun + 1 - lCharacter.size();
    }
    const std::size_t lSize = mUnicode.size();
    mUnicode.append( aOther.mUnicode, lSkipped, std::wstring::npos );
    try
    {
        mAscii += aOther.mAscii;
    }
    catch ( ... )
    {
        mUnicode.resize( lSize );
        throw;
    }
    if ( lBegun != 0 )
    {
        mUnicode.replace( lSize - 1, lCharacter.size(), lCharacter ); // in place
    }
    return *this;
}

unsigned int String::GetLength() const
{
    if ( !WIDE_IS_UTF16 )
    {
        return static_cast<unsigned int>( mUnicode.size() );
    }
    unsigned int lLength = 0;
    for ( std::size_t lPosition = 0; lPosition < mUnicode.size(); ++lLength )
    {
        (void)DecodeWide( mUnicode, lPosition );
    }
    return lLength;
}

} // namespace QmUtilsLib
