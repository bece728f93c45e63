/// @file
/// HtBase: an ordered list of texts with a cursor.
#pragma once

#include <HtExport.h>
#include <HtString.h>

/// HtStringList holds copies of texts in the order in which they were added, and a cursor for
/// reading them one after the other.
///
/// Returned pointers point at the items themselves and stay valid until Clear or destruction;
/// adding further items moves none. Add and Clear park the cursor at the end, so reading starts
/// again with GetFirst after a change. Not copyable. Operations on one list need the caller's lock.
/// Making a list and Add may throw std::bad_alloc; the list and its cursor are then as they were
/// before.
class HTBASE_API HtStringList
{
public:
    /// An empty list, cursor at the end.
    ///@{
    HtStringList();
    ~HtStringList();
    ///@}

    HtStringList( const HtStringList& ) = delete;
    HtStringList& operator=( const HtStringList& ) = delete;

    /// Appends a copy and parks the cursor at the end. The text may be an item of this list.
    void Add( const HtString& aValue );

    /// Removes all items and parks the cursor at the end.
    void Clear();

    /// The number of items.
    unsigned int GetSize() const;

    /// The item at a position counted from 0, or null beyond the end. Takes as many steps as the
    /// position says. The cursor stays where it is.
    ///@{
    HtString* GetItem( unsigned int aIndex );
    HtString* operator[]( unsigned int aIndex );
    ///@}

    /// Puts the cursor on the first item and returns it; null for an empty list.
    HtString* GetFirst();

    /// Moves the cursor on by one and returns the item there; null at the end, where it stays.
    HtString* GetNext();

private:
    class Implementation;
    Implementation* mThis; // owned
};
