#include <WdUtilsLib/GEV/Discovery.h>

namespace WdUtilsLib
{
namespace GEV
{

namespace
{

constexpr uint8_t FLAG_ALLOW_BROADCAST_ACKNOWLEDGE = 0x10;

} // namespace

static_assert( sizeof( DiscoveryCommand ) == CommandHeader::MAX_SIZE, "no members are added" );

DiscoveryCommand::DiscoveryCommand()
    : CommandHeader( COMMAND )
{
}

void DiscoveryCommand::InitFlagAllowBroadcastAcknowledge( bool aAllow )
{
    InitFlag( FLAG_ALLOW_BROADCAST_ACKNOWLEDGE, aAllow );
}

DiscoveryAcknowledge::DiscoveryAcknowledge( const void* aBuffer, std::size_t aSize )
    : AcknowledgeHeader( aBuffer, aSize )
{
}

bool DiscoveryAcknowledge::IsComplete() const
{
    return GetPayloadSize() >= PAYLOAD_SIZE;
}

unsigned short DiscoveryAcknowledge::GetVersionMajor() const
{
    return Get16( 0x00 );
}

unsigned short DiscoveryAcknowledge::GetVersionMinor() const
{
    return Get16( 0x02 );
}

Network::EthernetAddress DiscoveryAcknowledge::GetMacAddress() const
{
    return Network::EthernetAddress( Get32( 0x08 ), Get32( 0x0C ) );
}

Network::IpAddress DiscoveryAcknowledge::GetIpAddress() const
{
    return Network::IpAddress( Get32( 0x24 ) );
}

Network::IpAddress DiscoveryAcknowledge::GetSubnetMask() const
{
    return Network::IpAddress( Get32( 0x34 ) );
}

Network::IpAddress DiscoveryAcknowledge::GetDefaultGateway() const
{
    return Network::IpAddress( Get32( 0x44 ) );
}

std::string DiscoveryAcknowledge::GetManufacturerName() const
{
    return GetText( 0x48, 32 );
}

std::string DiscoveryAcknowledge::GetModelName() const
{
    return GetText( 0x68, 32 );
}

std::string DiscoveryAcknowledge::GetDeviceVersion() const
{
    return GetText( 0x88, 32 );
}

std::string DiscoveryAcknowledge::GetManufacturerInformation() const
{
    return GetText( 0xA8, 48 );
}

std::string DiscoveryAcknowledge::GetSerialNumber() const
{
    return GetText( 0xD8, 16 );
}

std::string DiscoveryAcknowledge::GetUserDefinedName() const
{
    return GetText( 0xE8, 16 );
}

std::string DiscoveryAcknowledge::GetText( std::size_t aOffset, std::size_t aSize ) const
{
    std::string lText( aSize, '\0' );
    (void)GetBytes( aOffset, &lText[0], aSize ); // empty where there is nothing
    return lText.substr( 0, lText.find( '\0' ) );
}

} // namespace GEV
} // namespace WdUtilsLib
