#include <HtResult.h>

#include "Libraries/HtBase/Support/Diagnostics.h"

#include <QmUtilsLib/Result.h>
#include <QmUtilsLib/String.h>

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <memory>
#include <new>
#include <utility>

using HtBaseLib::IsPresent;
using QmUtilsLib::Result;

#define ASSERT_B() QMUTILSLIB_ASSERT_TEXT( IsPresent( std::addressof( aB ) ), "( & aB ) != NULL" )

namespace
{

constexpr const char* UNIT = "Libraries/HtBase/HtResult";

// The code after the destructor has run; a living result never has it.
constexpr unsigned int DESTROYED = 0x0400;

template <std::size_t COUNT>
constexpr bool IsAscending( const unsigned int ( &aCodes )[COUNT] )
{
    for ( std::size_t lIndex = 1; lIndex < COUNT; ++lIndex )
    {
        if ( aCodes[lIndex - 1] >= aCodes[lIndex] )
        {
            return false;
        }
    }
    return true;
}

// The codes that are held as they are.
constexpr unsigned int ACCEPTED_CODES[] = {
    0x0000, 0x0001, 0x0004, 0x0006, 0x0013, 0x0014, 0x0015, 0x0017, 0x0018, 0x0019, 0x001A, 0x001B,
    0x001C, 0x001D, 0x001E, 0x0025, 0x0027, 0x0028, 0x0201, 0x0202, 0x0501, 0x0602, 0x0603, 0x0604,
    0x0605, 0x0904, 0x0B00, 0x0B01, 0x0B02, 0x0B03, 0x4000, 0x4001, 0x4002, 0xFFFF,
};
static_assert( IsAscending( ACCEPTED_CODES ), "the codes are searched by halves" );

struct Successor
{
    unsigned int mRetired;
    unsigned int mCode;
};

// Retired codes that callers may still pass, and the codes that replace them.
constexpr Successor SUCCESSORS[] = {
    { 0x0012, 0x4001 }, { 0x0020, 0x4000 }, { 0x0021, 0x4001 },
    { 0x0022, 0x4000 }, { 0x0305, 0x4000 },
};

bool IsAccepted( unsigned int aCode )
{
    return std::binary_search( std::begin( ACCEPTED_CODES ), std::end( ACCEPTED_CODES ), aCode );
}

} // namespace

HtResult::HtResult()
    : mCode( NOT_INITIALIZED )
    , mInternalCode( 0 )
    , mOSCode( 0 )
    , mDescription( nullptr )
{
}

HtResult::HtResult( unsigned int aCode )
    : HtResult( aCode, 0U )
{
}

HtResult::HtResult( unsigned int aCode, unsigned int aOSCode )
    : mCode( NOT_INITIALIZED )
    , mInternalCode( 0 )
    , mOSCode( aOSCode )
    , mDescription( nullptr )
{
    SetCode( aCode );
}

HtResult::HtResult( unsigned int aCode, const HtString& aDescription )
    : HtResult( aCode, 0U, aDescription )
{
}

HtResult::HtResult( unsigned int aCode, unsigned int aOSCode, const HtString& aDescription )
    : HtResult( aCode, aOSCode )
{
    SetDescription( aDescription );
}

// KEEP: A copy of an `HtResult` loses the internal code. Copying and assigning run `SetCode`
// with the source's public code, so only the object that was given the raw code still has it.
HtResult::HtResult( const HtResult& aOther )
    : mCode( NOT_INITIALIZED )
    , mInternalCode( aOther.mInternalCode )
    , mOSCode( aOther.mOSCode )
    , mDescription( nullptr )
{
    SetCode( aOther.GetCode() );
    CopyDescription( aOther );
}

// KEEP: The destructor writes 0x0400 into the code, which no living result has. It writes
// through a volatile lvalue, since a store to an object at the end of its life may otherwise be
// dropped.
HtResult::~HtResult()
{
    *const_cast<volatile unsigned int*>( &mCode ) = DESTROYED;
    delete mDescription;
    *const_cast<HtString* volatile*>( &mDescription ) = nullptr;
}

