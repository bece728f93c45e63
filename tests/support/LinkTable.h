// The checks that the tests of all links' virtual tables share.
#pragma once

#include "tests/support/VirtualTable.h"

#include <BaseCommandLink.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <new>

namespace TestSupport
{

DEFINE_IS_PUBLIC( GetLibLogger )
DEFINE_IS_PUBLIC( GetLinkLogger )
DEFINE_IS_PUBLIC( ReadCallback )
DEFINE_IS_PUBLIC( WriteCallback )

// Only derived links may call these operations of the abstract link.
template <typename LINK>
constexpr bool KEEPS_ITS_OWN =
    !IsPublicGetLibLogger<LINK>::value && !IsPublicGetLinkLogger<LINK>::value &&
    !IsPublicReadCallback<LINK>::value && !IsPublicWriteCallback<LINK>::value;

// Layers that fill one abstract operation each.
template <typename LINK>
struct WithLibLogger : LINK
{
    QmUtilsLib::Logger* GetLibLogger() override { return nullptr; }
};
template <typename LINK>
struct WithLinkLogger : LINK
{
    QmUtilsLib::Logger* GetLinkLogger() override { return nullptr; }
};
template <typename LINK>
using WithLoggers = WithLibLogger<WithLinkLogger<LINK>>;

// Overrides nothing of the link, so that types are those of its declarations, and adds one virtual
// operation, whose entry is the first after the link's own. Derive from it to name operations that
// only derived links may name.
template <typename LINK>
class LinkProbe : public LINK
{
public:
    using LINK::LINK;
    virtual void Behind() {}

    // Only the abstract link declares the callbacks.
    using Callback = void ( HtBaseLib::BaseCommandLink::* )( const void*, long long, long long );
    static_assert( IS<decltype( &LinkProbe::ReadCallback ), Callback>, "" );
    static_assert( IS<decltype( &LinkProbe::WriteCallback ), Callback>, "" );

    // Expects the operations of the abstract link, in their order, at the beginning of the table.
    // Returns the entry after them.
    static std::size_t ExpectAbstractLinkFirst()
    {
        std::size_t lEntry = ENTRIES_OF_DESTRUCTOR;
        EXPECT_EQ( GetEntry( &LinkProbe::ReadMemory ), lEntry++ );
        EXPECT_EQ( GetEntry( &LinkProbe::WriteMemory ), lEntry++ );
        EXPECT_EQ( GetEntry( &LinkProbe::Close ), lEntry++ );
        EXPECT_EQ( GetEntry( &LinkProbe::IsConnected ), lEntry++ );
        EXPECT_EQ( GetEntry( &LinkProbe::GetLibLogger ), lEntry++ );
        EXPECT_EQ( GetEntry( &LinkProbe::GetLinkLogger ), lEntry++ );
        EXPECT_EQ( GetEntry( &LinkProbe::ReadCallback ), lEntry++ );
        EXPECT_EQ( GetEntry( &LinkProbe::WriteCallback ), lEntry++ );
        return lEntry;
    }
};

// An object that counts its destructions.
template <typename THING>
class Mortal : public THING
{
public:
    template <typename... ARGUMENTS>
    explicit Mortal( int& aDestructions, ARGUMENTS... aArguments )
        : THING( aArguments... )
        , mDestructions( aDestructions )
    {
    }
    Mortal( const Mortal& ) = delete;
    Mortal& operator=( const Mortal& ) = delete;
    ~Mortal() override { ++mDestructions; }

private:
    int& mDestructions;
};

// Expects the destructor's entries to be the first of the table.
template <typename LINK>
void ExpectDestructorFirst()
{
    int lDestructions = 0;
    alignas( Mortal<LINK> ) unsigned char lPlace[sizeof( Mortal<LINK> )];
    CallDestructorEntry( new ( lPlace ) Mortal<LINK>( lDestructions ), 0 );
    EXPECT_EQ( lDestructions, 1 );
    CallDestructorEntry( new Mortal<LINK>( lDestructions ), 1 );
    EXPECT_EQ( lDestructions, 2 );
}

// Expects deleting a link through its base to destroy the whole link.
template <typename LINK>
void ExpectDestructionThroughTheBase()
{
    int lDestructions = 0;
    HtBaseLib::BaseCommandLink* const lLink = new Mortal<LINK>( lDestructions );
    delete lLink;
    EXPECT_EQ( lDestructions, 1 );
}

} // namespace TestSupport
