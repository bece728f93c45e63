#include <HtString.h>

#include "Libraries/HtBase/Support/Diagnostics.h"

#include <QmUtilsLib/String.h>

#include <cstddef>
#include <memory>

using HtBaseLib::IsPresent;

// The other text of an operation must exist and be constructed.
#define ASSERT_VALUE()                                                                           \
    do                                                                                           \
    {                                                                                            \
        QMUTILSLIB_ASSERT_TEXT( IsPresent( std::addressof( aValue ) ), "( & aValue ) != NULL" ); \
        QMUTILSLIB_ASSERT( aValue.mThis != NULL );                                               \
    } while ( false )

HtString::HtString()
    : mThis( new QmUtilsLib::String )
{
    SetViews();
}

HtString::HtString( const HtString& aValue )
{
    ASSERT_VALUE();
    mThis = new QmUtilsLib::String( *aValue.mThis );
    SetViews();
}

HtString::HtString( const char* aValue )
    : mThis( new QmUtilsLib::String( aValue ) )
{
    SetViews();
}

HtString::HtString( const wchar_t* aValue )
    : mThis( new QmUtilsLib::String( aValue ) )
{
    SetViews();
}

// The pointers are cleared through volatile lvalues, since stores to an object at the end of its
// life may otherwise be dropped: a text used after its end then meets a null pointer, not a stale
// one.
HtString::~HtString()
{
    delete mThis;
    *const_cast<QmUtilsLib::String* volatile*>( &mThis ) = nullptr;
    *const_cast<const void* volatile*>( &mAsciiView ) = nullptr;
    *const_cast<const void* volatile*>( &mUnicodeView ) = nullptr;
}

const HtString& HtString::operator=( const HtString& aValue )
{
    QMUTILSLIB_ASSERT( mThis != NULL );
    ASSERT_VALUE();
    *mThis = *aValue.mThis; // NOLINT(clang-analyzer-core.NonNullParamChecker): asserted above
    return *this;
}

// KEEP: Appending joins the UTF-8 forms and the wide forms of both texts, so a surrogate without
// its partner stays in the wide form. Only a UTF-8 character that was cut between both texts is
// converted anew.
const HtString& HtString::operator+=( const HtString& aValue )
{
    QMUTILSLIB_ASSERT( mThis != NULL );
    ASSERT_VALUE();
    *mThis += *aValue.mThis;
    return *this;
}

bool HtString::operator==( const HtString& aValue ) const
{
    QMUTILSLIB_ASSERT( mThis != NULL );
    ASSERT_VALUE();
    return *mThis == *aValue.mThis;
}

bool HtString::operator==( const char* aValue ) const
{
    QMUTILSLIB_ASSERT( mThis != NULL );
    QMUTILSLIB_ASSERT( aValue != NULL );
    return *this == HtString( aValue );
}

bool HtString::operator==( const wchar_t* aValue ) const
{
    QMUTILSLIB_ASSERT( mThis != NULL );
    QMUTILSLIB_ASSERT( aValue != NULL );
    return *this == HtString( aValue );
}

bool HtString::operator!=( const HtString& aValue ) const
{
    QMUTILSLIB_ASSERT( mThis != NULL );
    ASSERT_VALUE();
    return *mThis != *aValue.mThis;
}

bool HtString::operator!=( const char* aValue ) const
{
    QMUTILSLIB_ASSERT( mThis != NULL );
    QMUTILSLIB_ASSERT( aValue != NULL );
    return *this != HtString( aValue );
}

bool HtString::operator!=( const wchar_t* aValue ) const
{
    QMUTILSLIB_ASSERT( mThis != NULL );
    QMUTILSLIB_ASSERT( aValue != NULL );
    return *this != HtString( aValue );
}

HtString::operator const char*() const
{
    return GetAscii();
}

const char* HtString::GetAscii() const
{
    QMUTILSLIB_ASSERT( mThis != NULL );
    return mThis->GetAscii();
}

HtString::operator const wchar_t*() const
{
    return GetUnicode();
}

const wchar_t* HtString::GetUnicode() const
{
    QMUTILSLIB_ASSERT( mThis != NULL );
    return mThis->GetUnicode();
}

unsigned int HtString::GetLength() const
{
    QMUTILSLIB_ASSERT( mThis != NULL );
    return mThis->GetLength();
}

// KEEP: `HtString` keeps two pointers that nothing reads, into the storage of its
// implementation. They keep the object's layout. They point at members with a fixed address, so
// they never dangle.
void HtString::SetViews()
{
    mAsciiView = mThis->GetAsciiStorage();
    mUnicodeView = mThis->GetUnicodeStorage();
}
