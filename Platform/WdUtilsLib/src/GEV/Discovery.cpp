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
    return MakeReader( HEADER_SIZE + PAYLOAD_SIZE ).IsWhole();
}

unsigned short DiscoveryAcknowledge::GetVersionMajor() const
{
    return static_cast<unsigned short>( GetRegister( 0x00 ) >> 16 );
}

unsigned short DiscoveryAcknowledge::GetVersionMinor() const
{
    return static_cast<unsigned short>( GetRegister( 0x00 ) & 0xFFFFU );
}

Network::EthernetAddress DiscoveryAcknowledge::GetMacAddress() const
{
    return Network::EthernetAddress( GetRegister( 0x08 ), GetRegister( 0x0C ) );
}

Network::IpAddress DiscoveryAcknowledge::GetIpAddress() const
{
    return Network::IpAddress( GetRegister( 0x24 ) );
}

Network::IpAddress DiscoveryAcknowledge::GetSubnetMask() const
{
    return Network::IpAddress( GetRegister( 0x34 ) );
}

Network::IpAddress DiscoveryAcknowledge::GetDefaultGateway() const
{
    return Network::IpAddress( GetRegister( 0x44 ) );
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

uint32_t DiscoveryAcknowledge::GetRegister( std::size_t aOffset ) const
{
    return IsComplete() ? MakeReader( HEADER_SIZE + aOffset ).Get32() : 0;
}

std::string DiscoveryAcknowledge::GetText( std::size_t aOffset, std::size_t aSize ) const
{
    if ( !IsComplete() )
    {
        return std::string();
    }
    std::string lText( aSize, '\0' );
    MakeReader( HEADER_SIZE + aOffset ).GetBytes( lText.data(), aSize );
    return lText.substr( 0, lText.find( '\0' ) );
}

} // namespace GEV
} // namespace WdUtilsLib
