#include <HtStringList.h>

#include "Libraries/HtBase/Support/Diagnostics.h"

#include <cstddef>
#include <iterator>
#include <list>

// The items, whose addresses stay fixed, and the cursor: a position among them or their end.
class HtStringList::Implementation
{
public:
    std::list<HtString> mItems;
    std::list<HtString>::iterator mCursor = mItems.end();
};

HtStringList::HtStringList()
    : mThis( new Implementation )
{
}

HtStringList::~HtStringList()
{
    delete mThis;
}

// KEEP: Adding to an `HtStringList` moves the cursor to the end. Reading starts again with
// `GetFirst`.
void HtStringList::Add( const HtString& aValue )
{
    QMUTILSLIB_ASSERT( mThis != NULL );
    mThis->mItems.push_back( aValue );
    mThis->mCursor = mThis->mItems.end();
}

void HtStringList::Clear()
{
    QMUTILSLIB_ASSERT( mThis != NULL );
    mThis->mItems.clear();
    mThis->mCursor = mThis->mItems.end();
}

unsigned int HtStringList::GetSize() const
{
    QMUTILSLIB_ASSERT( mThis != NULL );
    return static_cast<unsigned int>( mThis->mItems.size() ); // no list holds 2^32 texts
}

HtString* HtStringList::GetItem( unsigned int aIndex )
{
    QMUTILSLIB_ASSERT( mThis != NULL );
    if ( aIndex >= GetSize() )
    {
        return nullptr;
    }
    return &*std::next( mThis->mItems.begin(), static_cast<std::ptrdiff_t>( aIndex ) );
}

HtString* HtStringList::operator[]( unsigned int aIndex )
{
    QMUTILSLIB_ASSERT( mThis != NULL );
    return GetItem( aIndex );
}

HtString* HtStringList::GetFirst()
{
    QMUTILSLIB_ASSERT( mThis != NULL );
    if ( mThis->mItems.empty() )
    {
        return nullptr;
    }
    mThis->mCursor = mThis->mItems.begin();
    return &*mThis->mCursor;
}

HtString* HtStringList::GetNext()
{
    QMUTILSLIB_ASSERT( mThis != NULL );
    if ( mThis->mCursor == mThis->mItems.end() )
    {
        return nullptr;
    }
    ++mThis->mCursor;
    return mThis->mCursor != mThis->mItems.end() ? &*mThis->mCursor : nullptr;
}
