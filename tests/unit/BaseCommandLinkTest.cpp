// The abstract link and what the GigE Vision family adds to it: signatures, access, and the places
// of the virtual operations in their table, on which binaries built against older headers rely.

#include "tests/support/LinkTable.h"
#include "tests/support/TestLinkGEV.h"
#include "tests/support/VirtualTable.h"

#include <BaseCommandLink.h>
#include <BaseCommandLinkGEV.h>
#include <SimpleCommandLinkGEV.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <type_traits>

namespace
{

using namespace TestSupport;
using HtBaseLib::BaseCommandLink;
using HtBaseLib::BaseCommandLinkGEV;
using HtBaseLib::SimpleCommandLinkGEV;
using QmUtilsLib::Logger;
using QmUtilsLib::Result;
using WdUtilsLib::GEV::CommandHeader;
using WdUtilsLib::Network::SocketUDP;

// Kinds of the classes.

static_assert( std::is_polymorphic<BaseCommandLink>::value, "" );
static_assert( std::is_abstract<BaseCommandLink>::value, "" );
static_assert( std::has_virtual_destructor<BaseCommandLink>::value, "" );
static_assert( std::is_abstract<BaseCommandLinkGEV>::value, "" );
static_assert( std::has_virtual_destructor<BaseCommandLinkGEV>::value, "" );
static_assert( std::is_base_of<BaseCommandLink, BaseCommandLinkGEV>::value, "" );
static_assert( !std::is_abstract<SimpleCommandLinkGEV>::value, "" );
static_assert( std::is_base_of<BaseCommandLinkGEV, SimpleCommandLinkGEV>::value, "" );
static_assert( std::is_copy_constructible<SimpleCommandLinkGEV>::value, "" );
static_assert( std::is_copy_assignable<SimpleCommandLinkGEV>::value, "" );
static_assert( std::is_constructible<SimpleCommandLinkGEV, SocketUDP*>::value, "" );
static_assert( !std::is_default_constructible<SimpleCommandLinkGEV>::value, "" );
static_assert( !std::is_convertible<SocketUDP*, SimpleCommandLinkGEV>::value, "" );
static_assert( !std::is_copy_constructible<SocketUDP>::value, "" );
static_assert( !std::is_copy_constructible<QmUtilsLib::Mutex>::value, "" );

// Layout: the table's pointer and the flag; four counters of 64 bits, the mutex and what owns
// it; the socket and the shared logger.
constexpr std::size_t POINTER = sizeof( void* );
static_assert( sizeof( BaseCommandLink ) == 2 * POINTER, "" );
static_assert( sizeof( BaseCommandLinkGEV ) ==
                   sizeof( BaseCommandLink ) + std::size_t{ 4 } * 8 + 2 * POINTER,
               "" );
static_assert( sizeof( SimpleCommandLinkGEV ) ==
                   sizeof( BaseCommandLinkGEV ) + POINTER + 2 * POINTER,
               "" );

// Signatures of the public operations.

static_assert( IS<decltype( &BaseCommandLink::ReadMemory ),
                  Result ( BaseCommandLink::* )( void*, long long, long long )>,
               "" );
static_assert( IS<decltype( &BaseCommandLink::WriteMemory ),
                  Result ( BaseCommandLink::* )( const void*, long long, long long, bool )>,
               "" );
static_assert( IS<decltype( &BaseCommandLink::Close ), Result ( BaseCommandLink::* )()>, "" );
static_assert( IS<decltype( &BaseCommandLink::IsConnected ), bool ( BaseCommandLink::* )() const>,
               "" );
static_assert( IS<decltype( &BaseCommandLink::SetConnectionLost ), void ( BaseCommandLink::* )()>,
               "" );
static_assert( IS<decltype( &BaseCommandLink::ResetConnectionLost ), void ( BaseCommandLink::* )()>,
               "" );
static_assert(
    IS<decltype( &BaseCommandLink::GetConnectionLost ), bool ( BaseCommandLink::* )() const>, "" );
static_assert( IS<decltype( &BaseCommandLinkGEV::ReadRegister ),
                  Result ( BaseCommandLinkGEV::* )( unsigned int*, long long )>,
               "" );
static_assert( IS<decltype( &BaseCommandLinkGEV::WriteRegister ),
                  Result ( BaseCommandLinkGEV::* )( const unsigned int*, long long, bool )>,
               "" );
static_assert( IS<decltype( &BaseCommandLinkGEV::ReadMemory ),
                  Result ( BaseCommandLinkGEV::* )( void*, long long, long long )>,
               "" );
static_assert( IS<decltype( &BaseCommandLinkGEV::WriteMemory ),
                  Result ( BaseCommandLinkGEV::* )( const void*, long long, long long, bool )>,
               "" );
static_assert( IS<decltype( &BaseCommandLinkGEV::SendCommand ),
                  Result ( BaseCommandLinkGEV::* )( CommandHeader*, void*, long long, bool )>,
               "" );
static_assert( IS<decltype( &BaseCommandLinkGEV::GetRetriesCount ),
                  long long ( BaseCommandLinkGEV::* )() const>,
               "" );
static_assert(
    IS<decltype( &BaseCommandLinkGEV::GetRetriesMax ), long long ( BaseCommandLinkGEV::* )() const>,
    "" );
static_assert( IS<decltype( &BaseCommandLinkGEV::GetPendingAcknowledgesCount ),
                  long long ( BaseCommandLinkGEV::* )() const>,
               "" );
static_assert( IS<decltype( &BaseCommandLinkGEV::GetTransmitFailures ),
                  long long ( BaseCommandLinkGEV::* )() const>,
               "" );
static_assert( IS<decltype( &BaseCommandLinkGEV::ResetStats ), void ( BaseCommandLinkGEV::* )()>,
               "" );
// The concrete link inherits memory access as it is.
static_assert(
    IS<decltype( &SimpleCommandLinkGEV::ReadMemory ), decltype( &BaseCommandLinkGEV::ReadMemory )>,
    "" );
static_assert( IS<decltype( &SimpleCommandLinkGEV::WriteMemory ),
                  decltype( &BaseCommandLinkGEV::WriteMemory )>,
               "" );

// What only derived links may call: from here its name cannot be taken.

DEFINE_IS_PUBLIC( Close )
DEFINE_IS_PUBLIC( GetRetryCount )
DEFINE_IS_PUBLIC( GetAnswerTimeout )
DEFINE_IS_PUBLIC( GetSocket )
DEFINE_IS_PUBLIC( GetRequestID )
DEFINE_IS_PUBLIC( LockMutex )
DEFINE_IS_PUBLIC( ReleaseMutex )

static_assert( IsPublicClose<BaseCommandLink>::value, "what is public is seen to be" );
static_assert( KEEPS_ITS_OWN<BaseCommandLink>, "" );
static_assert( !IsPublicGetRetryCount<BaseCommandLinkGEV>::value, "" );
static_assert( !IsPublicGetAnswerTimeout<BaseCommandLinkGEV>::value, "" );
static_assert( !IsPublicGetSocket<BaseCommandLinkGEV>::value, "" );
static_assert( !IsPublicGetRequestID<BaseCommandLinkGEV>::value, "" );
static_assert( !IsPublicLockMutex<BaseCommandLinkGEV>::value, "" );
static_assert( !IsPublicReleaseMutex<BaseCommandLinkGEV>::value, "" );

// Which operations are abstract: a class that lacks one of them is abstract, one that lacks none is
// not. Each layer fills one.

template <typename LINK>
struct WithReadMemory : LINK
{
    Result ReadMemory( void*, long long, long long ) override { return Result::OK; }
};
template <typename LINK>
struct WithWriteMemory : LINK
{
    Result WriteMemory( const void*, long long, long long, bool ) override { return Result::OK; }
};
template <typename LINK>
struct WithClose : LINK
{
    Result Close() override { return Result::OK; }
};
template <typename LINK>
struct WithIsConnected : LINK
{
    bool IsConnected() const override { return true; }
};
template <typename LINK>
struct WithRetryCount : LINK
{
    int GetRetryCount() const override { return 0; }
};
template <typename LINK>
struct WithAnswerTimeout : LINK
{
    int GetAnswerTimeout() const override { return 0; }
};
template <typename LINK>
struct WithSocket : LINK
{
    SocketUDP* GetSocket() override { return nullptr; }
};
template <typename LINK>
struct WithRequestID : LINK
{
    unsigned short GetRequestID() override { return 1; }
};

template <typename LINK>
using WithMemory = WithReadMemory<WithWriteMemory<LINK>>;
template <typename LINK>
using WithState = WithClose<WithIsConnected<LINK>>;
template <typename LINK>
using WithPolicy = WithRetryCount<WithAnswerTimeout<WithSocket<WithRequestID<LINK>>>>;

using Complete = WithMemory<WithState<WithLoggers<BaseCommandLink>>>;
static_assert( !std::is_abstract<Complete>::value, "" );
static_assert( std::is_abstract<WithWriteMemory<WithState<WithLoggers<BaseCommandLink>>>>::value,
               "" );
static_assert( std::is_abstract<WithReadMemory<WithState<WithLoggers<BaseCommandLink>>>>::value,
               "" );
static_assert( std::is_abstract<WithMemory<WithIsConnected<WithLoggers<BaseCommandLink>>>>::value,
               "" );
static_assert( std::is_abstract<WithMemory<WithClose<WithLoggers<BaseCommandLink>>>>::value, "" );
static_assert( std::is_abstract<WithMemory<WithState<WithLibLogger<BaseCommandLink>>>>::value, "" );
static_assert( std::is_abstract<WithMemory<WithState<WithLinkLogger<BaseCommandLink>>>>::value,
               "" );

using CompleteGEV = WithPolicy<WithState<WithLoggers<BaseCommandLinkGEV>>>;
using ReadyGEV = WithState<WithLoggers<BaseCommandLinkGEV>>;
static_assert( !std::is_abstract<CompleteGEV>::value, "" );
static_assert( std::is_abstract<WithAnswerTimeout<WithSocket<WithRequestID<ReadyGEV>>>>::value,
               "" );
static_assert( std::is_abstract<WithRetryCount<WithSocket<WithRequestID<ReadyGEV>>>>::value, "" );
static_assert( std::is_abstract<WithRetryCount<WithAnswerTimeout<WithRequestID<ReadyGEV>>>>::value,
               "" );
static_assert( std::is_abstract<WithRetryCount<WithAnswerTimeout<WithSocket<ReadyGEV>>>>::value,
               "" );
static_assert( std::is_abstract<WithPolicy<WithState<WithLibLogger<BaseCommandLinkGEV>>>>::value,
               "close and connection are the concrete link's as well" );
static_assert( std::is_abstract<WithPolicy<WithClose<WithLoggers<BaseCommandLinkGEV>>>>::value,
               "" );
static_assert(
    std::is_abstract<WithPolicy<WithIsConnected<WithLoggers<BaseCommandLinkGEV>>>>::value, "" );

class BaseProbe : public LinkProbe<BaseCommandLink>
{
public:
    static_assert( IS<decltype( &BaseProbe::GetLibLogger ), Logger* (BaseCommandLink::*)()>, "" );
    static_assert( IS<decltype( &BaseProbe::GetLinkLogger ), Logger* (BaseCommandLink::*)()>, "" );

