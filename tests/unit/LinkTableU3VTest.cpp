// What the USB3 Vision family adds to the abstract link: signatures, access, layout, and the places
// of the virtual operations in their table, on which binaries built against older headers rely.

#include "tests/support/LinkTable.h"
#include "tests/support/TestLinkU3V.h"
#include "tests/support/VirtualTable.h"

#include <BaseCommandLink.h>
#include <BaseCommandLinkU3V.h>
#include <CapabilitiesU3V.h>
#include <SimpleCommandLinkU3V.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <type_traits>
#include <utility>

namespace
{

using namespace TestSupport;
using HtBaseLib::BaseCommandLink;
using HtBaseLib::BaseCommandLinkU3V;
using HtBaseLib::CapabilitiesU3V;
using HtBaseLib::SimpleCommandLinkU3V;
using HtBaseLib::StringEncoding;
using QmUtilsLib::Logger;
using QmUtilsLib::Result;
using WdTransportLayerLib::U3V::DCI_COMMAND;
using WdTransportLayerLib::U3V::DCIConfiguration;
using WdTransportLayerLib::U3V::DeviceControlInterface;
using WdUtilsLib::U3V::U3VGUID;

// Kinds of the classes.

static_assert( std::is_abstract<BaseCommandLinkU3V>::value, "" );
static_assert( std::has_virtual_destructor<BaseCommandLinkU3V>::value, "" );
static_assert( std::is_base_of<BaseCommandLink, BaseCommandLinkU3V>::value, "" );
static_assert( !std::is_abstract<SimpleCommandLinkU3V>::value, "" );
static_assert( std::is_base_of<BaseCommandLinkU3V, SimpleCommandLinkU3V>::value, "" );
static_assert( std::is_default_constructible<SimpleCommandLinkU3V>::value, "" );
static_assert( std::is_copy_constructible<SimpleCommandLinkU3V>::value, "" );
static_assert( IS<decltype( std::declval<SimpleCommandLinkU3V&>() =
                                std::declval<const SimpleCommandLinkU3V&>() ),
                  SimpleCommandLinkU3V&>,
               "" );
static_assert( std::has_virtual_destructor<CapabilitiesU3V>::value, "" );
static_assert( std::is_copy_constructible<CapabilitiesU3V>::value, "" );
static_assert(
    IS<decltype( std::declval<CapabilitiesU3V&>() = std::declval<const CapabilitiesU3V&>() ),
       CapabilitiesU3V&>,
    "" );
static_assert( std::is_constructible<CapabilitiesU3V, const U3VGUID&, unsigned char*>::value, "" );
static_assert( !std::is_default_constructible<CapabilitiesU3V>::value, "" );

// Layout, in words of 64 bits: the shared control interface, the identity of 13 bytes, the shared
// path, two limits of 32 bits, what assignments have replaced; the shared logger; and the record.
constexpr std::size_t WORD = 8;
static_assert( sizeof( U3VGUID ) == 13, "" );
static_assert( sizeof( BaseCommandLinkU3V ) == sizeof( BaseCommandLink ) + 10 * WORD, "" );
static_assert( sizeof( SimpleCommandLinkU3V ) == sizeof( BaseCommandLinkU3V ) + 2 * WORD, "" );
static_assert( sizeof( CapabilitiesU3V ) == 23 * WORD, "" );

// The records that the control interface gets, field by field.

static_assert( offsetof( DCI_COMMAND, mResult ) == 0, "" );
static_assert( offsetof( DCI_COMMAND, mCommand ) == sizeof( Result ), "" );
static_assert( offsetof( DCI_COMMAND, mCommandLength ) == sizeof( Result ) + WORD, "" );
static_assert( offsetof( DCI_COMMAND, mAck ) == sizeof( Result ) + 2 * WORD, "" );
static_assert( offsetof( DCI_COMMAND, mAckLength ) == sizeof( Result ) + 3 * WORD, "" );
static_assert( IS<decltype( DCI_COMMAND::mCommand ), unsigned char*>, "" );
static_assert( IS<decltype( DCI_COMMAND::mCommandLength ), uint32_t>, "" );
static_assert( IS<decltype( DCI_COMMAND::mAck ), unsigned char*>, "" );
static_assert( IS<decltype( DCI_COMMAND::mAckLength ), uint32_t>, "" );
static_assert( offsetof( DCIConfiguration, mMaxDeviceResponseTime ) == 0, "" );
static_assert( offsetof( DCIConfiguration, mMaxCommandTransferLength ) == 4, "" );
static_assert( offsetof( DCIConfiguration, mMaxAckTransferLength ) == 8, "" );
static_assert( sizeof( DCIConfiguration ) == 12, "" );

// Signatures of the public operations.

static_assert( IS<decltype( &BaseCommandLinkU3V::ReadMemory ),
                  Result ( BaseCommandLinkU3V::* )( void*, long long, long long )>,
               "" );
static_assert( IS<decltype( &BaseCommandLinkU3V::WriteMemory ),
                  Result ( BaseCommandLinkU3V::* )( const void*, long long, long long, bool )>,
               "" );
static_assert( IS<decltype( &BaseCommandLinkU3V::Close ), Result ( BaseCommandLinkU3V::* )()>, "" );
static_assert(
    IS<decltype( &BaseCommandLinkU3V::IsConnected ), bool ( BaseCommandLinkU3V::* )() const>, "" );
static_assert( IS<decltype( &BaseCommandLinkU3V::Open ),
                  Result ( BaseCommandLinkU3V::* )( const U3VGUID&, const std::string& )>,
               "" );
static_assert( IS<decltype( &BaseCommandLinkU3V::Read ),
                  Result ( BaseCommandLinkU3V::* )( void*, long long, long long )>,
               "" );
static_assert( IS<decltype( &BaseCommandLinkU3V::Write ),
                  Result ( BaseCommandLinkU3V::* )( const void*, long long, long long, bool )>,
               "" );
static_assert( IS<decltype( &BaseCommandLinkU3V::AtomicWriteAndRead ),
                  Result ( BaseCommandLinkU3V::* )( const void*, long long, long long, void*,
                                                    long long, long long )>,
               "" );
static_assert(
    IS<decltype( &BaseCommandLinkU3V::GetGUID ), const U3VGUID& (BaseCommandLinkU3V::*)() const>,
    "" );
static_assert( IS<decltype( &BaseCommandLinkU3V::GetDevicePath ),
                  const std::string& (BaseCommandLinkU3V::*)() const>,
               "" );
static_assert( IS<decltype( &BaseCommandLinkU3V::GetMaxCommandSize ),
                  unsigned int ( BaseCommandLinkU3V::* )() const>,
               "" );
static_assert( IS<decltype( &BaseCommandLinkU3V::GetMaxAckSize ),
                  unsigned int ( BaseCommandLinkU3V::* )() const>,
               "" );

// The concrete link inherits everything but the loggers and its role.
static_assert( IS<decltype( &SimpleCommandLinkU3V::Open ), decltype( &BaseCommandLinkU3V::Open )>,
               "" );
static_assert( IS<decltype( &SimpleCommandLinkU3V::Close ), decltype( &BaseCommandLinkU3V::Close )>,
               "" );
static_assert( IS<decltype( &SimpleCommandLinkU3V::Read ), decltype( &BaseCommandLinkU3V::Read )>,
               "" );
static_assert( IS<decltype( &SimpleCommandLinkU3V::Write ), decltype( &BaseCommandLinkU3V::Write )>,
               "" );
static_assert(
    IS<decltype( &SimpleCommandLinkU3V::ReadMemory ), decltype( &BaseCommandLinkU3V::ReadMemory )>,
    "" );
static_assert( IS<decltype( &SimpleCommandLinkU3V::WriteMemory ),
                  decltype( &BaseCommandLinkU3V::WriteMemory )>,
               "" );
static_assert( IS<decltype( &SimpleCommandLinkU3V::IsConnected ),
                  decltype( &BaseCommandLinkU3V::IsConnected )>,
               "" );

// What the record offers.

static_assert(
    IS<decltype( &CapabilitiesU3V::Init ), Result ( CapabilitiesU3V::* )( BaseCommandLinkU3V* )>,
    "" );
static_assert( IS<decltype( &CapabilitiesU3V::GetCapabilities ),
                  CapabilitiesU3V* (*)( const U3VGUID&, unsigned char* )>,
               "" );
static_assert( IS<decltype( &CapabilitiesU3V::Destroy ), void ( * )()>, "" );
static_assert( IS<decltype( &CapabilitiesU3V::IsInitialized ), bool ( CapabilitiesU3V::* )()>, "" );
static_assert( IS<decltype( &CapabilitiesU3V::GetStringEncoding ),
                  StringEncoding ( CapabilitiesU3V::* )() const>,
               "" );
static_assert( sizeof( StringEncoding ) == 4, "" );
static_assert( static_cast<uint32_t>( StringEncoding::ASCII ) == 0, "" );
static_assert( static_cast<uint32_t>( StringEncoding::UTF8 ) == 1, "" );
static_assert( static_cast<uint32_t>( StringEncoding::UTF16 ) == 2, "" );
static_assert( static_cast<uint32_t>( StringEncoding::UNKNOWN ) == 0xFFFFFFFF, "" );

// What only derived links and records may call: from here its name cannot be taken.

DEFINE_IS_PUBLIC( Open )
DEFINE_IS_PUBLIC( GetDCI )
DEFINE_IS_PUBLIC( SendCommand )
DEFINE_IS_PUBLIC( SendAtomicCommands )
DEFINE_IS_PUBLIC( ResultFromStatus )
DEFINE_IS_PUBLIC( UpdateMaxSizes )
DEFINE_IS_PUBLIC( IsMaster )
DEFINE_IS_PUBLIC( UpdateABRM )
DEFINE_IS_PUBLIC( UpdateSBRM )

static_assert( IsPublicOpen<BaseCommandLinkU3V>::value, "what is public is seen to be" );
static_assert( !IsPublicGetDCI<SimpleCommandLinkU3V>::value, "" );
static_assert( !IsPublicSendCommand<SimpleCommandLinkU3V>::value, "" );
static_assert( !IsPublicSendAtomicCommands<SimpleCommandLinkU3V>::value, "" );
static_assert( !IsPublicResultFromStatus<SimpleCommandLinkU3V>::value, "" );
static_assert( !IsPublicUpdateMaxSizes<SimpleCommandLinkU3V>::value, "" );
static_assert( !IsPublicIsMaster<SimpleCommandLinkU3V>::value, "" );
static_assert( KEEPS_ITS_OWN<SimpleCommandLinkU3V>, "" );
static_assert( !IsPublicUpdateABRM<CapabilitiesU3V>::value, "" );
static_assert( !IsPublicUpdateSBRM<CapabilitiesU3V>::value, "" );

// Which operations are abstract: each layer fills one, and none can be left out.

template <typename LINK>
struct WithMaster : LINK
{
    bool IsMaster() const override { return true; }
};

using Complete = WithMaster<WithLibLogger<WithLinkLogger<BaseCommandLinkU3V>>>;
static_assert( !std::is_abstract<Complete>::value, "" );
static_assert( std::is_abstract<WithLibLogger<WithLinkLogger<BaseCommandLinkU3V>>>::value, "" );
static_assert( std::is_abstract<WithMaster<WithLinkLogger<BaseCommandLinkU3V>>>::value, "" );
static_assert( std::is_abstract<WithMaster<WithLibLogger<BaseCommandLinkU3V>>>::value, "" );

class ProbeU3V : public LinkProbe<BaseCommandLinkU3V>
{
public:
    static_assert( IS<decltype( &ProbeU3V::IsMaster ), bool ( BaseCommandLinkU3V::* )() const>,
                   "" );
    static_assert(
        IS<decltype( &ProbeU3V::GetDCI ), DeviceControlInterface* (BaseCommandLinkU3V::*)()>, "" );
    static_assert(
        IS<decltype( &ProbeU3V::SendCommand ),
           Result ( BaseCommandLinkU3V::* )( unsigned char*, unsigned int, unsigned char*,
                                             unsigned int, unsigned int& )>,
        "" );
    static_assert( IS<decltype( &ProbeU3V::SendAtomicCommands ),
                      Result ( BaseCommandLinkU3V::* )( DCI_COMMAND*, unsigned int )>,
                   "" );
    static_assert( IS<decltype( &ProbeU3V::ResultFromStatus ),
                      Result ( BaseCommandLinkU3V::* )( unsigned short )>,
                   "" );
    static_assert( IS<decltype( &ProbeU3V::UpdateMaxSizes ), void ( BaseCommandLinkU3V::* )()>,
                   "" );
    // The family keeps the loggers of the abstract link.
    static_assert( IS<decltype( &ProbeU3V::GetLibLogger ), Logger* (BaseCommandLink::*)()>, "" );
    static_assert( IS<decltype( &ProbeU3V::GetLinkLogger ), Logger* (BaseCommandLink::*)()>, "" );