const HtResult& HtResult::operator=( const HtResult& aB )
{
    ASSERT_B();
    SetCode( aB.GetCode() );
    mOSCode = aB.mOSCode;
    CopyDescription( aB );
    return *this;
}

unsigned int HtResult::GetCode() const
{
    return Result( mCode ).GetCode();
}

unsigned int HtResult::GetInternalCode() const
{
    return mInternalCode;
}

unsigned int HtResult::GetOSCode() const
{
    return mOSCode;
}

HtString HtResult::GetCodeString() const
{
    return HtString( Result( mCode ).GetCodeString() );
}

HtString HtResult::GetDescription() const
{
    return mDescription != nullptr ? *mDescription : HtString();
}

HtResult::operator const char*() const
{
    return Result( mCode ).GetCodeString();
}

void HtResult::SetCode( unsigned int aCode )
{
    mInternalCode = aCode;
    unsigned int lCode = aCode;
    if ( !IsAccepted( aCode ) )
    {
        const auto* const lSuccessor =
            std::find_if( std::begin( SUCCESSORS ), std::end( SUCCESSORS ),
                          [aCode]( const Successor& aEntry ) { return aEntry.mRetired == aCode; } );
        lCode = lSuccessor != std::end( SUCCESSORS ) ? lSuccessor->mCode : GENERIC_ERROR;
        if ( lSuccessor == std::end( SUCCESSORS ) )
        {
            const QmUtilsLib::Logger lLogger( HtBaseLib::LOGGER_NAME,
                                              HtBaseLib::LOGGER_CONFIGURATION );
            HTBASE_LOG( &lLogger, QmUtilsLib::Logger::DETAIL, UNIT, "HtResult::SetCode",
                        "0x%08X converted to GENERIC_ERROR", aCode );
        }
    }
    mCode = Result( lCode ).GetCode();
}

void HtResult::SetDescription( const HtString& aDescription )
{
    try
    {
        if ( mDescription == nullptr )
        {
            mDescription = new HtString( aDescription );
            return;
        }
        *mDescription = aDescription;
    }
    catch ( const std::bad_alloc& )
    {
        // No text is better than that of another failure.
        delete std::exchange( mDescription, nullptr );
    }
}

bool HtResult::IsOK() const
{
    return Result( mCode ).IsOK();
}

bool HtResult::IsSuccess() const
{
    return Result( mCode ).IsSuccess();
}

bool HtResult::IsPending() const
{
    return Result( mCode ).IsPending();
}

bool HtResult::IsFailure() const
{
    return Result( mCode ).IsFailure();
}

bool HtResult::operator==( const HtResult& aB ) const
{
    ASSERT_B();
    return Result( mCode ) == Result( aB.mCode );
}

bool HtResult::operator!=( const HtResult& aB ) const
{
    ASSERT_B();
    return Result( mCode ) != Result( aB.mCode );
}

// KEEP: `HtResult == number` does not convert the number: `HtResult( 0x0010 ) == 0x0010`
// compares 0x4000 with 0x0010 and is false.
bool HtResult::operator==( unsigned int aB ) const
{
    return Result( mCode ) == Result( aB );
}

bool HtResult::operator!=( unsigned int aB ) const
{
    return Result( mCode ) != Result( aB );
}

// KEEP: `|=` changes the code only. The internal code, the OS code and the description stay.
const HtResult& HtResult::operator|=( const HtResult& aB )
{
    ASSERT_B();
    Result lResult( mCode );
    lResult |= Result( aB.mCode );
    mCode = lResult.GetCode();
    return *this;
}

// KEEP: Assigning an OK result keeps the old description, so that the text of an earlier failure
// can still be read. Copying an OK result copies no description.
void HtResult::CopyDescription( const HtResult& aOther )
{
    if ( aOther.IsOK() || &aOther == this )
    {
        return;
    }
    if ( aOther.mDescription != nullptr )
    {
        SetDescription( *aOther.mDescription );
        return;
    }
    delete std::exchange( mDescription, nullptr );
}