    static void ExpectOrder()
    {
        const std::size_t lEntry = ExpectAbstractLinkFirst();
        EXPECT_EQ( GetEntry( &BaseProbe::Behind ), lEntry );
    }
};

class ProbeGEV : public LinkProbe<BaseCommandLinkGEV>
{
public:
    static_assert( IS<decltype( &ProbeGEV::GetRetryCount ), int ( BaseCommandLinkGEV::* )() const>,
                   "" );
    static_assert(
        IS<decltype( &ProbeGEV::GetAnswerTimeout ), int ( BaseCommandLinkGEV::* )() const>, "" );
    static_assert( IS<decltype( &ProbeGEV::GetSocket ), SocketUDP* (BaseCommandLinkGEV::*)()>, "" );
    static_assert(
        IS<decltype( &ProbeGEV::GetRequestID ), unsigned short ( BaseCommandLinkGEV::* )()>, "" );
    static_assert( IS<decltype( &ProbeGEV::LockMutex ), void ( BaseCommandLinkGEV::* )()>, "" );
    static_assert( IS<decltype( &ProbeGEV::ReleaseMutex ), void ( BaseCommandLinkGEV::* )()>, "" );

    static void ExpectOrder()
    {
        std::size_t lEntry = ExpectAbstractLinkFirst();
        EXPECT_EQ( GetEntry( &ProbeGEV::GetRetryCount ), lEntry++ );
        EXPECT_EQ( GetEntry( &ProbeGEV::GetAnswerTimeout ), lEntry++ );
        EXPECT_EQ( GetEntry( &ProbeGEV::GetSocket ), lEntry++ );
        EXPECT_EQ( GetEntry( &ProbeGEV::GetRequestID ), lEntry++ );
        EXPECT_EQ( GetEntry( &ProbeGEV::Behind ), lEntry );
    }