    static void ExpectOrder()
    {
        std::size_t lEntry = ExpectAbstractLinkFirst();
        EXPECT_EQ( GetEntry( &ProbeU3V::Open ), lEntry++ );
        EXPECT_EQ( GetEntry( &ProbeU3V::Read ), lEntry++ );
        EXPECT_EQ( GetEntry( &ProbeU3V::Write ), lEntry++ );
        EXPECT_EQ( GetEntry( &ProbeU3V::IsMaster ), lEntry++ );
        EXPECT_EQ( GetEntry( &ProbeU3V::Behind ), lEntry );
    }

    static void ExpectNotVirtual()
    {
        EXPECT_EQ( GetEntry( &ProbeU3V::AtomicWriteAndRead ), NOT_VIRTUAL );
        EXPECT_EQ( GetEntry( &ProbeU3V::GetGUID ), NOT_VIRTUAL );
        EXPECT_EQ( GetEntry( &ProbeU3V::GetDevicePath ), NOT_VIRTUAL );
        EXPECT_EQ( GetEntry( &ProbeU3V::GetMaxCommandSize ), NOT_VIRTUAL );
        EXPECT_EQ( GetEntry( &ProbeU3V::GetMaxAckSize ), NOT_VIRTUAL );
        EXPECT_EQ( GetEntry( &ProbeU3V::GetDCI ), NOT_VIRTUAL );
        EXPECT_EQ( GetEntry( &ProbeU3V::SendCommand ), NOT_VIRTUAL );
        EXPECT_EQ( GetEntry( &ProbeU3V::SendAtomicCommands ), NOT_VIRTUAL );
        EXPECT_EQ( GetEntry( &ProbeU3V::ResultFromStatus ), NOT_VIRTUAL );
        EXPECT_EQ( GetEntry( &ProbeU3V::UpdateMaxSizes ), NOT_VIRTUAL );
    }
};

class ProbeSimple : public LinkProbe<SimpleCommandLinkU3V>
{
public:
    // Which operations the concrete link fills itself.
    static_assert( IS<decltype( &ProbeSimple::GetLibLogger ), Logger* (SimpleCommandLinkU3V::*)()>,
                   "" );
    static_assert( IS<decltype( &ProbeSimple::GetLinkLogger ), Logger* (SimpleCommandLinkU3V::*)()>,
                   "" );
    static_assert( IS<decltype( &ProbeSimple::IsMaster ), bool ( SimpleCommandLinkU3V::* )() const>,
                   "" );
};

class ProbeRecord : public CapabilitiesU3V
{
public:
    virtual void Behind() {}

