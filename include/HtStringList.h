/// @file
/// HtBase: an ordered list of texts with a cursor.
#pragma once

#include <HtExport.h>
#include <HtString.h>

/// HtStringList holds copies of texts in the order in which they were added, and a cursor to read
/// them one after the other.
///
/// The list owns its items. A pointer to an item is valid until Clear or destruction; adding items
/// moves none. Add and Clear set the cursor to the end: after them, read from GetFirst on. The list
/// is not copyable. The constructor and Add throw `std::bad_alloc` where memory is missing; list
/// and cursor are then unchanged.
class HTBASE_API HtStringList
{
public:
    /// An empty list with its cursor at the end.
    HtStringList();
    ~HtStringList();

    HtStringList( const HtStringList& ) = delete;
    HtStringList& operator=( const HtStringList& ) = delete;

    /// Add appends a copy and sets the cursor to the end. aValue may be an item of this list.
    void Add( const HtString& aValue );

    /// Clear removes all items and sets the cursor to the end.
    void Clear();

    /// The number of items.
    unsigned int GetSize() const;

    /// The item at a position counted from 0, or null beyond the end. It takes time in proportion
    /// to aIndex. The cursor stays.
    ///@{
    HtString* GetItem( unsigned int aIndex );
    HtString* operator[]( unsigned int aIndex );
    ///@}

    /// GetFirst sets the cursor to the first item and returns it. Null for an empty list.
    HtString* GetFirst();

    /// GetNext moves the cursor to the next item and returns it. At the end it returns null and the
    /// cursor stays.
    HtString* GetNext();

private:
    class Implementation;
    Implementation* mThis; // owned
};