    static void ExpectNotVirtual()
    {
        EXPECT_EQ( GetEntry( &ProbeGEV::ReadRegister ), NOT_VIRTUAL );
        EXPECT_EQ( GetEntry( &ProbeGEV::WriteRegister ), NOT_VIRTUAL );
        EXPECT_EQ( GetEntry( &ProbeGEV::SendCommand ), NOT_VIRTUAL );
        EXPECT_EQ( GetEntry( &ProbeGEV::GetRetriesCount ), NOT_VIRTUAL );
        EXPECT_EQ( GetEntry( &ProbeGEV::GetRetriesMax ), NOT_VIRTUAL );
        EXPECT_EQ( GetEntry( &ProbeGEV::GetPendingAcknowledgesCount ), NOT_VIRTUAL );
        EXPECT_EQ( GetEntry( &ProbeGEV::GetTransmitFailures ), NOT_VIRTUAL );
        EXPECT_EQ( GetEntry( &ProbeGEV::ResetStats ), NOT_VIRTUAL );
        EXPECT_EQ( GetEntry( &ProbeGEV::LockMutex ), NOT_VIRTUAL );
        EXPECT_EQ( GetEntry( &ProbeGEV::ReleaseMutex ), NOT_VIRTUAL );
        EXPECT_EQ( GetEntry( &ProbeGEV::SetConnectionLost ), NOT_VIRTUAL );
        EXPECT_EQ( GetEntry( &ProbeGEV::ResetConnectionLost ), NOT_VIRTUAL );
        EXPECT_EQ( GetEntry( &ProbeGEV::GetConnectionLost ), NOT_VIRTUAL );
    }
};

class ProbeSimple : public LinkProbe<SimpleCommandLinkGEV>
{
public:
    // Which operations the concrete link fills itself.
    static_assert( IS<decltype( &ProbeSimple::Close ), Result ( SimpleCommandLinkGEV::* )()>, "" );
    static_assert(
        IS<decltype( &ProbeSimple::IsConnected ), bool ( SimpleCommandLinkGEV::* )() const>, "" );
    static_assert( IS<decltype( &ProbeSimple::GetLibLogger ), Logger* (SimpleCommandLinkGEV::*)()>,
                   "" );
    static_assert( IS<decltype( &ProbeSimple::GetLinkLogger ), Logger* (SimpleCommandLinkGEV::*)()>,
                   "" );
    static_assert(
        IS<decltype( &ProbeSimple::GetRetryCount ), int ( SimpleCommandLinkGEV::* )() const>, "" );
    static_assert(
        IS<decltype( &ProbeSimple::GetAnswerTimeout ), int ( SimpleCommandLinkGEV::* )() const>,
        "" );
    static_assert( IS<decltype( &ProbeSimple::GetSocket ), SocketUDP* (SimpleCommandLinkGEV::*)()>,
                   "" );
    static_assert(
        IS<decltype( &ProbeSimple::GetRequestID ), unsigned short ( SimpleCommandLinkGEV::* )()>,
        "" );
};

TEST( BaseCommandLinkTable, StartsWithTheDestructor )
{
    ExpectDestructorFirst<Complete>();
}

TEST( BaseCommandLinkTable, KeepsTheOrderOfTheAbstractLink )
{
    BaseProbe::ExpectOrder();
}

TEST( BaseCommandLinkTable, HasTheGigEVisionOperationsAtTheEnd )
{
    ProbeGEV::ExpectOrder();
}

TEST( BaseCommandLinkTable, ContainsNothingElse )
{
    ProbeGEV::ExpectNotVirtual();
    EXPECT_EQ( GetEntry( &ProbeSimple::Behind ), GetEntry( &ProbeGEV::Behind ) );
}

TEST( BaseCommandLink, IsDestroyedThroughItsBase )
{
    ExpectDestructionThroughTheBase<Complete>();
}

TEST( BaseCommandLink, StartsWithTheConnectionNotLost )
{
    const Complete lLink;
    EXPECT_FALSE( lLink.GetConnectionLost() );
}

TEST( BaseCommandLink, KeepsTheFlagAsItsOwnerSetsIt )
{
    Complete lLink;
    lLink.SetConnectionLost();
    EXPECT_TRUE( lLink.GetConnectionLost() );
    lLink.SetConnectionLost();
    EXPECT_TRUE( lLink.GetConnectionLost() );
    lLink.ResetConnectionLost();
    EXPECT_FALSE( lLink.GetConnectionLost() );
}

TEST( BaseCommandLink, CopiesTheFlag )
{
    Complete lLost;
    lLost.SetConnectionLost();
    Complete lCopy( lLost );
    EXPECT_TRUE( lCopy.GetConnectionLost() );

    lLost.ResetConnectionLost();
    EXPECT_TRUE( lCopy.GetConnectionLost() );

    lCopy = lLost;
    EXPECT_FALSE( lCopy.GetConnectionLost() );
    lLost.SetConnectionLost();
    lCopy = lLost;
    EXPECT_TRUE( lCopy.GetConnectionLost() );
}

// Calls the callbacks that are there when a link brings none.
struct Caller : Complete
{
    void CallBoth( const void* aData )
    {
        ReadCallback( aData, 0x0934, 4 );
        WriteCallback( aData, 0x0934, 4 );
    }
};

TEST( BaseCommandLink, HasCallbacksThatDoNothing )
{
    Caller lLink;
    const unsigned int lData = 0x01020304;
    lLink.CallBoth( &lData );
    lLink.CallBoth( nullptr ); // nothing looks at it
    EXPECT_EQ( lData, 0x01020304U );
    EXPECT_FALSE( lLink.GetConnectionLost() );
}

TEST( BaseCommandLink, ReachesTheLinkThroughItsBase )
{
    TestSupport::TestLinkGEV lLink( nullptr );
    BaseCommandLink& lBase = lLink;
    unsigned char lData[4] = {};
    EXPECT_EQ( lBase.ReadMemory( lData, 0, 4 ).GetCode(), 0x0017U );
    EXPECT_EQ( lBase.WriteMemory( lData, 0, 4, false ).GetCode(), 0x0017U );
    EXPECT_EQ( lBase.Close().GetCode(), 0x0604U );
    EXPECT_TRUE( lBase.IsConnected() );
}

} // namespace
