/// @file
/// WdUtilsLib: GVCP DISCOVERY.
#pragma once

#include <WdUtilsLib/GEV/AcknowledgeHeader.h>
#include <WdUtilsLib/GEV/CommandHeader.h>
#include <WdUtilsLib/Network/EthernetAddress.h>
#include <WdUtilsLib/Network/IpAddress.h>

#include <string>

namespace WdUtilsLib
{
namespace GEV
{

/// DiscoveryCommand asks a device, or by broadcast every device, who it is. It has no payload.
class WDUTILSLIB_API DiscoveryCommand : public CommandHeader
{
public:
    static constexpr unsigned short COMMAND = 0x0002; ///< the command code

    DiscoveryCommand();

    /// Allows the device to answer by broadcast (flag 0x10), for devices whose address does not fit
    /// the network they are on.
    void InitFlagAllowBroadcastAcknowledge( bool aAllow );
};

/// DiscoveryAcknowledge carries the bootstrap registers 0x0000 to 0x00F7, 248 bytes. The texts end
/// at their first zero byte or the end of their field; their bytes are the device's own.
class WDUTILSLIB_API DiscoveryAcknowledge : public AcknowledgeHeader
{
public:
    static constexpr std::size_t PAYLOAD_SIZE = 248; ///< bytes behind the header

    /// A view of the aSize bytes at aBuffer.
    DiscoveryAcknowledge( const void* aBuffer, std::size_t aSize );

    /// True when the payload is whole. Everything below reads as zero, or empty, otherwise.
    bool IsComplete() const;

    unsigned short GetVersionMajor() const;         ///< 0x0000
    unsigned short GetVersionMinor() const;         ///< 0x0002
    Network::EthernetAddress GetMacAddress() const; ///< 0x0008, 0x000C
    Network::IpAddress GetIpAddress() const;        ///< 0x0024
    Network::IpAddress GetSubnetMask() const;       ///< 0x0034
    Network::IpAddress GetDefaultGateway() const;   ///< 0x0044
    std::string GetManufacturerName() const;        ///< 0x0048, 32 bytes
    std::string GetModelName() const;               ///< 0x0068, 32 bytes
    std::string GetDeviceVersion() const;           ///< 0x0088, 32 bytes
    std::string GetManufacturerInformation() const; ///< 0x00A8, 48 bytes
    std::string GetSerialNumber() const;            ///< 0x00D8, 16 bytes
    std::string GetUserDefinedName() const;         ///< 0x00E8, 16 bytes

private:
    // The bootstrap block at an offset; zero, or empty, unless it is whole.
    uint32_t GetRegister( std::size_t aOffset ) const;
    std::string GetText( std::size_t aOffset, std::size_t aSize ) const;
};

} // namespace GEV
} // namespace WdUtilsLib