    static void ExpectNothingButTheDestructor()
    {
        EXPECT_EQ( GetEntry( &ProbeRecord::Behind ), ENTRIES_OF_DESTRUCTOR );
        EXPECT_EQ( GetEntry( &ProbeRecord::Init ), NOT_VIRTUAL );
        EXPECT_EQ( GetEntry( &ProbeRecord::UpdateABRM ), NOT_VIRTUAL );
        EXPECT_EQ( GetEntry( &ProbeRecord::UpdateSBRM ), NOT_VIRTUAL );
        EXPECT_EQ( GetEntry( &ProbeRecord::IsInitialized ), NOT_VIRTUAL );
    }
};

TEST( CommandLinkTableU3V, StartsWithTheDestructor )
{
    ExpectDestructorFirst<SimpleCommandLinkU3V>();
}

TEST( CommandLinkTableU3V, HasTheUSB3VisionOperationsAfterTheAbstractLink )
{
    ProbeU3V::ExpectOrder();
}

TEST( CommandLinkTableU3V, ContainsNothingElse )
{
    ProbeU3V::ExpectNotVirtual();
    EXPECT_EQ( GetEntry( &ProbeSimple::Behind ), GetEntry( &ProbeU3V::Behind ) );
}

TEST( CommandLinkTableU3V, IsReachedThroughTheBase )
{
    TestLinkU3V lLink;
    BaseCommandLink& lBase = lLink;
    unsigned char lData[4] = {};
    EXPECT_EQ( lBase.ReadMemory( lData, 0, 4 ).GetCode(), 0x0017U );
    EXPECT_EQ( lBase.WriteMemory( lData, 0, 4, false ).GetCode(), 0x0017U );
    EXPECT_FALSE( lBase.IsConnected() );
    EXPECT_TRUE( lBase.Close().IsOK() );
    EXPECT_EQ( lLink.GetMaxAckSize(), 0U );
}

TEST( CommandLinkTableU3V, DestroysThroughTheBase )
{
    ExpectDestructionThroughTheBase<SimpleCommandLinkU3V>();
}

TEST( CapabilitiesTableU3V, ContainsOnlyTheDestructor )
{
    using MortalRecord = Mortal<CapabilitiesU3V>;
    int lDestructions = 0;
    CapabilitiesU3V* const lRecord =
        new MortalRecord( lDestructions, U3VGUID( "1AB200C0FFEE" ), nullptr );
    delete lRecord;
    EXPECT_EQ( lDestructions, 1 );
    ProbeRecord::ExpectNothingButTheDestructor();
}

} // namespace
